// SPDX-License-Identifier: BSD-3-Clause
// Remote ports: the fc_remote_ports entry with its BSG node and, for FCP targets, the SCSI target with its
// fc_transport entry, which is all that older kernels show. Built under the machine's mutex.
#include <algorithm>

#include "sim_machine.h"

namespace sim {

Rport::Rport(Host &host, RportSpec spec) : host_(host), spec_(std::move(spec)) {
  const auto host_number = static_cast<uint64_t>(host_.number());
  if (spec_.number < 0) spec_.number = host_.next_rport_;
  host_.next_rport_ = std::max(host_.next_rport_, spec_.number + 1);
  if (spec_.target_id < 0 && spec_.roles.find("FCP Target") != std::string::npos) {
    spec_.target_id = host_.next_target_;
  }
  host_.next_target_ = std::max(host_.next_target_, spec_.target_id + 1);
  const auto n = static_cast<uint64_t>(spec_.number);
  if (spec_.wwpn == 0) spec_.wwpn = 0x5006016000000000 | host_number << 16 | n;
  if (spec_.wwnn == 0) spec_.wwnn = 0x5006016080000000 | host_number << 16 | n;
  if (spec_.port_id == 0) spec_.port_id = 0x020000 | (static_cast<uint32_t>(n + 1) & 0xffff);
  build();
}

std::string Rport::name() const {
  return "rport-" + std::to_string(host_.number()) + ":0-" + std::to_string(spec_.number);
}

std::string Rport::target_name() const {
  return "target" + std::to_string(host_.number()) + ":0:" + std::to_string(spec_.target_id);
}

std::string Rport::dir() const {
  return host_.machine().generation() >= 2 ? "/sys/class/fc_remote_ports/" + name() + "/"
                                           : "/sys/class/fc_transport/" + target_name() + "/";
}

std::string Rport::target_dir() const {
  const bool modern = host_.machine().generation() >= 2;
  return host_.device_dir() + (modern ? name() + "/" : "") + target_name() + "/";
}

void Rport::build() {
  Machine &machine = host_.machine();
  Vfs &vfs = machine.vfs();
  if (is_target()) build_target();
  if (machine.generation() < 2) return;

  const std::string device = host_.device_dir() + name() + "/";
  vfs.put_text(device + "uevent", "DEVTYPE=fc_remote_port\n", 0644);
  const std::string dir = put_class(machine, device, "fc_remote_ports", name());
  auto put = [&](const char *attribute, const std::string &value, mode_t mode = 0444) {
    vfs.put_text(dir + attribute, value + "\n", mode);
  };
  put("dev_loss_tmo", "30", 0644);
  put("fast_io_fail_tmo", "off", 0644);
  put("maxframe_size", "2048 bytes");
  put("node_name", wwn_text(spec_.wwnn));
  put("port_name", wwn_text(spec_.wwpn));
  put("port_id", hex_text(spec_.port_id, 6));
  put("port_state", spec_.state, 0644);
  put("roles", spec_.roles);
  put("scsi_target_id", std::to_string(spec_.target_id));
  put("supported_classes", "Class 3");
  vfs.put_lazy_dir(dir + "statistics",
                   [this, dir] { put_fabric_notices(host_.machine(), dir + "statistics/"); });

  const std::string bsg = put_class(machine, device, "bsg", name());
  const std::string minor = std::to_string(machine.next_bsg_minor());
  vfs.put_text(bsg + "dev", "249:" + minor + "\n");
  vfs.put_text(bsg + "uevent", "MAJOR=249\nMINOR=" + minor + "\nDEVNAME=bsg/" + name() + "\n", 0644);
  vfs.put_device("/dev/bsg/" + name(), 0600, [this](OpenFile &file, unsigned long request, void *arg) {
    return host_.machine().bsg().ioctl(host_, this, file.path, request, arg);
  });
}

void Rport::build_target() {
  Machine &machine = host_.machine();
  Vfs &vfs = machine.vfs();
  const std::string device = target_dir();
  vfs.put_link(device + "subsystem", relative_path(device, "/sys/bus/scsi"));
  vfs.put_text(device + "uevent", "DEVTYPE=scsi_target\n", 0644);
  const std::string dir = put_class(machine, device, "fc_transport", target_name());
  vfs.put_text(dir + "node_name", wwn_text(spec_.wwnn) + "\n");
  vfs.put_text(dir + "port_name", wwn_text(spec_.wwpn) + "\n");
  vfs.put_text(dir + "port_id", hex_text(spec_.port_id, 6) + "\n");
  if (machine.generation() < 2) {
    vfs.put_text(dir + "port_state", spec_.state + "\n");
    vfs.put_text(dir + "supported_classes", "Class 3\n");
    vfs.put_text(dir + "maxframe_size", "2048 bytes\n");
  }
}

void Rport::unbuild() {
  Vfs &vfs = host_.machine().vfs();
  while (!luns_.empty())
    remove_lun(luns_.back()->spec().lun);
  vfs.remove("/sys/class/fc_remote_ports/" + name());
  vfs.remove("/sys/class/bsg/" + name());
  vfs.remove("/dev/bsg/" + name());
  if (is_target()) {
    vfs.remove("/sys/class/fc_transport/" + target_name());
    vfs.remove(target_dir());
  }
  vfs.remove(host_.device_dir() + name());
}

void Rport::set(const std::string &attribute, const std::string &value) {
  host_.machine().set_text(dir() + attribute, value + "\n");
}

Lun &Rport::add_lun(LunSpec spec) {
  const std::lock_guard guard(host_.machine().mutex());
  luns_.push_back(std::make_unique<Lun>(*this, std::move(spec)));
  return *luns_.back();
}

void Rport::remove_lun(uint64_t number) {
  const std::lock_guard guard(host_.machine().mutex());
  auto it = std::find_if(luns_.begin(), luns_.end(), [&](auto &l) { return l->spec().lun == number; });
  if (it == luns_.end()) return;
  (*it)->unbuild();
  luns_.erase(it);
}

Lun *Rport::lun(uint64_t number) {
  for (auto &lun : luns_) {
    if (lun->spec().lun == number) return lun.get();
  }
  return nullptr;
}

}  // namespace sim
