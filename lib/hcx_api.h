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
  uint32_t a_mem_hi; /* the six address words are always 0xffffffff: the library has no access of its own */
  uint32_t a_mem_low;
  uint32_t a_flash_hi;
  uint32_t a_flash_low;
  uint32_t a_ctlreg_hi;
  uint32_t a_ctlreg_low;
  uint32_t a_intrlvl;   /* interrupt number ("irq") */
  uint32_t a_pci;       /* PCI device id << 16 | PCI vendor id */
  uint32_t a_busid;     /* PCI bus */
  uint32_t a_devid;     /* PCI slot << 3 | function */
  uint8_t a_pciFunc;    /* PCI function */
  uint8_t a_siglvl;     /* 10 */
  uint16_t a_ddi;       /* the host's "unique_id" */
  uint32_t a_onmask;    /* ondi_masks */
  uint32_t a_offmask;   /* board mode: 1 online, 2 offline, 3 warm, 4 dump, 5 error, 0 unknown */
  uint8_t a_drvrid[16]; /* driver version text, terminated */
  uint8_t a_fwname[32]; /* firmware revision text, terminated */
  uint8_t a_wwpn[8];    /* port name */
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
  uint8_t a_rsvd1;  /* not written */
  uint8_t a_rsvd2;  /* not written */
  uint8_t a_siglvl; /* not written */
  uint8_t a_ddi;    /* low 8 bits of the host's "unique_id" */
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

/* Board modes: the flag of SetBrdEnv(), SetDiagEnv() and HCX_SetDumpEnv(), and what they return. */
enum set_diag_commands {
  DDI_SHOW = 0,     /* read only */
  DDI_ONDI = 1,     /* "online" */
  DDI_OFFDI = 2,    /* "offline" */
  DDI_WARMDI = 3,   /* "warm" */
  DDI_FWDUMPDI = 4, /* "dump" */
  DDI_DIAGDI = 5,   /* "error" */
  DDI_UNUSED = (int)0xffffffff
};

/* One driver parameter, a row of GetCfgParam(). */
typedef struct CFGPARAM {
  char a_string[32];  /* name without "vosk_", with "-" for every "_" after the first character; terminated */
  uint32_t a_low;     /* smallest value accepted */
  uint32_t a_hi;      /* largest value accepted */
  uint32_t a_default; /* the driver's default */
  uint32_t
      a_current; /* current value, within a_low and a_hi; meaningful with CFG_APPLICABLE and no CFG_IGNORE */
  uint16_t a_flag;        /* cfgparam_flags */
  uint16_t a_changestate; /* a cfgparam_changestates */
  char a_help[80];        /* one line of help, terminated */
} CFGPARAM, CfgParam;

enum cfgparam_flags {
  CFG_EXPORT = 0x1,     /* to be shown to the user */
  CFG_IGNORE = 0x2,     /* cannot be set: a request is accepted and does nothing */
  CFG_APPLICABLE = 0x4, /* this adapter has it and its value was read */
  CFG_COMMON = 0x8,
  CFG_SLI4 = 0x1000, /* what the adapter is, on rows that were read */
  CFG_SLI3 = 0x2000,
  CFG_FCOE = 0x4000,
  CFG_FC = 0x8000
};

/* When a changed parameter takes effect. */
enum cfgparam_changestates {
  CFG_REBOOT = 0,
  CFG_DYNAMIC = 1,  /* at once */
  CFG_RESTART = 2,  /* when the driver is loaded again */
  CFG_LINKRESET = 3 /* at the next reset of the link */
};

/* A loopback test: `bufSize` bytes go out from XmitBuffer and come back into RcvBuffer. */
typedef struct LOOPBACK {
  uint32_t bufSize;
  void *XmitBuffer;
  void *RcvBuffer;
} LOOPBACK, Loopback;

