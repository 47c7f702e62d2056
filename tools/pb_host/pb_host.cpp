// pb_host: the process of module MU_ID on the host.
//
// Starts the phonebook service (mm_pb_init, which waits until the modem
// offers its phonebook service), then binds MU_ID's socket, so that no
// message reaches the service before it is ready: a client can take the
// socket's presence as the sign that the service takes requests. The IPC
// server's receive thread is the dispatcher: it hands every message with one
// of the three phonebook ids to mm_pb_proc and logs and drops any other.
//
// The main thread only waits for signals. SIGTERM or SIGINT stops the
// receive thread first (no further mm_pb_proc), then the service
// (mm_pb_fin), and the process exits 0; a stop that comes while the modem is
// still awaited ends the process at once, as nothing has started yet.
#include <signal.h>
#include <unistd.h>

#include <atomic>
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
    if (head->msg_id == MSG_ID_PB_REQ || head->msg_id == MSG_ID_PB_RSP ||
        head->msg_id == MSG_ID_PB_READ_IND) {
        (void)mm_pb_proc(msg);
        return;
    }
    PB_LOG("message id 0x%x is not for the phonebook, dropped\n", head->msg_id);
}

void start()
{
    if (mm_pb_init() != 0) {
        PB_LOG("phonebook service failed to start\n");
    } else if (zp_sdk_ipc_ret_value ret = ipc_server_start(MU_ID, dispatch, nullptr, &g_server);
               ret != IPC_OK) {
        PB_LOG("cannot bind the socket of module %d, ret = %d\n", MU_ID, ret);
        (void)mm_pb_fin();
    } else {
        PB_LOG("phonebook service ready\n");
        g_state = RUNNING;
        return;
    }
    g_state = FAILED;
    kill(getpid(), SIGUSR1);  // wakes the main thread's wait
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

    std::thread starter(start);
    int sig = 0;
    while (sigwait(&set, &sig) != 0 || (sig == SIGUSR1 && g_state != FAILED)) {
    }
    if (g_state == STARTING) {
        PB_LOG("signal %d while starting: exit\n", sig);
        _exit(0);
    }
    starter.join();
    if (g_state == FAILED)
        return 1;

    PB_LOG("signal %d: stopping\n", sig);
    ipc_server_stop(g_server);
    if (mm_pb_fin() != 0)
        PB_LOG("phonebook service did not stop cleanly\n");
    return 0;
}
