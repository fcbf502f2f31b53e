// SPDX-License-Identifier: BSD-3-Clause
// Calling the registered functions: who may do it, and the sweeps over the tables that do. docs/events.md has the
// whole picture.
//
// EventHandler() and EventHandlerBSG() are the handlers of SIGUSR1, and may be called as functions too. In a signal
// handler nothing may be called that allocates or locks, so there they only note what is to be done and see to it
// that the listener gets the signal. The sweep itself runs on a stack that was not interrupted.
#include <errno.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "hcx_ioctl_event.h"
#include "hcx_netlink.h"
#include "libhcx.h"

uint32_t hcx_eh_busy, hcx_miss_sig;
uint32_t hcx_sgio_eh_busy, hcx_sgio_miss_sig;

using namespace hcx;

namespace {

constexpr int kCtRetries = 5;

// What the signals that were seen ask for. The CT registrations cost a request each, so they are not swept for a
// signal that a queued event explains; one that nothing explains must have come from a child.
std::atomic<bool> sweep_due{false};
std::atomic<bool> event_queued{false};
std::atomic<bool> ct_due{false};

// In a handler of SIGUSR1 the signal is blocked. A thread that blocks it by itself and calls a handler as a
// function is treated alike: its sweep comes a little later, which is always safe.
bool may_be_in_signal_handler() {
  sigset_t blocked;
  sigemptyset(&blocked);
  pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
  return sigismember(&blocked, SIGUSR1) == 1;
}

// All that a signal handler does. Safe wherever it interrupts.
void take_signal() {
  const int saved = errno;
  if (on_listener()) {
    if (!event_queued.exchange(false)) ct_due = true;
    sweep_due = true;
  } else {
    ct_due = true;
    sweep_due = true;
    signal_listener();
  }
  errno = saved;
}

// A registration's function and buffer, lent out for one call: the registration itself may go meanwhile.
struct Lent {
  uint32_t board = 0;
  RegEvent record = {};
  host_event *event = nullptr;
};

void lend(uint32_t board, RegEvent *record, Lent *lent) {
  lent->board = board;
  lent->record = *record;
  record->e_out = nullptr;
  // Each of the two sweeps may want the buffer of a registration for both kinds.
  if (!lent->record.e_out) allocate_output(record->e_mask, record->e_outsz, &lent->record.e_out);
}

// False when the buffer is with the other sweep and there is no memory for a second one.
bool has_buffer(const Lent &lent, const char *caller) {
  if (lent.record.e_out || output_size(lent.record.e_mask, lent.record.e_outsz) == 0) return true;
  libhcx_syslog(LOG_ERROR, "%s - out of memory board %d event %d", caller, static_cast<int>(lent.board),
                static_cast<int>(lent.record.event_id));
  return false;
}

// The next event in the order of the table, from position *cursor on and around.
bool borrow_next(uint32_t *cursor, Lent *lent) {
  constexpr uint32_t positions = kEventBoards * kEventSlots;
  const EventLock lock;
  for (uint32_t i = 0; i < positions; ++i) {
    const uint32_t at = (*cursor + i) % positions;
    const uint32_t board = at / kEventSlots;
    RegEvent &record = hcx_RegEvent[board][at % kEventSlots];
    if (!record.event_list_head) continue;
    lent->event = record.event_list_head;
    record.event_list_head = lent->event->next;
    if (!record.event_list_head) record.event_list_tail = nullptr;
    lend(board, &record, lent);
    *cursor = at + 1;
    return true;
  }
  return false;
}

// The same without an event, for a CT registration by its id; false when it has gone, or its buffer is lent.
bool borrow(uint32_t board, uint32_t id, Lent *lent) {
  const EventLock lock;
  RegEvent *record = find_registration(board, id);
  if (!record || record->e_pid == 0) return false;
  lend(board, record, lent);
  return true;
}

void give_back(Lent *lent) {
  const size_t size = output_size(lent->record.e_mask, lent->record.e_outsz);
  if (lent->record.e_out) memset(lent->record.e_out, 0, size);
  free_events(lent->event);
  const EventLock lock;
  RegEvent *record = find_registration(lent->board, lent->record.event_id);
  // A registration that was removed and made again under the same id has a buffer of its own.
  if (record && !record->e_out && output_size(record->e_mask, record->e_outsz) == size) {
    record->e_out = lent->record.e_out;
  } else {
    free(lent->record.e_out);
  }
}

template <class Callback>
Callback as(const Lent &lent) {
  return reinterpret_cast<Callback>(reinterpret_cast<void (*)(void)>(lent.record.e_func));
}

void call_link(const Lent &lent, uint8_t state) {
  auto *link = static_cast<LINKINFO *>(lent.record.e_out);
  // After teardown there is nothing to ask, and asking would scan anew.
  if (hcx_host_list) HCX_GetLinkInfo(lent.board, link);
  link->a_linkState = state;
  as<hcx_link_callback>(lent)(lent.board, link);
}

void call_rscn(const Lent &lent) {
  const uint32_t length = std::min(lent.event->data_len, lent.record.e_outsz);
  if (lent.event->data == VOSK_NL_EVENT_VPORT_RSCN) {
    as<hcx_vport_rscn_callback>(lent)(lent.board, lent.event->wwpn, lent.event->data_buffer, length);
  } else {
    as<hcx_rscn_callback>(lent)(lent.board, lent.event->data_buffer, length, length);
  }
}

void dispatch(const Lent &lent) {
  const host_event &event = *lent.event;
  if (event.event_code == VOSKH_EVT_LINKDOWN) {
    call_link(lent, LNK_DOWN);
  } else if (event.event_code == VOSKH_EVT_LINKUP) {
    call_link(lent, LNK_READY);
  } else if (event.data == VOSK_NL_EVENT_DUMP) {
    as<hcx_dump_callback>(lent)(lent.board, lent.record.e_out, lent.record.e_outsz);
  } else if (event.data == VOSK_NL_EVENT_TEMPERATURE) {
    as<hcx_temperature_callback>(lent)(lent.board, event.data1, event.data2);
  } else {
    call_rscn(lent);
  }
}

void deliver_events() {
  uint32_t cursor = 0;
  for (Lent lent; !listener_stopping() && borrow_next(&cursor, &lent); lent = {}) {
    if (has_buffer(lent, "EventHandler")) dispatch(lent);
    lent.event->next = nullptr;
    give_back(&lent);
  }
}

// Fetches the CT requests of one registration until there are no more. The child's signal may be a little ahead of
// the driver.
void deliver_ct(uint32_t board, uint32_t id) {
  constexpr const char *caller = "EventHandlerBSG";
  bool any = false;
  for (int retry = 0; retry < kCtRetries && !listener_stopping();) {
    Lent lent;
    if (!borrow(board, id, &lent)) return;
    if (!has_buffer(lent, caller)) return;
    uint32_t tag = 0, type = 0;
    const int length = send_bsg_get_event(board, FC_REG_CT_EVENT, lent.record.e_pid, lent.record.e_out,
                                          lent.record.e_outsz, &tag, &type);
    if (length > 0) {
      any = true;
      retry = 0;
      as<hcx_ct_callback>(lent)(board, lent.record.e_out, static_cast<uint32_t>(length), tag, type);
    }
    give_back(&lent);
    if (length > 0) continue;
    if (any) return;
    ++retry;
    libhcx_syslog(LOG_BSG, "%s - retry %d tag x%08x", caller, retry, tag);
  }
}

void deliver_ct_requests() {
  if (!hcx_host_list) return;
  const auto process = static_cast<uint32_t>(getpid());
  for (uint32_t board = 0; board < kEventBoards; ++board) {
    uint32_t ids[kEventSlots];
    size_t count = 0;
    {
      const EventLock lock;
      for (uint32_t slot = 0; slot < hcx_RegEventCnt[board]; ++slot)
        // In a forked copy of the process the requests are still for the process itself.
        if (hcx_RegEvent[board][slot].e_pid != 0 && hcx_RegEvent[board][slot].e_pad == process)
          ids[count++] = hcx_RegEvent[board][slot].event_id;
    }
    for (size_t i = 0; i < count; ++i)
      deliver_ct(board, ids[i]);
  }
}

// One sweep at a time: true when this thread is to do it. Otherwise the one that is at it makes one more.
bool begin(uint32_t *busy, uint32_t *missed) {
  const EventLock lock;
  if (*busy) {
    ++*missed;
    return false;
  }
  *busy = 1;
  return true;
}

// The number of signals that were missed, this one included; 0 when the sweep is over.
uint32_t missed_since(uint32_t *busy, uint32_t *missed) {
  const EventLock lock;
  const uint32_t count = *missed;
  if (count) {
    --*missed;
  } else {
    *busy = 0;
  }
  return count;
}

void log_busy(const char *caller, int sig) {
  libhcx_syslog(LOG_IOCTL, "%s - busy sig %d pid %d ppid %d", caller, sig, getpid(), getppid());
}

void sweep_ct(int sig) {
  constexpr const char *caller = "EventHandlerBSG";
  if (!begin(&hcx_sgio_eh_busy, &hcx_sgio_miss_sig)) {
    log_busy(caller, sig);
    return;
  }
  for (;;) {
    deliver_ct_requests();
    const uint32_t missed = missed_since(&hcx_sgio_eh_busy, &hcx_sgio_miss_sig);
    if (!missed) return;
    libhcx_syslog(LOG_BSG, "%s - retrying missed %d signals", caller, static_cast<int>(missed));
  }
}

// What a listener that stops has left is delivered by the next one, or without one at the next event_safe_point().
void leave_the_rest() {
  ct_due = true;
  sweep_due = true;
  if (!on_listener()) signal_listener();
}

void sweep(int sig, bool ct) {
  // First of all: the sweep that is going on may make its last round as soon as this one is counted.
  if (ct) ct_due = true;
  if (!begin(&hcx_eh_busy, &hcx_miss_sig)) {
    log_busy("EventHandler", sig);
    return;
  }
  do {
    deliver_events();
    if (ct_due.exchange(false)) sweep_ct(sig);
  } while (missed_since(&hcx_eh_busy, &hcx_miss_sig));
  if (listener_stopping()) leave_the_rest();
}

}  // namespace

