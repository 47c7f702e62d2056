/*
 * text.h - small UTF-8 helpers shared by the parsers and formatters of the
 * contact exchange library (internal).
 */
#ifndef PBX_TEXT_H
#define PBX_TEXT_H

#include <string>
#include <string_view>

namespace pbui {

/* Reads the UTF-8 character at s[*pos] into *cp and moves *pos past it.
 * False (and *pos unchanged) when the bytes there are not a valid,
 * shortest-form character. */
bool next_char(std::string_view s, size_t *pos, char32_t *cp);
/* The same at s[i]: the character's length in bytes, or 0. */
inline size_t utf8_char(std::string_view s, size_t i, char32_t *cp)
{
    size_t at = i;
    return next_char(s, &at, cp) ? at - i : 0;
}

/* The text itself when it is valid UTF-8; else every byte that does not
 * start a valid character is read as a Latin-1 character. */
std::string as_utf8(std::string_view s);
void as_utf8(std::string_view s, std::string *out); /* into *out, reusing its room */

/* Appends the UTF-8 form of cp. */
void append_utf8(std::string *out, char32_t cp);

/* Bytes of the longest head of text that fits in max_bytes, cut at a
 * whole UTF-8 character. */
size_t cut_length(std::string_view text, size_t max_bytes);

/* ASCII lower case, and comparison ignoring ASCII case. */
std::string lower(std::string_view s);
bool same_word(std::string_view a, std::string_view b);

/* The ASCII character of a full-width form (U+FF01..U+FF5E), a space for
 * the ideographic space; any other character as it is. */
char32_t narrow_width(char32_t c);

/* Written between the digit groups of a number: spaces of every kind,
 * '-' and the dashes, '.', '/', brackets. */
bool number_separator(char32_t c);

/* Without leading and trailing spaces, tabs, CR and LF. */
std::string_view trim(std::string_view s);

}  // namespace pbui

#endif /* PBX_TEXT_H */
