// Table operations and the per-process tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>

#include "pb_tables.h"
#include "table_rules.h"
#include "zpt_ui_pb_func.h"

namespace {

struct TableOps : ::testing::Test {
    std::unique_ptr<pb_mem_info> t{new pb_mem_info()};  // zero-filled working copy

    void use(zp_uint32 slot, zp_uint32 sim_index, const char *name = "x")
    {
        pb_flash_info &e = t->mem.pb[slot];
        e.index = slot + 1;
        e.sim_index = sim_index;
        std::strcpy(e.name, name);
        ++t->mem.pb_count;
    }
};

TEST(SharedTables, InitKeepsTableAndRefusesUnknownTypes)
{
    ASSERT_EQ(0, simlib_pb_init(STORAGE_TYPE_SIM));
    pb_mem_info *sim = g_pb_mem_sim;
    ASSERT_EQ(0, simlib_pb_init(STORAGE_TYPE_SIM));  // renews the lock, keeps the table
    EXPECT_EQ(sim, g_pb_mem_sim);
    for (int bad : {int{STORAGE_TYPE_UNKNOWN}, 0})
        EXPECT_EQ(-1, simlib_pb_init(static_cast<storage_type_t>(bad)));
    EXPECT_EQ(nullptr, g_pb_mem_flash);
    ASSERT_EQ(0, simlib_pb_init(STORAGE_TYPE_FLASH));
    simlib_pb_destroy(STORAGE_TYPE_FLASH);
    simlib_pb_destroy(STORAGE_TYPE_FLASH);
    EXPECT_EQ(nullptr, g_pb_mem_flash);
    EXPECT_EQ(sim, g_pb_mem_sim);
    simlib_pb_destroy(STORAGE_TYPE_SIM);
    EXPECT_EQ(nullptr, g_pb_mem_sim);
}

// Random adds, edits and deletes, indexes 0 and 1001 among them, against a
// plain model of the used slots, until the table has been full many times:
// the table keeps its rules, an add takes the first free slot, an edit keeps
// the entry's SIM record index, and a refused change changes nothing.
TEST_F(TableOps, TableRulesHoldAfterMixedChanges)
{
    std::mt19937 rng(7);
    bool used[PB_MAX_ENTRIES + 2] = {};  // the model: used[index], indexes 0 and 1001 never used
    int refused_full = 0;
    for (int step = 0; step < 6000; ++step) {
        const zp_uint32 idx = rng() % (PB_MAX_ENTRIES + 2),
                        slot = std::min(idx - 1, zp_uint32{PB_MAX_ENTRIES - 1});
        const bool in_range = idx >= 1 && idx <= PB_MAX_ENTRIES;
        pb_flash_info e{idx, idx + 5000, "name", "123", ""};
        const pb_flash_info_v before = t->mem;
        const int want = used[idx] ? PB_RCODE_OK : in_range ? PB_RCODE_ERROR : PB_RCODE_BUFFNULL_ERR;
        const int op = rng() % 4;  // adds twice as often, so the table fills
        const zp_uint32 first_free =
            static_cast<zp_uint32>(std::find(used + 1, used + PB_MAX_ENTRIES + 1, false) - used);
        const int rc = op == 2   ? simlib_pb_edit(t.get(), &e)
                       : op == 3 ? simlib_pb_del(t.get(), &e)
                                 : simlib_pb_add(t.get(), &e);
        if (op < 2) {
            ASSERT_EQ(first_free > PB_MAX_ENTRIES ? PB_RCODE_ERROR : PB_RCODE_OK, rc);
            refused_full += rc != PB_RCODE_OK;
            ASSERT_TRUE(rc != PB_RCODE_OK || e.index == first_free) << "an add takes the first free slot";
            used[first_free] |= rc == PB_RCODE_OK;
        } else {
            ASSERT_EQ(want, rc) << idx;
            ASSERT_TRUE(op != 2 || before.pb[slot].sim_index == t->mem.pb[slot].sim_index)
                << "an edit keeps the SIM record";
            used[idx] = used[idx] && op == 2;
        }
        ASSERT_TRUE(rc == PB_RCODE_OK || std::memcmp(&before, &t->mem, sizeof before) == 0)
            << "refused change at step " << step;
        const char *broken = table_rule_broken(t->mem);
        ASSERT_EQ(nullptr, broken) << broken << " after step " << step;
    }
    EXPECT_GT(refused_full, 10);
}

TEST_F(TableOps, NameSearchIsExactAndLookUpsFindTheLowestSlot)
{
    use(0, 1, "anna");
    use(1, 2, "Anna ");
    use(3, 4, "Annabel");
    use(5, 6, "Bob");
    use(2, 3, "Bob");
    use(7, 6, "later slot, same SIM record");
    pb_flash_info got{};
    char anna[] = "Anna", bob[] = "Bob";
    EXPECT_EQ(-1, simlib_pb_searchname(t.get(), anna, &got));
    ASSERT_EQ(0, simlib_pb_searchname(t.get(), bob, &got));
    EXPECT_EQ(3u, got.index);

    struct {
        unsigned index;
        index_type_t type;
        zp_uint32 want;  // index of the entry found, 0 for none
    } cases[] = {{0, INDEX_TYPE_FLASH, 0}, {1001, INDEX_TYPE_FLASH, 0}, {5, INDEX_TYPE_FLASH, 0},
                 {6, INDEX_TYPE_FLASH, 6}, {6, INDEX_TYPE_SIM, 6},      {0, INDEX_TYPE_SIM, 0}};
    for (auto &c : cases) {
        got = pb_flash_info{};
        EXPECT_EQ(c.want ? 0 : -1, simlib_pb_getbyidx(t.get(), c.index, &got, c.type)) << c.index;
        EXPECT_EQ(c.want, got.index) << c.index;
    }
    t->mem.pb_count = 0;  // a count of 0 means empty, whatever the slots hold
    EXPECT_EQ(-1, simlib_pb_searchname(t.get(), bob, &got));
}

TEST_F(TableOps, FreeSimIndexIsTheLowestUnusedUpToTheCardsMaximum)
{
    struct {
        zp_int32 max;
        zp_uint32 present, hole;  // records 1..present except hole
        int want;
    } cases[] = {{250, 4, 3, 3}, {250, 250, 0, -1}, {250, 0, 0, 1},
                 {0, 0, 0, -1},  {-1, 0, 0, -1},    {3, 2, 0, 3}};
    pb_sim_module_s saved = g_sim_module;
    for (auto &c : cases) {
        *t = pb_mem_info();
        for (zp_uint32 r = 1; r <= c.present; ++r)
            if (r != c.hole)
                use(r - 1, r);
        g_sim_module.pb_sim_max_count = c.max;
        pb_flash_info scratch{};
        EXPECT_EQ(c.want, pb_func_get_pb_free_index(t.get(), &scratch)) << c.max << "/" << c.present;
    }
    g_sim_module = saved;
}

}  // namespace
