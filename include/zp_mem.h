/*
 * zp_mem.h - the device's memory library.
 *
 * Every call names the calling thread (its kernel id cut to 16 bits) and a
 * 16-bit number for the call site, then a reserved 0. A block is given back
 * with mem_free_ex from any thread. mem_free_ex(.., NULL) does nothing.
 */
#ifndef ZP_MEM_H
#define ZP_MEM_H

#include <stddef.h>

#include "zp_common.h"

#ifdef __cplusplus
extern "C" {
#endif

void *mem_malloc_ex(zp_uint16 tid, zp_uint16 site, zp_uint32 flag, size_t size);
void mem_free_ex(zp_uint16 tid, zp_uint16 site, zp_uint32 flag, void *ptr);

#ifdef __cplusplus
}
#endif

#endif /* ZP_MEM_H */
