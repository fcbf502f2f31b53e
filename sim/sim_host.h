// SPDX-License-Identifier: BSD-3-Clause
// The inventory of the simulated machine: hosts (adapter ports), remote ports and LUNs, each with the
// description it is made from and the part of the file tree that shows it. Made and removed through the
// Machine, under its mutex.
#pragma once

#include <any>
#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <typeindex>
#include <vector>

namespace sim {

class Machine;
class Host;
class Rport;

enum class LunKind { disk, tape, changer };

struct LunSpec {
  uint64_t lun = 0;
  LunKind kind = LunKind::disk;
  uint64_t blocks = 2048;  // of 512 bytes
  std::string vendor = "QUORVA";
  std::string model = "RAMSTORE";
  std::string revision = "0001";
  std::string serial = {};  // made from the name when empty
  uint64_t wwn = 0;         // NAA name; made from port and LUN when 0
  bool generic = true;      // whether the sg driver has bound
  bool bound = true;        // whether the disk or tape driver has bound
};

struct RportSpec {
  uint64_t wwpn = 0;  // made up when 0
  uint64_t wwnn = 0;
  uint32_t port_id = 0;
  std::string roles = "FCP Target";
  int target_id = -1;  // given to FCP targets by arrival when -1
  std::string state = "Online";
  int number = -1;  // the last number of rport-H:0-N, by arrival when -1
};

// A forwarder that an FCoE port sees.
struct Forwarder {
  uint64_t fabric = 0, switch_name = 0;
  uint64_t mac = 0x0efc00000001;
  uint32_t fc_map = 0x0efc00;
  uint32_t keep_alive = 8000, priority = 128;
  std::vector<uint16_t> vlans = {1002};
  bool available = true, valid = true;
};

struct HostSpec {
  int number = -1;  // by arrival when -1
  int sli = 4;
  int if_type = 2;              // behind ", sli-4:"
  std::string protocol = "fc";  // or "fcoe"
  uint64_t wwpn = 0;            // made from the number when 0
  uint64_t wwnn = 0;
  uint64_t fabric = 0;
  uint32_t port_id = 0;
  std::string pci = {};  // "0000:04:00.0"; made from the number when empty
  uint16_t pci_vendor = 0x1d5a;
  uint16_t pci_device = 0;  // by SLI mode and protocol when 0
  int irq = 0;              // by arrival when 0
  std::string info = {};    // the texts are made from SLI mode and protocol when empty
  std::string model = {};
  std::string description = {};
  std::string serial = {};
  std::string hardware = {};
  std::string firmware = {};  // without the ", sli-" part
  std::string option_rom = "5.11a2";
  std::string driver = "Quorva vosk Fibre Channel SCSI driver 8.2.0.141p";
  int program_type = 2;
  int port_number = -1;  // the PCI function when -1
  int unique_id = -1;    // by arrival when -1
  std::string port_type = "NPort (fabric via point-to-point)";
  std::string port_state = "Online";
  std::string link_state = "Link Up - Ready";
  std::string speed = {};
  std::string supported_speeds = {};
  std::string npiv = "NPIV Physical";
  int max_vports = 16;
  int vport_delay = 0;  // how many looks at the list of ports a new virtual port misses
  bool temp_sensor = true;
  bool auth = false;     // FC-SP attributes
  bool slimem = false;   // "slimem" of 4096 bytes, as SLI-1 boards have it
  bool foreign = false;  // another driver's host on the platform bus
  // Region 23 of the flash as the board leaves the factory: a word of factory_region(), or its bytes in hexadecimal.
  // Empty: none on the old ones, one without records on SLI-4, with FIP parameters on FCoE.
  std::string region23 = {};
  std::optional<std::vector<Forwarder>> forwarders = {};  // two on FCoE when not given
};

struct VportSpec {
  uint64_t wwpn = 0;
  uint64_t wwnn = 0;
  std::string name = {};    // symbolic name
  uint32_t port_id = 0;     // the parent's plus the VPI when 0
  int host_number = -1;     // by arrival when -1
  int number = -1;          // the last number of vport-H:0-N, by arrival when -1
  bool configured = false;  // by the adapter: "vosk_static_vport", cannot be deleted
};

class Lun {
 public:
  Lun(Rport &rport, LunSpec spec);
  Lun(const Lun &) = delete;
  Lun &operator=(const Lun &) = delete;
  [[nodiscard]] const LunSpec &spec() const { return spec_; }
  Rport &rport() { return rport_; }
  [[nodiscard]] std::string address() const;     // "3:0:0:5"
  [[nodiscard]] std::string device_dir() const;  // without links, ends in "/"
  [[nodiscard]] std::string sg_name() const;     // "sg4", empty when none
  [[nodiscard]] std::string block_name() const;  // "sda", "st0", empty when none
  // Bytes kept for the area that answers SCSI commands.
  std::shared_ptr<void> extra;

 private:
  friend class Rport;
  void build();
  void unbuild();
  void fill_device();
  void fill_disk_class(const std::string &dir);
  void fill_disk(const std::string &dir);
  void fill_tape(const std::string &dir);
  void put_pages(const std::string &dir);
  void links();
  void old_links();

