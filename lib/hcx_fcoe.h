// SPDX-License-Identifier: BSD-3-Clause
// What the FCoE calls share: the checks in front of each, and the table of forwarders as the adapter answers for it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "hcx_bytes.h"
#include "libhcx.h"

// READ_FCF_TABLE: the request, behind the mailbox block.
struct hcx_sli4_read_fcf_table_cmd {
  uint8_t domain;
  uint8_t port_number;
  uint8_t subSystem;
  uint8_t opCode;
  hcx::be32 time_out;
  hcx::le32 payload_length;
  uint8_t reserved1[4];
  uint8_t reserved2[2];
  hcx::be16 fcf_index;  // 0xffff: the first entry
  uint8_t reserved3[4];
};

// The response, in the same place.
struct hcx_sli4_read_fcf_table_cmd_rsp {
  uint8_t domain;
  uint8_t port_number;
  uint8_t subSystem;
  uint8_t opCode;
  uint8_t reserved1[2];
  uint8_t additional_status;
  uint8_t status;
  hcx::le32 payload_length;
  hcx::le32 actual_length;
  hcx::be32 event_tag;
  uint8_t reserved3[2];
  hcx::be16 next_valid_fcf_index;  // 0xffff: this was the last one
  hcx::be32 max_receive_size;
  hcx::le32 fip_keep_alive;
  hcx::le32 fip_priority;
  uint8_t mac0, mac1, mac2, mac3, mac4, mac5;
  uint8_t fcf_available;
  uint8_t mac_address_provider;
  uint8_t fabric_name0, fabric_name1, fabric_name2, fabric_name3;
  uint8_t fabric_name4, fabric_name5, fabric_name6, fabric_name7;
  uint8_t fcMap0, fcMap1, fcMap2;
  uint8_t fcfValid;
  hcx::be16 fcf_index;
  hcx::be16 fcf_state;
  uint8_t vlan_bitmap[512];
  uint8_t switch_name0, switch_name1, switch_name2, switch_name3;
  uint8_t switch_name4, switch_name5, switch_name6, switch_name7;
};

static_assert(sizeof(hcx_sli4_read_fcf_table_cmd) == 24 &&
              offsetof(hcx_sli4_read_fcf_table_cmd, fcf_index) == 18);
static_assert(sizeof(hcx_sli4_read_fcf_table_cmd_rsp) == 580 &&
              offsetof(hcx_sli4_read_fcf_table_cmd_rsp, mac0) == 36 &&
              offsetof(hcx_sli4_read_fcf_table_cmd_rsp, vlan_bitmap) == 60);

namespace hcx::fcoe {

constexpr uint8_t version = 1;  // of the callers' records
constexpr uint32_t wrong_version = 4;

// False for a record of another version; it then holds the right one.
bool check_version(const char *caller, uint32_t board, uint8_t &version);
// 0, or the result for a board without host, or with a port that is no FCoE port.
uint32_t check_port(const char *caller, uint32_t board, const HostRef &host);

}  // namespace hcx::fcoe
