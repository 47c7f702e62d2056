/* book_text.h - a phonebook written from text and read back as text, one
 * "index:number|name|email" per used entry, through the store's own
 * functions: for the store's import and export test and the contact import
 * test. A SIM entry's card record is its index + 100. */
#ifndef STORE_BOOK_TEXT_H
#define STORE_BOOK_TEXT_H

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "zpt_ui_pb_api.h"

// The used entries of a phonebook as "index:number|name|email".
inline std::vector<std::string> load_book(storage_type_t type)
{
    auto t = std::make_unique<pb_mem_info>();  // zero-filled
    EXPECT_EQ(simlib_pb_from_flash(type, t.get()), 0);
    std::vector<std::string> out;
    for (const auto &e : t->mem.pb) {
        if (e.index == 0)
            continue;
        EXPECT_EQ(e.sim_index, type == STORAGE_TYPE_SIM ? e.index + 100 : 0xFFFFFFFFu);
        out.push_back(std::to_string(e.index) + ":" + e.num + "|" + e.name + "|" + e.email);
    }
    return out;
}

// Stores entries "number|name|email" at the given indexes.
inline void store_book(storage_type_t type, const std::vector<std::pair<int, std::string>> &entries)
{
    auto t = std::make_unique<pb_mem_info>();  // zero-filled
    for (const auto &[index, text] : entries) {
        pb_flash_info &e = t->mem.pb[index - 1];
        e.index = index;
        e.sim_index = type == STORAGE_TYPE_SIM ? index + 100 : 0xFFFFFFFFu;
        std::sscanf(text.c_str(), "%50[^|]|%50[^|]|%50s", e.num, e.name, e.email);
        ++t->mem.pb_count;
    }
    ASSERT_EQ(simlib_pb_to_flash(type, t.get()), 0);
}

#endif
