// SPDX-License-Identifier: BSD-3-Clause
// Adapter attributes, and the calls that pick one port of a board and read it. Reads are preceded by a
// rescan, which needs the host's write lock: the read lock is given back for it and taken again.
#include <cstring>

#include "libhcx.h"

static_assert(sizeof(HBA_ADAPTERATTRIBUTES) == 2192);
static_assert(offsetof(HBA_ADAPTERATTRIBUTES, NodeWWN) == 640);
static_assert(offsetof(HBA_ADAPTERATTRIBUTES, VendorSpecificID) == 1928);

namespace hcx {
namespace {

struct TextField {
  const char *file;
  size_t offset;
  size_t size;
};
#define HCX_TEXT_FIELD(file, member) \
  { file, offsetof(HBA_ADAPTERATTRIBUTES, member), sizeof(HBA_ADAPTERATTRIBUTES::member) }
constexpr TextField kAdapterTexts[] = {
    HCX_TEXT_FIELD("serialnum", SerialNumber),
    HCX_TEXT_FIELD("modelname", Model),
    HCX_TEXT_FIELD("modeldesc", ModelDescription),
    HCX_TEXT_FIELD("hdw", HardwareVersion),
    HCX_TEXT_FIELD("option_rom_version", OptionROMVersion),
    HCX_TEXT_FIELD("fwrev", FirmwareVersion),
};
#undef HCX_TEXT_FIELD

// "Quorva Fibre Channel driver 4.2.17 (c)" -> "4.2.17"
void copy_version(char (&to)[256], const char *text) {
  text += strcspn(text, "0123456789");
  const size_t length = strcspn(text, " ");
  memcpy(to, text, length);  // the source is a Line: 255 characters at most
  to[length] = '\0';
}

void fill_adapter(const hcx_host *host, HBA_ADAPTERATTRIBUTES *attr) {
  memset(attr, 0, sizeof *attr);
  static constexpr char kManufacturer[] = "Quorva Corporation";
  static constexpr char kDriver[] = "vosk";
  memcpy(attr->Manufacturer, kManufacturer, sizeof kManufacturer);
  memcpy(attr->DriverName, kDriver, sizeof kDriver);
  attr->NumberOfPorts = 1;
  memcpy(attr->NodeWWN.wwn, host->port.wwnn, sizeof attr->NodeWWN.wwn);

  const Path dir = scsi_host_dir(host->id);
  for (const TextField &field : kAdapterTexts)
    hcx_sysfs_read_str(dir.c_str(), field.file, reinterpret_cast<char *>(attr) + field.offset, field.size);
  char *const end = attr->FirmwareVersion + sizeof attr->FirmwareVersion;
  if (char *sli = strstr(attr->FirmwareVersion, ", sli-")) memset(sli, 0, static_cast<size_t>(end - sli));
  Line version;
  if (hcx_sysfs_read_str(dir.c_str(), "vosk_drvr_version", version.data(), version.size()))
    copy_version(attr->DriverVersion, version.c_str());

  const Path fc_dir = fc_host_dir(host->id);
  hcx_sysfs_read_str(fc_dir.c_str(), "symbolic_name", attr->NodeSymbolicName, sizeof attr->NodeSymbolicName);
  attr->VendorSpecificID = hcx_sysfs_read_hexuint32(host->pci_dev, "vendor");
}

hcx_port *port_at(hcx_port *list, uint32_t position) {
  for (; list && position; --position)
    list = list->next;
  return list;
}

// The board, looked at afresh, for a call on channel 0; otherwise the status to answer.
uint32_t channel_host(const char *caller, uint32_t board, uint32_t chan, HostRef &host) {
  if (chan != 0) {
    libhcx_syslog(LOG_ERROR, "%s - board %d chan %d not supported", caller, board, chan);
    return HBA_STATUS_ERROR;
  }
  host = rescan(board_host(board));
  if (host) return HBA_STATUS_OK;
  libhcx_syslog(LOG_ERROR, "%s - no host on board %d", caller, board);
  return HBA_STATUS_ERROR_UNAVAILABLE;
}

// The remote port at a place of the board's list; `missing` is the status when there is none.
uint32_t remote_port_attributes(const char *caller, uint32_t board, uint32_t chan, uint32_t port_idx,
                                uint32_t missing, HBA_PORTATTRIBUTES *attr) {
  HostRef host;
  const uint32_t refused = channel_host(caller, board, chan, host);
  if (refused) return refused;
  hcx_port *port = port_at(host->port_list, port_idx);
  if (!port) {
    libhcx_syslog(LOG_HBAAPI, "%s - no port on board %d port_idx %d", caller, board, port_idx);
    return missing;
  }
  return hcx_sysfs_read_port(port, attr);
}

}  // namespace
}  // namespace hcx

