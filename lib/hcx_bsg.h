/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Requests to the driver through the block SCSI generic nodes of the FC transport.
 *
 * Nodes: "/dev/bsg/fc_host3" for an adapter port, "/dev/bsg/rport-3:0-1" for a remote port.
 *
 * Threads: each call opens its own descriptor and closes it before it returns, so calls may run in parallel.
 * A thread that calls one of them must hold no host lock: the board is looked up and rescanned inside. The
 * exceptions are those that take a host record or a descriptor.
 *
 * Results of the vendor commands, where not said otherwise: 0; -1 no such board or its node cannot be opened;
 * -EIO the driver's interface version does not have the command, no memory, the request failed, the driver
 * answered with an error, or a null pointer. A refused command is not sent.
 *
 * Blocking: a request waits in the kernel until it is answered or its time is up, and cannot be killed
 * meanwhile. The time is one minute where not said otherwise.
 */
#ifndef LIBHCX_HCX_BSG_H
#define LIBHCX_HCX_BSG_H

#include <stdint.h>

#include "hbaapi.h"
#include "hcx_api.h"
#include "hcx_util.h"
#include "vosk_bsg.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

struct sg_io_v4;

/* ---- Header and nodes ---- */

/*
 * Sets up a request's header and zeroes the 20 bytes of the request and the 16 of the reply.
 * code: a message code; command: vendor command, else 0. timeout: milliseconds, 0 for the kernel's own.
 * Returns 0; 1 when the driver does not have the command, or for a null pointer: nothing is touched then. The
 * caller adds message code, command record, data buffers, and the request's length when it is more than 20.
 */
int bsg_init_header(struct sg_io_v4 *hdr, struct fc_bsg_request *req, struct fc_bsg_reply *reply, int code,
                    int command, uint32_t timeout);

/*
 * Opens the node of a host; works under the host's lock. The caller closes it.
 * Returns a descriptor above 2; 0 when this kind of node is switched off; a negated errno.
 */
int map_host_to_bsg(hcx_host *host);

/* The same by board number, after a rescan. -1 also for an unknown board or when this kind of node is
 * switched off. */
int map_board_to_bsg(int board);

/* The board's host, freshly scanned, with its read lock held; null when there is none. */
hcx_host *lookup_hcx_host(uint32_t board);

/*
 * Opens the node of the board's remote port whose attribute `filename` reads exactly `match_str`; the first
 * in directory order. Returns a descriptor; -1 no such board or port; a negated errno of the open.
 */
int map_rport_to_bsg(int board, const char *filename, const char *match_str);

/* By port name: "port_name" must read "0x" and 16 lower-case digits. */
int map_wwn_to_bsg(int board, uint8_t *wwn);

/* By FC address: "port_id" must read "0x" and 6 digits. -1 for an address of more than 24 bits. */
int map_did_to_bsg(int board, int did);

/*
 * FC address of the board's remote port with a node name (wwntype 0) or port name (1), after a rescan.
 * did: out. Returns 0; -1 no such board or port, or a bad argument.
 */
int map_wwn_to_port_id(int board, HBA_WWNTYPE wwntype, uint8_t *wwn, uint32_t *did);

/* ---- Requests of the FC transport ---- */

/*
 * Sends a CT request (FC-GS) on an open remote-port node.
 * inbuf, incnt: the request with its CT header; outbuf, outcnt: room for the answer.
 * Returns the bytes received; the driver's result when that is not 0; -EINVAL when CT is switched off or for
 * a null buffer; a negated errno.
 */
int send_bsg_ct(int fd, uint8_t *inbuf, uint32_t incnt, uint8_t *outbuf, uint32_t outcnt);

/* The same to the remote port with a port name, or the negative result of map_wwn_to_bsg(). tmo:
 * milliseconds, 0 for a minute. */
int send_bsg_ct_to_wwn(uint32_t board, uint8_t *wwn, uint8_t *inbuf, uint32_t incnt, uint8_t *outbuf,
                       uint32_t outcnt, uint32_t tmo);

/* The same to the remote port with an FC address, or the negative result of map_did_to_bsg(). */
int send_bsg_ct_to_did(uint32_t board, uint32_t portid, uint8_t *inbuf, uint32_t incnt, uint8_t *outbuf,
                       uint32_t outcnt);

/*
 * Sends an ELS request (FC-LS); the first byte of reqbuf is its command code.
 * rspsize: in room. An accepted request leaves it alone; for a rejected one rspbuf gets 8 bytes (1, three
 * zeros, action, reason, explanation, vendor byte), fewer when there is less room, and rspsize says how many.
 * Returns 0, accepted or rejected; -1 failure.
 */
