// The caller lookup over both phonebooks, 2 x 1000 entries in the files,
// as an SMS or call page runs it through the C API: once loaded
// (pb_lookup_find: the figure to keep is under 20 us), and with the load
// of both files (pb_lookup: under 2 ms). The numbers looked up are the
// worst cases: the SIM phonebook's last entry, after every device entry,
// and a number no entry has. books_kib is the heap the loaded phonebooks
// hold.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstdio>
#include <memory>

#include "pb_lookup.h"
#include "zpt_ui_pb_api.h"

namespace {

// Device entries international, SIM entries national as the card keeps
// many: every comparison of the SIM's is a trailing-digits one unless a
// home country is given.
void write_phonebooks()
{
    for (storage_type_t type : {STORAGE_TYPE_FLASH, STORAGE_TYPE_SIM}) {
        auto t = std::make_unique<pb_mem_info>();
        for (zp_uint32 k = 0; k < PB_MAX_ENTRIES; ++k) {
            pb_flash_info &e = t->mem.pb[k];
            e.index = k + 1;
            e.sim_index = type == STORAGE_TYPE_SIM ? k + 1 : 0xFFFFFFFFu;
            std::snprintf(e.name, sizeof e.name, "Contact %u", static_cast<unsigned>(k));
            std::snprintf(e.num, sizeof e.num, type == STORAGE_TYPE_SIM ? "0171%07u" : "+49170%07u",
                          static_cast<unsigned>(k));
        }
        t->mem.pb_count = PB_MAX_ENTRIES;
        simlib_pb_to_flash(type, t.get());
    }
}

void loaded(benchmark::State &state, const char *number, const char *country)
{
    write_phonebooks();
    const size_t before = mallinfo2().uordblks;
    pb_lookup_books *books = nullptr;
    if (pb_lookup_open(&books) != PB_LOOKUP_OK) {
        state.SkipWithError("the phonebooks did not load");
        return;
    }
    state.counters["books_kib"] = static_cast<double>(mallinfo2().uordblks - before) / 1024;
    pb_lookup_entry e;
    int rc = 0;
    for (auto _ : state) {
        rc = pb_lookup_find(books, number, country, &e);
        benchmark::DoNotOptimize(e);
    }
    state.counters["found"] = rc == PB_LOOKUP_OK;
    pb_lookup_close(books);
}

void with_load(benchmark::State &state, const char *number, const char *country)
{
    write_phonebooks();
    pb_lookup_entry e;
    int rc = 0;
    for (auto _ : state) {
        rc = pb_lookup(number, country, &e);
        benchmark::DoNotOptimize(e);
    }
    state.counters["found"] = rc == PB_LOOKUP_OK;
}

}  // namespace

BENCHMARK_CAPTURE(loaded, last_sim_entry_equal, "+49 171 0000999", "DE")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(loaded, last_sim_entry_trailing, "+49 171 0000999", "")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(loaded, nobody, "+44 20 7946 0018", "")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(with_load, last_sim_entry_equal, "+49 171 0000999", "DE")->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
