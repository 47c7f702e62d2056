#include "phonebook.h"

#include <algorithm>
#include <cstdlib>

#include "nvmanager.h"

namespace pbweb {

namespace {

int nv_int(const char *key)
{
    char buf[32] = {};
    int len = 0;
    if (nvmram_readnv(key, buf, sizeof buf - 1, &len) != NV_OK || len <= 0 ||
        len >= static_cast<int>(sizeof buf))
        return 0;
    buf[len] = '\0';
    return std::max(0, std::atoi(buf));
}

}  // namespace

Phonebook::~Phonebook()
{
    simlib_pb_destroy(STORAGE_TYPE_SIM);
    simlib_pb_destroy(STORAGE_TYPE_FLASH);
}

bool Phonebook::open(std::string *error)
{
    if (simlib_pb_init(STORAGE_TYPE_SIM) != 0 || simlib_pb_init(STORAGE_TYPE_FLASH) != 0)
        return *error = "cannot make the phonebook tables", false;
    return true;
}

int Phonebook::read_locked(storage_type_t type, Entries *out)
{
    out->clear();
    return view_locked(type, [out](const pb_flash_info *p, size_t n) { out->assign(p, p + n); });
}

int Phonebook::read(storage_type_t type, Entries *out)
{
    std::lock_guard<std::mutex> lock(mu_);
    return read_locked(type, out);
}

int Phonebook::write_locked(storage_type_t type, sim_pb_handle_t action, pb_flash_info *info)
{
    return simlib_pb_write_handler(type, action, info);
}

int Phonebook::edit_checked_locked(storage_type_t type, pb_flash_info *info, const pb_flash_info *seen)
{
    return simlib_pb_edit_checked(type, info, seen);
}

int Phonebook::add_contacts_locked(storage_type_t into, const std::vector<pbx::Contact> &contacts, bool cut,
                                   pbx::Report *report)
{
    if (into == STORAGE_TYPE_FLASH)
        return pbx::import_to_device(contacts, report);
    pbx::SimCopy how;
    how.cut = cut;
    if (int rc = read_locked(STORAGE_TYPE_SIM, &how.present); rc != PB_RCODE_OK)
        return rc;
    if (!pbx::read_sim_limits(&how.limits))
        return PB_RCODE_ERROR;  // the service has not read the card's limits
    how.add = [this](pb_flash_info *e) { return write_locked(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_ADD, e); };
    return pbx::copy_to_sim(contacts, how, report);
}

int Phonebook::import(const std::vector<pbx::Contact> &contacts, pbx::Report *report)
{
    std::lock_guard<std::mutex> lock(mu_);
    return add_contacts_locked(STORAGE_TYPE_FLASH, contacts, false, report);
}

SimLimits Phonebook::sim_limits() const
{
    return {nv_int("pb_sim_max_count"), nv_int("pb_sim_name_maxlen"), nv_int("pb_sim_number_maxlen")};
}

}  // namespace pbweb
