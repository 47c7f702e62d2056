// The SIM name rule: the octets a name takes in a record's alpha
// identifier. The card stores a name in the GSM 7-bit default alphabet
// (TS 23.038), one octet a character and two for a character of its
// extension table (the escape octet and its code), when every character has
// a GSM code; otherwise in the UCS-2 form the module writes, the octet 0x80
// and two octets a character. The default alphabet is taken from the
// module's own conversion (ucs2_81_to_80 expands codes below 0x80 through
// it), so that the user interfaces, the copy and the simulated card count
// as the module encodes; the extension table is not in the module.
#include <algorithm>
#include <array>

#include "contacts.h"
#include "text.h"
#include "zpt_ui_conv.h"

namespace pbui {

namespace {

constexpr int kGsmCodes = 128;
constexpr unsigned char kEscape = 0x1B;  // leads an extension character
constexpr unsigned char kUcs2Form = 0x81;
constexpr int kCodesPerCall = 20;  // characters ucs2_81_to_80 expands at most

// TS 23.038 6.2.1.1: the characters of the extension table that the default
// alphabet's escape gives.
constexpr char32_t kGsmExtension[] = {0x0C, '^', '{', '}', '\\', '[', '~', ']', '|', 0x20AC};

// The default alphabet's characters, sorted, as the module maps its codes.
using Alphabet = std::array<char32_t, kGsmCodes - 1>;

Alphabet default_alphabet()
{
    Alphabet chars{};
    size_t n = 0;
    for (int first = 0; first < kGsmCodes; first += kCodesPerCall) {
        // A 0x81 name of base 0: its octets below 0x80 are GSM codes.
        unsigned char form[3 + kCodesPerCall] = {kUcs2Form, 0, 0};
        int count = 0;
        for (int code = first; code < std::min(first + kCodesPerCall, kGsmCodes); ++code)
            form[3 + count++] = static_cast<unsigned char>(code);
        form[1] = static_cast<unsigned char>(count);
        unsigned short ucs2[kCodesPerCall + 1] = {};
        int len = 0;
        ucs2_81_to_80(ucs2, &len, form);
        for (int k = 0; k < count; ++k) {
            // Big-endian in memory, whatever the host's order.
            const auto *b = reinterpret_cast<const unsigned char *>(&ucs2[k]);
            if (first + k != kEscape)
                chars[n++] = static_cast<char32_t>(b[0] << 8 | b[1]);
        }
    }
    std::sort(chars.begin(), chars.end());
    return chars;
}

// Octets of one character in GSM 7-bit: 1, 2 (extension table), or 0 when
// the alphabet has no code for it.
int gsm_octets(char32_t c)
{
    static const Alphabet kDefault = default_alphabet();
    if (std::binary_search(kDefault.begin(), kDefault.end(), c))
        return 1;
    return std::find(std::begin(kGsmExtension), std::end(kGsmExtension), c) != std::end(kGsmExtension) ? 2
                                                                                                       : 0;
}

}  // namespace

SimName sim_name(std::string_view name)
{
    int gsm = 0, chars = 0;
    bool all_gsm = true;
    for (size_t i = 0; i < name.size();) {
        char32_t c;
        if (!next_char(name, &i, &c) || c > 0xFFFF)
            return {SimText::NONE, -1};
        const int o = gsm_octets(c);
        all_gsm = all_gsm && o != 0;
        gsm += o;
        ++chars;
    }
    return all_gsm ? SimName{SimText::GSM7, gsm} : SimName{SimText::UCS2, 1 + 2 * chars};
}

int sim_name_octets(std::string_view name) { return sim_name(name).octets; }

const char *sim_text_name(SimText t)
{
    switch (t) {
    case SimText::GSM7: return "GSM 7-bit";
    case SimText::UCS2: return "UCS-2";
    case SimText::NONE: break;
    }
    return "none";
}

int sim_number_digits(std::string_view number)
{
    return static_cast<int>(number.size()) - (!number.empty() && number[0] == '+');
}

}  // namespace pbui
