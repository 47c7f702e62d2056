/*
 * report_json.h - the report of an import or a copy, the check of an
 * entry's fields, a lookup, duplicates and a merge as JSON members, for pbcli --json and pbweb's answers
 * alike. Pure functions; any thread.
 */
#ifndef PBUI_REPORT_JSON_H
#define PBUI_REPORT_JSON_H

#include <string>

#include "contacts.h"
#include "json_writer.h"
#include "merge.h"
#include "pb_lookup.h"

namespace pbui {

/* What became of one contact of an import or a copy. */
std::string json_report_line(const ReportLine &l);
/* The members "read":N,"added":N,"not_added":N,"contacts":[...]. */
JsonObject json_report(const Report &r);
/* The members of a check of an entry's fields ("phonebook", then "name",
 * "number", "email" as given): bytes of the 50 a field holds, whether it
 * fits, and for the SIM how the card stores it (the name's encoding and
 * octets, the number's digits) against the card's limits (null while
 * unknown). */
JsonObject json_check(const FieldsCheck &c);
/* The members of a caller lookup's entry: "phonebook" ("sim" or "device"),
 * "match" ("equal": the same international form; "trailing": the same
 * last digits) and "entry" as a list shows it. */
JsonObject json_lookup(const pb_lookup_entry &e);
/* {"phonebook":"sim"|"device","entry":{...}}. */
std::string json_book_entry(const BookEntry &e);
/* The groups of duplicates: a list of lists of json_book_entry. */
std::string json_groups(const std::vector<DuplicateGroup> &groups);
/* The members of a merge: "groups":N, "kept":[book entries], "deleted":
 * [{"phonebook":...,"index":N}] (the index each was deleted at). */
JsonObject json_merged(const Merged &m);

}  // namespace pbui

#endif
