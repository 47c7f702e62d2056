// Host QMI client library for the PBM service: handles, the notifier, the
// synchronous request path and the receive thread that runs the indication
// callback.
//
// Ownership and threads: a handle is a heap object listed in a registry, so
// that a stale or unknown handle is refused instead of followed. A client
// owns one socket and one receive thread; a notifier owns one watch thread
// and initialises (and at release tears down) the caller's signal. A request
// waits on the client's condition variable for the receive thread to post
// its response; requests on one client may come from several threads, but a
// handle is never released while another thread still uses it.
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

#include "pbm_transport.h"
#include "pbm_wire.h"
#include "qmi_service_object.h"
#include "unique_fd.h"

namespace {

// Marks a service entry that qmi_client_get_service_list filled.
constexpr unsigned int kServiceEntryMark = 0x50424d31u;

struct Pending {
    uint16_t txn;
    uint16_t msg_id;
    bool done;
    std::vector<uint8_t> tlv;
};

}  // namespace

struct qmi_client_struct {
    bool notifier = false;
    zp_host::UniqueFd fd;
    qmi_client_ind_cb ind_cb = nullptr;
    void *ind_cb_data = nullptr;
    qmi_cci_os_signal_type *sig = nullptr;
    std::atomic<bool> stopping{false};
    std::thread thread;

    std::mutex mu;  // guards everything below
    std::condition_variable cv;
    bool gone = false;
    uint16_t next_txn = 1;
    std::vector<Pending *> pending;
};

