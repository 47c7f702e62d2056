// Contacts into a phonebook: each is checked (a number a phonebook can
// hold, a name and e-mail that fit, no duplicate, a name of its own) and
// added, and what became of it goes into the report.
//
// The device phonebook is changed the way the service changes it: load the
// file into a working copy, add, save once, all under the exclusive lock of
// the file's lock file. The SIM phonebook is changed only by the service:
// one add request per entry.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string_view>
#include <unordered_map>

#include "contacts.h"
#include "pb_data_dir.h"
#include "text.h"
#include "unique_fd.h"
#include "zpt_ui_pb_func.h"

namespace pbui {

namespace {

constexpr size_t kFieldBytes = PB_TEXT_LEN - 1;
constexpr zp_uint32 kNoSimRecord = 0xFFFFFFFFu;
constexpr size_t kMaxLabel = 12;  // a longer kind of number is no word to put after a name
// The lock the service and every other writer of the device phonebook take.
std::string device_lock_path() { return std::string(pb_data_dir()) + "/pb_device_file" PB_LOCK_SUFFIX; }

// The exclusive lock on a phonebook's lock file, held from construction to
// destruction; closing the file releases it.
class FileLock {
public:
    explicit FileLock(const char *path) : fd_(open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0640))
    {
        int rc = 0;
        while (fd_.valid() && (rc = flock(fd_.get(), LOCK_EX)) != 0 && errno == EINTR) {
        }
        if (rc != 0)
            fd_.reset();
    }
    bool held() const { return fd_.valid(); }

private:
    zp_host::UniqueFd fd_;
};

// A working copy of a whole table, zero-filled (an all-zero lock is a valid
// unlocked lock), from the heap: 165 KB is too much for some threads' stacks.
struct TableFree {
    void operator()(pb_mem_info *t) const
    {
        pthread_rwlock_destroy(&t->pb_rwlock);
        std::free(t);
    }
};
using Table = std::unique_ptr<pb_mem_info, TableFree>;

// The entries of a phonebook by name, to find duplicates and taken names.
// It points into entries that stay where they are while it is used.
class Book {
public:
    explicit Book(const pb_flash_info *entries, size_t n, size_t more)
    {
        names_.reserve(n + more);
        for (size_t k = 0; k < n; ++k)
            if (entries[k].index != 0)
                add(entries[k]);
    }
    void add(const pb_flash_info &e) { names_.emplace(std::string_view(e.name), &e); }
    // The entry of that name with that number; else whether the name is
    // taken by another number.
    const pb_flash_info *find(std::string_view name, const char *number, bool *taken) const
    {
        const auto [from, to] = names_.equal_range(name);
        for (auto it = from; it != to; ++it)
            if (std::strcmp(it->second->num, number) == 0)
                return it->second;
        *taken = from != to;
        return nullptr;
    }

private:
    std::unordered_multimap<std::string_view, const pb_flash_info *> names_;
};

// Text that is known to fit (at most 50 bytes) into a field, with a
// suffix after it.
void set_field(char (&field)[PB_TEXT_LEN], std::string_view text, std::string_view suffix = {})
{
    // An empty view may hold no pointer at all: memcpy wants one.
    if (!text.empty())
        std::memcpy(field, text.data(), text.size());
    if (!suffix.empty())
        std::memcpy(field + text.size(), suffix.data(), suffix.size());
    field[text.size() + suffix.size()] = '\0';
}

// The head of text that fits in max bytes, cut at a whole character, and
// without blanks at its end.
std::string_view head_of(std::string_view text, size_t max)
{
    return trim(text.substr(0, cut_length(text, max)));
}

// A name tried for an entry: written into `name`, cut to fit when allowed.
struct Fit {
    bool ok;
    bool cut;
    std::string why;
};
using Fitter =
    std::function<Fit(std::string_view base, const std::string &suffix, char (&name)[PB_TEXT_LEN])>;

// A device entry's name: at most 50 bytes, cut at a whole character.
Fit device_fit(std::string_view base, const std::string &suffix, char (&name)[PB_TEXT_LEN])
{
    if (suffix.size() >= kFieldBytes)
        return {false, false, "no name of its own fits"};
    const std::string_view head =
        suffix.empty() && base.size() <= kFieldBytes ? base : head_of(base, kFieldBytes - suffix.size());
    set_field(name, head, suffix);
    return {true, head.size() < base.size(), ""};
}

// A SIM entry's name: what the card's alpha identifier holds in the
// encoding the name needs; cut only when the user allowed it.
Fit sim_fit(std::string_view base, const std::string &suffix, char (&name)[PB_TEXT_LEN], int octets,
            bool allow_cut)
{
    const int need = sim_name_octets(std::string(base) + suffix);
    if (need < 0)
        return {false, false, "the name holds characters a SIM cannot store"};
    std::string_view head = head_of(base, kFieldBytes - suffix.size());
    if (head == base && need <= octets) {
        set_field(name, base, suffix);
        return {true, false, ""};
    }
    if (!allow_cut)
        return {false, false,
                "the name needs " + std::to_string(need) + " octets on the card, which holds " +
                    std::to_string(octets) +
                    (suffix.empty() ? "" : " (with \"" + suffix + "\" to tell it apart)")};
    while (!head.empty() && sim_name_octets(std::string(head) + suffix) > octets)
        head = head_of(head, head.size() - 1);
    if (sim_name_octets(std::string(head) + suffix) > octets)
        return {false, false, "the card holds no name of " + std::to_string(octets) + " octets"};
    set_field(name, head, suffix);
    return {true, true, ""};
}

// The text on one line, without blanks around it: line breaks and tabs
// inside become spaces, in *scratch when there are any.
std::string_view one_line(std::string_view s, std::string *scratch)
{
    s = trim(s);
    if (std::none_of(s.begin(), s.end(), [](char c) { return c == '\r' || c == '\n' || c == '\t'; }))
        return s;
    scratch->assign(s);
    for (char &c : *scratch)
        if (c == '\r' || c == '\n' || c == '\t')
            c = ' ';
    return *scratch;
}

// Checks a contact and fills line->entry with what would be stored. False,
// with the outcome set, when the contact is not to be added. A contact
// without a number is added where entries may have none (the device
// phonebook, which the page and pbcli add such entries to), when it has a
// name: an export of the phonebook reads back whole.
bool check(const Contact &c, const Book &book, const Fitter &fit, bool number_needed, ReportLine *line)
{
    line->from = c;
    if (!c.problem.empty()) {
        line->outcome = Outcome::NOT_READ;
        line->detail = c.problem;
        return false;
    }
    std::string number;
    if (std::string why = tidy_number(c.number, &number); !why.empty()) {
        line->outcome = Outcome::BAD_NUMBER;
        line->detail = why;
        return false;
    }
    if (number.empty() && (number_needed || c.name.empty())) {
        line->outcome = Outcome::NO_NUMBER;
        return false;
    }
    set_field(line->entry.num, number);
    std::string scratch;
    const std::string_view email = one_line(c.email, &scratch);
    line->email_cut = email.size() > kFieldBytes;
    set_field(line->entry.email, email.substr(0, cut_length(email, kFieldBytes)));

    // Names are unique in a phonebook: a name taken by another number gets
    // the kind of number, else a count, after it. An empty name is shared.
    std::string name_scratch, label_scratch;
    const std::string_view base = one_line(c.name, &name_scratch);
    // Suffixes in the order tried: none, the kind of number (a short word),
    // then 2, 3...
    const std::string_view label = one_line(c.label, &label_scratch);
    const int first_count = label.empty() || label.size() > kMaxLabel ? 2 : 1;
    const int last = base.empty() ? 0 : PB_MAX_ENTRIES + 1;
    for (int n = 0; n <= last; n = n == 0 ? first_count : n + 1) {
        const std::string suffix =
            n == 0 ? "" : " (" + (n == 1 ? std::string(label) : std::to_string(n)) + ")";
        Fit f = fit(base, suffix, line->entry.name);
        if (!f.ok) {
            line->outcome = Outcome::NAME_TOO_LONG;
            line->detail = f.why;
            return false;
        }
        bool taken = false;
        if (const pb_flash_info *same = book.find(line->entry.name, line->entry.num, &taken)) {
            line->outcome = Outcome::DUPLICATE;
            line->index = static_cast<int>(same->index);
            return false;
        }
        if (!taken || base.empty()) {
            line->name_cut = f.cut;
            line->renamed = n != 0;
            return true;
        }
    }
    line->outcome = Outcome::FULL;
    return false;
}

}  // namespace

