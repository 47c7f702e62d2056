// pbweb: the phonebook's web page. A user-interface process of the
// phonebook like pbcli: it serves one page and a JSON API, and reaches the
// phonebook only through the library's client API.
//
//   pbweb [--listen ADDR:PORT] [--password-file FILE] [--session-idle SECONDS]
//         [--session-max SECONDS] [--tls-cert FILE --tls-key FILE] [--insecure-lan]
//         [--host NAME]... [--country CC]
//   pbweb --set-password FILE     (the password on standard input)
//
// Prints "pbweb: listening on http://ADDR:PORT/" (https with a certificate)
// once it takes requests, and stops cleanly on SIGTERM or SIGINT (exit
// status 0). Options it cannot take end it with status 2, anything else
// that keeps it from starting with 1.
#include <getopt.h>
#include <malloc.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "contacts.h"
#include "server.h"

namespace {

const char kUsage[] =
    "Usage: pbweb [OPTIONS]\n"
    "Serves the phonebook's web page and its JSON API under /api/.\n\n"
    "  -l, --listen ADDR:PORT      where to listen (default 127.0.0.1:8080; [::1]:8080 for IPv6;\n"
    "                              port 0 takes a free port, printed at start)\n"
    "  -p, --password-file FILE    ask for the password whose hash FILE holds before anything\n"
    "                              (made by --set-password)\n"
    "      --set-password FILE     read a password from standard input (one line), write its\n"
    "                              salted hash to FILE (mode 0600) and exit; a running pbweb\n"
    "                              then takes only the new password and ends every session\n"
    "      --session-idle SECONDS  end a session after this long without a request (default 1800)\n"
    "      --session-max SECONDS   end a session this long after its login (default 43200)\n"
    "      --tls-cert FILE         serve HTTPS with this certificate (PEM; with --tls-key)\n"
    "      --tls-key FILE          the certificate's private key (PEM)\n"
    "      --insecure-lan          serve plain HTTP on an address other than loopback\n"
    "  -H, --host NAME             a host name the page is reached by (again for more); addresses\n"
    "                              and localhost always work, other names are refused\n"
    "      --country CC            the home country of /api/lookup without ?country= (ISO 3166\n"
    "                              two-letter code); without it the router's (NV pb_home_country)\n"
    "  -h, --help                  this text\n";

enum LongOnly { SET_PASSWORD = 256, SESSION_IDLE, SESSION_MAX, TLS_CERT, TLS_KEY, INSECURE_LAN, COUNTRY };

bool read_file(const std::string &file, std::string *out, std::string *error)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        return *error = "cannot read " + file, false;
    out->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
}

// 1 second to 10 years.
bool read_seconds(const char *name, const char *text, std::chrono::seconds *out, std::string *error)
{
    char *end = nullptr;
    errno = 0;
    const unsigned long long n = std::strtoull(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || text[0] == '-' || n < 1 || n > 10ull * 366 * 86400)
        return *error = std::string(name) + ": expected a number of seconds, not '" + text + "'", false;
    *out = std::chrono::seconds(static_cast<long long>(n));
    return true;
}

