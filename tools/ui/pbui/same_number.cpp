// Whether two dialling numbers reach the same subscriber, for the caller
// lookup, duplicates and search. Both numbers are first read as tidy_number
// reads them, so any written form compares; then what follows the number
// (pauses, waits, an extension) is dropped, a leading 00 read as +, and a
// national number of the home country made international. Two
// international forms are compared whole: a country code is never guessed
// away. A national number that cannot be made international is compared by
// its trailing digits, at least kMinTrailing, as phones compare a caller's
// number, so that "030 1234567" still finds "+49301234567" when no home
// country is known. Service codes (with * or #) and short numbers have no
// international form and match only themselves.
#include <algorithm>

#include "contacts.h"

namespace pbui {

namespace {

// Fewer digits than this is a short code (112, 4636); also the fewest
// trailing digits that make a match.
constexpr size_t kMinTrailing = 7;
// The most trailing digits compared: a national significant number has
// rarely more, and the digits in front of them are a trunk prefix or a
// country code that a national number does not show ("8 495..." against
// "+7 495...").
constexpr size_t kMaxTrailing = 10;

enum class Form { NONE, SERVICE, SHORT, NATIONAL, INTERNATIONAL };

struct Read {
    Form form = Form::NONE;
    std::string digits;  // international: country code onwards; national: as dialled
};

Read read_number(std::string_view written, const Country *home)
{
    Read r;
    std::string tidy;
    if (!tidy_number(written, &tidy).empty() || tidy.empty())
        return r;
    if (tidy.find_first_of("*#") != std::string::npos) {
        r.form = Form::SERVICE;
        r.digits = tidy;
        return r;
    }
    tidy.erase(std::min(tidy.size(), tidy.find_first_of("PWT")));
    if (tidy.empty())
        return r;
    if (tidy[0] == '+' || tidy.compare(0, 2, "00") == 0) {
        r.form = Form::INTERNATIONAL;
        r.digits = tidy.substr(tidy[0] == '+' ? 1 : 2);
    } else {
        r.form = tidy.size() < kMinTrailing ? Form::SHORT : Form::NATIONAL;
        r.digits = tidy;
    }
    if (r.digits.size() < kMinTrailing && r.form == Form::INTERNATIONAL)
        r.form = Form::SHORT;
    if (r.form == Form::NATIONAL && home != nullptr) {
        std::string_view trunk = home->trunk;
        if (r.digits.compare(0, trunk.size(), trunk) == 0) {
            r.digits = home->calling_code + r.digits.substr(trunk.size());
            r.form = Form::INTERNATIONAL;
        }
    }
    return r;
}

// The digits a trailing comparison looks at: a national number's without
// its leading zeros (the trunk prefix of most countries).
std::string_view significant(const Read &r)
{
    std::string_view s = r.digits;
    if (r.form == Form::NATIONAL)
        s.remove_prefix(std::min(s.size(), s.find_first_not_of('0')));
    return s;
}

}  // namespace

NumberMatch match_numbers(std::string_view a, std::string_view b, const Country *home)
{
    const Read ra = read_number(a, home);
    const Read rb = read_number(b, home);
    if (ra.form == Form::NONE || rb.form == Form::NONE)
        return NumberMatch::NONE;
    if (ra.form == Form::SERVICE || ra.form == Form::SHORT || rb.form == Form::SERVICE ||
        rb.form == Form::SHORT)
        return ra.form == rb.form && ra.digits == rb.digits ? NumberMatch::EQUAL : NumberMatch::NONE;
    if (ra.form == rb.form && ra.digits == rb.digits)
        return NumberMatch::EQUAL;
    if (ra.form == Form::INTERNATIONAL && rb.form == Form::INTERNATIONAL)
        return NumberMatch::NONE;
    const std::string_view sa = significant(ra);
    const std::string_view sb = significant(rb);
    const size_t n = std::min({sa.size(), sb.size(), kMaxTrailing});
    if (n < kMinTrailing)
        return NumberMatch::NONE;
    return sa.substr(sa.size() - n) == sb.substr(sb.size() - n) ? NumberMatch::TRAILING : NumberMatch::NONE;
}

}  // namespace pbui
