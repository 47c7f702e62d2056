// Import and export on crafted text files, against the real device and SIM
// phonebook files under PB_DATA_DIR.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "book_text.h"
#include "harness.h"

namespace {

const std::string kDevFile = pbt::book(STORAGE_TYPE_FLASH);
const std::string kSimFile = pbt::book(STORAGE_TYPE_SIM);
const std::string kText = TEST_WORK_DIR "/import_export_test.txt";

std::string times(const std::string &s, int n) { return n > 0 ? s + times(s, n - 1) : ""; }

class ImportExport : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (const auto &f : {kDevFile, kSimFile, kDevFile + "_tmp", kSimFile + "_tmp", kText})
            std::remove(f.c_str());
    }
};

const std::string k60(60, 'n'), k50(50, 'n');
const std::string kZhe = "\xD0\x96", kZhong = "\xE4\xB8\xAD";

// Each case imports its text into the device phonebook holding `before`.
TEST_F(ImportExport, LinesParseAsNumberNameEmailIntoTheFreePlaces)
{
    const struct {
        const char *what;
        std::string text;
        std::vector<std::string> expect;
        std::vector<std::pair<int, std::string>> before = {};
    } cases[] = {
        {"three fields", "123,Alice,home\n", {"1:123|Alice|home"}},
        // The name runs to the next comma, so without one the line feed stays.
        {"two fields keep the line feed", "123,Alice\n2,B", {"1:123|Alice\n|", "2:2|B|"}},
        {"trailing comma is an empty e-mail", "123,Alice,\n", {"1:123|Alice|"}},
        {"invalid lines skipped", "no comma\n\n,Alice,x\n123,,x\n5,Eve,e\n", {"1:5|Eve|e"}},
        {"spaces stay in number and name, e-mail ends at a space",
         " 1 2 , Al ice ,  a@b c\r\n",
         {"1: 1 2 | Al ice |a@b"}},
        // A comma inside a name shifts the rest into the e-mail field.
        {"comma in name", "123,Smith, John,x\n", {"1:123|Smith|John,x"}},
        {"long fields cut to 50 bytes",
         k60 + "," + k60 + "," + k60 + "\n",
         {"1:" + k50 + "|" + k50 + "|" + k50}},
        // A cut at byte 50 would split the last kept character of these.
        {"long Cyrillic name cut between characters",
         "1,x" + times(kZhe, 26) + "\n",
         {"1:1|x" + times(kZhe, 24) + "|"}},
        {"long Chinese name never ends in half a character",
         "1,x" + times(kZhong, 17) + ",c\n",
         {"1:1|x" + times(kZhong, 16) + "|c"}},
        // A line longer than 511 characters is read in pieces, each one a line.
        {"long line read in pieces",
         "1," + std::string(509, 'a') + "9,Bob,b\n",
         {"1:1|" + std::string(50, 'a') + "|", "2:9|Bob|b"}},
        {"new entries fill the gaps from the lowest",
         "2,Two,\n4,Four,\n",
         {"1:1|One|", "2:2|Two|", "3:3|Three|", "4:4|Four|"},
         {{1, "1|One|"}, {3, "3|Three|"}}},
    };
    for (const auto &c : cases) {
        SetUp();
        if (!c.before.empty())
            store_book(STORAGE_TYPE_FLASH, c.before);
        std::ofstream(kText, std::ios::binary) << c.text;
        ASSERT_EQ(simlib_pb_import(kText.c_str(), STORAGE_TYPE_FLASH), PB_RCODE_OK) << c.what;
        EXPECT_EQ(load_book(STORAGE_TYPE_FLASH), c.expect) << c.what;
        EXPECT_FALSE(pbt::exists(kDevFile + "_tmp")) << c.what;
    }
    // A full phonebook skips every line.
    std::vector<std::pair<int, std::string>> all;
    for (int i = 1; i <= PB_MAX_ENTRIES; ++i)
        all.push_back({i, std::to_string(i) + "|n|"});
    store_book(STORAGE_TYPE_FLASH, all);
    const auto before = load_book(STORAGE_TYPE_FLASH);
    ASSERT_EQ(simlib_pb_import(kText.c_str(), STORAGE_TYPE_FLASH), PB_RCODE_OK);
    EXPECT_EQ(load_book(STORAGE_TYPE_FLASH), before);
}

