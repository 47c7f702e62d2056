// The per-process phonebook tables and the lock helpers.
//
// Ownership: g_pb_mem_sim and g_pb_mem_flash are null until simlib_pb_init()
// takes one table of 1000 slots from the process heap for its storage type;
// simlib_pb_destroy() destroys the table's lock and gives the memory back.
// The allocation is not cleared: a loader fills a table before anyone reads
// it. Each process has its own tables; processes share only the files.
#include <pthread.h>
#include <unistd.h>

#include <cstdlib>

#include "pb_log.h"
#include "pb_tables.h"
#include "zpt_ui_pb_api.h"

pb_mem_info *g_pb_mem_sim = nullptr;
pb_mem_info *g_pb_mem_flash = nullptr;

namespace {

constexpr useconds_t kLockRetryUs = 10000;

pb_mem_info **shared_table(storage_type_t storage_type)
{
    switch (storage_type) {
    case STORAGE_TYPE_SIM: return &g_pb_mem_sim;
    case STORAGE_TYPE_FLASH: return &g_pb_mem_flash;
    default: return nullptr;
    }
}

// Process-shared, so that a table placed in shared memory could be guarded
// across processes; for the heap tables it changes nothing.
void init_table_lock(pthread_rwlock_t *lock)
{
    pthread_rwlockattr_t attr;
    pthread_rwlockattr_init(&attr);
    pthread_rwlockattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
    pthread_rwlock_init(lock, &attr);
    pthread_rwlockattr_destroy(&attr);
}

}  // namespace

int simlib_pb_init(storage_type_t storage_type)
{
    PB_LOG("enter \n\n");
    pb_mem_info **table = shared_table(storage_type);
    bool existed = false;
    if (storage_type == STORAGE_TYPE_SIM) {
        PB_LOG("storage type:%s\n\n", "sim");
        existed = g_pb_mem_sim != nullptr;
        if (!existed)
            g_pb_mem_sim = static_cast<pb_mem_info *>(std::malloc(sizeof(pb_mem_info)));
        PB_LOG(" pb_mem = g_pb_mem_sim \n\n");
    } else if (storage_type == STORAGE_TYPE_FLASH) {
        PB_LOG("storage type:%s\n\n", "flash");
        existed = g_pb_mem_flash != nullptr;
        if (!existed)
            g_pb_mem_flash = static_cast<pb_mem_info *>(std::malloc(sizeof(pb_mem_info)));
        PB_LOG("pb_mem = g_pb_mem_flash \n\n");
    } else {
        PB_LOG("storage type:%s\n\n", "unknown");
        PB_LOG("pb memory is null \n\n");
        return -1;
    }
    if (*table == nullptr) {
        PB_LOG("pb memory is null \n\n");
        return -1;
    }
    // A table that exists already gets a fresh lock; callers make sure that
    // nobody holds or waits for the old one.
    if (existed)
        pthread_rwlock_destroy(&(*table)->pb_rwlock);
    init_table_lock(&(*table)->pb_rwlock);
    PB_LOG("ok \n\n");
    return 0;
}

int simlib_pb_destroy(storage_type_t storage_type)
{
    pb_mem_info **table = shared_table(storage_type);
    if (table == nullptr)
        return -1;
    if (*table != nullptr) {
        pthread_rwlock_destroy(&(*table)->pb_rwlock);
        std::free(*table);
        *table = nullptr;
    }
    return 0;
}

// Taking a lock waits until it is granted: a failure (for example too many
// readers) is retried every 10 ms, so these never fail.
int my_shm_read_lock(pthread_rwlock_t *lock)
{
    while (pthread_rwlock_rdlock(lock) != 0)
        usleep(kLockRetryUs);
    return 0;
}

int my_shm_write_lock(pthread_rwlock_t *lock)
{
    while (pthread_rwlock_wrlock(lock) != 0)
        usleep(kLockRetryUs);
    return 0;
}

int my_shm_unlock(pthread_rwlock_t *lock) { return pthread_rwlock_unlock(lock); }
