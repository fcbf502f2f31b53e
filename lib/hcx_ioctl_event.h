// SPDX-License-Identifier: BSD-3-Clause
// Registrations for events, what waits for them, and the state that the parts of event delivery share. Everything
// here is guarded by vosk_event_mutex, which is taken through EventLock and never held while a registered function
// runs, a child is waited for, or a host lock is sought.
#pragma once

#include <pthread.h>

#include <array>
#include <cstdint>

#include "hcx_signal.h"
#include "libhcx_api.h"

struct RegEvent {
  uint32_t e_mask;
  uint32_t e_gstype;
  uint32_t e_pid;  // child that waits for CT requests, 0 for none
  uint32_t event_id;
  uint32_t e_firstchild;  // id of the first registration of the same call, 0 in that one
  uint32_t e_outsz;       // what the caller asked for
  uint32_t e_pad;  // process that the child belongs to: a forked copy of it has the record but no child
  void (*e_func)();
  void *e_ctx;
  void *e_out;  // at least a LINKINFO with mask bit 0x1; null while a function has it
  host_event *event_list_head;
  host_event *event_list_tail;
};
using reg_evt = RegEvent;

inline constexpr uint32_t kEventBoards = 32;
inline constexpr uint32_t kEventSlots = 8;

extern pthread_mutex_t vosk_event_mutex;
extern RegEvent hcx_RegEvent[kEventBoards][kEventSlots];
extern uint32_t hcx_RegEventCnt[kEventBoards];

// Of the two sweeps: whether one is going on, and how many signals came meanwhile.
extern uint32_t hcx_eh_busy, hcx_miss_sig;
extern uint32_t hcx_sgio_eh_busy, hcx_sgio_miss_sig;

void EventHandler(int sig);
void EventHandlerBSG(int sig);

uint32_t netlink_register_for_event(uint32_t board, uint32_t mask, uint32_t type, uint32_t outsz,
                                    void (*func)(), void *ctx);
uint32_t bsg_register_for_ct_event(uint32_t board, uint32_t mask, uint32_t type, uint32_t outsz,
                                   void (*func)(), void *ctx);
uint32_t unRegOnId(uint32_t board, uint32_t id);

namespace hcx {

class EventLock {
 public:
  EventLock() { pthread_mutex_lock(&vosk_event_mutex); }
  EventLock(const EventLock &) = delete;
  EventLock &operator=(const EventLock &) = delete;
  ~EventLock() { pthread_mutex_unlock(&vosk_event_mutex); }

 private:
  EventSignalBlock blocked_;  // outlives the lock
};

// ---- Tables (hcx_ioctl_event.cpp); the caller holds an EventLock ----
// A slot for a registration; null when the board has no more. Counted, with its id and link, all else is zero.
RegEvent *add_registration(uint32_t board, uint32_t firstchild);
RegEvent *find_registration(uint32_t board, uint32_t id);
// Takes registrations out of the tables; what they own is then the caller's, for release_registrations().
struct Removed {
  struct One {
    uint32_t board;
    RegEvent record;
  };
  std::array<One, kEventBoards + kEventSlots> all;
  size_t count = 0;
};
void cut_out(uint32_t board, uint32_t index, bool shift, Removed *removed);

// ---- Without the lock ----
// Stops the children and frees what the records own.
void release_registrations(Removed *removed);
// Registers on one board, or with FC_REG_ALL_PORTS on all that have a number, and puts the first id into
// wanted.e_firstchild (0 when there is no board). `on_board` answers an id, or 0: then all is taken back.
bool register_on_boards(uint32_t board, RegEvent &wanted, uint32_t (*on_board)(uint32_t, const RegEvent &));
// Room for what comes with an event; false without memory. *out is null when none is needed.
bool allocate_output(uint32_t mask, uint32_t outsz, void **out);
size_t output_size(uint32_t mask, uint32_t outsz);
void free_events(host_event *list);

// ---- CT children (hcx_ioctl_event_ct.cpp) ----
// False when there is none, or it is gone: then there is nothing to wait for.
bool kill_child(uint32_t board, const RegEvent &record);
void wait_for_child(const RegEvent &record);

// ---- Delivery (hcx_ioctl_event_deliver.cpp) ----
// Asks for a sweep: by the listener, or where none runs by this thread at its next event_safe_point(). `ct`: of the CT
// registrations too.
void request_sweep(bool ct);
// Runs the registered functions that are due, if this is the thread to do so. To be called with no lock held.
void event_safe_point();
// The listener was started anew, or the boards got their numbers: registrations that outlived the last stop are
// served again.
void resume_event_delivery();

}  // namespace hcx
