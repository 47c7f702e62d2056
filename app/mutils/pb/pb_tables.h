/*
 * pb_tables.h - the module's own table state and table operations
 * (internal, not exported).
 *
 * g_pb_mem_sim / g_pb_mem_flash: the per-process shared tables, null until
 * simlib_pb_init() makes them. The table operations take the lock of the
 * table they are given.
 */
#ifndef PB_TABLES_H
#define PB_TABLES_H

#include "zpt_ui_pb_api.h"

extern "C" {

extern pb_mem_info *g_pb_mem_sim;
extern pb_mem_info *g_pb_mem_flash;

pb_return_code_enum_t simlib_pb_edit(pb_mem_info *pb_mem, pb_flash_info *info);
pb_return_code_enum_t simlib_pb_del(pb_mem_info *pb_mem, pb_flash_info *info);
int simlib_pb_searchname(pb_mem_info *pb_mem, char *name, pb_flash_info *info);
int pb_func_get_pb_free_index(pb_mem_info *p_pb_mem, pb_flash_info *mpb);
}

#endif /* PB_TABLES_H */
