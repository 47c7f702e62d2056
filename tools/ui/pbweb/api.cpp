#include "api.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "output.h"

namespace pbweb {

namespace {

using pbcli::find_entry;
using pbcli::json_entry;
using pbcli::json_ints;
using pbcli::json_string;
using pbcli::rcode_message;
using pbcli::set_field;
using pbcli::set_fields;

// The entry is not as the page showed it: found by pbweb's own look at the
// list, or by the service when the change was made.
constexpr int kChanged = PB_RCODE_CHANGED_ERR;
// pbweb's own result, next to the phonebook's codes: no entry at the index.
constexpr int kMissing = 1000;

const char *book(storage_type_t type) { return pbcli::storage_name(type); }

std::string book_title(storage_type_t type) { return type == STORAGE_TYPE_SIM ? "SIM" : "device"; }

Response ok(const std::string &body, int status = 200)
{
    Response r;
    r.status = status;
    r.body.reserve(body.size() + 12);
    r.body += "{\"ok\":true,";
    r.body += body;
    r.body += '}';
    return r;
}

Response bad_input(const std::string &message) { return error_response(400, PB_RCODE_ARGSERR, message); }

Response failure(int rc, const std::string &context, storage_type_t type, int index = 0)
{
    if (rc == kChanged)
        return error_response(409, kChanged,
                              "the entry at index " + std::to_string(index) + " of the " + book_title(type) +
                                  " phonebook changed meanwhile; the list has been read again");
    if (rc == kMissing)
        return error_response(404, PB_RCODE_INVALID_ERR,
                              "no entry at index " + std::to_string(index) + " in the " + book_title(type) +
                                  " phonebook");
    return error_response(http_status(rc), rc, context + ": " + rcode_message(rc));
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

int sim_total(const Phonebook &pb)
{
    const int n = pb.sim_limits().records;
    return n > 0 ? std::min(n, PB_MAX_ENTRIES) : 0;
}

std::string total_of(const Phonebook &pb, storage_type_t type)
{
    const int n = type == STORAGE_TYPE_SIM ? sim_total(pb) : PB_MAX_ENTRIES;
    return n > 0 ? std::to_string(n) : "null";
}

Response status(Phonebook &pb, bool login)
{
    Entries sim, dev;
    const int src = pb.read(STORAGE_TYPE_SIM, &sim);
    const int drc = pb.read(STORAGE_TYPE_FLASH, &dev);
    const SimLimits lim = pb.sim_limits();
    const bool busy = pbcli::rcode_busy(src);
    std::string s = "\"sim\":{\"state\":\"";
    s += src == PB_RCODE_OK ? "ready" : busy ? "reading" : "unavailable";
    s += "\",\"used\":" + (src == PB_RCODE_OK ? std::to_string(sim.size()) : "null");
    s += ",\"total\":" + total_of(pb, STORAGE_TYPE_SIM);
    s += ",\"name_max\":" + (lim.name_octets > 0 ? std::to_string(lim.name_octets) : "null");
    s += ",\"number_max\":" + (lim.number_digits > 0 ? std::to_string(lim.number_digits) : "null");
    if (src != PB_RCODE_OK)
        s += ",\"code\":" + std::to_string(src) + ",\"error\":" + json_string(rcode_message(src));
    s += "},\"device\":{\"state\":\"" + std::string(drc == PB_RCODE_OK ? "ready" : "unavailable") + "\"";
    s += ",\"used\":" + (drc == PB_RCODE_OK ? std::to_string(dev.size()) : "null");
    s += ",\"total\":" + std::to_string(PB_MAX_ENTRIES);
    if (drc != PB_RCODE_OK)
        s += ",\"code\":" + std::to_string(drc) + ",\"error\":" + json_string(rcode_message(drc));
    return ok(s + "},\"login\":" + (login ? "true" : "false"));
}

// The largest answer there is: written once, into the body itself, from
// the phonebook as the library holds it.
Response list(Phonebook &pb, const ApiRequest &req)
{
    const storage_type_t type = req.route.type;
    const std::string total = total_of(pb, type);
    Response r;
    const int rc = pb.view(type, [&](const pb_flash_info *all, size_t count) {
        r.body = "{\"ok\":true,\"phonebook\":\"" + std::string(book(type)) +
                 "\",\"count\":" + std::to_string(count) + ",\"total\":" + total + ",\"entries\":";
        if (req.search.empty()) {
            pbcli::append_json_entries(&r.body, all, count);
        } else {
            const pbx::Search search(req.search);
            Entries found;
            std::copy_if(all, all + count, std::back_inserter(found),
                         [&](const pb_flash_info &e) { return search.matches(e); });
            pbcli::append_json_entries(&r.body, found.data(), found.size());
        }
        r.body += '}';
    });
    return rc == PB_RCODE_OK ? r : failure(rc, "list", type);
}

Response entry_answer(storage_type_t type, const pb_flash_info &e, int status = 200)
{
    return ok("\"phonebook\":\"" + std::string(book(type)) + "\",\"entry\":" + json_entry(e), status);
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
    set_field(e.name, *f.name);
    set_field(e.num, f.number.value_or(""));
    set_field(e.email, f.email.value_or(""));
    if (const int rc = pb.write(type, SIM_PB_HANDLE_TYPE_ADD, &e); rc != PB_RCODE_OK)
        return failure(rc, "add", type);
    // The service answers with the SIM record only; the new entry is the
    // last one that matches what was added.
    pb.view(type, [&](const pb_flash_info *all, size_t count) {
        for (size_t i = count; i-- > 0;)
            if (std::strcmp(all[i].name, e.name) == 0 && std::strcmp(all[i].num, e.num) == 0 &&
                std::strcmp(all[i].email, e.email) == 0 &&
                (type != STORAGE_TYPE_SIM || all[i].sim_index == e.sim_index)) {
                e = all[i];
                break;
            }
    });
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
    pb_flash_info e;
    const int rc = pb.checked(
        type,
        [&](const Entries &now) {
            const pb_flash_info *old = find_entry(now, index);
            if (!old)
                return was.name || was.number || was.email ? kChanged : kMissing;
            if (!entry_matches(*old, was))
                return kChanged;
            e = *old;
            return static_cast<int>(PB_RCODE_OK);
        },
        [&] {
            // The service makes the edit only while the entry still holds
            // the name and number the page was shown.
            const pb_flash_info seen = e;
            set_fields(&e, f.name, f.number, f.email);
            return pb.edit_checked_locked(type, &e, &seen);
        });
    if (rc != PB_RCODE_OK)
        return failure(rc, "edit " + std::to_string(index), type, index);
    pb.view(type, [&](const pb_flash_info *all, size_t count) {
        const auto now = std::find_if(
            all, all + count, [&](const pb_flash_info &x) { return static_cast<int>(x.index) == index; });
        if (now != all + count)
            e = *now;
    });
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
        if (!e || !entry_matches(*e, s.fields)) {
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
            for (pb_flash_info &e : found) {
                bad_index = static_cast<int>(e.index);
                if (std::find(done.begin(), done.end(), bad_index) != done.end())
                    continue;
                done.push_back(bad_index);
                if (int r = pb.write_locked(type, SIM_PB_HANDLE_TYPE_DEL, &e); r != PB_RCODE_OK)
                    return r;
            }
            return static_cast<int>(PB_RCODE_OK);
        });
    if (rc != PB_RCODE_OK)
        return failure(rc, "delete", type, bad_index);
    return ok("\"phonebook\":\"" + std::string(book(type)) + "\",\"deleted\":" + json_ints(indexes));
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
        [&] {
            pb_flash_info e;
            std::memset(&e, 0, sizeof e);
            return pb.write_locked(type, SIM_PB_HANDLE_TYPE_DEL_ALL, &e);
        });
    if (rc != PB_RCODE_OK)
        return failure(rc, "delete all", type);
    return ok("\"phonebook\":\"" + std::string(book(type)) + "\",\"deleted\":" + std::to_string(count));
}

// The format of an import or export: ?format=, else `fallback`.
bool read_format(const ApiRequest &req, pbx::Format fallback, pbx::Format *out, std::string *err)
{
    *out = fallback;
    if (req.format.empty() || pbx::parse_format(req.format, out))
        return true;
    return *err = "format: '" + req.format.substr(0, 16) + "' is none of vcard, csv, module", false;
}

Response report_answer(storage_type_t into, const std::string &members, const pbx::Report &report)
{
    return ok("\"phonebook\":\"" + std::string(book(into)) + "\"," + members + pbcli::json_report(report));
}

Response import(Phonebook &pb, const ApiRequest &req)
{
    pbx::Format f;
    std::string err;
    if (!read_format(req, pbx::detect_format(req.body), &f, &err))
        return bad_input(err);
    pbx::Report report;
    if (int rc = pb.import(pbx::parse(req.body, f), &report); rc != PB_RCODE_OK)
        return failure(rc, "import", STORAGE_TYPE_FLASH);
    return report_answer(STORAGE_TYPE_FLASH, "\"format\":\"" + std::string(pbx::format_name(f)) + "\",",
                         report);
}

Response export_file(Phonebook &pb, const ApiRequest &req)
{
    const storage_type_t type = req.route.type;
    std::vector<int> indexes;
    pbx::Format f;
    std::string err;
    if (req.has_index_list && !parse_index_list(req.index_list, &indexes, &err))
        return bad_input("index: " + err);
    if (!read_format(req, pbx::DEFAULT_EXPORT, &f, &err))
        return bad_input(err);
    Entries now, chosen;
    if (int rc = pb.read(type, &now); rc != PB_RCODE_OK)
        return failure(rc, "export", type);
    for (int i : indexes) {
        const pb_flash_info *e = find_entry(now, i);
        if (!e)
            return failure(kMissing, "", type, i);
        chosen.push_back(*e);
    }
    const Entries &out = indexes.empty() ? now : chosen;
    if (f == pbx::Format::MODULE) {
        // A backup that would read back otherwise is refused whole.
        if (const std::string why = pbx::module_lines_refusal(out); !why.empty())
            return bad_input("export: " + why);
    }
    Response r;
    r.body = pbx::format(out, f);
    r.content_type = pbx::format_media_type(f);
    r.headers.emplace_back("Content-Disposition", "attachment; filename=\"" + std::string(book(type)) +
                                                      "-phonebook." + pbx::format_extension(f) + "\"");
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
    std::vector<pbx::Contact> contacts;
    pbx::Report report;
    const int rc = pb.checked(
        from,
        [&](const Entries &now) {
            Entries found;
            const int r = copy_all ? PB_RCODE_OK : check_shown(now, shown, &found, &bad_index);
            contacts = pbx::contacts_of(copy_all ? now : found);
            return r;
        },
        [&] { return pb.add_contacts_locked(into, contacts, cut_names, &report); });
    if (rc != PB_RCODE_OK)
        return failure(rc, "copy", rc == kChanged || rc == kMissing ? from : into, bad_index);
    return report_answer(into, "\"from\":\"" + std::string(book(from)) + "\",", report);
}

// How the fields given would be stored and whether they fit: the page's
// live counters ask here rather than repeating the rules.
Response check(Phonebook &pb, const ApiRequest &req)
{
    const SimLimits lim = pb.sim_limits();
    pbx::SimLimits card;
    card.name_octets = lim.name_octets;
    card.number_digits = lim.number_digits;
    const bool known = card.name_octets > 0 && card.number_digits > 0;
    return ok(pbcli::json_check(
        pbx::check_fields(req.route.type, req.name, req.number, req.email, known ? &card : nullptr)));
}

}  // namespace

Response error_response(int status, int code, const std::string &message)
{
    Response r;
    r.status = status;
    r.body = "{\"ok\":false,\"code\":" + std::to_string(code) + ",\"error\":" + json_string(message);
    // Both 503s are asked again: the page shows "reading" for one only.
    if (pbcli::rcode_busy(code))
        r.body += ",\"reading\":true";
    // The list the page shows is not the phonebook any more, or may not be.
    if (status == 409 || code == PB_RCODE_UNCONFIRMED_ERR)
        r.body += ",\"reload\":true";
    r.body += '}';
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
    // Also a code from outside the enum, as a newer service might send.
    return pbcli::rcode_busy(rc) ? 503 : 500;
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
    case Op::CHECK: return check(pb, req);
    case Op::BAD_METHOD: return error_response(405, PB_RCODE_ARGSERR, "method not allowed here");
    // Login and logout are the server's (they set the session cookie).
    case Op::NOT_FOUND:
    case Op::LOGIN:
    case Op::LOGOUT: break;
    }
    return error_response(404, PB_RCODE_ARGSERR, "no such API path");
}

}  // namespace pbweb
