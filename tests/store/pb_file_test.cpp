// The phonebook files: record bytes, both loaders, the recovery of an old
// backup file, appends after a cut-short one, a full disk, a kill at any
// moment, readers during rewrites, and the files' modes.
#include <glob.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "harness.h"
#include "table_rules.h"
#include "zpt_ui_pb_api.h"
#include "zpt_ui_pb_func.h"

namespace {

using Bytes = std::string;
using pbt::exists;
const std::string kBook = pbt::book(STORAGE_TYPE_FLASH), kBackup = kBook + "_tmp";
const std::string kText = pbt::data_path("pb_file_test.txt");

// Phonebook file records, as they lie on flash: index and sim_index as
// little-endian 32-bit words, then name, number and e-mail of 51 bytes each,
// without padding. Each has sim_index 0x01020304, name "Bob", number "+123".
Bytes records(const std::vector<zp_uint32> &indexes)
{
    Bytes out(indexes.size() * PB_RECORD_SIZE, '\0');
    for (size_t k = 0; k < indexes.size(); ++k) {
        char *r = &out[k * PB_RECORD_SIZE];
        for (int b = 0; b < 4; ++b) {
            r[b] = static_cast<char>(indexes[k] >> (8 * b));
            r[4 + b] = static_cast<char>(4 - b);
        }
        std::memcpy(r + 8, "Bob", 3);
        std::memcpy(r + 59, "+123", 4);
    }
    return out;
}

void put(const std::string &path, const Bytes &b) { std::ofstream(path, std::ios::binary) << b; }

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
    Bytes many = records(one_to_1001), cut = records({1, 2, 3}) + Bytes(100, 'A'),
          unterminated = records({1});
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

// The traces a cut-short write of the old backup protocol leaves: the
// backup holds the phonebook before that write, whatever the phonebook file
// beside it holds. Readers take the backup; the service's start and every
// write put it back first.
TEST_F(PbFile, BackupOfACutShortOldWriteIsWhatReadersAndWritersSee)
{
    const Bytes short_book = records({1}) + Bytes(100, 'A');
    const struct {
        const char *what;
        bool book;
        Bytes content;
    } traces[] = {
        {"backup only", false, {}},
        {"backup and short file", true, short_book},
        {"backup and full file", true, records({1, 2, 3, 4})},
    };
    const Bytes before = records({1, 2, 3});
    for (const auto &c : traces) {
        for (const std::string step : {"start", "append", "rewrite"}) {
            SCOPED_TRACE(std::string(c.what) + ", " + step);
            simlib_clear_flash(STORAGE_TYPE_FLASH);
            put(kBackup, before);
            if (c.book)
                put(kBook, c.content);
            ASSERT_EQ(0, simlib_pb_from_flash(STORAGE_TYPE_FLASH, t.get()));
            EXPECT_EQ(3u, t->mem.pb_count);
            *t = pb_mem_info();
            t->mem.pb[8] = nine;
            t->mem.pb_count = 1;
            if (step == "start")
                EXPECT_EQ(0, pb_func_init());
            else if (step == "append")
                EXPECT_EQ(0, simlib_pb_add_to_file(STORAGE_TYPE_FLASH, &nine));
            else
                EXPECT_EQ(0, simlib_pb_to_flash(STORAGE_TYPE_FLASH, t.get()));
            EXPECT_EQ(step == "start"    ? before
                      : step == "append" ? records({1, 2, 3, 9})
                                         : records({9}),
                      pbt::slurp(kBook));
            EXPECT_FALSE(exists(kBackup));
        }
    }
}

// An append cut short by a crash leaves part of a record at the end; the
// next append must start at a record boundary, or every later record would
// be read out of step.
TEST_F(PbFile, AppendStartsAtTheLastWholeRecord)
{
    for (const Bytes &start : {Bytes{}, records({1, 2}), records({1, 2}) + Bytes(50, 'A')}) {
        simlib_clear_flash(STORAGE_TYPE_FLASH);
        if (!start.empty())
            put(kBook, start);
        ASSERT_EQ(0, simlib_pb_add_to_file(STORAGE_TYPE_FLASH, &nine));
        EXPECT_EQ(start.empty() ? records({9}) : records({1, 2, 9}), pbt::slurp(kBook)) << start.size();
    }
    *t = pb_mem_info();  // an empty table rewrites to an empty file
    ASSERT_EQ(0, simlib_pb_to_flash(STORAGE_TYPE_FLASH, t.get()));
    EXPECT_TRUE(exists(kBook) && pbt::slurp(kBook).empty());
}

// Runs fn in a child whose files may not grow past limit bytes, as on a full
// disk; fn's result (its low byte), or -2 when the child did not exit.
template <class Fn> int with_file_size_limit(rlim_t limit, Fn fn)
{
    pid_t pid = fork();
    if (pid == 0) {
        signal(SIGXFSZ, SIG_IGN);
        rlimit lim{limit, limit};
        setrlimit(RLIMIT_FSIZE, &lim);
        _exit(static_cast<signed char>(fn()) & 0xFF);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? static_cast<signed char>(WEXITSTATUS(status)) : -2;
}

// A full disk in the middle of any write: the write reports it, and the
// phonebook file and the export's target are exactly as before.
TEST_F(PbFile, FullDiskFailsTheWriteAndKeepsEveryEntry)
{
    for (zp_uint32 k = 0; k < PB_MAX_ENTRIES; ++k)
        t->mem.pb[k] = pb_flash_info{k + 1, k + 1, "n", "1", ""};
    t->mem.pb_count = PB_MAX_ENTRIES;
    std::string many;
    for (int k = 0; k < 200; ++k)
        many += std::to_string(k) + ",name,\n";
    std::ofstream(kText) << many;
    const zp_int32 idx[] = {1, 2, 3};
    const struct {
        const char *what;
        rlim_t limit;
        std::function<int()> write;
        int rc;
    } cases[] = {
        {"rewrite", 10000, [&] { return simlib_pb_to_flash(STORAGE_TYPE_FLASH, t.get()); }, -1},
        // The limit cuts the record: the part written is cut off again.
        {"append", 3 * PB_RECORD_SIZE + 80, [&] { return simlib_pb_add_to_file(STORAGE_TYPE_FLASH, &nine); },
         -1},
        {"import", 3 * PB_RECORD_SIZE + 80,
         [&] { return int{simlib_pb_import(kText.c_str(), STORAGE_TYPE_FLASH)}; }, PB_RCODE_WRITE_ERR},
        {"export", 10, [&] { return int{simlib_pb_export(kText.c_str(), STORAGE_TYPE_FLASH, idx, 3)}; },
         PB_RCODE_ERROR},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        put(kBook, records({1, 2, 3}));
        EXPECT_EQ(c.rc, with_file_size_limit(c.limit, c.write));
        EXPECT_EQ(records({1, 2, 3}), pbt::slurp(kBook));
        EXPECT_FALSE(exists(kBook + ".new"));
    }
    EXPECT_EQ(many, pbt::slurp(kText)) << "export target kept";
    glob_t left{};
    EXPECT_EQ(GLOB_NOMATCH, glob((kText + ".*").c_str(), 0, nullptr, &left)) << "no export leftovers";
    globfree(&left);
    std::remove(kText.c_str());
}

// The table the crash loop's step `op` leaves: even steps rewrite the file
// with a table of their own size, odd steps append one record to it.
std::vector<std::string> crash_loop_state(long op)
{
    const long rewrite = op / 2;
    std::vector<std::string> names(static_cast<size_t>(rewrite * 37 % 400 + 1),
                                   "r" + std::to_string(rewrite));
    if (op % 2 == 1)
        names.push_back("a" + std::to_string(rewrite));
    return names;
}

void run_crash_loop_step(long op)
{
    const std::vector<std::string> names = crash_loop_state(op);
    pb_flash_info e{static_cast<zp_uint32>(names.size()), 0xFFFFFFFFu, {}, "1", ""};
    std::snprintf(e.name, sizeof e.name, "%s", names.back().c_str());
    if (op % 2 == 1) {
        if (simlib_pb_add_to_file(STORAGE_TYPE_FLASH, &e) != 0)
            _exit(1);
        return;
    }
    std::unique_ptr<pb_mem_info> table(new pb_mem_info());
    for (zp_uint32 k = 0; k < names.size(); ++k) {
        table->mem.pb[k] = e;
        table->mem.pb[k].index = k + 1;
    }
    table->mem.pb_count = static_cast<zp_uint32>(names.size());
    if (simlib_pb_to_flash(STORAGE_TYPE_FLASH, table.get()) != 0)
        _exit(1);
}

std::vector<std::string> loaded_names(pb_mem_info *t)
{
    EXPECT_EQ(0, simlib_pb_add_from_flash(STORAGE_TYPE_FLASH, t));
    std::vector<std::string> names;
    for (zp_uint32 k = 0; k < t->mem.pb_count; ++k)
        names.push_back(t->mem.pb[k].name);
    return names;
}

// SIGKILL at random moments of rewrites and appends: what the loaders see
// afterwards is the table of the last step that completed, or of the one
// that was under way, never anything shorter or mixed.
TEST_F(PbFile, KillAtAnyMomentLeavesTheLastOrTheNextTable)
{
    constexpr int kKills = 300;
    std::mt19937 rng(20261124);
    run_crash_loop_step(0);
    long next = 2;                    // first step of the next child
    std::vector<long> acceptable{0};  // steps whose table may be there
    for (int kill_no = 0; kill_no < kKills; ++kill_no) {
        int done[2];
        ASSERT_EQ(0, pipe(done));
        const pid_t pid = fork();
        if (pid == 0) {
            close(done[0]);
            for (long op = next;; ++op) {
                run_crash_loop_step(op);
                if (write(done[1], &op, sizeof op) != sizeof op)
                    _exit(1);
            }
        }
        close(done[1]);
        std::this_thread::sleep_for(std::chrono::microseconds(rng() % 3000));
        kill(pid, SIGKILL);
        int status = 0;
        waitpid(pid, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status)) << "a write failed in the child";
        long op = 0, last = -1;
        while (read(done[0], &op, sizeof op) == sizeof op)
            last = op;
        close(done[0]);
        if (last >= 0)
            acceptable = {last};
        acceptable.push_back(last >= 0 ? last + 1 : next);
        // The next child starts on a rewrite, so that its steps' tables
        // follow from its first step.
        next = (std::max(last, next) + 2) / 2 * 2;

        const std::vector<std::string> seen = loaded_names(t.get());
        auto match = std::find_if(acceptable.begin(), acceptable.end(),
                                  [&](long a) { return seen == crash_loop_state(a); });
        ASSERT_NE(match, acceptable.end()) << "kill " << kill_no << ": " << seen.size() << " entries";
        acceptable = {*match};
    }
    EXPECT_FALSE(exists(kBackup));
}

// Readers load while a writer rewrites a full table again and again: every
// load is one whole table, never a short or mixed one.
TEST_F(PbFile, ReadersDuringRewritesSeeWholeTables)
{
    std::atomic<int> rewrites{0};
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        std::unique_ptr<pb_mem_info> w(new pb_mem_info());
        for (int round = 0; !stop; ++round) {
            for (zp_uint32 k = 0; k < PB_MAX_ENTRIES; ++k)
                w->mem.pb[k] = pb_flash_info{k + 1, 0xFFFFFFFFu, {char('a' + round % 2)}, "1", ""};
            w->mem.pb_count = PB_MAX_ENTRIES;
            ASSERT_EQ(0, simlib_pb_to_flash(STORAGE_TYPE_FLASH, w.get()));
            ++rewrites;
        }
    });
    int loads = 0;
    while (rewrites < 30 || loads < 200) {
        if (!exists(kBook))
            continue;  // before the first rewrite
        const std::vector<std::string> seen = loaded_names(t.get());
        ASSERT_EQ(size_t{PB_MAX_ENTRIES}, seen.size()) << "load " << loads;
        ASSERT_EQ(std::vector<std::string>(PB_MAX_ENTRIES, seen[0]), seen) << "load " << loads;
        ++loads;
    }
    stop = true;
    writer.join();
}

