// The one builder of outgoing phonebook messages and the one look-up of a
// module's address, shared by the client requests, the service's responses
// and the forwarding of the modem's read indications.
#include "pb_msg.h"

#include <cstring>

#include "pb_log.h"
#include "zp_mem.h"

pb_ipc_msg::pb_ipc_msg(zp_uint32 msg_id, const void *data, size_t len, zp_uint16 site)
    : p_(ipc_memory_assign(static_cast<zp_uint32>(len), 0)), site_(site)
{
    if (p_ == nullptr)
        return;
    std::memset(p_, 0, IPC_MSG_HEAD_LEN);
    head()->msg_id = msg_id;
    head()->length = static_cast<zp_uint32>(len);
    if (data != nullptr)
        std::memcpy(pb_msg_payload(p_), data, len);
}

pb_ipc_msg::~pb_ipc_msg() { mem_free_ex(pb_tid16(), site_, 0, p_); }

bool pb_ipc_addr_of(zp_uint32 dest_id, ipc_addr_t *addr, const char *caller)
{
    std::memset(addr, 0, sizeof *addr);
    const zp_sdk_ipc_ret_value ret = ipc_get_addr_by_id(dest_id, 0, addr);
    if (ret != IPC_OK) {
        PB_LOG_FOR(caller, "IPC get addr failed, dest_id = %lu, ret = %lu\n",
                   static_cast<unsigned long>(dest_id), static_cast<unsigned long>(ret));
        return false;
    }
    return true;
}
