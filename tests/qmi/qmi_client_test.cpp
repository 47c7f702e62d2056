// The QMI client library against the simulated PBM service over the real
// socket: requests and their time limits, the indication thread, and what the
// simulated card refuses (a card that took a bad write would hide a module
// fault). The wait for a late modem is the module's own test.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "pbm_sim.h"
#include "phonebook_manager_service_v01.h"
#include "qmi_client.h"

namespace {

using namespace std::chrono;

constexpr pbm_session_type_enum_v01 SLOT1 = PBM_SESSION_TYPE_GLOBAL_PB_SLOT1_V01;

struct Indications {
    std::mutex mu;
    std::condition_variable cv;
    std::vector<pbm_record_read_ind_msg_v01> decoded;
    std::thread::id thread;
};

void on_indication(qmi_client_type h, unsigned long id, unsigned char *buf, int len, void *data)
{
    auto *ind = static_cast<Indications *>(data);
    auto *m = new pbm_record_read_ind_msg_v01;
    if (qmi_client_message_decode(h, QMI_IDL_INDICATION, static_cast<unsigned>(id), buf,
                                  static_cast<unsigned>(len), m, sizeof *m) == 0) {
        std::lock_guard<std::mutex> lk(ind->mu);
        ind->thread = std::this_thread::get_id();
        ind->decoded.push_back(*m);
        ind->cv.notify_all();
    }
    delete m;
}

class QmiClient : public ::testing::Test {
protected:
    void TearDown() override
    {
        if (client) {
            EXPECT_EQ(QMI_NO_ERR, qmi_client_release(client));
        }
    }

    // Starts the modem with this card and connects once it offers the service.
    void up(const pbm_sim::Card &card)
    {
        sim.set_card(card);
        ASSERT_TRUE(sim.start());
        for (int i = 0; i < 200 && qmi_client_get_service_list(svc, nullptr, nullptr, nullptr) != 0; ++i)
            std::this_thread::sleep_for(milliseconds(5));
        qmi_service_info info[3];
        unsigned entries = 3, services = 0;
        ASSERT_EQ(QMI_NO_ERR, qmi_client_get_service_list(svc, info, &entries, &services));
        ASSERT_EQ(1u, entries);
        ASSERT_EQ(QMI_NO_ERR, qmi_client_init(&info[0], svc, on_indication, &inds, nullptr, &client));
    }

    template <typename Req, typename Rsp> int send(unsigned id, Req req, Rsp *rsp, unsigned ms = 2000)
    {
        return qmi_client_send_msg_sync(client, id, &req, sizeof req, rsp, sizeof *rsp, ms);
    }

