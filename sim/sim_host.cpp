// SPDX-License-Identifier: BSD-3-Clause
// Hosts of the simulated machine: the PCI function, the scsi_host and fc_host class entries with the
// attributes of kernel, FC transport and vosk driver, the BSG node, and virtual ports nested under their
// host. Built under the machine's mutex.
#include "sim_host.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "sim_machine.h"

namespace sim {

namespace {
struct Attribute {
  const char *name;
  mode_t mode;
  const char *text;  // null: nothing to read
};

constexpr Attribute kScsiHost[] = {
    {"active_mode", 0444, "Initiator"}, {"can_queue", 0444, "32"},
    {"cmd_per_lun", 0444, "3"},         {"eh_deadline", 0644, "off"},
    {"host_busy", 0444, "0"},           {"host_reset", 0200, nullptr},
    {"nr_hw_queues", 0444, "1"},        {"prot_capabilities", 0444, "0"},
    {"prot_guard_type", 0444, "0"},     {"scan", 0200, nullptr},
    {"sg_prot_tablesize", 0444, "0"},   {"sg_tablesize", 0444, "64"},
    {"state", 0644, "running"},         {"supported_mode", 0444, "Initiator"},
    {"use_blk_mq", 0444, "1"},
};

// FC-SP as it stands after a successful exchange.
constexpr Attribute kAuthHost[] = {
    {"auth_dhgroup", 0444, "3"},           {"auth_dir", 0444, "Bidi"},
    {"auth_hash", 0444, "6 (SHA1)"},       {"auth_last", 0444, "120"},
    {"auth_next", 0444, "3480"},           {"auth_protocol", 0444, "1 (DH-CHAP)"},
    {"auth_state", 0444, "Authenticated"}, {"vosk_authenticate", 0200, nullptr},
};

constexpr const char *kFpin[] = {
    "fpin_cn",
    "fpin_cn_clear",
    "fpin_cn_credit_stall",
    "fpin_cn_device_specific",
    "fpin_cn_lost_credit",
    "fpin_cn_oversubscription",
    "fpin_dn",
    "fpin_dn_device_specific",
    "fpin_dn_timeout",
    "fpin_dn_unable_to_route",
    "fpin_dn_unknown",
    "fpin_li",
    "fpin_li_device_specific",
    "fpin_li_failure_unknown",
    "fpin_li_invalid_crc_count",
    "fpin_li_invalid_tx_word_count",
    "fpin_li_link_failure_count",
    "fpin_li_loss_of_signals_count",
    "fpin_li_loss_of_sync_count",
    "fpin_li_prim_seq_err_count",
};

constexpr uint64_t kNone = ~0ULL;  // a counter that the driver does not keep
// In the order of the block that older drivers offer as "stats".
constexpr struct {
  const char *name;
  uint64_t value;
} kCounters[] = {
    {"seconds_since_last_reset", 0x3e8},
    {"tx_frames", 0x11000},
    {"tx_words", 0x22000},
    {"rx_frames", 0x33000},
    {"rx_words", 0x123456789a},
    {"lip_count", kNone},
    {"nos_count", 7},
    {"error_frames", 0xb},
    {"dumped_frames", kNone},
    {"link_failure_count", 0xc},
    {"loss_of_sync_count", 0xd},
    {"loss_of_signal_count", 0xe},
    {"prim_seq_protocol_err_count", 0xf},
    {"invalid_tx_word_count", 0x10},
    {"invalid_crc_count", 0x11},
};
constexpr const char *kUnkept[] = {
    "cn_sig_alarm",         "cn_sig_warn",
    "fc_no_free_exch",      "fc_no_free_exch_xid",
    "fc_non_bls_resp",      "fc_seq_not_found",
    "fc_xid_busy",          "fc_xid_not_found",
    "fcp_control_requests", "fcp_frame_alloc_failures",
    "fcp_input_megabytes",  "fcp_input_requests",
    "fcp_output_megabytes", "fcp_output_requests",
    "fcp_packet_aborts",    "fcp_packet_alloc_failures",
};

constexpr const char *kFc4Types =
    "0x00 0x00 0x01 0x00 0x00 0x00 0x00 0x01 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 "
    "0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 0x00 ";

__attribute__((format(printf, 1, 2))) std::string format(const char *pattern, ...) {
  char buf[64];
  va_list args;
  va_start(args, pattern);
  std::vsnprintf(buf, sizeof buf, pattern, args);
  va_end(args);
  return buf;
}

std::string counter_text(uint64_t value) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "0x%llx\n", static_cast<unsigned long long>(value));
  return buf;
}

