// Encodings: UTF-8/UCS-2, the GSM 7-bit default alphabet (TS 23.038), BCD
// numbers (TS 31.102 clause 4.4.2.3) and the 0x81/0x82 forms (TS 102 221
// Annex A). Outputs carry a 0xEE guard so a write past the result shows.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "hex_bytes.h"
#include "zpt_ui_conv.h"

namespace {

// Never null: an empty input is not a missing one.
char *cp(Bytes &b)
{
    static char empty[1];
    return b.empty() ? empty : reinterpret_cast<char *>(b.data());
}
std::string str(const Bytes &b, int len) { return std::string(b.begin(), b.begin() + len); }

TEST(Ucs2Utf8, Vectors)
{
    const std::pair<const char *, const char *> to_ucs2[] = {
        {"41", "00 41"},
        {"C3 A9", "00 E9"},
        {"E4 B8 AD", "4E 2D"},
        {"F0 9F 98 80", "F6 00"},  // beyond 16 bits: the low 16 bits
        {"E9 41 42", "90 42"},     // a Latin-1 byte takes the next two bytes
        {"41 E4 B8", "00 41"},     // a cut sequence is dropped, not read beyond
        {"", ""},
        {"00 80 BF FE FF", ""}};  // nothing comes out: *des_len is -1
    for (auto [in_hex, want_hex] : to_ucs2) {
        Bytes in = hex(in_hex), want = hex(want_hex), out(2 * in.size() + 1, 0xEE);
        int len = 7;
        ASSERT_EQ(conv_utf8_to_ucs2(cp(out), &len, cp(in), static_cast<int>(in.size())), 0);
        EXPECT_EQ(len, want.empty() ? -1 : static_cast<int>(want.size())) << in_hex;
        EXPECT_EQ(str(out, static_cast<int>(want.size()) + 1),
                  str(want, static_cast<int>(want.size())) + "\xEE");
    }
    const std::pair<const char *, const char *> to_utf8[] = {
        {"00 41 4E 2D", "41 E4 B8 AD"},
        {"D8 00", "ED A0 80"},
        {"00 00", "00"},
        {"00 41 4E", "41 E4 B8 80"},  // an unpaired last byte is a high byte, low byte 0
        {"", ""}};                    // refused with *des_len 0
    for (auto [in_hex, want_hex] : to_utf8) {
        Bytes in = hex(in_hex), want = hex(want_hex), out(want.size() + 1, 0xEE);
        int len = 9;
        EXPECT_EQ(conv_ucs2_to_utf8(cp(out), &len, cp(in), static_cast<int>(in.size())), in.empty() ? -1 : 0);
        EXPECT_EQ(str(out, len + 1), str(want, static_cast<int>(want.size())) + "\xEE") << in_hex;
    }
}

// Every 16-bit value but NUL (skipped on the UTF-8 side) and the surrogates.
TEST(Ucs2Utf8, RoundTripOfEveryValue)
{
    Bytes ucs2;
    for (unsigned v = 1; v <= 0xFFFF; ++v)
        if (v < 0xD800 || v > 0xDFFF)
            ucs2.insert(ucs2.end(), {static_cast<unsigned char>(v >> 8), static_cast<unsigned char>(v)});
    Bytes utf8(3 * ucs2.size() / 2), back(3 * ucs2.size());
    int utf8_len = 0, back_len = 0;
    ASSERT_EQ(conv_ucs2_to_utf8(cp(utf8), &utf8_len, cp(ucs2), static_cast<int>(ucs2.size())), 0);
    ASSERT_EQ(conv_utf8_to_ucs2(cp(back), &back_len, cp(utf8), utf8_len), 0);
    ASSERT_EQ(back_len, static_cast<int>(ucs2.size()));
    EXPECT_TRUE(std::equal(ucs2.begin(), ucs2.end(), back.begin()));
}

TEST(Ucs2Utf8, SwapKeepsAnOddTailAndRefusesLengthZero)
{
    Bytes b = hex("00 41 4E 2D EE");
    ASSERT_EQ(conv_swap_the_double_bytes_order(cp(b), 5), 0);
    EXPECT_EQ(b, hex("41 00 2D 4E EE"));
    EXPECT_EQ(conv_swap_the_double_bytes_order(cp(b), 0), -1);
    EXPECT_EQ(conv_swap_the_double_bytes_order(cp(b), -2), 0);
}

TEST(Gsm7, BytePerCharacterTablesAndHighBytes)
{
    Bytes in = hex("48 69 20 40 24 5F 7B C3"), out(9, 0xEE), back(9, 0xEE);
    int len = 0;
    ASSERT_EQ(conv_ascii_to_gsm7(cp(out), &len, cp(in), 8), 0);
    EXPECT_EQ(out, hex("48 69 20 00 02 2D 21 3F 00"));  // 0x80 and up become '?'
    Bytes gsm = hex("00 02 11 1B 5E 7B 80 FE");
    ASSERT_EQ(conv_gsm7_to_ascii(cp(back), &len, cp(gsm), 8), 0);
    EXPECT_EQ(back, hex("40 24 20 20 55 61 3F 3F 00"));
}

// TS 23.038 clause 6.1.2.1.1: septets packed least significant bit first.
TEST(Gsm7, PackVectors)
{
    const struct {
        const char *text;
        int shift, outlenmax;
        const char *before, *after;
        int des_len;
    } cases[] = {{"hello", 0, 8, "FF FF FF FF FF FF", "E8 32 9B FD 06 FF", 5},
                 {"12345678", 0, 8, "FF FF FF FF FF FF FF FF", "31 D9 8C 56 B3 DD 70 FF", 7},
                 {"hi", 1, 3, "00 EE EE", "D0 69 EE", 2},
                 {"hi", 8, 3, "00 EE EE", "D0 69 EE", 2},     // shift mod 7
                 {"hi", 3, 3, "05 EE EE", "45 A7 01", 2},     // fill bits keep the caller's bits
                 {"hello", 0, 2, "EE EE EE", "E8 32 EE", 5},  // nothing at or past outlenmax
                 {"hi", 1, 0, "EE", "EE", 2},
                 {"", 3, 4, "EE EE", "EE EE", 0}};
    for (const auto &c : cases) {
        Bytes in(c.text, c.text + strlen(c.text)), out = hex(c.before);
        int len = -5;
        ASSERT_EQ(conv_ascii_to_gsm_alphabet(cp(out), &len, c.shift, c.outlenmax, cp(in),
                                             static_cast<int>(in.size())),
                  0);
        EXPECT_EQ(out, hex(c.after)) << c.text << " shift " << c.shift;
        EXPECT_EQ(len, c.des_len) << c.text;
    }
    Bytes in = hex("61"), out(2);
    int len = 3;  // a negative fill-bit count is refused, *des_len untouched
    EXPECT_EQ(conv_ascii_to_gsm_alphabet(cp(out), &len, -1, 2, cp(in), 1), -1);
    EXPECT_EQ(len, 3);
}

TEST(Gsm7, UnpackVectors)
{
    const struct {
        const char *packed;
        int shift, outlenmax, src_len;
        const char *text;
    } cases[] = {{"E8 32 9B FD 06", 0, 5, 5, "hello"},
                 {"D0 69", 7, 2, 2, "hi"},
                 {"40 A7 01", 5, 2, 2, "hi"},
                 {"31 D9 8C 56 B3 DD 70", 0, 7, 7, "1234567"},  // output full when the 8th is due
                 {"31 D9 8C 56 B3 DD 70", 0, 8, 8, "12345678"},
                 {"E8 32 9B FD 06", 0, 3, 5, "hel??"},  // positions not reached hold '?'
                 {"E8", 8, 1, 1, nullptr},
                 {"E8", -1, 1, 1, nullptr}};
    for (const auto &c : cases) {
        Bytes in = hex(c.packed), out(static_cast<size_t>(c.src_len) + 1, 0xEE);
        int len = 0;
        const int rc = conv_gsm_to_ascii_alphabet(cp(out), &len, c.shift, c.outlenmax, cp(in), c.src_len);
        EXPECT_EQ(rc, c.text ? 0 : -1) << c.packed << " shift " << c.shift;
        EXPECT_EQ(str(out, c.src_len), c.text ? c.text : "\xEE") << c.packed;  // refused: untouched
    }
}

// Characters both tables keep survive every fill-bit count (k fill bits on
// packing are shift 8 - k on unpacking).
TEST(Gsm7, RoundTripOfKeptCharacters)
{
    const std::string kept =
        "\n\r !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    const int n = static_cast<int>(kept.size());
    for (int fill = 0; fill < 7; ++fill) {
        Bytes in(kept.begin(), kept.end()), packed(kept.size() + 1, 0), out(kept.size() + 1);
        int len = 0;
        ASSERT_EQ(conv_ascii_to_gsm_alphabet(cp(packed), &len, fill, n + 1, cp(in), n), 0);
        ASSERT_EQ(conv_gsm_to_ascii_alphabet(cp(out), &len, fill ? 8 - fill : 0, n, cp(packed), n), 0);
        EXPECT_EQ(std::string(cp(out)), kept) << "fill bits " << fill;
    }
}

TEST(Bcd, EncodeVectorsAndRefusals)
{
    const std::pair<std::string, std::string> cases[] = {
        // "-": refused, nothing written
        {"+123", "03 91 21 F3"},
        {"1234", "03 80 21 43"},
        {"12*#", "03 80 21 BA"},
        {"1-2 3", "03 80 21 F3"},
        {"FTPW", "03 80 CC ED"},
        {"", "00"},
        {std::string(41, '7'), "16 80" + rep("77", 20) + " F7"},
        {"abc", "-"},
        {"+", "-"},
        {std::string(42, '1'), "-"}};
    for (const auto &[text, want_hex] : cases) {
        Bytes out(24, 0xEE), want = hex(want_hex);
        const int rc = conv_ascii_to_bcd(reinterpret_cast<unsigned char *>(const_cast<char *>(text.c_str())),
                                         1, out.data());
        EXPECT_EQ(rc, want_hex == "-" ? -1 : 0) << text;
        want.resize(24, 0xEE);
        EXPECT_EQ(out, want) << text;
    }
}

TEST(Bcd, DecodeVectorsAndLimit)
{
    const std::tuple<const char *, unsigned char, const char *> cases[] = {
        {"21 F3", 0x91, "+123"},
        {"21 43", 0x81, "1234"},
        {"21 43", 0x11, "+1234"},  // only the TON counts
        {"BA DC FE", 0x80, "*#TPW"},
        {"", 0x91, "+"},
        {"", 0x81, ""}};
    for (auto [digits_hex, ton_npi, text] : cases) {
        Bytes digits = hex(digits_hex), out(2 * digits.size() + 2, 0xEE);
        ASSERT_EQ(conv_bcd_to_ascii(reinterpret_cast<unsigned char *>(cp(digits)),
                                    static_cast<unsigned char>(digits.size()), ton_npi, out.data()),
                  0);
        EXPECT_STREQ(cp(out), text);
    }
    Bytes digits(21, 0x11), out(44);
    EXPECT_EQ(conv_bcd_to_ascii(digits.data(), 21, 0x81, out.data()), -1);
}

TEST(Bcd, RandomNumbersRoundTrip)
{
    std::mt19937 rng(4);
    for (int round = 0; round < 500; ++round) {
        std::string number = (rng() % 2) ? "+" : "";
        for (size_t k = 0, digits = 1 + rng() % 40; k < digits; ++k)
            number += "0123456789*#TPW"[rng() % 15];
        Bytes bcd(23), back(44);
        ASSERT_EQ(conv_ascii_to_bcd(reinterpret_cast<unsigned char *>(number.data()), 1, bcd.data()), 0);
        ASSERT_EQ(
            conv_bcd_to_ascii(bcd.data() + 2, static_cast<unsigned char>(bcd[0] - 1), bcd[1], back.data()),
            0);
        EXPECT_EQ(std::string(cp(back)), number);
    }
}

TEST(CompressedUcs2, ExpandsBothForms)
{
    const std::pair<std::string, std::string> cases[] = {
        {"81 03 08 9F 20 41", "04 1F 00 20 00 41 FF FF"},
        {"82 02 04 10 80 81", "04 10 04 11 FF FF"},
        {"82 01 FF F0 FF", "00 6F FF FF"},  // base + offset wraps at 16 bits
        {"81 03 00 61 5E 1B", "00 61 00 DC 00 14 FF FF"},
        {"81 00", "FF FF"},
        {"81 19 00" + rep("41", 25), rep("00 41", 20) + " FF FF"},  // a count of 25: 20 expanded
        {"80 00 41", ""}};                                          // not this form: refused
    for (const auto &[in_hex, want_hex] : cases) {
        Bytes in = hex(in_hex);
        unsigned short des[21];
        int len = -1;
        const int rc = (in[0] == 0x82 ? ucs2_82_to_80 : ucs2_81_to_80)(des, &len, in.data());
        ASSERT_EQ(rc, want_hex.empty() ? -1 : 0) << in_hex;
        if (want_hex.empty())
            continue;
        const Bytes want = hex(want_hex);
        EXPECT_EQ(len, static_cast<int>(want.size()) - 2);
        EXPECT_EQ(Bytes(reinterpret_cast<unsigned char *>(des),
                        reinterpret_cast<unsigned char *>(des) + want.size()),
                  want)
            << in_hex;
    }
}

}  // namespace
