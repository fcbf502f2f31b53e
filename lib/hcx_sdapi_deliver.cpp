// SPDX-License-Identifier: BSD-3-Clause
// From the driver's record of a diagnostic event to the registered function: one table row for each kind of event,
// with the record's size and the routine that turns it into the chain that the function gets. Runs in the listener, or
// in any thread that has events of its own, with the service's lock and the host's read lock held.
#include <atomic>
#include <cstring>

#include "hcx_bytes.h"
#include "hcx_sdapi_event.h"
#include "vosk_nl.h"

using namespace hcx;
using namespace hcx::sd;

static_assert(sizeof(void *) != 4 || sizeof(SD_event) == 12);
static_assert(sizeof(void *) != 8 || (sizeof(SD_event) == 16 && sizeof(SD_els_event_details_v0) == 16));
static_assert(sizeof(SD_els_event_details_v0) == sizeof(sd_scsi_event_details_v0) &&
              sizeof(SD_els_event_details_v0) == sizeof(SD_fabric_event_details_v0));
static_assert(sizeof(SD_scsi_generic_v0) == 16 && sizeof(sd_scsi_checkcondition_v0) == 32 &&
              sizeof(sd_scsi_varquedepth_v0) == 24);

namespace {

constexpr char caller[] = "hcx_sd_async_event_handler";

// What a registered function sees, all in one place.
struct Chain {
  SD_event event = {0, sizeof(SD_event), nullptr};
  union {
    SD_els_event_details_v0 els;
    SD_fabric_event_details_v0 fabric;
    sd_scsi_event_details_v0 scsi;
  } category;
  union {
    SD_scsi_generic_v0 generic;
    sd_scsi_checkcondition_v0 check_condition;
    sd_scsi_varquedepth_v0 queue_depth;
    sd_plogi_rcv_v0 plogi;
    sd_prlo_rcv_v0 prlo;
    sd_adisc_rcv_v0 adisc;
    sd_lsrjt_rcv_v0 lsrjt;
    sd_logo_rcv_v0 logo;
    sd_pbsy_rcv_v0 busy;
    sd_fcprdchkerr_v0 read_check;
  } detail;
};

template <class Category, class Detail>
void link(Chain *chain, Category *category, Detail *detail, const Detail &value) {
  *detail = value;
  *category = {0, detail};
  chain->event.sd_evt_payload = category;
  chain->event.sd_evt_size = sizeof(SD_event) + sizeof(Category) + sizeof(Detail);
}

HBA_WWN name(const uint8_t (&bytes)[8]) {
  HBA_WWN wwn;
  memcpy(wwn.wwn, bytes, sizeof wwn.wwn);
  return wwn;
}

void plogi(const void *record, Chain *chain) {
  const auto event = load_bytes<vosk_els_event_header>(record);
  link(chain, &chain->category.els, &chain->detail.plogi, {0, name(event.wwpn), name(event.wwnn)});
}

void prlo(const void *record, Chain *chain) {
  const auto event = load_bytes<vosk_els_event_header>(record);
  link(chain, &chain->category.els, &chain->detail.prlo, {0, name(event.wwpn)});
}

void adisc(const void *record, Chain *chain) {
  const auto event = load_bytes<vosk_els_event_header>(record);
  link(chain, &chain->category.els, &chain->detail.adisc, {0, name(event.wwpn), name(event.wwnn)});
}

void lsrjt(const void *record, Chain *chain) {
  const auto event = load_bytes<vosk_lsrjt_event>(record);
  link(chain, &chain->category.els, &chain->detail.lsrjt,
       {0, name(event.header.wwpn), event.command, event.reason_code, event.explanation});
}

void logo(const void *record, Chain *chain) {
  const auto event = load_bytes<vosk_logo_event>(record);
  link(chain, &chain->category.els, &chain->detail.logo, {0, name(event.header.wwpn), name(event.logo_wwpn)});
}

void busy(const void *record, Chain *chain) {
  const auto event = load_bytes<vosk_fabric_event_header>(record);
  link(chain, &chain->category.fabric, &chain->detail.busy, {0, name(event.wwpn)});
}

void read_check(const void *record, Chain *chain) {
  const auto event = load_bytes<vosk_fcprdchkerr_event>(record);
  link(chain, &chain->category.fabric, &chain->detail.read_check,
       {0, name(event.header.wwpn), event.lun, event.opcode, event.fcpiparam});
}

void generic(const void *record, Chain *chain) {
  const auto event = load_bytes<vosk_scsi_event_header>(record);
  link(chain, &chain->category.scsi, &chain->detail.generic, {0, name(event.wwpn), event.lun});
}

void check_condition(const void *record, Chain *chain) {
  const auto event = load_bytes<vosk_scsi_check_condition_event>(record);
  link(chain, &chain->category.scsi, &chain->detail.check_condition,
       {0, name(event.header.wwpn), event.header.lun, event.opcode, event.sense_key, event.asc, event.ascq});
}

void queue_depth(const void *record, Chain *chain) {
  const auto event = load_bytes<vosk_scsi_varqueuedepth_event>(record);
  link(chain, &chain->category.scsi, &chain->detail.queue_depth,
       {0, name(event.header.wwpn), event.header.lun, event.oldval, event.newval});
}

void nothing(const void *, Chain *) {}

struct Decoder {
  uint32_t category;  // of the driver
  uint32_t subcategory;
  size_t size;  // of the driver's record
  void (*build)(const void *record, Chain *chain);
};

constexpr Decoder decoders[] = {
    {VOSK_NL_EVENT_ELS, SD_ELS_PLOGI, sizeof(vosk_els_event_header), plogi},
    {VOSK_NL_EVENT_ELS, SD_ELS_PRLO, sizeof(vosk_els_event_header), prlo},
    {VOSK_NL_EVENT_ELS, SD_ELS_ADISC, sizeof(vosk_els_event_header), adisc},
    {VOSK_NL_EVENT_ELS, SD_ELS_LSRJT, sizeof(vosk_lsrjt_event), lsrjt},
    {VOSK_NL_EVENT_ELS, SD_ELS_LOGO, sizeof(vosk_logo_event), logo},
    {VOSK_NL_EVENT_FABRIC, SD_FABRIC_BUSY, sizeof(vosk_fabric_event_header), busy},
    {VOSK_NL_EVENT_FABRIC, SD_FABRIC_PORT_BUSY, sizeof(vosk_fabric_event_header), busy},
    {VOSK_NL_EVENT_FABRIC, SD_FABRIC_FCPRDCHKERR, sizeof(vosk_fcprdchkerr_event), read_check},
    {VOSK_NL_EVENT_SCSI, SD_SCSI_GENERIC_1, sizeof(vosk_scsi_event_header), generic},
    {VOSK_NL_EVENT_SCSI, SD_SCSI_GENERIC_2, sizeof(vosk_scsi_event_header), generic},
    {VOSK_NL_EVENT_SCSI, SD_SCSI_CHECK_CONDITION, sizeof(vosk_scsi_check_condition_event), check_condition},
    {VOSK_NL_EVENT_SCSI, SD_SCSI_GENERIC_8, sizeof(vosk_scsi_event_header), generic},
    {VOSK_NL_EVENT_SCSI, SD_SCSI_GENERIC_16, sizeof(vosk_scsi_event_header), generic},
    {VOSK_NL_EVENT_SCSI, SD_SCSI_NO_DETAIL_32, sizeof(vosk_scsi_event_header), nothing},
    {VOSK_NL_EVENT_SCSI, SD_SCSI_VARQUEDEPTH, sizeof(vosk_scsi_varqueuedepth_event), queue_depth},
    {VOSK_NL_EVENT_BOARD, SD_SUBCATEGORY_ONLY, sizeof(vosk_board_event_header), nothing},
    {VOSK_NL_EVENT_ADAPTER, SD_SUBCATEGORY_ONLY, sizeof(vosk_adapter_event_header), nothing},
};

// Null for a kind that is not known, and for a record that is too short for its kind.
const Decoder *find_decoder(uint32_t category, uint32_t subcategory, size_t length) {
  for (const Decoder &decoder : decoders) {
    if (decoder.category == category && decoder.subcategory == subcategory)
      return length >= decoder.size ? &decoder : nullptr;
  }
  return nullptr;
}

// The first that fits an event of a port: its board's number, -1 for none, and its name.
const hcx_event_details *find_registration(const vosk_to_libhcx_header &head, int brd_idx,
                                           const HBA_WWN &wwpn) {
  for (const hcx_event_details *at = hcx_events_list_head; at; at = at->next) {
    if (at->vosk_event_category != head.event_type || at->vosk_event_subcategory != head.subcategory)
      continue;
    const bool own_port =
        brd_idx >= 0 && at->board_id == static_cast<uint32_t>(brd_idx) && is_zero(at->hcx_port_id);
    // A port whose name could not be read is nobody's.
    if (own_port || (!is_zero(wwpn) && equal(at->hcx_port_id, wwpn))) return at;
  }
  return nullptr;
}

void log_no_subcategory(const hcx_event_details &registration) {
  const auto subcategory = static_cast<int>(registration.hcx_event_subcategory);
  switch (registration.hcx_event_category) {
    case SD_CATEGORY_ELS:
      libhcx_syslog(LOG_SANDIAG, "%s - els no sub category %d", caller, subcategory);
      break;
    case SD_CATEGORY_FABRIC:
      libhcx_syslog(LOG_SANDIAG, "%s - fabric no sub category %d", caller, subcategory);
      break;
    case SD_CATEGORY_SCSI:
      libhcx_syslog(LOG_SANDIAG, "%s - scsi no sub category %d", caller, subcategory);
      break;
    case SD_CATEGORY_BOARD:
      libhcx_syslog(LOG_SANDIAG, "%s - board no sub category %d", caller, subcategory);
      break;
    case SD_CATEGORY_ADAPTER:
      libhcx_syslog(LOG_SANDIAG, "%s - adapter no sub category %d", caller, subcategory);
      break;
    default:
      libhcx_syslog(LOG_SANDIAG, "%s - event no sub category %d", caller, subcategory);
      break;
  }
}

// The kind is taken from the registration: what the application is told must fit what it asked for.
void notify(const hcx_event_details &registration, const void *record, size_t length) {
  const Category *category = find_category(registration.hcx_event_category);
  const Decoder *decoder =
      category ? find_decoder(category->driver, registration.hcx_event_subcategory, length) : nullptr;
  if (!decoder) {
    log_no_subcategory(registration);
    return;
  }
  Chain chain;
  decoder->build(record, &chain);
  registration.hcx_callback(registration.board_id, registration.hcx_port_id, registration.hcx_event_category,
                            registration.hcx_event_subcategory, registration.hcx_event_context, &chain.event);
}

// Only while there are registrations; the service's lock is held.
void deliver(uint32_t host_no, const void *record, size_t length) {
  const HostRef host(hcx_host_find_by_id(hcx_host_list, host_no));
  // Start-up may be numbering the boards.
  const int brd_idx = host ? std::atomic_ref<int>(host->brd_idx).load() : -1;
  HBA_WWN wwpn = {};
  hcx_get_wwpn(host_no, &wwpn);
  vosk_to_libhcx_header head = {};
  if (length >= sizeof head) memcpy(&head, record, sizeof head);
  if (!find_decoder(head.event_type, head.subcategory, length)) {
    libhcx_syslog(LOG_SANDIAG,
                  "%s - event %d not handled on brd_idx %d wwpn 0x%02x%02x%02x%02x%02x%02x%02x%02x", caller,
                  static_cast<int>(head.event_type), brd_idx, HCX_WWN_BYTES(wwpn));
    return;
  }
  if (const hcx_event_details *registration = find_registration(head, brd_idx, wwpn))
    notify(*registration, record, length);
}

}  // namespace

void hcx_sd_async_event_handler(uint32_t host_no, uint32_t, uint32_t event_code, uint32_t *event_data,
                                uint32_t length) {
  HCX_TRACE();
  if (event_code != VOSKH_EVT_VENDOR_UNIQUE) {
    HCX_LOG(LOG_SANDIAG, "invalid event code %d", static_cast<int>(event_code));
    return;
  }
  if (!event_data) {
    HCX_LOG(LOG_SANDIAG, "no event data");
    return;
  }
  const Lock lock;
  if (lock.result() == SD_OK && hcx_events_list_head) deliver(host_no, event_data, length);
}
