// SPDX-License-Identifier: BSD-3-Clause
// FCP target mappings: every LUN of a board, as the operating system and as the fabric name it, and its
// identification. The lists are walked under the host's read lock; LUNs are asked after it has been given
// back.
#include <algorithm>
#include <cstring>

#include "libhcx.h"

static_assert(sizeof(HBA_FCPSCSIENTRY) == 304 && offsetof(HBA_FCPSCSIENTRY, FcpId) == 272);
static_assert(sizeof(HBA_FCPSCSIENTRYV2) == 560 && offsetof(HBA_FCPSCSIENTRYV2, LUID) == 304);
static_assert(offsetof(HBA_FCPID, FcpLun) == 24 && sizeof(HBA_SCSIID) == 268);
static_assert(offsetof(HBA_FCPTARGETMAPPING, entry) == 8 && offsetof(HBA_FCPTARGETMAPPINGV2, entry) == 8);

namespace hcx {
namespace {

// The first level of a LUN number as an 8-byte image.
uint64_t lun_image(uint64_t lun) {
  const uint8_t bytes[8] = {static_cast<uint8_t>(lun >> 8), static_cast<uint8_t>(lun)};
  uint64_t image;
  memcpy(&image, bytes, sizeof image);
  return image;
}

const char *device_name(const hcx_lun *lun) {
  if (lun->block_dev) return lun->block_dev;
  if (lun->tape_dev) return lun->tape_dev;
  return lun->generic_scsi_dev ? lun->generic_scsi_dev : "";
}

void fill_entry(const hcx_port *port, const hcx_lun *lun, HBA_FCPSCSIENTRY *entry) {
  memset(entry, 0, sizeof *entry);
  const char *name = device_name(lun);
  memcpy(entry->ScsiId.OSDeviceName, name, strnlen(name, sizeof entry->ScsiId.OSDeviceName - 1));
  entry->ScsiId.ScsiTargetNumber = port->scsi_target_id;
  entry->ScsiId.ScsiOSLun = static_cast<uint32_t>(lun->id);
  entry->FcpId.FcId = port->port_id;
  memcpy(entry->FcpId.NodeWWN.wwn, port->wwnn, sizeof port->wwnn);
  memcpy(entry->FcpId.PortWWN.wwn, port->wwpn, sizeof port->wwpn);
  entry->FcpId.FcpLun = lun_image(lun->id);
}

// Fills the entries for which there is room; the number of all LUNs.
uint32_t fill_mapping(const hcx_host *host, HBA_FCPSCSIENTRY *entries, uint32_t room) {
  uint32_t count = 0;
  for (const hcx_port *port = host->port_list; port; port = port->next)
    for (const hcx_lun *lun = port->lun_list; lun; lun = lun->next, ++count)
      if (count < room) fill_entry(port, lun, &entries[count]);
  return count;
}

// What GetFcpTargetMapping() does. `fresh`: the board was scanned a moment ago.
uint32_t map_targets(uint32_t board, bool fresh, HBA_FCPTARGETMAPPING *mapping) {
  constexpr char caller[] = "GetFcpTargetMapping";
  libhcx_syslog(LOG_TRACE, "%s()", caller);
  if (!mapping) return HBA_STATUS_ERROR_ARG;
  HostRef host = board_host(board);
  if (!fresh) host = rescan(std::move(host));
  if (!host) {
    mapping->NumberOfEntries = 0;
    libhcx_syslog(LOG_ERROR, "%s - no host on board %d", caller, board);
    return HBA_STATUS_OK;
  }
  const uint32_t room = mapping->NumberOfEntries;
  mapping->NumberOfEntries = fill_mapping(host.get(), mapping->entry, room);
  if (mapping->NumberOfEntries <= room) return HBA_STATUS_OK;
  libhcx_syslog(LOG_HBAAPI, "%s - more data on board %d", caller, board);
  return HBA_STATUS_ERROR_MORE_DATA;
}

constexpr uint32_t kPageSize = 255;

// Takes the first descriptor of a device identification page. What the target says of its length is cut to
// what came.
void take_descriptor(const uint8_t *page, uint32_t received, HBA_LUID *luid) {
  if (received < 8) return;
  const bool of_the_lun = (page[5] & 0x30) == 0;
  const bool known_type = (page[5] & 0x0f) < 4;
  if (!of_the_lun || !known_type) return;
  const size_t length = std::min<size_t>({page[7] + size_t{4}, received - size_t{4}, sizeof luid->buffer});
  memcpy(luid->buffer, page + 4, length);
}

void ask_identification(uint32_t board, HBA_FCPSCSIENTRYV2 *entry) {
  // Cleared each time: a path that failed below SG_IO reports a full transfer of nothing.
  uint8_t page[kPageSize] = {};
  uint8_t sense[64] = {};
  uint32_t page_size = sizeof page;
  uint32_t sense_size = sizeof sense;
  if (SendScsiInquiry(board, &entry->FcpId.PortWWN, entry->FcpId.FcpLun, 1, 0x83, page, &page_size, sense,
                      &sense_size) != 0)
    return;
  if (sense_size == 0) take_descriptor(page, std::min(page_size, kPageSize), &entry->LUID);
}

}  // namespace
}  // namespace hcx

