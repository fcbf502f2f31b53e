// SPDX-License-Identifier: BSD-3-Clause
// Boards through the public interface: start-up, inventory, attribute text, and the ways to name a board.
#include "board.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "output.h"
#include "status.h"

namespace hcxadm {
namespace {

constexpr size_t attribute_size = 4096 + 2;  // a sysfs text is a page at most

Text text_of_field(const char *field) {
  return field && *field ? Text(field) : Text();
}

HBA_WWN wwn_of_bytes(const uint8_t bytes[8]) {
  HBA_WWN wwn;
  std::copy(bytes, bytes + 8, wwn.wwn);
  return wwn;
}

Board board_of_host(hcx_host *host, const hcx_brdinfo &info) {
  Board board;
  board.number = host->brd_idx;
  board.host = host->id;
  board.info = info;
  board.wwpn = wwn_of_bytes(host->port.wwpn);
  board.wwnn = wwn_of_bytes(host->port.wwnn);
  board.port_id = host->port.port_id;
  board.pci_dir = text_of_field(host->pci_dev);
  board.serial_number = text_of_field(host->serial_number);
  board.hardware_version = text_of_field(host->hardware_version);
  board.firmware = text_of_field(host->firmware_revision);
  board.option_rom = text_of_field(host->option_rom_version);
  board.protocol = text_of_field(host->protocol);
  board.npiv = text_of_field(host->npiv_info);
  char version[256] = "";
  if (hcx_host_drv_ver(host, version, sizeof version) > 1) board.driver = version;
  if (int mode = hcx_get_sli_mode(host); mode >= 0) board.sli_mode = mode;
  for (const hcx_port *port = host->port_list; port; port = port->next) {
    ++board.ports;
    for (const hcx_lun *lun = port->lun_list; lun; lun = lun->next)
      ++board.luns;
  }
  return board;
}

Port port_of_record(const hcx_port &record) {
  Port port;
  port.id = record.id;
  if (record.scsi_target_id != UINT32_MAX) port.target_id = record.scsi_target_id;
  port.roles = record.roles;
  port.wwpn = wwn_of_bytes(record.wwpn);
  port.wwnn = wwn_of_bytes(record.wwnn);
  port.port_id = record.port_id;
  for (const hcx_lun *lun = record.lun_list; lun; lun = lun->next)
    port.luns.push_back({.id = lun->id,
                         .generic_dev = text_of_field(lun->generic_scsi_dev),
                         .block_dev = text_of_field(lun->block_dev),
                         .tape_dev = text_of_field(lun->tape_dev)});
  return port;
}

// Stopping the library deletes the switch file of the log, and so do starts that fail late. A command must not switch
// logging off for the whole machine.
void stop_library(uint32_t log_mask) {
  HCX_FreeDiagEnv();
  if (log_mask != LOG_OFF) libhcx_syslog_enable(log_mask);
}

// The library says only that it did not start. Adapters that a scan finds nevertheless did not answer.
uint32_t hosts_in_spite_of_failure() {
  return hcx_host_list ? hcx_host_count : hcx_sysfs_scan_hosts(&hcx_host_list);
}

Failure start_failure(uint32_t hosts) {
  const bool root = geteuid() == 0;
  return Failure(
      {.status = root ? kFailed : kRefused,
       .tried =
           "starting the library on " + std::to_string(hosts) + " adapter port" + (hosts == 1 ? "" : "s"),
       .board = {},
       .code = {},
       .name = "the driver did not answer the query for its management version",
       .todo = root ? "look at the kernel log, or at syslog after \"hcxadm log set all\"" : "run as root"});
}

bool names_board(const Board &board, const std::string &name) {
  if (name.starts_with("host")) return parse_number(name.substr(4)) == std::optional<uint64_t>(board.host);
  if (auto wwn = parse_wwn(name)) return std::equal(wwn->wwn, wwn->wwn + 8, board.wwpn.wwn);
  return parse_number(name) == std::optional<uint64_t>(board.number);
}

bool looks_like_board(const std::string &name) {
  return parse_wwn(name) || parse_number(name) || (name.starts_with("host") && parse_number(name.substr(4)));
}

}  // namespace

std::string Board::name() const {
  return "board " + std::to_string(number) + " (host" + std::to_string(host) + ")";
}
std::string Board::scsi_host_dir() const {
  return "/sys/class/scsi_host/host" + std::to_string(host) + "/";
}
std::string Board::fc_host_dir() const {
  return "/sys/class/fc_host/host" + std::to_string(host) + "/";
}
std::string Board::rport_dir(const Port &port) const {
  if (sysfs_ver < LK2_6_12)
    return "/sys/class/fc_transport/target" + std::to_string(host) + ":0:" + std::to_string(port.id) + "/";
  return "/sys/class/fc_remote_ports/rport-" + std::to_string(host) + ":0-" + std::to_string(port.id) + "/";
}

void HostLock::release() {
  if (host_) pthread_rwlock_unlock(&host_->rwlock);
  host_ = nullptr;
}

void Boards::up() {
  if (tried_) return;
  tried_ = true;
  const uint32_t log_mask = current_log_mask();
  std::vector<hcx_brdinfo> records(64);
  uint32_t hosts = HCX_InitDiagEnv(records.data(), static_cast<uint32_t>(records.size()));
  if (hosts > records.size()) {
    records.resize(hosts);
    hosts = HCX_InitDiagEnv(records.data(), static_cast<uint32_t>(records.size()));
  }
  if (hosts == 0) {
    hosts = hosts_in_spite_of_failure();
    stop_library(log_mask);
    if (hosts > 0) throw start_failure(hosts);
    return;
  }
  up_ = true;
  // Hosts without a PCI device are counted but get no board number.
  for (uint32_t i = 0; i < hosts && i < records.size(); ++i) {
    HostLock host(static_cast<int>(i));
    if (host) boards_.push_back(board_of_host(host.get(), records[i]));
  }
}

void Boards::down() {
  if (!up_) return;
  up_ = false;
  stop_library(current_log_mask());
  boards_.clear();
}

const std::vector<Board> &Boards::all() {
  up();
  return boards_;
}

const Board &Boards::find(const std::string &name) {
  if (!looks_like_board(name))
    throw Failure({.status = kUsage,
                   .tried = "\"" + name + "\" does not name a board",
                   .board = {},
                   .code = {},
                   .name = {},
                   .todo = "give a board number, hostN or a WWPN of 16 hexadecimal digits"});
  const std::vector<Board> &boards = all();
  for (const Board &board : boards)
    if (names_board(board, name)) return board;
  const std::string known = boards.empty() ? "there are no adapters of the vosk driver on this machine"
                            : boards.size() == 1
                                ? "there is only board 0"
                                : "there are boards 0 to " + std::to_string(boards.back().number);
  throw Failure({.status = kNoSuch,
                 .tried = "no board \"" + name + "\"",
                 .board = {},
                 .code = {},
                 .name = {},
                 .todo = known + (boards.empty() ? "" : ", see \"hcxadm list\"")});
}

std::vector<Board> Boards::select(const std::string &name) {
  if (name.empty()) return all();
  return {find(name)};
}

std::vector<Port> Boards::ports(const Board &board) {
  std::vector<Port> ports;
  HostLock host(board.number);
  if (!host) return ports;
  for (const hcx_port *port = host->port_list; port; port = port->next)
    ports.push_back(port_of_record(*port));
  return ports;
}

// The library lists no directories for others, so the numbers are tried. The kernel counts them up from 0 for each
// host; a gap longer than this one hides what follows.
std::vector<Port> Boards::lost_ports(const Board &board) {
  constexpr uint32_t longest_gap = 64;
  std::vector<Port> lost;
  if (sysfs_ver < LK2_6_12) return lost;
  const std::vector<Port> known = ports(board);
  uint32_t end = longest_gap;
  for (Port port; port.id < end; ++port.id) {
    const auto same = [&](const Port &other) { return other.id == port.id; };
    const bool listed = std::any_of(known.begin(), known.end(), same);
    const std::string dir = board.rport_dir(port);
    const Text name = listed ? Text() : attribute(dir, "port_name");
    const std::optional<HBA_WWN> wwpn = name ? parse_wwn(*name) : std::nullopt;
    if (listed || wwpn) end = port.id + 1 + longest_gap;
    if (!wwpn) continue;
    Port &found = lost.emplace_back();
    found.id = port.id;
    found.wwpn = *wwpn;
    if (const Text node = attribute(dir, "node_name")) found.wwnn = parse_wwn(*node).value_or(HBA_WWN{});
    found.port_id = static_cast<uint32_t>(number_attribute(dir, "port_id").value_or(0));
    const Text roles = attribute(dir, "roles");
    if (roles && roles->find("Target") != std::string::npos) found.roles = FC_RPORT_ROLE_FCP_TARGET;
  }
  return lost;
}

Text attribute(const std::string &dir, const char *file) {
  std::string buffer(attribute_size, '\0');
  if (!hcx_sysfs_read_str(dir.c_str(), file, buffer.data(), buffer.size())) return {};
  buffer.resize(std::strlen(buffer.c_str()));
  constexpr char blanks[] = " \t\r\n";
  const size_t first = buffer.find_first_not_of(blanks);
  if (first == std::string::npos) return "";
  return buffer.substr(first, buffer.find_last_not_of(blanks) - first + 1);
}

std::optional<uint64_t> number_attribute(const std::string &dir, const char *file, int base) {
  Text text = attribute(dir, file);
  if (!text) return {};
  char *end = nullptr;
  errno = 0;
  uint64_t value = std::strtoull(text->c_str(), &end, base);
  if (end == text->c_str() || errno == ERANGE) return {};
  return value;
}

std::optional<HBA_WWN> parse_wwn(const std::string &text) {
  std::string digits = text;
  if (digits.starts_with("0x") || digits.starts_with("0X")) digits.erase(0, 2);
  if (digits.size() == 23) {
    for (size_t i = 2; i < 23; i += 3)
      if (digits[i] != ':') return {};
    std::erase(digits, ':');
  }
  if (digits.size() != 16) return {};
  std::optional<uint64_t> number = parse_number(digits, 16);
  if (!number) return {};
  HBA_WWN wwn;
  for (int i = 7; i >= 0; --i, *number >>= 8)
    wwn.wwn[i] = static_cast<uint8_t>(*number);
  return wwn;
}

std::optional<uint64_t> parse_number(const std::string &text, int base) {
  if (text.empty() || text[0] == '-' || text[0] == '+' || isspace(static_cast<unsigned char>(text[0])))
    return {};
  char *end = nullptr;
  errno = 0;
  uint64_t value = std::strtoull(text.c_str(), &end, base);
  if (*end || errno == ERANGE) return {};
  return value;
}

uint32_t current_log_mask() {
  // A line of no category is never written, but lets the library look at its switch.
  libhcx_syslog(LOG_OFF, "%s", "");
  return libhcx_logging_enable;
}

}  // namespace hcxadm
