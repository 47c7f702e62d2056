// ASCII and the GSM 7-bit default alphabet: one character per byte, and the
// packed form (septets laid end to end, least significant bit first). Names
// are kept to ASCII; the two tables substitute the nearest ASCII character
// (or a dot) where the alphabets differ. No state.
#include "pb_conv.h"
#include "pb_heap.h"
#include "pb_log.h"
#include "zpt_ui_conv.h"

namespace {

using CharTable = unsigned char[128];

const CharTable kAsciiToDefAlpha = {
    0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x0A, 0x2E, 0x2E, 0x0D, 0x2E, 0x2E,
    0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x2E, 0x2E,
    0x20, 0x21, 0x22, 0x23, 0x02, 0x25, 0x26, 0x27, 0x28, 0x29, 0x2A, 0x2B, 0x2C, 0x2D, 0x2E, 0x2F,
    0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3A, 0x3B, 0x3C, 0x3D, 0x3E, 0x3F,
    0x00, 0x41, 0x42, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4A, 0x4B, 0x4C, 0x4D, 0x4E, 0x4F,
    0x50, 0x51, 0x52, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5A, 0x28, 0x2F, 0x29, 0x2E, 0x2D,
    0x2F, 0x61, 0x62, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6A, 0x6B, 0x6C, 0x6D, 0x6E, 0x6F,
    0x70, 0x71, 0x72, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7A, 0x21, 0x2F, 0x29, 0x2D, 0x2E,
};

const CharTable kDefAlphaToAscii = {
    0x40, 0x23, 0x24, 0x59, 0x65, 0x65, 0x75, 0x69, 0x6F, 0x43, 0x0A, 0x4F, 0x6F, 0x0D, 0x41, 0x61,
    0x44, 0x20, 0x3F, 0x3F, 0x4C, 0x4F, 0x50, 0x3F, 0x53, 0x54, 0x3F, 0x20, 0x41, 0x61, 0x73, 0x45,
    0x20, 0x21, 0x22, 0x23, 0x3F, 0x25, 0x26, 0x27, 0x28, 0x29, 0x2A, 0x2B, 0x2C, 0x2D, 0x2E, 0x2F,
    0x30, 0x31, 0x32, 0x33, 0x34, 0x35, 0x36, 0x37, 0x38, 0x39, 0x3A, 0x3B, 0x3C, 0x3D, 0x3E, 0x3F,
    0x21, 0x41, 0x42, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4A, 0x4B, 0x4C, 0x4D, 0x4E, 0x4F,
    0x50, 0x51, 0x52, 0x53, 0x54, 0x55, 0x56, 0x57, 0x58, 0x59, 0x5A, 0x41, 0x4F, 0x4E, 0x55, 0x53,
    0x3F, 0x61, 0x62, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68, 0x69, 0x6A, 0x6B, 0x6C, 0x6D, 0x6E, 0x6F,
    0x70, 0x71, 0x72, 0x73, 0x74, 0x75, 0x76, 0x77, 0x78, 0x79, 0x7A, 0x61, 0x6F, 0x6E, 0x75, 0x61,
};

// Bytes 0x80 to 0xFF have no entry in either table; they become '?', which
// has the code 0x3F in both alphabets.
constexpr unsigned char kNoEntry = 0x3F;

inline char map_char(const CharTable &table, char c)
{
    const auto b = static_cast<unsigned char>(c);
    return static_cast<char>(b < 0x80 ? table[b] : kNoEntry);
}

// Packs in_len septets behind shift % 7 fill bits. The fill bits of the first
// octet keep what the caller put there. No octet at or past out_len_max is
// touched, the first one included. Returns the octets written.
int pack_7bit_code(char *in, int in_len, int shift, int out_len_max, char *out)
{
    const int k = shift % 7;
    auto *o = reinterpret_cast<unsigned char *>(out);
    unsigned int acc = (in_len > 0 && k != 0 && out_len_max > 0) ? (o[0] & ((1u << k) - 1)) : 0u;
    int nbits = k;
    int m = 0;
    for (int j = 0; j < in_len && m < out_len_max; ++j) {
        acc |= (static_cast<unsigned int>(in[j]) & 0x7F) << nbits;
        nbits += 7;
        for (; nbits >= 8 && m < out_len_max; nbits -= 8, acc >>= 8)
            o[m++] = static_cast<unsigned char>(acc & 0xFF);
    }
    if (in_len > 0 && nbits > 0 && nbits < 8 && m < out_len_max)
        o[m++] = static_cast<unsigned char>(acc & 0xFF);
    return m;
}

// Unpacks up to in_len characters (and at most out_len_max). shift 0: the
// first septet starts at bit 0; shift s (1..7): the first octet carries s
// bits of the first septet in its top bits. Returns the characters written.
int unpack_7bit_code(char *in, int in_len, int shift, int out_len_max, char *out)
{
    const auto *o = reinterpret_cast<const unsigned char *>(in);
    int i = (shift == 0) ? 0 : 1;                      // next octet to read
    int off = (shift == 0 || shift == 7) ? 0 : shift;  // bits owed by the octet before
    bool extra_due = (shift == 7);                     // top seven bits of o[i - 1]
    int n = 0;
    for (;;) {
        if (extra_due) {
            if (n >= out_len_max) {
                PB_LOG("Not enough output buffer for unpacking!\n");
                break;
            }
            if (n >= in_len)
                break;
            out[n++] = static_cast<char>((o[i - 1] >> 1) & 0x7F);
            off = 0;
            extra_due = false;
            continue;
        }
        if (n >= in_len || n >= out_len_max)
            break;
        unsigned int c = (static_cast<unsigned int>(o[i]) << off) & 0x7F;
        if (off > 0)
            c |= o[i - 1] >> (8 - off);
        out[n++] = static_cast<char>(c);
        ++i;
        if (++off == 7)
            extra_due = true;
    }
    return n;
}

// Maps each of the src_len bytes at src_data through `table` into des_data
// (which may be src_data), ends the text with a NUL and sets *des_len.
void map_text(char *des_data, int *des_len, const char *src_data, int src_len, const CharTable &table)
{
    for (int k = 0; k < src_len; ++k)
        des_data[k] = map_char(table, src_data[k]);
    des_data[src_len] = '\0';
    *des_len = src_len;
}

// The unpacked conversions: map_text() once the arguments pass
// pb_conv_args_ok(); 0, or -1 when they do not.
int map_checked(char *des_data, int *des_len, const char *src_data, int src_len, const CharTable &table,
                const char *null_text, const char *bad_length_text, const char *caller)
{
    if (!pb_conv_args_ok(des_data, des_len, src_data, src_len, null_text, bad_length_text, caller))
        return -1;
    map_text(des_data, des_len, src_data, src_len, table);
    return 0;
}

}  // namespace

