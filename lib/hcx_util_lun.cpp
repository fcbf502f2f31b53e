// SPDX-License-Identifier: BSD-3-Clause
// Discovery of LUNs and of the device names that Linux gave them, and the listings that a scan shares.
// The records belong to a remote port whose host the caller has locked for writing, or owns alone; nothing here locks.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "hcx_util_scan.h"

using namespace hcx;

namespace {

constexpr char kScsiDeviceClass[] = "/sys/class/scsi_device";

// Replaces a device name. Without memory it stays null, as if the device had no such name.
void store_name(char **field, const Path &name) {
  free(*field);
  *field = strdup(name.c_str());
}

// The numbers of the names' LUNs in ascending order, up to the first name without one (*bad, null when all have one).
// Linux numbers LUNs with 64 bits. False without memory.
bool lun_numbers(const ClassListing::Range &names, std::vector<uint64_t> &ids, const std::string **bad) {
  *bad = nullptr;
  const auto count = static_cast<size_t>(names.last - names.first);
  try {
    ids.reserve(count);
  } catch (...) {
    return false;
  }
  for (const std::string &name : names) {
    const char *digits = name.c_str() + name.rfind(':') + 1;
    char *end;
    uint64_t id = strtoull(digits, &end, 10);
    if (end == digits) {
      *bad = &name;
      break;
    }
    ids.push_back(id);
  }
  std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  return true;
}

// "/sys/class/scsi_device/H:0:T:L/device" and what stands in it. Kept open: the way there leads over two links, which
// the kernel then follows once and not for every name. Where it does not open, the names are asked for by path.
class DeviceDir {
 public:
  DeviceDir(uint32_t host_no, uint32_t target, uint64_t lun)
      : path_("%s/%d:0:%d:%lld/device", kScsiDeviceClass, static_cast<int>(host_no), static_cast<int>(target),
              static_cast<long long>(lun)),
        dir_(sysio::machine().open(path_.c_str(), O_PATH | O_DIRECTORY)) {}

  // The last component of what a link points to, with its "/"; false when it does not resolve, has none, or has one
  // for which a Path has no room behind "/dev".
  bool link_tail(const char *name, Path *tail, int *error = nullptr) const {
    // With room for every link there is: the last component of a text that was cut would name another device.
    char target[PATH_MAX];
    const ssize_t length = read_link(name, target, sizeof target - 1);
    if (error) *error = length < 0 ? static_cast<int>(length) : 0;
    if (length <= 0) return false;
    target[length] = '\0';
    const char *slash = strrchr(target, '/');
    if (!slash || strlen("/dev") + strlen(slash) >= Path::size()) return false;
    snprintf(tail->data(), Path::size(), "%s", slash);
    return true;
  }

  // The first entry of a directory in here that contains `word`; empty when there is none.
  // False when the directory cannot be listed.
  bool find_entry(const char *name, const char *word, std::string *found) const {
    std::vector<std::string> names;
    if (list(name, names) < 0) return false;
    for (std::string &entry : names)
      if (entry.find(word) != std::string::npos && (found->empty() || entry < *found))
        *found = std::move(entry);
    return true;
  }

  // Older kernels name the link after the device: "device/block:sdb".
  bool named_link_tail(const char *word, Path *tail) const {
    std::string entry;
    return find_entry(".", word, &entry) && !entry.empty() && link_tail(entry.c_str(), tail);
  }

 private:
  ssize_t read_link(const char *name, char *buf, size_t size) const {
    if (dir_.ok()) return sysio::machine().read_link_at(dir_.get(), name, buf, size);
    return sysio::machine().read_link(Path("%s/%s", path_.c_str(), name).c_str(), buf, size);
  }
  int list(const char *name, std::vector<std::string> &names) const {
    if (dir_.ok()) return sysio::machine().list_at(dir_.get(), name, "", names);
    return sysio::machine().list(Path("%s/%s", path_.c_str(), name).c_str(), "", names);
  }

  Path path_;
  Fd dir_;
};

// Newer kernels have a directory with one entry, the disk. `link_error`: what reading it as a link gave.
void block_name_from_directory(hcx_lun *lun, const DeviceDir &device, int link_error) {
  std::string entry;
  if (link_error != -ENOENT && device.find_entry("block", "s", &entry)) {
    if (!entry.empty()) store_name(&lun->block_dev, Path("/dev/%s", entry.c_str() + entry.find('s')));
    return;
  }
  Path tail;
  if (device.named_link_tail("block:", &tail)) store_name(&lun->block_dev, Path("/dev%s", tail.c_str()));
}

void scan_device_names(hcx_lun *lun, const DeviceDir &device) {
  Path tail;
  if (device.link_tail("generic", &tail)) store_name(&lun->generic_scsi_dev, Path("/dev%s", tail.c_str()));
  int block_error = 0;
  if (device.link_tail("block", &tail, &block_error))
    store_name(&lun->block_dev, Path("/dev%s", tail.c_str()));
  else if (device.link_tail("tape", &tail))
    store_name(&lun->tape_dev, Path("/dev%s", tail.c_str()));
  else
    block_name_from_directory(lun, device, block_error);
}

// The Linux number of a LUN given as its eight bytes: two 16-bit words, the low one first.
uint64_t linux_lun(uint64_t fc_lun) {
  uint8_t bytes[8];
  memcpy(bytes, &fc_lun, sizeof bytes);
  uint32_t low = static_cast<uint32_t>(bytes[0] << 8 | bytes[1]);
  uint32_t high = static_cast<uint32_t>(bytes[2] << 8 | bytes[3]);
  return static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(low | high << 16)));
}

}  // namespace

