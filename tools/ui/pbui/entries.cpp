// Entries picked by index or by what they hold, and the fields a user
// gives set into one: apart from the operations, so that the request
// parsing of pbweb uses them without the client API.
#include "entries.h"

#include <cstdio>
#include <cstring>

namespace pbui {

bool parse_index(std::string_view word, int *out)
{
    int v = 0;
    for (const char c : word) {
        if (c < '0' || c > '9')
            return false;
        v = v * 10 + (c - '0');
        if (v > PB_MAX_ENTRIES)
            return false;
    }
    if (v < 1)
        return false;
    *out = v;
    return true;
}

std::string field_refusal(std::string_view what, std::string_view text)
{
    if (text.size() > PB_TEXT_LEN - 1)
        return std::string(what) + " is " + std::to_string(text.size()) + " bytes long; at most " +
               std::to_string(PB_TEXT_LEN - 1) + " fit";
    for (const unsigned char c : text)
        if (c < 0x20 || c == 0x7F)
            return std::string(what) + " must not hold control characters (line feeds, tabs)";
    return "";
}

std::string not_an_index(std::string_view word)
{
    return "'" + std::string(word) + "' is not an index from 1 to " + std::to_string(PB_MAX_ENTRIES);
}

const pb_flash_info *find_entry(const Entries &v, int index)
{
    for (const auto &e : v)
        if (static_cast<int>(e.index) == index)
            return &e;
    return nullptr;
}

const pb_flash_info *find_same(const Entries &v, const pb_flash_info &e)
{
    for (const auto &x : v)
        if (x.sim_index == e.sim_index && std::strcmp(x.name, e.name) == 0 &&
            std::strcmp(x.num, e.num) == 0 && std::strcmp(x.email, e.email) == 0)
            return &x;
    return nullptr;
}

void set_field(char (&dst)[PB_TEXT_LEN], const std::string &v)
{
    std::snprintf(dst, sizeof dst, "%s", v.c_str());
}

void set_fields(pb_flash_info *e, const Fields &f)
{
    if (f.name)
        set_field(e->name, *f.name);
    if (f.number)
        set_field(e->num, *f.number);
    if (f.email)
        set_field(e->email, *f.email);
}

bool entry_holds(const pb_flash_info &e, const Fields &f)
{
    return (!f.name || *f.name == e.name) && (!f.number || *f.number == e.num) &&
           (!f.email || *f.email == e.email);
}

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

pb_flash_info entry_of(const pb_lookup_entry &e)
{
    pb_flash_info info{};
    info.index = static_cast<zp_uint32>(e.index);
    info.sim_index = static_cast<zp_uint32>(e.sim_index);
    set_field(info.name, e.name);
    set_field(info.num, e.number);
    set_field(info.email, e.email);
    return info;
}

}  // namespace pbui
