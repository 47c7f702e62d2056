// The service inside the test process, fed as the host process feeds it
// (MU_ID's socket, mm_pb_proc from the receive thread), with the simulated
// modem in the same process. The test looks inside: exact answer heads, the
// card, the engine's flags, and the memory counters, which must be back where
// they started after every stop.
#include <gtest/gtest.h>

#include "harness.h"
#include "mm_pb.h"
#include "pb_msg.h"
#include "pbm_sim.h"
#include "zp_mem.h"
#include "zpt_ui_pb_func.h"

namespace {

using pbt::entry;
using pbt::kNoSim;
using Names = std::vector<std::string>;

constexpr unsigned kRecords = 40, kFilled = 20;

long service_blocks()
{
    long n = 0;
    for (zp_uint16 s = PB_SITE_SERVICE; s < PB_SITE_SERVICE + 0x100; ++s)
        n += mem_live_blocks(s);
    return n;
}

pbm_sim::Card card()
{
    pbm_sim::Card c;
    c.max_records = kRecords;
    c.max_name_len = 30;
    for (unsigned k = 1; k <= kFilled; ++k)
        pbm_sim::utf8_to_ucs2("card" + std::to_string(k), &c.records[static_cast<uint16_t>(k)].name);
    return c;
}

pb_event_req_t request(zp_int32 event, storage_type_t type, const pb_flash_info &v = {})
{
    pb_event_req_t req{};
    req.event = event;
    req.storage_type = type;
    req.value = v;
    return req;
}

class Service : public ::testing::Test {
protected:
    void SetUp() override
    {
        pbt::remove_books();
        baseline_ = mem_live_total();
        ASSERT_TRUE(sim_.start(0));
        ASSERT_EQ(mm_pb_init(), 0);
        ASSERT_EQ(ipc_server_start(MU_ID, [](void *m, void *) { mm_pb_proc(m); }, nullptr, &server_), IPC_OK);
        // The thread takes a message only after the engine's start-up.
        ASSERT_TRUE(ask(IPC_SYN_REQ, request(SIM_PB_HANDLE_TYPE_GETCOUNT, STORAGE_TYPE_FLASH)).arrived);
    }
    void TearDown() override
    {
        ipc_server_stop(server_);
        auto t0 = std::chrono::steady_clock::now();
        EXPECT_EQ(mm_pb_fin(), 0);
        // No further message arrives: the stop must not wait for one.
        EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(1000));
        sim_.stop();
        EXPECT_EQ(service_blocks(), 0);
        EXPECT_EQ(mem_live_total(), baseline_);
        pbt::remove_books();
    }

    pbt::raw_reply ask(zp_uint32 type, const pb_event_req_t &req, zp_uint32 session = 0x5150)
    {
        return peer_.send(type, MSG_ID_PB_REQ, session, &req, sizeof req) ? peer_.receive(5000) : pbt::raw_reply{};
    }

    // Get-all until the card is read; then the SIM phonebook's entries.
    std::vector<pb_flash_info> read_sim()
    {
        std::vector<pb_flash_info> out;
        int num = 0;
        pbt::wait_until(
            [&] {
                pb_flash_info *p = simlib_pb_read_handler(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_GETALL, &num);
                if (p != nullptr)
                    out.assign(p, p + num);
                return p != nullptr || num != PB_RCODE_READED_ERR;
            },
            10000);
        return out;
    }

    pb_return_code_enum_t write(storage_type_t t, sim_pb_handle_t what, pb_flash_info e, pb_flash_info *out = nullptr)
    {
        pb_return_code_enum_t r = simlib_pb_write_handler(t, what, &e);
        if (out != nullptr)
            *out = e;
        return r;
    }

    std::string on_card(uint16_t id)
    {
        auto c = sim_.card();
        auto it = c.records.find(id);
        return it == c.records.end() ? "" : pbm_sim::ucs2_to_utf8(it->second.name);
    }

    long baseline_ = 0;
    pbm_sim::Simulator sim_{card()};
    ipc_server_pt server_ = nullptr;
    pbt::raw_peer peer_{"peer"};
};

