/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * Which kernel facilities the running driver offers.
 *
 * The library carries five templates: sysfs class attributes, PCI device attributes, netlink events, BSG requests and
 * BSG nodes. Each row has a window of management interface versions; start-up asks the driver for its version and
 * switches off the rows outside of it. A row that is off stays off for the life of the process. Before start-up all
 * rows are on.
 *
 * Thread rules: the templates are written only by get_vosk_management_version() during start-up; the finders may be
 * called from any thread afterwards.
 */
#ifndef LIBHCX_HCX_MMM_H
#define LIBHCX_HCX_MMM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* The versions of the management interface that have a facility, both ends included. */
typedef struct MMM_WINDOW {
  int32_t supported; /* 1: may be used, 0: may not */
  uint32_t minMajor;
  uint32_t minMinor;
  uint32_t maxMajor;
  uint32_t maxMinor;
  char a_help[80]; /* one line for hcx_show_mmm(); empty in a template's end row */
} MMM_WINDOW;

typedef struct MMM_SYSFS {
  MMM_WINDOW window;
  char dir_string[256];
  char file_string[256];
} MMM_SYSFS;

typedef struct MMM_NETLINK {
  MMM_WINDOW window;
  uint32_t code;      /* a vosk_host_event_code */
  uint32_t eventCode; /* vendor event category; 0 for an event of the transport */
} MMM_NETLINK;

typedef struct MMM_BSG_IOCTL {
  MMM_WINDOW window;
  uint32_t code;    /* FC BSG message code */
  uint32_t command; /* vendor command; 0 for a request of the transport */
} MMM_BSG_IOCTL;

typedef struct MMM_BSG_DEV {
  MMM_WINDOW window;
  char dir_string[256];
  char file_string[256]; /* how names of this kind of node begin */
} MMM_BSG_DEV;

/* Event codes of the FC transport. */
enum vosk_host_event_code {
  VOSKH_EVT_LIP = 1,
  VOSKH_EVT_LINKUP = 2,
  VOSKH_EVT_LINKDOWN = 3,
  VOSKH_EVT_LIPRESET = 4,
  VOSKH_EVT_RSCN = 5,
  VOSKH_EVT_ADAPTER_CHANGE = 0x103,
  VOSKH_EVT_PORT_UNKNOWN = 0x200,
  VOSKH_EVT_PORT_OFFLINE = 0x201,
  VOSKH_EVT_PORT_ONLINE = 0x202,
  VOSKH_EVT_PORT_FABRIC = 0x204,
  VOSKH_EVT_LINK_UNKNOWN = 0x500,
  VOSKH_EVT_VENDOR_UNIQUE = 0xffff
};

/* Scratch records for applications; the library neither reads nor writes them. */
extern MMM_WINDOW MMM_Window;
extern MMM_SYSFS MMM_Sysfs;
extern MMM_NETLINK MMM_Netlink;
extern MMM_BSG_IOCTL MMM_BSG_ioctl;
extern MMM_BSG_DEV MMM_BSG_dev;

/*
 * ---- Settlement ----
 */

/*
 * Asks the driver for its management interface version, settles on the lower of its and the library's (2.0), and
 * switches off the rows that do not have it. Rows are never switched on again.
 * Returns 1; 0 when the driver could not be asked (no physical vosk port, no node, a refused request): the templates
 * are as before.
 * Reads "vosk_log_verbose" and "npiv_info" of the hosts in alphabetical order and sends BSG vendor command 6 to the
 * node of the first physical port. Blocks until the driver answers, at most 60 s. For start-up only.
 */
int get_vosk_management_version(void);

/*
 * ---- Finders ----
 *
 * Each answers the `supported` of the first row that matches: 1, or 0 when the driver does not offer it. Nothing
 * found and bad arguments (null, too short) give 0 as well; the log tells them apart. No I/O; none blocks.
 */

/*
 * Whether an attribute of a sysfs class may be used.
 *   dir_name   directory of the object with its trailing "/": "/sys/class/scsi_host/host3/"; that of a host's
 *              statistics counts as the host's own; anything under "/sys/device" is asked of find_sys_device_mmm()
 *   file_name  name of the attribute, or the beginning of one
 */
int find_sys_class_mmm(const char *dir_name, const char *file_name);

/*
 * Whether an attribute of a PCI device may be used.
 *   dir_name   any directory under "/sys/devices"
 *   file_name  name of the attribute, or the beginning of one
 */
int find_sys_device_mmm(const char *dir_name, const char *file_name);

/*
 * Whether an event is wanted.
 *   code       a vosk_host_event_code
 *   eventCode  category of a vendor unique event; of no account otherwise
 */
int find_netlink_mmm(int code, int eventCode);

/*
 * Whether a BSG request may be sent.
 *   command  vendor command of a host vendor request; of no account otherwise
 *   code     FC BSG message code
 */
int find_bsg_ioctl_mmm(int command, int code);

/*
 * Whether a BSG node may be opened.
 *   dir_name   "/dev/bsg", or a beginning of it
 *   file_name  name of the node: "fc_host3", "rport-2:0-1"
 */
int find_bsg_device_mmm(const char *dir_name, const char *file_name);

/*
 * ---- Dump ----
 */

/*
 * Prints the five templates, one line a row.
 *   display  not 0: to standard output; 0: to the log, under LOG_MMM
 */
void hcx_show_mmm(int display);
#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
