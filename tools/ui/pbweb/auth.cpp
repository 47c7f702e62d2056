// pbweb's login: the password file (a crypt(3) hash, replaced durably),
// sessions with an idle and an overall limit, and a per-address pause for
// wrong passwords that doubles with every wrong one after the third.
//
// A login attempt is counted as wrong before its password is checked and
// forgiven once it proves right: a client sending many guesses at once has
// them counted at once too, while the check itself runs without the lock.
#include "auth.h"

#include <crypt.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

namespace pbweb {

namespace {

constexpr unsigned kFreeTries = 3;  // wrong passwords in a row before the first pause
constexpr std::chrono::seconds kPauseMax{300};
constexpr size_t kMaxGuessers = 1024;  // addresses remembered; about 100 bytes each
constexpr size_t kMaxSessions = 32;
constexpr size_t kTokenBytes = 16;

struct FreeDeleter {
    void operator()(void *p) const { std::free(p); }
};
using CString = std::unique_ptr<char, FreeDeleter>;

struct Fd {
    int fd = -1;
    explicit Fd(int f) : fd(f) {}
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    ~Fd()
    {
        if (fd >= 0)
            ::close(fd);
    }
};

bool same_text(const std::string &a, const char *b)
{
    // Takes as long for every string of a given length: no early exit that
    // tells how much of a guess was right.
    const size_t n = std::strlen(b);
    unsigned char diff = a.size() == n ? 0 : 1;
    for (size_t i = 0; i < a.size(); ++i)
        diff |= static_cast<unsigned char>(a[i] ^ (i < n ? b[i] : 0));
    return diff == 0;
}

bool same_file(const struct stat &a, const struct stat &b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

bool password_matches(const std::string &password, const std::string &hash)
{
    // crypt(3) reads a C string: a password with a NUL in it is not the one
    // that was set, whatever comes before the NUL.
    if (hash.empty() || password.find('\0') != std::string::npos)
        return false;
    void *data = nullptr;
    int size = 0;
    const char *out = crypt_ra(password.c_str(), hash.c_str(), &data, &size);
    const CString owner(static_cast<char *>(data));
    return out && out[0] != '*' && same_text(hash, out);
}

// The client's address as the table's key: the raw bytes, an IPv4 address
// seen through an IPv6 socket as IPv4.
std::string address_key(const sockaddr *from)
{
    if (!from)
        return "";
    if (from->sa_family == AF_INET) {
        const auto *a = reinterpret_cast<const sockaddr_in *>(from);
        return std::string(reinterpret_cast<const char *>(&a->sin_addr), sizeof a->sin_addr);
    }
    if (from->sa_family == AF_INET6) {
        const auto *a = reinterpret_cast<const sockaddr_in6 *>(from);
        const char *raw = reinterpret_cast<const char *>(&a->sin6_addr);
        if (IN6_IS_ADDR_V4MAPPED(&a->sin6_addr))
            return std::string(raw + 12, 4);
        return std::string(raw, sizeof a->sin6_addr);
    }
    return "";
}

std::string new_token()
{
    unsigned char raw[kTokenBytes];
    if (getrandom(raw, sizeof raw, 0) != static_cast<ssize_t>(sizeof raw))
        return "";
    static const char kHex[] = "0123456789abcdef";
    std::string token;
    for (unsigned char b : raw) {
        token += kHex[b >> 4];
        token += kHex[b & 15];
    }
    return token;
}

std::string folder_of(const std::string &file)
{
    const size_t slash = file.rfind('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : file.substr(0, slash);
}

}  // namespace

bool read_password_file(const std::string &file, std::string *hash, std::string *error)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        return *error = "cannot read the password file " + file, false;
    std::getline(in, *hash);
    if (!hash->empty() && hash->back() == '\r')
        hash->pop_back();
    if (crypt_checksalt(hash->c_str()) != CRYPT_SALT_OK || hash->find(':') != std::string::npos) {
        hash->clear();
        return *error = "the password file " + file +
                        " does not hold a password hash (a password written as it is is no longer taken);"
                        " convert it with: pbweb --set-password " +
                        file + " < " + file,
               false;
    }
    return true;
}

bool set_password_file(const std::string &file, const std::string &password, std::string *error)
{
    if (password.empty() || password.find('\0') != std::string::npos)
        return *error = "the password must not be empty or hold a NUL byte", false;
    CString salt(crypt_gensalt_ra("$y$", 0, nullptr, 0));
    if (!salt)
        return *error = std::string("no salt for the password hash: ") + std::strerror(errno), false;
    void *data = nullptr;
    int size = 0;
    const char *hashed = crypt_ra(password.c_str(), salt.get(), &data, &size);
    const CString owner(static_cast<char *>(data));
    if (!hashed || hashed[0] == '*')
        return *error = std::string("the password could not be hashed: ") + std::strerror(errno), false;
    const std::string line = std::string(hashed) + "\n";

    const std::string tmp = file + ".new";
    Fd fd(::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
    // fchmod: a file left there by an earlier attempt keeps its mode otherwise.
    if (fd.fd < 0 || ::fchmod(fd.fd, 0600) != 0)
        return *error = "cannot write " + tmp + ": " + std::strerror(errno), false;
    if (::write(fd.fd, line.data(), line.size()) != static_cast<ssize_t>(line.size()) ||
        ::fsync(fd.fd) != 0) {
        *error = "cannot write " + tmp + ": " + std::strerror(errno);
        ::unlink(tmp.c_str());
        return false;
    }
    if (::rename(tmp.c_str(), file.c_str()) != 0) {
        *error = "cannot replace " + file + ": " + std::strerror(errno);
        ::unlink(tmp.c_str());
        return false;
    }
    const std::string folder = folder_of(file);
    Fd dir(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (dir.fd < 0 || ::fsync(dir.fd) != 0)
        return *error = "cannot sync the folder " + folder + ": " + std::strerror(errno), false;
    return true;
}

bool Auth::open(const std::string &password_file, std::chrono::seconds idle, std::chrono::seconds max,
                std::string *error)
{
    file_ = password_file;
    idle_ = idle, max_ = max;
    if (::stat(file_.c_str(), &seen_) != 0)
        return *error = "cannot read the password file " + file_ + ": " + std::strerror(errno), false;
    return read_password_file(file_, &hash_, error);
}

void Auth::check_file_locked()
{
    struct stat now {};
    if (::stat(file_.c_str(), &now) == 0 && same_file(now, seen_))
        return;
    seen_ = now;
    sessions_.clear();
    std::string error;
    if (read_password_file(file_, &hash_, &error))
        std::fprintf(stderr, "pbweb: the password file %s changed; every session ended\n", file_.c_str());
    else
        std::fprintf(stderr, "pbweb: %s; no login until it is set again\n", error.c_str());
}

Auth::Guesser &Auth::guesser_locked(const std::string &address, Clock::time_point now)
{
    auto it = guessers_.find(address);
    if (it != guessers_.end())
        return it->second;
    if (guessers_.size() >= kMaxGuessers)
        guessers_.erase(
            std::min_element(guessers_.begin(), guessers_.end(),
                             [](const auto &a, const auto &b) { return a.second.last < b.second.last; }));
    Guesser &g = guessers_[address];
    g.last = now;
    return g;
}

Auth::Login Auth::login(const sockaddr *from, const std::string &password)
{
    const std::string address = address_key(from);
    std::string hash;
    {
        std::lock_guard<std::mutex> lock(mu_);
        check_file_locked();
        if (hash_.empty())
            return Login{Outcome::BROKEN, "", 0};
        const auto now = Clock::now();
        Guesser &g = guesser_locked(address, now);
        if (now < g.paused_until) {
            const auto left = std::chrono::ceil<std::chrono::seconds>(g.paused_until - now);
            return Login{Outcome::WAIT, "", static_cast<long>(left.count())};
        }
        g.last = now;
        if (++g.wrong >= kFreeTries) {
            const unsigned doublings = std::min(g.wrong - kFreeTries, 16u);
            g.paused_until = now + std::min(std::chrono::seconds(1L << doublings), kPauseMax);
        }
        hash = hash_;
    }

    if (!password_matches(password, hash))
        return Login{Outcome::WRONG, "", 0};

    const std::string token = new_token();
    std::lock_guard<std::mutex> lock(mu_);
    guessers_.erase(address);
    // The password may have changed while it was checked against the old one.
    if (token.empty() || hash != hash_)
        return Login{token.empty() ? Outcome::BROKEN : Outcome::WRONG, "", 0};
    const auto now = Clock::now();
    if (sessions_.size() >= kMaxSessions)
        sessions_.erase(std::min_element(sessions_.begin(), sessions_.end(),
                                         [](const Session &a, const Session &b) { return a.last < b.last; }));
    sessions_.push_back(Session{token, now, now});
    return Login{Outcome::OK, token, 0};
}

bool Auth::session(const char *token)
{
    if (!token)
        return false;
    std::lock_guard<std::mutex> lock(mu_);
    check_file_locked();
    const auto now = Clock::now();
    sessions_.erase(
        std::remove_if(sessions_.begin(), sessions_.end(),
                       [&](const Session &s) { return now - s.last > idle_ || now - s.started > max_; }),
        sessions_.end());
    // Every session is compared in full: the time taken tells nothing of
    // which one, or how much of one, a token matched.
    Session *found = nullptr;
    for (Session &s : sessions_)
        if (same_text(s.token, token))
            found = &s;
    if (found)
        found->last = now;
    return found != nullptr;
}

void Auth::logout(const char *token)
{
    if (!token)
        return;
    std::lock_guard<std::mutex> lock(mu_);
    sessions_.erase(std::remove_if(sessions_.begin(), sessions_.end(),
                                   [&](const Session &s) { return same_text(s.token, token); }),
                    sessions_.end());
}

}  // namespace pbweb
