// pb_qmi.cpp - the modem phonebook client: opens and closes the QMI PBM
// client, reads the whole SIM phonebook into the SIM phonebook file, and
// writes and deletes SIM records.
//
// Threads and ownership: pb_qmi_init() and pb_qmi_fin() run in the host's
// thread while no service thread runs. pb_qmi_get_all(), pb_qmi_read_cb() and
// the write calls run on the service thread, which alone touches pb_index,
// g_sim_module and the SIM phonebook file. The indication callback runs on
// the QMI library's thread: it only decodes into a heap buffer of its own
// and forwards a copy over IPC to MU_ID, so the records reach the service
// thread through its queue. IPC buffers are given back on every path.
#include "pb_qmi.h"

#include <pthread.h>

#include <time.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "nvmanager.h"
#include "pb_book.h"
#include "pb_conv.h"
#include "pb_heap.h"
#include "pb_log.h"
#include "pb_msg.h"
#include "pb_qmi_link.h"
#include "zp_ipc.h"
#include "zpt_ui_conv.h"
#include "zpt_ui_pb_func.h"

namespace {

constexpr unsigned kReadTimeoutMs = 50000;
constexpr unsigned kWriteTimeoutMs = 60000;
constexpr unsigned kDelAllTimeoutMs = 300000;
constexpr pbm_session_type_enum_v01 kSession = PBM_SESSION_TYPE_GLOBAL_PB_SLOT1_V01;
constexpr uint16_t kAdn = PBM_PB_TYPE_ADN_V01;
constexpr int kServiceSlots = 3;
constexpr size_t kNumberSent = QMI_PBM_NUMBER_MAX_LENGTH_V01 - 1; /* 40th byte stays 0 */
constexpr size_t kTextMax = PB_TEXT_LEN - 1;                      /* bytes before the NUL */

enum : zp_uint16 {
    PB_SITE_QMI_READ_IND = PB_SITE_QMI + 1, /* the forwarded record-read indication */
};

/* A read without a record for this long, while records are missing, is
 * started again by the next get-all; after this many restarts it is given
 * up. Records come in tens within milliseconds of each other, so a pause of
 * seconds means indications were lost (a full socket, a modem that dropped
 * them), and waiting longer would not bring them. */
constexpr long kReadStallMs = 3000;
constexpr int kReadRestarts = 3;

qmi_idl_service_object_type pbm_service_obj;
qmi_client_type pbm_user_handle;
qmi_client_type g_pbm_srv_notifier;
int pb_index = 1;
/* The transport failed under pbm_user_handle: the modem went away or
 * restarted, and the client has to be replaced (pb_qmi_reconnect). */
bool g_client_lost;
/* The last request was sent but its answer did not come in time. */
bool g_timed_out;
/* When the running read last started or stored an indication (ms). */
long g_read_progress_ms;
int g_read_restarts;
/* The card records stored by the running read, by record number: a record
 * that comes twice (a late indication of a read that was started again) is
 * stored once. */
unsigned char g_read_seen[65536 / 8];

long pb_now_ms()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long>(ts.tv_sec) * 1000L + ts.tv_nsec / 1000000L;
}

// Marks record `id` as stored by this read; false when it already was.
bool pb_read_first_time(uint16_t id)
{
    unsigned char &byte = g_read_seen[id / 8];
    const auto bit = static_cast<unsigned char>(1u << (id % 8));
    if (byte & bit)
        return false;
    byte = static_cast<unsigned char>(byte | bit);
    return true;
}

// Every PBM request goes through here. A failure of the transport (not a
// PBM result) loses the client; what the card held may have changed
// meanwhile, so the SIM phonebook counts as not read.
qmi_client_error_type pb_qmi_send(unsigned int msg_id, void *req, unsigned int req_len, void *rsp,
                                  unsigned int rsp_len, unsigned int timeout_ms)
{
    const qmi_client_error_type rc =
        qmi_client_send_msg_sync(pbm_user_handle, msg_id, req, req_len, rsp, rsp_len, timeout_ms);
    g_timed_out = rc == QMI_TIMEOUT_ERR;
    if (rc != QMI_NO_ERR && !g_client_lost) {
        PB_LOG("modem client lost (error %d): the SIM phonebook is to be read again\n", rc);
        g_client_lost = true;
        g_sim_module.pb_sim_read_flag = 0;
    }
    return rc;
}

