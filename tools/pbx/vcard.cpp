// vCard: read 2.1, 3.0 and 4.0 (RFC 2426, RFC 6350, and the 2.1 form older
// phones write: quoted-printable values with soft line breaks, bare type
// words, a CHARSET parameter); write 3.0.
//
// Reading: physical lines are unfolded into content lines, each split into
// name, parameters and value; FN (or else N), every TEL and the first EMAIL
// of a card become contacts, one per TEL. Everything else is ignored, and
// so are the properties of a card nested inside another.
#include <algorithm>

#include "pbx.h"
#include "text.h"

namespace pbx {

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
// quoted-printable value that ends in '=' continues on the next line.
std::vector<ContentLine> unfold(std::string_view text)
{
    if (text.substr(0, 3) == "\xEF\xBB\xBF")
        text.remove_prefix(3);
    std::vector<ContentLine> out;
    int number = 0;
    for (size_t pos = 0; pos < text.size();) {
        size_t end = text.find_first_of("\r\n", pos);
        if (end == std::string_view::npos)
            end = text.size();
        std::string_view phys = text.substr(pos, end - pos);
        pos = end + (text.compare(end, 2, "\r\n") == 0 ? 2 : 1);
        ++number;
        ContentLine *last = out.empty() ? nullptr : &out.back();
        if (last && !last->text.empty() && last->text.back() == '=' && quoted_printable(last->text)) {
            last->text.pop_back();
            last->text.append(phys);
        } else if (last && !phys.empty() && (phys[0] == ' ' || phys[0] == '\t')) {
            last->text.append(phys.substr(1));
        } else if (!trim(phys).empty()) {
            out.push_back({std::string(phys), number});
        }
    }
    return out;
}

// Splits at each `sep` that is not escaped with a backslash (and, when
// `quotes`, not inside double quotes). Pieces are returned as written.
std::vector<std::string> split(std::string_view s, char sep, bool quotes = false)
{
    std::vector<std::string> out(1);
    bool in_quotes = false;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '\\' && i + 1 < s.size() && !quotes) {
            out.back() += s.substr(i, 2);
            ++i;
        } else if (s[i] == '"' && quotes) {
            in_quotes = !in_quotes;
        } else if (s[i] == sep && !in_quotes) {
            out.emplace_back();
        } else {
            out.back() += s[i];
        }
    }
    return out;
}

std::string unescape(std::string_view s)
{
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

struct Property {
    std::string name;  // upper case, group left out
    std::vector<std::string> types;
    bool pref = false;
    std::string value;  // decoded to UTF-8, escapes still in place
};

bool parse_property(const std::string &content, Property *p)
{
    // The value starts at the first colon outside a quoted parameter value.
    size_t colon = std::string::npos;
    bool in_quotes = false;
    for (size_t i = 0; i < content.size() && colon == std::string::npos; ++i) {
        if (content[i] == '"')
            in_quotes = !in_quotes;
        else if (content[i] == ':' && !in_quotes)
            colon = i;
    }
    if (colon == std::string::npos)
        return false;
    std::vector<std::string> head = split(std::string_view(content).substr(0, colon), ';', true);
    std::string name = head[0];
    if (size_t dot = name.rfind('.'); dot != std::string::npos)
        name.erase(0, dot + 1);
    for (char &c : name)
        c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    p->name = name;

    bool qp = false, latin1 = false;
    for (size_t k = 1; k < head.size(); ++k) {
        const std::string param = lower(trim(head[k]));
        const size_t eq = param.find('=');
        const std::string key = eq == std::string::npos ? "type" : param.substr(0, eq);
        const std::string val = eq == std::string::npos ? param : param.substr(eq + 1);
        if (val == "quoted-printable")
            qp = true;
        else if (key == "charset")
            latin1 = val == "iso-8859-1" || val == "latin1" || val == "windows-1252";
        else if (key == "pref")
            p->pref = true;
        else if (key == "type")
            for (const std::string &t : split(val, ',', true))
                p->types.push_back(t);
    }
    p->pref = p->pref || std::count(p->types.begin(), p->types.end(), "pref") > 0;

    std::string value = content.substr(colon + 1);
    if (qp)
        value = decode_quoted_printable(value);
    if (latin1) {
        std::string utf8;
        for (unsigned char c : value)
            append_utf8(&utf8, c);
        value = utf8;
    }
    p->value = as_utf8(value);
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
    for (const std::string &param : split(v, ';'))
        if (same_word(param.substr(0, 4), "ext="))
            number += "P" + param.substr(4);
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
std::string name_of_n(const std::string &value)
{
    std::vector<std::string> parts = split(value, ';');
    parts.resize(5);
    std::string out;
    for (int k : {1, 2, 0})
        for (const std::string &piece : split(parts[static_cast<size_t>(k)], ','))
            if (std::string t(trim(unescape(piece))); !t.empty())
                out += (out.empty() ? "" : " ") + t;
    return out;
}

void emit(const Card &card, std::vector<Contact> *out)
{
    std::string name(trim(card.fn));
    if (name.empty())
        name = card.n_name;
    std::vector<Tel> tels = card.tels;
    std::stable_sort(tels.begin(), tels.end(), [](const Tel &a, const Tel &b) { return a.pref && !b.pref; });
    if (tels.empty())
        tels.push_back({"", "", false});
    for (const Tel &t : tels)
        out->push_back({name, t.number, card.email, t.label, card.line, ""});
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
    Card card;
    int depth = 0;
    for (const ContentLine &cl : unfold(text)) {
        Property p;
        if (!parse_property(cl.text, &p))
            continue;
        const std::string value(trim(p.value));
        if (p.name == "BEGIN" && same_word(value, "VCARD")) {
            if (depth++ == 0)
                card = Card{cl.line, {}, {}, {}, false, {}};
        } else if (p.name == "END" && same_word(value, "VCARD") && depth > 0) {
            if (--depth == 0)
                emit(card, &out);
        } else if (depth != 1) {
            continue;
        } else if (p.name == "FN") {
            card.fn = unescape(value);
        } else if (p.name == "N") {
            card.n_name = name_of_n(value);
        } else if (p.name == "TEL") {
            card.tels.push_back({tel_number(unescape(value)), label_of(p.types), p.pref});
        } else if (p.name == "EMAIL" && !card.has_email) {
            card.email = unescape(value);
            card.has_email = true;
        }
    }
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

}  // namespace pbx
