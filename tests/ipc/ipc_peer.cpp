#include "ipc_peer.h"

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "pb_msg.h"
#include "zp_mem.h"

namespace {

struct Responder {
    std::mutex lock;
    std::condition_variable done;
    bool quit = false;
    zp_uint32 delivered = 0;
    zp_uint32 bad_sender = 0;
};

void answer(const void *req, const void *data, size_t len)
{
    const auto *rh = static_cast<const ipc_msg_head_t *>(req);
    void *rsp = ipc_memory_assign(static_cast<zp_uint32>(len), 0);
    auto *h = static_cast<ipc_msg_head_t *>(rsp);
    h->msg_id = kAnswer;
    h->length = static_cast<zp_uint32>(len);
    h->session_id = rh->session_id;
    if (rh->msg_type == IPC_SYN_REQ)
        h->msg_type = IPC_SYN_RSP;
    std::memcpy(pb_msg_payload(rsp), data, len);
    ipc_addr_t to;
    std::memcpy(&to, pb_msg_sender(req), sizeof(to));
    ipc_msg_send_asy(&to, rsp, static_cast<zp_uint32>(len));
    mem_free_ex(pb_tid16(), 0x0F00, 0, rsp);
}

void respond(void *msg, void *ctx)
{
    auto *r = static_cast<Responder *>(ctx);
    const auto *h = static_cast<const ipc_msg_head_t *>(msg);
    const zp_uint8 *in = pb_msg_payload(msg);
    const ipc_addr_t *from = pb_msg_sender(msg);
    // A synchronous request must come from a reply socket (abstract name).
    if (h->msg_type == IPC_SYN_REQ &&
        (from->addr.sun_family != AF_UNIX || from->addr.sun_path[0] != '\0' || from->addr.sun_path[1] == '\0'))
        ++r->bad_sender;
    switch (h->msg_id) {
    case kQuit: {
        std::lock_guard<std::mutex> hold(r->lock);
        r->quit = true;
        r->done.notify_one();
        return;
    }
    case kSlow:
    case kEcho: {
        if (h->msg_id == kSlow) {
            zp_uint32 ms;
            std::memcpy(&ms, in, sizeof(ms));
            usleep(ms * 1000);
        }
        std::vector<zp_uint8> out(in, in + h->length);
        for (auto &b : out)
            b = static_cast<zp_uint8>(~b);
        answer(msg, out.data(), out.size());
        break;
    }
    case kCount: {
        const zp_uint32 counts[2] = {r->delivered, r->bad_sender};
        answer(msg, counts, sizeof(counts));
        break;
    }
    case kIds: {
        zp_uint32 ids[64];
        for (auto &id : ids) {
            ipc_msg_head_t tmp{};
            ipc_gen_seesion_id(&tmp);
            id = tmp.session_id;
        }
        answer(msg, ids, sizeof(ids));
        break;
    }
    default:
        break;
    }
    ++r->delivered;
}

// Exit status 0 when the responder gave back every buffer it took.
int run_responder()
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlive a test that crashed
    const long live_at_start = mem_live_total();
    Responder r;
    ipc_server_pt srv = nullptr;
    if (ipc_server_start(MU_ID, respond, &r, &srv) != IPC_OK)
        return 2;
    {
        std::unique_lock<std::mutex> hold(r.lock);
        r.done.wait(hold, [&r] { return r.quit; });
    }
    ipc_server_stop(srv);
    return mem_live_total() == live_at_start ? 0 : 3;
}

}  // namespace

Peer::Peer()
{
    // The test process has no other thread when a fixture forks.
    pid_ = fork();
    if (pid_ == 0)
        _exit(run_responder());
    if (pid_ < 0)
        return;
    // Ready once the socket accepts datagrams: a file left by an earlier
    // run may be there before the responder has bound its own.
    ipc_addr_t a;
    ipc_get_addr_by_id(MU_ID, 0, &a);
    const int probe = socket(AF_UNIX, SOCK_DGRAM, 0);
    for (int i = 0; i < 500; ++i) {
        if (connect(probe, reinterpret_cast<sockaddr *>(&a.addr), sizeof(a.addr)) == 0)
            break;
        usleep(10000);
    }
    close(probe);
}

int Peer::finish()
{
    if (pid_ <= 0)
        return -1;
    ipc_addr_t a;
    ipc_get_addr_by_id(MU_ID, 0, &a);
    ipc_msg_head_t quit{};
    quit.msg_id = kQuit;
    ipc_msg_send_asy(&a, &quit, 0);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

Peer::~Peer() { finish(); }
