// A responder in a forked process of its own: serves MU_ID and answers by
// message id.
#ifndef IPC_PEER_H
#define IPC_PEER_H

#include <sys/types.h>

#include "zp_ipc.h"

enum PeerMsg : zp_uint32 {
    kEcho = 1,   // answer: the payload with every byte inverted
    kSlow = 2,   // first 4 bytes: milliseconds to wait before the echo
    kCount = 3,  // answer: {messages delivered before, ones with a bad sender}
    kIds = 4,    // answer: 64 session ids made in the responder
    kQuit = 5,   // no answer; the responder stops and exits
    kAnswer = 0x99,
};

class Peer {
public:
    Peer();  // starts the responder and waits for its socket
    ~Peer();
    // Stops it; its exit status: 0 when it gave back every buffer.
    int finish();
    bool running() const { return pid_ > 0; }

private:
    pid_t pid_ = -1;
};

#endif
