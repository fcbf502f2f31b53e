/* SPDX-License-Identifier: BSD-3-Clause */
/*
 * The inventory: hosts, remote ports and LUNs as sysfs shows them, the routines that build it, and the sysfs access
 * routines below it.
 *
 * Ownership: records belong to the inventory; texts in them are heap strings of the record, null when the attribute
 * was missing or empty.
 * Threads: each host has a reader/writer lock with default attributes, so that a thread may take the read side twice.
 * A host found by hcx_host_find_by_*() is returned with its read lock held; the caller releases it with
 * pthread_rwlock_unlock(&host->rwlock). The list of hosts is written at start-up and teardown only.
 */
#ifndef LIBHCX_HCX_UTIL_H
#define LIBHCX_HCX_UTIL_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include "hbaapi.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* The lock of a host. Strict ISO C hides pthread_rwlock_t: there the records keep their layout, but the lock cannot be
 * used. Compile with -std=gnu11 or -D_POSIX_C_SOURCE=200809L to use it. */
#ifdef PTHREAD_RWLOCK_INITIALIZER
typedef pthread_rwlock_t hcx_rwlock;
#else
typedef union hcx_rwlock {
  char bytes[__SIZEOF_PTHREAD_RWLOCK_T];
  long align;
} hcx_rwlock;
#endif

typedef struct hcx_host hcx_host;
typedef struct hcx_port hcx_port;
typedef struct hcx_lun hcx_lun;

/* One event in a host's ring. */
typedef struct host_event {
  uint32_t seq_num;
  uint32_t event_code;
  uint32_t data;
  uint32_t data1;
  uint32_t data2;
  void *data_buffer; /* owned payload */
  uint32_t data_len;
  struct host_event *next;
  HBA_WWN wwpn;
} host_event;

enum { HCX_EVENT_RING_SIZE = 128 };

struct hcx_lun {
  hcx_lun *next;
  hcx_port *port;
  uint64_t id; /* Linux LUN number; the list is sorted by it */
  size_t serial_number_len;
  char *serial_number;
  char *generic_scsi_dev; /* "/dev/sg3" */
  char *block_dev;        /* "/dev/sdb" */
  char *tape_dev;         /* "/dev/st0" */
};

struct hcx_port {
  hcx_port *next;
  hcx_host *host;
  hcx_lun *lun_list;
  uint32_t id;             /* last number of the remote port's directory name; the list is sorted by it */
  uint32_t scsi_target_id; /* all ones: no target number */
  int roles;               /* rport_role bits */
  uint8_t wwnn[8];
  uint8_t wwpn[8];
  uint32_t port_id; /* 24-bit FC address */
  char **serial_number;
  uint32_t mlomgmt;
};

struct hcx_host {
  hcx_host *next;
  hcx_port *port_list;
  hcx_rwlock rwlock;
  uint32_t id; /* kernel SCSI host number; the list is sorted by it */
  int vend_idx;
  int brd_idx;   /* board number, -1 until HCX_InitDiagEnv() gave one */
  hcx_port port; /* the local port */
  uint32_t topology;
  uint32_t events_count;
  uint32_t missed_events_count;
  uint32_t refresh_timer;
  char *pci_dev; /* "/sys/devices/.../0000:05:00.0/" */
  char *info;
  char *serial_number;
  char *hardware_version;
  char *firmware_revision;
  char *option_rom_version;
  char *protocol; /* "fc" or "fcoe" */
  char *npiv_info;
  uint8_t *stat_reset;
  struct {
    host_event buf[HCX_EVENT_RING_SIZE];
    uint32_t get;
    uint32_t put;
    uint32_t cnt;
    uint32_t missed;
  } hbaevt;
  int temp_sensor_support;
};

/* Layout generation of the kernel's sysfs tree. */
enum sysfs_tree_ver {
  SLES9 = 0,
  RHEL4 = 1,
  LK2_6_12 = 2 /* remote ports under /sys/class/fc_remote_ports */
};

enum rport_role {
  FC_RPORT_ROLE_UNKNOWN = 0,
  FC_RPORT_ROLE_FCP_TARGET = 0x1,
  FC_RPORT_ROLE_FCP_INITIATOR = 0x2,
  FC_RPORT_ROLE_IP_PORT = 0x4,
  FC_FPORT_ROLE_FABRIC = 0x10,
  FC_FPORT_ROLE_FABCTLR = 0x20,
  FC_FPORT_ROLE_DIRSRVR = 0x40,
  FC_FPORT_ROLE_TIMESRVR = 0x80,
  FC_FPORT_ROLE_MGMTSRVR = 0x100,
  FC_FPORT_ROLE_UNKNFABRIC = 0x800
};

