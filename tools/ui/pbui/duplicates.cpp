// Duplicate entries: numbers compared by the rule of the same number
// (each read once; most pairs are turned away on their last digits). A
// group forms around the entry a merge keeps, and only entries whose number
// is the same as every member's join it: a national number that matches two
// international numbers of different countries goes with one of them, and
// they never share a group, so a merge never deletes another subscriber's
// entry, whichever member it keeps.
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

    // Each entry, the most complete first, joins the first group whose
    // every member has the same number, or starts a group of its own.
    std::vector<std::vector<size_t>> groups;
    for (size_t k : order) {
        if (numbers[k].form == NumberForm::NONE)
            continue;
        auto g = std::find_if(groups.begin(), groups.end(), [&](const std::vector<size_t> &m) {
            return std::all_of(m.begin(), m.end(), [&](size_t i) {
                return match_dialled(numbers[i], numbers[k], home) != NumberMatch::NONE;
            });
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

std::vector<DuplicateGroup> find_maybe_duplicates(const std::vector<BookEntry> &entries, const Country *home)
{
    std::vector<DialledNumber> numbers;
    numbers.reserve(entries.size());
    for (const BookEntry &e : entries)
        numbers.push_back(
            read_dialled(std::string_view(e.entry.num, strnlen(e.entry.num, sizeof e.entry.num))));
    const auto related = [&](size_t a, size_t b) {
        const std::string &x = numbers[a].digits;
        const std::string &y = numbers[b].digits;
        return numbers[a].form != NumberForm::NONE && numbers[b].form != NumberForm::NONE && x != y &&
               (x.compare(0, y.size(), y) == 0 || y.compare(0, x.size(), x) == 0) &&
               match_dialled(numbers[a], numbers[b], home) == NumberMatch::NONE;
    };
    std::vector<DuplicateGroup> out;
    std::vector<bool> taken(entries.size(), false);
    for (size_t i = 0; i < entries.size(); ++i) {
        if (taken[i])
            continue;
        std::vector<size_t> group{i};
        for (size_t j = i + 1; j < entries.size(); ++j)
            if (!taken[j] && std::strncmp(entries[i].entry.name, entries[j].entry.name, PB_TEXT_LEN) == 0 &&
                std::any_of(group.begin(), group.end(), [&](size_t k) { return related(k, j); }))
                group.push_back(j);
        if (group.size() < 2)
            continue;
        DuplicateGroup &g = out.emplace_back();
        for (size_t k : group) {
            taken[k] = true;
            g.push_back(entries[k]);
        }
    }
    return out;
}

}  // namespace pbui
