/*
 * pb_book.h - the lock of a phonebook file's load-change-save cycle, the
 * recovery of a backup file, and appends of several records (internal).
 *
 * Writers in several processes change a phonebook file: the service thread
 * for every add, edit and delete, and import in UI processes. Each holds a
 * pb_book_lock from before it loads the file until after it has saved it,
 * so that no writer saves a table loaded before another writer's change.
 * The lock is an exclusive flock() on the lock file "<phonebook file>.lock"
 * (PB_LOCK_SUFFIX); readers take no lock, since a save replaces the file
 * whole. The lock blocks until it is held and is released when the object
 * goes; it is not taken twice by one thread.
 */
#ifndef PB_BOOK_H
#define PB_BOOK_H

#include "zpt_ui_pb_api.h"

class pb_book_lock {
public:
    explicit pb_book_lock(storage_type_t type);
    ~pb_book_lock();
    pb_book_lock(const pb_book_lock &) = delete;
    pb_book_lock &operator=(const pb_book_lock &) = delete;

    /* False only when the file of a phonebook could not be locked: then it
     * cannot be saved either. A storage type without a file has nothing to
     * lock; the file functions refuse it. */
    bool ok() const { return ok_; }

private:
    int fd_ = -1;
    bool ok_ = true;
};

/* A backup file "<phonebook file>_tmp" is what a write of an older firmware
 * left when it was cut short: it holds the phonebook as it was before that
 * write. This puts it back over the phonebook file; 0 when done or when
 * there is none, -1 when it is there but could not be put back. */
int pb_book_recover(storage_type_t type);

/* Appends count records (0 or more) to the phonebook file, after its last
 * whole record, as simlib_pb_add_to_file() does with one; 0, or -1 when
 * they could not all be written, and then none of them stays. */
int pb_book_append(storage_type_t type, const pb_flash_info *records, int count);

#endif /* PB_BOOK_H */
