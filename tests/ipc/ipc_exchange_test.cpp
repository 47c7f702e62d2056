// Exchanges between this process and a responder process over the module
// sockets: what a client of the phonebook service relies on.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include "ipc_peer.h"
#include "pb_msg.h"
#include "zp_mem.h"

namespace {

constexpr zp_uint16 kSiteAssign = PB_SITE_IPC_BUFFER;

struct Result {
    zp_sdk_ipc_ret_value rc;
    ipc_msg_head_t head;
    std::vector<zp_uint8> payload;
    zp_uint32 session;
};

Result exchange(zp_uint32 msg_id, const std::vector<zp_uint8> &payload, size_t room, zp_uint32 timeout_ms)
{
    ipc_addr_t to;
    EXPECT_EQ(ipc_get_addr_by_id(MU_ID, 0, &to), IPC_OK);
    void *req = ipc_memory_assign(static_cast<zp_uint32>(payload.size()), 0);
    void *rsp = ipc_memory_assign(static_cast<zp_uint32>(room), 0);
    auto *h = static_cast<ipc_msg_head_t *>(req);
    h->msg_id = msg_id;
    h->length = static_cast<zp_uint32>(payload.size());
    ipc_gen_seesion_id(h);
    if (!payload.empty())
        std::memcpy(pb_msg_payload(req), payload.data(), payload.size());
    size_t rsp_len = room;
    Result r{};
    r.session = h->session_id;
    r.rc = ipc_msg_send_syn(&to, req, h->length, timeout_ms, rsp, &rsp_len);
    std::memcpy(&r.head, rsp, sizeof(r.head));
    const zp_uint8 *p = pb_msg_payload(rsp);
    if (r.rc == IPC_OK)
        r.payload.assign(p, p + rsp_len);
    mem_free_ex(pb_tid16(), 0, 0, req);
    mem_free_ex(pb_tid16(), 0, 0, rsp);
    return r;
}

std::vector<zp_uint8> pattern(size_t n, unsigned seed)
{
    std::vector<zp_uint8> v(n);
    for (size_t i = 0; i < n; ++i)
        v[i] = static_cast<zp_uint8>(i * 7 + seed);
    return v;
}

std::vector<zp_uint8> inverted(std::vector<zp_uint8> v)
{
    for (auto &b : v)
        b = static_cast<zp_uint8>(~b);
    return v;
}

class IpcExchange : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(peer_.running()); }
    void TearDown() override
    {
        EXPECT_EQ(peer_.finish(), 0) << "responder failed or kept IPC buffers";
        EXPECT_EQ(mem_live_blocks(kSiteAssign), 0);
    }
    Peer peer_;
};

class IpcSyncSizes : public IpcExchange, public testing::WithParamInterface<size_t> {};

TEST_P(IpcSyncSizes, PayloadCrossesBothWaysWithTheRequestSession)
{
    const auto sent = pattern(GetParam(), 3);
    const Result r = exchange(kEcho, sent, GetParam(), 2000);
    ASSERT_EQ(r.rc, IPC_OK);
    EXPECT_EQ(r.head.msg_type, static_cast<zp_uint32>(IPC_SYN_RSP));
    EXPECT_EQ(r.head.msg_id, static_cast<zp_uint32>(kAnswer));
    EXPECT_EQ(r.head.session_id, r.session);
    EXPECT_EQ(r.head.length, GetParam());
    EXPECT_EQ(r.payload, inverted(sent));
}

INSTANTIATE_TEST_SUITE_P(PhonebookSizes, IpcSyncSizes, testing::Values(972u, 8u, 13216u));

// The caller's room bounds the write even when the answer is longer.
TEST_F(IpcExchange, AnswerLongerThanRoomIsCutAtTheRoom)
{
    ipc_addr_t to;
    ipc_get_addr_by_id(MU_ID, 0, &to);
    auto sent = pattern(972, 1);
    std::vector<zp_uint8> req(IPC_MSG_HEAD_LEN + sent.size());
    auto *h = reinterpret_cast<ipc_msg_head_t *>(req.data());
    h->msg_id = kEcho;
    std::memcpy(req.data() + IPC_MSG_HEAD_LEN, sent.data(), sent.size());
    std::vector<zp_uint8> rsp(IPC_MSG_HEAD_LEN + 8 + 64, 0xEE);
    size_t rsp_len = 8;
    ASSERT_EQ(ipc_msg_send_syn(&to, req.data(), 972, 2000, rsp.data(), &rsp_len), IPC_OK);
    EXPECT_EQ(rsp_len, 8u);
    EXPECT_EQ(reinterpret_cast<ipc_msg_head_t *>(rsp.data())->length, 8u);
    const auto want = inverted(sent);
    EXPECT_EQ(std::vector<zp_uint8>(rsp.begin() + 16, rsp.begin() + 24),
              std::vector<zp_uint8>(want.begin(), want.begin() + 8));
    for (size_t i = IPC_MSG_HEAD_LEN + 8; i < rsp.size(); ++i)
        ASSERT_EQ(rsp[i], 0xEE) << "written past the room at " << i;
}

