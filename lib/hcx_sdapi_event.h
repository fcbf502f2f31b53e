// SPDX-License-Identifier: BSD-3-Clause
// Registrations for diagnostic events, shared by the calls that make them and by the delivery. All of it is guarded by
// the service's lock.
#pragma once

#include <cstdint>

#include "hcx_sdapi.h"
#include "sd_api.h"

struct hcx_event_details {
  hcx_event_details *next;
  hcx_event_details *previous;
  uint32_t hcx_event_handle;
  uint32_t board_id;
  HBA_WWN hcx_port_id;  // zero: the board's own port
  void *hcx_event_context;
  sd_callback *hcx_callback;
  uint32_t hcx_event_category;  // as the application has them
  uint32_t hcx_event_subcategory;
  uint32_t vosk_event_category;  // as the driver has them
  uint32_t vosk_event_subcategory;
  uint32_t occurrences;
};

namespace hcx::sd {

extern hcx_event_details *hcx_events_list_head;  // newest first
extern uint32_t hcx_next_event_handle;

// A category of events: the application's value and the driver's, and the subcategories, one bit each, which are the
// same on both sides.
struct Category {
  uint32_t api;
  uint32_t driver;
  uint32_t subcategories;
};
// Null for a value that is none.
const Category *find_category(uint32_t api);

}  // namespace hcx::sd
