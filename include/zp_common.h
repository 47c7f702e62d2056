/*
 * zp_common.h - fixed-width types and log levels shared by every module of
 * the device. Plain C99; safe to include from C++.
 */
#ifndef ZP_COMMON_H
#define ZP_COMMON_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint8_t zp_uint8;
typedef uint16_t zp_uint16;
typedef uint32_t zp_uint32;
typedef int8_t zp_int8;
typedef int16_t zp_int16;
typedef int32_t zp_int32;

/* Log levels of log_print(); a message is written when its level is at or
 * above the process's threshold. */
#define ZP_LOG_DEBUG 0
#define ZP_LOG_INFO  1
#define ZP_LOG_ERROR 2

#ifdef __cplusplus
}
#endif

#endif /* ZP_COMMON_H */