/* A word of the driver and its number. A table ends with a null name whose value is the default. */
typedef struct named_const {
  const char *name;
  uint32_t val;
} named_const;

extern hcx_host *hcx_host_list;
extern uint32_t hcx_host_count;
extern int sysfs_ver; /* a sysfs_tree_ver */

/*
 * ---- Lists ----
 *
 * Hosts, a host's remote ports and a port's LUNs are lists linked through `next` and sorted by `id`; equals stand in
 * their order of arrival. `list` points to the head. `last`, null or a record of the list, shortens the search: an
 * insert starts at it when its key is not greater than the new one's, a removal uses it when it is the predecessor.
 * Nothing here locks: the list of hosts is for start-up and teardown, the lists below a host are changed under the
 * write side of its lock and read under either side. No I/O; none blocks, but for the finders of hosts.
 */

/* Inserts a host. Returns new_host. */
hcx_host *hcx_host_insert(hcx_host **list, hcx_host *last, hcx_host *new_host);
/* Unlinks a host, unless it still has remote ports. Returns its predecessor; null for the head and when nothing was
 * unlinked. */
hcx_host *hcx_host_remove(hcx_host **list, hcx_host *last, hcx_host *host);
/* Inserts a remote port and makes it the host's. Returns new_port; null when it is linked already or a pointer is
 * null. */
hcx_port *hcx_host_insert_port(hcx_host *host, hcx_port *last, hcx_port *new_port);
/* Unlinks a remote port and clears its `next` and `host`. Returns its predecessor, as hcx_host_remove(). */
hcx_port *hcx_host_remove_port(hcx_port **list, hcx_port *last, hcx_port *port);
/* Inserts a LUN and makes it the port's. Returns new_lun; null when a pointer is null. */
hcx_lun *hcx_port_insert_lun(hcx_port *port, hcx_lun *last, hcx_lun *new_lun);
/* Unlinks a LUN and clears its `next`. Returns its predecessor, as hcx_host_remove(). */
hcx_lun *hcx_port_remove_lun(hcx_lun **lun_list, hcx_lun *last, hcx_lun *lun);

/* Find the first port of a list by its number, SCSI target number, FC address, port or node name (eight bytes, most
 * significant first). Return it or null. The caller holds the host's lock as long as it uses the port. */
hcx_port *hcx_port_find_by_id(hcx_port *list, uint32_t id);
hcx_port *hcx_port_find_by_target_id(hcx_port *list, uint32_t scsi_target_id);
hcx_port *hcx_port_find_by_port_id(hcx_port *list, uint32_t port_id);
hcx_port *hcx_port_find_by_wwpn(hcx_port *list, const uint8_t *wwpn);
hcx_port *hcx_port_find_by_wwnn(hcx_port *list, const uint8_t *wwnn);
/* Finds the first LUN of a list by its Linux number. Returns it or null. */
hcx_lun *hcx_lun_find_by_id(hcx_lun *list, uint64_t lun_id);

/* Find the first host of a list by its kernel number, or by the FC address, port or node name of its local port; by
 * board number there is hcx_host_find_by_idx(). Return it with its read lock held, which the caller releases with
 * pthread_rwlock_unlock(&host->rwlock); null when there is none or it cannot be locked. Block while the host is being
 * rescanned. */
hcx_host *hcx_host_find_by_id(hcx_host *list, uint32_t id);
hcx_host *hcx_host_find_by_port_id(hcx_host *list, uint32_t port_id);
hcx_host *hcx_host_find_by_wwpn(hcx_host *list, const uint8_t *wwpn);
hcx_host *hcx_host_find_by_wwnn(hcx_host *list, const uint8_t *wwnn);

/* ---- Records: calloc() makes one; these release it or parts of it. All accept null, and log it. ---- */

