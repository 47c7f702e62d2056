/*
 * make_dirs.h - making a folder and its missing parents, for the host
 * platform libraries and the host tools (C++ only).
 *
 * Each folder made gets `mode`, less the umask, and is flushed into the
 * folder above it (fsync), so that it and what is saved in it later survive
 * a power cut; one that exists already is left as it is. No state, any
 * thread.
 */
#ifndef ZP_MAKE_DIRS_H
#define ZP_MAKE_DIRS_H

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

namespace zp_host {

/* Flushes the folder `dir`; 0, or -1 with errno. */
inline int sync_dir(const char *dir)
{
    const int fd = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    const int rc = fsync(fd);
    const int saved = errno;
    close(fd);
    errno = saved;
    return rc;
}

/* 0 when `dir` exists as a folder or was made, -1 with errno when a part
 * could not be made or flushed (ENAMETOOLONG for a path longer than
 * PATH_MAX). *made, when given, tells whether `dir` itself was made by this
 * call. */
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
    size_t parent_end = path[0] == '/' ? 1 : 0;  // end of the folder above the part made
    for (size_t i = 1; i <= n; ++i) {
        if (path[i] != '/' && path[i] != '\0')
            continue;
        const char saved = path[i];
        path[i] = '\0';
        last = mkdir(path, mode) == 0;
        if (!last && errno != EEXIST)
            return -1;
        path[i] = saved;
        if (last) {
            const char cut = path[parent_end];
            path[parent_end] = '\0';
            const int rc = sync_dir(parent_end == 0 ? "." : path);
            path[parent_end] = cut;
            if (rc != 0)
                return -1;
        }
        parent_end = i;
    }
    if (made != nullptr)
        *made = last;
    return 0;
}

}  // namespace zp_host

#endif /* ZP_MAKE_DIRS_H */
