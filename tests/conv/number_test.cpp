// Dialling numbers in BCD: TS 31.102 clause 4.4.2.3 (EF ADN) with the TON/NPI
// byte of TS 24.008 clause 10.5.4.7.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "conv_test_util.h"
#include "zpt_ui_conv.h"

namespace {

TEST(AsciiToBcd, Vectors)
{
    struct {
        const char *text, *bcd;
    } cases[] = {
        {"+123", "03 91 21 F3"}, {"1234", "03 80 21 43"}, {"12*#", "03 80 21 BA"},
        {"1-2 3", "03 80 21 F3"}, // separators are skipped
        {"F", "02 80 FC"},        // F is taken as T
        {"TPW", "03 80 DC FE"},   {"", "00 EE"}, // an empty number writes byte 0 only
    };
    for (const auto &c : cases) {
        Bytes text = bytes(c.text), out(23, 0xEE);
        text.push_back(0);
        ASSERT_EQ(conv_ascii_to_bcd(text.data(), 1, out.data()), 0) << c.text;
        const Bytes want = hex(c.bcd);
        EXPECT_EQ(Bytes(out.begin(), out.begin() + want.size()), want) << c.text;
        EXPECT_EQ(out[want.size()], 0xEE) << "wrote past the digits of " << c.text;
    }
    Bytes digits41(41, '7'), out(24, 0xEE);
    digits41.push_back(0);
    ASSERT_EQ(conv_ascii_to_bcd(digits41.data(), 1, out.data()), 0);
    EXPECT_EQ(out[0], 22);
    EXPECT_EQ(out[22], 0xF7);
    EXPECT_EQ(out[23], 0xEE);
}

TEST(AsciiToBcd, RefusedNumbersWriteNothing)
{
    const std::string refused[] = {"abc", "+", std::string(42, '1')};
    for (const auto &r : refused) {
        Bytes text = bytes(r), out(23, 0xEE);
        text.push_back(0);
        EXPECT_EQ(conv_ascii_to_bcd(text.data(), 1, out.data()), -1) << r;
        EXPECT_EQ(out, Bytes(23, 0xEE)) << r;
    }
}

TEST(BcdToAscii, VectorsAndLimit)
{
    struct {
        const char *digits;
        unsigned char ton_npi;
        const char *text;
    } cases[] = {
        {"21 F3", 0x91, "+123"}, {"21 43", 0x80, "1234"}, {"21 43", 0x81, "1234"},
        {"21 43", 0x11, "+1234"}, // only the type of number is looked at
        {"BA DC FE", 0x80, "*#TPW"}, {"", 0x91, "+"}, {"", 0x81, ""},
    };
    for (const auto &c : cases) {
        Bytes digits = hex(c.digits);
        digits.push_back(0); // keeps data() valid for an empty number
        Bytes out(2 * (digits.size() - 1) + 2, 0xEE);
        ASSERT_EQ(conv_bcd_to_ascii(digits.data(), static_cast<unsigned char>(digits.size() - 1), c.ton_npi,
                                    out.data()),
                  0)
            << c.digits;
        EXPECT_STREQ(reinterpret_cast<char *>(out.data()), c.text);
    }
    Bytes digits(21, 0x11), out(44);
    EXPECT_EQ(conv_bcd_to_ascii(digits.data(), 21, 0x81, out.data()), -1);
    EXPECT_EQ(conv_bcd_to_ascii(digits.data(), 20, 0x81, out.data()), 0);
}

TEST(Bcd, RandomNumbersRoundTrip)
{
    std::mt19937 rng(4);
    const std::string alphabet = "0123456789*#TPW";
    for (int round = 0; round < 500; ++round) {
        std::string number = (rng() % 2) ? "+" : "";
        const size_t digits = 1 + rng() % 40;
        for (size_t k = 0; k < digits; ++k)
            number += alphabet[rng() % alphabet.size()];
        Bytes text = bytes(number), bcd(23), back(44, 0xEE);
        text.push_back(0);
        ASSERT_EQ(conv_ascii_to_bcd(text.data(), 1, bcd.data()), 0) << number;
        ASSERT_EQ(conv_bcd_to_ascii(bcd.data() + 2, static_cast<unsigned char>(bcd[0] - 1), bcd[1], back.data()),
                  0);
        EXPECT_EQ(std::string(reinterpret_cast<char *>(back.data())), number);
    }
}

TEST(NumberLetters, ModemSpellingSwappedBothWays)
{
    char text[] = "12e3?TPW";
    sim_to_display(text, 6);
    EXPECT_STREQ(text, "12P3WTPW"); // only the first len bytes are looked at
    display_to_sim(text, 8);
    EXPECT_STREQ(text, "12e3?Te?");
}

} // namespace
