// SPDX-License-Identifier: BSD-3-Clause
// Registration for events: the tables, their ids, and the calls that add and remove. The tables belong to the
// process, are keyed by board number, and survive rescans and restarts of the library. Any thread.
#include "hcx_ioctl_event.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "hcx_netlink.h"
#include "libhcx.h"

static_assert(sizeof(HBA_EVENTINFO) == 20);

pthread_mutex_t vosk_event_mutex = PTHREAD_MUTEX_INITIALIZER;
RegEvent hcx_RegEvent[kEventBoards][kEventSlots];
uint32_t hcx_RegEventCnt[kEventBoards];

using namespace hcx;

namespace {

constexpr uint32_t kAllButBit8 = 0xff7;
constexpr uint32_t kNetlinkEvents = 0x73;
constexpr uint32_t kCtBuffer = 4096;

bool id_taken(uint32_t board, uint32_t id) {
  return find_registration(board, id) != nullptr;
}

// Whether siblings of a removed registration still name it: a new one of that id would take them along.
bool id_named(uint32_t id) {
  for (uint32_t board = 0; board < kEventBoards; ++board)
    for (uint32_t slot = 0; slot < hcx_RegEventCnt[board]; ++slot)
      if (hcx_RegEvent[board][slot].e_firstchild == id) return true;
  return false;
}

uint32_t free_id(uint32_t board, uint32_t slot) {
  const uint32_t first = board * kEventSlots + 1;
  const uint32_t usual = first + slot;
  if (!id_taken(board, usual) && !id_named(usual)) return usual;
  for (const bool spare_named : {true, false})
    for (uint32_t id = first; id < first + kEventSlots; ++id)
      if (!id_taken(board, id) && !(spare_named && id_named(id))) return id;
  return 0;  // not reached: at most seven are taken
}

// Whether the host may have this registration; logs why not.
bool board_allows(uint32_t board, uint32_t mask) {
  constexpr const char *caller = "netlink_register_for_event";
  HostRef host = board_host(board);
  if (!host) {
    libhcx_syslog(LOG_ERROR, "%s - pid %d board %d not found", caller, getpid(), static_cast<int>(board));
    return false;
  }
  const int mode = hcx_get_sli_mode(host.get());
  const bool sensor = host->temp_sensor_support != 0;
  host.drop();
  if (mode < 1) {
    libhcx_syslog(LOG_ERROR, "%s - pid %d sliMode %d to low for board %d", caller, getpid(), mode,
                  static_cast<int>(board));
    return false;
  }
  return sensor || (mask & kAllButBit8) != FC_REG_TEMPERATURE_EVENT;
}

// The id, 0 on failure.
uint32_t register_on_board(uint32_t board, const RegEvent &wanted) {
  constexpr const char *caller = "netlink_register_for_event";
  if (!board_allows(board, wanted.e_mask)) return 0;
  void *out;
  if (!allocate_output(wanted.e_mask, wanted.e_outsz, &out)) {
    libhcx_syslog(LOG_ERROR, "%s - pid %d out of memory board %d", caller, getpid(), static_cast<int>(board));
    return 0;
  }
  if (!(wanted.e_mask & kNetlinkEvents)) {
    free(out);
    return 0;
  }
  install_event_signal(EventHandler, SA_RESTART);
  uint32_t id = 0;
  {
    const EventLock lock;
    if (RegEvent *slot = add_registration(board, wanted.e_firstchild)) {
      id = slot->event_id;
      *slot = wanted;
      slot->event_id = id;
      slot->e_out = out;
    }
  }
  if (id == 0) {
    free(out);
    libhcx_syslog(LOG_ERROR, "%s - pid %d max events registered board %d", caller, getpid(),
                  static_cast<int>(board));
    return 0;
  }
  libhcx_syslog(LOG_IOCTL, "%s - pid %d event %d mask x%08x ctx x%08x outsz %d", caller, getpid(),
                static_cast<int>(id), wanted.e_mask,
                static_cast<uint32_t>(reinterpret_cast<uintptr_t>(wanted.e_ctx)),
                static_cast<int>(wanted.e_outsz));
  return id;
}

}  // namespace

