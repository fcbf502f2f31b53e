// SPDX-License-Identifier: BSD-3-Clause
// Start-up and teardown of the library, the board table that start-up hands out, and the library's version.
// Owns the list of hosts. Start-up and teardown must not overlap any other call, so nothing here locks.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "hcx_ioctl_event.h"
#include "hcx_netlink.h"
#include "hcx_sdapi.h"
#include "libhcx.h"

using namespace hcx;

hcx_host *hcx_host_list = nullptr;
uint32_t hcx_host_count = 0;

namespace {

constexpr uint32_t old_record_limit = 32;
constexpr int slimem_size = 4096;
constexpr uint32_t no_address = 0xffffffff;

// Descriptor of the management character device, -1 when it is not open.
int global_fcfd = -1;

struct PciAddress {
  unsigned bus = 0;
  unsigned slot = 0;
  unsigned function = 0;
};

// From "/sys/devices/.../0000:05:00.1/".
PciAddress pci_address(const char *pci_dev) {
  PciAddress address;
  const char *end = strrchr(pci_dev, '/');
  const char *start = end;
  while (start && start > pci_dev && *--start != '/') {
  }
  if (start && *start == '/') {
    sscanf(start, "/%*x:%x:%x.%x/%*s", &address.bus, &address.slot, &address.function);
  }
  return address;
}

uint32_t board_mode(const char *dir) {
  Line mode;
  hcx_sysfs_read_str(dir, "board_mode", mode.data(), mode.size());
  return str2enum(mode.c_str(), board_mode_names);
}

void fill_record(hcx_host *host, hcx_brdinfo *record) {
  const Path dir = scsi_host_dir(host->id);
  const PciAddress address = pci_address(host->pci_dev);
  record->a_mem_hi = record->a_mem_low = no_address;
  record->a_flash_hi = record->a_flash_low = no_address;
  record->a_ctlreg_hi = record->a_ctlreg_low = no_address;
  record->a_siglvl = 10;
  record->a_intrlvl = static_cast<uint32_t>(hcx_sysfs_read_int(host->pci_dev, "irq"));
  const uint32_t device = hcx_sysfs_read_hexuint32(host->pci_dev, "device");
  record->a_pci = device << 16 | hcx_sysfs_read_hexuint32(host->pci_dev, "vendor");
  record->a_pciFunc = static_cast<uint8_t>(address.function);
  record->a_devid = address.slot << 3 | address.function;
  record->a_busid = address.bus;
  record->a_onmask = ONDI_MBOX | ONDI_IOINFO | ONDI_LNKINFO | ONDI_NODEINFO | ONDI_RMEM | ONDI_RPCI |
                     ONDI_RCTLREG | ONDI_CFGPARAM | ONDI_CT | ONDI_HBAAPI;
  record->a_ddi = static_cast<uint16_t>(host->vend_idx);
  memset(record->a_drvrid, 0, sizeof record->a_drvrid);
  memset(record->a_fwname, 0, sizeof record->a_fwname);
  hcx_host_drv_ver(host, reinterpret_cast<char *>(record->a_drvrid), sizeof record->a_drvrid);
  hcx_sysfs_read_str(dir.c_str(), "fwrev", reinterpret_cast<char *>(record->a_fwname),
                     sizeof record->a_fwname);
  // Callers read the board's mode here, not its off-line capabilities.
  record->a_offmask = board_mode(dir.c_str());
  memcpy(record->a_wwpn, host->port.wwpn, sizeof record->a_wwpn);
  const bool has_slimem = sysio::machine().stat(Path("%sslimem", dir.c_str()).c_str()) == slimem_size;
  record->a_onmask |= has_slimem ? ONDI_SLI1 : ONDI_SLI2;
  // Mailbox words are big-endian in memory on every processor.
  record->a_onmask |= ONDI_BIG_ENDIAN;
}

// Numbers the boards in list order and describes the first `count`; how many there are.
uint32_t fill_table(hcx_brdinfo *ba, uint32_t count) {
  uint32_t boards = 0;
  for (hcx_host *host = hcx_host_list; host; host = host->next) {
    // The listener already runs and looks at the number.
    const std::atomic_ref<int> number(host->brd_idx);
    number = -1;
    if (!host->pci_dev) continue;
    if (ba && boards < count) {
      number = static_cast<int>(boards);
      fill_record(host, &ba[boards]);
    }
    ++boards;
  }
  return boards;
}

uint32_t list_length() {
  uint32_t length = 0;
  for (const hcx_host *host = hcx_host_list; host; host = host->next)
    ++length;
  return length;
}

void free_inventory() {
  while (hcx_host *host = hcx_host_list) {
    while (hcx_port *port = host->port_list) {
      hcx_host_remove_port(&host->port_list, nullptr, port);
      destroy_port(port);
    }
    hcx_host_remove(&hcx_host_list, nullptr, host);
    hcx_host_free(host);
  }
  free_retired_records();
}

// Keeps the inventory where a callback that has not returned can go on using it, and nobody else finds it. Never freed:
// nothing tells when the last one has come back.
void leave_inventory() {
  static hcx_host *left;
  for (hcx_host **end = &left;; end = &(*end)->next) {
    if (*end) continue;
    *end = hcx_host_list;
    break;
  }
  hcx_host_list = nullptr;
  hcx_host_count = 0;
}

void copy_record(brdinfo *to, const hcx_brdinfo &from) {
  to->a_mem_hi = from.a_mem_hi;
  to->a_mem_low = from.a_mem_low;
  to->a_flash_hi = from.a_flash_hi;
  to->a_flash_low = from.a_flash_low;
  to->a_ctlreg_hi = from.a_ctlreg_hi;
  to->a_ctlreg_low = from.a_ctlreg_low;
  to->a_intrlvl = from.a_intrlvl;
  to->a_pci = from.a_pci;
  to->a_busid = from.a_busid;
  to->a_devid = from.a_devid;
  to->a_ddi = static_cast<uint8_t>(from.a_ddi);
  to->a_onmask = from.a_onmask;
  to->a_offmask = from.a_offmask;
  memcpy(to->a_drvrid, from.a_drvrid, sizeof to->a_drvrid);
  memcpy(to->a_fwname, from.a_fwname, sizeof to->a_fwname);
}

}  // namespace

