/*
 * pb_qmi_link.h - the modem client's link as the engine sees it (internal).
 *
 * The modem may restart. A PBM request that fails at the transport (not
 * with a PBM result) loses the client and marks the SIM phonebook as not
 * read. All run on the service thread only.
 */
#ifndef PB_QMI_LINK_H
#define PB_QMI_LINK_H

#include "zpt_ui_pb_api.h"

/* True once a request failed at the transport, until a new client is made. */
bool pb_qmi_lost();
/* True when the last request was sent and its answer did not come within
 * its time limit: the modem may still carry it out. */
bool pb_qmi_unanswered();
/* Replaces a lost client when the modem offers its service again (0), or
 * leaves it lost for the next try (-1); it never waits for the modem. */
int pb_qmi_reconnect();
/* Starts a read of the whole SIM phonebook into a fresh file. Restarts of
 * stalled reads are counted until a read ends or is given up. */
void pb_qmi_start_read();
/* While a read runs: when no record came for a while although records are
 * missing, starts it again into a fresh file, a few times, then ends it as
 * not read. PB_RCODE_READED_ERR while the read goes on, PB_RCODE_READ_ERR
 * when it was given up (the next get-all starts a new one). */
pb_return_code_enum_t pb_qmi_check_read();

#endif /* PB_QMI_LINK_H */
