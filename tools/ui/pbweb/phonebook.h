// The phonebook as pbweb reaches it: the client API of the phonebook
// library, one call at a time. The library keeps one result buffer and one
// table per phonebook in each process, so every call holds one mutex; the
// web server's threads queue on it. Nothing here waits for the SIM to be
// read: a "being read" result goes back to the browser, which asks again.
// Imports, exports and copies work on memory only: no file name is made.
#ifndef PBWEB_PHONEBOOK_H
#define PBWEB_PHONEBOOK_H

#include <mutex>
#include <string>
#include <vector>

#include "pbx.h"
#include "zpt_ui_pb_api.h"

namespace pbweb {

using Entries = std::vector<pb_flash_info>;

// The card's figures as the service stored them after reading the card's
// capabilities; 0 while unknown.
struct SimLimits {
    int records = 0;
    int name_octets = 0;  // of a record's alpha identifier (pbx::sim_name)
    int number_digits = 0;
};

class Phonebook {
public:
    Phonebook() = default;
    Phonebook(const Phonebook &) = delete;
    Phonebook &operator=(const Phonebook &) = delete;
    ~Phonebook();

    // Makes the tables. False when that fails.
    bool open(std::string *error);

    // The whole phonebook in index order, or the result code of the read
    // (7 while the SIM is being read, -1 without the service). An empty
    // phonebook is no failure.
    int read(storage_type_t type, Entries *out);
    // Hands the whole phonebook, as the library holds it, to
    // use(entries, count) under the lock: a read without a copy. Returns
    // what read() returns; `use` is called on success only, with no entries
    // (and no table) for an empty phonebook.
    template <typename Use> int view(storage_type_t type, Use use)
    {
        std::lock_guard<std::mutex> lock(mu_);
        return view_locked(type, use);
    }
    // One change with nothing to check first (an add), under the lock.
    int write(storage_type_t type, sim_pb_handle_t action, pb_flash_info *info)
    {
        std::lock_guard<std::mutex> lock(mu_);
        return write_locked(type, action, info);
    }
    // Checks the entry at `index` with `check` and, when it passes, makes
    // the change, all under the one lock. `check` returns 0 to go on or the
    // result to give back.
    template <typename Check, typename Change> int checked(storage_type_t type, Check check, Change change)
    {
        std::lock_guard<std::mutex> lock(mu_);
        Entries now;
        int rc = read_locked(type, &now);
        if (rc == PB_RCODE_OK)
            rc = check(now);
        if (rc == PB_RCODE_OK)
            rc = change();
        return rc;
    }
    // These are called inside checked() (the lock is held).
    int write_locked(storage_type_t type, sim_pb_handle_t action, pb_flash_info *info);
    // An edit made only while the entry at info->index still holds seen's
    // name and number (PB_RCODE_CHANGED_ERR otherwise).
    int edit_checked_locked(storage_type_t type, pb_flash_info *info, const pb_flash_info *seen);

    // Adds the contacts to the phonebook `into`, one line of *report per
    // contact; into the SIM, `cut` cuts names too long for the card (else
    // they are skipped). Called inside checked().
    int add_contacts_locked(storage_type_t into, const std::vector<pbx::Contact> &contacts, bool cut,
                            pbx::Report *report);
    // Adds the contacts read from an import file to the device phonebook.
    int import(const std::vector<pbx::Contact> &contacts, pbx::Report *report);

    SimLimits sim_limits() const;

private:
    int read_locked(storage_type_t type, Entries *out);
    template <typename Use> int view_locked(storage_type_t type, Use use)
    {
        int num = 0;
        const pb_flash_info *p = simlib_pb_read_handler(type, SIM_PB_HANDLE_TYPE_GETALL, &num);
        if (!p && num != PB_RCODE_OK)
            return num;
        use(p, p ? static_cast<size_t>(num) : 0);  // an empty phonebook: no table
        return PB_RCODE_OK;
    }

    std::mutex mu_;
};

}  // namespace pbweb

#endif
