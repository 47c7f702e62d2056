// The service under load, against its targets:
//
// BM_SimReadThroughService: reading a 1000-record card through the service
// in this process (mm_pb_init, MU_ID's socket, the service thread storing
// every record in the SIM file), timed from the get-all that starts it
// until the file holds the whole card; each iteration also times the same
// read through the simulator's transport alone (modem, QMI transport,
// decode and IPC forwarding, as BM_ReadWholeSimTransportOnly does), so that
// both see the same machine load. Counters: median_ms of each and
// x_transport, their ratio (target: at most 1.2).
//
// BM_HostRssUnderFlood: pb_host's resident memory while its service thread
// waits on a card write the modem does not answer and a client floods it
// with 1500 requests, half of them the largest datagram the IPC library
// takes; then the modem goes away and the queue drains. Counters: peak_kib
// sampled during the flood, hwm_kib (the kernel's high-water mark) and
// after_kib once drained (target: under 8 MiB).
//
// Logging follows the environment: ZP_LOG_LEVEL=2 filters it out.
#include <benchmark/benchmark.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "bench_system.h"
#include "forwarded_indications.h"
#include "harness.h"
#include "mm_pb.h"
#include "pb_qmi.h"
#include "pbm_sim.h"
#include "sim_cards.h"

namespace {

using clock_type = std::chrono::steady_clock;

constexpr unsigned kRecords = PB_MAX_ENTRIES;
constexpr int kWaitMs = 60000;

pbm_sim::Card card(unsigned records) { return pbt::numbered_card(records, kRecords, "Contact ", "+4917012"); }

double ms_since(clock_type::time_point t0)
{
    return std::chrono::duration<double, std::milli>(clock_type::now() - t0).count();
}

// One read through the transport alone, from the read request until every
// record's indication has been forwarded; < 0 on a failure.
double transport_read_ms()
{
    ForwardedIndications forwarded;
    ipc_server_pt server = nullptr;
    if (ipc_server_start(MU_ID, ForwardedIndications::on_message, &forwarded, &server) != IPC_OK)
        return -1;
    pb_qmi_init();
    const auto t0 = clock_type::now();
    unsigned got = 0;
    std::vector<uint8_t> payload;
    if (pb_qmi_get_all() == 0)
        while (got < kRecords && forwarded.pop(&payload, std::chrono::milliseconds(kWaitMs)))
            got += reinterpret_cast<pbm_record_read_ind_msg_v01 *>(payload.data())
                       ->basic_record_data.record_instances_len;
    const double ms = ms_since(t0);
    pb_qmi_fin();
    ipc_server_stop(server);
    return got == kRecords ? ms : -1;
}

// One read through a freshly started service, from the get-all that starts
// it until the SIM file holds every record; < 0 on a failure.
double service_read_ms()
{
    ipc_server_pt server = nullptr;
    if (mm_pb_init() != 0 || ipc_server_start(
                                 MU_ID, [](void *m, void *) { mm_pb_proc(m); }, nullptr, &server) != IPC_OK)
        return -1;
    // The thread's start-up (files, table) is over once it answers.
    if (!pbt::wait_until(pbt::service_up, kWaitMs)) {
        mm_pb_fin();
        ipc_server_stop(server);
        return -1;
    }
    const std::string file = pbt::book(STORAGE_TYPE_SIM);
    const auto whole = [&] {
        struct stat st {};
        return stat(file.c_str(), &st) == 0 && st.st_size == off_t{kRecords} * PB_RECORD_SIZE;
    };
    const auto t0 = clock_type::now();
    int num = 0;
    const bool started =
        simlib_pb_read_handler(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_GETALL, &num) == nullptr &&
        num == PB_RCODE_READED_ERR;
    bool read = false;
    while (started && !read && ms_since(t0) < kWaitMs) {
        read = whole();
        if (!read)
            std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
    const double ms = ms_since(t0);
    mm_pb_fin();
    ipc_server_stop(server);
    return read ? ms : -1;
}

void BM_SimReadThroughService(benchmark::State &state)
{
    pbm_sim::Simulator sim(card(kRecords));
    if (!sim.start() || simlib_pb_init(STORAGE_TYPE_SIM) != 0) {
        state.SkipWithError("simulator did not start");
        return;
    }
    std::vector<double> service, transport;
    for (auto _ : state) {
        const double t = transport_read_ms(), s = service_read_ms();
        if (t < 0 || s < 0) {
            state.SkipWithError("a read did not complete");
            break;
        }
        transport.push_back(t);
        service.push_back(s);
        state.SetIterationTime(s / 1000);
    }
    sim.stop();
    simlib_clear_flash(STORAGE_TYPE_SIM);
    if (service.empty())
        return;
    state.counters["service_median_ms"] = bench::percentile(service, 0.5);
    state.counters["transport_median_ms"] = bench::percentile(transport, 0.5);
    state.counters["x_transport"] = bench::percentile(service, 0.5) / bench::percentile(transport, 0.5);
}

BENCHMARK(BM_SimReadThroughService)->UseManualTime()->Unit(benchmark::kMillisecond);

// A field of /proc/<pid>/status in KiB; 0 when unknown.
long status_kib(pid_t pid, const std::string &field)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(field, 0) == 0)
            return std::atol(line.c_str() + field.size());
    return 0;
}

