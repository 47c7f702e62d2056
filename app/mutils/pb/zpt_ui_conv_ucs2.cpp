// UCS-2 (big-endian byte strings, lengths in bytes) and UTF-8 (one to three
// bytes per 16-bit character). No state; scratch buffers come from the heap
// and are owned by the call that allocates them.
#include <cstring>

#include "pb_conv.h"
#include "pb_heap.h"
#include "pb_log.h"
#include "zpt_ui_conv.h"

namespace {

// Number of leading one bits of b, from bit 7 downward.
int get_cnt_bits(unsigned char b)
{
    int n = 0;
    while (n < 8 && (b & (0x80u >> n)))
        ++n;
    return n;
}

// Decodes the cnt_bits-byte sequence at utf[sptr]; continuation bytes are
// taken as they are and the value is kept to its low 16 bits.
unsigned short utf2uni(const unsigned char *utf, int sptr, int cnt_bits)
{
    unsigned int v = (utf[sptr] & ((1u << (7 - cnt_bits)) - 1)) << (6 * (cnt_bits - 1));
    for (int k = 1; k < cnt_bits; ++k)
        v |= static_cast<unsigned int>(utf[sptr + k] & 0x3F) << (6 * (cnt_bits - 1 - k));
    return static_cast<unsigned short>(v & 0xFFFF);
}

constexpr const char *kNullBuffer = "convert buffer is NULL\n\n";

}  // namespace

bool pb_conv_args_ok(const char *des_data, const int *des_len, const char *src_data, int src_len,
                     const char *null_text, const char *bad_length_text, const char *caller)
{
    if (des_data == nullptr || des_len == nullptr || src_data == nullptr) {
        PB_LOG_FOR(caller, "%s", null_text);
        return false;
    }
    if (src_len < 0) {
        PB_LOG_FOR(caller, "%s", bad_length_text);
        return false;
    }
    return true;
}

extern "C" int char2short(const char *src, int srclen, unsigned short *des)
{
    if (src == nullptr || des == nullptr)
        return -1;
    if (srclen < 1)
        return 0;
    const auto *s = reinterpret_cast<const unsigned char *>(src);
    const auto len = static_cast<size_t>(srclen);
    size_t k = 0;
    for (; 2 * k < len; ++k) {
        // An odd last byte has no partner inside srclen: it becomes the high
        // byte of a last character whose low byte is 0.
        const unsigned int lo = (2 * k + 1 < len) ? s[2 * k + 1] : 0u;
        des[k] = static_cast<unsigned short>((s[2 * k] << 8) | lo);
    }
    return static_cast<int>(k);
}

extern "C" int short2char(const unsigned short *src, int srclen, char *des)
{
    if (src == nullptr || des == nullptr || srclen <= 0)
        return -1;
    for (size_t k = 0; k < static_cast<size_t>(srclen); ++k) {
        des[2 * k] = static_cast<char>(src[k] >> 8);
        des[2 * k + 1] = static_cast<char>(src[k] & 0xFF);
    }
    return 2 * srclen;
}

extern "C" int uni2utf(unsigned short wchar, char *utf8)
{
    if (utf8 == nullptr)
        return -1;
    if (wchar < 0x80) {
        utf8[0] = static_cast<char>(wchar);
        return 1;
    }
    if (wchar < 0x800) {
        utf8[0] = static_cast<char>(0xC0 | (wchar >> 6));
        utf8[1] = static_cast<char>(0x80 | (wchar & 0x3F));
        return 2;
    }
    utf8[0] = static_cast<char>(0xE0 | (wchar >> 12));
    utf8[1] = static_cast<char>(0x80 | ((wchar >> 6) & 0x3F));
    utf8[2] = static_cast<char>(0x80 | (wchar & 0x3F));
    return 3;
}

extern "C" int conv_utf8_to_ucs2(char *des_data, int *des_len, char *src_data, int src_len)
{
    PB_LOG("enter\n\n");
    int ret = -1;
    pb_heap_ptr<unsigned short[]> unis;
    do {
        if (!pb_conv_args_ok(des_data, des_len, src_data, src_len, kNullBuffer, "source length is error\n\n",
                             __func__))
            break;
        unis = pb_heap_alloc<unsigned short>(src_len > 0 ? static_cast<size_t>(src_len) : 1u);
        if (!unis) {
            PB_LOG("malloc outfbuf error\n\n");
            break;
        }
        const auto *utf = reinterpret_cast<const unsigned char *>(src_data);
        int count = 0;
        for (int i = 0; i < src_len;) {
            const unsigned char b = utf[i];
            const int n = get_cnt_bits(b);
            if (b == 0x00 || n == 1 || n >= 7) {
                ++i;
            } else if (n == 0) {
                unis[count++] = b;
                ++i;
            } else if (n > src_len - i) {
                // A sequence cut by the end of the input is dropped.
                break;
            } else {
                unis[count++] = utf2uni(utf, i, n);
                i += n;
            }
        }
        // No character: short2char refuses the zero count and -1 is reported.
        *des_len = short2char(unis.get(), count, des_data);
        ret = 0;
    } while (false);
    PB_LOG("ok\n\n");
    return ret;
}

extern "C" int conv_ucs2_to_utf8(char *des_data, int *des_len, char *src_data, int src_len)
{
    PB_LOG("enter\n\n");
    int ret = -1;
    pb_heap_ptr<unsigned short[]> unis;
    pb_heap_ptr<char[]> utfa;
    do {
        if (!pb_conv_args_ok(des_data, des_len, src_data, src_len, kNullBuffer, "source length error\n\n",
                             __func__))
            break;
        unis = pb_heap_alloc<unsigned short>(static_cast<size_t>(src_len) / 2 + 1);
        if (!unis) {
            PB_LOG("malloc unisigned short buffer error\n\n");
            break;
        }
        utfa = pb_heap_alloc<char>(4 * static_cast<size_t>(src_len) + 1);
        if (!utfa) {
            PB_LOG("malloc char buffer error\n\n");
            unis.reset();
            break;
        }
        const int unis_len = char2short(src_data, src_len, unis.get());
        int utfa_len = 0;
        PB_LOG("unis_len=%d utfa_len=%d\n\n", unis_len, utfa_len);
        for (int k = 0; k < unis_len; ++k)
            utfa_len += uni2utf(unis[k], utfa.get() + utfa_len);
        *des_len = utfa_len;
        if (utfa_len > 0)
            std::memcpy(des_data, utfa.get(), static_cast<size_t>(utfa_len));
        PB_LOG("*des_len=%d\n\n", *des_len);
        if (utfa_len <= 0) {
            PB_LOG("convert utf len error\n\n");
            break;
        }
        ret = 0;
    } while (false);
    unis.reset();
    PB_LOG("free unis_ptr ok\n\n");
    utfa.reset();
    PB_LOG("ok\n\n");
    return ret;
}

extern "C" int conv_swap_the_double_bytes_order(char *data, int len)
{
    PB_LOG("enter\n\n");
    if (data == nullptr || len == 0) {
        PB_LOG("error\n\n");
        return -1;
    }
    // An odd last byte has no partner inside len and stays where it is.
    for (int j = 0; j + 1 < len; j += 2) {
        const char t = data[j];
        data[j] = data[j + 1];
        data[j + 1] = t;
    }
    PB_LOG("ok\n\n");
    return 0;
}