void pb_qmi_release(qmi_client_type handle)
{
    if (qmi_client_release(handle) < 0)
        PB_LOG("Release not successful \n\n");
    else
        PB_LOG("QMI client release successful \n\n");
}

void pb_qmi_read_ind_handle(void *payload, int payload_len)
{
    PB_LOG("enter pb_qmi_read_ind_handle\n");
    pbm_record_read_ind_msg_v01 ind;
    std::memset(&ind, 0, sizeof ind);
    size_t n = payload_len > 0 ? static_cast<size_t>(payload_len) : 0;
    if (n > sizeof ind)
        n = sizeof ind;
    if (payload)
        std::memcpy(&ind, payload, n);
    if (pb_send_request_asyn(MU_ID, MSG_ID_PB_READ_IND, &ind, sizeof ind) != PB_RCODE_OK)
        PB_LOG("send poweron notify to sc failed\n");
    else
        PB_LOG("send asy ok!\n");
}

// QMI library thread. The user handle it is given is pbm_user_handle; it is
// taken from the call so that this thread never reads the host thread's
// store of the handle.
void pb_qmi_unsol_ind_handle(qmi_client_type user_handle, unsigned long msg_id, unsigned char *ind_buf,
                             int ind_buf_len, void * /*ind_cb_data*/)
{
    PB_LOG("enter pb_qmi_unsol_ind_handle\n");
    uint32_t decoded_len = 0;
    (void)qmi_idl_get_message_c_struct_len(pbm_service_obj, QMI_IDL_INDICATION, static_cast<uint16_t>(msg_id),
                                           &decoded_len);
    pb_heap_ptr<unsigned char[]> decoded = pb_heap_alloc<unsigned char>(decoded_len);
    if (!decoded) {
        PB_LOG("Error: Unable to allocate memory\n\n");
        return;
    }
    const qmi_client_error_type rc = qmi_client_message_decode(
        user_handle, QMI_IDL_INDICATION, static_cast<unsigned int>(msg_id), ind_buf,
        ind_buf_len > 0 ? static_cast<unsigned int>(ind_buf_len) : 0, decoded.get(), decoded_len);
    if (rc != QMI_NO_ERR)
        PB_LOG("Error: Decoding unsolicited indication with id = %ld, returned in error = %d\n\n",
               static_cast<long>(msg_id), rc);
    else if (msg_id == QMI_PBM_RECORD_READ_IND_V01)
        pb_qmi_read_ind_handle(decoded.get(), static_cast<int>(decoded_len));
}

// The record of a write request from an entry: number cut to 39 characters
// in PBM's letters, name as UCS-2 low byte first. Returns the name's UTF-8 length.
size_t pb_qmi_fill_record(pb_flash_info *info, uint16_t record_id, pbm_record_information_type_v01 *ri)
{
    ri->session_type = kSession;
    ri->phonebook_type = kAdn;
    ri->record_id = record_id;
    ri->num_type = PBM_NUM_TYPE_UNKNOWN_V01;
    ri->num_plan = PBM_NUM_PLAN_UNKNOWN_V01;

    size_t num_len = strnlen(info->num, sizeof info->num);
    if (num_len > kNumberSent)
        num_len = kNumberSent;
    std::memcpy(ri->number, info->num, num_len);
    display_to_sim(ri->number, static_cast<int>(num_len));
    ri->number_len = static_cast<uint32_t>(num_len);

    const size_t utf8_len = strnlen(info->name, sizeof info->name);
    int ucs2_len = 0;
    (void)conv_utf8_to_ucs2(ri->name, &ucs2_len, info->name, static_cast<int>(utf8_len));
    if (ucs2_len < 0) /* no character came out: an empty name */
        ucs2_len = 0;
    if (ucs2_len > 0)
        conv_swap_the_double_bytes_order(ri->name, ucs2_len);
    ri->name_len = static_cast<uint32_t>(ucs2_len);
    return utf8_len;
}

