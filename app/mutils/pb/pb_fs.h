/*
 * pb_fs.h - durable file steps shared by the phonebook files and export
 * (internal).
 *
 * A file that must survive a crash or a power cut is replaced, never
 * rewritten in place: the new contents go to a new file in the same folder,
 * which pb_fs_replace() makes durable and renames over the old path. A
 * reader then sees the old or the new file, never part of one.
 *
 * Ownership: a pb_fd owns one descriptor and closes it on every path.
 * Nothing here keeps state; every call may run on any thread.
 */
#ifndef PB_FS_H
#define PB_FS_H

#include <sys/types.h>
#include <unistd.h>

#include <cstddef>

class pb_fd {
public:
    explicit pb_fd(int fd = -1) : fd_(fd) {}
    ~pb_fd()
    {
        if (fd_ >= 0)
            (void)::close(fd_);
    }
    pb_fd(const pb_fd &) = delete;
    pb_fd &operator=(const pb_fd &) = delete;

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release()
    {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    int fd_;
};

/* Mode of every phonebook file, lock file and export: names, numbers and
 * e-mail addresses are for the owner and its group only. */
constexpr mode_t PB_FILE_MODE = 0640;

/* Opens path with flags (O_CLOEXEC added). With O_CREAT, a file it creates
 * gets PB_FILE_MODE whatever the umask, and a missing data folder is made
 * first (0750, and flushed into its parent folder). -1 with errno on failure. */
int pb_fs_open(const char *path, int flags);

/* Ends the writing of tmp (open in fd): when written, flushes it to the
 * disk, closes it, renames it over path and flushes path's folder; 0 then.
 * Otherwise, or when a step fails, removes tmp and returns -1; a failure
 * before the rename leaves path as it was. */
int pb_fs_replace(pb_fd &fd, const char *tmp, const char *path, bool written);

/* Flushes the folder that holds path, so that a rename or removal in it
 * survives a power cut. */
int pb_fs_sync_folder(const char *path);

#endif /* PB_FS_H */
