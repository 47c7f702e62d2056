// Number equivalence: every country's international, 00 and national forms
// with and without its home country, then the pairs that must not match.
// A fault here shows a caller under someone else's name, or merges two
// people's entries into one.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "contacts.h"

namespace {

using pbui::NumberMatch;

// A country's number as its own people dial it (trunk prefix included) and
// its international form's digits.
struct Country {
    const char *iso;
    const char *national;
    const char *international;
};

const std::vector<Country> kCountries = {
    {"GB", "020 7946 0018", "44 20 7946 0018"}, {"US", "1 212 555 0100", "1 212 555 0100"},
    {"AU", "02 5550 1234", "61 2 5550 1234"},   {"DE", "030 12345678", "49 30 12345678"},
    {"DE", "0151 23456789", "49 151 23456789"}, {"FR", "01 99 00 12 34", "33 1 99 00 12 34"},
    {"CH", "044 123 45 67", "41 44 123 45 67"}, {"IT", "06 1234 5678", "39 06 1234 5678"},
    {"ES", "91 123 45 67", "34 91 123 45 67"},  {"RU", "8 495 123 45 67", "7 495 123 45 67"},
    {"CN", "010 8765 4321", "86 10 8765 4321"}, {"JP", "090 1234 5678", "81 90 1234 5678"},
    {"HU", "06 1 234 5678", "36 1 234 5678"},   {"NL", "06 12345678", "31 6 12345678"},
    {"DK", "20 12 34 56", "45 20 12 34 56"},    {"IE", "01 234 5678", "353 1 234 5678"},
    {"US", "(212) 555-0100", "1 212 555 0100"}, {"CA", "416 555 0199", "1 416 555 0199"},
};

TEST(SameNumber, EveryFormOfOneNumberMatchesWithAndWithoutHome)
{
    for (const Country &c : kCountries) {
        SCOPED_TRACE(std::string(c.iso) + " " + c.national);
        const pbui::Country *home = pbui::find_country(c.iso);
        ASSERT_NE(home, nullptr);
        const std::string plus = std::string("+") + c.international;
        const std::string zeros = std::string("00") + c.international;
        for (const pbui::Country *h : {home, static_cast<const pbui::Country *>(nullptr)}) {
            EXPECT_EQ(pbui::match_numbers(plus, zeros, h), NumberMatch::EQUAL);
            EXPECT_EQ(pbui::match_numbers(plus + " ext. 12", zeros, h), NumberMatch::EQUAL);
            EXPECT_EQ(pbui::match_numbers(c.national, c.national + std::string(",,3"), h),
                      NumberMatch::EQUAL);
        }
        // Made international with its own country it is the same form;
        // without one only its trailing digits say so.
        EXPECT_EQ(pbui::match_numbers(c.national, plus, home), NumberMatch::EQUAL);
        EXPECT_EQ(pbui::match_numbers(zeros, c.national, home), NumberMatch::EQUAL);
        EXPECT_EQ(pbui::match_numbers(c.national, plus, nullptr), NumberMatch::TRAILING);
    }
}

TEST(SameNumber, DifferentSubscribersDoNotMatch)
{
    const pbui::Country *de = pbui::find_country("de");
    const pbui::Country *fr = pbui::find_country("FR");
    const struct {
        const char *a;
        const char *b;
        const pbui::Country *home;
    } kCases[] = {
        // The same last 6 digits are not enough.
        {"+49 30 123456", "+49 40 123456", nullptr},
        {"030 9123456", "040 8123456", nullptr},
        {"0301 123456", "+49 40 2123456", nullptr},
        // International forms compare whole: the same number in another country.
        {"+49 30 12345678", "+43 30 12345678", nullptr},
        {"0049 30 12345678", "+33 30 12345678", de},
        // The home country decides whose national number it is.
        {"030 12345678", "+49 30 12345678", fr},
        // Berlin and Hamburg with the same local number.
        {"030 1234567", "040 1234567", nullptr},
        {"030 1234567", "040 1234567", de},
        // Short codes and service codes match only themselves.
        {"112", "+49 112", de},
        {"112", "110", nullptr},
        {"1234", "0301234", nullptr},
        {"*100#", "100", nullptr},
        {"*100#", "*101#", nullptr},
        {"*#06#", "06", nullptr},
        // Nothing to compare.
        {"", "", nullptr},
        {"1-800-FLOWERS", "1-800-FLOWERS", nullptr},
    };
    for (const auto &c : kCases) {
        SCOPED_TRACE(std::string(c.a) + " / " + c.b);
        EXPECT_EQ(pbui::match_numbers(c.a, c.b, c.home), NumberMatch::NONE);
        EXPECT_EQ(pbui::match_numbers(c.b, c.a, c.home), NumberMatch::NONE);
    }
}

TEST(SameNumber, ShortAndServiceCodesMatchThemselves)
{
    for (const char *n : {"112", "4636", "*100#", "*#06#", "**21*0301234567#"}) {
        SCOPED_TRACE(n);
        EXPECT_EQ(pbui::match_numbers(n, n, nullptr), NumberMatch::EQUAL);
        EXPECT_EQ(pbui::match_numbers(n, n, pbui::find_country("DE")), NumberMatch::EQUAL);
    }
}

TEST(SameNumber, UnknownCountriesAreRefused)
{
    for (const char *iso : {"", "D", "DEU", "XX", "1A"})
        EXPECT_EQ(pbui::find_country(iso), nullptr) << iso;
    // The binary search needs the table sorted: its first and last rows.
    EXPECT_NE(pbui::find_country("AE"), nullptr);
    EXPECT_NE(pbui::find_country("ZA"), nullptr);
}

}  // namespace
