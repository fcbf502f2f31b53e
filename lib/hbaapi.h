/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Records of the common HBA API, with their published layouts.
 *
 * World wide names and FCP LUNs are byte images, most significant byte first, on every processor. Other
 * integers are in the processor's own order. All records belong to the caller. A record that ends in an array
 * of one entry stands for the room that the caller has behind it.
 */
#ifndef LIBHCX_HBAAPI_H
#define LIBHCX_HBAAPI_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t HBA_UINT32;

/* Which of a port's two names is meant: 0 the node name, 1 the port name. */
typedef uint32_t HBA_WWNTYPE;

/* A world wide name, in the order in which it is printed. */
typedef struct HBA_wwn {
  uint8_t wwn[8];
} HBA_WWN, HBA_wwn, *PHBA_WWN;

/* Results of the calls that are shaped after the common HBA API. */
enum {
  HBA_STATUS_OK = 0,
  HBA_STATUS_ERROR = 1,
  HBA_STATUS_ERROR_NOT_SUPPORTED = 2,
  HBA_STATUS_ERROR_INVALID_HANDLE = 3,
  HBA_STATUS_ERROR_ARG = 4,
  HBA_STATUS_ERROR_ILLEGAL_WWN = 5,
  HBA_STATUS_ERROR_MORE_DATA = 7,
  HBA_STATUS_ERROR_STALE_DATA = 8,
  HBA_STATUS_ERROR_UNAVAILABLE = 12
};

/* HBA_PortAttributes.PortType */
enum {
  HBA_PORTTYPE_UNKNOWN = 1,
  HBA_PORTTYPE_OTHER = 2,
  HBA_PORTTYPE_NOTPRESENT = 3,
  HBA_PORTTYPE_NPORT = 5,
  HBA_PORTTYPE_NLPORT = 6,
  HBA_PORTTYPE_FLPORT = 7,
  HBA_PORTTYPE_FPORT = 8,
  HBA_PORTTYPE_EPORT = 9,
  HBA_PORTTYPE_GPORT = 10,
  HBA_PORTTYPE_LPORT = 20,
  HBA_PORTTYPE_PTP = 21
};

/* HBA_PortAttributes.PortState */
enum {
  HBA_PORTSTATE_UNKNOWN = 1,
  HBA_PORTSTATE_ONLINE = 2,
  HBA_PORTSTATE_OFFLINE = 3,
  HBA_PORTSTATE_BYPASSED = 4,
  HBA_PORTSTATE_DIAGNOSTICS = 5,
  HBA_PORTSTATE_LINKDOWN = 6,
  HBA_PORTSTATE_ERROR = 7,
  HBA_PORTSTATE_LOOPBACK = 8
};

/* HBA_PortAttributes.PortSpeed and, as a bit set, PortSupportedSpeed */
enum {
  HBA_PORTSPEED_UNKNOWN = 0,
  HBA_PORTSPEED_1GBIT = 0x1,
  HBA_PORTSPEED_2GBIT = 0x2,
  HBA_PORTSPEED_10GBIT = 0x4, /* below 4 Gbit: the numbering of the API */
  HBA_PORTSPEED_4GBIT = 0x8,
  HBA_PORTSPEED_8GBIT = 0x10,
  HBA_PORTSPEED_16GBIT = 0x20,
  HBA_PORTSPEED_NOT_NEGOTIATED = 0x8000
};

typedef struct hba_AdapterAttributes {
  char Manufacturer[64];
  char SerialNumber[64];
  char Model[256];
  char ModelDescription[256];
  HBA_WWN NodeWWN;
  char NodeSymbolicName[256];
  char HardwareVersion[256];
  char DriverVersion[256];
  char OptionROMVersion[256];
  char FirmwareVersion[256];
  uint32_t VendorSpecificID; /* PCI vendor id */
  uint32_t NumberOfPorts;
  char DriverName[256];
} HBA_ADAPTERATTRIBUTES, HBA_AdapterAttributes, *PHBA_ADAPTERATTRIBUTES;

typedef struct HBA_PortAttributes {
  HBA_WWN NodeWWN;
  HBA_WWN PortWWN;
  uint32_t PortFcId;
  uint32_t PortType; /* of the adapter port, also for a remote port */
  uint32_t PortState;
  uint32_t PortSupportedClassofService; /* bit 1 class 1, bit 2 class 2, ... */
  uint8_t PortSupportedFc4Types[32];
  uint8_t PortActiveFc4Types[32];
  char PortSymbolicName[256];
  char OSDeviceName[256]; /* begins with an HBA_OSDN, not with a name */
  uint32_t PortSupportedSpeed;
  uint32_t PortSpeed;
  uint32_t PortMaxFrameSize;
  HBA_WWN FabricName;
  uint32_t NumberofDiscoveredPorts;
} HBA_PORTATTRIBUTES, HBA_PortAttributes, *PHBA_PORTATTRIBUTES;

/* What HBA_PortAttributes.OSDeviceName begins with. */
typedef struct HBA_OSDN {
  char drvname[32];
  uint32_t instance; /* the adapter port's number in the driver */
  uint32_t target;   /* SCSI target number, all ones for none */
  uint32_t lun;
  uint32_t bus; /* SCSI host number */
  char flags;
  char sizeSN; /* bytes used in InquirySN */
  char InquirySN[64];
} HBA_OSDN;

/* All ones in a counter: the adapter does not count this. */
typedef struct HBA_PortStatistics {
  int64_t SecondsSinceLastReset;
  int64_t TxFrames;
  int64_t TxWords;
  int64_t RxFrames;
  int64_t RxWords;
  int64_t LIPCount;
  int64_t NOSCount;
  int64_t ErrorFrames;
  int64_t DumpedFrames;
  int64_t LinkFailureCount;
  int64_t LossOfSyncCount;
  int64_t LossOfSignalCount;
  int64_t PrimitiveSeqProtocolErrCount;
  int64_t InvalidTxWordCount;
  int64_t InvalidCRCCount;
} HBA_PORTSTATISTICS, HBA_PortStatistics, *PHBA_PORTSTATISTICS;

