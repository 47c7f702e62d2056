// Import and export on crafted text files, against the real device and SIM
// phonebook files under PB_DATA_DIR.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "zpt_ui_pb_api.h"
#include "zpt_ui_pb_func.h"

namespace {

const std::string kDevFile = PB_DATA_DIR "/pb_device_file";
const std::string kSimFile = PB_DATA_DIR "/pb_sim_file";
const std::string kText = TEST_WORK_DIR "/import_export_test.txt";
// Start from an empty log: the log library opens it on first use, after this.
const int g_fresh_log = std::remove(TEST_LOG_FILE);

struct Row {
    std::string num, name, email;
};

bool operator==(const Row &a, const Row &b) { return a.num == b.num && a.name == b.name && a.email == b.email; }
std::ostream &operator<<(std::ostream &os, const Row &r)
{
    return os << "{num=\"" << r.num << "\" name=\"" << r.name << "\" email=\"" << r.email << "\"}";
}

std::unique_ptr<pb_mem_info> empty_table()
{
    auto t = std::make_unique<pb_mem_info>();
    std::memset(t.get(), 0, sizeof *t);
    return t;
}

std::unique_ptr<pb_mem_info> load(storage_type_t type)
{
    auto t = empty_table();
    EXPECT_EQ(simlib_pb_from_flash(type, t.get()), 0);
    return t;
}

// Stores entries at the given indexes, leaving the other slots free.
void store(storage_type_t type, const std::vector<std::pair<int, Row>> &entries)
{
    auto t = empty_table();
    for (const auto &[index, r] : entries) {
        pb_flash_info &e = t->mem.pb[index - 1];
        e.index = index;
        e.sim_index = type == STORAGE_TYPE_SIM ? index + 100 : 0xFFFFFFFFu;
        std::snprintf(e.num, sizeof e.num, "%s", r.num.c_str());
        std::snprintf(e.name, sizeof e.name, "%s", r.name.c_str());
        std::snprintf(e.email, sizeof e.email, "%s", r.email.c_str());
        ++t->mem.pb_count;
    }
    ASSERT_EQ(simlib_pb_to_flash(type, t.get()), 0);
}

std::vector<std::pair<int, Row>> used(const pb_mem_info &t)
{
    std::vector<std::pair<int, Row>> out;
    for (const auto &e : t.mem.pb)
        if (e.index != 0)
            out.push_back({static_cast<int>(e.index), Row{e.num, e.name, e.email}});
    return out;
}

void write_text(const std::string &content)
{
    std::ofstream(kText, std::ios::binary | std::ios::trunc) << content;
}

std::string read_text(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

long file_size(const std::string &path)
{
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    return in ? static_cast<long>(in.tellg()) : -1;
}

std::string repeat(const std::string &s, int n)
{
    std::string out;
    while (n-- > 0)
        out += s;
    return out;
}

class ImportExport : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (const auto &f : {kDevFile, kSimFile, kDevFile + "_tmp", kSimFile + "_tmp", kText})
            std::remove(f.c_str());
    }
};

struct LineCase {
    const char *what;
    std::string text;
    std::vector<Row> expect;
};

class ImportLines : public ImportExport, public ::testing::WithParamInterface<LineCase> {};

TEST_P(ImportLines, ParsesAsTheLineFormatSays)
{
    write_text(GetParam().text);
    ASSERT_EQ(simlib_pb_import(kText.c_str(), STORAGE_TYPE_FLASH), PB_RCODE_OK);
    auto t = load(STORAGE_TYPE_FLASH);
    std::vector<Row> got;
    int next = 1;
    for (const auto &[index, r] : used(*t)) {
        EXPECT_EQ(index, next++) << "imported entries fill slots from the lowest";
        got.push_back(r);
    }
    EXPECT_EQ(got, GetParam().expect);
    for (const auto &e : t->mem.pb) {
        if (e.index != 0) {
            EXPECT_EQ(e.sim_index, 0xFFFFFFFFu) << "an imported entry is a device entry";
        }
    }
}

const std::string k60 = repeat("n", 60);
const std::string kPiece = "1," + repeat("a", 509);  // exactly what one 512-byte read takes

