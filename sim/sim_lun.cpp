// SPDX-License-Identifier: BSD-3-Clause
// LUNs: the SCSI device with its generic, block or tape node. Thousands of them must be cheap: only the class
// links are made at once, a device's own directory when somebody first looks into it. Touched under the
// machine's mutex.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "sim_bytes.h"
#include "sim_machine.h"
#include "sim_scsi.h"

namespace sim {

namespace {
struct Attribute {
  const char *name;
  const char *text;
  mode_t mode = 0444;
};

constexpr Attribute kDevice[] = {
    {"blacklist", ""},
    {"delete", "", 0200},
    {"device_blocked", "0\n"},
    {"device_busy", "0\n"},
    {"eh_timeout", "10\n", 0644},
    {"evt_capacity_change_reported", "0\n"},
    {"evt_inquiry_change_reported", "0\n"},
    {"evt_lun_change_reported", "0\n"},
    {"evt_media_change", "0\n"},
    {"evt_mode_parameter_change_reported", "0\n"},
    {"evt_soft_threshold_reached", "0\n"},
    {"iocounterbits", "32\n"},
    {"iodone_cnt", "0x17\n"},
    {"ioerr_cnt", "0x1\n"},
    {"iorequest_cnt", "0x17\n"},
    {"iotmo_cnt", "0x0\n"},
    {"rescan", "", 0200},
    {"scsi_level", "6\n"},
    {"state", "running\n", 0644},
    {"timeout", "30\n", 0644},
};

constexpr Attribute kBlock[] = {
    {"alignment_offset", "0\n"},
    {"capability", "0\n"},
    {"discard_alignment", "0\n"},
    {"events", ""},
    {"events_async", ""},
    {"events_poll_msecs", "-1\n", 0644},
    {"ext_range", "256\n"},
    {"hidden", "0\n"},
    {"inflight", "       0        0\n"},
    {"range", "16\n"},
    {"removable", "0\n"},
    {"ro", "0\n"},
    {"stat",
     "       1        0        8       22        0        0        0        0        0       20       22"
     "        0        0        0        0        0        0\n"},
};

constexpr Attribute kDisk[] = {
    {"FUA", "0\n"},
    {"allow_restart", "0\n", 0644},
    {"app_tag_own", "0\n"},
    {"cache_type", "write through\n", 0644},
    {"manage_runtime_start_stop", "0\n", 0644},
    {"manage_shutdown", "0\n", 0644},
    {"manage_start_stop", "0\n"},
    {"manage_system_start_stop", "0\n", 0644},
    {"max_medium_access_timeouts", "2\n", 0644},
    {"max_retries", "5\n", 0644},
    {"max_write_same_blocks", "65535\n", 0644},
    {"protection_mode", "none\n"},
    {"protection_type", "0\n", 0644},
    {"provisioning_mode", "full\n", 0644},
    {"thin_provisioning", "0\n"},
    {"zeroing_mode", "writesame\n", 0644},
    {"zoned_cap", "none\n"},
};

constexpr Attribute kTape[] = {
    {"default_blksize", "-1\n"},
    {"default_compression", "-1\n"},
    {"default_density", "-1\n"},
    {"options", "0x00000107\n"},
};

constexpr const char *kTapeStatistics[] = {"in_flight", "io_ns",   "other_cnt", "read_byte_cnt",
                                           "read_cnt",  "read_ns", "resid_cnt", "write_byte_cnt",
                                           "write_cnt", "write_ns"};

template <size_t N>
void put_all(Vfs &vfs, const std::string &dir, const Attribute (&rows)[N]) {
  for (const Attribute &row : rows)
    vfs.put_text(dir + row.name, row.text, row.mode);
}

std::string letters(int index) {
  std::string name;
  for (int n = index + 1; n > 0; n = (n - 1) / 26)
    name.insert(name.begin(), static_cast<char>('a' + (n - 1) % 26));
  return name;
}

// Sixteen minors a disk on the majors that sd owns, extended numbers behind them.
std::string disk_number(int index) {
  static constexpr int kMajors[] = {8, 65, 66, 67, 68, 69, 70, 71, 128, 129, 130, 131, 132, 133, 134, 135};
  if (index < 256) return std::to_string(kMajors[index / 16]) + ":" + std::to_string(index % 16 * 16);
  return "259:" + std::to_string(index - 256);
}

std::string padded(std::string text, size_t size) {
  text.resize(size, ' ');
  return text;
}

int device_type(LunKind kind) {
  return kind == LunKind::disk ? 0 : kind == LunKind::tape ? 1 : 8;
}
}  // namespace

Lun::Lun(Rport &rport, LunSpec spec) : rport_(rport), spec_(std::move(spec)) {
  Machine &machine = rport_.host().machine();
  const auto host = static_cast<uint64_t>(rport_.host().number());
  const auto target = static_cast<uint64_t>(rport_.spec().target_id);
  if (spec_.wwn == 0)
    spec_.wwn = 0x50000ee000000000 | (host & 0xff) << 28 | (target & 0xfff) << 16 | (spec_.lun & 0xffff);
  if (spec_.serial.empty()) spec_.serial = hex_text(spec_.wwn, 16).substr(2);
  if (spec_.generic) sg_ = machine.next_sg();
  if (spec_.bound && spec_.kind == LunKind::disk) disk_ = machine.next_disk();
  if (spec_.bound && spec_.kind == LunKind::tape) tape_ = machine.next_tape();
  build();
}

std::string Lun::address() const {
  return std::to_string(rport_.host().number()) + ":0:" + std::to_string(rport_.spec().target_id) + ":" +
         std::to_string(spec_.lun);
}

std::string Lun::device_dir() const {
  return rport_.target_dir() + address() + "/";
}

std::string Lun::sg_name() const {
  return sg_ < 0 ? "" : "sg" + std::to_string(sg_);
}

std::string Lun::block_name() const {
  if (disk_ >= 0) return "sd" + letters(disk_);
  return tape_ >= 0 ? "st" + std::to_string(tape_) : "";
}

void Lun::build() {
  Machine &machine = rport_.host().machine();
  Vfs &vfs = machine.vfs();
  if (machine.generation() >= 2) bsg_minor_ = machine.next_bsg_minor();
  vfs.put_lazy_dir(device_dir().substr(0, device_dir().size() - 1), [this] { fill_device(); });
  if (machine.generation() >= 2) {
    links();
  } else {
    old_links();
  }
  auto ioctl = [this](OpenFile &file, unsigned long request, void *arg) {
    return rport_.host().machine().sg_ioctl(*this, file.path, request, arg);
  };
  if (sg_ >= 0) vfs.put_device("/dev/" + sg_name(), 0660, ioctl);
  if (!block_name().empty()) vfs.put_device("/dev/" + block_name(), 0660, ioctl);
  if (tape_ >= 0) vfs.put_device("/dev/n" + block_name(), 0660, ioctl);
}

void Lun::links() {
  Vfs &vfs = rport_.host().machine().vfs();
  const std::string device = device_dir().substr(std::string("/sys/").size());
  auto link = [&](const std::string &class_name, const std::string &entry) {
    vfs.put_link("/sys/class/" + class_name + "/" + entry, "../../" + device + class_name + "/" + entry);
  };
  vfs.put_link("/sys/bus/scsi/devices/" + address(), "../../../" + device.substr(0, device.size() - 1));
  link("scsi_device", address());
  link("bsg", address());
  if (sg_ >= 0) link("scsi_generic", sg_name());
  if (disk_ >= 0) link("scsi_disk", address());
  if (tape_ >= 0) {
    for (const char *prefix : {"", "n"}) {
      for (const char *suffix : {"", "l", "m", "a"})
        link("scsi_tape", prefix + block_name() + suffix);
    }
  }
}

// Class directories of their own, and links out of the device to the drivers' nodes.
void Lun::old_links() {
  Vfs &vfs = rport_.host().machine().vfs();
  const std::string device = device_dir().substr(0, device_dir().size() - 1);
  auto node = [&](const std::string &dir, const std::string &from_device) {
    vfs.put_link(dir + "/device", relative_path(dir, device));
    if (!from_device.empty()) vfs.put_link(device_dir() + from_device, relative_path(device, dir));
  };
  node("/sys/class/scsi_device/" + address(), "");
  if (sg_ >= 0) node("/sys/class/scsi_generic/" + sg_name(), "generic");
  if (disk_ >= 0) node("/sys/block/" + block_name(), "block");
  if (tape_ >= 0) node("/sys/class/scsi_tape/" + block_name(), "tape");
}

void Lun::unbuild() {
  Vfs &vfs = rport_.host().machine().vfs();
  vfs.remove("/sys/bus/scsi/devices/" + address());
  vfs.remove("/sys/class/scsi_device/" + address());
  vfs.remove("/sys/class/bsg/" + address());
  vfs.remove("/sys/class/scsi_disk/" + address());
  if (sg_ >= 0) vfs.remove("/sys/class/scsi_generic/" + sg_name());
  if (sg_ >= 0) vfs.remove("/dev/" + sg_name());
  if (!block_name().empty()) {
    vfs.remove("/sys/block/" + block_name());
    vfs.remove("/dev/" + block_name());
  }
  if (tape_ >= 0) {
    for (const char *prefix : {"", "n"}) {
      for (const char *suffix : {"", "l", "m", "a"}) {
        vfs.remove("/sys/class/scsi_tape/" + (prefix + block_name() + suffix));
      }
    }
    vfs.remove("/dev/n" + block_name());
  }
  vfs.remove(device_dir());
}

void Lun::fill_device() {
  Machine &machine = rport_.host().machine();
  Vfs &vfs = machine.vfs();
  const std::string dir = device_dir();
  const std::string type = std::to_string(device_type(spec_.kind));
  const char *driver = spec_.kind == LunKind::disk ? "sd" : spec_.kind == LunKind::tape ? "st" : "ch";
  auto put = [&](const char *attribute, const std::string &value, mode_t mode = 0444) {
    vfs.put_text(dir + attribute, value, mode);
  };
  put_all(vfs, dir, kDevice);
  put("modalias", "scsi:t-0x0" + type + "\n");
  put("model", padded(spec_.model, 16) + "\n");
  put("rev", padded(spec_.revision, 4) + "\n");
  put("type", type + "\n");
  put("vendor", padded(spec_.vendor, 8) + "\n");
  put("wwid", "naa." + hex_text(spec_.wwn, 16).substr(2) + "\n");
  put("uevent",
      std::string("DEVTYPE=scsi_device\n") + (spec_.bound ? std::string("DRIVER=") + driver + "\n" : "") +
          "MODALIAS=scsi:t-0x0" + type + "\n",
      0644);
  vfs.put_link(dir + "subsystem", relative_path(dir, "/sys/bus/scsi"));
  if (spec_.bound)
    vfs.put_link(dir + "driver", relative_path(dir, std::string("/sys/bus/scsi/drivers/") + driver));

  std::string inquiry("\0\0\x05\x12\x1f\0\0\x02", 8);
  inquiry[0] = static_cast<char>(device_type(spec_.kind));
  if (spec_.kind != LunKind::disk) inquiry[1] = '\x80';  // removable
  inquiry += padded(spec_.vendor, 8) + padded(spec_.model, 16) + padded(spec_.revision, 4);
  vfs.put_binary(dir + "inquiry", inquiry, 0444, 0);
  put_pages(dir);
  if (machine.generation() < 2) return;

  put_class(machine, dir, "scsi_device", address());
  const std::string bsg = put_class(machine, dir, "bsg", address());
  vfs.put_text(bsg + "dev", "249:" + std::to_string(bsg_minor_) + "\n");
  if (sg_ >= 0) {
    const std::string generic = put_class(machine, dir, "scsi_generic", sg_name());
    const std::string minor = std::to_string(sg_);
    vfs.put_text(generic + "dev", "21:" + minor + "\n");
    vfs.put_text(generic + "uevent", "MAJOR=21\nMINOR=" + minor + "\nDEVNAME=" + sg_name() + "\n", 0644);
    vfs.put_link(dir + "generic", "scsi_generic/" + sg_name());
  }
  // What is rarely looked at is made when it is.
  if (disk_ >= 0) {
    vfs.put_lazy_dir(dir + "scsi_disk", [this, dir] { fill_disk_class(dir); });
    vfs.put_lazy_dir(dir + "block/" + block_name(), [this, dir] { fill_disk(dir); });
  }
  if (tape_ >= 0) {
    vfs.put_lazy_dir(dir + "scsi_tape", [this, dir] { fill_tape(dir); });
    vfs.put_link(dir + "tape", "scsi_tape/" + block_name());
  }
}

// The vital product data that the kernel read when it found the device; page 0x83 follows what the unit answers.
void Lun::put_pages(const std::string &dir) {
  Vfs &vfs = rport_.host().machine().vfs();
  vfs.put_binary(dir + "vpd_pg0", std::string("\0\0\0\x03\0\x80\x83", 7), 0444, 0);
  std::string serial("\0\x80\0", 3);
  serial += static_cast<char>(spec_.serial.size());
  vfs.put_binary(dir + "vpd_pg80", serial + spec_.serial, 0444, 0);
  Node &identity = vfs.put_binary(dir + "vpd_pg83", "", 0444, 0);
  identity.hooks().read_at = [this](uint64_t offset, void *buf, size_t count) -> ssize_t {
    std::string descriptors;
    for (const std::string &descriptor : unit_of(*this).descriptors)
      descriptors += descriptor;
    std::string page("\0\x83", 2);
    put_be(page, 2, descriptors.size(), 2);
    page += descriptors;
    if (offset >= page.size()) return 0;
    count = std::min(count, page.size() - offset);
    std::memcpy(buf, page.data() + offset, count);
    return static_cast<ssize_t>(count);
  };
}

void Lun::fill_disk_class(const std::string &dir) {
  Machine &machine = rport_.host().machine();
  put_all(machine.vfs(), put_class(machine, dir, "scsi_disk", address()), kDisk);
}

void Lun::fill_disk(const std::string &dir) {
  Vfs &vfs = rport_.host().machine().vfs();
  const std::string block = dir + "block/" + block_name() + "/";
  const std::string number = disk_number(disk_);
  vfs.put_text(block + "dev", number + "\n");
  put_all(vfs, block, kBlock);
  vfs.put_text(block + "diskseq", std::to_string(disk_ + 1) + "\n");
  for (const char *sub : {"holders", "mq", "slaves"})
    vfs.put_dir(block + sub);
  vfs.put_link(block + "bdi", relative_path(block, "/sys/devices/virtual/bdi/" + number));
  vfs.put_text(block + "size", std::to_string(spec_.blocks) + "\n");
  vfs.put_link(block + "device", "../../../" + address());
  vfs.put_link(block + "subsystem", relative_path(block, "/sys/class/block"));
  const size_t colon = number.find(':');
  vfs.put_text(block + "uevent",
               "MAJOR=" + number.substr(0, colon) + "\nMINOR=" + number.substr(colon + 1) +
                   "\nDEVNAME=" + block_name() + "\nDEVTYPE=disk\n",
               0644);
}

void Lun::fill_tape(const std::string &dir) {
  Machine &machine = rport_.host().machine();
  Vfs &vfs = machine.vfs();
  int minor = tape_;
  for (const char *prefix : {"", "n"}) {
    int mode = 0;
    for (const char *suffix : {"", "l", "m", "a"}) {
      const std::string name = prefix + block_name() + suffix;
      const std::string node = put_class(machine, dir, "scsi_tape", name);
      vfs.put_text(node + "dev", "9:" + std::to_string(minor + 32 * mode++) + "\n");
      vfs.put_text(node + "defined", *suffix == '\0' ? "1\n" : "0\n");
      put_all(vfs, node, kTape);
      for (const char *counter : kTapeStatistics)
        vfs.put_text(node + "stats/" + counter, "0\n");
    }
    minor += 128;
  }
}

}  // namespace sim
