// The host process's memory under a flood of datagrams: the modem simulator
// in this process, pb_host as a child, and rounds of the service end-to-end
// test's flood (host_flood.h) while a SIM add holds the service on a card
// that does not answer. Each iteration is one round.
//
// Counters: peak_kib, the host's highest resident memory seen; after_kib,
// its memory once the last round's queue had drained; growth_kib, that less
// the same after the first round. The bounds the host keeps, as on a
// router with little memory: a peak under 8 MiB, and no growth from round
// to round past 64 KiB (a message copy that is never freed would show).
// Past either the run ends with an error, which fails the smoke test.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <cstdlib>
#include <string>

#include "bench_system.h"
#include "host_flood.h"

namespace {

constexpr long kPeakMaxKib = 8 * 1024;
constexpr long kGrowthMaxKib = 64;
constexpr int kRounds = 2;  // the second round shows what the first left behind

void BM_HostUnderFlood(benchmark::State &state)
{
    // The flood's sockets are made in the IPC folder, named or not.
    setenv("ZP_IPC_DIR", IPC_DEFAULT_DIR, 0);
    mkdir(std::getenv("ZP_IPC_DIR"), 0770);
    pbm_sim::Card card;
    card.max_records = 100;
    card.records[1] = {u"one", "1"};
    pbm_sim::Simulator sim(card);
    if (!sim.start()) {
        state.SkipWithError("the simulator did not start");
        return;
    }
    const pid_t host = bench::spawn({PB_HOST_BIN});
    if (!pbt::wait_until(pbt::service_up, 10000) || simlib_pb_init(STORAGE_TYPE_SIM) != 0) {
        state.SkipWithError("pb_host did not come up");
        bench::stop(host);
        return;
    }
    long peak = 0, first = 0, last = 0;
    for (auto _ : state) {
        const pbt::flood_round r = pbt::flood_host(sim, host);
        if (!r.failed.empty()) {
            state.SkipWithError(r.failed.c_str());
            break;
        }
        peak = std::max(peak, r.peak_kib);
        first = first == 0 ? r.after_kib : first;
        last = r.after_kib;
    }
    bench::stop(host);
    sim.stop();
    state.counters["peak_kib"] = static_cast<double>(peak);
    state.counters["after_kib"] = static_cast<double>(last);
    state.counters["growth_kib"] = static_cast<double>(last - first);
    if (peak >= kPeakMaxKib)
        state.SkipWithError("the host's memory passed 8 MiB under the flood");
    else if (last > first + kGrowthMaxKib)
        state.SkipWithError("the host kept memory from one flood to the next");
}
BENCHMARK(BM_HostUnderFlood)->Iterations(kRounds)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
