// SPDX-License-Identifier: BSD-3-Clause
// For work that must be wound up: while one of these lives, Ctrl-C and its like only raise a flag.
#pragma once

#include <signal.h>

#include <array>
#include <cstddef>

namespace hcxadm {

class InterruptGuard {
 public:
  InterruptGuard();
  InterruptGuard(const InterruptGuard &) = delete;
  InterruptGuard &operator=(const InterruptGuard &) = delete;
  ~InterruptGuard();
  // The signal that came, 0 for none.
  static int caught();

 private:
  static constexpr std::array signals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
  std::array<struct sigaction, signals.size()> saved_{};
};

}  // namespace hcxadm
