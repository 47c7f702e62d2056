/*
 * zp_ipc.h - the device's inter-process messaging library.
 *
 * A message is one buffer: a 16-byte head (ipc_msg_head_t), the payload, and
 * on a delivered message the sender's ipc_addr_t at 16 + length rounded up
 * to a multiple of 4. On an in-process queue message (IPC_INNER_MQ) the
 * payload starts at offset 8 and no sender address follows.
 *
 * Ownership: ipc_memory_assign() buffers and delivered messages belong to
 * the caller, who gives them back with mem_free_ex(). The send calls copy the
 * message; they never take it over. Lengths passed to the send calls are
 * payload lengths, head not counted. Time limits are in milliseconds.
 */
#ifndef ZP_IPC_H
#define ZP_IPC_H

#include <stddef.h>
#include <sys/un.h>

#include "zp_common.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    IPC_ASY_MSG = 0,
    IPC_SYN_REQ = 1,
    IPC_SYN_RSP = 2,
    IPC_INNER_MQ = 3,
    IPC_MSG_TYPE_BND = 4
} zp_sdk_ipc_msg_type;

typedef enum {
    IPC_MSG_PRI_COMM = 0,
    IPC_MSG_PRI_HIGH = 1,
    IPC_MSG_PRI_DIAG = 2,
    IPC_MSG_PRI_BND = 3
} zp_sdk_ipc_msg_priority;

typedef enum {
    IPC_OK = 0,
    IPC_INVALID_PARA = 1,
    IPC_NOT_INIT = 2,
    IPC_NOT_FOUND = 3,
    IPC_INVALID_MSG = 4,
    IPC_NOT_ENOUGH = 5,
    IPC_REJECT = 6,
    IPC_TIMEOUT = 7,
    IPC_MQ_FULL = 8,
    IPC_MQ_EMPTY = 9,
    IPC_SYS_ERR = 10,
    IPC_INNER_ERR = 11,
    IPC_RET_BND = 12
} zp_sdk_ipc_ret_value;

typedef enum {
    SC_ID = 0,
    DM_ID = 1,
    NM_ID = 2,
    WM_ID = 3,
    NS_ID = 4,
    RM_ID = 5,
    UP_ID = 6,
    DIAG_ID = 7,
    DOG_ID = 8,
    LOG_ID = 9,
    CGI_ID = 10,
    MU_ID = 11,
    WLAN_ID = 12,
    MM_ID = 13,
    UI_ID = 14,
    AT_ID = 15,
    OMADM_ID = 16,
    MC_ID = 17,
    BT_ID = 18,
    EM_ID = 19,
    CLI1_ID = 20,
    CLI2_ID = 21,
    CLI3_ID = 22,
    MAX_ID = 23
} module_id_t;

typedef struct zp_sdk_ipc_msg_head {
    zp_uint32 msg_type;   /* zp_sdk_ipc_msg_type */
    zp_uint32 msg_id;
    zp_uint32 length;     /* payload bytes, head not counted */
    zp_uint32 session_id; /* pairs a response with its request */
} zp_sdk_ipc_msg_head;
typedef zp_sdk_ipc_msg_head ipc_msg_head_t;

typedef struct zp_sdk_ipc_addr {
    zp_uint32 pri; /* zp_sdk_ipc_msg_priority */
    struct sockaddr_un addr;
} zp_sdk_ipc_addr;
typedef zp_sdk_ipc_addr ipc_addr_t;

#define IPC_MSG_HEAD_LEN 16u
#define IPC_INNER_MQ_PAYLOAD_OFFSET 8u

/* Opaque in-process queue. */
typedef struct ipc_mq_cb *ipc_mq_cb_pt;

zp_sdk_ipc_ret_value ipc_get_addr_by_id(zp_uint32 module_id, zp_uint32 flag, ipc_addr_t *addr);
void *ipc_memory_assign(zp_uint32 len, zp_uint32 flag);
zp_sdk_ipc_ret_value ipc_gen_seesion_id(ipc_msg_head_t *head);
zp_sdk_ipc_ret_value ipc_msg_send_syn(ipc_addr_t *addr, void *msg, zp_uint32 len, zp_uint32 timeout,
                                      void *rsp, size_t *rsp_len);
zp_sdk_ipc_ret_value ipc_msg_send_asy(ipc_addr_t *addr, void *msg, zp_uint32 len);

zp_sdk_ipc_ret_value ipc_mq_create(zp_uint32 flag, ipc_mq_cb_pt *mq);
zp_sdk_ipc_ret_value ipc_mq_send(ipc_mq_cb_pt mq, void *msg, zp_uint32 flag, zp_uint32 pri);
/* timeout: -1 waits for ever, 0 polls, n waits n milliseconds. */
zp_sdk_ipc_ret_value ipc_mq_recv(ipc_mq_cb_pt mq, void **msg, zp_int32 timeout);
/* Makes one blocked (or the next) ipc_mq_recv return IPC_MQ_EMPTY with *msg
 * set to NULL, without a message: lets an owner stop a receiving thread. */
zp_sdk_ipc_ret_value ipc_mq_wake(ipc_mq_cb_pt mq);
/* Frees the queue and any message still on it (with mem_free_ex). */
zp_sdk_ipc_ret_value ipc_mq_destroy(ipc_mq_cb_pt mq);

/* Receiving side of a host process: binds the socket of `module_id` and
 * hands every delivered message to `handler` from one receive thread. The
 * message is valid only during the call; the handler does not free it. */
typedef void (*ipc_msg_handler)(void *msg, void *ctx);
typedef struct ipc_server *ipc_server_pt;
zp_sdk_ipc_ret_value ipc_server_start(zp_uint32 module_id, ipc_msg_handler handler, void *ctx,
                                      ipc_server_pt *server);
/* Stops the receive thread, closes and removes the socket. */
void ipc_server_stop(ipc_server_pt server);

#ifdef __cplusplus
}
#endif

#endif /* ZP_IPC_H */
