// pbcli's own parts: its command line and its tables.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "args.h"
#include "table.h"

namespace {

using namespace pbcli;

std::string parse(std::vector<const char *> argv, Args *a)
{
    argv.insert(argv.begin(), "pbcli");
    return parse_args(static_cast<int>(argv.size()), argv.data(), a);
}

// (Refusals a golden transcript prints are left to it.)
TEST(ParseArgs, RefusesWhatTheServiceWouldMisread)
{
    const struct {
        std::vector<const char *> argv;
        const char *error;  // part of the message
    } cases[] = {
        {{"show", "sim", "2x"}, "not an index"},
        {{"add", "sim", "--", "-n"}, "not an index"},
        {{"add", "sim", "-n", "012345678901234567890123456789012345678901234567890"}, "51 bytes"},
        {{"add", "sim", "-n", "a\nb"}, "control characters"},  // would split an exported line
        {{"edit", "device", "4"}, "at least one"},
        {{"add", "sim", "-n", "x", "-N", "030_123"}, "'_' at place 4"},
        {{"copy", "sim", "device", "--cut"}, "--cut is for copy device sim"},
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
        {{"list", "sim", "--bogus"}, "option '--bogus'"},
        {{"add", "sim", "--n", "x"}, "option '--n'"},  // --name or --number
        {{"who", "1-800-FLOWERS"}, "'F' at place 7"},
        {{"find", "anna", "--country", "DE"}, "takes no --country"},
        {{"merge", "--keep", "sim6", "--yes"}, "--keep takes PHONEBOOK:INDEX"},
        {{"merge", "--keep", "device:0", "--yes"}, "--keep takes PHONEBOOK:INDEX"},
        {{"list", "sim", "--keep", "sim:1"}, "takes no --keep"},
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
