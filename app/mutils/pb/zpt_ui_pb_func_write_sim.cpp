// The SIM write dispatcher: one add, edit or delete of a bare entry, for
// direct callers in the process that hosts the service.
//
// Unlike the entry operations it refuses to work before the engine is
// initialised or, for the SIM phonebook, before the card has been read; it
// refuses two entries with the same name; and it changes the working copy
// first and the card afterwards, saving the file whatever the card answers.
// It reads the engine's flags without a lock and is not serialised with the
// service thread: callers keep it from overlapping a write of the service.
// The phonebook file's lock is held from the load to the save.
#include <cstring>

#include "pb_book.h"
#include "pb_log.h"
#include "pb_qmi.h"
#include "pb_tables.h"
#include "pb_work.h"
#include "zpt_ui_pb_func.h"

namespace {

pb_return_code_enum_t write_sim_add(pb_mem_info *pb_mem, pb_flash_info *mpb, pb_flash_info *info,
                                    storage_type_t type)
{
    PB_LOG("PB ADD ENTRY: name = %s, num = %s\n", info->name, info->num);
    // Renumbers the stored entries 1..n in file order; a missing or
    // unreadable file gives an empty table.
    (void)simlib_pb_add_from_flash(type, pb_mem);

    if (simlib_pb_searchname(pb_mem, info->name, mpb) == 0) {
        PB_LOG("find duplicate record in pb list\n");
        return PB_RCODE_DUPLICATE_ERR;
    }
    zp_uint32 sim_index = PB_SIM_INDEX_NONE;
    if (type == STORAGE_TYPE_SIM) {
        int free_idx = pb_func_get_pb_free_index(pb_mem, mpb);
        if (free_idx < 0) {
            PB_LOG("Coundn't find a free position for new entry.\n");
            return PB_RCODE_NOTFREE_ERR;
        }
        PB_LOG("PB ADD ENTRY: new sim_index = %d\n", free_idx);
        sim_index = static_cast<zp_uint32>(free_idx);
    }
    info->sim_index = sim_index;

    pb_return_code_enum_t ret = simlib_pb_add(pb_mem, info);
    if (ret != PB_RCODE_OK) {
        PB_LOG("PB ADD ENTRY: simlib_pb_add failed, ret = %d\n", ret);
        return ret;
    }
    // The card's answer does not change the result; a record number that
    // the modem reports reaches info only, the table keeps the one chosen.
    if (type == STORAGE_TYPE_SIM)
        (void)pb_qmi_add_entry(info);
    return PB_RCODE_OK;
}

// Looks up the entry at info->index for an edit or delete and, for the SIM
// phonebook, takes over its stored record number into info.
pb_return_code_enum_t write_sim_find(pb_mem_info *pb_mem, pb_flash_info *mpb, pb_flash_info *info,
                                     storage_type_t type, const char *what)
{
    std::memset(mpb, 0, sizeof *mpb);
    if (simlib_pb_getbyidx(pb_mem, info->index, mpb, INDEX_TYPE_FLASH) != 0) {
        PB_LOG("PB %s ENTRY: index = %d not exist\n", what, info->index);
        return PB_RCODE_INVALID_ERR;
    }
    if (type == STORAGE_TYPE_SIM) {
        if (mpb->sim_index == 0) {
            PB_LOG("PB %s ENTRY: bad sim_index = %d in entry, index = %d\n", what, mpb->sim_index,
                   info->index);
            return PB_RCODE_INVALID_ERR;
        }
        info->sim_index = mpb->sim_index;
    }
    return PB_RCODE_OK;
}

// Edit and delete refuse an entry without an index before they load the
// file.
bool write_sim_index_ok(const pb_flash_info *info, const char *what)
{
    if (info->index != 0)
        return true;
    PB_LOG_FOR("pb_func_write_sim", "PB %s ENTRY: bad index = %d\n", what, info->index);
    return false;
}

pb_return_code_enum_t write_sim_edit(pb_mem_info *pb_mem, pb_flash_info *mpb, pb_flash_info *info,
                                     storage_type_t type)
{
    PB_LOG("PB EDIT ENTRY: index = %d, num = %s, name = %s\n", info->index, info->num, info->name);
    if (!write_sim_index_ok(info, "EDIT"))
        return PB_RCODE_INVALID_ERR;
    (void)simlib_pb_from_flash(type, pb_mem);

    // Comes before the existence test: an edit of a missing index to a name
    // in use is a duplicate. Finding the edited entry itself is not.
    if (simlib_pb_searchname(pb_mem, info->name, mpb) == 0 && mpb->index != info->index) {
        PB_LOG("There has an entry named = %s in PB\n", info->name);
        return PB_RCODE_DUPLICATE_ERR;
    }
    pb_return_code_enum_t ret = write_sim_find(pb_mem, mpb, info, type, "EDIT");
    if (ret != PB_RCODE_OK)
        return ret;

    ret = simlib_pb_edit(pb_mem, info);
    if (ret != PB_RCODE_OK) {
        PB_LOG("PB EDIT ENTRY: simlib_pb_edit failed, ret = %d\n", ret);
        return ret;
    }
    if (type == STORAGE_TYPE_SIM)
        (void)pb_qmi_edit_entry(info);
    return PB_RCODE_OK;
}

pb_return_code_enum_t write_sim_del(pb_mem_info *pb_mem, pb_flash_info *mpb, pb_flash_info *info,
                                    storage_type_t type)
{
    PB_LOG("PB DEL ENTRY: index = %d\n", info->index);
    if (!write_sim_index_ok(info, "DEL"))
        return PB_RCODE_INVALID_ERR;
    (void)simlib_pb_from_flash(type, pb_mem);

    pb_return_code_enum_t ret = write_sim_find(pb_mem, mpb, info, type, "DEL");
    if (ret != PB_RCODE_OK)
        return ret;

    ret = simlib_pb_del(pb_mem, info);
    if (ret != PB_RCODE_OK) {
        PB_LOG("PB DEL ENTRY: simlib_pb_del failed, ret = %d\n", ret);
        return ret;
    }
    if (type == STORAGE_TYPE_SIM)
        (void)pb_qmi_del_entry(info);
    return PB_RCODE_OK;
}

}  // namespace

