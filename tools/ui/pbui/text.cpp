// UTF-8 helpers of the contact exchange library.
#include "text.h"

#include "contacts.h"

namespace pbui {

bool next_char(std::string_view s, size_t *pos, char32_t *cp)
{
    const size_t i = *pos;
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned char lead = byte(i);
    if (lead < 0x80) {
        *cp = lead;
        *pos = i + 1;
        return true;
    }
    // Length from the lead byte; C0, C1 and F5..FF never start a character.
    const size_t len = lead >= 0xC2 && lead < 0xE0   ? 2
                       : lead >= 0xE0 && lead < 0xF0 ? 3
                       : lead >= 0xF0 && lead < 0xF5 ? 4
                                                     : 0;
    if (len == 0 || i + len > s.size())
        return false;
    char32_t v = lead & (0x7F >> len);
    for (size_t k = 1; k < len; ++k) {
        if ((byte(i + k) & 0xC0) != 0x80)
            return false;
        v = v << 6 | (byte(i + k) & 0x3F);
    }
    static const char32_t kLeast[5] = {0, 0, 0x80, 0x800, 0x10000};
    if (v < kLeast[len] || v > 0x10FFFF || (v >= 0xD800 && v < 0xE000))
        return false;
    *cp = v;
    *pos = i + len;
    return true;
}

void append_utf8(std::string *out, char32_t cp)
{
    if (cp < 0x80) {
        *out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        *out += static_cast<char>(0xC0 | cp >> 6);
        *out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        *out += static_cast<char>(0xE0 | cp >> 12);
        *out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
        *out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        *out += static_cast<char>(0xF0 | cp >> 18);
        *out += static_cast<char>(0x80 | (cp >> 12 & 0x3F));
        *out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
        *out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

void as_utf8(std::string_view s, std::string *out)
{
    size_t ascii = 0;
    while (ascii < s.size() && static_cast<unsigned char>(s[ascii]) < 0x80)
        ++ascii;
    out->assign(s.substr(0, ascii));
    for (size_t i = ascii; i < s.size();) {
        const size_t start = i;
        char32_t cp;
        if (next_char(s, &i, &cp)) {
            out->append(s, start, i - start);
        } else {
            append_utf8(out, static_cast<unsigned char>(s[i]));
            ++i;
        }
    }
}

std::string as_utf8(std::string_view s)
{
    std::string out;
    as_utf8(s, &out);
    return out;
}

size_t cut_length(std::string_view text, size_t max_bytes)
{
    if (text.size() <= max_bytes)
        return text.size();
    size_t n = max_bytes;
    // text[n] is the first byte left out; while it continues a character,
    // that character began inside the kept part: leave it out whole.
    while (n > 0 && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80)
        --n;
    return n;
}

std::string cut_text(std::string_view text, size_t max_bytes)
{
    return std::string(text.substr(0, cut_length(text, max_bytes)));
}

std::string lower(std::string_view s)
{
    std::string out(s);
    for (char &c : out)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return out;
}

bool same_word(std::string_view a, std::string_view b)
{
    const auto low = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (low(a[i]) != low(b[i]))
            return false;
    return true;
}

std::string_view trim(std::string_view s)
{
    const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!s.empty() && blank(s.front()))
        s.remove_prefix(1);
    while (!s.empty() && blank(s.back()))
        s.remove_suffix(1);
    return s;
}

// Full-width forms (U+FF01..U+FF5E) are the ASCII characters; the
// ideographic space is a space.
char32_t narrow_width(char32_t c)
{
    if (c >= 0xFF01 && c <= 0xFF5E)
        return c - 0xFEE0;
    return c == 0x3000 ? U' ' : c;
}

// Written between digit groups: spaces of every kind, dashes, dots,
// slashes and brackets ("+49 (30) 123-456", "030/123 456", "030.123.456").
bool number_separator(char32_t c)
{
    switch (c) {
    case ' ':
    case '\t':
    case '-':
    case '.':
    case '/':
    case '(':
    case ')':
    case '[':
    case ']':
    case 0x00A0:  // no-break space
    case 0x1680:  // ogham space mark
    case 0x2010:  // hyphen
    case 0x2011:  // non-breaking hyphen
    case 0x2012:  // figure dash
    case 0x2013:  // en dash
    case 0x2014:  // em dash
    case 0x2015:  // horizontal bar
    case 0x2212:  // minus sign
    case 0x202F:  // narrow no-break space
    case 0x205F:  // medium mathematical space
    case 0x200B:  // zero width space
    case 0x2060:  // word joiner
    case 0xFEFF:  // zero width no-break space
        return true;
    default: return c >= 0x2000 && c <= 0x200A;  // en quad .. hair space
    }
}

}  // namespace pbui
