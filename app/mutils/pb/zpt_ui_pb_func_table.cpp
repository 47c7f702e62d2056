// Operations on one phonebook table: add, edit, delete, search by name, look
// up by device or SIM record index, and the lowest free SIM record index.
//
// Each works on the table it is given under that table's own lock (the read
// lock for look-ups, the write lock for changes, held for the whole scan) and
// touches no file. Slot k holds device index k + 1; index 0 marks a free slot.
#include <cstring>

#include "pb_log.h"
#include "pb_tables.h"
#include "zpt_ui_pb_func.h"

namespace {

// Device index 1..1000; 0 and anything above wrap past the bound.
bool device_index_ok(zp_uint32 index) { return index - 1 < PB_MAX_ENTRIES; }

// The start of an edit or delete, logged for `caller`: checks the arguments
// and takes the table's write lock. The slot of info->index, or null (no
// lock taken) on bad arguments.
pb_flash_info *lock_slot(pb_mem_info *pb_mem, const pb_flash_info *info, const char *caller)
{
    PB_LOG_FOR(caller, "enter");
    if (pb_mem == nullptr || info == nullptr || !device_index_ok(info->index)) {
        PB_LOG_FOR(caller, "pb memory is null or pb index is error");
        return nullptr;
    }
    my_shm_write_lock(&pb_mem->pb_rwlock);
    return &pb_mem->mem.pb[info->index - 1];
}

// The end of a change: releases the table's write lock. PB_RCODE_OK when
// the change was made, PB_RCODE_ERROR when not, PB_RCODE_RWLOCK_ERR when
// the lock would not go.
pb_return_code_enum_t unlock_table(pb_mem_info *pb_mem, bool done, const char *caller)
{
    if (my_shm_unlock(&pb_mem->pb_rwlock) != 0) {
        PB_LOG_FOR(caller, "pb memory unlock failure");
        return PB_RCODE_RWLOCK_ERR;
    }
    return done ? PB_RCODE_OK : PB_RCODE_ERROR;
}

}  // namespace

pb_return_code_enum_t simlib_pb_add(pb_mem_info *pb_mem, pb_flash_info *info)
{
    PB_LOG("enter");
    if (pb_mem == nullptr || info == nullptr) {
        PB_LOG("pb memory is null or pb info is null");
        return PB_RCODE_BUFFNULL_ERR;
    }
    my_shm_write_lock(&pb_mem->pb_rwlock);
    int match = 0;
    for (zp_uint32 k = 0; k < PB_MAX_ENTRIES; ++k) {
        pb_flash_info &slot = pb_mem->mem.pb[k];
        if (slot.index != 0)
            continue;
        info->index = k + 1;
        slot = *info;
        ++pb_mem->mem.pb_count;
        match = 1;
        break;
    }
    PB_LOG("find empty position for add record match:%d", match);
    const pb_return_code_enum_t ret = unlock_table(pb_mem, match != 0, __func__);
    if (ret == PB_RCODE_OK)
        PB_LOG("ok");
    return ret;
}

pb_return_code_enum_t simlib_pb_edit(pb_mem_info *pb_mem, pb_flash_info *info)
{
    pb_flash_info *slot = lock_slot(pb_mem, info, __func__);
    if (slot == nullptr)
        return PB_RCODE_BUFFNULL_ERR;
    const bool found = slot->index != 0;
    if (found) {
        // The entry keeps its place on the card, whatever the caller sent.
        PB_LOG("find right pb record and replace");
        const zp_uint32 sim_index = slot->sim_index;
        *slot = *info;
        PB_LOG("write back pb's postion in sim card");
        slot->sim_index = sim_index;
    }
    return unlock_table(pb_mem, found, __func__);
}

