// SPDX-License-Identifier: BSD-3-Clause
// The FCoE settings in region 23: the list of forwarders that a port may use, and the FIP parameters. A record that is
// there is rewritten in place; a new one takes the place of the end mark. No state; any thread.
#include <cstring>

#include "hcx_fcoe.h"
#include "hcx_region.h"

namespace hcx::fcoe {

bool check_version(const char *caller, uint32_t board, uint8_t &found) {
  if (found == version) return true;
  libhcx_syslog(LOG_ERROR, "%s - board %d bad version %d expected %d", caller, static_cast<int>(board), found,
                version);
  found = version;
  return false;
}

uint32_t check_port(const char *caller, uint32_t board, const HostRef &host) {
  constexpr int fcoe_mode = 0;
  if (!host) {
    libhcx_syslog(LOG_ERROR, "%s - no host on board %d", caller, static_cast<int>(board));
    return 3;
  }
  if (hcx_get_protocol_mode(host.get()) == fcoe_mode) return 0;
  libhcx_syslog(LOG_ERROR, "%s - board %d not supported", caller, static_cast<int>(board));
  return 2;
}

}  // namespace hcx::fcoe

namespace {

using namespace hcx;
using namespace hcx::region;

constexpr int region_number = static_cast<int>(region_23);
constexpr uint32_t more_data = 7;
constexpr uint8_t most_entries = 16;
constexpr uint16_t entry_in_use = 0x01, entry_flags = 0x3F, kept_flags = 0x3E;
constexpr uint8_t fcf_words = 80, fip_words = 2, fip_version = 1, vlan_tag_valid = 0x01;
constexpr uint8_t default_fc_map[3] = {0x0E, 0xFC, 0x00};

static_assert(sizeof(HCX_FCoEFCFInfo) == 552 && offsetof(HCX_FCoEFCFInfo, lkaPeriod) == 540);
static_assert(offsetof(HCX_FCoEFCFList, entries) == 8 && offsetof(HCX_FCoEConnectList, entries) == 4);
static_assert(sizeof(HCX_FCoEFCFConnectEntry) == 22 && sizeof(HCX_FCoEParam) == 10);

uint32_t check_board(const char *caller, uint32_t board) {
  return fcoe::check_port(caller, board, board_host(board));
}

uint32_t no_space(const char *caller, uint32_t board) {
  libhcx_syslog(LOG_ERROR, "%s - board %d no space left in region %d", caller, static_cast<int>(board),
                region_number);
  return 1;
}

// Looks for a record to be written; an adapter that has no region yet gets an empty one, in which `again` is looked
// for. False when that fails.
bool find_or_make(const char *caller, uint32_t board, uint8_t type, uint8_t again, Image &image, Look &look) {
  look = look_up(board, type, image);
  if (!look.not_initialized()) return true;
  if (make_empty(board, image) != 0) {
    libhcx_syslog(LOG_ERROR, "%s - board %d failed to init region %d", caller, static_cast<int>(board),
                  region_number);
    return false;
  }
  look = look_up(board, again, image);
  return true;
}

// Puts a record where it was found, or in the place of the end mark, which then follows it.
void place(Image &image, const Look &look, const auto &record) {
  image.put_record(look.offset, record);
  if (look.found()) return;
  image.clear_from(look.offset + static_cast<int32_t>(sizeof record));
  image.put_record(look.offset + static_cast<int32_t>(sizeof record), end_mark);
}

uint32_t bad_internal_length(const char *caller, uint32_t board, const uint8_t *record) {
  // A connect list has no version: its third byte is shown.
  libhcx_syslog(LOG_ERROR, "%s - board %d bad internal length %d or version %d", caller,
                static_cast<int>(board), record[1], record[2]);
  return 1;
}

// ---- Connect list ----

// The VLAN tag goes into the record as the caller's number stands in memory, and comes out with its bytes exchanged:
// applications expect either.
hcx_FCFC record_of(const HCX_FCoEFCFConnectEntry &entry) {
  hcx_FCFC record{};
  record.flags1 = static_cast<uint16_t>((entry.flags & kept_flags) | entry_in_use);
  store_bytes(record.vlan_tag, entry.vlanId);
  memcpy(record.fabric_name, entry.fabricName, sizeof record.fabric_name);
  memcpy(record.switch_name, entry.switchName, sizeof record.switch_name);
  return record;
}

HCX_FCoEFCFConnectEntry entry_of(const hcx_FCFC &record) {
  HCX_FCoEFCFConnectEntry entry{};
  entry.flags = static_cast<uint16_t>(record.flags1 & kept_flags);
  entry.vlanId = __builtin_bswap16(load_bytes<uint16_t>(record.vlan_tag));
  memcpy(entry.fabricName, record.fabric_name, sizeof entry.fabricName);
  memcpy(entry.switchName, record.switch_name, sizeof entry.switchName);
  return entry;
}

// 0, or the result for a place that cannot take the list.
uint32_t check_list_place(const char *caller, uint32_t board, const Look &look, const Image &image) {
  if (look.offset < 0 || !(look.found() || look.at_end())) {
    libhcx_syslog(LOG_ERROR, "%s - board %d did not find connection record in region %d", caller,
                  static_cast<int>(board), region_number);
    return 1;
  }
  if (look.offset + sizeof(hcx_FCFChdr) + head_size >= image_size) return no_space(caller, board);
  const auto head = image.record<hcx_Generichdr>(look.offset);
  if (look.found() && head.length != fcf_words)
    return bad_internal_length(caller, board, reinterpret_cast<const uint8_t *>(&head));
  return 0;
}

// 5 when an entry has flags that do not exist.
uint32_t fill_list(const char *caller, const HCX_FCoEConnectList &from, hcx_FCFChdr &to) {
  constexpr uint32_t invalid_flags = 5;
  for (int i = 0; i < from.numberOfEntries; ++i) {
    const HCX_FCoEFCFConnectEntry &entry = from.entries[i];
    if (entry.flags & ~entry_flags) {
      libhcx_syslog(LOG_ERROR, "%s - entry(%d) invalid flags x%08x mask x%08x", caller, i, entry.flags,
                    entry_flags);
      return invalid_flags;
    }
    to.FCFC[i] = record_of(entry);
    libhcx_syslog(LOG_UTIL, "%s - entry(%d) copied", caller, i);
  }
  return 0;
}

// ---- FIP parameters ----

uint32_t check_param_place(const char *caller, uint32_t board, const Look &look, const Image &image) {
  if (look.offset < 0 || !(look.found() || look.at_end())) {
    libhcx_syslog(LOG_ERROR, "%s - board %d did not find parameter record in region %d", caller,
                  static_cast<int>(board), region_number);
    return 1;
  }
  if (look.offset + sizeof(hcx_FIPparamhdr) + head_size >= image_size) return no_space(caller, board);
  const auto record = image.record<hcx_FIPparamhdr>(look.offset);
  if (look.found() && (record.length != fip_words || record.version != fip_version))
    return bad_internal_length(caller, board, reinterpret_cast<const uint8_t *>(&record));
  return 0;
}

hcx_FIPparamhdr record_of(const HCX_FCoEParam &param) {
  hcx_FIPparamhdr record{};
  record.type = fip_record;
  record.length = fip_words;
  record.version = fip_version;
  if (param.VLanValid == VLAN_ID_VALID) {
    record.parm_flags = vlan_tag_valid;
    record.VLAN_tag = param.VLanId;
  }
  memcpy(record.FCMAP, param.FCMap, sizeof record.FCMAP);
  return record;
}

}  // namespace