namespace hcx {

RegEvent *add_registration(uint32_t board, uint32_t firstchild) {
  const uint32_t slot = hcx_RegEventCnt[board];
  if (slot >= kEventSlots) return nullptr;
  RegEvent &record = hcx_RegEvent[board][slot];
  record = {};
  record.event_id = free_id(board, slot);
  record.e_firstchild = firstchild;
  ++hcx_RegEventCnt[board];
  return &record;
}

RegEvent *find_registration(uint32_t board, uint32_t id) {
  for (uint32_t slot = 0; slot < hcx_RegEventCnt[board]; ++slot)
    if (hcx_RegEvent[board][slot].event_id == id) return &hcx_RegEvent[board][slot];
  return nullptr;
}

void cut_out(uint32_t board, uint32_t index, bool shift, Removed *removed) {
  RegEvent *slots = hcx_RegEvent[board];
  removed->all[removed->count++] = {board, slots[index]};
  const uint32_t last = hcx_RegEventCnt[board] - 1;
  if (shift) std::copy(slots + index + 1, slots + last + 1, slots + index);
  slots[last] = {};
  hcx_RegEventCnt[board] = last;
}

void release_registrations(Removed *removed) {
  // All are told to go before any is waited for: the kernel may hold each for a minute.
  std::array<bool, kEventBoards + kEventSlots> waiting = {};
  static_assert(sizeof removed->all == sizeof removed->all[0] * waiting.size());
  for (size_t i = 0; i < removed->count; ++i)
    waiting[i] = kill_child(removed->all[i].board, removed->all[i].record);
  for (size_t i = 0; i < removed->count; ++i) {
    RegEvent &record = removed->all[i].record;
    if (waiting[i]) wait_for_child(record);
    free(record.e_out);
    free_events(record.event_list_head);
  }
  removed->count = 0;
}

bool register_on_boards(uint32_t board, RegEvent &wanted, uint32_t (*on_board)(uint32_t, const RegEvent &)) {
  std::array<uint32_t, kEventBoards> boards;
  size_t count = 0;
  if (!(wanted.e_mask & FC_REG_ALL_PORTS)) {
    boards[count++] = board;
  } else {
    for (const hcx_host *host = hcx_host_list; host && count < boards.size(); host = host->next)
      if (host->brd_idx >= 0 && host->brd_idx < static_cast<int>(kEventBoards))
        boards[count++] = static_cast<uint32_t>(host->brd_idx);
  }
  for (size_t i = 0; i < count; ++i) {
    const uint32_t id = on_board(boards[i], wanted);
    if (id == 0) {
      const uint32_t first = wanted.e_firstchild;
      if (first != 0) HCX_unRegisterForEvent((first - 1) / kEventSlots, first);
      return false;
    }
    if (wanted.e_firstchild == 0) wanted.e_firstchild = id;
  }
  return true;
}

size_t output_size(uint32_t mask, uint32_t outsz) {
  return mask & FC_REG_LINK_EVENT ? std::max<size_t>(outsz, sizeof(LINKINFO)) : outsz;
}

bool allocate_output(uint32_t mask, uint32_t outsz, void **out) {
  const size_t size = output_size(mask, outsz);
  *out = size ? heap_array<uint8_t>(size).release() : nullptr;
  return size == 0 || *out;
}

void free_events(host_event *list) {
  while (list) {
    host_event *next = list->next;
    free(list->data_buffer);
    free(list);
    list = next;
  }
}

}  // namespace hcx

uint32_t netlink_register_for_event(uint32_t board, uint32_t mask, uint32_t type, uint32_t outsz,
                                    void (*func)(), void *ctx) {
  if ((mask & kAllButBit8) == FC_REG_LINK_EVENT) outsz = sizeof(LINKINFO);
  RegEvent wanted = {};
  wanted.e_mask = mask;
  wanted.e_gstype = type;
  wanted.e_outsz = outsz;
  wanted.e_func = func;
  wanted.e_ctx = ctx;
  if (!register_on_boards(board, wanted, register_on_board)) return 0;
  HCX_LOG(LOG_IOCTL, "pid %d exit with firstchild %d", getpid(), static_cast<int>(wanted.e_firstchild));
  return wanted.e_firstchild;
}

