// The route of an API request and the fields of its body, checked here
// once before any handler sees them: paths to operations by table, index
// lists and entry fields bounded and read as they will be stored.
#include "request.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>

#include "contacts.h"
#include "entries.h"
#include "words.h"

namespace pbweb {

namespace {

storage_type_t parse_book(const std::string &s) { return pbui::storage_named(s); }

std::vector<std::string> split(const std::string &s, char sep)
{
    std::vector<std::string> parts;
    size_t from = 0;
    for (size_t at; (at = s.find(sep, from)) != std::string::npos; from = at + 1)
        parts.push_back(s.substr(from, at - from));
    parts.push_back(s.substr(from));
    return parts;
}

bool read_text(const Json &obj, const char *key, std::optional<std::string> *out, std::string *error)
{
    const Json *v = obj.get(key);
    if (!v)
        return true;
    if (v->type != Json::STRING)
        return *error = std::string(key) + " must be a string", false;
    if (std::string why = pbui::field_refusal(key, v->text); !why.empty())
        return *error = std::move(why), false;
    *out = v->text;
    return true;
}

}  // namespace

Route parse_route(const std::string &method, const std::string &path)
{
    Route r;
    const std::vector<std::string> p = split(path, '/');  // "", "api", ...
    if (p.size() < 3 || !p[0].empty() || p[1] != "api")
        return r;
    const auto want = [&](const char *m, Op op) {
        r.op = method == m ? op : Op::BAD_METHOD;
        return r;
    };
    if (p.size() == 3) {
        if (p[2] == "status")
            return want("GET", Op::STATUS);
        if (p[2] == "login")
            return want("POST", Op::LOGIN);
        if (p[2] == "logout")
            return want("POST", Op::LOGOUT);
        if (p[2] == "lookup")
            return want("GET", Op::LOOKUP);
        if (p[2] == "duplicates")
            return want("GET", Op::DUPLICATES);
        if (p[2] == "merge")
            return want("POST", Op::MERGE);
        return r;
    }
    r.type = parse_book(p[2]);
    if (r.type == STORAGE_TYPE_UNKNOWN)
        return r;
    const std::string &what = p[3];
    if (p.size() == 4) {
        if (what == "entries")
            return method == "POST" ? (r.op = Op::ADD, r) : want("GET", Op::LIST);
        if (what == "delete")
            return want("POST", Op::DELETE);
        if (what == "delete-all")
            return want("POST", Op::DELETE_ALL);
        if (what == "export")
            return want("GET", Op::EXPORT);
        if (what == "import" && r.type == STORAGE_TYPE_FLASH)
            return want("POST", Op::IMPORT);
        if (what == "copy")
            return want("POST", Op::COPY);
        if (what == "check")
            return want("GET", Op::CHECK);
        if (what == "duplicates")
            return want("GET", Op::DUPLICATES);
        return r;
    }
    if (p.size() == 5 && what == "entries" && pbui::parse_index(p[4], &r.index))
        return method == "PUT" ? (r.op = Op::EDIT, r) : want("GET", Op::SHOW);
    return r;
}

// Every operation is named: one added later does not build until it is
// put on a side, so that none can skip the Origin check unseen.
bool changes_state(Op op)
{
    switch (op) {
    case Op::LOGIN:
    case Op::LOGOUT:
    case Op::ADD:
    case Op::EDIT:
    case Op::DELETE:
    case Op::DELETE_ALL:
    case Op::IMPORT:
    case Op::COPY:
    case Op::MERGE: return true;
    case Op::NOT_FOUND:
    case Op::BAD_METHOD:
    case Op::STATUS:
    case Op::LIST:
    case Op::SHOW:
    case Op::CHECK:
    case Op::LOOKUP:
    case Op::DUPLICATES:
    case Op::EXPORT: return false;
    }
    return true;  // not an Op: treated as a change, so the Origin check runs
}

bool parse_index_list(const std::string &s, std::vector<int> *out, std::string *error)
{
    out->clear();
    for (const std::string &item : split(s, ',')) {
        int v;
        if (!pbui::parse_index(item, &v))
            return *error = pbui::not_an_index(item.substr(0, 16)), false;  // the start of it
        if (out->size() == PB_MAX_ENTRIES)
            return *error = "more than 1000 indexes", false;
        out->push_back(v);
    }
    return true;
}

bool read_entry_fields(const Json &obj, EntryFields *out, std::string *error)
{
    *out = EntryFields();
    if (obj.type != Json::OBJECT)
        return *error = "an entry must be a JSON object", false;
    if (!read_text(obj, "name", &out->name, error) || !read_text(obj, "number", &out->number, error) ||
        !read_text(obj, "email", &out->email, error))
        return false;
    if (out->number) {
        std::string tidied;
        if (std::string why = pbui::tidy_number(*out->number, &tidied); !why.empty())
            return *error = "number: " + why, false;
        out->number = std::move(tidied);
    }
    return true;
}

bool read_shown_entry(const Json &obj, ShownEntry *out, std::string *error)
{
    if (!read_entry_fields(obj, &out->fields, error))
        return false;
    const Json *idx = obj.get("index");
    if (!idx || idx->type != Json::NUMBER || idx->number < 1 || idx->number > PB_MAX_ENTRIES ||
        std::floor(idx->number) != idx->number)
        return *error = "each entry needs an \"index\" from 1 to 1000", false;
    out->index = static_cast<int>(idx->number);
    return true;
}

}  // namespace pbweb