/* Releases an unlinked LUN with its texts, all but tape_dev. One that is still linked is logged and released. */
void hcx_lun_free(hcx_lun *lun);
/* Releases an unlinked port; its LUNs are the caller's business. Links that are still set are logged. */
void hcx_port_free(hcx_port *port);
/* Releases an unlinked host with its texts, lock and events. One that is linked or has ports is logged and stays. */
void hcx_host_free(hcx_host *host);
/* Releases and clears a host's texts, its PCI directory and its statistics baseline. */
void hcx_host_clean(hcx_host *host);
/* Releases and clears a LUN's generic and block device names. */
void hcx_lun_clean(hcx_lun *lun);
/* Print a record to standard output, one field a line: of a host the local port's names and address, of a port and a
 * LUN what identifies it, without what is below. */
void hcx_host_logdump(hcx_host *host);
void hcx_port_logdump(hcx_port *port);
void hcx_lun_logdump(hcx_lun *lun);

/*
 * ---- Discovery ----
 *
 * Reads sysfs; blocks until the driver has answered. What cannot be read is logged under LOG_ERROR and left zero or
 * null. Without memory what was found so far stays.
 */

/*
 * Builds a list of the hosts of the driver: physical ports with their remote ports and LUNs, each with brd_idx -1.
 *   list  head of the list, hcx_host_list as a rule; a list that is not empty is left as it is
 * Returns the number of hosts found; 0 for a list that is not empty, though sysfs_ver is settled anew in any case.
 * Reads "npiv_info" and "vosk_log_verbose" of each entry of "/sys/class/scsi_host". For start-up.
 */
uint32_t hcx_sysfs_scan_hosts(hcx_host **list);

/*
 * Reads a host's attributes and its local port anew, under the write side of its lock. The calling thread must hold no
 * side of it. Texts of the record from before are released; stat_reset stays while the port name is the same.
 */
void hcx_sysfs_scan_host(hcx_host *host);

/*
 * Fills a host's local port: address, node and port name, roles.
 *   port  the port in the host record, whose `host` is set; the caller has locked the host for writing
 */
void hcx_sysfs_scan_lport(hcx_port *port);

/*
 * Lists a host's remote ports anew with their LUNs, under the write side of its lock. The calling thread must hold no
 * side of it. Ports that are Online keep their records; those in another state leave the list, but their records live
 * until teardown; those that are gone are released.
 */
void hcx_sysfs_scan_rports(hcx_host *host);

/*
 * Fills a remote port, and lists its LUNs if it is an FCP target.
 *   port  its `host` and `id` are set (in old trees `scsi_target_id`); the caller has locked the host for writing
 */
void hcx_sysfs_scan_rport(hcx_port *port);

/*
 * Lists a remote port's LUNs anew. Those that are there keep their records; those that are gone leave the list, but
 * their records live until teardown.
 *   rport  its `host` and `scsi_target_id` are set; the caller has locked the host for writing
 */
void hcx_sysfs_scan_luns(hcx_port *rport);

/*
 * Finds the device names of a LUN.
 *   lun  its `port` (with its `host`) and `id` are set; the caller has locked the host for writing
 * Reads the links and directories below "/sys/class/scsi_device/H:0:T:L/device".
 */
void hcx_sysfs_scan_lun(hcx_lun *lun);

/*
 * ---- Look-ups in sysfs ----
 *
 * These ask the machine and not the inventory, so they know virtual ports and need no start-up. They block until the
 * driver has answered. WWNs are eight bytes, most significant first; the WWN 0 is nobody's.
 */

/*
 * The device file of a LUN.
 *   lun_id    the eight bytes of the FC LUN, as they lie in memory; the first four give the Linux number
 *   dev_name  out: "/dev/sg3", terminated; 256 bytes. Unchanged on failure.
 * Returns 0; -1 when the LUN has no device or dev_name is null.
 */
int hcx_get_lun_file_name(uint32_t host_id, uint32_t target_id, uint64_t lun_id, char *dev_name);

/*
 * The SCSI target number that a host gave a remote port.
 *   host_id  kernel number of the host
 * Returns it; -1 when the host sees no such port, the port has no number, or pWWPN is null.
 * Reads "port_name" of the host's remote ports until one matches, and its "scsi_target_id".
 */
int hcx_get_target_id(uint32_t host_id, HBA_WWN *pWWPN);

/*
 * The kernel number of the host, physical or virtual, with a port name.
 * Returns it; -1 when there is none or pWWPN is null. Reads "port_name" in "/sys/class/fc_host".
 */
int hcx_get_host_id(HBA_WWN *pWWPN);

