// pbcli's commands: each reads its arguments, calls the operation of the
// user side's library (pbui::Phonebook: waits, retries and the following
// of an entry live there, the same for the web page) and prints what came
// back, as text or with --json as one object on standard output.
#include "commands.h"

#include <algorithm>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "contacts.h"
#include "json_writer.h"
#include "merge.h"
#include "pb_lookup.h"
#include "phonebook.h"
#include "report_json.h"
#include "table.h"
#include "textfile.h"
#include "words.h"

namespace pbcli {

namespace {

using pbui::Entries;
using pbui::JsonObject;

class Session {
public:
    explicit Session(const Args &a)
        : args_(a),
          pb_(pbui::Waiting{a.wait_seconds,
                            [json = a.json] {
                                if (!json)
                                    std::cerr << "pbcli: waiting for the SIM phonebook to be read...\n";
                            }},
              true)
    {}

    const Args &args() const { return args_; }
    pbui::Phonebook &pb() { return pb_; }
    const char *book() const { return pbui::storage_name(args_.type); }
    const char *title() const { return pbui::book_title(args_.type); }
    pbui::Fields fields() const { return {args_.name, args_.number, args_.email}; }

    // An answer with --json: {"ok":...,"phonebook":...} and the members.
    void answer(bool ok, const JsonObject &members, std::ostream &out = std::cout) const
    {
        out << JsonObject().add("ok", ok).add("phonebook", book()).members(members).str() << "\n";
    }

    // Reports a failure and gives the exit status for it.
    Exit fail(int rc, const std::string &context = "") const
    {
        const std::string msg = (context.empty() ? "" : context + ": ") + pbui::rcode_message(rc);
        if (args_.json)
            std::cout << JsonObject().add("ok", false).add("code", rc).add("error", msg).str() << "\n";
        else
            std::cerr << "pbcli: " << msg << "\n";
        return pbui::rcode_exit(rc);
    }