TEST_F(IpcExchange, LateAnswerIsNotTakenForTheNextExchange)
{
    std::vector<zp_uint8> slow(8, 0);
    const zp_uint32 delay_ms = 300;
    std::memcpy(slow.data(), &delay_ms, sizeof(delay_ms));
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(exchange(kSlow, slow, 8, 100).rc, IPC_TIMEOUT);
    const auto waited = std::chrono::steady_clock::now() - t0;
    EXPECT_GE(waited, std::chrono::milliseconds(100));
    EXPECT_LT(waited, std::chrono::milliseconds(300));

    // The slow answer reaches the reply socket before this one's.
    const auto sent = pattern(8, 42);
    const Result r = exchange(kEcho, sent, 8, 2000);
    ASSERT_EQ(r.rc, IPC_OK);
    EXPECT_EQ(r.head.session_id, r.session);
    EXPECT_EQ(r.payload, inverted(sent));
}

TEST_F(IpcExchange, ConcurrentThreadsEachGetTheirOwnAnswer)
{
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (unsigned t = 0; t < 4; ++t)
        threads.emplace_back([t, &wrong] {
            for (unsigned i = 0; i < 25; ++i) {
                const auto sent = pattern(972, t * 31 + i);
                const Result r = exchange(kEcho, sent, 972, 5000);
                if (r.rc != IPC_OK || r.head.session_id != r.session || r.payload != inverted(sent))
                    ++wrong;
            }
        });
    for (auto &th : threads)
        th.join();
    EXPECT_EQ(wrong.load(), 0);
}

TEST_F(IpcExchange, SessionIdsDifferBetweenProcesses)
{
    const Result r = exchange(kIds, {}, 256, 2000);
    ASSERT_EQ(r.rc, IPC_OK);
    ASSERT_EQ(r.payload.size(), 256u);
    std::set<zp_uint32> ids;
    for (size_t i = 0; i < 64; ++i) {
        zp_uint32 id;
        std::memcpy(&id, r.payload.data() + 4 * i, 4);
        ids.insert(id);
        ipc_msg_head_t h{};
        ipc_gen_seesion_id(&h);
        ids.insert(h.session_id);
    }
    EXPECT_EQ(ids.size(), 128u);
    EXPECT_EQ(ids.count(0), 0u);
}

struct Malformed {
    const char *what;
    std::vector<zp_uint8> bytes;
};

std::vector<zp_uint8> datagram(zp_uint32 type, zp_uint32 length, size_t payload)
{
    std::vector<zp_uint8> d(IPC_MSG_HEAD_LEN + payload, 0x5A);
    const ipc_msg_head_t h{type, kEcho, length, 7};
    std::memcpy(d.data(), &h, sizeof(h));
    return d;
}

// Bad datagrams sent straight to the socket never reach the handler, and the
// server stays up to answer afterwards.
TEST_F(IpcExchange, MalformedDatagramsAreDroppedWithoutReachingTheHandler)
{
    const Malformed cases[] = {
        {"empty", {}},
        {"short head", std::vector<zp_uint8>(10, 1)},
        {"length beyond what arrived", datagram(IPC_ASY_MSG, 100, 20)},
        {"length short of what arrived", datagram(IPC_SYN_REQ, 4, 8)},
        {"queue-only type", datagram(IPC_INNER_MQ, 8, 8)},
        {"unknown type", datagram(9, 8, 8)},
        {"oversized", datagram(IPC_ASY_MSG, IPC_MSG_MAX_PAYLOAD + 1, IPC_MSG_MAX_PAYLOAD + 1)},
        {"huge length field", datagram(IPC_ASY_MSG, 0xFFFFFFF0u, 8)},
    };
    ipc_addr_t to;
    ipc_get_addr_by_id(MU_ID, 0, &to);
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    ASSERT_GE(fd, 0);
    for (const auto &c : cases)
        ASSERT_EQ(sendto(fd, c.bytes.data(), c.bytes.size(), 0, reinterpret_cast<sockaddr *>(&to.addr),
                         sizeof(to.addr)),
                  static_cast<ssize_t>(c.bytes.size()))
            << c.what;
    close(fd);
    const Result r = exchange(kCount, {}, 8, 2000);
    ASSERT_EQ(r.rc, IPC_OK);
    zp_uint32 counts[2];
    std::memcpy(counts, r.payload.data(), sizeof(counts));
    EXPECT_EQ(counts[0], 0u) << "a malformed datagram reached the handler";
    EXPECT_EQ(counts[1], 0u) << "a request arrived without its reply address";
}

}  // namespace
