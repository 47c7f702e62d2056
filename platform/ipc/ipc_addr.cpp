// Addresses, buffers and session ids: the stateless part of the library.
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "ipc_internal.h"
#include "make_dirs.h"
#include "zp_mem.h"

namespace zp_ipc {

zp_uint16 tid16() { return static_cast<zp_uint16>(syscall(SYS_gettid)); }

namespace {

zp_uint32 random_start()
{
    zp_uint32 r = 0;
    if (getrandom(&r, sizeof r, 0) != static_cast<ssize_t>(sizeof r)) {
        // No entropy source: the clock still keeps ids apart between runs.
        r = static_cast<zp_uint32>(std::chrono::steady_clock::now().time_since_epoch().count()) ^
            static_cast<zp_uint32>(getpid());
    }
    return r;
}

}  // namespace

zp_sdk_ipc_ret_value make_dir(const char *dir)
{
    const size_t n = std::strlen(dir);
    if (n == 0 || n >= sizeof(sockaddr_un::sun_path))
        return IPC_INVALID_PARA;
    bool made = false;
    if (zp_host::make_dirs(dir, 0770, &made) != 0) {
        IPC_LOG("cannot make %s: %s\n", dir, std::strerror(errno));
        return IPC_SYS_ERR;
    }
    // The umask must not narrow the group's access to a folder made here.
    if (made && chmod(dir, 0770) != 0) {
        IPC_LOG("cannot set the mode of %s: %s\n", dir, std::strerror(errno));
        return IPC_SYS_ERR;
    }
    return check_dir(dir);
}

void set_timeout(int fd, int opt, long us)
{
    timeval tv{};
    tv.tv_sec = us / 1000000;
    tv.tv_usec = us % 1000000;
    setsockopt(fd, SOL_SOCKET, opt, &tv, sizeof(tv));
}

zp_sdk_ipc_ret_value check_dir(const char *dir)
{
    struct stat st;
    if (lstat(dir, &st) != 0)
        return IPC_NOT_FOUND;
    const char *why = nullptr;
    if (!S_ISDIR(st.st_mode))
        why = "is not a folder";
    else if (st.st_uid != geteuid() && st.st_uid != 0)
        why = "belongs to another user";
    else if ((st.st_mode & S_IWOTH) != 0)
        why = "is writable by others";
    if (why == nullptr)
        return IPC_OK;
    log_print(ZP_LOG_ERROR, "[%s:%s:%d]IPC folder %s %s: refused\n", __FILE_NAME__, __func__, __LINE__, dir,
              why);
    return IPC_REJECT;
}

zp_sdk_ipc_ret_value check_socket_dir(const sockaddr_un &to)
{
    if (to.sun_path[0] == '\0')
        return IPC_OK;  // an abstract name lives in no folder
    char dir[sizeof to.sun_path + 1] = {};
    std::memcpy(dir, to.sun_path, sizeof to.sun_path);
    char *slash = std::strrchr(dir, '/');
    if (slash == nullptr)
        return check_dir(".");
    if (slash == dir)
        slash[1] = '\0';  // a socket in the root folder
    else
        *slash = '\0';
    return check_dir(dir);
}

socklen_t addr_len(const ipc_addr_t *a, sockaddr_un *out)
{
    if (a->addr.sun_family != AF_UNIX)
        return 0;
    const char *p = a->addr.sun_path;
    constexpr size_t kRoom = sizeof(a->addr.sun_path);
    size_t used;
    if (p[0] != '\0')
        used = strnlen(p, kRoom);
    else if (p[1] != '\0')
        used = 1 + strnlen(p + 1, kRoom - 1);  // abstract name
    else
        return 0;
    *out = a->addr;
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + used);
}

