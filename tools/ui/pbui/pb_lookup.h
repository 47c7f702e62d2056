/*
 * pb_lookup.h - caller lookup for the router's other processes (SMS and
 * call pages): the phonebook entry a dialling number belongs to, in either
 * phonebook, by the user side's rule of the same subscriber (international
 * forms equal; a national number made international with the home country;
 * else at least 7 trailing digits; pauses, waits and extensions after the
 * number left out; short and service codes only themselves).
 *
 * The best entry: the device phonebook before the SIM phonebook (the
 * user's own contacts before the card's); within one, an equal
 * international form before a trailing-digits match, then the lowest index.
 *
 * Reading. The phonebook files are read directly, as the client API's
 * readers do (a save replaces a file whole, so no lock is needed); the
 * phonebook service is never asked, so no call waits for it or for the
 * card. A SIM phonebook still being read gives the records read so far.
 *
 * Country. An ISO 3166 alpha-2 code ("DE", either case) names the home
 * country; NULL takes the router's default from the NV key
 * "pb_home_country" (none when it is unset or unknown); "" means none.
 *
 * Ownership and threads. pb_lookup_open() loads both phonebooks into a
 * pb_lookup_books the caller owns and frees with pb_lookup_close(); once
 * loaded, pb_lookup_find() may be called from any number of threads at
 * once and allocates nothing. It does not see changes made after the load:
 * open again for them. pb_lookup() is open, find and close in one call.
 * Memory: about 200 bytes an entry (at most about 400 KB for 2 x 1000
 * entries), and 164 KB more while a file is loaded. Text fields are
 * NUL-terminated UTF-8 within PB_LOOKUP_TEXT_LEN bytes.
 */
#ifndef PB_LOOKUP_H
#define PB_LOOKUP_H

#ifdef __cplusplus
extern "C" {
#endif

/* A C header of the router's: its names are the module's C names (snake
 * case, types ending in _t), not the user side's C++ ones. */
/* NOLINTBEGIN(readability-identifier-naming) */

#define PB_LOOKUP_TEXT_LEN 51 /* bytes of a text field, NUL included */

typedef enum {
    PB_LOOKUP_OK = 0, /* found (pb_lookup_find, pb_lookup), loaded (pb_lookup_open) */
    PB_LOOKUP_NOT_FOUND = 1,
    PB_LOOKUP_BAD_ARGUMENT = 2, /* a null pointer, or a country not known */
    PB_LOOKUP_NO_MEMORY = 3,
    PB_LOOKUP_READ_ERROR = 4 /* a phonebook file could not be read */
} pb_lookup_result_t;

/* The same values as the module's storage_type_t. */
typedef enum { PB_LOOKUP_SIM = 1, PB_LOOKUP_DEVICE = 2 } pb_lookup_phonebook_t;

typedef struct {
    int phonebook; /* pb_lookup_phonebook_t */
    int index;     /* its place in its phonebook, 1..1000 */
    int sim_index; /* record number on the card; -1 for a device entry */
    int exact;     /* 1: the same international form; 0: trailing digits */
    char name[PB_LOOKUP_TEXT_LEN];
    char number[PB_LOOKUP_TEXT_LEN];
    char email[PB_LOOKUP_TEXT_LEN];
} pb_lookup_entry;

typedef struct pb_lookup_books pb_lookup_books;

/* Loads both phonebook files into *books (NULL on failure). A missing file
 * is an empty phonebook. */
pb_lookup_result_t pb_lookup_open(pb_lookup_books **books);
/* The best entry for number in *out (cleared when none). */
pb_lookup_result_t pb_lookup_find(const pb_lookup_books *books, const char *number, const char *country,
                                  pb_lookup_entry *out);
void pb_lookup_close(pb_lookup_books *books);
pb_lookup_result_t pb_lookup(const char *number, const char *country, pb_lookup_entry *out);

/* NOLINTEND(readability-identifier-naming) */

#ifdef __cplusplus
}
#endif

#endif /* PB_LOOKUP_H */
