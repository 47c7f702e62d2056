// The phonebook as pbweb reaches it: the client API of the phonebook
// library, one call at a time. The library keeps one result buffer and one
// table per phonebook in each process, so every call holds one mutex; the
// web server's threads queue on it. Nothing here waits for the SIM to be
// read: a "being read" result goes back to the browser, which asks again.
//
// Import and export need files; they use a private folder made at start
// (mkdtemp) and fixed names in it, never a name from a request.
#ifndef PBWEB_PHONEBOOK_H
#define PBWEB_PHONEBOOK_H

#include <mutex>
#include <string>
#include <vector>

#include "zpt_ui_pb_api.h"

namespace pbweb {

using Entries = std::vector<pb_flash_info>;

// The card's figures as the service stored them after reading the card's
// capabilities; 0 while unknown.
struct SimLimits {
    int records = 0;
    int name_chars = 0;
    int number_digits = 0;
};

class Phonebook {
public:
    Phonebook() = default;
    Phonebook(const Phonebook &) = delete;
    Phonebook &operator=(const Phonebook &) = delete;
    ~Phonebook();

    // Makes the tables and the private folder. False when either fails.
    bool open(std::string *error);

    // The whole phonebook in index order, or the result code of the read
    // (7 while the SIM is being read, -1 without the service). An empty
    // phonebook is no failure.
    int read(storage_type_t type, Entries *out);
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
    int del_any_locked(storage_type_t type, std::vector<int> indexes);

    // Adds the entries of an import file's bytes to the device phonebook;
    // *added: how many the phonebook grew by.
    int import(const std::string &bytes, long *added, size_t *count);
    // The export file of the entries at `indexes` (all when empty).
    int export_text(storage_type_t type, const std::vector<int> &indexes, std::string *text);

    SimLimits sim_limits() const;

private:
    int read_locked(storage_type_t type, Entries *out);

    std::mutex mu_;
    std::string dir_;  // private folder for import and export files
};

}  // namespace pbweb

#endif
