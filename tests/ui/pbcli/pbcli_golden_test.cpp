// pbcli's golden transcripts: every file in golden/ is a session of pbcli
// commands against pb_host and the modem simulator, each command with what
// it printed on standard output, on standard error (lines "2> ...") and its
// exit status ("[exit N]"). The test runs the commands of each file again,
// on a fresh card and an empty device phonebook, and compares the whole
// transcript, so that a change of wording shows as a reviewed diff.
//
// A new case is a "$ pbcli ..." line (read by the shell, in the session's
// own folder: files are named relative to it) with an empty "[exit 0]"
// after it; "# ..." lines are comments and "@ stop pb_host" /
// "@ start pb_host" stop and start the service. Then regenerate:
//
//   PB_GOLDEN_UPDATE=1 ctest --preset host -R pbcli_golden_test
//
// which writes the transcripts as pbcli prints them now into the source
// tree, for git diff to show.
#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host_rig.h"

namespace {

const std::string kWork = TEST_WORK_DIR;
const std::string kGolden = GOLDEN_DIR;

// The card of every session: names in four scripts, a short code and USSD,
// and free records between them; 14 octets a name, 20 digits a number.
const char kCard[] = "card 20 14 20\n1,+4930123456,Zoë Müller\n2,84957654321,Анна Каренина\n"
                     "4,+8613800138000,王小明\n5,112,Emergency\n7,*100#,Balance\n";

// The contact files a session may import, as address books write them.
const std::pair<const char *, const char *> kInputs[] = {
    {"contacts.csv", "name,number,email\r\nJürgen Groß,+49 (0) 171 1234567,j@example.de\r\n"
                     "\"Smith, John\",+44 20 7946 0958,\r\nFlowers,1-800-FLOWERS,\r\nNo number,,\r\n"},
    {"contacts.vcf", "BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Søren Holm\r\nTEL;TYPE=CELL:+45 20 12 34 56\r\n"
                     "TEL;TYPE=WORK:+45 33 12 34 56 ext. 12\r\nEMAIL:soren@example.dk\r\nEND:VCARD\r\n"},
    {"lines.txt", "+4930654321,Anna Schmidt,anna@example.de\n030 1234567,Büro,\n"},
    {"find.csv", "name,number\nАННА Шмидт,+49 30 1234567\nBerta,849 5765\n"},
};

// Text as a transcript holds it: carriage returns shown, so that the files
// stay plain lines, and every line ended.
std::string shown(const std::string &text, const char *prefix)
{
    std::string out, line;
    std::istringstream in(text);
    while (std::getline(in, line)) {
        std::string s;
        for (char c : line)
            s += c == '\r' ? std::string("<CR>") : std::string(1, c);
        out += prefix + s + "\n";
    }
    if (!text.empty() && text.back() != '\n')
        out += "<no newline at end>\n";
    return out;
}

// What pbcli says that is not the same on every machine: the build's data
// folder in the usage text, the session's own folders.
std::string anonymous(std::string s, const std::string &work)
{
    const std::pair<std::string, std::string> kPaths[] = {
        {work + "/", ""}, {work, "."}, {PB_DATA_DIR, "<data folder>"}};
    for (const auto &[path, word] : kPaths)
        for (size_t at; (at = s.find(path)) != std::string::npos;)
            s.replace(at, path.size(), word);
    return s;
}

class PbcliGolden : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override
    {
        work_ = kWork + "/golden_" + GetParam().substr(0, GetParam().find('.'));
        ASSERT_EQ(std::system(("rm -rf '" + work_ + "' && mkdir -p '" + work_ + "'").c_str()), 0);
        for (const auto &[name, text] : kInputs)
            std::ofstream(work_ + "/" + name, std::ios::binary) << text;
        std::remove(pbt::book(STORAGE_TYPE_FLASH).c_str());
        setenv("ZP_LOG_FILE", (work_ + "/host.log").c_str(), 1);
        rig_.start(work_ + "/card.txt", kCard);
        // The card is read before the session starts, so that no command
        // waits for it ("waiting for the SIM phonebook" would come and go).
        const std::string read = run("--json --wait 30 list sim");
        ASSERT_NE(read.find("[exit 0]"), std::string::npos) << read;
    }
    void TearDown() override { rig_.stop(); }

    // Runs one command line of a transcript; returns what it printed and
    // its exit status, as the transcript holds them.
    std::string run(const std::string &line)
    {
        const std::string out = work_ + "/.out", err = work_ + "/.err";
        const int st = std::system(
            ("cd '" + work_ + "' && " + PBCLI_BIN + " " + line + " >" + out + " 2>" + err).c_str());
        const std::string status = WIFEXITED(st) ? std::to_string(WEXITSTATUS(st)) : "signal";
        return anonymous(shown(pbt::slurp(out), "") + shown(pbt::slurp(err), "2> "), work_) + "[exit " +
               status + "]\n";
    }

    // The transcript as pbcli makes it now, from the commands, comments and
    // steps of the one given.
    std::string replay(const std::string &golden)
    {
        std::istringstream in(golden);
        std::string now, line;
        bool output = false;  // inside a command's output, up to its [exit N]
        while (std::getline(in, line)) {
            if (output) {
                output = line.rfind("[exit ", 0) != 0;
                continue;
            }
            now += line + "\n";
            if (line.rfind("$ pbcli ", 0) == 0) {
                now += run(line.substr(8));
                output = true;
            } else if (line == "@ stop pb_host") {
                rig_.stop_host();
            } else if (line == "@ start pb_host") {
                rig_.start_host();
            } else {
                EXPECT_TRUE(line.empty() || line[0] == '#') << GetParam() << ": what is this line? " << line;
            }
        }
        return now;
    }

    std::string work_;
    pbt::host_rig rig_;
};

TEST_P(PbcliGolden, OutputIsAsTranscribed)
{
    const std::string path = kGolden + "/" + GetParam();
    const std::string golden = pbt::slurp(path);
    const std::string now = replay(golden);
    if (std::getenv("PB_GOLDEN_UPDATE")) {
        std::ofstream(path, std::ios::binary) << now;
        return;
    }
    // The first line that differs, with the file's line number; the whole
    // difference is `git diff` after PB_GOLDEN_UPDATE=1.
    std::istringstream a(golden), b(now);
    for (int n = 1;; ++n) {
        std::string was, is;
        const bool more_was = static_cast<bool>(std::getline(a, was));
        const bool more_is = static_cast<bool>(std::getline(b, is));
        if (!more_was && !more_is)
            break;
        ASSERT_EQ(more_was ? was : "<end of the file>", more_is ? is : "<end of the output>")
            << GetParam() << ":" << n << " differs (PB_GOLDEN_UPDATE=1 rewrites the transcripts)";
    }
}

std::vector<std::string> transcripts()
{
    std::vector<std::string> names;
    if (DIR *d = opendir(kGolden.c_str())) {
        while (const dirent *e = readdir(d))
            if (std::string n = e->d_name; n.size() > 4 && n.compare(n.size() - 4, 4, ".txt") == 0)
                names.push_back(n);
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

INSTANTIATE_TEST_SUITE_P(Transcripts, PbcliGolden, ::testing::ValuesIn(transcripts()),
                         [](const ::testing::TestParamInfo<std::string> &p) {
                             std::string n = p.param.substr(0, p.param.find('.'));
                             std::replace(n.begin(), n.end(), '-', '_');
                             return n;
                         });

}  // namespace