// Phonebook files hold names and numbers: whatever the umask, the files a
// write makes are for the owner and its group only, and a missing data
// folder is made 0750.
TEST_F(PbFile, FilesAndTheDataFolderAreCreatedPrivate)
{
    const std::string data = pb_data_dir(), aside = data + ".aside", lock = kBook + PB_LOCK_SUFFIX;
    const mode_t old_mask = umask(0);
    ASSERT_EQ(0, rename(data.c_str(), aside.c_str()));
    const int appended = simlib_pb_add_to_file(STORAGE_TYPE_FLASH, &nine);
    struct stat dir {
    }, book{};
    stat(data.c_str(), &dir);
    stat(kBook.c_str(), &book);
    ASSERT_EQ(0, std::system(("rm -rf '" + data + "' && mv '" + aside + "' '" + data + "'").c_str()));
    ASSERT_EQ(0, appended);
    EXPECT_EQ(0750u, dir.st_mode & 07777);
    EXPECT_EQ(0640u, book.st_mode & 07777);

    std::remove(lock.c_str());
    std::ofstream(kText) << "1,x,\n";
    const zp_int32 idx[] = {1};
    ASSERT_EQ(PB_RCODE_OK, simlib_pb_import(kText.c_str(), STORAGE_TYPE_FLASH));  // rewrite and lock
    std::remove(kText.c_str());
    ASSERT_EQ(PB_RCODE_OK, simlib_pb_export(kText.c_str(), STORAGE_TYPE_FLASH, idx, 1));
    umask(old_mask);
    for (const std::string &path : {kBook, lock, kText}) {
        ASSERT_EQ(0, stat(path.c_str(), &book)) << path;
        EXPECT_EQ(0640u, book.st_mode & 07777) << path;
    }
    std::remove(kText.c_str());
}

}  // namespace
