// pb_host: the process of module MU_ID on the host.
//
// Starts the phonebook service (mm_pb_init), then binds MU_ID's socket so
// that no message reaches the service before it is ready: a client can take
// the socket's presence as the sign that the service takes requests. The IPC
// server's receive thread is the dispatcher: it hands every message with one
// of the three phonebook ids to mm_pb_proc and logs and drops any other.
// SIGTERM or SIGINT stops it: first the receive thread (no further
// mm_pb_proc), then the service (mm_pb_fin); the exit status is then 0.
#include <signal.h>

#include "mm_pb.h"
#include "pb_log.h"
#include "zp_ipc.h"
#include "zpt_ui_pb_api.h"

namespace {

bool is_phonebook_message(zp_uint32 id)
{
    return id == MSG_ID_PB_REQ || id == MSG_ID_PB_RSP || id == MSG_ID_PB_READ_IND;
}

void dispatch(void *msg, void * /*ctx*/)
{
    const auto *head = static_cast<const ipc_msg_head_t *>(msg);
    if (is_phonebook_message(head->msg_id)) {
        (void)mm_pb_proc(msg);
        return;
    }
    PB_LOG("message id 0x%x is not for the phonebook, dropped\n", head->msg_id);
}

}  // namespace

int main()
{
    // Every thread started from here on inherits the blocked set; only
    // sigwait below takes the stop signals.
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigaddset(&stop, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stop, nullptr);

    if (mm_pb_init() != 0) {
        PB_LOG("phonebook service failed to start\n");
        return 1;
    }
    ipc_server_pt server = nullptr;
    zp_sdk_ipc_ret_value ret = ipc_server_start(MU_ID, dispatch, nullptr, &server);
    if (ret != IPC_OK) {
        PB_LOG("cannot bind the socket of module %d, ret = %d\n", MU_ID, ret);
        (void)mm_pb_fin();
        return 1;
    }
    PB_LOG("phonebook service ready\n");

    int sig = 0;
    while (sigwait(&stop, &sig) != 0) {
    }
    PB_LOG("signal %d: stopping\n", sig);
    ipc_server_stop(server);
    if (mm_pb_fin() != 0)
        PB_LOG("phonebook service did not stop cleanly\n");
    return 0;
}
