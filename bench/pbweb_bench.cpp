// pbweb against the client API it is built on: list, add, edit and delete
// on a device phonebook of 999 entries, once through HTTP and JSON and once
// as the same client-API call made directly in this process; and 50 list
// requests at once on a phonebook of 1000 entries.
//
// Counters: median_us and p99_us of each operation; for the web ones also
// rtt_us, the median of one HTTP round trip that pbweb answers without the
// phonebook (an unknown API path), measured beside them under the same load;
// for the list also rtt_body_us, a round trip with an answer of the list's
// size. The goal for an operation: web median <= 1.3 x direct median +
// rtt_us (for the list, rtt_body_us is the round trip it cannot do without).
#include <benchmark/benchmark.h>
#include <microhttpd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench_system.h"
#include "pbweb_client.h"
#include "zpt_ui_pb_api.h"

namespace {

using clock_type = std::chrono::steady_clock;

constexpr int kEntries = 999;
constexpr int kClients = 50;

// Simulator, host process and pbweb, started once.
class system_under_test : bench::modem_and_host {
public:
    system_under_test() : modem_and_host("card 250 20 20\n1,112,Emergency\n", PBM_SIMD_BIN, PB_HOST_BIN)
    {
        if (!up())
            return;
        web_ = pbweb_client::start({PBWEB_BIN, "--listen", "127.0.0.1:0"}, &port_);
        simlib_pb_init(STORAGE_TYPE_FLASH);
    }
    ~system_under_test() { bench::stop(web_); }
    int port() const { return port_; }

private:
    pid_t web_ = -1;
    int port_ = 0;
};

system_under_test &sut()
{
    static system_under_test s;
    return s;
}

// One request on a new connection, as the page sends it; the HTTP status,
// 0 when none came.
int http(const std::string &method, const std::string &path, const std::string &body = "")
{
    pbweb_client::Headers h;
    if (method != "GET")
        h = {{"Origin", "http://127.0.0.1:" + std::to_string(sut().port())},
             {"Content-Type", "application/json"}};
    return pbweb_client::request(sut().port(), method, path, body, h).status;
}

// One fixed answer served by libmicrohttpd as pbweb runs it, with nothing
// else to do: the round trip any web page pays for an answer of that size.
class fixed_answer_server {
public:
    explicit fixed_answer_server(std::string body) : body_(std::move(body))
    {
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        daemon_ = MHD_start_daemon(MHD_USE_AUTO_INTERNAL_THREAD, 0, nullptr, nullptr, answer, this,
                                   MHD_OPTION_SOCK_ADDR, reinterpret_cast<sockaddr *>(&a),
                                   MHD_OPTION_THREAD_POOL_SIZE, 4u, MHD_OPTION_END);
        const MHD_DaemonInfo *info =
            daemon_ ? MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT) : nullptr;
        port_ = info ? info->port : 0;
    }
    ~fixed_answer_server()
    {
        if (daemon_)
            MHD_stop_daemon(daemon_);
    }
    int port() const { return port_; }

private:
    static MHD_Result answer(void *cls, MHD_Connection *c, const char *, const char *, const char *,
                             const char *, size_t *, void **)
    {
        std::string &body = static_cast<fixed_answer_server *>(cls)->body_;
        MHD_Response *r = MHD_create_response_from_buffer(body.size(), body.data(), MHD_RESPMEM_PERSISTENT);
        const MHD_Result ret = MHD_queue_response(c, 200, r);
        MHD_destroy_response(r);
        return ret;
    }

    std::string body_;
    MHD_Daemon *daemon_ = nullptr;
    int port_ = 0;
};

// Times each call; for web operations also one bare HTTP round trip after it.
class samples {
public:
    samples(benchmark::State &state, bool web) : state_(state), web_(web) {}
    ~samples()
    {
        state_.counters["median_us"] = bench::percentile(op_, 0.5);
        state_.counters["p99_us"] = bench::percentile(op_, 0.99);
        if (web_)
            state_.counters["rtt_us"] = bench::percentile(rtt_, 0.5);
    }
    template <typename F> void time(F &&f)
    {
        auto t0 = clock_type::now();
        const bool ok = f();
        const double s = std::chrono::duration<double>(clock_type::now() - t0).count();
        state_.SetIterationTime(s);
        op_.push_back(s * 1e6);
        if (!ok)
            state_.SkipWithError("operation failed");
        if (web_) {
            t0 = clock_type::now();
            http("GET", "/api/none");
            rtt_.push_back(std::chrono::duration<double, std::micro>(clock_type::now() - t0).count());
        }
    }

private:
    benchmark::State &state_;
    bool web_;
    std::vector<double> op_, rtt_;
};

bool setup(benchmark::State &state, int entries = kEntries)
{
    if (sut().port() == 0) {
        state.SkipWithError("simulator, host process or pbweb did not come up");
        return false;
    }
    bench::make_device_book(entries);
    return true;
}

bool direct(sim_pb_handle_t what, pb_flash_info *e)
{
    return simlib_pb_write_handler(STORAGE_TYPE_FLASH, what, e) == PB_RCODE_OK;
}

