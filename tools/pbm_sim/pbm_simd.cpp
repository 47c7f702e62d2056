// pbm_simd: the simulated modem phonebook service as a daemon, for the demo.
//
//   pbm_simd --card FILE [--socket PATH] [--start-delay MS] [--reply-delay MS]
//
// Loads the card file (format in pbm_sim.h), serves it on the socket (default:
// the path the QMI client library uses, $ZP_QMI_SOCKET or qmi_pbm in
// $ZP_IPC_DIR), saves every change back to the file, and stops on SIGINT or
// SIGTERM.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "pbm_sim.h"

namespace {

void usage()
{
    std::fprintf(stderr,
                 "usage: pbm_simd --card FILE [--socket PATH] [--start-delay MS] [--reply-delay MS]\n");
}

}  // namespace

int main(int argc, char **argv)
{
    std::string card_path, socket_path;
    unsigned start_delay = 0, reply_delay = 0;
    // Options come in pairs: a name and its value.
    for (int i = 1; i < argc; i += 2) {
        const std::string a = argv[i];
        const char *v = i + 1 < argc ? argv[i + 1] : nullptr;
        if (!v) {
            usage();
            return 2;
        }
        if (a == "--card")
            card_path = v;
        else if (a == "--socket")
            socket_path = v;
        else if (a == "--start-delay")
            start_delay = static_cast<unsigned>(std::strtoul(v, nullptr, 10));
        else if (a == "--reply-delay")
            reply_delay = static_cast<unsigned>(std::strtoul(v, nullptr, 10));
        else {
            usage();
            return 2;
        }
    }
    if (card_path.empty()) {
        usage();
        return 2;
    }
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
