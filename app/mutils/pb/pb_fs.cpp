// Durable file steps: creation with a fixed mode, whole writes, and the
// replacement of a file by a new one (fsync, rename, fsync of the folder).
#include "pb_fs.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "pb_data_dir.h"

namespace {

// The phonebook folder is private to the service and the UI processes.
constexpr mode_t kDataDirMode = 0750;

// Makes the missing data folder (pb_data_dir()) and flushes the folder
// above it, so that the new folder, and with it every file saved in it
// later, survives a power cut. False (errno ENOENT) when the folder was
// there, so that the ENOENT the caller saw has another cause.
bool make_data_dir()
{
    char dir[PATH_MAX];
    const int n = std::snprintf(dir, sizeof dir, "%s", pb_data_dir());
    if (n < 0 || static_cast<size_t>(n) >= sizeof dir) {
        errno = ENAMETOOLONG;
        return false;
    }
    // "/data/" names the folder "/data": its parent is the folder above.
    for (size_t end = static_cast<size_t>(n); end > 1 && dir[end - 1] == '/'; --end)
        dir[end - 1] = '\0';
    if (::mkdir(dir, kDataDirMode) != 0) {
        if (errno == EEXIST)
            errno = ENOENT;
        return false;
    }
    (void)::chmod(dir, kDataDirMode);  // the umask may have taken bits
    return pb_fs_sync_folder(dir) == 0;
}

}  // namespace

int pb_fs_open(const char *path, int flags)
{
    flags |= O_CLOEXEC;
    if ((flags & O_CREAT) == 0)
        return ::open(path, flags);
    // Open an existing file as it is; create a missing one exclusively so
    // that the mode is set only on a file made here. Another process may
    // create or remove it in between: then look again.
    for (int attempt = 0; attempt < 4; ++attempt) {
        if ((flags & O_EXCL) == 0) {
            int fd = ::open(path, flags & ~O_CREAT);
            if (fd >= 0 || errno != ENOENT)
                return fd;
        }
        int fd = ::open(path, flags | O_EXCL, PB_FILE_MODE);
        if (fd >= 0) {
            (void)::fchmod(fd, PB_FILE_MODE);
            return fd;
        }
        if (errno == ENOENT ? !make_data_dir() : errno != EEXIST || (flags & O_EXCL) != 0)
            return -1;
    }
    return -1;
}

int pb_fs_sync_folder(const char *path)
{
    char dir[PATH_MAX];
    const char *slash = std::strrchr(path, '/');
    int n = slash == nullptr ? std::snprintf(dir, sizeof dir, ".")
            : slash == path  ? std::snprintf(dir, sizeof dir, "/")
                             : std::snprintf(dir, sizeof dir, "%.*s", static_cast<int>(slash - path), path);
    if (n < 0 || static_cast<size_t>(n) >= sizeof dir)
        return -1;
    pb_fd folder(::open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return folder && ::fsync(folder.get()) == 0 ? 0 : -1;
}

int pb_fs_replace(pb_fd &fd, const char *tmp, const char *path, bool written)
{
    bool ok = written && ::fsync(fd.get()) == 0;
    if (::close(fd.release()) != 0)
        ok = false;
    if (ok && ::rename(tmp, path) == 0)
        return pb_fs_sync_folder(path);
    (void)::unlink(tmp);
    return -1;
}
