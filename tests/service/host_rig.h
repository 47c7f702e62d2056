/* host_rig.h - the modem simulator in the test process, on a card given in
 * pbm_card's text form, and pb_host (PB_HOST_BIN) as a child process on it:
 * for the end-to-end tests of the host, pbcli and pbweb. The test owns the
 * rig; every call blocks and is made from the test's thread. */
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <optional>

#include "harness.h"
#include "pbm_sim.h"

namespace pbt {

// Whether pb_host's socket takes datagrams (a file left by a host that died
// may be there before). No request is sent, so the card stays unread.
inline bool host_listens()
{
    ipc_addr_t a{};
    ipc_get_addr_by_id(MU_ID, 0, &a);
    const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool up = connect(probe, reinterpret_cast<const sockaddr *>(&a.addr), sizeof a.addr) == 0;
    ::close(probe);
    return up;
}

struct host_rig {
    // Writes the card's text to `card_file`, and starts the simulator on it
    // and pb_host; returns once the service takes requests (pb_host binds
    // its socket before the service has its modem, and answers "not ready
    // yet" until then).
    void start(const std::string &card_file, const std::string &card_text)
    {
        std::ofstream(card_file) << card_text;
        pbm_sim::Card c;
        std::string error;
        ASSERT_TRUE(pbm_sim::load_card(card_file, &c, &error)) << error;
        sim = std::make_unique<pbm_sim::Simulator>(c);
        ASSERT_TRUE(sim->start());
        start_host();
        ASSERT_TRUE(wait_until(service_up, 30000)) << "the phonebook service did not start";
    }

    void start_host()
    {
        host.emplace(std::vector<std::string>{PB_HOST_BIN});
        ASSERT_TRUE(wait_until(host_listens, 10000)) << "pb_host did not come up";
    }

    // A clean stop is status 0; a sanitizer report, a crash or a host that
    // ignores SIGTERM is not.
    void stop_host()
    {
        EXPECT_EQ(host && host->pid > 0 ? host->wait(30000, SIGTERM) : 0, 0)
            << "pb_host did not stop cleanly";
        host.reset();
    }

    void stop()
    {
        stop_host();
        if (sim)
            sim->stop();
    }

    // The name in a card record; "<empty>" when the record is free.
    std::string card_name(int record) const
    {
        const auto recs = sim->card().records;
        const auto it = recs.find(static_cast<uint16_t>(record));
        return it == recs.end() ? "<empty>" : pbm_sim::ucs2_to_utf8(it->second.name);
    }

    std::unique_ptr<pbm_sim::Simulator> sim;
    std::optional<child> host;
};

}  // namespace pbt
