/*
 * entries.h - entries of a phonebook as the user interfaces pick and
 * change them: by index, by what they hold, the fields a user gives. Pure
 * functions on the entries handed in; any thread.
 */
#ifndef PBUI_ENTRIES_H
#define PBUI_ENTRIES_H

#include <string>
#include <string_view>
#include <vector>

#include "contacts.h"
#include "pb_lookup.h"
#include "zpt_ui_pb_api.h"

namespace pbui {

using Entries = std::vector<pb_flash_info>;

/* An index as a user writes it: digits only, 1 to 1000. False for anything
 * else, with not_an_index(word) to say so. */
bool parse_index(std::string_view word, int *out);
std::string not_an_index(std::string_view word);

/* Why a field a user gives cannot be stored as given, "" when it can: more
 * than 50 bytes, or a control character (a line feed or a tab would split
 * the entry in a file's line and in a table). `what` names the field. */
std::string field_refusal(std::string_view what, std::string_view text);

/* The entry with this index, or null. */
const pb_flash_info *find_entry(const Entries &v, int index);
/* The entry that holds what `e` holds (record, name, number, e-mail),
 * whatever its index, or null. */
const pb_flash_info *find_same(const Entries &v, const pb_flash_info &e);
/* Copies text into an entry's field, cut to the field's size. */
void set_field(char (&dst)[PB_TEXT_LEN], const std::string &v);
/* The entry a caller lookup found, as its phonebook holds it. */
pb_flash_info entry_of(const pb_lookup_entry &e);
/* An edit: sets the fields given, keeps the others. */
void set_fields(pb_flash_info *e, const Fields &f);
/* True when the entry holds every field given. */
bool entry_holds(const pb_flash_info &e, const Fields &f);

/* The entries at the indexes (all when none is given), in that order, and
 * the indexes without an entry. */
struct Chosen {
    Entries entries;
    std::vector<int> missing;
};
Chosen choose(const Entries &all, const std::vector<int> &indexes);

}  // namespace pbui

#endif
