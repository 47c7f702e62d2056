// pbcli end to end: the tool as a user runs it, against pb_host and the
// modem simulator on its real socket. Checks exit statuses, reads the JSON
// output back with pbweb's strict parser, and looks at the card and the
// files behind it.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "host_rig.h"
#include "json_at.h"
#include "pbweb_client.h"

namespace {

using namespace std::chrono_literals;

const std::string kWork = TEST_WORK_DIR;

struct Outcome {
    int status = -1;
    std::string out, err;
    pbweb::Json js;
    std::string at(const std::string &path) const { return json_at(js, path); }
};

// Runs pbcli through the shell; a hang is left to the test's time limit.
// With --json the output must parse and "ok" must match the status. Runs
// at the same time need a `tag` each (it names the output files).
Outcome pbcli(const std::vector<std::string> &args, bool json = true, const std::string &tag = "pbcli")
{
    const std::string out = kWork + "/" + tag + ".out", err = kWork + "/" + tag + ".err";
    std::string cmd = PBCLI_BIN + std::string(json ? " --json" : "");
    for (const auto &a : args) {
        cmd += " '";
        for (char c : a)
            cmd += c == '\'' ? std::string("'\\''") : std::string(1, c);
        cmd += "'";
    }
    const int st = std::system((cmd + " >" + out + " 2>" + err).c_str());
    Outcome r{WIFEXITED(st) ? WEXITSTATUS(st) : -1, pbt::slurp(out), pbt::slurp(err), {}};
    std::string why;
    if (json) {
        EXPECT_TRUE(pbweb::parse_json(r.out, &r.js, &why)) << why << ": " << r.out;
        EXPECT_EQ(r.at("ok"), r.status == 0 ? "true" : "false") << r.out;
    }
    return r;
}

class PbcliE2e : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::remove(pbt::book(STORAGE_TYPE_FLASH).c_str());
        setenv("ZP_LOG_FILE", (kWork + "/pbcli_e2e_host.log").c_str(), 1);
        rig_.start(kWork + "/e2e_card.txt",
                   "card 20 14 20\n1,+4930123456,Zoë Müller\n2,84957654321,Анна Каренина\n"
                   "4,+8613800138000,王小明\n5,112,Emergency\n7,*100#,Balance\n");
    }
    void TearDown() override { rig_.stop(); }

    pbt::host_rig rig_;
};

// A --json listing as "index/record name number" lines.
std::string listing(const Outcome &list)
{
    std::string s;
    for (int i = 0; i < std::atoi(list.at("count").c_str()); ++i) {
        const std::string e = "entries." + std::to_string(i) + ".";
        s += list.at(e + "index") + "/" + list.at(e + "sim_index") + " " + list.at(e + "name") + " " +
             list.at(e + "number") + "\n";
    }
    return s;
}

const std::string kListed = "1/1 Zoë Müller +4930123456\n2/2 Анна Каренина 84957654321\n"
                            "3/4 王小明 +8613800138000\n4/5 Emergency 112\n5/7 Balance *100#\n";

// A SIM request waits while the card is being read, up to --wait seconds.
// (That the device phonebook never waits is the service test's and pbweb's.)
TEST_F(PbcliE2e, SimRequestsWaitForTheCardReadUpToTheTimeLimit)
{
    rig_.stop_host();
    rig_.sim->set_reply_delay(400);  // the first read request is answered "still reading"
    rig_.start_host();
    Outcome r = pbcli({"list", "sim"}, false);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("waiting for the SIM phonebook"), std::string::npos) << r.err;
    EXPECT_NE(r.out.find("SIM phonebook: 5 entries"), std::string::npos) << r.out;

    rig_.stop_host();
    rig_.sim->set_reply_delay(0);
    rig_.sim->drop_next_indications(1);  // the records never arrive
    rig_.start_host();
    const auto t0 = std::chrono::steady_clock::now();
    r = pbcli({"--wait", "1", "list", "sim"});
    EXPECT_GE(std::chrono::steady_clock::now() - t0, 800ms);
    EXPECT_EQ(r.status, 4);
    EXPECT_EQ(r.at("error"), "list: SIM phonebook is still being read, try again");
}

