/*
 * zp_mem_host.h - the host memory library's accounting, beyond the device's
 * zp_mem.h: blocks handed out and not yet given back, by the call site that
 * allocated them and over all sites. Tests use it to prove that every
 * buffer was given back; the module never includes it.
 */
#ifndef ZP_MEM_HOST_H
#define ZP_MEM_HOST_H

#include "zp_mem.h"

#ifdef __cplusplus
extern "C" {
#endif

long mem_live_blocks(zp_uint16 site);
long mem_live_total(void);

#ifdef __cplusplus
}
#endif

#endif /* ZP_MEM_HOST_H */
