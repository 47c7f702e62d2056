// vCard: read 2.1, 3.0 and 4.0 (RFC 2426, RFC 6350, and the 2.1 form older
// phones write: quoted-printable values with soft line breaks, bare type
// words, a CHARSET parameter); write 3.0.
//
// Reading: physical lines are unfolded into content lines, each split into
// name, parameters and value; FN (or else N), every TEL and the first EMAIL
// of a card become contacts, one per TEL. Everything else is ignored, and
// so are the properties of a card nested inside another.
#include <algorithm>

#include "contacts.h"
#include "text.h"

namespace pbui {

namespace {

struct ContentLine {
    std::string text;
    int line;
};

bool quoted_printable(std::string_view content)
{
    const size_t colon = content.find(':');
    return lower(content.substr(0, colon)).find("quoted-printable") != std::string::npos;
}

// Physical lines end in CRLF, LF or CR. A line that starts with a space or a
// tab continues the one before it (without that first blank); a
// quoted-printable value that ends in '=' continues on the next line. Each
// content line goes to `take` once it is complete.
template <typename Take> void unfold(std::string_view text, Take take)
{
    if (text.substr(0, 3) == "\xEF\xBB\xBF")
        text.remove_prefix(3);
    ContentLine cur{"", 0};
    int number = 0;
    for (size_t pos = 0; pos < text.size();) {
        size_t end = pos;
        while (end < text.size() && text[end] != '\r' && text[end] != '\n')
            ++end;
        std::string_view phys = text.substr(pos, end - pos);
        pos = end + (text.compare(end, 2, "\r\n") == 0 ? 2 : 1);
        ++number;
        if (!cur.text.empty() && cur.text.back() == '=' && quoted_printable(cur.text)) {
            cur.text.pop_back();
            cur.text.append(phys);
        } else if (!cur.text.empty() && !phys.empty() && (phys[0] == ' ' || phys[0] == '\t')) {
            cur.text.append(phys.substr(1));
        } else if (!trim(phys).empty()) {
            if (!cur.text.empty())
                take(cur);
            cur.text.assign(phys);
            cur.line = number;
        }
    }
    if (!cur.text.empty())
        take(cur);
}

// Calls `take` with each piece of s between the separators `sep`. In a
// parameter list a separator inside double quotes does not count; in a
// value one escaped with a backslash does not.
enum class Escapes { QUOTES, BACKSLASH };
template <typename Take> void each_piece(std::string_view s, char sep, Escapes mode, Take take)
{
    bool in_quotes = false;
    size_t from = 0;
    for (size_t i = 0; i <= s.size(); ++i) {
        if (i < s.size() && mode == Escapes::BACKSLASH && s[i] == '\\') {
            ++i;
        } else if (i < s.size() && mode == Escapes::QUOTES && s[i] == '"') {
            in_quotes = !in_quotes;
        } else if (i == s.size() || (s[i] == sep && !in_quotes)) {
            take(s.substr(from, i - from));
            from = i + 1;
        }
    }
}

std::string_view unquote(std::string_view s)
{
    return s.size() >= 2 && s.front() == '"' && s.back() == '"' ? s.substr(1, s.size() - 2) : s;
}

std::string unescape(std::string_view s)
{
    if (s.find('\\') == std::string_view::npos)
        return std::string(s);
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] != '\\' || i + 1 == s.size()) {
            out += s[i];
            continue;
        }
        const char c = s[++i];
        out += c == 'n' || c == 'N' ? '\n' : c;
    }
    return out;
}

int hex(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    c = static_cast<char>(c | 0x20);
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

std::string decode_quoted_printable(std::string_view s)
{
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '=' && i + 2 < s.size() && hex(s[i + 1]) >= 0 && hex(s[i + 2]) >= 0) {
            out += static_cast<char>(hex(s[i + 1]) << 4 | hex(s[i + 2]));
            i += 2;
        } else {
            out += s[i];
        }
    }
    return out;
}

// The properties a contact is made of; every other line is passed over
// before it is taken apart.
enum class Kind { OTHER, BEGIN, END, FN, N, TEL, EMAIL };

