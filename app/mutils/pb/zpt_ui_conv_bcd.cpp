// Dialling numbers: packed BCD with the extended digits of a SIM record
// (length byte, TON/NPI byte, digits earlier-nibble-low) and the ASCII number
// text of the system; plus the letter substitutions of the modem's number
// text. No state.
#include <cstring>

#include "pb_log.h"
#include "zpt_ui_conv.h"

char bcd_to_char_mapping[16] = "0123456789*#TPW";

namespace {

constexpr unsigned char kMaxDigitBytes = 20;  // accepted by the decoder
constexpr size_t kMaxDigits = 41;             // accepted by the encoder
constexpr unsigned char kFiller = 0x0F;

bool is_international(unsigned char ton_npi) { return (ton_npi & 0x70) == 0x10; }

// Nibble of one number character; -1 for characters that are skipped.
int nibble_of(unsigned char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    switch (c) {
    case '*': return 0x0A;
    case '#': return 0x0B;
    case 'T':
    case 'F': return 0x0C;
    case 'P': return 0x0D;
    case 'W': return 0x0E;
    default: return -1;
    }
}

void substitute(char *addr, int len, char from1, char to1, char from2, char to2)
{
    if (addr == nullptr)
        return;
    for (int k = 0; k < len; ++k) {
        if (addr[k] == from1)
            addr[k] = to1;
        else if (addr[k] == from2)
            addr[k] = to2;
    }
}

}  // namespace

extern "C" int conv_bcd_to_ascii(const unsigned char *bcd_number, unsigned char bcd_len,
                                 unsigned char ton_npi, unsigned char *ascii_number)
{
    if (bcd_number == nullptr || ascii_number == nullptr) {
        PB_LOG("unexpected NULL point\n\n");
        return -1;
    }
    if (bcd_len > kMaxDigitBytes) {
        PB_LOG("BCD_LENGTH 0x%x maybe corrupt.\n", bcd_len);
        return -1;
    }
    unsigned char *out = ascii_number;
    if (is_international(ton_npi))
        *out++ = '+';
    for (int k = 0; k < bcd_len; ++k) {
        *out++ = static_cast<unsigned char>(bcd_to_char_mapping[bcd_number[k] & 0x0F]);
        *out++ = static_cast<unsigned char>(bcd_to_char_mapping[bcd_number[k] >> 4]);
    }
    // A filler in the last high nibble has already written the NUL.
    if (bcd_len == 0 || (bcd_number[bcd_len - 1] >> 4) != kFiller)
        *out = '\0';
    return 0;
}

extern "C" int conv_ascii_to_bcd(unsigned char *ascii_number, unsigned char type, unsigned char *bcd_number)
{
    if (bcd_number == nullptr || ascii_number == nullptr) {
        PB_LOG("unexpected NULL point\n\n");
        return -1;
    }
    const char *text = reinterpret_cast<const char *>(ascii_number);
    const size_t len = std::strlen(text);
    if (len > kMaxDigits) {
        PB_LOG("Number is too long (%d)\n", static_cast<int>(len));
        return -1;
    }
    if (len == 0) {
        bcd_number[0] = 0;
        return 0;
    }
    unsigned char nibbles[kMaxDigits + 1];
    size_t count = 0;
    for (size_t k = 0; k < len; ++k) {
        const int n = nibble_of(ascii_number[k]);
        if (n >= 0)
            nibbles[count++] = static_cast<unsigned char>(n);
    }
    if (count == 0) {
        PB_LOG("Invalid number (%s)\n", text);
        PB_LOG("Invalid number\n");
        return -1;
    }
    if (count % 2 != 0)
        nibbles[count++] = kFiller;
    const size_t digit_bytes = count / 2;
    for (size_t k = 0; k < digit_bytes; ++k)
        bcd_number[2 + k] = static_cast<unsigned char>(nibbles[2 * k] | (nibbles[2 * k + 1] << 4));
    bcd_number[0] = static_cast<unsigned char>(digit_bytes + 1);
    bcd_number[1] =
        static_cast<unsigned char>(ascii_number[0] == '+' ? (type | 0x90) : ((type & 0xE0) | 0x80));
    return 0;
}

extern "C" void sim_to_display(char *addr, int len) { substitute(addr, len, 'e', 'P', '?', 'W'); }

extern "C" void display_to_sim(char *addr, int len) { substitute(addr, len, 'P', 'e', 'W', '?'); }