struct PciAddress {
  unsigned domain = 0, bus = 0, slot = 0, function = 0;
};

PciAddress parse_pci(const std::string &text) {
  PciAddress pci;
  if (std::sscanf(text.c_str(), "%x:%x:%x.%x", &pci.domain, &pci.bus, &pci.slot, &pci.function) != 4) {
    throw std::invalid_argument("not a PCI address: " + text);
  }
  return pci;
}

std::string vport_entry(const Host &vport) {
  return "vport-" + std::to_string(vport.parent()->number()) + ":0-" + std::to_string(vport.vport()->number);
}

void little_endian(std::string &bytes, size_t offset, uint64_t value, size_t width) {
  for (size_t i = 0; i < width; i++)
    bytes[offset + i] = static_cast<char>(value >> (8 * i));
}
}  // namespace

std::string hex_text(uint64_t value, int digits) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "0x%0*llx", digits, static_cast<unsigned long long>(value));
  return buf;
}

std::string wwn_text(uint64_t wwn) {
  return hex_text(wwn, 16);
}

void put_fabric_notices(Machine &machine, const std::string &dir) {
  for (const char *counter : kFpin)
    machine.vfs().put_text(dir + counter, counter_text(0));
}

std::string relative_path(const std::string &from_dir, const std::string &to) {
  std::string from = from_dir;
  if (!from.ends_with('/')) from += '/';
  size_t common = 0;
  for (size_t i = 0; i < from.size() && i < to.size() && from[i] == to[i]; i++) {
    if (from[i] == '/') common = i + 1;
  }
  std::string path;
  for (size_t i = common; i < from.size(); i++) {
    if (from[i] == '/') path += "../";
  }
  return path + to.substr(common);
}

std::string put_class(Machine &machine, const std::string &device_dir, const std::string &class_name,
                      const std::string &name) {
  Vfs &vfs = machine.vfs();
  const std::string entry = "/sys/class/" + class_name + "/" + name;
  const std::string device = device_dir.substr(0, device_dir.size() - 1);
  if (machine.generation() < 2) {
    vfs.put_dir(entry);
    vfs.put_link(entry + "/device", relative_path(entry, device));
    return entry + "/";
  }
  const std::string dir = device_dir + class_name + "/" + name;
  vfs.put_dir(dir);
  vfs.put_link(dir + "/device", relative_path(dir, device));
  vfs.put_link(dir + "/subsystem", relative_path(dir, "/sys/class/" + class_name));
  vfs.put_text(dir + "/uevent", "", 0644);
  vfs.put_link(entry, relative_path("/sys/class/" + class_name, dir));
  return dir + "/";
}

Host::Host(Machine &machine, HostSpec spec, Host *parent, const VportSpec *vport)
    : machine_(machine), spec_(std::move(spec)), parent_(parent) {
  if (vport != nullptr) {
    vport_ = std::make_unique<VportSpec>(*vport);
    vpi_ = vport->number + 1;
  }
  complete_spec();
  if (vport_) vport_->host_number = spec_.number;
  build();
}

Host::~Host() = default;

