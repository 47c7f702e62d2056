#include "phonebook.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

#include "nvmanager.h"

namespace pbweb {

namespace {

int nv_int(const char *key)
{
    char buf[32] = {};
    int len = 0;
    if (nvmram_readnv(key, buf, sizeof buf - 1, &len) != NV_OK || len <= 0 ||
        len >= static_cast<int>(sizeof buf))
        return 0;
    buf[len] = '\0';
    return std::max(0, std::atoi(buf));
}

bool write_file(const std::string &path, const std::string &bytes)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0)
        return false;
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        done += static_cast<size_t>(n);
    }
    return ::close(fd) == 0 && done == bytes.size();
}

}  // namespace

Phonebook::~Phonebook()
{
    if (!dir_.empty()) {
        ::unlink((dir_ + "/import").c_str());
        ::unlink((dir_ + "/export").c_str());
        ::rmdir(dir_.c_str());
    }
    simlib_pb_destroy(STORAGE_TYPE_SIM);
    simlib_pb_destroy(STORAGE_TYPE_FLASH);
}

bool Phonebook::open(std::string *error)
{
    if (simlib_pb_init(STORAGE_TYPE_SIM) != 0 || simlib_pb_init(STORAGE_TYPE_FLASH) != 0)
        return *error = "cannot make the phonebook tables", false;
    const char *tmp = std::getenv("TMPDIR");
    std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/pbweb.XXXXXX";
    if (!::mkdtemp(templ.data()))
        return *error = "cannot make a private folder in " + templ + ": " + std::strerror(errno), false;
    dir_ = templ;
    return true;
}

int Phonebook::read_locked(storage_type_t type, Entries *out)
{
    out->clear();
    int num = 0;
    const pb_flash_info *p = simlib_pb_read_handler(type, SIM_PB_HANDLE_TYPE_GETALL, &num);
    if (p)
        out->assign(p, p + num);
    return p ? PB_RCODE_OK : num;
}

int Phonebook::read(storage_type_t type, Entries *out)
{
    std::lock_guard<std::mutex> lock(mu_);
    return read_locked(type, out);
}

int Phonebook::write_locked(storage_type_t type, sim_pb_handle_t action, pb_flash_info *info)
{
    return simlib_pb_write_handler(type, action, info);
}

int Phonebook::del_any_locked(storage_type_t type, std::vector<int> indexes)
{
    for (size_t at = 0; at < indexes.size(); at += PB_DEL_ANY_MAX) {
        const int n = static_cast<int>(std::min<size_t>(PB_DEL_ANY_MAX, indexes.size() - at));
        if (int rc = simlib_pb_del_any(type, indexes.data() + at, n); rc != PB_RCODE_OK)
            return rc;
    }
    return PB_RCODE_OK;
}

int Phonebook::import(const std::string &bytes, long *added, size_t *count)
{
    std::lock_guard<std::mutex> lock(mu_);
    Entries before, after;
    if (int rc = read_locked(STORAGE_TYPE_FLASH, &before); rc != PB_RCODE_OK)
        return rc;
    const std::string path = dir_ + "/import";
    if (!write_file(path, bytes))
        return PB_RCODE_WRITE_ERR;
    const int rc = simlib_pb_import(path.c_str(), STORAGE_TYPE_FLASH);
    ::unlink(path.c_str());
    if (rc != PB_RCODE_OK)
        return rc;
    read_locked(STORAGE_TYPE_FLASH, &after);
    *added = static_cast<long>(after.size()) - static_cast<long>(before.size());
    *count = after.size();
    return PB_RCODE_OK;
}

int Phonebook::export_text(storage_type_t type, const std::vector<int> &indexes, std::string *text)
{
    std::lock_guard<std::mutex> lock(mu_);
    Entries now;
    if (int rc = read_locked(type, &now); rc != PB_RCODE_OK)
        return rc;
    std::vector<zp_int32> idx(indexes.begin(), indexes.end());
    if (idx.empty())
        for (const auto &e : now)
            idx.push_back(static_cast<zp_int32>(e.index));
    const std::string path = dir_ + "/export";
    text->clear();
    if (idx.empty())
        return PB_RCODE_OK;  // nothing to write: an empty file
    const int rc = simlib_pb_export(path.c_str(), type, idx.data(), static_cast<int>(idx.size()));
    if (rc == PB_RCODE_OK) {
        std::ifstream in(path, std::ios::binary);
        text->assign(std::istreambuf_iterator<char>(in), {});
    }
    ::unlink(path.c_str());
    return rc;
}

SimLimits Phonebook::sim_limits() const
{
    return {nv_int("pb_sim_max_count"), nv_int("pb_sim_name_maxlen"), nv_int("pb_sim_number_maxlen")};
}

}  // namespace pbweb
