// The phonebook service inside the process of module MU_ID.
//
// The host's dispatcher thread calls mm_pb_proc() for each phonebook message;
// it checks the message and keeps a private copy (mem_malloc_ex) in one of
// two queues, and keeps its own buffer:
// - client requests go on the IPC library's queue, which is bounded; a
//   request it refuses is answered PB_RCODE_NODEPUSH_ERR at once;
// - record-read indications, which only this process sends (the modem
//   client's callback), go on a list of the service's own that refuses
//   none: a read that lost records would never end. Its length is bounded
//   by the card: one read sends at most one indication per record, and
//   each copy keeps only the records it carries.
// The service thread takes the indications first, then one request at a
// time; it runs the engine operation a request names, answers the sender,
// and frees each copy. All engine, file and modem work happens on that one
// thread. When the thread may sleep in the queue's receive, an indication
// put on the list wakes it with an empty inner message on the queue.
// mm_pb_fin() closes both queues to new messages, wakes the thread and lets
// it finish the request in hand (its answer goes out), joins it, answers
// every request still queued PB_RCODE_NODEPUSH_ERR ("not taken, ask
// again"), frees the rest and closes the modem client. The queue itself
// lives as long as the process and serves a later mm_pb_init().
#include <pthread.h>

#include <atomic>
#include <cstring>

#include "mm_pb.h"
#include "pb_log.h"
#include "pb_msg.h"
#include "pb_qmi.h"
#include "zp_mem.h"
#include "zpt_ui_pb_func.h"