void Host::complete_spec() {
  if (spec_.number < 0) {
    do {
      spec_.number = machine_.next_host_number();
    } while (machine_.host(spec_.number) != nullptr);
  }
  machine_.take_host_number(spec_.number);
  const bool fcoe = spec_.protocol == "fcoe";
  const auto n = static_cast<uint64_t>(spec_.number);
  auto text = [](std::string &field, const char *value) {
    if (field.empty()) field = value;
  };
  if (spec_.pci.empty()) {
    const auto card = static_cast<unsigned>(n / 2);
    spec_.pci = format("%04x:%02x:00.%x", card / 0xf0, 4 + card % 0xf0, static_cast<unsigned>(n % 2));
  }
  const PciAddress pci = parse_pci(spec_.pci);
  if (spec_.wwpn == 0) spec_.wwpn = 0x10000090fa000000 + n;
  if (spec_.wwnn == 0) spec_.wwnn = spec_.wwpn + 0x1000000000000000;
  if (spec_.fabric == 0) spec_.fabric = 0x100000051e000001;
  if (spec_.port_id == 0) spec_.port_id = 0x700000 + static_cast<uint32_t>(n << 8 & 0xff00);
  if (spec_.pci_device == 0) spec_.pci_device = fcoe ? 0x7a11 : spec_.sli == 4 ? 0x7b21 : 0x7910;
  if (spec_.irq == 0) spec_.irq = 24 + spec_.number;
  if (spec_.unique_id < 0) spec_.unique_id = spec_.number;
  if (spec_.port_number < 0) spec_.port_number = static_cast<int>(pci.function);
  text(spec_.model, fcoe ? "QE10102" : spec_.sli == 4 ? "QF16002" : "QF8002");
  const char *kind = fcoe             ? " 10Gb 2-port PCIe FCoE Adapter"
                     : spec_.sli == 4 ? " 16Gb 2-port PCIe Fibre Channel Adapter"
                                      : " 8Gb 2-port PCIe Fibre Channel Adapter";
  text(spec_.description, ("Quorva " + spec_.model + kind).c_str());
  text(spec_.serial, ("QV" + std::to_string(12345670 + n / 2)).c_str());
  text(spec_.hardware, spec_.sli == 4 ? "31004549" : "20030040");
  text(spec_.firmware, fcoe ? "4.6.142.10" : spec_.sli == 4 ? "10.4.255.23" : "2.01A12");
  text(spec_.speed, fcoe ? "10 Gbit" : spec_.sli == 4 ? "16 Gbit" : "8 Gbit");
  text(spec_.supported_speeds, fcoe             ? "10 Gbit"
                               : spec_.sli == 4 ? "4 Gbit, 8 Gbit, 16 Gbit"
                                                : "2 Gbit, 4 Gbit, 8 Gbit");
  if (spec_.info.empty()) {
    spec_.info = "Quorva " + spec_.model + " PCIe adapter on PCI bus " + format("%02x", pci.bus) +
                 " device " + format("%02x", pci.slot << 3 | pci.function) + " port " +
                 std::to_string(spec_.port_number);
    if (fcoe) spec_.info += " Logical Link Speed: 10000 Mbps";
  }
}

std::string Host::pci_dir() const {
  if (parent_ != nullptr) return parent_->pci_dir();
  if (spec_.foreign) return "/sys/devices/platform/";
  const PciAddress pci = parse_pci(spec_.pci);
  // Functions off bus 0 sit behind a bridge of bus 0.
  std::string dir = "/sys/devices/pci" + format("%04x:00/", pci.domain);
  if (pci.bus != 0) dir += format("%04x:00:%02x.%x/", pci.domain, pci.bus & 0x1f, pci.bus >> 5 & 7);
  return dir + spec_.pci + "/";
}

std::string Host::device_dir() const {
  if (parent_ == nullptr) return pci_dir() + name() + "/";
  if (!machine_.has_vport_class()) return parent_->device_dir() + name() + "/";
  return parent_->device_dir() + vport_entry(*this) + "/" + name() + "/";
}

std::string Host::vport_dir() const {
  return "/sys/class/fc_vports/" + vport_entry(*this) + "/";
}

void Host::build() {
  Vfs &vfs = machine_.vfs();
  const std::string dir = device_dir();
  if (spec_.foreign) {
    build_foreign();
    return;
  }
  if (parent_ == nullptr) build_pci();
  vfs.put_dir(dir.substr(0, dir.size() - 1));
  vfs.put_link(dir + "subsystem", relative_path(dir, "/sys/bus/scsi"));
  vfs.put_text(dir + "uevent", "DEVTYPE=scsi_host\n", 0644);
  if (parent_ != nullptr) build_vport();
  build_scsi_host();
  if (machine_.generation() >= 1) build_fc_host();
  if (machine_.generation() >= 2) build_bsg();
}

void Host::build_foreign() {
  const std::string dir = put_class(machine_, device_dir(), "scsi_host", name());
  for (const Attribute &row : kScsiHost) {
    machine_.vfs().put_text(dir + row.name, row.text != nullptr ? std::string(row.text) + "\n" : "",
                            row.mode);
  }
  machine_.vfs().put_text(dir + "proc_name", "ahci\n");
  machine_.vfs().put_text(dir + "unique_id", "1\n");
}

