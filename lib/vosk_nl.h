/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Events of the FC transport and of the driver, as the kernel sends them by netlink (protocol 18, SCSI transport).
 *
 * Integers are in the processor's own order; world wide names and RSCN payloads are bytes in the order of the wire.
 * A message is a struct nlmsghdr of type VOSK_NL_TRANSPORT_MSG, then a struct fc_nl_event, whose data go on behind
 * it for event_datalen bytes in all. One datagram may hold several messages.
 */
#ifndef LIBHCX_VOSK_NL_H
#define LIBHCX_VOSK_NL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum vosk_nl_numbers {
  VOSK_NL_PROTOCOL = 18,         /* netlink protocol "SCSI transport" */
  VOSK_NL_TRANSPORT_MSG = 17,    /* nlmsg_type of an event */
  VOSK_NL_VERSION = 1,           /* scsi_nl_hdr.version */
  VOSK_NL_TRANSPORT_FC = 1,      /* scsi_nl_hdr.transport */
  VOSK_NL_FC_ASYNC_EVENT = 0x100 /* scsi_nl_hdr.msgtype */
};

/* Head of every message of the SCSI transports. */
struct scsi_nl_hdr {
  uint8_t version;
  uint8_t transport;
  uint16_t magic;
  uint16_t msgtype;
  uint16_t msglen; /* bytes from here on, a whole number of 8 */
};

struct fc_nl_event {
  struct scsi_nl_hdr snlh;
  uint64_t seconds; /* time stamp */
  uint64_t vendor_id;
  uint16_t host_no;       /* kernel SCSI host number */
  uint16_t event_datalen; /* bytes of event data */
  uint32_t event_num;     /* sequence number */
  uint32_t event_code;    /* a vosk_host_event_code */
  uint32_t event_data;    /* first word; of a vendor unique event its vosk_nl_event_type */
};

/* Kinds of vendor unique events; each is one bit. */
enum vosk_nl_event_type {
  VOSK_NL_EVENT_LINK = 0x1,
  VOSK_NL_EVENT_RSCN = 0x2,
  VOSK_NL_EVENT_CT = 0x4,
  VOSK_NL_EVENT_DUMP = 0x10,
  VOSK_NL_EVENT_TEMPERATURE = 0x20,
  VOSK_NL_EVENT_VPORT_RSCN = 0x40,
  VOSK_NL_EVENT_ELS = 0x80,
  VOSK_NL_EVENT_FABRIC = 0x100,
  VOSK_NL_EVENT_SCSI = 0x200,
  VOSK_NL_EVENT_BOARD = 0x400,
  VOSK_NL_EVENT_ADAPTER = 0x800
};

/* Data of an RSCN: the payload goes on for payload_length bytes. */
struct vosk_rscn_event_header {
  uint32_t event_type;
  uint32_t payload_length;
  uint32_t rscn_payload[1];
};

/* Data of a temperature event. */
struct vosk_temp_event {
  uint32_t event_type;
  uint32_t event_code;
  uint32_t data;
};

/*
 * Data of the SAN diagnostic events, VOSK_NL_EVENT_ELS to VOSK_NL_EVENT_ADAPTER. The subcategory is one bit; sd_api.h
 * names them. wwpn and wwnn are the other port's.
 */
struct vosk_to_libhcx_header {
  uint32_t event_type;
  uint32_t subcategory;
};

struct vosk_els_event_header {
  uint32_t event_type;
  uint32_t subcategory;
  uint8_t wwpn[8];
  uint8_t wwnn[8];
};

struct vosk_lsrjt_event {
  struct vosk_els_event_header header;
  uint32_t command;
  uint32_t reason_code;
  uint32_t explanation;
};

struct vosk_logo_event {
  struct vosk_els_event_header header;
  uint8_t logo_wwpn[8];
};

struct vosk_fabric_event_header {
  uint32_t event_type;
  uint32_t subcategory;
  uint8_t wwpn[8];
  uint8_t wwnn[8];
};

struct vosk_fcprdchkerr_event {
  struct vosk_fabric_event_header header;
  uint32_t lun;
  uint32_t opcode;
  uint32_t fcpiparam;
};

struct vosk_scsi_event_header {
  uint32_t event_type;
  uint32_t subcategory;
  uint32_t lun;
  uint8_t wwpn[8];
  uint8_t wwnn[8];
};

struct vosk_scsi_varqueuedepth_event {
  struct vosk_scsi_event_header header;
  uint32_t oldval;
  uint32_t newval;
};

struct vosk_scsi_check_condition_event {
  struct vosk_scsi_event_header header;
  uint8_t opcode;
  uint8_t sense_key;
  uint8_t asc;
  uint8_t ascq;
};

struct vosk_board_event_header {
  uint32_t event_type;
  uint32_t subcategory;
};

struct vosk_adapter_event_header {
  uint32_t event_type;
  uint32_t subcategory;
};

#ifdef __cplusplus
}
#endif

#endif
