// Host message library: the C structure sizes of the phonebook messages.
#include "pbm_wire.h"
#include "qmi_service_object.h"

extern "C" int32_t qmi_idl_get_message_c_struct_len(const qmi_idl_service_object_type p_service,
                                                    qmi_idl_type_of_message_type message_type,
                                                    uint16_t message_id, uint32_t *c_struct_len)
{
    if (!is_pbm_object(p_service) || !c_struct_len)
        return QMI_IDL_LIB_PARAMETER_ERROR;
    return qmi_wire::c_struct_len(message_type, message_id, c_struct_len) ? QMI_IDL_LIB_NO_ERR
                                                                          : QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND;
}
