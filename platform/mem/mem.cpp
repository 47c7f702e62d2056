// Host memory library over the heap. Each block carries a small header with
// the call site that allocated it, so that live blocks can be counted per
// site: tests use the counters to prove that every buffer was given back.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "zp_mem_host.h"

namespace {

constexpr unsigned kSites = 1u << 16;

std::atomic<long> g_live[kSites];
std::atomic<long> g_total;

// max_align_t keeps the caller's block aligned as malloc would.
union Header {
    zp_uint16 site;
    std::max_align_t align;
};

}  // namespace

extern "C" void *mem_malloc_ex(zp_uint16 /*tid*/, zp_uint16 site, zp_uint32 /*flag*/, size_t size)
{
    if (size > SIZE_MAX - sizeof(Header))
        return nullptr;
    auto *h = static_cast<Header *>(std::malloc(sizeof(Header) + size));
    if (h == nullptr)
        return nullptr;
    h->site = site;
    g_live[site].fetch_add(1, std::memory_order_relaxed);
    g_total.fetch_add(1, std::memory_order_relaxed);
    return h + 1;
}

extern "C" void mem_free_ex(zp_uint16 /*tid*/, zp_uint16 /*site*/, zp_uint32 /*flag*/, void *ptr)
{
    if (ptr == nullptr)
        return;
    Header *h = static_cast<Header *>(ptr) - 1;
    g_live[h->site].fetch_sub(1, std::memory_order_relaxed);
    g_total.fetch_sub(1, std::memory_order_relaxed);
    std::free(h);
}

extern "C" long mem_live_blocks(zp_uint16 site) { return g_live[site].load(std::memory_order_relaxed); }

extern "C" long mem_live_total(void) { return g_total.load(std::memory_order_relaxed); }
