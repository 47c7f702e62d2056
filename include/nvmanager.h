/*
 * nvmanager.h - the device's non-volatile key/value store.
 *
 * A value is stored with exactly the length given (a caller that counts the
 * terminating NUL stores it too) and replaced atomically: a reader sees the
 * old value or the new one, never a mix.
 */
#ifndef NVMANAGER_H
#define NVMANAGER_H

#include "zp_common.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    NV_OK = 0,
    NV_ERR_PARAM = 1,     /* null or malformed key, null value, bad length */
    NV_ERR_NOT_FOUND = 2, /* no such key */
    NV_ERR_IO = 3,        /* the store could not be read or written */
    NV_ERR_TOO_LONG = 4,  /* value larger than NV_VALUE_MAX or the buffer */
    NV_ERR_NOMEM = 5,
    NV_ERR_BUSY = 6,
    NV_MAX = 7
} nv_errorcode;

#define NV_KEY_MAX   64
#define NV_VALUE_MAX 4096

nv_errorcode nvmram_writenv(const char *key, const char *value, int len);

/* Copies the value of `key` into `value` (room for `size` bytes) and its
 * length into `*len`. */
nv_errorcode nvmram_readnv(const char *key, char *value, int size, int *len);

#ifdef __cplusplus
}
#endif

#endif /* NVMANAGER_H */
