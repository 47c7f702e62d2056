/*
 * merge.h - duplicates across the phonebooks as the user interfaces ask
 * for them: the entries of one phonebook or both read through the
 * Phonebook, and a merge that keeps one entry of each group and deletes
 * the others through the service. Calls block as Phonebook's do; any
 * thread (the Phonebook serialises).
 */
#ifndef PBUI_MERGE_H
#define PBUI_MERGE_H

#include <vector>

#include "duplicates.h"
#include "phonebook.h"

namespace pbui {

/* The entries of the phonebook `only` (both when STORAGE_TYPE_UNKNOWN),
 * with their phonebook, the device's first: what find_duplicates groups. */
int read_book_entries(Phonebook &pb, storage_type_t only, std::vector<BookEntry> *out);

/* What a merge did: the entry kept of each group, and each entry deleted
 * with the index it was deleted at; after a failure, the entry whose
 * delete failed. */
struct Merged {
    std::vector<BookEntry> kept;
    std::vector<BookEntry> deleted;
    BookEntry failed{STORAGE_TYPE_UNKNOWN, {}};
};

/* Keeps the first entry of each group and deletes the others, one at a
 * time, each only while its index still holds it (Phonebook::remove, which
 * follows a moved entry when the Phonebook does). Stops at the first
 * failure and returns it; *out holds what was done until then. */
int merge_groups(Phonebook &pb, const std::vector<DuplicateGroup> &groups, Merged *out);

}  // namespace pbui

#endif
