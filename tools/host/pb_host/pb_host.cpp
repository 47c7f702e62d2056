// pb_host: the process of module MU_ID on the host.
//
// Takes MU_ID's socket first: the IPC library makes or checks the IPC
// folder, locks the module for this process, takes over a socket left by a
// dead process and binds it. When another live process serves MU_ID, or the
// folder is refused, pb_host says so and exits 1 having changed nothing, in
// particular not the running service's SIM phonebook file. Only then does it
// start the phonebook service (mm_pb_init, which waits until the modem
// offers its phonebook service). Until the service runs, each request is
// answered PB_RCODE_INIT_ERR ("not ready yet, ask again"); from then on the
// IPC server's receive thread, the dispatcher, hands every message with one
// of the three phonebook ids to mm_pb_proc and logs and drops any other.
//
// The main thread only waits for signals. SIGTERM or SIGINT stops the
// service first (mm_pb_fin: the request in hand is carried out and answered,
// those still queued and any that come meanwhile are refused), then the
// receive thread, while the socket the answers go out from is still there;
// the process exits 0. A stop that comes while the modem is still awaited
// releases the socket and ends the process at once.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <thread>

#include "mm_pb.h"
#include "pb_log.h"
#include "zp_ipc_host.h"
#include "zpt_ui_pb_api.h"

namespace {

enum { STARTING, RUNNING, FAILED };
std::atomic<int> g_state{STARTING};
ipc_server_pt g_server = nullptr;

void dispatch(void *msg, void * /*ctx*/)
{
    const auto *head = static_cast<const ipc_msg_head_t *>(msg);
    if (head->msg_id != MSG_ID_PB_REQ && head->msg_id != MSG_ID_PB_RSP &&
        head->msg_id != MSG_ID_PB_READ_IND) {
        PB_LOG("message id 0x%x is not for the phonebook, dropped\n", head->msg_id);
        return;
    }
    if (g_state.load() == RUNNING) {
        (void)mm_pb_proc(msg);
    } else if (head->msg_id == MSG_ID_PB_REQ && head->msg_type != IPC_INNER_MQ) {
        const pb_rsp_t rsp{0, PB_RCODE_INIT_ERR};
        (void)pb_send_response(static_cast<const zp_uint8 *>(msg), MSG_ID_PB_RSP, &rsp, sizeof rsp);
    }
}

void start()
{
    if (mm_pb_init() != 0) {
        PB_LOG("phonebook service failed to start\n");
        g_state = FAILED;
        kill(getpid(), SIGUSR1);  // wakes the main thread's wait
        return;
    }
    PB_LOG("phonebook service ready\n");
    g_state = RUNNING;
}

}  // namespace

int main()
{
    // Every thread started from here on inherits the blocked set; only the
    // wait below takes these signals.
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);

    ipc_addr_t self{};
    (void)ipc_get_addr_by_id(MU_ID, 0, &self);
    if (zp_sdk_ipc_ret_value ret = ipc_server_start(MU_ID, dispatch, nullptr, &g_server); ret != IPC_OK) {
        std::fprintf(stderr,
                     "pb_host: cannot serve module %d at %s (IPC result %d): %s; nothing was changed\n",
                     MU_ID, self.addr.sun_path, ret,
                     ret == IPC_REJECT ? "another process serves it, or the IPC folder is refused"
                                       : "the IPC folder or socket could not be set up");
        return 1;
    }

    std::thread starter(start);
    int sig = 0;
    while (sigwait(&set, &sig) != 0 || (sig == SIGUSR1 && g_state != FAILED)) {
    }
    if (g_state == STARTING) {
        // The starter may still wait for the modem: it is left to end with
        // the process.
        PB_LOG("signal %d while starting: exit\n", sig);
        starter.detach();
        ipc_server_stop(g_server);
        _exit(0);
    }
    starter.join();
    if (g_state == FAILED) {
        ipc_server_stop(g_server);
        return 1;
    }

    PB_LOG("signal %d: stopping\n", sig);
    const int fin = mm_pb_fin();
    ipc_server_stop(g_server);
    if (fin != 0)
        PB_LOG("phonebook service did not stop cleanly\n");
    return 0;
}
