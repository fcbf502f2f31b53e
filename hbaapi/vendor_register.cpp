// SPDX-License-Identifier: BSD-3-Clause
// The two names that the wrapper looks up: each fills the wrapper's table with this library's functions. What is left
// out stays empty, and the wrapper answers it with "not supported" by itself. Owns nothing.
#include "vendor.h"

namespace {

using namespace hcx_hbaapi;

constexpr HBA_ENTRYPOINTS kFirst = {
    .GetVersionHandler = get_version,
    .LoadLibraryHandler = load_library,
    .FreeLibraryHandler = free_library,
    .GetNumberOfAdaptersHandler = get_number_of_adapters,
    .GetAdapterNameHandler = get_adapter_name,
    .OpenAdapterHandler = open_adapter,
    .CloseAdapterHandler = close_adapter,
    .GetAdapterAttributesHandler = get_adapter_attributes,
    .GetAdapterPortAttributesHandler = get_adapter_port_attributes,
    .GetPortStatisticsHandler = get_port_statistics,
    .GetDiscoveredPortAttributesHandler = get_discovered_port_attributes,
    .GetPortAttributesByWWNHandler = get_port_attributes_by_wwn,
    .SendCTPassThruHandler = send_ct,
    .RefreshInformationHandler = refresh_information,
    .ResetStatisticsHandler = reset_statistics,
    .GetFcpTargetMappingHandler = get_fcp_target_mapping,
    .GetFcpPersistentBindingHandler = get_fcp_persistent_binding,
    .GetEventBufferHandler = get_event_buffer,
    .SetRNIDMgmtInfoHandler = nullptr,  // libhcx accepts it and keeps nothing
    .GetRNIDMgmtInfoHandler = get_rnid_mgmt_info,
    .SendRNIDHandler = send_rnid,
    .ScsiInquiryHandler = inquiry,
    .ReportLUNsHandler = report_luns,
    .ReadCapacityHandler = read_capacity,
};

constexpr HBA_ENTRYPOINTSV2 second() {
  HBA_ENTRYPOINTSV2 table = {};
  table.v1 = kFirst;
  table.OpenAdapterByWWNHandler = open_adapter_by_wwn;
  table.GetFcpTargetMappingV2Handler = get_fcp_target_mapping_v2;
  table.SendCTPassThruV2Handler = send_ct_v2;
  table.GetPersistentBindingV2Handler = get_persistent_binding_v2;
  table.SendRNIDV2Handler = send_rnid_v2;
  table.ScsiInquiryV2Handler = inquiry_v2;
  table.ScsiReportLUNsV2Handler = report_luns_v2;
  table.ScsiReadCapacityV2Handler = read_capacity_v2;
  table.GetVendorLibraryAttributesHandler = get_vendor_library_attributes;
  table.RegisterForAdapterPortEventsHandler = register_for_port_events;
  table.RemoveCallbackHandler = remove_callback;
  table.GetFC4StatisticsHandler = get_fc4_statistics;
  return table;
}

}  // namespace

extern "C" HBA_STATUS HBA_RegisterLibrary(HBA_ENTRYPOINTS *table) {
  if (!table) return HBA_STATUS_ERROR_ARG;
  *table = kFirst;
  return HBA_STATUS_OK;
}

extern "C" HBA_STATUS HBA_RegisterLibraryV2(HBA_ENTRYPOINTSV2 *table) {
  if (!table) return HBA_STATUS_ERROR_ARG;
  *table = second();
  return HBA_STATUS_OK;
}
