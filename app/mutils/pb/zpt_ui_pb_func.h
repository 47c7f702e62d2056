/*
 * zpt_ui_pb_func.h - the phonebook engine: table operations, the SIM record
 * codec, the engine's record of the card, the entry operations, engine
 * start-up and the SIM write dispatcher.
 *
 * Threads: the entry operations, pb_func_init() and pb_init_entries() run on
 * the service thread only; g_sim_module changes only there. The table
 * operations take the lock of the table they are given. The codec keeps no
 * state and may be called from any thread.
 */
#ifndef ZPT_UI_PB_FUNC_H
#define ZPT_UI_PB_FUNC_H

#include "zpt_ui_pb_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The engine's record of the card's phonebook. */
typedef struct {
    zp_int32 pb_sim_max_count;    /* records the card offers */
    zp_int32 pb_sim_used;         /* filled records the card reports */
    zp_int32 pb_sim_max_name_len; /* longest name the card takes */
    zp_int32 pb_sim_max_num_len;  /* longest number the card takes */
    zp_int32 rec_len;
    char pb_sim_read_flag; /* 0 not read, 2 reading, 1 read */
    char pb_sim_init_flag; /* 1 once pb_func_init() succeeded */
} pb_sim_module_s;

extern pb_sim_module_s g_sim_module;
extern storage_type_t g_storage_type;

/* Table operations */
pb_return_code_enum_t simlib_pb_add(pb_mem_info *pb_mem, pb_flash_info *info);
int simlib_pb_getbyidx(pb_mem_info *pb_mem, unsigned int index, pb_flash_info *info, index_type_t type);

/* SIM record codec (EF ADN): the 14-byte fixed part after the alpha identifier. */
typedef struct {
    zp_uint8 bcd_len; /* digit bytes + 1; 0xFF: no number */
    zp_uint8 ton_npi;
    zp_uint8 number[10]; /* packed BCD, first digit in the low nibble */
    zp_uint8 cap_config_id;
    zp_uint8 ext_id;
} pb_fixed_sim_rec_s_type;

typedef enum {
    PB_ENCODE_INVALID = 0,
    PB_ENCODE_UCS2 = 1, /* the 0x80 coding */
    PB_ENCODE_ASC = 2   /* GSM 7-bit default alphabet */
} pb_encode_scheme_e;

pb_return_code_enum_t pb_func_decode_name(unsigned char *ptrname, unsigned char *read_buffer,
                                          const int read_len);
pb_return_code_enum_t pb_func_encode_name(unsigned char *write_buffer, int *out_len, unsigned char *ptrname,
                                          int in_len);
pb_return_code_enum_t pb_func_decode_number(unsigned char *ptrnum, pb_fixed_sim_rec_s_type *fixed_sim_record);
pb_return_code_enum_t pb_func_encode_number(unsigned char *fixed_sim_record, unsigned char *ptrnum);

/* Entry operations */
pb_return_code_enum_t pb_func_add_entry(pb_event_req_t *req);
pb_return_code_enum_t pb_func_edit_entry(pb_event_req_t *req);
pb_return_code_enum_t pb_func_del_entry(pb_event_req_t *req);
pb_return_code_enum_t pb_func_del_any(pb_event_req_t *req);
pb_return_code_enum_t pb_func_del_all(pb_event_req_t *req);

/* Engine start-up */
int pb_func_init(void);
pb_return_code_enum_t pb_init_entries(void);

/* SIM write dispatcher */
pb_return_code_enum_t pb_func_write_sim(pb_flash_info *info, sim_pb_handle_t pb_event, storage_type_t type);

#ifdef __cplusplus
}
#endif

#endif /* ZPT_UI_PB_FUNC_H */
