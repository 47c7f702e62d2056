// The command-line tool's argument parsing and output formatting.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "args.h"
#include "output.h"

namespace {

using namespace pbcli;

struct ArgCase {
    std::vector<const char *> argv;
    const char *error;  // substring of the expected error, or nullptr
};

class ParseArgs : public ::testing::TestWithParam<ArgCase> {};

TEST_P(ParseArgs, AcceptsOrRefusesWithAReason)
{
    std::vector<const char *> argv = {"pbcli"};
    argv.insert(argv.end(), GetParam().argv.begin(), GetParam().argv.end());
    Args a;
    std::string err = parse_args(static_cast<int>(argv.size()), argv.data(), &a);
    if (GetParam().error)
        EXPECT_NE(err.find(GetParam().error), std::string::npos) << "got: '" << err << "'";
    else
        EXPECT_EQ(err, "");
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ParseArgs,
    ::testing::Values(ArgCase{{}, "no command"}, ArgCase{{"frobnicate"}, "unknown command"},
                      ArgCase{{"list"}, "name the phonebook"}, ArgCase{{"list", "usb"}, "unknown phonebook"},
                      ArgCase{{"list", "sim", "3"}, "takes no index"}, ArgCase{{"show", "sim"}, "exactly one"},
                      ArgCase{{"show", "sim", "0"}, "not an index"}, ArgCase{{"show", "sim", "1001"}, "not an index"},
                      ArgCase{{"show", "sim", "-3"}, "unknown option"}, ArgCase{{"show", "sim", "2x"}, "not an index"},
                      ArgCase{{"add", "sim"}, "--name or --number"}, ArgCase{{"add", "sim", "-n"}, "needs a value"},
                      ArgCase{{"add", "sim", "4", "-n", "A"}, "takes no index"},
                      ArgCase{{"edit", "device", "4"}, "at least one"},
                      ArgCase{{"list", "device", "--name", "A"}, "takes no --name"},
                      ArgCase{{"delete", "sim"}, "one or more"}, ArgCase{{"delete-all", "sim"}, "--yes"},
                      ArgCase{{"import"}, "text file"}, ArgCase{{"export", "sim"}, "text file"},
                      ArgCase{{"--wait", "-1", "list", "sim"}, "seconds"},
                      ArgCase{{"--wait=abc", "list", "sim"}, "seconds"},
                      ArgCase{{"add", "sim", "-n", "012345678901234567890123456789012345678901234567890"}, "51 bytes"},
                      ArgCase{{"add", "sim", "-n", "a\nb"}, "line feed"},
                      ArgCase{{"list", "sim", "--json", "--wait", "2.5"}, nullptr},
                      ArgCase{{"delete-all", "device", "-y"}, nullptr},
                      ArgCase{{"export", "device", "out.txt", "3", "1"}, nullptr},
                      ArgCase{{"add", "sim", "--", "-n"}, "not an index"}));

TEST(ParseArgs, FillsEveryFieldOfAnEdit)
{
    const char *argv[] = {"pbcli", "-j", "edit", "sim", "17", "--name=Zoë", "-N", "+4930", "--email", ""};
    Args a;
    ASSERT_EQ(parse_args(10, argv, &a), "");
    EXPECT_EQ(a.cmd, Cmd::EDIT);
    EXPECT_TRUE(a.json);
    EXPECT_EQ(a.type, STORAGE_TYPE_SIM);
    EXPECT_EQ(a.indexes, std::vector<int>{17});
    EXPECT_EQ(a.name.value_or("?"), "Zoë");
    EXPECT_EQ(a.number.value_or("?"), "+4930");
    EXPECT_EQ(a.email.value_or("?"), "");  // given empty: clears the e-mail
}

TEST(ParseArgs, HelpAnywhereWins)
{
    const char *argv[] = {"pbcli", "delete-all", "sim", "--help"};
    Args a;
    ASSERT_EQ(parse_args(4, argv, &a), "");
    EXPECT_EQ(a.cmd, Cmd::HELP);
}

TEST(Rcodes, EveryResultCodeHasItsOwnMessage)
{
    for (int rc = PB_RCODE_ERROR; rc <= PB_RCODE_EMPTY_ERR; ++rc)
        EXPECT_EQ(rcode_message(rc).find("unexpected"), std::string::npos) << rc;
    EXPECT_EQ(rcode_message(PB_RCODE_READED_ERR), "SIM phonebook is still being read, try again");
    EXPECT_EQ(rcode_exit(PB_RCODE_READED_ERR), EXIT_NOT_READY);
    EXPECT_EQ(rcode_exit(PB_RCODE_ERROR), EXIT_NO_SERVICE);
    EXPECT_EQ(rcode_exit(99), EXIT_FAILED);
}

TEST(Json, StringsAlwaysParseWhateverTheBytes)
{
    struct {
        std::string in, out;
    } cases[] = {
        {"plain", "\"plain\""},
        {"a\"b\\c", "\"a\\\"b\\\\c\""},
        {"Ann\n", "\"Ann\\n\""},
        {std::string("\x01\x7f", 2), "\"\\u0001\\u007f\""},
        {"Zoë 王", "\"Zoë 王\""},
        {"\xF0\x9F\x98\x80", "\"\xF0\x9F\x98\x80\""},
        {"\xC3", "\"\\ufffd\""},                  // cut character
        {"\xE4\xB8", "\"\\ufffd\\ufffd\""},       // cut character
        {"\xC0\xAF", "\"\\ufffd\\ufffd\""},       // overlong form
        {"\xED\xA0\x80", "\"\\ufffd\\ufffd\\ufffd\""},  // surrogate
        {"\xFF" "a", "\"\\ufffda\""},
    };
    for (const auto &c : cases)
        EXPECT_EQ(json_string(c.in), c.out);
}

TEST(Json, DeviceEntryShowsSimIndexMinusOne)
{
    pb_flash_info e;
    std::memset(&e, 0, sizeof e);
    e.index = 4;
    e.sim_index = 0xFFFFFFFFu;
    std::strcpy(e.name, "A");
    EXPECT_EQ(json_entry(e), "{\"index\":4,\"sim_index\":-1,\"name\":\"A\",\"number\":\"\",\"email\":\"\"}");
}

TEST(Table, ColumnsLineUpWithWideAndEscapedText)
{
    EXPECT_EQ(display_width("Zoë"), 3u);
    EXPECT_EQ(display_width("王小明"), 6u);
    EXPECT_EQ(display_width("e\xCC\x81"), 1u);  // e and a combining accent
    EXPECT_EQ(display_text("Ann\n"), "Ann\\n");
    EXPECT_EQ(display_text("\xFF"), "\\xFF");

    std::vector<pb_flash_info> v(3);
    const char *names[] = {"王小明", "Zoë", "Ann\n"};
    for (int i = 0; i < 3; ++i) {
        std::memset(&v[i], 0, sizeof v[i]);
        v[i].index = i + 1;
        v[i].sim_index = 100 + i;
        std::strcpy(v[i].name, names[i]);
        std::strcpy(v[i].num, "+1");
    }
    std::ostringstream out;
    print_table(out, STORAGE_TYPE_SIM, v);
    std::istringstream in(out.str());
    std::string line;
    std::getline(in, line);
    EXPECT_EQ(line, "SIM phonebook: 3 entries");
    std::vector<size_t> number_column;
    while (std::getline(in, line)) {
        size_t at = line.find(line.find("Number") != std::string::npos ? "Number" : "+1");
        number_column.push_back(display_width(line.substr(0, at)));
    }
    ASSERT_EQ(number_column.size(), 4u);
    for (size_t col : number_column)
        EXPECT_EQ(col, number_column[0]);
}

}  // namespace
