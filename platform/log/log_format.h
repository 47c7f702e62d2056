/*
 * log_format.h - printf formatting of one log message (internal to the host
 * log library).
 */
#ifndef LOG_FORMAT_H
#define LOG_FORMAT_H

#include <cstdarg>
#include <cstddef>

/* Writes `format` with its arguments to buf as vsnprintf(buf, size, ...)
 * would, and returns the bytes written, NUL not counted (cut to size - 1). */
size_t log_format(char *buf, size_t size, const char *format, va_list ap);

#endif /* LOG_FORMAT_H */