uint32_t HCX_RegisterForEvent(uint32_t board, uint32_t mask, uint32_t type, uint32_t outsz, void (*func)(),
                              void *ctx) {
  HCX_TRACE();
  event_safe_point();
  // The first scan, where there was none, so that the list is there for a registration on all boards.
  HostRef first = board_host(board);
  first.drop();
  if (!func) return 0;
  if (!(mask & FC_REG_ALL_PORTS) && board >= kEventBoards) {
    HCX_LOG(LOG_ERROR, "pid %d board %d not found", getpid(), static_cast<int>(board));
    return 0;
  }
  return mask & FC_REG_CT_EVENT ? bsg_register_for_ct_event(board, mask, type, outsz, func, ctx)
                                : netlink_register_for_event(board, mask, type, outsz, func, ctx);
}

uint32_t RegisterForEvent(uint32_t board, uint32_t mask, uint32_t type, uint32_t outsz, void (*func)(),
                          void *ctx, uint32_t *) {
  HCX_TRACE();
  return HCX_RegisterForEvent(board, mask, type, outsz, func, ctx);
}

uint32_t RegisterForCTEvents(uint32_t board, uint16_t gstype, void (*func)(), void *ctx, uint32_t *) {
  HCX_TRACE();
  return HCX_RegisterForEvent(board, FC_REG_CT_EVENT, gstype, kCtBuffer, func, ctx);
}

uint32_t unRegOnId(uint32_t board, uint32_t id) {
  if (board >= kEventBoards) return 0;
  Removed removed;
  {
    const EventLock lock;
    if (id == 0) {
      while (hcx_RegEventCnt[board] > 0)
        cut_out(board, hcx_RegEventCnt[board] - 1, false, &removed);
    } else if (const RegEvent *found = find_registration(board, id)) {
      cut_out(board, static_cast<uint32_t>(found - hcx_RegEvent[board]), true, &removed);
    }
  }
  const bool any = removed.count > 0;
  release_registrations(&removed);
  return any;
}

uint32_t HCX_unRegisterForEvent(uint32_t board, uint32_t eventid) {
  HCX_TRACE();
  event_safe_point();
  if (board >= kEventBoards) return 0;
  if (eventid == 0) {
    unRegOnId(board, 0);
    return 1;
  }
  Removed removed;
  {
    const EventLock lock;
    // The first of the call, then on every board what was registered by the same call.
    for (const bool siblings : {false, true}) {
      for (uint32_t at = 0; at < kEventBoards; ++at) {
        RegEvent *begin = hcx_RegEvent[at], *end = begin + hcx_RegEventCnt[at];
        const RegEvent *found = std::find_if(begin, end, [=](const RegEvent &record) {
          return (siblings ? record.e_firstchild : record.event_id) == eventid;
        });
        if (found != end) cut_out(at, static_cast<uint32_t>(found - begin), true, &removed);
      }
      if (removed.count == 0) return 0;
    }
  }
  release_registrations(&removed);
  return 1;
}

uint32_t unRegisterForEvent(uint32_t board, uint32_t eventid) {
  HCX_TRACE();
  return HCX_unRegisterForEvent(board, eventid);
}

uint32_t unRegisterForCTEvent(uint32_t board, uint32_t *eventid) {
  HCX_TRACE();
  // 0 would stand for all of the board.
  if (eventid && *eventid != 0 && HCX_unRegisterForEvent(board, *eventid) != 0) return 0;
  HCX_LOG(LOG_ERROR, "board %d invalid eventid x%08x", static_cast<int>(board), eventid ? *eventid : 0);
  return FC_ERROR_INVALID_TAG;
}
