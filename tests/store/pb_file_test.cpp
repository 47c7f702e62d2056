// The phonebook files: record bytes, both loaders, the backup protocol and
// failing writes.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "table_rules.h"
#include "zpt_ui_pb_api.h"

namespace {

using Bytes = std::vector<unsigned char>;

const std::string kBook = PB_DATA_DIR "/pb_device_file";
const std::string kBackup = PB_DATA_DIR "/pb_device_file_tmp";

Bytes record(zp_uint32 index, zp_uint32 sim_index = 1, const char *name = "n")
{
    Bytes r(PB_RECORD_SIZE, 0);
    for (int i = 0; i < 4; ++i) {
        r[i] = static_cast<unsigned char>(index >> (8 * i));
        r[4 + i] = static_cast<unsigned char>(sim_index >> (8 * i));
    }
    std::memcpy(&r[8], name, std::strlen(name));
    return r;
}

Bytes records(std::initializer_list<zp_uint32> indexes)
{
    Bytes out;
    for (zp_uint32 i : indexes) {
        Bytes r = record(i, i + 100);
        out.insert(out.end(), r.begin(), r.end());
    }
    return out;
}

void put(const std::string &path, const Bytes &b)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char *>(b.data()),
                                                                  static_cast<std::streamsize>(b.size()));
}

Bytes get(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

bool exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }

struct PbFile : ::testing::Test {
    std::unique_ptr<pb_mem_info> t{new pb_mem_info()};
    void SetUp() override
    {
        simlib_clear_flash(STORAGE_TYPE_SIM);
        simlib_clear_flash(STORAGE_TYPE_FLASH);
    }
    void TearDown() override { SetUp(); }
};

TEST_F(PbFile, RecordBytesAreLittleEndianFieldsWithoutPadding)
{
    pb_flash_info bob{};
    bob.index = 1;
    bob.sim_index = 3;
    std::strcpy(bob.name, "Bob");
    std::strcpy(bob.num, "+123");
    ASSERT_EQ(0, simlib_pb_add_to_file(STORAGE_TYPE_SIM, &bob));
    Bytes want(PB_RECORD_SIZE, 0);
    const unsigned char head[] = {1, 0, 0, 0, 3, 0, 0, 0, 'B', 'o', 'b'};
    std::memcpy(want.data(), head, sizeof head);
    std::memcpy(&want[59], "+123", 4);
    EXPECT_EQ(want, get(PB_DATA_DIR "/pb_sim_file"));

    pb_flash_info dev = bob;
    dev.sim_index = 0xFFFFFFFFu;
    ASSERT_EQ(0, simlib_pb_add_to_file(STORAGE_TYPE_FLASH, &dev));
    Bytes file = get(kBook);
    ASSERT_EQ(size_t{PB_RECORD_SIZE}, file.size());
    EXPECT_EQ((Bytes{0xFF, 0xFF, 0xFF, 0xFF}), Bytes(file.begin() + 4, file.begin() + 8));
}

struct LoadCase {
    const char *what;
    Bytes file;
    bool missing;
    std::vector<zp_uint32> by_index_slots;  // used slots after the record-by-index loader
    zp_uint32 dense_count;                  // records the dense loader packs
};

std::vector<LoadCase> load_cases()
{
    Bytes many;
    for (zp_uint32 i = 1; i <= 1001; ++i) {
        Bytes r = record(i > 1000 ? 1000 : i);
        many.insert(many.end(), r.begin(), r.end());
    }
    Bytes cut = records({1, 2, 3});
    cut.resize(cut.size() + 100, 0x41);
    return {
        {"gaps", records({1, 2, 5}), false, {1, 2, 5}, 3},
        {"1001 records", many, false, {}, 1000},
        {"partial trailing record", cut, false, {1, 2, 3}, 3},
        {"zero index", records({1, 0, 3}), false, {1, 3}, 3},
        {"index above 1000", records({1, 1001, 0xFFFFFFFFu, 4}), false, {1, 4}, 4},
        {"repeated and descending", records({2, 2, 1, 7}), false, {2, 7}, 4},
        {"empty file", {}, false, {}, 0},
        {"missing file", {}, true, {}, 0},
    };
}

TEST_F(PbFile, LoadersKeepTableRulesOnCraftedFiles)
{
    for (const LoadCase &c : load_cases()) {
        SCOPED_TRACE(c.what);
        if (!c.missing)
            put(kBook, c.file);
        std::memset(&t->mem, 0xAB, sizeof t->mem);  // stale contents must not survive
        ASSERT_EQ(0, simlib_pb_from_flash(STORAGE_TYPE_FLASH, t.get()));
        EXPECT_EQ(nullptr, table_rule_broken(t->mem));
        if (c.what == std::string("1001 records")) {
            EXPECT_EQ(1000u, t->mem.pb_count);
        } else {
            ASSERT_EQ(c.by_index_slots.size(), t->mem.pb_count);
            for (zp_uint32 idx : c.by_index_slots)
                EXPECT_EQ(idx, t->mem.pb[idx - 1].index);
        }

        std::memset(&t->mem, 0xAB, sizeof t->mem);
        ASSERT_EQ(0, simlib_pb_add_from_flash(STORAGE_TYPE_FLASH, t.get()));
        EXPECT_EQ(nullptr, table_rule_broken(t->mem));
        EXPECT_EQ(c.dense_count, t->mem.pb_count);
        simlib_clear_flash(STORAGE_TYPE_FLASH);
    }
}

