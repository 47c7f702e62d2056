// The countries a home country may name: ISO 3166 alpha-2 code, calling
// code and national trunk prefix, from each country's numbering plan. A
// national number of the home country is made international by dropping
// the trunk prefix and putting the calling code in front; where the country
// has no trunk prefix (Italy, Spain, Denmark, ...) the whole national number
// follows the calling code. Kept sorted by code for the binary search.
#include <algorithm>
#include <cctype>
#include <iterator>

#include "contacts.h"

namespace pbui {

namespace {

constexpr Country kCountries[] = {
    {"AE", "971", "0"}, {"AR", "54", "0"},  {"AT", "43", "0"},  {"AU", "61", "0"}, {"BE", "32", "0"},
    {"BR", "55", "0"},  {"CA", "1", "1"},   {"CH", "41", "0"},  {"CI", "225", ""}, {"CN", "86", "0"},
    {"CZ", "420", ""},  {"DE", "49", "0"},  {"DK", "45", ""},   {"EG", "20", "0"}, {"ES", "34", ""},
    {"FI", "358", "0"}, {"FR", "33", "0"},  {"GB", "44", "0"},  {"GR", "30", ""},  {"HK", "852", ""},
    {"HU", "36", "06"}, {"IE", "353", "0"}, {"IL", "972", "0"}, {"IN", "91", "0"}, {"IT", "39", ""},
    {"JP", "81", "0"},  {"KR", "82", "0"},  {"LU", "352", ""},  {"MX", "52", ""},  {"NL", "31", "0"},
    {"NO", "47", ""},   {"NZ", "64", "0"},  {"PL", "48", ""},   {"PT", "351", ""}, {"RU", "7", "8"},
    {"SA", "966", "0"}, {"SE", "46", "0"},  {"SG", "65", ""},   {"SM", "378", ""}, {"TR", "90", "0"},
    {"UA", "380", "0"}, {"US", "1", "1"},   {"VA", "379", ""},  {"ZA", "27", "0"},
};

}  // namespace

const Country *find_country(std::string_view iso)
{
    if (iso.size() != 2)
        return nullptr;
    const char key[3] = {static_cast<char>(std::toupper(static_cast<unsigned char>(iso[0]))),
                         static_cast<char>(std::toupper(static_cast<unsigned char>(iso[1]))), '\0'};
    const Country *end = std::end(kCountries);
    const Country *c =
        std::lower_bound(std::begin(kCountries), end, std::string_view(key),
                         [](const Country &a, std::string_view k) { return std::string_view(a.iso) < k; });
    return c != end && c->iso == std::string_view(key) ? c : nullptr;
}

std::string country_refusal(std::string_view iso)
{
    if (find_country(iso) != nullptr)
        return "";
    return "unknown country '" + std::string(iso) +
           "': give its ISO 3166 two-letter code, such as DE, FR or US";
}

}  // namespace pbui