pb_return_code_enum_t pb_func_write_sim(pb_flash_info *info, sim_pb_handle_t pb_event, storage_type_t type)
{
    pb_flash_info mpb;
    std::memset(&mpb, 0, sizeof mpb);
    pb_working_copy pb_mem;

    if (info == nullptr) {
        PB_LOG("pb info is null\n");
        return PB_RCODE_INVALID_ERR;
    }
    // Each flag is one byte, read once, without a lock.
    if (g_sim_module.pb_sim_init_flag == 0) {
        PB_LOG("pb sim has not inited\n");
        return PB_RCODE_ERROR;
    }
    // A device phonebook change does not wait for the card.
    if (type == STORAGE_TYPE_SIM && g_sim_module.pb_sim_read_flag != 1) {
        PB_LOG("pb sim has not read finish\n");
        return PB_RCODE_READED_ERR;
    }
    PB_LOG("Enter pb_func_write_sim: event = %d, type = %d\n", pb_event, type);
    pb_book_lock lock(type);
    if (!lock.ok())
        return PB_RCODE_WRITE_ERR;

    pb_return_code_enum_t ret;
    switch (pb_event) {
    case SIM_PB_HANDLE_TYPE_EDIT: ret = write_sim_edit(pb_mem.get(), &mpb, info, type); break;
    case SIM_PB_HANDLE_TYPE_DEL: ret = write_sim_del(pb_mem.get(), &mpb, info, type); break;
    case SIM_PB_HANDLE_TYPE_ADD: ret = write_sim_add(pb_mem.get(), &mpb, info, type); break;
    default: PB_LOG("PB action = %d was not supported.\n", pb_event); return PB_RCODE_INVALID_ERR;
    }
    if (ret != PB_RCODE_OK)
        return ret;

    if (simlib_pb_to_flash(type, pb_mem.get()) < 0) {
        PB_LOG("write pb info from memory into file failure\n");
        return PB_RCODE_WRITE_ERR;
    }
    return PB_RCODE_OK;
}