// The response of each change opens with PBM's result.
static_assert(offsetof(pbm_write_record_resp_msg_v01, resp) == 0, "result first");
static_assert(offsetof(pbm_delete_record_resp_msg_v01, resp) == 0, "result first");
static_assert(offsetof(pbm_delete_all_pb_records_resp_msg_v01, resp) == 0, "result first");

// Sends one change to the card (write, delete or delete-all) with *rsp
// zeroed first, and checks PBM's result: 0, or -1. Logged for `caller` with
// the texts of the change: send_failed when the transport failed, refused
// when PBM answered with an error (each followed by the error code), done.
int pb_qmi_change(unsigned int msg_id, void *req, unsigned int req_len, void *rsp, unsigned int rsp_len,
                  unsigned int timeout_ms, const char *caller, const char *send_failed, const char *refused,
                  const char *done)
{
    std::memset(rsp, 0, rsp_len);
    const qmi_client_error_type rc = pb_qmi_send(msg_id, req, req_len, rsp, rsp_len, timeout_ms);
    if (rc != QMI_NO_ERR) {
        PB_LOG_FOR(caller, "%s%d\n\n", send_failed, rc);
        return -1;
    }
    const auto *result = static_cast<const qmi_response_type_v01 *>(rsp);
    if (result->result != QMI_RESULT_SUCCESS_V01) {
        PB_LOG_FOR(caller, "%s%d\n\n", refused, result->error);
        return -1;
    }
    PB_LOG_FOR(caller, "%s", done);
    return 0;
}

int pb_qmi_send_write(pbm_write_record_req_msg_v01 *req, pbm_write_record_resp_msg_v01 *rsp,
                      const char *caller)
{
    return pb_qmi_change(QMI_PBM_WRITE_RECORD_REQ_V01, req, sizeof *req, rsp, sizeof *rsp, kWriteTimeoutMs,
                         caller,
                         "Error: Sending asynchronous request for writing record failed with error code ",
                         "Writing a record using PBM failed with error code ",
                         "Writing a record using PBM was successful\n\n");
}

// An entry that a write or delete can be made for: there is one, and for a
// change of a stored record (on_card) it has a record number.
bool pb_qmi_entry_ok(const pb_flash_info *info, bool on_card, const char *caller)
{
    if (info != nullptr && (!on_card || info->sim_index != 0))
        return true;
    PB_LOG_FOR(caller, "bad entry\n");
    return false;
}

// Asks for the capabilities of the phonebook of every request into *rsp,
// zeroed first.
qmi_client_error_type pb_qmi_ask_caps(pbm_get_pb_capabilities_resp_msg_v01 *rsp)
{
    pbm_get_pb_capabilities_req_msg_v01 req;
    std::memset(&req, 0, sizeof req);
    std::memset(rsp, 0, sizeof *rsp);
    req.phonebook_info.session_type = kSession;
    req.phonebook_info.pb_type = kAdn;
    return pb_qmi_send(QMI_PBM_GET_PB_CAPABILITIES_REQ_V01, &req, sizeof req, rsp, sizeof *rsp,
                       kReadTimeoutMs);
}

