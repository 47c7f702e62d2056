// Phonebook file work against the floor of what a durable save must do at
// least: one read of a whole 1000-record file (161,000 bytes), and one
// write, fsync and rename of a file of that size. Run with ZP_LOG_LEVEL=2
// for the figures with logging filtered out, and with ZP_LOG_LEVEL=1 and
// ZP_LOG_FILE=<path> for logging on. fsync times follow the disk and its
// load: compare figures of one run.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "pb_data_dir.h"
#include "zpt_ui_pb_api.h"
#include "zpt_ui_pb_func.h"

namespace {

const std::string kBook = std::string(pb_data_dir()) + "/pb_device_file";
constexpr size_t kFullFile = size_t{PB_RECORD_SIZE} * PB_MAX_ENTRIES;
constexpr off_t kFile999 = off_t{PB_RECORD_SIZE} * (PB_MAX_ENTRIES - 1);

std::unique_ptr<pb_mem_info> full_table()
{
    std::unique_ptr<pb_mem_info> t(new pb_mem_info());
    for (int k = 0; k < PB_MAX_ENTRIES; ++k) {
        pb_flash_info &e = t->mem.pb[k];
        e.index = static_cast<zp_uint32>(k + 1);
        e.sim_index = 0xFFFFFFFFu;
        std::snprintf(e.name, sizeof e.name, "Contact %04d", k);
        std::snprintf(e.num, sizeof e.num, "+49170%07d", k);
        std::snprintf(e.email, sizeof e.email, "contact%04d@example.org", k);
    }
    t->mem.pb_count = PB_MAX_ENTRIES;
    return t;
}

// A phonebook file of `records` entries, no backup.
void make_book(int records)
{
    simlib_clear_flash(STORAGE_TYPE_FLASH);
    std::unique_ptr<pb_mem_info> t = full_table();
    for (int k = records; k < PB_MAX_ENTRIES; ++k)
        t->mem.pb[k] = pb_flash_info{};
    t->mem.pb_count = static_cast<zp_uint32>(records);
    simlib_pb_to_flash(STORAGE_TYPE_FLASH, t.get());
}

void BM_Floor_ReadWriteFsyncRename(benchmark::State &state)
{
    make_book(PB_MAX_ENTRIES);
    std::vector<char> buf(kFullFile);
    const std::string copy = std::string(pb_data_dir()) + "/floor_copy";
    for (auto _ : state) {
        int in = open(kBook.c_str(), O_RDONLY);
        benchmark::DoNotOptimize(read(in, buf.data(), buf.size()));
        close(in);
        int out = open(copy.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0640);
        benchmark::DoNotOptimize(write(out, buf.data(), buf.size()));
        fsync(out);
        close(out);
        rename(copy.c_str(), kBook.c_str());
    }
}
BENCHMARK(BM_Floor_ReadWriteFsyncRename);

// The full file loaded into a table by index, or densely from the start.
void BM_Load(benchmark::State &state, int (*load)(storage_type_t, pb_mem_info *))
{
    make_book(PB_MAX_ENTRIES);
    std::unique_ptr<pb_mem_info> t(new pb_mem_info());
    for (auto _ : state)
        load(STORAGE_TYPE_FLASH, t.get());
}
BENCHMARK_CAPTURE(BM_Load, ByIndex, simlib_pb_from_flash);
BENCHMARK_CAPTURE(BM_Load, Dense, simlib_pb_add_from_flash);

// Append one record to a 999-record file: one write, no copy, no fsync.
void BM_AppendTo999(benchmark::State &state)
{
    make_book(PB_MAX_ENTRIES - 1);
    pb_flash_info e = full_table()->mem.pb[PB_MAX_ENTRIES - 1];
    for (auto _ : state) {
        simlib_pb_add_to_file(STORAGE_TYPE_FLASH, &e);
        state.PauseTiming();
        truncate(kBook.c_str(), kFile999);
        state.ResumeTiming();
    }
}
BENCHMARK(BM_AppendTo999);

// Rewrite a full table: new file, fsync, rename, fsync of the folder.
void BM_RewriteFull(benchmark::State &state)
{
    make_book(PB_MAX_ENTRIES);
    std::unique_ptr<pb_mem_info> t = full_table();
    for (auto _ : state)
        simlib_pb_to_flash(STORAGE_TYPE_FLASH, t.get());
}
BENCHMARK(BM_RewriteFull);

// What an add costs in files, as the service runs it: the lock, a dense load
// of 999 records, the add to the working copy and the save of 1000.
void BM_AddCycle(benchmark::State &state)
{
    make_book(PB_MAX_ENTRIES - 1);
    const pb_flash_info e = full_table()->mem.pb[PB_MAX_ENTRIES - 1];
    pb_event_req_t req{};
    req.storage_type = STORAGE_TYPE_FLASH;
    req.value = e;
    for (auto _ : state) {
        if (pb_func_add_entry(&req) != PB_RCODE_OK)
            state.SkipWithError("add failed");
        state.PauseTiming();
        truncate(kBook.c_str(), kFile999);
        req.value = e;
        state.ResumeTiming();
    }
}
BENCHMARK(BM_AddCycle);

}  // namespace

// Leaves no phonebook file behind for the tests that share the directory.
int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    simlib_clear_flash(STORAGE_TYPE_FLASH);
    return 0;
}
