// The rules every phonebook table keeps, as a check shared by the store's
// tests and its fuzz target. Returns null when the table keeps them, else
// what is wrong.
#ifndef STORE_TABLE_RULES_H
#define STORE_TABLE_RULES_H

#include <cstring>

#include "zpt_ui_pb_api.h"

inline const char *table_rule_broken(const pb_flash_info_v &mem)
{
    static const pb_flash_info kFree{};
    zp_uint32 used = 0;
    for (zp_uint32 k = 0; k < PB_MAX_ENTRIES; ++k) {
        const pb_flash_info &slot = mem.pb[k];
        if (slot.index == 0) {
            if (std::memcmp(&slot, &kFree, sizeof slot) != 0)
                return "free slot not all zero";
            continue;
        }
        ++used;
        if (slot.index != k + 1)
            return "used slot holds the wrong index";
        if (!std::memchr(slot.name, 0, PB_TEXT_LEN) || !std::memchr(slot.num, 0, PB_TEXT_LEN) ||
            !std::memchr(slot.email, 0, PB_TEXT_LEN))
            return "text field not terminated";
    }
    return used == mem.pb_count ? nullptr : "pb_count differs from the used slots";
}

#endif
