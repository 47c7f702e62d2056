// pbweb's own request parsing: routes, index lists, JSON bodies and entry
// fields. What is refused here never reaches the phonebook.
#include <gtest/gtest.h>

#include "entries.h"
#include "json.h"
#include "request.h"

namespace pbweb {
namespace {

TEST(PbwebJson, AcceptsWhatRfc8259AllowsAndRefusesTheRest)
{
    const struct {
        const char *text;
        bool ok;
    } cases[] = {
        {R"({"a":[1,-2.5e3,true,false,null,"x"],"b":{}})", true},
        {" \t\r\n[]\n", true},
        {R"("\u00e9\ud83d\ude00\/\"")", true},
        {"", false},
        {"{", false},
        {"{\"a\":1,}", false},
        {"[1,]", false},
        {"{\"a\" 1}", false},
        {"01", false},
        {"1.", false},
        {"-", false},
        {"1e", false},
        {"tru", false},
        {"[1] x", false},
        {"\"a\nb\"", false},     // raw control character
        {"\"\\x41\"", false},    // no such escape
        {"\"\\ud800\"", false},  // lone high surrogate
        {"\"\\udc00\"", false},  // lone low surrogate
        {"\"\\ud800\\u0041\"", false},
        {"\"\\u12\"", false},
        {"\"\xC3\"", false},          // cut UTF-8
        {"\"\xC0\xAF\"", false},      // overlong UTF-8
        {"\"\xED\xA0\x80\"", false},  // UTF-8 surrogate
    };
    for (const auto &c : cases) {
        Json v;
        std::string err;
        EXPECT_EQ(parse_json(c.text, &v, &err), c.ok) << c.text << ": " << err;
    }
}

TEST(PbwebJson, DecodesEscapesAndKeepsTheLastOfRepeatedFields)
{
    Json v;
    std::string err;
    ASSERT_TRUE(parse_json(R"({"n":"a\u00e9\ud83d\ude00\t","n2":"Ж","k":1,"k":2})", &v, &err)) << err;
    EXPECT_EQ(v.get("n")->text, "a\xC3\xA9\xF0\x9F\x98\x80\t");
    EXPECT_EQ(v.get("n2")->text, "Ж");
    EXPECT_EQ(v.get("k")->number, 2);
    EXPECT_EQ(v.get("none"), nullptr);
}

TEST(PbwebJson, DeepNestingIsRefusedNotRecursedInto)
{
    Json v;
    std::string err;
    EXPECT_TRUE(parse_json(std::string(16, '[') + std::string(16, ']'), &v, &err)) << err;
    EXPECT_FALSE(parse_json(std::string(100000, '['), &v, &err));
    EXPECT_NE(err.find("deeply"), std::string::npos) << err;
}

// Every operation's own route is used by the API test; here the edges of
// the index, the methods and the paths that are no route.
TEST(PbwebRoute, MethodAndPathGiveTheOperation)
{
    const struct {
        const char *method, *path;
        Op op;
        storage_type_t type;
        int index;
    } cases[] = {
        {"POST", "/api/status", Op::BAD_METHOD, STORAGE_TYPE_UNKNOWN, 0},
        {"GET", "/api/device/entries/1000", Op::SHOW, STORAGE_TYPE_FLASH, 1000},
        {"PUT", "/api/sim/entries/7", Op::EDIT, STORAGE_TYPE_SIM, 7},
        {"DELETE", "/api/sim/entries/7", Op::BAD_METHOD, STORAGE_TYPE_SIM, 7},
        {"POST", "/api/sim/import", Op::NOT_FOUND, STORAGE_TYPE_SIM, 0},
        {"GET", "/api/device/entries/0", Op::NOT_FOUND, STORAGE_TYPE_FLASH, 0},
        {"GET", "/api/device/entries/1001", Op::NOT_FOUND, STORAGE_TYPE_FLASH, 0},
        {"GET", "/api/device/entries/+1", Op::NOT_FOUND, STORAGE_TYPE_FLASH, 0},
        {"GET", "/api/device/entries/", Op::NOT_FOUND, STORAGE_TYPE_FLASH, 0},
        {"GET", "/api/device/entries/1/x", Op::NOT_FOUND, STORAGE_TYPE_FLASH, 0},
        {"GET", "/api/SIM/entries", Op::NOT_FOUND, STORAGE_TYPE_UNKNOWN, 0},
        {"GET", "/api//entries", Op::NOT_FOUND, STORAGE_TYPE_UNKNOWN, 0},
        {"GET", "/api", Op::NOT_FOUND, STORAGE_TYPE_UNKNOWN, 0},
        {"GET", "/apix/status", Op::NOT_FOUND, STORAGE_TYPE_UNKNOWN, 0},
    };
    for (const auto &c : cases) {
        const Route r = parse_route(c.method, c.path);
        EXPECT_EQ(static_cast<int>(r.op), static_cast<int>(c.op)) << c.method << " " << c.path;
        if (r.op != Op::NOT_FOUND) {
            EXPECT_EQ(r.type, c.type) << c.path;
            EXPECT_EQ(r.index, c.index) << c.path;
        }
    }
}

TEST(PbwebRequest, IndexListsTakeOnlyIndexesFrom1To1000)
{
    std::vector<int> v;
    std::string err;
    ASSERT_TRUE(parse_index_list("3,1,1000", &v, &err)) << err;
    EXPECT_EQ(v, (std::vector<int>{3, 1, 1000}));
    for (const char *bad : {"", "1,", ",1", "0", "1001", "1;2", "1,,2", "-1", "1 ", "99999"})
        EXPECT_FALSE(parse_index_list(bad, &v, &err)) << bad;
    std::string many = "1";
    for (int i = 0; i < 1000; ++i)
        many += ",1";
    EXPECT_FALSE(parse_index_list(many, &v, &err)) << "1001 indexes";
}

TEST(PbwebRequest, EntryFieldsAreCheckedAndMatched)
{
    const auto fields = [](const char *body, EntryFields *f, std::string *err) {
        Json v;
        return parse_json(body, &v, err) && read_entry_fields(v, f, err);
    };
    EntryFields f;
    std::string err;
    ASSERT_TRUE(fields(R"({"name":"Zoë","number":"+49*#PWT1","other":1})", &f, &err)) << err;
    EXPECT_EQ(*f.name, "Zoë");
    EXPECT_FALSE(f.email.has_value());
    ASSERT_TRUE(fields(R"({"number":"+49 (30) 1-2.3 p*#wt"})", &f, &err)) << err;
    EXPECT_EQ(*f.number, "+4930123P*#WT") << "tidied as stored";
    for (const char *bad : {R"({"number":"1+2"})", R"({"number":"030_1"})", R"({"number":"1a"})",
                            R"({"number":"+"})", R"({"email":"a\tb"})", R"({"name":null})", R"([])"})
        EXPECT_FALSE(fields(bad, &f, &err)) << bad;
    EXPECT_TRUE(fields(("{\"name\":\"" + std::string(25, '\xD0') + "\"}").c_str(), &f, &err) == false)
        << "not UTF-8";

    const pb_flash_info e{4, 0, "Jürgen Groß", "+491711234567", ""};
    EXPECT_TRUE(pbui::entry_holds(e, {}));
    EXPECT_TRUE(
        pbui::entry_holds(e, {std::string("Jürgen Groß"), std::string("+491711234567"), std::string("")}));
    EXPECT_FALSE(pbui::entry_holds(e, {std::string("Jürgen"), {}, {}}));
    EXPECT_FALSE(pbui::entry_holds(e, {{}, {}, std::string("x")}));
}

}  // namespace
}  // namespace pbweb
