// The caller lookup through its C API, compiled as C99 (lookup_c99.c), on
// phonebook files written by the store: which entry wins when several
// match, the home country given, from the NV store or none, and numbers
// that find nothing. A fault here shows an SMS under the wrong name.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "book_text.h"
#include "nvmanager.h"

extern "C" void c99_lookup(const char *number, const char *country, char *out, size_t size);

namespace {

std::string lookup(const char *number, const char *country)
{
    char out[128] = {};
    c99_lookup(number, country, out, sizeof out);
    return out;
}

TEST(Lookup, BestEntryOfEitherPhonebook)
{
    simlib_clear_flash(STORAGE_TYPE_FLASH);
    simlib_clear_flash(STORAGE_TYPE_SIM);
    EXPECT_EQ(lookup("+491712345678", ""), "none") << "empty phonebooks";
    store_book(STORAGE_TYPE_FLASH, {{1, "0171 2345678|Bob at home|"},
                                    {2, "+491712345678|Bob|"},
                                    {3, "+4930123456|Zoë|"},
                                    {5, "*100#|Balance|"}});
    store_book(STORAGE_TYPE_SIM, {{1, "+491712345678|Bob SIM|"},
                                  {2, "+33142868200|Renée|"},
                                  {3, "0401234567|Hamburg|"},
                                  {4, "+33142868200|Renée 2|"}});
    const char kDefault[] = "DE";
    ASSERT_EQ(nvmram_writenv("pb_home_country", kDefault, sizeof kDefault), NV_OK);
    const struct {
        const char *number;
        const char *country;
        const char *found;  // "~": by trailing digits
    } kCases[] = {
        // The device before the SIM; an equal form before trailing digits,
        // then the lowest index.
        {"+49 171 2345678", "", "device 2 Bob"},
        {"0049 171 2345678", "de", "device 1 Bob at home"},
        {"+49 171 2345678", nullptr, "device 1 Bob at home"},  // the NV store's country
        {"0171 2345678 ext. 12", "", "device 1 Bob at home"},
        {"0033 1 42 86 82 00", "", "sim 2 Renée"},
        {"01 42 86 82 00", "FR", "sim 2 Renée"},
        {"01 42 86 82 00", "", "sim 2~ Renée"},
        {"+49 40 1234567", "", "sim 3~ Hamburg"},
        {"+49 40 1234567", "DE", "sim 3 Hamburg"},
        {"*100#", "", "device 5 Balance"},
        // The same last 6 digits; with a home country, another country's
        // number with the digits of a national one; a short code; nothing
        // readable.
        {"+49 40 123456", "", "none"},
        {"+43 171 2345678", "DE", "none"},
        {"100", "", "none"},
        {"Bob", "", "none"},
        {"+4930123456", "XX", "error 2"},
    };
    for (const auto &c : kCases)
        EXPECT_EQ(lookup(c.number, c.country), c.found)
            << c.number << " / " << (c.country ? c.country : "NULL");
}

}  // namespace