void Host::build_pci() {
  Vfs &vfs = machine_.vfs();
  const PciAddress pci = parse_pci(spec_.pci);
  const std::string dir = pci_dir();
  const unsigned bar = 0xf0000000U + ((pci.bus << 4 | pci.function) << 20 & 0x0ff00000U);
  const std::string vendor = format("%04X", spec_.pci_vendor), device = format("%04X", spec_.pci_device);
  const std::string alias = "pci:v0000" + vendor + "d0000" + device + "sv00001AF4sd00001100bc0Csc04i00\n";
  const Attribute rows[] = {
      {"ari_enabled", 0444, "0"},
      {"broken_parity_status", 0644, "0"},
      {"class", 0444, "0x0c0400"},
      {"consistent_dma_mask_bits", 0444, "64"},
      {"d3cold_allowed", 0644, "0"},
      {"dma_mask_bits", 0444, "64"},
      {"driver_override", 0644, "(null)"},
      {"enable", 0644, "1"},
      {"local_cpulist", 0444, "0-1"},
      {"local_cpus", 0444, "3"},
      {"numa_node", 0644, "-1"},
      {"remove", 0220, nullptr},
      {"rescan", 0200, nullptr},
      {"revision", 0444, "0x10"},
      {"subsystem_device", 0444, "0x1100"},
      {"subsystem_vendor", 0444, "0x1af4"},
  };
  for (const Attribute &row : rows) {
    vfs.put_text(dir + row.name, row.text != nullptr ? std::string(row.text) + "\n" : "", row.mode);
  }
  vfs.put_text(dir + "irq", std::to_string(spec_.irq) + "\n");
  vfs.put_text(dir + "vendor", hex_text(spec_.pci_vendor, 4) + "\n");
  vfs.put_text(dir + "device", hex_text(spec_.pci_device, 4) + "\n");
  vfs.put_text(dir + "modalias", alias);
  vfs.put_text(dir + "uevent",
               "DRIVER=vosk\nPCI_CLASS=C0400\nPCI_ID=" + vendor + ":" + device +
                   "\nPCI_SUBSYS_ID=1AF4:1100\nPCI_SLOT_NAME=" + spec_.pci + "\nMODALIAS=" + alias,
               0644);
  vfs.put_link(dir + "driver", relative_path(dir, "/sys/bus/pci/drivers/vosk"));
  vfs.put_link(dir + "subsystem", relative_path(dir, "/sys/bus/pci"));
  vfs.put_dir("/sys/bus/pci/drivers/vosk");
  std::string resources = format("0x%016x 0x%016x 0x%016x\n", bar, bar + 0xfffff, 0x00040200U);
  for (int i = 0; i < 12; i++)
    resources += format("0x%016x 0x%016x 0x%016x\n", 0U, 0U, 0U);
  vfs.put_text(dir + "resource", resources);

  std::string config(256, '\0');
  little_endian(config, 0x00, spec_.pci_vendor, 2);
  little_endian(config, 0x02, spec_.pci_device, 2);
  little_endian(config, 0x04, 0x0546, 2);  // memory, bus master, no INTx
  little_endian(config, 0x06, 0x0010, 2);  // capability list
  little_endian(config, 0x08, 0x0c040010, 4);
  little_endian(config, 0x0c, 0x00800010, 4);  // multi-function
  little_endian(config, 0x10, bar | 4, 4);
  little_endian(config, 0x2c, 0x1af4, 2);
  little_endian(config, 0x2e, 0x1100, 2);
  little_endian(config, 0x34, 0x40, 1);
  little_endian(config, 0x3c, static_cast<uint64_t>(spec_.irq), 1);
  little_endian(config, 0x3d, 1, 1);
  little_endian(config, 0x40, 0x00800005, 4);  // MSI, the last capability
  vfs.put_binary(dir + "config", config, 0644, 256);
}

