// The engine's record of the card, engine start-up and the five entry
// operations that the service thread runs for write requests.
//
// Every entry operation works on a working copy: a whole table local to the
// call, zero-filled, loaded from the phonebook file, changed with the table
// operations and written back whole. For the SIM phonebook the card is
// written before the working copy changes, so a refusal by the card leaves
// table and file as they were; and no SIM change is made before the card
// has been read to the end. Each holds the phonebook file's lock from
// before the load until after the save, so that an import in another
// process cannot save over the change, nor the change over the import.
// Only the service thread calls these; they keep no state between calls.
// g_sim_module changes only on that thread.
#include <cstring>
#include <optional>

#include "pb_book.h"
#include "pb_log.h"
#include "pb_msg.h"
#include "pb_qmi.h"
#include "pb_qmi_link.h"
#include "pb_tables.h"
#include "pb_work.h"
#include "zpt_ui_pb_func.h"

pb_sim_module_s g_sim_module;
storage_type_t g_storage_type = STORAGE_TYPE_SIM;

namespace {

// A change of the SIM phonebook waits until the card has been read to the
// end over a live modem client: the file must mirror the card before it is
// changed, or the read would append the card over it. The first such change
// starts the read, as a get-all does, and is answered PB_RCODE_READED_ERR.
pb_return_code_enum_t pb_sim_ready(storage_type_t type)
{
    return type == STORAGE_TYPE_SIM ? pb_init_entries() : PB_RCODE_OK;
}

// A card write that failed: the card refused it (the client is told why),
// or the modem client was lost under it; then the SIM phonebook is read
// again before the next change. A write sent whose answer did not come in
// time may still be made by the card, so neither "done" nor "ask again" is
// true: the client is told to check the phonebook, read anew, before
// trying again. A write that never reached a modem that went away is asked
// again.
pb_return_code_enum_t pb_card_failure()
{
    if (!pb_qmi_lost())
        return PB_RCODE_SWAP_ERR;
    if (!pb_qmi_unanswered())
        return PB_RCODE_READED_ERR;
    PB_LOG("the card did not confirm the change: the SIM phonebook is to be read again\n");
    return PB_RCODE_UNCONFIRMED_ERR;
}

// Whether `stored` is the entry the client meant: the name and number it
// saw, or any entry when it sent neither.
bool pb_is_seen(const pb_flash_info &stored, const pb_flash_info &seen)
{
    if (seen.name[0] == '\0' && seen.num[0] == '\0')
        return true;
    return std::strncmp(stored.name, seen.name, PB_TEXT_LEN) == 0 &&
           std::strncmp(stored.num, seen.num, PB_TEXT_LEN) == 0;
}

bool pb_req_ok(const pb_event_req_t *req, const char *caller)
{
    if (req != nullptr)
        return true;
    PB_LOG_FOR(caller, "NULL pointer of req\n");
    return false;
}

// What an entry operation works in: a request (checked for `caller`), the
// SIM phonebook read to the end, the phonebook file's lock (held until the
// operation returns) and, when asked for, a working copy. While !ok(),
// status() is the operation's answer.
class EntryWork {
public:
    EntryWork(const pb_event_req_t *req, bool with_copy, const char *caller)
    {
        if (!pb_req_ok(req, caller))
            return;
        type_ = static_cast<storage_type_t>(req->storage_type);
        status_ = pb_sim_ready(type_);
        if (status_ != PB_RCODE_OK)
            return;
        lock_.emplace(type_);
        if (!lock_->ok()) {
            status_ = PB_RCODE_WRITE_ERR;
        } else if (with_copy) {
            copy_.emplace();
        }
    }

    bool ok() const { return status_ == PB_RCODE_OK; }
    pb_return_code_enum_t status() const { return status_; }
    storage_type_t type() const { return type_; }
    pb_mem_info *table() { return copy_->get(); }

    // Writes the working copy back whole; `failed` is logged for `caller`
    // when that fails.
    pb_return_code_enum_t save(const char *failed, const char *caller)
    {
        if (simlib_pb_to_flash(type_, table()) < 0) {
            PB_LOG_FOR(caller, "%s", failed);
            return PB_RCODE_WRITE_ERR;
        }
        return PB_RCODE_OK;
    }

private:
    storage_type_t type_ = STORAGE_TYPE_SIM;
    pb_return_code_enum_t status_ = PB_RCODE_ARGSERR;
    std::optional<pb_book_lock> lock_;
    std::optional<pb_working_copy> copy_;
};

constexpr const char *kSaveFailed = "simlib_pb_to_flash failed\n";

}  // namespace

