/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * What travels to the vosk driver through the block SCSI generic interface: the FC transport's request and reply and
 * the driver's vendor commands. Words are in the processor's own order.
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

/* Vendor commands. */
enum {
  VOSK_BSG_VENDOR_GET_MGMT_REV = 6
};

/* A request; for vendor commands the command record follows the vendor id and may reach beyond the 20 bytes. */
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

#ifdef __cplusplus
}
#endif

#endif
