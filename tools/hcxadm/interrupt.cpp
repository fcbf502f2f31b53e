// SPDX-License-Identifier: BSD-3-Clause
// The flag and the handlers of InterruptGuard. One guard at a time.
#include "interrupt.h"

namespace hcxadm {
namespace {

volatile sig_atomic_t caught_signal = 0;

void on_signal(int number) {
  caught_signal = number;
}

}  // namespace

InterruptGuard::InterruptGuard() {
  caught_signal = 0;
  struct sigaction action = {};
  action.sa_handler = on_signal;
  action.sa_flags = SA_RESTART;  // a request on its way to the adapter is waited for
  sigemptyset(&action.sa_mask);
  for (size_t i = 0; i < signals.size(); ++i) {
    sigaction(signals[i], nullptr, &saved_[i]);
    if (saved_[i].sa_handler != SIG_IGN) sigaction(signals[i], &action, nullptr);
  }
}

InterruptGuard::~InterruptGuard() {
  for (size_t i = 0; i < signals.size(); ++i)
    sigaction(signals[i], &saved_[i], nullptr);
}

int InterruptGuard::caught() {
  return caught_signal;
}

}  // namespace hcxadm
