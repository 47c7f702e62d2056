// The library within one process: the module socket's life cycle, sending
// to one's own module, and the in-process queue.
#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "pb_msg.h"
#include "zp_ipc_host.h"
#include "zp_mem_host.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr zp_uint16 kSiteCopy = 0x0E00;

void ignore(void *, void *) {}

TEST(IpcServer, SocketFileLifeCycleAndUnreachableModules)
{
    ipc_addr_t missing, dead;
    ASSERT_EQ(ipc_get_addr_by_id(CLI3_ID, 0, &missing), IPC_OK);
    ipc_server_pt srv = nullptr, second = nullptr;
    ASSERT_EQ(ipc_server_start(CLI3_ID, ignore, nullptr, &srv), IPC_OK);
    ipc_server_stop(srv);  // leaves the folder, not the socket
    // A socket file whose owner is gone.
    ipc_get_addr_by_id(CLI2_ID, 0, &dead);
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&dead.addr), sizeof(dead.addr)), 0);
    close(fd);
    for (ipc_addr_t *to : {&missing, &dead}) {
        ipc_msg_head_t req{}, rsp{};
        size_t rsp_len = 0;
        EXPECT_EQ(ipc_msg_send_asy(to, &req, 0), IPC_NOT_FOUND) << to->addr.sun_path;
        EXPECT_EQ(ipc_msg_send_syn(to, &req, 0, 1000, &rsp, &rsp_len), IPC_NOT_FOUND) << to->addr.sun_path;
    }
    // The receiving side takes over the dead one's file, alone, and removes
    // it when it stops.
    ASSERT_EQ(ipc_server_start(CLI2_ID, ignore, nullptr, &srv), IPC_OK);
    EXPECT_EQ(ipc_server_start(CLI2_ID, ignore, nullptr, &second), IPC_REJECT);
    struct stat st;
    ASSERT_EQ(stat(dead.addr.sun_path, &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0660u);
    ipc_server_stop(srv);
    EXPECT_NE(stat(dead.addr.sun_path, &st), 0);
    EXPECT_EQ(mem_live_total(), 0);

    // A folder too long for sun_path is refused, not cut short.
    const std::string keep = std::getenv("ZP_IPC_DIR");
    setenv("ZP_IPC_DIR", std::string(120, 'd').c_str(), 1);
    EXPECT_EQ(ipc_get_addr_by_id(MU_ID, 0, &missing), IPC_INVALID_PARA);
    EXPECT_EQ(ipc_server_start(MU_ID, ignore, nullptr, &srv), IPC_INVALID_PARA);
    setenv("ZP_IPC_DIR", keep.c_str(), 1);
}

// The IPC folder is made 0770 when missing, whatever the umask; one that
// others may write to, or (tested when run as root) one of another user,
// is refused by the servers and by both send calls.
TEST(IpcServer, OnlyAFolderOfThisUserOrRootThatOthersCannotWrite)
{
    const std::string keep = std::getenv("ZP_IPC_DIR"), base = keep + "/folders";
    const passwd *nobody = getpwnam("nobody");
    const struct {
        const char *name;
        mode_t mode;  // 0: left for the server to make
        bool others;  // owned by nobody
        zp_sdk_ipc_ret_value want;
    } cases[] = {
        {"made", 0, false, IPC_OK},          {"group", 0770, false, IPC_OK},
        {"loose", 0777, false, IPC_REJECT},  {"loose-sticky", 01777, false, IPC_REJECT},
        {"foreign", 0750, true, IPC_REJECT},
    };
    const mode_t umask_was = umask(077);
    for (const auto &c : cases) {
        const std::string dir = base + "/" + c.name;
        if (c.others && (geteuid() != 0 || nobody == nullptr))
            continue;
        if (c.mode != 0) {
            mkdir(base.c_str(), 0770);
            ASSERT_EQ(mkdir(dir.c_str(), 0700), 0) << dir;
            ASSERT_EQ(chmod(dir.c_str(), c.mode), 0);
            if (c.others) {
                ASSERT_EQ(chown(dir.c_str(), nobody->pw_uid, nobody->pw_gid), 0);
            }
        }
        setenv("ZP_IPC_DIR", dir.c_str(), 1);
        ipc_server_pt srv = nullptr;
        EXPECT_EQ(ipc_server_start(CLI3_ID, ignore, nullptr, &srv), c.want) << c.name;
        ipc_addr_t to;
        ipc_get_addr_by_id(CLI3_ID, 0, &to);
        ipc_msg_head_t req{}, rsp{};
        size_t rsp_len = 0;
        const zp_sdk_ipc_ret_value sent = c.want == IPC_OK ? IPC_OK : IPC_REJECT;
        EXPECT_EQ(ipc_msg_send_asy(&to, &req, 0), sent) << c.name;
        if (c.want != IPC_OK) {
            EXPECT_EQ(ipc_msg_send_syn(&to, &req, 0, 1000, &rsp, &rsp_len), IPC_REJECT) << c.name;
        }
        struct stat st;
        ASSERT_EQ(stat(dir.c_str(), &st), 0);
        if (c.mode == 0) {
            EXPECT_EQ(st.st_mode & 07777, 0770u);
        }
        ipc_server_stop(srv);
        EXPECT_NE(stat(to.addr.sun_path, &st), 0) << c.name << ": no socket left behind";
    }
    umask(umask_was);
    setenv("ZP_IPC_DIR", keep.c_str(), 1);
    EXPECT_EQ(std::system(("rm -rf " + base).c_str()), 0);
}

