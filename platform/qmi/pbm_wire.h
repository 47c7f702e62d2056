/*
 * pbm_wire.h - how the host QMI transport carries PBM messages (internal to
 * the client library and the modem simulator).
 *
 * A frame is one datagram on a local SOCK_SEQPACKET socket: an 8-byte head
 * (kind, 0, transaction, message id, TLV length; little-endian) and the TLVs.
 * A TLV is type (1 byte), length (2 bytes LE), value. Types below 0x10 are
 * mandatory, 0x10 and up optional; the response TLV is 0x02 (result and
 * error, 2 bytes each). Integers are little-endian, enums 4 bytes signed,
 * text a 1-byte length then the bytes. The decoders check every length and
 * count against the C structure and fail instead of overrunning; unknown
 * optional TLVs are skipped. Pure functions, no state, any thread.
 */
#ifndef PBM_WIRE_H
#define PBM_WIRE_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "phonebook_manager_service_v01.h"

namespace qmi_wire {

enum Kind : uint8_t { KIND_REQUEST = 0, KIND_RESPONSE = 1, KIND_INDICATION = 2 };

constexpr size_t FRAME_HEAD_LEN = 8;
constexpr size_t FRAME_MAX = 8192;

struct FrameHead {
    uint8_t kind;
    uint16_t txn;
    uint16_t msg_id;
    uint16_t tlv_len;
};

void put_head(uint8_t *out, const FrameHead &head);
/* false when the datagram is shorter than its head or than the TLV length. */
bool get_head(const uint8_t *in, size_t len, FrameHead *head);

/* The size of the C structure of (kind, msg_id); false when unknown. */
bool c_struct_len(int kind, uint16_t msg_id, uint32_t *len);

/* C structure to TLVs, appended to out. A QMI_IDL_LIB_* result. */
int encode(int kind, uint16_t msg_id, const void *c_struct, size_t c_len, std::vector<uint8_t> &out);

/* TLVs to C structure (zeroed first). A QMI_IDL_LIB_* result. */
int decode(int kind, uint16_t msg_id, const uint8_t *tlv, size_t tlv_len, void *c_struct, size_t c_len);

}  // namespace qmi_wire

#endif /* PBM_WIRE_H */
