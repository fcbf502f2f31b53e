// SPDX-License-Identifier: BSD-3-Clause
// The boards of the machine: brings the library up at first use, takes it down at the end, and copies what
// the inventory holds so that no host lock is held while a verb works.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "libhcx_api.h"

namespace hcxadm {

using Text = std::optional<std::string>;  // absent: the attribute is missing or refused

struct Lun {
  uint64_t id = 0;
  Text generic_dev;
  Text block_dev;
  Text tape_dev;
};

// A remote port.
struct Port {
  uint32_t id = 0;
  std::optional<uint32_t> target_id;  // absent: not a target
  int roles = 0;                      // rport_role bits
  HBA_WWN wwpn{};
  HBA_WWN wwnn{};
  uint32_t port_id = 0;
  std::vector<Lun> luns;
};

struct Board {
  int number = 0;
  uint32_t host = 0;  // kernel host number
  HBA_WWN wwpn{};
  HBA_WWN wwnn{};
  uint32_t port_id = 0;
  hcx_brdinfo info{};
  Text pci_dir;  // with a trailing "/"
  Text serial_number;
  Text hardware_version;
  Text firmware;
  Text option_rom;
  Text protocol;
  Text npiv;
  Text driver;
  std::optional<int> sli_mode;
  size_t ports = 0;
  size_t luns = 0;

  std::string name() const;           // "board 0 (host3)"
  std::string scsi_host_dir() const;  // "/sys/class/scsi_host/host3/"
  std::string fc_host_dir() const;    // "/sys/class/fc_host/host3/"
  std::string rport_dir(const Port &port) const;
};

// A host by board number, read-locked for the life of this object; null when there is none. Release it before
// a call that sends a request to the driver: those rescan the host.
class HostLock {
 public:
  explicit HostLock(int board) : host_(hcx_host_find_by_idx(hcx_host_list, board)) {}
  HostLock(const HostLock &) = delete;
  HostLock &operator=(const HostLock &) = delete;
  ~HostLock() { release(); }
  void release();
  explicit operator bool() const { return host_ != nullptr; }
  hcx_host *operator->() const { return host_; }
  hcx_host *get() const { return host_; }

 private:
  hcx_host *host_;
};

class Boards {
 public:
  Boards() = default;
  Boards(const Boards &) = delete;
  Boards &operator=(const Boards &) = delete;
  ~Boards() { down(); }

  // Every board in order of its number; none on a machine without adapters. Throws Failure when there are
  // adapters but the library cannot start.
  const std::vector<Board> &all();
  // The board that a user named: number, "hostN", WWPN with or without "0x" or colons. Throws Failure.
  const Board &find(const std::string &name);
  // All boards for an empty name, else the one.
  std::vector<Board> select(const std::string &name);
  // Remote ports with their LUNs, as the inventory has them.
  std::vector<Port> ports(const Board &board);
  // Remote ports that the kernel still knows but the inventory leaves out, as they are not on-line.
  std::vector<Port> lost_ports(const Board &board);
  void down();

 private:
  void up();
  bool tried_ = false;
  bool up_ = false;
  std::vector<Board> boards_;
};

// Text of an attribute, without blanks around it; absent when it is missing, refused or not offered by the
// driver.
Text attribute(const std::string &dir, const char *file);
// The number at the start of an attribute's text, by strtoull's rules for `base`.
std::optional<uint64_t> number_attribute(const std::string &dir, const char *file, int base = 0);
// A WWN as a user or sysfs writes it: 16 hexadecimal digits, "0x" before them or colons between the bytes.
std::optional<HBA_WWN> parse_wwn(const std::string &text);
// A whole number and nothing else.
std::optional<uint64_t> parse_number(const std::string &text, int base = 10);

// The log mask that the switch file asks for, read through the library.
uint32_t current_log_mask();

}  // namespace hcxadm
