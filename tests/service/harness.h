// Test harness: phonebook files read and written as raw 161-byte records
// (not with the store's own functions), child processes and waits with
// bounds, and a bare datagram socket that puts messages on the wire as the
// IPC library does (head, then payload), to send any message type and see
// the exact head of the answer.
#pragma once

#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "pb_data_dir.h"
#include "zp_ipc.h"
#include "zpt_ui_pb_api.h"

extern char **environ;

namespace pbt {

constexpr zp_uint32 kNoSim = 0xFFFFFFFFu;

// A file in the phonebook folder the module uses (each test has its own).
inline std::string data_path(const char *name) { return std::string(pb_data_dir()) + "/" + name; }

inline std::string book(storage_type_t t)
{
    return data_path(t == STORAGE_TYPE_SIM ? "pb_sim_file" : "pb_device_file");
}

inline bool exists(const std::string &path) { return ::access(path.c_str(), F_OK) == 0; }

// A file's bytes; empty when there is no file.
inline std::string slurp(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

inline pb_flash_info entry(zp_uint32 index, zp_uint32 sim_index, const std::string &name,
                           const std::string &number = "1", const std::string &email = "")
{
    pb_flash_info e{index, sim_index, {}, {}, {}};
    std::snprintf(e.name, sizeof e.name, "%s", name.c_str());
    std::snprintf(e.num, sizeof e.num, "%s", number.c_str());
    std::snprintf(e.email, sizeof e.email, "%s", email.c_str());
    return e;
}

// A record is the entry's first 161 bytes: the host is little-endian.
inline void write_book(storage_type_t t, const std::vector<pb_flash_info> &entries)
{
    FILE *f = std::fopen(book(t).c_str(), "wb");
    for (const pb_flash_info &e : entries)
        std::fwrite(&e, 1, PB_RECORD_SIZE, f);
    std::fclose(f);
}

inline std::vector<pb_flash_info> read_book(storage_type_t t)
{
    std::vector<pb_flash_info> out;
    pb_flash_info e{};
    if (FILE *f = std::fopen(book(t).c_str(), "rb")) {
        while (std::fread(&e, 1, PB_RECORD_SIZE, f) == PB_RECORD_SIZE)
            out.push_back(e);
        std::fclose(f);
    }
    return out;
}

// "index:name", or "index@sim_index:name" for an entry with a card record.
inline std::string listing(const std::vector<pb_flash_info> &v)
{
    std::string s;
    for (const pb_flash_info &e : v)
        s += (s.empty() ? "" : " ") + std::to_string(e.index) +
             (e.sim_index == kNoSim ? "" : "@" + std::to_string(e.sim_index)) + ":" + e.name;
    return s;
}

inline void remove_books()
{
    for (const char *f : {"pb_sim_file", "pb_sim_file_tmp", "pb_device_file", "pb_device_file_tmp"})
        std::remove(data_path(f).c_str());
}

// Whether the service of the host process takes requests: it answers an
// unsupported action as such (not "not ready yet").
inline bool service_up()
{
    pb_event_req_t req{};
    req.event = SIM_PB_HANDLE_TYPE_GETCOUNT;
    pb_rsp_t rsp{};
    size_t len = sizeof rsp;
    return simlib_send_request_sync(MU_ID, MSG_ID_PB_REQ, &req, sizeof req, &rsp, &len, 5000) == 0 &&
           rsp.pb_result == PB_RCODE_ARGSERR;
}

// Whether the SIM phonebook has been read: a get-all is answered with its
// entries, not "not read yet". The first call starts the read.
inline bool sim_book_read()
{
    int num = 0;
    return simlib_pb_read_handler(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_GETALL, &num) != nullptr;
}

template <typename Pred> bool wait_until(Pred pred, int ms)
{
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    for (; !pred(); std::this_thread::sleep_for(std::chrono::milliseconds(5)))
        if (std::chrono::steady_clock::now() > end)
            return false;
    return true;
}

// A child process, killed if still running when it goes out of scope.
struct child {
    pid_t pid = -1;

    explicit child(std::vector<std::string> argv)
    {
#ifdef PB_EMULATOR
        // Programs of the target run under the same emulator as the test.
        std::istringstream emu(PB_EMULATOR);
        size_t at = 0;
        for (std::string a; std::getline(emu, a, ',');)
            argv.insert(argv.begin() + static_cast<long>(at++), a);
#endif
        std::vector<char *> args;
        for (std::string &a : argv)
            args.push_back(a.data());
        args.push_back(nullptr);
        if (posix_spawnp(&pid, args[0], nullptr, nullptr, args.data(), environ) != 0)
            pid = -1;
    }
    explicit child(pid_t started) : pid(started) {}  // one started elsewhere
    child(const child &) = delete;
    ~child() { wait(0, SIGKILL); }

    // Sends `sig` (if any), then the exit status; -1 when it did not exit
    // within `ms` (it is then killed) or ended by a signal.
    int wait(int ms, int sig = 0)
    {
        int status = 0;
        if (pid <= 0)
            return -1;
        if (sig != 0)
            ::kill(pid, sig);
        if (!wait_until([&] { return waitpid(pid, &status, WNOHANG) == pid; }, ms)) {
            ::kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            status = -1;
        }
        pid = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

// An answer as it came off the wire: head, then payload.
struct raw_reply {
    ipc_msg_head_t head;
    pb_rsp_t rsp;
    bool arrived;
};
static_assert(offsetof(raw_reply, rsp) == IPC_MSG_HEAD_LEN, "head and payload as on the wire");

struct raw_peer {
    raw_peer() = default;  // unbound: answers to it fail at once
    explicit raw_peer(const std::string &name) : path_(std::string(std::getenv("ZP_IPC_DIR")) + "/" + name)
    {
        if (std::system(("mkdir -p " + path_.substr(0, path_.rfind('/'))).c_str()) != 0)
            return;
        sockaddr_un a{AF_UNIX, {}};
        std::snprintf(a.sun_path, sizeof a.sun_path, "%s", path_.c_str());
        ::unlink(path_.c_str());
        bind(fd_, reinterpret_cast<sockaddr *>(&a), sizeof a);
    }
    ~raw_peer() { close(); }
    // Gone from the file system: answers to it fail at once.
    void close()
    {
        ::close(fd_);
        fd_ = -1;
        ::unlink(path_.c_str());
    }

    bool send(zp_uint32 type, zp_uint32 id, zp_uint32 session, const void *payload, zp_uint32 len)
    {
        ipc_addr_t to{};
        ipc_get_addr_by_id(MU_ID, 0, &to);
        std::vector<zp_uint8> d(IPC_MSG_HEAD_LEN + len);
        const ipc_msg_head_t head{type, id, len, session};
        std::memcpy(d.data(), &head, sizeof head);
        std::memcpy(d.data() + IPC_MSG_HEAD_LEN, payload, len);
        return sendto(fd_, d.data(), d.size(), 0, reinterpret_cast<const sockaddr *>(&to.addr),
                      sizeof to.addr) == static_cast<ssize_t>(d.size());
    }

    raw_reply receive(int ms)
    {
        raw_reply r{};
        pollfd p{fd_, POLLIN, 0};
        r.arrived = poll(&p, 1, ms) == 1 &&
                    recv(fd_, &r, offsetof(raw_reply, arrived), 0) >= static_cast<ssize_t>(IPC_MSG_HEAD_LEN);
        return r;
    }

    std::string path_;
    int fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

}  // namespace pbt
