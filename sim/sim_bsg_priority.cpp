// SPDX-License-Identifier: BSD-3-Clause
// The FCP priority table of a port, set and read by vendor commands of drivers from 2.0 on; kept in the host's state.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "sim_areas.h"
#include "sim_bytes.h"
#include "sim_machine.h"

namespace sim {

namespace {
constexpr uint32_t kGet = 12, kSet = 13;
constexpr size_t kEntry = 36, kMostEntries = 64;

bool offered(BsgCall &call) {
  if (call.machine.driver_major() >= 2 && call.request.size() >= 20) return true;
  call.result = -EINVAL;
  return false;
}

void set_rules(BsgCall &call) {
  if (!offered(call)) return;
  const size_t count = call.word(16);
  if (count > kMostEntries) {
    call.result = -ENOMEM;
    return;
  }
  if (call.data_out.size() < 4 + kEntry * count) {
    call.result = -EINVAL;
    return;
  }
  call.host.state()["priority"] = to_hex(call.data_out.substr(4, kEntry * count));
  call.machine.touch();
}

// The count is the driver's; entries come as far as there was room for them.
void get_rules(BsgCall &call) {
  if (!offered(call)) return;
  const auto &kept = call.host.state()["priority"];
  const std::string rules = kept.is_string() ? from_hex(kept.get<std::string>()) : std::string();
  const auto count = static_cast<uint32_t>(rules.size() / kEntry);
  std::string reply(reinterpret_cast<const char *>(&count), sizeof count);
  call.data_in = reply + rules.substr(0, kEntry * std::min<size_t>(count, call.word(16)));
}
}  // namespace

void install_priority(Machine &machine) {
  machine.bsg().on_vendor(kGet, get_rules);
  machine.bsg().on_vendor(kSet, set_rules);
}

}  // namespace sim
