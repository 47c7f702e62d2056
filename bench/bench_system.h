// What the end-to-end benchmarks share: starting and stopping the daemons
// (simulator, host process, pbweb) and a device phonebook file of numbered
// entries written straight through the store.
#ifndef BENCH_SYSTEM_H
#define BENCH_SYSTEM_H

#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

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

// Starts a program; with out_fd, its standard output is a pipe read there.
inline pid_t spawn(std::vector<std::string> argv, int *out_fd = nullptr)
{
    std::vector<char *> args;
    for (std::string &a : argv)
        args.push_back(a.data());
    args.push_back(nullptr);
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    int fds[2] = {-1, -1};
    if (out_fd && pipe(fds) == 0) {
        posix_spawn_file_actions_adddup2(&fa, fds[1], 1);
        posix_spawn_file_actions_addclose(&fa, fds[0]);
    }
    pid_t pid = -1;
    if (posix_spawn(&pid, args[0], &fa, nullptr, args.data(), environ) != 0)
        pid = -1;
    posix_spawn_file_actions_destroy(&fa);
    if (out_fd) {
        close(fds[1]);
        *out_fd = fds[0];
    }
    return pid;
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

// Writes the card file (text of the simulator's card format) into the IPC
// folder, starts the simulator on it and then the host process, and waits
// until both listen. False when one of them did not come up.
inline bool start_modem_and_host(const std::string &card_text, const char *simd, const char *host,
                                 pid_t *sim_pid, pid_t *host_pid)
{
    const char *dir_env = std::getenv("ZP_IPC_DIR");
    const std::string dir = dir_env ? dir_env : IPC_DEFAULT_DIR;
    mkdir(dir.c_str(), 0770);
    const std::string card = dir + "/bench_card.txt";
    if (!(std::ofstream(card) << card_text))
        return false;
    *sim_pid = spawn({simd, "--card", card});
    if (!wait_for(dir + "/qmi_pbm"))
        return false;
    *host_pid = spawn({host});
    ipc_addr_t mu{};
    ipc_get_addr_by_id(MU_ID, 0, &mu);
    return wait_for(mu.addr.sun_path);
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
