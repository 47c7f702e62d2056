// Duplicate groups: who is grouped with whom across both phonebooks, and
// which entry a merge keeps. A fault here deletes someone's only entry.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "duplicates.h"
#include "harness.h"

namespace {

pbui::BookEntry entry(storage_type_t type, int index, const char *name, const char *number,
                      const char *email = "")
{
    return {type, pbt::entry(static_cast<zp_uint32>(index), 0, name, number, email)};
}

// "book index" of every member, group by group, "|" between groups.
std::string shown(const std::vector<pbui::DuplicateGroup> &groups)
{
    std::string s;
    for (const auto &g : groups) {
        s += s.empty() ? "" : " | ";
        for (size_t k = 0; k < g.size(); ++k)
            s += (k ? " " : "") + std::string(g[k].type == STORAGE_TYPE_SIM ? "s" : "d") +
                 std::to_string(g[k].entry.index);
    }
    return s;
}

TEST(Duplicates, GroupsTheSameNumberAndKeepsTheMostCompleteEntry)
{
    const std::vector<pbui::BookEntry> all = {
        entry(STORAGE_TYPE_FLASH, 1, "Anna", "+4930123456"),
        entry(STORAGE_TYPE_FLASH, 2, "Bob", "+4930654321"),
        entry(STORAGE_TYPE_FLASH, 3, "Anna Schmidt", "0049 30 123456", "anna@example.de"),
        entry(STORAGE_TYPE_FLASH, 4, "No number", ""),
        entry(STORAGE_TYPE_FLASH, 5, "Also none", ""),
        entry(STORAGE_TYPE_SIM, 1, "Anna S", "030123456P12"),
        entry(STORAGE_TYPE_SIM, 2, "Bob", "+4940654321"),  // the same last 6 digits only
        entry(STORAGE_TYPE_SIM, 3, "Bob", "+4930654321"),
        entry(STORAGE_TYPE_SIM, 4, "Balance", "*100#"),
        entry(STORAGE_TYPE_SIM, 5, "Balance", "*100#"),
    };
    // The e-mail wins, then the longest name; the device's before the
    // SIM's, then the lowest index.
    EXPECT_EQ(shown(pbui::find_duplicates(all, nullptr)), "d3 s1 d1 | d2 s3 | s4 s5");
    // With a home country whose national numbers these are not, the SIM's
    // national number is another subscriber.
    EXPECT_EQ(shown(pbui::find_duplicates(all, pbui::find_country("FR"))), "d3 d1 | d2 s3 | s4 s5");
}

TEST(Duplicates, EveryMemberIsTheSameNumberAsTheEntryKept)
{
    // Without a home country the national number is the same as both
    // international ones, which differ: it goes with one, and a merge
    // leaves the other subscriber alone.
    const std::vector<pbui::BookEntry> all = {
        entry(STORAGE_TYPE_FLASH, 1, "A", "+49301234567"),
        entry(STORAGE_TYPE_FLASH, 2, "B", "+43301234567"),
        entry(STORAGE_TYPE_FLASH, 3, "C", "0301234567"),
    };
    EXPECT_EQ(shown(pbui::find_duplicates(all, nullptr)), "d1 d3");
    // Kept first, the national number still takes only one of them.
    std::vector<pbui::BookEntry> national_first = all;
    std::strncpy(national_first[2].entry.email, "c@example.de", PB_TEXT_LEN - 1);
    EXPECT_EQ(shown(pbui::find_duplicates(national_first, nullptr)), "d3 d1");
}

TEST(Duplicates, TheSameNameWithANumberThatBeginsTheOtherIsOnlyMaybe)
{
    const std::vector<pbui::BookEntry> all = {
        entry(STORAGE_TYPE_FLASH, 1, "Office", "030 12345"),
        entry(STORAGE_TYPE_FLASH, 2, "Office", "+49 40 999888"),
        entry(STORAGE_TYPE_SIM, 1, "Office", "030 1234567"),
        entry(STORAGE_TYPE_SIM, 2, "Other", "030 1234"),  // another name
    };
    EXPECT_EQ(shown(pbui::find_maybe_duplicates(all, nullptr)), "d1 s1");
    EXPECT_TRUE(pbui::find_duplicates(all, nullptr).empty());
}

}  // namespace
