// The modem simulator's card file: every line the parser refuses is named
// with its number; pbm_simd refuses bad options, serves a card file given on
// its command line and saves every change back to it.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "pbm_sim.h"

namespace {

// The line at fault is counted with the comments and blank lines skipped
// before it.
TEST(PbmCardFile, EachRefusedFileNamesTheLineAtFault)
{
    const std::string path = ::testing::TempDir() + "pbm_card_test.txt";
    const std::pair<const char *, int> cases[] = {
        {"1,123,no card line\n", 1},
        {"card 0 14 20\n", 1},
        {"card 10 14 20\n11,123,beyond the card\n", 2},
        {"# a comment\n\ncard 10 14 20\n1,12a,bad digit\n", 4},
        {"card 10 14 20\n1,123,one\n1,456,repeated\n", 3},
        {"card 10 14 20\n1,123\n", 2},
        {"card 10 14 20\n1,123,\xF0\x9F\x98\x80\n", 2},
    };
    for (const auto &c : cases) {
        std::ofstream(path, std::ios::trunc) << c.first;
        pbm_sim::Card back;
        std::string error;
        EXPECT_FALSE(pbm_sim::load_card(path, &back, &error)) << c.first;
        const std::string where = path + ":" + std::to_string(c.second) + ": ";
        EXPECT_EQ(0u, error.rfind(where, 0)) << c.first << " gave: " << error;
    }
    std::remove(path.c_str());
}

}  // namespace

#ifdef PBM_SIMD
#include <sys/stat.h>
#include <sys/wait.h>

#include "harness.h"
#include "phonebook_manager_service_v01.h"
#include "qmi_client.h"

namespace {

// pbm_simd once took a bad delay as 0 without a word. A bad option ends it
// with the usage status 2 before the card is loaded (the card named here
// does not exist: loading it would end with 1).
TEST(PbmSimd, RefusesBadOptionsNamingThem)
{
    const struct {
        const char *options, *error;
    } cases[] = {
        {"--start-delay abc", "--start-delay takes milliseconds from 0 to 3600000, not 'abc'"},
        {"--reply-delay -1", "not '-1'"},
        {"--start-delay 4294967296", "not '4294967296'"},  // would wrap to 0 as unsigned
        {"--reply-delay", "--reply-delay needs a value"},
        {"--bogus 1", "option '--bogus'"},
    };
    const std::string err = ::testing::TempDir() + "pbm_simd.err";
    for (const auto &c : cases) {
        const int st = std::system(
            (PBM_SIMD " --card no-such-card.txt " + std::string(c.options) + " 2>" + err).c_str());
        std::ifstream in(err);
        const std::string said{std::istreambuf_iterator<char>(in), {}};
        EXPECT_TRUE(WIFEXITED(st) && WEXITSTATUS(st) == 2) << c.options;
        EXPECT_NE(said.find(c.error), std::string::npos) << said;
    }
}

// The daemon serves a card file given on the command line and keeps it up to date.
TEST(PbmSimd, ServesACardFileAndSavesEveryChange)
{
    const char *dir = std::getenv("ZP_IPC_DIR");
    mkdir(dir, 0700);
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
#endif
