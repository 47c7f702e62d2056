// CSV (RFC 4180) and the module's own line format, and telling the three
// formats apart.
//
// A CSV file is read by its header row: the columns may come in any order
// and carry the names that address books write ("Given Name", "Phone 1 -
// Value", "Mobile Phone", "E-mail Address", ...). Each phone column with a
// value gives one contact. A file without a header row is read in the
// module's own format, line by line, without quoting.
#include <algorithm>

#include "contacts.h"
#include "text.h"

namespace pbui {

namespace {

struct Record {
    std::vector<std::string> fields;
    int line;
};

std::string_view without_bom(std::string_view text)
{
    return text.substr(0, 3) == "\xEF\xBB\xBF" ? text.substr(3) : text;
}

// Reads one record from *pos: fields split at commas, a field in double
// quotes may hold commas, line breaks and doubled quotes. *line counts the
// physical lines passed.
Record read_record(std::string_view text, size_t *pos, int *line)
{
    Record r{{std::string()}, *line + 1};
    bool quoted = false, at_start = true;
    size_t i = *pos;
    for (; i < text.size(); ++i) {
        const char c = text[i];
        if (quoted) {
            if (c == '"' && i + 1 < text.size() && text[i + 1] == '"') {
                r.fields.back() += '"';
                ++i;
            } else if (c == '"') {
                quoted = false;
            } else {
                *line += c == '\n';
                r.fields.back() += c;
            }
        } else if (c == '"' && at_start) {
            quoted = true;
        } else if (c == ',') {
            r.fields.emplace_back();
            at_start = true;
            continue;
        } else if (c == '\r' || c == '\n') {
            i += c == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
            ++i;
            break;
        } else {
            r.fields.back() += c;
        }
        at_start = false;
    }
    ++*line;
    *pos = i;
    return r;
}

enum class Role { NONE, NAME, GIVEN, MIDDLE, FAMILY, NUMBER, NUMBER_TYPE, EMAIL };

struct Column {
    Role role = Role::NONE;
    std::string label;    // NUMBER: the kind of number the column holds
    std::string type_of;  // NUMBER: the column that names its kind ("phone 1 - type")
};

// Header text without case, spaces and punctuation: "E-mail 1 - Value"
// becomes "email1value".
std::string squeeze(std::string_view s)
{
    std::string out;
    for (char c : lower(trim(s)))
        if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'))
            out += c;
    return out;
}

bool has(const std::string &s, const char *part) { return s.find(part) != std::string::npos; }

std::string number_label(const std::string &h)
{
    if (has(h, "mobile") || has(h, "cell"))
        return "mobile";
    if (has(h, "fax"))
        return "fax";
    if (has(h, "pager"))
        return "pager";
    if (has(h, "business") || has(h, "work") || has(h, "company"))
        return "work";
    for (const char *word : {"home", "car", "other"})
        if (has(h, word))
            return word;
    return "";
}

Column column_of(std::string_view header)
{
    const std::string h = squeeze(header);
    const auto one_of = [&](std::initializer_list<const char *> names) {
        return std::any_of(names.begin(), names.end(), [&](const char *n) { return h == n; });
    };
    Column c;
    if (one_of({"name", "fullname", "displayname", "formattedname", "fn", "contactname"}))
        c.role = Role::NAME;
    else if (one_of({"givenname", "firstname"}))
        c.role = Role::GIVEN;
    else if (one_of({"additionalname", "middlename"}))
        c.role = Role::MIDDLE;
    else if (one_of({"familyname", "lastname", "surname"}))
        c.role = Role::FAMILY;
    else if (h.compare(0, 5, "email") == 0 && !has(h, "type") && !has(h, "label"))
        c.role = Role::EMAIL;
    else if (h.compare(0, 5, "phone") == 0 && h.size() > 9 && h.compare(h.size() - 4, 4, "type") == 0)
        c.role = Role::NUMBER_TYPE;
    else if (one_of({"number", "tel", "telephone", "mobile", "cell", "pager"}) ||
             ((has(h, "phone") || has(h, "fax")) && !has(h, "type") && !has(h, "label")))
        c.role = Role::NUMBER;
    if (c.role == Role::NUMBER) {
        c.label = number_label(h);
        // "Phone 1 - Value" has its kind in "Phone 1 - Type".
        if (h.compare(0, 5, "phone") == 0 && h.size() > 5 && h.compare(h.size() - 5, 5, "value") == 0)
            c.type_of = h.substr(0, h.size() - 5) + "type";
    }
    return c;
}

// The columns of a header row; empty when no column is one this reader
// knows, i.e. the row is no header.
std::vector<Column> header_columns(const std::vector<std::string> &fields)
{
    std::vector<Column> cols;
    bool known = false;
    for (const std::string &f : fields) {
        // A row with a number in it is an entry ("0301234,Phone Shop,"),
        // whatever its other fields are called.
        std::string number;
        if (tidy_number(f, &number).empty() && !number.empty())
            return {};
        cols.push_back(column_of(f));
        known = known || cols.back().role != Role::NONE;
    }
    if (!known)
        cols.clear();
    return cols;
}

// Splits a cell at " ::: ", the separator some address books write between
// several values of one column.
std::vector<std::string> values_in(const std::string &cell)
{
    std::vector<std::string> out;
    std::string_view rest = cell;
    for (;;) {
        const size_t sep = rest.find(":::");
        std::string_view v = trim(rest.substr(0, sep));
        if (!v.empty())
            out.emplace_back(v);
        if (sep == std::string_view::npos)
            return out;
        rest.remove_prefix(sep + 3);
    }
}

void contacts_of_record(const std::vector<Column> &cols, const std::vector<std::string> &headers,
                        const Record &r, std::vector<Contact> *out)
{
    std::string name, given[3], email;
    struct Number {
        std::string value, label;
    };
    std::vector<Number> numbers;
    bool blank = true;
    const auto cell = [&](size_t k) { return k < r.fields.size() ? as_utf8(trim(r.fields[k])) : ""; };
    for (size_t k = 0; k < cols.size(); ++k) {
        const std::string v = cell(k);
        blank = blank && v.empty();
        switch (cols[k].role) {
        case Role::NAME: name = name.empty() ? v : name; break;
        case Role::GIVEN: given[0] = v; break;
        case Role::MIDDLE: given[1] = v; break;
        case Role::FAMILY: given[2] = v; break;
        case Role::EMAIL:
            if (const std::vector<std::string> values = values_in(v); email.empty() && !values.empty())
                email = values[0];
            break;
        case Role::NUMBER: {
            std::string label = cols[k].label;
            for (size_t t = 0; t < headers.size() && !cols[k].type_of.empty(); ++t)
                if (squeeze(headers[t]) == cols[k].type_of) {
                    // Kinds come as "Mobile" or "* Work" (the star marks the first).
                    std::string kind = lower(trim(cell(t)));
                    kind.erase(0, kind.find_first_not_of("* "));
                    label = kind.empty() ? label : kind;
                }
            for (const std::string &value : values_in(v))
                numbers.push_back({value, label});
            break;
        }
        case Role::NONE:
        case Role::NUMBER_TYPE: break;  // a kind of number is read with its number
        }
    }
    if (blank)
        return;
    if (name.empty())
        for (const std::string &g : given)
            if (!g.empty())
                name += (name.empty() ? "" : " ") + g;
    if (numbers.empty())
        numbers.push_back({"", ""});
    for (const Number &n : numbers)
        out->push_back({name, n.value, email, n.label, r.line, ""});
}

void quote_into(std::string *out, std::string_view field)
{
    if (field.find_first_of(",\"\r\n") == std::string_view::npos) {
        out->append(field);
        return;
    }
    *out += '"';
    for (char c : field)
        *out += c == '"' ? std::string("\"\"") : std::string(1, c);
    *out += '"';
}

}  // namespace

std::vector<Contact> parse_csv(std::string_view text)
{
    text = without_bom(text);
    size_t pos = 0;
    int line = 0;
    std::vector<Contact> out;
    pos = std::min(text.size(), text.find_first_not_of(" \t\r\n"));
    line = static_cast<int>(std::count(text.begin(), text.begin() + static_cast<long>(pos), '\n'));
    const Record head = read_record(text, &pos, &line);
    const std::vector<Column> cols = header_columns(head.fields);
    if (cols.empty())
        return parse_module(text);
    while (pos < text.size())
        contacts_of_record(cols, head.fields, read_record(text, &pos, &line), &out);
    return out;
}

std::vector<Contact> parse_module(std::string_view text)
{
    text = without_bom(text);
    std::vector<Contact> out;
    int number = 0;
    for (size_t pos = 0; pos < text.size();) {
        size_t end = text.find('\n', pos);
        if (end == std::string_view::npos)
            end = text.size();
        std::string_view line = text.substr(pos, end - pos);
        pos = end + 1;
        ++number;
        while (!line.empty() && (line.back() == '\r' || line.back() == '\n'))
            line.remove_suffix(1);
        if (trim(line).empty())
            continue;
        // number,name,e-mail: the first two run to the next comma; the
        // e-mail skips leading blanks and ends at the next blank.
        const size_t c1 = line.find(',');
        const size_t c2 = c1 == std::string_view::npos ? c1 : line.find(',', c1 + 1);
        Contact c;
        c.source = number;
        c.number = as_utf8(line.substr(0, c1));
        if (c1 != std::string_view::npos)
            c.name = as_utf8(line.substr(c1 + 1, c2 == std::string_view::npos ? c2 : c2 - c1 - 1));
        if (c2 != std::string_view::npos) {
            std::string_view rest = line.substr(c2 + 1);
            rest.remove_prefix(std::min(rest.size(), rest.find_first_not_of(" \t\v\f")));
            c.email = as_utf8(rest.substr(0, rest.find_first_of(" \t\v\f")));
        }
        std::string tidied;
        if (c.number.empty() || c.name.empty())
            c.problem = "a line needs at least a number and a name: number,name,email";
        else if (!tidy_number(c.number, &tidied).empty() && tidy_number(c.name, &tidied).empty())
            std::swap(c.number, c.name);  // name first, as the module's export writes
        out.push_back(c);
    }
    return out;
}

Format detect_format(std::string_view text)
{
    text = without_bom(text);
    size_t pos = std::min(text.size(), text.find_first_not_of(" \t\r\n"));
    if (same_word(text.substr(pos, 11), "BEGIN:VCARD"))
        return Format::VCARD;
    int line = 0;
    return header_columns(read_record(text, &pos, &line).fields).empty() ? Format::MODULE : Format::CSV;
}

std::string format_csv(const std::vector<pb_flash_info> &entries)
{
    std::string out = "name,number,email\r\n";
    for (const pb_flash_info &e : entries) {
        quote_into(&out, as_utf8(e.name));
        out += ',';
        quote_into(&out, e.num);
        out += ',';
        quote_into(&out, as_utf8(e.email));
        out += "\r\n";
    }
    return out;
}

std::string format_module(const std::vector<pb_flash_info> &entries)
{
    std::string out;
    for (const pb_flash_info &e : entries)
        out.append(e.name).append(",").append(e.num).append(",").append(e.email).append("\n");
    return out;
}

std::string module_lines_refusal(const std::vector<pb_flash_info> &entries)
{
    // What parse_module() would read back differently: the lines have no
    // quoting, and a line's first field is taken for the number unless it
    // is none and the second is.
    std::string out;
    for (const pb_flash_info &e : entries) {
        const std::string_view name = e.name, email = e.email;
        std::string as_number;
        const char *why = nullptr;
        if (name.find_first_of(",\r\n") != std::string_view::npos)
            why = "its name holds a comma or a line break";
        else if (name.empty() || e.num[0] == '\0')
            why = "a line needs both a name and a number";
        else if (tidy_number(name, &as_number).empty())
            why = "its name would be read back as the number";
        else if (name.compare(0, 3, "\xEF\xBB\xBF") == 0)
            why = "its name begins with a byte-order mark";
        else if (email.find_first_of(" \t\v\f\r\n") != std::string_view::npos)
            why = "its e-mail holds a blank or a line break";
        if (why != nullptr)
            out += "; entry " + std::to_string(e.index) + " (\"" + as_utf8(name) + "\"): " + why;
    }
    return out.empty() ? out : "the router's lines cannot carry every entry (CSV and vCard can)" + out;
}

bool parse_format(std::string_view word, Format *out)
{
    for (Format f : {Format::VCARD, Format::CSV, Format::MODULE})
        if (word == format_name(f)) {
            *out = f;
            return true;
        }
    return false;
}

const char *format_name(Format f)
{
    switch (f) {
    case Format::VCARD: return "vcard";
    case Format::CSV: return "csv";
    case Format::MODULE: break;
    }
    return "module";
}

const char *format_extension(Format f)
{
    switch (f) {
    case Format::VCARD: return "vcf";
    case Format::CSV: return "csv";
    case Format::MODULE: break;
    }
    return "txt";  // no quoting, no header: not a CSV file, whatever its commas
}

const char *format_media_type(Format f)
{
    switch (f) {
    case Format::VCARD: return "text/vcard; charset=utf-8";
    case Format::CSV: return "text/csv; charset=utf-8";
    case Format::MODULE: break;
    }
    return "text/plain; charset=utf-8";
}

std::vector<Contact> parse(std::string_view text, Format f)
{
    switch (f) {
    case Format::VCARD: return parse_vcard(text);
    case Format::CSV: return parse_csv(text);
    case Format::MODULE: break;
    }
    return parse_module(text);
}

std::string format(const std::vector<pb_flash_info> &entries, Format f)
{
    switch (f) {
    case Format::VCARD: return format_vcard(entries);
    case Format::CSV: return format_csv(entries);
    case Format::MODULE: break;
    }
    return format_module(entries);
}

}  // namespace pbui
