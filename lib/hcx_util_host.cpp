// SPDX-License-Identifier: BSD-3-Clause
// Discovery of hosts, what is asked of one host, and the way from a board number to a host.
// hcx_sysfs_scan_hosts() builds hcx_host_list at start-up, or when the first call finds it empty; an inventory that is
// there is never scanned over. hcx_sysfs_scan_host() rereads one record under its write lock; a thread that calls it
// must hold no side of that lock.
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>

#include "hcx_util_attr.h"
#include "hcx_util_scan.h"

using namespace hcx;

int sysfs_ver = SLES9;

namespace {

constexpr char kScsiHostClass[] = "/sys/class/scsi_host";
constexpr char kScsiDeviceClass[] = "/sys/class/scsi_device";

// The texts of a host record, in the order in which they are read.
struct HostText {
  const char *file;
  char *hcx_host::*field;
};
constexpr HostText host_texts[] = {
    {"info", &hcx_host::info},
    {"serialnum", &hcx_host::serial_number},
    {"hdw", &hcx_host::hardware_version},
    {"fwrev", &hcx_host::firmware_revision},
    {"option_rom_version", &hcx_host::option_rom_version},
    {"protocol", &hcx_host::protocol},
};

// A heap copy of an attribute's text; null when it is missing or empty.
char *read_text(const char *dir, const char *file) {
  Line text;
  if (!hcx_sysfs_read_str(dir, file, text.data(), text.size()) || text.empty()) return nullptr;
  return strdup(text.c_str());
}

void read_attributes(hcx_host *host) {
  const Path dir = scsi_host_dir(host->id);
  host->npiv_info = read_text(dir.c_str(), "npiv_info");
  hcx_host_param_read(host, "vosk_topology", &host->topology);
  host->vend_idx = hcx_sysfs_read_int(dir.c_str(), "unique_id");
  host->temp_sensor_support = hcx_sysfs_read_int(dir.c_str(), "vosk_temp_sensor");
  host->events_count = static_cast<uint32_t>(hcx_sysfs_read_int(dir.c_str(), "nport_evt_cnt"));
  for (const HostText &text : host_texts)
    host->*text.field = read_text(dir.c_str(), text.file);
}

// The directory of the PCI function in the text of a host's link, "/sys/devices/.../0000:05:00.0/"; null when the text
// leads through no host of a device tree.
char *pci_dev_of(char *link) {
  char *host = strstr(link, "/host");
  if (!host) return nullptr;
  host[1] = '\0';
  const char *devices = strstr(link, "/devices");
  if (!devices) return nullptr;
  char *path = nullptr;
  return asprintf(&path, "/sys%s", devices) < 0 ? nullptr : path;
}

// Null when neither link tells; *path is then the one that was looked at last.
char *find_pci_dev(uint32_t host_no, Path *path) {
  char link[256] = {};
  *path = Path("/sys/class/scsi_host/host%d", static_cast<int>(host_no));
  ssize_t length = sysio::machine().read_link(path->c_str(), link, sizeof link - 1);
  if (length < 0) {
    *path = Path("/sys/class/scsi_host/host%d/device", static_cast<int>(host_no));
    length = sysio::machine().read_link(path->c_str(), link, sizeof link - 1);
  }
  return length < 0 ? nullptr : pci_dev_of(link);
}

// A host of our driver, read but not yet in the list; null when it is none, or cannot be placed on the PCI bus.
hcx_host *new_host(const char *name, bool *out_of_memory) {
  *out_of_memory = false;
  const Path dir("%s/%s/", kScsiHostClass, name);
  if (!is_physical_port(name) || !hcx_sysfs_test_file(dir.c_str(), "vosk_log_verbose")) return nullptr;
  const int number = host_number(name);
  if (number < 0) return nullptr;
  auto *host = static_cast<hcx_host *>(calloc(1, sizeof(hcx_host)));
  *out_of_memory = !host;
  if (!host) return nullptr;
  pthread_rwlock_init(&host->rwlock, nullptr);
  host->id = static_cast<uint32_t>(number);
  hcx_sysfs_scan_host(host);
  if (host->pci_dev) return host;
  hcx_host_free(host);
  return nullptr;
}

uint32_t scan_all(hcx_host **list, const std::vector<std::string> &names) {
  ClassListing rports = remote_port_listing(sysfs_ver < LK2_6_12, "");
  ClassListing devices(kScsiDeviceClass);
  uint32_t count = 0;
  hcx_host *last = nullptr;
  for (const std::string &name : names) {
    bool out_of_memory;
    hcx_host *host = new_host(name.c_str(), &out_of_memory);
    if (out_of_memory) break;
    if (!host) continue;
    // Without memory for a listing the host stays without the ports that were not read.
    no_throw(0, [&] {
      hcx::hcx_sysfs_scan_rports(host, rports, devices);
      return 0;
    });
    host->brd_idx = -1;
    last = hcx_host_insert(list, last, host);
    ++count;
  }
  return count;
}

// "board_online" of a host, written or read without asking the capability templates.
Path online_path(const hcx_host *host) {
  return Path("/sys/class/scsi_host/host%d/board_online", static_cast<int>(host->id));
}

// What a query by host answers for a board; -1 for an unknown one.
int ask_board(const char *caller, uint32_t board, int (*query)(hcx_host *)) {
  const HostRef host = board_host(board);
  if (host) return query(host.get());
  libhcx_syslog(LOG_ERROR, "%s - no host on board %d", caller, static_cast<int>(board));
  return -1;
}

int write_online(const Path &path, const char *text) {
  Fd fd(sysio::machine().open(path.c_str(), O_WRONLY | O_TRUNC));
  if (!fd.ok()) return -1;
  sysio::machine().write(fd.get(), text, 2);
  return 0;
}

// One that cannot be opened, for want of descriptors for example, is there all the same.
bool dir_missing(const char *dir) {
  HCX_LOG_PATH(dir);
  const Fd opened(sysio::machine().open(dir, O_RDONLY | O_DIRECTORY));
  return opened.get() == -ENOENT || opened.get() == -ENOTDIR;
}

}  // namespace

