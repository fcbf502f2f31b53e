// SPDX-License-Identifier: BSD-3-Clause
// The listener for events, and how others reach it. docs/events.md has the whole picture.
#pragma once

#include <pthread.h>

#include <cstdint>

#include "hcx_sysio.h"

using nl_handle = hcx::sysio::Netlink;

struct thread_context {
  nl_handle *handle;   // null when no listener runs
  int thread_running;  // 1 while it should, -1 asks it to stop, 0 after a failed start
  pthread_attr_t pthread_custom_attr;
  pthread_t thread;
};
extern thread_context ctxt;

void *wait_for_netlink_event(void *arg);
void s_handler(int s_no);

namespace hcx {

// Installs a handler of SIGUSR1; false when that fails.
bool install_event_signal(void (*handler)(int), int flags);
// Whether a listener runs in this very process (not in one that it was forked from). Safe in a signal handler.
bool listener_runs();
bool on_listener();
// Whether the calling thread is a listener that was told to stop.
bool listener_stopping();
// How long a stop waits for a callback to return, in milliseconds.
extern int listener_patience;
// Listeners whose callback had not returned then, and has not until now.
int listeners_left_behind();
// Raises SIGUSR1 at the listener; false when there is none. Safe in a signal handler.
bool signal_listener();
// Decodes what was received in one piece and hands its events on. Trusts no length in it.
void take_netlink_datagram(const sysio::Datagram &datagram, size_t size);
// How often the kernel had to drop events because the listener's buffer was full.
uint32_t netlink_overruns();

}  // namespace hcx
