// SPDX-License-Identifier: BSD-3-Clause
// Keeps the event signal away from a thread for as long as it must not be interrupted: while it waits for a
// device that goes on by itself, or holds a mutex that an event callback may want on the same stack.
#pragma once

#include <pthread.h>
#include <signal.h>

namespace hcx {

// One inside another, as in the listener, which holds one from its beginning to its end, costs no system call.
class EventSignalBlock {
 public:
  EventSignalBlock() {
    if (depth++ > 0) return;
    sigset_t event;
    sigemptyset(&event);
    sigaddset(&event, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &event, &before_);
  }
  EventSignalBlock(const EventSignalBlock &) = delete;
  EventSignalBlock &operator=(const EventSignalBlock &) = delete;
  ~EventSignalBlock() {
    if (--depth == 0) pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

 private:
  static inline thread_local int depth = 0;  // of those that the thread is in
  sigset_t before_;
};

}  // namespace hcx
