// Receiving side of a host process: one module socket, one receive thread.
//
// Claiming a module: the IPC folder is made (0770) or checked, the module's
// lock file is locked, a socket file left by a dead server is removed, and
// the socket is bound.
//
// The thread owns the receive buffer: each valid datagram is completed there
// into a delivered message (head, payload padded to 4, sender address) and
// handed to the handler, which may use it only during the call. Stop sets a
// flag and wakes the thread with an empty datagram; a time limit on the
// thread's wait backs that up should the wake-up not get through.
//
// What the process sends to its own module socket (the modem client's
// forwarded indications) comes in on an own channel, a socket pair, and is
// handed over as from the module socket. Through the module socket itself
// it stayed charged to that socket's send buffer while it waited in its own
// queue: under a flood of clients the buffer filled, the receive thread
// blocked sending an answer, nothing emptied the queue, and every sender
// stalled until its send limit and lost its message. After the thread has
// ended, the socket's name is removed and the datagrams still waiting are
// handed to the handler on the stopping thread before the socket closes.
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "ipc_internal.h"
#include "unique_fd.h"
#include "zp_mem.h"

struct ipc_server {
    /* Holds the module's lock file while serving; declared before the
     * socket, so that it is released after the socket is closed. */
    zp_host::UniqueFd lock_fd;
    zp_host::UniqueFd fd;
    /* The own channel: what the process sends to its own module socket
     * comes in on self_rx, sent to self_tx. */
    zp_host::UniqueFd self_rx, self_tx;
    ipc_addr_t addr{};
    ipc_msg_handler handler = nullptr;
    void *ctx = nullptr;
    zp_uint8 *buf = nullptr;
    pthread_t thread{};
    std::atomic<bool> stopping{false};
};

namespace zp_ipc {
namespace {

constexpr size_t kBufSize = IPC_MSG_HEAD_LEN + IPC_MSG_MAX_PAYLOAD + sizeof(ipc_addr_t);
constexpr long kRecvBackstopUs = 250000;
constexpr long kStopQuietUs = 100000;

// Appends the sender's address to a valid datagram of `len` payload bytes.
void complete_message(zp_uint8 *buf, size_t len, const sockaddr_un &from, socklen_t fromlen)
{
    const size_t at = IPC_MSG_HEAD_LEN + round4(len);
    std::memset(buf + IPC_MSG_HEAD_LEN + len, 0, at - IPC_MSG_HEAD_LEN - len);
    ipc_addr_t sender{};
    sender.pri = IPC_MSG_PRI_COMM;
    sender.addr.sun_family = AF_UNIX;
    const size_t path_off = offsetof(sockaddr_un, sun_path);
    if (fromlen > path_off)
        std::memcpy(sender.addr.sun_path, from.sun_path, fromlen - path_off);
    std::memcpy(buf + at, &sender, sizeof(sender));
}

// Receives one datagram from `fd` (the module socket or the own channel)
// and hands it to the handler when it is valid. False when there was none.
bool receive_one(ipc_server *srv, int fd)
{
    sockaddr_un from{};
    iovec iov = {srv->buf, IPC_MSG_HEAD_LEN + IPC_MSG_MAX_PAYLOAD};
    msghdr mh{};
    mh.msg_name = &from;
    mh.msg_namelen = sizeof(from);
    mh.msg_iov = &iov;
    mh.msg_iovlen = 1;
    const ssize_t n = recvmsg(fd, &mh, MSG_TRUNC | MSG_DONTWAIT);
    if (n < 0) {
        if (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK) {
            IPC_LOG("receive on %s: %s\n", srv->addr.addr.sun_path, std::strerror(errno));
            usleep(10000);  // no busy loop on a lasting fault
        }
        return errno == EINTR;
    }
    if (n == 0 && srv->stopping.load(std::memory_order_acquire))
        return true;  // the wake-up of ipc_server_stop, which may lie among others
    auto *head = reinterpret_cast<ipc_msg_head_t *>(srv->buf);
    if (const char *fault = datagram_fault(head, static_cast<size_t>(n))) {
        IPC_LOG("dropped datagram of %zd bytes on %s: %s\n", n, srv->addr.addr.sun_path, fault);
        return true;
    }
    // What came in on the own channel was sent by this process to its
    // module socket, and is from that socket.
    if (fd == srv->self_rx.get())
        mh.msg_namelen = addr_len(&srv->addr, &from);
    complete_message(srv->buf, head->length, from, mh.msg_namelen);
    srv->handler(srv->buf, srv->ctx);
    return true;
}

// Waits up to `ms` for a datagram on the module socket or the own channel
// and hands over one from each that has one. False when none came in time.
bool receive_ready(ipc_server *srv, int ms)
{
    pollfd fds[2] = {{srv->fd.get(), POLLIN, 0}, {srv->self_rx.get(), POLLIN, 0}};
    const int ready = poll(fds, 2, ms);
    if (ready <= 0)
        return ready < 0 && errno == EINTR;  // a signal does not end a stop's drain
    bool got = false;
    for (const pollfd &p : fds)
        if (p.revents != 0)
            got = receive_one(srv, p.fd) || got;
    return got;
}

void *receive_loop(void *arg)
{
    auto *srv = static_cast<ipc_server *>(arg);
    while (!srv->stopping.load(std::memory_order_acquire))
        (void)receive_ready(srv, static_cast<int>(kRecvBackstopUs / 1000));
    return nullptr;
}

// Takes "<socket>.lock" for the life of the server: of processes using this
// library, only one can serve a module, even when two start at once. The
// kernel drops the lock when its holder dies, so a dead server's lock is
// never in the way. IPC_REJECT when a live server holds it.
zp_sdk_ipc_ret_value take_lock(ipc_server *srv)
{
    char path[sizeof srv->addr.addr.sun_path + sizeof ".lock"];
    std::snprintf(path, sizeof path, "%s.lock", srv->addr.addr.sun_path);
    srv->lock_fd.reset(open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0660));
    if (!srv->lock_fd.valid()) {
        IPC_LOG("cannot open %s: %s\n", path, std::strerror(errno));
        return IPC_SYS_ERR;
    }
    while (flock(srv->lock_fd.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR)
            continue;
        if (errno != EWOULDBLOCK) {
            IPC_LOG("cannot lock %s: %s\n", path, std::strerror(errno));
            return IPC_SYS_ERR;
        }
        log_print(ZP_LOG_ERROR, "[%s:%s:%d]%s is held by another process: the module is served already\n",
                  __FILE_NAME__, __func__, __LINE__, path);
        return IPC_REJECT;
    }
    return IPC_OK;
}

// IPC_OK when nobody serves `path` (a stale file is removed), IPC_REJECT
// when a live socket answers there.
zp_sdk_ipc_ret_value claim_path(const ipc_addr_t &addr)
{
    sockaddr_un to;
    const socklen_t tolen = addr_len(&addr, &to);
    const zp_host::UniqueFd probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!probe.valid())
        return IPC_SYS_ERR;
    const int rc = connect(probe.get(), reinterpret_cast<const sockaddr *>(&to), tolen);
    const int err = errno;
    if (rc == 0) {
        IPC_LOG("%s is served by another process\n", to.sun_path);
        return IPC_REJECT;
    }
    if (err == ECONNREFUSED)
        unlink(to.sun_path);
    return IPC_OK;
}

