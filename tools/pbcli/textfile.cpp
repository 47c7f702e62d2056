#include "textfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "unique_fd.h"

namespace pbcli {

namespace {

constexpr off_t kMaxFile = 16 << 20;  // far more than 1000 contacts take

bool write_all(int fd, const std::string &text)
{
    for (size_t at = 0; at < text.size();) {
        const ssize_t n = write(fd, text.data() + at, text.size() - at);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        at += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

bool read_text_file(const std::string &path, std::string *out)
{
    const zp_host::UniqueFd fd(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat st {};
    if (fd.get() < 0 || fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > kMaxFile)
        return false;
    out->assign(static_cast<size_t>(st.st_size), '\0');
    size_t got = 0;
    while (got < out->size()) {
        const ssize_t n = read(fd.get(), &(*out)[got], out->size() - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return false;
        if (n == 0)
            break;  // the file shrank meanwhile
        got += static_cast<size_t>(n);
    }
    out->resize(got);
    return true;
}

bool write_text_file(const std::string &path, const std::string &text)
{
    struct stat st {};
    mode_t mode = 0640;
    if (stat(path.c_str(), &st) == 0) {
        if (!S_ISREG(st.st_mode))
            return false;
        mode = st.st_mode & 0777;
    }
    std::string tmp = path + ".XXXXXX";
    zp_host::UniqueFd fd(mkstemp(&tmp[0]));
    if (!fd.valid())
        return false;
    bool ok = fchmod(fd.get(), mode) == 0 && write_all(fd.get(), text) && fsync(fd.get()) == 0;
    fd.reset();
    ok = ok && std::rename(tmp.c_str(), path.c_str()) == 0;
    if (!ok)
        std::remove(tmp.c_str());
    return ok;
}

}  // namespace pbcli
