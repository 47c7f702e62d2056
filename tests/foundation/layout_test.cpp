// Wire and file layouts, checked at compile time on every architecture the
// tests are built for (x86_64 and 32-bit ARM).
#include <gtest/gtest.h>

#include <cstddef>

#include "zp_ipc.h"
#include "zpt_ui_pb_func.h"

static_assert(sizeof(pb_flash_info) == 164);
static_assert(offsetof(pb_flash_info, sim_index) == 4);
static_assert(offsetof(pb_flash_info, name) == 8);
static_assert(offsetof(pb_flash_info, num) == 59);
static_assert(offsetof(pb_flash_info, email) == 110);
static_assert(sizeof(pb_flash_info_v) == 4 + 1000 * 164);

static_assert(sizeof(pb_event_req_t) == 972);
static_assert(offsetof(pb_event_req_t, value) == 4);
static_assert(offsetof(pb_event_req_t, storage_type) == 168);
static_assert(offsetof(pb_event_req_t, any_idx) == 172);
static_assert(sizeof(pb_rsp_t) == 8);
static_assert(offsetof(pb_rsp_t, pb_result) == 4);

static_assert(sizeof(ipc_msg_head_t) == 16);
static_assert(offsetof(ipc_msg_head_t, msg_id) == 4);
static_assert(offsetof(ipc_msg_head_t, length) == 8);
static_assert(offsetof(ipc_msg_head_t, session_id) == 12);
static_assert(sizeof(ipc_addr_t) == 116);
static_assert(offsetof(ipc_addr_t, addr) + offsetof(struct sockaddr_un, sun_path) == 6);

static_assert(sizeof(pb_fixed_sim_rec_s_type) == 14);
static_assert(offsetof(pb_fixed_sim_rec_s_type, number) == 2);
static_assert(offsetof(pb_fixed_sim_rec_s_type, ext_id) == 13);
static_assert(sizeof(pb_sim_module_s) == 24);
static_assert(offsetof(pb_sim_module_s, pb_sim_read_flag) == 20);
static_assert(offsetof(pb_sim_module_s, pb_sim_init_flag) == 21);

// Enumerations travel in 32-bit fields.
static_assert(sizeof(storage_type_t) == 4 && sizeof(pb_return_code_enum_t) == 4 &&
              sizeof(sim_pb_handle_t) == 4);
