/*
 * pbm_transport.h - where the service's socket is and how a frame goes out
 * on it, for the client library and the modem simulator. The frame layout
 * and the message codec are in pbm_wire.h; this part does the I/O.
 */
#ifndef PBM_TRANSPORT_H
#define PBM_TRANSPORT_H

#include <cstdint>
#include <string>
#include <vector>

#include "pbm_wire.h"

namespace qmi_wire {

/* Path of the service's socket: $ZP_QMI_SOCKET, else "qmi_pbm" in the
 * folder of the IPC sockets (ipc_host_dir()). */
std::string socket_path();

/* One frame to a connected socket; false when the peer is gone. */
bool send_frame(int fd, uint8_t kind, uint16_t txn, uint16_t msg_id, const std::vector<uint8_t> &tlv);

}  // namespace qmi_wire

#endif /* PBM_TRANSPORT_H */