using namespace hcx;

extern "C" uint32_t GetAdapterAttributes(uint32_t board, HBA_ADAPTERATTRIBUTES *hbaattributes) {
  HCX_TRACE();
  if (!hbaattributes) return HBA_STATUS_ERROR_ARG;
  const HostRef host = board_host(board);
  if (!host || !host->pci_dev) {
    HCX_LOG(LOG_ERROR, "no host on board %d", board);
    return HBA_STATUS_ERROR_UNAVAILABLE;
  }
  fill_adapter(host.get(), hbaattributes);
  return HBA_STATUS_OK;
}

extern "C" uint32_t GetAdapterPortAttributes(uint32_t board, uint32_t chan, HBA_PORTATTRIBUTES *attr) {
  HCX_TRACE();
  if (!attr) return HBA_STATUS_ERROR_ARG;
  HostRef host;
  const uint32_t refused = channel_host(__func__, board, chan, host);
  return refused ? refused : hcx_sysfs_read_port(&host->port, attr);
}

extern "C" uint32_t GetPortAttributesByIndex(uint32_t board, uint32_t chan, uint32_t port_idx,
                                             HBA_PORTATTRIBUTES *attr) {
  HCX_TRACE();
  if (!attr) return HBA_STATUS_ERROR_ARG;
  return remote_port_attributes(__func__, board, chan, port_idx, HBA_STATUS_ERROR, attr);
}

extern "C" uint32_t GetDiscoveredPortAttributes(uint32_t board, uint32_t chan, uint32_t port_idx,
                                                HBA_PORTATTRIBUTES *attr) {
  HCX_TRACE();
  if (!attr) return HBA_STATUS_ERROR_ARG;
  return remote_port_attributes(__func__, board, chan, port_idx, HBA_STATUS_ERROR_UNAVAILABLE, attr);
}

extern "C" uint32_t GetPortAttributesByWWN(uint32_t board, HBA_WWN PortWWN, HBA_PORTATTRIBUTES *attr) {
  HCX_TRACE();
  if (!attr) return HBA_STATUS_ERROR_ARG;
  HostRef host = rescan(board_host(board));
  if (!host) {
    HCX_LOG(LOG_ERROR, "no host on board %d", board);
    return HBA_STATUS_ERROR_STALE_DATA;
  }
  hcx_port *port = hcx_port_find_by_wwpn(host->port_list, PortWWN.wwn);
  if (!port) {
    HCX_LOG(LOG_HBAAPI, "no port on board %d", board);
    return HBA_STATUS_ERROR_STALE_DATA;
  }
  return hcx_sysfs_read_port(port, attr);
}

extern "C" uint32_t RefreshInformation(uint32_t board) {
  HCX_TRACE();
  if (!rescan(board_host(board))) {
    HCX_LOG(LOG_ERROR, "no host on board %d", board);
    return HBA_STATUS_ERROR_UNAVAILABLE;
  }
  return HBA_STATUS_OK;
}
