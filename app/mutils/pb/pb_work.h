/*
 * pb_work.h - the working copy of a phonebook (internal).
 *
 * A whole table local to one operation: zero bytes on construction (an
 * all-zero lock is a valid unlocked lock), private to the call, dropped on
 * every return path. It holds 1000 entries (about 165 KB). The engine
 * keeps it on the stack of a thread with a full-size stack (the service
 * thread, or a direct caller's own thread); import and export, which run on
 * any client's thread, take it from the heap (pb_working_copy_new).
 */
#ifndef PB_WORK_H
#define PB_WORK_H

#include <pthread.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "zpt_ui_pb_api.h"

/* sim_index of an entry of the device phonebook. */
constexpr zp_uint32 PB_SIM_INDEX_NONE = 0xFFFFFFFFu;

class pb_working_copy {
public:
    pb_working_copy() { std::memset(&mem_, 0, sizeof mem_); }
    ~pb_working_copy() { pthread_rwlock_destroy(&mem_.pb_rwlock); }
    pb_working_copy(const pb_working_copy &) = delete;
    pb_working_copy &operator=(const pb_working_copy &) = delete;

    pb_mem_info *get() { return &mem_; }

private:
    pb_mem_info mem_;
};

struct pb_working_copy_free {
    void operator()(pb_working_copy *w) const
    {
        w->~pb_working_copy();
        std::free(w);
    }
};
using pb_working_copy_ptr = std::unique_ptr<pb_working_copy, pb_working_copy_free>;

/* A working copy on the heap; null when memory is out. */
inline pb_working_copy_ptr pb_working_copy_new()
{
    void *p = std::malloc(sizeof(pb_working_copy));
    return pb_working_copy_ptr(p != nullptr ? new (p) pb_working_copy : nullptr);
}

#endif /* PB_WORK_H */
