// pbcli end to end: the tool as a user runs it, against pb_host and the
// modem simulator on its real socket. Checks exit statuses, parses the JSON
// output back with python3's json module, and looks at the card and the files
// behind it.
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "harness.h"
#include "pbm_sim.h"

namespace {

using namespace std::chrono_literals;

const std::string kWork = TEST_WORK_DIR;

std::string slurp(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// python3's strict JSON parser flattens the document to "path<TAB>value"
// lines: "entries.0.name", "deleted.#" for an array's length; strings as
// they are, everything else as JSON text. It fails on anything not JSON.
const char kFlatten[] = R"(python3 -c '
import json, sys
def flat(p, v):
    if isinstance(v, list): print(p + "#", len(v), sep="\t")
    if isinstance(v, (dict, list)):
        for k, x in v.items() if isinstance(v, dict) else enumerate(v): flat(p + str(k) + ".", x)
    else: print(p[:-1], v if isinstance(v, str) else json.dumps(v), sep="\t")
flat("", json.load(sys.stdin))
' <)";

struct Outcome {
    int status = -1;
    std::string out, err;
    std::map<std::string, std::string> js;
};

// Runs pbcli through the shell; a hang is left to the test's time limit.
// With --json the output must parse and "ok" must match the status.
Outcome pbcli(const std::vector<std::string> &args, bool json = true)
{
    const std::string out = kWork + "/pbcli.out", err = kWork + "/pbcli.err", flat = kWork + "/pbcli.flat";
    std::string cmd = PBCLI_BIN + std::string(json ? " --json" : "");
    for (const auto &a : args) {
        cmd += " '";
        for (char c : a)
            cmd += c == '\'' ? std::string("'\\''") : std::string(1, c);
        cmd += "'";
    }
    const int st = std::system((cmd + " >" + out + " 2>" + err).c_str());
    Outcome r{WIFEXITED(st) ? WEXITSTATUS(st) : -1, slurp(out), slurp(err), {}};
    if (!json)
        return r;
    EXPECT_EQ(std::system(("PYTHONIOENCODING=utf-8 " + std::string(kFlatten) + out + " >" + flat).c_str()), 0)
        << "not JSON: " << r.out;
    std::istringstream lines(slurp(flat));
    for (std::string line; std::getline(lines, line);)
        r.js[line.substr(0, line.find('\t'))] = line.substr(line.find('\t') + 1);
    EXPECT_EQ(r.js["ok"], r.status == 0 ? "true" : "false") << r.out;
    return r;
}

class PbcliE2e : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::remove(PB_DATA_DIR "/pb_device_file");
        const std::string card = kWork + "/e2e_card.txt";
        std::ofstream(card) << "card 20 14 20\n1,+4930123456,Zoë Müller\n2,84957654321,Анна Каренина\n"
                               "4,+8613800138000,王小明\n5,112,Emergency\n7,*100#,Balance\n";
        pbm_sim::Card c;
        std::string error;
        ASSERT_TRUE(pbm_sim::load_card(card, &c, &error)) << error;
        sim_ = std::make_unique<pbm_sim::Simulator>(c);
        ASSERT_TRUE(sim_->start());
        setenv("ZP_LOG_FILE", (kWork + "/pbcli_e2e_host.log").c_str(), 1);
        start_host();
    }

    void TearDown() override
    {
        stop_host();
        sim_->stop();
    }

    // Up when pb_host's socket takes datagrams (a file left by a host that
    // died may be there before); no request is sent, so the card stays unread.
    void start_host()
    {
        host_.emplace(std::vector<std::string>{PB_HOST_BIN});
        const std::string path = std::getenv("ZP_IPC_DIR") + std::string("/ipc_11");
        const auto up = [&path] {
            sockaddr_un a{AF_UNIX, {}};
            std::snprintf(a.sun_path, sizeof a.sun_path, "%s", path.c_str());
            const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
            const bool ok = connect(probe, reinterpret_cast<sockaddr *>(&a), sizeof a) == 0;
            close(probe);
            return ok;
        };
        ASSERT_TRUE(pbt::wait_until(up, 10000)) << "pb_host did not come up";
    }

    // A clean stop is status 0; a sanitizer report, a crash or a host that
    // ignores SIGTERM is not.
    void stop_host()
    {
        EXPECT_EQ(host_ ? host_->wait(30000, SIGTERM) : 0, 0) << "pb_host did not stop cleanly";
        host_.reset();
    }

