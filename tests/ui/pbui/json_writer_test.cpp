// The one JSON writer of pbcli and pbweb: output that parses whatever the
// bytes of a field, and entries written as they are.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "json_writer.h"

namespace {

using namespace pbui;

// Output parses whatever the bytes: each byte that needs a look is caught
// wherever it falls in the eight-byte words the writer copies, and what
// follows it is kept.
TEST(Json, EscapesAreFoundAtEveryPlaceOfALongText)
{
    const struct {
        std::string in, out;
    } specials[] = {
        {"\"", "\\\""},
        {"\\", "\\\\"},
        {"\n", "\\n"},
        {"\x1f", "\\u001f"},
        {"\x7f", "\\u007f"},
        {"é", "é"},
        {"\xff", "\\ufffd"},
        {std::string(1, '\0'), "\\u0000"},
        {"王\xF0\x9F\x98\x80", "王\xF0\x9F\x98\x80"},
        {"\xE4\xB8", "\\ufffd\\ufffd"},             // cut character
        {"\xC0\xAF", "\\ufffd\\ufffd"},             // overlong form
        {"\xED\xA0\x80", "\\ufffd\\ufffd\\ufffd"},  // surrogate
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

}  // namespace
