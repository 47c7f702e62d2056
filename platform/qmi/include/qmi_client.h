/*
 * qmi_client.h - the QMI client calls the phonebook module makes, with the
 * platform's binary layout.
 *
 * Handles: qmi_client_init() and qmi_client_notifier_init() hand out handles
 * that qmi_client_release() gives back; a handle is not used afterwards.
 * Lengths are in bytes and are exactly sizeof the C structure of the message;
 * time limits are in milliseconds (0 waits for ever).
 *
 * Threads: each connected client has a receive thread of the library; the
 * indication callback runs on it, never on the caller's thread. The callback
 * must not make a synchronous request on, or release, its own client. The
 * buffer it gets is valid only during the call.
 *
 * Notifier: the caller passes a zeroed qmi_client_os_params that lives until
 * the notifier is released; the library initialises it and "sets" it (lock
 * mutex, sig_set = 1, signal cond, unlock) whenever the service comes up.
 */
#ifndef QMI_CLIENT_H
#define QMI_CLIENT_H

#include <pthread.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct qmi_client_struct *qmi_client_type;
typedef struct qmi_idl_service_object *qmi_idl_service_object_type;
typedef int qmi_client_error_type;
typedef unsigned int qmi_service_instance;

/* Opaque address of one instance of a service. */
typedef struct {
    unsigned int info[5];
} qmi_service_info;

typedef enum {
    QMI_IDL_REQUEST = 0,
    QMI_IDL_RESPONSE = 1,
    QMI_IDL_INDICATION = 2,
    QMI_IDL_NUM_MSG_TYPES = 3
} qmi_idl_type_of_message_type;

typedef struct {
    uint32_t sig_set;   /* 1 once signalled; stays 1 until the owner clears it */
    uint32_t timed_out; /* 1 when a library wait expired */
    uint32_t clock;     /* clock id the condition variable waits on */
    pthread_cond_t cond;
    pthread_condattr_t attr;
    pthread_mutex_t mutex;
} qmi_cci_os_signal_type;
typedef qmi_cci_os_signal_type qmi_client_os_params;

#define QMI_CLIENT_INSTANCE_ANY 0xffff

/* qmi_client_error_type values */
#define QMI_NO_ERR               0
#define QMI_INTERNAL_ERR         (-1)
#define QMI_SERVICE_ERR          (-2) /* the service cannot be reached or went away */
#define QMI_TIMEOUT_ERR          (-3)
#define QMI_EXTENDED_ERR         (-4)
#define QMI_PORT_NOT_OPEN_ERR    (-5)
#define QMI_MEMCOPY_ERROR        (-13)
#define QMI_INVALID_TXN          (-14)
#define QMI_CLIENT_ALLOC_FAILURE (-15)
#define QMI_CLIENT_TRANSPORT_ERR (-16)
#define QMI_CLIENT_PARAM_ERR     (-17)
#define QMI_CLIENT_INVALID_CLNT  (-18)
#define QMI_CLIENT_FW_NOT_UP     (-19)
#define QMI_CLIENT_INVALID_SIG   (-20)
#define QMI_XPORT_BUSY_ERR       (-21)

/* Message library results; encoding and decoding failures surface through
 * the client calls with these values. */
#define QMI_IDL_LIB_NO_ERR                       0
#define QMI_IDL_LIB_EXTENDED_ERR                 (-40)
#define QMI_IDL_LIB_BUFFER_TOO_SMALL             (-41)
#define QMI_IDL_LIB_ARRAY_TOO_BIG                (-42)
#define QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND         (-43)
#define QMI_IDL_LIB_TLV_DUPLICATED               (-44)
#define QMI_IDL_LIB_LENGTH_INCONSISTENCY         (-45)
#define QMI_IDL_LIB_MISSING_TLV                  (-46)
#define QMI_IDL_LIB_PARAMETER_ERROR              (-47)
#define QMI_IDL_LIB_UNRECOGNIZED_SERVICE_VERSION (-48)
#define QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV        (-49)
#define QMI_IDL_LIB_INCOMPATIBLE_SERVICE_VERSION (-50)
#define QMI_IDL_LIB_RANGE_FAILURE                (-51)

/* Indication callback: the raw (still encoded) indication and its length. */
typedef void (*qmi_client_ind_cb)(qmi_client_type user_handle, unsigned long msg_id, unsigned char *ind_buf,
                                  int ind_buf_len, void *ind_cb_data);

qmi_client_error_type qmi_client_notifier_init(qmi_idl_service_object_type service_obj,
                                               qmi_client_os_params *os_params, qmi_client_type *user_handle);

/* Does not wait. 0 and the instances known when the service is up; non-zero
 * with *num_services 0 when it is not. service_info and num_entries may be
 * NULL to only count; at most *num_entries entries are filled. */
qmi_client_error_type qmi_client_get_service_list(qmi_idl_service_object_type service_obj,
                                                  qmi_service_info *service_info_array,
                                                  unsigned int *num_entries, unsigned int *num_services);

qmi_client_error_type qmi_client_init(qmi_service_info *service_info, qmi_idl_service_object_type service_obj,
                                      qmi_client_ind_cb ind_cb, void *ind_cb_data,
                                      qmi_client_os_params *os_params, qmi_client_type *user_handle);

qmi_client_error_type qmi_client_release(qmi_client_type user_handle);

/* Blocks the caller until the response is decoded into resp_c_struct or
 * timeout_msecs expire (QMI_TIMEOUT_ERR). QMI_NO_ERR says only that a
 * response came back; the service's verdict is in its resp field. */
qmi_client_error_type qmi_client_send_msg_sync(qmi_client_type user_handle, unsigned int msg_id,
                                               void *req_c_struct, unsigned int req_c_struct_len,
                                               void *resp_c_struct, unsigned int resp_c_struct_len,
                                               unsigned int timeout_msecs);

qmi_client_error_type qmi_client_message_decode(qmi_client_type user_handle,
                                                qmi_idl_type_of_message_type req_resp_ind,
                                                unsigned int message_id, const void *p_src,
                                                unsigned int src_len, void *p_dst, unsigned int dst_len);

int32_t qmi_idl_get_message_c_struct_len(const qmi_idl_service_object_type p_service,
                                         qmi_idl_type_of_message_type message_type, uint16_t message_id,
                                         uint32_t *c_struct_len);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
#include <cstddef>
static_assert(sizeof(qmi_service_info) == 20 && alignof(qmi_service_info) == 4, "service entry layout");
static_assert(sizeof(qmi_idl_type_of_message_type) == 4, "message type width");
static_assert(offsetof(qmi_cci_os_signal_type, cond) == 16, "signal layout");
static_assert(offsetof(qmi_cci_os_signal_type, attr) == 64, "signal layout");
static_assert(offsetof(qmi_cci_os_signal_type, mutex) == (sizeof(void *) == 8 ? 72 : 68), "signal layout");
static_assert(sizeof(qmi_cci_os_signal_type) == (sizeof(void *) == 8 ? 112 : 96), "signal layout");
#endif

#endif /* QMI_CLIENT_H */