    std::string card_name(int record)
    {
        auto recs = sim_->card().records;
        auto it = recs.find(static_cast<uint16_t>(record));
        return it == recs.end() ? "<empty>" : pbm_sim::ucs2_to_utf8(it->second.name);
    }

    std::unique_ptr<pbm_sim::Simulator> sim_;
    std::optional<pbt::child> host_;
};

// The SIM phonebook as pbcli lists it: "index/record name number" lines.
std::string listed_sim()
{
    Outcome r = pbcli({"list", "sim"});
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    std::string s;
    for (int i = 0; i < std::atoi(r.js["count"].c_str()); ++i) {
        const std::string e = "entries." + std::to_string(i) + ".";
        s += r.js[e + "index"] + "/" + r.js[e + "sim_index"] + " " + r.js[e + "name"] + " " +
             r.js[e + "number"] + "\n";
    }
    return s;
}

const std::string kListed = "1/1 Zoë Müller +4930123456\n2/2 Анна Каренина 84957654321\n"
                            "3/4 王小明 +8613800138000\n4/5 Emergency 112\n5/7 Balance *100#\n";

TEST_F(PbcliE2e, SeveralIndexesAreDoneAndTheMissingOnesReported)
{
    const std::string csv = kWork + "/e2e_import.csv", out = kWork + "/e2e_export.csv";
    std::ofstream(csv)
        << "+491711234567,Jürgen Groß,j@example.de\n+74957654321,Ольга,\n+861087654321,李娜,\n";
    ASSERT_EQ(pbcli({"import", csv}).js["added"], "3");

    Outcome exp = pbcli({"export", "device", out, "3", "1", "9"});
    EXPECT_EQ(exp.status, 5) << "index 9 has no entry";
    EXPECT_EQ(slurp(out), "李娜,+861087654321,\nJürgen Groß,+491711234567,j@example.de\n");

    Outcome del = pbcli({"delete", "device", "1", "3", "77"});
    EXPECT_EQ(del.status, 5);
    EXPECT_EQ(del.js["deleted.#"], "2");
    EXPECT_EQ(del.js["not_found.0"], "77");
}

// A vCard in, the same back out and in again, then copies both ways with
// the card's limits (14 name octets, 20 digits). How each contact is read
// and stored is the contact library's test.
TEST_F(PbcliE2e, ContactsTravelThroughFilesAndBetweenThePhonebooks)
{
    const std::string vcf = kWork + "/e2e_in.vcf", back = kWork + "/e2e_back.vcf";
    std::ofstream(vcf)
        << "BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Jürgen Groß\r\nTEL;TYPE=CELL:+49 171 1234567\r\n"
           "TEL;TYPE=WORK:030 1234-567\r\nEND:VCARD\r\nBEGIN:VCARD\r\nVERSION:3.0\r\nFN:Anna\r\n"
           "TEL:0800-ANNA\r\nEND:VCARD\r\n";
    Outcome in = pbcli({"import", vcf});
    ASSERT_EQ(in.status, 0) << in.out;
    EXPECT_EQ(in.js["added"], "2");

    ASSERT_EQ(pbcli({"export", "device", back, "--format", "vcard"}).status, 0);
    Outcome again = pbcli({"import", back, "--format", "vcard"});
    EXPECT_EQ(again.js["added"], "0") << again.out;

    Outcome skip = pbcli({"copy", "device", "sim"});
    ASSERT_EQ(skip.status, 0) << skip.out;
    EXPECT_EQ(skip.js["contacts.0.outcome"], "added");
    EXPECT_EQ(skip.js["contacts.1.outcome"], "name_too_long") << "\"Jürgen Groß (work)\" needs 18 octets";
    EXPECT_EQ(card_name(std::stoi(skip.js["contacts.0.entry.sim_index"])), "Jürgen Groß");
    Outcome cut = pbcli({"copy", "device", "sim", "2", "--cut"}, false);
    EXPECT_EQ(cut.status, 0) << cut.err;
    EXPECT_NE(cut.out.find("Added 1 of 1 contact to the SIM phonebook"), std::string::npos) << cut.out;
    EXPECT_NE(cut.out.find("name cut to \"Jürgen Groß (w\""), std::string::npos) << cut.out;

    Outcome down = pbcli({"copy", "sim", "device", "2"});
    EXPECT_EQ(down.js["contacts.0.entry.name"], "Анна Каренина");
    EXPECT_EQ(down.js["contacts.0.entry.index"], "3");
    EXPECT_EQ(pbcli({"copy", "device", "sim", "99"}).status, 5);
    EXPECT_EQ(pbcli({"add", "device", "--name", "X", "--number", "12/34"}).status, 2) << "number checked";
}

