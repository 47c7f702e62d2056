// The memory library's per-site accounting, which every other test relies on
// to prove that buffers were given back.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "zp_mem_host.h"

namespace {

// Blocks are aligned for any type; an impossible size and a null free
// count nothing.
TEST(Mem, CountsLiveBlocksBySiteOfAllocation)
{
    const long total = mem_live_total();
    void *a = mem_malloc_ex(1, 700, 0, 10);
    void *b = mem_malloc_ex(1, 700, 0, 0);
    void *c = mem_malloc_ex(2, 701, 0, 4096);
    ASSERT_TRUE(a && b && c);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(a) % alignof(std::max_align_t), 0u);
    EXPECT_EQ(mem_malloc_ex(1, 700, 0, SIZE_MAX), nullptr);
    EXPECT_EQ(mem_live_blocks(700), 2);
    EXPECT_EQ(mem_live_blocks(701), 1);
    EXPECT_EQ(mem_live_total(), total + 3);
    std::memset(c, 0xAB, 4096);
    // The freeing site may differ from the allocating one; the block still
    // counts against the site that allocated it.
    mem_free_ex(3, 999, 0, a);
    mem_free_ex(3, 999, 0, c);
    mem_free_ex(3, 999, 0, nullptr);
    EXPECT_EQ(mem_live_blocks(700), 1);
    EXPECT_EQ(mem_live_blocks(701), 0);
    EXPECT_EQ(mem_live_blocks(999), 0);
    mem_free_ex(1, 700, 0, b);
    EXPECT_EQ(mem_live_total(), total);
}

TEST(Mem, CountersStayExactUnderConcurrentUse)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([] {
            for (int i = 0; i < 10000; ++i)
                mem_free_ex(0, 0, 0, mem_malloc_ex(0, 42, 0, 16));
        });
    for (auto &th : threads)
        th.join();
    EXPECT_EQ(mem_live_blocks(42), 0);
}

}  // namespace
