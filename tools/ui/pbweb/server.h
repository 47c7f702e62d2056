/*
 * server.h - pbweb's HTTP side on libmicrohttpd: the page's files compiled into the
 * binary, the API under /api/, and the checks every request passes first:
 *
 *   - API requests only under a Host that is an IP address, "localhost" or
 *     a name given with --host, so that a foreign site whose name was made
 *     to point at the router (DNS rebinding) gets nothing;
 *   - a login when a password file is given (auth.h: sessions in an
 *     HttpOnly, SameSite=Strict cookie, Secure over HTTPS; wrong passwords
 *     pause their client's address);
 *   - for every change: an Origin equal to the Host the request went to, and
 *     a body of the expected type (JSON; an import: multipart/form-data);
 *   - bodies capped (JSON 256 KiB, an import 1 MiB), larger ones refused
 *     with 413 before they are read;
 *   - headers that keep the page from being framed, sniffed or made to load
 *     anything from elsewhere.
 *
 * No part of a request path ever names a file: the page's files are a fixed
 * table, and import, export and copy work in memory.
 *
 * With a certificate and key it serves HTTPS through libmicrohttpd's TLS
 * (GnuTLS); without, only a loopback address unless told otherwise, so that
 * the password and the phonebook never cross a network in clear text by
 * mistake.
 *
 * Threads: libmicrohttpd's pool calls handle(); the login state has its
 * own mutex, the phonebook serialises its calls.
 */
#ifndef PBWEB_SERVER_H
#define PBWEB_SERVER_H

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "api.h"
#include "auth.h"

struct MHD_Daemon;
struct MHD_Connection;

namespace pbweb {

struct ServerOptions {
    std::string listen = "127.0.0.1:8080";  // ADDR:PORT, [IPv6]:PORT; port 0 picks a free one
    std::string password_file;              // empty: no login
    std::chrono::seconds session_idle{1800};
    std::chrono::seconds session_max{43200};
    std::vector<std::string> hosts;  // host names the page may be reached by, besides addresses
    std::string tls_cert, tls_key;   // PEM texts; both empty: plain HTTP
    bool insecure_lan = false;       // plain HTTP on an address other than loopback
    unsigned threads = 4;
    std::string country;  // the home country of a lookup without ?country=; "": the router's (NV)
};

// Why start() failed: the options themselves, or what it met.
enum class StartError { NONE, OPTIONS, FAILED };

class Server {
public:
    explicit Server(Phonebook &pb) : pb_(pb) {}
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;
    ~Server() { stop(); }

    StartError start(const ServerOptions &opt, std::string *error);
    void stop();
    int port() const { return port_; }
    bool tls() const { return tls_; }

    // libmicrohttpd's callbacks (public for the C trampolines).
    int on_request(struct MHD_Connection *c, const char *url, const char *method, const char *upload,
                   size_t *upload_size, void **state);
    void on_done(void **state);

private:
    bool logged_in(struct MHD_Connection *c);
    Response login(struct MHD_Connection *c, const std::string &body);
    std::string cookie(const std::string &value, const char *attributes) const;

    Phonebook &pb_;
    MHD_Daemon *daemon_ = nullptr;
    int port_ = 0;
    bool tls_ = false;
    std::unique_ptr<Auth> auth_;  // null: no login
    std::vector<std::string> hosts_;
    std::string country_;  // --country
};

}  // namespace pbweb

#endif