void Host::build_scsi_host() {
  Vfs &vfs = machine_.vfs();
  const std::string dir = put_class(machine_, device_dir(), "scsi_host", name());
  auto put = [&](const char *attribute, const std::string &value, mode_t mode = 0444) {
    vfs.put_text(dir + attribute, value + "\n", mode);
  };
  for (const Attribute &row : kScsiHost) {
    vfs.put_text(dir + row.name, row.text != nullptr ? std::string(row.text) + "\n" : "", row.mode);
  }
  put("proc_name", "vosk");
  put("unique_id", std::to_string(spec_.unique_id));
  put("info", spec_.info);
  put("npiv_info", spec_.npiv);
  put("fwrev", spec_.firmware + (spec_.sli == 4 ? ", sli-4:" + std::to_string(spec_.if_type)
                                                : ", sli-" + std::to_string(spec_.sli)));
  put("hdw", spec_.hardware);
  put("link_state", spec_.link_state, 0644);
  put("modelname", spec_.model);
  put("modeldesc", spec_.description);
  put("nport_evt_cnt", "17");
  put("option_rom_version", spec_.option_rom);
  put("portnum", std::to_string(spec_.port_number));
  put("programtype", std::to_string(spec_.program_type));
  put("protocol", spec_.protocol);
  put("serialnum", spec_.serial);
  put("vosk_drvr_version", spec_.driver);
  if (machine_.generation() < 2) {
    // What the FC transport shows later was the driver's own then.
    put("portfcid", hex_text(spec_.port_id, 6));
    put("port_id", hex_text(spec_.port_id, 6));
    put("node_name", wwn_text(spec_.wwnn));
    put("port_name", wwn_text(spec_.wwpn));
    put("port_state", spec_.port_state);
    put("supported_classes", "Class 3");
    put("maxframe_size", "2048 bytes");
  }
  if (parent_ == nullptr) build_driver_attributes(dir);
}

void Host::build_driver_attributes(const std::string &dir) {
  Vfs &vfs = machine_.vfs();
  auto put = [&](const char *attribute, const std::string &value, mode_t mode = 0444) {
    vfs.put_text(dir + attribute, value + "\n", mode);
  };
  const bool npiv = spec_.npiv != "NPIV Not Supported";
  put("board_mode", "online", 0644);
  put("board_online", "1", 0644);
  vfs.put_text(dir + "issue_reset", "", 0200);
  put("max_rpi", "4096");
  put("used_rpi", "9");
  put("max_vpi", std::to_string(npiv ? spec_.max_vports : 0));
  put("used_vpi", "0");
  put("vosk_temp_sensor", spec_.temp_sensor ? "1" : "0");
  put("vosk_stat_data_ctrl", "", 0644);
  std::string registers(256, '\0');
  for (size_t i = 0; i < registers.size(); i++)
    registers[i] = static_cast<char>(i);
  vfs.put_binary(dir + "ctlreg", registers, 0600, 256);
  vfs.put_binary(dir + "mbox", std::string(), 0600, 4096);
  if (spec_.sli < 4) vfs.put_binary(dir + "tibra", std::string(), 0600, 4096);
  if (spec_.slimem) vfs.put_binary(dir + "slimem", std::string(4096, '\0'), 0600, 4096);
  // The counters as one block in the processor's order; taken from the texts, so that both always agree.
  Node &stats = vfs.put_binary(dir + "stats", "", 0400, 120);
  stats.hooks().read_at = [this](uint64_t offset, void *buf, size_t count) -> ssize_t {
    uint64_t block[std::size(kCounters)];
    for (size_t i = 0; i < std::size(kCounters); i++) {
      const std::string text = machine_.vfs().text(fc_dir() + "statistics/" + kCounters[i].name);
      block[i] = text.empty() ? kCounters[i].value : std::strtoull(text.c_str(), nullptr, 16);
    }
    std::memcpy(buf, reinterpret_cast<const char *>(block) + offset, count);
    return static_cast<ssize_t>(count);
  };
  if (spec_.auth) {
    for (const Attribute &row : kAuthHost) {
      vfs.put_text(dir + row.name, row.text != nullptr ? std::string(row.text) + "\n" : "", row.mode);
    }
  }
}

