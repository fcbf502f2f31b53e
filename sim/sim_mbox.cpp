// SPDX-License-Identifier: BSD-3-Clause
// The driver's mailbox pass-through and the firmware's command table. A command that the firmware does not model
// completes with success and its block unchanged; commands of several exchanges are put together by tag and sequence
// number as the driver does it. Runs under the machine's mutex.
#include "sim_mbox.h"

#include <algorithm>
#include <cerrno>
#include <nlohmann/json.hpp>

#include "sim_areas.h"
#include "sim_bytes.h"
#include "sim_machine.h"

namespace sim {

namespace {
constexpr uint32_t kVendorMailbox = 7;
constexpr size_t kBlock = 256, kBuffer = 4096;
constexpr uint16_t kBusy = 253;

enum Command : uint8_t {
  read_nv = 2,
  read_rev = 17,
  dump_memory = 23,
  update_config = 27,
  beacon = 42,
  read_event_log = 56,
  biu_diag64 = 132,
  sli_config = 155,
};

// Of the revisions a word by word, most are the firmware's level; word 6 holds the feature and FC-PH levels.
void run_read_rev(MailboxCall &call) {
  const bool npiv = call.host.spec().npiv != "NPIV Not Supported";
  call.set_word(2, 0x00010203);
  call.set_word(3, 0x00000002);
  call.set_word(6, npiv ? 0x06030903 : 0x06030803);
  std::string name = call.host.spec().firmware;
  name.resize(16);
  put_bytes(call.block, 4 * 9, name);
}

// The names that stand in the adapter's flash.
void run_read_nv(MailboxCall &call) {
  put_be(call.block, 4 * 4, call.host.spec().wwnn, 8);
  put_be(call.block, 4 * 6, call.host.spec().wwpn, 8);
}

// Lights that blink until the next command.
void run_beacon(MailboxCall &call) {
  call.host.state()["beacon"] = call.word(1);
  call.host.machine().touch();
}

void run_read_event_log(MailboxCall &call) {
  if ((call.word(1) & 1U << 29) != 0) return;
  const size_t size = std::min<size_t>(call.word(3) & 0xffffff, kBuffer - kBlock);
  std::string log = "event log of " + call.host.name() + "\n";
  log.resize(size);
  call.result = log;
}

// What goes out on the wire comes in again.
void run_biu_diag(MailboxCall &call) {
  const size_t sent = std::min<size_t>(call.word(2) & 0xffffff, call.data.size());
  const size_t room = std::min<size_t>(call.word(5) & 0xffffff, kBuffer - kBlock);
  call.result = call.data.substr(0, sent);
  call.result.resize(room);
}

void run(MailboxCall &call) {
  MailboxUnit &unit = mailbox(call.host);
  if (const auto forced = unit.forced_status.find(call.command()); forced != unit.forced_status.end()) {
    call.set_status(forced->second);
    return;
  }
  call.set_status(0);
  if (const auto own = unit.handlers.find(call.command()); own != unit.handlers.end()) {
    own->second(call);
    return;
  }
  switch (call.command()) {
    case read_nv:
      return run_read_nv(call);
    case beacon:
      return run_beacon(call);
    case read_rev:
      return run_read_rev(call);
    case dump_memory:
      return run_dump_memory(call);
    case update_config:
      return run_update_config(call);
    case read_event_log:
      return run_read_event_log(call);
    case biu_diag64:
      return run_biu_diag(call);
    case sli_config:
      return run_sli_config(call);
    default:
      return;
  }
}

// Several exchanges make one command: buffers go out one by one before it is done, or come back one by one after.
// Which of the two it is follows from the operation code.
bool writes_buffers(const MailboxCall &call) {
  const bool embedded = (call.word(1) & 1) != 0;
  const uint32_t request = embedded ? call.word(6) : static_cast<uint32_t>(get_be(call.data, 0, 4));
  const uint32_t opcode = request & 0xff, subsystem = request >> 8 & 0xff;
  return embedded ? subsystem == 1 && opcode == 0xac : subsystem == 0x0c && opcode == 9;
}

void reply(BsgCall &bsg, const std::string &block, const std::string &data) {
  bsg.data_in = block + data;
  bsg.data_in.resize(std::max(bsg.data_in.size(), std::min<size_t>(kBuffer, bsg.data_in_size)));
}

void join(const std::vector<std::string> &parts, std::string &whole) {
  whole.clear();
  for (const std::string &part : parts)
    whole += part;
}

void first_exchange(BsgCall &bsg, MailboxUnit &unit, MailboxCall &call, const std::vector<uint32_t> &sizes) {
  unit.pending_block = call.block;
  unit.pending_data.clear();
  for (const uint32_t size : sizes)
    unit.pending_data.emplace_back(size, '\0');
  unit.pending_data[0] = call.data.substr(0, sizes[0]);
  unit.pending_data[0].resize(sizes[0]);
  if (sizes.size() > 1 && writes_buffers(call)) {
    reply(bsg, call.block, call.data);
    return;
  }
  join(unit.pending_data, call.data);
  run(call);
  call.result.resize(call.data.size());
  size_t at = 0;
  for (std::string &part : unit.pending_data) {
    part = call.result.substr(at, part.size());
    at += part.size();
  }
  reply(bsg, call.block, unit.pending_data[0]);
}

void later_exchange(BsgCall &bsg, MailboxUnit &unit, MailboxCall &call, uint32_t sequence) {
  const size_t index = sequence - 1;
  if (index >= unit.pending_data.size()) {
    bsg.result = -EINVAL;
    return;
  }
  // Only buffers travel in the later exchanges; the block waits here.
  const std::string block = unit.pending_block;
  MailboxCall whole{.host = call.host,
                    .block = block,
                    .data = unit.pending_data[0],
                    .offset = call.offset,
                    .in_words = call.in_words,
                    .out_words = call.out_words};
  if (!writes_buffers(whole)) {
    reply(bsg, unit.pending_data[index], "");
    return;
  }
  unit.pending_data[index] = bsg.data_out.substr(0, unit.pending_data[index].size());
  unit.pending_data[index].resize(unit.pending_data[index].size());
  if (sequence < unit.pending_data.size()) {
    reply(bsg, block, "");
    return;
  }
  join(unit.pending_data, whole.data);
  run(whole);
  unit.pending_data.clear();
  reply(bsg, whole.block, "");
}

void mailbox_command(BsgCall &bsg) {
  if (bsg.request.size() < 44 || bsg.data_out.size() < kBlock || bsg.data_in_size < kBlock) {
    bsg.result = -EINVAL;
    return;
  }
  MailboxUnit &unit = mailbox(bsg.host);
  MailboxCall call{.host = bsg.host,
                   .block = bsg.data_out.substr(0, kBlock),
                   .data = bsg.data_out.substr(kBlock),
                   .offset = static_cast<uint8_t>(bsg.word(16)),
                   .in_words = bsg.word(20),
                   .out_words = bsg.word(24)};
  const uint32_t tag = bsg.word(28), sequence = bsg.word(32);
  if (bsg.machine.records_kept()) {
    unit.exchanges.push_back(
        {call.command(), call.offset, call.in_words, call.out_words, tag, sequence, bsg.timeout});
  }
  if (sequence > 1) {
    if (tag != unit.tag) {
      bsg.result = -EINVAL;
      return;
    }
    later_exchange(bsg, unit, call, sequence);
    return;
  }
  if (unit.busy != 0) {
    if (unit.busy > 0) unit.busy--;
    call.set_status(kBusy);
    reply(bsg, call.block, call.data);
    return;
  }
  const std::vector<uint32_t> sizes =
      call.command() == sli_config ? sli_config_buffers(call) : std::vector<uint32_t>();
  unit.tag = tag;
  if (!sizes.empty()) {
    first_exchange(bsg, unit, call, sizes);
    return;
  }
  run(call);
  reply(bsg, call.block, call.result);
}
}  // namespace

uint32_t MailboxCall::word(size_t index) const {
  return static_cast<uint32_t>(get_be(block, 4 * index, 4));
}

void MailboxCall::set_word(size_t index, uint32_t value) {
  put_be(block, 4 * index, value, 4);
}

void MailboxCall::set_status(uint16_t status) {
  put_be(block, 0, status, 2);
}

MailboxUnit &mailbox(Host &host) {
  return host.area<MailboxUnit>();
}

void install_mailbox(Machine &machine) {
  machine.bsg().on_vendor(kVendorMailbox, mailbox_command);
}

}  // namespace sim
