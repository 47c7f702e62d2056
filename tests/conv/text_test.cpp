// Text encodings: UTF-8 and UCS-2, the GSM 7-bit default alphabet (TS 23.038)
// and the compressed UCS-2 name forms (TS 102 221 Annex A).
#include <gtest/gtest.h>

#include "conv_test_util.h"
#include "zpt_ui_conv.h"

namespace {

struct Vec {
    const char *in;
    const char *out; // nullptr: no character comes out
};

TEST(Utf8ToUcs2, VectorsAndSkippedBytes)
{
    const Vec cases[] = {
        {"41", "00 41"},          {"C3 A9", "00 E9"},     {"E4 B8 AD", "4E 2D"},
        {"F0 9F 98 80", "F6 00"}, // beyond 16 bits: the low 16 bits are kept
        {"E9 41 42", "90 42"},    // a Latin-1 byte takes the next two as its sequence
        {"41 E4 B8", "00 41"},    // a sequence cut by the end is dropped, nothing read beyond
        {"", nullptr},            {"00 80 BF FE FF", nullptr},
    };
    for (const auto &c : cases) {
        Bytes in = hex(c.in);
        Bytes out(2 * in.size() + 1, 0xEE);
        int len = 7;
        ASSERT_EQ(conv_utf8_to_ucs2(cp(out), &len, cp(in), static_cast<int>(in.size())), 0) << c.in;
        if (c.out == nullptr) {
            EXPECT_EQ(len, -1) << c.in;
            continue;
        }
        const Bytes want = hex(c.out);
        ASSERT_EQ(len, static_cast<int>(want.size())) << c.in;
        EXPECT_EQ(Bytes(out.begin(), out.begin() + len), want) << c.in;
        EXPECT_EQ(out[len], 0xEE) << "wrote past the UCS-2 bytes for " << c.in;
    }
}

TEST(Ucs2ToUtf8, VectorsAndUnpairedLastByte)
{
    const Vec cases[] = {
        {"00 41 4E 2D", "41 E4 B8 AD"}, {"D8 00", "ED A0 80"}, {"00 00", "00"},
        {"00 41 4E", "41 E4 B8 80"}, // the unpaired byte is a high byte with low byte 0
    };
    for (const auto &c : cases) {
        Bytes in = hex(c.in);
        const Bytes want = hex(c.out);
        Bytes out(want.size() + 1, 0xEE);
        int len = 0;
        ASSERT_EQ(conv_ucs2_to_utf8(cp(out), &len, cp(in), static_cast<int>(in.size())), 0) << c.in;
        ASSERT_EQ(len, static_cast<int>(want.size()));
        EXPECT_EQ(Bytes(out.begin(), out.begin() + len), want) << c.in;
        EXPECT_EQ(out.back(), 0xEE);
    }
    Bytes none(1), out(4);
    int len = 9;
    EXPECT_EQ(conv_ucs2_to_utf8(cp(out), &len, cp(none), 0), -1);
    EXPECT_EQ(len, 0);
}

// Every 16-bit value but NUL (which the UTF-8 side skips) and the surrogates.
TEST(Ucs2Utf8, RoundTripOfEveryValue)
{
    Bytes ucs2;
    for (unsigned v = 1; v <= 0xFFFF; ++v)
        if (v < 0xD800 || v > 0xDFFF) {
            ucs2.push_back(static_cast<unsigned char>(v >> 8));
            ucs2.push_back(static_cast<unsigned char>(v));
        }
    Bytes utf8(3 * ucs2.size() / 2);
    int utf8_len = 0;
    ASSERT_EQ(conv_ucs2_to_utf8(cp(utf8), &utf8_len, cp(ucs2), static_cast<int>(ucs2.size())), 0);
    Bytes back(2 * static_cast<size_t>(utf8_len));
    int back_len = 0;
    ASSERT_EQ(conv_utf8_to_ucs2(cp(back), &back_len, cp(utf8), utf8_len), 0);
    ASSERT_EQ(back_len, static_cast<int>(ucs2.size()));
    EXPECT_TRUE(std::equal(ucs2.begin(), ucs2.end(), back.begin()));
}

TEST(SwapByteOrder, PairsSwappedOddTailKeptLengthChecked)
{
    Bytes b = hex("00 41 4E 2D");
    ASSERT_EQ(conv_swap_the_double_bytes_order(cp(b), 4), 0);
    EXPECT_EQ(b, hex("41 00 2D 4E"));
    Bytes odd = hex("00 41 42 EE");
    ASSERT_EQ(conv_swap_the_double_bytes_order(cp(odd), 3), 0);
    EXPECT_EQ(odd, hex("41 00 42 EE"));
    EXPECT_EQ(conv_swap_the_double_bytes_order(cp(b), 0), -1);
    EXPECT_EQ(conv_swap_the_double_bytes_order(cp(b), -2), 0);
    EXPECT_EQ(b, hex("41 00 2D 4E"));
}

TEST(Gsm7, BytePerCharacterTablesAndHighBytes)
{
    Bytes in = hex("48 69 20 40 24 5F C3 A9"), out(in.size() + 1, 0xEE);
    int len = 0;
    ASSERT_EQ(conv_ascii_to_gsm7(cp(out), &len, cp(in), 8), 0);
    EXPECT_EQ(len, 8);
    EXPECT_EQ(out, hex("48 69 20 00 02 2D 3F 3F 00")); // bytes from 0x80 up become '?'

    Bytes gsm = hex("00 02 11 1B 5E 7B 80 FE"), text(gsm.size() + 1, 0xEE);
    ASSERT_EQ(conv_gsm7_to_ascii(cp(text), &len, cp(gsm), 8), 0);
    EXPECT_EQ(text, hex("40 24 20 20 55 61 3F 3F 00"));

    ASSERT_EQ(conv_gsm7_to_ascii(cp(text), &len, cp(gsm), 0), 0);
    EXPECT_EQ(len, 0);
    EXPECT_EQ(text[0], 0);
}

// TS 23.038 clause 6.1.2.1.1: septets packed least significant bit first.
TEST(Gsm7Packing, PackVectors)
{
    struct {
        const char *text;
        int shift, outlenmax;
        const char *before, *after;
        int des_len;
    } cases[] = {
        {"hello", 0, 8, "FF FF FF FF FF FF", "E8 32 9B FD 06 FF", 5},
        {"12345678", 0, 8, "FF FF FF FF FF FF FF FF", "31 D9 8C 56 B3 DD 70 FF", 7},
        {"hi", 1, 3, "00 EE EE", "D0 69 EE", 2},
        {"hi", 3, 3, "05 EE EE", "45 A7 01", 2},
        {"hi", 8, 3, "00 EE EE", "D0 69 EE", 2}, // fill bits are taken modulo 7
        {"hello", 0, 2, "EE EE EE", "E8 32 EE", 5}, // octets past outlenmax are never touched
        {"hi", 1, 0, "EE", "EE", 2},
        {"", 3, 4, "EE EE", "EE EE", 0},
    };
    for (const auto &c : cases) {
        Bytes in = bytes(c.text), out = hex(c.before);
        int len = -5;
        ASSERT_EQ(conv_ascii_to_gsm_alphabet(cp(out), &len, c.shift, c.outlenmax, cp(in),
                                             static_cast<int>(in.size())),
                  0)
            << c.text << " shift " << c.shift;
        EXPECT_EQ(out, hex(c.after)) << c.text << " shift " << c.shift;
        EXPECT_EQ(len, c.des_len) << c.text;
    }
    Bytes in = bytes("a"), out(2);
    int len = 3;
    EXPECT_EQ(conv_ascii_to_gsm_alphabet(cp(out), &len, -1, 2, cp(in), 1), -1);
    EXPECT_EQ(len, 3);
}

TEST(Gsm7Packing, UnpackVectors)
{
    struct {
        const char *packed;
        int shift, outlenmax, src_len;
        const char *text;
    } cases[] = {
        {"E8 32 9B FD 06", 0, 5, 5, "hello"},
        {"D0 69", 7, 2, 2, "hi"},
        {"31 D9 8C 56 B3 DD 70", 0, 7, 7, "1234567"}, // output full when the 8th is due
        {"31 D9 8C 56 B3 DD 70", 0, 8, 8, "12345678"},
        {"E8 32 9B FD 06", 0, 3, 5, "hel??"}, // unreached positions hold '?'
        {"40 A7 01", 5, 2, 2, "hi"},          // three fill bits
    };
    for (const auto &c : cases) {
        Bytes in = hex(c.packed), out(static_cast<size_t>(c.src_len) + 1, 0xEE);
        int len = 0;
        ASSERT_EQ(conv_gsm_to_ascii_alphabet(cp(out), &len, c.shift, c.outlenmax, cp(in), c.src_len), 0);
        EXPECT_EQ(std::string(cp(out)), c.text) << c.packed;
        EXPECT_EQ(len, c.src_len);
    }
    Bytes in(2), out(3);
    int len = 0;
    EXPECT_EQ(conv_gsm_to_ascii_alphabet(cp(out), &len, 8, 2, cp(in), 2), -1);
    EXPECT_EQ(conv_gsm_to_ascii_alphabet(cp(out), &len, -1, 2, cp(in), 2), -1);
}

// The characters both tables keep come back unchanged, for every fill-bit
// count: k fill bits on packing are shift 8 - k on unpacking.
TEST(Gsm7Packing, RoundTripOfKeptCharacters)
{
    const std::string kept = "\n\r !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                             "abcdefghijklmnopqrstuvwxyz";
    for (int fill = 0; fill < 7; ++fill) {
        Bytes in = bytes(kept), packed(kept.size() + 1, 0), out(kept.size() + 1);
        int len = 0;
        ASSERT_EQ(conv_ascii_to_gsm_alphabet(cp(packed), &len, fill, static_cast<int>(packed.size()), cp(in),
                                             static_cast<int>(in.size())),
                  0);
        ASSERT_EQ(conv_gsm_to_ascii_alphabet(cp(out), &len, fill == 0 ? 0 : 8 - fill,
                                             static_cast<int>(kept.size()), cp(packed),
                                             static_cast<int>(kept.size())),
                  0);
        EXPECT_EQ(std::string(cp(out)), kept) << "fill bits " << fill;
    }
}

// TS 102 221 Annex A: the 0x81 and 0x82 coding of alpha identifiers.
TEST(CompressedUcs2, ExpandsBothForms)
{
    struct {
        const char *in, *out;
    } cases[] = {
        {"81 03 08 9F 20 41", "04 1F 00 20 00 41 FF FF"},
        {"82 02 04 10 80 81", "04 10 04 11 FF FF"},
        {"82 01 FF F0 FF", "00 6F FF FF"}, // base + offset wraps at 16 bits
        {"81 03 00 61 5E 1B", "00 61 00 DC 00 14 FF FF"},
        {"81 00", "FF FF"},
    };
    for (const auto &c : cases) {
        Bytes in = hex(c.in);
        unsigned short des[21];
        int len = -1;
        auto *fn = in[0] == 0x81 ? ucs2_81_to_80 : ucs2_82_to_80;
        ASSERT_EQ(fn(des, &len, in.data()), 0) << c.in;
        const Bytes want = hex(c.out);
        EXPECT_EQ(len, static_cast<int>(want.size()) - 2) << c.in;
        const auto *b = reinterpret_cast<unsigned char *>(des);
        EXPECT_EQ(Bytes(b, b + want.size()), want) << c.in;
    }
    Bytes long_name(3 + 25, 0x41);
    long_name[0] = 0x81;
    long_name[1] = 25;
    unsigned short des[21];
    int len = 0;
    ASSERT_EQ(ucs2_81_to_80(des, &len, long_name.data()), 0);
    EXPECT_EQ(len, 40);
    EXPECT_EQ(des[20], 0xFFFF);
    Bytes plain = hex("80 00 41");
    EXPECT_EQ(ucs2_81_to_80(des, &len, plain.data()), -1);
    EXPECT_EQ(ucs2_82_to_80(des, &len, plain.data()), -1);
}

} // namespace
