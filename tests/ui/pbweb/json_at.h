/* json_at.h - a value of a parsed JSON answer by its path ("entry.name",
 * "entries.0.index"), as text: for the end-to-end tests of pbweb and pbcli,
 * whose answers pbweb's strict parser reads. */
#pragma once

#include <string>

#include "json.h"

// Strings as they are, numbers as integers, an array as "#" and its length;
// "<none>" when the path leads nowhere.
inline std::string json_at(const pbweb::Json &js, const std::string &path)
{
    const pbweb::Json *v = &js;
    for (size_t from = 0; v;) {
        const size_t dot = path.find('.', from);
        const std::string key = path.substr(from, dot - from);
        if (v->type == pbweb::Json::ARRAY)
            v = std::stoul(key) < v->items.size() ? &v->items[std::stoul(key)] : nullptr;
        else
            v = v->get(key);
        if (dot == std::string::npos)
            break;
        from = dot + 1;
    }
    if (!v)
        return "<none>";
    switch (v->type) {
    case pbweb::Json::STRING: return v->text;
    case pbweb::Json::NUMBER: return std::to_string(static_cast<long long>(v->number));
    case pbweb::Json::BOOL: return v->boolean ? "true" : "false";
    case pbweb::Json::ARRAY: return "#" + std::to_string(v->items.size());
    case pbweb::Json::NUL:
    case pbweb::Json::OBJECT: break;
    }
    return "null";
}
