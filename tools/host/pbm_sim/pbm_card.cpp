// The simulated card's file and text conversions.
#include <cstdio>
#include <fstream>
#include <sstream>

#include "pbm_sim.h"

namespace pbm_sim {

bool utf8_to_ucs2(const std::string &utf8, std::u16string *out)
{
    out->clear();
    for (size_t i = 0; i < utf8.size();) {
        const auto b = static_cast<unsigned char>(utf8[i]);
        unsigned cp;
        size_t n;
        if (b < 0x80) {
            cp = b;
            n = 1;
        } else if ((b & 0xE0) == 0xC0) {
            cp = b & 0x1F;
            n = 2;
        } else if ((b & 0xF0) == 0xE0) {
            cp = b & 0x0F;
            n = 3;
        } else {
            return false;  // four-byte forms lie outside UCS-2
        }
        if (i + n > utf8.size())
            return false;
        for (size_t k = 1; k < n; ++k) {
            const auto c = static_cast<unsigned char>(utf8[i + k]);
            if ((c & 0xC0) != 0x80)
                return false;
            cp = cp << 6 | (c & 0x3F);
        }
        if ((n == 2 && cp < 0x80) || (n == 3 && cp < 0x800) || (cp >= 0xD800 && cp <= 0xDFFF))
            return false;
        out->push_back(static_cast<char16_t>(cp));
        i += n;
    }
    return true;
}

std::string ucs2_to_utf8(const std::u16string &ucs2)
{
    std::string s;
    for (char16_t ch : ucs2) {
        const unsigned cp = ch;
        if (cp < 0x80) {
            s += static_cast<char>(cp);
        } else if (cp < 0x800) {
            s += static_cast<char>(0xC0 | cp >> 6);
            s += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            s += static_cast<char>(0xE0 | cp >> 12);
            s += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
            s += static_cast<char>(0x80 | (cp & 0x3F));
        }
    }
    return s;
}

namespace {

bool valid_number(const std::string &n)
{
    for (size_t i = 0; i < n.size(); ++i) {
        const char c = n[i];
        const bool ok = (c >= '0' && c <= '9') || c == '*' || c == '#' || c == 'T' || c == 'P' || c == 'W' ||
                        (c == '+' && i == 0);
        if (!ok)
            return false;
    }
    return n.size() <= QMI_PBM_NUMBER_MAX_LENGTH_V01;
}

}  // namespace

bool load_card(const std::string &path, Card *card, std::string *error)
{
    std::ifstream in(path);
    if (!in) {
        *error = "cannot open " + path;
        return false;
    }
    Card c;
    bool have_profile = false;
    std::string line;
    for (int lineno = 1; std::getline(in, line); ++lineno) {
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.empty() || line[0] == '#')
            continue;
        auto fail = [&](const char *what) {
            *error = path + ":" + std::to_string(lineno) + ": " + what;
            return false;
        };
        if (!have_profile) {
            std::istringstream ss(line);
            std::string word;
            unsigned recs = 0, name = 0, num = 0;
            if (!(ss >> word >> recs >> name >> num) || word != "card" || recs < 1 || recs > 65535 ||
                name < 1 || name > 241 || num < 1 || num > 40)
                return fail(
                    "expected: card <max_records 1..65535> <max_name_octets 1..241> <max_digits 1..40>");
            c.max_records = static_cast<uint16_t>(recs);
            c.max_name_len = static_cast<uint8_t>(name);
            c.max_num_len = static_cast<uint8_t>(num);
            have_profile = true;
            continue;
        }
        const size_t a = line.find(',');
        const size_t b = a == std::string::npos ? a : line.find(',', a + 1);
        if (b == std::string::npos)
            return fail("expected: <record_id>,<number>,<name>");
        char *end = nullptr;
        const std::string id_text = line.substr(0, a);
        const unsigned long id = std::strtoul(id_text.c_str(), &end, 10);
        if (id_text.empty() || *end || id < 1 || id > c.max_records ||
            c.records.count(static_cast<uint16_t>(id)))
            return fail("record id out of range or repeated");
        Record r;
        r.number = line.substr(a + 1, b - a - 1);
        if (!valid_number(r.number))
            return fail("number: digits, * # T P W, a leading +, at most 40");
        if (!utf8_to_ucs2(line.substr(b + 1), &r.name) || r.name.size() > 120)
            return fail("name: UTF-8 of at most 120 characters of the basic plane");
        c.records[static_cast<uint16_t>(id)] = r;
    }
    if (!have_profile) {
        *error = path + ": no card line";
        return false;
    }
    *card = c;
    return true;
}

bool save_card(const std::string &path, const Card &card)
{
    const std::string tmp = path + ".tmp";
    {
        std::ofstream out(tmp, std::ios::trunc);
        if (!out)
            return false;
        out << "# simulated SIM phonebook: card <records> <name octets> <number digits>, then "
               "id,number,name\n";
        out << "card " << card.max_records << ' ' << unsigned(card.max_name_len) << ' '
            << unsigned(card.max_num_len) << '\n';
        for (const auto &[id, r] : card.records)
            out << id << ',' << r.number << ',' << ucs2_to_utf8(r.name) << '\n';
        if (!out.flush())
            return false;
    }
    return std::rename(tmp.c_str(), path.c_str()) == 0;
}

}  // namespace pbm_sim