INSTANTIATE_TEST_SUITE_P(
    Cases, ImportLines,
    ::testing::Values(
        LineCase{"three_fields", "123,Alice,home\n", {{"123", "Alice", "home"}}},
        // The name runs to the next comma, so without one the line feed stays.
        LineCase{"two_fields_keep_line_feed", "123,Alice\n", {{"123", "Alice\n", ""}}},
        LineCase{"trailing_comma_is_empty_email", "123,Alice,\n", {{"123", "Alice", ""}}},
        LineCase{"last_line_without_line_feed", "1,A,a\n2,B", {{"1", "A", "a"}, {"2", "B", ""}}},
        LineCase{"invalid_lines_skipped",
                 "no comma\n\n,Alice,x\n123,,x\n5,Eve,e\n",
                 {{"5", "Eve", "e"}}},
        LineCase{"spaces_stay_in_number_and_name_email_ends_at_space",
                 " 12 3 , Al ice ,  a@b c\n",
                 {{" 12 3 ", " Al ice ", "a@b"}}},
        // A comma inside a name shifts the rest into the e-mail field.
        LineCase{"comma_in_name", "123,Smith, John,x\n", {{"123", "Smith", "John,x"}}},
        LineCase{"crlf_line_ending", "123,Alice,home\r\n", {{"123", "Alice", "home"}}},
        // Fields longer than 50 bytes are cut at the last whole character.
        LineCase{"long_ascii_fields_cut_to_50",
                 k60 + "," + k60 + "," + k60 + "\n",
                 {{k60.substr(0, 50), k60.substr(0, 50), k60.substr(0, 50)}}},
        LineCase{"long_cyrillic_name_cut_between_characters",
                 "1," + repeat("\xD0\x96", 26) + "\n",  // 52 bytes of two-byte characters
                 {{"1", repeat("\xD0\x96", 25), ""}}},
        LineCase{"long_chinese_name_never_ends_in_half_a_character",
                 "1," + repeat("\xE4\xB8\xAD", 17) + ",c\n",  // 51 bytes
                 {{"1", repeat("\xE4\xB8\xAD", 16), "c"}}},
        LineCase{"long_mixed_name_cut_after_odd_offset",
                 "1,x" + repeat("\xE4\xB8\xAD", 17) + ",c\n",  // 52 bytes; a cut at 50 would split
                 {{"1", "x" + repeat("\xE4\xB8\xAD", 16), "c"}}},
        LineCase{"long_four_byte_name",
                 "1," + repeat("\xF0\x9F\x98\x80", 13) + "\n",
                 {{"1", repeat("\xF0\x9F\x98\x80", 12), ""}}},
        // A line longer than 511 characters is read in pieces, each one a line.
        LineCase{"long_line_read_in_pieces",
                 kPiece + "9,Bob,b\n",
                 {{"1", repeat("a", 50), ""}, {"9", "Bob", "b"}}}),
    [](const ::testing::TestParamInfo<LineCase> &c) { return std::string(c.param.what); });

TEST_F(ImportExport, OneLineIntoEmptyPhonebookWritesOneRecord)
{
    write_text("123,Alice,home\n");
    ASSERT_EQ(simlib_pb_import(kText.c_str(), STORAGE_TYPE_FLASH), PB_RCODE_OK);
    EXPECT_EQ(file_size(kDevFile), PB_RECORD_SIZE);
    auto t = load(STORAGE_TYPE_FLASH);
    EXPECT_EQ(t->mem.pb[0].index, 1u);
    EXPECT_EQ(t->mem.pb_count, 1u);
}

TEST_F(ImportExport, NewEntriesFillGapsAndKeepExistingIndexes)
{
    store(STORAGE_TYPE_FLASH, {{1, {"1", "One", ""}}, {3, {"3", "Three", ""}}});
    write_text("2,Two,\n4,Four,\n");
    ASSERT_EQ(simlib_pb_import(kText.c_str(), STORAGE_TYPE_FLASH), PB_RCODE_OK);
    auto t = load(STORAGE_TYPE_FLASH);
    std::vector<std::pair<int, Row>> want = {
        {1, {"1", "One", ""}}, {2, {"2", "Two", ""}}, {3, {"3", "Three", ""}}, {4, {"4", "Four", ""}}};
    EXPECT_EQ(used(*t), want);
    EXPECT_EQ(t->mem.pb_count, 4u);
}

TEST_F(ImportExport, FullPhonebookSkipsLinesAndStillSucceeds)
{
    std::vector<std::pair<int, Row>> all;
    for (int i = 1; i <= PB_MAX_ENTRIES; ++i)
        all.push_back({i, {std::to_string(i), "n" + std::to_string(i), ""}});
    store(STORAGE_TYPE_FLASH, all);
    write_text("5,Extra,x\n6,More,y\n");
    ASSERT_EQ(simlib_pb_import(kText.c_str(), STORAGE_TYPE_FLASH), PB_RCODE_OK);
    auto t = load(STORAGE_TYPE_FLASH);
    EXPECT_EQ(t->mem.pb_count, static_cast<zp_uint32>(PB_MAX_ENTRIES));
    EXPECT_EQ(used(*t), all);
}

