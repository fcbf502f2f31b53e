// SPDX-License-Identifier: BSD-3-Clause
// Attributes, statistics, target mappings and events of an opened adapter. Each is one call of libhcx; what the two
// interfaces see differently is put right here: which port is meant, and what the result is called.
#include <cstdio>
#include <cstring>

#include "libhcx_api.h"
#include "vendor.h"

namespace hcx_hbaapi {
namespace {

constexpr HBA_UINT8 kFcp = 0x08;  // FC-4 type

// libhcx keeps a record of numbers where the wrapper's users look for a name.
void name_device(HBA_PORTATTRIBUTES *attributes, bool local) {
  HBA_OSDN numbers;
  memcpy(&numbers, attributes->OSDeviceName, sizeof numbers);
  memset(attributes->OSDeviceName, 0, sizeof attributes->OSDeviceName);
  if (local)
    snprintf(attributes->OSDeviceName, sizeof attributes->OSDeviceName, "/sys/class/scsi_host/host%u",
             numbers.bus);
}

HBA_STATUS named(HBA_STATUS result, HBA_PORTATTRIBUTES *attributes, bool local) {
  if (result == HBA_STATUS_OK) name_device(attributes, local);
  return result;
}

// The host of a board, its lock held for reading.
class Host {
 public:
  explicit Host(uint32_t board) : host_(hcx_host_find_by_idx(hcx_host_list, static_cast<int>(board))) {}
  ~Host() {
    if (host_) pthread_rwlock_unlock(&host_->rwlock);
  }
  Host(const Host &) = delete;
  Host &operator=(const Host &) = delete;
  [[nodiscard]] hcx_host *get() const { return host_; }

 private:
  hcx_host *host_;
};

}  // namespace

HBA_STATUS get_adapter_attributes(HBA_HANDLE handle, HBA_ADAPTERATTRIBUTES *attributes) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  return GetAdapterAttributes(board.number(), attributes);
}

HBA_STATUS get_adapter_port_attributes(HBA_HANDLE handle, HBA_UINT32 port, HBA_PORTATTRIBUTES *attributes) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  if (port != 0) return HBA_STATUS_ERROR_ILLEGAL_INDEX;
  return named(GetAdapterPortAttributes(board.number(), 0, attributes), attributes, true);
}

HBA_STATUS get_discovered_port_attributes(HBA_HANDLE handle, HBA_UINT32 port, HBA_UINT32 position,
                                          HBA_PORTATTRIBUTES *attributes) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  if (port != 0) return HBA_STATUS_ERROR_ILLEGAL_INDEX;
  // This one tells a position past the end from a board that has gone.
  const HBA_STATUS result = GetPortAttributesByIndex(board.number(), 0, position, attributes);
  if (result == HBA_STATUS_ERROR) return HBA_STATUS_ERROR_ILLEGAL_INDEX;
  return named(result, attributes, false);
}

HBA_STATUS get_port_attributes_by_wwn(HBA_HANDLE handle, HBA_WWN name, HBA_PORTATTRIBUTES *attributes) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  if (board.has_port(name))
    return named(GetAdapterPortAttributes(board.number(), 0, attributes), attributes, true);
  const HBA_STATUS result = GetPortAttributesByWWN(board.number(), name, attributes);
  if (result == HBA_STATUS_ERROR_STALE_DATA) return HBA_STATUS_ERROR_ILLEGAL_WWN;
  return named(result, attributes, false);
}

HBA_STATUS get_port_statistics(HBA_HANDLE handle, HBA_UINT32 port, HBA_PORTSTATISTICS *statistics) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  if (port != 0) return HBA_STATUS_ERROR_ILLEGAL_INDEX;
  return GetPortStatistics(board.number(), port, statistics);
}

HBA_STATUS get_fc4_statistics(HBA_HANDLE handle, HBA_WWN name, HBA_UINT8 type,
                              HBA_FC4STATISTICS *statistics) {
  static constexpr struct {
    const char *file;
    int64_t HBA_FC4STATISTICS::*counter;
  } kCounters[] = {
      {"fcp_input_requests", &HBA_FC4STATISTICS::InputRequests},
      {"fcp_output_requests", &HBA_FC4STATISTICS::OutputRequests},
      {"fcp_control_requests", &HBA_FC4STATISTICS::ControlRequests},
      {"fcp_input_megabytes", &HBA_FC4STATISTICS::InputMegabytes},
      {"fcp_output_megabytes", &HBA_FC4STATISTICS::OutputMegabytes},
  };
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  if (!statistics) return HBA_STATUS_ERROR_ARG;
  if (!board.has_port(name)) return HBA_STATUS_ERROR_ILLEGAL_WWN;
  if (type != kFcp) return HBA_STATUS_ERROR_UNSUPPORTED_FC4;
  const Host host(board.number());
  if (!host.get()) return HBA_STATUS_ERROR_UNAVAILABLE;
  for (const auto &row : kCounters)
    statistics->*row.counter = static_cast<int64_t>(hcx_host_stat_read(host.get(), row.file));
  return HBA_STATUS_OK;
}

void reset_statistics(HBA_HANDLE handle, HBA_UINT32 port) {
  if (const Board board(handle); board && port == 0) ResetStatistics(board.number(), port);
}

void refresh_information(HBA_HANDLE handle) {
  if (const Board board(handle); board) RefreshInformation(board.number());
}

HBA_STATUS get_fcp_target_mapping(HBA_HANDLE handle, HBA_FCPTARGETMAPPING *mapping) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  return GetFcpTargetMapping(board.number(), mapping);
}

HBA_STATUS get_fcp_target_mapping_v2(HBA_HANDLE handle, HBA_WWN name, HBA_FCPTARGETMAPPINGV2 *mapping) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  return HCX_GetFcpTargetMappingV2(board.number(), name, mapping);
}

HBA_STATUS get_fcp_persistent_binding(HBA_HANDLE handle, HBA_FCPBINDING *binding) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  return GetFcpPersistentBinding(board.number(), binding);
}

// The driver binds by itself, so there is none.
HBA_STATUS get_persistent_binding_v2(HBA_HANDLE handle, HBA_WWN name, HBA_FCPBINDING2 *binding) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  if (!binding) return HBA_STATUS_ERROR_ARG;
  if (!board.has_port(name)) return HBA_STATUS_ERROR_ILLEGAL_WWN;
  binding->NumberOfEntries = 0;
  return HBA_STATUS_OK;
}

HBA_STATUS get_event_buffer(HBA_HANDLE handle, HBA_EVENTINFO *events, HBA_UINT32 *count) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  return GetEventBuffer(board.number(), events, count);
}

HBA_STATUS get_rnid_mgmt_info(HBA_HANDLE handle, HBA_MGMTINFO *info) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  if (!info) return HBA_STATUS_ERROR_ARG;
  memset(info, 0, sizeof *info);
  return GetRNIDMgmtInfo(board.number(), info) == 0 ? HBA_STATUS_OK : HBA_STATUS_ERROR_UNAVAILABLE;
}

}  // namespace hcx_hbaapi