// The message library's idea of each structure's size against ours: a
// different revision of the definitions would overrun our buffers.
bool pb_qmi_sizes_match(qmi_idl_service_object_type obj)
{
    static const struct {
        qmi_idl_type_of_message_type type;
        uint16_t id;
        uint32_t size;
    } used[] = {
        {QMI_IDL_REQUEST, QMI_PBM_GET_PB_CAPABILITIES_REQ_V01, sizeof(pbm_get_pb_capabilities_req_msg_v01)},
        {QMI_IDL_RESPONSE, QMI_PBM_GET_PB_CAPABILITIES_RESP_V01,
         sizeof(pbm_get_pb_capabilities_resp_msg_v01)},
        {QMI_IDL_REQUEST, QMI_PBM_READ_RECORDS_REQ_V01, sizeof(pbm_read_records_req_msg_v01)},
        {QMI_IDL_RESPONSE, QMI_PBM_READ_RECORDS_RESP_V01, sizeof(pbm_read_records_resp_msg_v01)},
        {QMI_IDL_INDICATION, QMI_PBM_RECORD_READ_IND_V01, sizeof(pbm_record_read_ind_msg_v01)},
        {QMI_IDL_REQUEST, QMI_PBM_WRITE_RECORD_REQ_V01, sizeof(pbm_write_record_req_msg_v01)},
        {QMI_IDL_RESPONSE, QMI_PBM_WRITE_RECORD_RESP_V01, sizeof(pbm_write_record_resp_msg_v01)},
        {QMI_IDL_REQUEST, QMI_PBM_DELETE_RECORD_REQ_V01, sizeof(pbm_delete_record_req_msg_v01)},
        {QMI_IDL_RESPONSE, QMI_PBM_DELETE_RECORD_RESP_V01, sizeof(pbm_delete_record_resp_msg_v01)},
        {QMI_IDL_REQUEST, QMI_PBM_DELETE_ALL_PB_RECORDS_REQ_V01,
         sizeof(pbm_delete_all_pb_records_req_msg_v01)},
        {QMI_IDL_RESPONSE, QMI_PBM_DELETE_ALL_PB_RECORDS_RESP_V01,
         sizeof(pbm_delete_all_pb_records_resp_msg_v01)},
    };
    if (!obj)
        return true; /* reported by wm_qmi_init_client */
    for (const auto &m : used) {
        uint32_t len = 0;
        if (qmi_idl_get_message_c_struct_len(obj, m.type, m.id, &len) != QMI_IDL_LIB_NO_ERR ||
            len != m.size) {
            PB_LOG("message 0x%04x type %d: library size %u, ours %u\n\n", m.id, m.type,
                   static_cast<unsigned>(len), static_cast<unsigned>(m.size));
            return false;
        }
    }
    return true;
}

void pb_qmi_write_nv(const char *key, int value)
{
    char text[32];
    (void)std::snprintf(text, sizeof text, "%d", value);
    (void)nvmram_writenv(key, text, static_cast<int>(std::strlen(text)) + 1);
}

}  // namespace

int wm_qmi_init_client(qmi_idl_service_object_type *service_object, qmi_client_type *service_notifier,
                       qmi_service_info *service_info)
{
    /* The notifier keeps a pointer to its signal until it is released. */
    static qmi_client_os_params os_params;

    if (!service_object || !*service_object) {
        PB_LOG("service object is NULL\n\n");
        return -1;
    }
    const qmi_idl_service_object_type obj = *service_object;
    std::memset(&os_params, 0, sizeof os_params);
    if (qmi_client_notifier_init(obj, &os_params, service_notifier) != QMI_NO_ERR) {
        PB_LOG("notify init error!\n");
        return -1;
    }

    unsigned int num_services = 0;
    unsigned int num_entries = 0;
    for (;;) {
        const qmi_client_error_type rc = qmi_client_get_service_list(obj, nullptr, nullptr, &num_services);
        PB_LOG("1rc:%d  num_services=%d\n\n", rc, num_services);
        if (rc == QMI_NO_ERR)
            break;
        os_params.timed_out = 0;
        pthread_mutex_lock(&os_params.mutex);
        while (os_params.sig_set == 0)
            pthread_cond_wait(&os_params.cond, &os_params.mutex);
        pthread_mutex_unlock(&os_params.mutex);
    }
    PB_LOG("get_service_list OK!\n");

    num_entries = num_services < kServiceSlots ? num_services : kServiceSlots;
    const qmi_client_error_type rc =
        qmi_client_get_service_list(obj, service_info, &num_entries, &num_services);
    PB_LOG(" 2rc:%d num_entries=%d num_services=%d\n\n", rc, num_entries, num_services);
    if (rc != QMI_NO_ERR) {
        PB_LOG("2get_service_list error!\n");
        return -1;
    }
    return 0;
}