TEST_F(PbcliE2e, FailuresEndWithTheirExitStatus)
{
    const struct {
        std::vector<std::string> args;
        int status;
    } cases[] = {
        {{"show", "device", "42"}, 5},
        {{"edit", "sim", "99", "--name", "X"}, 5},
        {{"import", kWork + "/no-such.csv"}, 1},
        {{"import", kWork}, 1},                               // a folder is no contact file
        {{"export", "device", kWork, "--format", "csv"}, 1},  // nor is it replaced by one
        {{"export", "device", kWork + "/no/such/dir/x.csv"}, 1},
        {{"list", "nowhere"}, 2},
    };
    for (const auto &c : cases) {
        Outcome r = pbcli(c.args);
        EXPECT_EQ(r.status, c.status) << c.args[0] << " " << c.args[1] << ": " << r.out;
        EXPECT_FALSE(r.js["error"].empty());
    }
    stop_host();
    Outcome gone = pbcli({"add", "device", "--name", "X", "--number", "1"});
    EXPECT_EQ(gone.status, 3);
    EXPECT_EQ(gone.js["code"], "-1");
}

// A SIM request waits while the card is being read, up to --wait seconds;
// the device phonebook never waits.
TEST_F(PbcliE2e, SimRequestsWaitForTheCardReadUpToTheTimeLimit)
{
    stop_host();
    sim_->set_reply_delay(400);  // the first read request is answered "still reading"
    start_host();
    Outcome r = pbcli({"list", "sim"}, false);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("waiting for the SIM phonebook"), std::string::npos) << r.err;
    EXPECT_NE(r.out.find("SIM phonebook: 5 entries"), std::string::npos) << r.out;

    stop_host();
    sim_->set_reply_delay(0);
    sim_->drop_next_indications(1);  // the records never arrive
    start_host();
    const auto t0 = std::chrono::steady_clock::now();
    r = pbcli({"--wait", "1", "list", "sim"});
    EXPECT_GE(std::chrono::steady_clock::now() - t0, 800ms);
    EXPECT_EQ(r.status, 4);
    EXPECT_EQ(r.js["error"], "list: SIM phonebook is still being read, try again");
    EXPECT_EQ(pbcli({"--wait", "0", "add", "sim", "--name", "X", "--number", "1"}).status, 4);
    EXPECT_EQ(pbcli({"--wait", "0", "add", "device", "--name", "X", "--number", "1"}).status, 0);
}

// The SIM phonebook lists every script in card order. The modem restarts:
// SIM changes work again without restarting pb_host, and the SIM phonebook
// read again by a new host is the card. (A hang-up in the middle of a read,
// and a card that refuses, are the service test's.)
TEST_F(PbcliE2e, ModemRestartsAreRecoveredWithoutRestartingTheHost)
{
    EXPECT_EQ(listed_sim(), kListed);
    for (int round = 0; round < 2; ++round) {
        sim_->stop();
        ASSERT_TRUE(sim_->start());
        const std::string name = "Restart " + std::to_string(round);
        Outcome add = pbcli({"add", "sim", "--name", name, "--number", "1"});
        ASSERT_EQ(add.status, 0) << add.out << add.err;
        const int rec = std::stoi(add.js["entry.sim_index"]);
        EXPECT_EQ(rec, 3) << "the lowest free record of the card";
        EXPECT_EQ(card_name(rec), name);

        sim_->stop();
        ASSERT_TRUE(sim_->start());
        // Read again after the restart, the SIM phonebook numbers its
        // entries anew: the change follows the entry it was asked for.
        Outcome edit = pbcli({"edit", "sim", add.js["entry.index"], "--name", "Edited"});
        ASSERT_EQ(edit.status, 0) << edit.out;
        EXPECT_EQ(edit.js["entry.number"], "1") << "fields not given are kept";
        EXPECT_EQ(card_name(rec), "Edited");
        EXPECT_EQ(edit.js["entry.sim_index"], std::to_string(rec));
        sim_->stop();
        ASSERT_TRUE(sim_->start());
        ASSERT_EQ(pbcli({"delete", "sim", edit.js["entry.index"]}).status, 0);
        EXPECT_EQ(card_name(rec), "<empty>");
    }
    stop_host();
    start_host();
    EXPECT_EQ(listed_sim(), kListed);
}

}  // namespace
