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
#include "zp_ipc_host.h"
#include "zpt_ui_pb_api.h"

namespace {

using clock_type = std::chrono::steady_clock;

constexpr int kDeviceEntries = 999;
constexpr int kSimEntries = 1000;

using bench::make_device_book;
using bench::make_entry;
using bench::stop;

// The simulator with a full 1000-record card, and the host process; the
// SIM phonebook read once before any figure is taken.
class system_under_test {
public:
    system_under_test()
    {
        std::string card = "card " + std::to_string(kSimEntries) + " 20 20\n";
        for (int k = 1; k <= kSimEntries; ++k) {
            char line[48];
            std::snprintf(line, sizeof line, "%d,+4930%06d,Card %04d\n", k, k, k);
            card += line;
        }
        if (!bench::start_modem_and_host(card, PBM_SIMD_BIN, PB_HOST_BIN, &sim_, &host_))
            return;
        simlib_pb_init(STORAGE_TYPE_SIM);
        simlib_pb_init(STORAGE_TYPE_FLASH);
        for (int k = 0; k < 6000 && !ready_; ++k) {
            int num = 0;
            ready_ = simlib_pb_read_handler(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_GETALL, &num) != nullptr &&
                     num == kSimEntries;
            if (!ready_)
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    ~system_under_test()
    {
        stop(host_);
        stop(sim_);
    }
    bool ready() const { return ready_; }

private:
    pid_t sim_ = -1;
    pid_t host_ = -1;
    bool ready_ = false;
};

system_under_test &sut()
{
    static system_under_test s;
    return s;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[v.size() / 2];
}

double p99(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[std::min(v.size() - 1, v.size() * 99 / 100)];
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
    const char *path = PB_DATA_DIR "/pb_device_file";
    const char *fresh = PB_DATA_DIR "/pb_device_file.floor";
    buf->resize(size_t{PB_RECORD_SIZE} * PB_MAX_ENTRIES);
    int in = open(path, O_RDONLY);
    if (in < 0)
        return -1;
    ssize_t n = read(in, buf->data(), buf->size());
    close(in);
    int out = open(fresh, O_WRONLY | O_CREAT | O_TRUNC, 0640);
    if (n < 0 || out < 0)
        return -1;
    rc |= write(out, buf->data(), static_cast<size_t>(n)) == n ? 0 : -1;
    rc |= fsync(out);
    rc |= close(out);
    rc |= rename(fresh, path);
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
        state_.counters["median_us"] = median(op_);
        state_.counters["p99_us"] = p99(op_);
        state_.counters["floor_us"] = median(floor_);
        state_.counters["x_floor"] = median(op_) / median(floor_);
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
    make_device_book(kDeviceEntries);
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
    make_device_book(PB_MAX_ENTRIES);
    std::vector<char> buf;
    samples s(state);
    for (auto _ : state) {
        if (s.time([&] { return floor_step(&buf); }) != 0)
            state.SkipWithError("floor step failed");
    }
}

void BM_DeviceAdd(benchmark::State &state)
{
    if (!setup(state))
        return;
    samples s(state);
    int k = 0;
    for (auto _ : state) {
        pb_flash_info e = make_entry(5000 + k++);
        if (s.time([&] { return write(SIM_PB_HANDLE_TYPE_ADD, &e); }) != PB_RCODE_OK)
            state.SkipWithError("add failed");
        pb_flash_info del{};
        del.index = PB_MAX_ENTRIES;  // back to 999 entries, untimed
        write(SIM_PB_HANDLE_TYPE_DEL, &del);
    }
}

void BM_DeviceEdit(benchmark::State &state)
{
    if (!setup(state))
        return;
    samples s(state);
    int k = 0;
    for (auto _ : state) {
        pb_flash_info e = make_entry(7000 + k++);
        e.index = 500;
        if (s.time([&] { return write(SIM_PB_HANDLE_TYPE_EDIT, &e); }) != PB_RCODE_OK)
            state.SkipWithError("edit failed");
    }
}

void BM_DeviceDelete(benchmark::State &state)
{
    if (!setup(state))
        return;
    samples s(state);
    for (auto _ : state) {
        pb_flash_info del{};
        del.index = kDeviceEntries;
        if (s.time([&] { return write(SIM_PB_HANDLE_TYPE_DEL, &del); }) != PB_RCODE_OK)
            state.SkipWithError("delete failed");
        pb_flash_info e = make_entry(9000);  // back to 999 entries, untimed
        write(SIM_PB_HANDLE_TYPE_ADD, &e);
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
BENCHMARK(BM_DeviceAdd)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DeviceEdit)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_DeviceDelete)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SimGetAllAndRead)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