std::string entry_json(const pb_flash_info &e)
{
    return std::string("{\"name\":\"") + e.name + "\",\"number\":\"" + e.num + "\",\"email\":\"" + e.email +
           "\"";
}

// Through pbweb also rtt_body_us: the median round trip of an answer of the
// list's size that a server returns without any work (fixed_answer_server).
void BM_List(benchmark::State &state)
{
    const bool web = state.range(0) != 0;
    if (!setup(state))
        return;
    const std::string list = pbweb_client::request(sut().port(), "GET", "/api/device/entries").body;
    fixed_answer_server same_size(list);
    std::vector<double> rtt_body;
    {
        samples s(state, web);
        for (auto _ : state) {
            s.time([&] {
                if (web)
                    return http("GET", "/api/device/entries") == 200;
                int num = 0;
                return simlib_pb_read_handler(STORAGE_TYPE_FLASH, SIM_PB_HANDLE_TYPE_GETALL, &num) &&
                       num == kEntries;
            });
            if (web) {
                const auto t0 = clock_type::now();
                if (pbweb_client::request(same_size.port(), "GET", "/").status != 200)
                    state.SkipWithError("the fixed answer failed");
                rtt_body.push_back(std::chrono::duration<double, std::micro>(clock_type::now() - t0).count());
            }
        }
    }
    if (web) {
        state.counters["rtt_body_us"] = bench::percentile(rtt_body, 0.5);
        state.counters["body_bytes"] = static_cast<double>(list.size());
    }
}

void BM_Add(benchmark::State &state)
{
    const bool web = state.range(0) != 0;
    if (!setup(state))
        return;
    samples s(state, web);
    int k = 0;
    for (auto _ : state) {
        pb_flash_info e = bench::make_entry(5000 + k++);
        s.time([&] {
            return web ? http("POST", "/api/device/entries", entry_json(e) + "}") == 201
                       : direct(SIM_PB_HANDLE_TYPE_ADD, &e);
        });
        pb_flash_info del{};
        del.index = PB_MAX_ENTRIES;  // back to 999 entries, untimed
        direct(SIM_PB_HANDLE_TYPE_DEL, &del);
    }
}

void BM_Edit(benchmark::State &state)
{
    const bool web = state.range(0) != 0;
    if (!setup(state))
        return;
    samples s(state, web);
    pb_flash_info shown = bench::make_entry(499);
    for (int k = 0; state.KeepRunning(); ++k) {
        pb_flash_info e = bench::make_entry(7000 + k);
        e.index = 500;
        s.time([&] {
            // As the page sends it: the new fields and the entry as shown.
            return web ? http("PUT", "/api/device/entries/500",
                              entry_json(e) + ",\"was\":" + entry_json(shown) + "}}") == 200
                       : direct(SIM_PB_HANDLE_TYPE_EDIT, &e);
        });
        shown = e;
    }
}

void BM_Delete(benchmark::State &state)
{
    const bool web = state.range(0) != 0;
    if (!setup(state))
        return;
    samples s(state, web);
    for (auto _ : state) {
        const pb_flash_info last = bench::make_entry(kEntries - 1);
        s.time([&] {
            if (web)
                return http("POST", "/api/device/delete",
                            "{\"entries\":[" + entry_json(last) + ",\"index\":999}]}") == 200;
            pb_flash_info del{};
            del.index = kEntries;
            return direct(SIM_PB_HANDLE_TYPE_DEL, &del);
        });
        pb_flash_info e = last;  // back to 999 entries, untimed
        direct(SIM_PB_HANDLE_TYPE_ADD, &e);
    }
}

// 50 clients ask for the list of 1000 entries at the same moment.
void BM_ConcurrentList(benchmark::State &state)
{
    if (!setup(state, PB_MAX_ENTRIES))
        return;
    std::vector<double> all;
    long errors = 0;
    for (auto _ : state) {
        std::vector<double> lat(kClients);
        std::atomic<int> failed{0}, ready{0};
        std::vector<std::thread> clients;
        const auto t0 = clock_type::now();
        for (int c = 0; c < kClients; ++c)
            clients.emplace_back([&, c] {
                ++ready;
                while (ready < kClients) {
                }
                const auto t = clock_type::now();
                if (http("GET", "/api/device/entries") != 200)
                    ++failed;
                lat[static_cast<size_t>(c)] =
                    std::chrono::duration<double, std::micro>(clock_type::now() - t).count();
            });
        for (auto &t : clients)
            t.join();
        state.SetIterationTime(std::chrono::duration<double>(clock_type::now() - t0).count());
        all.insert(all.end(), lat.begin(), lat.end());
        errors += failed;
    }
    state.counters["errors"] = static_cast<double>(errors);
    state.counters["median_us"] = bench::percentile(all, 0.5);
    state.counters["p99_us"] = bench::percentile(all, 0.99);
}

// Argument 0: the client-API call made directly; 1: through pbweb.
BENCHMARK(BM_List)->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Add)->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Edit)->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_Delete)->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ConcurrentList)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(10);

}  // namespace

BENCHMARK_MAIN();
