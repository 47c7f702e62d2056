// The caller lookup's C API: both phonebook files loaded once, each entry's
// number read once (read_dialled), so that a lookup is a pass of digit
// comparisons over at most 2 x 1000 entries. Files are loaded one at a time
// into a heap table and only the used entries are kept. No exception
// leaves this file: allocation failures are caught at the C boundary.
#include "pb_lookup.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "contacts.h"
#include "nvmanager.h"
#include "zpt_ui_pb_api.h"

namespace pbui {

// Here beside the lookup, its first user, so that a program that only
// checks country codes needs no NV store.
const Country *router_country()
{
    static constexpr char kHomeCountryKey[] = "pb_home_country";
    char text[8] = {};
    int len = 0;
    if (nvmram_readnv(kHomeCountryKey, text, sizeof text - 1, &len) != NV_OK)
        return nullptr;
    return find_country(std::string_view(text, std::strlen(text)));
}

}  // namespace pbui

struct pb_lookup_books {
    struct Entry {
        pb_flash_info info;
        pbui::DialledNumber number;
    };
    std::vector<Entry> device;  // index order
    std::vector<Entry> sim;
};

namespace {

struct FreeTable {
    void operator()(pb_mem_info *t) const { std::free(t); }
};

bool load(storage_type_t type, std::vector<pb_lookup_books::Entry> *out)
{
    std::unique_ptr<pb_mem_info, FreeTable> table(
        static_cast<pb_mem_info *>(std::calloc(1, sizeof(pb_mem_info))));
    if (!table)
        throw std::bad_alloc();
    if (simlib_pb_from_flash(type, table.get()) != 0)
        return false;
    out->reserve(table->mem.pb_count);
    for (const pb_flash_info &e : table->mem.pb)
        if (e.index != 0)
            out->push_back({e, pbui::read_dialled(e.num)});
    return true;
}

// The best match of one phonebook: an equal form first, then the lowest
// index (the entries are in index order).
const pb_lookup_books::Entry *best(const std::vector<pb_lookup_books::Entry> &book,
                                   const pbui::DialledNumber &number, const pbui::Country *home, bool *exact)
{
    const pb_lookup_books::Entry *trailing = nullptr;
    for (const pb_lookup_books::Entry &e : book) {
        const pbui::NumberMatch m = pbui::match_dialled(number, e.number, home);
        if (m == pbui::NumberMatch::EQUAL) {
            *exact = true;
            return &e;
        }
        if (m == pbui::NumberMatch::TRAILING && trailing == nullptr)
            trailing = &e;
    }
    *exact = false;
    return trailing;
}

void copy_text(char (&dst)[PB_LOOKUP_TEXT_LEN], const char (&src)[PB_TEXT_LEN])
{
    static_assert(PB_LOOKUP_TEXT_LEN == PB_TEXT_LEN, "the lookup's fields are the phonebook's");
    std::memcpy(dst, src, sizeof dst);
    dst[PB_LOOKUP_TEXT_LEN - 1] = '\0';
}

}  // namespace

extern "C" pb_lookup_result_t pb_lookup_open(pb_lookup_books **books)
{
    if (books == nullptr)
        return PB_LOOKUP_BAD_ARGUMENT;
    *books = nullptr;
    try {
        auto b = std::make_unique<pb_lookup_books>();
        if (!load(STORAGE_TYPE_FLASH, &b->device) || !load(STORAGE_TYPE_SIM, &b->sim))
            return PB_LOOKUP_READ_ERROR;
        *books = b.release();
        return PB_LOOKUP_OK;
    } catch (const std::bad_alloc &) {
        return PB_LOOKUP_NO_MEMORY;
    }
}

extern "C" pb_lookup_result_t pb_lookup_find(const pb_lookup_books *books, const char *number,
                                             const char *country, pb_lookup_entry *out)
{
    if (books == nullptr || number == nullptr || out == nullptr)
        return PB_LOOKUP_BAD_ARGUMENT;
    std::memset(out, 0, sizeof *out);
    const pbui::Country *home = nullptr;
    if (country == nullptr)
        home = pbui::router_country();
    else if (*country != '\0' && (home = pbui::find_country(country)) == nullptr)
        return PB_LOOKUP_BAD_ARGUMENT;
    try {
        const pbui::DialledNumber wanted = pbui::read_dialled(number);
        bool exact = false;
        int phonebook = PB_LOOKUP_DEVICE;
        const pb_lookup_books::Entry *e = best(books->device, wanted, home, &exact);
        if (e == nullptr) {
            phonebook = PB_LOOKUP_SIM;
            e = best(books->sim, wanted, home, &exact);
        }
        if (e == nullptr)
            return PB_LOOKUP_NOT_FOUND;
        out->phonebook = phonebook;
        out->index = static_cast<int>(e->info.index);
        out->sim_index = phonebook == PB_LOOKUP_SIM ? static_cast<int>(e->info.sim_index) : -1;
        out->exact = exact ? 1 : 0;
        copy_text(out->name, e->info.name);
        copy_text(out->number, e->info.num);
        copy_text(out->email, e->info.email);
        return PB_LOOKUP_OK;
    } catch (const std::bad_alloc &) {
        return PB_LOOKUP_NO_MEMORY;
    }
}

extern "C" void pb_lookup_close(pb_lookup_books *books) { delete books; }

extern "C" pb_lookup_result_t pb_lookup(const char *number, const char *country, pb_lookup_entry *out)
{
    if (number == nullptr || out == nullptr)
        return PB_LOOKUP_BAD_ARGUMENT;
    pb_lookup_books *books = nullptr;
    const pb_lookup_result_t rc = pb_lookup_open(&books);
    if (rc != PB_LOOKUP_OK)
        return rc;
    const std::unique_ptr<pb_lookup_books, decltype(&pb_lookup_close)> owner(books, pb_lookup_close);
    return pb_lookup_find(books, number, country, out);
}