extern "C" int conv_ascii_to_gsm7(char *des_data, int *des_len, char *src_data, int src_len)
{
    PB_LOG("src_len = %d\n\n", src_len);
    if (map_checked(des_data, des_len, src_data, src_len, kAsciiToDefAlpha, "dest or source data is NULL\n",
                    "the length of source data is invalid\n\n", __func__) != 0)
        return -1;
    PB_LOG("des_len = %d\n\n", *des_len);
    return 0;
}

extern "C" int conv_gsm7_to_ascii(char *des_data, int *des_len, char *src_data, int src_len)
{
    PB_LOG("src_len=%d\n\n", src_len);
    return map_checked(des_data, des_len, src_data, src_len, kDefAlphaToAscii,
                       "dest and source data is NULL\n\n", "the length of source data is validate\n\n",
                       __func__);
}

extern "C" int conv_ascii_to_gsm_alphabet(char *des_data, int *des_len, int shift, int outlenmax,
                                          char *src_data, int src_len)
{
    PB_LOG("enter\n\n");
    // A negative fill-bit count is refused; *des_len is left as it was.
    if (des_data == nullptr || des_len == nullptr || src_data == nullptr || src_len < 0 || shift < 0) {
        PB_LOG("error\n\n");
        return -1;
    }
    pb_heap_ptr<char[]> septets = pb_heap_alloc<char>(static_cast<size_t>(src_len) + 1);
    if (!septets) {
        PB_LOG("error\n\n");
        return -1;
    }
    for (int k = 0; k < src_len; ++k)
        septets[k] = map_char(kAsciiToDefAlpha, src_data[k]);
    PB_LOG("src_len = %d\n\n", src_len);
    pack_7bit_code(septets.get(), src_len, shift, outlenmax, des_data);
    *des_len = static_cast<int>((7LL * src_len + 7) / 8);
    PB_LOG("des_len = %d\n\n", *des_len);
    septets.reset();
    PB_LOG("ok\n\n");
    return 0;
}

extern "C" int conv_gsm_to_ascii_alphabet(char *des_data, int *des_len, int shift, int outlenmax,
                                          char *src_data, int src_len)
{
    PB_LOG("enter\n\n");
    // A shift outside 0..7 is refused; *des_len is left as it was.
    if (des_data == nullptr || des_len == nullptr || src_data == nullptr || src_len < 0 || shift < 0 ||
        shift > 7) {
        PB_LOG("error\n\n");
        return -1;
    }
    PB_LOG("src_len=%d\n\n", src_len);
    const int got = unpack_7bit_code(src_data, src_len, shift, outlenmax, des_data);
    // Positions the unpacking did not reach (outlenmax below src_len) hold '?'.
    for (int k = got; k < src_len; ++k)
        des_data[k] = static_cast<char>(kNoEntry);
    map_text(des_data, des_len, des_data, src_len, kDefAlphaToAscii);
    PB_LOG("ok\n\n");
    return 0;
}
