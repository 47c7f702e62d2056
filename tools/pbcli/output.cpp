#include "output.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace pbcli {

namespace {

struct RcodeText {
    int rc;
    const char *message;
    Exit exit;
};

const RcodeText kRcodes[] = {
    {PB_RCODE_ERROR,
     "the phonebook service could not be reached or the operation failed "
     "(is pb_host running?)",
     EXIT_NO_SERVICE},
    {PB_RCODE_OK, "done", EXIT_OK},
    {PB_RCODE_ARGSERR, "the request was refused as invalid", EXIT_USAGE},
    {PB_RCODE_UTF_ERR, "the name is not valid UTF-8 or cannot be stored on the SIM", EXIT_FAILED},
    {PB_RCODE_BCD_ERR,
     "the number holds characters a SIM cannot store "
     "(allowed: digits * # P W T, and + in front)",
     EXIT_FAILED},
    {PB_RCODE_TYPE_ERR, "unknown phonebook", EXIT_FAILED},
    {PB_RCODE_BUFFNULL_ERR, "internal error: missing entry buffer", EXIT_FAILED},
    {PB_RCODE_INVALID_ERR, "no such entry, or the entry cannot be changed", EXIT_NOT_FOUND},
    {PB_RCODE_READED_ERR, "SIM phonebook is still being read, try again", EXIT_NOT_READY},
    {PB_RCODE_READ_ERR, "the phonebook file could not be read", EXIT_FAILED},
    {PB_RCODE_WRITE_ERR, "the phonebook file could not be saved (flash full or read-only?)", EXIT_FAILED},
    {PB_RCODE_SWAP_ERR, "the SIM card refused the change (a name or number too long for the card?)",
     EXIT_FAILED},
    {PB_RCODE_NOTFREE_ERR, "the phonebook is full: no free place for the entry", EXIT_FAILED},
    {PB_RCODE_READING_ERR, "SIM phonebook is still being read, try again", EXIT_NOT_READY},
    {PB_RCODE_RWLOCK_ERR, "internal error: phonebook table lock failed", EXIT_FAILED},
    {PB_RCODE_DUPLICATE_ERR, "another entry already has this name", EXIT_FAILED},
    {PB_RCODE_NODEPOP_ERR, "internal error: service queue failed", EXIT_FAILED},
    {PB_RCODE_NODEPUSH_ERR, "the phonebook service is busy (too many requests waiting), try again",
     EXIT_FAILED},
    {PB_RCODE_NODEDEL_ERR, "internal error: service queue failed", EXIT_FAILED},
    {PB_RCODE_NODEEMPTY_ERR, "internal error: service queue is empty", EXIT_FAILED},
    {PB_RCODE_THREAD_ERR, "internal error: phonebook service thread failed", EXIT_FAILED},
    {PB_RCODE_INIT_ERR, "the phonebook service is not ready yet (SIM not initialised), try again",
     EXIT_NOT_READY},
    {PB_RCODE_NV_ERR, "the SIM phonebook figures could not be stored", EXIT_FAILED},
    {PB_RCODE_EMPTY_ERR, "the phonebook is empty", EXIT_FAILED},
    {RC_CHANGED, "the phonebook changed while waiting (the SIM was read again): list it and try again",
     EXIT_FAILED},
};

const RcodeText *find_rcode(int rc)
{
    for (const auto &r : kRcodes)
        if (r.rc == rc)
            return &r;
    return nullptr;
}

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

size_t utf8_char(std::string_view s, size_t i, char32_t *cp)
{
    const auto b = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    unsigned char c = b(i);
    size_t len;
    char32_t v;
    if (c < 0x80) {
        *cp = c;
        return 1;
    } else if (c >= 0xC2 && c <= 0xDF) {
        len = 2, v = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
        len = 3, v = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        len = 4, v = c & 0x07;
    } else {
        return 0;
    }
    if (i + len > s.size())
        return 0;
    for (size_t k = 1; k < len; ++k) {
        if ((b(i + k) & 0xC0) != 0x80)
            return 0;
        v = (v << 6) | (b(i + k) & 0x3F);
    }
    if ((len == 3 && v < 0x800) || (len == 4 && (v < 0x10000 || v > 0x10FFFF)) ||
        (v >= 0xD800 && v <= 0xDFFF))
        return 0;
    *cp = v;
    return len;
}

std::string rcode_message(int rc)
{
    const RcodeText *r = find_rcode(rc);
    return r ? r->message : "unexpected result code " + std::to_string(rc);
}

Exit rcode_exit(int rc)
{
    const RcodeText *r = find_rcode(rc);
    return r ? r->exit : EXIT_FAILED;
}

bool rcode_busy(int rc) { return rcode_exit(rc) == EXIT_NOT_READY; }

const char *storage_name(storage_type_t type) { return type == STORAGE_TYPE_SIM ? "sim" : "device"; }

static void append_json_string(std::string *out, std::string_view s)
{
    *out += '"';
    for (size_t i = 0; i < s.size();) {
        // Printable ASCII but the quote and the backslash goes as it is, a run at a time.
        size_t plain = i;
        while (plain < s.size() && s[plain] >= 0x20 && s[plain] < 0x7F && s[plain] != '"' && s[plain] != '\\')
            ++plain;
        if (plain > i) {
            out->append(s, i, plain - i);
            i = plain;
            continue;
        }
        char32_t cp;
        size_t len = utf8_char(s, i, &cp);
        if (len == 0) {
            *out += "\\ufffd";
            ++i;
            continue;
        }
        if (cp == '"' || cp == '\\') {
            *out += '\\';
            *out += static_cast<char>(cp);
        } else if (cp == '\n') {
            *out += "\\n";
        } else if (cp == '\t') {
            *out += "\\t";
        } else if (cp == '\r') {
            *out += "\\r";
        } else if (cp < 0x20 || cp == 0x7F) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", static_cast<unsigned>(cp));
            *out += buf;
        } else {
            out->append(s, i, len);
        }
        i += len;
    }
    *out += '"';
}