namespace {

std::mutex g_registry_mu;
std::set<qmi_client_struct *> g_registry;

bool is_live(qmi_client_struct *c, bool notifier)
{
    std::lock_guard<std::mutex> lk(g_registry_mu);
    return c && g_registry.count(c) && c->notifier == notifier;
}

// A connection to the service; holds nothing when it is not up.
zp_host::UniqueFd connect_service()
{
    const std::string path = qmi_wire::socket_path();
    sockaddr_un addr{};
    if (path.size() >= sizeof addr.sun_path)
        return zp_host::UniqueFd();
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    zp_host::UniqueFd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (fd.valid() && connect(fd.get(), reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0)
        fd.reset();
    return fd;
}

void signal_set(qmi_cci_os_signal_type *sig)
{
    pthread_mutex_lock(&sig->mutex);
    sig->sig_set = 1;
    pthread_cond_signal(&sig->cond);
    pthread_mutex_unlock(&sig->mutex);
}

// Watches for the service: each time it comes up the caller's signal is set;
// a held connection tells when it goes away again.
void notifier_loop(qmi_client_struct *c)
{
    while (!c->stopping.load()) {
        const zp_host::UniqueFd fd = connect_service();
        if (fd.valid()) {
            signal_set(c->sig);
            pollfd p{fd.get(), POLLIN, 0};
            while (!c->stopping.load()) {
                const int r = poll(&p, 1, 20);
                if (r > 0) {
                    char b;
                    const ssize_t n = recv(fd.get(), &b, 1, MSG_DONTWAIT);
                    if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR))
                        break;  // the service went away
                }
            }
        }
        for (int i = 0; i < 10 && !c->stopping.load(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void receive_loop(qmi_client_struct *c)
{
    std::vector<uint8_t> buf(qmi_wire::FRAME_MAX);
    for (;;) {
        const ssize_t n = recv(c->fd.get(), buf.data(), buf.size(), 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        qmi_wire::FrameHead head{};
        if (!qmi_wire::get_head(buf.data(), static_cast<size_t>(n), &head))
            continue;  // a torn or oversized frame is dropped
        const uint8_t *tlv = buf.data() + qmi_wire::FRAME_HEAD_LEN;
        if (head.kind == qmi_wire::KIND_RESPONSE) {
            std::lock_guard<std::mutex> lk(c->mu);
            for (Pending *p : c->pending)
                if (p->txn == head.txn && p->msg_id == head.msg_id && !p->done) {
                    p->tlv.assign(tlv, tlv + head.tlv_len);
                    p->done = true;
                    c->cv.notify_all();
                }
        } else if (head.kind == qmi_wire::KIND_INDICATION && c->ind_cb) {
            c->ind_cb(c, head.msg_id, const_cast<uint8_t *>(tlv), head.tlv_len, c->ind_cb_data);
        }
    }
    std::lock_guard<std::mutex> lk(c->mu);
    c->gone = true;
    c->cv.notify_all();
}

void add_to_registry(qmi_client_struct *c)
{
    std::lock_guard<std::mutex> lk(g_registry_mu);
    g_registry.insert(c);
}

}  // namespace

extern "C" {

qmi_client_error_type qmi_client_notifier_init(qmi_idl_service_object_type service_obj,
                                               qmi_client_os_params *os_params, qmi_client_type *user_handle)
{
    if (!is_pbm_object(service_obj) || !os_params || !user_handle)
        return QMI_CLIENT_PARAM_ERR;
    os_params->sig_set = 0;
    os_params->timed_out = 0;
    pthread_condattr_init(&os_params->attr);
    if (pthread_condattr_setclock(&os_params->attr, CLOCK_MONOTONIC) == 0)
        os_params->clock = CLOCK_MONOTONIC;
    else
        os_params->clock = CLOCK_REALTIME;
    pthread_cond_init(&os_params->cond, &os_params->attr);
    pthread_mutex_init(&os_params->mutex, nullptr);

    auto *c = new qmi_client_struct;
    c->notifier = true;
    c->sig = os_params;
    add_to_registry(c);
    c->thread = std::thread(notifier_loop, c);
    *user_handle = c;
    return QMI_NO_ERR;
}

qmi_client_error_type qmi_client_get_service_list(qmi_idl_service_object_type service_obj,
                                                  qmi_service_info *service_info_array,
                                                  unsigned int *num_entries, unsigned int *num_services)
{
    if (!is_pbm_object(service_obj))
        return QMI_CLIENT_PARAM_ERR;
    const unsigned int up = connect_service().valid() ? 1 : 0;
    if (num_services)
        *num_services = up;
    if (num_entries) {
        const unsigned int n = service_info_array ? std::min(*num_entries, up) : 0;
        for (unsigned int i = 0; i < n; ++i) {
            std::memset(&service_info_array[i], 0, sizeof service_info_array[i]);
            service_info_array[i].info[0] = kServiceEntryMark;
            service_info_array[i].info[1] = i;  // instance
        }
        *num_entries = n;
    }
    return up ? QMI_NO_ERR : QMI_SERVICE_ERR;
}

qmi_client_error_type qmi_client_init(qmi_service_info *service_info, qmi_idl_service_object_type service_obj,
                                      qmi_client_ind_cb ind_cb, void *ind_cb_data,
                                      qmi_client_os_params * /*os_params*/, qmi_client_type *user_handle)
{
    if (!is_pbm_object(service_obj) || !user_handle || !service_info ||
        service_info->info[0] != kServiceEntryMark)
        return QMI_CLIENT_PARAM_ERR;
    zp_host::UniqueFd fd = connect_service();
    if (!fd.valid())
        return QMI_SERVICE_ERR;
    auto *c = new qmi_client_struct;
    c->fd = std::move(fd);
    c->ind_cb = ind_cb;
    c->ind_cb_data = ind_cb_data;
    add_to_registry(c);
    c->thread = std::thread(receive_loop, c);
    *user_handle = c;
    return QMI_NO_ERR;
}

qmi_client_error_type qmi_client_release(qmi_client_type user_handle)
{
    {
        std::lock_guard<std::mutex> lk(g_registry_mu);
        if (!user_handle || !g_registry.count(user_handle))
            return QMI_CLIENT_INVALID_CLNT;
        if (user_handle->thread.get_id() == std::this_thread::get_id())
            return QMI_INTERNAL_ERR;  // from inside the callback: it would wait for itself
        g_registry.erase(user_handle);
    }
    qmi_client_struct *c = user_handle;
    c->stopping.store(true);
    if (c->notifier) {
        c->thread.join();
        pthread_mutex_destroy(&c->sig->mutex);
        pthread_cond_destroy(&c->sig->cond);
        pthread_condattr_destroy(&c->sig->attr);
    } else {
        shutdown(c->fd.get(), SHUT_RDWR);
        c->thread.join();
    }
    delete c;  // closes the connection
    return QMI_NO_ERR;
}

qmi_client_error_type qmi_client_send_msg_sync(qmi_client_type user_handle, unsigned int msg_id,
                                               void *req_c_struct, unsigned int req_c_struct_len,
                                               void *resp_c_struct, unsigned int resp_c_struct_len,
                                               unsigned int timeout_msecs)
{
    if (!is_live(user_handle, false))
        return QMI_CLIENT_INVALID_CLNT;
    uint32_t resp_need = 0;
    if (msg_id > 0xffffu ||
        !qmi_wire::c_struct_len(qmi_wire::KIND_RESPONSE, static_cast<uint16_t>(msg_id), &resp_need))
        return QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND;
    if (!resp_c_struct || resp_c_struct_len < resp_need)
        return QMI_IDL_LIB_BUFFER_TOO_SMALL;
    const auto id = static_cast<uint16_t>(msg_id);
    std::vector<uint8_t> tlv;
    const int enc = qmi_wire::encode(qmi_wire::KIND_REQUEST, id, req_c_struct, req_c_struct_len, tlv);
    if (enc != QMI_IDL_LIB_NO_ERR)
        return enc;

    qmi_client_struct *c = user_handle;
    Pending p{0, id, false, {}};
    {
        std::lock_guard<std::mutex> lk(c->mu);
        if (c->gone)
            return QMI_SERVICE_ERR;
        if (++c->next_txn == 0)
            c->next_txn = 1;
        p.txn = c->next_txn;
        c->pending.push_back(&p);
    }
    const bool sent = qmi_wire::send_frame(c->fd.get(), qmi_wire::KIND_REQUEST, p.txn, id, tlv);
    std::unique_lock<std::mutex> lk(c->mu);
    auto ready = [&] { return p.done || c->gone; };
    if (sent) {
        if (timeout_msecs == 0)
            c->cv.wait(lk, ready);
        else
            c->cv.wait_for(lk, std::chrono::milliseconds(timeout_msecs), ready);
    }
    c->pending.erase(std::find(c->pending.begin(), c->pending.end(), &p));
    if (!p.done)
        return sent && !c->gone ? QMI_TIMEOUT_ERR : QMI_SERVICE_ERR;
    lk.unlock();
    return qmi_wire::decode(qmi_wire::KIND_RESPONSE, id, p.tlv.data(), p.tlv.size(), resp_c_struct,
                            resp_c_struct_len);
}

qmi_client_error_type qmi_client_message_decode(qmi_client_type user_handle,
                                                qmi_idl_type_of_message_type req_resp_ind,
                                                unsigned int message_id, const void *p_src,
                                                unsigned int src_len, void *p_dst, unsigned int dst_len)
{
    if (!is_live(user_handle, false))
        return QMI_CLIENT_INVALID_CLNT;
    if (message_id > 0xffffu || req_resp_ind < QMI_IDL_REQUEST || req_resp_ind > QMI_IDL_INDICATION)
        return QMI_IDL_LIB_MESSAGE_ID_NOT_FOUND;
    return qmi_wire::decode(req_resp_ind, static_cast<uint16_t>(message_id),
                            static_cast<const uint8_t *>(p_src), src_len, p_dst, dst_len);
}

}  // extern "C"