namespace {

enum : zp_uint16 {
    SITE_QUEUED_COPY = PB_SITE_SERVICE + 1,  // copy made by mm_pb_proc
    SITE_RECEIVED = PB_SITE_SERVICE + 2,     // copy freed by the service thread
    SITE_REFUSED = PB_SITE_SERVICE + 3,      // copy the queue refused
    SITE_RESPONSE = PB_SITE_SERVICE + 4,     // response buffer
    SITE_WAKE = PB_SITE_SERVICE + 5,         // wake-up message
    SITE_OWN = PB_SITE_SERVICE + 6,          // an indication on the own list
};

// Id of the inner message that wakes the thread; it is none of the
// phonebook's ids, so the thread frees it and looks at the running flag and
// the own list again.
constexpr zp_uint32 kMsgIdWake = 0;

// Indications kept at most: more than a read of a whole card sends (at
// least one record each), so only a modem that floods the service with
// indications outside any read reaches it.
constexpr unsigned kOwnMax = 2 * PB_MAX_ENTRIES;

// An indication's copy on the own list: the link, then the message (head
// and the basic records only).
struct OwnMsg {
    OwnMsg *next;
    size_t pad;  // keeps the message 8-aligned on 32-bit targets too
    void *msg() { return this + 1; }
};
static_assert(sizeof(OwnMsg) % 8 == 0, "message after the link stays aligned");

ipc_mq_cb_pt mm_pb_mq;
ipc_addr_t g_self;  // MU_ID's own address: where forwarded indications come from
pthread_t mm_pb_pid;
bool g_started;  // mm_pb_pid names a thread not yet joined
// Written by the host's thread, read by the service thread before each
// receive. mm_pb_proc() looks at it and queues under g_gate, so that
// nothing is queued once mm_pb_fin() has cleared it.
std::atomic<int> mm_pb_running_flag{0};
pthread_mutex_t g_gate = PTHREAD_MUTEX_INITIALIZER;

// The own list (under g_own_lock) and whether a wake-up message sits on
// the queue, so that a burst of indications queues one, not one each.
pthread_mutex_t g_own_lock = PTHREAD_MUTEX_INITIALIZER;
OwnMsg *g_own_head;
OwnMsg *g_own_tail;
unsigned g_own_count;
std::atomic<bool> g_wake_queued{false};

pb_return_code_enum_t pb_call_init_entries(pb_event_req_t *) { return pb_init_entries(); }

// What the service does with each action; any action not listed is
// answered PB_RCODE_ARGSERR.
struct Action {
    zp_int32 event;
    pb_return_code_enum_t (*run)(pb_event_req_t *);
};

// clang-format off
constexpr Action kActions[] = {
    {SIM_PB_HANDLE_TYPE_GETALL, pb_call_init_entries},
    {SIM_PB_HANDLE_TYPE_ADD, pb_func_add_entry},
    {SIM_PB_HANDLE_TYPE_EDIT, pb_func_edit_entry},
    {SIM_PB_HANDLE_TYPE_DEL, pb_func_del_entry},
    {SIM_PB_HANDLE_TYPE_DEL_ANY, pb_func_del_any},
    {SIM_PB_HANDLE_TYPE_DEL_ALL, pb_func_del_all},
};
// clang-format on

// Copies the payload into a zeroed body: a short payload leaves the rest 0,
// a long one is cut, so nothing past the message is ever read.
void pb_take_payload(const void *msg, void *body, size_t size)
{
    const auto *head = static_cast<const ipc_msg_head_t *>(msg);
    std::memset(body, 0, size);
    size_t n = head->length < size ? head->length : size;
    std::memcpy(body, pb_msg_payload(msg), n);
}

void pb_terminate_text(pb_flash_info *info)
{
    info->name[PB_TEXT_LEN - 1] = '\0';
    info->num[PB_TEXT_LEN - 1] = '\0';
    info->email[PB_TEXT_LEN - 1] = '\0';
}

void pb_handle_request(const void *msg)
{
    pb_event_req_t req;
    pb_take_payload(msg, &req, sizeof req);
    pb_terminate_text(&req.value);

    pb_rsp_t rsp{0, 0};
    PB_LOG("IPC RECV: EVENT = %d\n", req.event);

    const Action *action = nullptr;
    for (const Action &a : kActions) {
        if (a.event == req.event) {
            action = &a;
            break;
        }
    }
    if (action == nullptr) {
        PB_LOG("Action = %d not supported, ignore\n", req.event);
        rsp.pb_result = PB_RCODE_ARGSERR;
    } else {
        rsp.pb_result = action->run(&req);
        // An add answers with the record index left in the request, whatever
        // the result.
        if (req.event == SIM_PB_HANDLE_TYPE_ADD)
            rsp.value = static_cast<zp_int32>(req.value.sim_index);
    }
    (void)pb_send_response(static_cast<const zp_uint8 *>(msg), MSG_ID_PB_RSP, &rsp, sizeof rsp);
}

void pb_handle_read_ind(const void *msg)
{
    // Records belong in the file only while a read runs: stray ones (of a
    // lost modem client, or sent from inside at any other time) are not
    // part of the card as read.
    if (g_sim_module.pb_sim_read_flag != 2) {
        PB_LOG("read indication while no read runs, dropped\n");
        return;
    }
    pbm_record_read_ind_msg_v01 ind;
    pb_take_payload(msg, &ind, sizeof ind);
    (void)pb_qmi_read_cb(&ind);
}

OwnMsg *pb_own_pop()
{
    pthread_mutex_lock(&g_own_lock);
    OwnMsg *m = g_own_head;
    if (m != nullptr) {
        g_own_head = m->next;
        if (g_own_head == nullptr)
            g_own_tail = nullptr;
        --g_own_count;
    }
    pthread_mutex_unlock(&g_own_lock);
    return m;
}

void pb_own_free_all()
{
    while (OwnMsg *m = pb_own_pop())
        mem_free_ex(pb_tid16(), SITE_OWN, 0, m);
}

void *mm_pb_thread(void *)
{
    (void)pb_func_init();
    for (;;) {
        if (mm_pb_running_flag.load() != 1)
            break;
        // The card's records before any request: a get-all then sees the
        // read as far as it has come.
        if (OwnMsg *own = pb_own_pop()) {
            pb_handle_read_ind(own->msg());
            mem_free_ex(pb_tid16(), SITE_OWN, 0, own);
            continue;
        }

        void *msg = nullptr;
        if (ipc_mq_recv(mm_pb_mq, &msg, -1) != IPC_OK)
            continue;  // a failed receive: look at the flag again

        const auto *head = static_cast<const ipc_msg_head_t *>(msg);
        zp_uint32 type = head ? head->msg_type : static_cast<zp_uint32>(IPC_MSG_TYPE_BND);
        zp_uint32 id = head ? head->msg_id : 0;
        PB_LOG("IPC RECV: TYPE = 0x%x, ID =0x%x\n", type, id);

        if (head != nullptr && id == MSG_ID_PB_REQ)
            pb_handle_request(msg);
        else if (head != nullptr && type == IPC_INNER_MQ && id == kMsgIdWake)
            g_wake_queued.store(false);  // before the own list is looked at again
        else
            PB_LOG("IPC RECV: ID =0x%x ignored\n", id);

        mem_free_ex(pb_tid16(), SITE_RECEIVED, 0, msg);
    }
    return nullptr;
}

// Checks a message before it is queued, so that nothing the service would
// not handle takes room or memory: a request at most a request body long,
// a read indication at most an indication long and sent from MU_ID's own
// socket, which only this process holds (the QMI callback's forwarding).
// Any other id is never handled. Returns why a message is refused, or null.
const char *pb_msg_refusal(const void *msg)
{
    const auto *head = static_cast<const ipc_msg_head_t *>(msg);
    switch (head->msg_id) {
    case MSG_ID_PB_REQ: return head->length <= sizeof(pb_event_req_t) ? nullptr : "request too long";
    case MSG_ID_PB_READ_IND: {
        if (head->length > sizeof(pbm_record_read_ind_msg_v01))
            return "read indication too long";
        const ipc_addr_t *from = pb_msg_sender(msg);
        const auto &own = g_self.addr;
        if (from->addr.sun_family != own.sun_family ||
            std::strncmp(from->addr.sun_path, own.sun_path, sizeof own.sun_path) != 0)
            return "read indication from outside the service";
        return nullptr;
    }
    default: return "ignored";
    }
}

// A request that is not taken (the queue is full, or the service stops) is
// answered at once, so that its client does not wait for its time limit.
void pb_refuse_request(const void *msg, const char *why)
{
    const auto *head = static_cast<const ipc_msg_head_t *>(msg);
    PB_LOG("%s: message ID =0x%x refused\n", why, head->msg_id);
    if (head->msg_id == MSG_ID_PB_REQ && head->msg_type != IPC_INNER_MQ) {
        const pb_rsp_t rsp{0, PB_RCODE_NODEPUSH_ERR};
        (void)pb_send_response(static_cast<const zp_uint8 *>(msg), MSG_ID_PB_RSP, &rsp, sizeof rsp);
    }
}

// Queues an empty inner message, unless one is queued already: the receive
// has no time limit, so the thread must be handed something to see the
// cleared flag or the own list. A full queue needs none: the thread looks
// at both before its next receive.
bool pb_wake_thread()
{
    if (g_wake_queued.exchange(true))
        return true;
    void *wake = mem_malloc_ex(pb_tid16(), SITE_WAKE, 0, IPC_MSG_HEAD_LEN);
    zp_sdk_ipc_ret_value ret = IPC_SYS_ERR;
    if (wake != nullptr) {
        ipc_msg_head_t head{IPC_INNER_MQ, kMsgIdWake, 0, 0};
        std::memcpy(wake, &head, sizeof head);
        ret = ipc_mq_send(mm_pb_mq, wake, 0, 0);
        if (ret != IPC_OK)
            mem_free_ex(pb_tid16(), SITE_WAKE, 0, wake);
    }
    if (ret != IPC_OK)
        g_wake_queued.store(false);
    return ret == IPC_OK || ret == IPC_MQ_FULL;
}

// Puts a copy of a record-read indication, its records only, on the own
// list (g_gate held, service running).
void pb_own_put(const void *msg)
{
    const auto *head = static_cast<const ipc_msg_head_t *>(msg);
    size_t keep = head->length;
    constexpr size_t kRecords = offsetof(pbm_basic_record_data_type_v01, record_instances);
    if (keep >= kRecords) {
        zp_uint32 n = 0;
        std::memcpy(&n, pb_msg_payload(msg) + offsetof(pbm_basic_record_data_type_v01, record_instances_len),
                    sizeof n);
        if (n <= QMI_PBM_MAX_NUM_BASIC_RECORD_INSTANCE_V01 &&
            kRecords + n * sizeof(pbm_record_instance_type_v01) < keep)
            keep = kRecords + n * sizeof(pbm_record_instance_type_v01);
    }
    auto *own = static_cast<OwnMsg *>(
        mem_malloc_ex(pb_tid16(), SITE_OWN, 0, sizeof(OwnMsg) + IPC_MSG_HEAD_LEN + keep));
    if (own == nullptr) {
        PB_LOG("read indication lost: no memory\n");
        return;
    }
    own->next = nullptr;
    ipc_msg_head_t copy = *head;
    copy.length = static_cast<zp_uint32>(keep);
    std::memcpy(own->msg(), &copy, sizeof copy);
    std::memcpy(static_cast<zp_uint8 *>(own->msg()) + IPC_MSG_HEAD_LEN, pb_msg_payload(msg), keep);

    pthread_mutex_lock(&g_own_lock);
    const bool room = g_own_count < kOwnMax;
    if (room) {
        (g_own_tail != nullptr ? g_own_tail->next : g_own_head) = own;
        g_own_tail = own;
        ++g_own_count;
    }
    pthread_mutex_unlock(&g_own_lock);
    if (!room) {
        PB_LOG("read indication dropped: %u waiting already\n", kOwnMax);
        mem_free_ex(pb_tid16(), SITE_OWN, 0, own);
        return;
    }
    (void)pb_wake_thread();
}

// Queues a copy of a client request (g_gate held, service running).
void pb_queue_request(const void *msg)
{
    const auto *head = static_cast<const ipc_msg_head_t *>(msg);
    const size_t size = pb_msg_delivered_size(head);
    void *copy = mem_malloc_ex(pb_tid16(), SITE_QUEUED_COPY, 0, size);
    if (copy == nullptr) {
        pb_refuse_request(msg, "no memory");
        return;
    }
    std::memcpy(copy, msg, size);
    if (ipc_mq_send(mm_pb_mq, copy, 0, 0) != IPC_OK) {
        mem_free_ex(pb_tid16(), SITE_REFUSED, 0, copy);
        pb_refuse_request(msg, "queue full");
    }
}

}  // namespace

