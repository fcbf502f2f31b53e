/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * What travels to the vosk driver through the block SCSI generic interface: the FC transport's request and
 * reply and the driver's vendor commands. Words are in the processor's own order.
 */
#ifndef LIBHCX_VOSK_BSG_H
#define LIBHCX_VOSK_BSG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Message codes of the FC transport. */
#define FC_BSG_RPT_ELS 0x40000001u
#define FC_BSG_RPT_CT 0x40000002u
#define FC_BSG_HST_VENDOR 0x800000ffu

/* PCI vendor id type in the top byte, the adapter vendor's PCI id at the bottom. */
#define VOSK_BSG_VENDOR_ID 0x0100000000001d5aull

/* Vendor commands: the first word of every command record. There is no command 11. */
enum vosk_bsg_vendor_command {
  VOSK_BSG_VENDOR_SET_CT_EVENT = 1,
  VOSK_BSG_VENDOR_GET_CT_EVENT = 2,
  VOSK_BSG_VENDOR_SEND_MGMT_RESP = 3,
  VOSK_BSG_VENDOR_DIAG_MODE = 4, /* set loopback */
  VOSK_BSG_VENDOR_DIAG_TEST = 5, /* run loopback */
  VOSK_BSG_VENDOR_GET_MGMT_REV = 6,
  VOSK_BSG_VENDOR_MBOX = 7,
  VOSK_BSG_VENDOR_TIBRA_CMD = 8,
  VOSK_BSG_VENDOR_TIBRA_DATA = 9,
  VOSK_BSG_VENDOR_DIAG_MODE_END = 10, /* SLI-4 */
  VOSK_BSG_VENDOR_GET_FCP_PRIORITY = 12,
  VOSK_BSG_VENDOR_SET_FCP_PRIORITY = 13
};

/* A request; for vendor commands the command record follows the vendor id and may reach beyond the 20 bytes.
 */
struct fc_bsg_request {
  uint32_t msgcode;
  union {
    struct {
      uint8_t els_code;
    } __attribute__((packed)) r_els;
    struct {
      uint32_t preamble_word0;
      uint32_t preamble_word1;
      uint32_t preamble_word2;
    } __attribute__((packed)) r_ct;
    struct {
      uint64_t vendor_id;
      uint32_t vendor_cmd[2];
    } __attribute__((packed)) h_vendor;
    uint8_t raw[16];
  } __attribute__((packed)) rqst_data;
} __attribute__((packed));

struct fc_bsg_ctels_reply {
  uint32_t status; /* 0 accepted, 1 rejected */
  struct {
    uint8_t action;
    uint8_t reason_code;
    uint8_t reason_explanation;
    uint8_t vendor_unique;
  } rjt_data;
};

struct fc_bsg_reply {
  uint32_t result; /* 0, or a negative errno of the driver */
  uint32_t reply_payload_rcv_len;
  union {
    struct fc_bsg_ctels_reply ctels_reply;
    uint32_t vendor_rsp[2];
  } reply_data;
};

/* ---- Command records, from offset 12 of the request on; reply records, from offset 8 of the reply on ----
 */

/* Waits for a CT request of one kind. */
struct set_ct_event {
  uint32_t command;
  uint32_t type_mask; /* GS type of the CT requests that are wanted */
  uint32_t ev_req_id; /* process that waits */
  uint32_t ev_reg_id; /* mask bit of the registration */
};

/* Fetches the CT request that came; the pair of numbers is that of the set command. Data in: the request. */
struct get_ct_event {
  uint32_t command;
  uint32_t ev_reg_id;
  uint32_t ev_req_id;
};

struct get_ct_event_reply {
  uint32_t immed_data; /* tag for the response */
  uint32_t type;
};

/* Answers a CT request. Data out: the response. */
struct send_mgmt_resp {
  uint32_t command;
  uint32_t tag;
};

/* Goes into loopback (4), or ends it (10). */
struct diag_mode_set {
  uint32_t command;
  uint32_t type;    /* 1 internal, 2 external */
  uint32_t timeout; /* milliseconds */
};

/* Runs data through the loopback. Data out: what is sent; data in: what comes back. */
struct diag_mode_test {
  uint32_t command;
};

/* Management interface revision. */
struct get_mgmt_rev {
  uint32_t command;
};

struct MgmtRevInfo {
  uint32_t a_Major;
  uint32_t a_Minor;
};

struct get_mgmt_rev_reply {
  struct MgmtRevInfo info;
};

/* A mailbox command. Data out and in: 4096 bytes each, the 256-byte block and what follows it. */
struct hcx_mbox_req {
  uint32_t command;
  uint32_t mbOffset;   /* word of the block after which external data belong */
  uint32_t inExtWLen;  /* words of external data that go along */
  uint32_t outExtWLen; /* words of external data that come back */
  uint32_t extMboxTag; /* the same in all exchanges of one extended command, else 0 */
  uint32_t extSeqNum;  /* 1, 2, ... within an extended command, else 0 */
};

/* A command (8) to the bridge chip, or its data (9). Data out: the command; data in: the response. */
struct tibra_command {
  uint32_t cmd;
  uint32_t xri; /* exchange that a data phase belongs to */
};

struct tibra_response {
  uint32_t xri;
};

/* Data in: number of entries, entries. */
struct get_vosk_fcp_pri_rules {
  uint32_t command;
  uint32_t number_of_entries;
};

/* Data out: number of entries, entries, four zero bytes. */
struct set_vosk_fcp_pri_rules {
  uint32_t command;
  uint32_t number_of_entries;
};

#ifdef __cplusplus
}
#endif

#endif