// A handler in the style of the service: copies each delivered message onto
// a queue for another thread.
void to_queue(void *msg, void *mq)
{
    const size_t n = pb_msg_delivered_size(static_cast<ipc_msg_head_t *>(msg));
    void *copy = mem_malloc_ex(pb_tid16(), kSiteCopy, 0, n);
    std::memcpy(copy, msg, n);
    ipc_mq_send(static_cast<ipc_mq_cb_pt>(mq), copy, 0, 0);
}

TEST(IpcAsync, MessagesToOwnModuleArriveWithTheModuleAsSender)
{
    const struct {
        zp_uint32 preset_type, length, delivered_type;
    } cases[] = {
        {IPC_ASY_MSG, 13216, IPC_ASY_MSG},
        {IPC_SYN_REQ, 8, IPC_ASY_MSG},  // only a response type survives a one-way send
        {IPC_SYN_RSP, 972, IPC_SYN_RSP},
        {IPC_ASY_MSG, 0, IPC_ASY_MSG},
    };
    ipc_mq_cb_pt mq;
    ASSERT_EQ(ipc_mq_create(0, &mq), IPC_OK);
    ipc_server_pt srv = nullptr;
    ASSERT_EQ(ipc_server_start(CLI1_ID, to_queue, mq, &srv), IPC_OK);
    ipc_addr_t me;
    ipc_get_addr_by_id(CLI1_ID, 0, &me);
    for (const auto &c : cases) {
        void *msg = ipc_memory_assign(c.length, 0);
        auto *h = static_cast<ipc_msg_head_t *>(msg);
        *h = {c.preset_type, 0x104000b2, c.length, 0};
        // The buffer has room for a whole delivered message (checked under asan).
        std::memset(pb_msg_payload(msg), 0x3C, pb_msg_delivered_size(h) - IPC_MSG_HEAD_LEN);
        ipc_gen_seesion_id(h);
        ASSERT_EQ(ipc_msg_send_asy(&me, msg, c.length), IPC_OK);

        void *got = nullptr;
        ASSERT_EQ(ipc_mq_recv(mq, &got, 2000), IPC_OK);
        const auto *gh = static_cast<ipc_msg_head_t *>(got);
        EXPECT_EQ(gh->msg_type, c.delivered_type);
        EXPECT_EQ(gh->session_id, h->session_id);
        ASSERT_EQ(gh->length, c.length);
        EXPECT_EQ(std::memcmp(pb_msg_payload(got), pb_msg_payload(msg), c.length), 0);
        EXPECT_STREQ(pb_msg_sender(got)->addr.sun_path, me.addr.sun_path);
        mem_free_ex(pb_tid16(), 0, 0, got);
        mem_free_ex(pb_tid16(), 0, 0, msg);
    }
    ipc_server_stop(srv);
    ipc_mq_destroy(mq);
    EXPECT_EQ(mem_live_blocks(kSiteCopy), 0);
    EXPECT_EQ(mem_live_blocks(IPC_MEM_SITE_ASSIGN), 0);
}

