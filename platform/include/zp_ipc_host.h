/*
 * zp_ipc_host.h - what the host messaging library offers beyond the
 * device's zp_ipc.h: the receiving side of a host process, queue teardown,
 * and the library's limits. For the host tools and tests only; the module
 * never includes it.
 *
 * Transport: every module id has one Unix-domain datagram socket,
 * "<dir>/ipc_<id>", where <dir> is the environment's ZP_IPC_DIR or
 * IPC_DEFAULT_DIR (made with mode 0770 when missing). A folder that is not
 * this user's or root's, or that others may write to, is refused
 * (IPC_REJECT) by the servers and the send calls. A datagram is the head and
 * the payload; the receiver appends the sender's address taken from the
 * socket. Datagrams whose head disagrees with their size, or of a type that
 * cannot travel between processes (IPC_INNER_MQ and above), are dropped and
 * logged.
 *
 * ipc_msg_send_syn() sends from a reply socket private to the calling thread
 * and waits there; for each exchange that socket is connected to the
 * module's socket, so that no other socket can reach it and only the process
 * serving the module can answer. ipc_msg_send_asy() sends from the socket of the first
 * module the process serves (ipc_server_start), so that an answer reaches
 * that module; a process serving none sends from the calling thread's reply
 * socket.
 */
#ifndef ZP_IPC_HOST_H
#define ZP_IPC_HOST_H

#include <stdlib.h>

#include "zp_ipc.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Largest payload a message may carry between processes. */
#define IPC_MSG_MAX_PAYLOAD 65536u
/* Memory-library call site that ipc_memory_assign() buffers count under
 * (the library keeps to 0x0100..0x01FF). */
#define IPC_MEM_SITE_ASSIGN 0x0101u
/* Folder of the module sockets when ZP_IPC_DIR is not set. */
#define IPC_DEFAULT_DIR "/tmp/zp_ipc"
/* The folder of the module sockets of this process: ZP_IPC_DIR when set and
 * not empty, else IPC_DEFAULT_DIR. The modem's socket sits there too. */
static inline const char *ipc_host_dir(void)
{
    const char *dir = getenv("ZP_IPC_DIR");
    return (dir != NULL && dir[0] != '\0') ? dir : IPC_DEFAULT_DIR;
}
/* Messages an in-process queue holds before ipc_mq_send() says IPC_MQ_FULL. */
#define IPC_MQ_MAX_DEPTH 64u

/* Frees the queue and any message still on it (with mem_free_ex). No thread
 * may be using the queue any more. */
zp_sdk_ipc_ret_value ipc_mq_destroy(ipc_mq_cb_pt mq);

/* Receiving side of a host process: binds the socket of `module_id` and
 * hands every delivered message to `handler` from one receive thread. The
 * message is valid only during the call; the handler does not free it. */
typedef void (*ipc_msg_handler)(void *msg, void *ctx);
typedef struct ipc_server *ipc_server_pt;
/* IPC_REJECT when another live process serves the module (it holds the lock
 * file "<socket>.lock" while it serves) or the folder is refused; a socket
 * file left behind by a dead one is replaced. The socket gets mode 0660. */
zp_sdk_ipc_ret_value ipc_server_start(zp_uint32 module_id, ipc_msg_handler handler, void *ctx,
                                      ipc_server_pt *server);
/* Stops the receive thread, closes and removes the socket. Not to be called
 * from the handler. The handler must not wait on a synchronous exchange with
 * its own module either: its thread is the one that would receive it. */
void ipc_server_stop(ipc_server_pt server);

#ifdef __cplusplus
}
#endif

#endif /* ZP_IPC_HOST_H */
