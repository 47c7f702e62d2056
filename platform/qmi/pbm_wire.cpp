// Encoding and decoding of the PBM messages on the host transport: one pair
// of functions per message body, a TLV splitter, and one table that names,
// for each (kind, message id), its C structure's size and its pair of
// functions. A pair missing from the table is an unknown message.
#include "pbm_wire.h"

#include <cstring>

namespace qmi_wire {
namespace {

constexpr uint8_t TLV_FIRST_OPTIONAL = 0x10;
constexpr uint8_t TLV_RESULT = 0x02;
constexpr uint8_t TLV_MAIN = 0x01;

class Writer {
public:
    explicit Writer(std::vector<uint8_t> &out) : out_(out) {}
    void u8(uint8_t v) { out_.push_back(v); }
    void u16(uint16_t v)
    {
        u8(static_cast<uint8_t>(v));
        u8(static_cast<uint8_t>(v >> 8));
    }
    void u32(uint32_t v)
    {
        u16(static_cast<uint16_t>(v));
        u16(static_cast<uint16_t>(v >> 16));
    }
    void i32(int32_t v) { u32(static_cast<uint32_t>(v)); }
    void u64(uint64_t v)
    {
        u32(static_cast<uint32_t>(v));
        u32(static_cast<uint32_t>(v >> 32));
    }
    void text(const char *p, uint32_t n)
    {
        u8(static_cast<uint8_t>(n));
        out_.insert(out_.end(), p, p + n);
    }
    size_t open(uint8_t type)
    {
        u8(type);
        u16(0);
        return out_.size();
    }
    void close(size_t start)
    {
        const size_t n = out_.size() - start;
        out_[start - 2] = static_cast<uint8_t>(n);
        out_[start - 1] = static_cast<uint8_t>(n >> 8);
    }

private:
    std::vector<uint8_t> &out_;
};

class Reader {
public:
    Reader(const uint8_t *p, size_t n) : p_(p), n_(n) {}
    void take(void *dst, size_t k)
    {
        if (err_ || k > n_) {
            fail(QMI_IDL_LIB_LENGTH_INCONSISTENCY);
            return;
        }
        std::memcpy(dst, p_, k);
        p_ += k;
        n_ -= k;
    }
    uint8_t u8()
    {
        uint8_t b[1] = {0};
        take(b, 1);
        return b[0];
    }
    uint16_t u16()
    {
        uint8_t b[2] = {0, 0};
        take(b, 2);
        return static_cast<uint16_t>(b[0] | b[1] << 8);
    }
    uint32_t u32()
    {
        const uint32_t lo = u16();
        return lo | static_cast<uint32_t>(u16()) << 16;
    }
    int32_t i32() { return static_cast<int32_t>(u32()); }
    uint64_t u64()
    {
        const uint64_t lo = u32();
        return lo | static_cast<uint64_t>(u32()) << 32;
    }
    /* A count of at most `bound` elements. */
    uint32_t count(uint32_t bound)
    {
        const uint32_t k = u8();
        if (k > bound) {
            fail(QMI_IDL_LIB_ARRAY_TOO_BIG);
            return 0;
        }
        return k;
    }
    void text(char *dst, uint32_t bound, uint32_t *len)
    {
        *len = count(bound);
        take(dst, *len);
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
            if (t.type < TLV_FIRST_OPTIONAL && !(mandatory_mask & (1u << t.type)))
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

// ---- shared pieces ----

void put_result(Writer &w, const qmi_response_type_v01 &r)
{
    const size_t s = w.open(TLV_RESULT);
    w.u16(static_cast<uint16_t>(r.result));
    w.u16(static_cast<uint16_t>(r.error));
    w.close(s);
}

int get_result(const TlvSet &set, qmi_response_type_v01 *r)
{
    const Tlv *t = set.find(TLV_RESULT);
    if (!t)
        return QMI_IDL_LIB_MISSING_TLV;
    Reader rd(t->value, t->len);
    r->result = static_cast<qmi_result_type_v01>(rd.u16());
    r->error = static_cast<qmi_error_type_v01>(rd.u16());
    return rd.finish();
}

/* Decodes the optional TLV `type` with `body` when present; sets *valid. */
template <typename F> int get_optional(const TlvSet &set, uint8_t type, uint8_t *valid, F body)
{
    const Tlv *t = set.find(type);
    *valid = 0;
    if (!t)
        return 0;
    Reader rd(t->value, t->len);
    body(rd);
    const int rc = rd.finish();
    if (rc == 0)
        *valid = 1;
    return rc;
}

template <typename F> int get_mandatory(const TlvSet &set, uint8_t type, F body)
{
    const Tlv *t = set.find(type);
    if (!t)
        return QMI_IDL_LIB_MISSING_TLV;
    Reader rd(t->value, t->len);
    body(rd);
    return rd.finish();
}

template <typename F> void put_tlv(Writer &w, uint8_t type, F body)
{
    const size_t s = w.open(type);
    body(w);
    w.close(s);
}

// ---- 0x0002 get capabilities ----

int enc_caps_req(const pbm_get_pb_capabilities_req_msg_v01 &m, Writer &w)
{
    put_tlv(w, TLV_MAIN, [&](Writer &o) {
        o.i32(m.phonebook_info.session_type);
        o.u16(m.phonebook_info.pb_type);
    });
    return 0;
}

int dec_caps_req(const TlvSet &set, pbm_get_pb_capabilities_req_msg_v01 *m)
{
    return get_mandatory(set, TLV_MAIN, [&](Reader &r) {
        m->phonebook_info.session_type = static_cast<pbm_session_type_enum_v01>(r.i32());
        m->phonebook_info.pb_type = r.u16();
    });
}

int enc_caps_resp(const pbm_get_pb_capabilities_resp_msg_v01 &m, Writer &w)
{
    put_result(w, m.resp);
    if (m.capability_basic_info_valid)
        put_tlv(w, 0x10, [&](Writer &o) {
            const pbm_capability_basic_info_type_v01 &b = m.capability_basic_info;
            o.i32(b.session_type);
            o.u16(b.pb_type);
            o.u16(b.used_records);
            o.u16(b.max_records);
            o.u8(b.max_num_len);
            o.u8(b.max_name_len);
        });
    if (m.group_capability_valid)
        put_tlv(w, 0x11, [&](Writer &o) {
            o.u8(m.group_capability.max_grp);
            o.u8(m.group_capability.max_grp_tag_len);
        });
    if (m.ad_num_capability_valid)
        put_tlv(w, 0x12, [&](Writer &o) {
            o.u8(m.ad_num_capability.max_ad_num);
            o.u8(m.ad_num_capability.max_ad_num_len);
            o.u8(m.ad_num_capability.max_ad_num_tag_len);
        });
    if (m.email_capability_valid)
        put_tlv(w, 0x13, [&](Writer &o) {
            o.u8(m.email_capability.max_email);
            o.u8(m.email_capability.max_email_len);
        });
    if (m.max_second_name_len_valid)
        put_tlv(w, 0x14, [&](Writer &o) { o.u8(m.max_second_name_len); });
    if (m.is_hidden_entry_supported_valid)
        put_tlv(w, 0x15, [&](Writer &o) { o.u8(m.is_hidden_entry_supported); });
    if (m.gas_capability_valid)
        put_tlv(w, 0x16, [&](Writer &o) {
            o.u8(m.gas_capability.max_records);
            o.u8(m.gas_capability.used_records);
            o.u8(m.gas_capability.max_gas_string_len);
        });
    if (m.aas_capability_valid)
        put_tlv(w, 0x17, [&](Writer &o) {
            o.u8(m.aas_capability.max_records);
            o.u8(m.aas_capability.used_records);
            o.u8(m.aas_capability.max_aas_string_len);
        });
    if (m.write_access_info_valid)
        put_tlv(w, 0x18, [&](Writer &o) {
            o.i32(m.write_access_info.protection_method);
            o.u64(m.write_access_info.pin_mask);
        });
    if (m.num_pb_sets_valid)
        put_tlv(w, 0x19, [&](Writer &o) { o.u16(m.num_pb_sets); });
    return 0;
}

int dec_caps_resp(const TlvSet &set, pbm_get_pb_capabilities_resp_msg_v01 *m)
{
    int rc = get_result(set, &m->resp);
    if (!rc)
        rc = get_optional(set, 0x10, &m->capability_basic_info_valid, [&](Reader &r) {
            pbm_capability_basic_info_type_v01 &b = m->capability_basic_info;
            b.session_type = static_cast<pbm_session_type_enum_v01>(r.i32());
            b.pb_type = r.u16();
            b.used_records = r.u16();
            b.max_records = r.u16();
            b.max_num_len = r.u8();
            b.max_name_len = r.u8();
        });
    if (!rc)
        rc = get_optional(set, 0x11, &m->group_capability_valid, [&](Reader &r) {
            m->group_capability.max_grp = r.u8();
            m->group_capability.max_grp_tag_len = r.u8();
        });
    if (!rc)
        rc = get_optional(set, 0x12, &m->ad_num_capability_valid, [&](Reader &r) {
            m->ad_num_capability.max_ad_num = r.u8();
            m->ad_num_capability.max_ad_num_len = r.u8();
            m->ad_num_capability.max_ad_num_tag_len = r.u8();
        });
    if (!rc)
        rc = get_optional(set, 0x13, &m->email_capability_valid, [&](Reader &r) {
            m->email_capability.max_email = r.u8();
            m->email_capability.max_email_len = r.u8();
        });
    if (!rc)
        rc = get_optional(set, 0x14, &m->max_second_name_len_valid,
                          [&](Reader &r) { m->max_second_name_len = r.u8(); });
    if (!rc)
        rc = get_optional(set, 0x15, &m->is_hidden_entry_supported_valid,
                          [&](Reader &r) { m->is_hidden_entry_supported = r.u8(); });
    if (!rc)
        rc = get_optional(set, 0x16, &m->gas_capability_valid, [&](Reader &r) {
            m->gas_capability.max_records = r.u8();
            m->gas_capability.used_records = r.u8();
            m->gas_capability.max_gas_string_len = r.u8();
        });
    if (!rc)
        rc = get_optional(set, 0x17, &m->aas_capability_valid, [&](Reader &r) {
            m->aas_capability.max_records = r.u8();
            m->aas_capability.used_records = r.u8();
            m->aas_capability.max_aas_string_len = r.u8();
        });
    if (!rc)
        rc = get_optional(set, 0x18, &m->write_access_info_valid, [&](Reader &r) {
            m->write_access_info.protection_method = static_cast<pbm_protection_method_v01>(r.i32());
            m->write_access_info.pin_mask = r.u64();
        });
    if (!rc)
        rc = get_optional(set, 0x19, &m->num_pb_sets_valid, [&](Reader &r) { m->num_pb_sets = r.u16(); });
    return rc;
}

// ---- 0x0004 read records and the record-read indication ----

int enc_read_req(const pbm_read_records_req_msg_v01 &m, Writer &w)
{
    put_tlv(w, TLV_MAIN, [&](Writer &o) {
        o.i32(m.record_info.session_type);
        o.u16(m.record_info.pb_type);
        o.u16(m.record_info.record_start_id);
        o.u16(m.record_info.record_end_id);
    });
    return 0;
}

int dec_read_req(const TlvSet &set, pbm_read_records_req_msg_v01 *m)
{
    return get_mandatory(set, TLV_MAIN, [&](Reader &r) {
        m->record_info.session_type = static_cast<pbm_session_type_enum_v01>(r.i32());
        m->record_info.pb_type = r.u16();
        m->record_info.record_start_id = r.u16();
        m->record_info.record_end_id = r.u16();
    });
}

int enc_read_resp(const pbm_read_records_resp_msg_v01 &m, Writer &w)
{
    put_result(w, m.resp);
    if (m.num_of_recs_valid)
        put_tlv(w, 0x10, [&](Writer &o) { o.u16(m.num_of_recs); });
    return 0;
}

int dec_read_resp(const TlvSet &set, pbm_read_records_resp_msg_v01 *m)
{
    int rc = get_result(set, &m->resp);
    if (!rc)
        rc = get_optional(set, 0x10, &m->num_of_recs_valid, [&](Reader &r) { m->num_of_recs = r.u16(); });
    return rc;
}

int enc_read_ind(const pbm_record_read_ind_msg_v01 &m, Writer &w)
{
    const pbm_basic_record_data_type_v01 &b = m.basic_record_data;
    if (b.record_instances_len > QMI_PBM_MAX_NUM_BASIC_RECORD_INSTANCE_V01)
        return QMI_IDL_LIB_ARRAY_TOO_BIG;
    for (uint32_t i = 0; i < b.record_instances_len; ++i)
        if (b.record_instances[i].number_len > QMI_PBM_NUMBER_MAX_LENGTH_V01 ||
            b.record_instances[i].name_len > QMI_PBM_NAME_MAX_LENGTH_V01)
            return QMI_IDL_LIB_ARRAY_TOO_BIG;
    /* The second name, number, group, e-mail and hidden arrays are not carried. */
    if (m.sname_info_array_valid || m.ad_num_info_array_valid || m.grp_id_info_array_valid ||
        m.email_info_array_valid || m.hidden_record_info_array_valid)
        return QMI_IDL_LIB_PARAMETER_ERROR;
    put_tlv(w, TLV_MAIN, [&](Writer &o) {
        o.u16(b.seq_num);
        o.i32(b.session_type);
        o.u16(b.pb_type);
        o.u8(static_cast<uint8_t>(b.record_instances_len));
        for (uint32_t i = 0; i < b.record_instances_len; ++i) {
            const pbm_record_instance_type_v01 &rec = b.record_instances[i];
            o.u16(rec.record_id);
            o.i32(rec.num_type);
            o.i32(rec.num_plan);
            o.text(rec.number, rec.number_len);
            o.text(rec.name, rec.name_len);
        }
    });
    return 0;
}

int dec_read_ind(const TlvSet &set, pbm_record_read_ind_msg_v01 *m)
{
    return get_mandatory(set, TLV_MAIN, [&](Reader &r) {
        pbm_basic_record_data_type_v01 &b = m->basic_record_data;
        b.seq_num = r.u16();
        b.session_type = static_cast<pbm_session_type_enum_v01>(r.i32());
        b.pb_type = r.u16();
        b.record_instances_len = r.count(QMI_PBM_MAX_NUM_BASIC_RECORD_INSTANCE_V01);
        for (uint32_t i = 0; i < b.record_instances_len; ++i) {
            pbm_record_instance_type_v01 &rec = b.record_instances[i];
            rec.record_id = r.u16();
            rec.num_type = static_cast<pbm_num_type_enum_v01>(r.i32());
            rec.num_plan = static_cast<pbm_num_plan_enum_v01>(r.i32());
            r.text(rec.number, QMI_PBM_NUMBER_MAX_LENGTH_V01, &rec.number_len);
            r.text(rec.name, QMI_PBM_NAME_MAX_LENGTH_V01, &rec.name_len);
        }
    });
}

// ---- 0x0005 write record ----

int enc_write_req(const pbm_write_record_req_msg_v01 &m, Writer &w)
{
    const pbm_record_information_type_v01 &ri = m.record_information;
    if (ri.number_len > QMI_PBM_NUMBER_MAX_LENGTH_V01 || ri.name_len > QMI_PBM_NAME_MAX_LENGTH_V01)
        return QMI_IDL_LIB_ARRAY_TOO_BIG;
    if (m.sname_valid || m.ad_num_info_valid || m.grp_id_valid || m.email_info_valid)
        return QMI_IDL_LIB_PARAMETER_ERROR; /* not carried by this transport */
    put_tlv(w, TLV_MAIN, [&](Writer &o) {
        o.i32(ri.session_type);
        o.u16(ri.phonebook_type);
        o.u16(ri.record_id);
        o.i32(ri.num_type);
        o.i32(ri.num_plan);
        o.text(ri.number, ri.number_len);
        o.text(ri.name, ri.name_len);
    });
    if (m.is_hidden_valid)
        put_tlv(w, 0x14, [&](Writer &o) { o.u8(m.is_hidden); });
    return 0;
}

int dec_write_req(const TlvSet &set, pbm_write_record_req_msg_v01 *m)
{
    int rc = get_mandatory(set, TLV_MAIN, [&](Reader &r) {
        pbm_record_information_type_v01 &ri = m->record_information;
        ri.session_type = static_cast<pbm_session_type_enum_v01>(r.i32());
        ri.phonebook_type = r.u16();
        ri.record_id = r.u16();
        ri.num_type = static_cast<pbm_num_type_enum_v01>(r.i32());
        ri.num_plan = static_cast<pbm_num_plan_enum_v01>(r.i32());
        r.text(ri.number, QMI_PBM_NUMBER_MAX_LENGTH_V01, &ri.number_len);
        r.text(ri.name, QMI_PBM_NAME_MAX_LENGTH_V01, &ri.name_len);
    });
    if (!rc)
        rc = get_optional(set, 0x14, &m->is_hidden_valid, [&](Reader &r) { m->is_hidden = r.u8(); });
    return rc;
}

template <typename Resp> int enc_record_id_resp(const Resp &m, Writer &w)
{
    put_result(w, m.resp);
    if (m.record_id_valid)
        put_tlv(w, 0x10, [&](Writer &o) { o.u16(m.record_id); });
    return 0;
}

template <typename Resp> int dec_record_id_resp(const TlvSet &set, Resp *m)
{
    int rc = get_result(set, &m->resp);
    if (!rc)
        rc = get_optional(set, 0x10, &m->record_id_valid, [&](Reader &r) { m->record_id = r.u16(); });
    return rc;
}

// ---- 0x0006 delete record, 0x0007 delete all ----

int enc_delete_req(const pbm_delete_record_req_msg_v01 &m, Writer &w)
{
    put_tlv(w, TLV_MAIN, [&](Writer &o) {
        o.i32(m.record_info.session_type);
        o.u16(m.record_info.pb_type);
        o.u16(m.record_info.record_id);
    });
    return 0;
}

int dec_delete_req(const TlvSet &set, pbm_delete_record_req_msg_v01 *m)
{
    return get_mandatory(set, TLV_MAIN, [&](Reader &r) {
        m->record_info.session_type = static_cast<pbm_session_type_enum_v01>(r.i32());
        m->record_info.pb_type = r.u16();
        m->record_info.record_id = r.u16();
    });
}

int enc_delete_all_req(const pbm_delete_all_pb_records_req_msg_v01 &m, Writer &w)
{
    put_tlv(w, TLV_MAIN, [&](Writer &o) {
        o.i32(m.phonebook_info.session_type);
        o.u16(m.phonebook_info.pb_type);
    });
    return 0;
}

int dec_delete_all_req(const TlvSet &set, pbm_delete_all_pb_records_req_msg_v01 *m)
{
    return get_mandatory(set, TLV_MAIN, [&](Reader &r) {
        m->phonebook_info.session_type = static_cast<pbm_session_type_enum_v01>(r.i32());
        m->phonebook_info.pb_type = r.u16();
    });
}

int enc_delete_all_resp(const pbm_delete_all_pb_records_resp_msg_v01 &m, Writer &w)
{
    put_result(w, m.resp);
    return 0;
}

int dec_delete_all_resp(const TlvSet &set, pbm_delete_all_pb_records_resp_msg_v01 *m)
{
    return get_result(set, &m->resp);
}

constexpr uint32_t MAIN_ONLY = 1u << TLV_MAIN;
constexpr uint32_t RESULT_ONLY = 1u << TLV_RESULT;

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

// One table row: the C structure T of (kind, msg_id) and its pair of
// functions. The size comes from the functions' own type, so a row cannot
// pair a size with another structure's encoder.
template <typename T, int (*Enc)(const T &, Writer &), int (*Dec)(const TlvSet &, T *)>
constexpr Message message(uint8_t kind, uint16_t msg_id)
{
    return {kind, msg_id, static_cast<uint32_t>(sizeof(T)),
            [](const void *c, Writer &w) { return Enc(*static_cast<const T *>(c), w); },
            [](const TlvSet &set, void *c) { return Dec(set, static_cast<T *>(c)); }};
}

constexpr Message kMessages[] = {
    message<pbm_get_pb_capabilities_req_msg_v01, enc_caps_req, dec_caps_req>(
        KIND_REQUEST, QMI_PBM_GET_PB_CAPABILITIES_REQ_V01),
    message<pbm_get_pb_capabilities_resp_msg_v01, enc_caps_resp, dec_caps_resp>(
        KIND_RESPONSE, QMI_PBM_GET_PB_CAPABILITIES_RESP_V01),
    message<pbm_read_records_req_msg_v01, enc_read_req, dec_read_req>(KIND_REQUEST,
                                                                      QMI_PBM_READ_RECORDS_REQ_V01),
    message<pbm_read_records_resp_msg_v01, enc_read_resp, dec_read_resp>(KIND_RESPONSE,
                                                                         QMI_PBM_READ_RECORDS_RESP_V01),
    message<pbm_record_read_ind_msg_v01, enc_read_ind, dec_read_ind>(KIND_INDICATION,
                                                                     QMI_PBM_RECORD_READ_IND_V01),
    message<pbm_write_record_req_msg_v01, enc_write_req, dec_write_req>(KIND_REQUEST,
                                                                        QMI_PBM_WRITE_RECORD_REQ_V01),
    message<pbm_write_record_resp_msg_v01, enc_record_id_resp, dec_record_id_resp>(
        KIND_RESPONSE, QMI_PBM_WRITE_RECORD_RESP_V01),
    message<pbm_delete_record_req_msg_v01, enc_delete_req, dec_delete_req>(KIND_REQUEST,
                                                                           QMI_PBM_DELETE_RECORD_REQ_V01),
    message<pbm_delete_record_resp_msg_v01, enc_record_id_resp, dec_record_id_resp>(
        KIND_RESPONSE, QMI_PBM_DELETE_RECORD_RESP_V01),
    message<pbm_delete_all_pb_records_req_msg_v01, enc_delete_all_req, dec_delete_all_req>(
        KIND_REQUEST, QMI_PBM_DELETE_ALL_PB_RECORDS_REQ_V01),
    message<pbm_delete_all_pb_records_resp_msg_v01, enc_delete_all_resp, dec_delete_all_resp>(
        KIND_RESPONSE, QMI_PBM_DELETE_ALL_PB_RECORDS_RESP_V01),
};

// A (kind, message id) pair names one row at most: a second row would never
// be reached.
constexpr bool each_message_once()
{
    constexpr size_t n = sizeof kMessages / sizeof kMessages[0];
    for (size_t i = 0; i < n; ++i)
        for (size_t j = i + 1; j < n; ++j)
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
    Writer w(out);
    return m->encode(c, w);
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
    const int rc = set.split(tlv, tlv_len, kind == KIND_RESPONSE ? RESULT_ONLY : MAIN_ONLY);
    if (rc)
        return rc;
    return m->decode(set, c);
}

}  // namespace qmi_wire
