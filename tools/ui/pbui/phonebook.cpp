// The phonebook operations of every user interface on the client API: the
// waits while the SIM phonebook is being read, the conditional edit and
// delete that follow their entry to a new index, the new entry's index
// after an add, and the copy into the SIM one add at a time. pbcli and pbweb
// differ only in whether they wait and follow (Waiting, follow), so that
// both make every change the same way.
#include "phonebook.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <thread>

#include "words.h"

namespace pbui {

namespace {

using Clock = std::chrono::steady_clock;

// Poll interval while the SIM phonebook is being read.
constexpr auto kPoll = std::chrono::milliseconds(200);
// How often one change follows its entry to a new index.
constexpr int kMaxFollows = 5;

// The entry a change meant, in the phonebook as it is now: the same entry
// when it is there, else the first with the name and number the change
// carries (what the service compares).
const pb_flash_info *find_seen(const Entries &now, const pb_flash_info &was)
{
    if (const pb_flash_info *same = find_same(now, was))
        return same;
    for (const pb_flash_info &e : now)
        if (std::strcmp(e.name, was.name) == 0 && std::strcmp(e.num, was.num) == 0)
            return &e;
    return nullptr;
}

}  // namespace

Entries found_by(const Search &search, const pb_flash_info *v, size_t n)
{
    Entries found;
    std::copy_if(v, v + n, std::back_inserter(found),
                 [&](const pb_flash_info &e) { return search.matches(e); });
    return found;
}

bool export_text(const Entries &entries, Format f, std::string *out)
{
    if (f == Format::MODULE) {
        // A backup that would read back otherwise is refused whole.
        if (std::string why = module_lines_refusal(entries); !why.empty())
            return *out = std::move(why), false;
    }
    *out = format(entries, f);
    return true;
}

Phonebook::Phonebook(Waiting waiting, bool follow)
    : on_wait_(std::move(waiting.on_wait)),
      deadline_(Clock::now() +
                std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(waiting.seconds))),
      follow_(follow)
{}

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

bool Phonebook::pause()
{
    if (Clock::now() + kPoll > deadline_)
        return false;
    if (!told_ && on_wait_)
        on_wait_();
    told_ = true;
    std::this_thread::sleep_for(kPoll);
    return true;
}

int Phonebook::read(storage_type_t type, Entries *out)
{
    std::lock_guard<std::recursive_mutex> lock(mu_);
    for (;;) {
        out->clear();
        const int rc = view(type, [out](const pb_flash_info *p, size_t n) { out->assign(p, p + n); });
        if (!rcode_busy(rc) || !pause())
            return rc;
    }
}

// One change through the service, asked again while the SIM phonebook is
// not ready. With `was` the service makes it only while the index still
// holds was's name and number; when it answers that the entry changed (or
// is gone from the index), and before each new ask, the entry is looked up
// and, when following, the change goes to its new index (info->index tells
// where); an edit that follows keeps the fields not given from the entry
// where it found it.
int Phonebook::change(storage_type_t type, sim_pb_handle_t action, pb_flash_info *info,
                      const pb_flash_info *was, const Fields *fields)
{
    std::lock_guard<std::recursive_mutex> lock(mu_);
    // A card's records have a name and a number only: refused here, before
    // the card refuses it for a reason the user cannot tell.
    if (type == STORAGE_TYPE_SIM && action != SIM_PB_HANDLE_TYPE_DEL && info->email[0] != '\0')
        return PBUI_SIM_NO_EMAIL;
    for (int follows = 0;;) {
        pb_flash_info sent = *info;
        const int rc = action == SIM_PB_HANDLE_TYPE_EDIT && was != nullptr
                           ? simlib_pb_edit_checked(type, &sent, was)
                           : simlib_pb_write_handler(type, action, &sent);
        const bool moved = follow_ && was != nullptr &&
                           (rc == PB_RCODE_CHANGED_ERR || rc == PB_RCODE_INVALID_ERR) &&
                           ++follows <= kMaxFollows;
        if (!moved && (!rcode_busy(rc) || !pause())) {
            // The card may or may not have made the change: the SIM
            // phonebook is read again before the user is told to check it.
            if (rc == PB_RCODE_UNCONFIRMED_ERR) {
                Entries now;
                (void)read(type, &now);
            }
            *info = sent;
            return rc;
        }
        if (was != nullptr) {
            Entries now;
            if (int r = read(type, &now); r != PB_RCODE_OK)
                return r;
            const pb_flash_info *e = find_seen(now, *was);
            if (e == nullptr)
                return PB_RCODE_CHANGED_ERR;
            *info = *e;
            if (fields != nullptr)
                set_fields(info, *fields);
        }
    }
}

int Phonebook::add(storage_type_t type, pb_flash_info *e)
{
    std::lock_guard<std::recursive_mutex> lock(mu_);
    if (int rc = change(type, SIM_PB_HANDLE_TYPE_ADD, e, nullptr, nullptr); rc != PB_RCODE_OK)
        return rc;
    // The service answers with the SIM record only; the new entry is the
    // last one that holds what was added.
    Entries after;
    (void)read(type, &after);
    for (auto it = after.rbegin(); it != after.rend(); ++it) {
        if (std::strcmp(it->name, e->name) == 0 && std::strcmp(it->num, e->num) == 0 &&
            std::strcmp(it->email, e->email) == 0 &&
            (type != STORAGE_TYPE_SIM || it->sim_index == e->sim_index)) {
            *e = *it;
            break;
        }
    }
    return PB_RCODE_OK;
}

int Phonebook::edit(storage_type_t type, const pb_flash_info &was, const Fields &fields, pb_flash_info *now)
{
    std::lock_guard<std::recursive_mutex> lock(mu_);
    *now = was;
    set_fields(now, fields);
    if (int rc = change(type, SIM_PB_HANDLE_TYPE_EDIT, now, &was, &fields); rc != PB_RCODE_OK)
        return rc;
    Entries after;
    if (read(type, &after) == PB_RCODE_OK)
        if (const pb_flash_info *e = find_entry(after, static_cast<int>(now->index)))
            *now = *e;
    return PB_RCODE_OK;
}

int Phonebook::remove(storage_type_t type, const pb_flash_info &was, int *index)
{
    pb_flash_info e = was;
    const int rc = change(type, SIM_PB_HANDLE_TYPE_DEL, &e, &was, nullptr);
    *index = static_cast<int>(e.index);
    return rc;
}

int Phonebook::remove_all(storage_type_t type)
{
    pb_flash_info e;
    std::memset(&e, 0, sizeof e);
    return change(type, SIM_PB_HANDLE_TYPE_DEL_ALL, &e, nullptr, nullptr);
}

int Phonebook::add_contacts(storage_type_t into, const std::vector<Contact> &contacts, bool cut,
                            Report *report)
{
    std::lock_guard<std::recursive_mutex> lock(mu_);
    if (into == STORAGE_TYPE_FLASH)
        return import_to_device(contacts, report);
    SimCopy how;
    how.cut = cut;
    if (int rc = read(STORAGE_TYPE_SIM, &how.present); rc != PB_RCODE_OK)
        return rc;
    if (!read_sim_limits(&how.limits))
        return PBUI_LIMITS_UNKNOWN;
    // One add a time through the service, each asked again while the card
    // is being read, like any other SIM change.
    how.add = [this](pb_flash_info *e) {
        return change(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_ADD, e, nullptr, nullptr);
    };
    return copy_to_sim(contacts, how, report);
}

}  // namespace pbui
