// The service inside the test process, fed as the host process feeds it
// (MU_ID's socket, mm_pb_proc from the receive thread), with the simulated
// modem in the same process. The test looks inside: exact answer heads, the
// card, the engine's flags, and the memory counters, which must be back where
// they started after every stop.
#include <gtest/gtest.h>

#include <map>

#include "harness.h"
#include "mm_pb.h"
#include "pb_qmi.h"
#include "pbm_sim.h"
#include "sim_cards.h"
#include "zp_ipc_host.h"
#include "zp_mem_host.h"
#include "zpt_ui_pb_func.h"

namespace {

using pbt::entry;
using pbt::kNoSim;
constexpr storage_type_t SIM = STORAGE_TYPE_SIM, DEV = STORAGE_TYPE_FLASH;
constexpr zp_uint32 SYN = IPC_SYN_REQ, ASY = IPC_ASY_MSG;
constexpr unsigned kRecords = 40;
const std::string kCardFile = "1@1:c1 2@2:c2 3@3:c3 4@4:c4";  // the card's four records, once read

// An entry named by its index alone (no name or number to compare).
pb_flash_info at(zp_uint32 index) { return pb_flash_info{index, 0, {}, {}, {}}; }

pbm_sim::Card card() { return pbt::numbered_card(4, kRecords, "c"); }

class Service : public ::testing::Test {
protected:
    void SetUp() override
    {
        pbt::remove_books();
        baseline_ = mem_live_total();
        ASSERT_TRUE(sim_.start(0));
        ASSERT_EQ(mm_pb_init(), 0);
        ASSERT_EQ(ipc_server_start(
                      MU_ID, [](void *m, void *) { mm_pb_proc(m); }, nullptr, &server_),
                  IPC_OK);
        // The thread takes a message only after the engine's start-up.
        ASSERT_TRUE(ask(SYN, {SIM_PB_HANDLE_TYPE_GETCOUNT, {}, DEV, {}}).arrived);
    }
    void TearDown() override
    {
        ipc_server_stop(server_);
        // No further message arrives: a stop that waited for one would hang
        // here until the test's time limit.
        EXPECT_EQ(mm_pb_fin(), 0);
        sim_.stop();
        // Every queued copy, IPC buffer and response is given back.
        EXPECT_EQ(mem_live_total(), baseline_);
        pbt::remove_books();
    }

    // Sends `req` as a message of `type`; the answer, unless told not to wait.
    pbt::raw_reply ask(zp_uint32 type, const pb_event_req_t &req, zp_uint32 session = 0, int ms = 5000)
    {
        return peer_.send(type, MSG_ID_PB_REQ, session, &req, sizeof req) ? peer_.receive(ms)
                                                                          : pbt::raw_reply{};
    }

    // The result the service answers a synchronous `event` with.
    zp_int32 result(zp_int32 event, const pb_flash_info &e, storage_type_t t)
    {
        return ask(SYN, {event, e, t, {1}}).rsp.pb_result;
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
        auto read = [&] {
            return (p = simlib_pb_read_handler(SIM, SIM_PB_HANDLE_TYPE_GETALL, &num)) != nullptr;
        };
        ASSERT_TRUE(pbt::wait_until(read, 10000));
        EXPECT_EQ(pbt::listing({p, p + num}), kCardFile);
        EXPECT_EQ(g_sim_module.pb_sim_max_count, static_cast<zp_int32>(kRecords));
    }

    // Whether the card holds exactly the SIM file's entries, each record once.
    bool card_is_file()
    {
        std::map<zp_uint32, std::string> on_card, in_file;
        for (const auto &[id, r] : sim_.card().records)
            on_card[id] = pbm_sim::ucs2_to_utf8(r.name);
        for (const pb_flash_info &e : pbt::read_book(SIM))
            EXPECT_TRUE(in_file.emplace(e.sim_index, e.name).second) << "record " << e.sim_index << " twice";
        return on_card == in_file;
    }

