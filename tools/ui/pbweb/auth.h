/* auth.h - pbweb's login: the password file, the sessions, and the pause
 * that slows a client guessing the password.
 *
 * The password file holds one line, the password's salted hash as crypt(3)
 * makes it (yescrypt, "$y$..."), never the password itself; it is written
 * by set_password_file() and replaced, never rewritten, so that a reader
 * sees the old or the new file. A running pbweb notices a new file (its
 * inode, size or time changed) at the next API request: it reads the new
 * hash and ends every session.
 *
 * Wrong passwords are counted per client address: after three in a row,
 * the address gets no answer but "wait" for 1 s, then after each further
 * wrong one for twice as long as before, at most kPauseMax. A right
 * password resets its address alone; other addresses are never paused for
 * it. The table of addresses is bounded: when full, the address heard from
 * least recently is forgotten.
 *
 * A session is a random token in a cookie; it ends after `idle` without a
 * request, after `max` in all, at logout, or when the password changes.
 * At most kMaxSessions live at once: a new one ends the least recently used.
 *
 * Threads: every call may come from any of the server's threads; one mutex
 * guards the state, and the hash itself is computed outside it, so that a
 * slow check holds up no other client. */
#ifndef PBWEB_AUTH_H
#define PBWEB_AUTH_H

#include <sys/socket.h>
#include <sys/stat.h>

#include <chrono>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace pbweb {

// Reads the hash on the first line of `file`. A file that holds anything
// else (a password as it is, an old or unknown kind of hash) is refused
// with the reason and the command that converts it in *error.
bool read_password_file(const std::string &file, std::string *hash, std::string *error);

// Hashes `password` with a new random salt and replaces `file` with the
// hash, mode 0600: a new file beside it, written, synced, renamed over the
// old one, and the folder synced.
bool set_password_file(const std::string &file, const std::string &password, std::string *error);

class Auth {
public:
    using Clock = std::chrono::steady_clock;

    enum class Outcome {
        OK,      // `token` names the new session
        WRONG,   // wrong password
        WAIT,    // this address must wait `wait_secs` before it tries again
        BROKEN,  // the password file could not be read: no login until it is set again
    };
    struct Login {
        Outcome outcome;
        std::string token;
        long wait_secs = 0;
    };

    // Reads the password file; false with the reason in *error. Durations
    // in seconds, both above 0.
    bool open(const std::string &password_file, std::chrono::seconds idle, std::chrono::seconds max,
              std::string *error);

    Login login(const sockaddr *from, const std::string &password);

    // True when `token` names a live session, whose last request is then
    // now; an ended session is forgotten.
    bool session(const char *token);

    void logout(const char *token);

private:
    struct Session {
        std::string token;
        Clock::time_point started, last;
    };
    struct Guesser {
        unsigned wrong = 0;  // wrong passwords in a row, this attempt counted until it proves right
        Clock::time_point paused_until, last;
    };

    // Reads the file again when it was replaced, and then ends every session
    // (mu_ held).
    void check_file_locked();
    Guesser &guesser_locked(const std::string &address, Clock::time_point now);

    std::string file_;
    std::chrono::seconds idle_{0}, max_{0};
    std::mutex mu_;
    std::string hash_;  // empty: the file could not be read, no login
    struct stat seen_ {};
    std::vector<Session> sessions_;
    std::unordered_map<std::string, Guesser> guessers_;
};

}  // namespace pbweb

#endif
