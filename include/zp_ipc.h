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
 * Transport on the host: every module id has one Unix-domain datagram socket,
 * "<dir>/ipc_<id>", where <dir> is the environment's ZP_IPC_DIR or
 * "/tmp/zp_ipc" (made with mode 0770 when missing). A folder that is not
 * this user's or root's, or that others may write to, is refused
 * (IPC_REJECT) by the servers and the send calls. A datagram is the head
 * and the payload; the receiver appends the sender's address taken from the
 * socket. Datagrams
 * whose head disagrees with their size, or of a type that cannot travel
 * between processes (IPC_INNER_MQ and above), are dropped and logged.
 *
 * Synchronous exchange: ipc_msg_send_syn() sends the request as IPC_SYN_REQ
 * from a reply socket private to the calling thread and waits for an
 * IPC_SYN_RSP with the request's session_id on that socket, which is
 * connected to the module's socket so that no other socket can reach it;
 * anything else
 * arriving there (an answer that came after its requester gave up) is
 * discarded. The responder answers with ipc_msg_send_asy() to the sender's
 * address appended to the request, having set msg_type to IPC_SYN_RSP and
 * copied session_id: ipc_msg_send_asy() keeps IPC_SYN_RSP and sends every
 * other type as IPC_ASY_MSG. So a request that came as IPC_SYN_REQ is
 * answered as IPC_SYN_RSP, one that came as IPC_ASY_MSG as IPC_ASY_MSG.
 *
 * Which socket a message comes from: ipc_msg_send_asy() sends from the socket
 * of the first module the process serves (ipc_server_start), so that an
 * answer reaches that module; a process serving none sends from the calling
 * thread's reply socket. ipc_msg_send_syn() always uses the reply socket.
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
/* Largest payload a message may carry between processes. */
#define IPC_MSG_MAX_PAYLOAD 65536u
/* Memory-library call site that ipc_memory_assign() buffers count under
 * (the library keeps to 0x0100..0x01FF). */
#define IPC_MEM_SITE_ASSIGN 0x0101u
/* Folder of the module sockets when ZP_IPC_DIR is not set. */
#define IPC_DEFAULT_DIR "/tmp/zp_ipc"

/* Opaque in-process queue. */
typedef struct ipc_mq_cb *ipc_mq_cb_pt;

/* Fills *addr with the socket address of `module_id` (flag: reserved, 0).
 * IPC_INVALID_PARA for an id outside 0..MAX_ID-1 or a folder whose socket
 * path would not fit sun_path. The socket need not exist yet. */
zp_sdk_ipc_ret_value ipc_get_addr_by_id(zp_uint32 module_id, zp_uint32 flag, ipc_addr_t *addr);
/* A zeroed buffer for a message of `len` payload bytes (flag: reserved, 0):
 * room for the head, the payload padded to 4 and a sender address, so a
 * delivered message fits as well. From the memory library; give it back with
 * mem_free_ex(). NULL when len exceeds IPC_MSG_MAX_PAYLOAD or memory is out. */
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
 * and pri are reserved (0); IPC_MQ_FULL past IPC_MQ_MAX_DEPTH messages.
 * Queued messages must come from mem_malloc_ex (ipc_mq_destroy frees them). */
#define IPC_MQ_MAX_DEPTH 64u
zp_sdk_ipc_ret_value ipc_mq_create(zp_uint32 flag, ipc_mq_cb_pt *mq);
zp_sdk_ipc_ret_value ipc_mq_send(ipc_mq_cb_pt mq, void *msg, zp_uint32 flag, zp_uint32 pri);
/* timeout: -1 waits for ever, 0 polls (IPC_MQ_EMPTY when nothing is there),
 * n waits n milliseconds (IPC_TIMEOUT). *msg is NULL unless IPC_OK. */
zp_sdk_ipc_ret_value ipc_mq_recv(ipc_mq_cb_pt mq, void **msg, zp_int32 timeout);
/* Makes one blocked (or the next) ipc_mq_recv return IPC_MQ_EMPTY with *msg
 * set to NULL, without a message: lets an owner stop a receiving thread. */
zp_sdk_ipc_ret_value ipc_mq_wake(ipc_mq_cb_pt mq);
/* Frees the queue and any message still on it (with mem_free_ex). No thread
 * may be using the queue any more. */
zp_sdk_ipc_ret_value ipc_mq_destroy(ipc_mq_cb_pt mq);

/* Receiving side of a host process: binds the socket of `module_id` and
 * hands every delivered message to `handler` from one receive thread. The
 * message is valid only during the call; the handler does not free it. */
typedef void (*ipc_msg_handler)(void *msg, void *ctx);
typedef struct ipc_server *ipc_server_pt;
/* IPC_REJECT when another live process serves the module; a socket file
 * left behind by a dead one is replaced. The socket gets mode 0660. */
zp_sdk_ipc_ret_value ipc_server_start(zp_uint32 module_id, ipc_msg_handler handler, void *ctx,
                                      ipc_server_pt *server);
/* Stops the receive thread, closes and removes the socket. Not to be called
 * from the handler. The handler must not wait on a synchronous exchange with
 * its own module either: its thread is the one that would receive it. */
void ipc_server_stop(ipc_server_pt server);

#ifdef __cplusplus
}
#endif

#endif /* ZP_IPC_H */
