// Table operations and the per-process tables.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>

#include "table_rules.h"
#include "zpt_ui_pb_func.h"

namespace {

pb_flash_info entry(zp_uint32 sim_index, const char *name, const char *num = "")
{
    pb_flash_info e{};
    e.sim_index = sim_index;
    std::strncpy(e.name, name, PB_TEXT_LEN - 1);
    std::strncpy(e.num, num, PB_TEXT_LEN - 1);
    return e;
}

struct TableOps : ::testing::Test {
    std::unique_ptr<pb_mem_info> t{new pb_mem_info()};  // zero-filled working copy

    void use(zp_uint32 slot, zp_uint32 sim_index, const char *name = "x")
    {
        t->mem.pb[slot] = entry(sim_index, name);
        t->mem.pb[slot].index = slot + 1;
        ++t->mem.pb_count;
    }
};

TEST(SharedTables, InitKeepsTableAndRefusesUnknownTypes)
{
    ASSERT_EQ(0, simlib_pb_init(STORAGE_TYPE_SIM));
    pb_mem_info *sim = g_pb_mem_sim;
    ASSERT_EQ(0, simlib_pb_init(STORAGE_TYPE_SIM));
    EXPECT_EQ(sim, g_pb_mem_sim);
    EXPECT_EQ(-1, simlib_pb_init(STORAGE_TYPE_UNKNOWN));
    EXPECT_EQ(-1, simlib_pb_init(static_cast<storage_type_t>(0)));
    EXPECT_EQ(sim, g_pb_mem_sim);
    EXPECT_EQ(nullptr, g_pb_mem_flash);

    ASSERT_EQ(0, simlib_pb_init(STORAGE_TYPE_FLASH));
    // The renewed lock works: taken and given back in both modes.
    EXPECT_EQ(0, my_shm_write_lock(&g_pb_mem_flash->pb_rwlock));
    EXPECT_EQ(0, my_shm_unlock(&g_pb_mem_flash->pb_rwlock));
    simlib_pb_destroy(STORAGE_TYPE_FLASH);
    EXPECT_EQ(nullptr, g_pb_mem_flash);
    EXPECT_EQ(sim, g_pb_mem_sim);
    simlib_pb_destroy(STORAGE_TYPE_FLASH);
    simlib_pb_destroy(STORAGE_TYPE_SIM);
    EXPECT_EQ(nullptr, g_pb_mem_sim);
}

TEST_F(TableOps, AddTakesFirstFreeSlotWhateverTheCount)
{
    for (zp_uint32 k = 0; k < PB_MAX_ENTRIES; ++k)
        if (k != 4)
            use(k, k + 1);
    pb_flash_info e = entry(77, "Eve");
    ASSERT_EQ(PB_RCODE_OK, simlib_pb_add(t.get(), &e));
    EXPECT_EQ(5u, e.index);
    EXPECT_EQ(5u, t->mem.pb[4].index);
    EXPECT_EQ(77u, t->mem.pb[4].sim_index);
    EXPECT_STREQ("Eve", t->mem.pb[4].name);
    EXPECT_EQ(PB_MAX_ENTRIES, static_cast<int>(t->mem.pb_count));

    // Full: nothing stored, the caller's index untouched.
    pb_flash_info more = entry(78, "Zed");
    pb_flash_info_v before = t->mem;
    EXPECT_EQ(PB_RCODE_ERROR, simlib_pb_add(t.get(), &more));
    EXPECT_EQ(0u, more.index);
    EXPECT_EQ(0, std::memcmp(&before, &t->mem, sizeof before));
}

TEST_F(TableOps, EditAndDeleteRefuseOutOfRangeAndFreeSlots)
{
    use(6, 12, "Old");
    struct {
        zp_uint32 index;
        pb_return_code_enum_t want;
    } cases[] = {{0, PB_RCODE_BUFFNULL_ERR}, {1001, PB_RCODE_BUFFNULL_ERR}, {0xFFFFFFFFu, PB_RCODE_BUFFNULL_ERR},
                 {1, PB_RCODE_ERROR}, {1000, PB_RCODE_ERROR}};
    for (auto &c : cases) {
        pb_flash_info e = entry(1, "N");
        e.index = c.index;
        EXPECT_EQ(c.want, simlib_pb_edit(t.get(), &e)) << c.index;
        EXPECT_EQ(c.want, simlib_pb_del(t.get(), &e)) << c.index;
    }
    EXPECT_EQ(PB_RCODE_BUFFNULL_ERR, simlib_pb_add(nullptr, nullptr));
    EXPECT_EQ(1u, t->mem.pb_count);
    EXPECT_STREQ("Old", t->mem.pb[6].name);
}

TEST_F(TableOps, EditKeepsTheSimRecordIndex)
{
    use(6, 12, "Old");
    pb_flash_info e = entry(99, "New", "+4930");
    e.index = 7;
    ASSERT_EQ(PB_RCODE_OK, simlib_pb_edit(t.get(), &e));
    EXPECT_EQ(12u, t->mem.pb[6].sim_index);
    EXPECT_STREQ("New", t->mem.pb[6].name);
    EXPECT_STREQ("+4930", t->mem.pb[6].num);
    EXPECT_EQ(1u, t->mem.pb_count);
}

// Random adds, edits and deletes against a plain model of which indexes are
// used: the table keeps its rules and holds exactly the model's entries.
TEST_F(TableOps, TableRulesHoldAfterMixedChanges)
{
    std::mt19937 rng(7);
    bool used[PB_MAX_ENTRIES] = {};
    for (int step = 0; step < 5000; ++step) {
        zp_uint32 idx = rng() % PB_MAX_ENTRIES + 1;
        pb_flash_info e = entry(idx, "name", "123");
        e.index = idx;
        switch (rng() % 3) {
        case 0: {
            zp_uint32 first_free = 0;
            while (first_free < PB_MAX_ENTRIES && used[first_free])
                ++first_free;
            pb_return_code_enum_t rc = simlib_pb_add(t.get(), &e);
            ASSERT_EQ(first_free < PB_MAX_ENTRIES ? PB_RCODE_OK : PB_RCODE_ERROR, rc);
            if (rc == PB_RCODE_OK) {
                ASSERT_EQ(first_free + 1, e.index);
                used[first_free] = true;
            }
            break;
        }
        case 1: ASSERT_EQ(used[idx - 1] ? PB_RCODE_OK : PB_RCODE_ERROR, simlib_pb_edit(t.get(), &e)); break;
        default:
            ASSERT_EQ(used[idx - 1] ? PB_RCODE_OK : PB_RCODE_ERROR, simlib_pb_del(t.get(), &e));
            used[idx - 1] = false;
        }
        const char *broken = table_rule_broken(t->mem);
        ASSERT_EQ(nullptr, broken) << broken << " after step " << step;
    }
}

TEST_F(TableOps, NameSearchIsExactAndLowestSlotWins)
{
    use(0, 1, "anna");
    use(1, 2, "Anna ");
    use(3, 4, "Annabel");
    pb_flash_info got{};
    char anna[] = "Anna", bob[] = "Bob";
    EXPECT_EQ(-1, simlib_pb_searchname(t.get(), anna, &got));
    use(5, 6, "Bob");
    use(2, 3, "Bob");
    ASSERT_EQ(0, simlib_pb_searchname(t.get(), bob, &got));
    EXPECT_EQ(3u, got.index);
    // A count of 0 means empty, whatever the slots hold.
    t->mem.pb_count = 0;
    EXPECT_EQ(-1, simlib_pb_searchname(t.get(), bob, &got));
    EXPECT_EQ(-1, simlib_pb_searchname(t.get(), nullptr, &got));
}

TEST_F(TableOps, LookUpByDeviceOrSimIndex)
{
    use(2, 40);
    use(9, 40);
    pb_flash_info got{};
    EXPECT_EQ(-1, simlib_pb_getbyidx(t.get(), 0, &got, INDEX_TYPE_FLASH));
    EXPECT_EQ(-1, simlib_pb_getbyidx(t.get(), 1001, &got, INDEX_TYPE_FLASH));
    EXPECT_EQ(-1, simlib_pb_getbyidx(t.get(), 2, &got, INDEX_TYPE_FLASH));
    ASSERT_EQ(0, simlib_pb_getbyidx(t.get(), 10, &got, INDEX_TYPE_FLASH));
    EXPECT_EQ(10u, got.index);
    ASSERT_EQ(0, simlib_pb_getbyidx(t.get(), 40, &got, INDEX_TYPE_SIM));
    EXPECT_EQ(3u, got.index);
    EXPECT_EQ(-1, simlib_pb_getbyidx(t.get(), 0, &got, INDEX_TYPE_SIM));  // free slots hold sim_index 0
    EXPECT_EQ(-1, simlib_pb_getbyidx(t.get(), 3, &got, static_cast<index_type_t>(5)));
}

TEST_F(TableOps, FreeSimIndexIsTheLowestUnusedUpToTheCardsMaximum)
{
    struct {
        zp_int32 max;
        zp_uint32 present;  // records 1..present, except hole
        zp_uint32 hole;
        int want;
    } cases[] = {{250, 4, 3, 3}, {250, 250, 0, -1}, {250, 0, 0, 1}, {0, 0, 0, -1}, {-1, 0, 0, -1}, {3, 2, 0, 3}};
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
    g_sim_module.pb_sim_max_count = 250;
    EXPECT_EQ(-1, pb_func_get_pb_free_index(t.get(), nullptr));
    g_sim_module = saved;
}

}  // namespace