// The SIM phonebook lists every script in card order. The modem restarts:
// SIM changes work again without restarting pb_host, and the SIM phonebook
// read again by a new host is the card. (A hang-up in the middle of a read,
// and a card that refuses, are the service test's.)
TEST_F(PbcliE2e, ModemRestartsAreRecoveredWithoutRestartingTheHost)
{
    EXPECT_EQ(listing(pbcli({"list", "sim"})), kListed);
    for (int round = 0; round < 2; ++round) {
        rig_.sim->stop();
        ASSERT_TRUE(rig_.sim->start());
        const std::string name = "Restart " + std::to_string(round);
        Outcome add = pbcli({"add", "sim", "--name", name, "--number", "1"});
        ASSERT_EQ(add.status, 0) << add.out << add.err;
        const int rec = std::stoi(add.at("entry.sim_index"));
        EXPECT_EQ(rec, 3) << "the lowest free record of the card";
        EXPECT_EQ(rig_.card_name(rec), name);

        rig_.sim->stop();
        ASSERT_TRUE(rig_.sim->start());
        // Read again after the restart, the SIM phonebook numbers its
        // entries anew: the change follows the entry it was asked for.
        Outcome edit = pbcli({"edit", "sim", add.at("entry.index"), "--name", "Edited"});
        ASSERT_EQ(edit.status, 0) << edit.out;
        EXPECT_EQ(edit.at("entry.number"), "1") << "fields not given are kept";
        EXPECT_EQ(rig_.card_name(rec), "Edited");
        EXPECT_EQ(edit.at("entry.sim_index"), std::to_string(rec));
        rig_.sim->stop();
        ASSERT_TRUE(rig_.sim->start());
        ASSERT_EQ(pbcli({"delete", "sim", edit.at("entry.index")}).status, 0);
        EXPECT_EQ(rig_.card_name(rec), "<empty>");
    }
    rig_.stop_host();
    rig_.start_host();
    EXPECT_EQ(listing(pbcli({"list", "sim"})), kListed);
}

// The entry named `name` in a --json listing: "index number", or "" when
// there is none.
std::string named(const Outcome &list, const std::string &name)
{
    for (int i = 0; i < std::atoi(list.at("count").c_str()); ++i) {
        const std::string e = "entries." + std::to_string(i) + ".";
        if (list.at(e + "name") == name)
            return list.at(e + "index") + " " + list.at(e + "number");
    }
    return "";
}

// An edit or delete names the entry the script saw; what was seen is
// followed to its new index when it is still there, and when it is nowhere,
// nothing is changed (status 1, code 24).
TEST_F(PbcliE2e, ChangesNameTheEntryTheScriptSaw)
{
    ASSERT_EQ(pbcli({"add", "device", "--name", "A", "--number", "1"}).status, 0);
    ASSERT_EQ(pbcli({"add", "device", "--name", "B", "--number", "2"}).status, 0);
    const struct {
        std::vector<std::string> args;
        int status;
        std::string code, listing;  // of the device phonebook after it
    } steps[] = {
        {{"edit", "device", "1", "--number", "9", "--expect-name", "C"}, 1, "24", "1/-1 A 1\n2/-1 B 2\n"},
        {{"delete", "device", "2", "--expect-number", "5"}, 1, "24", "1/-1 A 1\n2/-1 B 2\n"},
        // What the script saw is at index 2 now: the change follows it.
        {{"edit", "device", "1", "--number", "7", "--expect-name", "B", "--expect-number", "2"},
         0,
         "<none>",
         "1/-1 A 1\n2/-1 B 7\n"},
        {{"delete", "device", "1", "--expect-name", "A", "--expect-number", "1"}, 0, "<none>", "2/-1 B 7\n"},
        {{"delete", "device", "2", "3", "--expect-name", "B"}, 2, "<none>", "2/-1 B 7\n"},
    };
    for (const auto &st : steps) {
        Outcome r = pbcli(st.args);
        EXPECT_EQ(r.status, st.status) << st.args[0] << " " << r.out << r.err;
        EXPECT_EQ(r.at("code"), st.code) << r.out;
        EXPECT_EQ(listing(pbcli({"list", "device"})), st.listing) << st.args[0];
    }
}

