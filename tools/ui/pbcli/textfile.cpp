// Contact files on disk. Every export is written by one durable replace:
// the text goes to a temporary file beside the target, which is flushed to
// the disk, renamed over the target, and the folder flushed after the
// rename, so that after a power cut the target is the old file or the whole
// new one, and an export that was reported done is there. A temporary file
// left by an export that was cut short (its writer killed, the power gone)
// is removed by the next export into the same folder: it is found by its
// name and known to be abandoned because no writer holds its lock.
#include "textfile.h"

#include <dirent.h>
#include <fcntl.h>
#include <libgen.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <vector>

#include "unique_fd.h"

namespace pbcli {

namespace {

constexpr off_t kMaxFile = 16 << 20;  // far more than 1000 contacts take
constexpr mode_t kNewFileMode = 0640;
// What an export's temporary file is called: ".<target>.pbexport-XXXXXX".
constexpr char kTempTag[] = ".pbexport-";
// A temporary file younger than this may be one whose writer has not yet
// taken its lock: it is left alone.
constexpr time_t kStaleSecs = 2;

bool write_all(int fd, const char *data, size_t size)
{
    for (size_t at = 0; at < size;) {
        const ssize_t n = write(fd, data + at, size - at);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        at += static_cast<size_t>(n);
    }
    return true;
}

bool read_all(int fd, std::string *out, size_t limit)
{
    char buf[1 << 16];
    for (;;) {
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return false;
        if (n == 0)
            return true;
        if (out->size() + static_cast<size_t>(n) > limit)
            return false;
        out->append(buf, static_cast<size_t>(n));
    }
}

std::string folder_of(const std::string &path)
{
    std::string copy = path;
    return dirname(&copy[0]);
}

std::string base_of(const std::string &path)
{
    std::string copy = path;
    return basename(&copy[0]);
}

// Removes the temporary files of exports into `path` that were cut short.
void clear_stale(const std::string &folder, const std::string &base)
{
    const std::string prefix = "." + base + kTempTag;
    DIR *dir = opendir(folder.c_str());
    if (dir == nullptr)
        return;
    std::vector<std::string> stale;
    for (dirent *d; (d = readdir(dir)) != nullptr;) {
        const std::string name = d->d_name;
        if (name.size() != prefix.size() + 6 || name.compare(0, prefix.size(), prefix) != 0)
            continue;
        const std::string path = folder + "/" + name;
        const zp_host::UniqueFd fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat st {};
        if (fd.valid() && fstat(fd.get(), &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == geteuid() &&
            st.st_mtime + kStaleSecs < std::time(nullptr) && flock(fd.get(), LOCK_EX | LOCK_NB) == 0)
            stale.push_back(path);
    }
    closedir(dir);
    for (const std::string &path : stale)
        unlink(path.c_str());
}

bool sync_folder(const std::string &folder)
{
    const zp_host::UniqueFd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd.valid() && fsync(fd.get()) == 0;
}

}  // namespace

bool read_text_file(const std::string &path, std::string *out)
{
    out->clear();
    if (path == "-")
        return read_all(STDIN_FILENO, out, kMaxFile);
    const zp_host::UniqueFd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat st {};
    if (fd.get() < 0 || fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > kMaxFile)
        return false;
    return read_all(fd.get(), out, kMaxFile);
}

bool write_text_file(const std::string &path, const std::string &text)
{
    if (path == "-")
        return write_all(STDOUT_FILENO, text.data(), text.size());
    struct stat st {};
    mode_t mode = kNewFileMode;
    if (stat(path.c_str(), &st) == 0) {
        if (!S_ISREG(st.st_mode))
            return false;
        mode = st.st_mode & 0777;
    }
    const std::string folder = folder_of(path), base = base_of(path);
    clear_stale(folder, base);
    std::string tmp = folder + "/." + base + kTempTag + "XXXXXX";
    zp_host::UniqueFd fd(mkostemp(&tmp[0], O_CLOEXEC));
    if (!fd.valid())
        return false;
    // Held until the file is renamed or removed: a running export's file
    // is never taken for an abandoned one.
    bool ok = flock(fd.get(), LOCK_EX) == 0 && fchmod(fd.get(), mode) == 0 &&
              write_all(fd.get(), text.data(), text.size()) && fsync(fd.get()) == 0;
    ok = ok && std::rename(tmp.c_str(), path.c_str()) == 0;
    if (!ok)
        unlink(tmp.c_str());
    fd.reset();
    return ok && sync_folder(folder);
}

}  // namespace pbcli