const char *datagram_fault(const ipc_msg_head_t *head, size_t n)
{
    if (n < IPC_MSG_HEAD_LEN)
        return "short head";
    if (n > IPC_MSG_HEAD_LEN + IPC_MSG_MAX_PAYLOAD)
        return "oversized";
    if (head->length != n - IPC_MSG_HEAD_LEN)
        return "length disagrees with size";
    if (head->msg_type >= IPC_INNER_MQ)
        return "type not deliverable";
    return nullptr;
}

zp_sdk_ipc_ret_value send_errno(int err)
{
    switch (err) {
    case ENOENT:
    case ECONNREFUSED:  // a socket file nobody serves any longer
        return IPC_NOT_FOUND;
    case EAGAIN: return IPC_TIMEOUT;
    case EMSGSIZE: return IPC_INVALID_PARA;
    case EACCES:
    case EPERM: return IPC_REJECT;
    default: return IPC_SYS_ERR;
    }
}

zp_sdk_ipc_ret_value send_datagram(int fd, const sockaddr_un *to, socklen_t tolen, const ipc_msg_head_t *head,
                                   const void *payload, size_t len)
{
    iovec iov[2] = {{const_cast<ipc_msg_head_t *>(head), IPC_MSG_HEAD_LEN},
                    {const_cast<void *>(payload), len}};
    msghdr mh{};
    mh.msg_name = const_cast<sockaddr_un *>(to);
    mh.msg_namelen = to != nullptr ? tolen : 0;
    mh.msg_iov = iov;
    mh.msg_iovlen = len != 0 ? 2 : 1;
    for (;;) {
        if (sendmsg(fd, &mh, MSG_NOSIGNAL) >= 0)
            return IPC_OK;
        if (errno != EINTR)
            break;
    }
    const int err = errno;
    const zp_sdk_ipc_ret_value ret = send_errno(err);
    if (ret != IPC_NOT_FOUND)
        IPC_LOG("send to %s failed: %s\n",
                to == nullptr     ? "(own channel)"
                : to->sun_path[0] ? to->sun_path
                                  : "(reply socket)",
                std::strerror(err));
    return ret;
}

}  // namespace zp_ipc

using namespace zp_ipc;

IPC_EXPORT zp_sdk_ipc_ret_value ipc_get_addr_by_id(zp_uint32 module_id, zp_uint32 /*flag*/, ipc_addr_t *addr)
{
    if (addr == nullptr || module_id >= MAX_ID)
        return IPC_INVALID_PARA;
    std::memset(addr, 0, sizeof(*addr));
    const int n = std::snprintf(addr->addr.sun_path, sizeof(addr->addr.sun_path), "%s/ipc_%u", ipc_host_dir(),
                                static_cast<unsigned>(module_id));
    if (n < 0 || static_cast<size_t>(n) >= sizeof(addr->addr.sun_path)) {
        IPC_LOG("socket path of module %u too long in %s\n", static_cast<unsigned>(module_id),
                ipc_host_dir());
        std::memset(addr, 0, sizeof(*addr));
        return IPC_INVALID_PARA;
    }
    addr->pri = IPC_MSG_PRI_COMM;
    addr->addr.sun_family = AF_UNIX;
    return IPC_OK;
}

IPC_EXPORT void *ipc_memory_assign(zp_uint32 len, zp_uint32 /*flag*/)
{
    if (len > IPC_MSG_MAX_PAYLOAD)
        return nullptr;
    const size_t size = delivered_size(len);
    void *p = mem_malloc_ex(tid16(), IPC_SITE_ASSIGN, 0, size);
    if (p != nullptr)
        std::memset(p, 0, size);
    return p;
}

IPC_EXPORT zp_sdk_ipc_ret_value ipc_gen_seesion_id(ipc_msg_head_t *head)
{
    // A count from a random start: another process can't tell which id an
    // exchange waits for.
    static std::atomic<zp_uint32> count{random_start()};
    if (head == nullptr)
        return IPC_INVALID_PARA;
    zp_uint32 id;
    do
        id = count.fetch_add(1, std::memory_order_relaxed);
    while (id == 0);
    head->session_id = id;
    return IPC_OK;
}