std::string json_string(const std::string &s)
{
    std::string out;
    out.reserve(s.size() + 2);
    append_json_string(&out, s);
    return out;
}

static void append_json_entry(std::string *out, const pb_flash_info &e)
{
    // A device entry holds the SIM record number 0xFFFFFFFF: shown as -1.
    char head[64];
    std::snprintf(head, sizeof head,
                  "{\"index\":%u,\"sim_index\":%d,\"name\":", static_cast<unsigned>(e.index),
                  static_cast<int>(static_cast<zp_int32>(e.sim_index)));
    *out += head;
    append_json_string(out, std::string_view(e.name, strnlen(e.name, sizeof e.name)));
    *out += ",\"number\":";
    append_json_string(out, std::string_view(e.num, strnlen(e.num, sizeof e.num)));
    *out += ",\"email\":";
    append_json_string(out, std::string_view(e.email, strnlen(e.email, sizeof e.email)));
    *out += '}';
}

std::string json_entry(const pb_flash_info &e)
{
    std::string out;
    append_json_entry(&out, e);
    return out;
}

std::string json_entries(const std::vector<pb_flash_info> &v)
{
    std::string out;
    out.reserve(2 + v.size() * 128);  // a typical entry's length: one allocation for a whole phonebook
    out += '[';
    for (size_t i = 0; i < v.size(); ++i) {
        if (i)
            out += ',';
        append_json_entry(&out, v[i]);
    }
    out += ']';
    return out;
}

std::string json_ints(const std::vector<int> &v)
{
    std::string s;
    for (int i : v)
        s += (s.empty() ? "" : ",") + std::to_string(i);
    return "[" + s + "]";
}

const pb_flash_info *find_entry(const std::vector<pb_flash_info> &v, int index)
{
    for (const auto &e : v)
        if (static_cast<int>(e.index) == index)
            return &e;
    return nullptr;
}

const pb_flash_info *find_same(const std::vector<pb_flash_info> &v, const pb_flash_info &e)
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

void print_table(std::ostream &out, storage_type_t type, const std::vector<pb_flash_info> &v)
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

    out << (sim ? "SIM" : "Device") << " phonebook: " << v.size() << (v.size() == 1 ? " entry" : " entries")
        << "\n";
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
