/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * What the common HBA API wrapper library asks of a vendor library: the table of functions that it has filled in, and
 * the records and numbers of the API that libhcx's own calls have no use for.
 *
 * The order of the members is the wrapper's binary interface. tests/hbaapi/check holds every record, number and
 * function type of this file and of hbaapi.h against the wrapper's own headers.
 */
#ifndef HCX_HBA_VENDOR_H
#define HCX_HBA_VENDOR_H

#include <ctime>

#include "hbaapi.h"

using HBA_UINT8 = unsigned char;
using HBA_UINT64 = long long;  // signed in the wrapper's headers
using HBA_BOOLEAN = char;
using HBA_HANDLE =
    HBA_UINT32;  // of a vendor library: 16 bits, the wrapper keeps its own in the others; 0 is none
using HBA_STATUS = HBA_UINT32;
using HBA_BIND_CAPABILITY = HBA_UINT32;
using HBA_BIND_TYPE = HBA_UINT32;
using HBA_CALLBACKHANDLE = void *;

enum : HBA_STATUS {  // beyond those of hbaapi.h
  HBA_STATUS_ERROR_ILLEGAL_INDEX = 6,
  HBA_STATUS_SCSI_CHECK_CONDITION = 9,
  HBA_STATUS_ERROR_TRY_AGAIN = 11,
  HBA_STATUS_ERROR_INVALID_LUN = 14,
  HBA_STATUS_ERROR_AMBIGUOUS_WWN = 16,
  HBA_STATUS_ERROR_UNSUPPORTED_FC4 = 28
};

enum : HBA_UINT32 {  // what a port's callback is told
  HBA_EVENT_PORT_OFFLINE = 0x201,
  HBA_EVENT_PORT_ONLINE = 0x202,
  HBA_EVENT_PORT_FABRIC = 0x204
};

constexpr HBA_UINT32 HBA_LIBVERSION = 2;

struct HBA_LibraryAttributes {
  HBA_BOOLEAN final;
  char LibPath[256];
  char VName[256];
  char VVersion[256];
  tm build_date;
};
using HBA_LIBRARYATTRIBUTES = HBA_LibraryAttributes;

struct HBA_FCPBINDINGENTRY2 {
  HBA_BIND_TYPE type;
  HBA_SCSIID ScsiId;
  HBA_FCPID FcpId;
  HBA_LUID LUID;
  HBA_STATUS status;
};

struct HBA_FcpBinding2 {
  HBA_UINT32 NumberOfEntries;
  HBA_FCPBINDINGENTRY2 entry[1];
};
using HBA_FCPBINDING2 = HBA_FcpBinding2;

struct HBA_FC4Statistics {
  int64_t InputRequests;
  int64_t OutputRequests;
  int64_t ControlRequests;
  int64_t InputMegabytes;
  int64_t OutputMegabytes;
};
using HBA_FC4STATISTICS = HBA_FC4Statistics;

