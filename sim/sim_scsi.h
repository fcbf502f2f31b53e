// SPDX-License-Identifier: BSD-3-Clause
// The SCSI side of LUNs: what a test may change about a unit's answers. Reached through unit_of(); belongs to
// the LUN, touched under the machine's mutex.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "sim_host.h"

namespace sim {

// How a command ended, as the SG driver reports it.
struct ScsiAnswer {
  uint8_t status = 0;        // SCSI status: 0 good, 2 check condition
  uint16_t host_status = 0;  // 1: no connect, 3: timed out, ...
  uint16_t driver_status = 0;
  std::string data;        // to the initiator
  std::string sense;       // fixed format
  int residual_extra = 0;  // added to the residual that the driver works out, for devices that get it wrong
};

struct ScsiUnit {
  // Identification descriptors of page 0x83, whole and in order.
  std::vector<std::string> descriptors;
  // Called before the unit's own answer: true when it has answered. `error` other than 0 fails the ioctl.
  std::function<bool(const std::string &cdb, const std::string &data_out, ScsiAnswer &answer, int &error)>
      hook;
};

ScsiUnit &unit_of(Lun &lun);

// Descriptors of page 0x83 by designator type.
std::string naa_descriptor(uint64_t wwn, int association = 0);
std::string t10_descriptor(const std::string &vendor, const std::string &text);
std::string eui_descriptor(uint64_t eui);
std::string name_descriptor(const std::string &name);
std::string port_descriptor(uint16_t relative_port);

}  // namespace sim