/* Phase of a bridge chip command. */
enum tibra_type {
  TIBRA_CMD = 0, /* the command; its answer brings an exchange id */
  TIBRA_DATA = 1 /* data of the command with that exchange id */
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

/* ---- Events ---- */

/* What a registration is for; bits of its mask. */
enum hcx_event_mask {
  FC_REG_LINK_EVENT = 0x1,
  FC_REG_RSCN_EVENT = 0x2,
  FC_REG_CT_EVENT = 0x4,
  FC_REG_DUMP_EVENT = 0x10,
  FC_REG_TEMPERATURE_EVENT = 0x20,
  FC_REG_VPORTRSCN_EVENT = 0x40,
  FC_REG_ALL_PORTS = 0x80 /* on every board */
};

/* Result of unRegisterForCTEvent() for an id that is not known. */
enum { FC_ERROR_INVALID_TAG = 250 };

/*
 * How a registered function is called, by event. What the pointers lead to belongs to the library and is gone when
 * the function returns.
 */
/* Link down and up: a_linkState is LNK_DOWN or LNK_READY. */
typedef void (*hcx_link_callback)(uint32_t board, LINKINFO *link);
/* out: the registration's output area of outsz bytes, all zero; null when outsz is 0. */
typedef void (*hcx_dump_callback)(uint32_t board, void *out, uint32_t outsz);
typedef void (*hcx_temperature_callback)(uint32_t board, uint32_t data1, uint32_t data2);
/* payload: the RSCN (FC-LS) as far as the registration's outsz goes; both lengths are that of it. */
typedef void (*hcx_rscn_callback)(uint32_t board, void *payload, uint32_t length, uint32_t same_length);
/* The same for a virtual port of the board, with its port name (all zero when it has just gone). */
typedef void (*hcx_vport_rscn_callback)(uint32_t board, HBA_WWN wwpn, void *payload, uint32_t length);
/* A CT request that came in (FC-GS), length bytes of it. tag: what SendMgmtResponse() answers it by. */
typedef void (*hcx_ct_callback)(uint32_t board, void *request, uint32_t length, uint32_t tag,
                                uint32_t gs_type);

/* ---- Destinations of ELS requests ---- */

/* A remote port, by FC address or by port name. */
typedef struct DestID {
  uint32_t type; /* 1: by d_id, 0: by wwn */
  uint32_t d_id; /* 24-bit FC address */
  HBA_WWN wwn;   /* port name */
} DestID;

/* ---- FCP priority ---- */

/* Priority of the FCP commands between two ports for a range of LUNs. A field of all 0xff bytes means "any". */
typedef struct HCX_QoSEntry {
  uint8_t src_wwpn[8];  /* own port */
  uint8_t tgt_wwpn[8];  /* target port */
  uint8_t first_lun[8]; /* first LUN of the range */
  uint8_t last_lun[8];  /* last LUN; any: to the end */
  uint8_t fcp_priority;
  uint8_t reserved[3];
} HCX_QoSEntry;

/* The table: as many entries as it says stand behind the count. */
typedef struct HCX_QoSConfig {
  uint32_t numberOfEntries;
  HCX_QoSEntry fcQoSEntry[1];
} HCX_QoSConfig;

/* ---- FCoE ---- */

/* A forwarder (FCF) that an FCoE port knows. */
typedef struct HCX_FCOEFCFINFO {
  uint8_t fabricName[8];
  uint8_t switchName[8];
  uint8_t mac[6];
  uint16_t state;          /* 1: available */
  uint8_t vlanBitmap[512]; /* bit n % 8 of byte n / 8: VLAN n */
  uint8_t fcMap[3];
  uint8_t reserved1;
  uint32_t lkaPeriod; /* FIP keep-alive period in milliseconds */
  uint8_t reserved2[4];
  uint32_t priority; /* FIP priority */
} HCX_FCOEFCFINFO, HCX_FCoEFCFInfo;

/* The forwarders: as many entries as it says stand behind the head. */
typedef struct HCX_FCOEFCFLIST {
  uint8_t version; /* 1 */
  uint8_t reserved[3];
  uint16_t numberOfEntries; /* in: room in entries; out: forwarders found */
  uint16_t nActiveFCFs;     /* 1: the port is logged into a fabric */
  HCX_FCOEFCFINFO entries[1];
} HCX_FCOEFCFLIST, HCX_FCoEFCFList;

/* A forwarder that a port may use. */
typedef struct HCX_FCOEFCFCONNECTENTRY {
  uint16_t flags; /* bits 0x3f; 0x01 is set by the library */
  uint16_t vlanId;
  uint8_t fabricName[8];
  uint8_t switchName[8];
  uint8_t reserved[2];
} HCX_FCOEFCFCONNECTENTRY, HCX_FCoEFCFConnectEntry;

/* The forwarders that a port may use: as many entries as it says stand behind the head. */
typedef struct HCX_FCOEFCFCONNECTLIST {
  uint8_t version; /* 1 */
  uint8_t reserved;
  uint8_t numberOfEntries; /* in and out */
  uint8_t maxNumOfEntries; /* out: 16 */
  HCX_FCOEFCFCONNECTENTRY entries[1];
} HCX_FCOEFCFCONNECTLIST, HCX_FCoEConnectList;

enum { VLAN_ID_INVALID = 0, VLAN_ID_VALID = 1 };

/* FIP parameters. */
typedef struct HCX_FCOEPARAM {
  uint8_t version; /* 1 */
  uint8_t reserved[3];
  uint8_t FCMap[3];
  uint8_t VLanValid; /* VLAN_ID_VALID: VLanId applies */
  uint16_t VLanId;
} HCX_FCOEPARAM, HCX_FCoEParam;

/* ---- Adapter mailbox ---- */

/* Command codes. */
enum mbox_commands {
  MBX_SHUTDOWN = 0x00,
  MBX_LOAD_SM = 0x01,
  MBX_READ_NV = 0x02,
  MBX_WRITE_NV = 0x03,
  MBX_RUN_BIU_DIAG = 0x04,
  MBX_INIT_LINK = 0x05,
  MBX_DOWN_LINK = 0x06,
  MBX_CONFIG_LINK = 0x07,
  MBX_PART_SLIM = 0x08,
  MBX_CONFIG_RING = 0x09,
  MBX_RESET_RING = 0x0A,
  MBX_READ_CONFIG = 0x0B,
  MBX_READ_RCONFIG = 0x0C,
  MBX_READ_SPARM = 0x0D,
  MBX_READ_STATUS = 0x0E,
  MBX_READ_RPI = 0x0F,
  MBX_READ_XRI = 0x10,
  MBX_READ_REV = 0x11,
  MBX_READ_LNK_STAT = 0x12,
  MBX_REG_LOGIN = 0x13,
  MBX_UNREG_LOGIN = 0x14,
  MBX_READ_LA = 0x15,
  MBX_CLEAR_LA = 0x16,
  MBX_DUMP_MEMORY = 0x17,
  MBX_DUMP_CONTEXT = 0x18,
  MBX_RUN_DIAGS = 0x19,
  MBX_RESTART = 0x1A,
  MBX_UPDATE_CFG = 0x1B,
  MBX_DOWN_LOAD = 0x1C,
  MBX_DEL_LD_ENTRY = 0x1D,
  MBX_RUN_PROGRAM = 0x1E,
  MBX_SET_MASK = 0x20,
  MBX_SET_VARIABLE = 0x21,
  MBX_UNREG_D_ID = 0x23,
  MBX_CONFIG_FARP = 0x25,
  MBX_BEACON = 0x2A,
  MBX_WRITE_VPARMS = 0x32,
  MBX_READ_EVENT_LOG_STATUS = 0x37,
  MBX_READ_EVENT_LOG = 0x38,
  MBX_WRITE_EVENT_LOG = 0x39,
  MBX_PORT_CAPABILITIES = 0x3B,
  MBX_SLI2_CMD_MASK = 0x80,
  MBX_LOAD_AREA = 0x81,
  MBX_RUN_BIU_DIAG64 = 0x84,
  MBX_CONFIG_PORT = 0x88,
  MBX_READ_SPARM64 = 0x8D,
  MBX_READ_RPI64 = 0x8F,
  MBX_REG_LOGIN64 = 0x93,
  MBX_READ_LA64 = 0x95,
  MBX_WRITE_WWN = 0x98,
  MBX_SET_DEBUG = 0x99,
  MBX_SLI_CONFIG = 0x9B,
  MBX_LOAD_EXP_ROM = 0x9C,
  MBX_MAX_CMDS = 0x9D
};

/* Completion status. 252 also stands for every failure that the library itself found; 253 may be tried again. */
enum mbox_status {
  MBX_SUCCESS = 0,
  MBXERR_NUM_RINGS = 1,
  MBXERR_NUM_IOCBS = 2,
  MBXERR_IOCBS_EXCEEDED = 3,
  MBXERR_BAD_RING_NUMBER = 4,
  MBXERR_MASK_ENTRIES_RANGE = 5,
  MBXERR_MASKS_EXCEEDED = 6,
  MBXERR_BAD_PROFILE = 7,
  MBXERR_BAD_DEF_CLASS = 8,
  MBXERR_BAD_MAX_RESPONDER = 9,
  MBXERR_BAD_MAX_ORIGINATOR = 10,
  MBXERR_RPI_REGISTERED = 11,
  MBXERR_RPI_FULL = 12,
  MBXERR_NO_RESOURCES = 13,
  MBXERR_BAD_RCV_LENGTH = 14,
  MBXERR_DMA_ERROR = 15,
  MBXERR_ERROR = 16,
  MBX_STATUS_INTERNAL_DRIVER_ERROR = 252,
  MBX_STATUS_BUSY_RETRY = 253,
  MBX_STATUS_TIMEOUT = 254,
  MBX_NOT_FINISHED = 255,
  MBX_TIMEOUT = 0xFFFFFE,
  MBX_BUSY = 0xFFFFFF
};

/* mbxOwner */
enum { OWN_HOST = 0, OWN_CHIP = 1 };

/* Direction and form of an SLI-4 configuration command whose data lie in several buffers. */
enum mailbox_type { MAILBOX_WRITE = 1, MAILBOX_READ = 2 };
enum mailbox_format { MAILBOX_NONEMBEDDED = 1, MAILBOX_EMBEDDED_HBD = 2 };

/*
 * A mailbox is 64 big-endian words of 32 bits on every processor: its fields are not integers of the processor.
 * Read and write words with hcx_mbox_word() and hcx_mbox_set_word(); status, command and owner have accessors of
 * their own. mbxCommand and the owner bits are single bytes and may be used directly.
 */

/* MBX_SET_VARIABLE, from word 1 on. */
typedef struct SET_VAR {
  uint32_t uniq_code; /* which variable */
  uint32_t value;
  uint32_t word3;
} SET_VAR;

/* MBX_READ_EVENT_LOG. The log goes to the caller's address in words 4 and 5. */
typedef struct RD_EVENT_LOG_VAR {
  uint32_t word1; /* bit 29: no data wanted */
  uint32_t word2;
  uint32_t rcv_size;       /* bits 0-23: bytes, 1 to 3840 */
  uint32_t rcv_address_lo; /* caller's buffer */
  uint32_t rcv_address_hi; /* 0 in a 32-bit process */
} RD_EVENT_LOG_VAR;

/* MBX_RUN_BIU_DIAG64: sends one buffer through the adapter's bus interface and receives it in another. */
typedef struct RUN_BIU_DIAG64_VAR {
  uint32_t word1;
  uint32_t xmit_size;       /* bits 0-23: bytes */
  uint32_t xmit_address_lo; /* caller's buffer */
  uint32_t xmit_address_hi; /* 0 in a 32-bit process */
  uint32_t rcv_size;        /* bits 0-23: bytes; both sizes together at most 3840 */
  uint32_t rcv_address_lo;
  uint32_t rcv_address_hi;
} RUN_BIU_DIAG64_VAR;

/* MBX_LOAD_EXP_ROM. The words are between the caller and the firmware. */
typedef struct LOAD_EXP_ROM_VAR {
  uint32_t words[31];
} LOAD_EXP_ROM_VAR;

/* MBX_SLI_CONFIG: header of both forms, words 1 to 5. */
typedef struct vosk_sli_config_hdr {
  uint32_t word1; /* bit 0: embedded; bits 3-7: scatter entries of the other form */
  uint32_t payload_length;
  uint32_t tag_lo;
  uint32_t tag_hi;
  uint32_t reserved5;
} vosk_sli_config_hdr;

typedef struct SLI4_CFG_VAR {
  vosk_sli_config_hdr hdr;
  uint32_t words[26];
} SLI4_CFG_VAR;

/* A scatter entry. The library looks at the length only. */
typedef struct vosk_sli_config_mse {
  uint32_t pa_lo;
  uint32_t pa_hi;
  uint32_t buf_len; /* bits 0-23 */
} vosk_sli_config_mse;

/* Non-embedded form: the request stands at byte 256, in the first buffer. */
typedef struct vosk_sli_config_emb0_subsys {
  vosk_sli_config_hdr hdr;
  vosk_sli_config_mse mse[19];
  uint32_t padding;
  uint32_t word64;
} vosk_sli_config_emb0_subsys;

typedef struct vosk_sli_config_hbd {
  uint32_t buf_len; /* bits 0-23 */
  uint32_t pa_lo;
  uint32_t pa_hi;
} vosk_sli_config_hbd;

/* Embedded form with host buffers: reads and writes of objects in the adapter's flash. */
typedef struct vosk_sli_config_emb1_subsys {
  vosk_sli_config_hdr hdr;
  uint32_t word6; /* bits 0-7: operation code, bits 8-15: subsystem */
  uint32_t timeout;
  uint32_t request_length;
  uint32_t word9;
  uint32_t word10;
  uint32_t rd_offset;
  uint32_t obj_name[26];
  uint32_t hbd_count;
  vosk_sli_config_hbd hbd[8];
} vosk_sli_config_emb1_subsys;

/* The block of an MBX_SLI_CONFIG command and the first word behind it. */
typedef struct vosk_sli_config_mbox {
  uint32_t word0;
  union {
    vosk_sli_config_hdr hdr;
    vosk_sli_config_emb0_subsys sli_config_emb0_subsys;
    vosk_sli_config_emb1_subsys sli_config_emb1_subsys;
  } un;
} vosk_sli_config_mbox;

/* Words 1 to 31. */
typedef union MAILVARIANTS {
  uint32_t varWords[31];
  SET_VAR varSetVar;
  RD_EVENT_LOG_VAR varRdEventLog;
  RUN_BIU_DIAG64_VAR varBIUdiag64;
  LOAD_EXP_ROM_VAR varLdExpRom;
  SLI4_CFG_VAR varSli4Cfg;
} MAILVARIANTS;

/* Words 32 to 63: pointers of the older interface; an SLI-4 command simply goes on here. */
typedef union SLI_VAR {
  uint32_t words[32];
} SLI_VAR;

/* The block; external data, where there are any, stand behind it in the caller's buffer. */
typedef struct MAILBOX_t {
  uint16_t mbxStatus; /* big-endian: use hcx_mbox_status() */
  uint8_t mbxCommand; /* mbox_commands */
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
  uint8_t mbxReserved : 6;
  uint8_t mbxHc : 1;
  uint8_t mbxOwner : 1; /* lowest bit; the library clears it */
#else
  uint8_t mbxOwner : 1; /* lowest bit; the library clears it */
  uint8_t mbxHc : 1;
  uint8_t mbxReserved : 6;
#endif
  MAILVARIANTS un;
  SLI_VAR us;
} MAILBOX_t;

/* Word `index` of a mailbox, also of the data behind the block, as a number. */
static inline uint32_t hcx_mbox_word(const void *mbox, unsigned index) {
  const uint8_t *at = (const uint8_t *)mbox + 4u * index;
  return (uint32_t)at[0] << 24 | (uint32_t)at[1] << 16 | (uint32_t)at[2] << 8 | at[3];
}

/* Stores a number in word `index`. */
static inline void hcx_mbox_set_word(void *mbox, unsigned index, uint32_t value) {
  uint8_t *at = (uint8_t *)mbox + 4u * index;
  at[0] = (uint8_t)(value >> 24);
  at[1] = (uint8_t)(value >> 16);
  at[2] = (uint8_t)(value >> 8);
  at[3] = (uint8_t)value;
}

/* Completion status: an mbox_status. */
static inline uint16_t hcx_mbox_status(const void *mbox) {
  const uint8_t *at = (const uint8_t *)mbox;
  return (uint16_t)(at[0] << 8 | at[1]);
}

static inline void hcx_mbox_set_status(void *mbox, uint16_t status) {
  uint8_t *at = (uint8_t *)mbox;
  at[0] = (uint8_t)(status >> 8);
  at[1] = (uint8_t)status;
}

/* Command code: an mbox_commands. */
static inline uint8_t hcx_mbox_command(const void *mbox) {
  return ((const uint8_t *)mbox)[2];
}

static inline void hcx_mbox_set_command(void *mbox, uint8_t command) {
  ((uint8_t *)mbox)[2] = command;
}

/* OWN_HOST or OWN_CHIP. */
static inline unsigned hcx_mbox_owner(const void *mbox) {
  return ((const uint8_t *)mbox)[3] & 1u;
}

static inline void hcx_mbox_set_owner(void *mbox, unsigned owner) {
  uint8_t *at = (uint8_t *)mbox;
  at[3] = (uint8_t)((at[3] & ~1u) | (owner & 1u));
}

/* ---- Virtual ports ---- */

/* Version of HCX_VPATTRIB that the calls take. */
#define HCX_VPATTRIB_VERSION 3

enum vport_state {
  FC_VPORT_STATE_UNKNOWN = 0,
  FC_VPORT_STATE_LINKDOWN = 1,
  FC_VPORT_STATE_INITIALIZING = 2,
  FC_VPORT_STATE_NOFABSUP = 3,  /* the fabric does not support virtual ports */
  FC_VPORT_STATE_NOFABRES = 4,  /* the fabric has no resources for another one */
  FC_VPORT_STATE_FABLOGOUT = 5, /* logged out by the fabric */
  FC_VPORT_STATE_FABREJECT = 6, /* the fabric rejected the port name */
  FC_VPORT_STATE_VPORTFAIL = 7,
  FC_VPORT_STATE_ACTIVE = 8,
  FC_VPORT_STATE_AUTHFAIL = 9,
  FC_VPORT_STATE_DISABLED = 10
};

/* HCX_VPATTRIB.options. Unknown bits are ignored. */
enum hcx_vport_options {
  HCX_VPORT_CHOOSE_NAMES =
      0x02, /* the library chooses the port name, and the node name when that is all zero */
  HCX_VPORT_REFUSED_OPTIONS = 0x9C /* bits that are not supported */
};

/* HCX_VPATTRIB.flags */
enum hcx_vport_flags {
  HCX_VPORT_STATIC = 0x01 /* made by the adapter's configuration; cannot be deleted */
};

/* What a virtual port needs, a bit for each condition that holds. */
enum hcx_npiv_checklist {
  HCX_NPIV_ENABLED = 0x01,        /* the driver parameter "vosk_enable_npiv" is on */
  HCX_NPIV_SLI3 = 0x02,           /* the adapter runs SLI-3 or higher */
  HCX_NPIV_FIRMWARE = 0x04,       /* its firmware knows virtual ports */
  HCX_NPIV_CAPACITY = 0x08,       /* the driver has room for another one */
  HCX_NPIV_LINK_UP = 0x10,        /* the link is up */
  HCX_NPIV_FABRIC_PORT = 0x20,    /* the port is logged in to a fabric, point to point */
  HCX_NPIV_FABRIC_SUPPORT = 0x40, /* the fabric supports virtual ports */
  HCX_NPIV_FABRIC_ROOM = 0x80,    /* and has resources for another one */
  HCX_NPIV_LOCAL = 0x3F,          /* all that this side can see; the fabric's bits come on top of it only */
  HCX_NPIV_READY = 0xFF
};

/* A virtual port in a list. */
typedef struct HCX_VPENTRY {
  HBA_WWN wwpn;
  HBA_WWN wwnn;
  uint32_t portFcId; /* FC address, 0 while it has none */
} HCX_VPENTRY, HCX_VPEntry;

typedef struct HCX_VPENTRYLIST {
  uint32_t numberOfEntries; /* in: room in vpentry[]; out: how many there are, also beyond the room */
  HCX_VPEntry vpentry[1];
} HCX_VPENTRYLIST, HCX_VPEntryList;

/* Resources of a physical port. */
typedef struct HCX_VPRESOURCE {
  uint32_t vlinks_max; /* virtual ports */
  uint32_t vlinks_inuse;
  uint32_t rpi_max; /* remote port indicators: logins of all ports of the adapter port together */
  uint32_t rpi_inuse;
} HCX_VPRESOURCE, HCX_VPResource;

/* One virtual port. */
typedef struct HCX_VPATTRIB {
  uint8_t ver; /* in: HCX_VPATTRIB_VERSION */
  uint8_t reserved1[3];
  HBA_WWN wwpn;
  HBA_WWN wwnn;
  char name[256];        /* out: symbolic name, terminated */
  uint32_t options;      /* in, of HCX_VPCreate(): hcx_vport_options */
  uint32_t portFcId;     /* FC address, 0 while it has none */
  uint8_t state;         /* a vport_state */
  uint8_t restrictLogin; /* driver parameter "vosk_restrict_login" */
  uint8_t flags;         /* hcx_vport_flags */
  uint8_t reserved2;
  uint64_t buf; /* 0 */
  HBA_WWN fabricName;
  uint32_t checklist; /* hcx_npiv_checklist bits */
  uint8_t accessKey[32];
} HCX_VPATTRIB, HCX_VPAttrib;

/* Remote ports of a virtual or physical port. */
typedef struct HCX_GETNODEINFO {
  uint32_t numberOfEntries; /* in: room in nodeInfo[]; out: entries made */
  NodeInfo nodeInfo[1];
} HCX_GETNODEINFO, HCX_GetNodeInfo;

/* ---- FC-SP authentication ---- */

/* Results of the FC-SP calls. */
enum hcx_auth_result {
  HCX_AUTH_OK = 0,
  HCX_AUTH_NO_ENTRY = 0x8001,        /* the file has no such line for the pair */
  HCX_AUTH_BAD_CREDENTIALS = 0x8004, /* the authorising password does not match */
  HCX_AUTH_NO_PORT = 0x8005,         /* no such local port, or a remote entity that has no status */
  HCX_AUTH_BAD_PASSWORD = 0x8006,    /* a password is malformed */
  HCX_AUTH_BAD_CONFIG = 0x8009,      /* the configuration is invalid */
  HCX_AUTH_ERROR = 0x800d,           /* authentication is off, no such host, a file or driver error */
  HCX_AUTH_SAME_PASSWORD = 0x8011,   /* the new password is the other direction's */
  HCX_AUTH_NOT_SUPPORTED = 0x8030
};

/* Kinds of password. */
enum hcx_auth_passwd_type {
  HCX_AUTH_PASSWD_TEXT = 1,
  HCX_AUTH_PASSWD_BINARY = 2,
  HCX_AUTH_PASSWD_IGNORE = 3 /* not set, or not to be changed */
};

/* How a local port and a remote entity authenticate each other. Entities are port names as numbers, the first byte
   of the name being the most significant; the fabric is all ones. */
typedef struct _KRX_FCSP_CONFIG {
  uint64_t local_entity;
  uint64_t remote_entity;
  uint16_t authentication_timeout; /* seconds, 20 to 999 */
  uint8_t authentication_mode;     /* 1 to 3 */
  uint8_t pad : 7;
  uint8_t bidirectional : 1;
  uint8_t authentication_type_priority[4]; /* each 1 to 5, 0 unused; the first must be set */
  uint8_t hash_priority[4];                /* each 1 or 2, 0 unused; the first must be set */
  uint8_t dh_group_priority[8];            /* each 0 to 5 */
  uint32_t reauthenticate_time_interval;   /* 0: never; else 10 to 3600 */
} KRX_FCSP_CONFIG;

/* Remote entities of a local port. */
typedef struct HCX_AUTHCONFIGLIST {
  uint32_t numberOfEntries; /* in: room in entity[]; out: how many there are, also beyond the room */
  HBA_WWN entity[1];
} HCX_AUTHCONFIGLIST;

typedef struct AUTH_PASSWD_INFO {
  uint16_t length; /* bytes, 8 to 128 */
  uint16_t type;   /* hcx_auth_passwd_type */
  char password[128];
} AUTH_PASSWD_INFO;

/* The passwords of a pair, for a change of one of them. */
typedef struct _KRX_AUTH_PASSWD {
  uint64_t local_entity;
  uint64_t remote_entity;
  AUTH_PASSWD_INFO current_local_passwd;
  AUTH_PASSWD_INFO current_remote_passwd;
  AUTH_PASSWD_INFO new_local_passwd;
  AUTH_PASSWD_INFO new_remote_passwd;
} KRX_AUTH_PASSWD;

/* The driver's view of an authentication. */
typedef struct HCX_AUTHSTATUS {
  HBA_WWN local_entity;
  HBA_WWN remote_entity;   /* all 0xff: the fabric */
  uint8_t auth_state;      /* 1 not authenticated, 2 authenticating, 3 authenticated, 4 failed */
  uint8_t auth_failReason; /* 1 other, 2 ELS time-out, 3 transaction time-out, 4 LS_RJT, 5 LS_RJT busy,
                                    6 AUTH reject */
  uint8_t auth_type;       /* 1: DH-CHAP */
  uint8_t dhGroup;         /* 1 to 5: groups 0 to 4 */
  uint8_t hash;            /* 1: MD5, 2: SHA-1 */
  uint8_t localAuth : 1;
  uint8_t remoteAuth : 1;
  uint8_t pad : 6;
  uint16_t reserved0;
  uint32_t time_from_last_auth;  /* seconds */
  uint32_t time_until_next_auth; /* seconds */
  uint32_t reserved1;
  uint32_t reserved2;
} HCX_AUTHSTATUS;

#ifdef __cplusplus
}
#endif

#endif