namespace hcx {

int host_number(const std::string &name) {
  int number;
  if (sscanf(name.c_str(), "host%d", &number) != 1) return -1;
  return Text<32>("host%d", number).equals(name.c_str()) ? number : -1;
}

bool is_physical_port(const char *name) {
  const Path dir("%s/%s/", kScsiHostClass, name);
  if (!hcx_sysfs_test_dir(dir.c_str())) return false;
  Line text;
  if (!hcx_sysfs_read_str(dir.c_str(), "npiv_info", text.data(), text.size())) return false;
  return text.equals("NPIV Physical") || text.equals("NPIV Not Supported");
}

int tree_generation() {
  if (!dir_missing("/sys/class/fc_remote_ports")) return LK2_6_12;
  return dir_missing("/sys/class/fc_host") ? SLES9 : RHEL4;
}

HostRef board_host(uint32_t board) {
  if (!host_list()) {
    static std::mutex first_scan;
    const std::lock_guard guard(first_scan);
    if (!hcx_host_list) hcx_sysfs_scan_hosts(&hcx_host_list);
  }
  // -1 is no board number: it marks the hosts that have none.
  if (board > INT32_MAX) return HostRef();
  return HostRef(hcx_host_find_by_idx(hcx_host_list, static_cast<int>(board)));
}

HostRef rescan(HostRef &&host) {
  HostRef held = std::move(host);
  hcx_host *record = held.get();
  if (!record) return held;
  held.drop();
  hcx_sysfs_scan_host(record);
  ::hcx_sysfs_scan_rports(record);
  return HostRef(pthread_rwlock_rdlock(&record->rwlock) == 0 ? record : nullptr);
}

}  // namespace hcx

uint32_t hcx_sysfs_scan_hosts(hcx_host **list) {
  HCX_TRACE();
  sysfs_ver = tree_generation();
  HCX_LOG(LOG_UTIL, "sysfs tree ver is %d", sysfs_ver);
  if (!list || *list) return 0;
  std::vector<std::string> names;
  // Without memory for more, what was listed is what is scanned.
  no_throw(0, [&] { return sysio::list_sorted(kScsiHostClass, "host", names); });
  HCX_LOG(LOG_UTIL, "found %d SCSI host(s)", static_cast<int>(names.size()));
  // The list appears whole: a look-up by another thread must not walk it while it grows.
  hcx_host *found = nullptr;
  hcx_host_count = scan_all(&found, names);
  std::atomic_ref(*list).store(found, std::memory_order_release);
  return hcx_host_count;
}