int send_bsg_els(uint32_t board, DestID *destID, uint8_t *reqbuf, uint32_t reqsize, uint8_t *rspbuf,
                 uint32_t *rspsize);

/*
 * Sends RNID (FC-LS 0x78, general topology data) to the port with a node name (wwntype 0) or port name (1).
 * RspBufferSize: in room, out bytes received. Returns 0; 1 failure, or a reject: the record of send_bsg_els()
 * stands in pRspBuffer then.
 */
uint32_t send_bsg_els_rnid(uint32_t board, HBA_WWN *wwn, HBA_WWNTYPE wwntype, void *pRspBuffer,
                           HBA_UINT32 *RspBufferSize);

/* ---- Vendor commands ---- */

/*
 * Mailbox command (7).
 * host: its lock may be held. bsg_mbox_req, bsg_mbox_rep: 4096 bytes each, block and external data. mbOffset:
 * word of the block after which external data belong; inExtWLen, outExtWLen: their words. Returns the bytes
 * received, at most 4096; -1 the node cannot be opened; -EIO any other failure. Waits 330 seconds for the
 * commands 0x03, 0x1b, 0x1c, 0x1d, 0x81, 0x98 and 0x9c (byte 2 of the block).
 */
int send_bsg_mbox_write_read(hcx_host *host, uint8_t *bsg_mbox_req, uint8_t *bsg_mbox_rep, uint8_t mbOffset,
                             uint32_t inExtWLen, uint32_t outExtWLen);

/* The same as one exchange of several: tag and sequence number (from 1), time-out in milliseconds. */
int send_bsg_mbox_write_read_extended(hcx_host *host, uint8_t *bsg_mbox_req, uint8_t *bsg_mbox_rep,
                                      uint8_t mbOffset, uint32_t inExtWLen, uint32_t outExtWLen,
                                      uint32_t extMBoxTag, uint32_t extSeqNum, uint32_t timeout);

/*
 * Waits on a host's node for a CT request (1).
 * type_mask: its GS type; ev_req_id: process that waits; ev_reg_id: mask bit of the registration.
 * Returns a positive number when one came; -EAGAIN none within a minute; -EIO failure.
 */
int send_bsg_set_event(int fd, uint32_t type_mask, uint32_t ev_req_id, uint32_t ev_reg_id);

/*
 * Fetches the CT request that came (2).
 * ev_reg_id, ev_req_id: as in the set command. outbuf, outsz: room for it. immed_data: out, its tag; type:
 * out. Returns the bytes received; failures as above.
 */
int send_bsg_get_event(uint32_t board, uint32_t ev_reg_id, uint32_t ev_req_id, void *outbuf, uint32_t outsz,
                       uint32_t *immed_data, uint32_t *type);

/* Answers a CT request (3). tag: of the request. On failure errno says why: the driver's error, EIO without
 * one. */
int send_bsg_mgmt_response(uint32_t board, uint8_t *outbuf, uint32_t outcnt, uint32_t tag);

/* Goes into loopback (4). type: 1 internal, 2 external. timeout: milliseconds, of the request too. */
int send_bsg_config_loopback(uint32_t board, uint32_t type, uint32_t timeout);

/* Runs data through the loopback (5). Both buffers have bufSize bytes. */
int send_bsg_test_loopback(uint32_t board, uint32_t bufSize, void *XmitBuffer, void *RcvBuffer);

/* Ends the loopback of an SLI-4 adapter (10). */
int send_bsg_sli4_endloopback(uint32_t board);

/*
 * Management interface revision (6), of board 0, or of the first physical host when no board has a number.
 * major, minor: out, untouched on failure.
 */
int send_bsg_get_mgmt_rev(uint32_t *major, uint32_t *minor);

/*
 * Sends a command (8) or its data (9) to the bridge chip.
 * rsp_size: in room, out bytes received. xri: in and out, the exchange. type: a tibra_type.
 */
int send_bsg_tibra_command(uint32_t board, void *cmd_buf, uint32_t cmd_size, void *rsp_buf,
                           uint32_t *rsp_size, uint32_t *xri, int type);

/*
 * Reads the FCP priority table (12).
 * pQosConfig: numberOfEntries holds the room, afterwards what the driver has, which may be more.
 */
int send_bsg_get_fcp_priority(uint32_t board, HCX_QoSConfig *pQosConfig);

/* Replaces the FCP priority table (13). The order of the entries is kept. */
int send_bsg_set_fcp_priority(uint32_t board, HCX_QoSConfig *pQosConfig);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