Kind kind_of(std::string_view content)
{
    static constexpr std::pair<std::string_view, Kind> kKinds[] = {
        {"BEGIN", Kind::BEGIN}, {"END", Kind::END}, {"FN", Kind::FN},
        {"N", Kind::N},         {"TEL", Kind::TEL}, {"EMAIL", Kind::EMAIL},
    };
    size_t end = 0;
    while (end < content.size() && content[end] != ';' && content[end] != ':')
        ++end;
    std::string_view name = content.substr(0, end);
    if (size_t dot = name.rfind('.'); dot != std::string_view::npos)
        name.remove_prefix(dot + 1);
    for (const auto &[word, kind] : kKinds)
        if (same_word(name, word))
            return kind;
    return Kind::OTHER;
}

struct Property {
    std::vector<std::string> types;
    bool pref = false;
    std::string value;  // decoded to UTF-8, escapes still in place
};

bool parse_property(std::string_view content, Property *p)
{
    // The value starts at the first colon outside a quoted parameter value.
    size_t colon = std::string_view::npos;
    bool in_quotes = false;
    for (size_t i = 0; i < content.size() && colon == std::string_view::npos; ++i) {
        if (content[i] == '"')
            in_quotes = !in_quotes;
        else if (content[i] == ':' && !in_quotes)
            colon = i;
    }
    if (colon == std::string_view::npos)
        return false;
    bool qp = false, latin1 = false, first = true;
    each_piece(content.substr(0, colon), ';', Escapes::QUOTES, [&](std::string_view piece) {
        if (first) {
            first = false;  // the property's name, already known
            return;
        }
        // KEY=VALUE, or a bare value (2.1: "TEL;WORK;VOICE") that is a type.
        piece = trim(piece);
        const size_t eq = piece.find('=');
        const std::string_view key = eq == std::string_view::npos ? "type" : piece.substr(0, eq);
        const std::string_view val = eq == std::string_view::npos ? piece : unquote(piece.substr(eq + 1));
        if (same_word(val, "quoted-printable"))
            qp = true;
        else if (same_word(key, "charset"))
            latin1 =
                same_word(val, "iso-8859-1") || same_word(val, "latin1") || same_word(val, "windows-1252");
        else if (same_word(key, "pref"))
            p->pref = true;
        else if (same_word(key, "type"))
            each_piece(val, ',', Escapes::QUOTES,
                       [&](std::string_view t) { p->types.push_back(lower(trim(unquote(t)))); });
    });
    p->pref = p->pref || std::count(p->types.begin(), p->types.end(), "pref") > 0;

    std::string_view value = trim(content.substr(colon + 1));
    if (!qp && !latin1) {
        as_utf8(value, &p->value);
        return true;
    }
    std::string bytes = qp ? decode_quoted_printable(value) : std::string(value);
    if (latin1) {
        p->value.clear();
        for (unsigned char c : bytes)
            append_utf8(&p->value, c);
    } else {
        p->value = as_utf8(bytes);
    }
    return true;
}

// The kind of a number, from its TYPE values, as a word after the name.
std::string label_of(const std::vector<std::string> &types)
{
    static const std::pair<const char *, const char *> kLabels[] = {
        {"cell", "mobile"}, {"mobile", "mobile"}, {"iphone", "mobile"}, {"fax", "fax"}, {"pager", "pager"},
        {"work", "work"},   {"home", "home"},     {"main", "main"},     {"car", "car"},
    };
    for (const auto &[type, label] : kLabels)
        if (std::find(types.begin(), types.end(), type) != types.end())
            return label;
    return "";
}

// A TEL value: text in 2.1 and 3.0, often a tel: URI in 4.0, whose
// extension parameter becomes a pause and the extension's digits.
std::string tel_number(std::string_view v)
{
    v = trim(v);
    if (!same_word(v.substr(0, 4), "tel:"))
        return std::string(v);
    v.remove_prefix(4);
    std::string number(v.substr(0, v.find(';')));
    each_piece(v, ';', Escapes::QUOTES, [&](std::string_view param) {
        if (same_word(param.substr(0, 4), "ext="))
            number.append("P").append(param.substr(4));
    });
    return number;
}

struct Tel {
    std::string number, label;
    bool pref;
};

struct Card {
    int line = 0;
    std::string fn, n_name, email;
    bool has_email = false;
    std::vector<Tel> tels;
};

// N is family;given;additional;prefixes;suffixes, each a comma list. The
// name is given, additional and family names in the order they are spoken.
std::string name_of_n(std::string_view value)
{
    std::string_view parts[3];
    int k = 0;
    each_piece(value, ';', Escapes::BACKSLASH, [&](std::string_view part) {
        if (k < 3)
            parts[k++] = part;
    });
    std::string out;
    for (int at : {1, 2, 0})
        each_piece(parts[at], ',', Escapes::BACKSLASH, [&](std::string_view piece) {
            const std::string t(trim(unescape(piece)));
            if (!t.empty())
                out.append(out.empty() ? "" : " ").append(t);
        });
    return out;
}

