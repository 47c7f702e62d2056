// The library within one process: addresses, buffers, sending to oneself,
// the receiving side's life cycle, and the in-process queue.
#include <gtest/gtest.h>

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
#include "zp_mem.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr zp_uint16 kSiteAssign = PB_SITE_IPC_BUFFER;
constexpr zp_uint16 kSiteCopy = 0x0E00;

TEST(IpcAddr, RejectsBadIdsAndFoldersTooLongForASocketPath)
{
    ipc_addr_t a;
    EXPECT_EQ(ipc_get_addr_by_id(MAX_ID, 0, &a), IPC_INVALID_PARA);
    EXPECT_EQ(ipc_get_addr_by_id(MU_ID, 0, nullptr), IPC_INVALID_PARA);
    const char *saved = std::getenv("ZP_IPC_DIR");
    const std::string keep = saved ? saved : "";
    setenv("ZP_IPC_DIR", std::string(120, 'd').c_str(), 1);
    EXPECT_EQ(ipc_get_addr_by_id(MU_ID, 0, &a), IPC_INVALID_PARA);
    ipc_server_pt srv = nullptr;
    EXPECT_EQ(ipc_server_start(MU_ID, [](void *, void *) {}, nullptr, &srv), IPC_INVALID_PARA);
    EXPECT_EQ(srv, nullptr);
    setenv("ZP_IPC_DIR", keep.c_str(), 1);
    // A zeroed address names no socket.
    ipc_addr_t none{};
    ipc_msg_head_t h{};
    EXPECT_EQ(ipc_msg_send_asy(&none, &h, 0), IPC_INVALID_PARA);
}

TEST(IpcAddr, MissingOrDeadModuleSocketIsNotFound)
{
    ipc_addr_t a;
    ASSERT_EQ(ipc_get_addr_by_id(CLI3_ID, 0, &a), IPC_OK);
    ipc_server_pt srv = nullptr;
    ASSERT_EQ(ipc_server_start(CLI3_ID, [](void *, void *) {}, nullptr, &srv), IPC_OK);
    ipc_server_stop(srv);  // makes the folder, leaves no socket
    // A socket file whose owner is gone.
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    ipc_addr_t dead;
    ipc_get_addr_by_id(CLI2_ID, 0, &dead);
    unlink(dead.addr.sun_path);
    ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr *>(&dead.addr), sizeof(dead.addr)), 0);
    close(fd);
    for (ipc_addr_t *to : {&a, &dead}) {
        ipc_msg_head_t req{};
        ipc_msg_head_t rsp{};
        size_t rsp_len = 0;
        EXPECT_EQ(ipc_msg_send_asy(to, &req, 0), IPC_NOT_FOUND) << to->addr.sun_path;
        EXPECT_EQ(ipc_msg_send_syn(to, &req, 0, 1000, &rsp, &rsp_len), IPC_NOT_FOUND) << to->addr.sun_path;
    }
    // The receiving side takes over the dead one's file.
    ASSERT_EQ(ipc_server_start(CLI2_ID, [](void *, void *) {}, nullptr, &srv), IPC_OK);
    ipc_server_stop(srv);
}

TEST(IpcMemory, BufferHoldsAWholeDeliveredMessageAndIsCounted)
{
    for (zp_uint32 len : {0u, 8u, 13u, 972u, 13216u}) {
        auto *p = static_cast<zp_uint8 *>(ipc_memory_assign(len, 0));
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(mem_live_blocks(kSiteAssign), 1);
        EXPECT_EQ(p[0], 0);
        ipc_msg_head_t h{IPC_ASY_MSG, 0, len, 0};
        std::memset(p, 0xA5, pb_msg_delivered_size(&h));  // out of bounds shows under the address sanitizer
        mem_free_ex(pb_tid16(), 0, 0, p);
    }
    EXPECT_EQ(ipc_memory_assign(IPC_MSG_MAX_PAYLOAD + 1, 0), nullptr);
    EXPECT_EQ(mem_live_blocks(kSiteAssign), 0);
}

