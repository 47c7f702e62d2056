// Duplicate entries: numbers compared by the rule of the same number
// (each read once; most pairs are turned away on their last digits). A
// group forms around the entry a merge keeps, and only entries whose number
// is the same as that entry's join it: a national number that matches two
// international numbers of different countries goes with one of them, so
// a merge never deletes another subscriber's entry. At most 2000 x groups
// comparisons, a few milliseconds.
#include "duplicates.h"

#include <algorithm>
#include <cstring>
#include <numeric>

namespace pbui {

namespace {

// The entry a merge keeps comes first.
bool kept_before(const BookEntry &a, const BookEntry &b)
{
    const bool mail_a = a.entry.email[0] != '\0';
    const bool mail_b = b.entry.email[0] != '\0';
    if (mail_a != mail_b)
        return mail_a;
    const size_t name_a = strnlen(a.entry.name, sizeof a.entry.name);
    const size_t name_b = strnlen(b.entry.name, sizeof b.entry.name);
    if (name_a != name_b)
        return name_a > name_b;
    if (a.type != b.type)
        return a.type == STORAGE_TYPE_FLASH;
    return a.entry.index < b.entry.index;
}

}  // namespace

std::vector<DuplicateGroup> find_duplicates(const std::vector<BookEntry> &entries, const Country *home)
{
    std::vector<size_t> order(entries.size());
    std::iota(order.begin(), order.end(), size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](size_t a, size_t b) { return kept_before(entries[a], entries[b]); });
    std::vector<DialledNumber> numbers;
    numbers.reserve(entries.size());
    for (const BookEntry &e : entries)
        numbers.push_back(
            read_dialled(std::string_view(e.entry.num, strnlen(e.entry.num, sizeof e.entry.num))));

    // Each entry, the most complete first, joins the first group whose kept
    // entry has the same number, or keeps a group of its own.
    std::vector<std::vector<size_t>> groups;
    for (size_t k : order) {
        if (numbers[k].form == NumberForm::NONE)
            continue;
        auto g = std::find_if(groups.begin(), groups.end(), [&](const std::vector<size_t> &m) {
            return match_dialled(numbers[m[0]], numbers[k], home) != NumberMatch::NONE;
        });
        if (g == groups.end())
            groups.push_back({k});
        else
            g->push_back(k);
    }
    groups.erase(std::remove_if(groups.begin(), groups.end(), [](const auto &m) { return m.size() < 2; }),
                 groups.end());
    // Shown in the order of the phonebooks: by each group's first entry.
    for (auto &m : groups)
        m.push_back(*std::min_element(m.begin(), m.end()));
    std::sort(groups.begin(), groups.end(), [](const auto &a, const auto &b) { return a.back() < b.back(); });
    std::vector<DuplicateGroup> out;
    for (auto &m : groups) {
        m.pop_back();
        DuplicateGroup &g = out.emplace_back();
        for (size_t k : m)
            g.push_back(entries[k]);
    }
    return out;
}

}  // namespace pbui