int Report::count(Outcome o) const
{
    int n = 0;
    for (const ReportLine &l : lines)
        n += l.outcome == o;
    return n;
}

std::vector<Contact> contacts_of(const std::vector<pb_flash_info> &entries)
{
    std::vector<Contact> out;
    for (const pb_flash_info &e : entries)
        out.push_back({e.name, e.num, e.email, "", static_cast<int>(e.index), ""});
    return out;
}

int import_to_device(const std::vector<Contact> &contacts, Report *report)
{
    report->lines.clear();
    FileLock lock(device_lock_path().c_str());
    Table table(static_cast<pb_mem_info *>(std::calloc(1, sizeof(pb_mem_info))));
    if (!lock.held() || !table || simlib_pb_from_flash(STORAGE_TYPE_FLASH, table.get()) != 0)
        return PB_RCODE_READ_ERR;

    Book book(table->mem.pb, PB_MAX_ENTRIES, contacts.size());
    bool added = false;
    report->lines.reserve(contacts.size());
    for (const Contact &c : contacts) {
        ReportLine &line = report->lines.emplace_back();
        if (!check(c, book, device_fit, false, &line))
            continue;
        line.entry.sim_index = kNoSimRecord;
        if (simlib_pb_add(table.get(), &line.entry) == PB_RCODE_OK) {
            line.outcome = Outcome::ADDED;
            line.index = static_cast<int>(line.entry.index);
            book.add(table->mem.pb[line.entry.index - 1]);
            added = true;
        } else {
            line.outcome = Outcome::FULL;
        }
    }
    if (added && simlib_pb_to_flash(STORAGE_TYPE_FLASH, table.get()) != 0) {
        for (ReportLine &l : report->lines)
            if (l.outcome == Outcome::ADDED) {
                l.outcome = Outcome::FAILED;
                l.rcode = PB_RCODE_WRITE_ERR;
            }
        return PB_RCODE_WRITE_ERR;
    }
    return PB_RCODE_OK;
}

