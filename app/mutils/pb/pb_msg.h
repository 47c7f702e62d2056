/*
 * pb_msg.h - where the parts of a phonebook IPC message sit (internal).
 *
 * A message is the 16-byte head, the payload, and on a delivered message the
 * sender's ipc_addr_t at 16 + length rounded up to a multiple of 4. The
 * payload sits at offset 16, or at 8 when msg_type is IPC_INNER_MQ, which
 * also carries no sender address. Every reader and writer of phonebook
 * messages goes through these helpers, and every sender builds its message
 * in a pb_ipc_msg.
 */
#ifndef PB_MSG_H
#define PB_MSG_H

#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

#include <cstring>

#include "zp_ipc.h"
#include "zpt_ui_pb_api.h"

constexpr size_t pb_msg_round4(size_t len) { return (len + 3u) & ~static_cast<size_t>(3u); }

inline size_t pb_msg_payload_offset(const ipc_msg_head_t *head)
{
    return head->msg_type == IPC_INNER_MQ ? IPC_INNER_MQ_PAYLOAD_OFFSET : IPC_MSG_HEAD_LEN;
}

inline zp_uint8 *pb_msg_payload(void *msg)
{
    return static_cast<zp_uint8 *>(msg) + pb_msg_payload_offset(static_cast<const ipc_msg_head_t *>(msg));
}

inline const zp_uint8 *pb_msg_payload(const void *msg)
{
    return static_cast<const zp_uint8 *>(msg) +
           pb_msg_payload_offset(static_cast<const ipc_msg_head_t *>(msg));
}

/* The sender's address of a delivered message; null for IPC_INNER_MQ. */
inline const ipc_addr_t *pb_msg_sender(const void *msg)
{
    const auto *head = static_cast<const ipc_msg_head_t *>(msg);
    if (head->msg_type == IPC_INNER_MQ)
        return nullptr;
    return reinterpret_cast<const ipc_addr_t *>(static_cast<const zp_uint8 *>(msg) + IPC_MSG_HEAD_LEN +
                                                pb_msg_round4(head->length));
}

/* The entry an edit request is meant for rides at the start of any_idx,
 * which an edit does not otherwise use. */
static_assert(sizeof(pb_flash_info) <= sizeof(pb_event_req_t::any_idx), "seen entry fits");

inline void pb_req_set_seen(pb_event_req_t *req, const pb_flash_info *seen)
{
    std::memcpy(req->any_idx, seen, sizeof *seen);
}

inline pb_flash_info pb_req_seen(const pb_event_req_t *req)
{
    pb_flash_info seen;
    std::memcpy(&seen, req->any_idx, sizeof seen);
    seen.name[PB_TEXT_LEN - 1] = '\0';
    seen.num[PB_TEXT_LEN - 1] = '\0';
    return seen;
}

/* Bytes of a delivered message: head, padded payload and sender address. */
inline size_t pb_msg_delivered_size(const ipc_msg_head_t *head)
{
    return IPC_MSG_HEAD_LEN + pb_msg_round4(head->length) + sizeof(ipc_addr_t);
}

/* The calling thread's kernel id cut to 16 bits, as the memory library wants. */
inline zp_uint16 pb_tid16() { return static_cast<zp_uint16>(syscall(SYS_gettid)); }

/* An outgoing message in a buffer of the IPC library, given back (under the
 * call site `site`) when the owner goes. The head is zero but for msg_id
 * and length = len; the payload is a copy of the len bytes at data, or
 * zero bytes when data is null. get() is null when memory is out. */
class pb_ipc_msg {
public:
    pb_ipc_msg(zp_uint32 msg_id, const void *data, size_t len, zp_uint16 site);
    ~pb_ipc_msg();
    pb_ipc_msg(const pb_ipc_msg &) = delete;
    pb_ipc_msg &operator=(const pb_ipc_msg &) = delete;

    void *get() const { return p_; }
    ipc_msg_head_t *head() const { return static_cast<ipc_msg_head_t *>(p_); }

private:
    void *p_;
    zp_uint16 site_;
};

/* Zeroes *addr and fills it with the socket address of module dest_id;
 * false, logged for `caller`, when the library gives none. */
bool pb_ipc_addr_of(zp_uint32 dest_id, ipc_addr_t *addr, const char *caller);

/* Call-site numbers for the memory library, one range per source file. */
enum : zp_uint16 {
    PB_SITE_CLIENT = 0x0300,  /* zpt_ui_pb_api client calls: 0x0300..0x03FF */
    PB_SITE_SERVICE = 0x0200, /* mm_pb: 0x0200..0x02FF */
    PB_SITE_QMI = 0x0400,     /* pb_qmi: 0x0400..0x04FF */
};

#endif /* PB_MSG_H */