namespace hcx {

void ClassListing::load() {
  if (loaded_) return;
  names_.clear();
  error_ = sysio::list_sorted(dir_, prefix_.c_str(), names_);
  if (error_ == -ENOENT && fallback_) {
    dir_ = fallback_;
    names_.clear();
    error_ = sysio::list_sorted(dir_, prefix_.c_str(), names_);
  }
  loaded_ = true;
}

const char *ClassListing::dir() {
  load();
  return dir_;
}

bool ClassListing::find(const char *prefix, Range *range) {
  load();
  if (error_ < 0 && error_ != -ENOENT) return false;
  const size_t length = strlen(prefix);
  auto first =
      std::lower_bound(names_.begin(), names_.end(), prefix,
                       [](const std::string &name, const char *wanted) { return name.compare(wanted) < 0; });
  auto last = std::partition_point(
      first, names_.end(), [=](const std::string &name) { return name.compare(0, length, prefix) == 0; });
  *range = {names_.data() + (first - names_.begin()), names_.data() + (last - names_.begin())};
  return true;
}

void hcx_sysfs_scan_luns(hcx_port *rport, ClassListing &devices) {
  HCX_TRACE();
  ClassListing::Range names;
  Path prefix("%d:0:%d:", static_cast<int>(rport->host->id), static_cast<int>(rport->scsi_target_id));
  if (!devices.find(prefix.c_str(), &names)) {
    HCX_LOG(LOG_ERROR, "cannot list %s", devices.dir());
    return;
  }
  const std::string *bad;
  std::vector<uint64_t> ids;
  if (!lun_numbers(names, ids, &bad)) {
    HCX_LOG(LOG_ERROR, "out of memory for the LUNs %s", prefix.c_str());
    return;
  }

  OldList<hcx_lun> old(std::exchange(rport->lun_list, nullptr));
  hcx_lun *last = nullptr;
  for (uint64_t id : ids) {
    hcx_lun *lun = old.take(id, hcx_port_remove_lun);
    if (!lun) lun = static_cast<hcx_lun *>(calloc(1, sizeof(hcx_lun)));
    if (!lun) {
      HCX_LOG(LOG_ERROR, "out of memory for LUN %s%lld", prefix.c_str(), static_cast<long long>(id));
      continue;
    }
    lun->id = id;
    last = hcx_port_insert_lun(rport, last, lun);
    hcx_sysfs_scan_lun(lun);
  }
  if (bad) HCX_LOG(LOG_ERROR, "could not form lun_id from %s", bad->c_str());
  // Another thread may have found one of these before the scan began.
  retire_luns(old.rest());
}

}  // namespace hcx

void hcx_sysfs_scan_luns(hcx_port *rport) {
  if (!rport || !rport->host) {
    HCX_LOG(LOG_ERROR, "%s", rport ? "no port host" : "no port");
    return;
  }
  no_throw(0, [=] {
    Path prefix("%d:0:%d:", static_cast<int>(rport->host->id), static_cast<int>(rport->scsi_target_id));
    ClassListing devices(kScsiDeviceClass, prefix.c_str());
    hcx_sysfs_scan_luns(rport, devices);
    return 0;
  });
}

void hcx_sysfs_scan_lun(hcx_lun *lun) {
  HCX_TRACE();
  if (!lun) {
    HCX_LOG(LOG_ERROR, "no lun");
    return;
  }
  if (!lun->port) {
    HCX_LOG(LOG_ERROR, "no lun port");
    return;
  }
  if (!lun->port->host) {
    HCX_LOG(LOG_ERROR, "no lun port host");
    return;
  }
  hcx_lun_clean(lun);
  no_throw(0, [=] {
    scan_device_names(lun, DeviceDir(lun->port->host->id, lun->port->scsi_target_id, lun->id));
    return 0;
  });
}

int hcx_get_lun_file_name(uint32_t host_id, uint32_t target_id, uint64_t lun_id, char *dev_name) {
  HCX_TRACE();
  if (!dev_name) return -1;
  return no_throw(-1, [=] {
    const DeviceDir device(host_id, target_id, linux_lun(lun_id));
    Path tail;
    if (!device.link_tail("generic", &tail) && !device.link_tail("block", &tail) &&
        !device.named_link_tail("scsi_generic:", &tail) && !device.named_link_tail("block:", &tail))
      return -1;
    snprintf(dev_name, Path::size(), "/dev%s", tail.c_str());
    return 0;
  });
}