struct Positions {
    zp_uint32 type;
    zp_uint32 length;
    size_t payload_at;
    long sender_at;  // -1: none
};

TEST(PbMsg, PayloadAndSenderPositions)
{
    const Positions cases[] = {
        {IPC_SYN_REQ, 972, 16, 988},     {IPC_SYN_RSP, 8, 16, 24},  {IPC_ASY_MSG, 13216, 16, 16 + 13216},
        {IPC_ASY_MSG, 13, 16, 16 + 16}, {IPC_INNER_MQ, 8, 8, -1},
    };
    for (const auto &c : cases) {
        std::vector<zp_uint8> buf(IPC_MSG_HEAD_LEN + c.length + 4 + sizeof(ipc_addr_t));
        const ipc_msg_head_t h{c.type, 0, c.length, 0};
        std::memcpy(buf.data(), &h, sizeof(h));
        EXPECT_EQ(pb_msg_payload(buf.data()) - buf.data(), static_cast<long>(c.payload_at)) << c.length;
        const auto *sender = reinterpret_cast<const zp_uint8 *>(pb_msg_sender(buf.data()));
        EXPECT_EQ(sender == nullptr ? -1 : sender - buf.data(), c.sender_at) << c.length;
    }
}

// A handler in the style of the service: copies each delivered message onto
// a queue for another thread.
struct Inbox {
    ipc_mq_cb_pt mq = nullptr;
    static void deliver(void *msg, void *ctx)
    {
        const size_t n = pb_msg_delivered_size(static_cast<ipc_msg_head_t *>(msg));
        void *copy = mem_malloc_ex(pb_tid16(), kSiteCopy, 0, n);
        std::memcpy(copy, msg, n);
        ipc_mq_send(static_cast<Inbox *>(ctx)->mq, copy, 0, 0);
    }
};

struct SelfSend {
    zp_uint32 preset_type;
    zp_uint32 length;
    zp_uint32 delivered_type;
};

TEST(IpcAsync, MessagesToOwnModuleArriveWithTheModuleAsSender)
{
    const SelfSend cases[] = {
        {IPC_ASY_MSG, 13216, IPC_ASY_MSG},
        {IPC_SYN_REQ, 8, IPC_ASY_MSG},   // only a response type survives a one-way send
        {IPC_SYN_RSP, 972, IPC_SYN_RSP},
        {IPC_ASY_MSG, 0, IPC_ASY_MSG},
    };
    Inbox inbox;
    ASSERT_EQ(ipc_mq_create(0, &inbox.mq), IPC_OK);
    ipc_server_pt srv = nullptr;
    ASSERT_EQ(ipc_server_start(CLI1_ID, Inbox::deliver, &inbox, &srv), IPC_OK);
    ipc_addr_t me;
    ipc_get_addr_by_id(CLI1_ID, 0, &me);
    for (const auto &c : cases) {
        void *msg = ipc_memory_assign(c.length, 0);
        auto *h = static_cast<ipc_msg_head_t *>(msg);
        h->msg_type = c.preset_type;
        h->msg_id = 0x104000b2;
        h->length = c.length;
        ipc_gen_seesion_id(h);
        for (zp_uint32 i = 0; i < c.length; ++i)
            pb_msg_payload(msg)[i] = static_cast<zp_uint8>(i);
        ASSERT_EQ(ipc_msg_send_asy(&me, msg, c.length), IPC_OK);

        void *got = nullptr;
        ASSERT_EQ(ipc_mq_recv(inbox.mq, &got, 2000), IPC_OK);
        const auto *gh = static_cast<ipc_msg_head_t *>(got);
        EXPECT_EQ(gh->msg_type, c.delivered_type);
        EXPECT_EQ(gh->msg_id, 0x104000b2u);
        EXPECT_EQ(gh->session_id, h->session_id);
        ASSERT_EQ(gh->length, c.length);
        EXPECT_EQ(std::memcmp(pb_msg_payload(got), pb_msg_payload(msg), c.length), 0);
        EXPECT_STREQ(pb_msg_sender(got)->addr.sun_path, me.addr.sun_path);
        mem_free_ex(pb_tid16(), 0, 0, got);
        mem_free_ex(pb_tid16(), 0, 0, msg);
    }
    ipc_server_stop(srv);
    ipc_mq_destroy(inbox.mq);
    EXPECT_EQ(mem_live_blocks(kSiteCopy), 0);
    EXPECT_EQ(mem_live_blocks(kSiteAssign), 0);
}

