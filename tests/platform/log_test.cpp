// The log library: threshold filtering before formatting, one whole line per
// call even from many threads. Run with ZP_LOG_LEVEL=1 and ZP_LOG_FILE set.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "liblog.h"

namespace {

// Start from an empty file: the log opens it on first use, after this.
const int g_fresh_log = std::remove(LOG_TEST_FILE);

std::vector<std::string> read_lines()
{
    std::ifstream in(LOG_TEST_FILE);
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

TEST(Log, BelowThresholdIsNeitherFormattedNorWritten)
{
    ASSERT_FALSE(log_enabled(ZP_LOG_DEBUG));
    ASSERT_TRUE(log_enabled(ZP_LOG_INFO));
    // An invalid string pointer proves the filtered call formats nothing:
    // formatting it would crash.
    log_print(ZP_LOG_DEBUG, "[%s:%s:%d]filtered %s\n", "f", "g", 1, reinterpret_cast<const char *>(8));
    log_print(ZP_LOG_INFO, "[%s:%s:%d]kept-info %d\n\n", "file.cpp", "func", 42, 7);
    log_print(ZP_LOG_ERROR, "[%s:%s:%d]kept-error\n", "file.cpp", "func", 43);
    const auto lines = read_lines();
    EXPECT_EQ(count_containing(lines, "filtered"), 0u);
    ASSERT_EQ(count_containing(lines, "[file.cpp:func:42]kept-info 7"), 1u);
    EXPECT_EQ(count_containing(lines, "kept-error"), 1u);
    // Trailing line feeds collapse into one line end: no blank lines.
    EXPECT_EQ(count_containing(lines, ""), lines.size());
    for (const auto &l : lines)
        EXPECT_FALSE(l.empty());
    // The log holds names and numbers: the file is the owner's only.
    struct stat st {};
    ASSERT_EQ(stat(LOG_TEST_FILE, &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
}

TEST(Log, LinesOfManyThreadsNeverInterleave)
{
    constexpr int kThreads = 8, kLines = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i)
                log_print(ZP_LOG_INFO, "[%s:%s:%d]mt-begin %d %d mt-end\n", "x", "y", 1, t, i);
        });
    for (auto &th : threads)
        th.join();
    size_t seen = 0;
    for (const auto &l : read_lines()) {
        if (l.find("mt-begin") == std::string::npos)
            continue;
        ++seen;
        EXPECT_EQ(l.find("mt-begin"), l.rfind("mt-begin")) << l;
        EXPECT_EQ(l.size() - 6, l.rfind("mt-end")) << l;
    }
    EXPECT_EQ(seen, static_cast<size_t>(kThreads * kLines));
}

}  // namespace
