// SPDX-License-Identifier: BSD-3-Clause
// The ring of events that each host has: the listener fills it, GetEventBuffer() drains it. Guarded by
// vosk_event_mutex, under the host's read lock.
#include <algorithm>
#include <cstring>

#include "hcx_ioctl_event.h"
#include "libhcx.h"

using namespace hcx;

namespace {

constexpr uint32_t kLastSlot = HCX_EVENT_RING_SIZE - 1;

// False for events that are not reported.
bool fill_entry(const host_event &event, uint32_t port_id, HBA_EVENTINFO *entry) {
  HBA_EVENTINFO filled = {};
  filled.EventCode = event.event_code;
  switch (event.event_code) {
    case VOSKH_EVT_LINKUP:
    case VOSKH_EVT_LINKDOWN:
      filled.Event.Link_EventInfo.PortFcId = port_id;
      break;
    case VOSKH_EVT_RSCN:
      filled.Event.RSCN_EventInfo.PortFcId = port_id;
      filled.Event.RSCN_EventInfo.NPortPage = event.data;
      break;
    case VOSKH_EVT_VENDOR_UNIQUE:
      break;
    default:
      return false;
  }
  *entry = filled;
  return true;
}

}  // namespace

void post_fc_event(uint32_t host_no, uint32_t seq_num, uint32_t event_code, uint32_t event_data) {
  HCX_TRACE();
  const HostRef host(hcx_host_find_by_id(hcx_host_list, host_no));
  if (!host) return;
  const EventLock lock;
  auto &ring = host->hbaevt;
  host_event &slot = ring.buf[ring.put];
  ring.put = ring.put == kLastSlot ? 0 : ring.put + 1;
  if (ring.put == ring.get) {
    // Full: the oldest makes room. `missed` counts the rounds of the reading position that this causes.
    if (ring.get == kLastSlot) {
      ring.get = 0;
      ++ring.missed;
    } else {
      ++ring.get;
    }
  }
  ++ring.cnt;
  slot = {};
  slot.seq_num = seq_num;
  slot.event_code = event_code;
  slot.data = event_data;
}

uint32_t GetEventBuffer(uint32_t board, HBA_EVENTINFO *eventbuffer, uint32_t *eventcount) {
  HCX_TRACE();
  event_safe_point();
  if (!eventbuffer || !eventcount) return HBA_STATUS_ERROR_ARG;
  HostRef host = board_host(board);
  if (!host) {
    HCX_LOG(LOG_ERROR, "no host on board %d", static_cast<int>(board));
    return HBA_STATUS_ERROR;
  }
  uint32_t count = 0;
  {
    const EventLock lock;
    auto &ring = host->hbaevt;
    while (count < *eventcount && ring.get != ring.put) {
      const host_event &event = ring.buf[ring.get];
      ring.get = ring.get == kLastSlot ? 0 : ring.get + 1;
      if (fill_entry(event, host->port.port_id, &eventbuffer[count])) ++count;
    }
  }
  host.drop();
  *eventcount = count;
  HCX_LOG(LOG_IOCTL, "board %d event buffer count %d", static_cast<int>(board), static_cast<int>(count));
  return HBA_STATUS_OK;
}