// The contacts of a card, its preferred numbers first; the card's texts
// are moved out.
void emit(Card &card, std::vector<Contact> *out)
{
    std::string name = std::move(trim(card.fn).empty() ? card.n_name : card.fn);
    if (trim(name).size() != name.size())
        name = std::string(trim(name));
    if (card.tels.empty())
        card.tels.push_back({"", "", false});
    const size_t first = out->size();
    for (bool pref : {true, false})
        for (Tel &t : card.tels)
            if (t.pref == pref)
                out->push_back({"", std::move(t.number), "", std::move(t.label), card.line, ""});
    for (size_t k = first; k < out->size(); ++k) {
        const bool last = k + 1 == out->size();
        (*out)[k].name = last ? std::move(name) : name;
        (*out)[k].email = last ? std::move(card.email) : card.email;
    }
}

void escape_into(std::string *out, std::string_view text)
{
    for (char c : text) {
        if (c == '\\' || c == ',' || c == ';')
            *out += '\\';
        if (c == '\n')
            *out += "\\n";
        else if (c != '\r')
            *out += c;
    }
}

// Content lines longer than 75 octets are folded: CRLF and a space, never
// inside a UTF-8 character.
void append_folded(std::string *out, std::string_view line)
{
    size_t room = 75;
    while (line.size() > room) {
        size_t n = room;
        while (n > 0 && (static_cast<unsigned char>(line[n]) & 0xC0) == 0x80)
            --n;
        out->append(line.substr(0, n));
        *out += "\r\n ";
        line.remove_prefix(n);
        room = 74;
    }
    out->append(line);
    *out += "\r\n";
}

}  // namespace

std::vector<Contact> parse_vcard(std::string_view text)
{
    std::vector<Contact> out;
    // A card takes a hundred bytes and more; room for a phonebook's worth
    // up front spares the moves of a growing vector.
    out.reserve(std::min<size_t>(text.size() / 100, 2 * PB_MAX_ENTRIES));
    Card card;
    int depth = 0;
    Property p;  // one for all lines: its buffers are reused
    unfold(text, [&](const ContentLine &cl) {
        const Kind kind = kind_of(cl.text);
        p.types.clear();
        p.pref = false;
        if (kind == Kind::OTHER || !parse_property(cl.text, &p))
            return;
        const std::string &value = p.value;
        if (kind == Kind::BEGIN && same_word(value, "VCARD")) {
            if (depth++ == 0)
                card = Card{cl.line, {}, {}, {}, false, {}};
        } else if (kind == Kind::END && same_word(value, "VCARD") && depth > 0) {
            if (--depth == 0)
                emit(card, &out);
        } else if (depth != 1) {
            return;
        } else if (kind == Kind::FN) {
            card.fn = unescape(value);
        } else if (kind == Kind::N) {
            card.n_name = name_of_n(value);
        } else if (kind == Kind::TEL) {
            card.tels.push_back({tel_number(unescape(value)), label_of(p.types), p.pref});
        } else if (kind == Kind::EMAIL && !card.has_email) {
            card.email = unescape(value);
            card.has_email = true;
        }
    });
    return out;
}

std::string format_vcard(const std::vector<pb_flash_info> &entries)
{
    std::string out;
    for (const pb_flash_info &e : entries) {
        const std::string name = as_utf8(e.name);
        // N wants family and given names apart: the last word is taken as
        // the family name, the words before it as the given names.
        const size_t space = name.rfind(' ');
        std::string family = space == std::string::npos ? "" : name.substr(space + 1);
        std::string given = space == std::string::npos ? name : name.substr(0, space);

        out += "BEGIN:VCARD\r\nVERSION:3.0\r\n";
        std::string line = "FN:";
        escape_into(&line, name);
        append_folded(&out, line);
        line = "N:";
        escape_into(&line, family);
        line += ';';
        escape_into(&line, given);
        append_folded(&out, line + ";;;");
        if (e.num[0] != '\0')
            append_folded(&out, std::string("TEL:") + e.num);
        if (e.email[0] != '\0') {
            line = "EMAIL;TYPE=INTERNET:";
            escape_into(&line, as_utf8(e.email));
            append_folded(&out, line);
        }
        out += "END:VCARD\r\n";
    }
    return out;
}

}  // namespace pbui
