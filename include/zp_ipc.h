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
 *
 * Synchronous exchange: ipc_msg_send_syn() sends the request as IPC_SYN_REQ
 * and waits for an IPC_SYN_RSP with the request's session_id; anything else
 * arriving for the requester (an answer that came after it gave up) is
 * discarded. The responder answers with ipc_msg_send_asy() to the sender's
 * address appended to the request, having set msg_type to IPC_SYN_RSP and
 * copied session_id: ipc_msg_send_asy() keeps IPC_SYN_RSP and sends every
 * other type as IPC_ASY_MSG. So a request that came as IPC_SYN_REQ is
 * answered as IPC_SYN_RSP, one that came as IPC_ASY_MSG as IPC_ASY_MSG.
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
    zp_uint32 msg_type; /* zp_sdk_ipc_msg_type */
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

#define IPC_MSG_HEAD_LEN            16u
#define IPC_INNER_MQ_PAYLOAD_OFFSET 8u

/* Opaque in-process queue. */
typedef struct ipc_mq_cb *ipc_mq_cb_pt;

/* Fills *addr with the socket address of `module_id` (flag: reserved, 0).
 * IPC_INVALID_PARA for an id outside 0..MAX_ID-1 or a folder whose socket
 * path would not fit sun_path. The socket need not exist yet. */
zp_sdk_ipc_ret_value ipc_get_addr_by_id(zp_uint32 module_id, zp_uint32 flag, ipc_addr_t *addr);
/* A zeroed buffer for a message of `len` payload bytes (flag: reserved, 0):
 * room for the head, the payload padded to 4 and a sender address, so a
 * delivered message fits as well. From the memory library; give it back with
 * mem_free_ex(). NULL when len is too large or memory is out. */
void *ipc_memory_assign(zp_uint32 len, zp_uint32 flag);
/* Sets head->session_id to an id, never 0: a per-process count from a
 * random start, so other processes can't predict it. */
zp_sdk_ipc_ret_value ipc_gen_seesion_id(ipc_msg_head_t *head);
/* Sends msg (len payload bytes) as IPC_SYN_REQ and waits up to `timeout` ms
 * for the answer. rsp must have room for the head and *rsp_len payload bytes;
 * the answer's head and payload are written there, cut to that room, and
 * *rsp_len becomes the payload bytes written (the head's length says the
 * same). A request without a session_id gets one. Blocks the calling thread;
 * any number of threads may call at once. IPC_TIMEOUT, IPC_NOT_FOUND (no
 * such socket), IPC_INVALID_PARA, IPC_SYS_ERR. */
zp_sdk_ipc_ret_value ipc_msg_send_syn(ipc_addr_t *addr, void *msg, zp_uint32 len, zp_uint32 timeout,
                                      void *rsp, size_t *rsp_len);
/* Sends msg (len payload bytes) one way, as IPC_ASY_MSG, or as IPC_SYN_RSP
 * when its head says so. Returns once the datagram is queued at the receiver
 * (IPC_TIMEOUT when its queue stays full for seconds); IPC_NOT_FOUND when
 * the socket does not exist. A module may send to itself. */
zp_sdk_ipc_ret_value ipc_msg_send_asy(ipc_addr_t *addr, void *msg, zp_uint32 len);

/* In-process queue of message pointers, FIFO, safe between threads. The
 * queue owns a message from a successful ipc_mq_send() until ipc_mq_recv()
 * hands it out; on any other result the message stays the caller's. flag
 * and pri are reserved (0); IPC_MQ_FULL when the queue is full. Queued
 * messages come from mem_malloc_ex. */
zp_sdk_ipc_ret_value ipc_mq_create(zp_uint32 flag, ipc_mq_cb_pt *mq);
zp_sdk_ipc_ret_value ipc_mq_send(ipc_mq_cb_pt mq, void *msg, zp_uint32 flag, zp_uint32 pri);
/* timeout: -1 waits for ever, 0 polls (IPC_MQ_EMPTY when nothing is there),
 * n waits n milliseconds (IPC_TIMEOUT). *msg is NULL unless IPC_OK. */
zp_sdk_ipc_ret_value ipc_mq_recv(ipc_mq_cb_pt mq, void **msg, zp_int32 timeout);

#ifdef __cplusplus
}
#endif

#endif /* ZP_IPC_H */
