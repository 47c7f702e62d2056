/*
 * qmi_service_object.h - what a service object holds in the host QMI
 * libraries (internal).
 *
 * The services library hands out the object; the client and message
 * libraries recognise the phonebook service by its contents, so that none
 * of the three needs another's symbols.
 */
#ifndef QMI_SERVICE_OBJECT_H
#define QMI_SERVICE_OBJECT_H

#include <cstdint>

#include "phonebook_manager_service_v01.h"
#include "qmi_client.h"

struct qmi_idl_service_object {
    uint32_t service_id;
    int32_t idl_major;
    int32_t idl_minor;
    int32_t tool_version;
};

/* The phonebook manager's QMI service id. */
constexpr uint32_t PBM_SERVICE_ID = 0x0C;

inline bool is_pbm_object(const qmi_idl_service_object *obj)
{
    return obj != nullptr && obj->service_id == PBM_SERVICE_ID && obj->idl_major == PBM_V01_IDL_MAJOR_VERS &&
           obj->idl_minor == PBM_V01_IDL_MINOR_VERS && obj->tool_version == PBM_V01_IDL_TOOL_VERS;
}

#endif /* QMI_SERVICE_OBJECT_H */