    pbm_sim::Simulator sim;
    qmi_idl_service_object_type svc = pbm_get_service_object_internal_v01(1, 16, 6);
    qmi_client_type client = nullptr;
    Indications inds;
};

// What the card takes is read back in PBM form: names as UCS-2 low byte
// first, numbers in PBM's letters with the "+" as num_type; the callback
// runs on the library's own thread.
TEST_F(QmiClient, CardRefusesWhatItCannotStoreAndReadsBackInPbmForm)
{
    pbm_sim::Card card;
    card.max_records = 3;
    card.max_name_len = 4;
    card.max_num_len = 6;
    up(card);
    struct Case {
        const char *what;
        uint16_t id;
        const char *number;
        uint32_t name_len;
        int error;  // 0: written
        uint16_t record;
    } cases[] = {
        {"add picks record 1", 0, "+123456", 8, 0, 1},
        {"add picks record 2", 0, "1e?", 2, 0, 2},
        {"name of 5 characters", 0, "1", 10, QMI_ERR_PB_TEXT_TOO_LONG_V01, 0},
        {"number of 7 digits", 0, "1234567", 2, QMI_ERR_PB_NUMBER_TOO_LONG_V01, 0},
        {"system letter P not converted", 0, "12P", 2, QMI_ERR_INVALID_ARG_V01, 0},
        {"record beyond the card", 4, "1", 2, QMI_ERR_INVALID_INDEX_V01, 0},
        {"edit of record 2", 2, "9e?", 2, 0, 2},
        {"add picks record 3", 0, "1", 2, 0, 3},
        {"no free record", 0, "1", 2, QMI_ERR_DEVICE_STORAGE_FULL_V01, 0},
    };
    for (const Case &c : cases) {
        pbm_write_record_req_msg_v01 req{};
        req.record_information = {SLOT1, 1,  c.id,       PBM_NUM_TYPE_UNKNOWN_V01, PBM_NUM_PLAN_UNKNOWN_V01,
                                  0,     "", c.name_len, "A\0B\0C\0D\0E"};
        req.record_information.number_len = static_cast<uint32_t>(std::strlen(c.number));
        std::memcpy(req.record_information.number, c.number, std::strlen(c.number));
        pbm_write_record_resp_msg_v01 rsp{};
        ASSERT_EQ(QMI_NO_ERR, send(0x0005, req, &rsp)) << c.what;
        EXPECT_EQ(c.error ? QMI_RESULT_FAILURE_V01 : QMI_RESULT_SUCCESS_V01, rsp.resp.result) << c.what;
        EXPECT_EQ(c.error, rsp.resp.error) << c.what;
        EXPECT_EQ(c.record, rsp.record_id) << c.what;
    }
    EXPECT_EQ("+123456", sim.card().records.at(1).number);
    EXPECT_EQ(u"ABCD", sim.card().records.at(1).name);
    EXPECT_EQ("9PW", sim.card().records.at(2).number);

    pbm_read_records_resp_msg_v01 rsp{};
    ASSERT_EQ(QMI_NO_ERR, send(0x0004, pbm_read_records_req_msg_v01{{SLOT1, 1, 1, 3}}, &rsp));
    EXPECT_EQ(3, rsp.num_of_recs);
    std::unique_lock<std::mutex> lk(inds.mu);
    ASSERT_TRUE(inds.cv.wait_for(lk, seconds(5), [&] { return !inds.decoded.empty(); }));
    ASSERT_EQ(1u, inds.decoded.size());
    EXPECT_NE(std::this_thread::get_id(), inds.thread);
    const pbm_record_instance_type_v01 *r = inds.decoded[0].basic_record_data.record_instances;
    EXPECT_EQ(1, r[0].record_id);
    EXPECT_EQ(PBM_NUM_TYPE_INTERNATIONAL_V01, r[0].num_type);
    EXPECT_EQ("123456", std::string(r[0].number, r[0].number_len));
    EXPECT_EQ(std::string("A\0B\0C\0D\0", 8), std::string(r[0].name, r[0].name_len));
    EXPECT_EQ(PBM_NUM_TYPE_UNKNOWN_V01, r[1].num_type);
    EXPECT_EQ("9e?", std::string(r[1].number, r[1].number_len));
}

TEST_F(QmiClient, SlowSilentOrVanishingServiceIsAnErrorResult)
{
    up(pbm_sim::Card{});
    pbm_write_record_req_msg_v01 add{};
    add.record_information = {SLOT1, 1, 0, {}, {}, 1, "1", 2, "A"};
    pbm_write_record_resp_msg_v01 added{};
    // A wait past the limit would take the answer and return QMI_NO_ERR.
    sim.set_reply_delay(400);
    EXPECT_EQ(QMI_TIMEOUT_ERR, send(0x0005, add, &added, 100));
    // The late answer to the first add (record 1) must not be taken for the
    // second's (record 2): same message, told apart by the transaction only.
    sim.set_reply_delay(0);
    ASSERT_EQ(QMI_NO_ERR, send(0x0005, add, &added, 3000));
    EXPECT_EQ(2, added.record_id);

    const pbm_get_pb_capabilities_req_msg_v01 req{{SLOT1, 1}};
    pbm_get_pb_capabilities_resp_msg_v01 rsp{};
    sim.set_silent(true);
    EXPECT_EQ(QMI_TIMEOUT_ERR, send(0x0002, req, &rsp, 100));

    std::thread stopper([&] {
        std::this_thread::sleep_for(milliseconds(100));
        sim.stop();
    });
    // A request that missed the service's end would run out its time: QMI_TIMEOUT_ERR.
    EXPECT_EQ(QMI_SERVICE_ERR, send(0x0002, req, &rsp, 30000));
    stopper.join();
    EXPECT_EQ(QMI_SERVICE_ERR, send(0x0002, req, &rsp, 100));
    EXPECT_EQ(QMI_IDL_LIB_BUFFER_TOO_SMALL,
              qmi_client_send_msg_sync(
                  client, 0x0002, const_cast<pbm_get_pb_capabilities_req_msg_v01 *>(&req), 8, &rsp, 71, 100));
}

}  // namespace
