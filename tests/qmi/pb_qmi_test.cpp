// The module's PBM client against the simulated modem over the real socket,
// with the forwarded indications taken off IPC and stored the way the
// service thread does it: waiting for a late modem, whole-SIM reads into the
// SIM phonebook file, the NV items, and what each write sends.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <vector>

#include "forwarded_indications.h"
#include "harness.h"
#include "nvmanager.h"
#include "pb_qmi.h"
#include "pbm_sim.h"
#include "zp_ipc_host.h"
#include "zpt_ui_pb_func.h"

namespace {

using namespace std::chrono;

std::vector<pb_flash_info> sim_file() { return pbt::read_book(STORAGE_TYPE_SIM); }

pbm_sim::Card card_of(unsigned filled, uint16_t max = 250)
{
    pbm_sim::Card c;
    c.max_records = max;
    c.max_name_len = 120;
    c.max_num_len = 40;
    for (unsigned i = 1; i <= filled; ++i)  // every other record, so indexes and record numbers differ
        c.records[static_cast<uint16_t>(2 * i)] = {
            u"n" + std::u16string(1, static_cast<char16_t>(u'a' + i % 26)), std::to_string(1000 + i)};
    return c;
}

class PbQmi : public ::testing::Test {
protected:
    void SetUp() override
    {
        simlib_clear_flash(STORAGE_TYPE_SIM);
        std::memset(&g_sim_module, 0, sizeof g_sim_module);
        g_sim_module.pb_sim_init_flag = 1;
        ASSERT_EQ(IPC_OK, ipc_server_start(MU_ID, ForwardedIndications::on_message, &forwarded, &server));
    }

    void TearDown() override
    {
        if (connected)
            pb_qmi_fin();
        ipc_server_stop(server);
        sim.stop();
        simlib_clear_flash(STORAGE_TYPE_SIM);
    }

    void start(const pbm_sim::Card &card)
    {
        sim.set_card(card);
        sim.start();
        EXPECT_EQ(0, pb_qmi_init());
        connected = true;
    }

    // Stores forwarded indications, as the service thread does, until the
    // read flag leaves 2; how many it took.
    int store_until_read()
    {
        int n = 0;
        std::vector<uint8_t> payload;
        while (g_sim_module.pb_sim_read_flag == 2 && forwarded.pop(&payload, seconds(5))) {
            EXPECT_EQ(PB_RCODE_OK,
                      pb_qmi_read_cb(reinterpret_cast<pbm_record_read_ind_msg_v01 *>(payload.data())));
            ++n;
        }
        return n;
    }

