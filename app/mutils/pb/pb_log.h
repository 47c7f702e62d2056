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

#define PB_LOG(fmt, ...) \
    log_print(ZP_LOG_INFO, "[%s:%s:%d]" fmt, __FILE_NAME__, __func__, __LINE__, ##__VA_ARGS__)

#endif /* PB_LOG_H */
