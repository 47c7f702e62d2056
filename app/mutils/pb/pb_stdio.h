/*
 * pb_stdio.h - an owner for FILE streams (internal): the stream is closed on
 * every path out of the scope that opened it.
 */
#ifndef PB_STDIO_H
#define PB_STDIO_H

#include <cstdio>
#include <memory>

struct pb_file_closer {
    void operator()(FILE *f) const { (void)std::fclose(f); }
};
using pb_file = std::unique_ptr<FILE, pb_file_closer>;

#endif /* PB_STDIO_H */
