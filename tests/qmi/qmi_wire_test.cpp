// The PBM codec of the host transport: what goes in comes out, and a
// malformed buffer fails with an error instead of overrunning the structure.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "pbm_wire.h"

namespace {

using qmi_wire::KIND_INDICATION;
using qmi_wire::KIND_REQUEST;
using qmi_wire::KIND_RESPONSE;

// Decoding what was encoded gives the same fields: the re-encoded bytes
// match, and for a structure built zeroed the decoded one matches byte for byte.
template <typename T> void expect_round_trip(int kind, uint16_t id, const T &in, bool zero_built = false)
{
    std::vector<uint8_t> tlv, again;
    ASSERT_EQ(0, qmi_wire::encode(kind, id, &in, sizeof in, tlv));
    T out;
    std::memset(&out, 0xA5, sizeof out);
    ASSERT_EQ(0, qmi_wire::decode(kind, id, tlv.data(), tlv.size(), &out, sizeof out));
    ASSERT_EQ(0, qmi_wire::encode(kind, id, &out, sizeof out, again));
    EXPECT_EQ(tlv, again) << "kind " << kind << " id " << id;
    if (zero_built) {
        EXPECT_EQ(0, std::memcmp(&in, &out, sizeof out)) << "kind " << kind << " id " << id;
    }
}

pbm_record_read_ind_msg_v01 full_indication()
{
    pbm_record_read_ind_msg_v01 ind;
    std::memset(&ind, 0, sizeof ind);
    pbm_basic_record_data_type_v01 &b = ind.basic_record_data;
    b.seq_num = 3;
    b.session_type = PBM_SESSION_TYPE_GLOBAL_PB_SLOT1_V01;
    b.pb_type = 1;
    b.record_instances_len = 10;
    for (int i = 0; i < 10; ++i) {
        pbm_record_instance_type_v01 &r = b.record_instances[i];
        r.record_id = static_cast<uint16_t>(100 + i);
        r.num_type = PBM_NUM_TYPE_INTERNATIONAL_V01;
        r.number_len = 40;  // full: no room for a terminator
        std::memset(r.number, '0' + i, 40);
        r.name_len = 241;  // odd bound
        std::memset(r.name, 'a' + i, 241);
    }
    return ind;
}

// Every field survives, up to the bounds of each array and with every
// optional part present.
TEST(PbmWire, EveryMessageSurvivesEncodeAndDecode)
{
    pbm_get_pb_capabilities_resp_msg_v01 caps{};
    caps.resp = {QMI_RESULT_FAILURE_V01, QMI_ERR_PB_NOT_READY_V01};
    caps.capability_basic_info_valid = 1;
    caps.capability_basic_info = {PBM_SESSION_TYPE_GLOBAL_PB_SLOT1_V01, 1, 25, 250, 20, 14};
    caps.write_access_info_valid = 1;
    caps.write_access_info = {PBM_PROTECTION_ONE_PIN_V01, 0x8000000000000005ull};
    caps.aas_capability_valid = 1;
    caps.aas_capability = {1, 2, 3};
    caps.num_pb_sets_valid = 1;
    caps.num_pb_sets = 0xBEEF;
    expect_round_trip(KIND_RESPONSE, 0x0002, caps);
    expect_round_trip(KIND_REQUEST, 0x0004,
                      pbm_read_records_req_msg_v01{{PBM_SESSION_TYPE_GLOBAL_PB_SLOT1_V01, 1, 1, 1000}});
    expect_round_trip(KIND_INDICATION, 0x0004, full_indication(), true);

    pbm_write_record_req_msg_v01 w;
    std::memset(&w, 0, sizeof w);  // padding too: compared byte for byte
    w.record_information.record_id = 77;
    w.record_information.number_len = 3;
    std::memcpy(w.record_information.number, "1e?", 3);
    w.record_information.name_len = 4;
    std::memcpy(w.record_information.name, "A\0B\0", 4);
    expect_round_trip(KIND_REQUEST, 0x0005, w, true);
    expect_round_trip(KIND_RESPONSE, 0x0005, pbm_write_record_resp_msg_v01{{}, 1, 42});
    expect_round_trip(KIND_RESPONSE, 0x0006,
                      pbm_delete_record_resp_msg_v01{{QMI_RESULT_FAILURE_V01, QMI_ERR_NO_ENTRY_V01}, 0, 0});
}

// Each message has the size of the structure its callers pass and the
// mandatory fields of that structure, and a zeroed structure goes through
// both directions within its size; a pair the codec does not know is
// refused, not taken for another message.
TEST(PbmWire, EachMessageUsesItsOwnStructure)
{
    const struct {
        int kind;
        uint16_t id;
        size_t size;
        size_t zero_tlv_len;  // TLV bytes of a zeroed structure: its mandatory fields
    } known[] = {
        {KIND_REQUEST, QMI_PBM_GET_PB_CAPABILITIES_REQ_V01, sizeof(pbm_get_pb_capabilities_req_msg_v01), 9},
        {KIND_RESPONSE, QMI_PBM_GET_PB_CAPABILITIES_RESP_V01, sizeof(pbm_get_pb_capabilities_resp_msg_v01),
         7},
        {KIND_REQUEST, QMI_PBM_READ_RECORDS_REQ_V01, sizeof(pbm_read_records_req_msg_v01), 13},
        {KIND_RESPONSE, QMI_PBM_READ_RECORDS_RESP_V01, sizeof(pbm_read_records_resp_msg_v01), 7},
        {KIND_INDICATION, QMI_PBM_RECORD_READ_IND_V01, sizeof(pbm_record_read_ind_msg_v01), 12},
        {KIND_REQUEST, QMI_PBM_WRITE_RECORD_REQ_V01, sizeof(pbm_write_record_req_msg_v01), 21},
        {KIND_RESPONSE, QMI_PBM_WRITE_RECORD_RESP_V01, sizeof(pbm_write_record_resp_msg_v01), 7},
        {KIND_REQUEST, QMI_PBM_DELETE_RECORD_REQ_V01, sizeof(pbm_delete_record_req_msg_v01), 11},
        {KIND_RESPONSE, QMI_PBM_DELETE_RECORD_RESP_V01, sizeof(pbm_delete_record_resp_msg_v01), 7},
        {KIND_REQUEST, QMI_PBM_DELETE_ALL_PB_RECORDS_REQ_V01, sizeof(pbm_delete_all_pb_records_req_msg_v01),
         9},
        {KIND_RESPONSE, QMI_PBM_DELETE_ALL_PB_RECORDS_RESP_V01,
         sizeof(pbm_delete_all_pb_records_resp_msg_v01), 7},
    };
    for (const auto &m : known) {
        uint32_t len = 0;
        ASSERT_TRUE(qmi_wire::c_struct_len(m.kind, m.id, &len)) << "kind " << m.kind << " id " << m.id;
        EXPECT_EQ(m.size, len) << "kind " << m.kind << " id " << m.id;
        std::vector<uint8_t> zero(m.size), tlv;  // exact size: a wider structure trips the address sanitizer
        EXPECT_EQ(0, qmi_wire::encode(m.kind, m.id, zero.data(), zero.size(), tlv));
        EXPECT_EQ(m.zero_tlv_len, tlv.size()) << "kind " << m.kind << " id " << m.id;
        EXPECT_EQ(0, qmi_wire::decode(m.kind, m.id, tlv.data(), tlv.size(), zero.data(), zero.size()));
    }
    const std::pair<int, uint16_t> unknown[] = {
        {KIND_INDICATION, 0x0002}, {KIND_INDICATION, 0x0007}, {KIND_REQUEST, 0x0003}, {3, 0x0004}};
    for (const auto &u : unknown) {
        uint32_t len = 0;
        std::vector<uint8_t> c(8192), tlv;
        EXPECT_FALSE(qmi_wire::c_struct_len(u.first, u.second, &len));
        EXPECT_EQ(QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND,
                  qmi_wire::encode(u.first, u.second, c.data(), c.size(), tlv));
        EXPECT_TRUE(tlv.empty());
    }
}

// One record instance on the wire: id, num_type, num_plan, number, name.
std::vector<uint8_t> instance(uint8_t number_len, uint8_t name_len)
{
    std::vector<uint8_t> v{1, 0, 0, 0, 0, 0, 0, 0, 0, 0, number_len};
    v.insert(v.end(), number_len, '1');
    v.push_back(name_len);
    v.insert(v.end(), name_len, 'x');
    return v;
}

std::vector<uint8_t> basic(uint8_t count, const std::vector<uint8_t> &records)
{
    std::vector<uint8_t> body{1, 0, 6, 0, 0, 0, 1, 0, count};
    body.insert(body.end(), records.begin(), records.end());
    std::vector<uint8_t> tlv{0x01, static_cast<uint8_t>(body.size()), static_cast<uint8_t>(body.size() >> 8)};
    tlv.insert(tlv.end(), body.begin(), body.end());
    return tlv;
}

std::vector<uint8_t> concat(std::vector<uint8_t> a, const std::vector<uint8_t> &b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST(PbmWire, MalformedIndicationsFailWithoutOverrun)
{
    std::vector<uint8_t> eleven;
    for (int i = 0; i < 11; ++i)
        eleven = concat(eleven, instance(1, 2));
    std::vector<uint8_t> one = basic(1, instance(3, 4));
    const struct {
        const char *what;
        std::vector<uint8_t> tlv;
        int error;
    } cases[] = {
        {"no record data", {}, QMI_IDL_LIB_MISSING_TLV},
        {"TLV head cut short", {0x01, 0x05}, QMI_IDL_LIB_LENGTH_INCONSISTENCY},
        {"TLV longer than the buffer", {0x01, 0xFF, 0x00, 1, 2}, QMI_IDL_LIB_LENGTH_INCONSISTENCY},
        {"11 record instances", basic(11, eleven), QMI_IDL_LIB_ARRAY_TOO_BIG},
        {"number of 41 bytes", basic(1, instance(41, 2)), QMI_IDL_LIB_ARRAY_TOO_BIG},
        {"name of 242 bytes", basic(1, instance(3, 242)), QMI_IDL_LIB_ARRAY_TOO_BIG},
        {"count above the records sent", basic(2, instance(3, 4)), QMI_IDL_LIB_LENGTH_INCONSISTENCY},
        {"bytes left in the record TLV", basic(1, concat(instance(3, 4), {0})),
         QMI_IDL_LIB_LENGTH_INCONSISTENCY},
        {"record TLV twice", concat(one, one), QMI_IDL_LIB_TLV_DUPLICATED},
        {"unknown mandatory TLV", concat(one, {0x03, 0x00, 0x00}), QMI_IDL_LIB_UNKNOWN_MANDATORY_TLV},
        {"unknown optional TLV is skipped", concat(one, {0x7F, 0x02, 0x00, 0xAA, 0xBB}), 0},
    };
    for (const auto &c : cases) {
        std::vector<uint8_t> heap(c.tlv);  // exact-size heap copy: a read past it trips the address sanitizer
        auto *out = new pbm_record_read_ind_msg_v01;
        EXPECT_EQ(c.error,
                  qmi_wire::decode(KIND_INDICATION, 0x0004, heap.data(), heap.size(), out, sizeof *out))
            << c.what;
        delete out;
    }
}

TEST(PbmWire, RefusesWhatTheStructureCannotHold)
{
    pbm_record_read_ind_msg_v01 ind = full_indication();
    std::vector<uint8_t> tlv;
    EXPECT_EQ(QMI_IDL_LIB_BUFFER_TOO_SMALL,
              qmi_wire::encode(KIND_INDICATION, 0x0004, &ind, sizeof ind - 1, tlv));
    ind.basic_record_data.record_instances_len = 11;
    EXPECT_EQ(QMI_IDL_LIB_ARRAY_TOO_BIG, qmi_wire::encode(KIND_INDICATION, 0x0004, &ind, sizeof ind, tlv));
    ind.basic_record_data.record_instances_len = 1;
    ind.basic_record_data.record_instances[0].number_len = 41;
    EXPECT_EQ(QMI_IDL_LIB_ARRAY_TOO_BIG, qmi_wire::encode(KIND_INDICATION, 0x0004, &ind, sizeof ind, tlv));

    const std::vector<uint8_t> ok = basic(0, {});
    EXPECT_EQ(QMI_IDL_LIB_BUFFER_TOO_SMALL,
              qmi_wire::decode(KIND_INDICATION, 0x0004, ok.data(), ok.size(), &ind, sizeof ind - 1));
    EXPECT_EQ(QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND,
              qmi_wire::decode(KIND_INDICATION, 0x0005, ok.data(), ok.size(), &ind, sizeof ind));
}

}  // namespace
