// Name and number of an abbreviated dialling number record (TS 31.102 clause
// 4.4.2.3; alpha identifier codings of TS 102 221 Annex A).
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "hex_bytes.h"
#include "zpt_ui_pb_func.h"

namespace {

TEST(SimRecord, DecodeNameInEveryCoding)
{
    const std::tuple<const char *, int, pb_return_code_enum_t, const char *> cases[] = {
        // identifier, read_len (-1: all of it), result, UTF-8 name
        {"80 00 41 00 42 FF FF", -1, PB_RCODE_OK, "AB"},
        {"41 42 43 FF FF", -1, PB_RCODE_OK, "ABC"},
        {"41 42 43", -1, PB_RCODE_OK, "ABC"},
        {"41 42 43 44", 2, PB_RCODE_OK, "AB"},
        {"41 C5 11", -1, PB_RCODE_OK, "A? "},      // bytes from 0x80 up become '?'
        {"80 00 78 00 FF", -1, PB_RCODE_OK, "x"},  // ends before the 0xFF byte
        {"81 03 08 9F 20 41 FF", -1, PB_RCODE_OK, "\xD0\x9F A"},
        {"81 05 08 9F 20", -1, PB_RCODE_OK, "\xD0\x9F "},  // count cut to the bytes present
        {"82 02 04 10 80 81", -1, PB_RCODE_OK, "\xD0\x90\xD0\x91"},
        {"82 02 04", -1, PB_RCODE_UTF_ERR, ""},  // header cut: no character
        {"80 FF FF", -1, PB_RCODE_UTF_ERR, ""},
        {"FF FF FF", -1, PB_RCODE_BUFFNULL_ERR, ""},
        {"41", 0, PB_RCODE_BUFFNULL_ERR, ""}};
    for (auto [ident_hex, read_len, rc, name] : cases) {
        Bytes ident = hex(ident_hex), out(64, 0);
        EXPECT_EQ(pb_func_decode_name(out.data(), ident.data(), read_len < 0 ? int(ident.size()) : read_len),
                  rc)
            << ident_hex;
        EXPECT_STREQ(reinterpret_cast<char *>(out.data()), name) << ident_hex;
    }
}

TEST(SimRecord, EncodeNameCodingFollowsTheFirstByte)
{
    const std::tuple<const char *, const char *, int> cases[] = {
        {"42 6F 62", "42 6F 62 00", 3},     // GSM text and its NUL
        {"C3 A9 41", "80 00 E9 00 41", 5},  // UCS-2 behind the 0x80 byte
        {"", "00", 0},
        {"80 80", "80", 0}};  // no character: -1 from the conversion plus the 0x80 byte
    for (auto [name_hex, ident_hex, ident_len] : cases) {
        Bytes name = hex(name_hex), out(16, 0xEE), want = hex(ident_hex);
        name.push_back(0);
        int out_len = -7;
        ASSERT_EQ(pb_func_encode_name(out.data(), &out_len, name.data(), int(name.size()) - 1), PB_RCODE_OK);
        EXPECT_EQ(out_len, ident_len) << name_hex;
        want.resize(16, 0xEE);
        EXPECT_EQ(out, want) << name_hex;
    }
}

TEST(SimRecord, DecodeNumberNeverReadsPastTheNumberField)
{
    const std::tuple<std::string, pb_return_code_enum_t, const char *> cases[] = {
        {"03 91 21 F3", PB_RCODE_OK, "+123"}, {"03 80 21 43", PB_RCODE_OK, "1234"},
        {"01 91", PB_RCODE_OK, "+"},          {"0B 81" + rep("11", 10), PB_RCODE_OK, "11111111111111111111"},
        {"FF", PB_RCODE_INVALID_ERR, ""},     {"00", PB_RCODE_BCD_ERR, ""},
        {"0C 81", PB_RCODE_BCD_ERR, ""},      {"15 81", PB_RCODE_BCD_ERR, ""}};
    for (const auto &[head, rc, text] : cases) {
        pb_fixed_sim_rec_s_type rec;
        std::memset(&rec, 0x11, sizeof rec);
        const Bytes b = hex(head);
        std::memcpy(&rec, b.data(), b.size());
        unsigned char num[64] = {};
        EXPECT_EQ(pb_func_decode_number(num, &rec), rc) << head;
        EXPECT_STREQ(reinterpret_cast<char *>(num), text) << head;
    }
}

TEST(SimRecord, EncodeNumberWritesOnlyTheNumberBytes)
{
    const std::tuple<std::string, pb_return_code_enum_t, std::string> cases[] = {
        {"+123", PB_RCODE_OK, "03 91 21 F3"},
        {"", PB_RCODE_OK, "00"},
        {"12345678901234567890", PB_RCODE_OK, "0B 80 21 43 65 87 09 21 43 65 87 09"},
        {"123456789012345678901", PB_RCODE_BCD_ERR, ""},  // 21 digits do not fit: untouched
        {"abc", PB_RCODE_BCD_ERR, ""}};
    for (const auto &[text, rc, head] : cases) {
        Bytes fixed(14, 0xEE), want = hex(head);
        std::string number = text;
        EXPECT_EQ(pb_func_encode_number(fixed.data(), reinterpret_cast<unsigned char *>(number.data())), rc);
        want.resize(14, 0xEE);
        EXPECT_EQ(fixed, want) << text;
    }
}

}  // namespace