// Eight scripts at once, each adding, editing, showing and deleting only
// its own entries, each index looked up just before it is used, while the
// others' adds renumber the phonebook under it. Every change must reach the
// entry its script meant: no entry is lost or changed by another script
// (each keeps one entry it never touches), and each sees its own changes.
TEST_F(PbcliE2e, ConcurrentScriptsChangeOnlyTheEntriesTheyMean)
{
    rig_.stop();
    rig_.start(kWork + "/e2e_card.txt", "card 60 14 20\n1,+4930123456,Card\n");
    constexpr int kScripts = 8, kRounds = 4;
    for (const char *book : {"device", "sim"}) {
        std::atomic<int> wrong{0};
        std::vector<std::thread> scripts;
        for (int c = 0; c < kScripts; ++c)
            scripts.emplace_back([&, c] {
                const std::string tag = "script" + std::to_string(c), me = std::to_string(c);
                auto look = [&](const std::string &name) {
                    return named(pbcli({"list", book}, true, tag), name);
                };
                if (pbcli({"add", book, "--name", "keep" + me, "--number", "9" + me}, true, tag).status != 0)
                    ++wrong;
                for (int r = 0; r < kRounds; ++r) {
                    const std::string name = "s" + me + "r" + std::to_string(r), num = me + std::to_string(r);
                    if (pbcli({"add", book, "--name", name, "--number", num + "1"}, true, tag).status != 0)
                        ++wrong;
                    std::string at = look(name);
                    Outcome edit = pbcli({"edit", book, at.substr(0, at.find(' ')), "--number", num + "2",
                                          "--expect-name", name, "--expect-number", num + "1"},
                                         true, tag);
                    at = look(name);
                    if (edit.status != 0 || at.substr(at.find(' ') + 1) != num + "2")
                        ++wrong, ADD_FAILURE() << name << " edit: " << edit.out << edit.err << " now " << at;
                    Outcome del = pbcli({"delete", book, at.substr(0, at.find(' ')), "--expect-name", name,
                                         "--expect-number", num + "2"},
                                        true, tag);
                    if (del.status != 0 || !look(name).empty())
                        ++wrong, ADD_FAILURE() << name << " delete: " << del.out << del.err;
                }
            });
        for (std::thread &t : scripts)
            t.join();
        EXPECT_EQ(wrong.load(), 0) << book << ": a script's own change went wrong";
        Outcome list = pbcli({"list", book});
        int lost = 0, changed = 0;
        for (int c = 0; c < kScripts; ++c) {
            const std::string at = named(list, "keep" + std::to_string(c));
            lost += at.empty();
            changed += !at.empty() && at.substr(at.find(' ') + 1) != "9" + std::to_string(c);
        }
        EXPECT_EQ(lost, 0) << book;
        EXPECT_EQ(changed, 0) << book;
        EXPECT_EQ(list.at("count"), std::to_string(kScripts + (std::string(book) == "sim"))) << list.out;
    }
    EXPECT_EQ(rig_.sim->card().records.size(), kScripts + 1u)
        << "the card holds what the SIM phonebook lists";
}

