// Dialling numbers on their way into a phonebook, read the way people write
// them: separators of every kind dropped, full-width digits read as digits,
// a label or a tel: URI in front dropped, an extension turned into a pause
// and its digits, and a trunk prefix 0 written in brackets after a country
// code dropped. What is left must be something a phonebook can hold (the
// characters of a SIM's BCD number form); anything else is refused with the
// character and its place, so that no number is stored with other digits
// than the ones written. A refusal is a problem word with what it names, so
// that each user interface can say it in its own language; the English
// sentence is made from it here, once.
#include <algorithm>
#include <cstring>
#include <vector>

#include "contacts.h"
#include "text.h"

namespace pbui {

namespace {

// One character of the number as written, with its place (from 1).
struct Char {
    char32_t c;
    size_t place;
};

bool ascii_letter(char32_t c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool digit(char32_t c) { return c >= '0' && c <= '9'; }

// Countries whose national numbers begin with a 0 that is dialled after the
// country code too (Italy, San Marino, the Vatican, Côte d'Ivoire, the
// Republic of the Congo): a bracketed 0 there is no trunk prefix.
bool zero_is_dialled(std::string_view country_code)
{
    static constexpr std::string_view kCodes[] = {"39", "378", "379", "225", "242"};
    return std::find(std::begin(kCodes), std::end(kCodes), country_code) != std::end(kCodes);
}

// The country code of an international number as far as it is written
// ("+49", "0049"), or "" for any other.
std::string_view country_code(const std::string &out)
{
    std::string_view s = out;
    if (s.size() > 1 && s[0] == '+')
        s.remove_prefix(1);
    else if (s.size() > 2 && s.compare(0, 2, "00") == 0)
        s.remove_prefix(2);
    else
        return {};
    return s.size() <= 3 ? s : std::string_view();
}

NumberRefusal refused(NumberProblem p, const Char &ch)
{
    NumberRefusal r;
    r.problem = p;
    r.c = ch.c;
    r.place = ch.place;
    return r;
}

NumberRefusal refused(NumberProblem p)
{
    NumberRefusal r;
    r.problem = p;
    return r;
}

bool is_refusal(const NumberRefusal &r) { return r.problem != NumberProblem::NONE; }

// Each problem's word and English sentence, in the order of NumberProblem
// (from NOT_UTF8). {char}, {at}, {count} and {max} are filled in from the
// refusal, the way the web page's catalogs are.
struct ProblemText {
    NumberProblem problem;
    const char *word;
    const char *text;
};
constexpr ProblemText kProblems[] = {
    {NumberProblem::NOT_UTF8, "not_utf8", "the number is not valid UTF-8 text"},
    {NumberProblem::BAD_CHAR, "bad_char",
     "'{char}' at place {at} cannot be part of a number (digits * # P W T, + in front)"},
    {NumberProblem::PLUS_INSIDE, "plus_inside", "'{char}' at place {at}: a '+' may only stand at the start"},
    {NumberProblem::PLUS_ALONE, "plus_alone", "'+' without digits is no number"},
    {NumberProblem::LETTERS, "letters",
     "'{char}' at place {at}: letters are not dialled (a vanity number such as 1-800-FLOWERS must be written "
     "in digits)"},
    {NumberProblem::STARTS_WITH_PAUSE, "starts_with_pause",
     "'{char}' at place {at}: a number cannot start with a pause"},
    {NumberProblem::STARTS_WITH_WAIT, "starts_with_wait",
     "'{char}' at place {at}: a number cannot start with a wait"},
    {NumberProblem::EXTENSION_TWICE, "extension_twice", "'{char}' at place {at}: a number has one extension"},
    {NumberProblem::EXTENSION_FIRST, "extension_first",
     "'{char}' at place {at}: an extension needs a number before it"},
    {NumberProblem::EXTENSION_EMPTY, "extension_empty", "the extension has no digits"},
    {NumberProblem::TOO_LONG, "too_long", "the number has {count} characters; at most {max} fit"},
    {NumberProblem::CARD_DIGITS, "card_digits", "the number has {count} digits; the card holds {max}"},
};

constexpr bool every_problem_in_order()
{
    size_t k = 0;
    for (const ProblemText &p : kProblems)
        if (static_cast<size_t>(p.problem) != ++k)
            return false;
    return k == static_cast<size_t>(NumberProblem::CARD_DIGITS);
}
static_assert(every_problem_in_order(), "kProblems has one row for each NumberProblem, in its order");

const ProblemText *problem_text(NumberProblem p)
{
    return p == NumberProblem::NONE ? nullptr : &kProblems[static_cast<size_t>(p) - 1];
}

// A character as the English sentence shows it: control characters as \xNN.
std::string shown(char32_t c)
{
    std::string s;
    if (c < 0x20 || c == 0x7F)
        s = "\\x" + std::string(1, "0123456789ABCDEF"[c >> 4]) + "0123456789ABCDEF"[c & 15];
    else
        append_utf8(&s, c);
    return s;
}

class Reader {
public:
    explicit Reader(std::vector<Char> chars) : in_(std::move(chars)) {}

    NumberRefusal read(std::string *out)
    {
        skip_blanks();
        skip_label();
        for (; i_ < in_.size(); ++i_) {
            const Char &ch = in_[i_];
            if (NumberRefusal why = step(ch, out); is_refusal(why))
                return why;
        }
        if (*out == "+")
            return refused(NumberProblem::PLUS_ALONE);
        if (!out->empty() && out->back() == 'P' && extension_)
            return refused(NumberProblem::EXTENSION_EMPTY);
        return {};
    }

private:
    NumberRefusal step(const Char &ch, std::string *out)
    {
        const char32_t c = ch.c;
        if (c == '(' || c == '[') {
            // "+49 (0) 30 ...", "+61 (02) ...": the trunk prefix of the
            // national form, which is not dialled after a country code.
            const std::string_view cc = country_code(*out);
            trunk_zero_ = !cc.empty() && !zero_is_dialled(cc);
            return {};
        }
        if (number_separator(c))
            return {};
        if (digit(c)) {
            if (trunk_zero_ && c == '0') {
                trunk_zero_ = false;
                return {};
            }
            trunk_zero_ = false;
            *out += static_cast<char>(c);
            return {};
        }
        trunk_zero_ = false;
        if (c == '+') {
            if (out->empty() || *out == "+") {  // "++49" is "+49"
                *out = "+";
                return {};
            }
            return refused(NumberProblem::PLUS_INSIDE, ch);
        }
        if (c == '*' || c == '#') {
            *out += static_cast<char>(c);
            return {};
        }
        if (c == ',')  // a pause, as phones write it: "+1 555 0100,1234"
            return pause(ch, out);
        if (c == ';')
            return parameter(ch, out);
        if (ascii_letter(c))
            return word(out);
        return refused(NumberProblem::BAD_CHAR, ch);
    }

    // A run of letters: a pause or wait (P, W, T), an extension ("ext.",
    // "x"), or letters of a vanity number, which no keypad dials as written.
    NumberRefusal word(std::string *out)
    {
        const Char &first = in_[i_];
        std::string w;
        size_t end = i_;
        for (; end < in_.size() && ascii_letter(in_[end].c); ++end)
            w += static_cast<char>(in_[end].c | 0x20);
        i_ = end - 1;
        if (w.find_first_not_of("pwt") == std::string::npos) {
            if (out->empty() || *out == "+")
                return refused(NumberProblem::STARTS_WITH_PAUSE, first);
            for (char p : w)
                *out += static_cast<char>(p - 'a' + 'A');
            return {};
        }
        if (w == "x" || w == "ext" || w == "extn" || w == "extension") {
            // "ext.", "ext:" and "ext=" close the word.
            if (i_ + 1 < in_.size() && (in_[i_ + 1].c == '.' || in_[i_ + 1].c == ':' || in_[i_ + 1].c == '='))
                ++i_;
            return extension(first, out);
        }
        return refused(NumberProblem::LETTERS, first);
    }

    NumberRefusal pause(const Char &ch, std::string *out)
    {
        if (out->empty() || *out == "+")
            return refused(NumberProblem::STARTS_WITH_PAUSE, ch);
        *out += 'P';
        return {};
    }

    NumberRefusal extension(const Char &ch, std::string *out)
    {
        if (extension_)
            return refused(NumberProblem::EXTENSION_TWICE, ch);
        if (out->empty() || *out == "+")
            return refused(NumberProblem::EXTENSION_FIRST, ch);
        extension_ = true;
        *out += 'P';
        return {};
    }

    // ";ext=12" gives an extension; the other parameters of a tel: URI
    // (";phone-context=...", ";isub=...") say nothing a phone dials. A
    // ';' outside a URI is a wait, as phones write it.
    NumberRefusal parameter(const Char &ch, std::string *out)
    {
        size_t end = i_ + 1;
        std::string name;
        for (; end < in_.size() && (ascii_letter(in_[end].c) || in_[end].c == '-'); ++end)
            name += static_cast<char>(in_[end].c | 0x20);
        const bool has_value = end < in_.size() && in_[end].c == '=';
        if (has_value && name == "ext") {
            i_ = end;
            return extension(ch, out);
        }
        if (uri_ && has_value) {
            while (end + 1 < in_.size() && in_[end + 1].c != ';')
                ++end;
            i_ = end;
            return {};
        }
        if (out->empty() || *out == "+")
            return refused(NumberProblem::STARTS_WITH_WAIT, ch);
        *out += 'W';
        return {};
    }

    void skip_blanks()
    {
        while (i_ < in_.size() && number_separator(in_[i_].c))
            ++i_;
    }

    // "Tel:", "Tel.", "Phone:", "Mobile:" ... and the scheme of a tel: URI.
    void skip_label()
    {
        static constexpr std::string_view kLabels[] = {"tel",  "telephone", "phone", "mobile", "mob",
                                                       "cell", "fax",       "home",  "work",   "office"};
        size_t end = i_;
        std::string w;
        for (; end < in_.size() && ascii_letter(in_[end].c); ++end)
            w += static_cast<char>(in_[end].c | 0x20);
        if (end == in_.size() || std::find(std::begin(kLabels), std::end(kLabels), w) == std::end(kLabels))
            return;
        if (in_[end].c == '.')
            ++end;
        if (end < in_.size() && in_[end].c == ':') {
            uri_ = w == "tel" && in_[end - 1].c != '.';
            ++end;
        } else if (in_[end - 1].c != '.') {
            return;  // "Phone Shop" is a name, not a label
        }
        i_ = end;
        skip_blanks();
    }

    std::vector<Char> in_;
    size_t i_ = 0;
    bool uri_ = false;         // the number came as a tel: URI
    bool trunk_zero_ = false;  // a bracket opened after a country code
    bool extension_ = false;
};

}  // namespace

NumberRefusal tidy_number_refusal(std::string_view in, std::string *out)
{
    out->clear();
    std::vector<Char> chars;
    chars.reserve(in.size());
    for (size_t i = 0; i < in.size();) {
        char32_t c;
        if (!next_char(in, &i, &c))
            return refused(NumberProblem::NOT_UTF8);
        chars.push_back({narrow_width(c), chars.size() + 1});
    }
    if (NumberRefusal why = Reader(std::move(chars)).read(out); is_refusal(why))
        return why;
    if (out->size() > PB_TEXT_LEN - 1) {
        NumberRefusal r = refused(NumberProblem::TOO_LONG);
        r.count = out->size();
        r.max = PB_TEXT_LEN - 1;
        return r;
    }
    return {};
}

std::string tidy_number(std::string_view in, std::string *out)
{
    return number_refusal_text(tidy_number_refusal(in, out));
}

const char *number_problem_word(NumberProblem p)
{
    const ProblemText *t = problem_text(p);
    return t ? t->word : "";
}

std::string number_refusal_text(const NumberRefusal &r)
{
    const ProblemText *t = problem_text(r.problem);
    if (t == nullptr)
        return "";
    std::string s;
    for (const char *p = t->text; *p != '\0'; ++p) {
        const char *close = *p == '{' ? std::strchr(p, '}') : nullptr;
        if (close == nullptr) {
            s += *p;
            continue;
        }
        const std::string_view name(p + 1, static_cast<size_t>(close - p - 1));
        if (name == "char")
            s += shown(r.c);
        else if (name == "at")
            s += std::to_string(r.place);
        else if (name == "count")
            s += std::to_string(r.count);
        else if (name == "max")
            s += std::to_string(r.max);
        p = close;
    }
    return s;
}

}  // namespace pbui
