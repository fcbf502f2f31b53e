// SPDX-License-Identifier: BSD-3-Clause
// LUNs: the SCSI device with its generic, block or tape node. Thousands of them must be cheap: only the class
// links are made at once, a device's own directory when somebody first looks into it. Touched under the
// machine's mutex.
#include <cstdio>

#include "sim_machine.h"

namespace sim {

namespace {
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
  put("blacklist", "");
  put("delete", "", 0200);
  put("device_blocked", "0\n");
  put("device_busy", "0\n");
  put("eh_timeout", "10\n", 0644);
  put("iocounterbits", "32\n");
  put("iodone_cnt", "0x17\n");
  put("ioerr_cnt", "0x1\n");
  put("iorequest_cnt", "0x17\n");
  put("iotmo_cnt", "0x0\n");
  put("modalias", "scsi:t-0x0" + type + "\n");
  put("model", padded(spec_.model, 16) + "\n");
  put("rescan", "", 0200);
  put("rev", padded(spec_.revision, 4) + "\n");
  put("scsi_level", "6\n");
  put("state", "running\n", 0644);
  put("timeout", "30\n", 0644);
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
  if (disk_ >= 0) fill_disk(dir);
  if (tape_ >= 0) fill_tape(dir);
}

void Lun::fill_disk(const std::string &dir) {
  Machine &machine = rport_.host().machine();
  Vfs &vfs = machine.vfs();
  put_class(machine, dir, "scsi_disk", address());
  const std::string block = dir + "block/" + block_name() + "/";
  const std::string number = disk_number(disk_);
  vfs.put_text(block + "dev", number + "\n");
  vfs.put_text(block + "range", "16\n");
  vfs.put_text(block + "removable", "0\n");
  vfs.put_text(block + "ro", "0\n");
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
      vfs.put_text(node + "options", "0x00000107\n");
    }
    minor += 128;
  }
  vfs.put_link(dir + "tape", "scsi_tape/" + block_name());
}

}  // namespace sim