void Host::build_fc_host() {
  Vfs &vfs = machine_.vfs();
  const std::string dir = put_class(machine_, device_dir(), "fc_host", name());
  auto put = [&](const char *attribute, const std::string &value, mode_t mode = 0444) {
    vfs.put_text(dir + attribute, value + "\n", mode);
  };
  const size_t digit = spec_.driver.find_first_of("0123456789");
  const std::string version = digit == std::string::npos ? "" : spec_.driver.substr(digit);
  put("active_fc4s", kFc4Types);
  put("supported_fc4s", kFc4Types);
  put("dev_loss_tmo", "30", 0644);
  put("fabric_name", wwn_text(spec_.fabric));
  put("maxframe_size", "2048 bytes");
  put("node_name", wwn_text(spec_.wwnn));
  put("port_name", wwn_text(spec_.wwpn));
  put("port_id", hex_text(spec_.port_id, 6));
  put("port_state", spec_.port_state);
  put("port_type", spec_.port_type);
  put("speed", spec_.speed);
  put("supported_classes", "Class 3");
  put("supported_speeds", spec_.supported_speeds);
  put("symbolic_name",
      "Quorva " + spec_.model + " FV" + spec_.firmware + " DV" + version + " HN:lab OS:Linux");
  put("tgtid_bind_type", "wwpn (World Wide Port Name)", 0644);
  if (parent_ == nullptr) {
    vfs.put_text(dir + "issue_lip", "", 0200);
  }
  if (parent_ == nullptr && machine_.has_vport_class()) {
    put("max_npiv_vports", std::to_string(spec_.npiv == "NPIV Not Supported" ? 0 : spec_.max_vports));
    put("npiv_vports_inuse", "0");
    vfs.put_text(dir + "vport_create", "", 0200);
    vfs.put_text(dir + "vport_delete", "", 0200);
  }
  for (const auto &counter : kCounters) {
    vfs.put_text(dir + "statistics/" + counter.name, counter_text(counter.value));
  }
  for (const char *counter : kUnkept)
    vfs.put_text(dir + "statistics/" + counter, counter_text(kNone));
  for (const char *counter : kFpin)
    vfs.put_text(dir + "statistics/" + counter, counter_text(0));
  vfs.put_text(dir + "statistics/reset_statistics", "", 0200);
}

void Host::build_bsg() {
  const std::string dir = put_class(machine_, device_dir(), "bsg", "fc_" + name());
  const int minor = machine_.next_bsg_minor();
  machine_.vfs().put_text(dir + "dev", "249:" + std::to_string(minor) + "\n");
  machine_.vfs().put_text(dir + "uevent",
                          "MAJOR=249\nMINOR=" + std::to_string(minor) + "\nDEVNAME=bsg/fc_" + name() + "\n",
                          0644);
  machine_.vfs().put_device(bsg_path(), 0600, [this](OpenFile &file, unsigned long request, void *arg) {
    return machine_.bsg().ioctl(*this, nullptr, file.path, request, arg);
  });
}

void Host::build_vport() {
  if (!machine_.has_vport_class()) return;
  const std::string entry = vport_entry(*this);
  const std::string dir = put_class(machine_, parent_->device_dir() + entry + "/", "fc_vports", entry);
  const std::string name_of_port = vport_->name;
  auto put = [&](const char *attribute, const std::string &value, mode_t mode = 0444) {
    machine_.vfs().put_text(dir + attribute, value + "\n", mode);
  };
  machine_.vfs().put_text(parent_->device_dir() + entry + "/uevent", "DEVTYPE=fc_vport\n", 0644);
  put("node_name", wwn_text(spec_.wwnn));
  put("port_name", wwn_text(spec_.wwpn));
  put("roles", "FCP Initiator");
  put("symbolic_name", name_of_port, 0644);
  put("vport_last_state", "Unknown");
  put("vport_state", "Active");
  put("vport_type", "NPIV VPORT");
  machine_.vfs().put_text(dir + "vport_delete", "", 0200);
  machine_.vfs().put_text(dir + "vport_disable", "", 0200);
}

void Host::unbuild() {
  Vfs &vfs = machine_.vfs();
  while (!rports_.empty())
    remove_rport(rports_.back()->spec().number);
  for (const char *name_of_class : {"scsi_host", "fc_host"}) {
    vfs.remove(std::string("/sys/class/") + name_of_class + "/" + name());
  }
  vfs.remove("/sys/class/bsg/fc_" + name());
  vfs.remove(bsg_path());
  if (parent_ == nullptr) {
    vfs.remove(device_dir());
    if (!spec_.foreign) vfs.remove(pci_dir());
    return;
  }
  if (!machine_.has_vport_class()) {
    vfs.remove(device_dir());
    return;
  }
  const std::string entry = vport_entry(*this);
  vfs.remove("/sys/class/fc_vports/" + entry);
  vfs.remove(parent_->device_dir() + entry);
}

