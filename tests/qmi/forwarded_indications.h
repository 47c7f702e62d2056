/* forwarded_indications.h - the service's queue reduced to what a whole-SIM
 * read needs, for the module's PBM client test and the read benchmark.
 *
 * on_message runs on the IPC receive thread (the handler given to
 * ipc_server_start for MU_ID) and keeps each record-read indication's
 * payload; pop, on the caller's thread, takes the oldest one, waiting for it
 * up to a limit. */
#ifndef FORWARDED_INDICATIONS_H
#define FORWARDED_INDICATIONS_H

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include "pb_msg.h"
#include "phonebook_manager_service_v01.h"
#include "zp_ipc_host.h"
#include "zpt_ui_pb_api.h"

struct ForwardedIndications {
    std::mutex mu;
    std::condition_variable cv;
    std::deque<std::vector<uint8_t>> queue;

    // Only indications of the structure's size: a payload of another size
    // never reaches the store.
    static void on_message(void *msg, void *ctx)
    {
        auto *self = static_cast<ForwardedIndications *>(ctx);
        const auto *head = static_cast<const ipc_msg_head_t *>(msg);
        if (head->msg_id != MSG_ID_PB_READ_IND || head->length != sizeof(pbm_record_read_ind_msg_v01))
            return;
        const uint8_t *payload = pb_msg_payload(msg);
        std::lock_guard<std::mutex> lk(self->mu);
        self->queue.emplace_back(payload, payload + head->length);
        self->cv.notify_all();
    }

    bool pop(std::vector<uint8_t> *out, std::chrono::milliseconds wait)
    {
        std::unique_lock<std::mutex> lk(mu);
        if (!cv.wait_for(lk, wait, [&] { return !queue.empty(); }))
            return false;
        *out = std::move(queue.front());
        queue.pop_front();
        return true;
    }
};

#endif
