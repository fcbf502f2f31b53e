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

#ifdef __cplusplus
}
#endif

#endif
