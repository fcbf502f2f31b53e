/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Records, numbers and status codes of the library's own calls.
 *
 * The caller owns every record passed in; the library fills it in place. Integers are in the processor's own order,
 * world wide names are bytes in the order in which they are printed.
 */
#ifndef LIBHCX_HCX_API_H
#define LIBHCX_HCX_API_H

#include <stdint.h>

#include "hbaapi.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One adapter port, as HCX_InitDiagEnv() describes it. */
typedef struct HCX_BRDINFO {
  uint32_t a_mem_hi;     /* the six address words are always 0xffffffff: the library has no access of its own */
  uint32_t a_mem_low;
  uint32_t a_flash_hi;
  uint32_t a_flash_low;
  uint32_t a_ctlreg_hi;
  uint32_t a_ctlreg_low;
  uint32_t a_intrlvl;    /* interrupt number ("irq") */
  uint32_t a_pci;        /* PCI device id << 16 | PCI vendor id */
  uint32_t a_busid;      /* PCI bus */
  uint32_t a_devid;      /* PCI slot << 3 | function */
  uint8_t a_pciFunc;     /* PCI function */
  uint8_t a_siglvl;      /* 10 */
  uint16_t a_ddi;        /* the host's "unique_id" */
  uint32_t a_onmask;     /* ondi_masks */
  uint32_t a_offmask;    /* board mode: 1 online, 2 offline, 3 warm, 4 dump, 5 error, 0 unknown */
  uint8_t a_drvrid[16];  /* driver version text, terminated */
  uint8_t a_fwname[32];  /* firmware revision text, terminated */
  uint8_t a_wwpn[8];     /* port name */
} HCX_BRDINFO, hcx_brdinfo;

/* The older board record, without function number and port name. */
typedef struct BRDINFO {
  uint32_t a_mem_hi;
  uint32_t a_mem_low;
  uint32_t a_flash_hi;
  uint32_t a_flash_low;
  uint32_t a_ctlreg_hi;
  uint32_t a_ctlreg_low;
  uint32_t a_intrlvl;
  uint32_t a_pci;
  uint32_t a_busid;
  uint32_t a_devid;
  uint8_t a_rsvd1;       /* not written */
  uint8_t a_rsvd2;       /* not written */
  uint8_t a_siglvl;      /* not written */
  uint8_t a_ddi;         /* low 8 bits of the host's "unique_id" */
  uint32_t a_onmask;
  uint32_t a_offmask;
  uint8_t a_drvrid[16];
  uint8_t a_fwname[32];
} BRDINFO, brdinfo;

/* What can be done with a board that is on-line. */
enum ondi_masks {
  ONDI_MBOX = 0x1,
  ONDI_IOINFO = 0x2,
  ONDI_LNKINFO = 0x4,
  ONDI_NODEINFO = 0x8,
  ONDI_TRACEINFO = 0x10,
  ONDI_SETTRACE = 0x20,
  ONDI_SLI1 = 0x40,
  ONDI_SLI2 = 0x80,
  ONDI_BIG_ENDIAN = 0x100,
  ONDI_LTL_ENDIAN = 0x200,
  ONDI_RMEM = 0x400,
  ONDI_RFLASH = 0x800,
  ONDI_RPCI = 0x1000,
  ONDI_RCTLREG = 0x2000,
  ONDI_CFGPARAM = 0x4000,
  ONDI_CT = 0x8000,
  ONDI_HBAAPI = 0x10000,
  ONDI_SBUS = 0x20000,
  ONDI_FAILOVER = 0x40000,
  ONDI_MPULSE = 0x80000
};

/* What can be done with a board that is off-line. */
enum offdi_masks {
  OFFDI_MBOX = 0x1,
  OFFDI_RMEM = 0x2,
  OFFDI_WMEM = 0x4,
  OFFDI_RFLASH = 0x8,
  OFFDI_WFLASH = 0x10,
  OFFDI_RPCI = 0x20,
  OFFDI_WPCI = 0x40,
  OFFDI_RCTLREG = 0x80,
  OFFDI_WCTLREG = 0x100,
  OFFDI_OFFLINE = (int)0x80000000
};

/* Log categories: bits of the mask in the switch file and of libhcx_syslog()'s first argument. */
enum log_enable {
  LOG_OFF = 0,
  LOG_ADMIN = 0x1,
  LOG_AUTHEN = 0x2,
  LOG_BSG = 0x4,
  LOG_DIAG = 0x8,
  LOG_HBAAPI = 0x10,
  LOG_IOCTL = 0x20,
  LOG_NETLINK = 0x40,
  LOG_NPIV = 0x80,
  LOG_SANDIAG = 0x100,
  LOG_SCSI = 0x200,
  LOG_UTIL = 0x400,
  LOG_MBOX = 0x800,
  LOG_TRACE = 0x1000,       /* entry of every exported call */
  LOG_DEVICE_NAME = 0x2000, /* paths that are opened */
  LOG_ERROR = 0x4000,       /* every failure */
  LOG_MMM = 0x8000,         /* capability tables */
  LOG_BACKTRACE = 0x10000,  /* no category: a stack dump before each line */
  LOG_MBOX_DATA = 0x20000   /* hex dumps of mailbox data */
};

