// The words for the phonebook's result codes that pbcli and pbweb show.
#include <gtest/gtest.h>

#include <string>

#include "words.h"

namespace {

using namespace pbui;

TEST(Rcodes, EveryResultCodeHasAMessage)
{
    for (int rc = PB_RCODE_ERROR; rc <= PB_RCODE_EMPTY_ERR; ++rc)
        EXPECT_EQ(rcode_message(rc).find("unexpected"), std::string::npos) << rc;
}

// A change that did not land says why in words of its own: the card, the
// file, or the read still running (which is asked again, not failed).
TEST(Rcodes, CardFileAndReadFailuresAreToldApart)
{
    const struct {
        int rc;
        const char *words;
        Exit exit;
        bool busy;
    } cases[] = {
        {PB_RCODE_SWAP_ERR, "SIM card refused", EXIT_FAILED, false},
        {PB_RCODE_WRITE_ERR, "file could not be saved", EXIT_FAILED, false},
        {PB_RCODE_READED_ERR, "being read", EXIT_NOT_READY, true},
        {PB_RCODE_INIT_ERR, "not ready", EXIT_NOT_READY, true},
    };
    for (const auto &c : cases) {
        EXPECT_NE(rcode_message(c.rc).find(c.words), std::string::npos) << c.rc;
        EXPECT_EQ(rcode_exit(c.rc), c.exit) << c.rc;
        EXPECT_EQ(rcode_busy(c.rc), c.busy) << c.rc;
    }
}

}  // namespace
