/*
 * mm_pb.h - the phonebook service inside the process of module MU_ID.
 *
 * Threads: mm_pb_init(), mm_pb_proc() and mm_pb_fin() run in the host's
 * dispatcher thread; everything else runs on the service thread, which alone
 * touches the engine, the phonebook files and the modem client. mm_pb_proc()
 * copies the message; the caller keeps its own buffer.
 */
#ifndef MM_PB_H
#define MM_PB_H

#include <stddef.h>

#include "zp_common.h"

#ifdef __cplusplus
extern "C" {
#endif

int mm_pb_init(void);
int mm_pb_proc(void *msg);
int mm_pb_fin(void);
int pb_send_response(const zp_uint8 *req_msg, zp_uint32 msg_id, const void *data, size_t len);

#ifdef __cplusplus
}
#endif

#endif /* MM_PB_H */