void hcx_sysfs_scan_host(hcx_host *host) {
  HCX_TRACE();
  if (!host) {
    HCX_LOG(LOG_ERROR, "no host");
    return;
  }
  Path link;
  {
    HostWriteLock lock(host);
    uint8_t *baseline = std::exchange(host->stat_reset, nullptr);
    const uint64_t wwpn = wwn_load(host->port.wwpn);
    host->port.host = host;
    host->port.serial_number = &host->serial_number;
    hcx_host_clean(host);
    read_attributes(host);
    hcx_sysfs_scan_lport(&host->port);
    // A statistics baseline belongs to a port name.
    if (wwn_load(host->port.wwpn) == wwpn) {
      host->stat_reset = baseline;
    } else {
      free(baseline);
    }
    host->pci_dev = find_pci_dev(host->id, &link);
    if (host->pci_dev) return;
  }
  HCX_LOG(LOG_ERROR, "host brd_idx %d readlink error on file %s", host->brd_idx, link.c_str());
}

int hcx_host_is_online(hcx_host *host) {
  HCX_TRACE();
  if (!host) return -1;
  const Path path = online_path(host);
  HCX_LOG_PATH(path.c_str());
  Fd fd(sysio::machine().open(path.c_str(), O_RDONLY));
  if (!fd.ok()) return -1;
  char text[32] = {};
  int online;
  if (sysio::machine().read(fd.get(), text, sizeof text - 1) <= 0) return -1;
  return sscanf(text, "%d", &online) == 1 ? online : -1;
}

int hcx_host_online(hcx_host *host) {
  HCX_TRACE();
  if (!host) return -1;
  const Path path = online_path(host);
  HCX_LOG_PATH(path.c_str());
  return write_online(path, "1\n");
}

int hcx_host_offline(hcx_host *host) {
  HCX_TRACE();
  if (!host) return -1;
  const Path path = online_path(host);
  HCX_LOG_PATH(path.c_str());
  return write_online(path, "0\n");
}

int hcx_host_drv_ver(hcx_host *host, char *buff, int count) {
  HCX_TRACE();
  if (!buff || count < 1) return 1;
  buff[0] = '\0';
  if (!host) return 1;
  Line text;
  if (hcx_sysfs_read_str(scsi_host_dir(host->id).c_str(), "vosk_drvr_version", text.data(), text.size())) {
    snprintf(buff, static_cast<size_t>(count), "%s", text.c_str() + strcspn(text.c_str(), "0123456789"));
  }
  return static_cast<int>(strlen(buff)) + 1;
}

int hcx_get_sli_mode(hcx_host *host) {
  HCX_TRACE();
  constexpr char word[] = ", sli-";
  const char *text = host && host->firmware_revision ? strstr(host->firmware_revision, word) : nullptr;
  if (!text) return -1;
  // Asked for several times in every mailbox command, too often for sscanf().
  const auto mode = scan_decimal(text + strlen(word));
  return mode ? static_cast<int>(*mode) : -1;
}

int hcx_get_sli4_if_type(hcx_host *host) {
  HCX_TRACE();
  if (!host || hcx_get_sli_mode(host) != 4) return -1;
  const char *text = strstr(host->firmware_revision, ", sli-4:");
  int type;
  return text && sscanf(text, ", sli-4:%d", &type) == 1 ? type : -1;
}

int hcx_get_protocol_mode(hcx_host *host) {
  HCX_TRACE();
  if (!host || !host->protocol) return -1;
  if (!strcmp(host->protocol, "fc")) return 1;
  return strcmp(host->protocol, "fcoe") ? -1 : 0;
}

int hcx_get_function_type(hcx_host *host) {
  HCX_TRACE();
  if (!host) return -1;
  // A host without a PCI directory is of the common type.
  const uint32_t device = host->pci_dev ? hcx_sysfs_read_hexuint32(host->pci_dev, "device") : 0;
  switch (device & 0xffff) {
    case 0x7a10:
    case 0x7a11:
    case 0x7a12:
      return 2;
    default:
      return 1;
  }
}

int hcx_get_board_sli_mode(uint32_t board) {
  HCX_TRACE();
  return ask_board(__func__, board, hcx_get_sli_mode);
}

int hcx_get_board_sli4_if_type(uint32_t board) {
  HCX_TRACE();
  return ask_board(__func__, board, hcx_get_sli4_if_type);
}

int hcx_get_board_protocol_mode(uint32_t board) {
  HCX_TRACE();
  return ask_board(__func__, board, hcx_get_protocol_mode);
}
