// Output of the command-line phonebook tool: result codes as messages and
// exit statuses, entries as readable tables or as JSON for scripts.
#ifndef PBCLI_OUTPUT_H
#define PBCLI_OUTPUT_H

#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "pbx.h"
#include "zpt_ui_pb_api.h"

namespace pbcli {

// Exit statuses of the tool.
enum Exit {
    EXIT_OK = 0,
    EXIT_FAILED = 1,      // the phonebook refused or failed the operation
    EXIT_USAGE = 2,       // bad command line
    EXIT_NO_SERVICE = 3,  // the phonebook service could not be reached
    EXIT_NOT_READY = 4,   // the SIM phonebook was not ready within the time limit
    EXIT_NOT_FOUND = 5,   // no entry at the index given
};

// A person-readable message for a result code of the phonebook, for every
// user interface: among them the three ways a change can fail to land, "SIM
// phonebook is still being read" (PB_RCODE_READED_ERR), "the SIM card
// refused the change" (PB_RCODE_SWAP_ERR) and "the phonebook file could not
// be saved" (PB_RCODE_WRITE_ERR).
std::string rcode_message(int rc);
// The exit status the tool ends with after that result code.
Exit rcode_exit(int rc);
// The result codes that mean "the SIM phonebook is not ready yet".
bool rcode_busy(int rc);

const char *storage_name(storage_type_t type);  // "sim" or "device"

// Decodes the UTF-8 character at s[i]: its length, or 0 when the bytes there
// are not a valid, shortest-form character.
size_t utf8_char(std::string_view s, size_t i, char32_t *cp);

// Text as a JSON string literal. Control characters are escaped; bytes that
// are not valid UTF-8 become U+FFFD so that the output always parses.
std::string json_string(const std::string &s);
std::string json_entry(const pb_flash_info &e);
std::string json_entries(const std::vector<pb_flash_info> &v);
// Appends [entry,...] of n entries to *out: the list answer of a whole
// phonebook, written in one allocation.
void append_json_entries(std::string *out, const pb_flash_info *v, size_t n);
std::string json_ints(const std::vector<int> &v);  // [1,2,3]
// What became of one contact of an import or a copy, and the members
// "read":N,"added":N,"not_added":N,"contacts":[...] of the whole report.
std::string json_report_line(const pbx::ReportLine &l);
std::string json_report(const pbx::Report &r);
// The members of a check of an entry's fields ("phonebook", then "name",
// "number", "email" as given): bytes of the 50 a field holds, whether it
// fits, and for the SIM how the card stores it (the name's encoding and
// octets, the number's digits) against the card's limits (null while
// unknown). pbweb's check answer and pbcli check --json alike.
std::string json_check(const pbx::FieldsCheck &c);

// The entry with this index, or null.
const pb_flash_info *find_entry(const std::vector<pb_flash_info> &v, int index);
// The entry that holds what `e` holds (record, name, number, e-mail),
// whatever its index, or null: where a change by index went when the
// phonebook was numbered anew meanwhile.
const pb_flash_info *find_same(const std::vector<pb_flash_info> &v, const pb_flash_info &e);
// Copies text into an entry's field, cut to the field's size.
void set_field(char (&dst)[PB_TEXT_LEN], const std::string &v);
// An edit: sets the fields given, keeps the others.
void set_fields(pb_flash_info *e, const std::optional<std::string> &name,
                const std::optional<std::string> &number, const std::optional<std::string> &email);

// Columns a UTF-8 text takes on a terminal: wide East Asian characters take
// two, control characters are shown escaped (see display_text).
size_t display_width(const std::string &s);
// The text as a table cell: line feeds, tabs and other control bytes as
// \n, \t, \xNN, so that one entry stays on one line.
std::string display_text(const std::string &s);

// A table of entries, with the SIM record column for the SIM phonebook,
// under a line with the phonebook and its count unless heading is false.
void print_table(std::ostream &out, storage_type_t type, const std::vector<pb_flash_info> &v,
                 bool heading = true);

}  // namespace pbcli

#endif
