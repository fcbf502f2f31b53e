// SPDX-License-Identifier: BSD-3-Clause
// Registration for diagnostic events: the list, its handles, and the calls that add and remove. The registrations
// belong to this file and live until they are taken back or the service ends. Any thread; guarded by the service's
// lock.
#include "hcx_sdapi_event.h"

#include <bit>
#include <cstdio>
#include <cstdlib>

#include "vosk_nl.h"

using namespace hcx;
using namespace hcx::sd;

namespace hcx::sd {

hcx_event_details *hcx_events_list_head = nullptr;
uint32_t hcx_next_event_handle = 1;

namespace {

constexpr Category categories[] = {
    {SD_CATEGORY_ELS, VOSK_NL_EVENT_ELS, 0x1f},         {SD_CATEGORY_FABRIC, VOSK_NL_EVENT_FABRIC, 0x07},
    {SD_CATEGORY_SCSI, VOSK_NL_EVENT_SCSI, 0x7f},       {SD_CATEGORY_BOARD, VOSK_NL_EVENT_BOARD, 0x01},
    {SD_CATEGORY_ADAPTER, VOSK_NL_EVENT_ADAPTER, 0x01},
};

int32_t hcx_sd_validate_category(uint32_t category, uint32_t subcategory, const Category **found) {
  *found = find_category(category);
  if (!*found) {
    HCX_LOG(LOG_SANDIAG, "invalid category %d", static_cast<int>(category));
    return SD_ERROR_CATEGORY_NOT_SUPPORTED;
  }
  if (!std::has_single_bit(subcategory) || (subcategory & (*found)->subcategories) == 0) {
    HCX_LOG(LOG_SANDIAG, "invalid category %d sub category %d", static_cast<int>(category),
            static_cast<int>(subcategory));
    return SD_ERROR_SUBCATEGORY_NOT_SUPPORTED;
  }
  return SD_OK;
}

hcx_event_details *find_handle(uint32_t handle) {
  hcx_event_details *at = hcx_events_list_head;
  while (at && at->hcx_event_handle != handle)
    at = at->next;
  return at;
}

const hcx_event_details *find_same(const hcx_event_details &wanted) {
  for (const hcx_event_details *at = hcx_events_list_head; at; at = at->next) {
    if (at->hcx_event_category == wanted.hcx_event_category &&
        at->hcx_event_subcategory == wanted.hcx_event_subcategory && at->board_id == wanted.board_id &&
        equal(at->hcx_port_id, wanted.hcx_port_id))
      return at;
  }
  return nullptr;
}

// The next handle that no registration has; goes on from 0 after the last number.
uint32_t free_handle() {
  while (find_handle(hcx_next_event_handle))
    ++hcx_next_event_handle;
  return hcx_next_event_handle++;
}

void unlink(hcx_event_details *record) {
  (record->previous ? record->previous->next : hcx_events_list_head) = record->next;
  if (record->next) record->next->previous = record->previous;
  free(record);
}

// A board that exists, and a port that is there.
int32_t check_place(const char *caller, uint32_t board_id, HBA_WWN port_id) {
  if (board_id > hcx_board_count) {
    libhcx_syslog(LOG_SANDIAG, "%s - board id %d too big", caller, static_cast<int>(board_id));
    return SD_ERROR_INVALID_BOARD_ID;
  }
  Target target;
  return find_target(caller, board_id, port_id, &target);
}

}  // namespace

const Category *find_category(uint32_t api) {
  for (const Category &category : categories)
    if (category.api == api) return &category;
  return nullptr;
}

void drop_registrations() {
  while (hcx_events_list_head)
    unlink(hcx_events_list_head);
}

}  // namespace hcx::sd

