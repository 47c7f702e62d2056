/*
 * ipc_internal.h - what the parts of the host messaging library share.
 *
 * Addresses: a module socket is a path in the IPC folder; a reply socket is
 * an abstract name the kernel picks (leading NUL in sun_path). Both fit an
 * ipc_addr_t, and addr_len() turns either back into a socket address.
 */
#ifndef ZP_IPC_INTERNAL_H
#define ZP_IPC_INTERNAL_H

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>

#include "liblog.h"
#include "zp_ipc_host.h"

#define IPC_EXPORT extern "C" __attribute__((visibility("default")))

#define IPC_LOG(fmt, ...)                                                                                    \
    log_print(ZP_LOG_INFO, "[%s:%s:%d]" fmt, __FILE_NAME__, __func__, __LINE__, ##__VA_ARGS__)

namespace zp_ipc {

/* Call sites of the library in the memory library's accounting. */
enum : zp_uint16 {
    IPC_SITE_ASSIGN = IPC_MEM_SITE_ASSIGN,
    IPC_SITE_SERVER_BUF = 0x0102, /* a server's receive buffer */
};

/* Longest wait of a send on a receiver whose queue stays full. */
constexpr long IPC_SEND_TIMEOUT_US = 5000000;

constexpr size_t round4(size_t n) { return (n + 3u) & ~static_cast<size_t>(3u); }

/* Whole delivered message for `len` payload bytes. */
constexpr size_t delivered_size(size_t len) { return IPC_MSG_HEAD_LEN + round4(len) + sizeof(ipc_addr_t); }

zp_uint16 tid16();

/* Makes the folder (mode 0770) and its parents when missing, then checks
 * it with check_dir: IPC_OK, IPC_REJECT, or IPC_SYS_ERR (logged). */
zp_sdk_ipc_ret_value make_dir(const char *dir);
/* Whether a folder may hold module sockets: IPC_OK when it is a folder of
 * this user or of root that others can't write to, IPC_NOT_FOUND when it
 * does not exist, IPC_REJECT otherwise (logged as an error). A folder
 * someone else controls could hold a socket that answers in the service's
 * name. */
zp_sdk_ipc_ret_value check_dir(const char *dir);
/* check_dir on the folder of a socket path; IPC_OK for an abstract name. */
zp_sdk_ipc_ret_value check_socket_dir(const sockaddr_un &to);

/* Sets the socket's receive or send time limit (SO_RCVTIMEO, SO_SNDTIMEO)
 * to `us` microseconds. */
void set_timeout(int fd, int opt, long us);

/* Socket address of `a` in *out and its length; 0 when `a` names no socket. */
socklen_t addr_len(const ipc_addr_t *a, sockaddr_un *out);

/* Why a datagram of `n` bytes starting with `head` can't be delivered, or
 * null when it can. */
const char *datagram_fault(const ipc_msg_head_t *head, size_t n);

/* Maps a failed send's errno onto the library's results. */
zp_sdk_ipc_ret_value send_errno(int err);

/* Sends head + payload as one datagram from fd (to null: to the socket fd is
 * connected to); IPC_OK or a mapped errno. */
zp_sdk_ipc_ret_value send_datagram(int fd, const sockaddr_un *to, socklen_t tolen, const ipc_msg_head_t *head,
                                   const void *payload, size_t len);

/* The module socket that ipc_msg_send_asy sends from: registered by the first
 * server of the process, dropped when that server stops. A message the
 * process sends to that socket itself goes through self_fd instead, a
 * socket connected to the server's own channel. */
void home_register(int fd, int self_fd, const sockaddr_un &addr);
void home_unregister(int fd);

}  // namespace zp_ipc

#endif /* ZP_IPC_INTERNAL_H */
