// The text and number decoders, one per value of the first input byte:
// 0 UTF-8, 1 UCS-2, 2 packed GSM 7-bit, 3 BCD, 4 the 0x81 form, 5 the 0x82 form.
// Inputs and outputs live in heap buffers of exactly the documented size, so
// the address sanitizer reports any byte read or written outside them.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "zpt_ui_conv.h"

namespace {

using Buf = std::unique_ptr<unsigned char[]>;

Buf copy_of(const uint8_t *data, size_t n)
{
    Buf b(new unsigned char[n ? n : 1]);
    if (n)
        std::memcpy(b.get(), data, n);
    return b;
}

char *c(Buf &b) { return reinterpret_cast<char *>(b.get()); }

void utf8_to_ucs2(const uint8_t *data, size_t n)
{
    Buf in = copy_of(data, n), out(new unsigned char[2 * n + 1]);
    int len = 0;
    if (conv_utf8_to_ucs2(c(out), &len, c(in), static_cast<int>(n)) != 0)
        abort();
    if (len != -1 && (len <= 0 || len % 2 != 0 || static_cast<size_t>(len) > 2 * n))
        abort();
}

void ucs2_to_utf8(const uint8_t *data, size_t n)
{
    const size_t room = 3 * ((n + 1) / 2);
    Buf in = copy_of(data, n), out(new unsigned char[room ? room : 1]);
    int len = -1;
    const int rc = conv_ucs2_to_utf8(c(out), &len, c(in), static_cast<int>(n));
    if ((rc == 0) != (n > 0) || len < 0 || static_cast<size_t>(len) > room)
        abort();
}

void gsm_unpack(const uint8_t *data, size_t n)
{
    if (n < 2)
        return;
    const int shift = data[0] % 8, outlenmax = static_cast<int8_t>(data[1]);
    const size_t fill = shift == 0 ? 0 : 8 - static_cast<size_t>(shift);
    const size_t octets = n - 2, src_len = octets * 8 >= fill ? (octets * 8 - fill) / 7 : 0;
    Buf in = copy_of(data + 2, octets), out(new unsigned char[src_len + 1]);
    int len = -1;
    if (conv_gsm_to_ascii_alphabet(c(out), &len, shift, outlenmax, c(in), static_cast<int>(src_len)) != 0)
        abort();
    if (len != static_cast<int>(src_len) || out[src_len] != 0)
        abort();
    for (size_t k = 0; k < src_len; ++k)
        if (out[k] >= 0x80)
            abort();
}

void bcd(const uint8_t *data, size_t n)
{
    if (n < 2)
        return;
    const unsigned char bcd_len = data[0] % 24, ton_npi = data[1];
    const size_t digits = bcd_len <= 20 ? bcd_len : 0;
    if (n - 2 < digits)
        return;
    const size_t room = 2 * static_cast<size_t>(bcd_len) + 2;
    Buf in = copy_of(data + 2, digits), out(new unsigned char[room]);
    const int rc = conv_bcd_to_ascii(in.get(), bcd_len, ton_npi, out.get());
    if ((rc == 0) != (bcd_len <= 20))
        abort();
    if (rc == 0 && strnlen(c(out), room) >= room)
        abort();
}

void compressed(const uint8_t *data, size_t n, unsigned char form)
{
    const size_t header = form == 0x81 ? 3 : 4;
    if (n < header)
        return;
    const size_t count = data[1] < 20 ? data[1] : 20;
    if (n < header + count)
        return;
    Buf str = copy_of(data, header + count);
    str[0] = form;
    std::unique_ptr<unsigned short[]> des(new unsigned short[21]);
    int len = -1;
    const int rc =
        form == 0x81 ? ucs2_81_to_80(des.get(), &len, str.get()) : ucs2_82_to_80(des.get(), &len, str.get());
    if (rc != 0 || len != static_cast<int>(2 * count) || des[count] != 0xFFFF)
        abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    const uint8_t *rest = data + 1;
    const size_t n = size - 1;
    switch (data[0] % 6) {
    case 0: utf8_to_ucs2(rest, n); break;
    case 1: ucs2_to_utf8(rest, n); break;
    case 2: gsm_unpack(rest, n); break;
    case 3: bcd(rest, n); break;
    case 4: compressed(rest, n, 0x81); break;
    default: compressed(rest, n, 0x82); break;
    }
    return 0;
}
