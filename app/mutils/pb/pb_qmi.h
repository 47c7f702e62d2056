/*
 * pb_qmi.h - the modem phonebook client (QMI PBM): lifecycle, reading the
 * SIM phonebook into the SIM phonebook file, and writing SIM records.
 *
 * Threads: pb_qmi_init()/pb_qmi_fin() run in the host's thread; requests run
 * on the service thread; the QMI library's callback thread only decodes
 * indications and forwards record-read ones to MU_ID over IPC.
 */
#ifndef PB_QMI_H
#define PB_QMI_H

#include <stddef.h>

#include "phonebook_manager_service_v01.h"
#include "qmi_client.h"
#include "zp_common.h"
#include "zpt_ui_pb_api.h"

#ifdef __cplusplus
extern "C" {
#endif

int pb_qmi_init(void);
int wm_qmi_init_client(qmi_idl_service_object_type *service_object, qmi_client_type *service_notifier,
                       qmi_service_info *service_info);
int pb_qmi_fin(void);

int pb_qmi_get_all(void);
pb_return_code_enum_t pb_send_request_asyn(zp_uint32 dest_id, zp_uint32 msg_id, const void *data, size_t len);
pb_return_code_enum_t pb_qmi_read_cb(pbm_record_read_ind_msg_v01 *pbm_read_ind);

int pb_qmi_add_entry(pb_flash_info *info);
int pb_qmi_edit_entry(pb_flash_info *info);
int pb_qmi_del_entry(pb_flash_info *info);
int pb_qmi_del_all(void);

#ifdef __cplusplus
}
#endif

#endif /* PB_QMI_H */