pb_return_code_enum_t simlib_pb_del(pb_mem_info *pb_mem, pb_flash_info *info)
{
    pb_flash_info *slot = lock_slot(pb_mem, info, __func__);
    if (slot == nullptr)
        return PB_RCODE_BUFFNULL_ERR;
    PB_LOG("info->index [%d]", info->index);
    const bool found = slot->index != 0;
    if (found) {
        PB_LOG("find right pb record and delete [%d]", slot->index);
        std::memset(slot, 0, sizeof *slot);
        --pb_mem->mem.pb_count;
    }
    return unlock_table(pb_mem, found, __func__);
}

int simlib_pb_searchname(pb_mem_info *pb_mem, char *name, pb_flash_info *info)
{
    PB_LOG("enter");
    if (pb_mem == nullptr || name == nullptr) {
        PB_LOG("pb memory is null");
        return -1;
    }
    my_shm_read_lock(&pb_mem->pb_rwlock);
    zp_uint32 count = pb_mem->mem.pb_count;
    if (!device_index_ok(count)) {
        PB_LOG("pb record count is pb_count [%d]", count);
        my_shm_unlock(&pb_mem->pb_rwlock);
        return -1;
    }
    int result = -1;
    for (const pb_flash_info &slot : pb_mem->mem.pb) {
        if (slot.index != 0 && std::strcmp(slot.name, name) == 0) {
            *info = slot;
            result = 0;
            break;
        }
    }
    if (my_shm_unlock(&pb_mem->pb_rwlock) != 0)
        return -1;
    PB_LOG("ok");
    return result;
}

int simlib_pb_getbyidx(pb_mem_info *pb_mem, unsigned int index, pb_flash_info *info, index_type_t type)
{
    PB_LOG("Try to find entry: index/sim_index = %d, idx_type = %d", index, type);
    if (pb_mem == nullptr) {
        PB_LOG("pb memory is null");
        return -1;
    }
    if (type == INDEX_TYPE_FLASH && !device_index_ok(index)) {
        PB_LOG("pb type or pb record index is error");
        return -1;
    }
    my_shm_read_lock(&pb_mem->pb_rwlock);
    int result = -1;
    if (type == INDEX_TYPE_FLASH) {
        const pb_flash_info &slot = pb_mem->mem.pb[index - 1];
        PB_LOG("pb_index [%d] index [%d]", slot.index, index);
        if (pb_mem->mem.pb_count != 0 && slot.index != 0) {
            PB_LOG("Found Flash Entry[%d] in RAM: index = %d, sim_index = %d", index - 1, slot.index,
                   slot.sim_index);
            *info = slot;
            result = 0;
        }
    } else if (type == INDEX_TYPE_SIM) {
        for (int k = 0; k < PB_MAX_ENTRIES; ++k) {
            const pb_flash_info &slot = pb_mem->mem.pb[k];
            if (slot.index != 0 && slot.sim_index == index) {
                PB_LOG("Found SIM Entry[%d] in RAM: index = %d, sim_index = %d", k, slot.index, index);
                *info = slot;
                result = 0;
                break;
            }
        }
    }
    if (my_shm_unlock(&pb_mem->pb_rwlock) != 0) {
        PB_LOG("pb memory unlock failure");
        return -1;
    }
    PB_LOG("match result is %d", result);
    return result;
}

int pb_func_get_pb_free_index(pb_mem_info *p_pb_mem, pb_flash_info *mpb)
{
    PB_LOG("enter");
    if (g_sim_module.pb_sim_max_count < 0) {
        PB_LOG("max pb count in sim error");
        return -1;
    }
    if (mpb == nullptr) {
        PB_LOG("invalid input NULL");
        return -1;
    }
    // One probe per record number, each under its own read lock; the bound
    // is read again before every probe.
    for (zp_int32 j = 1; j <= g_sim_module.pb_sim_max_count; ++j) {
        if (simlib_pb_getbyidx(p_pb_mem, static_cast<unsigned int>(j), mpb, INDEX_TYPE_SIM) == -1) {
            PB_LOG("Found Free SIM Entry in ROM, sim_index = %d", j);
            return j;
        }
    }
    return -1;
}