    Exit fail_text(Exit status, const std::string &msg) const
    {
        if (args_.json)
            std::cout << JsonObject().add("ok", false).add("error", msg).str() << "\n";
        else
            std::cerr << "pbcli: " << msg << "\n";
        return status;
    }

private:
    const Args &args_;
    pbui::Phonebook pb_;
};

std::string join(const std::vector<int> &v)
{
    std::string s;
    for (int i : v)
        s += (s.empty() ? "" : ", ") + std::to_string(i);
    return s;
}

std::string entries_word(size_t n) { return n == 1 ? " entry" : " entries"; }

// An entry's fields, one a line, as show prints them.
void print_fields(storage_type_t type, const pb_flash_info &e)
{
    const auto line = [](const char *label, const std::string &v) {
        std::cout << "  " << label << (v.empty() ? "" : std::string(9 - std::strlen(label), ' ') + v) << "\n";
    };
    line("Index:", std::to_string(e.index));
    if (type == STORAGE_TYPE_SIM)
        line("SIM:", std::to_string(e.sim_index));
    line("Name:", display_text(e.name));
    line("Number:", display_text(e.num));
    line("E-mail:", display_text(e.email));
}

void print_entry(const Session &s, const char *verb, const pb_flash_info &e)
{
    if (s.args().json)
        return s.answer(true, JsonObject().raw("entry", pbui::json_entry(e)));
    if (verb)
        std::cout << verb << " " << s.title() << " phonebook entry:\n";
    print_fields(s.args().type, e);
}

Exit not_found(const Session &s, int index)
{
    return s.fail_text(EXIT_NOT_FOUND, pbui::no_entry_at(s.args().type, index));
}

// Ends a command on several indexes: what was done (JSON members, or a
// line of text), and the indexes without an entry, which make the exit
// status EXIT_NOT_FOUND.
Exit print_done(const Session &s, JsonObject members, const std::string &text,
                const std::vector<int> &missing, std::ostream &out = std::cout)
{
    const Exit status = missing.empty() ? EXIT_OK : EXIT_NOT_FOUND;
    if (s.args().json) {
        s.answer(status == EXIT_OK, members.raw("not_found", pbui::json_ints(missing)), out);
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
        s.answer(true, JsonObject().add("count", v.size()).raw("entries", pbui::json_entries(v)));
    else
        print_table(std::cout, s.args().type, v);
    return EXIT_OK;
}

Exit cmd_show(Session &s, const Entries &v)
{
    const pb_flash_info *e = pbui::find_entry(v, s.args().indexes[0]);
    if (!e)
        return not_found(s, s.args().indexes[0]);
    print_entry(s, nullptr, *e);
    return EXIT_OK;
}

Exit cmd_add(Session &s)
{
    pb_flash_info e;
    std::memset(&e, 0, sizeof e);
    pbui::set_fields(&e, s.fields());
    if (int rc = s.pb().add(s.args().type, &e); rc != PB_RCODE_OK)
        return s.fail(rc, "add");
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
    const pb_flash_info *listed = pbui::find_entry(v, index);
    if (!a.expect_name && !a.expect_number)
        return listed;
    const pbui::Fields expected{a.expect_name, a.expect_number, std::nullopt};
    if (listed && pbui::entry_holds(*listed, expected))
        return listed;
    const auto it = std::find_if(v.begin(), v.end(),
                                 [&](const pb_flash_info &e) { return pbui::entry_holds(e, expected); });
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
    const int index = s.args().indexes[0];
    const pb_flash_info *old = entry_meant(s.args(), v, index);
    if (!old)
        return not_meant(s, index);
    pb_flash_info e;
    if (int rc = s.pb().edit(s.args().type, *old, s.fields(), &e); rc != PB_RCODE_OK)
        return s.fail(rc, "edit " + std::to_string(index));
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
        int at = 0;
        const int rc = s.pb().remove(a.type, *entry_meant(a, v, i), &at);
        if (rc == PB_RCODE_CHANGED_ERR && present.size() > 1) {
            changed.push_back(i);
        } else if (rc != PB_RCODE_OK) {
            return s.fail(rc, "delete " + std::to_string(i) +
                                  (deleted.empty() ? "" : " (deleted: index " + join(deleted) + ")"));
        } else {
            deleted.push_back(at);
        }
    }
    if (!changed.empty())
        return s.fail_text(EXIT_FAILED, "the entry at index " + join(changed) +
                                            " changed meanwhile; list it again (deleted: " +
                                            (deleted.empty() ? "none" : "index " + join(deleted)) + ")");
    return print_done(s, JsonObject().raw("deleted", pbui::json_ints(deleted)),
                      "Deleted " + std::to_string(deleted.size()) + entries_word(deleted.size()) +
                          (deleted.empty() ? "" : " (index " + join(deleted) + ")"),
                      missing);
}

Exit cmd_delete_all(Session &s, const Entries &v)
{
    if (int rc = s.pb().remove_all(s.args().type); rc != PB_RCODE_OK)
        return s.fail(rc, "delete-all");
    if (s.args().json)
        s.answer(true, JsonObject().add("deleted", v.size()));
    else
        std::cout << "Deleted all " << v.size() << " entries of the " << s.title() << " phonebook\n";
    return EXIT_OK;
}

// The outcome of an import or a copy: a summary with the reasons counted,
// a line per contact with --verbose, everything with --json.
Exit print_report(const Session &s, const pbui::Report &r, const JsonObject &what, storage_type_t into,
                  const char *source_word)
{
    if (s.args().json) {
        std::cout << JsonObject()
                         .add("ok", true)
                         .add("phonebook", pbui::storage_name(into))
                         .members(what)
                         .members(pbui::json_report(r))
                         .str()
                  << "\n";
        return EXIT_OK;
    }
    std::cout << "Added " << r.count(pbui::Outcome::ADDED) << " of " << r.lines.size()
              << (r.lines.size() == 1 ? " contact" : " contacts") << " to the " << pbui::book_title(into)
              << " phonebook";
    static const std::pair<pbui::Outcome, const char *> kWhy[] = {
        {pbui::Outcome::DUPLICATE, "already there"},
        {pbui::Outcome::NO_NUMBER, "without a number"},
        {pbui::Outcome::BAD_NUMBER, "with a number no phonebook holds"},
        {pbui::Outcome::NAME_TOO_LONG, "with a name too long for the card"},
        {pbui::Outcome::NUMBER_TOO_LONG, "with a number too long for the card"},
        {pbui::Outcome::FULL, "no room left"},
        {pbui::Outcome::NOT_READ, "unreadable"},
        {pbui::Outcome::FAILED, "refused"},
    };
    std::string why;
    for (const auto &[o, words] : kWhy)
        if (int n = r.count(o))
            why += (why.empty() ? "" : ", ") + std::to_string(n) + " " + words;
    std::cout << (why.empty() ? "" : "; not added: " + why) << "\n";
    if (into == STORAGE_TYPE_SIM && !s.args().cut && r.count(pbui::Outcome::NAME_TOO_LONG) > 0)
        std::cout << "  (--cut cuts names to fit the card)\n";
    for (const auto &l : r.lines)
        if (s.args().verbose || l.outcome != pbui::Outcome::ADDED || l.renamed || l.name_cut || l.email_cut)
            std::cout << "  " << source_word << " " << l.from.source << ": "
                      << display_text(l.outcome == pbui::Outcome::ADDED ? l.entry.name : l.from.name) << " "
                      << display_text(l.outcome == pbui::Outcome::ADDED ? l.entry.num : l.from.number) << ": "
                      << pbui::outcome_text(l) << "\n";
    return EXIT_OK;
}

Exit cmd_import(Session &s)
{
    const std::string &file = s.args().file;
    std::string text;
    if (!read_text_file(file, &text))
        return s.fail_text(EXIT_FAILED, "import: cannot read '" + file +
                                            "' (not a readable regular file of at most 16 MiB)");
    const pbui::Format f = s.args().format.value_or(pbui::detect_format(text));
    pbui::Report report;
    if (int rc = s.pb().add_contacts(STORAGE_TYPE_FLASH, pbui::parse(text, f), false, &report);
        rc != PB_RCODE_OK)
        return s.fail(rc, "import");
    return print_report(s, report, JsonObject().add("file", file).add("format", pbui::format_name(f)),
                        STORAGE_TYPE_FLASH, "line");
}

Exit cmd_export(Session &s, const Entries &v)
{
    const Args &a = s.args();
    const auto [chosen, missing] = pbui::choose(v, a.indexes);
    const pbui::Format f = a.format.value_or(pbui::DEFAULT_EXPORT);
    std::string text;
    if (!pbui::export_text(chosen, f, &text))
        return s.fail_text(EXIT_FAILED, "export: " + text);
    if (!write_text_file(a.file, text))
        return s.fail_text(EXIT_FAILED, "export: cannot write '" + a.file + "'");
    // Written to standard output: what is said goes to standard error.
    const bool piped = a.file == "-";
    return print_done(
        s,
        JsonObject().add("file", a.file).add("format", pbui::format_name(f)).add("exported", chosen.size()),
        "Exported " + std::to_string(chosen.size()) + entries_word(chosen.size()) + " of the " + s.title() +
            " phonebook to " + (piped ? "standard output" : a.file),
        missing, piped ? std::cerr : std::cout);
}

Exit cmd_copy(Session &s, const Entries &v)
{
    const Args &a = s.args();
    const auto [chosen, missing] = pbui::choose(v, a.indexes);
    if (!missing.empty())
        return s.fail_text(EXIT_NOT_FOUND, "copy: no entry at index " + join(missing) + "; nothing copied");
    pbui::Report report;
    if (int rc = s.pb().add_contacts(a.to, pbui::contacts_of(chosen), a.cut, &report); rc != PB_RCODE_OK)
        return s.fail(rc, "copy");
    return print_report(s, report, JsonObject().add("from", s.book()), a.to, "index");
}

// The entries of both phonebooks that the text finds, by the search the
// page uses.
Exit cmd_find(Session &s)
{
    const pbui::Search search(s.args().text);
    JsonObject json;
    json.add("ok", true).add("text", s.args().text);
    for (storage_type_t type : {STORAGE_TYPE_SIM, STORAGE_TYPE_FLASH}) {
        Entries all;
        if (int rc = s.pb().read(type, &all); rc != PB_RCODE_OK)
            return s.fail(rc, std::string("find in the ") + pbui::book_title(type) + " phonebook");
        const Entries found = pbui::found_by(search, all.data(), all.size());
        if (s.args().json) {
            json.add(pbui::storage_name(type),
                     JsonObject().add("count", found.size()).raw("entries", pbui::json_entries(found)));
            continue;
        }
        std::cout << "Found in the " << pbui::book_title(type) << " phonebook: " << found.size() << " of "
                  << all.size() << entries_word(all.size()) << "\n";
        print_table(std::cout, type, found, false);
    }
    if (s.args().json)
        std::cout << json.str() << "\n";
    return EXIT_OK;
}

// The entry a caller's number belongs to, from the phonebook files as
// they are (the service is not asked, so this never waits for the card).
Exit cmd_who(Session &s)
{
    const Args &a = s.args();
    pb_lookup_entry e;
    switch (pb_lookup(a.text.c_str(), a.country ? a.country->c_str() : nullptr, &e)) {
    case PB_LOOKUP_OK: break;
    case PB_LOOKUP_NOT_FOUND: return s.fail_text(EXIT_NOT_FOUND, pbui::no_entry_for(a.text));
    case PB_LOOKUP_BAD_ARGUMENT:
        return s.fail_text(EXIT_USAGE, "who: the number or the country cannot be read");
    case PB_LOOKUP_NO_MEMORY: return s.fail_text(EXIT_FAILED, "who: out of memory");
    case PB_LOOKUP_READ_ERROR: return s.fail(PB_RCODE_READ_ERR, "who");
    }
    if (a.json) {
        std::cout << JsonObject().add("ok", true).members(pbui::json_lookup(e)).str() << "\n";
        return EXIT_OK;
    }
    const auto type = static_cast<storage_type_t>(e.phonebook);
    std::cout << "Found in the " << pbui::book_title(type) << " phonebook"
              << (e.exact ? ", the same number:" : ", the same last digits:") << "\n";
    print_fields(type, pbui::entry_of(e));
    return EXIT_OK;
}

// The entries of the phonebook named (both when none is) grouped by the
// same number; and, when `maybe` is given, the groups that may be one person.
int duplicate_groups(Session &s, std::vector<pbui::DuplicateGroup> *out,
                     std::vector<pbui::DuplicateGroup> *maybe = nullptr)
{
    const Args &a = s.args();
    std::vector<pbui::BookEntry> all;
    if (int rc = pbui::read_book_entries(s.pb(), a.type, &all); rc != PB_RCODE_OK)
        return rc;
    const pbui::Country *home = a.country ? pbui::find_country(*a.country) : pbui::router_country();
    *out = pbui::find_duplicates(all, home);
    if (maybe)
        *maybe = pbui::find_maybe_duplicates(all, home);
    return PB_RCODE_OK;
}

std::string where_words(const Args &a)
{
    return a.type == STORAGE_TYPE_UNKNOWN ? std::string("both phonebooks")
                                          : std::string("the ") + pbui::book_title(a.type) + " phonebook";
}

std::string groups_word(size_t n) { return n == 1 ? " group" : " groups"; }

// One group a line an entry; the first marked with `first`.
void print_groups(const std::vector<pbui::DuplicateGroup> &groups, const char *title, const char *first)
{
    for (size_t k = 0; k < groups.size(); ++k) {
        std::cout << title << " " << k + 1 << ":\n";
        for (size_t m = 0; m < groups[k].size(); ++m) {
            const pbui::BookEntry &e = groups[k][m];
            std::cout << "  " << (m == 0 ? first : "")
                      << std::string(6 - (m == 0 ? std::strlen(first) : 0), ' ') << pbui::book_title(e.type)
                      << " " << e.entry.index << "  " << display_text(e.entry.name) << "  "
                      << display_text(e.entry.num)
                      << (e.entry.email[0] ? "  " + display_text(e.entry.email) : std::string()) << "\n";
        }
    }
}

Exit cmd_duplicates(Session &s)
{
    std::vector<pbui::DuplicateGroup> groups, maybe;
    if (int rc = duplicate_groups(s, &groups, &maybe); rc != PB_RCODE_OK)
        return s.fail(rc, "duplicates");
    if (s.args().json) {
        std::cout << JsonObject()
                         .add("ok", true)
                         .add("count", groups.size())
                         .raw("groups", pbui::json_groups(groups))
                         .raw("maybe", pbui::json_groups(maybe))
                         .str()
                  << "\n";
        return EXIT_OK;
    }
    std::cout << "Duplicates in " << where_words(s.args()) << ": " << groups.size()
              << groups_word(groups.size())
              << (maybe.empty() ? "" : ", and " + std::to_string(maybe.size()) + " that may be") << "\n";
    print_groups(groups, "Group", "keep");
    print_groups(maybe, "Maybe", "");
    return EXIT_OK;
}

// Keeps the first entry of every group and deletes the others, each by the
// conditional delete (only while its index still holds it; followed when
// another change moved it).
Exit cmd_merge(Session &s)
{
    std::vector<pbui::DuplicateGroup> groups;
    if (int rc = duplicate_groups(s, &groups); rc != PB_RCODE_OK)
        return s.fail(rc, "merge");
    // The user's picks go first in their groups, before anything is deleted.
    for (const auto &[type, index] : s.args().keep) {
        bool found = false;
        for (pbui::DuplicateGroup &g : groups) {
            const auto it =
                std::find_if(g.begin(), g.end(), [&, type = type, index = index](const pbui::BookEntry &e) {
                    return e.type == type && static_cast<int>(e.entry.index) == index;
                });
            if (it != g.end()) {
                std::rotate(g.begin(), it, it + 1);
                found = true;
            }
        }
        if (!found)
            return s.fail_text(EXIT_NOT_FOUND, "merge: the " + std::string(pbui::book_title(type)) +
                                                   " phonebook's entry " + std::to_string(index) +
                                                   " is in no group of duplicates");
    }
    pbui::Merged done;
    if (int rc = pbui::merge_groups(s.pb(), groups, &done); rc != PB_RCODE_OK) {
        return s.fail(rc, "merge: delete " + std::string(pbui::book_title(done.failed.type)) + " " +
                              std::to_string(done.failed.entry.index) + " (deleted " +
                              std::to_string(done.deleted.size()) + entries_word(done.deleted.size()) +
                              " before)");
    }
    if (s.args().json) {
        std::cout << JsonObject().add("ok", true).members(pbui::json_merged(done)).str() << "\n";
        return EXIT_OK;
    }
    std::string words;
    for (const pbui::BookEntry &e : done.deleted)
        words += (words.empty() ? "" : ", ") + std::string(pbui::book_title(e.type)) + " " +
                 std::to_string(e.entry.index);
    const size_t count = done.deleted.size();
    std::cout << "Merged " << groups.size() << (groups.size() == 1 ? " group" : " groups") << " in "
              << where_words(s.args()) << ": kept " << groups.size() << ", deleted " << count
              << entries_word(count) << (words.empty() ? "" : " (" + words + ")") << "\n";
    return EXIT_OK;
}

// How the fields given would be stored, and whether they fit: the page's
// live check, from the command line.
Exit cmd_check(Session &s)
{
    const pbui::FieldsCheck c = pbui::check_fields(s.args().type, s.fields());
    const bool fits = c.name_fits && c.number_fits && c.email_fits;
    if (s.args().json) {
        std::cout << JsonObject().add("ok", fits).members(pbui::json_check(c)).str() << "\n";
        return fits ? EXIT_OK : EXIT_FAILED;
    }
    const auto max = [&](int v) { return c.limits_known ? std::to_string(v) : std::string("?"); };
    const auto verdict = [](bool ok) { return ok ? "" : ": does not fit"; };
    if (c.has_name) {
        std::cout << "Name:    " << c.name_bytes << " of " << PB_TEXT_LEN - 1 << " bytes";
        if (c.sim && c.name_card.encoding == pbui::SimText::NONE)
            std::cout << "; the card cannot store characters outside the basic plane (emoji)";
        else if (c.sim)
            std::cout << "; on the card " << pbui::sim_text_name(c.name_card.encoding) << ", "
                      << c.name_card.octets << " of " << max(c.limits.name_octets) << " octets";
        std::cout << verdict(c.name_fits) << "\n";
    }
    if (c.has_number && !c.number_fits)
        std::cout << "Number:  " << pbui::number_refusal_text(c.number_refusal) << "\n";
    else if (c.has_number)
        std::cout << "Number:  stored as " << (c.number.empty() ? "(none)" : c.number)
                  << (c.sim ? "; " + std::to_string(c.number_digits) + " of " +
                                  max(pbui::sim_max_digits(c.limits)) + " digits on the card"
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
    std::string err;
    if (!s.pb().open(&err))
        return s.fail_text(EXIT_FAILED, err);
    // Every command on a phonebook starts by reading it as it is now (for
    // the SIM, waiting while the card is being read): a change goes out
    // only to a phonebook that is ready.
    Entries v;
    if (args.type != STORAGE_TYPE_UNKNOWN && args.cmd != Cmd::CHECK)
        if (int rc = s.pb().read(args.type, &v); rc != PB_RCODE_OK)
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
    case Cmd::WHO: return cmd_who(s);
    case Cmd::DUPLICATES: return cmd_duplicates(s);
    case Cmd::MERGE: return cmd_merge(s);
    }
    return EXIT_USAGE;
}

}  // namespace pbcli
