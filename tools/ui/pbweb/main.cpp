// pbweb: the phonebook's web page. A user-interface process of the
// phonebook like pbcli: it serves one page and a JSON API, and reaches the
// phonebook only through the library's client API.
//
//   pbweb [--listen ADDR:PORT] [--password-file FILE] [--host NAME]...
//
// Prints "pbweb: listening on http://ADDR:PORT/" once it takes requests,
// and stops cleanly on SIGTERM or SIGINT (exit status 0).
#include <getopt.h>
#include <malloc.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "server.h"

namespace {

const char kUsage[] =
    "Usage: pbweb [OPTIONS]\n"
    "Serves the phonebook's web page and its JSON API under /api/.\n\n"
    "  -l, --listen ADDR:PORT      where to listen (default 127.0.0.1:8080; [::1]:8080 for IPv6;\n"
    "                              port 0 takes a free port, printed at start)\n"
    "  -p, --password-file FILE    ask for the password in FILE (its first line) before anything\n"
    "  -H, --host NAME             a host name the page is reached by (again for more); addresses\n"
    "                              and localhost always work, other names are refused\n"
    "  -h, --help                  this text\n";

bool read_password(const std::string &file, std::string *out, std::string *error)
{
    std::ifstream in(file, std::ios::binary);
    if (!in)
        return *error = "cannot read the password file " + file, false;
    std::getline(in, *out);
    if (!out->empty() && out->back() == '\r')
        out->pop_back();
    if (out->empty())
        return *error = "the password file " + file + " holds no password on its first line", false;
    return true;
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
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
    std::string error;
    for (int ch; (ch = getopt_long(argc, argv, "l:p:H:h", kLong, nullptr)) != -1;) {
        switch (ch) {
        case 'l': opt.listen = optarg; break;
        case 'p':
            if (!read_password(optarg, &opt.password, &error)) {
                std::fprintf(stderr, "pbweb: %s\n", error.c_str());
                return 2;
            }
            break;
        case 'H': opt.hosts.emplace_back(optarg); break;
        case 'h': std::fputs(kUsage, stdout); return 0;
        default: std::fputs(kUsage, stderr); return 2;
        }
    }
    if (optind < argc) {
        std::fprintf(stderr, "pbweb: unexpected argument '%s'\n%s", argv[optind], kUsage);
        return 2;
    }

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
    if (!pb.open(&error) || !server.start(opt, &error)) {
        std::fprintf(stderr, "pbweb: %s\n", error.c_str());
        return 1;
    }
    const std::string host = opt.listen.substr(0, opt.listen.rfind(':'));
    std::printf("pbweb: listening on http://%s:%d/\n", host.c_str(), server.port());
    std::fflush(stdout);

    int sig = 0;
    while (sigwait(&set, &sig) != 0) {
    }
    server.stop();
    return 0;
}
