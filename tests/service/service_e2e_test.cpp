// End to end across processes: the host process of MU_ID on the simulated
// modem, and client processes (this test and pb_service_client).
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <fstream>
#include <set>

#include "host_rig.h"
#include "zp_ipc_host.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define PB_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define PB_SANITIZED 1
#endif
#endif

namespace {

constexpr size_t kFilled = 10;

std::string mu_socket()
{
    ipc_addr_t a{};
    ipc_get_addr_by_id(MU_ID, 0, &a);
    return a.addr.sun_path;
}

// Whether the service of the host process takes requests: it answers an
// unsupported action as such (not "not ready yet").
bool service_up()
{
    pb_event_req_t req{};
    req.event = SIM_PB_HANDLE_TYPE_GETCOUNT;
    pb_rsp_t rsp{};
    size_t len = sizeof rsp;
    return simlib_send_request_sync(MU_ID, MSG_ID_PB_REQ, &req, sizeof req, &rsp, &len, 5000) == 0 &&
           rsp.pb_result == PB_RCODE_ARGSERR;
}

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
        ASSERT_TRUE(pbt::wait_until(service_up, 10000));
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
    for (int c = 0; c < 3; ++c)
        clients.emplace_back(std::vector<std::string>{PB_CLIENT_BIN, "flood", "30000"});
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(rig_.host->wait(30000, SIGTERM), 0);
    for (pbt::child &c : clients)
        EXPECT_EQ(c.wait(10000), 0);
    EXPECT_FALSE(pbt::exists(mu_socket()));
}

// Resident memory of a process in KiB, from /proc; 0 when unknown.
long rss_kib(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind("VmRSS:", 0) == 0)
            return std::atol(line.c_str() + 6);
    return 0;
}

// A flood of large datagrams while the service waits on a card that does
// not answer: what the service would not handle is dropped before it takes
// memory, at most a bounded queue of requests waits, one more is answered
// "busy" at once, and the host's memory stays small and, once the queue has
// drained, where it was.
TEST(HostUnderFlood, MemoryStaysBoundedAndTheServiceAnswersAfterwards)
{
    pbt::remove_books();
    pbt::host_rig rig;
    rig.start(pbt::data_path("card.txt"), "card 100 20 20\n1,1,one\n");
    ASSERT_TRUE(pbt::wait_until(service_up, 10000));
    ASSERT_EQ(simlib_pb_init(STORAGE_TYPE_SIM), 0);

    pbt::raw_peer flood;
    std::vector<zp_uint8> payload(IPC_MSG_MAX_PAYLOAD);
    const auto send = [&](zp_int32 event, size_t len) {
        const pb_event_req_t req{event, {}, STORAGE_TYPE_SIM, {}};
        std::memcpy(payload.data(), &req, sizeof req);
        return flood.send(IPC_ASY_MSG, MSG_ID_PB_REQ, 1, payload.data(), static_cast<zp_uint32>(len));
    };
    pbt::raw_peer late("late");
    // The first round takes every path once; after the second the host is
    // where the first left it.
    long peak = 0, after[2] = {0, 0};
    for (long &rss : after) {
        ASSERT_TRUE(pbt::wait_until(pbt::sim_book_read, 30000));
        // A SIM add holds the service thread on a card that does not answer.
        rig.sim->set_reply_delay(600000);
        ASSERT_TRUE(send(SIM_PB_HANDLE_TYPE_ADD, sizeof(pb_event_req_t)));
        for (int k = 0; k < 1500; ++k) {
            ASSERT_TRUE(
                send(SIM_PB_HANDLE_TYPE_GETCOUNT, k % 2 ? IPC_MSG_MAX_PAYLOAD : sizeof(pb_event_req_t)));
            if (k % 50 == 0)
                peak = std::max(peak, rss_kib(rig.host->pid));
        }
        const pb_event_req_t req{SIM_PB_HANDLE_TYPE_GETCOUNT, {}, {}, {}};
        ASSERT_TRUE(late.send(IPC_SYN_REQ, MSG_ID_PB_REQ, 7, &req, sizeof req));
        const pbt::raw_reply busy = late.receive(10000);
        peak = std::max(peak, rss_kib(rig.host->pid));
        ASSERT_TRUE(busy.arrived);
        EXPECT_EQ(busy.rsp.pb_result, PB_RCODE_NODEPUSH_ERR);
        // The modem goes away: the add fails and the queue drains.
        rig.sim->stop();
        ASSERT_TRUE(pbt::wait_until(service_up, 60000));
        rss = rss_kib(rig.host->pid);
        rig.sim->set_reply_delay(0);
        ASSERT_TRUE(rig.sim->start());
    }
    std::printf("host RSS: peak %ld KiB, after one flood %ld KiB, after two %ld KiB\n", peak, after[0],
                after[1]);
// Sanitizers keep freed memory and add their own; under an emulator the
// process's RSS is mostly the emulator's translation cache.
#if !defined(PB_SANITIZED) && !defined(PB_EMULATOR)
    EXPECT_LT(peak, 8 * 1024);
    EXPECT_LE(after[1], after[0] + 64);
#endif
    rig.stop();
    pbt::remove_books();
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
    EXPECT_EQ(host.wait(30000, SIGTERM), 0);
}

}  // namespace