pb_return_code_enum_t pb_func_add_entry(pb_event_req_t *req)
{
    if (!pb_req_ok(req, __func__))
        return PB_RCODE_ARGSERR;
    PB_LOG("PB ADD: name = %s, num = %s\n", req->value.name, req->value.num);

    EntryWork work(req, true, __func__);
    if (!work.ok())
        return work.status();
    // The dense loader renumbers the stored entries 1..n in file order; the
    // save below writes them back so, keeping device indices without gaps.
    if (simlib_pb_add_from_flash(work.type(), work.table()) != 0) {
        PB_LOG("simlib_pb_add_from_flash failed\n");
        return PB_RCODE_READ_ERR;
    }

    if (work.type() == STORAGE_TYPE_SIM) {
        pb_flash_info pb_entry;
        std::memset(&pb_entry, 0, sizeof pb_entry);
        int free_idx = pb_func_get_pb_free_index(work.table(), &pb_entry);
        if (free_idx < 0) {
            PB_LOG("Coundn't find a free position for new entry.\n");
            return PB_RCODE_NOTFREE_ERR;
        }
        PB_LOG("PB ADD ENTRY: new sim_index = %d\n", free_idx);
        req->value.sim_index = static_cast<zp_uint32>(free_idx);
        // The modem may report another record number; it lands in sim_index.
        if (pb_qmi_add_entry(&req->value) != 0) {
            PB_LOG("pb_qmi_add_entry failed\n");
            return pb_card_failure();
        }
    } else {
        req->value.sim_index = PB_SIM_INDEX_NONE;
    }

    pb_return_code_enum_t ret = simlib_pb_add(work.table(), &req->value);
    if (ret != PB_RCODE_OK) {
        PB_LOG("PB ADD ENTRY: simlib_pb_add failed, ret = %d\n", ret);
        return PB_RCODE_NOTFREE_ERR;
    }
    return work.save("write pb info from memory into file failure\n", __func__);
}

namespace {

// Edit and delete differ only in their log texts and in the card and table
// calls; the checks and their order are the same.
struct ChangeOp {
    bool edit;
    const char *name;  // "EDIT" or "DEL"
    int (*card)(pb_flash_info *);
    pb_return_code_enum_t (*table)(pb_mem_info *, pb_flash_info *);
    const char *card_failed;
};

pb_return_code_enum_t pb_func_change_entry(pb_event_req_t *req, const ChangeOp &op)
{
    if (!pb_req_ok(req, __func__))
        return PB_RCODE_ARGSERR;
    if (op.edit)
        PB_LOG("PB EDIT ENTRY: index = %d, num = %s, name = %s\n", req->value.index, req->value.num,
               req->value.name);
    else
        PB_LOG("PB DEL ENTRY: index = %d\n", req->value.index);

    if (req->value.index == 0) {
        PB_LOG("PB %s ENTRY: bad index = %d\n", op.name, req->value.index);
        return PB_RCODE_INVALID_ERR;
    }

    EntryWork work(req, true, __func__);
    if (!work.ok())
        return work.status();
    // A missing or unreadable file leaves the table empty; the lookup fails.
    (void)simlib_pb_from_flash(work.type(), work.table());

    pb_flash_info pb_entry;
    std::memset(&pb_entry, 0, sizeof pb_entry);
    if (simlib_pb_getbyidx(work.table(), req->value.index, &pb_entry, INDEX_TYPE_FLASH) != 0) {
        PB_LOG("PB %s ENTRY: index = %d not exist\n", op.name, req->value.index);
        return PB_RCODE_INVALID_ERR;
    }
    // Checked under the file's lock, so no other change comes between the
    // check and this one.
    if (!pb_is_seen(pb_entry, op.edit ? pb_req_seen(req) : req->value)) {
        PB_LOG("PB %s ENTRY: index = %d holds another entry now\n", op.name, req->value.index);
        return PB_RCODE_CHANGED_ERR;
    }

    if (work.type() == STORAGE_TYPE_SIM) {
        if (pb_entry.sim_index == 0) {
            PB_LOG("PB %s ENTRY: bad sim_index = %d in entry index = %d\n", op.name, pb_entry.sim_index,
                   req->value.index);
            return PB_RCODE_INVALID_ERR;
        }
        // The card record of the stored entry is the one changed, whatever
        // the client sent.
        req->value.sim_index = pb_entry.sim_index;
        if (op.card(&req->value) < 0) {
            PB_LOG("%s\n", op.card_failed);
            return pb_card_failure();
        }
    }

    pb_return_code_enum_t ret = op.table(work.table(), &req->value);
    if (ret != PB_RCODE_OK) {
        PB_LOG("PB %s ENTRY: %s failed, ret = %d\n", op.name, op.edit ? "simlib_pb_edit" : "simlib_pb_del",
               ret);
        return PB_RCODE_NOTFREE_ERR;
    }
    return work.save(kSaveFailed, __func__);
}

}  // namespace

pb_return_code_enum_t pb_func_edit_entry(pb_event_req_t *req)
{
    static const ChangeOp op = {true, "EDIT", pb_qmi_edit_entry, simlib_pb_edit, "pb_qmi_edit_entry failed"};
    return pb_func_change_entry(req, op);
}

pb_return_code_enum_t pb_func_del_entry(pb_event_req_t *req)
{
    static const ChangeOp op = {false, "DEL", pb_qmi_del_entry, simlib_pb_del, "pb_qmi_del_entry failed"};
    return pb_func_change_entry(req, op);
}

