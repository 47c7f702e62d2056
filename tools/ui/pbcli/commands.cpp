#include "commands.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "pbx.h"
#include "textfile.h"
#include "zpt_ui_pb_api.h"

namespace pbcli {

namespace {

using Clock = std::chrono::steady_clock;
using Entries = std::vector<pb_flash_info>;

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

class Session {
public:
    explicit Session(const Args &a)
        : args_(a), deadline_(Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                 std::chrono::duration<double>(a.wait_seconds)))
    {}

    const Args &args() const { return args_; }
    const char *book() const { return storage_name(args_.type); }

    // The whole phonebook, in index order. While the service answers that
    // the SIM phonebook is still being read (the first read starts it), asks
    // again until the time limit. A phonebook without entries is no failure.
    int read_all(storage_type_t type, Entries *out)
    {
        out->clear();
        if (simlib_pb_init(type) != 0)
            return PB_RCODE_ERROR;
        for (;;) {
            int num = 0;
            pb_flash_info *p = simlib_pb_read_handler(type, SIM_PB_HANDLE_TYPE_GETALL, &num);
            if (p != nullptr) {
                out->assign(p, p + num);
                return PB_RCODE_OK;
            }
            if (num == 0)
                return PB_RCODE_OK;
            if (!rcode_busy(num) || !pause())
                return num;
        }
    }

    // One change through the service, asked again while the SIM phonebook
    // is not ready, until the time limit. An edit or delete carries the
    // entry it means in `was`, and the service makes it only while the
    // entry at the index still holds was's name and number. Indexes move
    // (an add renumbers the phonebook, a new read of the SIM numbers it
    // anew), so when the service answers that the entry changed, and before
    // each new ask, the entry is looked up and the change follows it to its
    // index (info->index tells where it went); when it is gone, nothing
    // more is sent.
    // An edit that follows its entry keeps the fields that were not given
    // from the entry where it found it.
    int write(sim_pb_handle_t action, pb_flash_info *info, const pb_flash_info *was = nullptr)
    {
        for (int follows = 0;;) {
            pb_flash_info sent = *info;
            const int rc = action == SIM_PB_HANDLE_TYPE_EDIT && was != nullptr
                               ? simlib_pb_edit_checked(args_.type, &sent, was)
                               : simlib_pb_write_handler(args_.type, action, &sent);
            // The index holds another entry, or none, by the time the
            // service looks: the entry meant may have moved.
            const bool moved = (rc == PB_RCODE_CHANGED_ERR || rc == PB_RCODE_INVALID_ERR) && was != nullptr &&
                               ++follows <= kMaxFollows;
            if (!moved && (!rcode_busy(rc) || !pause())) {
                // The card may or may not have made the change: the SIM
                // phonebook is read again (waited for) before the user is
                // told to check it, so that what they see is the card.
                if (rc == PB_RCODE_UNCONFIRMED_ERR) {
                    Entries now;
                    (void)read_all(args_.type, &now);
                }
                *info = sent;
                return rc;
            }
            if (was != nullptr) {
                Entries now;
                if (int r = read_all(args_.type, &now); r != PB_RCODE_OK)
                    return r;
                const pb_flash_info *e = find_seen(now, *was);
                if (e == nullptr)
                    return PB_RCODE_CHANGED_ERR;
                *info = *e;
                if (action == SIM_PB_HANDLE_TYPE_EDIT)
                    set_fields(info, args_.name, args_.number, args_.email);
            }
        }
    }

    // Reports a failure and gives the exit status for it.
    Exit fail(int rc, const std::string &context = "") const
    {
        std::string msg = (context.empty() ? "" : context + ": ") + rcode_message(rc);
        if (args_.json)
            std::cout << "{\"ok\":false,\"code\":" << rc << ",\"error\":" << json_string(msg) << "}\n";
        else
            std::cerr << "pbcli: " << msg << "\n";
        return rcode_exit(rc);
    }

