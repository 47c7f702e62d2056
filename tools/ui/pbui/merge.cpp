// Reading the phonebooks for duplicates and merging their groups: the one
// way pbcli and pbweb do both, so that a merge from either deletes the same
// entries with the same checks.
#include "merge.h"

namespace pbui {

int read_book_entries(Phonebook &pb, storage_type_t only, std::vector<BookEntry> *out)
{
    out->clear();
    for (storage_type_t type : {STORAGE_TYPE_FLASH, STORAGE_TYPE_SIM}) {
        if (only != STORAGE_TYPE_UNKNOWN && only != type)
            continue;
        Entries v;
        if (int rc = pb.read(type, &v); rc != PB_RCODE_OK)
            return rc;
        for (const pb_flash_info &e : v)
            out->push_back({type, e});
    }
    return PB_RCODE_OK;
}

int merge_groups(Phonebook &pb, const std::vector<DuplicateGroup> &groups, Merged *out)
{
    *out = Merged();
    for (const DuplicateGroup &g : groups) {
        if (g.empty())
            continue;
        out->kept.push_back(g[0]);
        for (size_t m = 1; m < g.size(); ++m) {
            int at = 0;
            if (int rc = pb.remove(g[m].type, g[m].entry, &at); rc != PB_RCODE_OK) {
                out->failed = g[m];
                return rc;
            }
            BookEntry gone = g[m];
            gone.entry.index = static_cast<zp_uint32>(at);
            out->deleted.push_back(gone);
        }
    }
    return PB_RCODE_OK;
}

}  // namespace pbui
