// SPDX-License-Identifier: BSD-3-Clause
// How simulated boards take control requests: mode changes and resets, driver parameters, loopback with the
// bridge chip, registers and memory. Each add_...() hooks every host that is there or comes; Machine's maker
// calls them. All of it runs under the machine's mutex, what a board remembers is in its host's state.
#pragma once

#include <cstdint>

namespace sim {

class Machine;
class Host;

// The refusals and faults that a test or a scenario can choose for a board.
struct ControlSettings {
  bool reset_enabled = true;      // off: every reset is refused with EACCES
  bool fw_reset = true;           // off: "fw_reset" is refused with EPERM; SLI-3 boards always refuse
  bool coordinated_reset = true;  // off: refused with EINVAL
  bool selective_reset = true;    // off: refused with EIO
  bool mode_changes = true;       // off: every mode is refused with EINVAL
  bool dump = true;               // off: "dump" is refused with EBUSY
  bool nolip = true;              // whether the driver knows the "nolip " form of a parameter
  bool params_writable = true;    // off: parameters are refused with EIO
  bool loopback_plug = true;      // off: external loopback ends with ETIMEDOUT
  int loopback_corrupt = -1;      // byte of every test that comes back changed
  bool bridge_answers = true;     // off: the bridge refuses its loopback
  bool end_loopback = true;       // off: the request to end loopback is refused
};
void configure(Host &host, const ControlSettings &settings);
ControlSettings control_settings(Host &host);

// What happened to a board.
struct ControlRecord {
  uint32_t resets = 0;  // of any kind
  uint32_t fw_resets = 0;
  uint32_t dumps = 0;
  uint32_t link_resets = 0;  // by issue_lip or by a parameter
  uint32_t loopback = 0;     // 0 none, 1 internal, 2 external
  bool bridge_loopback = false;
};
ControlRecord control_record(Host &host);

}  // namespace sim
