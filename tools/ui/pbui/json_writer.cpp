// The one JSON writer of the user side: strings escaped so that the output
// always parses whatever bytes a field holds, entries and lists of them
// written without a copy per field (a list of 1000 entries is pbweb's
// largest answer, written in one allocation), and JsonObject, which puts
// the members of every answer of pbcli and pbweb together.
#include "json_writer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "text.h"

namespace pbui {

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

JsonObject &JsonObject::key(std::string_view k)
{
    text_ += text_.size() == 1 ? "" : ",";
    append_json_string(&text_, k);
    text_ += ':';
    return *this;
}

JsonObject &JsonObject::add(std::string_view k, bool v)
{
    key(k).text_ += v ? "true" : "false";
    return *this;
}

JsonObject &JsonObject::add(std::string_view k, long long v)
{
    key(k).text_ += std::to_string(v);
    return *this;
}

JsonObject &JsonObject::add(std::string_view k, const char *v) { return add(k, std::string_view(v)); }

JsonObject &JsonObject::add(std::string_view k, std::string_view v)
{
    append_json_string(&key(k).text_, v);
    return *this;
}

JsonObject &JsonObject::add(std::string_view k, const JsonObject &v) { return raw(k, v.str()); }

JsonObject &JsonObject::null(std::string_view k) { return raw(k, "null"); }

JsonObject &JsonObject::raw(std::string_view k, std::string_view json)
{
    key(k).text_ += json;
    return *this;
}

JsonObject &JsonObject::members(const JsonObject &other)
{
    if (other.text_.size() > 1)
        text_.append(text_.size() == 1 ? "" : ",").append(other.text_, 1, std::string::npos);
    return *this;
}

std::string JsonObject::str() const { return text_ + "}"; }

std::string JsonObject::take()
{
    text_ += '}';
    return std::move(text_);
}

}  // namespace pbui