/* Reads a host's "port_name" into *wwpn; all zero when it cannot be read. */
void hcx_get_wwpn(uint32_t host_no, HBA_WWN *wwpn);

/*
 * The physical host that carries a virtual port; for a physical host itself.
 *   host_no  kernel number of the virtual port's host
 * Returns it with its read lock held, to be released by the caller; null when there is none in the inventory, which is
 * not scanned for it. Reads the link "/sys/class/scsi_host/hostN".
 */
hcx_host *hcx_vport_to_physical_host(uint32_t host_no);

/*
 * ---- Questions to a host ----
 *
 * `host` is locked for reading by the caller, or not shared.
 */

/* Reads "board_online". Returns its number, 1 for on-line; -1 when it is missing or holds none. */
int hcx_host_is_online(hcx_host *host);
/* Take the port on-line or off-line by way of "board_online". Return 0; -1 when it cannot be opened. */
int hcx_host_online(hcx_host *host);
int hcx_host_offline(hcx_host *host);

/*
 * The driver's version, "vosk_drvr_version" from its first digit on.
 *   buff   out: the text, terminated; empty when there is none
 *   count  bytes at buff
 * Returns the length of the text plus one; 1 when there is none or an argument is bad.
 */
int hcx_host_drv_ver(hcx_host *host, char *buff, int count);

/* From the firmware revision and protocol of the record: SLI mode (3, 4), interface type of an SLI-4 port, protocol (1
 * Fibre Channel, 0 FCoE). Return -1 when the record does not tell or host is null. No I/O. */
int hcx_get_sli_mode(hcx_host *host);
int hcx_get_sli4_if_type(hcx_host *host);
int hcx_get_protocol_mode(hcx_host *host);

/* The kind of PCI function. Returns 2 for the PCI devices 0x7a10 to 0x7a12, 1 for every other, -1 for a null host. Reads
 * "device" in the host's PCI directory. */
int hcx_get_function_type(hcx_host *host);

/* The same by board number. Return -1 for an unknown board too. Scan the hosts when the inventory is empty; block while
 * the board's host is being rescanned. */
int hcx_get_board_sli_mode(uint32_t board);
int hcx_get_board_sli4_if_type(uint32_t board);
int hcx_get_board_protocol_mode(uint32_t board);

/*
 * ---- Sysfs attributes ----
 *
 * `dir` is a directory with its trailing "/", `file` the name of an attribute in it; joined they are cut at 255
 * characters. Unless said otherwise a routine asks find_sys_class_mmm(dir, file) first and takes an attribute that the
 * running driver does not offer for a missing one, without touching it. A failure is logged under LOG_ERROR, the path
 * of each access under LOG_DEVICE_NAME. Descriptors are closed before a routine returns, but for the lock routines.
 * All may be called from any thread; none blocks beyond the driver's own answer, but for the lock routines.
 */

/*
 * Reads the first line of a text attribute.
 *   ret_val   out: the line without its newline, terminated; empty when there is none
 *   buff_len  bytes at ret_val; at most buff_len-2 characters of the line are taken
 * Returns ret_val; null when the attribute is missing or cannot be read, or when ret_val is null or buff_len is 0.
 */
char *hcx_sysfs_read_str(const char *dir, const char *file, char *ret_val, size_t buff_len);

/*
 * Reads a decimal number, "%d", cut to 32 bits.
 * Returns the number; 0 when the attribute is missing, cannot be read or holds no number.
 */
int hcx_sysfs_read_int(const char *dir, const char *file);

/*
 * Reads an unsigned decimal number, "%u", cut to 32 bits; a sign is taken, so that "-1" is all ones.
 * Returns the number; 0 when the attribute is missing, cannot be read or holds no number.
 */
unsigned int hcx_sysfs_read_uint(const char *dir, const char *file);

/*
 * Reads a hexadecimal number, "0x%x", cut to 32 bits.
 * Returns the number; 0 when the attribute is missing, cannot be read or does not begin with "0x" and a number.
 */
uint32_t hcx_sysfs_read_hexuint32(const char *dir, const char *file);

/*
 * Reads a hexadecimal number of 64 bits, "0x%llx", such as a WWN.
 * Returns the number; 0 when the attribute is missing, cannot be read or does not begin with "0x" and a number.
 */
uint64_t hcx_sysfs_read_hexuint64(const char *dir, const char *file);

