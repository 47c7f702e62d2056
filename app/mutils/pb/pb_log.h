/*
 * pb_log.h - the phonebook module's one log entry point (internal).
 *
 * PB_LOG("text %d\n", x) logs "[file:function:line]text x" at ZP_LOG_INFO,
 * the level of every message of the module. The platform call returns at
 * once below its threshold, before any formatting.
 */
#ifndef PB_LOG_H
#define PB_LOG_H

#include "liblog.h"

#define PB_LOG(fmt, ...) PB_LOG_FOR(__func__, fmt, ##__VA_ARGS__)

/* For a helper that logs a step of its caller: the prefix names `func`. */
#define PB_LOG_FOR(func, fmt, ...)                                                                           \
    log_print(ZP_LOG_INFO, "[%s:%s:%d]" fmt, __FILE_NAME__, func, __LINE__, ##__VA_ARGS__)

#endif /* PB_LOG_H */
