// Round trip of a phonebook-sized exchange (972-byte request, 8-byte answer)
// between two processes through the IPC library, against a bare Unix
// datagram ping-pong of the same datagram sizes in the same run. Each
// benchmark reports the median and 99th percentile of single round trips;
// the interleaved one measures both alternately and the program prints the
// ratio of its figures at the end.
#include <benchmark/benchmark.h>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "pb_msg.h"
#include "zp_ipc_host.h"
#include "zp_mem_host.h"

namespace {

constexpr size_t kReq = 972;
constexpr size_t kRsp = 8;
constexpr zp_uint32 kTimeoutMs = 5000;

struct Figures {
    double median_us = 0;
    double p99_us = 0;
};
Figures g_ipc, g_bare;

// The bare peer's socket sits next to the module sockets.
std::string bare_path()
{
    ipc_addr_t mu;
    ipc_get_addr_by_id(MU_ID, 0, &mu);
    std::string path = mu.addr.sun_path;
    return path.substr(0, path.rfind('/') + 1) + "bare_peer";
}

void report(benchmark::State &state, std::vector<double> &us, Figures &out)
{
    if (us.empty())
        return;
    std::sort(us.begin(), us.end());
    out.median_us = us[us.size() / 2];
    out.p99_us = us[std::min(us.size() - 1, us.size() * 99 / 100)];
    state.counters["median_us"] = out.median_us;
    state.counters["p99_us"] = out.p99_us;
}

double elapsed_us(std::chrono::steady_clock::time_point t0)
{
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - t0).count();
}

// The responder of the IPC side: what the service does with a request,
// without the queue: answer 8 bytes to the sender.
void answer(void *msg, void *)
{
    const auto *rh = static_cast<const ipc_msg_head_t *>(msg);
    void *rsp = ipc_memory_assign(kRsp, 0);
    auto *h = static_cast<ipc_msg_head_t *>(rsp);
    h->msg_type = rh->msg_type == IPC_SYN_REQ ? IPC_SYN_RSP : IPC_ASY_MSG;
    h->msg_id = rh->msg_id + 1;
    h->length = kRsp;
    h->session_id = rh->session_id;
    std::memcpy(pb_msg_payload(rsp), pb_msg_payload(msg), kRsp);
    ipc_addr_t to;
    std::memcpy(&to, pb_msg_sender(msg), sizeof(to));
    ipc_msg_send_asy(&to, rsp, kRsp);
    mem_free_ex(pb_tid16(), 0x0F10, 0, rsp);
}

[[noreturn]] void run_ipc_responder()
{
    ipc_server_pt srv = nullptr;
    if (ipc_server_start(MU_ID, answer, nullptr, &srv) != IPC_OK)
        _exit(2);
    for (;;)
        pause();
}

[[noreturn]] void run_bare_peer()
{
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un me{};
    me.sun_family = AF_UNIX;
    std::snprintf(me.sun_path, sizeof(me.sun_path), "%s", bare_path().c_str());
    unlink(me.sun_path);
    if (bind(fd, reinterpret_cast<sockaddr *>(&me), sizeof(me)) != 0)
        _exit(2);
    zp_uint8 buf[IPC_MSG_HEAD_LEN + kReq];
    for (;;) {
        sockaddr_un from{};
        socklen_t fromlen = sizeof(from);
        const ssize_t n = recvfrom(fd, buf, sizeof(buf), 0, reinterpret_cast<sockaddr *>(&from), &fromlen);
        if (n > 0)
            sendto(fd, buf, IPC_MSG_HEAD_LEN + kRsp, 0, reinterpret_cast<sockaddr *>(&from), fromlen);
    }
}

pid_t start(void (*body)())
{
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        body();
    }
    return pid;
}

void wait_ready(const char *path)
{
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    std::snprintf(a.sun_path, sizeof(a.sun_path), "%s", path);
    const int probe = socket(AF_UNIX, SOCK_DGRAM, 0);
    for (int i = 0; i < 500 && connect(probe, reinterpret_cast<sockaddr *>(&a), sizeof(a)) != 0; ++i)
        usleep(10000);
    close(probe);
}

// One exchange as a client of the service makes it: buffers from the
// library, a fresh session id, a synchronous send, both buffers given back.
bool ipc_round_trip(ipc_addr_t *to, const std::vector<zp_uint8> &body)
{
    void *req = ipc_memory_assign(kReq, 0);
    void *rsp = ipc_memory_assign(kRsp, 0);
    auto *h = static_cast<ipc_msg_head_t *>(req);
    h->msg_id = 0x104000a1;
    h->length = kReq;
    ipc_gen_seesion_id(h);
    std::memcpy(pb_msg_payload(req), body.data(), kReq);
    size_t rsp_len = kRsp;
    const zp_sdk_ipc_ret_value rc = ipc_msg_send_syn(to, req, kReq, kTimeoutMs, rsp, &rsp_len);
    mem_free_ex(pb_tid16(), 0x0F11, 0, req);
    mem_free_ex(pb_tid16(), 0x0F11, 0, rsp);
    return rc == IPC_OK;
}

