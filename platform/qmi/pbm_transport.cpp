// The socket side of the host transport: the service's path and sending one
// frame as one datagram.
#include "pbm_transport.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "zp_ipc_host.h"

namespace qmi_wire {

std::string socket_path()
{
    const char *path = std::getenv("ZP_QMI_SOCKET");
    if (path && *path)
        return path;
    return std::string(ipc_host_dir()) + "/qmi_pbm";  // beside the IPC sockets
}

bool send_frame(int fd, uint8_t kind, uint16_t txn, uint16_t msg_id, const std::vector<uint8_t> &tlv)
{
    if (tlv.size() > FRAME_MAX - FRAME_HEAD_LEN)
        return false;
    std::vector<uint8_t> frame(FRAME_HEAD_LEN + tlv.size());
    put_head(frame.data(), FrameHead{kind, txn, msg_id, static_cast<uint16_t>(tlv.size())});
    if (!tlv.empty())
        std::memcpy(frame.data() + FRAME_HEAD_LEN, tlv.data(), tlv.size());
    ssize_t n;
    do
        n = send(fd, frame.data(), frame.size(), MSG_NOSIGNAL);
    while (n < 0 && errno == EINTR);
    return n == static_cast<ssize_t>(frame.size());
}

}  // namespace qmi_wire
