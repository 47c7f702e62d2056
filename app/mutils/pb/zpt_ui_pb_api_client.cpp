// The client request API, run in user-interface processes.
//
// Write calls build a request on the caller's stack, send it synchronously to
// module MU_ID and block the calling thread until the service answers or the
// time limit (milliseconds) passes. Both IPC buffers of an exchange are the
// caller's and are given back on every path. Reads do not go through the
// service, except for asking whether the SIM has been read: the caller's
// process loads the phonebook file into its own shared table and gets a copy
// of the entries in a per-process static buffer that the next read
// overwrites and that nobody frees.
#include <algorithm>
#include <cstring>

#include "pb_log.h"
#include "pb_msg.h"
#include "pb_tables.h"
#include "zp_ipc.h"
#include "zpt_ui_pb_api.h"

namespace {

enum : zp_uint16 {
    SITE_REQUEST = PB_SITE_CLIENT + 1,
    SITE_RESPONSE = PB_SITE_CLIENT + 2,
};

constexpr zp_uint32 kNotifyTimeoutMs = 480000;
constexpr zp_uint32 kDelAnyTimeoutMs = 50000;

pb_flash_info g_read_result[PB_MAX_ENTRIES];

const char *storage_name(storage_type_t type)
{
    switch (type) {
    case STORAGE_TYPE_SIM: return "sim";
    case STORAGE_TYPE_FLASH: return "flash";
    default: return "unknown";
    }
}

// `seen`, when given, is the entry an edit is meant for (see pb_event_req_t).
pb_return_code_enum_t pb_event_notify(sim_pb_handle_t event, storage_type_t type, pb_flash_info *pvalue,
                                      const pb_flash_info *seen = nullptr)
{
    pb_event_req_t req;
    std::memset(&req, 0, sizeof req);
    req.event = event;
    req.storage_type = type;
    if (pvalue != nullptr)
        std::memcpy(&req.value, pvalue, sizeof req.value);
    if (seen != nullptr)
        pb_req_set_seen(&req, seen);

    pb_rsp_t rsp{0, 0};
    size_t rsp_len = sizeof rsp;
    if (simlib_send_request_sync(MU_ID, MSG_ID_PB_REQ, &req, sizeof req, &rsp, &rsp_len, kNotifyTimeoutMs) !=
        0)
        return PB_RCODE_ERROR;
    if (event == SIM_PB_HANDLE_TYPE_ADD && pvalue != nullptr)
        pvalue->sim_index = static_cast<zp_uint32>(rsp.value);
    return static_cast<pb_return_code_enum_t>(rsp.pb_result);
}

}  // namespace

int simlib_send_request_sync(zp_uint32 dest_id, zp_uint32 req_msg_id, const void *in_buf, size_t in_len,
                             void *out_buf, size_t *out_len, zp_uint32 timeout)
{
    if (out_buf == nullptr || out_len == nullptr) {
        PB_LOG("null pointer of out_buf/out_len\n");
        return -1;
    }
    ipc_addr_t addr;
    if (!pb_ipc_addr_of(dest_id, &addr, __func__))
        return -1;
    pb_ipc_msg req(req_msg_id, in_buf, in_len, SITE_REQUEST);
    if (req.get() == nullptr) {
        PB_LOG("alloc IPC memory failed\n");
        return -1;
    }
    // The answer is written over this buffer, head included.
    const size_t asked = *out_len;
    pb_ipc_msg rsp(0, nullptr, asked, SITE_RESPONSE);
    if (rsp.get() == nullptr) {
        PB_LOG("alloc IPC memory failed\n");
        return -1;
    }
    (void)ipc_gen_seesion_id(req.head());

    const zp_sdk_ipc_ret_value ret =
        ipc_msg_send_syn(&addr, req.get(), static_cast<zp_uint32>(in_len), timeout, rsp.get(), out_len);
    if (ret != IPC_OK) {
        PB_LOG("IPC send sync message failed, ret = %lu\n", static_cast<unsigned long>(ret));
        return -1;
    }
    PB_LOG("IPC: Sync Request ID = %lu, Response ID = %lu\n", static_cast<unsigned long>(req_msg_id),
           static_cast<unsigned long>(rsp.head()->msg_id));
    // Never more than the caller's buffer holds.
    *out_len = std::min(*out_len, asked);
    std::memcpy(out_buf, pb_msg_payload(rsp.get()), *out_len);
    return 0;
}

