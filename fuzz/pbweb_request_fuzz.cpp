// pbweb's own request parsing: JSON bodies (and the entry fields read from
// them), index lists of query strings, and API paths. Any input must be
// refused or parsed without a fault (the index range is the parser's own
// check); a parsed string must come back the same through pbcli's JSON
// writer and the parser again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "json.h"
#include "json_writer.h"
#include "request.h"

namespace {

void check_strings(const pbweb::Json &v)
{
    if (v.type == pbweb::Json::STRING) {
        pbweb::Json again;
        std::string err;
        if (!pbweb::parse_json(pbui::json_string(v.text), &again, &err) || again.text != v.text)
            std::abort();
    }
    for (const auto &item : v.items)
        check_strings(item);
    for (const auto &f : v.fields)
        check_strings(f.second);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string in(reinterpret_cast<const char *>(data), size);
    pbweb::Json v;
    std::string err;
    if (pbweb::parse_json(in, &v, &err)) {
        check_strings(v);
        pbweb::EntryFields f;
        pbweb::ShownEntry s;
        (void)pbweb::read_entry_fields(v, &f, &err);
        (void)pbweb::read_shown_entry(v, &s, &err);
        if (const pbweb::Json *list = v.get("entries"))
            for (const auto &item : list->items)
                (void)pbweb::read_shown_entry(item, &s, &err);
    }
    std::vector<int> idx;
    (void)pbweb::parse_index_list(in, &idx, &err);
    for (const char *method : {"GET", "POST", "PUT"})
        (void)pbweb::parse_route(method, in);
    return 0;
}