int32_t HCX_SD_RegisterForEvent(uint32_t board_id, HBA_WWN port_id, uint32_t event_category,
                                uint32_t event_subcategory, void *context, uint32_t *reg_handle,
                                sd_callback *func) {
  HCX_TRACE();
  if (!initialized(__func__)) return SD_ERROR_LIB_NOT_INIT;
  if (!reg_handle || !context || !func) {
    HCX_LOG(LOG_SANDIAG, "missing argument");
    return SD_ERROR_ARG_MISSING;
  }
  const Category *category;
  if (const int32_t result = hcx_sd_validate_category(event_category, event_subcategory, &category))
    return result;
  const Lock lock;
  if (lock.result() != SD_OK) return lock.result();
  if (const int32_t result = check_place(__func__, board_id, port_id)) return result;
  const hcx_event_details wanted = {.next = hcx_events_list_head,
                                    .previous = nullptr,
                                    .hcx_event_handle = 0,
                                    .board_id = board_id,
                                    .hcx_port_id = port_id,
                                    .hcx_event_context = context,
                                    .hcx_callback = func,
                                    .hcx_event_category = event_category,
                                    .hcx_event_subcategory = event_subcategory,
                                    .vosk_event_category = category->driver,
                                    .vosk_event_subcategory = event_subcategory,
                                    .occurrences = 0};
  if (find_same(wanted)) {
    HCX_LOG(LOG_SANDIAG,
            "board %d already registered category %d subcategory %d on wwpn "
            "0x%02x%02x%02x%02x%02x%02x%02x%02x",
            static_cast<int>(board_id), static_cast<int>(event_category), static_cast<int>(event_subcategory),
            HCX_WWN_BYTES(port_id));
    return SD_ERROR_EVENT_ALREADY_REGISTERED;
  }
  hcx_event_details *record = heap_array<hcx_event_details>(1).release();
  if (!record) {
    HCX_LOG(LOG_ERROR, "out of memory");
    return SD_ERROR_NO_MEMORY;
  }
  *record = wanted;
  record->hcx_event_handle = *reg_handle = free_handle();
  if (hcx_events_list_head) hcx_events_list_head->previous = record;
  hcx_events_list_head = record;
  return SD_OK;
}

int32_t HCX_SD_unRegisterForEvent(uint32_t board_id, HBA_WWN port_id, uint32_t reg_handle) {
  HCX_TRACE();
  if (!initialized(__func__)) return SD_ERROR_LIB_NOT_INIT;
  const Lock lock;
  if (lock.result() != SD_OK) return lock.result();
  if (hcx_events_list_head && board_id > hcx_board_count) {
    HCX_LOG(LOG_SANDIAG, "board id %d too big", static_cast<int>(board_id));
    return SD_ERROR_INVALID_BOARD_ID;
  }
  hcx_event_details *record = find_handle(reg_handle);
  if (!record) {
    HCX_LOG(LOG_SANDIAG, "board %d no handle found", static_cast<int>(board_id));
    return SD_ERROR_REG_HANDLE;
  }
  if (!equal(record->hcx_port_id, port_id)) {
    HCX_LOG(LOG_SANDIAG, "board %d invalid port", static_cast<int>(board_id));
    return SD_ERROR_INVALID_PORT;
  }
  if (record->board_id != board_id) {
    HCX_LOG(LOG_SANDIAG, "search failed for board %d ", static_cast<int>(board_id));
    return SD_ERROR_INVALID_PORT;
  }
  unlink(record);
  return SD_OK;
}

void hcx_sd_show_events(void) {
  HCX_TRACE();
  if (!hcx_sd_configured) {
    printf("No events registered");
    return;
  }
  const Lock lock;
  if (lock.result() != SD_OK) return;
  if (!hcx_events_list_head) printf("No events registered");
  for (const hcx_event_details *at = hcx_events_list_head; at; at = at->next) {
    printf(
        "Handle %d Board %d Port %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x Category %d Subcategory %d "
        "occurences %d\n",
        static_cast<int>(at->hcx_event_handle), static_cast<int>(at->board_id),
        HCX_WWN_BYTES(at->hcx_port_id), static_cast<int>(at->hcx_event_category),
        static_cast<int>(at->hcx_event_subcategory), static_cast<int>(at->occurrences));
  }
}