int pb_qmi_init(void)
{
    qmi_service_info service_info[kServiceSlots];
    std::memset(service_info, 0, sizeof service_info);
    pbm_user_handle = nullptr;
    g_pbm_srv_notifier = nullptr;

    pbm_service_obj = pbm_get_service_object_internal_v01(PBM_V01_IDL_MAJOR_VERS, PBM_V01_IDL_MINOR_VERS,
                                                          PBM_V01_IDL_TOOL_VERS);
    qmi_client_error_type rc = -1;
    if (pb_qmi_sizes_match(pbm_service_obj))
        rc = wm_qmi_init_client(&pbm_service_obj, &g_pbm_srv_notifier, service_info);
    /* Without a service list there is no entry to connect to. */
    if (rc == 0)
        rc = qmi_client_init(&service_info[0], pbm_service_obj, pb_qmi_unsol_ind_handle, nullptr, nullptr,
                             &pbm_user_handle);
    if (rc != QMI_NO_ERR) {
        PB_LOG("Error: connection not Initialized...Error Code:%d\n\n", rc);
        (void)qmi_client_release(g_pbm_srv_notifier);
        pb_qmi_release(pbm_user_handle);
        /* Released: later requests fail on the empty handle, and pb_qmi_fin
         * does not release them a second time. */
        g_pbm_srv_notifier = nullptr;
        pbm_user_handle = nullptr;
    } else {
        PB_LOG("Connection Initialized....User Handle:%x\n\n",
               static_cast<unsigned int>(reinterpret_cast<uintptr_t>(pbm_user_handle)));
    }
    /* A failed connection shows as failing requests, which lose it. */
    g_client_lost = false;
    return 0;
}

int pb_qmi_fin(void)
{
    pb_qmi_release(pbm_user_handle);
    pb_qmi_release(g_pbm_srv_notifier);
    return 0;
}

bool pb_qmi_lost() { return g_client_lost; }

bool pb_qmi_unanswered() { return g_timed_out; }

int pb_qmi_reconnect()
{
    if (!g_client_lost)
        return 0;
    if (pbm_user_handle != nullptr || g_pbm_srv_notifier != nullptr) {
        pb_qmi_fin();
        pbm_user_handle = nullptr;
        g_pbm_srv_notifier = nullptr;
    }
    /* The service thread does not sit waiting for a modem that is down:
     * device requests go on being served, and the next SIM request tries
     * again. */
    unsigned int num_services = 0;
    if (qmi_client_get_service_list(pbm_service_obj, nullptr, nullptr, &num_services) != QMI_NO_ERR) {
        PB_LOG("modem phonebook service not up yet\n");
        return -1;
    }
    (void)pb_qmi_init();
    if (pbm_user_handle == nullptr) {
        g_client_lost = true;
        return -1;
    }
    return 0;
}

void pb_qmi_start_read()
{
    (void)simlib_clear_flash(g_storage_type);
    (void)pb_qmi_get_all();
}

pb_return_code_enum_t pb_qmi_check_read()
{
    if (g_sim_module.pb_sim_read_flag != 2 || pb_now_ms() - g_read_progress_ms < kReadStallMs)
        return PB_RCODE_READED_ERR;
    if (g_read_restarts >= kReadRestarts) {
        PB_LOG("SIM phonebook not read: %d of %d records after %d tries\n", pb_index - 1,
               g_sim_module.pb_sim_used, g_read_restarts + 1);
        g_sim_module.pb_sim_read_flag = 0;
        g_read_restarts = 0; /* the next get-all starts anew */
        return PB_RCODE_READ_ERR;
    }
    ++g_read_restarts;
    PB_LOG("no record for %ld ms with %d of %d read: reading the card again (%d)\n", kReadStallMs,
           pb_index - 1, g_sim_module.pb_sim_used, g_read_restarts);
    g_sim_module.pb_sim_read_flag = 0;
    (void)simlib_clear_flash(g_storage_type);
    /* A modem that is gone fails this at the transport and loses the
     * client; the next get-all then makes a new one. */
    (void)pb_qmi_get_all();
    return PB_RCODE_READED_ERR;
}

