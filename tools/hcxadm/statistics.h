// SPDX-License-Identifier: BSD-3-Clause
// Port statistics as the tool shows them: a counter that the adapter does not keep, or that the kernel does not show,
// is absent, never 0.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "board.h"

namespace hcxadm {

struct Counter {
  const char *key;     // in JSON, and after the prefix in metrics
  const char *title;   // for people
  const char *file;    // in the FC host's "statistics" directory
  const char *metric;  // name without prefix and "_total"
  const char *help;
};

// In the order of HBA_PortStatistics.
inline constexpr size_t counter_count = 15;
extern const std::array<Counter, counter_count> counters;
enum : size_t { seconds_counter, tx_frames_counter, tx_words_counter, rx_frames_counter, rx_words_counter };

using Sample = std::array<std::optional<uint64_t>, counter_count>;

// Throws Failure.
Sample read_statistics(const Board &board);
// Makes later samples of this process count from now on. Throws Failure where the driver offers no snapshot.
void reset_statistics(const Board &board);

// Growth per second of each counter that is in both samples and did not go back.
using Rates = std::array<std::optional<double>, counter_count>;
Rates rates_between(const Sample &before, const Sample &after, double seconds);
// All errors together, of those counters that there are.
std::optional<double> error_rate(const Rates &rates);
// One decimal: more is noise of the clock.
double rounded_rate(double rate);

// How the watch tells and passes time, in seconds; tests put their own in place.
struct Ticker {
  double (*now)();
  void (*sleep)(double seconds);
};
extern Ticker ticker;

}  // namespace hcxadm