    pbm_sim::Simulator sim;
    ForwardedIndications forwarded;
    ipc_server_pt server = nullptr;
    bool connected = false;
};

// A late modem is waited for; an empty SIM is read at once, with no
// indication to wait for, and its capabilities reach NV.
TEST_F(PbQmi, InitWaitsForALateModemAndAnEmptySimIsReadAtOnce)
{
    pbm_sim::Card card = card_of(0);
    card.max_name_len = 14;
    card.max_num_len = 20;
    sim.set_card(card);
    const auto t0 = steady_clock::now();
    sim.start(400);
    EXPECT_EQ(0, pb_qmi_init());
    connected = true;
    EXPECT_GE(steady_clock::now() - t0, milliseconds(350));
    ASSERT_EQ(0, pb_qmi_get_all()) << "the client is connected once init returns";
    EXPECT_EQ(1, g_sim_module.pb_sim_read_flag);
    std::vector<uint8_t> payload;
    EXPECT_FALSE(forwarded.pop(&payload, milliseconds(200))) << "no indication follows an empty read";
    // Each value is stored with its NUL.
    for (const auto &nv : {std::make_pair("pb_sim_max_count", std::string("250", 4)),
                           std::make_pair("pb_sim_name_maxlen", std::string("14", 3)),
                           std::make_pair("pb_sim_number_maxlen", std::string("20", 3))}) {
        char value[32];
        int len = 0;
        ASSERT_EQ(NV_OK, nvmram_readnv(nv.first, value, sizeof value, &len)) << nv.first;
        EXPECT_EQ(nv.second, std::string(value, static_cast<size_t>(len))) << nv.first;
    }

    // Released handles keep their values; using or releasing them again must
    // be refused, not followed.
    EXPECT_EQ(0, pb_qmi_fin());
    connected = false;
    EXPECT_EQ(0, pb_qmi_fin());
    EXPECT_EQ(-1, pb_qmi_del_all());
}

// The first four records try the forms a name and a number can take.
TEST_F(PbQmi, ReadOfTwentyFiveRecordsEndsWithTheThirdIndicationInTheSystemForm)
{
    pbm_sim::Card card = card_of(25);
    card.records[2] = {u"AB", "+123"};
    card.records[4] = {u"", "123"};
    card.records[6] = {std::u16string(20, u'\u20AC'), "12P3W*#T"};  // 60 bytes of UTF-8
    card.records[8] = {std::u16string(120, u'z'), "+" + std::string(40, '9')};
    start(card);
    ASSERT_EQ(0, pb_qmi_get_all());
    EXPECT_EQ(2, g_sim_module.pb_sim_read_flag);
    EXPECT_EQ(25, g_sim_module.pb_sim_used);
    EXPECT_EQ(250, g_sim_module.pb_sim_max_count);
    EXPECT_EQ(3, store_until_read()) << "not ended by the third indication of 10, 10 and 5 records";
    EXPECT_EQ(1, g_sim_module.pb_sim_read_flag);

    const std::vector<pb_flash_info> f = sim_file();
    ASSERT_EQ(25u, f.size());
    const struct {
        std::string name, num;
    } forms[] = {
        {"AB", "+123"},
        {"", "123"},  // an empty name is stored all the same
        {pbm_sim::ucs2_to_utf8(std::u16string(16, u'\u20AC')), "12P3W*#T"},  // cut at a whole character
        {std::string(50, 'z'), "+" + std::string(40, '9')}};
    for (uint32_t i = 0; i < 25; ++i) {
        EXPECT_EQ(i + 1, f[i].index);
        EXPECT_EQ(2 * (i + 1), f[i].sim_index);
        EXPECT_EQ(i < 4 ? forms[i].num : std::to_string(1001 + i), f[i].num);
        if (i < 4) {
            EXPECT_EQ(forms[i].name, f[i].name);
        }
    }
}

TEST_F(PbQmi, FaultyIndicationsAreDroppedAndTheReadStillCompletes)
{
    start(card_of(11));
    pb_flash_info probe{};
    probe.sim_index = 999;
    EXPECT_EQ(-1, pb_qmi_del_entry(&probe));  // a request first, so the connection is in place
    sim.send_raw_indication(0x0004, {0x01, 0x09, 0x00, 1, 0, 6, 0, 0, 0, 1, 0, 11});  // 11 records
    sim.send_raw_indication(0x0004, {0x01, 0xFF, 0xFF});
    sim.send_raw_indication(0x0009, {});
    std::vector<uint8_t> payload;
    EXPECT_FALSE(forwarded.pop(&payload, milliseconds(300)));

    ASSERT_EQ(0, pb_qmi_get_all());
    EXPECT_EQ(2, store_until_read()) << "11 records end with the second indication, not one record early";
    EXPECT_EQ(1, g_sim_module.pb_sim_read_flag);
    EXPECT_EQ(11u, sim_file().size());

    auto *bad = new pbm_record_read_ind_msg_v01{};
    bad->basic_record_data.record_instances_len = 11;  // as if corrupted on the way
    EXPECT_NE(PB_RCODE_OK, pb_qmi_read_cb(bad));
    delete bad;
    EXPECT_EQ(11u, sim_file().size());
}

// Adds send the PBM form and take the card's record number; edits and
// deletes need one and are refused without a request; a refused write or a
// modem that went away fails, and a read is then not marked started.
TEST_F(PbQmi, WritesSendThePbmFormAndFailWithoutARecordOrAModem)
{
    pbm_sim::Card card = card_of(0, 10);
    card.records[1] = {u"x", "1"};
    card.records[9] = {u"old", "1"};
    start(card);
    const struct {
        const char *name;
        std::string num, sent_name, sent_num;  // names go UCS-2 low byte first
    } cases[] = {
        {"AB", "+4930P1W2", std::string("A\0B\0", 4), "+4930e1?2"},
        {"", "1", "", "1"},
        {"\xE2\x82\xAC", std::string(45, '7'), "\xAC\x20", std::string(39, '7')},
    };
    uint32_t expect_record = 2;
    for (const auto &c : cases) {
        pb_flash_info e = pbt::entry(0, 77, c.name, c.num);
        ASSERT_EQ(0, pb_qmi_add_entry(&e)) << c.name;
        EXPECT_EQ(expect_record++, e.sim_index) << "the card picks the lowest free record";
        const pbm_record_information_type_v01 w = sim.last_write().record_information;
        EXPECT_EQ(0, w.record_id);
        EXPECT_EQ(c.sent_name, std::string(w.name, w.name_len));
        EXPECT_EQ(c.sent_num, std::string(w.number, w.number_len));
        EXPECT_EQ(0, w.number[39]);
    }
    sim.omit_next_record_id();
    pb_flash_info e = pbt::entry(0, 77, "C", "5");
    EXPECT_EQ(0, pb_qmi_add_entry(&e));
    EXPECT_EQ(77u, e.sim_index) << "an answer without a record number keeps sim_index";
    sim.refuse_next_writes(1);
    e = pbt::entry(0, 77, "D", "6");
    EXPECT_EQ(-1, pb_qmi_add_entry(&e));
    EXPECT_EQ(77u, e.sim_index);

    const unsigned writes = sim.requests(0x0005) + sim.requests(0x0006);
    pb_flash_info none = pbt::entry(0, 0, "x", "1");
    EXPECT_EQ(-1, pb_qmi_edit_entry(&none));
    EXPECT_EQ(-1, pb_qmi_del_entry(&none));
    EXPECT_EQ(-1, pb_qmi_edit_entry(nullptr));
    EXPECT_EQ(writes, sim.requests(0x0005) + sim.requests(0x0006)) << "refused without a request";
    e = pbt::entry(0, 9, "new", "+2");
    ASSERT_EQ(0, pb_qmi_edit_entry(&e));
    EXPECT_EQ(9, sim.last_write().record_information.record_id);
    EXPECT_EQ(u"new", sim.card().records.at(9).name);
    EXPECT_EQ("+2", sim.card().records.at(9).number);
    ASSERT_EQ(0, pb_qmi_del_entry(&e));
    EXPECT_EQ(-1, pb_qmi_del_entry(&e)) << "the record is gone";
    EXPECT_EQ(0, pb_qmi_del_all());
    EXPECT_TRUE(sim.card().records.empty());
    sim.refuse_next_writes(1);
    EXPECT_EQ(-1, pb_qmi_del_all());

    sim.stop();
    EXPECT_EQ(-1, pb_qmi_add_entry(&e));
    EXPECT_EQ(-1, pb_qmi_get_all());
    EXPECT_EQ(0, g_sim_module.pb_sim_read_flag);
}

}  // namespace