int pb_qmi_get_all(void)
{
    pb_index = 1;
    std::memset(g_read_seen, 0, sizeof g_read_seen);
    g_read_progress_ms = pb_now_ms();

    pbm_get_pb_capabilities_resp_msg_v01 caps_rsp;
    PB_LOG("Size of request is %d\n\n", static_cast<int>(sizeof(pbm_get_pb_capabilities_req_msg_v01)));
    PB_LOG("Size of response is %d\n\n", static_cast<int>(sizeof caps_rsp));
    PB_LOG("Information being sent is session type = %d, PB type = %d\n\n", kSession, kAdn);
    qmi_client_error_type rc = pb_qmi_ask_caps(&caps_rsp);
    if (rc != QMI_NO_ERR) {
        PB_LOG("Getting PB info for PB type %d returned error %d\n\n", kAdn, rc);
        PB_LOG("get_pb_info failed\n");
        return -1;
    }
    if (!caps_rsp.capability_basic_info_valid) {
        PB_LOG(" Error: Information received for ADN did not return total number of records\n\n");
        return -1;
    }
    const pbm_capability_basic_info_type_v01 &caps = caps_rsp.capability_basic_info;
    g_sim_module.pb_sim_max_count = caps.max_records;
    g_sim_module.pb_sim_used = caps.used_records;
    g_sim_module.pb_sim_max_name_len = caps.max_name_len;
    g_sim_module.pb_sim_max_num_len = caps.max_num_len;
    pb_qmi_write_nv("pb_sim_max_count", caps.max_records);
    pb_qmi_write_nv("pb_sim_name_maxlen", g_sim_module.pb_sim_max_name_len);
    pb_qmi_write_nv("pb_sim_number_maxlen", g_sim_module.pb_sim_max_num_len);

    pbm_read_records_req_msg_v01 read_req;
    pbm_read_records_resp_msg_v01 read_rsp;
    std::memset(&read_req, 0, sizeof read_req);
    std::memset(&read_rsp, 0, sizeof read_rsp);
    read_req.record_info.session_type = kSession;
    read_req.record_info.pb_type = kAdn;
    read_req.record_info.record_start_id = 1;
    read_req.record_info.record_end_id = caps.max_records;
    rc = pb_qmi_send(QMI_PBM_READ_RECORDS_REQ_V01, &read_req, sizeof read_req, &read_rsp, sizeof read_rsp,
                     kReadTimeoutMs);
    if (rc != QMI_NO_ERR) {
        PB_LOG("Read request for ADN failed with error code = %d\n\n", rc);
        return -1;
    }
    /* Refused or without a count: the flag stays, the next get-all retries. */
    if (read_rsp.resp.result != QMI_RESULT_SUCCESS_V01 || !read_rsp.num_of_recs_valid)
        return 0;
    if (read_rsp.num_of_recs == 0) {
        PB_LOG("There are no entries filled in ADN, nothing to read\n\n");
        g_sim_module.pb_sim_read_flag = 1;
        g_read_restarts = 0;
        return 0;
    }
    PB_LOG("There are %d filled entries in ADN\n\n", read_rsp.num_of_recs);
    g_read_progress_ms = pb_now_ms();
    g_sim_module.pb_sim_read_flag = 2;
    return 0;
}

