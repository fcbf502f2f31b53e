// SPDX-License-Identifier: BSD-3-Clause
// Statistics that move: while a port's link is up its counters grow with the machine's clock, from the
// numbers that the port was made with. A counter that the driver does not keep stays all ones. With a clock
// that stands still, as in tests, they stand still too.
#include <time.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>

#include "sim_areas.h"
#include "sim_machine.h"

namespace sim {

namespace {
constexpr double kEpoch = 1700000000;  // where the machine's clock begins

// Growth per second; other hosts are a little faster each.
constexpr struct {
  const char *name;
  uint64_t rate;
} kMoving[] = {
    {"seconds_since_last_reset", 1}, {"tx_frames", 2400}, {"tx_words", 307200}, {"rx_frames", 9600},
    {"rx_words", 1228800},
};

// Finer than the machine's clock while that is the real one: who watches twice a second shall see even growth.
double seconds_now(Machine &machine) {
  if (machine.clock != 0) return static_cast<double>(machine.now());
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

bool link_up(Host &host) {
  return std::string_view(host.machine().vfs().text(host.fc_dir() + "port_state")).starts_with("Online");
}

int show(Host &host, const Node &node, uint64_t rate, uint64_t &last, std::string &text) {
  uint64_t value = std::strtoull(node.data.c_str(), nullptr, 16);
  const double elapsed = seconds_now(host.machine()) - kEpoch;
  // Without a link the frame counters stay where they were last seen.
  if (rate != 1 && !link_up(host))
    value = std::max(value, last);
  else if (value != ~0ULL && elapsed > 0)
    value += static_cast<uint64_t>(static_cast<double>(rate) * elapsed);
  last = value;
  text = hex_text(value, 0) + "\n";
  return 0;
}
}  // namespace

void install_statistics(Machine &machine) {
  machine.on_host([](Host &host) {
    if (host.spec().foreign || host.machine().generation() < 1) return;
    for (const auto &row : kMoving) {
      const std::string path = host.fc_dir() + "statistics/" + row.name;
      const auto node = host.machine().vfs().find(path);
      if (!node) continue;
      const uint64_t rate = row.rate == 1 ? 1 : row.rate + static_cast<uint64_t>(host.number()) * 16;
      const Node *attribute = node.get();
      host.machine().vfs().on_read(path,
                                   [&host, attribute, rate, last = uint64_t{0}](std::string &text) mutable {
                                     return show(host, *attribute, rate, last, text);
                                   });
    }
  });
}

}  // namespace sim
