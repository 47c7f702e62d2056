// The report of an import or a copy as JSON. A file of its own: the
// exchange functions it names need the phonebook library, which users of
// the rest of pbcli_core (the request parsing of pbweb) do not link.
#include "output.h"

namespace pbcli {

std::string json_report_line(const pbx::ReportLine &l)
{
    std::string s =
        "{\"source\":" + std::to_string(l.from.source) + ",\"read\":{\"name\":" + json_string(l.from.name) +
        ",\"number\":" + json_string(l.from.number) + ",\"email\":" + json_string(l.from.email) +
        "},\"outcome\":\"" + pbx::outcome_word(l.outcome) + "\",\"index\":" + std::to_string(l.index);
    if (l.outcome == pbx::Outcome::ADDED)
        s += ",\"entry\":" + json_entry(l.entry);
    if (l.outcome == pbx::Outcome::FAILED)
        s += ",\"code\":" + std::to_string(l.rcode);
    s += std::string(",\"renamed\":") + (l.renamed ? "true" : "false") +
         ",\"name_cut\":" + (l.name_cut ? "true" : "false") +
         ",\"email_cut\":" + (l.email_cut ? "true" : "false") +
         ",\"email_dropped\":" + (l.email_dropped ? "true" : "false");
    return s + ",\"text\":" + json_string(pbx::outcome_text(l)) + "}";
}

std::string json_report(const pbx::Report &r)
{
    const int added = r.count(pbx::Outcome::ADDED);
    std::string lines;
    for (const auto &l : r.lines)
        lines += (lines.empty() ? "" : ",") + json_report_line(l);
    return "\"read\":" + std::to_string(r.lines.size()) + ",\"added\":" + std::to_string(added) +
           ",\"not_added\":" + std::to_string(r.lines.size() - static_cast<size_t>(added)) +
           ",\"contacts\":[" + lines + "]";
}

}  // namespace pbcli
