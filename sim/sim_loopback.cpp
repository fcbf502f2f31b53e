// SPDX-License-Identifier: BSD-3-Clause
// Loopback of simulated boards and the bridge chip in front of the FC controller of PCI device 0x7b05: the
// driver's vendor commands 4, 5, 8, 9 and 10. Under the machine's mutex throughout.
#include <errno.h>

#include <cstring>

#include "sim_areas.h"
#include "sim_control.h"
#include "sim_control_state.h"
#include "sim_machine.h"

namespace sim {
namespace {

constexpr uint16_t kBridgedDevice = 0x7b05;
constexpr uint32_t kBridgeLoopback = 20, kBridgeData = 2, kBridgeEcho = 3;

// Driver command 4: {command, type, timeout}, type at byte 16 of the request.
void start_loopback(BsgCall &call) {
  const ControlSettings settings = control_settings(call.host);
  const uint32_t type = call.word(16);
  if (type != 1 && type != 2) {
    call.result = -EINVAL;
    return;
  }
  if (type == 2 && !settings.loopback_plug) {
    call.result = -ETIMEDOUT;
    return;
  }
  // Behind a bridge nothing turns the frames round unless the bridge does.
  if (type == 1 && call.host.spec().pci_device == kBridgedDevice &&
      !control_record(call.host).bridge_loopback) {
    call.result = -ENXIO;
    return;
  }
  control_state(call.host)["loopback"] = type;
  call.host.set_fc("port_state", "Loopback");
}

// Driver command 5: what goes out comes back.
void run_test(BsgCall &call) {
  if (control_record(call.host).loopback == 0) {
    call.result = -EACCES;
    return;
  }
  if (call.data_out.empty() || call.data_out.size() != call.data_in_size) {
    call.result = -ERANGE;
    return;
  }
  call.data_in = call.data_out;
  const int corrupt = control_settings(call.host).loopback_corrupt;
  if (corrupt >= 0 && static_cast<size_t>(corrupt) < call.data_in.size())
    call.data_in[static_cast<size_t>(corrupt)] ^= 0x10;
}

// Driver command 10, for SLI-4; the older adapters leave loopback by a reset of their link.
void end_loopback(BsgCall &call) {
  if (call.host.spec().sli < 4) {
    call.result = -ENODEV;
    return;
  }
  if (!control_settings(call.host).end_loopback) {
    call.result = -EBUSY;
    return;
  }
  control_state(call.host)["loopback"] = 0;
  show_link(call.host, true);
}

uint32_t little(const std::string &bytes, size_t offset) {
  uint32_t value = 0;
  for (size_t i = 0; i < 4 && offset + i < bytes.size(); ++i)
    value |= static_cast<uint32_t>(static_cast<uint8_t>(bytes[offset + i])) << (8 * i);
  return value;
}

uint32_t native(const std::string &bytes, size_t offset) {
  uint32_t value = 0;
  if (offset + 4 <= bytes.size()) memcpy(&value, bytes.data() + offset, 4);
  return value;
}

std::string little_bytes(uint32_t value) {
  std::string out;
  for (int i = 0; i < 4; ++i)
    out.push_back(static_cast<char>(value >> (8 * i)));
  return out;
}

void switch_loopback(BsgCall &call, uint32_t port, bool on) {
  const bool own_port = port == static_cast<uint32_t>(call.host.spec().pci.back() - '0');
  if (!control_settings(call.host).bridge_answers || !own_port) {
    call.data_in = little_bytes(5);
    return;
  }
  control_state(call.host)["bridge_loopback"] = on;
  call.host.machine().touch();
  call.data_in = little_bytes(0);
}

// Driver command 8: a command to the bridge. Its words are little-endian, but the bridge also knows its own
// loopback commands in the order of a big-endian processor, whose driver writes them so.
void bridge_command(BsgCall &call) {
  if (call.host.spec().pci_device != kBridgedDevice) {
    call.result = -ENODEV;
    return;
  }
  nlohmann::json &state = control_state(call.host);
  const uint32_t xri = state.value("xri", 0x100u) + 1;
  state["xri"] = xri;
  call.reply_word(xri);
  if (native(call.data_out, 0) == kBridgeLoopback) {
    switch_loopback(call, native(call.data_out, 4), native(call.data_out, 8) != 0);
    return;
  }
  switch (const uint32_t code = native(call.data_out, 0); code) {
    case 0x80000001:
      state["bridge_loopback"] = false;
      [[fallthrough]];
    case 0x80000002:
      call.data_in = little_bytes(0);
      return;
    default:
      break;
  }
  switch (little(call.data_out, 0)) {
    case kBridgeData:
      state["xri_length"] = little(call.data_out, 4);
      call.data_in = little_bytes(0);
      break;
    case kBridgeEcho:
      call.data_in = little_bytes(0) + call.data_out.substr(4);
      break;
    default:
      call.data_in = little_bytes(2);  // unknown command
      break;
  }
}

// Driver command 9: the data of a command, by its exchange id. Answers a status word and the sum of the
// bytes.
void bridge_data(BsgCall &call) {
  const nlohmann::json state = control_state(call.host);
  const uint32_t xri = call.word(16);
  call.reply_word(xri);
  const bool known = state.value("xri", 0u) == xri && state.value("xri_length", 0u) == call.data_out.size();
  uint32_t sum = 0;
  for (char c : call.data_out)
    sum += static_cast<uint8_t>(c);
  call.data_in = little_bytes(known ? 0 : 3) + little_bytes(sum);
}

}  // namespace

void install_loopback(Machine &machine) {
  Bsg &bsg = machine.bsg();
  bsg.on_vendor(4, start_loopback);
  bsg.on_vendor(5, run_test);
  bsg.on_vendor(8, bridge_command);
  bsg.on_vendor(9, bridge_data);
  bsg.on_vendor(10, end_loopback);
}

}  // namespace sim
