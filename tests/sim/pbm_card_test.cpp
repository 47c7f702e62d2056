// The modem simulator's card file: every line the parser refuses is named
// with its number, and pbm_simd serves a card file given on its command line
// and saves every change back to it.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
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
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <thread>

#include "phonebook_manager_service_v01.h"
#include "qmi_client.h"

extern char **environ;

namespace {

// The daemon serves a card file given on the command line and keeps it up to date.
TEST(PbmSimd, ServesACardFileAndSavesEveryChange)
{
    const char *dir = std::getenv("ZP_IPC_DIR");
    mkdir(dir, 0700);
    const std::string base = std::string(dir) + "/simd";
    const std::string card = base + "_card.txt", sock = base + ".sock";
    std::ofstream(card) << "card 5 14 20\n1,+123P4,B\u00fcro, Anna\n";
    setenv("ZP_QMI_SOCKET", sock.c_str(), 1);
    std::string a0 = "pbm_simd", a1 = "--card", a2 = card;
    char *argv[] = {a0.data(), a1.data(), a2.data(), nullptr};
    pid_t pid = 0;
    ASSERT_EQ(0, posix_spawn(&pid, PBM_SIMD, nullptr, nullptr, argv, environ));

    qmi_idl_service_object_type svc = pbm_get_service_object_internal_v01(1, 16, 6);
    qmi_service_info info[1];
    unsigned entries = 1, services = 0;
    for (int i = 0; i < 500 && qmi_client_get_service_list(svc, info, &entries, &services) != 0; ++i) {
        entries = 1;  // a failed query reports no entry
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    qmi_client_type client = nullptr;
    ASSERT_EQ(QMI_NO_ERR, qmi_client_init(&info[0], svc, nullptr, nullptr, nullptr, &client));
    pbm_write_record_req_msg_v01 req{};
    req.record_information = {PBM_SESSION_TYPE_GLOBAL_PB_SLOT1_V01,
                              1,
                              0,
                              PBM_NUM_TYPE_UNKNOWN_V01,
                              PBM_NUM_PLAN_UNKNOWN_V01,
                              3,
                              "4e5",
                              2,
                              "B"};
    pbm_write_record_resp_msg_v01 rsp{};
    ASSERT_EQ(QMI_NO_ERR, qmi_client_send_msg_sync(client, 0x0005, &req, sizeof req, &rsp, sizeof rsp, 2000));
    EXPECT_EQ(2, rsp.record_id);
    EXPECT_EQ(QMI_NO_ERR, qmi_client_release(client));

    kill(pid, SIGTERM);
    int status = -1;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
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
