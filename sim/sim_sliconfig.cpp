// SPDX-License-Identifier: BSD-3-Clause
// MBX_SLI_CONFIG: the FCF table of FCoE ports, and objects (named files in the adapter, for example firmware images)
// that are read and written through host buffers. An operation that the firmware does not know ends with status 1.
#include <algorithm>
#include <nlohmann/json.hpp>

#include "sim_bytes.h"
#include "sim_machine.h"
#include "sim_mbox.h"

namespace sim {

using nlohmann::json;

namespace {
constexpr size_t kFcfArea = 580, kFcfPayload = 564, kRecord = 24;
constexpr uint16_t kNoIndex = 0xffff, kUnknown = 1;
constexpr uint8_t kBadIndex = 0x01;

struct Operation {
  uint32_t opcode, subsystem;
};

Operation request_of(const MailboxCall &call) {
  const bool embedded = (call.word(1) & 1) != 0;
  const uint32_t word = embedded ? call.word(6) : static_cast<uint32_t>(get_be(call.data, 0, 4));
  return {word & 0xff, word >> 8 & 0xff};
}

// The index of the next entry in use after `index`, or none.
uint16_t next_index(const std::vector<Forwarder> &table, size_t index) {
  return index + 1 < table.size() ? static_cast<uint16_t>(index + 1) : kNoIndex;
}

void read_fcf_table(MailboxCall &call) {
  const auto &table = forwarders(call.host);
  const auto asked = static_cast<uint16_t>(get_be(call.data, 18, 2));
  const size_t index = asked == kNoIndex ? 0 : asked;
  std::string area = call.data.substr(0, 4);
  area.resize(kFcfArea);
  put_le(area, 12, kFcfPayload, 4);
  put_be(area, 16, 1, 4);
  put_be(area, 22, kNoIndex, 2);
  call.result = area;
  if (index >= table.size()) {
    if (!table.empty() || asked != kNoIndex) call.result[7] = kBadIndex;
    return;
  }
  const Forwarder &fcf = table[index];
  put_be(area, 22, next_index(table, index), 2);
  put_be(area, kRecord, 2158, 4);
  put_le(area, kRecord + 4, fcf.keep_alive, 4);
  put_le(area, kRecord + 8, fcf.priority, 4);
  put_be(area, kRecord + 12, fcf.mac, 6);
  area[kRecord + 18] = fcf.available ? 1 : 0;
  area[kRecord + 19] = 2;
  put_be(area, kRecord + 20, fcf.fabric, 8);
  put_be(area, kRecord + 28, fcf.fc_map, 3);
  area[kRecord + 31] = fcf.valid ? 1 : 0;
  put_be(area, kRecord + 32, index, 2);
  put_be(area, kRecord + 34, 0, 2);
  for (const uint16_t vlan : fcf.vlans) {
    area[kRecord + 36 + vlan / 8 % 512] =
        static_cast<char>(area[kRecord + 36 + vlan / 8 % 512] | 1 << vlan % 8);
  }
  put_be(area, kRecord + 36 + 512, fcf.switch_name, 8);
  call.result = area;
}

std::string object_name(const MailboxCall &call) {
  std::string name = call.block.substr(size_t{4} * 12, size_t{4} * 26);
  return name.substr(0, name.find('\0'));
}

constexpr uint16_t kNoObject = 0x10;

void run_object(MailboxCall &call, uint32_t opcode) {
  json &objects = call.host.state()["objects"];
  if (!objects.is_object()) objects = json::object();
  const std::string name = object_name(call);
  const size_t offset = call.word(11);
  if (opcode == 0xac) {
    std::string bytes = objects.contains(name) ? from_hex(objects[name].get<std::string>()) : std::string();
    put_bytes(bytes, std::min<size_t>(offset, 1U << 20), call.data);
    objects[name] = to_hex(bytes);
    call.host.machine().touch();
    call.set_word(9, static_cast<uint32_t>(call.data.size()));
    return;
  }
  std::string bytes;
  if (opcode == 0xad) {
    for (const auto &[entry, value] : objects.items())
      bytes += entry + '\0';
  } else if (!objects.contains(name)) {
    call.set_status(kNoObject);
    return;
  } else {
    bytes = from_hex(objects[name].get<std::string>());
  }
  call.result = offset < bytes.size() ? bytes.substr(offset, call.data.size()) : std::string();
  call.set_word(9, static_cast<uint32_t>(call.result.size()));
}

// Names and levels of the board, as NUL-padded texts behind the request header.
void controller_attributes(MailboxCall &call) {
  call.result = call.data;
  const std::string texts[] = {"Quorva Corporation", call.host.spec().model, call.host.spec().serial,
                               call.host.spec().firmware};
  size_t at = 32;
  for (const std::string &text : texts) {
    std::string padded = text;
    padded.resize(32);
    put_bytes(call.result, at, padded);
    at += padded.size();
  }
  call.result.resize(call.data.size());
}
}  // namespace

std::vector<Forwarder> &forwarders(Host &host) {
  struct Table {
    bool made = false;
    std::vector<Forwarder> entries;
  };
  auto &table = host.area<Table>();
  if (!table.made && host.spec().forwarders) {
    table.entries = *host.spec().forwarders;
  } else if (!table.made && host.spec().protocol == "fcoe") {
    table.entries = {{.fabric = host.spec().fabric, .switch_name = 0x2001000decafbad0, .mac = 0x000decafbad0},
                     {.fabric = host.spec().fabric,
                      .switch_name = 0x2001000decafbae0,
                      .mac = 0x000decafbae0,
                      .priority = 200,
                      .vlans = {1002, 2001},
                      .available = false}};
  }
  table.made = true;
  return table.entries;
}

std::vector<uint32_t> sli_config_buffers(const MailboxCall &call) {
  const bool embedded = (call.word(1) & 1) != 0;
  const Operation request = request_of(call);
  if (embedded && (request.subsystem != 1 || request.opcode < 0xab || request.opcode > 0xad)) return {};
  const size_t count =
      embedded ? std::min<size_t>(call.word(38), 8) : std::min<size_t>(call.word(1) >> 3 & 0x1f, 19);
  std::vector<uint32_t> sizes;
  for (size_t i = 0; i < count; i++) {
    const uint32_t size = call.word(embedded ? 39 + 3 * i : 8 + 3 * i) & 0xffffff;
    sizes.push_back(std::min<uint32_t>(size, 4096));
  }
  return sizes;
}

void run_sli_config(MailboxCall &call) {
  const Operation request = request_of(call);
  const bool embedded = (call.word(1) & 1) != 0;
  call.result = embedded ? std::string() : call.data;
  if (request.subsystem == 0x0c && request.opcode == 8 && !embedded) {
    if (call.host.spec().protocol == "fcoe") return read_fcf_table(call);
    call.set_status(kUnknown);
    return;
  }
  if (request.subsystem == 1 && request.opcode >= 0xab && request.opcode <= 0xad && embedded) {
    return run_object(call, request.opcode);
  }
  if (request.subsystem == 1 && (request.opcode == 0x20 || request.opcode == 0x79) && !embedded) {
    return controller_attributes(call);
  }
  if (request.subsystem == 0x0c && request.opcode == 9 && !embedded) return;
  call.set_status(kUnknown);
}

}  // namespace sim