void BM_HostRssUnderFlood(benchmark::State &state)
{
    pbt::remove_books();
    pbm_sim::Simulator sim(card(1));
    if (!sim.start() || simlib_pb_init(STORAGE_TYPE_SIM) != 0) {
        state.SkipWithError("simulator did not start");
        return;
    }
    pbt::child host({PB_HOST_BIN});
    if (!pbt::wait_until(pbt::service_up, 10000)) {
        state.SkipWithError("pb_host did not come up");
        return;
    }
    pbt::raw_peer flood;  // unbound: the answers to it fail at once
    std::vector<zp_uint8> payload(IPC_MSG_MAX_PAYLOAD);
    const auto send = [&](zp_int32 event, size_t len) {
        const pb_event_req_t req{event, {}, STORAGE_TYPE_SIM, {}};
        std::memcpy(payload.data(), &req, sizeof req);
        return flood.send(IPC_ASY_MSG, MSG_ID_PB_REQ, 1, payload.data(), static_cast<zp_uint32>(len));
    };
    long peak = 0, after = 0;
    for (auto _ : state) {
        const auto t0 = clock_type::now();
        if (!pbt::wait_until(pbt::sim_book_read, kWaitMs)) {
            state.SkipWithError("the card was not read");
            break;
        }
        // A SIM add holds the service thread on a card that does not answer.
        sim.set_reply_delay(600000);
        bool sent = send(SIM_PB_HANDLE_TYPE_ADD, sizeof(pb_event_req_t));
        for (int k = 0; sent && k < 1500; ++k) {
            sent = send(SIM_PB_HANDLE_TYPE_GETCOUNT, k % 2 ? IPC_MSG_MAX_PAYLOAD : sizeof(pb_event_req_t));
            if (k % 50 == 0)
                peak = std::max(peak, status_kib(host.pid, "VmRSS:"));
        }
        peak = std::max(peak, status_kib(host.pid, "VmRSS:"));
        // The modem goes away: the add fails and the queue drains.
        sim.stop();
        const bool drained = pbt::wait_until(pbt::service_up, kWaitMs);
        after = status_kib(host.pid, "VmRSS:");
        sim.set_reply_delay(0);
        if (!sent || !drained || !sim.start()) {
            state.SkipWithError("the flood or the drain failed");
            break;
        }
        state.SetIterationTime(ms_since(t0) / 1000);
    }
    state.counters["peak_kib"] = static_cast<double>(peak);
    state.counters["hwm_kib"] = static_cast<double>(status_kib(host.pid, "VmHWM:"));
    state.counters["after_kib"] = static_cast<double>(after);
    host.wait(30000, SIGTERM);
    sim.stop();
    pbt::remove_books();
}

BENCHMARK(BM_HostRssUnderFlood)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
