// The simulated PBM service: one thread accepts connections and answers
// requests in arrival order, then sends the record-read indications of a
// read. The card lives in memory and is saved after each change when a save
// path is set.
#include "pbm_sim.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <type_traits>
#include <utility>

#include "contacts.h"
#include "make_dirs.h"
#include "pbm_transport.h"
#include "pbm_wire.h"

namespace pbm_sim {
namespace {

constexpr int kSession = PBM_SESSION_TYPE_GLOBAL_PB_SLOT1_V01;
constexpr uint16_t kAdn = PBM_PB_TYPE_ADN_V01;

template <typename T> std::vector<uint8_t> encode_resp(uint16_t msg_id, const T &m)
{
    std::vector<uint8_t> tlv;
    qmi_wire::encode(qmi_wire::KIND_RESPONSE, msg_id, &m, sizeof m, tlv);
    return tlv;
}

qmi_response_type_v01 failure(qmi_error_type_v01 e) { return {QMI_RESULT_FAILURE_V01, e}; }

// Checks the phonebook a request addresses.
qmi_error_type_v01 check_book(int session, uint16_t pb_type)
{
    if (session != kSession)
        return QMI_ERR_INVALID_SESSION_TYPE_V01;
    if (pb_type != kAdn)
        return QMI_ERR_INVALID_PB_TYPE_V01;
    return QMI_ERR_NONE_V01;
}

// PBM number text (with num_type) to the system form; false on a character
// a card cannot store.
bool number_from_pbm(const char *text, uint32_t len, int num_type, std::string *out)
{
    out->clear();
    if (num_type == PBM_NUM_TYPE_INTERNATIONAL_V01)
        *out += '+';
    for (uint32_t i = 0; i < len; ++i) {
        const char c = text[i];
        if (c == '+' && i == 0) {
            if (out->empty())
                *out += '+';
        } else if ((c >= '0' && c <= '9') || c == '*' || c == '#' || c == 'T') {
            *out += c;
        } else if (c == 'e') {
            *out += 'P';
        } else if (c == '?') {
            *out += 'W';
        } else {
            return false;
        }
    }
    return true;
}

// The requests that change the card.
bool is_change(uint16_t msg_id)
{
    return msg_id == QMI_PBM_WRITE_RECORD_REQ_V01 || msg_id == QMI_PBM_DELETE_RECORD_REQ_V01 ||
           msg_id == QMI_PBM_DELETE_ALL_PB_RECORDS_REQ_V01;
}

void fill_instance(uint16_t id, const Record &r, pbm_record_instance_type_v01 *inst)
{
    inst->record_id = id;
    std::string n = r.number;
    inst->num_type = PBM_NUM_TYPE_UNKNOWN_V01;
    if (!n.empty() && n[0] == '+') {
        inst->num_type = PBM_NUM_TYPE_INTERNATIONAL_V01;
        n.erase(0, 1);
    }
    inst->num_plan = PBM_NUM_PLAN_ISDN_V01;
    for (char &c : n)
        c = c == 'P' ? 'e' : c == 'W' ? '?' : c;
    inst->number_len = static_cast<uint32_t>(n.size());
    std::memcpy(inst->number, n.data(), n.size());
    inst->name_len = static_cast<uint32_t>(r.name.size() * 2);
    for (size_t i = 0; i < r.name.size(); ++i) {
        inst->name[2 * i] = static_cast<char>(r.name[i] & 0xFF);
        inst->name[2 * i + 1] = static_cast<char>(r.name[i] >> 8);
    }
}

// The request and response structures of a request function.
template <typename F> struct RequestFunction;
template <typename Request, typename Response>
struct RequestFunction<qmi_error_type_v01 (Simulator::*)(const Request &, Response *,
                                                         std::vector<pbm_record_read_ind_msg_v01> *)> {
    using Req = Request;
    using Resp = Response;
};

}  // namespace

Simulator::Simulator(Card card, std::string socket_path)
    : path_(std::move(socket_path)), card_(std::move(card))
{
    if (path_.empty())
        path_ = qmi_wire::socket_path();
}

Simulator::~Simulator() { stop(); }

bool Simulator::start(unsigned delay_ms)
{
    stop();
    int wake[2];
    if (pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0)
        return false;
    wake_read_.reset(wake[0]);
    wake_write_.reset(wake[1]);
    {
        std::lock_guard<std::mutex> lk(mu_);
        stop_ = false;
        running_ = true;
    }
    thread_ = std::thread(&Simulator::run, this, delay_ms);
    return true;
}

void Simulator::stop()
{
    {
        std::lock_guard<std::mutex> lk(mu_);
        if (!running_)
            return;
        stop_ = true;
        running_ = false;
    }
    cv_.notify_all();
    const char b = 0;
    (void)!write(wake_write_.get(), &b, 1);
    thread_.join();
    wake_read_.reset();
    wake_write_.reset();
}

bool Simulator::sleep_ms(unsigned ms)
{
    std::unique_lock<std::mutex> lk(mu_);
    cv_.wait_for(lk, std::chrono::milliseconds(ms), [&] { return stop_; });
    return !stop_;
}

bool Simulator::bind_socket()
{
    sockaddr_un addr{};
    if (path_.size() >= sizeof addr.sun_path)
        return false;
    if (const size_t slash = path_.rfind('/'); slash != 0 && slash != std::string::npos)
        zp_host::make_dirs(path_.substr(0, slash).c_str(), 0770);  // a failure shows in bind
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, path_.c_str(), path_.size() + 1);
    unlink(path_.c_str());
    listen_.reset(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (listen_.valid() && (bind(listen_.get(), reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 ||
                            listen(listen_.get(), 16) != 0))
        listen_.reset();
    return listen_.valid();
}

void Simulator::run(unsigned delay_ms)
{
    if (!sleep_ms(delay_ms) || !bind_socket())
        return;
    std::vector<uint8_t> buf(qmi_wire::FRAME_MAX);
    for (;;) {
        std::vector<pollfd> fds{{wake_read_.get(), POLLIN, 0}, {listen_.get(), POLLIN, 0}};
        for (const zp_host::UniqueFd &c : conns_)
            fds.push_back({c.get(), POLLIN, 0});
        if (poll(fds.data(), fds.size(), -1) < 0 && errno != EINTR)
            break;
        std::vector<std::pair<uint16_t, std::vector<uint8_t>>> raw;
        {
            std::lock_guard<std::mutex> lk(mu_);
            if (stop_)
                break;
            raw.swap(raw_inds_);
        }
        char drain[16];
        while (read(wake_read_.get(), drain, sizeof drain) > 0) {
        }
        for (const auto &[id, tlv] : raw)
            for (const zp_host::UniqueFd &c : conns_)
                qmi_wire::send_frame(c.get(), qmi_wire::KIND_INDICATION, 0, id, tlv);
        if (fds[1].revents & POLLIN) {
            zp_host::UniqueFd c(accept4(listen_.get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (c.valid())
                conns_.push_back(std::move(c));
        }
        for (size_t i = 2; i < fds.size(); ++i) {
            if (!(fds[i].revents & (POLLIN | POLLHUP | POLLERR)))
                continue;
            const ssize_t n = recv(fds[i].fd, buf.data(), buf.size(), MSG_DONTWAIT);
            if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR)) {
                conns_.erase(std::find_if(conns_.begin(), conns_.end(),
                                          [&](const zp_host::UniqueFd &c) { return c.get() == fds[i].fd; }));
                continue;
            }
            qmi_wire::FrameHead head{};
            if (n > 0 && qmi_wire::get_head(buf.data(), static_cast<size_t>(n), &head) &&
                head.kind == qmi_wire::KIND_REQUEST)
                serve_one(fds[i].fd, head.txn,
                          {head.msg_id, buf.data() + qmi_wire::FRAME_HEAD_LEN, head.tlv_len});
        }
    }
    conns_.clear();
    listen_.reset();
    unlink(path_.c_str());
}

void Simulator::serve_one(int fd, uint16_t txn, const Request &in)
{
    Indications inds;
    std::vector<uint8_t> out;
    unsigned delay, stall = 0;
    bool silent, lost = false;
    {
        std::lock_guard<std::mutex> lk(mu_);
        ++requests_[in.msg_id];
        if (is_change(in.msg_id)) {
            std::swap(stall, change_delay_);
            std::swap(lost, change_lost_);
        }
        delay = reply_delay_;
        silent = silent_;
    }
    if (lost || (stall && !sleep_ms(stall)))
        return;
    {
        std::lock_guard<std::mutex> lk(mu_);
        out = handle(in, &inds);
    }
    if ((delay && !sleep_ms(delay)) || silent)
        return;
    qmi_wire::send_frame(fd, qmi_wire::KIND_RESPONSE, txn, in.msg_id, out);
    for (const pbm_record_read_ind_msg_v01 &ind : inds) {
        {
            std::lock_guard<std::mutex> lk(mu_);
            if (hang_up_after_ == 0) {
                hang_up_after_ = -1;
                shutdown(fd, SHUT_RDWR);  // the loop closes it on the next poll
                return;
            }
            if (hang_up_after_ > 0)
                --hang_up_after_;
            if (drop_inds_ > 0) {
                --drop_inds_;
                continue;
            }
        }
        std::vector<uint8_t> t;
        qmi_wire::encode(qmi_wire::KIND_INDICATION, QMI_PBM_RECORD_READ_IND_V01, &ind, sizeof ind, t);
        qmi_wire::send_frame(fd, qmi_wire::KIND_INDICATION, 0, QMI_PBM_RECORD_READ_IND_V01, t);
    }
}

std::vector<uint8_t> Simulator::handle(const Request &in, Indications *inds)
{
    using Answer = std::vector<uint8_t> (Simulator::*)(const Request &, Indications *);
    static constexpr struct {
        uint16_t msg_id;
        Answer answer;
    } kRequests[] = {
        {QMI_PBM_GET_PB_CAPABILITIES_REQ_V01, &Simulator::answer<&Simulator::get_capabilities>},
        {QMI_PBM_READ_RECORDS_REQ_V01, &Simulator::answer<&Simulator::read_records>},
        {QMI_PBM_WRITE_RECORD_REQ_V01, &Simulator::answer<&Simulator::write_record>},
        {QMI_PBM_DELETE_RECORD_REQ_V01, &Simulator::answer<&Simulator::delete_record>},
        {QMI_PBM_DELETE_ALL_PB_RECORDS_REQ_V01, &Simulator::answer<&Simulator::delete_all>},
    };
    for (const auto &r : kRequests)
        if (r.msg_id == in.msg_id)
            return (this->*r.answer)(in, inds);
    // An unknown request: a response of the result alone, which is what the
    // delete-all response holds.
    pbm_delete_all_pb_records_resp_msg_v01 rsp{};
    rsp.resp = failure(QMI_ERR_INVALID_QMI_CMD_V01);
    return encode_resp(QMI_PBM_DELETE_ALL_PB_RECORDS_RESP_V01, rsp);
}

template <auto On> std::vector<uint8_t> Simulator::answer(const Request &in, Indications *inds)
{
    using Req = typename RequestFunction<decltype(On)>::Req;
    using Resp = typename RequestFunction<decltype(On)>::Resp;
    Req req;
    const bool decoded =
        qmi_wire::decode(qmi_wire::KIND_REQUEST, in.msg_id, in.tlv, in.len, &req, sizeof req) == 0;
    if (!decoded)
        std::memset(&req, 0, sizeof req);
    if constexpr (std::is_same_v<Req, pbm_write_record_req_msg_v01>)
        last_write_ = req;  // for last_write(): as received, zero when malformed
    Resp rsp{};
    const qmi_error_type_v01 e = decoded ? (this->*On)(req, &rsp, inds) : QMI_ERR_MALFORMED_MSG_V01;
    if (e != QMI_ERR_NONE_V01) {
        rsp = Resp{};
        rsp.resp = failure(e);
    }
    return encode_resp(in.msg_id, rsp);
}

qmi_error_type_v01 Simulator::check_change(int session, uint16_t pb_type)
{
    if (const qmi_error_type_v01 e = check_book(session, pb_type); e != QMI_ERR_NONE_V01)
        return e;
    if (refuse_writes_ == 0)
        return QMI_ERR_NONE_V01;
    --refuse_writes_;
    return QMI_ERR_DEVICE_MEMORY_ERROR_V01;
}

qmi_error_type_v01 Simulator::get_capabilities(const pbm_get_pb_capabilities_req_msg_v01 &req,
                                               pbm_get_pb_capabilities_resp_msg_v01 *rsp, Indications *)
{
    if (const qmi_error_type_v01 e = check_book(req.phonebook_info.session_type, req.phonebook_info.pb_type);
        e != QMI_ERR_NONE_V01)
        return e;
    rsp->capability_basic_info_valid = 1;
    pbm_capability_basic_info_type_v01 &b = rsp->capability_basic_info;
    b.session_type = PBM_SESSION_TYPE_GLOBAL_PB_SLOT1_V01;
    b.pb_type = kAdn;
    b.used_records = static_cast<uint16_t>(card_.records.size());
    b.max_records = card_.max_records;
    b.max_num_len = card_.max_num_len;
    b.max_name_len = card_.max_name_len;
    rsp->num_pb_sets_valid = 1;
    rsp->num_pb_sets = 1;
    return QMI_ERR_NONE_V01;
}

qmi_error_type_v01 Simulator::read_records(const pbm_read_records_req_msg_v01 &req,
                                           pbm_read_records_resp_msg_v01 *rsp, Indications *inds)
{
    const pbm_record_info_type_v01 &ri = req.record_info;
    if (const qmi_error_type_v01 e = check_book(ri.session_type, ri.pb_type); e != QMI_ERR_NONE_V01)
        return e;
    if (ri.record_start_id < 1 || ri.record_start_id > ri.record_end_id ||
        ri.record_end_id > card_.max_records)
        return QMI_ERR_INVALID_INDEX_V01;
    uint16_t seq = 0;
    for (auto it = card_.records.lower_bound(ri.record_start_id);
         it != card_.records.end() && it->first <= ri.record_end_id; ++it) {
        if (inds->empty() || inds->back().basic_record_data.record_instances_len >= per_ind_) {
            inds->emplace_back();
            std::memset(&inds->back(), 0, sizeof inds->back());
            pbm_basic_record_data_type_v01 &b = inds->back().basic_record_data;
            b.seq_num = ++seq;
            b.session_type = PBM_SESSION_TYPE_GLOBAL_PB_SLOT1_V01;
            b.pb_type = kAdn;
        }
        pbm_basic_record_data_type_v01 &b = inds->back().basic_record_data;
        fill_instance(it->first, it->second, &b.record_instances[b.record_instances_len++]);
        ++rsp->num_of_recs;
    }
    rsp->num_of_recs_valid = 1;
    return QMI_ERR_NONE_V01;
}

qmi_error_type_v01 Simulator::write_record(const pbm_write_record_req_msg_v01 &req,
                                           pbm_write_record_resp_msg_v01 *rsp, Indications *)
{
    const pbm_record_information_type_v01 &ri = req.record_information;
    if (const qmi_error_type_v01 e = check_change(ri.session_type, ri.phonebook_type); e != QMI_ERR_NONE_V01)
        return e;
    if (ri.name_len % 2)
        return QMI_ERR_ENCODING_V01;
    Record r;
    for (uint32_t i = 0; i + 1 < ri.name_len; i += 2)
        r.name.push_back(static_cast<char16_t>(static_cast<uint8_t>(ri.name[i]) |
                                               static_cast<uint8_t>(ri.name[i + 1]) << 8));
    // The card stores the name in the encoding it needs: what does not fit
    // its alpha identifier's octets is refused, as a card would.
    const int octets = pbui::sim_name_octets(ucs2_to_utf8(r.name));
    if (octets < 0 || octets > card_.max_name_len)
        return QMI_ERR_PB_TEXT_TOO_LONG_V01;
    if (!number_from_pbm(ri.number, ri.number_len, ri.num_type, &r.number))
        return QMI_ERR_INVALID_ARG_V01;
    const size_t digits = r.number.size() - (!r.number.empty() && r.number[0] == '+');
    if (digits > card_.max_num_len)
        return QMI_ERR_PB_NUMBER_TOO_LONG_V01;
    uint16_t id = ri.record_id;
    if (id > card_.max_records)
        return QMI_ERR_INVALID_INDEX_V01;
    for (uint16_t k = 1; id == 0 && k <= card_.max_records; ++k)
        if (!card_.records.count(k))
            id = k;
    if (id == 0)
        return QMI_ERR_DEVICE_STORAGE_FULL_V01;
    card_.records[id] = r;
    changed();
    rsp->record_id_valid = omit_record_id_ ? 0 : 1;
    rsp->record_id = omit_record_id_ ? 0 : id;
    omit_record_id_ = false;
    return QMI_ERR_NONE_V01;
}

qmi_error_type_v01 Simulator::delete_record(const pbm_delete_record_req_msg_v01 &req,
                                            pbm_delete_record_resp_msg_v01 *rsp, Indications *)
{
    const pbm_record_id_type_v01 &ri = req.record_info;
    if (const qmi_error_type_v01 e = check_change(ri.session_type, ri.pb_type); e != QMI_ERR_NONE_V01)
        return e;
    if (ri.record_id < 1 || ri.record_id > card_.max_records)
        return QMI_ERR_INVALID_INDEX_V01;
    if (card_.records.erase(ri.record_id) == 0)
        return QMI_ERR_NO_ENTRY_V01;
    changed();
    rsp->record_id_valid = 1;
    rsp->record_id = ri.record_id;
    return QMI_ERR_NONE_V01;
}

qmi_error_type_v01 Simulator::delete_all(const pbm_delete_all_pb_records_req_msg_v01 &req,
                                         pbm_delete_all_pb_records_resp_msg_v01 *, Indications *)
{
    if (const qmi_error_type_v01 e =
            check_change(req.phonebook_info.session_type, req.phonebook_info.pb_type);
        e != QMI_ERR_NONE_V01)
        return e;
    card_.records.clear();
    changed();
    return QMI_ERR_NONE_V01;
}

template <typename T> void Simulator::set_locked(T &field, T value)
{
    std::lock_guard<std::mutex> lk(mu_);
    field = std::move(value);
}

void Simulator::changed()
{
    if (!save_path_.empty())
        save_card(save_path_, card_);
}

void Simulator::set_reply_delay(unsigned ms) { set_locked(reply_delay_, ms); }

void Simulator::set_silent(bool silent) { set_locked(silent_, silent); }

void Simulator::refuse_next_writes(unsigned n) { set_locked(refuse_writes_, n); }

void Simulator::delay_next_change(unsigned ms) { set_locked(change_delay_, ms); }

void Simulator::lose_next_change() { set_locked(change_lost_, true); }

void Simulator::drop_next_indications(unsigned n) { set_locked(drop_inds_, n); }

void Simulator::omit_next_record_id() { set_locked(omit_record_id_, true); }

void Simulator::set_records_per_indication(unsigned n)
{
    std::lock_guard<std::mutex> lk(mu_);
    per_ind_ = std::min<unsigned>(std::max<unsigned>(n, 1), QMI_PBM_MAX_NUM_BASIC_RECORD_INSTANCE_V01);
}

void Simulator::hang_up_after_indications(unsigned n) { set_locked(hang_up_after_, static_cast<int>(n)); }

void Simulator::send_raw_indication(uint16_t msg_id, const std::vector<uint8_t> &tlv)
{
    {
        std::lock_guard<std::mutex> lk(mu_);
        raw_inds_.emplace_back(msg_id, tlv);
    }
    const char b = 0;
    (void)!write(wake_write_.get(), &b, 1);
}

void Simulator::set_save_path(const std::string &path) { set_locked(save_path_, path); }

Card Simulator::card() const
{
    std::lock_guard<std::mutex> lk(mu_);
    return card_;
}

void Simulator::set_card(const Card &card) { set_locked(card_, card); }

unsigned Simulator::requests(uint16_t msg_id) const
{
    std::lock_guard<std::mutex> lk(mu_);
    auto it = requests_.find(msg_id);
    return it == requests_.end() ? 0 : it->second;
}

pbm_write_record_req_msg_v01 Simulator::last_write() const
{
    std::lock_guard<std::mutex> lk(mu_);
    return last_write_;
}

}  // namespace pbm_sim
