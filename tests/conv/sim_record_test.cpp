// The name and number of an abbreviated dialling number record (TS 31.102
// clause 4.4.2.3; alpha identifier codings of TS 102 221 Annex A).
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "conv_test_util.h"
#include "zpt_ui_pb_func.h"

namespace {

TEST(DecodeName, EveryCodingAndTheUsedLength)
{
    struct {
        const char *ident;
        int read_len; // -1: the whole vector
        pb_return_code_enum_t rc;
        const char *utf8;
    } cases[] = {
        {"80 00 41 00 42 FF FF", -1, PB_RCODE_OK, "41 42"},
        {"41 42 43 FF FF", -1, PB_RCODE_OK, "41 42 43"},
        {"41 42 43", -1, PB_RCODE_OK, "41 42 43"},
        {"41 42 43 44", 2, PB_RCODE_OK, "41 42"},       // read_len bounds the GSM text
        {"41 C5 11", -1, PB_RCODE_OK, "41 3F 20"},      // a byte from 0x80 up becomes '?'
        {"80 00 78 00 FF", -1, PB_RCODE_OK, "78"},      // ends before the 0xFF byte
        {"81 03 08 9F 20 41 FF", -1, PB_RCODE_OK, "D0 9F 20 41"},
        {"81 05 08 9F 20", -1, PB_RCODE_OK, "D0 9F 20"}, // count cut to the bytes present
        {"82 02 04 10 80 81", -1, PB_RCODE_OK, "D0 90 D0 91"},
        {"82 02 04", -1, PB_RCODE_UTF_ERR, ""},         // header cut: no character
        {"80 FF FF", -1, PB_RCODE_UTF_ERR, ""},
        {"FF FF FF", -1, PB_RCODE_BUFFNULL_ERR, ""},
        {"41", 0, PB_RCODE_BUFFNULL_ERR, ""},
    };
    for (const auto &c : cases) {
        Bytes ident = hex(c.ident), name(64, 0);
        const int len = c.read_len < 0 ? static_cast<int>(ident.size()) : c.read_len;
        EXPECT_EQ(pb_func_decode_name(name.data(), ident.data(), len), c.rc) << c.ident;
        const Bytes want = hex(c.utf8);
        if (c.rc == PB_RCODE_OK) {
            EXPECT_EQ(std::string(reinterpret_cast<char *>(name.data())), std::string(want.begin(), want.end()))
                << c.ident;
        }
    }
}

TEST(EncodeName, CodingChosenByTheFirstByte)
{
    struct {
        const char *utf8, *ident;
    } cases[] = {
        {"42 6F 62", "42 6F 62 00"},         // GSM text with its NUL
        {"C3 A9 41", "80 00 E9 00 41"},      // UCS-2 behind the 0x80 byte
        {"", "00"},
    };
    for (const auto &c : cases) {
        Bytes name = hex(c.utf8), out(16, 0xEE);
        name.push_back(0);
        int out_len = -7;
        ASSERT_EQ(pb_func_encode_name(out.data(), &out_len, name.data(), static_cast<int>(name.size()) - 1),
                  PB_RCODE_OK)
            << c.utf8;
        const Bytes want = hex(c.ident);
        EXPECT_EQ(Bytes(out.begin(), out.begin() + want.size()), want) << c.utf8;
        EXPECT_EQ(out[want.size()], 0xEE);
        EXPECT_EQ(out_len, want[0] == 0x80 ? static_cast<int>(want.size()) : static_cast<int>(want.size()) - 1);
    }
    Bytes stray = hex("80 80"), out(8);
    int out_len = 5;
    ASSERT_EQ(pb_func_encode_name(out.data(), &out_len, stray.data(), 2), PB_RCODE_OK);
    EXPECT_EQ(out_len, 0); // no character: -1 from the conversion plus the 0x80 byte
}

pb_fixed_sim_rec_s_type record(const char *head)
{
    pb_fixed_sim_rec_s_type rec;
    std::memset(&rec, 0xFF, sizeof rec);
    const Bytes b = hex(head);
    std::memcpy(&rec, b.data(), b.size());
    return rec;
}

TEST(DecodeNumber, FixedPartVectorsAndRefusedLengths)
{
    struct {
        const char *head;
        pb_return_code_enum_t rc;
        const char *text;
    } cases[] = {
        {"03 91 21 F3", PB_RCODE_OK, "+123"},
        {"03 80 21 43", PB_RCODE_OK, "1234"},
        {"01 91", PB_RCODE_OK, "+"},
        {"0B 81 11 11 11 11 11 11 11 11 11 11", PB_RCODE_OK, "11111111111111111111"},
        {"FF", PB_RCODE_INVALID_ERR, ""},
        {"00", PB_RCODE_BCD_ERR, ""},
        {"0C 81", PB_RCODE_BCD_ERR, ""}, // would reach past the number field
        {"15 81", PB_RCODE_BCD_ERR, ""},
    };
    for (const auto &c : cases) {
        pb_fixed_sim_rec_s_type rec = record(c.head);
        unsigned char num[64] = {};
        EXPECT_EQ(pb_func_decode_number(num, &rec), c.rc) << c.head;
        EXPECT_STREQ(reinterpret_cast<char *>(num), c.text) << c.head;
    }
}

TEST(EncodeNumber, WritesOnlyTheNumberBytes)
{
    struct {
        const char *text;
        pb_return_code_enum_t rc;
        const char *head; // the whole fixed part afterwards
    } cases[] = {
        {"+123", PB_RCODE_OK, "03 91 21 F3 EE EE EE EE EE EE EE EE EE EE"},
        {"", PB_RCODE_OK, "00 EE EE EE EE EE EE EE EE EE EE EE EE EE"},
        {"12345678901234567890", PB_RCODE_OK, "0B 80 21 43 65 87 09 21 43 65 87 09 EE EE"},
        {"123456789012345678901", PB_RCODE_BCD_ERR, "EE EE EE EE EE EE EE EE EE EE EE EE EE EE"},
        {"abc", PB_RCODE_BCD_ERR, "EE EE EE EE EE EE EE EE EE EE EE EE EE EE"},
    };
    for (const auto &c : cases) {
        Bytes fixed(14, 0xEE), text = bytes(c.text);
        text.push_back(0);
        EXPECT_EQ(pb_func_encode_number(fixed.data(), text.data()), c.rc) << c.text;
        EXPECT_EQ(fixed, hex(c.head)) << c.text;
    }
}

} // namespace