// Every export format imported back gives the same phonebook, through a
// file and through a pipe ('-'); the router's own lines refuse an entry they
// cannot carry, writing nothing, instead of splitting it.
TEST_F(PbcliE2e, EveryExportFormatReadsBackAsTheSamePhonebook)
{
    const std::string in = kWork + "/e2e_trip_in.csv", piped = kWork + "/e2e_piped.vcf",
                      backup = kWork + "/e2e_backup.txt";
    std::ofstream(in)
        << "name,number,email\nZoë Müller,030/1234567,zoe@example.de\nАнна,*100#,\n"
           "王小明,+86 138 0013 8000,w@x.cn\n\"Smith, John \"\"Jack\"\"\",+44 20 7946 0018 ext. 12,\n";
    ASSERT_EQ(pbcli({"import", in}).at("added"), "4");
    std::remove(backup.c_str());
    EXPECT_EQ(pbcli({"export", "device", backup, "--format", "module"}).status, 1);
    EXPECT_FALSE(pbt::exists(backup)) << "nothing written";

    const std::pair<std::string, std::string> trips[] = {
        {"csv", kWork + "/e2e_trip.csv"}, {"vcard", "-"}, {"module", backup}};
    for (const auto &[format, file] : trips) {
        if (format == "module") {  // without the name its lines cannot carry
            ASSERT_EQ(pbcli({"delete", "device", "4"}).status, 0);
        }
        const std::string before = pbcli({"list", "device"}).out;
        const bool pipe = file == "-";
        ASSERT_EQ(pipe ? std::system(
                             (PBCLI_BIN " export device - --format vcard >" + piped + " 2>/dev/null").c_str())
                       : pbcli({"export", "device", file, "--format", format}).status,
                  0)
            << format;
        ASSERT_EQ(pbcli({"delete-all", "device", "--yes"}).status, 0);
        if (pipe) {
            ASSERT_EQ(std::system(("cat " + piped + " | " PBCLI_BIN " import - >/dev/null").c_str()), 0);
        } else {
            EXPECT_EQ(pbcli({"import", file}).at("format"), format);
        }
        EXPECT_EQ(pbcli({"list", "device"}).out, before) << format << "\n"
                                                         << pbt::slurp(file == "-" ? piped : file);
    }
}

// The temporary file of an export cut short is cleared by the next export
// into its folder; one whose writer still holds it is left alone.
TEST_F(PbcliE2e, ExportsClearTheTemporaryFilesOfExportsCutShort)
{
    const std::string dir = kWork + "/e2e_exports";
    mkdir(dir.c_str(), 0700);
    const std::string target = dir + "/book.csv", dead = dir + "/.book.csv.pbexport-AbC123",
                      busy = dir + "/.book.csv.pbexport-XyZ789";
    std::ofstream(dead) << "half a";
    std::ofstream(busy) << "being written";
    const timespec old[2] = {{1000000000, 0}, {1000000000, 0}};
    utimensat(AT_FDCWD, dead.c_str(), old, 0);
    utimensat(AT_FDCWD, busy.c_str(), old, 0);
    const int held = open(busy.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);

    ASSERT_EQ(pbcli({"export", "sim", target}).status, 0);
    EXPECT_EQ(pbt::slurp(target).rfind("name,number,email\r\nZoë Müller,+4930123456,\r\n", 0), 0u);
    EXPECT_FALSE(pbt::exists(dead)) << "left by an export that died";
    EXPECT_TRUE(pbt::exists(busy)) << "its writer holds it";
    close(held);
}

