// End to end across processes: the modem simulator daemon, the host process
// of MU_ID, and client processes (this test and pb_service_client).
#include <gtest/gtest.h>

#include <fstream>
#include <set>

#include "harness.h"

namespace {

constexpr int kFilled = 10;

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
        std::ofstream card(card_);
        card << "card 100 20 20\n";
        for (int k = 1; k <= kFilled; ++k)
            card << k << ",+4930" << k << ",card" << k << "\n";
        card.close();
        sim_ = pbt::child({PBM_SIMD_BIN, "--card", card_});
        ASSERT_TRUE(pbt::wait_until([] { return pbt::exists(pbt::ipc_dir() + "/qmi_pbm"); }, 5000));
        start_host();
        ASSERT_EQ(simlib_pb_init(STORAGE_TYPE_SIM), 0);
    }
    void TearDown() override
    {
        if (host_.running()) {
            EXPECT_EQ(host_.wait(5000, SIGTERM), 0);
        }
        EXPECT_EQ(sim_.wait(5000, SIGTERM), 0);
        pbt::remove_books();
    }

    // The host binds MU_ID's socket once its service is up.
    void start_host()
    {
        host_ = pbt::child({PB_HOST_BIN});
        ASSERT_TRUE(pbt::wait_until([] { return pbt::exists(mu_socket()); }, 5000));
    }

    int get_all()
    {
        int num = 0;
        simlib_pb_read_handler(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_GETALL, &num);
        return num;
    }

    std::string card_ = pbt::ipc_dir() + "/card.txt";
    pbt::child sim_, host_;
};

// Requests of several processes are taken one at a time: every add is
// answered, and the files hold each entry once, numbered without gaps.
TEST_F(HostProcess, SeveralClientProcessesAtOnce)
{
    ASSERT_TRUE(pbt::wait_until([&] { return get_all() == kFilled; }, 10000));
    constexpr int kClients = 4, kDeviceAdds = 20, kSimAdds = 5;
    std::vector<pbt::child> clients;
    for (int c = 0; c < kClients; ++c) {
        const std::string id = std::to_string(c);
        clients.emplace_back(std::vector<std::string>{PB_CLIENT_BIN, "add", "flash", "d" + id, "20"});
        clients.emplace_back(std::vector<std::string>{PB_CLIENT_BIN, "add", "sim", "s" + id, "5"});
    }
    for (pbt::child &c : clients)
        EXPECT_EQ(c.wait(60000), 0);

    auto dev = pbt::read_book(STORAGE_TYPE_FLASH);
    ASSERT_EQ(dev.size(), static_cast<size_t>(kClients * kDeviceAdds));
    auto names = pbt::names(dev);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), dev.size());
    EXPECT_EQ(dev.back().index, dev.size());

    auto sim = pbt::read_book(STORAGE_TYPE_SIM);
    ASSERT_EQ(sim.size(), static_cast<size_t>(kFilled + kClients * kSimAdds));
    std::set<zp_uint32> records;
    for (const pb_flash_info &e : sim)
        records.insert(e.sim_index);
    EXPECT_EQ(records.size(), sim.size());
    EXPECT_EQ(*records.rbegin(), sim.size());
}

// SIGTERM while clients keep sending: the host exits 0 promptly and every
// client's exchange ends (answered, or failed once the host is gone). A new
// host then starts afresh.
TEST_F(HostProcess, StopsCleanlyWhileRequestsArrive)
{
    // A message of another module is dropped without an answer; a one-way
    // request is answered one way.
    pbt::raw_peer peer("peer");
    pb_event_req_t req{};
    ASSERT_TRUE(peer.send(IPC_ASY_MSG, 0x20000001u, 1, &req, sizeof req));
    ASSERT_TRUE(peer.send(IPC_ASY_MSG, MSG_ID_PB_REQ, 77, &req, sizeof req));
    pbt::raw_reply r = peer.receive(5000);
    EXPECT_EQ(r.head.msg_type, static_cast<zp_uint32>(IPC_ASY_MSG));
    EXPECT_EQ(r.head.session_id, 77u);
    EXPECT_EQ(r.rsp.pb_result, PB_RCODE_READED_ERR);  // the first get-all
    EXPECT_FALSE(peer.receive(100).arrived);

    std::vector<pbt::child> clients;
    for (int c = 0; c < 3; ++c)
        clients.emplace_back(std::vector<std::string>{PB_CLIENT_BIN, "flood", "30000"});
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(host_.wait(5000, SIGTERM), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(2));
    for (pbt::child &c : clients)
        EXPECT_EQ(c.wait(10000), 0);
    EXPECT_FALSE(pbt::exists(mu_socket()));

    start_host();
    EXPECT_EQ(get_all(), PB_RCODE_READED_ERR);
    EXPECT_EQ(host_.wait(5000, SIGINT), 0);
}

// A stop while the host still waits for the modem must not hang.
TEST(HostWithoutModem, StopsWhileWaitingForTheModem)
{
    pbt::child host({PB_HOST_BIN});
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(host.wait(3000, SIGTERM), 0);
}

}  // namespace
