/*
 * liblog.h - the device's log call.
 *
 * log_print(level, format, file, function, line, ...) writes one line. Every
 * format of the phonebook module starts with "[%s:%s:%d]", filled by the
 * file, function and line arguments. A call below the threshold returns at
 * once without formatting. Thread-safe: lines of different threads never
 * interleave.
 */
#ifndef LIBLOG_H
#define LIBLOG_H

#include "zp_common.h"

#ifdef __cplusplus
extern "C" {
#endif

void log_print(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));

#ifdef __cplusplus
}
#endif

#endif /* LIBLOG_H */