int mm_pb_init(void)
{
    if (ipc_get_addr_by_id(MU_ID, 0, &g_self) != IPC_OK)
        return -1;
    (void)pb_qmi_init();
    // Made once and kept: a later start finds what an earlier stop left.
    if (mm_pb_mq == nullptr && ipc_mq_create(0, &mm_pb_mq) != IPC_OK) {
        mm_pb_mq = nullptr;
        return -1;
    }
    mm_pb_running_flag.store(1);
    if (pthread_create(&mm_pb_pid, nullptr, mm_pb_thread, nullptr) != 0)
        return -1;
    g_started = true;
    return 0;
}

int mm_pb_proc(void *msg)
{
    if (msg == nullptr)
        return -1;
    const auto *head = static_cast<const ipc_msg_head_t *>(msg);
    PB_LOG("IPC FORWARD: TYPE = 0x%x, ID =0x%x\n", head->msg_type, head->msg_id);
    // No sender address: it could not be answered.
    if (head->msg_type == IPC_INNER_MQ)
        return -1;
    if (const char *why = pb_msg_refusal(msg)) {
        PB_LOG("IPC RECV: ID =0x%x, %u bytes: %s\n", head->msg_id, head->length, why);
        return 0;
    }

    pthread_mutex_lock(&g_gate);
    if (mm_pb_running_flag.load() != 1 || mm_pb_mq == nullptr)
        pb_refuse_request(msg, "service not running");  // an indication is dropped
    else if (head->msg_id == MSG_ID_PB_READ_IND)
        pb_own_put(msg);
    else
        pb_queue_request(msg);
    pthread_mutex_unlock(&g_gate);
    return 0;
}