// One line of standard input, not echoed when it is a terminal.
int set_password(const std::string &file)
{
    termios saved{};
    const bool tty = isatty(0) && tcgetattr(0, &saved) == 0;
    if (tty) {
        termios quiet = saved;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(0, TCSAFLUSH, &quiet);
        std::fputs("New password: ", stderr);
    }
    std::string line;
    const bool got = static_cast<bool>(std::getline(std::cin, line));
    if (tty) {
        tcsetattr(0, TCSAFLUSH, &saved);
        std::fputs("\n", stderr);
    }
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    std::string error;
    if (!got || line.empty()) {
        std::fprintf(stderr, "pbweb: no password on standard input\n");
        return 2;
    }
    if (!pbweb::set_password_file(file, line, &error)) {
        std::fprintf(stderr, "pbweb: %s\n", error.c_str());
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv)
{
    // The library logs every step at info level; keep only its errors unless asked.
    setenv("ZP_LOG_LEVEL", "2", 0);

    // A list answer and its table are some 100 to 300 KiB. Kept below the
    // mmap threshold and not trimmed after each request, their memory is
    // reused instead of being mapped and faulted in again every time.
    mallopt(M_MMAP_THRESHOLD, 2 * 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 4 * 1024 * 1024);

    pbweb::ServerOptions opt;
    static const option kLong[] = {{"listen", required_argument, nullptr, 'l'},
                                   {"password-file", required_argument, nullptr, 'p'},
                                   {"host", required_argument, nullptr, 'H'},
                                   {"set-password", required_argument, nullptr, SET_PASSWORD},
                                   {"session-idle", required_argument, nullptr, SESSION_IDLE},
                                   {"session-max", required_argument, nullptr, SESSION_MAX},
                                   {"tls-cert", required_argument, nullptr, TLS_CERT},
                                   {"tls-key", required_argument, nullptr, TLS_KEY},
                                   {"insecure-lan", no_argument, nullptr, INSECURE_LAN},
                                   {"country", required_argument, nullptr, COUNTRY},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
    std::string error, password_to_set;
    for (int ch; (ch = getopt_long(argc, argv, "l:p:H:h", kLong, nullptr)) != -1;) {
        bool ok = true;
        switch (ch) {
        case 'l': opt.listen = optarg; break;
        case 'p': opt.password_file = optarg; break;
        case 'H': opt.hosts.emplace_back(optarg); break;
        case SET_PASSWORD: password_to_set = optarg; break;
        case SESSION_IDLE: ok = read_seconds("--session-idle", optarg, &opt.session_idle, &error); break;
        case SESSION_MAX: ok = read_seconds("--session-max", optarg, &opt.session_max, &error); break;
        case TLS_CERT: ok = read_file(optarg, &opt.tls_cert, &error); break;
        case TLS_KEY: ok = read_file(optarg, &opt.tls_key, &error); break;
        case INSECURE_LAN: opt.insecure_lan = true; break;
        case COUNTRY:
            opt.country = optarg;
            ok = (error = pbui::country_refusal(optarg)).empty();
            if (!ok)
                error = "--country: " + error;
            break;
        case 'h': std::fputs(kUsage, stdout); return 0;
        default: std::fputs(kUsage, stderr); return 2;
        }
        if (!ok) {
            std::fprintf(stderr, "pbweb: %s\n", error.c_str());
            return 2;
        }
    }
    if (optind < argc) {
        std::fprintf(stderr, "pbweb: unexpected argument '%s'\n%s", argv[optind], kUsage);
        return 2;
    }
    if (!password_to_set.empty())
        return set_password(password_to_set);

    // Only the wait below takes these signals; the server's threads, started
    // after this, inherit the blocked set.
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    signal(SIGPIPE, SIG_IGN);

    pbweb::Phonebook pb;
    pbweb::Server server(pb);
    if (!pb.open(&error)) {
        std::fprintf(stderr, "pbweb: %s\n", error.c_str());
        return 1;
    }
    switch (server.start(opt, &error)) {
    case pbweb::StartError::NONE: break;
    case pbweb::StartError::OPTIONS: std::fprintf(stderr, "pbweb: %s\n", error.c_str()); return 2;
    case pbweb::StartError::FAILED: std::fprintf(stderr, "pbweb: %s\n", error.c_str()); return 1;
    }
    const std::string host = opt.listen.substr(0, opt.listen.rfind(':'));
    std::printf("pbweb: listening on %s://%s:%d/\n", server.tls() ? "https" : "http", host.c_str(),
                server.port());
    std::fflush(stdout);

    int sig = 0;
    while (sigwait(&set, &sig) != 0) {
    }
    server.stop();
    return 0;
}
