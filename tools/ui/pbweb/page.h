/*
 * page.h - the page's files, compiled into pbweb from page/ at build time.
 */
#ifndef PBWEB_PAGE_H
#define PBWEB_PAGE_H

#include <cstddef>

namespace pbweb {

struct PageFile {
    const char *path;  // as requested, "/" for the page itself
    const char *content_type;
    const unsigned char *data;
    size_t size;
};

extern const PageFile PAGE_FILES[];
extern const size_t PAGE_FILE_COUNT;

}  // namespace pbweb

#endif
