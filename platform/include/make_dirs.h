/*
 * make_dirs.h - making a folder and its missing parents, for the host
 * platform libraries and the host tools (C++ only).
 *
 * Each folder made gets `mode`, less the umask; one that exists already is
 * left as it is. No state, any thread.
 */
#ifndef ZP_MAKE_DIRS_H
#define ZP_MAKE_DIRS_H

#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstring>

namespace zp_host {

/* 0 when `dir` exists as a folder or was made, -1 with errno when a part
 * could not be made (ENAMETOOLONG for a path longer than PATH_MAX). *made,
 * when given, tells whether `dir` itself was made by this call. */
inline int make_dirs(const char *dir, mode_t mode, bool *made = nullptr)
{
    char path[PATH_MAX];
    const size_t n = std::strlen(dir);
    if (n >= sizeof path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::memcpy(path, dir, n + 1);
    bool last = false;
    for (size_t i = 1; i <= n; ++i) {
        if (path[i] != '/' && path[i] != '\0')
            continue;
        const char saved = path[i];
        path[i] = '\0';
        last = mkdir(path, mode) == 0;
        if (!last && errno != EEXIST)
            return -1;
        path[i] = saved;
    }
    if (made != nullptr)
        *made = last;
    return 0;
}

}  // namespace zp_host

#endif /* ZP_MAKE_DIRS_H */