void *tagged(zp_uint32 tag)
{
    auto *p = static_cast<zp_uint32 *>(mem_malloc_ex(pb_tid16(), kSiteCopy, 0, sizeof(tag)));
    *p = tag;
    return p;
}

TEST(IpcMq, KeepsEachProducersOrder)
{
    ipc_mq_cb_pt mq;
    ASSERT_EQ(ipc_mq_create(0, &mq), IPC_OK);
    std::vector<std::thread> producers;
    for (zp_uint32 t = 0; t < 3; ++t)
        producers.emplace_back([mq, t] {
            for (zp_uint32 i = 0; i < 300; ++i) {
                void *m = tagged(t << 16 | i);
                while (ipc_mq_send(mq, m, 0, 0) == IPC_MQ_FULL)
                    std::this_thread::yield();
            }
        });
    zp_uint32 next[3] = {0, 0, 0};
    for (int n = 0; n < 900; ++n) {
        void *m = nullptr;
        ASSERT_EQ(ipc_mq_recv(mq, &m, 5000), IPC_OK);
        const zp_uint32 tag = *static_cast<zp_uint32 *>(m);
        EXPECT_EQ(tag & 0xFFFF, next[tag >> 16]++);
        mem_free_ex(pb_tid16(), 0, 0, m);
    }
    for (auto &p : producers)
        p.join();
    ipc_mq_destroy(mq);
}

// A queue nobody empties stops growing: past its depth a send is refused
// and the message stays the sender's. A receive waits as long as it is told,
// takes a message sent later when told to wait for ever, and destroying the
// queue gives back what is still on it.
TEST(IpcMq, DepthTimeLimitsAndTeardown)
{
    ipc_mq_cb_pt mq;
    ASSERT_EQ(ipc_mq_create(0, &mq), IPC_OK);
    for (zp_uint32 i = 0; i < IPC_MQ_MAX_DEPTH; ++i)
        ASSERT_EQ(ipc_mq_send(mq, tagged(i), 0, 0), IPC_OK);
    void *m = tagged(IPC_MQ_MAX_DEPTH);
    EXPECT_EQ(ipc_mq_send(mq, m, 0, 0), IPC_MQ_FULL);
    EXPECT_EQ(mem_live_blocks(kSiteCopy), static_cast<long>(IPC_MQ_MAX_DEPTH) + 1);
    mem_free_ex(pb_tid16(), 0, 0, m);
    ipc_mq_destroy(mq);
    EXPECT_EQ(mem_live_blocks(kSiteCopy), 0);

    ASSERT_EQ(ipc_mq_create(0, &mq), IPC_OK);
    m = &mq;
    EXPECT_EQ(ipc_mq_recv(mq, &m, 0), IPC_MQ_EMPTY);
    const auto t0 = Clock::now();
    EXPECT_EQ(ipc_mq_recv(mq, &m, 60), IPC_TIMEOUT);
    EXPECT_GE(Clock::now() - t0, std::chrono::milliseconds(60));
    EXPECT_EQ(m, nullptr);
    zp_sdk_ipc_ret_value rc = IPC_SYS_ERR;
    std::thread waiter([&] { rc = ipc_mq_recv(mq, &m, -1); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_EQ(ipc_mq_send(mq, tagged(7), 0, 0), IPC_OK);
    waiter.join();
    ASSERT_EQ(rc, IPC_OK);
    EXPECT_EQ(*static_cast<zp_uint32 *>(m), 7u);
    mem_free_ex(pb_tid16(), 0, 0, m);
    ASSERT_EQ(ipc_mq_send(mq, tagged(8), 0, 0), IPC_OK);
    ipc_mq_destroy(mq);
    EXPECT_EQ(mem_live_blocks(kSiteCopy), 0);
}

}  // namespace
