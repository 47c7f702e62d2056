/*
 * args.h - the command line of the phonebook tool: one command, its
 * phonebook and arguments, and the global options.
 */
#ifndef PBCLI_ARGS_H
#define PBCLI_ARGS_H

#include <optional>
#include <string>
#include <vector>

#include "contacts.h"
#include "zpt_ui_pb_api.h"

namespace pbcli {

enum class Cmd {
    HELP,
    LIST,
    SHOW,
    ADD,
    EDIT,
    DELETE,
    DELETE_ALL,
    IMPORT,
    EXPORT,
    COPY,
    CHECK,
    FIND,
    WHO,
    DUPLICATES,
    MERGE
};

struct Args {
    Cmd cmd = Cmd::HELP;
    bool json = false;
    double wait_seconds = 30;  // how long to wait for the SIM phonebook to be read
    storage_type_t type = STORAGE_TYPE_UNKNOWN;
    std::vector<int> indexes;  // device indexes, 1..1000
    std::optional<std::string> name, number, email;
    // edit, delete of one entry: the entry as the caller saw it; the change
    // is made only while the entry at the index still holds it
    std::optional<std::string> expect_name, expect_number;
    std::string file;
    std::string text;  // find: what to look for; who: the number
    // who, duplicates, merge: the home country's ISO 3166 code; none
    // given: the router's (NV). duplicates and merge of both phonebooks
    // leave type STORAGE_TYPE_UNKNOWN.
    std::optional<std::string> country;
    // merge: the entries to keep of their groups, instead of the most complete
    std::vector<std::pair<storage_type_t, int>> keep;
    bool yes = false;                          // confirms delete-all
    storage_type_t to = STORAGE_TYPE_UNKNOWN;  // copy: the phonebook copied into
    std::optional<pbui::Format> format;        // import, export: the text format
    bool verbose = false;                      // import, copy: one line per contact
    bool cut = false;                          // copy to the SIM: cut names to fit
};

// Fills *args from argv (getopt_long's rules: options anywhere, "--" ends
// them). Returns an empty string, or what is wrong.
std::string parse_args(int argc, const char *const *argv, Args *args);

// The command as it is written on the command line ("delete-all").
const char *command_word(Cmd cmd);

// The --help text: every command, option and exit status.
const char *usage_text();

}  // namespace pbcli

#endif
