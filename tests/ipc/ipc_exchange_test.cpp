// Exchanges between this process and a forked responder serving MU_ID: what
// a client of the phonebook service relies on.
#include <gtest/gtest.h>

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "pb_msg.h"
#include "zp_ipc_host.h"
#include "zp_mem_host.h"

namespace {

using Bytes = std::vector<zp_uint8>;

enum : zp_uint32 {
    kEcho = 1,   // answer: the payload with every byte inverted
    kSlow = 2,   // the same after 300 ms
    kCount = 3,  // answer: {messages delivered before, requests without a reply address}
    kQuit = 4,
    kForge = 5,  // another process forges the answer first; then the real one: what the forger saw
    kAnswer = 0x99,
};

Bytes inverted(Bytes v)
{
    for (auto &b : v)
        b = static_cast<zp_uint8>(~b);
    return v;
}

Bytes pattern(size_t n, unsigned seed)
{
    Bytes v(n);
    for (size_t i = 0; i < n; ++i)
        v[i] = static_cast<zp_uint8>(i * 7 + seed);
    return v;
}

struct Responder {
    std::mutex lock;
    std::condition_variable done;
    bool quit = false;
    zp_uint32 counts[2] = {0, 0};
};

// Answers the way the service does: to the appended sender address, with the
// request's session id, as IPC_SYN_RSP when asked synchronously.
void answer(const void *req, const Bytes &body)
{
    const auto *rh = static_cast<const ipc_msg_head_t *>(req);
    void *rsp = ipc_memory_assign(static_cast<zp_uint32>(body.size()), 0);
    *static_cast<ipc_msg_head_t *>(rsp) = {rh->msg_type == IPC_SYN_REQ ? IPC_SYN_RSP : IPC_ASY_MSG, kAnswer,
                                           static_cast<zp_uint32>(body.size()), rh->session_id};
    if (!body.empty())
        std::memcpy(pb_msg_payload(rsp), body.data(), body.size());
    ipc_addr_t to;
    std::memcpy(&to, pb_msg_sender(req), sizeof(to));
    ipc_msg_send_asy(&to, rsp, static_cast<zp_uint32>(body.size()));
    mem_free_ex(pb_tid16(), 0, 0, rsp);
}

// A process other than the responder (and of another user, `nobody`, when
// the test runs as root) sends an answer to the requester's address with
// the request's session id, as one that knows both would. Its errno (0: the
// datagram went out).
int forge_answer(const void *req)
{
    const auto *rh = static_cast<const ipc_msg_head_t *>(req);
    const ipc_msg_head_t head{IPC_SYN_RSP, kAnswer, 4, rh->session_id};
    zp_uint8 d[IPC_MSG_HEAD_LEN + 4];
    std::memcpy(d, &head, sizeof head);
    std::memcpy(d + IPC_MSG_HEAD_LEN, "FAKE", 4);
    sockaddr_un to;
    std::memcpy(&to, &pb_msg_sender(req)->addr, sizeof to);
    const socklen_t tolen = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 +
                                                   strnlen(to.sun_path + 1, sizeof to.sun_path - 1));
    const pid_t pid = fork();
    if (pid == 0) {
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0))
            _exit(254);
        const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
        _exit(sendto(fd, d, sizeof d, 0, reinterpret_cast<sockaddr *>(&to), tolen) == sizeof d ? 0 : errno);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