TEST(IpcServer, OneServerPerModuleSocketModeAndPromptStop)
{
    ipc_server_pt srv = nullptr, second = nullptr;
    ASSERT_EQ(ipc_server_start(CLI2_ID, [](void *, void *) {}, nullptr, &srv), IPC_OK);
    EXPECT_EQ(ipc_server_start(CLI2_ID, [](void *, void *) {}, nullptr, &second), IPC_REJECT);
    EXPECT_EQ(second, nullptr);
    ipc_addr_t a;
    ipc_get_addr_by_id(CLI2_ID, 0, &a);
    struct stat st;
    ASSERT_EQ(stat(a.addr.sun_path, &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0660u);
    const auto t0 = Clock::now();
    ipc_server_stop(srv);
    EXPECT_LT(Clock::now() - t0, std::chrono::milliseconds(200));
    EXPECT_NE(stat(a.addr.sun_path, &st), 0);
    EXPECT_EQ(mem_live_total(), 0);
}

// The in-process queue.

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
    constexpr zp_uint32 kPerProducer = 300;
    std::vector<std::thread> producers;
    for (zp_uint32 t = 0; t < 3; ++t)
        producers.emplace_back([mq, t] {
            for (zp_uint32 i = 0; i < kPerProducer; ++i)
                ASSERT_EQ(ipc_mq_send(mq, tagged(t << 16 | i), 0, 0), IPC_OK);
        });
    zp_uint32 next[3] = {0, 0, 0};
    for (zp_uint32 n = 0; n < 3 * kPerProducer; ++n) {
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

TEST(IpcMq, TimeLimits)
{
    ipc_mq_cb_pt mq;
    ASSERT_EQ(ipc_mq_create(0, &mq), IPC_OK);
    const struct {
        zp_int32 timeout;
        zp_sdk_ipc_ret_value rc;
        long min_ms, max_ms;
    } cases[] = {{0, IPC_MQ_EMPTY, 0, 50}, {60, IPC_TIMEOUT, 60, 1000}};
    for (const auto &c : cases) {
        void *m = &mq;
        const auto t0 = Clock::now();
        EXPECT_EQ(ipc_mq_recv(mq, &m, c.timeout), c.rc);
        const long ms = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t0).count();
        EXPECT_GE(ms, c.min_ms);
        EXPECT_LE(ms, c.max_ms);
        EXPECT_EQ(m, nullptr);
    }
    EXPECT_EQ(ipc_mq_send(mq, nullptr, 0, 0), IPC_INVALID_PARA);
    ipc_mq_destroy(mq);
}

TEST(IpcMq, WakeReleasesAReceiverWaitingForEverAndLeavesMessagesQueued)
{
    ipc_mq_cb_pt mq;
    ASSERT_EQ(ipc_mq_create(0, &mq), IPC_OK);
    zp_sdk_ipc_ret_value rc = IPC_OK;
    void *m = &mq;
    std::thread waiter([&] { rc = ipc_mq_recv(mq, &m, -1); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_EQ(ipc_mq_wake(mq), IPC_OK);
    waiter.join();
    EXPECT_EQ(rc, IPC_MQ_EMPTY);
    EXPECT_EQ(m, nullptr);

    // A wake-up given before the receive is served first; the message stays.
    ASSERT_EQ(ipc_mq_send(mq, tagged(7), 0, 0), IPC_OK);
    ASSERT_EQ(ipc_mq_wake(mq), IPC_OK);
    EXPECT_EQ(ipc_mq_recv(mq, &m, -1), IPC_MQ_EMPTY);
    // Destroying the queue gives back what is still on it.
    ipc_mq_destroy(mq);
    EXPECT_EQ(mem_live_blocks(kSiteCopy), 0);
}

}  // namespace
