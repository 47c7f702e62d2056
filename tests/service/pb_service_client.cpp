// A client process for the end-to-end tests.
//   pb_service_client <sim|flash> <prefix> <count>: adds <count> entries
//     named <prefix>-<k>; exit 0 when every add was answered PB_RCODE_OK.
//   pb_service_client flood <ms> [<file>]: sends requests the service answers
//     at once until an exchange fails (the service has gone) or <ms> pass;
//     exit 0 unless an answer was wrong. A refusal ("not taken, ask again")
//     is a right answer: a full queue, or a stop under way. <file> is made
//     at the first answer.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "zp_ipc.h"
#include "zpt_ui_pb_api.h"

int main(int argc, char **argv)
{
    if ((argc == 3 || argc == 4) && std::strcmp(argv[1], "flood") == 0) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::atoi(argv[2]));
        const char *answered = argc == 4 ? argv[3] : nullptr;
        pb_event_req_t req{};
        req.event = SIM_PB_HANDLE_TYPE_GETCOUNT;
        for (pb_rsp_t rsp{}; std::chrono::steady_clock::now() < end;) {
            size_t len = sizeof rsp;
            // Every request taken is answered, also at a stop: a lost one
            // holds this client for the whole limit, longer than the test
            // waits for it.
            if (simlib_send_request_sync(MU_ID, MSG_ID_PB_REQ, &req, sizeof req, &rsp, &len, 60000) != 0)
                return 0;
            if (rsp.pb_result != PB_RCODE_ARGSERR && rsp.pb_result != PB_RCODE_NODEPUSH_ERR)
                return 1;
            if (answered != nullptr) {
                if (FILE *f = std::fopen(answered, "w"))
                    std::fclose(f);
                answered = nullptr;
            }
        }
        return 0;
    }
    if (argc != 4)
        return 2;
    const storage_type_t type = std::strcmp(argv[1], "sim") == 0 ? STORAGE_TYPE_SIM : STORAGE_TYPE_FLASH;
    for (int k = 0; k < std::atoi(argv[3]); ++k) {
        pb_flash_info e{};
        std::snprintf(e.name, sizeof e.name, "%s-%d", argv[2], k);
        std::snprintf(e.num, sizeof e.num, "+49%d", k);
        if (simlib_pb_write_handler(type, SIM_PB_HANDLE_TYPE_ADD, &e) != PB_RCODE_OK)
            return 1;
    }
    return 0;
}
