// Encoding and decoding of the PBM messages on the host transport: one walk
// over the fields of each message body, which the encoder and the decoder
// both run, a TLV splitter, and one table that names, for each (kind,
// message id), its C structure's size and its walk. A pair missing from the
// table is an unknown message.
#include "pbm_wire.h"

#include <cstring>
#include <type_traits>

namespace qmi_wire {
namespace {

constexpr uint8_t kTlvFirstOptional = 0x10;
constexpr uint8_t kTlvResult = 0x02;
constexpr uint8_t kTlvMain = 0x01;

// The two sides of a walk. A walk names each field with its width on the
// wire; the Writer appends it, the Reader reads it into the field. Counts
// and texts are checked against their arrays on both sides
// (QMI_IDL_LIB_ARRAY_TOO_BIG); the first error sticks and ends the work.

class Writer {
public:
    explicit Writer(std::vector<uint8_t> &out) : out_(out) {}
    template <typename V> void u8(const V &v) { put(static_cast<uint8_t>(v), 1); }
    template <typename V> void u16(const V &v) { put(static_cast<uint16_t>(v), 2); }
    template <typename V> void i32(const V &v) { put(static_cast<uint32_t>(static_cast<int32_t>(v)), 4); }
    template <typename V> void u64(const V &v) { put(static_cast<uint64_t>(v), 8); }
    /* A count of at most `bound` elements; how many to walk. */
    uint32_t count(const uint32_t &n, uint32_t bound)
    {
        if (n > bound) {
            fail(QMI_IDL_LIB_ARRAY_TOO_BIG);
            return 0;
        }
        put(n, 1);
        return n;
    }
    template <size_t N> void text(const char (&a)[N], const uint32_t &n)
    {
        if (count(n, N) == n)
            out_.insert(out_.end(), a, a + n);
    }
    size_t open(uint8_t type)
    {
        put(type, 1);
        put(0, 2);
        return out_.size();
    }
    void close(size_t start)
    {
        const size_t n = out_.size() - start;
        out_[start - 2] = static_cast<uint8_t>(n);
        out_[start - 1] = static_cast<uint8_t>(n >> 8);
    }
    void fail(int code)
    {
        if (!err_)
            err_ = code;
    }
    int error() const { return err_; }

private:
    void put(uint64_t v, size_t k)
    {
        for (size_t i = 0; i < k; ++i)
            out_.push_back(static_cast<uint8_t>(v >> (8 * i)));
    }

    std::vector<uint8_t> &out_;
    int err_ = 0;
};

class Reader {
public:
    Reader(const uint8_t *p, size_t n) : p_(p), n_(n) {}
    template <typename V> void u8(V &v) { v = static_cast<V>(get(1)); }
    template <typename V> void u16(V &v) { v = static_cast<V>(get(2)); }
    template <typename V> void i32(V &v) { v = static_cast<V>(static_cast<int32_t>(get(4))); }
    template <typename V> void u64(V &v) { v = static_cast<V>(get(8)); }
    uint32_t count(uint32_t &n, uint32_t bound)
    {
        n = static_cast<uint32_t>(get(1));
        if (n > bound) {
            fail(QMI_IDL_LIB_ARRAY_TOO_BIG);
            n = 0;
        }
        return n;
    }
    template <size_t N> void text(char (&a)[N], uint32_t &n)
    {
        if (count(n, N) == 0)
            return;
        if (err_ || n > n_) {
            fail(QMI_IDL_LIB_LENGTH_INCONSISTENCY);
            return;
        }
        std::memcpy(a, p_, n);
        p_ += n;
        n_ -= n;
    }
    void fail(int code)
    {
        if (!err_)
            err_ = code;
    }
    /* The body was read whole and nothing failed. */
    int finish()
    {
        if (!err_ && n_ != 0)
            fail(QMI_IDL_LIB_LENGTH_INCONSISTENCY);
        return err_;
    }

private:
    /* k bytes, little-endian; 0 once anything failed. */
    uint64_t get(size_t k)
    {
        if (err_ || k > n_) {
            fail(QMI_IDL_LIB_LENGTH_INCONSISTENCY);
            return 0;
        }
        uint64_t v = 0;
        for (size_t i = 0; i < k; ++i)
            v |= static_cast<uint64_t>(p_[i]) << (8 * i);
        p_ += k;
        n_ -= k;
        return v;
    }

