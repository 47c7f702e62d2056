/*
 * unique_fd.h - the owner of one file descriptor, for the host platform
 * libraries and the host tools (C++ only; the module has its own pb_fd on
 * its side of the device seam and never includes this).
 *
 * Ownership: a UniqueFd closes the descriptor it holds when it is destroyed,
 * reset or assigned over; it moves and never copies. -1 holds nothing.
 * release() hands the descriptor back to the caller, who then closes it.
 * Threads: one owner at a time, like the descriptor itself.
 */
#ifndef ZP_UNIQUE_FD_H
#define ZP_UNIQUE_FD_H

#include <unistd.h>

namespace zp_host {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) noexcept : fd_(fd) {}
    UniqueFd(UniqueFd &&other) noexcept : fd_(other.release()) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd &) = delete;
    UniqueFd &operator=(const UniqueFd &) = delete;
    ~UniqueFd() { reset(); }

    int get() const noexcept { return fd_; }
    bool valid() const noexcept { return fd_ >= 0; }

    /* The descriptor, no longer owned; -1 is left behind. */
    int release() noexcept
    {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

    /* Closes the descriptor held (unless it is `fd`) and takes `fd`. */
    void reset(int fd = -1) noexcept
    {
        if (fd_ >= 0 && fd_ != fd)
            ::close(fd_);
        fd_ = fd;
    }

    /* Closes now and says how it went: close(2)'s 0, or -1 with errno (a
     * write the file system failed to keep can show only here). 0 when
     * nothing is held. */
    int close() noexcept
    {
        const int fd = release();
        return fd >= 0 ? ::close(fd) : 0;
    }

private:
    int fd_ = -1;
};

}  // namespace zp_host

#endif /* ZP_UNIQUE_FD_H */
