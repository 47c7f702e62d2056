// pbm_simd, the modem simulator's daemon: it serves a card file given on its
// command line and saves every change back to it. (The simulator's refusals
// that the module's tests rely on are the QMI client test's.)
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "harness.h"
#include "make_dirs.h"
#include "pbm_sim.h"
#include "phonebook_manager_service_v01.h"
#include "qmi_client.h"

namespace {

TEST(PbmSimd, ServesACardFileAndSavesEveryChange)
{
    const char *dir = std::getenv("ZP_IPC_DIR");
    // The test may be the first of its build tree to run: the folder's
    // parent, which the others share, may not be there yet.
    ASSERT_EQ(zp_host::make_dirs(dir, 0700), 0) << dir;
    const std::string base = std::string(dir) + "/simd";
    const std::string card = base + "_card.txt", sock = base + ".sock";
    std::ofstream(card) << "card 5 14 20\n1,+123P4,B\u00fcro, Anna\n";
    setenv("ZP_QMI_SOCKET", sock.c_str(), 1);
    pbt::child simd({PBM_SIMD, "--card", card});

    qmi_idl_service_object_type svc = pbm_get_service_object_internal_v01(1, 16, 6);
    qmi_service_info info[1];
    unsigned entries = 1, services = 0;
    const auto offered = [&] {
        entries = 1;  // a failed query reports no entry
        return qmi_client_get_service_list(svc, info, &entries, &services) == 0;
    };
    ASSERT_TRUE(pbt::wait_until(offered, 5000));
    qmi_client_type client = nullptr;
    ASSERT_EQ(QMI_NO_ERR, qmi_client_init(&info[0], svc, nullptr, nullptr, nullptr, &client));
    pbm_write_record_req_msg_v01 req{};
    req.record_information = {PBM_SESSION_TYPE_GLOBAL_PB_SLOT1_V01, 1, 0, {}, {}, 3, "4e5", 2, "B"};
    pbm_write_record_resp_msg_v01 rsp{};
    ASSERT_EQ(QMI_NO_ERR, qmi_client_send_msg_sync(client, 0x0005, &req, sizeof req, &rsp, sizeof rsp, 2000));
    EXPECT_EQ(2, rsp.record_id);
    EXPECT_EQ(QMI_NO_ERR, qmi_client_release(client));

    EXPECT_EQ(simd.wait(5000, SIGTERM), 0);
    unsetenv("ZP_QMI_SOCKET");

    pbm_sim::Card back;
    std::string error;
    ASSERT_TRUE(pbm_sim::load_card(card, &back, &error)) << error;
    ASSERT_EQ(2u, back.records.size());
    EXPECT_EQ("4P5", back.records.at(2).number);
    EXPECT_EQ(u"B", back.records.at(2).name);
    EXPECT_EQ(5, back.max_records);
    EXPECT_EQ(u"B\u00fcro, Anna", back.records.at(1).name) << "a comma and a non-ASCII letter in a name";
    EXPECT_EQ("+123P4", back.records.at(1).number);
}

}  // namespace
