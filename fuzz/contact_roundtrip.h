// Shared check of the contact file fuzzers: whatever a parser reads, the
// contacts that a phonebook would keep are written out in the same format
// and must read back unchanged.
#ifndef CONTACT_ROUNDTRIP_H
#define CONTACT_ROUNDTRIP_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "contacts.h"
#include "text.h"

inline void check_round_trip(const std::vector<pbui::Contact> &contacts, pbui::Format f)
{
    std::vector<pb_flash_info> entries;
    std::vector<std::string> expect;
    for (const pbui::Contact &c : contacts) {
        std::string number;
        if (!c.problem.empty() || !pbui::tidy_number(c.number, &number).empty() || number.empty())
            continue;
        // Names and e-mails as the import would store them: one line, cut.
        std::string name = pbui::cut_text(pbui::trim(c.name), PB_TEXT_LEN - 1);
        std::string email = pbui::cut_text(pbui::trim(c.email), PB_TEXT_LEN - 1);
        for (std::string *s : {&name, &email})
            for (char &ch : *s)
                if (ch == '\r' || ch == '\n' || ch == '\t' || ch == '\0')
                    ch = ' ';
        name = std::string(pbui::trim(name));
        email = std::string(pbui::trim(email));
        // A CSV cell holds several values split by ":::"; no address does.
        if (f == pbui::Format::CSV && email.find(":::") != std::string::npos)
            continue;
        pb_flash_info e{};
        std::snprintf(e.name, sizeof e.name, "%s", name.c_str());
        std::snprintf(e.num, sizeof e.num, "%s", number.c_str());
        std::snprintf(e.email, sizeof e.email, "%s", email.c_str());
        // What the module's lines cannot carry, an export refuses.
        if (f == pbui::Format::MODULE && !pbui::module_lines_refusal({e}).empty())
            continue;
        entries.push_back(e);
        expect.push_back(name + "|" + number + "|" + email);
    }
    std::vector<std::string> got;
    for (const pbui::Contact &c : pbui::parse(pbui::format(entries, f), f))
        got.push_back(c.name + "|" + c.number + "|" + c.email);
    if (got != expect) {
        std::fprintf(stderr, "%s round trip changed %zu entries into %zu\n", pbui::format_name(f),
                     expect.size(), got.size());
        for (size_t k = 0; k < expect.size() || k < got.size(); ++k)
            std::fprintf(stderr, "  [%s] [%s]\n", k < expect.size() ? expect[k].c_str() : "",
                         k < got.size() ? got[k].c_str() : "");
        std::abort();
    }
}

#endif
