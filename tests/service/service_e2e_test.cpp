// End to end across processes: the modem simulator daemon, the host process
// of MU_ID, and client processes (this test and pb_service_client).
#include <gtest/gtest.h>

#include <deque>
#include <fstream>
#include <optional>
#include <set>

#include "harness.h"

namespace {

constexpr size_t kFilled = 10;

std::string mu_socket()
{
    ipc_addr_t a{};
    ipc_get_addr_by_id(MU_ID, 0, &a);
    return a.addr.sun_path;
}

class HostProcess : public ::testing::Test {
protected:
    void SetUp() override
    {
        pbt::remove_books();
        const std::string card = PB_DATA_DIR "/card.txt";
        std::ofstream(card) << "card 100 20 20\n";
        for (size_t k = 1; k <= kFilled; ++k)
            std::ofstream(card, std::ios::app) << k << ",+4930" << k << ",card" << k << "\n";
        sim_.emplace(std::vector<std::string>{PBM_SIMD_BIN, "--card", card});
        const std::string modem = std::getenv("ZP_IPC_DIR") + std::string("/qmi_pbm");
        ASSERT_TRUE(pbt::wait_until([&] { return pbt::exists(modem); }, 5000));
        // The host binds MU_ID's socket once its service is up.
        host_.emplace(std::vector<std::string>{PB_HOST_BIN});
        ASSERT_TRUE(pbt::wait_until([] { return pbt::exists(mu_socket()); }, 5000));
        ASSERT_EQ(simlib_pb_init(STORAGE_TYPE_SIM), 0);
    }
    void TearDown() override
    {
        if (host_ && host_->pid > 0) {
            EXPECT_EQ(host_->wait(5000, SIGTERM), 0);
        }
        EXPECT_EQ(sim_->wait(5000, SIGTERM), 0);
        pbt::remove_books();
    }

    std::optional<pbt::child> sim_, host_;
};

// Requests of several processes are taken one at a time: every add is
// answered, and the files hold each entry once, numbered without gaps.
TEST_F(HostProcess, SeveralClientProcessesAtOnce)
{
    int num = 0;
    auto read = [&] {
        return simlib_pb_read_handler(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_GETALL, &num) != nullptr;
    };
    ASSERT_TRUE(pbt::wait_until(read, 10000));
    ASSERT_EQ(num, static_cast<int>(kFilled));
    constexpr size_t kClients = 4, kDeviceAdds = 20, kSimAdds = 5;
    std::deque<pbt::child> clients;
    for (size_t c = 0; c < kClients; ++c) {
        const std::string id = std::to_string(c);
        clients.emplace_back(
            std::vector<std::string>{PB_CLIENT_BIN, "flash", "d" + id, std::to_string(kDeviceAdds)});
        clients.emplace_back(
            std::vector<std::string>{PB_CLIENT_BIN, "sim", "s" + id, std::to_string(kSimAdds)});
    }
    for (pbt::child &c : clients)
        EXPECT_EQ(c.wait(60000), 0);

    const auto dev = pbt::read_book(STORAGE_TYPE_FLASH), sim = pbt::read_book(STORAGE_TYPE_SIM);
    ASSERT_EQ(dev.size(), kClients * kDeviceAdds);
    ASSERT_EQ(sim.size(), kFilled + kClients * kSimAdds);
    std::set<std::string> names;
    std::set<zp_uint32> indexes, records;
    for (const pb_flash_info &e : dev)
        names.insert(e.name), indexes.insert(e.index);
    for (const pb_flash_info &e : sim)
        records.insert(e.sim_index);
    EXPECT_EQ(names.size(), dev.size());
    EXPECT_EQ(indexes.size(), dev.size());
    EXPECT_EQ(*indexes.rbegin(), dev.size());
    EXPECT_EQ(records.size(), sim.size());
    EXPECT_EQ(*records.rbegin(), sim.size());
}

// Imports in this process and adds through the service at the same time:
// each saves the device phonebook file, and neither may save over the
// other's change, so every entry of both is there afterwards.
TEST_F(HostProcess, ImportsAndServiceAddsLoseNoEntry)
{
    constexpr int kClients = 2, kAdds = 100, kImports = 20, kLines = 10;
    std::deque<pbt::child> clients;
    std::set<std::string> expected;
    for (int c = 0; c < kClients; ++c) {
        const std::string prefix = "d" + std::to_string(c);
        clients.emplace_back(std::vector<std::string>{PB_CLIENT_BIN, "flash", prefix, std::to_string(kAdds)});
        for (int k = 0; k < kAdds; ++k)
            expected.insert(prefix + "-" + std::to_string(k));
    }
    const std::string text = PB_DATA_DIR "/lost_updates.txt";
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
    std::set<std::string> names;
    for (const pb_flash_info &e : pbt::read_book(STORAGE_TYPE_FLASH))
        names.insert(e.name);
    EXPECT_EQ(names, expected);
    std::remove(text.c_str());
}

// SIGTERM while clients keep sending: the host exits 0 promptly and every
// client's exchange ends (answered, or failed once the host is gone).
TEST_F(HostProcess, StopsCleanlyWhileRequestsArrive)
{
    std::deque<pbt::child> clients;
    for (int c = 0; c < 3; ++c)
        clients.emplace_back(std::vector<std::string>{PB_CLIENT_BIN, "flood", "30000"});
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(host_->wait(5000, SIGTERM), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(2));
    for (pbt::child &c : clients)
        EXPECT_EQ(c.wait(10000), 0);
    EXPECT_FALSE(pbt::exists(mu_socket()));
}

// A stop while the host still waits for the modem must not hang.
TEST(HostWithoutModem, StopsWhileWaitingForTheModem)
{
    pbt::child host({PB_HOST_BIN});
#ifdef PB_EMULATOR
    // An emulated host needs longer to load its libraries and reach main,
    // where it blocks the stop signals.
    std::this_thread::sleep_for(std::chrono::milliseconds(2000));
#else
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
#endif
    EXPECT_EQ(host.wait(3000, SIGTERM), 0);
}

}  // namespace
