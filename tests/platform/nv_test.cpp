// The NV store: exact-length round trips, atomic replacement, and a clear
// error for every bad argument.
#include <gtest/gtest.h>

#include <dirent.h>

#include <cstdlib>
#include <string>

#include "nvmanager.h"

namespace {

// A second write of a key replaces its value whole (shorter after longer),
// through a temporary file "<key>.XXXXXX" that must not stay behind.
TEST(Nv, ReadsBackExactlyTheBytesWrittenAndReplacesWhole)
{
    const std::pair<const char *, std::string> cases[] = {
        {"empty", ""},
        {"one", "7"},
        {"with_nul", std::string("250\0", 4)},  // a counted terminator is kept
        {"inner_nul", std::string("a\0b", 3)},
        {"odd.len-5", "12345"},
        {"odd.len-5", "ab"},
        {"largest", std::string(NV_VALUE_MAX, 'x')}};
    for (const auto &[key, value] : cases) {
        ASSERT_EQ(nvmram_writenv(key, value.data(), static_cast<int>(value.size())), NV_OK) << key;
        std::string buf(NV_VALUE_MAX, '\x5A');
        int len = -1;
        ASSERT_EQ(nvmram_readnv(key, buf.data(), static_cast<int>(buf.size()), &len), NV_OK) << key;
        EXPECT_EQ(std::string(buf.data(), static_cast<size_t>(len)), value);
    }
    DIR *d = opendir(std::getenv("ZP_NV_DIR"));
    ASSERT_NE(d, nullptr);
    for (dirent *e; (e = readdir(d)) != nullptr;)
        for (const auto &c : cases)
            EXPECT_NE(std::string(e->d_name).rfind(c.first + std::string("."), 0), 0u) << e->d_name;
    closedir(d);
}

TEST(Nv, BadArgumentsGiveAnErrorCode)
{
    char buf[8];
    int len = 0;
    const std::string too_long_key(NV_KEY_MAX + 1, 'k');
    EXPECT_EQ(nvmram_writenv(nullptr, "v", 1), NV_ERR_PARAM);
    EXPECT_EQ(nvmram_writenv("", "v", 1), NV_ERR_PARAM);
    EXPECT_EQ(nvmram_writenv("../escape", "v", 1), NV_ERR_PARAM);
    EXPECT_EQ(nvmram_writenv("a/b", "v", 1), NV_ERR_PARAM);
    EXPECT_EQ(nvmram_writenv(".hidden", "v", 1), NV_ERR_PARAM);
    EXPECT_EQ(nvmram_writenv(too_long_key.c_str(), "v", 1), NV_ERR_PARAM);
    EXPECT_EQ(nvmram_writenv("k", nullptr, 1), NV_ERR_PARAM);
    EXPECT_EQ(nvmram_writenv("k", "v", -1), NV_ERR_PARAM);
    EXPECT_EQ(nvmram_writenv("k", "v", NV_VALUE_MAX + 1), NV_ERR_TOO_LONG);
    EXPECT_EQ(nvmram_readnv("never_written", buf, sizeof buf, &len), NV_ERR_NOT_FOUND);
    EXPECT_EQ(nvmram_readnv("k", nullptr, 8, &len), NV_ERR_PARAM);
    EXPECT_EQ(nvmram_readnv("k", buf, 8, nullptr), NV_ERR_PARAM);
    ASSERT_EQ(nvmram_writenv("nine", "123456789", 9), NV_OK);
    EXPECT_EQ(nvmram_readnv("nine", buf, sizeof buf, &len), NV_ERR_TOO_LONG);
}

}  // namespace