uint32_t HCX_FCoESetFCFConnectList(uint32_t board, HCX_FCoEConnectList *pFCFConnectList) {
  HCX_TRACE();
  if (!pFCFConnectList) {
    HCX_LOG(LOG_ERROR, "no pFCFConnectList");
    return 1;
  }
  if (!fcoe::check_version(__func__, board, pFCFConnectList->version)) return fcoe::wrong_version;
  if (const uint32_t refusal = check_board(__func__, board)) return refusal;
  if (pFCFConnectList->numberOfEntries > most_entries) {
    HCX_LOG(LOG_ERROR, "board %d bad numberOfEntries %d max %d", static_cast<int>(board),
            pFCFConnectList->numberOfEntries, most_entries);
    pFCFConnectList->numberOfEntries = most_entries;
    return more_data;
  }
  Image image;
  Look look;
  // An empty region has neither record.
  if (!find_or_make(__func__, board, fcf_record, fip_record, image, look)) return 1;
  if (const uint32_t refusal = check_list_place(__func__, board, look, image)) return refusal;
  hcx_FCFChdr list{};
  list.type = fcf_record;
  list.length = fcf_words;
  if (const uint32_t refusal = fill_list(__func__, *pFCFConnectList, list)) return refusal;
  place(image, look, list);
  return write_back(board, image);
}

