/*
 * pb_data_dir.h - the folder of the phonebook files (internal; also read by
 * the user-interface tools and the tests, so that all of them agree).
 *
 * A target build keeps the files in the folder fixed when it was built
 * (PB_DATA_DIR, "/data" on the router). A host build (PB_DATA_DIR_FROM_ENV)
 * takes the folder from the environment variable PB_DATA_DIR when it is set
 * and not empty, so that several set-ups on one PC (two demos, parallel
 * tests, a test run beside a running service) keep apart; else the build's
 * folder. The folder is read at every call: nothing is kept.
 *
 * Any thread may call, as long as no thread changes the environment.
 */
#ifndef PB_DATA_DIR_H
#define PB_DATA_DIR_H

#include <stdlib.h>

/* Name of the environment variable a host build reads. */
#define PB_DATA_DIR_ENV "PB_DATA_DIR"

inline const char *pb_data_dir(void)
{
#ifdef PB_DATA_DIR_FROM_ENV
    const char *dir = getenv(PB_DATA_DIR_ENV);
    if (dir != nullptr && dir[0] != '\0')
        return dir;
#endif
    return PB_DATA_DIR;
}

#endif /* PB_DATA_DIR_H */
