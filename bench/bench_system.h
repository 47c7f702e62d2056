// What the end-to-end benchmarks share: starting and stopping the daemons
// (simulator, host process), a device phonebook file of numbered entries
// written straight through the store, and percentiles of the samples.
#ifndef BENCH_SYSTEM_H
#define BENCH_SYSTEM_H

#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "zp_ipc_host.h"
#include "zpt_ui_pb_api.h"

extern char **environ;

namespace bench {

// Starts a program.
inline pid_t spawn(std::vector<std::string> argv)
{
    std::vector<char *> args;
    for (std::string &a : argv)
        args.push_back(a.data());
    args.push_back(nullptr);
    pid_t pid = -1;
    return posix_spawn(&pid, args[0], nullptr, nullptr, args.data(), environ) == 0 ? pid : -1;
}

// SIGTERM, five seconds to end, then SIGKILL.
inline void stop(pid_t pid)
{
    if (pid <= 0)
        return;
    kill(pid, SIGTERM);
    for (int k = 0; k < 500; ++k) {
        if (waitpid(pid, nullptr, WNOHANG) == pid)
            return;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

// Waits up to ten seconds for a file (a socket) to appear.
inline bool wait_for(const std::string &path)
{
    for (int k = 0; k < 1000; ++k) {
        if (access(path.c_str(), F_OK) == 0)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

// The simulator daemon on a card file (the text of the simulator's card
// format, written into the IPC folder) and then the host process, each
// waited for until it listens; both stopped at the end. up() is false when
// one of them did not come up.
class modem_and_host {
public:
    modem_and_host(const std::string &card_text, const char *simd, const char *host)
    {
        const char *dir_env = std::getenv("ZP_IPC_DIR");
        const std::string dir = dir_env ? dir_env : IPC_DEFAULT_DIR;
        mkdir(dir.c_str(), 0770);
        const std::string card = dir + "/bench_card.txt";
        if (!(std::ofstream(card) << card_text))
            return;
        sim_ = spawn({simd, "--card", card});
        if (!wait_for(dir + "/qmi_pbm"))
            return;
        host_ = spawn({host});
        ipc_addr_t mu{};
        ipc_get_addr_by_id(MU_ID, 0, &mu);
        up_ = wait_for(mu.addr.sun_path);
    }
    ~modem_and_host()
    {
        stop(host_);
        stop(sim_);
    }
    modem_and_host(const modem_and_host &) = delete;
    bool up() const { return up_; }

private:
    pid_t sim_ = -1, host_ = -1;
    bool up_ = false;
};

// The value below which a share p (0 to 1) of the samples lie.
inline double percentile(std::vector<double> v, double p)
{
    std::sort(v.begin(), v.end());
    return v.empty() ? 0 : v[std::min(v.size() - 1, static_cast<size_t>(static_cast<double>(v.size()) * p))];
}

inline pb_flash_info make_entry(int k)
{
    pb_flash_info e{};
    std::snprintf(e.name, sizeof e.name, "Contact %04d", k);
    std::snprintf(e.num, sizeof e.num, "+49170%07d", k);
    std::snprintf(e.email, sizeof e.email, "contact%04d@example.org", k);
    return e;
}

// A device phonebook file of `n` entries numbered 1..n.
inline void make_device_book(int n)
{
    std::unique_ptr<pb_mem_info> t(new pb_mem_info());
    for (int k = 0; k < n; ++k) {
        t->mem.pb[k] = make_entry(k);
        t->mem.pb[k].index = static_cast<zp_uint32>(k + 1);
        t->mem.pb[k].sim_index = 0xFFFFFFFFu;
    }
    t->mem.pb_count = static_cast<zp_uint32>(n);
    simlib_clear_flash(STORAGE_TYPE_FLASH);
    simlib_pb_to_flash(STORAGE_TYPE_FLASH, t.get());
}

}  // namespace bench

#endif
