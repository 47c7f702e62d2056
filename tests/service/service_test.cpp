// The service inside the test process, fed as the host process feeds it
// (MU_ID's socket, mm_pb_proc from the receive thread), with the simulated
// modem in the same process. The test looks inside: exact answer heads, the
// card, the engine's flags, and the memory counters, which must be back where
// they started after every stop.
#include <gtest/gtest.h>

#include <map>

#include "harness.h"
#include "mm_pb.h"
#include "pbm_sim.h"
#include "zp_mem.h"
#include "zpt_ui_pb_func.h"

namespace {

using pbt::entry;
using pbt::kNoSim;
constexpr storage_type_t SIM = STORAGE_TYPE_SIM, DEV = STORAGE_TYPE_FLASH;
constexpr unsigned kRecords = 40;
const std::string kCardFile = "1@1:c1 2@2:c2 3@3:c3 4@4:c4";  // the card's four records, once read

pbm_sim::Card card()
{
    pbm_sim::Card c;
    c.max_records = kRecords;
    for (uint16_t k = 1; k <= 4; ++k)
        pbm_sim::utf8_to_ucs2("c" + std::to_string(k), &c.records[k].name);
    return c;
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
        ASSERT_TRUE(ask(IPC_SYN_REQ, SIM_PB_HANDLE_TYPE_GETCOUNT).arrived);
    }
    void TearDown() override
    {
        ipc_server_stop(server_);
        auto t0 = std::chrono::steady_clock::now();
        EXPECT_EQ(mm_pb_fin(), 0);
        // No further message arrives: the stop must not wait for one.
        EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(1000));
        sim_.stop();
        // Every queued copy, IPC buffer and response is given back.
        EXPECT_EQ(mem_live_total(), baseline_);
        pbt::remove_books();
    }

    // A request on the device phonebook, sent as a message of `type`; the
    // answer, unless told not to wait.
    pbt::raw_reply ask(zp_uint32 type, zp_int32 event, const pb_flash_info &v = {}, zp_uint32 session = 0,
                       int ms = 5000)
    {
        pb_event_req_t req{};
        req.event = event;
        req.storage_type = DEV;
        req.value = v;
        return peer_.send(type, MSG_ID_PB_REQ, session, &req, sizeof req) ? peer_.receive(ms) : pbt::raw_reply{};
    }

    // The file as a listing; "none" when there is no file.
    static std::string file(storage_type_t t)
    {
        return pbt::exists(pbt::book(t)) ? pbt::listing(pbt::read_book(t)) : "none";
    }

    // The first get-all starts the card's reading and is answered "not read
    // yet"; later ones return the SIM phonebook's entries.
    void read_card()
    {
        int num = 0;
        EXPECT_EQ(simlib_pb_read_handler(SIM, SIM_PB_HANDLE_TYPE_GETALL, &num), nullptr);
        ASSERT_EQ(num, PB_RCODE_READED_ERR);
        pb_flash_info *p = nullptr;
        auto read = [&] { return (p = simlib_pb_read_handler(SIM, SIM_PB_HANDLE_TYPE_GETALL, &num)) != nullptr; };
        ASSERT_TRUE(pbt::wait_until(read, 10000));
        EXPECT_EQ(pbt::listing({p, p + num}), kCardFile);
        EXPECT_EQ(g_sim_module.pb_sim_max_count, static_cast<zp_int32>(kRecords));
    }

    long baseline_ = 0;
    pbm_sim::Simulator sim_{card()};
    ipc_server_pt server_ = nullptr;
    pbt::raw_peer peer_{"peer"};
};

// The answer is of the kind the request came as, carries its session, and
// only an add reports a record index; unsupported actions change nothing.
// Texts without a terminator are cut. Messages that cannot or need not be
// answered are dropped, and their copies freed all the same (TearDown).
TEST_F(Service, AnswersMirrorTheRequestAndOnlyRequestsAreAnswered)
{
    pbt::write_book(DEV, {entry(1, kNoSim, "keep")});
    pb_flash_info unterminated = entry(1, 9, "");
    std::memset(&unterminated.name, 'n', 3 * PB_TEXT_LEN);
    const struct {
        zp_uint32 type;
        zp_int32 event;
        zp_uint32 want_type;
        zp_int32 result, value;
    } rows[] = {
        {IPC_SYN_REQ, SIM_PB_HANDLE_TYPE_ADD, IPC_SYN_RSP, PB_RCODE_OK, -1},
        {IPC_ASY_MSG, SIM_PB_HANDLE_TYPE_EDIT, IPC_ASY_MSG, PB_RCODE_OK, 0},
        {IPC_SYN_REQ, SIM_PB_HANDLE_TYPE_GETBYIDX, IPC_SYN_RSP, PB_RCODE_ARGSERR, 0},
        {IPC_SYN_REQ, 13, IPC_SYN_RSP, PB_RCODE_ARGSERR, 0},
        {IPC_ASY_MSG, -1, IPC_ASY_MSG, PB_RCODE_ARGSERR, 0},
    };
    zp_uint32 session = 0xABCD0000;
    for (const auto &r : rows) {
        pbt::raw_reply a = ask(r.type, r.event, unterminated, ++session);
        ASSERT_TRUE(a.arrived) << r.event;
        EXPECT_EQ(a.head.msg_type, r.want_type) << r.event;
        EXPECT_EQ(a.head.msg_id, MSG_ID_PB_RSP);
        EXPECT_EQ(a.head.session_id, session);
        EXPECT_EQ(a.rsp.pb_result, r.result) << r.event;
        EXPECT_EQ(a.rsp.value, r.value) << r.event;
    }
    const std::string cut(PB_TEXT_LEN - 1, 'n');
    EXPECT_EQ(file(DEV), "1:" + cut + " 2:" + cut);

    pb_rsp_t stray{1, 2};
    ASSERT_TRUE(peer_.send(IPC_ASY_MSG, MSG_ID_PB_RSP, 9, &stray, sizeof stray));
    ASSERT_TRUE(peer_.send(IPC_ASY_MSG, 0x12345678u, 9, &stray, sizeof stray));
    EXPECT_FALSE(peer_.receive(200).arrived);
}