    const uint8_t *p_;
    size_t n_;
    int err_ = 0;
};

struct Tlv {
    uint8_t type;
    const uint8_t *value;
    uint16_t len;
};

class TlvSet {
public:
    /* Splits the buffer; mandatory types other than `mandatory_mask` bits are refused. */
    int split(const uint8_t *p, size_t n, uint32_t mandatory_mask)
    {
        while (n > 0) {
            if (n < 3)
                return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
            Tlv t{p[0], p + 3, static_cast<uint16_t>(p[1] | p[2] << 8)};
            if (t.len > n - 3)
                return QMI_IDL_LIB_LENGTH_INCONSISTENCY;
            if (find(t.type))
                return QMI_IDL_LIB_TLV_DUPLICATED;
            if (t.type < kTlvFirstOptional && !(mandatory_mask & (1u << t.type)))
                return QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV;
            tlvs_.push_back(t);
            p += 3 + t.len;
            n -= 3 + t.len;
        }
        return 0;
    }
    const Tlv *find(uint8_t type) const
    {
        for (const Tlv &t : tlvs_)
            if (t.type == type)
                return &t;
        return nullptr;
    }

private:
    std::vector<Tlv> tlvs_;
};

// The TLV level of a walk, writing: each TLV in the walk's order, an
// optional one only when its valid flag is set.
class TlvOut {
public:
    explicit TlvOut(Writer &w) : w_(w) {}
    template <typename F> void mandatory(uint8_t type, F body)
    {
        const size_t s = w_.open(type);
        body(w_);
        w_.close(s);
    }
    template <typename F> void optional(uint8_t type, const uint8_t &valid, F body)
    {
        if (valid)
            mandatory(type, body);
    }
    /* Parts of the structure this transport does not carry: set, they are refused. */
    void not_carried(bool set)
    {
        if (set)
            w_.fail(QMI_IDL_LIB_PARAMETER_ERROR);
    }
    int finish() const { return w_.error(); }

private:
    Writer &w_;
};

// The TLV level of a walk, reading: a mandatory TLV must be there, an
// optional one sets its valid flag when it is there and reads whole. The
// first failing TLV ends the walk.
class TlvIn {
public:
    explicit TlvIn(const TlvSet &set) : set_(set) {}
    template <typename F> void mandatory(uint8_t type, F body)
    {
        if (err_)
            return;
        const Tlv *t = set_.find(type);
        if (!t) {
            err_ = QMI_IDL_LIB_MISSING_TLV;
            return;
        }
        Reader rd(t->value, t->len);
        body(rd);
        err_ = rd.finish();
    }
    template <typename F> void optional(uint8_t type, uint8_t &valid, F body)
    {
        valid = 0;
        if (err_ || !set_.find(type))
            return;
        mandatory(type, body);
        valid = err_ == 0;
    }
    /* The structure starts zeroed and these parts are never read. */
    void not_carried(bool) {}
    int finish() const { return err_; }

private:
    const TlvSet &set_;
    int err_ = 0;
};

// ---- walks of the shared parts; Io is a Writer or a Reader ----

template <typename Tlvs, typename R> void response(Tlvs &t, R &r)
{
    t.mandatory(kTlvResult, [&](auto &io) {
        io.u16(r.result);
        io.u16(r.error);
    });
}

template <typename Io, typename P> void phonebook_info(Io &io, P &p)
{
    io.i32(p.session_type);
    io.u16(p.pb_type);
}

// ---- one walk per message body ----

// 0x0002 get capabilities, 0x0007 delete all: the phonebook alone.
struct PhonebookReq {
    template <typename Tlvs, typename M> static void walk(Tlvs &t, M &m)
    {
        t.mandatory(kTlvMain, [&](auto &io) { phonebook_info(io, m.phonebook_info); });
    }
};

struct CapsResp {
    template <typename Tlvs, typename M> static void walk(Tlvs &t, M &m)
    {
        response(t, m.resp);
        t.optional(0x10, m.capability_basic_info_valid, [&](auto &io) {
            auto &b = m.capability_basic_info;
            phonebook_info(io, b);
            io.u16(b.used_records);
            io.u16(b.max_records);
            io.u8(b.max_num_len);
            io.u8(b.max_name_len);
        });
        t.optional(0x11, m.group_capability_valid, [&](auto &io) {
            io.u8(m.group_capability.max_grp);
            io.u8(m.group_capability.max_grp_tag_len);
        });
        t.optional(0x12, m.ad_num_capability_valid, [&](auto &io) {
            io.u8(m.ad_num_capability.max_ad_num);
            io.u8(m.ad_num_capability.max_ad_num_len);
            io.u8(m.ad_num_capability.max_ad_num_tag_len);
        });
        t.optional(0x13, m.email_capability_valid, [&](auto &io) {
            io.u8(m.email_capability.max_email);
            io.u8(m.email_capability.max_email_len);
        });
        t.optional(0x14, m.max_second_name_len_valid, [&](auto &io) { io.u8(m.max_second_name_len); });
        t.optional(0x15, m.is_hidden_entry_supported_valid,
                   [&](auto &io) { io.u8(m.is_hidden_entry_supported); });
        t.optional(0x16, m.gas_capability_valid, [&](auto &io) {
            io.u8(m.gas_capability.max_records);
            io.u8(m.gas_capability.used_records);
            io.u8(m.gas_capability.max_gas_string_len);
        });
        t.optional(0x17, m.aas_capability_valid, [&](auto &io) {
            io.u8(m.aas_capability.max_records);
            io.u8(m.aas_capability.used_records);
            io.u8(m.aas_capability.max_aas_string_len);
        });
        t.optional(0x18, m.write_access_info_valid, [&](auto &io) {
            io.i32(m.write_access_info.protection_method);
            io.u64(m.write_access_info.pin_mask);
        });
        t.optional(0x19, m.num_pb_sets_valid, [&](auto &io) { io.u16(m.num_pb_sets); });
    }
};

// 0x0004 read records and the record-read indication.
struct ReadReq {
    template <typename Tlvs, typename M> static void walk(Tlvs &t, M &m)
    {
        t.mandatory(kTlvMain, [&](auto &io) {
            phonebook_info(io, m.record_info);
            io.u16(m.record_info.record_start_id);
            io.u16(m.record_info.record_end_id);
        });
    }
};

struct ReadResp {
    template <typename Tlvs, typename M> static void walk(Tlvs &t, M &m)
    {
        response(t, m.resp);
        t.optional(0x10, m.num_of_recs_valid, [&](auto &io) { io.u16(m.num_of_recs); });
    }
};

struct ReadInd {
    template <typename Tlvs, typename M> static void walk(Tlvs &t, M &m)
    {
        t.mandatory(kTlvMain, [&](auto &io) {
            auto &b = m.basic_record_data;
            io.u16(b.seq_num);
            phonebook_info(io, b);
            const uint32_t n = io.count(b.record_instances_len, QMI_PBM_MAX_NUM_BASIC_RECORD_INSTANCE_V01);
            for (uint32_t i = 0; i < n; ++i) {
                auto &rec = b.record_instances[i];
                io.u16(rec.record_id);
                io.i32(rec.num_type);
                io.i32(rec.num_plan);
                io.text(rec.number, rec.number_len);
                io.text(rec.name, rec.name_len);
            }
        });
        t.not_carried(m.sname_info_array_valid || m.ad_num_info_array_valid || m.grp_id_info_array_valid ||
                      m.email_info_array_valid || m.hidden_record_info_array_valid);
    }
};

// 0x0005 write record.
struct WriteReq {
    template <typename Tlvs, typename M> static void walk(Tlvs &t, M &m)
    {
        t.mandatory(kTlvMain, [&](auto &io) {
            auto &ri = m.record_information;
            io.i32(ri.session_type);
            io.u16(ri.phonebook_type);
            io.u16(ri.record_id);
            io.i32(ri.num_type);
            io.i32(ri.num_plan);
            io.text(ri.number, ri.number_len);
            io.text(ri.name, ri.name_len);
        });
        t.not_carried(m.sname_valid || m.ad_num_info_valid || m.grp_id_valid || m.email_info_valid);
        t.optional(0x14, m.is_hidden_valid, [&](auto &io) { io.u8(m.is_hidden); });
    }
};

// 0x0005 write record, 0x0006 delete record: the record's number.
struct RecordIdResp {
    template <typename Tlvs, typename M> static void walk(Tlvs &t, M &m)
    {
        response(t, m.resp);
        t.optional(0x10, m.record_id_valid, [&](auto &io) { io.u16(m.record_id); });
    }
};

// 0x0006 delete record.
struct DeleteReq {
    template <typename Tlvs, typename M> static void walk(Tlvs &t, M &m)
    {
        t.mandatory(kTlvMain, [&](auto &io) {
            phonebook_info(io, m.record_info);
            io.u16(m.record_info.record_id);
        });
    }
};

// 0x0007 delete all.
struct ResultOnly {
    template <typename Tlvs, typename M> static void walk(Tlvs &t, M &m) { response(t, m.resp); }
};

constexpr uint32_t kMainOnly = 1u << kTlvMain;
constexpr uint32_t kResultOnly = 1u << kTlvResult;

// ---- the message table ----

using Encoder = int (*)(const void *c_struct, Writer &w);
using Decoder = int (*)(const TlvSet &set, void *c_struct);

struct Message {
    uint8_t kind;
    uint16_t msg_id;
    uint32_t c_len;
    Encoder encode;
    Decoder decode;
};

// One table row: the C structure T of (kind, msg_id) and the walk over its
// fields by name, so that a row pairing a walk with a structure that lacks
// its fields does not compile.
template <typename T, typename Body> constexpr Message message(uint8_t kind, uint16_t msg_id)
{
    return {kind, msg_id, static_cast<uint32_t>(sizeof(T)),
            [](const void *c, Writer &w) {
                TlvOut t(w);
                Body::walk(t, *static_cast<const T *>(c));
                return t.finish();
            },
            [](const TlvSet &set, void *c) {
                TlvIn t(set);
                Body::walk(t, *static_cast<T *>(c));
                return t.finish();
            }};
}

constexpr Message kMessages[] = {
    message<pbm_get_pb_capabilities_req_msg_v01, PhonebookReq>(KIND_REQUEST,
                                                               QMI_PBM_GET_PB_CAPABILITIES_REQ_V01),
    message<pbm_get_pb_capabilities_resp_msg_v01, CapsResp>(KIND_RESPONSE,
                                                            QMI_PBM_GET_PB_CAPABILITIES_RESP_V01),
    message<pbm_read_records_req_msg_v01, ReadReq>(KIND_REQUEST, QMI_PBM_READ_RECORDS_REQ_V01),
    message<pbm_read_records_resp_msg_v01, ReadResp>(KIND_RESPONSE, QMI_PBM_READ_RECORDS_RESP_V01),
    message<pbm_record_read_ind_msg_v01, ReadInd>(KIND_INDICATION, QMI_PBM_RECORD_READ_IND_V01),
    message<pbm_write_record_req_msg_v01, WriteReq>(KIND_REQUEST, QMI_PBM_WRITE_RECORD_REQ_V01),
    message<pbm_write_record_resp_msg_v01, RecordIdResp>(KIND_RESPONSE, QMI_PBM_WRITE_RECORD_RESP_V01),
    message<pbm_delete_record_req_msg_v01, DeleteReq>(KIND_REQUEST, QMI_PBM_DELETE_RECORD_REQ_V01),
    message<pbm_delete_record_resp_msg_v01, RecordIdResp>(KIND_RESPONSE, QMI_PBM_DELETE_RECORD_RESP_V01),
    message<pbm_delete_all_pb_records_req_msg_v01, PhonebookReq>(KIND_REQUEST,
                                                                 QMI_PBM_DELETE_ALL_PB_RECORDS_REQ_V01),
    message<pbm_delete_all_pb_records_resp_msg_v01, ResultOnly>(KIND_RESPONSE,
                                                                QMI_PBM_DELETE_ALL_PB_RECORDS_RESP_V01),
};

// A (kind, message id) pair names one row at most: a second row would never
// be reached.
constexpr bool each_message_once()
{
    constexpr size_t kRows = sizeof kMessages / sizeof kMessages[0];
    for (size_t i = 0; i < kRows; ++i)
        for (size_t j = i + 1; j < kRows; ++j)
            if (kMessages[i].kind == kMessages[j].kind && kMessages[i].msg_id == kMessages[j].msg_id)
                return false;
    return true;
}
static_assert(each_message_once(), "a (kind, message id) pair appears twice in the message table");

const Message *find_message(int kind, uint16_t msg_id)
{
    for (const Message &m : kMessages)
        if (m.kind == kind && m.msg_id == msg_id)
            return &m;
    return nullptr;
}

}  // namespace

void put_head(uint8_t *out, const FrameHead &head)
{
    out[0] = head.kind;
    out[1] = 0;
    out[2] = static_cast<uint8_t>(head.txn);
    out[3] = static_cast<uint8_t>(head.txn >> 8);
    out[4] = static_cast<uint8_t>(head.msg_id);
    out[5] = static_cast<uint8_t>(head.msg_id >> 8);
    out[6] = static_cast<uint8_t>(head.tlv_len);
    out[7] = static_cast<uint8_t>(head.tlv_len >> 8);
}

bool get_head(const uint8_t *in, size_t len, FrameHead *head)
{
    if (len < FRAME_HEAD_LEN)
        return false;
    head->kind = in[0];
    head->txn = static_cast<uint16_t>(in[2] | in[3] << 8);
    head->msg_id = static_cast<uint16_t>(in[4] | in[5] << 8);
    head->tlv_len = static_cast<uint16_t>(in[6] | in[7] << 8);
    return head->kind <= KIND_INDICATION && head->tlv_len == len - FRAME_HEAD_LEN;
}

bool c_struct_len(int kind, uint16_t msg_id, uint32_t *len)
{
    const Message *m = find_message(kind, msg_id);
    if (!m)
        return false;
    *len = m->c_len;
    return true;
}

int encode(int kind, uint16_t msg_id, const void *c, size_t c_len, std::vector<uint8_t> &out)
{
    const Message *m = find_message(kind, msg_id);
    if (!m)
        return QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND;
    if (!c || c_len < m->c_len)
        return QMI_IDL_LIB_BUFFER_TOO_SMALL;
    const size_t start = out.size();
    Writer w(out);
    const int rc = m->encode(c, w);
    if (rc)
        out.resize(start);  // nothing of a refused message
    return rc;
}

int decode(int kind, uint16_t msg_id, const uint8_t *tlv, size_t tlv_len, void *c, size_t c_len)
{
    const Message *m = find_message(kind, msg_id);
    if (!m)
        return QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND;
    if (!c || c_len < m->c_len)
        return QMI_IDL_LIB_BUFFER_TOO_SMALL;
    if (!tlv && tlv_len)
        return QMI_IDL_LIB_PARAMETER_ERROR;
    std::memset(c, 0, m->c_len);
    TlvSet set;
    const int rc = set.split(tlv, tlv_len, kind == KIND_RESPONSE ? kResultOnly : kMainOnly);
    if (rc)
        return rc;
    return m->decode(set, c);
}

}  // namespace qmi_wire