// "Does this name fit the card?" has one answer: the page's (pbweb's check),
// pbcli's and the card's, which refuses a name of more octets than its
// alpha identifier holds. Every character of the GSM 7-bit default alphabet
// (TS 23.038 6.2.1, the escape left out) and of its extension table
// (6.2.1.1), and a sample of other scripts, each repeated to the most that
// fits a 14-octet card and once more.
TEST_F(PbcliE2e, PagePbcliAndTheCardAgreeOnWhatNameFits)
{
#ifndef PBWEB_BIN
    GTEST_SKIP() << "pbweb is not built";
#else
    rig_.stop();
    rig_.start(kWork + "/e2e_fit_card.txt", "card 400 14 20\n");
    int port = 0;
    pbt::child web(pbweb_client::start({PBWEB_BIN, "--listen", "127.0.0.1:0"}, &port));
    ASSERT_NE(port, 0);
    ASSERT_EQ(pbcli({"list", "sim"}).status, 0) << "the card is read and its limits known";

    const std::string gsm = "@£$¥èéùìòÇ\nØø\rÅåΔ_ΦΓΛΩΠΨΣΘΞÆæßÉ !\"#¤%&'()*+,-./0123456789:;<=>?"
                            "¡ABCDEFGHIJKLMNOPQRSTUVWXYZÄÖÑÜ§¿abcdefghijklmnopqrstuvwxyzäöñüà";
    const std::string extension = "\f^{}\\[~]|€";
    const std::string others = "`ëçÈÁőłЖжЁёαβσςԱաشעकあ王한\U0001F600";
    const auto chars = [](const std::string &s) {
        std::vector<std::string> v;
        for (size_t i = 0; i < s.size();) {
            size_t n = 1;
            while (i + n < s.size() && (static_cast<unsigned char>(s[i + n]) & 0xC0) == 0x80)
                ++n;
            v.push_back(s.substr(i, n));
            i += n;
        }
        return v;
    };
    const auto url = [](const std::string &s) {
        std::string out;
        for (unsigned char c : s) {
            char hex[4];
            std::snprintf(hex, sizeof hex, "%%%02X", c);
            out += hex;
        }
        return out;
    };
    struct Kind {
        std::vector<std::string> chars;
        int fit;     // characters that fill at most 14 octets
        int octets;  // of fit + 1 characters
    };
    const Kind kinds[] = {{chars(gsm), 14, 15}, {chars(extension), 7, 16}, {chars(others), 6, 15}};
    size_t checked = 0;
    for (const Kind &k : kinds) {
        for (const std::string &c : k.chars) {
            const bool storable = c.size() < 4;  // a character outside the basic plane is not
            for (int n : {k.fit, k.fit + 1}) {
                std::string name;
                for (int i = 0; i < n; ++i)
                    name += c;
                const bool fits = storable && n == k.fit;
                pbweb::Json page;
                std::string why;
                const auto answer = pbweb_client::request(port, "GET", "/api/sim/check?name=" + url(name));
                ASSERT_TRUE(pbweb::parse_json(answer.body, &page, &why)) << why;
                Outcome cli = pbcli({"check", "sim", "--name=" + name});
                EXPECT_EQ(json_at(page, "name.fits"), fits ? "true" : "false") << "page: " << name;
                EXPECT_EQ(cli.at("name.fits"), fits ? "true" : "false") << "pbcli: " << name;
                EXPECT_EQ(json_at(page, "name.card.octets"), cli.at("name.card.octets")) << name;
                EXPECT_EQ(json_at(page, "name.card.max"), "14");
                if (n == k.fit + 1 && storable) {
                    EXPECT_EQ(cli.at("name.card.octets"), std::to_string(k.octets)) << name;
                }
                // The card itself, through the service: control characters
                // and blank names are no entry names, and the module sends
                // a character outside the basic plane cut to 16 bits, which
                // the card cannot tell; for these the check is enough.
                if (static_cast<unsigned char>(c[0]) < 0x20 || c == " " || !storable)
                    continue;
                Outcome add = pbcli({"add", "sim", "--name=" + name, "--number", "1"});
                EXPECT_EQ(add.status, fits ? 0 : 1) << "card: " << name << ": " << add.out;
                ++checked;
            }
        }
    }
    EXPECT_GT(checked, 300u);
    EXPECT_EQ(web.wait(30000, SIGTERM), 0);
#endif
}

}  // namespace
