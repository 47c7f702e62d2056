// The command-line tool's argument parsing and output formatting.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "args.h"
#include "json_writer.h"
#include "table.h"
#include "words.h"

namespace {

using namespace pbcli;
using namespace pbui;

std::string parse(std::vector<const char *> argv, Args *a)
{
    argv.insert(argv.begin(), "pbcli");
    return parse_args(static_cast<int>(argv.size()), argv.data(), a);
}

TEST(ParseArgs, RefusesWhatTheServiceWouldMisread)
{
    const struct {
        std::vector<const char *> argv;
        const char *error;  // part of the message
    } cases[] = {
        {{"show", "sim", "0"}, "not an index"},
        {{"show", "sim", "2x"}, "not an index"},
        {{"add", "sim", "--", "-n"}, "not an index"},
        {{"add", "sim", "-n", "012345678901234567890123456789012345678901234567890"}, "51 bytes"},
        {{"add", "sim", "-n", "a\nb"}, "line feed"},  // would split an exported line
        {{"edit", "device", "4"}, "at least one"},
        {{"delete-all", "sim"}, "--yes"},
        {{"add", "sim", "-n", "x", "-N", "030_123"}, "'_' at place 4"},
        {{"copy", "sim", "sim"}, "copy sim device, or copy device sim"},
        {{"copy", "sim", "device", "--cut"}, "--cut is for copy device sim"},
        {{"import", "f.vcf", "--format", "xml"}, "vcard, csv or module"},
        {{"list", "sim", "--format", "csv"}, "takes no --format"},
        // Numbers and options are checked to the end of the word, and the
        // message names what was refused.
        {{"show", "sim", "99999999999999999999"}, "'99999999999999999999' is not an index"},  // overflows
        {{"show", "sim", " 7"}, "' 7' is not an index"},
        {{"show", "sim", "-1"}, "unknown option '-1'"},
        {{"list", "sim", "--wait", "abc"}, "--wait takes seconds from 0 to 3600, not 'abc'"},
        {{"list", "sim", "-w", ""}, "not ''"},
        {{"list", "sim", "-w", "1e9"}, "not '1e9'"},
        {{"list", "sim", "--wait"}, "--wait needs a value"},
        {{"list", "sim", "--json=1"}, "--json takes no value"},
        {{"list", "sim", "--bogus"}, "option '--bogus'"},
        {{"add", "sim", "--n", "x"}, "option '--n'"},  // --name or --number
    };
    for (const auto &c : cases) {
        Args a;
        EXPECT_NE(parse(c.argv, &a).find(c.error), std::string::npos) << c.argv[0] << " " << c.argv.back();
    }
}

TEST(ParseArgs, TakesOptionsAnywhereInBothSpellings)
{
    Args a;
    ASSERT_EQ(
        parse({"edit", "sim", "17", "--name=Zoë", "-j", "-N", "+49 (30)", "--email", "", "-w", "2.5"}, &a),
        "");
    EXPECT_EQ(a.cmd, Cmd::EDIT);
    EXPECT_TRUE(a.json);
    EXPECT_EQ(a.type, STORAGE_TYPE_SIM);
    EXPECT_EQ(a.indexes, std::vector<int>{17});
    EXPECT_EQ(a.name.value_or("?"), "Zoë");
    EXPECT_EQ(a.number.value_or("?"), "+4930");  // tidied
    EXPECT_EQ(a.email.value_or("?"), "");        // given empty: clears the e-mail
    EXPECT_EQ(a.wait_seconds, 2.5);

    ASSERT_EQ(parse({"copy", "device", "sim", "3", "--cut", "-v", "1"}, &a), "");
    EXPECT_EQ(a.cmd, Cmd::COPY);
    EXPECT_EQ(a.type, STORAGE_TYPE_FLASH);
    EXPECT_EQ(a.to, STORAGE_TYPE_SIM);
    EXPECT_EQ(a.indexes, (std::vector<int>{3, 1}));
    EXPECT_TRUE(a.cut && a.verbose);
}

TEST(Rcodes, EveryResultCodeHasAMessage)
{
    for (int rc = PB_RCODE_ERROR; rc <= PB_RCODE_EMPTY_ERR; ++rc)
        EXPECT_EQ(rcode_message(rc).find("unexpected"), std::string::npos) << rc;
}

// A change that did not land says why in words of its own: the card, the
// file, or the read still running (which is asked again, not failed).
TEST(Rcodes, CardFileAndReadFailuresAreToldApart)
{
    const struct {
        int rc;
        const char *words;
        Exit exit;
        bool busy;
    } cases[] = {
        {PB_RCODE_SWAP_ERR, "SIM card refused", EXIT_FAILED, false},
        {PB_RCODE_WRITE_ERR, "file could not be saved", EXIT_FAILED, false},
        {PB_RCODE_READED_ERR, "being read", EXIT_NOT_READY, true},
        {PB_RCODE_INIT_ERR, "not ready", EXIT_NOT_READY, true},
    };
    for (const auto &c : cases) {
        EXPECT_NE(rcode_message(c.rc).find(c.words), std::string::npos) << c.rc;
        EXPECT_EQ(rcode_exit(c.rc), c.exit) << c.rc;
        EXPECT_EQ(rcode_busy(c.rc), c.busy) << c.rc;
    }
}

TEST(Json, StringsAlwaysParseWhateverTheBytes)
{
    const struct {
        std::string in, out;
    } cases[] = {
        {"Zoë 王\xF0\x9F\x98\x80", "\"Zoë 王\xF0\x9F\x98\x80\""},
        {"\xE4\xB8", "\"\\ufffd\\ufffd\""},             // cut character
        {"\xC0\xAF", "\"\\ufffd\\ufffd\""},             // overlong form
        {"\xED\xA0\x80", "\"\\ufffd\\ufffd\\ufffd\""},  // surrogate
    };
    for (const auto &c : cases)
        EXPECT_EQ(json_string(c.in), c.out);
}

// The writer copies eight bytes at a time: a byte that needs a look must be
// caught wherever it falls in a word, and what follows it kept.
TEST(Json, EscapesAreFoundAtEveryPlaceOfALongText)
{
    const struct {
        std::string in, out;
    } specials[] = {
        {"\"", "\\\""},      {"\\", "\\\\"}, {"\n", "\\n"},       {"\x1f", "\\u001f"},
        {"\x7f", "\\u007f"}, {"é", "é"},     {"\xff", "\\ufffd"}, {std::string(1, '\0'), "\\u0000"},
    };
    for (const auto &c : specials)
        for (size_t at = 0; at < 18; ++at) {
            const std::string head(at, 'a'), tail(9, 'z');
            EXPECT_EQ(json_string(head + c.in + tail), "\"" + head + c.out + tail + "\"")
                << at << ": " << c.out;
        }
}

TEST(Json, EntryTextsEndAtTheirNulOrTheFieldsEnd)
{
    std::vector<pb_flash_info> v(2);  // zero-filled
    v[0].index = 1000;
    v[0].sim_index = 0xFFFFFFFFu;
    std::memset(v[0].name, 'n', sizeof v[0].name);  // all 51 bytes, no NUL
    std::strcpy(v[0].num, "+4930123456");
    std::strcpy(v[0].email, "ann.lee@\"example\".org");
    v[1].index = 2;
    v[1].sim_index = 7;
    const std::string first = "{\"index\":1000,\"sim_index\":-1,\"name\":\"" + std::string(51, 'n') +
                              "\",\"number\":\"+4930123456\",\"email\":\"ann.lee@\\\"example\\\".org\"}";
    EXPECT_EQ(json_entry(v[0]), first);
    EXPECT_EQ(json_entries(v),
              "[" + first + ",{\"index\":2,\"sim_index\":7,\"name\":\"\",\"number\":\"\",\"email\":\"\"}]");
}

TEST(Table, ColumnsLineUpWithWideAndEscapedText)
{
    std::vector<pb_flash_info> v(3);                         // zero-filled
    const char *names[] = {"王小明", "Zoë", "e\xCC\x81\n"};  // wide; accent; combining accent and line feed
    for (int i = 0; i < 3; ++i) {
        v[i].index = i + 1;
        std::strcpy(v[i].name, names[i]);
        std::strcpy(v[i].num, "+1");
    }
    std::ostringstream out;
    print_table(out, STORAGE_TYPE_SIM, v);
    // Chinese characters take two columns, a combining accent none; a line
    // feed is shown escaped so that one entry stays on one line.
    EXPECT_EQ(out.str(), "SIM phonebook: 3 entries\n"
                         "Index  SIM  Name    Number  E-mail\n"
                         "    1    0  王小明  +1\n"
                         "    2    0  Zoë     +1\n"
                         "    3    0  e\xCC\x81\\n     +1\n");
}

}  // namespace