// Requests still queued at the stop are never answered, but their copies are
// given back (TearDown checks).
TEST_F(Service, StopWithRequestsStillQueuedFreesThem)
{
    for (zp_uint32 k = 0; k < 100; ++k)
        ask(IPC_ASY_MSG, SIM_PB_HANDLE_TYPE_ADD, entry(0, 0, "x"), k, 0);
    EXPECT_TRUE(peer_.receive(5000).arrived);
    peer_.close();
}

// Each step through the client calls, on the file the step before left. Adds
// renumber the book densely and a SIM add takes the lowest free card record;
// deletes keep the other indexes; a delete-list skips bad or refused elements
// without ending; delete-all removes the file. A card that refuses leaves the
// file as it was; after every step the card holds exactly the SIM file's
// entries.
TEST_F(Service, EntryOperationsChangeTheCardFirstThenTheFile)
{
    std::vector<int> device_list(PB_DEL_ANY_MAX, 0);
    device_list[0] = 3, device_list[2] = 3, device_list[3] = 1500, device_list[4] = -4;
    device_list.back() = 1;
    const struct {
        storage_type_t book;
        sim_pb_handle_t what;
        pb_flash_info e;
        std::vector<int> list;  // of a delete-list
        unsigned refused;       // card writes refused
        pb_return_code_enum_t want;
        std::string file;
    } steps[] = {
        {DEV, SIM_PB_HANDLE_TYPE_ADD, entry(0, 5, "d"), {}, 0, PB_RCODE_OK, "1:a 2:b 3:c 4:d"},
        {DEV, SIM_PB_HANDLE_TYPE_DEL, entry(2, 0, ""), {}, 0, PB_RCODE_OK, "1:a 3:c 4:d"},
        {DEV, SIM_PB_HANDLE_TYPE_EDIT, entry(2, 0, "gone"), {}, 0, PB_RCODE_INVALID_ERR, "1:a 3:c 4:d"},
        {DEV, SIM_PB_HANDLE_TYPE_EDIT, entry(3, 0, "C"), {}, 0, PB_RCODE_OK, "1:a 3:C 4:d"},
        {DEV, SIM_PB_HANDLE_TYPE_DEL_ANY, {}, std::vector<int>(PB_DEL_ANY_MAX + 1, 4), 0, PB_RCODE_ARGSERR,
         "1:a 3:C 4:d"},
        {DEV, SIM_PB_HANDLE_TYPE_DEL_ANY, {}, device_list, 0, PB_RCODE_OK, "4:d"},
        {DEV, SIM_PB_HANDLE_TYPE_DEL_ALL, {}, {}, 0, PB_RCODE_OK, "none"},
        {SIM, SIM_PB_HANDLE_TYPE_DEL, entry(2, 0, ""), {}, 0, PB_RCODE_OK, "1@1:c1 3@3:c3 4@4:c4"},
        {SIM, SIM_PB_HANDLE_TYPE_ADD, entry(0, 0, "Gap"), {}, 0, PB_RCODE_OK, "1@1:c1 2@3:c3 3@4:c4 4@2:Gap"},
        // The stored record number wins over the one the client sends.
        {SIM, SIM_PB_HANDLE_TYPE_EDIT, entry(2, 77, "Ed"), {}, 0, PB_RCODE_OK, "1@1:c1 2@3:Ed 3@4:c4 4@2:Gap"},
        {SIM, SIM_PB_HANDLE_TYPE_ADD, entry(0, 0, "No"), {}, 1, PB_RCODE_WRITE_ERR, "1@1:c1 2@3:Ed 3@4:c4 4@2:Gap"},
        {SIM, SIM_PB_HANDLE_TYPE_EDIT, entry(1, 0, "No"), {}, 1, PB_RCODE_WRITE_ERR, "1@1:c1 2@3:Ed 3@4:c4 4@2:Gap"},
        {SIM, SIM_PB_HANDLE_TYPE_DEL, entry(1, 0, ""), {}, 1, PB_RCODE_WRITE_ERR, "1@1:c1 2@3:Ed 3@4:c4 4@2:Gap"},
        {SIM, SIM_PB_HANDLE_TYPE_DEL_ALL, {}, {}, 1, PB_RCODE_ERROR, "1@1:c1 2@3:Ed 3@4:c4 4@2:Gap"},
        {SIM, SIM_PB_HANDLE_TYPE_DEL_ANY, {}, {2, 3}, 1, PB_RCODE_OK, "1@1:c1 2@3:Ed 4@2:Gap"},
        {SIM, SIM_PB_HANDLE_TYPE_DEL_ALL, {}, {}, 0, PB_RCODE_OK, "none"},
    };
    pbt::write_book(DEV, {entry(1, kNoSim, "a"), entry(3, kNoSim, "b"), entry(4, kNoSim, "c")});
    read_card();
    for (auto s : steps) {
        sim_.refuse_next_writes(s.refused);
        const pb_return_code_enum_t got =
            s.what == SIM_PB_HANDLE_TYPE_DEL_ANY
                ? simlib_pb_del_any(s.book, s.list.data(), static_cast<int>(s.list.size()))
                : simlib_pb_write_handler(s.book, s.what, &s.e);
        EXPECT_EQ(got, s.want) << s.book << " " << s.what << " " << s.e.name;
        EXPECT_EQ(file(s.book), s.file) << s.book << " " << s.what << " " << s.e.name;
        std::map<zp_uint32, std::string> on_card, in_file;
        for (const auto &[id, r] : sim_.card().records)
            on_card[id] = pbm_sim::ucs2_to_utf8(r.name);
        for (const pb_flash_info &e : pbt::read_book(SIM))
            in_file[e.sim_index] = e.name;
        EXPECT_EQ(on_card, in_file) << s.book << " " << s.what << " " << s.e.name;
    }
    // An add without an entry is refused before sending: the service would
    // have stored an empty one.
    EXPECT_EQ(simlib_pb_write_handler(DEV, SIM_PB_HANDLE_TYPE_ADD, nullptr), PB_RCODE_ARGSERR);
}