TEST_F(ImportExport, RefusedImportsLeaveThePhonebookUntouched)
{
    store(STORAGE_TYPE_FLASH, {{1, {"1", "One", ""}}});
    write_text("2,Two,\n");
    struct {
        const char *path;
        int type;
        pb_return_code_enum_t rc;
    } cases[] = {
        {nullptr, STORAGE_TYPE_FLASH, PB_RCODE_ARGSERR},
        {"", STORAGE_TYPE_FLASH, PB_RCODE_ARGSERR},
        {kText.c_str(), STORAGE_TYPE_SIM, PB_RCODE_INVALID_ERR},
        {TEST_WORK_DIR "/no/such/file", STORAGE_TYPE_FLASH, PB_RCODE_INVALID_ERR},
        {kText.c_str(), STORAGE_TYPE_UNKNOWN, PB_RCODE_ERROR},
        {kText.c_str(), 0, PB_RCODE_ERROR},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(simlib_pb_import(c.path, static_cast<storage_type_t>(c.type)), c.rc)
            << (c.path ? c.path : "(null)") << " type " << c.type;
        EXPECT_EQ(file_size(kDevFile), PB_RECORD_SIZE);
    }
    EXPECT_EQ(file_size(kSimFile), -1) << "import never creates the SIM phonebook file";
}

TEST_F(ImportExport, ExportWritesNameFirstInArrayOrderAndSkipsMissing)
{
    store(STORAGE_TYPE_FLASH, {{1, {"+4930123", "Ann", "a@x.de"}}, {3, {"0301", "Lee, Bo", ""}}});
    const zp_int32 idx[] = {3, 1, 7, 0, -1};
    ASSERT_EQ(simlib_pb_export(kText.c_str(), STORAGE_TYPE_FLASH, idx, 5), PB_RCODE_OK);
    // A comma in a name is written unchanged.
    EXPECT_EQ(read_text(kText), "Lee, Bo,0301,\nAnn,+4930123,a@x.de\n");
}

TEST_F(ImportExport, ExportOfSimPhonebookTakesTablePlacesNotRecordNumbers)
{
    store(STORAGE_TYPE_SIM, {{2, {"112", "SOS", ""}}});  // stored with SIM record 102
    const zp_int32 idx[] = {102, 2};
    ASSERT_EQ(simlib_pb_export(kText.c_str(), STORAGE_TYPE_SIM, idx, 2), PB_RCODE_OK);
    EXPECT_EQ(read_text(kText), "SOS,112,\n");
}

TEST_F(ImportExport, ExportCountZeroOrLessTruncatesToEmptyFile)
{
    store(STORAGE_TYPE_FLASH, {{1, {"1", "One", ""}}});
    for (int count : {0, -3}) {
        write_text("old content\n");
        ASSERT_EQ(simlib_pb_export(kText.c_str(), STORAGE_TYPE_FLASH, nullptr, count), PB_RCODE_OK);
        EXPECT_EQ(file_size(kText), 0) << count;
    }
}

TEST_F(ImportExport, RefusedExportsCreateNoFile)
{
    const zp_int32 idx[] = {1};
    struct {
        const char *path;
        int type;
        const zp_int32 *array;
        pb_return_code_enum_t rc;
    } cases[] = {
        {nullptr, STORAGE_TYPE_FLASH, idx, PB_RCODE_ARGSERR},
        {"", STORAGE_TYPE_FLASH, idx, PB_RCODE_ARGSERR},
        {kText.c_str(), STORAGE_TYPE_FLASH, nullptr, PB_RCODE_ARGSERR},
        {kText.c_str(), STORAGE_TYPE_UNKNOWN, idx, PB_RCODE_ERROR},
        {TEST_WORK_DIR "/no/such/dir/out.txt", STORAGE_TYPE_FLASH, idx, PB_RCODE_ERROR},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(simlib_pb_export(c.path, static_cast<storage_type_t>(c.type), c.array, 1), c.rc);
        EXPECT_EQ(file_size(kText), -1);
    }
}

TEST_F(ImportExport, SkippedLinesAndIndexesAreLoggedWithTheirText)
{
    store(STORAGE_TYPE_FLASH, {{1, {"1", "One", ""}}});
    write_text("garbage\n");
    ASSERT_EQ(simlib_pb_import(kText.c_str(), STORAGE_TYPE_FLASH), PB_RCODE_OK);
    const zp_int32 idx[] = {7};
    ASSERT_EQ(simlib_pb_export(kText.c_str(), STORAGE_TYPE_FLASH, idx, 1), PB_RCODE_OK);
    const std::string log = read_text(TEST_LOG_FILE);
    EXPECT_NE(log.find(":simlib_pb_import:"), std::string::npos);
    EXPECT_NE(log.find("]Invalied entry string: garbage"), std::string::npos);
    EXPECT_NE(log.find("]PB EDIT ENTRY: index = 7 not exist"), std::string::npos);
}

}  // namespace
