// What fits on the SIM card. A name is stored in a record's alpha
// identifier of a fixed number of octets: in the GSM 7-bit default alphabet
// (TS 23.038) one octet a character, two for a character of its extension
// table, when every character has a GSM code; else in the UCS-2 form, the
// octet 0x80 and two octets a character. The number is stored in BCD, one
// nibble a digit, the '+' as the type of number.
#include <cstdlib>

#include "nvmanager.h"
#include "pbx.h"
#include "text.h"

namespace pbx {

namespace {

// The non-ASCII characters of the GSM 7-bit default alphabet.
constexpr char32_t kGsmLatin[] = {0xA3, 0xA5, 0xE8, 0xE9, 0xF9, 0xEC, 0xF2, 0xC7, 0xD8, 0xF8,
                                  0xC5, 0xE5, 0xC6, 0xE6, 0xDF, 0xC9, 0xA4, 0xA1, 0xC4, 0xD6,
                                  0xD1, 0xDC, 0xA7, 0xBF, 0xE4, 0xF6, 0xF1, 0xFC, 0xE0};
constexpr char32_t kGsmGreek[] = {0x394, 0x3A6, 0x393, 0x39B, 0x3A9, 0x3A0, 0x3A8, 0x3A3, 0x398, 0x39E};

// Octets of one character in GSM 7-bit: 1, 2 (extension table), or 0 when
// the alphabet has no code for it.
int gsm_octets(char32_t c)
{
    if (c == '`')
        return 0;
    if (c == '^' || c == '{' || c == '}' || c == '\\' || c == '[' || c == ']' || c == '~' || c == '|' ||
        c == 0x20AC || c == '\f')
        return 2;
    if ((c >= 0x20 && c < 0x7F) || c == '\n' || c == '\r')
        return 1;
    for (char32_t g : kGsmLatin)
        if (g == c)
            return 1;
    for (char32_t g : kGsmGreek)
        if (g == c)
            return 1;
    return 0;
}

bool read_nv_int(const char *key, int *out)
{
    char text[16] = {};
    int len = 0;
    if (nvmram_readnv(key, text, sizeof text - 1, &len) != NV_OK)
        return false;
    char *end = nullptr;
    const long v = std::strtol(text, &end, 10);
    if (end == text || v <= 0 || v > 1000)
        return false;
    *out = static_cast<int>(v);
    return true;
}

}  // namespace

int sim_name_octets(std::string_view name)
{
    int gsm = 0, chars = 0;
    bool all_gsm = true;
    for (size_t i = 0; i < name.size();) {
        char32_t c;
        if (!next_char(name, &i, &c) || c > 0xFFFF)
            return -1;
        const int o = gsm_octets(c);
        all_gsm = all_gsm && o != 0;
        gsm += o;
        ++chars;
    }
    return all_gsm ? gsm : 1 + 2 * chars;
}

int sim_number_digits(std::string_view number)
{
    return static_cast<int>(number.size()) - (!number.empty() && number[0] == '+');
}

bool read_sim_limits(SimLimits *out)
{
    SimLimits l;
    if (!read_nv_int("pb_sim_name_maxlen", &l.name_octets) ||
        !read_nv_int("pb_sim_number_maxlen", &l.number_digits))
        return false;
    *out = l;
    return true;
}

}  // namespace pbx