pb_return_code_enum_t pb_send_request_asyn(zp_uint32 dest_id, zp_uint32 msg_id, const void *data, size_t len)
{
    ipc_addr_t addr;
    if (!pb_ipc_addr_of(dest_id, &addr, __func__))
        return PB_RCODE_ERROR;
    pb_ipc_msg msg(msg_id, data, len, PB_SITE_QMI_READ_IND);
    if (msg.get() == nullptr) {
        PB_LOG("alloc IPC memory failed.\n");
        return PB_RCODE_ERROR;
    }
    (void)ipc_gen_seesion_id(msg.head());
    const zp_sdk_ipc_ret_value ret = ipc_msg_send_asy(&addr, msg.get(), static_cast<zp_uint32>(len));
    if (ret != IPC_OK) {
        PB_LOG("IPC send asyn request failed, ret = %lu\n", static_cast<unsigned long>(ret));
        return PB_RCODE_ERROR;
    }
    return PB_RCODE_OK;
}

pb_return_code_enum_t pb_qmi_read_cb(pbm_record_read_ind_msg_v01 *pbm_read_ind)
{
    PB_LOG("enter pb_qmi_read_cb\n");
    pb_return_code_enum_t result = PB_RCODE_OK;
    if (!pbm_read_ind)
        return PB_RCODE_BUFFNULL_ERR;
    pbm_basic_record_data_type_v01 &data = pbm_read_ind->basic_record_data;
    /* The structure came over IPC: its counts are checked before use. */
    if (data.record_instances_len > QMI_PBM_MAX_NUM_BASIC_RECORD_INSTANCE_V01) {
        PB_LOG("record count %u out of range\n", static_cast<unsigned>(data.record_instances_len));
        return PB_RCODE_INVALID_ERR;
    }
    /* The records of one indication go to the file with one append. */
    pb_flash_info infos[QMI_PBM_MAX_NUM_BASIC_RECORD_INSTANCE_V01];
    std::memset(infos, 0, sizeof infos);
    int stored = 0;
    for (uint32_t i = 0; i < data.record_instances_len; ++i) {
        pbm_record_instance_type_v01 &rec = data.record_instances[i];
        if (!pb_read_first_time(rec.record_id)) {
            PB_LOG("record %u came twice in this read, stored once\n", static_cast<unsigned>(rec.record_id));
            continue;
        }
        pb_flash_info &info = infos[stored++];
        info.index = static_cast<zp_uint32>(pb_index++);
        info.sim_index = rec.record_id;
        const auto *nb = reinterpret_cast<const unsigned char *>(rec.name);
        PB_LOG("PB DECODE: name = 0x %02x %02x %02x %02x %02x %02x %02x\n", nb[0], nb[1], nb[2], nb[3], nb[4],
               nb[5], nb[6]);

        /* Whole UCS-2 characters only: an odd last byte has no partner. */
        uint32_t name_len = rec.name_len;
        if (name_len > QMI_PBM_NAME_MAX_LENGTH_V01)
            name_len = QMI_PBM_NAME_MAX_LENGTH_V01;
        name_len &= ~1u;
        conv_swap_the_double_bytes_order(rec.name, static_cast<int>(name_len));
        char utf8[3 * (QMI_PBM_NAME_MAX_LENGTH_V01 / 2) + 1];
        int utf8_len = 0;
        const int conv = conv_ucs2_to_utf8(utf8, &utf8_len, rec.name, static_cast<int>(name_len));
        if (conv != 0) {
            PB_LOG("decode record 's name error, error code=%d\n", conv);
        } else if (utf8_len > 0) {
            const size_t n = pb_utf8_cut(utf8, static_cast<size_t>(utf8_len), kTextMax);
            std::memcpy(info.name, utf8, n);
        }

        uint32_t num_len = rec.number_len;
        if (num_len > QMI_PBM_NUMBER_MAX_LENGTH_V01)
            num_len = QMI_PBM_NUMBER_MAX_LENGTH_V01;
        sim_to_display(rec.number, static_cast<int>(num_len));
        size_t at = 0;
        if (rec.num_type == PBM_NUM_TYPE_INTERNATIONAL_V01)
            info.num[at++] = '+';
        std::memcpy(info.num + at, rec.number, num_len); /* at most 41 of 50 bytes */

        PB_LOG(
            "PB RECORD: index = %d, sim_index = %d, name = %s, number = %s, num_type = 0x%x, num_plan=0x%x\n",
            static_cast<int>(info.index), static_cast<int>(info.sim_index), info.name, info.num,
            static_cast<unsigned>(rec.num_type), static_cast<unsigned>(rec.num_plan));
    }
    if (stored > 0 && pb_book_append(g_storage_type, infos, stored) != 0) {
        PB_LOG("write pb record into share memory failure\n\n");
        result = PB_RCODE_ERROR;
    }
    g_read_progress_ms = pb_now_ms();
    PB_LOG("pb_index = %d, pb_sim_used = %d\n", pb_index, g_sim_module.pb_sim_used);
    if (g_sim_module.pb_sim_used < pb_index) {
        g_sim_module.pb_sim_read_flag = 1;
        g_read_restarts = 0;
    }
    return result;
}

