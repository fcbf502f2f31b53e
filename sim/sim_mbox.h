// SPDX-License-Identifier: BSD-3-Clause
// The adapter's firmware behind the mailbox: what commands do, what a test can change about it, and the flash. One
// MailboxUnit a host, reached with mailbox(host); touched under the machine's mutex.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim_host.h"

namespace sim {

// A command as the firmware sees it. Words are those of the adapter, big-endian in `block`.
struct MailboxCall {
  Host &host;
  std::string block;  // 256 bytes; the reply is made in place
  std::string data;   // what came with the block, the rest of the request
  uint8_t offset;     // word of the block that the extension replaces
  uint32_t in_words;  // length of the extension in and out, in words
  uint32_t out_words;
  std::string result = {};  // goes back behind the block

  [[nodiscard]] uint8_t command() const { return static_cast<uint8_t>(block[2]); }
  [[nodiscard]] uint32_t word(size_t index) const;
  void set_word(size_t index, uint32_t value);
  void set_status(uint16_t status);
};

using MailboxHandler = std::function<void(MailboxCall &)>;

// One exchange as it arrived, for tests.
struct MailboxExchange {
  uint8_t command;
  uint8_t offset;
  uint32_t in_words, out_words, tag, sequence;
  uint32_t timeout;
};

class MailboxUnit {
 public:
  // Answers busy (253) so many times before it does anything; less than 0: for good.
  int busy = 0;
  // Status that every command of this code ends with instead of being done.
  std::map<uint8_t, uint16_t> forced_status;
  // Instead of the model's own behaviour.
  std::map<uint8_t, MailboxHandler> handlers;
  std::vector<MailboxExchange> exchanges;

  // A command of several exchanges in flight.
  uint32_t tag = 0;
  std::string pending_block;
  std::vector<std::string> pending_data;
};

MailboxUnit &mailbox(Host &host);

// Whether HostSpec::region23 may hold this.
bool is_factory_region(const std::string &word);
// Flash regions; no value: the region was never initialised.
std::optional<std::string> flash_region(Host &host, int region);
void set_flash_region(Host &host, int region, std::optional<std::string> bytes);

// The table of an FCoE port, empty on others. The indices that the firmware gives out are the positions.
std::vector<Forwarder> &forwarders(Host &host);

// Commands in files of their own; each answers for a range of mailbox commands.
void run_dump_memory(MailboxCall &call);
void run_update_config(MailboxCall &call);
// MBX_SLI_CONFIG; the buffers of the command stand back to back in call.data and, as changed, in call.result.
void run_sli_config(MailboxCall &call);
// Lengths of the buffers of an MBX_SLI_CONFIG command with external buffers.
std::vector<uint32_t> sli_config_buffers(const MailboxCall &call);

}  // namespace sim
