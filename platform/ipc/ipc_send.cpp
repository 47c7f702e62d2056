// Sending: the per-thread reply socket, the synchronous exchange and the
// one-way send.
//
// Each thread that sends gets one datagram socket, bound to an abstract name
// the kernel picks, and keeps it until it ends. Answers to its requests come
// back there, so concurrent exchanges of different threads never meet. For
// each exchange the socket is connected to the module's socket, so that
// nothing but that socket can reach it. Sockets are only used in folders
// that check_socket_dir trusts. A
// forked child gets fresh reply sockets: the inherited ones still belong to
// the parent's threads.
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "ipc_internal.h"
#include "unique_fd.h"

namespace zp_ipc {
namespace {

using Clock = std::chrono::steady_clock;

std::atomic<unsigned> g_fork_gen{0};
pthread_rwlock_t g_home_lock = PTHREAD_RWLOCK_INITIALIZER;
int g_home_fd = -1;
int g_self_fd = -1;         // sends to the home socket from inside the process
sockaddr_un g_home_addr{};  // the home socket's address

// The child of a fork starts with a fresh lock: a thread of the parent may
// have held it at that moment, and that thread does not exist there.
void after_fork_in_child()
{
    g_fork_gen.fetch_add(1, std::memory_order_relaxed);
    pthread_rwlock_init(&g_home_lock, nullptr);
    g_home_fd = -1;  // the server's thread did not come along
    g_self_fd = -1;
}

struct AtforkRegistration {
    AtforkRegistration() { pthread_atfork(nullptr, nullptr, after_fork_in_child); }
} g_atfork;

struct ReplySocket {
    zp_host::UniqueFd fd;
    unsigned gen = 0;
    long rcv_timeout_us = -1;  // what SO_RCVTIMEO is set to now
};

thread_local ReplySocket t_reply;

ReplySocket *reply_socket()
{
    ReplySocket &r = t_reply;
    const unsigned gen = g_fork_gen.load(std::memory_order_relaxed);
    if (r.fd.valid() && r.gen == gen)
        return &r;
    r.fd.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!r.fd.valid()) {
        IPC_LOG("reply socket: %s\n", std::strerror(errno));
        return nullptr;
    }
    // Binding the bare family makes the kernel pick a unique abstract name.
    sockaddr_un any{};
    any.sun_family = AF_UNIX;
    if (bind(r.fd.get(), reinterpret_cast<sockaddr *>(&any), sizeof(sa_family_t)) != 0) {
        IPC_LOG("reply socket bind: %s\n", std::strerror(errno));
        r.fd.reset();
        return nullptr;
    }
    set_timeout(r.fd.get(), SO_SNDTIMEO, IPC_SEND_TIMEOUT_US);
    r.gen = gen;
    r.rcv_timeout_us = -1;
    return &r;
}

long remaining_us(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<long>(left) : 0;
}

}  // namespace

void home_register(int fd, int self_fd, const sockaddr_un &addr)
{
    pthread_rwlock_wrlock(&g_home_lock);
    if (g_home_fd < 0) {
        g_home_fd = fd;
        g_self_fd = self_fd;
        g_home_addr = addr;
    }
    pthread_rwlock_unlock(&g_home_lock);
}

void home_unregister(int fd)
{
    pthread_rwlock_wrlock(&g_home_lock);
    if (g_home_fd == fd)
        g_home_fd = g_self_fd = -1;
    pthread_rwlock_unlock(&g_home_lock);
}

}  // namespace zp_ipc

using namespace zp_ipc;

IPC_EXPORT zp_sdk_ipc_ret_value ipc_msg_send_asy(ipc_addr_t *addr, void *msg, zp_uint32 len)
{
    if (addr == nullptr || msg == nullptr || len > IPC_MSG_MAX_PAYLOAD)
        return IPC_INVALID_PARA;
    sockaddr_un to;
    const socklen_t tolen = addr_len(addr, &to);
    if (tolen == 0)
        return IPC_INVALID_PARA;
    if (const zp_sdk_ipc_ret_value ret = check_socket_dir(to); ret != IPC_OK)
        return ret;
    ipc_msg_head_t head;
    std::memcpy(&head, msg, sizeof(head));
    if (head.msg_type != IPC_SYN_RSP)
        head.msg_type = IPC_ASY_MSG;
    head.length = len;
    const void *payload = static_cast<const zp_uint8 *>(msg) + IPC_MSG_HEAD_LEN;

    // Held across the send so that a stopping server can't close the socket
    // under it.
    pthread_rwlock_rdlock(&g_home_lock);
    int fd = g_home_fd;
    const sockaddr_un *dest = &to;
    if (fd < 0) {
        const ReplySocket *r = reply_socket();
        fd = r != nullptr ? r->fd.get() : -1;
    } else if (std::strncmp(to.sun_path, g_home_addr.sun_path, sizeof to.sun_path) == 0) {
        // To itself: through the own channel (see ipc_server.cpp).
        fd = g_self_fd;
        dest = nullptr;
    }
    const zp_sdk_ipc_ret_value ret =
        fd >= 0 ? send_datagram(fd, dest, tolen, &head, payload, len) : IPC_SYS_ERR;
    pthread_rwlock_unlock(&g_home_lock);
    return ret;
}