int pb_qmi_add_entry(pb_flash_info *info)
{
    if (!pb_qmi_entry_ok(info, false, __func__))
        return -1;
    pbm_write_record_req_msg_v01 req;
    pbm_write_record_resp_msg_v01 rsp;
    std::memset(&req, 0, sizeof req);
    (void)pb_qmi_fill_record(info, 0, &req.record_information);
    if (pb_qmi_send_write(&req, &rsp, __func__) != 0)
        return -1;
    if (rsp.record_id_valid) {
        info->sim_index = rsp.record_id;
        PB_LOG("New record was added at index %d\n\n", rsp.record_id);
    }
    return 0;
}

int pb_qmi_edit_entry(pb_flash_info *info)
{
    if (!pb_qmi_entry_ok(info, true, __func__))
        return -1;
    pbm_write_record_req_msg_v01 req;
    std::memset(&req, 0, sizeof req);
    const size_t utf8_len =
        pb_qmi_fill_record(info, static_cast<uint16_t>(info->sim_index), &req.record_information);
    PB_LOG("edit len before = %d, after = %d\n", static_cast<int>(utf8_len),
           static_cast<int>(req.record_information.name_len));
    pbm_write_record_resp_msg_v01 rsp;
    return pb_qmi_send_write(&req, &rsp, __func__);
}

int pb_qmi_del_entry(pb_flash_info *info)
{
    if (!pb_qmi_entry_ok(info, true, __func__))
        return -1;
    pbm_delete_record_req_msg_v01 req;
    std::memset(&req, 0, sizeof req);
    req.record_info.session_type = kSession;
    req.record_info.pb_type = kAdn;
    req.record_info.record_id = static_cast<uint16_t>(info->sim_index);
    pbm_delete_record_resp_msg_v01 rsp;
    return pb_qmi_change(
        QMI_PBM_DELETE_RECORD_REQ_V01, &req, sizeof req, &rsp, sizeof rsp, kWriteTimeoutMs, __func__,
        "Error: Sending synchronous request for delete record failed with error code ",
        "Writing a record using PBM failed with error code ", "Delete a record using PBM was successful\n");
}

int pb_qmi_del_all(void)
{
    pbm_delete_all_pb_records_req_msg_v01 req;
    std::memset(&req, 0, sizeof req);
    req.phonebook_info.session_type = kSession;
    req.phonebook_info.pb_type = kAdn;
    pbm_delete_all_pb_records_resp_msg_v01 rsp;
    return pb_qmi_change(QMI_PBM_DELETE_ALL_PB_RECORDS_REQ_V01, &req, sizeof req, &rsp, sizeof rsp,
                         kDelAllTimeoutMs, __func__,
                         "Error: Sending synchronous request for delete record failed with error code ",
                         "delete all pb failed with error code ", "Delete all pb successful\n");
}