void respond(void *msg, void *ctx)
{
    auto *r = static_cast<Responder *>(ctx);
    const auto *h = static_cast<const ipc_msg_head_t *>(msg);
    const zp_uint8 *in = pb_msg_payload(msg);
    const auto &from = pb_msg_sender(msg)->addr;
    if (h->msg_type == IPC_SYN_REQ && (from.sun_family != AF_UNIX || from.sun_path[1] == '\0'))
        ++r->counts[1];
    if (h->msg_id == kQuit) {
        std::lock_guard<std::mutex> hold(r->lock);
        r->quit = true;
        r->done.notify_one();
        return;
    }
    if (h->msg_id == kSlow)
        usleep(300 * 1000);
    if (h->msg_id == kEcho || h->msg_id == kSlow)
        answer(msg, inverted(Bytes(in, in + h->length)));
    if (h->msg_id == kForge) {
        const int err = forge_answer(msg);
        answer(msg,
               Bytes(reinterpret_cast<const zp_uint8 *>(&err), reinterpret_cast<const zp_uint8 *>(&err + 1)));
    }
    if (h->msg_id == kCount)
        answer(msg,
               Bytes(reinterpret_cast<zp_uint8 *>(r->counts), reinterpret_cast<zp_uint8 *>(r->counts + 2)));
    ++r->counts[0];
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
    std::unique_lock<std::mutex> hold(r.lock);
    r.done.wait(hold, [&r] { return r.quit; });
    hold.unlock();
    ipc_server_stop(srv);
    return mem_live_total() == live_at_start ? 0 : 3;
}

struct Result {
    zp_sdk_ipc_ret_value rc;
    ipc_msg_head_t head;
    Bytes payload;
    zp_uint32 session;
    bool past_room;  // bytes written beyond the caller's room
};

Result exchange(zp_uint32 msg_id, const Bytes &payload, size_t room, zp_uint32 timeout_ms)
{
    ipc_addr_t to;
    ipc_get_addr_by_id(MU_ID, 0, &to);
    Bytes req(IPC_MSG_HEAD_LEN, 0), rsp(IPC_MSG_HEAD_LEN + room + 64, 0xEE);
    req.insert(req.end(), payload.begin(), payload.end());
    auto *h = reinterpret_cast<ipc_msg_head_t *>(req.data());
    *h = {IPC_ASY_MSG, msg_id, static_cast<zp_uint32>(payload.size()), 0};
    ipc_gen_seesion_id(h);
    size_t rsp_len = room;
    Result r{ipc_msg_send_syn(&to, req.data(), h->length, timeout_ms, rsp.data(), &rsp_len),
             {},
             {},
             h->session_id,
             rsp_len > room || Bytes(rsp.end() - 64, rsp.end()) != Bytes(64, 0xEE)};
    std::memcpy(&r.head, rsp.data(), sizeof(r.head));
    if (r.rc == IPC_OK)
        r.payload.assign(rsp.begin() + IPC_MSG_HEAD_LEN, rsp.begin() + IPC_MSG_HEAD_LEN + rsp_len);
    return r;
}

