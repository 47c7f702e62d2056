/*
 * zpt_ui_pb_api.h - phonebook records and tables, the flash phonebook files,
 * import and export, and the client request API.
 *
 * Ownership: simlib_pb_init() makes a per-process table of a phonebook and
 * simlib_pb_destroy() frees it. Working copies are the
 * caller's own pb_mem_info, zero-filled before use. simlib_pb_read_handler()
 * returns a per-process static buffer that the next read overwrites; the
 * caller never frees it. Text fields are NUL-terminated within 51 bytes.
 *
 * Blocking: simlib_send_request_sync(), simlib_pb_write_handler(),
 * simlib_pb_del_any() and a SIM simlib_pb_read_handler() wait for the
 * phonebook service; time limits are in milliseconds.
 */
#ifndef ZPT_UI_PB_API_H
#define ZPT_UI_PB_API_H

#include <pthread.h>
#include <stddef.h>

#include "zp_common.h"

#ifdef __cplusplus
extern "C" {
#endif

#define PB_MAX_ENTRIES 1000
#define PB_TEXT_LEN    51  /* bytes of a text field, NUL included */
#define PB_RECORD_SIZE 161 /* bytes of one record in a phonebook file */
#define PB_DEL_ANY_MAX 200 /* indexes one delete-list request carries */

typedef struct {
    zp_uint32 index;        /* 1..1000, its slot + 1; 0 marks a free slot */
    zp_uint32 sim_index;    /* SIM record number from 1; 0xFFFFFFFF on the device */
    char name[PB_TEXT_LEN]; /* UTF-8 */
    char num[PB_TEXT_LEN];  /* ASCII dialling number */
    char email[PB_TEXT_LEN];
} pb_flash_info;

typedef struct {
    zp_uint32 pb_count; /* used slots */
    pb_flash_info pb[PB_MAX_ENTRIES];
} pb_flash_info_v;

typedef struct {
    pthread_rwlock_t pb_rwlock;
    pb_flash_info_v mem;
} pb_mem_info;

typedef enum { STORAGE_TYPE_SIM = 1, STORAGE_TYPE_FLASH = 2, STORAGE_TYPE_UNKNOWN = 3 } storage_type_t;

typedef enum {
    INDEX_TYPE_FLASH = 0, /* by device index */
    INDEX_TYPE_SIM = 1    /* by SIM record index */
} index_type_t;

typedef enum {
    PB_RCODE_ERROR = -1,
    PB_RCODE_OK = 0,
    PB_RCODE_ARGSERR = 1,
    PB_RCODE_UTF_ERR = 2,
    PB_RCODE_BCD_ERR = 3,
    PB_RCODE_TYPE_ERR = 4,
    PB_RCODE_BUFFNULL_ERR = 5,
    PB_RCODE_INVALID_ERR = 6,
    PB_RCODE_READED_ERR = 7, /* the SIM phonebook is not read yet: ask again */
    PB_RCODE_READ_ERR = 8,
    PB_RCODE_WRITE_ERR = 9, /* the phonebook file could not be saved */
    PB_RCODE_SWAP_ERR = 10, /* the card refused the change */
    PB_RCODE_NOTFREE_ERR = 11,
    PB_RCODE_READING_ERR = 12,
    PB_RCODE_RWLOCK_ERR = 13,
    PB_RCODE_DUPLICATE_ERR = 14,
    PB_RCODE_NODEPOP_ERR = 15,
    PB_RCODE_NODEPUSH_ERR = 16, /* the service's queue is full: ask again */
    PB_RCODE_NODEDEL_ERR = 17,
    PB_RCODE_NODEEMPTY_ERR = 18,
    PB_RCODE_THREAD_ERR = 19,
    PB_RCODE_INIT_ERR = 20,
    PB_RCODE_NV_ERR = 21,
    PB_RCODE_EMPTY_ERR = 22,
    /* The card did not answer a change within its time limit: it may or may
     * not have made it. The SIM phonebook is read again; check it before
     * trying again. */
    PB_RCODE_UNCONFIRMED_ERR = 23,
    /* The entry at the index no longer holds the name and number the
     * request carried: nothing was changed; list it again. */
    PB_RCODE_CHANGED_ERR = 24
} pb_return_code_enum_t;

typedef enum {
    SIM_PB_HANDLE_TYPE_GETALL = 0,
    SIM_PB_HANDLE_TYPE_GETBYIDX = 1,
    SIM_PB_HANDLE_TYPE_GET_BYSIMIDX = 2,
    SIM_PB_HANDLE_TYPE_GETCOUNT = 3,
    SIM_PB_HANDLE_TYPE_SEARCH_NAME_BY_NUM = 4,
    SIM_PB_HANDLE_TYPE_ADD = 5,
    SIM_PB_HANDLE_TYPE_EDIT = 6,
    SIM_PB_HANDLE_TYPE_DEL = 7,
    SIM_PB_HANDLE_TYPE_DEL_ANY = 8,
    SIM_PB_HANDLE_TYPE_DEL_ALL = 9,
    SIM_PB_HANDLE_TYPE_DEL_BYSIMIDX = 10,
    SIM_PB_HANDLE_TYPE_ADD_SHARE = 11,
    SIM_PB_HANDLE_TYPE_UNKNOWN = 12
} sim_pb_handle_t;

/* Message ids of the phonebook, all addressed to module MU_ID. */
#define MSG_ID_PB_REQ      0x104000a1u /* pb_event_req_t, 972 bytes */
#define MSG_ID_PB_RSP      0x104000a2u /* pb_rsp_t, 8 bytes */
#define MSG_ID_PB_READ_IND 0x104000b2u /* pbm_record_read_ind_msg_v01 */

/* Request body. The sender zeroes it whole before filling it.
 *
 * An edit or a delete names its entry by index, and indexes move when other
 * clients change the phonebook. So the request may carry the entry as the
 * client saw it: the change is then made only if the entry at the index
 * still holds that name and number (compared in the service, in the same
 * step as the change), and is otherwise answered PB_RCODE_CHANGED_ERR.
 * A delete carries it in `value`; an edit, whose `value` is the new entry,
 * carries it as a pb_flash_info copied to the start of `any_idx` (see
 * simlib_pb_edit_checked). Empty name and number there: by index alone. */
typedef struct {
    zp_int32 event;                   /* sim_pb_handle_t */
    pb_flash_info value;              /* the entry */
    zp_int32 storage_type;            /* storage_type_t */
    zp_int32 any_idx[PB_DEL_ANY_MAX]; /* device indexes for a delete-list; < 1 skipped */
} pb_event_req_t;

/* Response body. */
typedef struct {
    zp_int32 value;     /* new sim_index for an add, else 0 */
    zp_int32 pb_result; /* pb_return_code_enum_t */
} pb_rsp_t;

/* Records and tables */
int simlib_pb_init(storage_type_t storage_type);
int simlib_pb_destroy(storage_type_t storage_type);
int my_shm_read_lock(pthread_rwlock_t *lock);
int my_shm_write_lock(pthread_rwlock_t *lock);
int my_shm_unlock(pthread_rwlock_t *lock);

/* Flash phonebook files (all 0 or -1). A save replaces the file whole
 * (new file, fsync, rename), so readers need no lock. Whoever loads,
 * changes and saves a phonebook file holds an exclusive flock() on its lock
 * file, the file's path followed by PB_LOCK_SUFFIX (for the device
 * phonebook "<data folder>/pb_device_file.lock"), from before the load until
 * after the save; the service's entry operations and import do. */
#define PB_LOCK_SUFFIX ".lock"
int simlib_clear_flash(storage_type_t type);
int simlib_pb_add_from_flash(storage_type_t type, pb_mem_info *p_pb_mem);
int simlib_pb_from_flash(storage_type_t type, pb_mem_info *p_pb_mem);
int simlib_pb_add_to_file(storage_type_t type, pb_flash_info *p_info);
int simlib_pb_to_flash(storage_type_t type, pb_mem_info *p_pb_mem);

/* Import and export */
pb_return_code_enum_t simlib_pb_import(const char *path, storage_type_t type);
pb_return_code_enum_t simlib_pb_export(const char *path, storage_type_t type, const zp_int32 *array,
                                       int count);

/* Client request API */
int simlib_send_request_sync(zp_uint32 dest_id, zp_uint32 req_msg_id, const void *in_buf, size_t in_len,
                             void *out_buf, size_t *out_len, zp_uint32 timeout);
pb_return_code_enum_t simlib_pb_write_handler(storage_type_t type, sim_pb_handle_t h_type,
                                              pb_flash_info *info);
pb_return_code_enum_t simlib_pb_del_any(storage_type_t type, int *idx_array, int count);
/* An edit made only if the entry at info->index still holds seen's name and
 * number; PB_RCODE_CHANGED_ERR otherwise. A null seen edits by index. */
pb_return_code_enum_t simlib_pb_edit_checked(storage_type_t type, pb_flash_info *info,
                                             const pb_flash_info *seen);
pb_flash_info *simlib_pb_read_handler(storage_type_t type, sim_pb_handle_t h_type, void *num);

#ifdef __cplusplus
}
#endif

#endif /* ZPT_UI_PB_API_H */