struct Bare {
    int fd;
    sockaddr_un peer{};
    std::vector<zp_uint8> req = std::vector<zp_uint8>(IPC_MSG_HEAD_LEN + kReq, 0x5A);
    std::vector<zp_uint8> rsp = std::vector<zp_uint8>(IPC_MSG_HEAD_LEN + kRsp);

    Bare() : fd(socket(AF_UNIX, SOCK_DGRAM, 0))
    {
        sockaddr_un any{};
        any.sun_family = AF_UNIX;
        bind(fd, reinterpret_cast<sockaddr *>(&any), sizeof(sa_family_t));
        peer.sun_family = AF_UNIX;
        std::snprintf(peer.sun_path, sizeof(peer.sun_path), "%s", bare_path().c_str());
    }
    ~Bare() { close(fd); }
    bool round_trip()
    {
        return sendto(fd, req.data(), req.size(), 0, reinterpret_cast<sockaddr *>(&peer), sizeof(peer)) > 0 &&
               recv(fd, rsp.data(), rsp.size(), 0) == static_cast<ssize_t>(rsp.size());
    }
};

// One kind alone: the library's synchronous exchange, or the bare
// datagram ping-pong.
void BM_RoundTrip(benchmark::State &state, bool through_ipc)
{
    ipc_addr_t to;
    ipc_get_addr_by_id(MU_ID, 0, &to);
    const std::vector<zp_uint8> body(kReq, 0x5A);
    Bare bare;
    std::vector<double> us;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        const bool ok = through_ipc ? ipc_round_trip(&to, body) : bare.round_trip();
        us.push_back(elapsed_us(t0));
        if (!ok) {
            state.SkipWithError("round trip failed");
            break;
        }
    }
    Figures f;
    report(state, us, f);
}
BENCHMARK_CAPTURE(BM_RoundTrip, IpcSync, true)->UseRealTime();
BENCHMARK_CAPTURE(BM_RoundTrip, BareDgram, false)->UseRealTime();

// Both kinds alternately, so that a change of machine load between two
// benchmarks does not skew their ratio; the printed ratio comes from here.
void BM_InterleavedIpcThenBare(benchmark::State &state)
{
    ipc_addr_t to;
    ipc_get_addr_by_id(MU_ID, 0, &to);
    const std::vector<zp_uint8> body(kReq, 0x5A);
    Bare bare;
    std::vector<double> ipc_us, bare_us;
    for (auto _ : state) {
        auto t0 = std::chrono::steady_clock::now();
        bool ok = ipc_round_trip(&to, body);
        ipc_us.push_back(elapsed_us(t0));
        t0 = std::chrono::steady_clock::now();
        ok = bare.round_trip() && ok;
        bare_us.push_back(elapsed_us(t0));
        if (!ok) {
            state.SkipWithError("round trip failed");
            break;
        }
    }
    report(state, ipc_us, g_ipc);
    report(state, bare_us, g_bare);
    state.counters.erase("median_us");
    state.counters.erase("p99_us");
    state.counters["ipc_median_us"] = g_ipc.median_us;
    state.counters["ipc_p99_us"] = g_ipc.p99_us;
    state.counters["bare_median_us"] = g_bare.median_us;
    state.counters["bare_p99_us"] = g_bare.p99_us;
}
BENCHMARK(BM_InterleavedIpcThenBare)->UseRealTime();

}  // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    ipc_addr_t mu;
    ipc_get_addr_by_id(MU_ID, 0, &mu);
    const pid_t responder = start(run_ipc_responder);
    wait_ready(mu.addr.sun_path);  // also makes the folder for the bare peer
    const pid_t bare = start(run_bare_peer);
    wait_ready(bare_path().c_str());
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    kill(responder, SIGTERM);
    kill(bare, SIGTERM);
    waitpid(responder, nullptr, 0);
    waitpid(bare, nullptr, 0);
    unlink(mu.addr.sun_path);
    unlink(bare_path().c_str());
    if (g_bare.median_us > 0 && g_ipc.median_us > 0)
        std::printf(
            "IPC round trip / bare ping-pong: median %.2fx (%.1f/%.1f us), p99 %.2fx (%.1f/%.1f us)\n",
            g_ipc.median_us / g_bare.median_us, g_ipc.median_us, g_bare.median_us,
            g_ipc.p99_us / g_bare.p99_us, g_ipc.p99_us, g_bare.p99_us);
    return 0;
}
