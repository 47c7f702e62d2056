#include "output.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
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
    {PB_RCODE_READ_ERR,
     "the phonebook could not be read (the SIM card did not deliver all its records, or the phonebook file "
     "is unreadable)",
     EXIT_FAILED},
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
    {PB_RCODE_UNCONFIRMED_ERR,
     "the card did not confirm the change; the list has been read again: check it before trying again",
     EXIT_FAILED},
    {PB_RCODE_CHANGED_ERR, "the entry changed meanwhile; list it again", EXIT_FAILED},
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

namespace {

// The longest JSON text of an entry: its members around the three text
// fields, each escaped at worst (six bytes for one).
constexpr size_t json_string_max(size_t bytes) { return 2 + 6 * bytes; }
// {"index":N,"sim_index":N,"name":,"number":,"email":} with the quotes
// of the texts and a comma.
constexpr size_t kEntryMembers = 72;
constexpr size_t kEntryJsonMax = kEntryMembers + 3 * json_string_max(PB_TEXT_LEN);

template <size_t N> char *put(char *p, const char (&text)[N])
{
    std::memcpy(p, text, N - 1);
    return p + N - 1;
}

constexpr uint64_t kOnes = 0x0101010101010101u, kHigh = 0x8080808080808080u;

// The high bit of each byte of w that is 0; exact up to the first one,
// which is all that is used of it.
uint64_t zero_bytes(uint64_t w) { return (w - kOnes) & ~w & kHigh; }

// The high bit of each byte of w that needs a look before it goes into a
// JSON string: a control character (below 0x20, 0x7F), '"', '\\', or part
// of a UTF-8 sequence (0x80 and above). Exact up to the first one.
uint64_t bytes_to_look_at(uint64_t w)
{
    const uint64_t below = (w - kOnes * 0x20) & ~w;
    const uint64_t above = (w + kOnes) | w;
    return ((below | above) & kHigh) | zero_bytes(w ^ (kOnes * '"')) | zero_bytes(w ^ (kOnes * '\\'));
}

// Eight bytes with the first in memory lowest, as the masks above need
// (a borrow or carry runs from the low bytes up).
uint64_t load_word(const char *s)
{
    uint64_t w;
    std::memcpy(&w, s, 8);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    w = __builtin_bswap64(w);
#endif
    return w;
}

// The place of the first byte a mask marks.
size_t first_byte(uint64_t mask) { return static_cast<size_t>(__builtin_ctzll(mask)) / 8; }

// Bytes of the text of an entry's field: up to its NUL, eight at a time.
size_t text_length(const char (&f)[PB_TEXT_LEN])
{
    size_t i = 0;
    for (; i + 8 <= sizeof f; i += 8)
        if (const uint64_t z = zero_bytes(load_word(f + i)))
            return i + first_byte(z);
    while (i < sizeof f && f[i] != '\0')
        ++i;
    return i;
}

// Writes the n bytes at s as a JSON string literal at p, at most
// json_string_max(n) bytes, and returns its end; a text field of an entry
// (kField) ends at its NUL. Printable ASCII but the quote and the
// backslash, and whole UTF-8 characters, go as they are; control
// characters are escaped; a byte that is not UTF-8 becomes \ufffd. Words
// of eight bytes are copied whole and kept up to the first byte that needs
// a look (writing at most seven bytes past what is kept, which the bound
// leaves room for).
template <bool kField> char *put_json_text(char *p, const char *s, size_t n)
{
    static constexpr auto kPlain = [] {
        std::array<bool, 256> t{};
        for (int c = 0x20; c < 0x7F; ++c)
            t[c] = c != '"' && c != '\\';
        return t;
    }();
    static const char kHex[] = "0123456789abcdef";
    *p++ = '"';
    for (size_t i = 0;;) {
        size_t kept = 8;
        for (; kept == 8 && i + 8 <= n; p += kept, i += kept) {
            std::memcpy(p, s + i, 8);
            const uint64_t look = bytes_to_look_at(load_word(s + i));
            kept = look ? first_byte(look) : 8;
        }
        if (kept == 8)  // the last few bytes
            while (i < n && kPlain[static_cast<unsigned char>(s[i])])
                *p++ = s[i++];
        if (i == n || (kField && s[i] == '\0'))
            break;
        const auto c = static_cast<unsigned char>(s[i]);
        if (c >= 0x80) {
            char32_t cp;
            const size_t len = utf8_char(std::string_view(s, n), i, &cp);
            if (len == 0) {
                p = put(p, "\\ufffd");
                ++i;
            } else {
                std::memcpy(p, s + i, len);
                p += len, i += len;
            }
            continue;
        }
        *p++ = '\\';
        switch (c) {
        case '"':
        case '\\': *p++ = static_cast<char>(c); break;
        case '\n': *p++ = 'n'; break;
        case '\t': *p++ = 't'; break;
        case '\r': *p++ = 'r'; break;
        default: p = put(p, "u00"), *p++ = kHex[c >> 4], *p++ = kHex[c & 15];
        }
        ++i;
    }
    *p++ = '"';
    return p;
}

char *put_json_field(char *p, const char (&f)[PB_TEXT_LEN]) { return put_json_text<true>(p, f, sizeof f); }

// Writes the entry at p, at most kEntryJsonMax bytes; returns the end.
char *put_json_entry(char *p, const pb_flash_info &e)
{
    p = put(p, "{\"index\":");
    p = std::to_chars(p, p + 10, e.index).ptr;
    p = put(p, ",\"sim_index\":");
    // A device entry holds the SIM record number 0xFFFFFFFF: shown as -1.
    p = std::to_chars(p, p + 11, static_cast<zp_int32>(e.sim_index)).ptr;
    p = put_json_field(put(p, ",\"name\":"), e.name);
    p = put_json_field(put(p, ",\"number\":"), e.num);
    p = put_json_field(put(p, ",\"email\":"), e.email);
    *p++ = '}';
    return p;
}

void append_json_string(std::string *out, std::string_view s)
{
    const size_t at = out->size();
    out->resize(at + json_string_max(s.size()));
    out->resize(static_cast<size_t>(put_json_text<false>(&(*out)[at], s.data(), s.size()) - out->data()));
}

}  // namespace

std::string json_string(const std::string &s)
{
    std::string out;
    append_json_string(&out, s);
    return out;
}

std::string json_entry(const pb_flash_info &e)
{
    char buf[kEntryJsonMax];
    return std::string(buf, put_json_entry(buf, e));
}

void append_json_entries(std::string *out, const pb_flash_info *v, size_t n)
{
    // One allocation: each entry's texts take their own length unless
    // escaped, its members at most kEntryMembers.
    size_t size = out->size() + 2;
    for (size_t i = 0; i < n; ++i)
        size += kEntryMembers + text_length(v[i].name) + text_length(v[i].num) + text_length(v[i].email);
    out->reserve(size);
    char buf[kEntryJsonMax];
    *out += '[';
    for (size_t i = 0; i < n; ++i) {
        if (i)
            *out += ',';
        out->append(buf, static_cast<size_t>(put_json_entry(buf, v[i]) - buf));
    }
    *out += ']';
}

std::string json_entries(const std::vector<pb_flash_info> &v)
{
    std::string out;
    append_json_entries(&out, v.data(), v.size());
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

void set_fields(pb_flash_info *e, const std::optional<std::string> &name,
                const std::optional<std::string> &number, const std::optional<std::string> &email)
{
    if (name)
        set_field(e->name, *name);
    if (number)
        set_field(e->num, *number);
    if (email)
        set_field(e->email, *email);
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
