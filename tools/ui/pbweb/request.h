/*
 * request.h - what a web API request asks for: the route (operation,
 * phonebook, index) from its method and path, index lists from the query
 * string, and the entry fields of a JSON body, each checked before anything
 * reaches the phonebook. Pure functions: no I/O, no state.
 */
#ifndef PBWEB_REQUEST_H
#define PBWEB_REQUEST_H

#include <optional>
#include <string>
#include <vector>

#include "contacts.h"
#include "json.h"
#include "zpt_ui_pb_api.h"

namespace pbweb {

enum class Op {
    NOT_FOUND,   // no such path
    BAD_METHOD,  // the path exists, not with this method
    STATUS,      // GET  /api/status
    LOGIN,       // POST /api/login
    LOGOUT,      // POST /api/logout
    LIST,        // GET  /api/{book}/entries[?q=TEXT]
    SHOW,        // GET  /api/{book}/entries/{index}
    ADD,         // POST /api/{book}/entries
    EDIT,        // PUT  /api/{book}/entries/{index}
    DELETE,      // POST /api/{book}/delete
    DELETE_ALL,  // POST /api/{book}/delete-all
    IMPORT,      // POST /api/device/import
    EXPORT,      // GET  /api/{book}/export[?index=1,2,...][&format=F]
    COPY,        // POST /api/{book}/copy: into the other phonebook
    CHECK,       // GET  /api/{book}/check?name=&number=&email=
    LOOKUP,      // GET  /api/lookup?number=N[&country=CC]: the entry a caller's number belongs to
    DUPLICATES,  // GET  /api/[{book}/]duplicates[?country=CC]: one phonebook's, or both's
    MERGE,       // POST /api/merge: keep one entry of each group, delete the others
};

struct Route {
    Op op = Op::NOT_FOUND;
    storage_type_t type = STORAGE_TYPE_UNKNOWN;  // {book}: "sim" or "device"; none: both
    int index = 0;                               // {index}: 1..1000
};

Route parse_route(const std::string &method, const std::string &path);

// True for the operations that change something: they need a same-origin
// request with a body of the expected type.
bool changes_state(Op op);

// "3", "1,2,3": device indexes 1..1000, at most 1000 of them. Returns false
// with the reason in *error for anything else (empty items included).
bool parse_index_list(const std::string &s, std::vector<int> *out, std::string *error);

// Name, number and e-mail of an entry as a request gives them; a field
// missing from the body is not set.
using EntryFields = pbui::Fields;

// Reads "name", "number" and "email" of a JSON object: each must be a
// string of at most 50 bytes without control characters; the number is
// read as people write it (pbui::tidy_number) and stored as a phone dials
// it. Fields of other names are ignored.
bool read_entry_fields(const Json &obj, EntryFields *out, std::string *error);

// The entry as the page showed it, which an edit or delete carries so that
// a change made meanwhile is noticed: its index and the fields it gives.
struct ShownEntry {
    int index = 0;
    EntryFields fields;
};

// Reads {"index":N, "name":..., "number":..., "email":...}.
bool read_shown_entry(const Json &obj, ShownEntry *out, std::string *error);

}  // namespace pbweb

#endif