uint32_t HCX_FCoEGetFCFConnectList(uint32_t board, HCX_FCoEConnectList *pFCFConnectList) {
  HCX_TRACE();
  if (!pFCFConnectList) {
    HCX_LOG(LOG_ERROR, "no pFCFConnectList");
    return 1;
  }
  if (!fcoe::check_version(__func__, board, pFCFConnectList->version)) return fcoe::wrong_version;
  if (const uint32_t refusal = check_board(__func__, board)) return refusal;
  constexpr int32_t last_place = image_size - 1 - sizeof(hcx_FCFChdr);
  Image image;
  const Look look = look_up(board, fcf_record, image);
  if (!look.found()) {
    pFCFConnectList->numberOfEntries = 0;
    pFCFConnectList->maxNumOfEntries = most_entries;
    return 0;
  }
  if (look.offset < 0 || look.offset > last_place) return no_space(__func__, board);
  // All sixteen are read, whatever length the record claims: they lie inside of the image.
  const auto list = image.record<hcx_FCFChdr>(look.offset);
  const uint8_t room = pFCFConnectList->numberOfEntries;
  uint8_t count = 0;
  for (const hcx_FCFC &record : list.FCFC) {
    if (!(record.flags1 & entry_in_use) || ++count > room) continue;
    pFCFConnectList->entries[count - 1] = entry_of(record);
  }
  pFCFConnectList->numberOfEntries = count;
  pFCFConnectList->maxNumOfEntries = most_entries;
  return count > room ? more_data : 0;
}

uint32_t HCX_FCoESetParams(uint32_t board, HCX_FCoEParam *pParam) {
  HCX_TRACE();
  if (!pParam) {
    HCX_LOG(LOG_ERROR, "no pParam");
    return 1;
  }
  if (!fcoe::check_version(__func__, board, pParam->version)) return fcoe::wrong_version;
  if (const uint32_t refusal = check_board(__func__, board)) return refusal;
  if (pParam->VLanValid > VLAN_ID_VALID) {
    HCX_LOG(LOG_ERROR, "board %d bad VLanValid %d must be %d or %d", static_cast<int>(board),
            pParam->VLanValid, VLAN_ID_INVALID, VLAN_ID_VALID);
    return 1;
  }
  Image image;
  Look look;
  if (!find_or_make(__func__, board, fip_record, fip_record, image, look)) return 1;
  if (const uint32_t refusal = check_param_place(__func__, board, look, image)) return refusal;
  place(image, look, record_of(*pParam));
  return write_back(board, image);
}

uint32_t HCX_FCoEGetParams(uint32_t board, HCX_FCoEParam *pParam) {
  HCX_TRACE();
  if (!pParam) {
    HCX_LOG(LOG_ERROR, "no pParam");
    return 1;
  }
  if (pParam->version != fcoe::version) {
    pParam->version = fcoe::version;
    return fcoe::wrong_version;
  }
  if (const uint32_t refusal = check_board(__func__, board)) return refusal;
  constexpr int32_t last_place = 1013;
  Image image;
  const Look look = look_up(board, fip_record, image);
  if (!look.found()) {
    HCX_LOG(LOG_UTIL, "board %d returning defaults", static_cast<int>(board));
    memcpy(pParam->FCMap, default_fc_map, sizeof pParam->FCMap);
    pParam->VLanValid = VLAN_ID_VALID;
    pParam->VLanId = 0;
    return 0;
  }
  if (look.offset > last_place) return no_space(__func__, board);
  const auto record = image.record<hcx_FIPparamhdr>(look.offset);
  if (record.length != fip_words || record.version != fip_version) {
    HCX_LOG(LOG_ERROR, "board %d bad length %d or version %d", static_cast<int>(board), record.length,
            record.version);
    return 1;
  }
  memcpy(pParam->FCMap, record.FCMAP, sizeof pParam->FCMap);
  pParam->VLanValid = VLAN_ID_VALID;
  pParam->VLanId = record.parm_flags & vlan_tag_valid ? static_cast<uint16_t>(record.VLAN_tag) : uint16_t{0};
  return 0;
}