class IpcExchange : public testing::Test {
protected:
    // The test process has no other thread when it forks.
    void SetUp() override
    {
        pid_ = fork();
        if (pid_ == 0)
            _exit(run_responder());
        ASSERT_GT(pid_, 0);
        // Ready once the socket takes datagrams: a file left by an earlier
        // run may be there before the responder has bound its own.
        ipc_addr_t a;
        ipc_get_addr_by_id(MU_ID, 0, &a);
        const int probe = socket(AF_UNIX, SOCK_DGRAM, 0);
        for (int i = 0; i < 500 && connect(probe, reinterpret_cast<sockaddr *>(&a.addr), sizeof(a.addr)) != 0;
             ++i)
            usleep(10000);
        close(probe);
    }
    void TearDown() override
    {
        ipc_addr_t a;
        ipc_get_addr_by_id(MU_ID, 0, &a);
        ipc_msg_head_t quit{IPC_ASY_MSG, kQuit, 0, 0};
        ipc_msg_send_asy(&a, &quit, 0);
        int status = -1;
        waitpid(pid_, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "responder failed or kept buffers";
        EXPECT_EQ(mem_live_blocks(IPC_MEM_SITE_ASSIGN), 0);
    }
    pid_t pid_ = -1;
};

// Payloads of the phonebook's sizes cross both ways with the request's
// session; an answer longer than the caller's room is cut at the room.
TEST_F(IpcExchange, PayloadCrossesBothWaysWithTheRequestSession)
{
    const std::pair<size_t, size_t> sizes[] = {{972, 972}, {8, 8}, {13216, 13216}, {972, 8}};  // sent, room
    for (const auto &[sent_len, room] : sizes) {
        const Bytes sent = pattern(sent_len, 3), want = inverted(sent);
        const Result r = exchange(kEcho, sent, room, 2000);
        ASSERT_EQ(r.rc, IPC_OK) << sent_len;
        EXPECT_EQ(r.head.session_id, r.session);
        EXPECT_EQ(r.head.length, room);
        EXPECT_EQ(r.payload, Bytes(want.begin(), want.begin() + room)) << sent_len << "/" << room;
        EXPECT_FALSE(r.past_room);
    }
}

// A timed-out request's answer arrives later on the reply socket; neither it
// nor another thread's answer is taken for a request's own.
TEST_F(IpcExchange, LateOrConcurrentAnswersAreNotTakenForAnother)
{
    // A wait past the limit would take the answer and return IPC_OK.
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(exchange(kSlow, Bytes(8, 0), 8, 100).rc, IPC_TIMEOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(100));

    // This thread's reply socket gets the late answer first.
    std::atomic<int> wrong{0};
    const auto echoes = [&wrong](unsigned t) {
        for (unsigned i = 0; i < 25; ++i) {
            const Bytes sent = pattern(t ? 972 : 8, t * 31 + i);
            const Result r = exchange(kEcho, sent, sent.size(), 5000);
            wrong += r.rc != IPC_OK || r.head.session_id != r.session || r.payload != inverted(sent);
        }
    };
    std::vector<std::thread> threads;
    for (unsigned t = 1; t < 4; ++t)
        threads.emplace_back(echoes, t);
    echoes(0);
    for (auto &th : threads)
        th.join();
    EXPECT_EQ(wrong.load(), 0);
}

// Only the process serving the module reaches a requester's reply socket:
// another process (of another user when run as root), knowing the reply
// address and the session id, is refused by the kernel, and the answer taken
// is the responder's.
TEST_F(IpcExchange, AnAnswerFromAnotherProcessIsNeverTaken)
{
    const Result r = exchange(kForge, {}, 4, 5000);
    ASSERT_EQ(r.rc, IPC_OK);
    ASSERT_EQ(r.payload.size(), 4u);
    EXPECT_NE(r.payload, Bytes({'F', 'A', 'K', 'E'})) << "the forged answer was taken";
    int err = 0;
    std::memcpy(&err, r.payload.data(), sizeof err);
    EXPECT_EQ(err, EPERM) << "the forger reached the reply socket";
}

Bytes datagram(zp_uint32 type, zp_uint32 length, size_t payload)
{
    Bytes d(IPC_MSG_HEAD_LEN + payload, 0x5A);
    const ipc_msg_head_t h{type, kEcho, length, 7};
    std::memcpy(d.data(), &h, sizeof(h));
    return d;
}

// Bad datagrams sent straight to the socket never reach the handler, and the
// server stays up to answer afterwards.
TEST_F(IpcExchange, MalformedDatagramsAreDroppedWithoutReachingTheHandler)
{
    const Bytes cases[] = {
        {},                                     // empty
        Bytes(10, 1),                           // short head
        datagram(IPC_ASY_MSG, 100, 20),         // length beyond what arrived
        datagram(IPC_SYN_REQ, 4, 8),            // length short of what arrived
        datagram(0xFFFFFFF0u, 8, 8),            // no such type
        datagram(IPC_INNER_MQ, 8, 8),           // queue-only type
        datagram(IPC_ASY_MSG, 0xFFFFFFF0u, 8),  // absurd length
        datagram(IPC_ASY_MSG, IPC_MSG_MAX_PAYLOAD + 1, IPC_MSG_MAX_PAYLOAD + 1),  // oversized
    };
    ipc_addr_t to;
    ipc_get_addr_by_id(MU_ID, 0, &to);
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    for (const Bytes &c : cases)
        ASSERT_EQ(sendto(fd, c.data(), c.size(), 0, reinterpret_cast<sockaddr *>(&to.addr), sizeof(to.addr)),
                  static_cast<ssize_t>(c.size()));
    close(fd);
    const Result r = exchange(kCount, {}, 8, 2000);
    ASSERT_EQ(r.payload.size(), 8u);
    EXPECT_EQ(r.payload, Bytes(8, 0))
        << "a malformed datagram reached the handler, or a request its reply address";
}

}  // namespace
