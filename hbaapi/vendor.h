// SPDX-License-Identifier: BSD-3-Clause
// The vendor library's own state, and the functions that it registers: which adapters there are, and who has opened
// which.
//
// An adapter of the HBA API is a board here, and its handle the board number plus one. Loading and unloading take the
// library's lock exclusively, everything else shares it for as long as it runs: unloading waits for calls that are
// under way in other threads.
#pragma once

#include <atomic>
#include <deque>
#include <shared_mutex>
#include <string>

#include "hba_vendor.h"

namespace hcx_hbaapi {

struct Adapter {
  std::string name;
  HBA_WWN port_name = {};
  HBA_WWN node_name = {};
  std::atomic<uint32_t> opened{0};  // handles given out and not closed
};

// An opened adapter, while a call is at work on it.
class Board {
 public:
  explicit Board(HBA_HANDLE handle);
  explicit operator bool() const { return adapter_ != nullptr; }
  [[nodiscard]] uint32_t number() const { return number_; }
  [[nodiscard]] bool has_port(const HBA_WWN &name) const;  // is it the name of the board's own port?
  void close() const;

 private:
  std::shared_lock<std::shared_mutex> lock_;
  Adapter *adapter_ = nullptr;
  uint32_t number_ = 0;
};

// vendor_library.cpp: loading, adapters
HBA_UINT32 get_version();
HBA_STATUS load_library();
HBA_STATUS free_library();
HBA_UINT32 get_number_of_adapters();
HBA_STATUS get_adapter_name(HBA_UINT32 index, char *name);
HBA_HANDLE open_adapter(char *name);
HBA_STATUS open_adapter_by_wwn(HBA_HANDLE *handle, HBA_WWN name);
void close_adapter(HBA_HANDLE handle);
HBA_UINT32 get_vendor_library_attributes(HBA_LIBRARYATTRIBUTES *attributes);

// vendor_port.cpp: attributes, statistics, mappings, events
HBA_STATUS get_adapter_attributes(HBA_HANDLE handle, HBA_ADAPTERATTRIBUTES *attributes);
HBA_STATUS get_adapter_port_attributes(HBA_HANDLE handle, HBA_UINT32 port, HBA_PORTATTRIBUTES *attributes);
HBA_STATUS get_discovered_port_attributes(HBA_HANDLE handle, HBA_UINT32 port, HBA_UINT32 position,
                                          HBA_PORTATTRIBUTES *attributes);
HBA_STATUS get_port_attributes_by_wwn(HBA_HANDLE handle, HBA_WWN name, HBA_PORTATTRIBUTES *attributes);
HBA_STATUS get_port_statistics(HBA_HANDLE handle, HBA_UINT32 port, HBA_PORTSTATISTICS *statistics);
HBA_STATUS get_fc4_statistics(HBA_HANDLE handle, HBA_WWN name, HBA_UINT8 type, HBA_FC4STATISTICS *statistics);
void reset_statistics(HBA_HANDLE handle, HBA_UINT32 port);
void refresh_information(HBA_HANDLE handle);
HBA_STATUS get_fcp_target_mapping(HBA_HANDLE handle, HBA_FCPTARGETMAPPING *mapping);
HBA_STATUS get_fcp_target_mapping_v2(HBA_HANDLE handle, HBA_WWN name, HBA_FCPTARGETMAPPINGV2 *mapping);
HBA_STATUS get_fcp_persistent_binding(HBA_HANDLE handle, HBA_FCPBINDING *binding);
HBA_STATUS get_persistent_binding_v2(HBA_HANDLE handle, HBA_WWN name, HBA_FCPBINDING2 *binding);
HBA_STATUS get_event_buffer(HBA_HANDLE handle, HBA_EVENTINFO *events, HBA_UINT32 *count);
HBA_STATUS get_rnid_mgmt_info(HBA_HANDLE handle, HBA_MGMTINFO *info);

// vendor_event.cpp: callbacks
using PortCallback = void (*)(void *data, HBA_WWN port, HBA_UINT32 event, HBA_UINT32 page);
HBA_STATUS register_for_port_events(PortCallback function, void *data, HBA_HANDLE handle, HBA_WWN name,
                                    HBA_CALLBACKHANDLE *callback);
HBA_STATUS remove_callback(HBA_CALLBACKHANDLE callback);
void remove_all_callbacks();

// vendor_request.cpp: what is sent to the fabric and to targets
HBA_STATUS send_ct(HBA_HANDLE handle, void *request, HBA_UINT32 request_size, void *reply, HBA_UINT32 room);
HBA_STATUS send_ct_v2(HBA_HANDLE handle, HBA_WWN name, void *request, HBA_UINT32 request_size, void *reply,
                      HBA_UINT32 *reply_size);
HBA_STATUS send_rnid(HBA_HANDLE handle, HBA_WWN name, HBA_WWNTYPE type, void *reply, HBA_UINT32 *reply_size);
HBA_STATUS send_rnid_v2(HBA_HANDLE handle, HBA_WWN name, HBA_WWN remote, HBA_UINT32 address,
                        HBA_UINT32 format, void *reply, HBA_UINT32 *reply_size);
HBA_STATUS inquiry(HBA_HANDLE handle, HBA_WWN remote, HBA_UINT64 lun, HBA_UINT8 evpd, HBA_UINT32 page,
                   void *data, HBA_UINT32 room, void *sense, HBA_UINT32 sense_room);
HBA_STATUS inquiry_v2(HBA_HANDLE handle, HBA_WWN name, HBA_WWN remote, HBA_UINT64 lun, HBA_UINT8 byte1,
                      HBA_UINT8 byte2, void *data, HBA_UINT32 *data_size, HBA_UINT8 *status, void *sense,
                      HBA_UINT32 *sense_size);
HBA_STATUS report_luns(HBA_HANDLE handle, HBA_WWN remote, void *data, HBA_UINT32 room, void *sense,
                       HBA_UINT32 sense_room);
HBA_STATUS report_luns_v2(HBA_HANDLE handle, HBA_WWN name, HBA_WWN remote, void *data, HBA_UINT32 *data_size,
                          HBA_UINT8 *status, void *sense, HBA_UINT32 *sense_size);
HBA_STATUS read_capacity(HBA_HANDLE handle, HBA_WWN remote, HBA_UINT64 lun, void *data, HBA_UINT32 room,
                         void *sense, HBA_UINT32 sense_room);
HBA_STATUS read_capacity_v2(HBA_HANDLE handle, HBA_WWN name, HBA_WWN remote, HBA_UINT64 lun, void *data,
                            HBA_UINT32 *data_size, HBA_UINT8 *status, void *sense, HBA_UINT32 *sense_size);

}  // namespace hcx_hbaapi
