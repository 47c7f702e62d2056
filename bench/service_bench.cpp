// End to end from a client process (this one): add, edit and delete on a
// device phonebook of 999 entries, and get-all plus read of a 1000-entry SIM
// phonebook, each through the modem simulator daemon and the host process.
// The floor: one IPC round trip through the service (a request it answers
// at once) plus one bare read of the 1000-entry (161,000-byte) phonebook
// file and one durable save of it: write, fsync and rename.
//
// Logging follows the environment, for all three processes: ZP_LOG_LEVEL=2
// filters it out; ZP_LOG_LEVEL=1 with ZP_LOG_FILE=<path> turns it on.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench_system.h"
#include "pb_data_dir.h"
#include "zp_ipc_host.h"
#include "zpt_ui_pb_api.h"

namespace {

using clock_type = std::chrono::steady_clock;

constexpr int kDeviceEntries = 999;
constexpr int kSimEntries = 1000;

// The simulator's card: 1000 records.
std::string full_card()
{
    std::string card = "card " + std::to_string(kSimEntries) + " 20 20\n";
    for (int k = 1; k <= kSimEntries; ++k) {
        char line[48];
        std::snprintf(line, sizeof line, "%d,+4930%06d,Card %04d\n", k, k, k);
        card += line;
    }
    return card;
}

// The simulator with a full card, and the host process; the SIM phonebook
// read once before any figure is taken.
class system_under_test : bench::modem_and_host {
public:
    system_under_test() : modem_and_host(full_card(), PBM_SIMD_BIN, PB_HOST_BIN)
    {
        simlib_pb_init(STORAGE_TYPE_SIM);
        simlib_pb_init(STORAGE_TYPE_FLASH);
        for (int k = 0; up() && k < 6000 && !ready_; ++k) {
            int num = 0;
            ready_ = simlib_pb_read_handler(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_GETALL, &num) != nullptr &&
                     num == kSimEntries;
            if (!ready_)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    bool ready() const { return ready_; }

private:
    bool ready_ = false;
};

system_under_test &sut()
{
    static system_under_test s;
    return s;
}

// The floor: one IPC round trip through the service (a request it answers
// at once) plus one read of the device phonebook file and one write, fsync
// and rename of a file of its size, each a single system call on the whole.
int floor_step(std::vector<char> *buf)
{
    pb_event_req_t req{};
    req.event = SIM_PB_HANDLE_TYPE_GETCOUNT;
    pb_rsp_t rsp{};
    size_t len = sizeof rsp;
    int rc = simlib_send_request_sync(MU_ID, MSG_ID_PB_REQ, &req, sizeof req, &rsp, &len, 5000);
    const std::string path = std::string(pb_data_dir()) + "/pb_device_file", fresh = path + ".floor";
    buf->resize(size_t{PB_RECORD_SIZE} * PB_MAX_ENTRIES);
    int in = open(path.c_str(), O_RDONLY);
    if (in < 0)
        return -1;
    ssize_t n = read(in, buf->data(), buf->size());
    close(in);
    int out = open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0640);
    if (n < 0 || out < 0)
        return -1;
    rc |= write(out, buf->data(), static_cast<size_t>(n)) == n ? 0 : -1;
    rc |= fsync(out);
    rc |= close(out);
    rc |= rename(fresh.c_str(), path.c_str());
    return rc;
}

// Times each call of the operation, and after each one a floor step, so
// that both see the same machine load. Reports median_us and p99_us of the
// operation, floor_us (median of the floor) and x_floor (their ratio).
class samples {
public:
    explicit samples(benchmark::State &state) : state_(state) {}
    ~samples()
    {
        if (op_.empty())
            return;
        state_.counters["median_us"] = bench::percentile(op_, 0.5);
        state_.counters["p99_us"] = bench::percentile(op_, 0.99);
        state_.counters["floor_us"] = bench::percentile(floor_, 0.5);
        state_.counters["x_floor"] = bench::percentile(op_, 0.5) / bench::percentile(floor_, 0.5);
    }
    template <typename F> auto time(F &&f)
    {
        auto t0 = clock_type::now();
        auto r = f();
        double s = std::chrono::duration<double>(clock_type::now() - t0).count();
        state_.SetIterationTime(s);
        op_.push_back(s * 1e6);
        t0 = clock_type::now();
        floor_step(&buf_);
        floor_.push_back(std::chrono::duration<double, std::micro>(clock_type::now() - t0).count());
        return r;
    }

private:
    benchmark::State &state_;
    std::vector<char> buf_;
    std::vector<double> op_, floor_;
};

bool setup(benchmark::State &state)
{
    if (!sut().ready()) {
        state.SkipWithError("simulator or host process did not come up");
        return false;
    }
    bench::make_device_book(kDeviceEntries);
    return true;
}

pb_return_code_enum_t write(sim_pb_handle_t what, pb_flash_info *e)
{
    return simlib_pb_write_handler(STORAGE_TYPE_FLASH, what, e);
}

void BM_Floor(benchmark::State &state)
{
    if (!setup(state))
        return;
    bench::make_device_book(PB_MAX_ENTRIES);
    std::vector<char> buf;
    samples s(state);
    for (auto _ : state) {
        if (s.time([&] { return floor_step(&buf); }) != 0)
            state.SkipWithError("floor step failed");
    }
}

// One device write per iteration on 999 entries; what an add or a delete
// changed is put back untimed.
void BM_DeviceWrite(benchmark::State &state, sim_pb_handle_t what)
{
    if (!setup(state))
        return;
    samples s(state);
    for (int k = 0; state.KeepRunning(); ++k) {
        pb_flash_info e{};
        if (what != SIM_PB_HANDLE_TYPE_DEL)
            e = bench::make_entry(5000 + k);
        e.index = what == SIM_PB_HANDLE_TYPE_EDIT ? 500 : what == SIM_PB_HANDLE_TYPE_DEL ? kDeviceEntries : 0;
        if (s.time([&] { return write(what, &e); }) != PB_RCODE_OK)
            state.SkipWithError("write failed");
        // The added entry goes by its index alone; a deleted one comes back.
        pb_flash_info back = what == SIM_PB_HANDLE_TYPE_ADD ? pb_flash_info{} : bench::make_entry(9000);
        back.index = PB_MAX_ENTRIES;
        if (what != SIM_PB_HANDLE_TYPE_EDIT)
            write(what == SIM_PB_HANDLE_TYPE_ADD ? SIM_PB_HANDLE_TYPE_DEL : SIM_PB_HANDLE_TYPE_ADD, &back);
    }
}

void BM_SimGetAllAndRead(benchmark::State &state)
{
    if (!setup(state))
        return;
    samples s(state);
    for (auto _ : state) {
        int num = 0;
        if (s.time([&] {
                return simlib_pb_read_handler(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_GETALL, &num);
            }) == nullptr ||
            num != kSimEntries)
            state.SkipWithError("get-all failed");
    }
}

BENCHMARK(BM_Floor)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_DeviceWrite, Add, SIM_PB_HANDLE_TYPE_ADD)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_DeviceWrite, Edit, SIM_PB_HANDLE_TYPE_EDIT)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_DeviceWrite, Delete, SIM_PB_HANDLE_TYPE_DEL)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SimGetAllAndRead)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