    Exit fail_text(Exit status, const std::string &msg) const
    {
        if (args_.json)
            std::cout << "{\"ok\":false,\"error\":" << json_string(msg) << "}\n";
        else
            std::cerr << "pbcli: " << msg << "\n";
        return status;
    }

private:
    bool pause()
    {
        if (Clock::now() + kPoll > deadline_)
            return false;
        if (!told_ && !args_.json)
            std::cerr << "pbcli: waiting for the SIM phonebook to be read...\n";
        told_ = true;
        std::this_thread::sleep_for(kPoll);
        return true;
    }

    const Args &args_;
    Clock::time_point deadline_;
    bool told_ = false;
};

// The phonebook's name in a sentence.
const char *book_title(storage_type_t type) { return type == STORAGE_TYPE_SIM ? "SIM" : "device"; }

std::string join(const std::vector<int> &v)
{
    std::string s;
    for (int i : v)
        s += (s.empty() ? "" : ", ") + std::to_string(i);
    return s;
}

void print_entry(const Session &s, const char *verb, const pb_flash_info &e)
{
    if (s.args().json) {
        std::cout << "{\"ok\":true,\"phonebook\":\"" << s.book() << "\",\"entry\":" << json_entry(e) << "}\n";
        return;
    }
    if (verb)
        std::cout << verb << " " << book_title(s.args().type) << " phonebook entry:\n";
    const auto line = [](const char *label, const std::string &v) {
        std::cout << "  " << label << (v.empty() ? "" : std::string(9 - std::strlen(label), ' ') + v) << "\n";
    };
    line("Index:", std::to_string(e.index));
    if (s.args().type == STORAGE_TYPE_SIM)
        line("SIM:", std::to_string(e.sim_index));
    line("Name:", display_text(e.name));
    line("Number:", display_text(e.num));
    line("E-mail:", display_text(e.email));
}

Exit not_found(const Session &s, int index)
{
    return s.fail_text(EXIT_NOT_FOUND, "no entry at index " + std::to_string(index) + " in the " +
                                           book_title(s.args().type) + " phonebook");
}

// Ends a command on several indexes: what was done (JSON members, or a
// line of text), and the indexes without an entry, which make the exit
// status EXIT_NOT_FOUND.
Exit print_done(const Session &s, const std::string &json_members, const std::string &text,
                const std::vector<int> &missing, std::ostream &out = std::cout)
{
    const Exit status = missing.empty() ? EXIT_OK : EXIT_NOT_FOUND;
    if (s.args().json) {
        out << "{\"ok\":" << (status == EXIT_OK ? "true" : "false") << ",\"phonebook\":\"" << s.book()
            << "\"," << json_members << ",\"not_found\":" << json_ints(missing) << "}\n";
    } else {
        out << text << "\n";
        if (!missing.empty())
            std::cerr << "pbcli: no entry at index " << join(missing) << "\n";
    }
    return status;
}

Exit cmd_list(Session &s, const Entries &v)
{
    if (s.args().json)
        std::cout << "{\"ok\":true,\"phonebook\":\"" << s.book() << "\",\"count\":" << v.size()
                  << ",\"entries\":" << json_entries(v) << "}\n";
    else
        print_table(std::cout, s.args().type, v);
    return EXIT_OK;
}

Exit cmd_show(Session &s, const Entries &v)
{
    const pb_flash_info *e = find_entry(v, s.args().indexes[0]);
    if (!e)
        return not_found(s, s.args().indexes[0]);
    print_entry(s, nullptr, *e);
    return EXIT_OK;
}

Exit cmd_add(Session &s)
{
    const Args &a = s.args();
    pb_flash_info e;
    std::memset(&e, 0, sizeof e);
    set_fields(&e, a.name, a.number, a.email);
    if (int rc = s.write(SIM_PB_HANDLE_TYPE_ADD, &e); rc != PB_RCODE_OK)
        return s.fail(rc, "add");

    // The service answers with the SIM record only; find the new entry's
    // index in the phonebook as it is now: the last one that matches.
    Entries after;
    s.read_all(a.type, &after);
    for (auto it = after.rbegin(); it != after.rend(); ++it) {
        bool same = std::strcmp(it->name, e.name) == 0 && std::strcmp(it->num, e.num) == 0 &&
                    std::strcmp(it->email, e.email) == 0;
        if (same && (a.type != STORAGE_TYPE_SIM || it->sim_index == e.sim_index)) {
            e = *it;
            break;
        }
    }
    print_entry(s, "Added", e);
    return EXIT_OK;
}

// The entry an edit or delete of `index` is meant for. Without
// --expect-name/--expect-number, the one listed there. With them, the entry
// that holds what they say: the one at the index, or when the phonebook was
// renumbered since the script looked, the first that does; null when none
// does (the entry changed meanwhile).
const pb_flash_info *entry_meant(const Args &a, const Entries &v, int index)
{
    const pb_flash_info *listed = find_entry(v, index);
    if (!a.expect_name && !a.expect_number)
        return listed;
    const auto holds = [&](const pb_flash_info &e) {
        return (!a.expect_name || *a.expect_name == e.name) &&
               (!a.expect_number || *a.expect_number == e.num);
    };
    if (listed && holds(*listed))
        return listed;
    const auto it = std::find_if(v.begin(), v.end(), holds);
    return it != v.end() ? &*it : nullptr;
}

// No entry at `index` for an edit or delete: none at all, or (when the
// script said what it expects there) none that holds it.
Exit not_meant(const Session &s, int index)
{
    const Args &a = s.args();
    return a.expect_name || a.expect_number ? s.fail(PB_RCODE_CHANGED_ERR, "index " + std::to_string(index))
                                            : not_found(s, index);
}

Exit cmd_edit(Session &s, const Entries &v)
{
    const Args &a = s.args();
    const int index = a.indexes[0];
    const pb_flash_info *old = entry_meant(a, v, index);
    if (!old)
        return not_meant(s, index);
    pb_flash_info e = *old;
    set_fields(&e, a.name, a.number, a.email);
    const pb_flash_info was = *old;
    if (int rc = s.write(SIM_PB_HANDLE_TYPE_EDIT, &e, &was); rc != PB_RCODE_OK)
        return s.fail(rc, "edit " + std::to_string(index));
    Entries after;
    if (s.read_all(a.type, &after) == PB_RCODE_OK && find_entry(after, static_cast<int>(e.index)))
        e = *find_entry(after, static_cast<int>(e.index));
    print_entry(s, "Changed", e);
    return EXIT_OK;
}

Exit cmd_delete(Session &s, const Entries &v)
{
    const Args &a = s.args();
    std::vector<int> present, missing;
    for (int i : a.indexes) {
        bool seen = std::find(present.begin(), present.end(), i) != present.end() ||
                    std::find(missing.begin(), missing.end(), i) != missing.end();
        if (!seen)
            (entry_meant(a, v, i) ? present : missing).push_back(i);
    }
    if (a.indexes.size() == 1 && !missing.empty())
        return not_meant(s, missing[0]);

    // One conditional delete per entry: each is made only while its index
    // still holds the entry listed, so no entry the user did not pick goes.
    std::vector<int> deleted, changed;
    for (int i : present) {
        const pb_flash_info was = *entry_meant(a, v, i);
        pb_flash_info e = was;
        const int rc = s.write(SIM_PB_HANDLE_TYPE_DEL, &e, &was);
        if (rc == PB_RCODE_CHANGED_ERR && present.size() > 1) {
            changed.push_back(i);
        } else if (rc != PB_RCODE_OK) {
            return s.fail(rc, "delete " + std::to_string(i) +
                                  (deleted.empty() ? "" : " (deleted: index " + join(deleted) + ")"));
        } else {
            deleted.push_back(static_cast<int>(e.index));
        }
    }
    if (!changed.empty())
        return s.fail_text(EXIT_FAILED, "the entry at index " + join(changed) +
                                            " changed meanwhile; list it again (deleted: " +
                                            (deleted.empty() ? "none" : "index " + join(deleted)) + ")");
    return print_done(s, "\"deleted\":" + json_ints(deleted),
                      "Deleted " + std::to_string(deleted.size()) +
                          (deleted.size() == 1 ? " entry" : " entries") +
                          (deleted.empty() ? "" : " (index " + join(deleted) + ")"),
                      missing);
}

Exit cmd_delete_all(Session &s, const Entries &v)
{
    pb_flash_info e;
    std::memset(&e, 0, sizeof e);
    if (int rc = s.write(SIM_PB_HANDLE_TYPE_DEL_ALL, &e); rc != PB_RCODE_OK)
        return s.fail(rc, "delete-all");
    if (s.args().json)
        std::cout << "{\"ok\":true,\"phonebook\":\"" << s.book() << "\",\"deleted\":" << v.size() << "}\n";
    else
        std::cout << "Deleted all " << v.size() << " entries of the " << book_title(s.args().type)
                  << " phonebook\n";
    return EXIT_OK;
}

// The outcome of an import or a copy: a summary with the reasons counted,
// a line per contact with --verbose, everything with --json.
Exit print_report(const Session &s, const pbx::Report &r, const std::string &what, storage_type_t into,
                  const char *source_word)
{
    const int added = r.count(pbx::Outcome::ADDED);
    if (s.args().json) {
        std::cout << "{\"ok\":true,\"phonebook\":\"" << storage_name(into) << "\"," << what << json_report(r)
                  << "}\n";
        return EXIT_OK;
    }
    std::cout << "Added " << added << " of " << r.lines.size()
              << (r.lines.size() == 1 ? " contact" : " contacts") << " to the " << book_title(into)
              << " phonebook";
    static const std::pair<pbx::Outcome, const char *> kWhy[] = {
        {pbx::Outcome::DUPLICATE, "already there"},
        {pbx::Outcome::NO_NUMBER, "without a number"},
        {pbx::Outcome::BAD_NUMBER, "with a number no phonebook holds"},
        {pbx::Outcome::NAME_TOO_LONG, "with a name too long for the card"},
        {pbx::Outcome::NUMBER_TOO_LONG, "with a number too long for the card"},
        {pbx::Outcome::FULL, "no room left"},
        {pbx::Outcome::NOT_READ, "unreadable"},
        {pbx::Outcome::FAILED, "refused"},
    };
    std::string why;
    for (const auto &[o, words] : kWhy)
        if (int n = r.count(o))
            why += (why.empty() ? "" : ", ") + std::to_string(n) + " " + words;
    std::cout << (why.empty() ? "" : "; not added: " + why) << "\n";
    if (into == STORAGE_TYPE_SIM && !s.args().cut && r.count(pbx::Outcome::NAME_TOO_LONG) > 0)
        std::cout << "  (--cut cuts names to fit the card)\n";
    for (const auto &l : r.lines)
        if (s.args().verbose || l.outcome != pbx::Outcome::ADDED || l.renamed || l.name_cut || l.email_cut)
            std::cout << "  " << source_word << " " << l.from.source << ": "
                      << display_text(l.outcome == pbx::Outcome::ADDED ? l.entry.name : l.from.name) << " "
                      << display_text(l.outcome == pbx::Outcome::ADDED ? l.entry.num : l.from.number) << ": "
                      << pbx::outcome_text(l) << "\n";
    return EXIT_OK;
}

Exit cmd_import(Session &s)
{
    const std::string &file = s.args().file;
    std::string text;
    if (!read_text_file(file, &text))
        return s.fail_text(EXIT_FAILED, "import: cannot read '" + file +
                                            "' (not a readable regular file of at most 16 MiB)");
    const pbx::Format f = s.args().format.value_or(pbx::detect_format(text));
    pbx::Report report;
    if (int rc = pbx::import_to_device(pbx::parse(text, f), &report); rc != PB_RCODE_OK)
        return s.fail(rc, "import");
    return print_report(s, report,
                        "\"file\":" + json_string(file) + ",\"format\":\"" + pbx::format_name(f) + "\",",
                        STORAGE_TYPE_FLASH, "line");
}

// The entries at the command line's indexes (all when none is given), in
// that order, and the indexes without an entry.
struct Chosen {
    Entries entries;
    std::vector<int> missing;
};

Chosen choose(const Entries &all, const std::vector<int> &indexes)
{
    Chosen c;
    if (indexes.empty())
        c.entries = all;
    for (int i : indexes) {
        if (const pb_flash_info *e = find_entry(all, i))
            c.entries.push_back(*e);
        else
            c.missing.push_back(i);
    }
    return c;
}

Exit cmd_export(Session &s, const Entries &v)
{
    const Args &a = s.args();
    const auto [chosen, missing] = choose(v, a.indexes);
    const pbx::Format f = a.format.value_or(pbx::DEFAULT_EXPORT);
    if (f == pbx::Format::MODULE) {
        // A backup that would read back otherwise is refused whole.
        if (const std::string why = pbx::module_lines_refusal(chosen); !why.empty())
            return s.fail_text(EXIT_FAILED, "export: " + why);
    }
    if (!write_text_file(a.file, pbx::format(chosen, f)))
        return s.fail_text(EXIT_FAILED, "export: cannot write '" + a.file + "'");
    // Written to standard output: what is said goes to standard error.
    const bool piped = a.file == "-";
    return print_done(s,
                      "\"file\":" + json_string(a.file) + ",\"format\":\"" + pbx::format_name(f) +
                          "\",\"exported\":" + std::to_string(chosen.size()),
                      "Exported " + std::to_string(chosen.size()) +
                          (chosen.size() == 1 ? " entry" : " entries") + " of the " + book_title(a.type) +
                          " phonebook to " + (piped ? "standard output" : a.file),
                      missing, piped ? std::cerr : std::cout);
}

Exit cmd_copy(Session &s, const Entries &v)
{
    const Args &a = s.args();
    const auto [chosen, missing] = choose(v, a.indexes);
    const std::vector<pbx::Contact> contacts = pbx::contacts_of(chosen);
    if (!missing.empty())
        return s.fail_text(EXIT_NOT_FOUND, "copy: no entry at index " + join(missing) + "; nothing copied");

    pbx::Report report;
    if (a.to == STORAGE_TYPE_FLASH) {
        if (int rc = pbx::import_to_device(contacts, &report); rc != PB_RCODE_OK)
            return s.fail(rc, "copy");
    } else {
        // Writes go to the service one entry at a time, each asked again
        // while the card is being read, like any other SIM change.
        Args to_sim = a;
        to_sim.type = STORAGE_TYPE_SIM;
        Session sim(to_sim);
        pbx::SimCopy how;
        how.cut = a.cut;
        if (int rc = sim.read_all(STORAGE_TYPE_SIM, &how.present); rc != PB_RCODE_OK)
            return s.fail(rc, "copy");
        if (!pbx::read_sim_limits(&how.limits))
            return s.fail_text(EXIT_FAILED, "copy: the card's name and number lengths are not known "
                                            "(has the service read the card?)");
        how.add = [&sim](pb_flash_info *e) { return sim.write(SIM_PB_HANDLE_TYPE_ADD, e); };
        pbx::copy_to_sim(contacts, how, &report);
    }
    return print_report(s, report, "\"from\":\"" + std::string(storage_name(a.type)) + "\",", a.to, "index");
}

// The entries of both phonebooks that the text finds, by the search the
// page uses.
Exit cmd_find(Session &s)
{
    const pbx::Search search(s.args().text);
    std::string json;
    for (storage_type_t type : {STORAGE_TYPE_SIM, STORAGE_TYPE_FLASH}) {
        Entries all, found;
        if (int rc = s.read_all(type, &all); rc != PB_RCODE_OK)
            return s.fail(rc, std::string("find in the ") + book_title(type) + " phonebook");
        std::copy_if(all.begin(), all.end(), std::back_inserter(found),
                     [&](const pb_flash_info &e) { return search.matches(e); });
        if (s.args().json) {
            json += std::string(",\"") + storage_name(type) +
                    "\":{\"count\":" + std::to_string(found.size()) + ",\"entries\":" + json_entries(found) +
                    "}";
            continue;
        }
        std::cout << "Found in the " << book_title(type) << " phonebook: " << found.size() << " of "
                  << all.size() << (all.size() == 1 ? " entry" : " entries") << "\n";
        print_table(std::cout, type, found, false);
    }
    if (s.args().json)
        std::cout << "{\"ok\":true,\"text\":" << json_string(s.args().text) << json << "}\n";
    return EXIT_OK;
}

// How the fields given would be stored, and whether they fit: the page's
// live check, from the command line.
Exit cmd_check(Session &s)
{
    const Args &a = s.args();
    pbx::SimLimits limits;
    const bool known = a.type == STORAGE_TYPE_SIM && pbx::read_sim_limits(&limits);
    const pbx::FieldsCheck c =
        pbx::check_fields(a.type, a.name, a.number, a.email, known ? &limits : nullptr);
    const bool fits = c.name_fits && c.number_fits && c.email_fits;
    if (a.json) {
        std::cout << "{\"ok\":" << (fits ? "true" : "false") << "," << json_check(c) << "}\n";
        return fits ? EXIT_OK : EXIT_FAILED;
    }
    const auto max = [&](int v) { return known ? std::to_string(v) : std::string("?"); };
    const auto verdict = [](bool ok) { return ok ? "" : ": does not fit"; };
    if (c.has_name) {
        std::cout << "Name:    " << c.name_bytes << " of " << PB_TEXT_LEN - 1 << " bytes";
        if (c.sim && c.name_card.encoding == pbx::SimText::NONE)
            std::cout << "; the card cannot store characters outside the basic plane (emoji)";
        else if (c.sim)
            std::cout << "; on the card " << pbx::sim_text_name(c.name_card.encoding) << ", "
                      << c.name_card.octets << " of " << max(c.limits.name_octets) << " octets";
        std::cout << verdict(c.name_fits) << "\n";
    }
    if (c.has_number && !c.number_error.empty())
        std::cout << "Number:  " << c.number_error << "\n";
    else if (c.has_number)
        std::cout << "Number:  stored as " << (c.number.empty() ? "(none)" : c.number)
                  << (c.sim ? "; " + std::to_string(c.number_digits) + " of " +
                                  max(pbx::sim_max_digits(c.limits)) + " digits on the card"
                            : std::string())
                  << "\n";
    if (c.has_email)
        std::cout << "E-mail:  " << c.email_bytes << " of " << PB_TEXT_LEN - 1 << " bytes"
                  << verdict(c.email_fits) << "\n";
    return fits ? EXIT_OK : EXIT_FAILED;
}

}  // namespace