/* A LUN as the operating system names it. */
typedef struct HBA_ScsiId {
  char OSDeviceName[256];
  uint32_t ScsiBusNumber;
  uint32_t ScsiTargetNumber;
  uint32_t ScsiOSLun;
} HBA_SCSIID, *PHBA_SCSIID;

/* A LUN as the fabric names it. */
typedef struct HBA_FcpId {
  uint32_t FcId;
  HBA_WWN NodeWWN;
  HBA_WWN PortWWN;
  /* The 8-byte image, most significant byte first in memory: LUN 5 is 00 05 00 00 00 00 00 00. */
  uint64_t FcpLun __attribute__((aligned(8)));
} HBA_FCPID, *PHBA_FCPID;

/* The first identification descriptor of a LUN's page 0x83, its 4-byte header included; zero when there is
 * none. */
typedef struct HBA_LUID {
  char buffer[256];
} HBA_LUID, *PHBA_LUID;

typedef struct HBA_FcpScsiEntry {
  HBA_SCSIID ScsiId;
  HBA_FCPID FcpId;
} HBA_FCPSCSIENTRY, *PHBA_FCPSCSIENTRY;

typedef struct HBA_FcpScsiEntryV2 {
  HBA_SCSIID ScsiId;
  HBA_FCPID FcpId;
  HBA_LUID LUID;
} HBA_FCPSCSIENTRYV2, *PHBA_FCPSCSIENTRYV2;

typedef struct HBA_FCPTargetMapping {
  uint32_t NumberOfEntries;
  HBA_FCPSCSIENTRY entry[1];
} HBA_FCPTARGETMAPPING, *PHBA_FCPTARGETMAPPING;

typedef struct HBA_FCPTargetMappingV2 {
  uint32_t NumberOfEntries;
  HBA_FCPSCSIENTRYV2 entry[1];
} HBA_FCPTARGETMAPPINGV2, *PHBA_FCPTARGETMAPPINGV2;

typedef enum HBA_BINDTYPE {
  BIND_NONE = 0,
  BIND_WWNN = 1,
  BIND_WWPN = 2,
  BIND_DID = 3,
  BIND_ALPA = 4
} HBA_BINDTYPE;

typedef struct HBA_BIND_ENTRY {
  HBA_BINDTYPE bind_type;
  uint32_t scsi_id;
  uint32_t did;
  HBA_WWN wwnn;
  HBA_WWN wwpn;
  uint32_t flags; /* 5: has a SCSI target number, 8: has none */
} HBA_BIND_ENTRY;

typedef struct HBA_BIND_LIST {
  uint32_t NumberOfEntries;
  HBA_BIND_ENTRY entry[1];
} HBA_BIND_LIST, *HBA_BIND_LIST_PTR;

typedef enum HBA_FCPBINDINGTYPE { TO_D_ID = 0, TO_WWN = 1, TO_OTHER = 2 } HBA_FCPBINDINGTYPE;

typedef struct HBA_FCPBindingEntry {
  HBA_FCPBINDINGTYPE type;
  HBA_SCSIID ScsiId;
  HBA_FCPID FcpId;
  uint32_t FcId;
} HBA_FCPBINDINGENTRY, *PHBA_FCPBINDINGENTRY;

typedef struct HBA_FCPBinding {
  uint32_t NumberOfEntries;
  HBA_FCPBINDINGENTRY entry[1];
} HBA_FCPBINDING, *PHBA_FCPBINDING;

/* What a port tells about itself to RNID requests (FC-LS general topology data). */
typedef struct HBA_MgmtInfo {
  HBA_WWN wwn;
  uint32_t unittype;
  uint32_t PortId;
  uint32_t NumberOfAttachedNodes;
  uint16_t IPVersion;
  uint16_t UDPPort;
  uint8_t IPAddress[16];
  uint16_t reserved;
  uint16_t TopologyDiscoveryFlags;
} HBA_MGMTINFO, *PHBA_MGMTINFO;

/* ---- Events ---- */

enum hba_event_codes {
  HBA_EVENT_LIP_OCCURRED = 1,
  HBA_EVENT_LINK_UP = 2,
  HBA_EVENT_LINK_DOWN = 3,
  HBA_EVENT_LIP_RESET_OCCURRED = 4,
  HBA_EVENT_RSCN = 5,
  HBA_EVENT_PROPRIETARY = 0xffff
};

typedef struct HBA_Link_EventInfo {
  HBA_UINT32 PortFcId; /* of the adapter port */
  HBA_UINT32 Reserved[3];
} HBA_LINK_EVENTINFO;

typedef struct HBA_RSCN_EventInfo {
  HBA_UINT32 PortFcId;
  HBA_UINT32 NPortPage; /* affected port or ports, as in the RSCN */
  HBA_UINT32 Reserved[2];
} HBA_RSCN_EVENTINFO;

typedef struct HBA_Pty_EventInfo {
  HBA_UINT32 PtyData[4];
} HBA_PTY_EVENTINFO;

typedef struct HBA_EventInfo {
  HBA_UINT32 EventCode; /* hba_event_codes */
  union {
    HBA_LINK_EVENTINFO Link_EventInfo;
    HBA_RSCN_EVENTINFO RSCN_EventInfo;
    HBA_PTY_EVENTINFO Pty_EventInfo;
  } Event;
} HBA_EVENTINFO;

#ifdef __cplusplus
}
#endif

#endif
