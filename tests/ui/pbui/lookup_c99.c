/* The caller lookup as a C99 program of the router uses it: the header
 * alone, opened books searched twice, and the one-call form, which must
 * agree. */
#include <stdio.h>
#include <string.h>

#include "pb_lookup.h"

/* "phonebook index exact name", "none", or "error N" into out. */
void c99_lookup(const char *number, const char *country, char *out, size_t size)
{
    pb_lookup_books *books = NULL;
    pb_lookup_entry entry;
    pb_lookup_entry once;
    pb_lookup_result_t rc = pb_lookup_open(&books);
    if (rc == PB_LOOKUP_OK) {
        rc = pb_lookup_find(books, number, country, &entry);
        pb_lookup_close(books);
    }
    if (pb_lookup(number, country, &once) != rc ||
        (rc == PB_LOOKUP_OK && memcmp(&once, &entry, sizeof once) != 0))
        snprintf(out, size, "pb_lookup disagrees");
    else if (rc == PB_LOOKUP_NOT_FOUND)
        snprintf(out, size, "none");
    else if (rc != PB_LOOKUP_OK)
        snprintf(out, size, "error %d", (int)rc);
    else
        snprintf(out, size, "%s %d%s %s", entry.phonebook == PB_LOOKUP_SIM ? "sim" : "device", entry.index,
                 entry.exact ? "" : "~", entry.name);
}
