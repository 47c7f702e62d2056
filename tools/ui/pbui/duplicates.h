/*
 * duplicates.h - entries of the phonebooks that are the same person: the
 * same number by match_numbers (with the home country given), in one
 * phonebook or across both, grouped so that a user sees each person once
 * and a merge keeps one entry of each group. Pure functions on the entries
 * handed in; any thread.
 */
#ifndef PBUI_DUPLICATES_H
#define PBUI_DUPLICATES_H

#include <vector>

#include "contacts.h"
#include "zpt_ui_pb_api.h"

namespace pbui {

/* An entry with its phonebook. */
struct BookEntry {
    storage_type_t type;
    pb_flash_info entry;
};

/* Entries of one person, two or more: the one a merge keeps first (the
 * most complete: an e-mail, then the longest name; then the device's
 * before the SIM's, then the lowest index), the others after it. */
using DuplicateGroup = std::vector<BookEntry>;

/* The groups among the entries, in the order of their first entry. An
 * entry joins the group whose every member has the same number (EQUAL or
 * TRAILING), so that any member may be the one kept; entries without a
 * number join none. */
std::vector<DuplicateGroup> find_duplicates(const std::vector<BookEntry> &entries, const Country *home);

/* The groups that may be one person, for the user to judge (a merge
 * leaves them): entries of the same name whose numbers are not the same
 * but one's digits begin the other's ("030 12345" and "030 1234567", a
 * switchboard and an extension). In the order of their first entry. */
std::vector<DuplicateGroup> find_maybe_duplicates(const std::vector<BookEntry> &entries, const Country *home);

}  // namespace pbui

#endif