namespace hcx {

void request_sweep(bool ct) {
  (ct ? ct_due : event_queued) = true;
  if (signal_listener()) return;
  event_queued = false;
  sweep_due = true;
}

void event_safe_point() {
  if (listener_runs() && !on_listener()) return;
  while (!listener_stopping() && sweep_due.exchange(false))
    sweep(SIGUSR1, false);
}

void resume_event_delivery() {
  bool any = false, ct = false;
  {
    const EventLock lock;
    for (uint32_t board = 0; board < kEventBoards; ++board)
      for (uint32_t slot = 0; slot < hcx_RegEventCnt[board]; ++slot) {
        any = true;
        ct |= hcx_RegEvent[board][slot].e_pid != 0;
      }
  }
  if (!any) return;
  install_event_signal(EventHandler, SA_RESTART);
  // Without their numbers the boards cannot be asked for anything; the start that gives them comes back here.
  if (hcx_host_list && hcx_host_list->brd_idx < 0) return;
  request_sweep(ct);
}

}  // namespace hcx

void EventHandler(int sig) {
  install_event_signal(EventHandler, SA_RESTART);
  if (may_be_in_signal_handler()) {
    take_signal();
  } else {
    sweep(sig, true);
  }
}

void EventHandlerBSG(int sig) {
  install_event_signal(EventHandlerBSG, SA_RESTART);
  if (may_be_in_signal_handler()) {
    take_signal();
  } else {
    sweep_ct(sig);
  }
}