// The answer is of the kind the request came as, carries its session, and
// only an add reports a record index; unsupported actions change nothing.
TEST_F(Service, AnswersMirrorTheRequest)
{
    pbt::write_book(STORAGE_TYPE_FLASH, {entry(1, kNoSim, "keep")});
    const struct {
        zp_uint32 type;
        zp_int32 event;
        zp_uint32 want_type;
        zp_int32 result, value;
    } rows[] = {
        {IPC_SYN_REQ, SIM_PB_HANDLE_TYPE_ADD, IPC_SYN_RSP, PB_RCODE_OK, -1},
        {IPC_ASY_MSG, SIM_PB_HANDLE_TYPE_EDIT, IPC_ASY_MSG, PB_RCODE_OK, 0},
        {IPC_SYN_REQ, SIM_PB_HANDLE_TYPE_GETBYIDX, IPC_SYN_RSP, PB_RCODE_ARGSERR, 0},
        {IPC_SYN_REQ, SIM_PB_HANDLE_TYPE_DEL_BYSIMIDX, IPC_SYN_RSP, PB_RCODE_ARGSERR, 0},
        {IPC_SYN_REQ, 13, IPC_SYN_RSP, PB_RCODE_ARGSERR, 0},
        {IPC_ASY_MSG, -1, IPC_ASY_MSG, PB_RCODE_ARGSERR, 0},
    };
    zp_uint32 session = 0xABCD0000;
    for (const auto &r : rows) {
        pbt::raw_reply a = ask(r.type, request(r.event, STORAGE_TYPE_FLASH, entry(1, 9, "new")), ++session);
        ASSERT_TRUE(a.arrived) << r.event;
        EXPECT_EQ(a.head.msg_type, r.want_type) << r.event;
        EXPECT_EQ(a.head.msg_id, MSG_ID_PB_RSP);
        EXPECT_EQ(a.head.session_id, session);
        EXPECT_EQ(a.rsp.pb_result, r.result) << r.event;
        EXPECT_EQ(a.rsp.value, r.value) << r.event;
    }
    EXPECT_EQ(pbt::names(pbt::read_book(STORAGE_TYPE_FLASH)), (Names{"new", "new"}));
}

// Messages that cannot or need not be answered are refused or dropped, and
// their copies freed all the same; texts without a terminator are cut.
TEST_F(Service, UnanswerableMessagesAreDroppedAndFreed)
{
    EXPECT_EQ(mm_pb_proc(nullptr), -1);
    zp_uint8 inner[IPC_MSG_HEAD_LEN + sizeof(pb_event_req_t)] = {IPC_INNER_MQ};
    EXPECT_EQ(mm_pb_proc(inner), -1);
    pb_rsp_t stray{1, 2};
    ASSERT_TRUE(peer_.send(IPC_ASY_MSG, MSG_ID_PB_RSP, 9, &stray, sizeof stray));
    ASSERT_TRUE(peer_.send(IPC_ASY_MSG, 0x12345678u, 9, &stray, sizeof stray));
    EXPECT_FALSE(peer_.receive(200).arrived);

    pb_event_req_t req = request(SIM_PB_HANDLE_TYPE_ADD, STORAGE_TYPE_FLASH);
    std::memset(&req.value.name, 'n', 3 * PB_TEXT_LEN);
    EXPECT_EQ(ask(IPC_SYN_REQ, req).rsp.pb_result, PB_RCODE_OK);
    EXPECT_EQ(pbt::names(pbt::read_book(STORAGE_TYPE_FLASH)), Names{std::string(PB_TEXT_LEN - 1, 'n')});
    EXPECT_TRUE(pbt::wait_until([] { return service_blocks() == 0; }, 2000));
}

// Requests still queued at the stop are never answered, but their copies are
// given back (TearDown checks).
TEST_F(Service, StopWithRequestsStillQueuedFreesThem)
{
    pb_event_req_t req = request(SIM_PB_HANDLE_TYPE_ADD, STORAGE_TYPE_FLASH, entry(0, 0, "x"));
    for (int k = 0; k < 100; ++k)
        ASSERT_TRUE(peer_.send(IPC_ASY_MSG, MSG_ID_PB_REQ, k, &req, sizeof req));
    EXPECT_TRUE(peer_.receive(5000).arrived);
    peer_.close();
}