// The dispatcher, called directly while the service thread is idle: flags
// first, exact-name duplicates refused, and the file saved even when the
// card refuses.
TEST_F(Service, DispatcherChecksFlagsAndNamesAndSavesDespiteTheCard)
{
    pb_flash_info e = entry(0, 0, "Early");
    EXPECT_EQ(pb_func_write_sim(nullptr, SIM_PB_HANDLE_TYPE_ADD, DEV), PB_RCODE_INVALID_ERR);
    EXPECT_EQ(pb_func_write_sim(&e, SIM_PB_HANDLE_TYPE_ADD, SIM), PB_RCODE_READED_ERR);
    EXPECT_EQ(pb_func_write_sim(&e, SIM_PB_HANDLE_TYPE_ADD, DEV), PB_RCODE_OK);
    read_card();

    pbt::write_book(DEV, {entry(4, kNoSim, "Ann"), entry(9, kNoSim, "Bob")});
    const struct {
        pb_flash_info info;
        sim_pb_handle_t ev;
        pb_return_code_enum_t want;
    } rows[] = {
        {entry(0, 0, "Ann"), SIM_PB_HANDLE_TYPE_ADD, PB_RCODE_DUPLICATE_ERR},
        {entry(0, 0, "Ann "), SIM_PB_HANDLE_TYPE_ADD, PB_RCODE_OK},
        {entry(1, 0, "Ann"), SIM_PB_HANDLE_TYPE_EDIT, PB_RCODE_OK},  // finding itself is no duplicate
        {entry(1, 0, "Bob"), SIM_PB_HANDLE_TYPE_EDIT, PB_RCODE_DUPLICATE_ERR},
        {entry(30, 0, "Bob"), SIM_PB_HANDLE_TYPE_EDIT, PB_RCODE_DUPLICATE_ERR},
        {entry(30, 0, "Nobody"), SIM_PB_HANDLE_TYPE_EDIT, PB_RCODE_INVALID_ERR},
        {entry(1, 0, "x"), SIM_PB_HANDLE_TYPE_DEL_ALL, PB_RCODE_INVALID_ERR},
    };
    for (auto r : rows)
        EXPECT_EQ(pb_func_write_sim(&r.info, r.ev, DEV), r.want) << r.info.name << " " << r.ev;
    EXPECT_EQ(file(DEV), "1:Ann 2:Bob 3:Ann ");

    sim_.refuse_next_writes(1);
    pb_flash_info kept = entry(0, 0, "Kept");
    EXPECT_EQ(pb_func_write_sim(&kept, SIM_PB_HANDLE_TYPE_ADD, SIM), PB_RCODE_OK);
    EXPECT_EQ(sim_.card().records.count(5), 0u);
    EXPECT_EQ(file(SIM), kCardFile + " 5@5:Kept");

    g_sim_module.pb_sim_init_flag = 0;
    EXPECT_EQ(pb_func_write_sim(&e, SIM_PB_HANDLE_TYPE_ADD, DEV), PB_RCODE_ERROR);
    EXPECT_EQ(pb_init_entries(), PB_RCODE_INIT_ERR);
}

}  // namespace