pb_return_code_enum_t pb_func_del_any(pb_event_req_t *req)
{
    EntryWork work(req, true, __func__);
    if (!work.ok())
        return work.status();
    (void)simlib_pb_from_flash(work.type(), work.table());

    // Every slot is looked at: a value below 1 is skipped and does not end
    // the list. A failed element leaves its entry in card and file.
    bool link_failed = false;
    for (int k = 0; k < PB_DEL_ANY_MAX; ++k) {
        const zp_int32 idx = req->any_idx[k];
        if (idx < 1)
            continue;
        pb_flash_info pb_entry;
        std::memset(&pb_entry, 0, sizeof pb_entry);
        if (simlib_pb_getbyidx(work.table(), static_cast<unsigned int>(idx), &pb_entry, INDEX_TYPE_FLASH) !=
            0) {
            PB_LOG("PB DEL ENTRY: index = %d not exist\n", idx);
            continue;
        }
        if (work.type() == STORAGE_TYPE_SIM) {
            if (pb_entry.sim_index == 0) {
                PB_LOG("PB DEL ENTRY: bad sim_index = %d in entry index = %d\n", pb_entry.sim_index, idx);
                continue;
            }
            if (pb_qmi_del_entry(&pb_entry) < 0) {
                PB_LOG("pb_qmi_del_entry failed\n");
                // Unanswered: the rest would wait as long; what was deleted
                // so far is saved.
                if ((link_failed = pb_qmi_lost()))
                    break;
                continue;
            }
        }
        pb_return_code_enum_t ret = simlib_pb_del(work.table(), &pb_entry);
        if (ret != PB_RCODE_OK)
            PB_LOG("PB DEL ENTRY: simlib_pb_del failed, ret = %d\n", ret);
    }

    // One save for the whole list.
    const pb_return_code_enum_t saved = work.save(kSaveFailed, __func__);
    return saved == PB_RCODE_OK && link_failed ? pb_card_failure() : saved;
}

pb_return_code_enum_t pb_func_del_all(pb_event_req_t *req)
{
    EntryWork work(req, false, __func__);
    if (!work.ok())
        return work.status();
    if (work.type() == STORAGE_TYPE_SIM && pb_qmi_del_all() != 0) {
        PB_LOG("pb_qmi_del_all failed\n");
        return pb_card_failure();
    }
    // An empty phonebook is simply a missing file.
    if (simlib_clear_flash(work.type()) < 0) {
        PB_LOG("simlib_clear_flash failed\n");
        return PB_RCODE_WRITE_ERR;
    }
    return PB_RCODE_OK;
}

int pb_func_init(void)
{
    PB_LOG("enter\n");
    // The SIM phonebook file is a cache of the card, rebuilt by the next
    // reading of the card; nothing of a previous run is reused.
    (void)simlib_clear_flash(g_storage_type);
    // A device phonebook write of an older firmware that was cut short is
    // put back before anything reads or writes the file.
    {
        pb_book_lock lock(STORAGE_TYPE_FLASH);
        if (pb_book_recover(STORAGE_TYPE_FLASH) != 0)
            PB_LOG("device phonebook backup could not be put back\n");
    }
    std::memset(&g_sim_module, 0, sizeof g_sim_module);

    int ret = 0;
    // The shared table is not used by the engine's own operations; its
    // setup is what marks the engine as initialised.
    if (simlib_pb_init(g_storage_type) < 0) {
        PB_LOG("pb share memory init failure\n");
        ret = -1;
    } else {
        g_sim_module.pb_sim_init_flag = 1;
        g_sim_module.pb_sim_read_flag = 0;
        g_sim_module.pb_sim_max_count = PB_MAX_ENTRIES;
    }
    PB_LOG("ok\n");
    return ret;
}

pb_return_code_enum_t pb_init_entries(void)
{
    if (g_sim_module.pb_sim_init_flag == 0) {
        PB_LOG("pb sim has not inited\n");
        return PB_RCODE_INIT_ERR;
    }
    switch (g_sim_module.pb_sim_read_flag) {
    case 1: PB_LOG("PB has been read before, return directly.\n"); return PB_RCODE_OK;
    case 0:
        // A lost modem client is replaced first, and the read starts at the
        // next ask: indications of the lost client still queued by then
        // arrive while no read runs and are dropped.
        if (pb_qmi_lost()) {
            (void)pb_qmi_reconnect();
            return PB_RCODE_READED_ERR;
        }
        // The first get-all starts the reading and is answered "not read
        // yet", even when the card turns out empty and the flag is 1 now.
        // Each read fills a fresh file.
        PB_LOG("Try to read PB\n");
        pb_qmi_start_read();
        PB_LOG("Try to read PB ok\n");
        return PB_RCODE_READED_ERR;
    case 2: PB_LOG("PB is reading, return\n"); return pb_qmi_check_read();
    default: PB_LOG("Bad flag for reading PB\n"); return PB_RCODE_ERROR;
    }
}
