// The log library: threshold filtering before formatting, whole lines in
// order from many threads, the file's cap, and what a killed process leaves.
// The in-process test runs with ZP_LOG_LEVEL=1 and ZP_LOG_FILE set; the
// others run log_writer with their own settings.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "liblog.h"

namespace {

// Start from an empty file: this process's log opens it on first use, after
// this.
const int g_fresh_log = std::remove(LOG_TEST_FILE);

std::vector<std::string> read_lines(const std::string &path)
{
    std::ifstream in(path);
    std::vector<std::string> lines;
    for (std::string l; std::getline(in, l);)
        lines.push_back(l);
    return lines;
}

size_t count_containing(const std::vector<std::string> &lines, const std::string &needle)
{
    size_t n = 0;
    for (const auto &l : lines)
        n += l.find(needle) != std::string::npos;
    return n;
}

long file_size(const std::string &path)
{
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

// Runs log_writer with the log in `log` (and its old .1 removed), the
// threshold at info and `extra` settings; the wait status (exec keeps the
// writer's own, a kill included).
int run_writer(const std::string &log, const std::string &args, const std::string &extra = "")
{
    std::remove(log.c_str());
    std::remove((log + ".1").c_str());
    std::string emulator;
#ifdef PB_EMULATOR
    emulator = PB_EMULATOR;
    std::replace(emulator.begin(), emulator.end(), ',', ' ');
#endif
    return std::system(("exec env -u ZP_LOG_MAX_KB ZP_LOG_FILE=" + log + " ZP_LOG_LEVEL=1 " + extra + " " +
                        emulator + " " LOG_WRITER_BIN " " + args)
                           .c_str());
}

std::string log_path(const char *name) { return std::string(LOG_TEST_DIR) + "/" + name + ".log"; }

// Checks that every line is whole ("w <t> <n> end" after its prefix, or a
// closing line) and that each writer's lines come in order, continuing from
// `next`; counts the lines seen per writer there.
void expect_whole_and_ordered(const std::vector<std::string> &lines, std::map<int, int> *next)
{
    for (const auto &l : lines) {
        const size_t at = l.find("]w ");
        if (at == std::string::npos) {
            EXPECT_TRUE(l.find("all-written") != std::string::npos ||
                        l.find("last-error") != std::string::npos)
                << l;
            continue;
        }
        int t = -1, n = -1;
        char end[4] = {};
        ASSERT_EQ(std::sscanf(l.c_str() + at, "]w %d %d %3s", &t, &n, end), 3) << l;
        EXPECT_STREQ(end, "end") << l;
        EXPECT_EQ(l.size(), l.find(" end") + 4) << l;
        auto it = next->find(t);
        if (it != next->end()) {
            EXPECT_EQ(n, it->second) << l;
        }
        (*next)[t] = n + 1;
    }
}

TEST(Log, BelowThresholdIsNeitherFormattedNorWritten)
{
    const std::string log = LOG_TEST_FILE;
    // An invalid string pointer proves the filtered call formats nothing:
    // formatting it would crash.
    log_print(ZP_LOG_DEBUG, "[%s:%s:%d]filtered %s\n", "f", "g", 1, reinterpret_cast<const char *>(8));
    log_print(ZP_LOG_INFO, "[%s:%s:%d]kept-info %d\n\n", "file.cpp", "func", 42, 7);
    // An error line reaches the file at once, with the lines before it.
    log_print(ZP_LOG_ERROR, "[%s:%s:%d]kept-error\n", "file.cpp", "func", 43);
    const auto lines = read_lines(log);
    EXPECT_EQ(count_containing(lines, "filtered"), 0u);
    ASSERT_EQ(count_containing(lines, " I [file.cpp:func:42]kept-info 7"), 1u);
    EXPECT_EQ(count_containing(lines, " E [file.cpp:func:43]kept-error"), 1u);
    // Trailing line feeds collapse into one line end: no blank lines.
    for (const auto &l : lines)
        EXPECT_FALSE(l.empty());
    // The log holds names and numbers: the file is the owner's only.
    struct stat st {};
    ASSERT_EQ(stat(LOG_TEST_FILE, &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
}

// Logs `fmt` with `args` and keeps what snprintf makes of them.
template <typename... A> void log_and_keep(std::vector<std::string> *want, const char *fmt, A... args)
{
    char text[2048];
    std::snprintf(text, sizeof text, fmt, args...);
    want->push_back(text);
    log_print(ZP_LOG_INFO, fmt, args...);
}

TEST(Log, MessagesReadAsSnprintfWritesThemAndLongOnesAreCut)
{
    const std::string mark = "fmt-check ";
    int local = 0;
    const std::string long_text(2000, 'x');
    std::vector<std::string> want;
    log_and_keep(&want, "fmt-check %d %i %u %d", INT_MIN, -1, 0u, INT_MAX);
    log_and_keep(&want, "fmt-check %5d|%-5d|%05d|%05u|%3d", -42, -42, -42, 42u, 123456);
    log_and_keep(&want, "fmt-check %x %X %08x %lx %llx", 0xBEEFu, 0xBEEFu, 0x1Au, 0xFFFFFFFFul,
                 0x123456789ABCull);
    log_and_keep(&want, "fmt-check %lu %ld %lld %llu", ULONG_MAX, LONG_MIN, LLONG_MIN, ULLONG_MAX);
    log_and_keep(&want, "fmt-check %zu %zd %hd %hu %hhd %hhu", size_t{77}, ssize_t{-77}, 70000, 70000, 300,
                 300);
    log_and_keep(&want, "fmt-check %s|%8s|%-8s|%s|%c%c", "abc", "abc", "abc",
                 static_cast<const char *>(nullptr), 'Z', '!');
    log_and_keep(&want, "fmt-check %p %p %%", static_cast<void *>(nullptr), static_cast<void *>(&local));
    // Beyond the conversions done by the library itself: vsnprintf's.
    log_and_keep(&want, "fmt-check %.3f %+d %#x %*d %.2s", 3.14159, 5, 255u, 6, 42, "abcdef");
    log_and_keep(&want, "fmt-check %s", long_text.c_str());
    log_print(ZP_LOG_ERROR, "[%s:%s:%d]fmt-done\n", "f", "g", 1);

    std::vector<std::string> got;
    for (const auto &l : read_lines(LOG_TEST_FILE))
        if (const size_t at = l.find(mark); at != std::string::npos)
            got.push_back(l.substr(at));
    ASSERT_EQ(got.size(), want.size());
    for (size_t k = 0; k + 1 < want.size(); ++k)
        EXPECT_EQ(got[k], want[k]);
    // The long message is cut so that its line, line feed included, fills
    // the library's 1024 bytes.
    EXPECT_EQ(want.back().compare(0, got.back().size(), got.back()), 0);
    for (const auto &l : read_lines(LOG_TEST_FILE)) {
        if (l.find(mark + "xxx") != std::string::npos) {
            EXPECT_EQ(l.size(), 1023u);
        }
    }
}

// Whole lines, each writer's in order and none lost: from many threads of a
// process that exits, and from one killed right after its error line, which
// reaches the file with all lines before it.
TEST(Log, LinesStayWholeInOrderAndSurviveAKill)
{
    const struct {
        const char *name, *threads, *lines, *end;
        int status;  // wait status
    } cases[] = {{"threads", "8", "2000", "exit", 0}, {"killed", "2", "300", "kill", SIGKILL}};
    for (const auto &c : cases) {
        const std::string log = log_path(c.name);
        EXPECT_EQ(run_writer(log, std::string(c.threads) + " " + c.lines + " " + c.end), c.status) << c.name;
        const auto lines = read_lines(log);
        std::map<int, int> next;
        expect_whole_and_ordered(lines, &next);
        ASSERT_EQ(next.size(), static_cast<size_t>(std::atoi(c.threads))) << c.name;
        for (const auto &tn : next)
            EXPECT_EQ(tn.second, std::atoi(c.lines)) << c.name << " writer " << tn.first;
        ASSERT_EQ(lines.size(), next.size() * std::atoi(c.lines) + 2) << c.name;
        EXPECT_NE(lines.back().find("last-error"), std::string::npos) << c.name;
    }
}

TEST(Log, TheCapHoldsUnderAFlood)
{
    const std::string log = log_path("flood");
    ASSERT_EQ(run_writer(log, "4 5000 exit", "ZP_LOG_MAX_KB=8"), 0);
    // The file and the one rotated copy each stay within the cap, hold whole
    // lines, and together end with the last lines written.
    EXPECT_LE(file_size(log), 8 * 1024);
    EXPECT_GT(file_size(log + ".1"), 4 * 1024);
    EXPECT_LE(file_size(log + ".1"), 8 * 1024);
    std::map<int, int> next;
    expect_whole_and_ordered(read_lines(log + ".1"), &next);
    const auto lines = read_lines(log);
    expect_whole_and_ordered(lines, &next);
    ASSERT_FALSE(lines.empty());
    EXPECT_NE(lines.back().find("last-error"), std::string::npos);
}

}  // namespace
