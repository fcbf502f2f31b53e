// SPDX-License-Identifier: BSD-3-Clause
// The FCoE forwarders (FCFs) that an adapter port knows, asked one by one with READ_FCF_TABLE. The adapter's answer
// says which entry comes next; a chain that comes back to where it was ends the call. No state; any thread.
#include <algorithm>
#include <bitset>
#include <cstring>
#include <memory>
#include <new>

#include "hcx_fcoe.h"

namespace {

using namespace hcx;

constexpr char self[] = "HCX_FCoEGetFCFList";
constexpr size_t block_size = 256, mailbox_size = block_size + sizeof(hcx_sli4_read_fcf_table_cmd_rsp);
constexpr uint32_t mailbox_words = mailbox_size / 4;
constexpr uint32_t payload = 564;
constexpr uint16_t no_index = 0xFFFF;
static_assert(mailbox_words == 209);

struct Exchange {
  alignas(MAILBOX_t) uint8_t mailbox[mailbox_size];
  uint32_t result;

  uint32_t area_word(unsigned index) const { return hcx_mbox_word(mailbox, block_size / 4 + index); }
  hcx_sli4_read_fcf_table_cmd_rsp response() const {
    hcx_sli4_read_fcf_table_cmd_rsp response;
    memcpy(&response, mailbox + block_size, sizeof response);
    return response;
  }
};

void fill_request(Exchange &exchange, uint16_t index) {
  constexpr uint32_t one_buffer = 1 << 3, request_length = 24;
  hcx_sli4_read_fcf_table_cmd request{};
  request.subSystem = 0x0C;
  request.opCode = 0x08;
  request.payload_length = payload;
  request.fcf_index = index;
  uint8_t *mailbox = exchange.mailbox;
  memset(mailbox, 0, mailbox_size);
  hcx_mbox_set_command(mailbox, MBX_SLI_CONFIG);
  hcx_mbox_set_word(mailbox, 1, one_buffer);
  hcx_mbox_set_word(mailbox, 2, request_length);
  hcx_mbox_set_word(mailbox, 8, mailbox_size - block_size);
  memcpy(mailbox + block_size, &request, sizeof request);
}

// 0 when the exchange brought an entry.
uint32_t ask(uint32_t board, uint16_t index, Exchange &exchange) {
  constexpr uint32_t retries = 1, retry_wait = 100;
  const auto word = [&exchange](unsigned i) { return exchange.area_word(i); };
  fill_request(exchange, index);
  libhcx_syslog(LOG_UTIL, "%s - fcf_cmd for fcf index x%04x %08x %08x %08x %08x %08x %08x %08x %08x", self,
                index, word(0), word(1), word(2), word(3), word(4), word(5), word(6), word(7));
  const uint32_t result = HCX_IssueMboxWithRetryV2(board, reinterpret_cast<MAILBOX_t *>(exchange.mailbox),
                                                   mailbox_words, retries, retry_wait);
  libhcx_syslog(LOG_UTIL, "%s - fcf_rsp rc %x %08x %08x %08x %08x %08x %08x %08x %08x", self, result, word(0),
                word(1), word(2), word(3), word(4), word(5), word(6), word(7));
  if (result != 0) return result;
  const hcx_sli4_read_fcf_table_cmd_rsp response = exchange.response();
  if (response.status != 0) {
    libhcx_syslog(LOG_ERROR, "%s - fcf response status x%04x", self, response.status);
    return 1;
  }
  if (response.actual_length != payload) {
    libhcx_syslog(LOG_ERROR, "%s - fcf response length incorrect: %d expected but got %d", self,
                  static_cast<int>(payload), static_cast<int>(response.actual_length));
    return 1;
  }
  return 0;
}

void fill_entry(const hcx_sli4_read_fcf_table_cmd_rsp &from, HCX_FCoEFCFInfo &to) {
  to = {};
  memcpy(to.fabricName, &from.fabric_name0, sizeof to.fabricName);
  memcpy(to.switchName, &from.switch_name0, sizeof to.switchName);
  memcpy(to.mac, &from.mac0, sizeof to.mac);
  to.state = from.fcf_available == 1 ? 1 : 0;
  memcpy(to.vlanBitmap, from.vlan_bitmap, sizeof to.vlanBitmap);
  memcpy(to.fcMap, &from.fcMap0, sizeof to.fcMap);
  to.reserved1 = from.fcfValid;
  to.lkaPeriod = from.fip_keep_alive;
  to.priority = from.fip_priority;
}

// Asks for all entries, fills what there is room for; 0 when the chain came to its end.
uint32_t list_entries(uint32_t board, HCX_FCoEFCFList *list, uint32_t &count) {
  const std::unique_ptr<std::bitset<0x10000>> asked(new (std::nothrow) std::bitset<0x10000>);
  if (!asked) {
    libhcx_syslog(LOG_ERROR, "%s - out of memory", self);
    return 1;
  }
  Exchange exchange;
  uint16_t index = no_index;
  do {
    asked->set(index);
    if (const uint32_t result = ask(board, index, exchange)) return result;
    const hcx_sli4_read_fcf_table_cmd_rsp response = exchange.response();
    if (response.fcfValid != 0 && ++count <= list->numberOfEntries)
      fill_entry(response, list->entries[count - 1]);
    index = response.next_valid_fcf_index;
    if (index != no_index && asked->test(index)) {
      libhcx_syslog(LOG_ERROR, "%s - board %d fcf index x%04x comes again", self, static_cast<int>(board),
                    index);
      return 1;
    }
  } while (index != no_index);
  return 0;
}

// Whether the port is logged into a fabric, and 0; or the result for a port that cannot be served.
uint32_t read_fabric(uint32_t board, bool &active) {
  const HostRef host = board_host(board);
  if (const uint32_t refusal = fcoe::check_port(self, board, host)) return refusal;
  HBA_PORTATTRIBUTES port{};
  if (hcx_sysfs_read_port(&host->port, &port) != 0) {
    libhcx_syslog(LOG_ERROR, "%s - board %d read port failed", self, static_cast<int>(board));
    return 1;
  }
  active = wwn_load(port.FabricName.wwn) != 0;
  return 0;
}

}  // namespace

uint32_t HCX_FCoEGetFCFList(uint32_t board, HCX_FCoEFCFList *pFCFList) {
  constexpr uint32_t more_data = 7;
  HCX_TRACE();
  if (!pFCFList) {
    HCX_LOG(LOG_ERROR, "no pFCFList");
    return 1;
  }
  if (!fcoe::check_version(__func__, board, pFCFList->version)) return fcoe::wrong_version;
  bool active = false;
  if (const uint32_t refusal = read_fabric(board, active)) return refusal;
  uint32_t count = 0;
  if (const uint32_t result = list_entries(board, pFCFList, count)) return result;
  const bool too_many = count > pFCFList->numberOfEntries;
  pFCFList->version = fcoe::version;
  pFCFList->numberOfEntries = static_cast<uint16_t>(std::min<uint32_t>(count, UINT16_MAX));
  pFCFList->nActiveFCFs = active ? 1 : 0;
  return too_many ? more_data : 0;
}