int mm_pb_fin(void)
{
    pthread_mutex_lock(&g_gate);
    mm_pb_running_flag.store(0);
    pthread_mutex_unlock(&g_gate);
    // A stop that can't wake the thread leaves it to be retried.
    if (!g_started || !pb_wake_thread())
        return -1;
    // The request in hand is finished and answered first.
    if (pthread_join(mm_pb_pid, nullptr) != 0)
        return -1;
    g_started = false;
    g_wake_queued.store(false);
    for (void *left = nullptr; ipc_mq_recv(mm_pb_mq, &left, 0) == IPC_OK;) {
        pb_refuse_request(left, "service stopping");
        mem_free_ex(pb_tid16(), SITE_RECEIVED, 0, left);
    }
    pb_own_free_all();
    (void)pb_qmi_fin();
    return 0;
}

int pb_send_response(const zp_uint8 *req_msg, zp_uint32 msg_id, const void *data, size_t len)
{
    if (req_msg == nullptr) {
        PB_LOG("null pointer of req_msg\n");
        return -1;
    }
    const auto *req_head = reinterpret_cast<const ipc_msg_head_t *>(req_msg);
    const ipc_addr_t *src = pb_msg_sender(req_msg);
    if (src == nullptr) {
        PB_LOG("null pointer of ipc source addr\n");
        return -1;
    }
    ipc_addr_t addr;
    std::memcpy(&addr, src, sizeof addr);

    pb_ipc_msg rsp(msg_id, data, len, SITE_RESPONSE);
    if (rsp.get() == nullptr) {
        PB_LOG("alloc IPC memory failed\n");
        return -1;
    }
    rsp.head()->session_id = req_head->session_id;
    rsp.head()->msg_type = req_head->msg_type == IPC_SYN_REQ ? IPC_SYN_RSP : IPC_ASY_MSG;

    const zp_sdk_ipc_ret_value err = ipc_msg_send_asy(&addr, rsp.get(), static_cast<zp_uint32>(len));
    if (err != IPC_OK) {
        PB_LOG("IPC send response failed, err = %lu\n", static_cast<unsigned long>(err));
        return -1;
    }
    return 0;
}