/* ---- What the driver and the adapter port are ---- */

/* The driver, as HCX_GetDrvInfo() describes it. */
typedef struct HCXDRVINFO {
  uint8_t drvInfoVer;  /* in: the caller's record version, out: 4 */
  uint8_t drvType;     /* 0x10 */
  uint16_t reserved;   /* not written */
  uint8_t rmLevel;     /* 3 */
  uint8_t mpLevel;     /* 0 */
  uint8_t hbaapiLevel; /* 1 */
  uint8_t rsvd;        /* not written */
  uint8_t drvVer[16];  /* version text, terminated */
  uint8_t drvName[8];  /* "vosk" */
  uint8_t ftrDrvVer[16];
  uint8_t ftrDrvName[8];
  uint8_t ipDrvVer[16];
  uint8_t ipDrvName[8];
  uint32_t d_id; /* FC address of the port */
  uint8_t wwpn[8];
  uint8_t wwnn[8];
  uint8_t hostname[32]; /* of this computer, terminated */
  uint32_t NPIVsupport; /* not written */
  uint32_t sliMode;     /* 3 or 4, all ones when unknown */
  uint64_t featureList; /* hcx_driver_features bits */
} HCXDRVINFO, HCXDrvInfo;

/* Bits of HCXDRVINFO.featureList. Bits 0x71 are always set; what they mean is agreed between applications. */
enum hcx_driver_features {
  HCX_FEATURE_BASE = 0x71,
  HCX_FEATURE_STATISTICS = 0x100, /* I/O latency statistics */
  HCX_FEATURE_FCOE = 0x200,
  HCX_FEATURE_FC = 0x400,
  HCX_FEATURE_SLI4 = 0x1000
};

/* Vital product data. Texts are terminated; empty when the driver does not say. */
typedef struct VPD {
  uint32_t version; /* in: 1 */
  char ModelDescription[256];
  char Model[80];
  char ProgramType[256];
  char PortNum[20];
} VPD, Vpd;

enum linkinfo_topologies {
  LNK_LOOP = 1,
  LNK_PUBLIC_LOOP = 2,
  LNK_FABRIC = 3,
  LNK_PT2PT = 4,
  LNK_MLOMGMT = 5 /* down, and held by the management layer */
};

enum linkinfo_linkstates {
  LNK_DOWN = 1,
  LNK_UP = 2,
  LNK_FLOGI = 3,
  LNK_DISCOVERY = 4,
  LNK_REDISCOVERY = 5,
  LNK_READY = 6,
  LNK_DOWN_PERSIST = 7 /* taken down by the user */
};

typedef struct LINKINFO {
  uint32_t a_linkEventTag; /* a_linkUp + a_linkDown */
  uint32_t a_linkUp;       /* both counts are the loop initialisations or, without these, the NOS count: */
  uint32_t a_linkDown;     /* the driver counts no link events */
  uint32_t a_linkMulti;    /* 0 */
  uint32_t a_DID;
  uint8_t a_topology;  /* linkinfo_topologies, 0 unknown */
  uint8_t a_linkState; /* linkinfo_linkstates, 0 unknown */
  uint8_t a_alpa;
  uint8_t a_alpaCnt;      /* at most 126 */
  uint8_t a_alpaMap[128]; /* count, own address, the others, 0 */
  uint8_t a_wwpName[8];
  uint8_t a_wwnName[8];
} LINKINFO, LinkInfo;

/* NODEINFO.a_flag */
enum node_info_flags {
  NODE_RPI_XRI = 0x1,
  NODE_REQ_SND = 0x2,
  NODE_ADDR_AUTH = 0x4,
  NODE_RM_ENTRY = 0x8,
  NODE_FARP_SND = 0x10,
  NODE_FABRIC = 0x20,
  NODE_FCP_TARGET = 0x40,
  NODE_IP_NODE = 0x80,
  NODE_DISC_START = 0x100,
  NODE_SEED_WWPN = 0x200, /* bound to its SCSI target number by port name */
  NODE_SEED_WWNN = 0x400,
  NODE_SEED_DID = 0x800,
  NODE_SEED_MASK = 0xE00,
  NODE_AUTOMAP = 0x1000,
  NODE_NS_REMOVED = 0x2000
};

/* NODEINFO.a_state */
enum node_info_states {
  NODE_UNUSED = 0,
  NODE_LIMBO = 1,
  NODE_LOGOUT = 2,
  NODE_PLOGI = 3,
  NODE_LOGIN = 4,
  NODE_PRLI = 5,  /* on-line without SCSI target number */
  NODE_ALLOC = 6, /* on-line with one */
  NODE_SEED = 7
};

/* One discovered port. */
typedef struct NODEINFO {
  uint16_t a_flag;
  uint16_t a_state;
  uint32_t a_did;
  uint8_t a_wwpn[8];
  uint8_t a_wwnn[8];
  uint32_t a_targetid; /* all ones: none */
} NODEINFO, NodeInfo;

#ifdef __cplusplus
}
#endif

#endif
