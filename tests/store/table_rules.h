// The rules every phonebook table keeps, shared by the store's tests and its
// fuzz target: null when the table keeps them, else what is wrong.
#ifndef STORE_TABLE_RULES_H
#define STORE_TABLE_RULES_H

#include <cstring>

#include "zpt_ui_pb_api.h"

inline const char *table_rule_broken(const pb_flash_info_v &mem)
{
    static const pb_flash_info kFree{};
    zp_uint32 used = 0;
    for (zp_uint32 k = 0; k < PB_MAX_ENTRIES; ++k) {
        const pb_flash_info &s = mem.pb[k];
        if (s.index == 0 && std::memcmp(&s, &kFree, sizeof s) != 0)
            return "free slot not all zero";
        if (s.index != 0 && s.index != k + 1)
            return "used slot holds the wrong index";
        if (!std::memchr(s.name, 0, PB_TEXT_LEN) || !std::memchr(s.num, 0, PB_TEXT_LEN) ||
            !std::memchr(s.email, 0, PB_TEXT_LEN))
            return "text field not terminated";
        used += s.index != 0;
    }
    return used == mem.pb_count ? nullptr : "pb_count differs from the used slots";
}

#endif
