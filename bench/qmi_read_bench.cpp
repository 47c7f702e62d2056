// Reading a whole SIM phonebook from the simulated modem into the SIM
// phonebook file: from pb_qmi_get_all() until the read flag is 1, with the
// record-read indications decoded on the QMI library's thread, forwarded over
// IPC to MU_ID and stored on this thread, as the service thread would.
//
// Counters: bytes this thread wrote to files while storing the records (the
// store's appends; logging must be off, run with
// ZP_LOG_LEVEL=2) next to the floor of 161 bytes per record written once.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "forwarded_indications.h"
#include "pb_data_dir.h"
#include "pb_qmi.h"
#include "pbm_sim.h"
#include "zp_ipc_host.h"
#include "zpt_ui_pb_func.h"

namespace {

// Bytes written by the calling thread through write(2) and friends.
long long thread_wchar()
{
    std::ifstream io("/proc/thread-self/io");
    std::string key;
    long long value = 0;
    while (io >> key >> value)
        if (key == "wchar:")
            return value;
    return -1;
}

pbm_sim::Card full_card(unsigned records)
{
    pbm_sim::Card card;
    card.max_records = static_cast<uint16_t>(records);
    card.max_name_len = 14;
    card.max_num_len = 20;
    for (unsigned i = 1; i <= records; ++i) {
        char16_t name[16];
        const std::string text = "Contact " + std::to_string(i);
        for (size_t k = 0; k <= text.size(); ++k)
            name[k] = static_cast<char16_t>(text[k]);
        card.records[static_cast<uint16_t>(i)] = {name, "+4917012" + std::to_string(100000 + i)};
    }
    return card;
}

// The modem with a full card of `records`, the IPC server that forwards its
// indications and the QMI client, up for one benchmark: torn down in reverse.
class Rig {
public:
    Rig(benchmark::State &state, unsigned records) : sim_(full_card(records))
    {
        up_ = sim_.start() &&
              ipc_server_start(MU_ID, ForwardedIndications::on_message, &forwarded, &server_) == IPC_OK;
        if (up_)
            pb_qmi_init();
        else
            state.SkipWithError("simulator or IPC server did not start");
    }
    ~Rig()
    {
        if (up_)
            pb_qmi_fin();
        if (server_ != nullptr)
            ipc_server_stop(server_);
        sim_.stop();
    }
    bool up() const { return up_; }

    ForwardedIndications forwarded;

private:
    pbm_sim::Simulator sim_;
    ipc_server_pt server_ = nullptr;
    bool up_ = false;
};

void BM_ReadWholeSim(benchmark::State &state)
{
    const auto records = static_cast<unsigned>(state.range(0));
    Rig rig(state, records);
    if (!rig.up())
        return;

    long long written = 0;
    std::vector<uint8_t> payload;
    for (auto _ : state) {
        state.PauseTiming();
        simlib_clear_flash(STORAGE_TYPE_SIM);
        std::memset(&g_sim_module, 0, sizeof g_sim_module);
        g_sim_module.pb_sim_init_flag = 1;
        state.ResumeTiming();

        if (pb_qmi_get_all() != 0) {
            state.SkipWithError("pb_qmi_get_all failed");
            break;
        }
        const long long before = thread_wchar();
        while (g_sim_module.pb_sim_read_flag == 2 && rig.forwarded.pop(&payload, std::chrono::seconds(10)))
            pb_qmi_read_cb(reinterpret_cast<pbm_record_read_ind_msg_v01 *>(payload.data()));
        written += thread_wchar() - before;
        if (g_sim_module.pb_sim_read_flag != 1) {
            state.SkipWithError("read did not complete");
            break;
        }
    }
    struct stat st {};
    stat((std::string(pb_data_dir()) + "/pb_sim_file").c_str(), &st);
    const double iterations = static_cast<double>(state.iterations() ? state.iterations() : 1);
    state.counters["records"] = records;
    state.counters["file_bytes"] = static_cast<double>(st.st_size);
    state.counters["written_bytes"] = static_cast<double>(written) / iterations;
    state.counters["floor_bytes"] = 161.0 * records;
    state.counters["written_vs_floor"] = static_cast<double>(written) / iterations / (161.0 * records);
    simlib_clear_flash(STORAGE_TYPE_SIM);
}

BENCHMARK(BM_ReadWholeSim)->Arg(250)->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same read without the store: the modem, the QMI transport, the decode
// and the IPC forwarding alone, to tell their share from the file work's.
void BM_ReadWholeSimTransportOnly(benchmark::State &state)
{
    const auto records = static_cast<unsigned>(state.range(0));
    Rig rig(state, records);
    if (!rig.up())
        return;
    std::vector<uint8_t> payload;
    for (auto _ : state) {
        if (pb_qmi_get_all() != 0) {
            state.SkipWithError("pb_qmi_get_all failed");
            break;
        }
        unsigned got = 0;
        while (got < records && rig.forwarded.pop(&payload, std::chrono::seconds(10)))
            got += reinterpret_cast<pbm_record_read_ind_msg_v01 *>(payload.data())
                       ->basic_record_data.record_instances_len;
        if (got != records) {
            state.SkipWithError("records missing");
            break;
        }
    }
}

BENCHMARK(BM_ReadWholeSimTransportOnly)->Arg(250)->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
