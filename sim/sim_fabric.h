// SPDX-License-Identifier: BSD-3-Clause
// The fabric behind the ports: its name server and management server, and the ELS that remote ports answer.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "sim_bsg.h"

namespace sim {

// What a test may change about the answers.
struct Fabric {
  // Called before the model's own answer: true when it has answered.
  std::function<bool(BsgCall &)> hook;
  // Tags of unsolicited management requests that wait for their response.
  std::set<uint32_t> open_tags;
};

Fabric &fabric(Host &host);

// Ends an ELS or CT with the transport's "rejected" and the four bytes of the reject.
void reject_els(BsgCall &call, uint8_t reason, uint8_t explanation, uint8_t vendor = 0);

}  // namespace sim