int copy_to_sim(const std::vector<Contact> &contacts, const SimCopy &how, Report *report)
{
    report->lines.clear();
    // Lines are reserved up front: the book points at the entries added.
    report->lines.reserve(contacts.size());
    Book book(how.present.data(), how.present.size(), contacts.size());
    const auto add = how.add ? how.add : [](pb_flash_info *e) {
        return static_cast<int>(simlib_pb_write_handler(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_ADD, e));
    };
    const Fitter fit = [&](std::string_view base, const std::string &suffix, char(&name)[PB_TEXT_LEN]) {
        return sim_fit(base, suffix, name, how.limits.name_octets, how.cut);
    };
    const int max_digits = sim_max_digits(how.limits);
    bool full = false, added = false;
    for (const Contact &c : contacts) {
        ReportLine &line = report->lines.emplace_back();
        if (check(c, book, fit, true, &line)) {
            const int digits = sim_number_digits(line.entry.num);
            line.email_dropped = line.entry.email[0] != '\0';
            line.entry.email[0] = '\0';
            line.entry.sim_index = 0;
            int rc = PB_RCODE_NOTFREE_ERR;
            if (digits > max_digits) {
                line.outcome = Outcome::NUMBER_TOO_LONG;
                line.detail = "the number has " + std::to_string(digits) + " digits; the card holds " +
                              std::to_string(max_digits);
            } else if (full || (rc = add(&line.entry)) == PB_RCODE_NOTFREE_ERR) {
                line.outcome = Outcome::FULL;
                full = true;
            } else if (rc != PB_RCODE_OK) {
                line.outcome = Outcome::FAILED;
                line.rcode = rc;
            } else {
                line.outcome = Outcome::ADDED;
                book.add(line.entry);
                added = true;
            }
        }
    }

    // The service answers an add with the SIM record; the index comes from
    // the phonebook as it is now.
    int num = 0;
    const pb_flash_info *now = nullptr;
    if (added && simlib_pb_init(STORAGE_TYPE_SIM) == 0)
        now = simlib_pb_read_handler(STORAGE_TYPE_SIM, SIM_PB_HANDLE_TYPE_GETALL, &num);
    for (int k = 0; now != nullptr && k < num; ++k)
        for (ReportLine &l : report->lines)
            if (l.outcome == Outcome::ADDED && l.entry.sim_index == now[k].sim_index)
                l.index = static_cast<int>(l.entry.index = now[k].index);
    return PB_RCODE_OK;
}

const char *outcome_word(Outcome o)
{
    switch (o) {
    case Outcome::ADDED: return "added";
    case Outcome::NOT_READ: return "not_read";
    case Outcome::NO_NUMBER: return "no_number";
    case Outcome::BAD_NUMBER: return "bad_number";
    case Outcome::DUPLICATE: return "duplicate";
    case Outcome::NAME_TOO_LONG: return "name_too_long";
    case Outcome::NUMBER_TOO_LONG: return "number_too_long";
    case Outcome::FULL: return "full";
    case Outcome::FAILED: break;
    }
    return "failed";
}

std::string outcome_text(const ReportLine &l)
{
    switch (l.outcome) {
    case Outcome::ADDED: {
        std::string s = l.index > 0 ? "added at index " + std::to_string(l.index) : "added";
        if (l.renamed)
            s += " as \"" + std::string(l.entry.name) + "\": the name was taken by another number";
        if (l.name_cut)
            s += "; name cut to \"" + std::string(l.entry.name) + "\" to fit";
        if (l.email_cut)
            s += "; e-mail cut to 50 bytes";
        if (l.email_dropped)
            s += "; e-mail left out: the SIM holds none";
        return s;
    }
    case Outcome::NOT_READ: return "not read: " + l.detail;
    case Outcome::NO_NUMBER: return "not added: no number";
    case Outcome::DUPLICATE:
        return "not added: the same name and number are at index " + std::to_string(l.index);
    case Outcome::FULL: return "not added: the phonebook is full";
    case Outcome::FAILED:
        return "not added: the phonebook refused it (result code " + std::to_string(l.rcode) + ")";
    case Outcome::BAD_NUMBER:
    case Outcome::NAME_TOO_LONG:
    case Outcome::NUMBER_TOO_LONG: break;
    }
    return "not added: " + l.detail;
}

}  // namespace pbui