Exit run_command(const Args &args)
{
    Session s(args);
    // Every command on a phonebook starts by reading it as it is now (for
    // the SIM, waiting while the card is being read): a change goes out
    // only to a phonebook that is ready.
    Entries v;
    if (args.type != STORAGE_TYPE_UNKNOWN && args.cmd != Cmd::CHECK)
        if (int rc = s.read_all(args.type, &v); rc != PB_RCODE_OK)
            return s.fail(rc, command_word(args.cmd));
    switch (args.cmd) {
    case Cmd::HELP: std::cout << usage_text(); return EXIT_OK;
    case Cmd::LIST: return cmd_list(s, v);
    case Cmd::SHOW: return cmd_show(s, v);
    case Cmd::ADD: return cmd_add(s);
    case Cmd::EDIT: return cmd_edit(s, v);
    case Cmd::DELETE: return cmd_delete(s, v);
    case Cmd::DELETE_ALL: return cmd_delete_all(s, v);
    case Cmd::IMPORT: return cmd_import(s);
    case Cmd::EXPORT: return cmd_export(s, v);
    case Cmd::COPY: return cmd_copy(s, v);
    case Cmd::CHECK: return cmd_check(s);
    case Cmd::FIND: return cmd_find(s);
    }
    return EXIT_USAGE;
}

}  // namespace pbcli