TEST_F(PbFile, UnterminatedTextIsCutInsideItsField)
{
    Bytes r = record(1);
    std::memset(&r[8], 'x', 3 * PB_TEXT_LEN);
    put(kBook, r);
    ASSERT_EQ(0, simlib_pb_from_flash(STORAGE_TYPE_FLASH, t.get()));
    EXPECT_EQ(size_t{PB_TEXT_LEN - 1}, std::strlen(t->mem.pb[0].name));
    EXPECT_EQ(size_t{PB_TEXT_LEN - 1}, std::strlen(t->mem.pb[0].email));
}

TEST_F(PbFile, RefusesBadArgumentsWithoutTouchingFiles)
{
    pb_flash_info e{};
    auto bad = static_cast<storage_type_t>(3);
    EXPECT_EQ(-1, simlib_pb_from_flash(STORAGE_TYPE_SIM, nullptr));
    EXPECT_EQ(-1, simlib_pb_add_from_flash(bad, t.get()));
    EXPECT_EQ(-1, simlib_pb_to_flash(bad, t.get()));
    EXPECT_EQ(-1, simlib_pb_add_to_file(bad, &e));
    EXPECT_EQ(-1, simlib_pb_add_to_file(STORAGE_TYPE_FLASH, nullptr));
    EXPECT_EQ(-1, simlib_clear_flash(bad));
    EXPECT_FALSE(exists(kBook));
}

// Every state the files can be in before a write, for append and rewrite.
// A backup next to the phonebook file marks an interrupted write: the file
// is put back from it first.
TEST_F(PbFile, BackupProtocolInEveryStartingState)
{
    const Bytes a = records({1, 2}), b = records({1});
    struct {
        const char *what;
        bool book, backup;
        Bytes appended;  // expected file after appending record 9
    } cases[] = {
        {"no files", false, false, records({9})},
        {"phonebook only", true, false, records({1, 2, 9})},
        {"backup only", false, true, records({9})},
        {"both", true, true, records({1, 9})},
    };
    pb_flash_info nine{};
    nine.index = 9;
    nine.sim_index = 109;
    std::strcpy(nine.name, "n");
    for (auto &c : cases) {
        SCOPED_TRACE(c.what);
        for (bool rewrite : {false, true}) {
            simlib_clear_flash(STORAGE_TYPE_FLASH);
            if (c.book)
                put(kBook, a);
            if (c.backup)
                put(kBackup, b);
            if (rewrite) {
                *t = pb_mem_info();
                t->mem.pb[8] = nine;
                t->mem.pb_count = 1;
                ASSERT_EQ(0, simlib_pb_to_flash(STORAGE_TYPE_FLASH, t.get()));
                EXPECT_EQ(records({9}), get(kBook));
            } else {
                ASSERT_EQ(0, simlib_pb_add_to_file(STORAGE_TYPE_FLASH, &nine));
                EXPECT_EQ(c.appended, get(kBook));
            }
            EXPECT_FALSE(exists(kBackup));
        }
    }
    // An empty table rewrites to an empty file.
    *t = pb_mem_info();
    ASSERT_EQ(0, simlib_pb_to_flash(STORAGE_TYPE_FLASH, t.get()));
    EXPECT_TRUE(exists(kBook));
    EXPECT_TRUE(get(kBook).empty());
}

// Runs fn in a child whose files may not grow past limit bytes, as on a full
// disk; returns fn's result.
template <class Fn> int with_file_size_limit(rlim_t limit, Fn fn)
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
    return WIFEXITED(status) && WEXITSTATUS(status) == 1 ? -1 : 0;
}

TEST_F(PbFile, WriteThatFailsPartWayReportsFailureAndDropsBackup)
{
    *t = pb_mem_info();
    for (zp_uint32 k = 0; k < PB_MAX_ENTRIES; ++k) {
        t->mem.pb[k].index = k + 1;
        t->mem.pb[k].sim_index = k + 1;
    }
    t->mem.pb_count = PB_MAX_ENTRIES;
    put(kBook, records({1}));  // so that a backup is made
    EXPECT_EQ(-1, with_file_size_limit(10000, [&] { return simlib_pb_to_flash(STORAGE_TYPE_FLASH, t.get()); }));
    EXPECT_FALSE(exists(kBackup));
    EXPECT_LE(get(kBook).size(), 10000u);

    put(kBook, records({1}));
    pb_flash_info e = t->mem.pb[1];
    EXPECT_EQ(-1, with_file_size_limit(PB_RECORD_SIZE + 10, [&] {
        return simlib_pb_add_to_file(STORAGE_TYPE_FLASH, &e);
    }));
    EXPECT_FALSE(exists(kBackup));

    // A phonebook path that cannot be opened for writing.
    simlib_clear_flash(STORAGE_TYPE_FLASH);
    ASSERT_EQ(0, mkdir(kBook.c_str(), 0700));
    EXPECT_EQ(-1, simlib_pb_to_flash(STORAGE_TYPE_FLASH, t.get()));
    EXPECT_EQ(-1, simlib_pb_add_to_file(STORAGE_TYPE_FLASH, &e));
    rmdir(kBook.c_str());
}

}  // namespace