/*
 * Writes a text to an attribute, in one piece and as it stands. An attribute that does not exist is not created.
 *   out_str  text, terminated; the empty text writes nothing
 * Returns 0; 2 when the attribute is missing or cannot be opened; else the errno of the write (EINVAL for a null
 * out_str).
 */
int hcx_sysfs_write_str(const char *dir, const char *file, const char *out_str);

/*
 * Tells whether an attribute can be opened for reading.
 * Returns 1 or 0.
 */
int hcx_sysfs_test_file(const char *dir, const char *file);

/*
 * Tells whether a directory can be opened; the templates are not asked.
 * Returns 1 or 0.
 */
int hcx_sysfs_test_dir(const char *dir_name);

/*
 * Reads one transport statistic of a host.
 *   host       locked for reading by the caller, or not shared
 *   stat_name  attribute in "/sys/class/fc_host/hostN/statistics/", "0x%llx"
 * Returns the counter; 0 when it is missing or the host is null.
 */
uint64_t hcx_host_stat_read(hcx_host *host, const char *stat_name);

/*
 * Cuts a text at its last newline.
 *   str_buff  in and out, terminated
 * Returns str_buff; null stays null.
 */
char *hcx_str_chop_cr(char *str_buff);

/*
 * ---- Binary attributes ----
 *
 * Offsets and lengths are in bytes. Results are byte counts, which may be less than asked for, and 0 for every
 * failure.
 */

/*
 * Reads a part of a binary attribute: opens it, seeks, reads once, closes.
 *   buff    out: buff_len bytes
 *   offset  where to read
 * Returns the bytes read; 0 when the attribute is missing, cannot be opened or read, or has no such offset.
 */
size_t hcx_sysfs_read_binfile(const char *dir, const char *file, void *buff, off_t offset, size_t buff_len);

/*
 * Writes a part of a binary attribute: opens it, seeks, writes once, closes.
 * Returns the bytes written; 0 when the attribute is missing, cannot be opened or written, or has no such offset.
 */
size_t hcx_sysfs_write_binfile(const char *dir, const char *file, const void *buff, off_t offset,
                               size_t buff_len);

/*
 * Opens a command attribute for reading and writing and takes its exclusive lock, flock(2), for one command.
 * Returns the descriptor, to be given to hcx_sysfs_unlock_binfile(); -1 when the attribute is missing, cannot be
 * opened or cannot be locked.
 * Blocks, without limit, while another descriptor, in this process or another, holds the lock.
 */
int hcx_sysfs_lock_binfile(const char *dir, const char *file);

/*
 * Releases the lock and closes the descriptor.
 *   file_desc  from hcx_sysfs_lock_binfile(); no longer valid afterwards
 * Returns 0; -1 when the lock could not be released or file_desc is negative. The descriptor is closed in any case.
 */
int hcx_sysfs_unlock_binfile(int file_desc);

/*
 * Reads once through a locked descriptor, at `offset`, or where the descriptor stands when `offset` is 0.
 * Returns the bytes read; 0 for a failure.
 */
size_t hcx_sysfs_read_locked_fd(int fd, void *buff, off_t offset, size_t buff_len);

/*
 * Writes once through a locked descriptor, at `offset`, or where the descriptor stands when `offset` is 0.
 * Returns the bytes written; 0 for a failure.
 */
size_t hcx_sysfs_write_locked_fd(int fd, const void *buff, off_t offset, size_t buff_len);

/*
 * ---- Binary attributes of a host ----
 *
 * In "/sys/class/scsi_host/hostN/" unless said otherwise. `host` is locked for reading by the caller, or not shared.
 * A null host is a missing attribute. "tibra", "slimem" and "stats" are used whenever the driver has them.
 */

