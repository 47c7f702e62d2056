/*
 * pbm_sim.h - a simulated modem phonebook (PBM) service on the host QMI
 * transport, for tests (in-process) and for the demo (pbm_simd).
 *
 * The card: a profile (record count, the octets of a record's alpha
 * identifier and the longest number in digits the card takes) and its
 * filled records. A name is stored as the SIM name rule of the user
 * interfaces says (pbui::sim_name: GSM 7-bit when it can be, else UCS-2),
 * and a write whose name takes more octets is refused. Numbers
 * are kept in the system's form (digits, '*', '#', 'T', 'P', 'W', a leading
 * '+'); on the wire they travel in PBM's number text ('e' for P, '?' for W,
 * num_type 1 instead of the '+'). Names travel as UCS-2, low byte first.
 *
 * Card file (text, UTF-8, one item a line; '#' starts a comment line):
 *     card <max_records> <max_name_octets> <max_number_digits>
 *     <record_id>,<number>,<name>
 * The card line comes first; the name is the rest of its line and may hold
 * commas. Example:
 *     card 250 14 20
 *     1,+4915112345678,Anna
 *     7,0301234P5,Büro, Zentrale
 *
 * Threads: the service runs on one thread of its own; every public call is
 * thread-safe. It answers requests one at a time, like a modem would.
 */
#ifndef PBM_SIM_H
#define PBM_SIM_H

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "phonebook_manager_service_v01.h"
#include "unique_fd.h"

namespace pbm_sim {

struct Record {
    std::u16string name; /* UCS-2 characters */
    std::string number;  /* system form */
};

struct Card {
    uint16_t max_records = 250;
    uint8_t max_name_len = 14; /* octets of the alpha identifier */
    uint8_t max_num_len = 20;  /* digits, a leading '+' not counted */
    std::map<uint16_t, Record> records;
};

bool load_card(const std::string &path, Card *card, std::string *error);
bool save_card(const std::string &path, const Card &card);

/* UTF-8 to UCS-2 (characters outside the basic plane are refused) and back. */
bool utf8_to_ucs2(const std::string &utf8, std::u16string *out);
std::string ucs2_to_utf8(const std::u16string &ucs2);

class Simulator {
public:
    /* socket_path empty: the path the client library uses. */
    explicit Simulator(Card card = Card(), std::string socket_path = "");
    ~Simulator();
    Simulator(const Simulator &) = delete;
    Simulator &operator=(const Simulator &) = delete;

    /* Returns at once; the service comes up after delay_ms. */
    bool start(unsigned delay_ms = 0);
    /* Closes the service socket and every connection; start() may follow. */
    void stop();

    /* Behaviour for tests. */
    void set_reply_delay(unsigned ms);           /* answer every request this late */
    void set_silent(bool silent);                /* read requests, never answer */
    void refuse_next_writes(unsigned n);         /* write, delete, delete-all fail */
    void drop_next_indications(unsigned n);      /* record-read indications not sent */
    void omit_next_record_id();                  /* next write answer has no record number */
    void set_records_per_indication(unsigned n); /* 1..10 */
    /* The next write, delete or delete-all waits ms before it is carried
     * out and answered (a modem that stalls on the card), or is never
     * carried out nor answered (a modem that lost it). Other connections
     * wait meanwhile, as requests are answered one at a time. */
    void delay_next_change(unsigned ms);
    void lose_next_change();
    /* The next read sends n indications, then hangs up on its client as a
     * modem that restarts would (the service stays up). */
    void hang_up_after_indications(unsigned n);
    /* Sends raw TLVs as an indication to every connection (a faulty modem). */
    void send_raw_indication(uint16_t msg_id, const std::vector<uint8_t> &tlv);
    /* The card is saved to this file after every change. */
    void set_save_path(const std::string &path);

    Card card() const;
    void set_card(const Card &card);
    unsigned requests(uint16_t msg_id) const; /* requests received, by id */
    /* The last write request decoded, as received. */
    pbm_write_record_req_msg_v01 last_write() const;

private:
    using Indications = std::vector<pbm_record_read_ind_msg_v01>;
    /* One request as received: its id and its TLVs. */
    struct Request {
        uint16_t msg_id;
        const uint8_t *tlv;
        size_t len;
    };

    void run(unsigned delay_ms);
    bool bind_socket();
    void serve_one(int fd, uint16_t txn, const Request &in);
    /* Applies one request to the card (mu_ held); the response TLVs. A read
     * also leaves the indications to send after the response in *inds. */
    std::vector<uint8_t> handle(const Request &in, Indications *inds);
    /* Decodes the request into the request structure of On, lets On answer
     * it in its response structure and encodes that; a request that does
     * not decode is answered as malformed. */
    template <auto On> std::vector<uint8_t> answer(const Request &in, Indications *inds);
    /* One function per request (mu_ held): QMI_ERR_NONE_V01 with *rsp
     * filled, or the error the request fails with (nothing changed). */
    qmi_error_type_v01 get_capabilities(const pbm_get_pb_capabilities_req_msg_v01 &req,
                                        pbm_get_pb_capabilities_resp_msg_v01 *rsp, Indications *inds);
    qmi_error_type_v01 read_records(const pbm_read_records_req_msg_v01 &req,
                                    pbm_read_records_resp_msg_v01 *rsp, Indications *inds);
    qmi_error_type_v01 write_record(const pbm_write_record_req_msg_v01 &req,
                                    pbm_write_record_resp_msg_v01 *rsp, Indications *inds);
    qmi_error_type_v01 delete_record(const pbm_delete_record_req_msg_v01 &req,
                                     pbm_delete_record_resp_msg_v01 *rsp, Indications *inds);
    qmi_error_type_v01 delete_all(const pbm_delete_all_pb_records_req_msg_v01 &req,
                                  pbm_delete_all_pb_records_resp_msg_v01 *rsp, Indications *inds);
    /* A change to the card (mu_ held): the phonebook checked, then refused
     * while refuse_next_writes() lasts. */
    qmi_error_type_v01 check_change(int session, uint16_t pb_type);
    template <typename T> void set_locked(T &field, T value);
    bool sleep_ms(unsigned ms); /* false when stopped meanwhile */
    void changed();             /* mu_ held */

    std::string path_;
    mutable std::mutex mu_;
    std::condition_variable cv_;
    Card card_;
    bool stop_ = false;
    bool running_ = false;
    zp_host::UniqueFd wake_read_, wake_write_; /* wakes the service thread */
    zp_host::UniqueFd listen_;
    std::vector<zp_host::UniqueFd> conns_;
    std::thread thread_;

    unsigned reply_delay_ = 0;
    bool silent_ = false;
    unsigned refuse_writes_ = 0;
    unsigned change_delay_ = 0; /* ms */
    bool change_lost_ = false;
    unsigned drop_inds_ = 0;
    bool omit_record_id_ = false;
    unsigned per_ind_ = QMI_PBM_MAX_NUM_BASIC_RECORD_INSTANCE_V01;
    int hang_up_after_ = -1; /* indications before a hang-up; -1: none */
    std::string save_path_;
    std::map<uint16_t, unsigned> requests_;
    pbm_write_record_req_msg_v01 last_write_{};
    std::vector<std::pair<uint16_t, std::vector<uint8_t>>> raw_inds_;
};

}  // namespace pbm_sim

#endif /* PBM_SIM_H */
