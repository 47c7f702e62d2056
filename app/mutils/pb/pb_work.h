/*
 * pb_work.h - the engine's working copy of a phonebook (internal).
 *
 * A whole table local to one operation: zero bytes on construction (an
 * all-zero lock is a valid unlocked lock), private to the call, dropped on
 * every return path. It holds 1000 entries (about 165 KB) on the caller's
 * stack, so it lives only in functions run on a thread with a full-size
 * stack (the service thread, or a direct caller's own thread).
 */
#ifndef PB_WORK_H
#define PB_WORK_H

#include <pthread.h>

#include <cstring>

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

#endif /* PB_WORK_H */
