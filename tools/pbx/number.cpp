// Dialling numbers on their way into a phonebook: the separators people
// write are dropped, and what is left must be something a phonebook can
// hold (the characters of a SIM's BCD number form).
#include <cstring>

#include "pbx.h"
#include "text.h"

namespace pbx {

namespace {

// Written between digit groups: "+49 (30) 123-456", "030.123.456".
bool separator(char32_t c)
{
    switch (c) {
    case ' ':
    case '\t':
    case '-':
    case '.':
    case '(':
    case ')':
    case '[':
    case ']':
    case 0xA0: return true;
    default: return false;
    }
}

std::string shown(char32_t c)
{
    std::string s = "'";
    if (c < 0x20 || c == 0x7F)
        s += "\\x" + std::string(1, "0123456789ABCDEF"[c >> 4]) + "0123456789ABCDEF"[c & 15];
    else
        append_utf8(&s, c);
    return s + "'";
}

}  // namespace

std::string tidy_number(std::string_view in, std::string *out)
{
    out->clear();
    for (size_t i = 0; i < in.size();) {
        char32_t c;
        if (!next_char(in, &i, &c))
            return "the number is not valid UTF-8 text";
        if (separator(c))
            continue;
        if (c == 'p' || c == 'w' || c == 't')
            c = c - 'a' + 'A';
        if (c == '+') {
            if (!out->empty())
                return "'+' may only stand at the start of a number";
        } else if (!((c >= '0' && c <= '9') || c == '*' || c == '#' || c == 'P' || c == 'W' || c == 'T')) {
            return shown(c) + " cannot be part of a number (digits * # P W T, + in front)";
        }
        *out += static_cast<char>(c);
    }
    if (*out == "+")
        return "'+' without digits is no number";
    if (out->size() > PB_TEXT_LEN - 1)
        return "the number has " + std::to_string(out->size()) + " characters; at most " +
               std::to_string(PB_TEXT_LEN - 1) + " fit";
    return "";
}

}  // namespace pbx