// A refused import leaves the phonebook as it was; a refused export creates
// no file and leaves what is at its path alone. Only a regular file is read
// or replaced: a folder would read as nothing, a device or a FIFO might
// never end, and a rename would put a file in a device's place.
TEST_F(ImportExport, RefusedImportsAndExportsChangeNothing)
{
    store_book(STORAGE_TYPE_FLASH, {{1, "1|One|"}});
    const std::string in = TEST_WORK_DIR "/import_in.txt", fifo = TEST_WORK_DIR "/import_fifo";
    std::ofstream(in) << "2,Two,\n";
    std::remove(fifo.c_str());
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const zp_int32 idx[] = {1};
    const struct {
        bool import;
        const char *path;
        int type;
        const zp_int32 *array;
        pb_return_code_enum_t rc;
    } cases[] = {
        {true, nullptr, STORAGE_TYPE_FLASH, idx, PB_RCODE_ARGSERR},
        {true, "", STORAGE_TYPE_FLASH, idx, PB_RCODE_ARGSERR},
        {true, in.c_str(), STORAGE_TYPE_SIM, idx, PB_RCODE_INVALID_ERR},
        {true, TEST_WORK_DIR "/no/such/file", STORAGE_TYPE_FLASH, idx, PB_RCODE_INVALID_ERR},
        {true, in.c_str(), STORAGE_TYPE_UNKNOWN, idx, PB_RCODE_ERROR},
        {true, in.c_str(), 0, idx, PB_RCODE_ERROR},
        {true, TEST_WORK_DIR, STORAGE_TYPE_FLASH, idx, PB_RCODE_INVALID_ERR},
        {true, fifo.c_str(), STORAGE_TYPE_FLASH, idx, PB_RCODE_INVALID_ERR},
        {true, "/dev/zero", STORAGE_TYPE_FLASH, idx, PB_RCODE_INVALID_ERR},
        {false, nullptr, STORAGE_TYPE_FLASH, idx, PB_RCODE_ARGSERR},
        {false, "", STORAGE_TYPE_FLASH, idx, PB_RCODE_ARGSERR},
        {false, kText.c_str(), STORAGE_TYPE_FLASH, nullptr, PB_RCODE_ARGSERR},
        {false, kText.c_str(), STORAGE_TYPE_UNKNOWN, idx, PB_RCODE_ERROR},
        {false, TEST_WORK_DIR "/no/such/dir/out.txt", STORAGE_TYPE_FLASH, idx, PB_RCODE_ERROR},
        {false, TEST_WORK_DIR, STORAGE_TYPE_FLASH, idx, PB_RCODE_ERROR},
        {false, fifo.c_str(), STORAGE_TYPE_FLASH, idx, PB_RCODE_ERROR},
        {false, "/dev/full", STORAGE_TYPE_FLASH, idx, PB_RCODE_ERROR},
    };
    for (const auto &c : cases) {
        const auto type = static_cast<storage_type_t>(c.type);
        EXPECT_EQ(c.import ? simlib_pb_import(c.path, type) : simlib_pb_export(c.path, type, c.array, 1),
                  c.rc)
            << c.import << " " << c.type;
        EXPECT_EQ(load_book(STORAGE_TYPE_FLASH), std::vector<std::string>{"1:1|One|"});
        EXPECT_FALSE(pbt::exists(kText));
    }
    EXPECT_FALSE(pbt::exists(kSimFile)) << "import never writes the SIM phonebook";
    struct stat st {};
    EXPECT_TRUE(stat("/dev/full", &st) == 0 && S_ISCHR(st.st_mode));
    EXPECT_TRUE(stat(fifo.c_str(), &st) == 0 && S_ISFIFO(st.st_mode));
    std::remove(fifo.c_str());
}

TEST_F(ImportExport, ExportWritesNameFirstInArrayOrderAndSkipsMissing)
{
    store_book(STORAGE_TYPE_FLASH, {{1, "+4930123|Ann|a@x.de"}, {3, "0301|Lee, Bo|"}});
    const zp_int32 idx[] = {3, 1, 7, 0, -1};
    ASSERT_EQ(simlib_pb_export(kText.c_str(), STORAGE_TYPE_FLASH, idx, 5), PB_RCODE_OK);
    EXPECT_EQ(pbt::slurp(kText), "Lee, Bo,0301,\nAnn,+4930123,a@x.de\n");
    // In the SIM phonebook too an index is a place in the table, not a record.
    store_book(STORAGE_TYPE_SIM, {{2, "112|SOS|"}});  // SIM record 102
    const zp_int32 sim_idx[] = {102, 2};
    ASSERT_EQ(simlib_pb_export(kText.c_str(), STORAGE_TYPE_SIM, sim_idx, 2), PB_RCODE_OK);
    EXPECT_EQ(pbt::slurp(kText), "SOS,112,\n");
    // No index: an empty file, the old content gone; the file replaced
    // keeps its mode.
    ASSERT_EQ(chmod(kText.c_str(), 0604), 0);
    ASSERT_EQ(simlib_pb_export(kText.c_str(), STORAGE_TYPE_FLASH, nullptr, 0), PB_RCODE_OK);
    EXPECT_EQ(pbt::slurp(kText), "");
    struct stat st {};
    EXPECT_TRUE(stat(kText.c_str(), &st) == 0 && (st.st_mode & 07777) == 0604);
}

}  // namespace