// Closes the server's socket and lock file with it.
void free_server(ipc_server *srv)
{
    mem_free_ex(tid16(), IPC_SITE_SERVER_BUF, 0, srv->buf);
    delete srv;
}

}  // namespace
}  // namespace zp_ipc

using namespace zp_ipc;

IPC_EXPORT zp_sdk_ipc_ret_value ipc_server_start(zp_uint32 module_id, ipc_msg_handler handler, void *ctx,
                                                 ipc_server_pt *server)
{
    if (handler == nullptr || server == nullptr)
        return IPC_INVALID_PARA;
    *server = nullptr;
    auto *srv = new (std::nothrow) ipc_server;
    if (srv == nullptr)
        return IPC_SYS_ERR;
    srv->handler = handler;
    srv->ctx = ctx;
    zp_sdk_ipc_ret_value ret = ipc_get_addr_by_id(module_id, 0, &srv->addr);
    if (ret != IPC_OK) {
        free_server(srv);
        return ret;
    }
    const char *path = srv->addr.addr.sun_path;
    srv->buf = static_cast<zp_uint8 *>(mem_malloc_ex(tid16(), IPC_SITE_SERVER_BUF, 0, kBufSize));
    ret = srv->buf != nullptr ? make_dir(ipc_host_dir()) : IPC_SYS_ERR;
    if (ret == IPC_OK)
        ret = take_lock(srv);
    if (ret == IPC_OK)
        ret = claim_path(srv->addr);
    if (ret != IPC_OK) {
        free_server(srv);
        return ret;
    }
    sockaddr_un me;
    const socklen_t melen = addr_len(&srv->addr, &me);
    srv->fd.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!srv->fd.valid() || bind(srv->fd.get(), reinterpret_cast<sockaddr *>(&me), melen) != 0 ||
        chmod(path, 0660) != 0) {
        IPC_LOG("cannot serve %s: %s\n", path, std::strerror(errno));
        ret = (srv->fd.valid() && errno == EADDRINUSE) ? IPC_REJECT : IPC_SYS_ERR;
        free_server(srv);
        return ret;
    }
    set_timeout(srv->fd.get(), SO_SNDTIMEO, IPC_SEND_TIMEOUT_US);
    int self[2];
    if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, self) != 0) {
        IPC_LOG("cannot serve %s: own channel: %s\n", path, std::strerror(errno));
        unlink(path);
        free_server(srv);
        return IPC_SYS_ERR;
    }
    srv->self_rx.reset(self[0]);
    srv->self_tx.reset(self[1]);
    set_timeout(srv->self_tx.get(), SO_SNDTIMEO, IPC_SEND_TIMEOUT_US);
    home_register(srv->fd.get(), srv->self_tx.get(), me);
    if (pthread_create(&srv->thread, nullptr, receive_loop, srv) != 0) {
        IPC_LOG("cannot start the receive thread of %s\n", path);
        home_unregister(srv->fd.get());
        unlink(path);
        free_server(srv);
        return IPC_SYS_ERR;
    }
    *server = srv;
    return IPC_OK;
}

IPC_EXPORT void ipc_server_stop(ipc_server_pt srv)
{
    if (srv == nullptr)
        return;
    srv->stopping.store(true, std::memory_order_release);
    // Wake the receive thread; if the queue is full it wakes on its own.
    sockaddr_un me;
    const socklen_t melen = addr_len(&srv->addr, &me);
    if (const zp_host::UniqueFd waker(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)); waker.valid())
        sendto(waker.get(), "", 0, MSG_DONTWAIT | MSG_NOSIGNAL, reinterpret_cast<sockaddr *>(&me), melen);
    pthread_join(srv->thread, nullptr);
    // No new sender finds the socket; what was sent before is still handed
    // over, so that the handler can answer it rather than leave its sender
    // waiting for its time limit. A sender that found the socket just
    // before may send a moment later: the socket stays until it has been
    // quiet for kStopQuietUs.
    unlink(srv->addr.addr.sun_path);
    while (receive_ready(srv, static_cast<int>(kStopQuietUs / 1000))) {
    }
    home_unregister(srv->fd.get());
    free_server(srv);
}
