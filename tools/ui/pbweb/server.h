// pbweb's HTTP side on libmicrohttpd: the page's files compiled into the
// binary, the API under /api/, and the checks every request passes first:
//
//   - API requests only under a Host that is an IP address, "localhost" or
//     a name given with --host, so that a foreign site whose name was made
//     to point at the router (DNS rebinding) gets nothing;
//   - a login when a password is set (an HttpOnly, SameSite=Strict session
//     cookie; sessions live in memory only); after 5 wrong passwords in a
//     row, logins are refused for 30 seconds;
//   - for every change: an Origin equal to the Host the request went to, and
//     a body of the expected type (JSON; an import: multipart/form-data);
//   - bodies capped (JSON 256 KiB, an import 1 MiB), larger ones refused
//     with 413 before they are read;
//   - headers that keep the page from being framed, sniffed or made to load
//     anything from elsewhere.
//
// No part of a request path ever names a file: the page's files are a fixed
// table, and import, export and copy work in memory.
//
// Threads: libmicrohttpd's pool calls handle(); the session list has its
// own mutex, the phonebook serialises its calls.
#ifndef PBWEB_SERVER_H
#define PBWEB_SERVER_H

#include <chrono>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "api.h"

struct MHD_Daemon;
struct MHD_Connection;

namespace pbweb {

struct ServerOptions {
    std::string listen = "127.0.0.1:8080";  // ADDR:PORT, [IPv6]:PORT; port 0 picks a free one
    std::string password;                   // empty: no login
    std::vector<std::string> hosts;         // host names the page may be reached by, besides addresses
    unsigned threads = 4;
};

class Server {
public:
    explicit Server(Phonebook &pb) : pb_(pb) {}
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;
    ~Server() { stop(); }

    bool start(const ServerOptions &opt, std::string *error);
    void stop();
    int port() const { return port_; }

    // libmicrohttpd's callbacks (public for the C trampolines).
    int on_request(struct MHD_Connection *c, const char *url, const char *method, const char *upload,
                   size_t *upload_size, void **state);
    void on_done(void **state);

private:
    bool logged_in(struct MHD_Connection *c);
    std::string new_session();
    Response login(const std::string &body);
    void end_session(struct MHD_Connection *c);

    Phonebook &pb_;
    MHD_Daemon *daemon_ = nullptr;
    int port_ = 0;
    std::string password_;
    std::vector<std::string> hosts_;
    std::mutex sessions_mu_;
    std::deque<std::string> sessions_;  // newest last, at most kMaxSessions
    int failed_logins_ = 0;             // wrong passwords in a row (sessions_mu_)
    std::chrono::steady_clock::time_point logins_from_;
};

}  // namespace pbweb

#endif
