// Numbers as people write them, read into the digits a phone dials: each
// country's example numbers in the international, 00, national, bracketed,
// dotted, dashed, slashed, labelled, tel: URI, full-width and extension
// forms; then short codes, pauses and the numbers that must be refused.
// A fault here stores a number that calls someone else, or refuses one a
// user could dial.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "contacts.h"

namespace {

// A country's example number: its country code, the prefix its own people
// write before the national number ("0", "8", "06", or none), and the
// national significant number in the groups the country writes.
struct Example {
    const char *country;
    const char *cc;
    const char *trunk;
    std::vector<std::string> groups;
};

// Drama and example ranges the regulators publish where they do (Ofcom's
// 020 7946 0xxx and 07700 900xxx, the NANP's 555-01xx, ACMA's 02 5550 xxxx
// and 0491 570 xxx, ARCEP's 01 99 00 xx xx, PTS's 070-174 06 xx), else the
// numbering plan's own examples and the DIN 5008 style for Germany.
const std::vector<Example> kExamples = {
    {"United Kingdom", "44", "0", {"20", "7946", "0018"}},
    {"United Kingdom", "44", "0", {"161", "496", "0753"}},
    {"United Kingdom", "44", "0", {"7700", "900123"}},
    {"United Kingdom", "44", "0", {"1632", "960001"}},
    {"United States", "1", "", {"212", "555", "0100"}},
    {"United States", "1", "", {"202", "555", "0173"}},
    {"Canada", "1", "", {"416", "555", "0199"}},
    {"Australia", "61", "0", {"2", "5550", "1234"}},
    {"Australia", "61", "0", {"3", "7010", "4321"}},
    {"Australia", "61", "0", {"491", "570", "156"}},
    {"Germany", "49", "0", {"30", "12345678"}},
    {"Germany", "49", "0", {"89", "1234567"}},
    {"Germany", "49", "0", {"151", "23456789"}},
    {"France", "33", "0", {"1", "99", "00", "12", "34"}},
    {"France", "33", "0", {"6", "39", "98", "76", "54"}},
    {"Switzerland", "41", "0", {"44", "123", "45", "67"}},
    {"Switzerland", "41", "0", {"79", "123", "45", "67"}},
    {"Austria", "43", "0", {"1", "234", "5678"}},
    {"Austria", "43", "0", {"664", "123", "4567"}},
    {"Sweden", "46", "0", {"70", "174", "06", "55"}},
    {"Sweden", "46", "0", {"8", "465", "004", "12"}},
    {"Italy", "39", "", {"06", "1234", "5678"}},
    {"Italy", "39", "", {"347", "123", "4567"}},
    {"Spain", "34", "", {"91", "123", "45", "67"}},
    {"Spain", "34", "", {"612", "34", "56", "78"}},
    {"Russia", "7", "8", {"495", "123", "45", "67"}},
    {"Russia", "7", "8", {"916", "000", "11", "22"}},
    {"China", "86", "0", {"10", "8765", "4321"}},
    {"China", "86", "", {"138", "0013", "8000"}},
    {"Japan", "81", "0", {"3", "1234", "5678"}},
    {"Japan", "81", "0", {"90", "1234", "5678"}},
    {"India", "91", "0", {"11", "2345", "6789"}},
    {"India", "91", "", {"98765", "43210"}},
    {"Brazil", "55", "", {"11", "91234", "5678"}},
    {"Denmark", "45", "", {"20", "12", "34", "56"}},
    {"Poland", "48", "", {"22", "123", "45", "67"}},
    {"Netherlands", "31", "0", {"20", "123", "4567"}},
    {"Netherlands", "31", "0", {"6", "12345678"}},
    {"New Zealand", "64", "0", {"9", "123", "4567"}},
    {"Ireland", "353", "0", {"1", "234", "5678"}},
    {"South Korea", "82", "0", {"2", "312", "3456"}},
    {"Hungary", "36", "06", {"1", "234", "5678"}},
    {"Mexico", "52", "", {"55", "1234", "5678"}},
};

std::string join(const std::vector<std::string> &v, const std::string &sep, size_t from = 0)
{
    std::string s;
    for (size_t k = from; k < v.size(); ++k)
        s += (k == from ? "" : sep) + v[k];
    return s;
}

// Digits, '+' and spaces in their full-width forms, as East Asian input
// methods write them.
std::string full_width(const std::string &ascii)
{
    std::string s;
    for (char c : ascii) {
        if (c == ' ') {
            s += "\u3000";
            continue;
        }
        const unsigned cp = 0xFF00u + static_cast<unsigned char>(c) - 0x20u;
        s += static_cast<char>(0xE0 | cp >> 12);
        s += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
        s += static_cast<char>(0x80 | (cp & 0x3F));
    }
    return s;
}

struct Written {
    std::string text;
    std::string dialled;
};

// The ways one number is written, each with what a phone dials.
std::vector<Written> forms(const Example &e)
{
    const std::string cc = e.cc, trunk = e.trunk, nsn = join(e.groups, "");
    const std::string intl = "+" + cc + nsn, dbl = "00" + cc + nsn, nat = trunk + nsn;
    const std::string g0 = e.groups[0], rest = join(e.groups, " ", 1);
    std::vector<Written> w = {
        {"+" + cc + " " + join(e.groups, " "), intl},
        {"+" + cc + "-" + join(e.groups, "-"), intl},
        {"+" + cc + "." + join(e.groups, "."), intl},
        {"00" + cc + " " + join(e.groups, " "), dbl},
        {"tel:+" + cc + "-" + join(e.groups, "-"), intl},
        {"Tel: +" + cc + " " + join(e.groups, " "), intl},
        {"Tel.: " + trunk + join(e.groups, " "), nat},
        {"Phone: " + trunk + join(e.groups, " "), nat},
        {"MOBILE:+" + cc + join(e.groups, ""), intl},
        {"++" + cc + " " + join(e.groups, " "), intl},
        {"+" + cc + " " + join(e.groups, "\u2013"), intl},         // en dash
        {trunk + join(e.groups, "\u2014"), nat},                   // em dash
        {"+" + cc + "\u00A0" + join(e.groups, "\u00A0"), intl},    // no-break space
        {"+" + cc + "\u202F" + join(e.groups, "\u2009"), intl},    // narrow and thin spaces
        {full_width("+" + cc + " " + join(e.groups, " ")), intl},  // full-width
        {"  " + trunk + join(e.groups, " ") + "\t", nat},          // blanks around
        {"(" + trunk + g0 + ") " + rest, nat},                     // area code in brackets
        {trunk + g0 + "/" + rest, nat},                            // area code, slash
        {trunk + join(e.groups, "."), nat},                        // dotted
        {trunk + join(e.groups, "-"), nat},                        // dashed
        {"+" + cc + " " + join(e.groups, " ") + " ext. 12", intl + "P12"},
        {"+" + cc + " " + join(e.groups, " ") + " ext 345", intl + "P345"},
        {"+" + cc + " " + join(e.groups, " ") + " x12", intl + "P12"},
        {"+" + cc + join(e.groups, "") + ",1234", intl + "P1234"},
        {"tel:+" + cc + "-" + join(e.groups, "-") + ";ext=89", intl + "P89"},
        {"tel:" + nsn + ";phone-context=+" + cc, nsn},  // a local number: the context is not dialled
    };
    if (trunk == "0") {
        // The trunk prefix in brackets after the country code, alone or at
        // the start of the area code, is not dialled.
        w.push_back({"+" + cc + " (0) " + join(e.groups, " "), intl});
        w.push_back({"+" + cc + " (0)" + join(e.groups, " "), intl});
        w.push_back({"+" + cc + "(0)" + join(e.groups, "-"), intl});
        w.push_back({"+" + cc + " (0" + g0 + ") " + rest, intl});
        w.push_back({"00" + cc + " (0)" + join(e.groups, " "), dbl});
        w.push_back({"Tel: +" + cc + " [0] " + join(e.groups, " "), intl});
    }
    if (trunk == "0" || trunk.empty())  // an area code in brackets stays whole
        w.push_back({"+" + cc + " (" + g0 + ") " + rest, intl});
    return w;
}

TEST(Numbers, EveryWrittenFormOfACountrysExampleDialsItsDigits)
{
    size_t cases = 0;
    for (const Example &e : kExamples) {
        for (const Written &w : forms(e)) {
            std::string out;
            const std::string why = pbui::tidy_number(w.text, &out);
            EXPECT_EQ(why, "") << e.country << ": \"" << w.text << "\"";
            EXPECT_EQ(out, w.dialled) << e.country << ": \"" << w.text << "\"";
            ++cases;
        }
    }
    EXPECT_GE(kExamples.size(), 40u);
    EXPECT_GE(cases, 1000u);
}

// What no country's form covers: short codes, emergency numbers, USSD,
// pauses and waits, and the one place a bracketed 0 is dialled.
TEST(Numbers, ShortCodesServiceCodesAndPausesStayAsWritten)
{
    const std::pair<const char *, const char *> cases[] = {
        {"112", "112"},
        {"911", "911"},
        {"999", "999"},
        {"*100#", "*100#"},
        {"*#06#", "*#06#"},
        {"#31#0301234", "#31#0301234"},
        {"0301234p5w6t", "0301234P5W6T"},
        {"0301234 PW 5", "0301234PW5"},
        {"+1 555 0100,,123", "+15550100PP123"},
        {"0301234;5", "0301234W5"},
        {"+39 (06) 1234 5678", "+390612345678"},  // Italy dials the 0
        {"+44 (20) 7946 0018", "+442079460018"},
        {"(0)30 1234567", "0301234567"},  // national: kept as written
        {"", ""},
    };
    for (const auto &[in, dialled] : cases) {
        std::string out;
        EXPECT_EQ(pbui::tidy_number(in, &out), "") << in;
        EXPECT_EQ(out, dialled) << in;
    }
}

// A refusal names what is wrong and where, so that the user can fix it: as
// a problem with its character and place (from 1), which the web page words
// in its own language, and as the English sentence made from them.
TEST(Numbers, RefusalsNameTheProblemTheCharacterAndItsPlace)
{
    using P = pbui::NumberProblem;
    struct Case {
        std::string in;
        P problem;
        char32_t c;
        size_t place;
        const char *text;
    };
    const Case cases[] = {
        {"1-800-FLOWERS", P::LETTERS, 'F', 7, "'F' at place 7: letters are not dialled"},
        {"0800 CALL NOW", P::LETTERS, 'C', 6, "'C' at place 6: letters"},
        {"Phone Shop", P::LETTERS, 'P', 1, "'P' at place 1: letters"},
        {"\uFF10\uFF13\uFF10 \uFF41", P::LETTERS, 'a', 5, "'a' at place 5"},  // full-width, read narrow
        {"030 1234567 \u260E", P::BAD_CHAR, U'\u260E', 13, "'\u260E' at place 13 cannot be part of a number"},
        {"030_1234", P::BAD_CHAR, '_', 4, "'_' at place 4"},
        {"1\x01", P::BAD_CHAR, 1, 2, "'\\x01' at place 2"},
        {"12+3", P::PLUS_INSIDE, '+', 3, "'+' at place 3: a '+' may only stand at the start"},
        {"+", P::PLUS_ALONE, 0, 0, "without digits"},
        {"\xFF", P::NOT_UTF8, 0, 0, "not valid UTF-8"},
        {"P123", P::STARTS_WITH_PAUSE, 'P', 1, "cannot start with a pause"},
        {"+,123", P::STARTS_WITH_PAUSE, ',', 2, "',' at place 2"},
        {";123", P::STARTS_WITH_WAIT, ';', 1, "cannot start with a wait"},
        {"ext. 12", P::EXTENSION_FIRST, 'e', 1, "needs a number before it"},
        {"+1 555 0100 x12 x13", P::EXTENSION_TWICE, 'x', 17, "'x' at place 17: a number has one extension"},
        {"+1 555 0100 ext.", P::EXTENSION_EMPTY, 0, 0, "extension has no digits"},
        {"+" + std::string(50, '1'), P::TOO_LONG, 0, 0, "the number has 51 characters; at most 50 fit"},
    };
    for (const Case &k : cases) {
        std::string out;
        const pbui::NumberRefusal r = pbui::tidy_number_refusal(k.in, &out);
        EXPECT_EQ(r.problem, k.problem) << k.in;
        EXPECT_EQ(r.c, k.c) << k.in;
        EXPECT_EQ(r.place, k.place) << k.in;
        const std::string why = pbui::tidy_number(k.in, &out);
        EXPECT_EQ(why, pbui::number_refusal_text(r)) << k.in;
        EXPECT_NE(why.find(k.text), std::string::npos) << k.in << ": " << why;
    }
    std::string out;
    EXPECT_EQ(pbui::tidy_number(std::string(50, '1'), &out), "");
    const pbui::NumberRefusal r = pbui::tidy_number_refusal("+" + std::string(50, '1'), &out);
    EXPECT_EQ(r.count, 51u);
    EXPECT_EQ(r.max, 50u);
}

}  // namespace
