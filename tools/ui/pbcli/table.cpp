// pbcli's tables: cells measured in terminal columns (wide East Asian
// characters take two, combining marks none) so that every script lines
// up, and control bytes escaped so that an entry stays on its line.
#include "table.h"

#include <algorithm>
#include <cstdio>

#include "text.h"

namespace pbcli {

using pbui::utf8_char;

namespace {

bool is_wide(char32_t c)
{
    return (c >= 0x1100 && c <= 0x115F) || (c >= 0x2E80 && c <= 0xA4CF && c != 0x303F) ||
           (c >= 0xAC00 && c <= 0xD7A3) || (c >= 0xF900 && c <= 0xFAFF) || (c >= 0xFE30 && c <= 0xFE4F) ||
           (c >= 0xFF00 && c <= 0xFF60) || (c >= 0xFFE0 && c <= 0xFFE6) || (c >= 0x1F300 && c <= 0x1FAFF) ||
           (c >= 0x20000 && c <= 0x3FFFD);
}

bool is_combining(char32_t c) { return (c >= 0x0300 && c <= 0x036F) || c == 0x200B || c == 0x200D; }

std::string hex_byte(unsigned char c)
{
    char buf[8];
    std::snprintf(buf, sizeof buf, "\\x%02X", c);
    return buf;
}

std::string pad(const std::string &cell, size_t width, bool right)
{
    size_t w = display_width(cell);
    std::string fill(width > w ? width - w : 0, ' ');
    return right ? fill + cell : cell + fill;
}

}  // namespace

std::string display_text(const std::string &s)
{
    std::string out;
    for (size_t i = 0; i < s.size();) {
        char32_t cp;
        size_t len = utf8_char(s, i, &cp);
        if (len == 0) {
            out += hex_byte(static_cast<unsigned char>(s[i++]));
            continue;
        }
        if (cp == '\n')
            out += "\\n";
        else if (cp == '\t')
            out += "\\t";
        else if (cp < 0x20 || cp == 0x7F)
            out += hex_byte(static_cast<unsigned char>(cp));
        else
            out.append(s, i, len);
        i += len;
    }
    return out;
}

size_t display_width(const std::string &s)
{
    size_t w = 0;
    for (size_t i = 0; i < s.size();) {
        char32_t cp;
        size_t len = utf8_char(s, i, &cp);
        if (len == 0) {
            w += 1;
            ++i;
            continue;
        }
        w += is_combining(cp) ? 0 : is_wide(cp) ? 2 : 1;
        i += len;
    }
    return w;
}

void print_table(std::ostream &out, storage_type_t type, const std::vector<pb_flash_info> &v, bool heading)
{
    const bool sim = type == STORAGE_TYPE_SIM;
    std::vector<std::vector<std::string>> rows;
    rows.push_back({"Index", "SIM", "Name", "Number", "E-mail"});
    for (const auto &e : v)
        rows.push_back({std::to_string(e.index), std::to_string(e.sim_index), display_text(e.name),
                        display_text(e.num), display_text(e.email)});
    size_t width[5] = {};
    for (const auto &r : rows)
        for (size_t c = 0; c < 5; ++c)
            width[c] = std::max(width[c], display_width(r[c]));

    if (heading)
        out << (sim ? "SIM" : "Device") << " phonebook: " << v.size()
            << (v.size() == 1 ? " entry" : " entries") << "\n";
    if (v.empty())
        return;
    for (const auto &r : rows) {
        std::string line = pad(r[0], width[0], true);
        if (sim)
            line += "  " + pad(r[1], width[1], true);
        line += "  " + pad(r[2], width[2], false) + "  " + pad(r[3], width[3], false) + "  " + r[4];
        while (!line.empty() && line.back() == ' ')
            line.pop_back();
        out << line << "\n";
    }
}

}  // namespace pbcli