    long baseline_ = 0;
    pbm_sim::Simulator sim_{card()};
    ipc_server_pt server_ = nullptr;
    pbt::raw_peer peer_{"peer"};
};

// Requests still queued at the stop are answered "busy, ask again", and their
// copies are given back (TearDown checks).
TEST_F(Service, StopWithRequestsStillQueuedFreesThem)
{
    for (zp_uint32 k = 0; k < 100; ++k)
        ask(ASY, {SIM_PB_HANDLE_TYPE_ADD, entry(0, 0, "x"), DEV, {}}, k, 0);
    EXPECT_TRUE(peer_.receive(5000).arrived);
    peer_.close();
}

// Each step is one request on the wire, on the files the step before left.
// The answer is of the kind the request came as (a one-way request is
// answered one way), carries its session, and only an add reports a record
// index, whatever its result. Adds renumber the book densely and a SIM add
// takes the lowest free card record; deletes keep the other indexes; a
// delete-list skips bad or refused elements without ending; delete-all
// removes the file; unsupported actions change nothing; texts without a
// terminator are cut. A card that refuses leaves the file as it was; after
// every step the card holds exactly the SIM file's entries.
TEST_F(Service, EntryOperationsAnswerInKindAndChangeTheCardFirstThenTheFile)
{
    constexpr zp_int32 ADD = SIM_PB_HANDLE_TYPE_ADD, EDIT = SIM_PB_HANDLE_TYPE_EDIT,
                       DEL = SIM_PB_HANDLE_TYPE_DEL, DEL_ANY = SIM_PB_HANDLE_TYPE_DEL_ANY,
                       DEL_ALL = SIM_PB_HANDLE_TYPE_DEL_ALL;
    pb_flash_info unterminated = entry(0, 5, "");
    std::memset(&unterminated.name, 'n', 3 * PB_TEXT_LEN);
    const std::string cut(PB_TEXT_LEN - 1, 'n'), three = "1:a 3:C 4:" + cut,
                                                 four = "1@1:c1 2@3:Ed 3@4:c4 4@2:Gap";
    std::vector<int> device_list(PB_DEL_ANY_MAX, 0);
    device_list[0] = 3, device_list[2] = 3, device_list[3] = 1500, device_list[4] = -4;
    device_list.back() = 1;
    const struct {
        zp_uint32 type;
        storage_type_t book;
        zp_int32 event;
        pb_flash_info e;
        std::vector<int> list;  // of a delete-list
        unsigned refused;       // card writes refused
        zp_int32 want, value;
        std::string file;
    } steps[] = {
        {SYN, DEV, ADD, unterminated, {}, 0, PB_RCODE_OK, -1, "1:a 2:b 3:c 4:" + cut},
        // A delete that carries another entry than the one at the index.
        {SYN, DEV, DEL, entry(2, 0, "c"), {}, 0, PB_RCODE_CHANGED_ERR, 0, "1:a 2:b 3:c 4:" + cut},
        {ASY, DEV, DEL, at(2), {}, 0, PB_RCODE_OK, 0, "1:a 3:c 4:" + cut},
        {SYN, DEV, EDIT, entry(2, 0, "gone"), {}, 0, PB_RCODE_INVALID_ERR, 0, "1:a 3:c 4:" + cut},
        {ASY, DEV, EDIT, entry(3, 0, "C"), {}, 0, PB_RCODE_OK, 0, three},
        {SYN, DEV, SIM_PB_HANDLE_TYPE_GETBYIDX, entry(3, 0, "X"), {}, 0, PB_RCODE_ARGSERR, 0, three},
        {SYN, DEV, 13, entry(3, 0, "X"), {}, 0, PB_RCODE_ARGSERR, 0, three},
        {ASY, DEV, -1, entry(3, 0, "X"), {}, 0, PB_RCODE_ARGSERR, 0, three},
        {SYN, DEV, DEL_ANY, {}, device_list, 0, PB_RCODE_OK, 0, "4:" + cut},
        {SYN, DEV, DEL_ALL, {}, {}, 0, PB_RCODE_OK, 0, "none"},
        {SYN, SIM, DEL, at(2), {}, 0, PB_RCODE_OK, 0, "1@1:c1 3@3:c3 4@4:c4"},
        {SYN, SIM, ADD, entry(0, 0, "Gap"), {}, 0, PB_RCODE_OK, 2, "1@1:c1 2@3:c3 3@4:c4 4@2:Gap"},
        // The stored record number wins over the one the client sends.
        {ASY, SIM, EDIT, entry(2, 77, "Ed"), {}, 0, PB_RCODE_OK, 0, four},
        {SYN, SIM, ADD, entry(0, 0, "No"), {}, 1, PB_RCODE_SWAP_ERR, 5, four},
        {SYN, SIM, EDIT, entry(1, 0, "No"), {}, 1, PB_RCODE_SWAP_ERR, 0, four},
        {SYN, SIM, DEL, at(1), {}, 1, PB_RCODE_SWAP_ERR, 0, four},
        {SYN, SIM, DEL_ALL, {}, {}, 1, PB_RCODE_SWAP_ERR, 0, four},
        {SYN, SIM, DEL_ANY, {}, {2, 3}, 1, PB_RCODE_OK, 0, "1@1:c1 2@3:Ed 4@2:Gap"},
        {SYN, SIM, DEL_ALL, {}, {}, 0, PB_RCODE_OK, 0, "none"},
    };
    pbt::write_book(DEV, {entry(1, kNoSim, "a"), entry(3, kNoSim, "b"), entry(4, kNoSim, "c")});
    read_card();
    zp_uint32 session = 0xABCD0000;
    for (const auto &s : steps) {
        sim_.refuse_next_writes(s.refused);
        pb_event_req_t req{s.event, s.e, s.book, {}};
        std::copy(s.list.begin(), s.list.end(), req.any_idx);
        const pbt::raw_reply a = ask(s.type, req, ++session);
        const std::string step = std::to_string(s.book) + " " + std::to_string(s.event) + " " + s.e.name;
        ASSERT_TRUE(a.arrived) << step;
        EXPECT_EQ(a.head.msg_type, s.type == SYN ? zp_uint32{IPC_SYN_RSP} : ASY) << step;
        EXPECT_EQ(a.head.msg_id, MSG_ID_PB_RSP);
        EXPECT_EQ(a.head.session_id, session);
        EXPECT_EQ(a.rsp.pb_result, s.want) << step;
        EXPECT_EQ(a.rsp.value, s.value) << step;
        EXPECT_EQ(file(s.book), s.file) << step;
        EXPECT_TRUE(card_is_file()) << step;
    }
    // A response, or a message of another module, is not answered (its
    // copy is freed all the same: TearDown).
    pb_rsp_t stray{1, 2};
    ASSERT_TRUE(peer_.send(IPC_ASY_MSG, MSG_ID_PB_RSP, 9, &stray, sizeof stray));
    ASSERT_TRUE(peer_.send(IPC_ASY_MSG, 0x12345678u, 9, &stray, sizeof stray));
    EXPECT_FALSE(peer_.receive(200).arrived);
    // The client refuses before sending what the service cannot take: more
    // elements than a delete-list holds, and an add without an entry (the
    // service would store an empty one, and the record index has nowhere
    // to go).
    EXPECT_EQ(simlib_pb_del_any(DEV, device_list.data(), PB_DEL_ANY_MAX + 1), PB_RCODE_ARGSERR);
    EXPECT_EQ(simlib_pb_write_handler(DEV, SIM_PB_HANDLE_TYPE_ADD, nullptr), PB_RCODE_ARGSERR);
}

// A SIM change before the card has been read to the end, the very first
// request or any while the read runs, is answered "not read yet" without
// touching card or file, and the first one starts the read. Here the modem
// hangs up half-way through the read: the read ends as not read, is started
// again over a new client into a fresh file, and then changes land and the
// file is the card, each record once. The device phonebook never waits.
TEST_F(Service, SimChangesWaitUntilTheCardIsRead)
{
    sim_.set_records_per_indication(1);
    sim_.hang_up_after_indications(2);
    const zp_int32 changes[] = {SIM_PB_HANDLE_TYPE_ADD, SIM_PB_HANDLE_TYPE_EDIT, SIM_PB_HANDLE_TYPE_DEL,
                                SIM_PB_HANDLE_TYPE_DEL_ANY, SIM_PB_HANDLE_TYPE_DEL_ALL};
    for (zp_int32 ev : changes)
        EXPECT_EQ(result(ev, entry(1, 1, "Early"), SIM), PB_RCODE_READED_ERR) << ev;
    EXPECT_EQ(sim_.requests(QMI_PBM_READ_RECORDS_REQ_V01), 1u) << "the first change starts the read";
    EXPECT_EQ(result(SIM_PB_HANDLE_TYPE_ADD, entry(0, 0, "Dev"), DEV), PB_RCODE_OK);
    EXPECT_EQ(sim_.card().records.size(), 4u);

    ASSERT_TRUE(pbt::wait_until(pbt::sim_book_read, 10000));
    EXPECT_EQ(file(SIM), kCardFile);
    EXPECT_EQ(sim_.requests(QMI_PBM_READ_RECORDS_REQ_V01), 2u);
    EXPECT_EQ(result(SIM_PB_HANDLE_TYPE_ADD, entry(0, 0, "Late"), SIM), PB_RCODE_OK);
    EXPECT_EQ(file(SIM), kCardFile + " 5@5:Late");
    EXPECT_TRUE(card_is_file());
}

// Read indications count only when they come from the service's own
// process while a read runs: one from another socket, before or during the
// read, or one from inside after it, changes nothing.
TEST_F(Service, ReadIndicationsOnlyFromInsideWhileReading)
{
    pbm_record_read_ind_msg_v01 forged{}, empty{};
    auto &rec = forged.basic_record_data.record_instances[0];
    forged.basic_record_data.record_instances_len = 1;
    rec.record_id = 9, rec.name_len = 2, rec.name[0] = 'F';
    const auto send = [this](const pbm_record_read_ind_msg_v01 &ind) {
        ASSERT_TRUE(peer_.send(ASY, MSG_ID_PB_READ_IND, 1, &ind, sizeof ind));
    };
    send(empty);  // would end a read that has not begun
    send(forged);
    sim_.set_reply_delay(300);
    EXPECT_FALSE(pbt::sim_book_read());
    send(forged);  // during the read
    ASSERT_TRUE(pbt::wait_until(pbt::sim_book_read, 10000));
    EXPECT_EQ(file(SIM), kCardFile);
    EXPECT_EQ(pb_send_request_asyn(MU_ID, MSG_ID_PB_READ_IND, &forged, sizeof forged), PB_RCODE_OK);
    // Answered after the indication: it has been handled by then.
    ASSERT_TRUE(ask(SYN, {SIM_PB_HANDLE_TYPE_GETCOUNT, {}, DEV, {}}).arrived);
    EXPECT_EQ(file(SIM), kCardFile);
}

// The dispatcher, called directly while the service thread is idle: flags
// first, exact-name duplicates refused, and the file saved even when the
// card refuses. (A change before the read and an edit of no entry are
// answered over the wire above.)
TEST_F(Service, DispatcherChecksFlagsAndNamesAndSavesDespiteTheCard)
{
    pb_flash_info e = entry(0, 0, "Early");
    EXPECT_EQ(pb_func_write_sim(nullptr, SIM_PB_HANDLE_TYPE_ADD, DEV), PB_RCODE_INVALID_ERR);
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