IPC_EXPORT zp_sdk_ipc_ret_value ipc_msg_send_syn(ipc_addr_t *addr, void *msg, zp_uint32 len,
                                                 zp_uint32 timeout, void *rsp, size_t *rsp_len)
{
    if (addr == nullptr || msg == nullptr || rsp == nullptr || rsp_len == nullptr ||
        len > IPC_MSG_MAX_PAYLOAD)
        return IPC_INVALID_PARA;
    sockaddr_un to;
    const socklen_t tolen = addr_len(addr, &to);
    if (tolen == 0)
        return IPC_INVALID_PARA;
    zp_sdk_ipc_ret_value ret = check_socket_dir(to);
    if (ret != IPC_OK)
        return ret;
    ReplySocket *r = reply_socket();
    if (r == nullptr)
        return IPC_SYS_ERR;
    // Connected to the module's socket, the reply socket takes datagrams
    // from that socket alone: the kernel refuses any other sender, so only
    // the process serving the module can answer.
    while (connect(r->fd.get(), reinterpret_cast<const sockaddr *>(&to), tolen) != 0) {
        if (errno != EINTR)
            return send_errno(errno);
    }

    ipc_msg_head_t head;
    std::memcpy(&head, msg, sizeof(head));
    head.msg_type = IPC_SYN_REQ;
    head.length = len;
    if (head.session_id == 0)
        ipc_gen_seesion_id(&head);
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeout);
    ret = send_datagram(r->fd.get(), &to, tolen, &head, static_cast<const zp_uint8 *>(msg) + IPC_MSG_HEAD_LEN,
                        len);
    if (ret != IPC_OK)
        return ret;

    // The answer's head lands in `in`, its payload straight in rsp; a longer
    // payload is cut at the room given (MSG_TRUNC still reports its size).
    const size_t room = *rsp_len;
    auto *rsp_payload = static_cast<zp_uint8 *>(rsp) + IPC_MSG_HEAD_LEN;
    long wait_us = static_cast<long>(timeout) * 1000L;
    for (;;) {
        int flags = MSG_TRUNC;
        if (wait_us <= 0) {
            flags |= MSG_DONTWAIT;
        } else if (wait_us != r->rcv_timeout_us) {
            set_timeout(r->fd.get(), SO_RCVTIMEO, wait_us);
            r->rcv_timeout_us = wait_us;
        }
        ipc_msg_head_t in{};
        iovec iov[2] = {{&in, IPC_MSG_HEAD_LEN}, {rsp_payload, room}};
        msghdr mh{};
        mh.msg_iov = iov;
        mh.msg_iovlen = room != 0 ? 2 : 1;
        const ssize_t n = recvmsg(r->fd.get(), &mh, flags);
        if (n < 0) {
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                if (remaining_us(deadline) == 0)
                    return IPC_TIMEOUT;
            } else if (errno != EINTR) {
                IPC_LOG("waiting for answer: %s\n", std::strerror(errno));
                return IPC_SYS_ERR;
            }
        } else if (const char *fault = datagram_fault(&in, static_cast<size_t>(n))) {
            IPC_LOG("dropped reply datagram of %zd bytes: %s\n", n, fault);
        } else if (in.msg_type != IPC_SYN_RSP || in.session_id != head.session_id) {
            IPC_LOG("discarded message type %u session 0x%x while waiting for 0x%x\n", in.msg_type,
                    in.session_id, head.session_id);
        } else {
            const size_t got = in.length < room ? in.length : room;
            in.length = static_cast<zp_uint32>(got);
            std::memcpy(rsp, &in, sizeof(in));
            *rsp_len = got;
            return IPC_OK;
        }
        wait_us = remaining_us(deadline);
    }
}