pb_return_code_enum_t simlib_pb_write_handler(storage_type_t type, sim_pb_handle_t h_type,
                                              pb_flash_info *info)
{
    PB_LOG("enter \n\n");
    PB_LOG("storage type:%s\n\n", storage_name(type));
    pb_return_code_enum_t ret;
    // An add writes the new record index back into info: without one there
    // is nowhere to put it, so nothing is sent.
    if (h_type == SIM_PB_HANDLE_TYPE_ADD && info == nullptr)
        ret = PB_RCODE_ARGSERR;
    else
        ret = pb_event_notify(h_type, type, info);
    if (ret != PB_RCODE_OK)
        PB_LOG("ui response error,error no:%d\n", ret);
    else
        PB_LOG("ok \n\n");
    return ret;
}

pb_return_code_enum_t simlib_pb_edit_checked(storage_type_t type, pb_flash_info *info,
                                             const pb_flash_info *seen)
{
    PB_LOG("enter\n");
    if (info == nullptr) {
        PB_LOG("bad para\n");
        return PB_RCODE_ARGSERR;
    }
    const pb_return_code_enum_t ret = pb_event_notify(SIM_PB_HANDLE_TYPE_EDIT, type, info, seen);
    PB_LOG("result = %d\n", ret);
    return ret;
}

pb_return_code_enum_t simlib_pb_del_any(storage_type_t type, int *idx_array, int count)
{
    if (count < 1 || count > PB_DEL_ANY_MAX || idx_array == nullptr) {
        PB_LOG("bad para\n");
        return PB_RCODE_ARGSERR;
    }
    pb_event_req_t req;
    std::memset(&req, 0, sizeof req);
    req.event = SIM_PB_HANDLE_TYPE_DEL_ANY;
    req.storage_type = type;
    for (int k = 0; k < count; ++k)
        req.any_idx[k] = idx_array[k];

    pb_rsp_t rsp{0, 0};
    size_t rsp_len = sizeof rsp;
    if (simlib_send_request_sync(MU_ID, MSG_ID_PB_REQ, &req, sizeof req, &rsp, &rsp_len, kDelAnyTimeoutMs) !=
        0) {
        PB_LOG("simlib_send_request_sync failed\n");
        return PB_RCODE_ERROR;
    }
    PB_LOG("simlib_pb_del_any result = %d\n", rsp.pb_result);
    return static_cast<pb_return_code_enum_t>(rsp.pb_result);
}

pb_flash_info *simlib_pb_read_handler(storage_type_t type, sim_pb_handle_t h_type, void *num)
{
    PB_LOG("enter \n\n");
    PB_LOG("storage type:%s\n\n", storage_name(type));

    pb_mem_info *table = nullptr;
    if (type == STORAGE_TYPE_FLASH)
        table = g_pb_mem_flash;
    else if (type == STORAGE_TYPE_SIM)
        table = g_pb_mem_sim;
    if (table == nullptr || num == nullptr) {
        PB_LOG("pb memory is null \n\n");
        return nullptr;
    }
    int *count_out = static_cast<int *>(num);

    // Asks whether the SIM has been read; the first ask starts the reading.
    if (type == STORAGE_TYPE_SIM && h_type == SIM_PB_HANDLE_TYPE_GETALL) {
        pb_return_code_enum_t ret = pb_event_notify(SIM_PB_HANDLE_TYPE_GETALL, STORAGE_TYPE_SIM, nullptr);
        PB_LOG("result:%d\n", ret);
        if (ret != PB_RCODE_OK) {
            *count_out = ret;
            PB_LOG("ui response error or notify failure error no:%d\n", ret);
            return nullptr;
        }
    }

    if (simlib_pb_from_flash(type, table) < 0) {
        PB_LOG("read from flash file failure \n\n");
        *count_out = 0;
        return nullptr;
    }
    std::memset(g_read_result, 0, sizeof g_read_result);
    if (h_type != SIM_PB_HANDLE_TYPE_GETALL)
        return nullptr;

    PB_LOG("enter \n\n");
    my_shm_read_lock(&table->pb_rwlock);
    int count = 0;
    for (const pb_flash_info &e : table->mem.pb) {
        if (e.index != 0)
            g_read_result[count++] = e;
    }
    PB_LOG("found %d entries, pb_count = %d\n", count, table->mem.pb_count);
    if (my_shm_unlock(&table->pb_rwlock) != 0) {
        PB_LOG("pb memory unlock failure \n\n");
        *count_out = 0;
        return nullptr;
    }
    if (count == 0 || static_cast<zp_uint32>(count) != table->mem.pb_count) {
        *count_out = 0;
        return nullptr;
    }
    *count_out = count;
    return g_read_result;
}