/* Takes the lock of "mbox" for one mailbox command. As hcx_sysfs_lock_binfile(). */
int hcx_host_mbox_lock(hcx_host *host);
/* Writes to the locked "mbox" at `offset`, from its beginning for 0. Returns the bytes written; 0 for a failure. */
size_t hcx_host_mbox_write(int fd, const void *buff, off_t offset, size_t count);
/* Reads from the locked "mbox" at `offset`, from its beginning for 0. Returns the bytes read; 0 for a failure. */
size_t hcx_host_mbox_read(int fd, void *buff, off_t offset, size_t count);
/* Ends a mailbox command. As hcx_sysfs_unlock_binfile(). */
int hcx_host_mbox_unlock(int fd);
/* Takes the lock of "tibra" for one bridge command. As hcx_sysfs_lock_binfile(). */
int hcx_host_tibra_lock(hcx_host *host);
/* Writes to the locked "tibra" at `offset`, from its beginning for 0. Returns the bytes written; 0 for a failure. */
size_t hcx_host_tibra_write(int fd, const void *buff, off_t offset, size_t count);
/* Reads from the locked "tibra" at `offset`, from its beginning for 0. Returns the bytes read; 0 for a failure. */
size_t hcx_host_tibra_read(int fd, void *buff, off_t offset, size_t count);
/* Ends a bridge command. As hcx_sysfs_unlock_binfile(). */
int hcx_host_tibra_unlock(int fd);
/* Reads the control registers, "ctlreg". As hcx_sysfs_read_binfile(); not locked. */
size_t hcx_host_ctlreg_read(hcx_host *host, void *buff, off_t offset, size_t count);
/* Writes the control registers, "ctlreg". As hcx_sysfs_write_binfile(); not locked. */
size_t hcx_host_ctlreg_write(hcx_host *host, const void *buff, off_t offset, size_t count);
/* Reads the adapter's shared memory, "slimem". As hcx_sysfs_read_binfile(); not locked. */
size_t hcx_host_slimem_read(hcx_host *host, void *buff, off_t offset, size_t count);
/* Writes the adapter's shared memory, "slimem". As hcx_sysfs_write_binfile(); not locked. */
size_t hcx_host_slimem_write(hcx_host *host, const void *buff, off_t offset, size_t count);
/* Reads the statistics block, "stats". As hcx_sysfs_read_binfile(). */
size_t hcx_host_stats_read(hcx_host *host, void *buff, off_t offset, size_t count);
/* Reads "config" in the host's PCI directory. As hcx_sysfs_read_binfile(); 0 when the host has no PCI directory. */
size_t hcx_host_pcireg_read(hcx_host *host, void *buff, off_t offset, size_t count);

/* ---- Driver parameters ---- */

/*
 * Reads a driver parameter: an attribute of the host that holds "0x%x" or "%d". The templates are not asked.
 *   host         locked for reading by the caller, or not shared
 *   param_name   the whole name of the attribute, "vosk_topology"
 *   param_value  out: the value, cut to 32 bits; unchanged on failure
 * Returns 1; 0 when the parameter is missing or holds no number, or an argument is null. "vosk_enable_auth" always
 * gives 1, is not read, and leaves param_value as it was.
 */
int hcx_host_param_read(hcx_host *host, const char *param_name, uint32_t *param_value);

/*
 * Writes a driver parameter in the number style that it reads in, with a newline.
 *   val      the new value
 *   old_val  out: the value before; set before the new one is written
 *   prefix   text in front of the number, null for none
 * Returns 0; 1 when the parameter cannot be read or written, an argument but prefix is null, or prefix is longer than
 * 240 characters. "vosk_enable_auth" always gives 0 and is not written.
 */
int hcx_host_param_write(hcx_host *host, const char *param_name, uint32_t val, uint32_t *old_val,
                         const char *prefix);

/* ---- Words and numbers ---- */

/*
 * The number of a word.
 *   str    a word; leading blanks are skipped
 *   descr  table; the first row whose name the word begins with counts
 * Returns the row's value; the end row's when no row fits; 0 for an empty or null table.
 */
uint32_t str2enum(const char *str, const named_const *descr);

/*
 * The word of a number.
 *   str      out: the name of the first row with that value, terminated; unchanged when there is none
 *   str_len  bytes at str
 * Returns the length of the name; str_len-1 when it was cut; 0 when no row has the value or str_len is 0.
 */
int enum2str(char *str, size_t str_len, uint32_t val, const named_const *descr);

/*
 * The bits of a list of words.
 *   str  words separated by `sep`; blanks before a word are skipped
 * Returns the values of all rows whose name begins one of the words, or-ed; 0 for a null or empty text.
 */
uint32_t str2bitfield(const char *str, char sep, const named_const *descr);

/*
 * The words of some bits, in table order, joined by `sep` and a blank.
 *   str      out: the words, terminated
 *   str_len  bytes at str
 * Returns the length of the text; str_len-1 when it was cut; 0 when no row shares a bit with val or str_len is 0.
 */
int bitfield2str(char *str, size_t str_len, uint32_t val, char sep, const named_const *descr);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