// Adds renumber the book densely; deletes keep the other indexes; a
// delete-list skips bad elements without ending; delete-all removes the file.
TEST_F(Service, DeviceBookThroughTheClientCalls)
{
    pbt::write_book(STORAGE_TYPE_FLASH, {entry(1, kNoSim, "a"), entry(3, kNoSim, "b"), entry(4, kNoSim, "c")});
    pb_flash_info added{};
    ASSERT_EQ(write(STORAGE_TYPE_FLASH, SIM_PB_HANDLE_TYPE_ADD, entry(0, 5, "d"), &added), PB_RCODE_OK);
    EXPECT_EQ(added.sim_index, kNoSim);
    EXPECT_EQ(pbt::indexes(pbt::read_book(STORAGE_TYPE_FLASH)), (std::vector<zp_uint32>{1, 2, 3, 4}));

    ASSERT_EQ(write(STORAGE_TYPE_FLASH, SIM_PB_HANDLE_TYPE_DEL, entry(2, 0, "")), PB_RCODE_OK);
    EXPECT_EQ(write(STORAGE_TYPE_FLASH, SIM_PB_HANDLE_TYPE_EDIT, entry(2, 0, "gone")), PB_RCODE_INVALID_ERR);
    ASSERT_EQ(write(STORAGE_TYPE_FLASH, SIM_PB_HANDLE_TYPE_EDIT, entry(3, 0, "C")), PB_RCODE_OK);
    EXPECT_EQ(pbt::indexes(pbt::read_book(STORAGE_TYPE_FLASH)), (std::vector<zp_uint32>{1, 3, 4}));

    // An add without an entry is refused before sending: the service would
    // have stored an empty one.
    EXPECT_EQ(simlib_pb_write_handler(STORAGE_TYPE_FLASH, SIM_PB_HANDLE_TYPE_ADD, nullptr), PB_RCODE_ARGSERR);
    ASSERT_EQ(simlib_pb_init(STORAGE_TYPE_FLASH), 0);
    int num = 0;
    pb_flash_info *got = simlib_pb_read_handler(STORAGE_TYPE_FLASH, SIM_PB_HANDLE_TYPE_GETALL, &num);
    ASSERT_EQ(num, 3);
    EXPECT_EQ(pbt::names({got, got + num}), (Names{"a", "C", "d"}));

    std::vector<int> list(PB_DEL_ANY_MAX, 0);
    list[0] = 3, list[1] = 0, list[2] = 3, list[3] = 1500, list[4] = -4, list[PB_DEL_ANY_MAX - 1] = 1;
    EXPECT_EQ(simlib_pb_del_any(STORAGE_TYPE_FLASH, list.data(), PB_DEL_ANY_MAX + 1), PB_RCODE_ARGSERR);
    EXPECT_EQ(simlib_pb_del_any(STORAGE_TYPE_FLASH, list.data(), PB_DEL_ANY_MAX), PB_RCODE_OK);
    EXPECT_EQ(pbt::names(pbt::read_book(STORAGE_TYPE_FLASH)), Names{"d"});
    ASSERT_EQ(write(STORAGE_TYPE_FLASH, SIM_PB_HANDLE_TYPE_DEL_ALL, {}), PB_RCODE_OK);
    EXPECT_FALSE(pbt::exists(pbt::book(STORAGE_TYPE_FLASH)));
    EXPECT_EQ(simlib_pb_read_handler(STORAGE_TYPE_FLASH, SIM_PB_HANDLE_TYPE_GETALL, &num), nullptr);
    EXPECT_EQ(num, 0);
    simlib_pb_destroy(STORAGE_TYPE_FLASH);
}

TEST_F(Service, SimBookIsReadOnTheFirstGetAllAndChangedCardFirst)
{
    int num = 0;
    EXPECT_EQ(simlib_pb_read_handler(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_GETALL, &num), nullptr);
    EXPECT_EQ(num, PB_RCODE_READED_ERR);
    auto got = read_sim();
    ASSERT_EQ(got.size(), kFilled);
    EXPECT_EQ(got.back().index, kFilled);
    EXPECT_EQ(got.back().sim_index, kFilled);
    EXPECT_EQ(g_sim_module.pb_sim_max_count, static_cast<zp_int32>(kRecords));

    // A delete frees record 5; the next add takes it and closes the gap in
    // the device indexes.
    ASSERT_EQ(write(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_DEL, entry(5, 0, "")), PB_RCODE_OK);
    EXPECT_EQ(on_card(5), "");
    pb_flash_info added{};
    ASSERT_EQ(write(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_ADD, entry(0, 0, "Gap"), &added), PB_RCODE_OK);
    EXPECT_EQ(added.sim_index, 5u);
    EXPECT_EQ(on_card(5), "Gap");
    auto file = pbt::read_book(STORAGE_TYPE_SIM);
    ASSERT_EQ(file.size(), kFilled);
    EXPECT_EQ(file.back().index, kFilled);
    EXPECT_EQ(file.back().sim_index, 5u);

    // The stored record number wins over the one the client sends.
    ASSERT_EQ(write(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_EDIT, entry(3, 77, "Edited")), PB_RCODE_OK);
    EXPECT_EQ(on_card(3), "Edited");
    EXPECT_EQ(pbt::read_book(STORAGE_TYPE_SIM)[2].sim_index, 3u);

    // A card that refuses leaves the file as it was.
    const auto before = pbt::read_book(STORAGE_TYPE_SIM);
    const struct {
        sim_pb_handle_t what;
        pb_return_code_enum_t want;
    } refused[] = {{SIM_PB_HANDLE_TYPE_ADD, PB_RCODE_WRITE_ERR},
                   {SIM_PB_HANDLE_TYPE_EDIT, PB_RCODE_WRITE_ERR},
                   {SIM_PB_HANDLE_TYPE_DEL, PB_RCODE_WRITE_ERR},
                   {SIM_PB_HANDLE_TYPE_DEL_ALL, PB_RCODE_ERROR}};
    for (const auto &r : refused) {
        sim_.refuse_next_writes(1);
        EXPECT_EQ(write(STORAGE_TYPE_SIM, r.what, entry(2, 0, "No")), r.want) << r.what;
        EXPECT_EQ(pbt::names(pbt::read_book(STORAGE_TYPE_SIM)), pbt::names(before)) << r.what;
    }

    // In a delete-list the refused element stays, the others go. Device
    // indexes 6 and 7 hold records 7 and 8 since the add renumbered.
    sim_.refuse_next_writes(1);
    int list[] = {6, 7};
    EXPECT_EQ(simlib_pb_del_any(STORAGE_TYPE_SIM, list, 2), PB_RCODE_OK);
    EXPECT_EQ(on_card(7), "card7");
    EXPECT_EQ(on_card(8), "");
    EXPECT_EQ(pbt::read_book(STORAGE_TYPE_SIM).size(), kFilled - 1);

    ASSERT_EQ(write(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_DEL_ALL, {}), PB_RCODE_OK);
    EXPECT_TRUE(sim_.card().records.empty());
    EXPECT_FALSE(pbt::exists(pbt::book(STORAGE_TYPE_SIM)));
}