// Functions of the first revision of the API. An empty member is "not supported".
struct HBA_ENTRYPOINTS {
  HBA_UINT32 (*GetVersionHandler)();
  HBA_STATUS (*LoadLibraryHandler)();
  HBA_STATUS (*FreeLibraryHandler)();
  HBA_UINT32 (*GetNumberOfAdaptersHandler)();
  HBA_STATUS (*GetAdapterNameHandler)(HBA_UINT32, char *);
  HBA_HANDLE (*OpenAdapterHandler)(char *);
  void (*CloseAdapterHandler)(HBA_HANDLE);
  HBA_STATUS (*GetAdapterAttributesHandler)(HBA_HANDLE, HBA_ADAPTERATTRIBUTES *);
  HBA_STATUS (*GetAdapterPortAttributesHandler)(HBA_HANDLE, HBA_UINT32, HBA_PORTATTRIBUTES *);
  HBA_STATUS (*GetPortStatisticsHandler)(HBA_HANDLE, HBA_UINT32, HBA_PORTSTATISTICS *);
  HBA_STATUS (*GetDiscoveredPortAttributesHandler)(HBA_HANDLE, HBA_UINT32, HBA_UINT32, HBA_PORTATTRIBUTES *);
  HBA_STATUS (*GetPortAttributesByWWNHandler)(HBA_HANDLE, HBA_WWN, HBA_PORTATTRIBUTES *);
  HBA_STATUS (*SendCTPassThruHandler)(HBA_HANDLE, void *, HBA_UINT32, void *, HBA_UINT32);
  void (*RefreshInformationHandler)(HBA_HANDLE);
  void (*ResetStatisticsHandler)(HBA_HANDLE, HBA_UINT32);
  HBA_STATUS (*GetFcpTargetMappingHandler)(HBA_HANDLE, HBA_FCPTARGETMAPPING *);
  HBA_STATUS (*GetFcpPersistentBindingHandler)(HBA_HANDLE, HBA_FCPBINDING *);
  HBA_STATUS (*GetEventBufferHandler)(HBA_HANDLE, HBA_EVENTINFO *, HBA_UINT32 *);
  HBA_STATUS (*SetRNIDMgmtInfoHandler)(HBA_HANDLE, HBA_MGMTINFO *);
  HBA_STATUS (*GetRNIDMgmtInfoHandler)(HBA_HANDLE, HBA_MGMTINFO *);
  HBA_STATUS (*SendRNIDHandler)(HBA_HANDLE, HBA_WWN, HBA_WWNTYPE, void *, HBA_UINT32 *);
  HBA_STATUS(*ScsiInquiryHandler)
  (HBA_HANDLE, HBA_WWN, HBA_UINT64, HBA_UINT8, HBA_UINT32, void *, HBA_UINT32, void *, HBA_UINT32);
  HBA_STATUS (*ReportLUNsHandler)(HBA_HANDLE, HBA_WWN, void *, HBA_UINT32, void *, HBA_UINT32);
  HBA_STATUS (*ReadCapacityHandler)(HBA_HANDLE, HBA_WWN, HBA_UINT64, void *, HBA_UINT32, void *, HBA_UINT32);
};