uint32_t HCX_InitDiagEnv(hcx_brdinfo *ba, uint32_t count) {
  hcx::libhcx_open_syslog();
  HCX_TRACE();
  if (global_fcfd == -1) {
    const int fd = sysio::machine().open("/dev/voskmgmt", O_RDWR);
    global_fcfd = fd < 0 ? -1 : fd;
  }
  HCX_LOG(LOG_MMM, "Dumping MMM before updating tables");
  hcx_show_mmm(0);
  if (get_vosk_management_version() == 0) return 0;
  HCX_LOG(LOG_MMM, "Dumping MMM after tables have been updated");
  hcx_show_mmm(0);

  uint32_t hosts;
  if (!hcx_host_list) {
    hosts = hcx_sysfs_scan_hosts(&hcx_host_list);
    if (hosts == 0) {
      HCX_LOG(LOG_ERROR, "No vosk hosts found");
      return 0;
    }
    if (net_link_init() != 0) {
      HCX_LOG(LOG_ERROR, "Failed to initialize net_link interface");
      return 0;
    }
  } else {
    hosts = list_length();
  }

  const uint32_t boards = fill_table(ba, count);
  if (boards == 0) {
    HCX_LOG(LOG_ERROR, "no boards found");
    return 0;
  }
  resume_event_delivery();
  if (boards != hosts) {
    HCX_LOG(LOG_ADMIN, "callers limit %d allocated %d scanned %d", static_cast<int>(count),
            static_cast<int>(boards), static_cast<int>(hosts));
  }
  hcx_sd_init(ba, boards);
  if (open_voskhcx() != 0) {
    HCX_FreeDiagEnv();
    HCX_LOG(LOG_ERROR, "open_voskhcx failed");
    return 0;
  }
  HCX_LOG(LOG_ADMIN, "pid %d %d boards found", getpid(), static_cast<int>(hosts));
  return hosts;
}

uint32_t InitDiagEnv(brdinfo *ba) {
  if (!ba) return 0;
  const HeapArray<hcx_brdinfo> records = heap_array<hcx_brdinfo>(old_record_limit);
  if (!records) return 0;
  const uint32_t count = std::min(HCX_InitDiagEnv(records.get(), old_record_limit), old_record_limit);
  HCX_TRACE();
  for (uint32_t i = 0; i < count; ++i)
    copy_record(&ba[i], records[i]);
  return count;
}

uint32_t HCX_FreeDiagEnv(void) {
  HCX_TRACE();
  const bool no_diagnostic_call = sd::shut_down();
  // The listener walks the hosts, so it goes first.
  net_link_exit();
  if (no_diagnostic_call && listeners_left_behind() == 0) {
    free_inventory();
  } else {
    leave_inventory();
  }
  HCX_LOG(LOG_ADMIN, "pid %d Finished", getpid());
  libhcx_syslog_unlink();
  if (global_fcfd != -1) {
    sysio::machine().close(global_fcfd);
    global_fcfd = -1;
  }
  return 0;
}

uint32_t FreeDiagEnv(void) {
  HCX_TRACE();
  return HCX_FreeDiagEnv();
}

void HCX_GetLibVer(uint8_t *ver) {
  HCX_TRACE();
  if (ver) snprintf(reinterpret_cast<char *>(ver), 19, "%d.%d.%d%s", 4, 2, 17, "");
}
