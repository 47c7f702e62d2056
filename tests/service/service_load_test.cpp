// The service inside the test process, fed as the host process feeds it,
// with the simulated modem holding a full card of 1000 records: the card's
// read while the service thread is kept busy and its queue full, and reads
// whose records stop coming. The service is started anew for each read (its
// every start reads the card again); the memory counters must be back where
// they started at the end.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "harness.h"
#include "mm_pb.h"
#include "pbm_sim.h"
#include "sim_cards.h"
#include "zp_ipc_host.h"
#include "zp_mem_host.h"

namespace {

constexpr storage_type_t SIM = STORAGE_TYPE_SIM, DEV = STORAGE_TYPE_FLASH;
constexpr unsigned kCardRecords = PB_MAX_ENTRIES;
constexpr unsigned kIndications = kCardRecords / QMI_PBM_MAX_NUM_BASIC_RECORD_INSTANCE_V01;
constexpr int kWaitMs = 120000;  // generous: a read of the whole card under load

pbm_sim::Card full_card() { return pbt::numbered_card(kCardRecords, kCardRecords, "Card ", "+4930"); }

// Whether the SIM file holds the whole card: each record once, in the
// card's order, with its name.
::testing::AssertionResult file_is_card()
{
    const auto file = pbt::read_book(SIM);
    if (file.size() != kCardRecords)
        return ::testing::AssertionFailure() << file.size() << " records in the file";
    for (unsigned k = 0; k < kCardRecords; ++k)
        if (file[k].index != k + 1 || file[k].sim_index != k + 1 ||
            std::string(file[k].name) != "Card " + std::to_string(k + 1))
            return ::testing::AssertionFailure() << "entry " << k + 1 << " is " << file[k].index << "@"
                                                 << file[k].sim_index << ":" << file[k].name;
    return ::testing::AssertionSuccess();
}

// A get-all's answer: PB_RCODE_OK with the entries, or the service's code.
int get_all(int *count)
{
    int num = 0;
    const bool read = simlib_pb_read_handler(SIM, SIM_PB_HANDLE_TYPE_GETALL, &num) != nullptr;
    *count = read ? num : 0;
    return read ? PB_RCODE_OK : num;
}

class ServiceUnderLoad : public ::testing::Test {
protected:
    void SetUp() override
    {
        pbt::remove_books();
        baseline_ = mem_live_total();
        ASSERT_TRUE(sim_.start(0));
        start_service();
    }
    void TearDown() override
    {
        stop_service();
        sim_.stop();
        EXPECT_EQ(mem_live_total(), baseline_);
        pbt::remove_books();
    }

    // As pb_host does it: the service first, then its socket.
    void start_service()
    {
        ASSERT_EQ(mm_pb_init(), 0);
        ASSERT_EQ(ipc_server_start(
                      MU_ID, [](void *m, void *) { mm_pb_proc(m); }, nullptr, &server_),
                  IPC_OK);
        const pb_event_req_t count{SIM_PB_HANDLE_TYPE_GETCOUNT, {}, DEV, {}};
        ASSERT_TRUE(peer_.send(IPC_SYN_REQ, MSG_ID_PB_REQ, 0, &count, sizeof count));
        ASSERT_TRUE(peer_.receive(10000).arrived);
    }
    void stop_service()
    {
        EXPECT_EQ(mm_pb_fin(), 0);
        ipc_server_stop(server_);
        server_ = nullptr;
    }

    pbm_sim::Simulator sim_{full_card()};
    ipc_server_pt server_ = nullptr;
    pbt::raw_peer peer_{"peer"};
    long baseline_ = 0;
};

// The load: kClients clients, each asking the service to edit a device
// entry (saved with fsync each time) and waiting for the answer, more of
// them than the queue holds, so that it stays full; a refused client asks
// again after kAgainMs, as a user interface would. And a thread that keeps
// a core busy. Every edit must be answered: done, or refused "not taken,
// ask again".
class Load {
public:
    Load()
    {
        pbt::write_book(DEV, {pbt::entry(1, pbt::kNoSim, "a")});
        for (unsigned c = 0; c < kClients; ++c)
            threads_.emplace_back([this, c] { edit(c); });
        threads_.emplace_back([this] {
            for (volatile unsigned spin = 0; !stop_.load(std::memory_order_relaxed);)
                spin = spin + 1;
        });
    }
    ~Load() { stop(); }

    void stop()
    {
        stop_ = true;
        for (std::thread &t : threads_)
            if (t.joinable())
                t.join();
    }

    unsigned refused() const { return refused_.load(); }
    unsigned wrong() const { return wrong_.load(); }

private:
    static constexpr unsigned kClients = IPC_MQ_MAX_DEPTH + 16;
    static constexpr int kAgainMs = 10;

