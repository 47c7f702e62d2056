/*
 * report_json.h - the report of an import or a copy and the check of an
 * entry's fields as JSON members, for pbcli --json and pbweb's answers
 * alike. Pure functions; any thread.
 */
#ifndef PBUI_REPORT_JSON_H
#define PBUI_REPORT_JSON_H

#include <string>

#include "contacts.h"
#include "json_writer.h"
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

}  // namespace pbui

#endif