void Host::set_scsi(const std::string &attribute, const std::string &value) {
  machine_.set_text(scsi_dir() + attribute, value + "\n");
}

void Host::set_fc(const std::string &attribute, const std::string &value) {
  machine_.set_text(fc_dir() + attribute, value + "\n");
}

void Host::set_statistic(const std::string &counter, uint64_t value) {
  machine_.set_text(fc_dir() + "statistics/" + counter, counter_text(value));
}

Rport &Host::add_rport(RportSpec spec) {
  const std::lock_guard guard(machine_.mutex());
  rports_.push_back(std::make_unique<Rport>(*this, std::move(spec)));
  return *rports_.back();
}

void Host::remove_rport(int number) {
  const std::lock_guard guard(machine_.mutex());
  auto it = std::find_if(rports_.begin(), rports_.end(), [&](auto &r) { return r->spec().number == number; });
  if (it == rports_.end()) return;
  (*it)->unbuild();
  rports_.erase(it);
}

Rport *Host::rport(int number) {
  for (auto &rport : rports_) {
    if (rport->spec().number == number) return rport.get();
  }
  return nullptr;
}

Rport *Host::rport_by_wwpn(uint64_t wwpn) {
  for (auto &rport : rports_) {
    if (rport->spec().wwpn == wwpn) return rport.get();
  }
  return nullptr;
}

Rport *Host::rport_by_port_id(uint32_t port_id) {
  for (auto &rport : rports_) {
    if (rport->spec().port_id == port_id) return rport.get();
  }
  return nullptr;
}

void Host::add_fabric_ports() {
  const struct {
    uint32_t port_id;
    const char *roles;
  } ports[] = {{0xfffffe, "Fabric Port"},
               {0xfffffc, "Directory Server"},
               {0xfffffd, "Fabric Controller"},
               {0xfffffa, "Management Server"}};
  for (const auto &port : ports) {
    add_rport({.wwpn = 0x2000000000000000 | (spec_.fabric & 0x00ffffffffff0000) | (port.port_id & 0xff),
               .wwnn = spec_.fabric,
               .port_id = port.port_id,
               .roles = port.roles});
  }
}

Host &Host::add_vport(VportSpec vport) {
  const std::lock_guard guard(machine_.mutex());
  HostSpec spec = spec_;
  if (vport.number < 0) vport.number = next_vport_;
  const int number = vport.number;
  next_vport_ = std::max(next_vport_, number + 1);
  if (vport.wwpn == 0) vport.wwpn = spec_.wwpn + (static_cast<uint64_t>(number + 1) << 48);
  if (vport.wwnn == 0) vport.wwnn = vport.wwpn + 0x1000000000000000;
  spec.number = vport.host_number;
  spec.wwpn = vport.wwpn;
  spec.wwnn = vport.wwnn;
  if (vport.port_id == 0) vport.port_id = spec_.port_id + static_cast<uint32_t>(number) + 1;
  spec.port_id = vport.port_id;
  spec.npiv = "NPIV Virtual (VPI " + std::to_string(number + 1) + ")";
  spec.port_type = "NPIV VPORT";
  spec.unique_id = -1;
  machine_.hosts_.push_back(std::make_unique<Host>(machine_, std::move(spec), this, &vport));
  Host &made = *machine_.hosts_.back();
  for (auto &hook : machine_.host_hooks_)
    hook(made);
  count_vports();
  return made;
}

bool Host::remove_vport(uint64_t wwpn, uint64_t wwnn) {
  const std::lock_guard guard(machine_.mutex());
  for (Host *vport : vports()) {
    if (vport->spec().wwpn != wwpn || vport->spec().wwnn != wwnn) continue;
    machine_.remove_host(vport->number());
    count_vports();
    return true;
  }
  return false;
}

void Host::count_vports() {
  const std::string used = std::to_string(vports().size()) + "\n";
  for (const std::string &path :
       {scsi_dir() + "used_vpi", scsi_dir() + "npiv_vports_inuse", fc_dir() + "npiv_vports_inuse"}) {
    if (auto node = machine_.vfs().find(path)) node->data = used;
  }
}

std::vector<Host *> Host::vports() {
  std::vector<Host *> mine;
  for (Host *host : machine_.hosts()) {
    if (host->parent() == this) mine.push_back(host);
  }
  return mine;
}

}  // namespace sim