    void edit(unsigned client)
    {
        for (unsigned k = client; !stop_.load(); ++k) {
            const pb_event_req_t req{SIM_PB_HANDLE_TYPE_EDIT, pbt::entry(1, 0, k % 2 ? "a" : "b"), DEV, {}};
            pb_rsp_t rsp{};
            size_t len = sizeof rsp;
            if (simlib_send_request_sync(MU_ID, MSG_ID_PB_REQ, &req, sizeof req, &rsp, &len, kWaitMs) != 0 ||
                (rsp.pb_result != PB_RCODE_OK && rsp.pb_result != PB_RCODE_NODEPUSH_ERR))
                ++wrong_;
            if (rsp.pb_result == PB_RCODE_NODEPUSH_ERR) {
                ++refused_;
                std::this_thread::sleep_for(std::chrono::milliseconds(kAgainMs));
            }
        }
    }

    std::atomic<bool> stop_{false};
    std::atomic<unsigned> refused_{0}, wrong_{0};
    std::vector<std::thread> threads_;
};

// Read indications of the service's own modem client were once refused with
// the clients' requests when the queue was full, and the read never ended.
// Here each read must end with the whole card in the file, from one read
// request (no restart hides a lost indication), 50 times in a row.
TEST_F(ServiceUnderLoad, FullCardIsReadWhileTheQueueIsFullAndTheThreadBusy)
{
    constexpr unsigned kRuns = 50;
    unsigned refused = 0;
    for (unsigned run = 1; run <= kRuns; ++run) {
        if (run > 1) {
            stop_service();
            start_service();
        }
        {
            Load load;
            // The first get-all taken starts the read; the flood may have
            // the queue full when it comes.
            int count = 0, started = PB_RCODE_NODEPUSH_ERR;
            while (started == PB_RCODE_NODEPUSH_ERR)
                started = get_all(&count);
            EXPECT_EQ(started, PB_RCODE_READED_ERR) << "run " << run;
            // Polled on the file: a get-all would be refused with the flood.
            const auto whole = [] {
                return pbt::slurp(pbt::book(SIM)).size() == kCardRecords * PB_RECORD_SIZE;
            };
            ASSERT_TRUE(pbt::wait_until(whole, kWaitMs)) << "run " << run;
            load.stop();
            EXPECT_EQ(load.wrong(), 0u) << "run " << run;
            refused += load.refused();
        }
        int count = 0;
        ASSERT_EQ(get_all(&count), PB_RCODE_OK) << "run " << run;
        EXPECT_EQ(count, static_cast<int>(kCardRecords)) << "run " << run;
        ASSERT_TRUE(file_is_card()) << "run " << run;
        ASSERT_EQ(sim_.requests(QMI_PBM_READ_RECORDS_REQ_V01), run) << "run " << run << " was started again";
    }
    // Else the queue was never full and the test proved nothing.
    EXPECT_GT(refused, 0u);
    std::printf("%u flood requests refused over %u reads\n", refused, kRuns);
}

// A read whose records stop coming is started again into a fresh file after
// a pause of seconds: a few lost indications cost one more read; a card
// whose records never come ends, after three more tries, as "not read",
// never as "still being read" forever, and the next get-all starts afresh.
TEST_F(ServiceUnderLoad, StalledReadsStartAgainThenEndAsNotRead)
{
    const struct {
        const char *what;
        unsigned dropped;  // indications the modem does not send
        int ends;          // what the get-alls end with
        unsigned reads;    // read requests made by then
    } rows[] = {
        {"five indications lost", 5, PB_RCODE_OK, 2},
        {"no record comes", 4 * kIndications, PB_RCODE_READ_ERR, 4},
    };
    unsigned reads = 0;
    for (const auto &r : rows) {
        stop_service();
        start_service();
        sim_.drop_next_indications(r.dropped);
        int count = 0, ends = PB_RCODE_READED_ERR;
        const auto ended = [&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            return (ends = get_all(&count)) != PB_RCODE_READED_ERR;
        };
        ASSERT_TRUE(pbt::wait_until(ended, kWaitMs)) << r.what;
        EXPECT_EQ(ends, r.ends) << r.what;
        reads += r.reads;
        EXPECT_EQ(sim_.requests(QMI_PBM_READ_RECORDS_REQ_V01), reads) << r.what;
        if (ends != PB_RCODE_OK) {
            EXPECT_EQ(get_all(&count), PB_RCODE_READED_ERR) << r.what << ": a fresh read starts";
            ASSERT_TRUE(pbt::wait_until(ended, kWaitMs)) << r.what;
            EXPECT_EQ(ends, PB_RCODE_OK) << r.what;
            EXPECT_EQ(sim_.requests(QMI_PBM_READ_RECORDS_REQ_V01), ++reads) << r.what;
        }
        EXPECT_EQ(count, static_cast<int>(kCardRecords)) << r.what;
        EXPECT_TRUE(file_is_card()) << r.what;
    }
}

}  // namespace
