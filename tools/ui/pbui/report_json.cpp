// The report of an import or a copy, and the check of an entry's fields, as
// JSON: pbcli --json and pbweb answer with the same members. A file of its
// own: the exchange functions it names need the phonebook library, which
// users of the JSON writer alone (pbweb's request parsing) do not link.
#include "report_json.h"

#include "entries.h"
#include "text.h"
#include "words.h"

namespace pbui {

std::string json_report_line(const ReportLine &l)
{
    JsonObject o;
    o.add("source", l.from.source)
        .add("read",
             JsonObject().add("name", l.from.name).add("number", l.from.number).add("email", l.from.email))
        .add("outcome", outcome_word(l.outcome))
        .add("index", l.index);
    if (l.outcome == Outcome::ADDED)
        o.raw("entry", json_entry(l.entry));
    if (l.outcome == Outcome::FAILED)
        o.add("code", l.rcode);
    return o.add("renamed", l.renamed)
        .add("name_cut", l.name_cut)
        .add("email_cut", l.email_cut)
        .add("email_dropped", l.email_dropped)
        .add("text", outcome_text(l))
        .take();
}

JsonObject json_report(const Report &r)
{
    const size_t added = static_cast<size_t>(r.count(Outcome::ADDED));
    std::string lines = "[";
    for (const auto &l : r.lines)
        lines += (lines.size() == 1 ? "" : ",") + json_report_line(l);
    return std::move(JsonObject()
                         .add("read", r.lines.size())
                         .add("added", added)
                         .add("not_added", r.lines.size() - added)
                         .raw("contacts", lines + "]"));
}

JsonObject json_check(const FieldsCheck &c)
{
    constexpr size_t kFieldBytes = PB_TEXT_LEN - 1;
    const auto limit = [&](JsonObject &o, const char *key, bool known, int v) -> JsonObject & {
        return known ? o.add(key, v) : o.null(key);
    };
    JsonObject s;
    s.add("phonebook", storage_name(c.sim ? STORAGE_TYPE_SIM : STORAGE_TYPE_FLASH));
    if (c.has_name) {
        JsonObject n;
        n.add("bytes", c.name_bytes).add("max_bytes", kFieldBytes).add("fits", c.name_fits);
        if (c.sim) {
            JsonObject card;
            card.add("encoding", sim_text_name(c.name_card.encoding));
            limit(card, "octets", c.name_card.octets >= 0, c.name_card.octets);
            limit(card, "max", c.limits_known, c.limits.name_octets);
            n.add("card", card);
        }
        s.add("name", n);
    }
    if (c.has_number) {
        JsonObject n;
        n.add("stored", c.number)
            .add("bytes", c.number.size())
            .add("max_bytes", kFieldBytes)
            .add("fits", c.number_fits);
        if (const NumberRefusal &r = c.number_refusal; r.problem != NumberProblem::NONE) {
            JsonObject reason;
            reason.add("code", number_problem_word(r.problem));
            if (r.place > 0) {
                std::string ch;
                append_utf8(&ch, r.c);
                reason.add("char", ch).add("at", r.place);
            }
            if (r.problem == NumberProblem::TOO_LONG || r.problem == NumberProblem::CARD_DIGITS)
                reason.add("count", r.count).add("max", r.max);
            n.add("error", number_refusal_text(r)).add("reason", reason);
        }
        if (c.sim) {
            JsonObject card;
            card.add("digits", c.number_digits);
            limit(card, "max", c.limits_known, sim_max_digits(c.limits));
            n.add("card", card);
        }
        s.add("number", n);
    }
    if (c.has_email)
        s.add(
            "email",
            JsonObject().add("bytes", c.email_bytes).add("max_bytes", kFieldBytes).add("fits", c.email_fits));
    return s;
}

JsonObject json_lookup(const pb_lookup_entry &e)
{
    return JsonObject()
        .add("phonebook", storage_name(static_cast<storage_type_t>(e.phonebook)))
        .add("match", e.exact ? "equal" : "trailing")
        .raw("entry", json_entry(entry_of(e)));
}

std::string json_book_entry(const BookEntry &e)
{
    return JsonObject().add("phonebook", storage_name(e.type)).raw("entry", json_entry(e.entry)).str();
}

std::string json_groups(const std::vector<DuplicateGroup> &groups)
{
    std::string list = "[";
    for (const DuplicateGroup &g : groups) {
        std::string members = "[";
        for (const BookEntry &e : g)
            members += (members.size() > 1 ? "," : "") + json_book_entry(e);
        list += (list.size() > 1 ? "," : "") + members + "]";
    }
    return list + "]";
}

JsonObject json_merged(const Merged &m)
{
    std::string kept = "[", deleted = "[";
    for (const BookEntry &e : m.kept)
        kept += (kept.size() > 1 ? "," : "") + json_book_entry(e);
    for (const BookEntry &e : m.deleted)
        deleted += (deleted.size() > 1 ? "," : "") + JsonObject()
                                                         .add("phonebook", storage_name(e.type))
                                                         .add("index", static_cast<int>(e.entry.index))
                                                         .str();
    return std::move(
        JsonObject().add("groups", m.kept.size()).raw("kept", kept + "]").raw("deleted", deleted + "]"));
}

}  // namespace pbui