  Rport &rport_;
  LunSpec spec_;
  int sg_ = -1, disk_ = -1, tape_ = -1, bsg_minor_ = 0;
};

class Rport {
 public:
  Rport(Host &host, RportSpec spec);
  Rport(const Rport &) = delete;
  Rport &operator=(const Rport &) = delete;
  [[nodiscard]] const RportSpec &spec() const { return spec_; }
  Host &host() { return host_; }
  [[nodiscard]] bool is_target() const { return spec_.target_id >= 0; }
  [[nodiscard]] std::string name() const;         // "rport-3:0-1"
  [[nodiscard]] std::string target_name() const;  // "target3:0:0"
  [[nodiscard]] std::string dir() const;          // its class directory, ends in "/"
  [[nodiscard]] std::string target_dir() const;   // the target's device directory, ends in "/"
  Lun &add_lun(LunSpec spec = {});
  void remove_lun(uint64_t lun);
  Lun *lun(uint64_t number);
  const std::vector<std::unique_ptr<Lun>> &luns() { return luns_; }
  // Text of an attribute in dir(), newline added; kept in the state.
  void set(const std::string &attribute, const std::string &value);
  void set_state(const std::string &state) { set("port_state", state); }

 private:
  friend class Host;
  friend class Lun;
  void build();
  void unbuild();
  void build_target();

  Host &host_;
  RportSpec spec_;
  std::vector<std::unique_ptr<Lun>> luns_;
};

class Host {
 public:
  Host(Machine &machine, HostSpec spec, Host *parent, const VportSpec *vport);
  ~Host();
  Host(const Host &) = delete;
  Host &operator=(const Host &) = delete;
  Machine &machine() { return machine_; }
  [[nodiscard]] const HostSpec &spec() const { return spec_; }
  [[nodiscard]] int number() const { return spec_.number; }
  [[nodiscard]] std::string name() const { return "host" + std::to_string(spec_.number); }
  [[nodiscard]] Host *parent() const { return parent_; }  // null for a physical port
  [[nodiscard]] int vpi() const { return vpi_; }          // 0 for a physical port

  [[nodiscard]] const VportSpec *vport() const { return vport_.get(); }  // null for a physical port

  // Directories; all end in "/".
  [[nodiscard]] std::string scsi_dir() const { return "/sys/class/scsi_host/" + name() + "/"; }
  [[nodiscard]] std::string fc_dir() const { return "/sys/class/fc_host/" + name() + "/"; }
  [[nodiscard]] std::string pci_dir() const;     // the PCI function, under /sys/devices
  [[nodiscard]] std::string device_dir() const;  // the host's own directory, under /sys/devices
  [[nodiscard]] std::string vport_dir() const;   // the entry of a virtual port in fc_vports
  [[nodiscard]] std::string bsg_path() const { return "/dev/bsg/fc_" + name(); }

  // Text of an attribute, newline added; kept in the state.
  void set_scsi(const std::string &attribute, const std::string &value);
  void set_fc(const std::string &attribute, const std::string &value);
  void set_statistic(const std::string &counter, uint64_t value);

  Rport &add_rport(RportSpec spec = {});
  void remove_rport(int number);
  Rport *rport(int number);
  Rport *rport_by_wwpn(uint64_t wwpn);
  Rport *rport_by_port_id(uint32_t port_id);
  const std::vector<std::unique_ptr<Rport>> &rports() { return rports_; }
  Host &add_vport(VportSpec spec);
  // Removes a virtual port and its host; false when there is none of these names.
  bool remove_vport(uint64_t wwpn, uint64_t wwnn);
  std::vector<Host *> vports();
  // Brings the counts of virtual ports in use up to date.
  void count_vports();
  // The fabric's own ports (fabric port, name server, fabric controller, management server).
  void add_fabric_ports();

  // What an area keeps of this host in memory, made at the first call.
  template <typename T>
  T &area() {
    std::any &slot = areas_[std::type_index(typeid(T))];
    if (!slot.has_value()) slot = std::make_shared<T>();
    return *std::any_cast<std::shared_ptr<T> &>(slot);
  }
  // State kept across processes, an object; call machine().touch() after a change.
  nlohmann::json &state();

 private:
  friend class Machine;
  friend class Rport;
  void complete_spec();
  void build();
  void unbuild();
  void build_pci();
  void build_scsi_host();
  void build_driver_attributes(const std::string &dir);
  void build_fc_host();
  void build_foreign();
  void build_vport();
  void build_bsg();

  Machine &machine_;
  HostSpec spec_;
  Host *parent_;
  int vpi_ = 0;
  std::unique_ptr<VportSpec> vport_;
  std::vector<std::unique_ptr<Rport>> rports_;
  std::map<std::type_index, std::any> areas_;
  int next_rport_ = 0, next_target_ = 0, next_vport_ = 0;
};

// The counters of fabric performance notices, which kernels keep for hosts and remote ports alike; all zero.
void put_fabric_notices(Machine &machine, const std::string &dir);
// "0x" and sixteen digits.
std::string wwn_text(uint64_t wwn);
std::string hex_text(uint64_t value, int digits);
// Makes a class entry as kernels of this age do: the attributes under the device, a link under /sys/class.
// Gives the directory for the attributes. `relative_depth` counts what stands between.
std::string put_class(Machine &machine, const std::string &device_dir, const std::string &class_name,
                      const std::string &name);
// The relative path that leads from a directory to a node, both absolute without links.
std::string relative_path(const std::string &from_dir, const std::string &to);

}  // namespace sim
