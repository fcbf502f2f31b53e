// SPDX-License-Identifier: BSD-3-Clause
// From an event to what waits for the registered functions: which kind it is, whom it is for, and a copy of it in
// the list of each registration that wants it. Runs in the listener, or in any thread that has events of its own.
#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>

#include "hcx_ioctl_event.h"
#include "libhcx.h"

using namespace hcx;

namespace {

constexpr char kCaller[] = "signal_async_event_handler";
constexpr uint32_t kRscnPayload = offsetof(vosk_rscn_event_header, rscn_payload);
static_assert(kRscnPayload == 8 && sizeof(vosk_temp_event) == 12);

// An event as its registrations get it; `mask` is 0 for one that they do not.
struct Delivery {
  uint32_t mask = 0;
  host_event event = {};
  const uint8_t *payload = nullptr;
};

uint32_t word(const uint32_t *data, size_t index) {
  return data[index];
}

Delivery classify_temperature(uint32_t host_no, const uint32_t *data, uint32_t length) {
  Delivery delivery;
  if (length < sizeof(vosk_temp_event)) {
    libhcx_syslog(LOG_ERROR, "%s - host_no %d length %d to small for temp event", kCaller,
                  static_cast<int>(host_no), static_cast<int>(length));
    return delivery;
  }
  delivery.mask = FC_REG_TEMPERATURE_EVENT;
  delivery.event.data1 = word(data, 1);
  delivery.event.data2 = word(data, 2);
  return delivery;
}

Delivery classify_rscn(uint32_t host_no, const uint32_t *data, uint32_t length) {
  Delivery delivery;
  if (length < kRscnPayload) {
    libhcx_syslog(LOG_ERROR, "%s - host_no %d length %d is too short for an RSCN", kCaller,
                  static_cast<int>(host_no), static_cast<int>(length));
    return delivery;
  }
  delivery.mask = FC_REG_RSCN_EVENT;
  delivery.payload = reinterpret_cast<const uint8_t *>(data) + kRscnPayload;
  // The length that stands in the event is believed only as far as the event goes.
  delivery.event.data_len = std::min(word(data, 1), length - kRscnPayload);
  return delivery;
}

Delivery classify_vendor(uint32_t host_no, uint32_t seq_num, uint32_t *data, uint32_t length) {
  Delivery delivery;
  if (!data || length < sizeof(uint32_t)) {
    libhcx_syslog(LOG_ERROR, "%s - host_no %d vendor event of %d bytes is too short", kCaller,
                  static_cast<int>(host_no), static_cast<int>(length));
    return delivery;
  }
  switch (word(data, 0)) {
    case VOSK_NL_EVENT_DUMP:
      delivery.mask = FC_REG_DUMP_EVENT;
      break;
    case VOSK_NL_EVENT_TEMPERATURE:
      delivery = classify_temperature(host_no, data, length);
      break;
    case VOSK_NL_EVENT_RSCN:
      delivery = classify_rscn(host_no, data, length);
      break;
    default:
      libhcx_syslog(LOG_IOCTL, "%s - host_no %d san diag event", kCaller, static_cast<int>(host_no));
      hcx_sd_async_event_handler(host_no, seq_num, VOSKH_EVT_VENDOR_UNIQUE, data, length);
      break;
  }
  delivery.event.data = word(data, 0);
  return delivery;
}

Delivery classify(uint32_t host_no, uint32_t seq_num, uint32_t event_code, uint32_t *data, uint32_t length) {
  Delivery delivery;
  switch (event_code) {
    case VOSKH_EVT_LINKDOWN:
    case VOSKH_EVT_LINKUP:
      libhcx_syslog(LOG_IOCTL,
                    event_code == VOSKH_EVT_LINKDOWN ? "%s - host_no %d link down event"
                                                     : "%s - host_no %d link up event",
                    kCaller, static_cast<int>(host_no));
      delivery.mask = FC_REG_LINK_EVENT;
      break;
    case VOSKH_EVT_VENDOR_UNIQUE:
      delivery = classify_vendor(host_no, seq_num, data, length);
      break;
    default:
      libhcx_syslog(LOG_IOCTL, "%s - host_no %d event x%08x not handled", kCaller, static_cast<int>(host_no),
                    event_code);
      break;
  }
  delivery.event.seq_num = seq_num;
  delivery.event.event_code = event_code;
  return delivery;
}

// The board of the event's host; that of the physical host for an RSCN of a virtual port, which then is one of
// its own kind. Outside 0..31: none.
uint32_t board_of(uint32_t host_no, Delivery *delivery) {
  HostRef host(hcx_host_find_by_id(hcx_host_list, host_no));
  if (!host && delivery->mask == FC_REG_RSCN_EVENT) {
    host = HostRef(hcx_vport_to_physical_host(host_no));
    if (host) {
      delivery->mask = FC_REG_VPORTRSCN_EVENT;
      delivery->event.data = VOSK_NL_EVENT_VPORT_RSCN;
      hcx_get_wwpn(host_no, &delivery->event.wwpn);
    }
  }
  if (!host) return UINT32_MAX;
  return static_cast<uint32_t>(std::atomic_ref<int>(host->brd_idx).load());
}

// A copy of the event with a payload of its own; null without memory.
host_event *copy_event(uint32_t host_no, const Delivery &delivery) {
  host_event *node = heap_array<host_event>(1).release();
  if (!node) return nullptr;
  *node = delivery.event;
  if (node->data_len == 0) return node;
  node->data_buffer = heap_array<uint8_t>(node->data_len).release();
  if (node->data_buffer) {
    memcpy(node->data_buffer, delivery.payload, node->data_len);
    return node;
  }
  free(node);
  libhcx_syslog(LOG_ERROR, "%s - host_no %d could not allocate RSCN buffer of %d size", kCaller,
                static_cast<int>(host_no), static_cast<int>(delivery.event.data_len));
  return nullptr;
}

void append(RegEvent *record, host_event *node) {
  if (record->event_list_tail) {
    record->event_list_tail->next = node;
  } else {
    record->event_list_head = node;
  }
  record->event_list_tail = node;
}

}  // namespace

void signal_async_event_handler(uint32_t host_no, uint32_t seq_num, uint32_t event_code, uint32_t *event_data,
                                uint32_t length) {
  HCX_TRACE();
  Delivery delivery = classify(host_no, seq_num, event_code, event_data, length);
  if (delivery.mask == 0) return;
  const uint32_t board = board_of(host_no, &delivery);
  if (board >= kEventBoards) return;
  bool any;
  {
    const EventLock lock;
    any = hcx_RegEventCnt[board] > 0;
    for (uint32_t slot = 0; slot < hcx_RegEventCnt[board]; ++slot) {
      RegEvent &record = hcx_RegEvent[board][slot];
      if ((record.e_mask & delivery.mask) != delivery.mask) continue;
      if (host_event *node = copy_event(host_no, delivery)) {
        append(&record, node);
      } else {
        HCX_LOG(LOG_ERROR, "brd %d could not allocate host event memory", static_cast<int>(board));
      }
    }
  }
  if (!any) return;
  request_sweep(false);
  event_safe_point();
}