using namespace hcx;

extern "C" uint32_t GetFcpTargetMapping(uint32_t board, HBA_FCPTARGETMAPPING *mapping) {
  return map_targets(board, false, mapping);
}

extern "C" uint32_t HCX_GetFcpTargetMappingV2(uint32_t board, HBA_WWN hbaPortWWN,
                                              HBA_FCPTARGETMAPPINGV2 *mapping2) {
  HCX_TRACE();
  if (!mapping2) return HBA_STATUS_ERROR_ARG;
  HBA_PORTATTRIBUTES attr;
  if (GetAdapterPortAttributes(board, 0, &attr) != HBA_STATUS_OK) {
    HCX_LOG(LOG_ERROR, "get adapter port attributes failed on board %d", board);
    return HBA_STATUS_ERROR;
  }
  const uint8_t *wwn = hbaPortWWN.wwn;
  if (memcmp(wwn, attr.PortWWN.wwn, sizeof attr.PortWWN.wwn) != 0) {
    HCX_LOG(LOG_ERROR, "board %d illegal wwn x%02x%02x%02x%02x%02x%02x%02x%02x ", board, wwn[0], wwn[1],
            wwn[2], wwn[3], wwn[4], wwn[5], wwn[6], wwn[7]);
    return HBA_STATUS_ERROR_ILLEGAL_WWN;
  }
  const uint64_t bytes =
      offsetof(HBA_FCPTARGETMAPPING, entry) + uint64_t{sizeof(HBA_FCPSCSIENTRY)} * mapping2->NumberOfEntries;
  const HeapArray<uint8_t> block = bytes <= SIZE_MAX ? heap_array<uint8_t>(bytes) : nullptr;
  if (!block) {
    HCX_LOG(LOG_ERROR, "board %d malloc failed", board);
    return HBA_STATUS_ERROR;
  }
  auto *mapping = reinterpret_cast<HBA_FCPTARGETMAPPING *>(block.get());
  mapping->NumberOfEntries = mapping2->NumberOfEntries;
  const uint32_t result = map_targets(board, true, mapping);  // the attributes came from a scan
  if (result == HBA_STATUS_ERROR_MORE_DATA) {
    mapping2->NumberOfEntries = mapping->NumberOfEntries;
    HCX_LOG(LOG_HBAAPI, "more data on board %d", board);
    return HBA_STATUS_ERROR_MORE_DATA;
  }
  if (result != HBA_STATUS_OK) {
    HCX_LOG(LOG_HBAAPI, "get fcp target mapping failed with %d on board %d", result, board);
    return HBA_STATUS_ERROR;
  }
  mapping2->NumberOfEntries = mapping->NumberOfEntries;
  for (uint32_t i = 0; i < mapping->NumberOfEntries; ++i) {
    HBA_FCPSCSIENTRYV2 *entry = &mapping2->entry[i];
    entry->ScsiId = mapping->entry[i].ScsiId;
    entry->FcpId = mapping->entry[i].FcpId;
    memset(&entry->LUID, 0, sizeof entry->LUID);
    ask_identification(board, entry);
  }
  return HBA_STATUS_OK;
}
