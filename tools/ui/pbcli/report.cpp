// The report of an import or a copy, and the check of an entry's fields, as
// JSON. A file of its own: the exchange functions it names need the
// phonebook library, which users of the rest of pbcli_core (the request
// parsing of pbweb) do not link.
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

namespace {

std::string json_bool(bool b) { return b ? "true" : "false"; }

std::string json_limit(bool known, int v) { return known ? std::to_string(v) : "null"; }

}  // namespace

std::string json_check(const pbx::FieldsCheck &c)
{
    constexpr size_t kFieldBytes = PB_TEXT_LEN - 1;
    const std::string max_bytes = ",\"max_bytes\":" + std::to_string(kFieldBytes);
    std::string s = "\"phonebook\":\"" + std::string(c.sim ? "sim" : "device") + "\"";
    if (c.has_name) {
        s += ",\"name\":{\"bytes\":" + std::to_string(c.name_bytes) + max_bytes +
             ",\"fits\":" + json_bool(c.name_fits);
        if (c.sim)
            s += ",\"card\":{\"encoding\":" + json_string(pbx::sim_text_name(c.name_card.encoding)) +
                 ",\"octets\":" + json_limit(c.name_card.octets >= 0, c.name_card.octets) +
                 ",\"max\":" + json_limit(c.limits_known, c.limits.name_octets) + "}";
        s += "}";
    }
    if (c.has_number) {
        s += ",\"number\":{\"stored\":" + json_string(c.number) +
             ",\"bytes\":" + std::to_string(c.number.size()) + max_bytes +
             ",\"fits\":" + json_bool(c.number_fits);
        if (!c.number_error.empty())
            s += ",\"error\":" + json_string(c.number_error);
        if (c.sim)
            s += ",\"card\":{\"digits\":" + std::to_string(c.number_digits) +
                 ",\"max\":" + json_limit(c.limits_known, pbx::sim_max_digits(c.limits)) + "}";
        s += "}";
    }
    if (c.has_email)
        s += ",\"email\":{\"bytes\":" + std::to_string(c.email_bytes) + max_bytes +
             ",\"fits\":" + json_bool(c.email_fits) + "}";
    return s;
}

}  // namespace pbcli