// The dispatcher, called directly while the service thread is idle: flags
// first, exact-name duplicates refused, and the file saved even when the
// card refuses.
TEST_F(Service, DispatcherChecksFlagsAndNamesAndSavesDespiteTheCard)
{
    pb_flash_info e = entry(0, 0, "Early");
    EXPECT_EQ(pb_func_write_sim(nullptr, SIM_PB_HANDLE_TYPE_ADD, STORAGE_TYPE_FLASH), PB_RCODE_INVALID_ERR);
    EXPECT_EQ(pb_func_write_sim(&e, SIM_PB_HANDLE_TYPE_ADD, STORAGE_TYPE_SIM), PB_RCODE_READED_ERR);
    EXPECT_EQ(pb_func_write_sim(&e, SIM_PB_HANDLE_TYPE_ADD, STORAGE_TYPE_FLASH), PB_RCODE_OK);
    ASSERT_EQ(read_sim().size(), kFilled);

    pbt::write_book(STORAGE_TYPE_FLASH, {entry(4, kNoSim, "Ann"), entry(9, kNoSim, "Bob")});
    const struct {
        pb_flash_info info;
        sim_pb_handle_t ev;
        pb_return_code_enum_t want;
    } rows[] = {
        {entry(0, 0, "Ann"), SIM_PB_HANDLE_TYPE_ADD, PB_RCODE_DUPLICATE_ERR},
        {entry(0, 0, "Ann "), SIM_PB_HANDLE_TYPE_ADD, PB_RCODE_OK},
        {entry(1, 0, "Ann", "77"), SIM_PB_HANDLE_TYPE_EDIT, PB_RCODE_OK},
        {entry(1, 0, "Bob"), SIM_PB_HANDLE_TYPE_EDIT, PB_RCODE_DUPLICATE_ERR},
        {entry(30, 0, "Bob"), SIM_PB_HANDLE_TYPE_EDIT, PB_RCODE_DUPLICATE_ERR},
        {entry(30, 0, "Nobody"), SIM_PB_HANDLE_TYPE_EDIT, PB_RCODE_INVALID_ERR},
        {entry(1, 0, "x"), SIM_PB_HANDLE_TYPE_DEL_ALL, PB_RCODE_INVALID_ERR},
    };
    for (auto r : rows)
        EXPECT_EQ(pb_func_write_sim(&r.info, r.ev, STORAGE_TYPE_FLASH), r.want) << r.info.name << " " << r.ev;
    EXPECT_EQ(pbt::names(pbt::read_book(STORAGE_TYPE_FLASH)), (Names{"Ann", "Bob", "Ann "}));

    sim_.refuse_next_writes(1);
    pb_flash_info kept = entry(0, 0, "Kept");
    EXPECT_EQ(pb_func_write_sim(&kept, SIM_PB_HANDLE_TYPE_ADD, STORAGE_TYPE_SIM), PB_RCODE_OK);
    EXPECT_EQ(on_card(kFilled + 1), "");
    EXPECT_EQ(pbt::read_book(STORAGE_TYPE_SIM).back().sim_index, kFilled + 1);

    g_sim_module.pb_sim_init_flag = 0;
    EXPECT_EQ(pb_func_write_sim(&e, SIM_PB_HANDLE_TYPE_ADD, STORAGE_TYPE_FLASH), PB_RCODE_ERROR);
    EXPECT_EQ(pb_init_entries(), PB_RCODE_INIT_ERR);
}

}  // namespace
