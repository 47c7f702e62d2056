/* host_flood.h - a flood of datagrams on the host process while its service
 * is held by a SIM add that the card does not answer: for the service
 * end-to-end test (the queue's bound and the answers afterwards) and the
 * flood benchmark (the host's memory). The caller owns the simulator (in
 * its process, on the client library's socket) and the host process; every
 * call blocks and is made from one thread. */
#pragma once

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "harness.h"
#include "pbm_sim.h"
#include "zp_ipc_host.h"

namespace pbt {

// Resident memory of a process in KiB, from /proc; 0 when unknown.
inline long rss_kib(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0)
            return std::atol(line.c_str() + 6);
    return 0;
}

// What one round saw: the answer to the synchronous request sent after the
// flood, and the host's resident memory at its highest and once the queue
// had drained.
struct flood_round {
    std::string failed;  // the step that did not happen; empty when all did
    pb_rsp_t late{};
    long peak_kib = 0;
    long after_kib = 0;
};

// One round: waits until the SIM phonebook is read; holds the service with
// a SIM add the card does not answer; sends 1500 one-way requests, every
// other one a datagram of the largest size, and then one synchronous
// request; lets the modem go away, so the add fails and the queue drains;
// waits until the service answers again and brings the modem back.
inline flood_round flood_host(pbm_sim::Simulator &sim, pid_t host)
{
    constexpr int kFloodRequests = 1500;
    constexpr int kRssEvery = 50;             // requests between two looks at the host's memory
    constexpr unsigned kNoAnswerMs = 600000;  // longer than any round
    flood_round r;
    raw_peer flood, late("late");
    std::vector<zp_uint8> payload(IPC_MSG_MAX_PAYLOAD);
    const auto send = [&](zp_int32 event, size_t len) {
        const pb_event_req_t req{event, {}, STORAGE_TYPE_SIM, {}};
        std::memcpy(payload.data(), &req, sizeof req);
        return flood.send(IPC_ASY_MSG, MSG_ID_PB_REQ, 1, payload.data(), static_cast<zp_uint32>(len));
    };
    if (!wait_until(sim_book_read, 30000))
        return r.failed = "the SIM phonebook was not read", r;
    sim.set_reply_delay(kNoAnswerMs);
    if (!send(SIM_PB_HANDLE_TYPE_ADD, sizeof(pb_event_req_t)))
        return r.failed = "the SIM add was not sent", r;
    for (int k = 0; k < kFloodRequests; ++k) {
        if (!send(SIM_PB_HANDLE_TYPE_GETCOUNT, k % 2 ? IPC_MSG_MAX_PAYLOAD : sizeof(pb_event_req_t)))
            return r.failed = "a flood datagram was not sent", r;
        if (k % kRssEvery == 0)
            r.peak_kib = std::max(r.peak_kib, rss_kib(host));
    }
    const pb_event_req_t req{SIM_PB_HANDLE_TYPE_GETCOUNT, {}, {}, {}};
    if (!late.send(IPC_SYN_REQ, MSG_ID_PB_REQ, 7, &req, sizeof req))
        return r.failed = "the request after the flood was not sent", r;
    const raw_reply answer = late.receive(10000);
    r.peak_kib = std::max(r.peak_kib, rss_kib(host));
    if (!answer.arrived)
        return r.failed = "the request after the flood got no answer", r;
    r.late = answer.rsp;
    sim.stop();
    if (!wait_until(service_up, 60000))
        return r.failed = "the service did not answer after the modem went away", r;
    r.after_kib = rss_kib(host);
    sim.set_reply_delay(0);
    if (!sim.start())
        return r.failed = "the modem did not come back", r;
    return r;
}

}  // namespace pbt
