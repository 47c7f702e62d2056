// The words for the phonebook's result codes, one table for every user
// interface: pbcli prints them and exits with their class, pbweb answers
// with them and an HTTP status of their class.
#include "words.h"

namespace pbui {

namespace {

struct RcodeText {
    int rc;
    const char *message;
    Exit exit;
};

const RcodeText kRcodes[] = {
    {PB_RCODE_ERROR,
     "the phonebook service could not be reached or the operation failed "
     "(is pb_host running?)",
     EXIT_NO_SERVICE},
    {PB_RCODE_OK, "done", EXIT_OK},
    {PB_RCODE_ARGSERR, "the request was refused as invalid", EXIT_USAGE},
    {PB_RCODE_UTF_ERR, "the name is not valid UTF-8 or cannot be stored on the SIM", EXIT_FAILED},
    {PB_RCODE_BCD_ERR,
     "the number holds characters a SIM cannot store "
     "(allowed: digits * # P W T, and + in front)",
     EXIT_FAILED},
    {PB_RCODE_TYPE_ERR, "unknown phonebook", EXIT_FAILED},
    {PB_RCODE_BUFFNULL_ERR, "internal error: missing entry buffer", EXIT_FAILED},
    {PB_RCODE_INVALID_ERR, "no such entry, or the entry cannot be changed", EXIT_NOT_FOUND},
    {PB_RCODE_READED_ERR, "SIM phonebook is still being read, try again", EXIT_NOT_READY},
    {PB_RCODE_READ_ERR,
     "the phonebook could not be read (the SIM card did not deliver all its records, or the phonebook file "
     "is unreadable)",
     EXIT_FAILED},
    {PB_RCODE_WRITE_ERR, "the phonebook file could not be saved (flash full or read-only?)", EXIT_FAILED},
    {PB_RCODE_SWAP_ERR, "the SIM card refused the change (a name or number too long for the card?)",
     EXIT_FAILED},
    {PB_RCODE_NOTFREE_ERR, "the phonebook is full: no free place for the entry", EXIT_FAILED},
    {PB_RCODE_READING_ERR, "SIM phonebook is still being read, try again", EXIT_NOT_READY},
    {PB_RCODE_RWLOCK_ERR, "internal error: phonebook table lock failed", EXIT_FAILED},
    {PB_RCODE_DUPLICATE_ERR, "another entry already has this name", EXIT_FAILED},
    {PB_RCODE_NODEPOP_ERR, "internal error: service queue failed", EXIT_FAILED},
    {PB_RCODE_NODEPUSH_ERR, "the phonebook service is busy (too many requests waiting), try again",
     EXIT_FAILED},
    {PB_RCODE_NODEDEL_ERR, "internal error: service queue failed", EXIT_FAILED},
    {PB_RCODE_NODEEMPTY_ERR, "internal error: service queue is empty", EXIT_FAILED},
    {PB_RCODE_THREAD_ERR, "internal error: phonebook service thread failed", EXIT_FAILED},
    {PB_RCODE_INIT_ERR, "the phonebook service is not ready yet (SIM not initialised), try again",
     EXIT_NOT_READY},
    {PB_RCODE_NV_ERR, "the SIM phonebook figures could not be stored", EXIT_FAILED},
    {PB_RCODE_EMPTY_ERR, "the phonebook is empty", EXIT_FAILED},
    {PB_RCODE_UNCONFIRMED_ERR,
     "the card did not confirm the change; the list has been read again: check it before trying again",
     EXIT_FAILED},
    {PB_RCODE_CHANGED_ERR, "the entry changed meanwhile; list it again", EXIT_FAILED},
    {PBUI_NO_ENTRY, "no entry at that index", EXIT_NOT_FOUND},
    {PBUI_SIM_NO_EMAIL, "a SIM card holds no e-mail address; keep it in the device phonebook", EXIT_FAILED},
    {PBUI_LIMITS_UNKNOWN, "the card's name and number lengths are not known (has the service read the card?)",
     EXIT_FAILED},
};

const RcodeText *find_rcode(int rc)
{
    for (const auto &r : kRcodes)
        if (r.rc == rc)
            return &r;
    return nullptr;
}

}  // namespace

std::string rcode_message(int rc)
{
    const RcodeText *r = find_rcode(rc);
    return r ? r->message : "unexpected result code " + std::to_string(rc);
}

Exit rcode_exit(int rc)
{
    const RcodeText *r = find_rcode(rc);
    return r ? r->exit : EXIT_FAILED;
}

bool rcode_busy(int rc) { return rcode_exit(rc) == EXIT_NOT_READY; }

const char *storage_name(storage_type_t type) { return type == STORAGE_TYPE_SIM ? "sim" : "device"; }

storage_type_t storage_named(std::string_view word)
{
    for (storage_type_t type : {STORAGE_TYPE_SIM, STORAGE_TYPE_FLASH})
        if (word == storage_name(type))
            return type;
    return STORAGE_TYPE_UNKNOWN;
}

const char *book_title(storage_type_t type) { return type == STORAGE_TYPE_SIM ? "SIM" : "device"; }

std::string no_entry_at(storage_type_t type, int index)
{
    return "no entry at index " + std::to_string(index) + " in the " + book_title(type) + " phonebook";
}

std::string no_entry_for(std::string_view number)
{
    return "no entry in either phonebook has the number " + std::string(number);
}

}  // namespace pbui
