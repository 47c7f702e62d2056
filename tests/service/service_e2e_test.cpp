// End to end across processes: the host process of MU_ID on the simulated
// modem, and client processes (this test and pb_service_client).
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <fstream>
#include <set>

#include "host_flood.h"
#include "host_rig.h"
#include "zp_ipc_host.h"

namespace {

constexpr size_t kFilled = 10;

// Whether the SIM phonebook of the card the host's tests start with has
// been read: its kFilled entries.
bool sim_read()
{
    int num = 0;
    return simlib_pb_read_handler(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_GETALL, &num) != nullptr &&
           num == static_cast<int>(kFilled);
}

class HostProcess : public ::testing::Test {
protected:
    void SetUp() override
    {
        pbt::remove_books();
        std::string card = "card 100 20 20\n";
        for (size_t k = 1; k <= kFilled; ++k)
            card += std::to_string(k) + ",+4930" + std::to_string(k) + ",card" + std::to_string(k) + "\n";
        rig_.start(pbt::data_path("card.txt"), card);
        ASSERT_EQ(simlib_pb_init(STORAGE_TYPE_SIM), 0);
    }
    void TearDown() override
    {
        rig_.stop();
        pbt::remove_books();
    }

    pbt::host_rig rig_;
};

// Adds of several client processes to both phonebooks, and imports in this
// process at the same time: requests are taken one at a time, every add is
// answered, and neither an import nor the service saves over the other's
// change. Each entry is there once, numbered without gaps.
TEST_F(HostProcess, ClientProcessesAndImportsAtOnceLoseNoEntry)
{
    ASSERT_TRUE(pbt::wait_until(sim_read, 10000));
    constexpr int kClients = 3, kDeviceAdds = 50, kSimAdds = 5, kImports = 20, kLines = 10;
    std::deque<pbt::child> clients;
    std::set<std::string> expected;
    for (int c = 0; c < kClients; ++c) {
        const std::string id = std::to_string(c);
        clients.emplace_back(
            std::vector<std::string>{PB_CLIENT_BIN, "flash", "d" + id, std::to_string(kDeviceAdds)});
        clients.emplace_back(
            std::vector<std::string>{PB_CLIENT_BIN, "sim", "s" + id, std::to_string(kSimAdds)});
        for (int k = 0; k < kDeviceAdds; ++k)
            expected.insert("d" + id + "-" + std::to_string(k));
    }
    const std::string text = pbt::data_path("lost_updates.txt");
    for (int i = 0; i < kImports; ++i) {
        std::ofstream lines(text);
        for (int k = 0; k < kLines; ++k) {
            const std::string name = "i" + std::to_string(i) + "-" + std::to_string(k);
            lines << k << "," << name << ",\n";
            expected.insert(name);
        }
        lines.close();
        ASSERT_EQ(simlib_pb_import(text.c_str(), STORAGE_TYPE_FLASH), PB_RCODE_OK);
    }
    for (pbt::child &c : clients)
        EXPECT_EQ(c.wait(60000), 0);
    std::remove(text.c_str());

    const auto dev = pbt::read_book(STORAGE_TYPE_FLASH), sim = pbt::read_book(STORAGE_TYPE_SIM);
    std::set<std::string> names;
    std::set<zp_uint32> indexes, records;
    for (const pb_flash_info &e : dev)
        names.insert(e.name), indexes.insert(e.index);
    for (const pb_flash_info &e : sim)
        records.insert(e.sim_index);
    EXPECT_EQ(names, expected);
    EXPECT_EQ(indexes.size(), dev.size());
    EXPECT_EQ(*indexes.rbegin(), dev.size());
    ASSERT_EQ(sim.size(), kFilled + kClients * kSimAdds);
    EXPECT_EQ(records.size(), sim.size());
    EXPECT_EQ(*records.rbegin(), sim.size());
}

// A second host on the same folder ends with 1 and leaves the running
// service and its SIM phonebook alone. (A loose IPC folder and the socket of
// a server that died are the IPC library's test; a refused start ends the
// host the same way.)
TEST_F(HostProcess, OneHostPerFolder)
{
    ASSERT_TRUE(pbt::wait_until(sim_read, 10000));
    EXPECT_EQ(pbt::child({PB_HOST_BIN}).wait(30000), 1);
    EXPECT_TRUE(sim_read()) << "the running service keeps its SIM phonebook";
}

// SIGTERM while clients keep sending: the host exits 0 and every client's
// exchange ends (answered, or failed once the host is gone).
TEST_F(HostProcess, StopsCleanlyWhileRequestsArrive)
{
    std::deque<pbt::child> clients;
    std::vector<std::string> answered;  // each client makes its file at its first answer
    for (int c = 0; c < 3; ++c) {
        answered.push_back(pbt::data_path(("answered" + std::to_string(c)).c_str()));
        std::remove(answered.back().c_str());
        clients.emplace_back(std::vector<std::string>{PB_CLIENT_BIN, "flood", "30000", answered.back()});
    }
    ASSERT_TRUE(pbt::wait_until(
        [&] { return std::all_of(answered.begin(), answered.end(), [](auto &f) { return pbt::exists(f); }); },
        30000));
    EXPECT_EQ(rig_.host->wait(30000, SIGTERM), 0);
    for (pbt::child &c : clients)
        EXPECT_EQ(c.wait(10000), 0);
    ipc_addr_t mu{};
    ipc_get_addr_by_id(MU_ID, 0, &mu);
    EXPECT_FALSE(pbt::exists(mu.addr.sun_path)) << "the socket is left behind";
}

// A flood of large datagrams while the service waits on a card that does
// not answer: what the service would not handle is dropped, at most a
// bounded queue of requests waits, one more is answered "busy" at once, and
// once the modem is gone the queue drains and the service answers again.
// (What the flood costs in memory is bench/flood_bench's.)
TEST_F(HostProcess, FloodKeepsTheQueueBoundedAndTheServiceAnswersAfterwards)
{
    const pbt::flood_round r = pbt::flood_host(*rig_.sim, rig_.host->pid);
    ASSERT_EQ(r.failed, "");
    EXPECT_EQ(r.late.pb_result, PB_RCODE_NODEPUSH_ERR);
}

// A stop while the host still waits for the modem must not hang. The host
// blocks the stop signals before it binds its socket, so the stop is sent
// once it listens.
TEST(HostWithoutModem, StopsWhileWaitingForTheModem)
{
    pbt::child host({PB_HOST_BIN});
    ASSERT_TRUE(pbt::wait_until(pbt::host_listens, 30000)) << "pb_host did not come up";
    EXPECT_EQ(host.wait(30000, SIGTERM), 0);
}

}  // namespace
