// SIM writes that take long, end to end: the host process on the simulated
// modem, and this test as the client. A stop of the host during a write,
// and a write the modem answers only after the service's limit: the client
// always learns what became of its change and, following the advice it is
// given, never adds an entry twice. The second test waits out the service's
// write limit (a minute) for each of its rows.
#include <gtest/gtest.h>

#include <thread>

#include "host_rig.h"

namespace {

constexpr zp_uint32 kWriteLimitMs = 60000;  // the service's limit for one card write
constexpr int kWaitMs = 180000;             // generous: past the write limit and a read of the card

// The SIM phonebook as a get-all lists it, waiting while the card is read;
// false when it was not read within the wait.
bool list_sim(std::vector<pb_flash_info> *out)
{
    pb_flash_info *p = nullptr;
    int num = 0;
    const auto read = [&] {
        return (p = simlib_pb_read_handler(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_GETALL, &num)) != nullptr;
    };
    if (!pbt::wait_until(read, kWaitMs))
        return false;
    out->assign(p, p + num);
    return true;
}

size_t named(const std::vector<pb_flash_info> &entries, const std::string &name)
{
    return static_cast<size_t>(std::count_if(entries.begin(), entries.end(),
                                             [&](const pb_flash_info &e) { return e.name == name; }));
}

class CardWrite : public ::testing::Test {
protected:
    void SetUp() override
    {
        pbt::remove_books();
        rig_.start(PB_DATA_DIR "/card.txt", "card 100 20 20\n1,+49301,one\n2,+49302,two\n");
        ASSERT_EQ(simlib_pb_init(STORAGE_TYPE_SIM), 0);
        std::vector<pb_flash_info> sim;
        ASSERT_TRUE(list_sim(&sim));
    }
    void TearDown() override
    {
        rig_.stop();
        pbt::remove_books();
    }

    // How many card records and SIM file entries hold `name`.
    size_t on_card(const std::string &name) const
    {
        size_t n = 0;
        for (const auto &[id, r] : rig_.sim->card().records)
            n += pbm_sim::ucs2_to_utf8(r.name) == name;
        return n;
    }
    static size_t in_file(const std::string &name) { return named(pbt::read_book(STORAGE_TYPE_SIM), name); }

    pbt::host_rig rig_;
};

// SIGTERM while the card takes seconds over an add: the add is answered
// within its limit with its real outcome (or refused, "not taken, ask
// again"), requests queued behind it are refused, and pb_host exits 0. An
// answer sent from a socket already closed would leave the client waiting
// for its limit.
TEST_F(CardWrite, StopDuringASlowWriteAnswersItAndRefusesTheRest)
{
    rig_.sim->delay_next_change(3000);
    pb_rsp_t add_rsp{};
    int add_rc = -1;
    std::thread client([&] {
        const pb_event_req_t req{SIM_PB_HANDLE_TYPE_ADD, pbt::entry(0, 0, "Slow"), STORAGE_TYPE_SIM, {}};
        size_t len = sizeof add_rsp;
        add_rc =
            simlib_send_request_sync(MU_ID, MSG_ID_PB_REQ, &req, sizeof req, &add_rsp, &len, kWriteLimitMs);
    });
    ASSERT_TRUE(
        pbt::wait_until([&] { return rig_.sim->requests(QMI_PBM_WRITE_RECORD_REQ_V01) == 1; }, kWaitMs));
    pbt::raw_peer queued("queued");
    constexpr zp_uint32 kQueued = 5;
    const pb_event_req_t count{SIM_PB_HANDLE_TYPE_GETCOUNT, {}, STORAGE_TYPE_FLASH, {}};
    for (zp_uint32 k = 0; k < kQueued; ++k)
        ASSERT_TRUE(queued.send(IPC_ASY_MSG, MSG_ID_PB_REQ, k, &count, sizeof count));

    EXPECT_EQ(rig_.host->wait(kWaitMs, SIGTERM), 0);
    rig_.host.reset();
    client.join();
    ASSERT_EQ(add_rc, 0) << "the add's answer was lost";
    EXPECT_TRUE(add_rsp.pb_result == PB_RCODE_OK || add_rsp.pb_result == PB_RCODE_NODEPUSH_ERR)
        << add_rsp.pb_result;
    const size_t made = add_rsp.pb_result == PB_RCODE_OK ? 1 : 0;
    EXPECT_EQ(in_file("Slow"), made);
    EXPECT_EQ(on_card("Slow"), made);
    for (zp_uint32 k = 0; k < kQueued; ++k) {
        const pbt::raw_reply r = queued.receive(kWaitMs);
        ASSERT_TRUE(r.arrived) << "queued request " << k << " not answered";
        EXPECT_EQ(r.rsp.pb_result, PB_RCODE_NODEPUSH_ERR) << "queued request " << k;
    }
}

// A modem that answers a write after the service's limit: the client is
// told the card did not confirm it (not "ask again", which made users add
// it twice), and follows the advice: list the SIM phonebook, which waits
// while the card is read again, and add only when the entry is missing.
// The card then holds the entry once, and the file too, whether the modem
// made the write late or lost it.
TEST_F(CardWrite, UnconfirmedWriteThenTheAdvisedRetryLeavesOneEntry)
{
    const struct {
        const char *name;
        bool made;  // the modem carries the write out late, or loses it
    } rows[] = {{"Late", true}, {"Lost", false}};
    for (const auto &r : rows) {
        if (r.made)
            rig_.sim->delay_next_change(kWriteLimitMs + 1000);
        else
            rig_.sim->lose_next_change();
        pb_flash_info e = pbt::entry(0, 0, r.name);
        EXPECT_EQ(simlib_pb_write_handler(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_ADD, &e),
                  PB_RCODE_UNCONFIRMED_ERR)
            << r.name;

        std::vector<pb_flash_info> sim;
        ASSERT_TRUE(list_sim(&sim)) << r.name;
        EXPECT_EQ(named(sim, r.name), r.made ? 1u : 0u) << r.name << ": the list read again shows the card";
        if (named(sim, r.name) == 0) {
            e = pbt::entry(0, 0, r.name);
            EXPECT_EQ(simlib_pb_write_handler(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_ADD, &e), PB_RCODE_OK)
                << r.name;
        }
        EXPECT_EQ(on_card(r.name), 1u) << r.name;
        EXPECT_EQ(in_file(r.name), 1u) << r.name;
    }
}

}  // namespace
