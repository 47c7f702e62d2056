// One search of both phonebooks, 2 x 1000 entries of names in Latin,
// Cyrillic, Greek, Armenian and Chinese with their numbers, as pbcli find
// and the page's search run it at the library level: the text read once,
// every entry's name folded and its number looked into. The figure to keep
// is under 1 ms a search.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "contacts.h"

namespace {

std::vector<pb_flash_info> phonebooks()
{
    static const char *const kNames[] = {"Jürgen Groß", "Анна Каренина", "Σωκράτης Παππάς", "Արամ Խաչատրյան",
                                         "王小明",      "Zoë Müller",    "Дмитрий Иванов",  "Renée Dubois"};
    std::vector<pb_flash_info> v(2 * PB_MAX_ENTRIES);
    for (size_t k = 0; k < v.size(); ++k) {
        pb_flash_info &e = v[k];
        e.index = static_cast<zp_uint32>(k % PB_MAX_ENTRIES + 1);
        std::snprintf(e.name, sizeof e.name, "%s %04zu", kNames[k % 8], k);
        std::snprintf(e.num, sizeof e.num, "+49170%07zu", k);
    }
    return v;
}

void search(benchmark::State &state, const char *text)
{
    const std::vector<pb_flash_info> all = phonebooks();
    size_t found = 0;
    for (auto _ : state) {
        const pbui::Search s(text);
        found = 0;
        for (const pb_flash_info &e : all)
            found += s.matches(e);
        benchmark::DoNotOptimize(found);
    }
    state.counters["found"] = static_cast<double>(found);
}

}  // namespace

BENCHMARK_CAPTURE(search, cyrillic_name, "анна")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(search, greek_name, "ΣΩΚΡΆΤΗΣ")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(search, number_with_separators, "170 000-12")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(search, no_match, "nobody at all")->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
