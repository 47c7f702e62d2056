// pbweb's API: each operation reads its request, calls the user side's
// operation (pbui::Phonebook, the one pbcli calls) and answers with a status
// and a JSON body put together by pbui's writer. What is pbweb's own: the
// check that the entries are as the page showed them (404 when gone, 409
// when changed), the HTTP statuses, and the export as a download.
#include "api.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>

#include "json_writer.h"
#include "merge.h"
#include "pb_lookup.h"
#include "report_json.h"
#include "words.h"

namespace pbweb {

namespace {

using pbui::BookEntry;
using pbui::Entries;
using pbui::find_entry;
using pbui::JsonObject;

// The entry is not as the page showed it: found by pbweb's own look at the
// list, or by the service when the change was made.
constexpr int kChanged = PB_RCODE_CHANGED_ERR;
constexpr int kMissing = pbui::PBUI_NO_ENTRY;

const char *book(storage_type_t type) { return pbui::storage_name(type); }

// The service restarts a read of the card that stalls for 3 s and gives it
// up after three restarts, so a read that is really going on ends well
// within this; "being read" for longer is a modem or card that is gone.
constexpr long long kCardSilentMsecs = 30000;
// Since when (steady clock, ms) every SIM answer was "being read"; 0 while
// the last one was not.
std::atomic<long long> g_sim_busy_since_msecs{0};

long long steady_msecs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

Response ok(JsonObject members, int status = 200)
{
    Response r;
    r.status = status;
    r.body = JsonObject().add("ok", true).members(members).take();
    return r;
}

// {"ok":true,"phonebook":...} and the members.
Response ok_in(storage_type_t type, const JsonObject &members, int status = 200)
{
    return ok(std::move(JsonObject().add("phonebook", book(type)).members(members)), status);
}

Response bad_input(const std::string &message) { return error_response(400, PB_RCODE_ARGSERR, message); }

Response failure(int rc, const std::string &context, storage_type_t type, int index = 0)
{
    const std::string where = " of the " + std::string(pbui::book_title(type)) + " phonebook";
    if (rc == kChanged)
        return error_response(409, kChanged,
                              "the entry at index " + std::to_string(index) + where +
                                  " changed meanwhile; the list has been read again");
    if (rc == kMissing)
        return error_response(404, PB_RCODE_INVALID_ERR, pbui::no_entry_at(type, index));
    return error_response(http_status(rc), rc, context + ": " + pbui::rcode_message(rc));
}

// The operations whose body is a JSON object get it read and checked first.
using BodyOp = Response (*)(Phonebook &, const ApiRequest &, const Json &);

Response with_body(Phonebook &pb, const ApiRequest &req, BodyOp op)
{
    Json body;
    std::string err;
    if (!parse_json(req.body, &body, &err))
        return bad_input("the body is not JSON: " + err);
    if (body.type != Json::OBJECT)
        return bad_input("the body must be a JSON object");
    return op(pb, req, body);
}

// A count the card's figures give, or null while unknown.
JsonObject &count_or_null(JsonObject &o, const char *key, int n)
{
    return n > 0 ? o.add(key, n) : o.null(key);
}

int total_of(storage_type_t type)
{
    return type == STORAGE_TYPE_SIM ? std::min(pbui::read_sim_records(), static_cast<int>(PB_MAX_ENTRIES))
                                    : PB_MAX_ENTRIES;
}

Response status(Phonebook &pb, bool login)
{
    JsonObject out;
    // The device phonebook is read from its file even without the service;
    // the SIM's answer says whether the service is there for the changes.
    const char *service = "ready";
    for (storage_type_t type : {STORAGE_TYPE_SIM, STORAGE_TYPE_FLASH}) {
        Entries v;
        const int rc = pb.read(type, &v);
        if (type == STORAGE_TYPE_SIM)
            note_sim_answer(rc);
        JsonObject o;
        o.add("state", state_word(rc));
        if (type == STORAGE_TYPE_SIM)
            service = rc == PB_RCODE_ERROR ? "unreachable" : "ready";
        if (rc == PB_RCODE_OK)
            o.add("used", v.size());
        else
            o.null("used");
        count_or_null(o, "total", total_of(type));
        if (type == STORAGE_TYPE_SIM) {
            pbui::SimLimits lim;
            const bool known = pbui::read_sim_limits(&lim);
            count_or_null(o, "name_max", known ? lim.name_octets : 0);
            count_or_null(o, "number_max", known ? lim.number_digits : 0);
        }
        if (rc != PB_RCODE_OK)
            o.add("code", rc).add("error", pbui::rcode_message(rc));
        out.add(book(type), o);
    }
    return ok(std::move(out.add("service", service).add("login", login)));
}

// The largest answer there is: written once, into the body itself, from
// the phonebook as the library holds it.
Response list(Phonebook &pb, const ApiRequest &req)
{
    const storage_type_t type = req.route.type;
    const int total = total_of(type);
    Response r;
    const int rc = pb.view(type, [&](const pb_flash_info *all, size_t count) {
        JsonObject o;
        o.add("ok", true).add("phonebook", book(type)).add("count", count);
        count_or_null(o, "total", total);
        o.with("entries", [&](std::string *out) {
            if (req.search.empty()) {
                pbui::append_json_entries(out, all, count);
            } else {
                const Entries found = pbui::found_by(pbui::Search(req.search), all, count);
                pbui::append_json_entries(out, found.data(), found.size());
            }
        });
        r.body = o.take();
    });
    if (type == STORAGE_TYPE_SIM)
        note_sim_answer(rc);
    return rc == PB_RCODE_OK ? r : failure(rc, "list", type);
}

Response entry_answer(storage_type_t type, const pb_flash_info &e, int status = 200)
{
    return ok_in(type, JsonObject().raw("entry", pbui::json_entry(e)), status);
}

Response show(Phonebook &pb, const ApiRequest &req)
{
    Entries v;
    if (int rc = pb.read(req.route.type, &v); rc != PB_RCODE_OK)
        return failure(rc, "show", req.route.type);
    const pb_flash_info *e = find_entry(v, req.route.index);
    return e ? entry_answer(req.route.type, *e) : failure(kMissing, "", req.route.type, req.route.index);
}

Response add(Phonebook &pb, const ApiRequest &req, const Json &body)
{
    const storage_type_t type = req.route.type;
    EntryFields f;
    std::string err;
    if (!read_entry_fields(body, &f, &err))
        return bad_input(err);
    if (!f.name || f.name->empty())
        return bad_input("an entry needs a name");
    pb_flash_info e;
    std::memset(&e, 0, sizeof e);
    pbui::set_fields(&e, f);
    if (const int rc = pb.add(type, &e); rc != PB_RCODE_OK)
        return failure(rc, "add", type);
    return entry_answer(type, e, 201);
}

Response edit(Phonebook &pb, const ApiRequest &req, const Json &body)
{
    const storage_type_t type = req.route.type;
    const int index = req.route.index;
    EntryFields f, was;
    std::string err;
    if (!read_entry_fields(body, &f, &err))
        return bad_input(err);
    if (const Json *w = body.get("was"); w && !read_entry_fields(*w, &was, &err))
        return bad_input("was: " + err);
    if (f.name && f.name->empty())
        return bad_input("an entry needs a name");
    pb_flash_info seen, e;
    const int rc = pb.checked(
        type,
        [&](const Entries &now) {
            const pb_flash_info *old = find_entry(now, index);
            if (!old)
                return was.name || was.number || was.email ? kChanged : kMissing;
            if (!pbui::entry_holds(*old, was))
                return kChanged;
            seen = *old;
            return static_cast<int>(PB_RCODE_OK);
        },
        // The service makes the edit only while the entry still holds the
        // name and number the page was shown.
        [&] { return pb.edit(type, seen, f, &e); });
    if (rc != PB_RCODE_OK)
        return failure(rc, "edit " + std::to_string(index), type, index);
    return entry_answer(type, e);
}

// The "entries" of a delete or a copy: each with its "index" and the
// fields the page showed. *indexes: each index once, in the order given.
bool read_shown_list(const Json &body, const char *what, std::vector<ShownEntry> *shown,
                     std::vector<int> *indexes, std::string *err)
{
    const Json *list = body.get("entries");
    if (!list || list->type != Json::ARRAY || list->items.empty())
        return *err =
                   std::string("\"entries\" must list the entries to ") + what + ", each with its \"index\"",
               false;
    if (list->items.size() > PB_MAX_ENTRIES)
        return *err = "more than 1000 entries", false;
    shown->resize(list->items.size());
    for (size_t k = 0; k < shown->size(); ++k) {
        if (!read_shown_entry(list->items[k], &(*shown)[k], err))
            return *err = "entries[" + std::to_string(k) + "]: " + *err, false;
        if (std::find(indexes->begin(), indexes->end(), (*shown)[k].index) == indexes->end())
            indexes->push_back((*shown)[k].index);
    }
    return true;
}

// Checks that every shown entry is still as shown; *found: the entries now,
// in the order shown. Otherwise kChanged or kMissing with *bad_index.
int check_shown(const Entries &now, const std::vector<ShownEntry> &shown, Entries *found, int *bad_index)
{
    found->clear();
    for (const ShownEntry &s : shown) {
        const pb_flash_info *e = find_entry(now, s.index);
        const bool told = s.fields.name || s.fields.number || s.fields.email;
        if (!e || !pbui::entry_holds(*e, s.fields)) {
            *bad_index = s.index;
            return e || told ? kChanged : kMissing;
        }
        found->push_back(*e);
    }
    return PB_RCODE_OK;
}

Response remove(Phonebook &pb, const ApiRequest &req, const Json &body)
{
    const storage_type_t type = req.route.type;
    std::string err;
    std::vector<ShownEntry> shown;
    std::vector<int> indexes;
    if (!read_shown_list(body, "delete", &shown, &indexes, &err))
        return bad_input(err);
    int bad_index = 0;
    Entries found;  // the entries as they are now, in the order shown
    const int rc = pb.checked(
        type, [&](const Entries &now) { return check_shown(now, shown, &found, &bad_index); },
        [&] {
            // One delete per entry, each carrying the entry it means: the
            // service deletes only what still is as the page showed it.
            std::vector<int> done;  // an index listed twice is deleted once
            for (const pb_flash_info &e : found) {
                bad_index = static_cast<int>(e.index);
                if (std::find(done.begin(), done.end(), bad_index) != done.end())
                    continue;
                done.push_back(bad_index);
                int at = 0;
                if (int r = pb.remove(type, e, &at); r != PB_RCODE_OK)
                    return r;
            }
            return static_cast<int>(PB_RCODE_OK);
        });
    if (rc != PB_RCODE_OK)
        return failure(rc, "delete", type, bad_index);
    return ok_in(type, JsonObject().raw("deleted", pbui::json_ints(indexes)));
}

Response remove_all(Phonebook &pb, const ApiRequest &req, const Json &body)
{
    const storage_type_t type = req.route.type;
    const Json *confirm = body.get("confirm");
    if (!confirm || confirm->type != Json::STRING || confirm->text != "delete all")
        return bad_input("deleting a whole phonebook needs \"confirm\": \"delete all\"");
    size_t count = 0;
    const int rc = pb.checked(
        type, [&](const Entries &now) { return count = now.size(), static_cast<int>(PB_RCODE_OK); },
        [&] { return pb.remove_all(type); });
    if (rc != PB_RCODE_OK)
        return failure(rc, "delete all", type);
    return ok_in(type, JsonObject().add("deleted", count));
}

// The format of an import or export: ?format=, else `fallback`.
bool read_format(const ApiRequest &req, pbui::Format fallback, pbui::Format *out, std::string *err)
{
    *out = fallback;
    if (req.format.empty() || pbui::parse_format(req.format, out))
        return true;
    return *err = "format: '" + req.format.substr(0, 16) + "' is none of vcard, csv, module", false;
}

Response report_answer(storage_type_t into, JsonObject members, const pbui::Report &report)
{
    return ok_in(into, members.members(pbui::json_report(report)));
}

Response import(Phonebook &pb, const ApiRequest &req)
{
    pbui::Format f;
    std::string err;
    if (!read_format(req, pbui::detect_format(req.body), &f, &err))
        return bad_input(err);
    pbui::Report report;
    if (int rc = pb.add_contacts(STORAGE_TYPE_FLASH, pbui::parse(req.body, f), false, &report);
        rc != PB_RCODE_OK)
        return failure(rc, "import", STORAGE_TYPE_FLASH);
    return report_answer(STORAGE_TYPE_FLASH, JsonObject().add("format", pbui::format_name(f)), report);
}

Response export_file(Phonebook &pb, const ApiRequest &req)
{
    const storage_type_t type = req.route.type;
    std::vector<int> indexes;
    pbui::Format f;
    std::string err;
    if (req.has_index_list && !parse_index_list(req.index_list, &indexes, &err))
        return bad_input("index: " + err);
    if (!read_format(req, pbui::DEFAULT_EXPORT, &f, &err))
        return bad_input(err);
    Entries now;
    if (int rc = pb.read(type, &now); rc != PB_RCODE_OK)
        return failure(rc, "export", type);
    const pbui::Chosen chosen = pbui::choose(now, indexes);
    if (!chosen.missing.empty())
        return failure(kMissing, "", type, chosen.missing[0]);
    Response r;
    if (!pbui::export_text(chosen.entries, f, &r.body))
        return bad_input("export: " + r.body);
    r.content_type = pbui::format_media_type(f);
    r.headers.emplace_back("Content-Disposition", "attachment; filename=\"" + std::string(book(type)) +
                                                      "-phonebook." + pbui::format_extension(f) + "\"");
    return r;
}

// Copies the entries shown (or all) into the other phonebook, with a report
// of what became of each; 409 when one of them changed meanwhile.
Response copy(Phonebook &pb, const ApiRequest &req, const Json &body)
{
    const storage_type_t from = req.route.type;
    const storage_type_t into = from == STORAGE_TYPE_SIM ? STORAGE_TYPE_FLASH : STORAGE_TYPE_SIM;
    std::string err;
    const Json *all = body.get("all"), *cut = body.get("cut");
    const bool copy_all = all && all->type == Json::BOOL && all->boolean;
    if (cut && cut->type != Json::BOOL)
        return bad_input("\"cut\" must be true or false");
    const bool cut_names = cut && cut->boolean;
    if (cut_names && into != STORAGE_TYPE_SIM)
        return bad_input("\"cut\" is for a copy into the SIM phonebook only");
    std::vector<ShownEntry> shown;
    std::vector<int> indexes;
    if (!copy_all && !read_shown_list(body, "copy (or \"all\": true)", &shown, &indexes, &err))
        return bad_input(err);
    int bad_index = 0;
    std::vector<pbui::Contact> contacts;
    pbui::Report report;
    const int rc = pb.checked(
        from,
        [&](const Entries &now) {
            Entries found;
            const int r = copy_all ? PB_RCODE_OK : check_shown(now, shown, &found, &bad_index);
            contacts = pbui::contacts_of(copy_all ? now : found);
            return r;
        },
        [&] { return pb.add_contacts(into, contacts, cut_names, &report); });
    if (rc != PB_RCODE_OK)
        return failure(rc, "copy", rc == kChanged || rc == kMissing ? from : into, bad_index);
    return report_answer(into, JsonObject().add("from", book(from)), report);
}

// How the fields given would be stored and whether they fit: the page's
// live counters ask here rather than repeating the rules.
Response check(const ApiRequest &req)
{
    return ok(pbui::json_check(pbui::check_fields(req.route.type, {req.name, req.number, req.email})));
}

// The entry a caller's number belongs to, read from the phonebook files
// (pb_lookup): it never waits for the service or the card.
Response lookup(const ApiRequest &req)
{
    if (!req.number || req.number->empty())
        return bad_input("lookup: give the number, ?number=");
    std::string tidied;
    if (std::string why = pbui::tidy_number(*req.number, &tidied); !why.empty())
        return bad_input("number '" + *req.number + "': " + why);
    // An empty ?country= asks for no home country: the C API's "".
    if (req.country && !req.country->empty())
        if (std::string why = pbui::country_refusal(*req.country); !why.empty())
            return bad_input(why);
    pb_lookup_entry e;
    switch (pb_lookup(req.number->c_str(), req.country ? req.country->c_str() : nullptr, &e)) {
    case PB_LOOKUP_OK: return ok(pbui::json_lookup(e));
    case PB_LOOKUP_NOT_FOUND:
        return error_response(404, PB_RCODE_INVALID_ERR, pbui::no_entry_for(*req.number));
    case PB_LOOKUP_BAD_ARGUMENT: return bad_input("lookup: the number or the country cannot be read");
    case PB_LOOKUP_NO_MEMORY: break;
    case PB_LOOKUP_READ_ERROR:
        return error_response(500, PB_RCODE_READ_ERR, "lookup: " + pbui::rcode_message(PB_RCODE_READ_ERR));
    }
    return error_response(500, PB_RCODE_ERROR, "lookup: out of memory");
}

// The home country of a duplicates search: ?country= (or --country), an
// empty one for none; else the router's. False with *err for a code the
// table lacks.
bool home_country(const ApiRequest &req, const pbui::Country **home, std::string *err)
{
    if (!req.country) {
        *home = pbui::router_country();
        return true;
    }
    *home = req.country->empty() ? nullptr : pbui::find_country(*req.country);
    *err = req.country->empty() ? std::string() : pbui::country_refusal(*req.country);
    return err->empty();
}

// The groups of entries that are the same person, and those that may be,
// in one phonebook or both, as pbcli duplicates lists them.
Response duplicates(Phonebook &pb, const ApiRequest &req)
{
    const pbui::Country *home = nullptr;
    std::string err;
    if (!home_country(req, &home, &err))
        return bad_input(err);
    std::vector<pbui::BookEntry> all;
    const int rc = pbui::read_book_entries(pb, req.route.type, &all);
    if (rc != PB_RCODE_OK || req.route.type != STORAGE_TYPE_FLASH)
        note_sim_answer(rc);
    if (rc != PB_RCODE_OK)
        return failure(rc, "duplicates",
                       req.route.type == STORAGE_TYPE_FLASH ? req.route.type : STORAGE_TYPE_SIM);
    const std::vector<pbui::DuplicateGroup> groups = pbui::find_duplicates(all, home);
    return ok(std::move(JsonObject()
                            .add("count", groups.size())
                            .raw("groups", pbui::json_groups(groups))
                            .raw("maybe", pbui::json_groups(pbui::find_maybe_duplicates(all, home)))));
}

// An entry of a merge as the page showed it: its phonebook, index and fields.
struct ShownInBook {
    storage_type_t type;
    ShownEntry shown;
};

bool read_shown_in_book(const Json &obj, ShownInBook *out, std::string *err)
{
    const Json *book = obj.get("phonebook");
    out->type = book && book->type == Json::STRING ? pbui::storage_named(book->text) : STORAGE_TYPE_UNKNOWN;
    if (out->type == STORAGE_TYPE_UNKNOWN)
        return *err = "each entry needs its \"phonebook\", \"sim\" or \"device\"", false;
    return read_shown_entry(obj, &out->shown, err);
}

// {"groups":[{"keep":ENTRY,"delete":[ENTRY...]}...]}, each ENTRY with its
// "phonebook", "index" and the fields shown; *groups: the kept entry first.
// An entry named twice is refused: a merge must not delete what it keeps.
bool read_merge_groups(const Json &body, std::vector<std::vector<ShownInBook>> *groups, std::string *err)
{
    const Json *list = body.get("groups");
    if (!list || list->type != Json::ARRAY || list->items.empty())
        return *err = "\"groups\" must list the groups to merge, each with \"keep\" and \"delete\"", false;
    std::vector<std::pair<storage_type_t, int>> named;
    for (size_t g = 0; g < list->items.size(); ++g) {
        const Json &item = list->items[g];
        const Json *keep = item.get("keep"), *drop = item.get("delete");
        const std::string where = "groups[" + std::to_string(g) + "]: ";
        if (!keep || !drop || drop->type != Json::ARRAY || drop->items.empty())
            return *err = where + "needs \"keep\" and a list \"delete\" of one entry or more", false;
        std::vector<ShownInBook> members(1 + drop->items.size());
        for (size_t m = 0; m < members.size(); ++m) {
            if (!read_shown_in_book(m == 0 ? *keep : drop->items[m - 1], &members[m], err))
                return *err = where + *err, false;
            const std::pair<storage_type_t, int> id{members[m].type, members[m].shown.index};
            if (std::find(named.begin(), named.end(), id) != named.end())
                return *err = where + "the " + pbui::book_title(id.first) + " phonebook's entry " +
                              std::to_string(id.second) + " is named twice",
                       false;
            if (named.size() == 2 * PB_MAX_ENTRIES)
                return *err = "more entries than both phonebooks hold", false;
            named.push_back(id);
        }
        groups->push_back(std::move(members));
    }
    return true;
}

// Keeps one entry of each group and deletes the others, once every entry
// named is still as the page showed it (409 otherwise, nothing deleted);
// each delete is made by the service only while its entry still is.
Response merge(Phonebook &pb, const ApiRequest &, const Json &body)
{
    std::vector<std::vector<ShownInBook>> shown;
    std::string err;
    if (!read_merge_groups(body, &shown, &err))
        return bad_input(err);
    // The groups with the entries as they are now, filled in by the checks.
    std::vector<pbui::DuplicateGroup> groups(shown.size());
    bool uses[2] = {false, false};  // SIM, device
    for (size_t g = 0; g < shown.size(); ++g)
        for (const ShownInBook &s : shown[g]) {
            groups[g].push_back({s.type, {}});
            uses[s.type == STORAGE_TYPE_FLASH] = true;
        }
    ShownInBook bad{STORAGE_TYPE_UNKNOWN, {}};
    const auto check = [&](storage_type_t type) {
        return [&, type](const Entries &now) {
            for (size_t g = 0; g < shown.size(); ++g)
                for (size_t m = 0; m < shown[g].size(); ++m) {
                    const ShownInBook &s = shown[g][m];
                    if (s.type != type)
                        continue;
                    const pb_flash_info *e = find_entry(now, s.shown.index);
                    if (!e || !pbui::entry_holds(*e, s.shown.fields))
                        return bad = s, kChanged;
                    groups[g][m].entry = *e;
                }
            return static_cast<int>(PB_RCODE_OK);
        };
    };
    pbui::Merged done;
    const auto apply = [&] { return pbui::merge_groups(pb, groups, &done); };
    int rc;
    if (uses[0] && uses[1])
        rc = pb.checked(STORAGE_TYPE_FLASH, check(STORAGE_TYPE_FLASH),
                        [&] { return pb.checked(STORAGE_TYPE_SIM, check(STORAGE_TYPE_SIM), apply); });
    else
        rc = pb.checked(uses[0] ? STORAGE_TYPE_SIM : STORAGE_TYPE_FLASH,
                        check(uses[0] ? STORAGE_TYPE_SIM : STORAGE_TYPE_FLASH), apply);
    if (uses[0])
        note_sim_answer(rc);
    if (rc == kChanged && bad.type != STORAGE_TYPE_UNKNOWN)
        return failure(rc, "merge", bad.type, bad.shown.index);
    // A phonebook could not be read (nothing deleted), or a delete failed.
    const BookEntry &failed = done.failed;
    if (rc != PB_RCODE_OK && failed.type == STORAGE_TYPE_UNKNOWN)
        return failure(rc, "merge", uses[0] ? STORAGE_TYPE_SIM : STORAGE_TYPE_FLASH);
    if (rc != PB_RCODE_OK)
        return failure(rc,
                       "merge: delete entry " + std::to_string(failed.entry.index) + " of the " +
                           pbui::book_title(failed.type) + " phonebook (" +
                           std::to_string(done.deleted.size()) + " deleted before)",
                       failed.type, static_cast<int>(failed.entry.index));
    return ok(pbui::json_merged(done));
}

}  // namespace

void note_sim_answer(int rc)
{
    if (!pbui::rcode_busy(rc))
        g_sim_busy_since_msecs = 0;
}

const char *state_word(int rc)
{
    if (rc == PB_RCODE_OK)
        return "ready";
    if (rc == PB_RCODE_ERROR)
        return "unreachable";
    if (rc == PB_RCODE_READ_ERR)
        return "no_card";
    if (rc == PB_RCODE_NODEPUSH_ERR)
        return "busy";
    if (!pbui::rcode_busy(rc))
        return "failed";
    // Only the SIM phonebook is ever "being read".
    const long long now = steady_msecs();
    long long since = 0;
    if (g_sim_busy_since_msecs.compare_exchange_strong(since, now))
        return "reading";
    return now - since > kCardSilentMsecs ? "no_card" : "reading";
}

Response error_response(int status, int code, const std::string &message)
{
    JsonObject o;
    o.add("ok", false).add("code", code).add("error", message).add("state", state_word(code));
    // Both 503s are asked again: the page shows "reading" for one only.
    if (pbui::rcode_busy(code))
        o.add("reading", true);
    // The list the page shows is not the phonebook any more, or may not be.
    if (status == 409 || code == PB_RCODE_UNCONFIRMED_ERR)
        o.add("reload", true);
    Response r;
    r.status = status;
    r.body = o.take();
    if (status == 503)
        r.headers.emplace_back("Retry-After", "1");
    return r;
}

int http_status(int rc)
{
    // Every result code is named, so that one added later does not build
    // until it is given its status here.
    switch (static_cast<pb_return_code_enum_t>(rc)) {
    case PB_RCODE_OK: return 200;
    case PB_RCODE_ARGSERR:
    case PB_RCODE_UTF_ERR:
    case PB_RCODE_BCD_ERR:
    case PB_RCODE_DUPLICATE_ERR: return 400;
    case PB_RCODE_INVALID_ERR: return 404;
    case PB_RCODE_NOTFREE_ERR: return 507;
    case PB_RCODE_NODEPUSH_ERR: return 503;  // the service's queue is full
    case PB_RCODE_CHANGED_ERR: return 409;
    // Not ready yet, or failed: which of the two is pbcli's word (rcode_busy).
    case PB_RCODE_ERROR:
    case PB_RCODE_TYPE_ERR:
    case PB_RCODE_BUFFNULL_ERR:
    case PB_RCODE_READED_ERR:
    case PB_RCODE_READ_ERR:
    case PB_RCODE_WRITE_ERR:
    case PB_RCODE_SWAP_ERR:
    case PB_RCODE_READING_ERR:
    case PB_RCODE_RWLOCK_ERR:
    case PB_RCODE_NODEPOP_ERR:
    case PB_RCODE_NODEDEL_ERR:
    case PB_RCODE_NODEEMPTY_ERR:
    case PB_RCODE_THREAD_ERR:
    case PB_RCODE_INIT_ERR:
    case PB_RCODE_NV_ERR:
    case PB_RCODE_EMPTY_ERR:
    case PB_RCODE_UNCONFIRMED_ERR: break;
    }
    if (rc == pbui::PBUI_SIM_NO_EMAIL)
        return 400;
    // Also a code from outside the enum, as a newer service might send.
    return pbui::rcode_busy(rc) ? 503 : 500;
}

Response handle_api(Phonebook &pb, const ApiRequest &req)
{
    switch (req.route.op) {
    case Op::STATUS: return status(pb, req.login);
    case Op::LIST: return list(pb, req);
    case Op::SHOW: return show(pb, req);
    case Op::ADD: return with_body(pb, req, add);
    case Op::EDIT: return with_body(pb, req, edit);
    case Op::DELETE: return with_body(pb, req, remove);
    case Op::DELETE_ALL: return with_body(pb, req, remove_all);
    case Op::IMPORT: return import(pb, req);
    case Op::EXPORT: return export_file(pb, req);
    case Op::COPY: return with_body(pb, req, copy);
    case Op::CHECK: return check(req);
    case Op::LOOKUP: return lookup(req);
    case Op::DUPLICATES: return duplicates(pb, req);
    case Op::MERGE: return with_body(pb, req, merge);
    case Op::BAD_METHOD: return error_response(405, PB_RCODE_ARGSERR, "method not allowed here");
    // Login and logout are the server's (they set the session cookie).
    case Op::NOT_FOUND:
    case Op::LOGIN:
    case Op::LOGOUT: break;
    }
    return error_response(404, PB_RCODE_ARGSERR, "no such API path");
}

}  // namespace pbweb