// The first revision's functions, and those of the second.
struct HBA_ENTRYPOINTSV2 {
  HBA_ENTRYPOINTS v1;
  HBA_STATUS (*OpenAdapterByWWNHandler)(HBA_HANDLE *, HBA_WWN);
  HBA_STATUS (*GetFcpTargetMappingV2Handler)(HBA_HANDLE, HBA_WWN, HBA_FCPTARGETMAPPINGV2 *);
  HBA_STATUS (*SendCTPassThruV2Handler)(HBA_HANDLE, HBA_WWN, void *, HBA_UINT32, void *, HBA_UINT32 *);
  void (*RefreshAdapterConfigurationHandler)();
  HBA_STATUS (*GetBindingCapabilityHandler)(HBA_HANDLE, HBA_WWN, HBA_BIND_CAPABILITY *);
  HBA_STATUS (*GetBindingSupportHandler)(HBA_HANDLE, HBA_WWN, HBA_BIND_CAPABILITY *);
  HBA_STATUS (*SetBindingSupportHandler)(HBA_HANDLE, HBA_WWN, HBA_BIND_CAPABILITY);
  HBA_STATUS (*SetPersistentBindingV2Handler)(HBA_HANDLE, HBA_WWN, const HBA_FCPBINDING2 *);
  HBA_STATUS (*GetPersistentBindingV2Handler)(HBA_HANDLE, HBA_WWN, HBA_FCPBINDING2 *);
  HBA_STATUS (*RemovePersistentBindingHandler)(HBA_HANDLE, HBA_WWN, const HBA_FCPBINDING2 *);
  HBA_STATUS (*RemoveAllPersistentBindingsHandler)(HBA_HANDLE, HBA_WWN);
  HBA_STATUS (*SendRNIDV2Handler)(HBA_HANDLE, HBA_WWN, HBA_WWN, HBA_UINT32, HBA_UINT32, void *, HBA_UINT32 *);
  HBA_STATUS(*ScsiInquiryV2Handler)
  (HBA_HANDLE, HBA_WWN, HBA_WWN, HBA_UINT64, HBA_UINT8, HBA_UINT8, void *, HBA_UINT32 *, HBA_UINT8 *, void *,
   HBA_UINT32 *);
  HBA_STATUS(*ScsiReportLUNsV2Handler)
  (HBA_HANDLE, HBA_WWN, HBA_WWN, void *, HBA_UINT32 *, HBA_UINT8 *, void *, HBA_UINT32 *);
  HBA_STATUS(*ScsiReadCapacityV2Handler)
  (HBA_HANDLE, HBA_WWN, HBA_WWN, HBA_UINT64, void *, HBA_UINT32 *, HBA_UINT8 *, void *, HBA_UINT32 *);
  HBA_UINT32 (*GetVendorLibraryAttributesHandler)(HBA_LIBRARYATTRIBUTES *);
  HBA_STATUS (*RemoveCallbackHandler)(HBA_CALLBACKHANDLE);
  HBA_STATUS(*RegisterForAdapterAddEventsHandler)
  (void (*)(void *, HBA_WWN, HBA_UINT32), void *, HBA_CALLBACKHANDLE *);
  HBA_STATUS(*RegisterForAdapterEventsHandler)
  (void (*)(void *, HBA_WWN, HBA_UINT32), void *, HBA_HANDLE, HBA_CALLBACKHANDLE *);
  HBA_STATUS(*RegisterForAdapterPortEventsHandler)
  (void (*)(void *, HBA_WWN, HBA_UINT32, HBA_UINT32), void *, HBA_HANDLE, HBA_WWN, HBA_CALLBACKHANDLE *);
  HBA_STATUS(*RegisterForAdapterPortStatEventsHandler)
  (void (*)(void *, HBA_WWN, HBA_UINT32), void *, HBA_HANDLE, HBA_WWN, HBA_PortStatistics, HBA_UINT32,
   HBA_CALLBACKHANDLE *);
  HBA_STATUS(*RegisterForTargetEventsHandler)
  (void (*)(void *, HBA_WWN, HBA_WWN, HBA_UINT32), void *, HBA_HANDLE, HBA_WWN, HBA_WWN, HBA_CALLBACKHANDLE *,
   HBA_UINT32);
  HBA_STATUS(*RegisterForLinkEventsHandler)
  (void (*)(void *, HBA_WWN, HBA_UINT32, void *, HBA_UINT32), void *, void *, HBA_UINT32, HBA_HANDLE,
   HBA_CALLBACKHANDLE *);
  HBA_STATUS (*SendRPLHandler)(HBA_HANDLE, HBA_WWN, HBA_WWN, HBA_UINT32, HBA_UINT32, void *, HBA_UINT32 *);
  HBA_STATUS(*SendRPSHandler)
  (HBA_HANDLE, HBA_WWN, HBA_WWN, HBA_UINT32, HBA_WWN, HBA_UINT32, void *, HBA_UINT32 *);
  HBA_STATUS (*SendSRLHandler)(HBA_HANDLE, HBA_WWN, HBA_WWN, HBA_UINT32, void *, HBA_UINT32 *);
  HBA_STATUS (*SendLIRRHandler)(HBA_HANDLE, HBA_WWN, HBA_WWN, HBA_UINT8, HBA_UINT8, void *, HBA_UINT32 *);
  HBA_STATUS (*GetFC4StatisticsHandler)(HBA_HANDLE, HBA_WWN, HBA_UINT8, HBA_FC4STATISTICS *);
  HBA_STATUS (*GetFCPStatisticsHandler)(HBA_HANDLE, const HBA_SCSIID *, HBA_FC4STATISTICS *);
  HBA_STATUS (*SendRLSHandler)(HBA_HANDLE, HBA_WWN, HBA_WWN, void *, HBA_UINT32 *);
};

extern "C" {
__attribute__((visibility("default"))) HBA_STATUS HBA_RegisterLibrary(HBA_ENTRYPOINTS *table);
__attribute__((visibility("default"))) HBA_STATUS HBA_RegisterLibraryV2(HBA_ENTRYPOINTSV2 *table);
}

#endif
