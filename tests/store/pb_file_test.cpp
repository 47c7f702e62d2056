// The phonebook files: record bytes, both loaders, the backup protocol and
// failing writes.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "table_rules.h"
#include "zpt_ui_pb_api.h"

namespace {

using Bytes = std::vector<unsigned char>;
const std::string kBook = PB_DATA_DIR "/pb_device_file", kBackup = PB_DATA_DIR "/pb_device_file_tmp";

// Phonebook file records, as they lie on flash: index and sim_index as
// little-endian 32-bit words, then name, number and e-mail of 51 bytes each,
// without padding. Each has sim_index 0x01020304, name "Bob", number "+123".
Bytes records(const std::vector<zp_uint32> &indexes)
{
    Bytes out(indexes.size() * PB_RECORD_SIZE, 0);
    for (size_t k = 0; k < indexes.size(); ++k) {
        unsigned char *r = &out[k * PB_RECORD_SIZE];
        for (int b = 0; b < 4; ++b) {
            r[b] = static_cast<unsigned char>(indexes[k] >> (8 * b));
            r[4 + b] = static_cast<unsigned char>(4 - b);
        }
        std::memcpy(r + 8, "Bob", 3);
        std::memcpy(r + 59, "+123", 4);
    }
    return out;
}

void put(const std::string &path, const Bytes &b)
{
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(b.data()), std::streamsize(b.size()));
}

Bytes get(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

bool exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }

struct PbFile : ::testing::Test {
    std::unique_ptr<pb_mem_info> t{new pb_mem_info()};
    pb_flash_info nine{9, 0x01020304u, "Bob", "+123", ""};
    void SetUp() override { simlib_clear_flash(STORAGE_TYPE_FLASH); }
    void TearDown() override { SetUp(); }
};

TEST_F(PbFile, LoadersKeepTableRulesOnCraftedFiles)
{
    std::vector<zp_uint32> one_to_1001(1001);
    std::iota(one_to_1001.begin(), one_to_1001.end(), 1u);
    Bytes many = records(one_to_1001), cut = records({1, 2, 3}), unterminated = records({1});
    cut.resize(cut.size() + 100, 0x41);
    std::memset(&unterminated[8], 'x', 3 * PB_TEXT_LEN);
    struct {
        const char *what;
        Bytes file;
        zp_uint32 by_index_count, last_index, dense_count;
    } cases[] = {
        {"gaps", records({1, 2, 5}), 3, 5, 3},
        {"1001 records", many, 1000, 1000, 1000},
        {"partial trailing record", cut, 3, 3, 3},
        {"zero index", records({1, 0, 3}), 2, 3, 3},
        {"index above 1000", records({1, 1001, 0xFFFFFFFFu, 4}), 2, 4, 4},
        {"repeated and descending", records({2, 2, 1, 7}), 2, 7, 4},
        {"unterminated text", unterminated, 1, 1, 1},
        {"empty file", {}, 0, 0, 0},
        {"missing file", {}, 0, 0, 0},
    };
    for (auto &c : cases) {
        SCOPED_TRACE(c.what);
        simlib_clear_flash(STORAGE_TYPE_FLASH);
        if (c.what != std::string("missing file"))
            put(kBook, c.file);
        std::memset(&t->mem, 0xAB, sizeof t->mem);  // stale contents must not survive a load
        ASSERT_EQ(0, simlib_pb_from_flash(STORAGE_TYPE_FLASH, t.get()));
        EXPECT_EQ(nullptr, table_rule_broken(t->mem));
        EXPECT_EQ(c.by_index_count, t->mem.pb_count);
        EXPECT_TRUE(c.last_index == 0 || t->mem.pb[c.last_index - 1].index == c.last_index);

        std::memset(&t->mem, 0xAB, sizeof t->mem);
        ASSERT_EQ(0, simlib_pb_add_from_flash(STORAGE_TYPE_FLASH, t.get()));
        EXPECT_EQ(nullptr, table_rule_broken(t->mem));
        EXPECT_EQ(c.dense_count, t->mem.pb_count);
    }
}

// Every state the files can be in before a write, for append and rewrite.
// A backup next to the phonebook file marks an interrupted write: the file
// is put back from it first.
TEST_F(PbFile, BackupProtocolInEveryStartingState)
{
    struct {
        const char *what;
        bool book, backup;
        Bytes appended;  // the file after appending record 9
    } cases[] = {
        {"no files", false, false, records({9})},
        {"phonebook only", true, false, records({1, 2, 9})},
        {"backup only", false, true, records({9})},
        {"both", true, true, records({1, 9})},
    };
    for (auto &c : cases) {
        for (bool rewrite : {false, true}) {
            SCOPED_TRACE(std::string(c.what) + (rewrite ? " rewrite" : " append"));
            simlib_clear_flash(STORAGE_TYPE_FLASH);
            if (c.book)
                put(kBook, records({1, 2}));
            if (c.backup)
                put(kBackup, records({1}));
            *t = pb_mem_info();
            t->mem.pb[8] = nine;
            t->mem.pb_count = 1;
            ASSERT_EQ(0, rewrite ? simlib_pb_to_flash(STORAGE_TYPE_FLASH, t.get())
                                 : simlib_pb_add_to_file(STORAGE_TYPE_FLASH, &nine));
            EXPECT_EQ(rewrite ? records({9}) : c.appended, get(kBook));
            EXPECT_FALSE(exists(kBackup));
        }
    }
    *t = pb_mem_info();  // an empty table rewrites to an empty file
    ASSERT_EQ(0, simlib_pb_to_flash(STORAGE_TYPE_FLASH, t.get()));
    EXPECT_TRUE(exists(kBook) && get(kBook).empty());
}

// Runs fn in a child whose files may not grow past limit bytes, as on a full
// disk; true when fn reported failure.
template <class Fn> bool fails_with_file_size_limit(rlim_t limit, Fn fn)
{
    pid_t pid = fork();
    if (pid == 0) {
        signal(SIGXFSZ, SIG_IGN);
        rlimit lim{limit, limit};
        setrlimit(RLIMIT_FSIZE, &lim);
        _exit(fn() == -1 ? 1 : 0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 1;
}

TEST_F(PbFile, WriteThatFailsPartWayReportsFailureAndDropsBackup)
{
    for (zp_uint32 k = 0; k < PB_MAX_ENTRIES; ++k)
        t->mem.pb[k] = pb_flash_info{k + 1, k + 1, "n", "1", ""};
    t->mem.pb_count = PB_MAX_ENTRIES;
    // The appended record fits the stream buffer: its failure shows at close.
    for (bool rewrite : {true, false}) {
        put(kBook, records({1}));  // so that a backup is made
        EXPECT_TRUE(fails_with_file_size_limit(rewrite ? 10000 : PB_RECORD_SIZE + 10, [&] {
            return rewrite ? simlib_pb_to_flash(STORAGE_TYPE_FLASH, t.get())
                           : simlib_pb_add_to_file(STORAGE_TYPE_FLASH, &nine);
        })) << rewrite;
        EXPECT_FALSE(exists(kBackup));
    }
}

}  // namespace
