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

// Room for a national number made international: the most characters a
// number holds and the longest calling code.
constexpr size_t kDigitsMax = 64;
// Digits of a national number of the North American plan, without its 1.
constexpr size_t kNanpDigits = 10;

// The digits a comparison looks at, and their form: a national number of
// the home country made international in *buf.
std::string_view with_home(const DialledNumber &n, const Country *home, NumberForm *form,
                           char (&buf)[kDigitsMax])
{
    *form = n.form;
    if (n.form != NumberForm::NATIONAL || home == nullptr)
        return n.digits;
    const std::string_view trunk = home->trunk;
    const std::string_view code = home->calling_code;
    // Where the trunk prefix is the calling code (the North American plan's
    // 1), it is left out as often as dialled: ten digits without it are
    // the whole national number.
    const bool without_trunk = trunk == code && n.digits.size() == kNanpDigits;
    if ((!without_trunk && n.digits.compare(0, trunk.size(), trunk) != 0) ||
        code.size() + n.digits.size() > kDigitsMax)
        return n.digits;
    const std::string_view rest = std::string_view(n.digits).substr(without_trunk ? 0 : trunk.size());
    std::copy(code.begin(), code.end(), buf);
    std::copy(rest.begin(), rest.end(), buf + code.size());
    *form = NumberForm::INTERNATIONAL;
    return {buf, code.size() + rest.size()};
}

// The digits a trailing comparison looks at: a national number's without
// its leading zeros (the trunk prefix of most countries).
std::string_view significant(std::string_view digits, NumberForm form)
{
    if (form == NumberForm::NATIONAL)
        digits.remove_prefix(std::min(digits.size(), digits.find_first_not_of('0')));
    return digits;
}

bool matches_only_itself(NumberForm f) { return f == NumberForm::SERVICE || f == NumberForm::SHORT; }

}  // namespace

DialledNumber read_dialled(std::string_view written)
{
    DialledNumber r;
    std::string tidy;
    // A number as a phonebook stores it is tidy already: it is taken as it
    // is, so that loading 2000 entries does not read each as people write.
    const bool stored =
        !written.empty() && written.size() < PB_TEXT_LEN &&
        written.find_first_not_of("0123456789*#PWT", written[0] == '+' ? 1 : 0) == std::string_view::npos;
    if (stored)
        tidy = written;
    else if (!tidy_number(written, &tidy).empty() || tidy.empty())
        return r;
    if (tidy.find_first_of("*#") != std::string::npos) {
        r.form = NumberForm::SERVICE;
        r.digits = tidy;
        return r;
    }
    tidy.erase(std::min(tidy.size(), tidy.find_first_of("PWT")));
    if (tidy.empty())
        return r;
    const bool international = tidy[0] == '+' || tidy.compare(0, 2, "00") == 0;
    r.digits = international ? tidy.substr(tidy[0] == '+' ? 1 : 2) : tidy;
    if (r.digits.empty())
        return {};
    if (r.digits.size() < kMinTrailing)
        r.form = NumberForm::SHORT;
    else
        r.form = international ? NumberForm::INTERNATIONAL : NumberForm::NATIONAL;
    return r;
}

NumberMatch match_dialled(const DialledNumber &a, const DialledNumber &b, const Country *home)
{
    if (a.form == NumberForm::NONE || b.form == NumberForm::NONE)
        return NumberMatch::NONE;
    if (matches_only_itself(a.form) || matches_only_itself(b.form))
        return a.form == b.form && a.digits == b.digits ? NumberMatch::EQUAL : NumberMatch::NONE;
    // Every match needs the last kMinTrailing digits equal (a home country
    // only changes the front): most numbers of a phonebook end here, which
    // keeps a lookup among 2000 entries to a few microseconds.
    if (std::string_view(a.digits).substr(a.digits.size() - kMinTrailing) !=
        std::string_view(b.digits).substr(b.digits.size() - kMinTrailing))
        return NumberMatch::NONE;
    char buf_a[kDigitsMax];
    char buf_b[kDigitsMax];
    NumberForm fa;
    NumberForm fb;
    const std::string_view da = with_home(a, home, &fa, buf_a);
    const std::string_view db = with_home(b, home, &fb, buf_b);
    if (fa == fb && da == db)
        return NumberMatch::EQUAL;
    if (fa == NumberForm::INTERNATIONAL && fb == NumberForm::INTERNATIONAL)
        return NumberMatch::NONE;
    const std::string_view sa = significant(da, fa);
    const std::string_view sb = significant(db, fb);
    const size_t n = std::min({sa.size(), sb.size(), kMaxTrailing});
    if (n < kMinTrailing)
        return NumberMatch::NONE;
    return sa.substr(sa.size() - n) == sb.substr(sb.size() - n) ? NumberMatch::TRAILING : NumberMatch::NONE;
}

NumberMatch match_numbers(std::string_view a, std::string_view b, const Country *home)
{
    return match_dialled(read_dialled(a), read_dialled(b), home);
}

}  // namespace pbui
