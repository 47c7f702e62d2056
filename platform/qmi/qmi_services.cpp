// Host service-definition library: the phonebook manager's service object.
#include "qmi_service_object.h"

namespace {

const qmi_idl_service_object kPbmObject{PBM_SERVICE_ID, PBM_V01_IDL_MAJOR_VERS, PBM_V01_IDL_MINOR_VERS,
                                        PBM_V01_IDL_TOOL_VERS};

}  // namespace

extern "C" qmi_idl_service_object_type
pbm_get_service_object_internal_v01(int32_t idl_maj_version, int32_t idl_min_version, int32_t library_version)
{
    if (idl_maj_version != kPbmObject.idl_major || idl_min_version != kPbmObject.idl_minor ||
        library_version != kPbmObject.tool_version)
        return nullptr;
    // The libraries only read the object; the C API's handle type is not const.
    return const_cast<qmi_idl_service_object *>(&kPbmObject);
}
