/*
 * pb_qmi_link.h - the modem client's link as the engine sees it (internal).
 *
 * The modem may restart. A PBM request that fails at the transport (not
 * with a PBM result) loses the client and marks the SIM phonebook as not
 * read. All three run on the service thread only.
 */
#ifndef PB_QMI_LINK_H
#define PB_QMI_LINK_H

/* True once a request failed at the transport, until a new client is made. */
bool pb_qmi_lost();
/* Replaces a lost client when the modem offers its service again (0), or
 * leaves it lost for the next try (-1); it never waits for the modem. */
int pb_qmi_reconnect();
/* While a read runs without progress, checks that the modem is still there;
 * if not, the client is lost and the read ends as not read. */
void pb_qmi_check_read();

#endif /* PB_QMI_LINK_H */
