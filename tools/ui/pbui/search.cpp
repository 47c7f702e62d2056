// Search of a phonebook: a name holds the text whatever the case of either,
// in every script that has case (Latin, Greek, Cyrillic, Armenian,
// Georgian, Cherokee, ...), and a number holds the digits of the text
// whatever separators either is written with. Case is folded with the C
// library's own case tables of the C.UTF-8 locale, taken once and never
// made the process's locale: a character is folded through its upper case
// to its lower case, so that final sigma finds sigma and the long s finds
// s. Pure: no I/O; the locale is made once, thread-safely.
#include <locale.h>
#include <wctype.h>

#include <algorithm>
#include <cstring>

#include "contacts.h"
#include "text.h"

namespace pbui {

namespace {

// The case tables, or null when the C library has no UTF-8 locale (only
// ASCII letters are then folded).
locale_t case_tables()
{
    static const locale_t kTables = [] {
        for (const char *name : {"C.UTF-8", "C.utf8", "en_US.UTF-8"})
            if (locale_t l = newlocale(LC_CTYPE_MASK, name, static_cast<locale_t>(nullptr)))
                return l;
        return static_cast<locale_t>(nullptr);
    }();
    return kTables;
}

char32_t fold_by_tables(char32_t c, locale_t tables)
{
    if (tables == nullptr)
        return c;
    const auto wc = static_cast<wint_t>(c);
    return static_cast<char32_t>(towlower_l(towupper_l(wc, tables), tables));
}

// Latin, Greek, Cyrillic and Armenian (up to U+058F) hold most of the
// letters of names with case: their folds are kept at hand, taken once from
// the C library's tables, so that a search of 2000 names stays well under a
// millisecond on the router.
constexpr char32_t kCachedEnd = 0x590;

struct FoldCache {
    char16_t folded[kCachedEnd];
    explicit FoldCache(locale_t tables)
    {
        for (char32_t c = 0; c < kCachedEnd; ++c) {
            const char32_t f =
                c < 0x80 ? (c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c) : fold_by_tables(c, tables);
            // A fold outside the basic plane is never kept: the character stays.
            folded[c] = static_cast<char16_t>(f <= 0xFFFF ? f : c);
        }
    }
};

char32_t fold(char32_t c, locale_t tables)
{
    static const FoldCache kCache(tables);
    return c < kCachedEnd ? kCache.folded[c] : fold_by_tables(c, tables);
}

// Folds UTF-8 text into out (room for n characters); bytes that are not
// UTF-8 are taken one by one. Returns the characters written.
size_t fold_text(std::string_view s, char32_t *out, size_t n, locale_t tables)
{
    size_t k = 0;
    for (size_t i = 0; i < s.size() && k < n;) {
        char32_t c;
        if (!next_char(s, &i, &c))
            c = static_cast<unsigned char>(s[i++]);
        out[k++] = fold(narrow_width(c), tables);
    }
    return k;
}

// The characters of a number in the text when it reads as one (digits,
// * # + and pauses, with separators between), else "".
std::string number_of(std::string_view s)
{
    std::string out;
    for (size_t i = 0; i < s.size();) {
        char32_t c;
        if (!next_char(s, &i, &c))
            return "";
        c = narrow_width(c);
        if (number_separator(c))
            continue;
        if (c == 'p' || c == 'w' || c == 't')
            c -= 'a' - 'A';
        if (!((c >= '0' && c <= '9') || c == '*' || c == '#' || c == '+' || c == 'P' || c == 'W' || c == 'T'))
            return "";
        out += static_cast<char>(c);
    }
    return out;
}

}  // namespace

Search::Search(std::string_view text) : empty_(text.empty()), number_(number_of(text))
{
    // Only a whole number is compared by the rule of the same number: a
    // short part of one ("0171") is found by the digits it holds alone.
    dialled_ = read_dialled(text);
    if (dialled_.form != NumberForm::NATIONAL && dialled_.form != NumberForm::INTERNATIONAL)
        dialled_ = {};
    text_.resize(text.size());
    text_.resize(fold_text(text, &text_[0], text_.size(), case_tables()));
}

bool Search::matches(const pb_flash_info &e) const
{
    if (empty_)
        return true;
    if (!number_.empty() && std::strstr(e.num, number_.c_str()) != nullptr)
        return true;
    if (dialled_.form != NumberForm::NONE &&
        match_dialled(dialled_, read_dialled(std::string_view(e.num, strnlen(e.num, sizeof e.num))),
                      nullptr) != NumberMatch::NONE)
        return true;
    if (text_.empty())
        return false;
    char32_t name[PB_TEXT_LEN];
    const size_t n =
        fold_text(std::string_view(e.name, strnlen(e.name, sizeof e.name)), name, PB_TEXT_LEN, case_tables());
    return std::search(name, name + n, text_.begin(), text_.end()) != name + n;
}

}  // namespace pbui
