// The text and number decoders, one per value of the first input byte:
// 0 UTF-8, 1 UCS-2, 2 packed GSM 7-bit, 3 BCD, 4 the 0x81 form, 5 the 0x82 form.
// Outputs have exactly the room each function documents.
#include <algorithm>
#include <cstdlib>

#include "exact_buf.h"
#include "zpt_ui_conv.h"

namespace {

void utf8_to_ucs2(const uint8_t *data, size_t n)
{
    Buf in = copy_of(data, n), out = room(2 * n);
    int len = 0;
    if (conv_utf8_to_ucs2(chars(out), &len, chars(in), static_cast<int>(n)) != 0)
        abort();
    if (len != -1 && (len <= 0 || len % 2 != 0 || static_cast<size_t>(len) > 2 * n))
        abort();
}

void ucs2_to_utf8(const uint8_t *data, size_t n)
{
    const size_t max = 3 * ((n + 1) / 2);
    Buf in = copy_of(data, n), out = room(max);
    int len = -1;
    const int rc = conv_ucs2_to_utf8(chars(out), &len, chars(in), static_cast<int>(n));
    if ((rc == 0) != (n > 0) || len < 0 || static_cast<size_t>(len) > max)
        abort();
}

// data: the shift, the most septets to unpack, then the packed octets.
void gsm_unpack(const uint8_t *data, size_t n)
{
    if (n < 2)
        return;
    const int shift = data[0] % 8;
    const size_t fill = shift == 0 ? 0 : 8 - static_cast<size_t>(shift), octets = n - 2;
    const size_t septets = octets * 8 >= fill ? (octets * 8 - fill) / 7 : 0;
    Buf in = copy_of(data + 2, octets), out = room(septets + 1);
    int len = -1;
    if (conv_gsm_to_ascii_alphabet(chars(out), &len, shift, static_cast<int8_t>(data[1]), chars(in),
                                   static_cast<int>(septets)) != 0 ||
        len != static_cast<int>(septets) || out[septets] != 0 ||
        !std::all_of(out.get(), out.get() + septets, [](unsigned char ch) { return ch < 0x80; }))
        abort();  // every septet one ASCII byte, then the terminator
}

// data: the length byte, the type of number, then the digit bytes.
void bcd(const uint8_t *data, size_t n)
{
    if (n < 2)
        return;
    const unsigned char bcd_len = data[0] % 24;
    const size_t digits = bcd_len <= 20 ? bcd_len : 0, max = 2 * size_t{bcd_len} + 2;
    if (n - 2 < digits)
        return;
    Buf in = copy_of(data + 2, digits), out = room(max);
    const int rc = conv_bcd_to_ascii(in.get(), bcd_len, data[1], out.get());
    if ((rc == 0) != (bcd_len <= 20) || (rc == 0 && strnlen(chars(out), max) == max))
        abort();  // a length refused or taken wrongly, or a number not terminated
}

// data: the 0x81 or 0x82 form after its tag byte; at most 20 characters are read.
template <unsigned char kForm> void compressed(const uint8_t *data, size_t n)
{
    const size_t header = kForm == 0x81 ? 3 : 4;
    if (n < header || n < header + std::min<size_t>(data[1], 20))
        return;
    Buf str = copy_of(data, header + std::min<size_t>(data[1], 20));
    str[0] = kForm;
    std::unique_ptr<unsigned short[]> des(new unsigned short[21]);
    int len = -1;
    (kForm == 0x81 ? ucs2_81_to_80 : ucs2_82_to_80)(des.get(), &len, str.get());
}

void (*const kDecoders[])(const uint8_t *, size_t) = {utf8_to_ucs2, ucs2_to_utf8,     gsm_unpack,
                                                      bcd,          compressed<0x81>, compressed<0x82>};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 0)
        kDecoders[data[0] % (sizeof kDecoders / sizeof kDecoders[0])](data + 1, size - 1);
    return 0;
}
