// Host NV store: one file per key in the folder named by ZP_NV_DIR (a
// build-tree default otherwise). A value is stored with exactly the length
// given and replaced atomically: written to a temporary file, then renamed.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "make_dirs.h"
#include "nvmanager.h"
#include "unique_fd.h"

#ifndef ZP_NV_DEFAULT_DIR
#define ZP_NV_DEFAULT_DIR "/data/nv"
#endif

namespace {

std::string nv_dir()
{
    const char *dir = std::getenv("ZP_NV_DIR");
    return (dir && *dir) ? dir : ZP_NV_DEFAULT_DIR;
}

// Keys become file names: letters, digits, '_', '-' and '.', not starting
// with '.', so that no key can name a path outside the store.
bool key_ok(const char *key)
{
    if (key == nullptr || key[0] == '\0' || key[0] == '.')
        return false;
    size_t n = 0;
    for (; key[n] != '\0'; ++n) {
        const unsigned char c = static_cast<unsigned char>(key[n]);
        if (n >= NV_KEY_MAX || !(std::isalnum(c) || c == '_' || c == '-' || c == '.'))
            return false;
    }
    return true;
}

bool write_all(int fd, const char *p, size_t n)
{
    while (n > 0) {
        ssize_t w = ::write(fd, p, n);
        if (w < 0 && errno == EINTR)
            continue;
        if (w <= 0)
            return false;
        p += w;
        n -= static_cast<size_t>(w);
    }
    return true;
}

}  // namespace

extern "C" nv_errorcode nvmram_writenv(const char *key, const char *value, int len)
{
    if (!key_ok(key) || value == nullptr || len < 0)
        return NV_ERR_PARAM;
    if (len > NV_VALUE_MAX)
        return NV_ERR_TOO_LONG;

    const std::string dir = nv_dir();
    zp_host::make_dirs(dir.c_str(), 0755);  // a failure shows in mkstemp
    const std::string path = dir + "/" + key;
    std::string tmp = path + ".XXXXXX";
    zp_host::UniqueFd fd(::mkstemp(tmp.data()));
    if (!fd.valid())
        return NV_ERR_IO;
    bool ok = write_all(fd.get(), value, static_cast<size_t>(len)) && ::fsync(fd.get()) == 0;
    ok = fd.close() == 0 && ok;
    if (!ok || ::rename(tmp.c_str(), path.c_str()) != 0) {
        ::unlink(tmp.c_str());
        return NV_ERR_IO;
    }
    return NV_OK;
}

extern "C" nv_errorcode nvmram_readnv(const char *key, char *value, int size, int *len)
{
    if (!key_ok(key) || value == nullptr || len == nullptr || size < 0)
        return NV_ERR_PARAM;
    const std::string path = nv_dir() + "/" + key;
    const zp_host::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd.valid())
        return errno == ENOENT ? NV_ERR_NOT_FOUND : NV_ERR_IO;
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0)
        return NV_ERR_IO;
    if (st.st_size > size)
        return NV_ERR_TOO_LONG;
    ssize_t got = 0;
    while (got < st.st_size) {
        ssize_t r = ::read(fd.get(), value + got, static_cast<size_t>(st.st_size - got));
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0)
            break;
        got += r;
    }
    if (got != st.st_size)
        return NV_ERR_IO;
    *len = static_cast<int>(got);
    return NV_OK;
}
