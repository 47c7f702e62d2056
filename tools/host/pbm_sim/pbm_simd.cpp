// pbm_simd: the simulated modem phonebook service as a daemon, for the demo.
//
//   pbm_simd --card FILE [--socket PATH] [--start-delay MS] [--reply-delay MS]
//
// Loads the card file (format in pbm_sim.h), serves it on the socket (default:
// the path the QMI client library uses, $ZP_QMI_SOCKET or qmi_pbm in
// $ZP_IPC_DIR), saves every change back to the file, and stops on SIGINT or
// SIGTERM.
#include <getopt.h>

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "pbm_sim.h"

namespace {

constexpr unsigned long kMaxDelayMs = 3600000;  // an hour: more is a typo

const option kOptions[] = {
    {"card", required_argument, nullptr, 'c'},
    {"socket", required_argument, nullptr, 's'},
    {"start-delay", required_argument, nullptr, 'd'},
    {"reply-delay", required_argument, nullptr, 'r'},
    {nullptr, 0, nullptr, 0},
};

// Says what is wrong and how the command line goes; returns the usage
// exit status.
int usage(const std::string &what)
{
    std::fprintf(stderr,
                 "pbm_simd: %s\n"
                 "usage: pbm_simd --card FILE [--socket PATH] [--start-delay MS] [--reply-delay MS]\n",
                 what.c_str());
    return 2;
}

// Milliseconds: digits only (strtoul would take a sign and blanks in front).
bool parse_ms(const char *s, unsigned *out)
{
    if (!std::isdigit(static_cast<unsigned char>(s[0])))
        return false;
    char *end = nullptr;
    errno = 0;
    const unsigned long v = std::strtoul(s, &end, 10);
    if (*end != '\0' || errno != 0 || v > kMaxDelayMs)
        return false;
    *out = static_cast<unsigned>(v);
    return true;
}

}  // namespace

int main(int argc, char **argv)
{
    std::string card_path, socket_path;
    unsigned start_delay = 0, reply_delay = 0;
    // Long options only; '+' stops at the first other word, ':' tells a
    // missing value apart and keeps getopt_long quiet.
    for (int opt; (opt = getopt_long(argc, argv, "+:", kOptions, nullptr)) != -1;) {
        switch (opt) {
        case 'c': card_path = optarg; break;
        case 's': socket_path = optarg; break;
        case 'd':
        case 'r':
            if (!parse_ms(optarg, opt == 'd' ? &start_delay : &reply_delay))
                return usage(std::string(opt == 'd' ? "--start-delay" : "--reply-delay") +
                             " takes milliseconds from 0 to " + std::to_string(kMaxDelayMs) + ", not '" +
                             optarg + "'");
            break;
        case ':': return usage(std::string(argv[optind - 1]) + " needs a value");
        default:
            return usage(optopt != 0 ? std::string("unknown option '-") + static_cast<char>(optopt) + "'"
                                     : std::string("unknown or ambiguous option '") + argv[optind - 1] + "'");
        }
    }
    if (optind < argc)
        return usage(std::string("unexpected argument '") + argv[optind] + "'");
    if (card_path.empty())
        return usage("--card is needed");
    pbm_sim::Card card;
    std::string error;
    if (!pbm_sim::load_card(card_path, &card, &error)) {
        std::fprintf(stderr, "pbm_simd: %s\n", error.c_str());
        return 1;
    }

    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);  // the service thread inherits the mask

    pbm_sim::Simulator sim(card, socket_path);
    sim.set_save_path(card_path);
    sim.set_reply_delay(reply_delay);
    if (!sim.start(start_delay)) {
        std::fprintf(stderr, "pbm_simd: cannot start\n");
        return 1;
    }
    std::printf("pbm_simd: %zu of %u records, serving after %u ms\n", card.records.size(), card.max_records,
                start_delay);
    std::fflush(stdout);
    int sig = 0;
    sigwait(&set, &sig);
    sim.stop();
    std::printf("pbm_simd: stopped (signal %d)\n", sig);
    return 0;
}
