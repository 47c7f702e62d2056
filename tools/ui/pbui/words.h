/*
 * words.h - the words every user interface shows for a result of the
 * phonebook: a person-readable message for each result code, and the class
 * of the result, which pbcli ends with as its exit status and pbweb turns
 * into an HTTP status. Among them the three ways a change can fail to land:
 * "SIM phonebook is still being read" (PB_RCODE_READED_ERR), "the SIM card
 * refused the change" (PB_RCODE_SWAP_ERR) and "the phonebook file could not
 * be saved" (PB_RCODE_WRITE_ERR).
 *
 * A fixed table; any thread.
 */
#ifndef PBUI_WORDS_H
#define PBUI_WORDS_H

#include <string>
#include <string_view>

#include "zpt_ui_pb_api.h"

namespace pbui {

/* Results of the user side beside the module's result codes. */
enum : int {
    PBUI_NO_ENTRY = 1000,       /* no entry at the index given */
    PBUI_LIMITS_UNKNOWN = 1001, /* a copy to the SIM before the card's limits were read */
    PBUI_SIM_NO_EMAIL = 1002    /* an e-mail address for the SIM phonebook, whose records hold none */
};

/* The classes of result; pbcli's exit statuses. */
enum Exit {
    EXIT_OK = 0,
    EXIT_FAILED = 1,     /* the phonebook refused or failed the operation */
    EXIT_USAGE = 2,      /* bad command line */
    EXIT_NO_SERVICE = 3, /* the phonebook service could not be reached */
    EXIT_NOT_READY = 4,  /* the SIM phonebook was not ready within the time limit */
    EXIT_NOT_FOUND = 5,  /* no entry at the index given */
};

std::string rcode_message(int rc);
Exit rcode_exit(int rc);
/* The result codes that mean "the SIM phonebook is not ready yet, ask again". */
bool rcode_busy(int rc);

const char *storage_name(storage_type_t type); /* "sim" or "device" */
/* The phonebook a word names: "sim" or "device"; STORAGE_TYPE_UNKNOWN for
 * any other. */
storage_type_t storage_named(std::string_view word);
const char *book_title(storage_type_t type); /* in a sentence: "SIM" or "device" */
/* "no entry at index 42 in the device phonebook" */
std::string no_entry_at(storage_type_t type, int index);
/* "no entry in either phonebook has the number +4930123456" */
std::string no_entry_for(std::string_view number);

}  // namespace pbui

#endif
