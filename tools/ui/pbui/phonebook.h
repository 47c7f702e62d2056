/*
 * phonebook.h - the phonebook operations every user interface offers (list,
 * show, add, edit, delete, delete-all, import, copy, export), on the client
 * API of the phonebook library: pbcli and pbweb call these and only print
 * or answer what they return.
 *
 * Waiting. While the service answers that the SIM phonebook is still being
 * read (the first read starts it), a call asks again every 200 ms until the
 * Phonebook's deadline, `Waiting::seconds` after it was made: pbcli waits
 * (--wait), pbweb does not (seconds 0: the result goes back to the page,
 * which asks again).
 *
 * Following an entry. An edit or delete carries the entry it means (`was`):
 * the service makes it only while the index still holds was's name and
 * number, and answers PB_RCODE_CHANGED_ERR otherwise. Indexes move (an add
 * renumbers the device phonebook, a new read of the card numbers the SIM
 * phonebook anew), so with `follow` the change looks the entry up again and
 * follows it to its new index (at most 5 times); without, the caller hears
 * of the change (the page reads the list again).
 *
 * A change the card did not confirm (PB_RCODE_UNCONFIRMED_ERR) is answered
 * only after the SIM phonebook was read again (waited for as above), so
 * that the list the user looks at next is the card's.
 *
 * Threads. The library keeps one result buffer and one table per phonebook
 * in each process, so every call holds the Phonebook's mutex (recursive:
 * checked() calls the operations inside it). Results: the module's result
 * codes, or the user side's own (words.h).
 */
#ifndef PBUI_PHONEBOOK_H
#define PBUI_PHONEBOOK_H

#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "contacts.h"
#include "entries.h"
#include "zpt_ui_pb_api.h"

namespace pbui {

/* The entries that a search finds, in index order. */
Entries found_by(const Search &search, const pb_flash_info *v, size_t n);

/* The file an export writes: true with its text in *out, or false with
 * why the format cannot carry the entries in *out (the router's lines
 * refuse a backup that would not read back the same). */
bool export_text(const Entries &entries, Format f, std::string *out);

struct Waiting {
    double seconds = 0; /* how long to ask again while the SIM is being read */
    /* Called once, when the first wait begins (pbcli says it waits). */
    std::function<void()> on_wait;
};

class Phonebook {
public:
    explicit Phonebook(Waiting waiting = {}, bool follow = false);
    Phonebook(const Phonebook &) = delete;
    Phonebook &operator=(const Phonebook &) = delete;
    ~Phonebook();

    /* Makes the tables. False when that fails. */
    bool open(std::string *error);

    /* The whole phonebook in index order. An empty one is no failure. */
    int read(storage_type_t type, Entries *out);
    /* Hands the whole phonebook, as the library holds it, to
     * use(entries, count) under the lock: a read without a copy. Does not
     * wait; `use` is called on success only. */
    template <typename Use> int view(storage_type_t type, Use use)
    {
        std::lock_guard<std::recursive_mutex> lock(mu_);
        int num = 0;
        const pb_flash_info *p = simlib_pb_read_handler(type, SIM_PB_HANDLE_TYPE_GETALL, &num);
        if (!p && num != PB_RCODE_OK)
            return num;
        use(p, p ? static_cast<size_t>(num) : 0); /* an empty phonebook: no table */
        return PB_RCODE_OK;
    }
    /* Reads the phonebook, hands it to check(entries), which returns
     * PB_RCODE_OK to go on or the result to give back, then calls change(),
     * all under the one lock: nothing of this process comes between. */
    template <typename Check, typename Change> int checked(storage_type_t type, Check check, Change change)
    {
        std::lock_guard<std::recursive_mutex> lock(mu_);
        Entries now;
        int rc = read(type, &now);
        if (rc == PB_RCODE_OK)
            rc = check(now);
        if (rc == PB_RCODE_OK)
            rc = change();
        return rc;
    }

    /* Adds *e; on success *e is the new entry with its index and record. */
    int add(storage_type_t type, pb_flash_info *e);
    /* Sets the fields given of the entry `was` (at was.index); *now: the
     * entry as it is after the edit. */
    int edit(storage_type_t type, const pb_flash_info &was, const Fields &change, pb_flash_info *now);
    /* Deletes the entry `was`; *index: where it was deleted. */
    int remove(storage_type_t type, const pb_flash_info &was, int *index);
    int remove_all(storage_type_t type);
    /* Adds the contacts to the phonebook `into`, one line of *report per
     * contact: into the device phonebook under its file's lock, into the
     * SIM one add at a time against the card's limits, `cut` cutting names
     * too long for the card (else they are left out). */
    int add_contacts(storage_type_t into, const std::vector<Contact> &contacts, bool cut, Report *report);

private:
    int change(storage_type_t type, sim_pb_handle_t action, pb_flash_info *info, const pb_flash_info *was,
               const Fields *fields);
    bool pause();

    std::recursive_mutex mu_;
    std::function<void()> on_wait_;
    std::chrono::steady_clock::time_point deadline_;
    bool follow_;
    bool told_ = false;
};

}  // namespace pbui

#endif
