// SPDX-License-Identifier: BSD-3-Clause
// Driver parameters as scsi_host attributes. As in the driver, a value is taken as decimal or "0x"
// hexadecimal, one out of range is refused with EINVAL and changes nothing, and a leading "nolip " keeps the
// link as it is.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "sim_areas.h"
#include "sim_machine.h"

namespace sim {

namespace {
enum Where : uint8_t { all_ports, physical };

struct Parameter {
  const char *name;
  mode_t mode;
  uint32_t low, high, value;
  bool hex;
  Where where;
};

constexpr Parameter kParameters[] = {
    {"vosk_log_verbose", 0644, 0, 0xffffffff, 0, true, all_ports},
    {"vosk_lun_queue_depth", 0644, 1, 128, 30, false, all_ports},
    {"vosk_scan_down", 0644, 0, 1, 1, false, all_ports},
    {"vosk_nodev_tmo", 0644, 1, 255, 30, false, all_ports},
    {"vosk_topology", 0644, 0, 6, 0, false, physical},
    {"vosk_link_speed", 0644, 0, 16, 0, true, physical},
    {"vosk_fcp_class", 0644, 2, 3, 3, false, all_ports},
    {"vosk_use_adisc", 0644, 0, 1, 0, false, all_ports},
    {"vosk_ack0", 0644, 0, 1, 0, false, physical},
    {"vosk_cr_delay", 0644, 0, 63, 0, false, physical},
    {"vosk_cr_count", 0644, 1, 255, 1, false, physical},
    {"vosk_fdmi_on", 0644, 0, 2, 0, false, all_ports},
    {"vosk_max_luns", 0644, 0, 65535, 255, true, all_ports},
    {"vosk_enable_npiv", 0444, 0, 1, 1, false, all_ports},
    {"vosk_enable_auth", 0644, 0, 1, 0, false, physical},
    {"vosk_use_msi", 0444, 0, 2, 2, false, physical},
    {"vosk_restrict_login", 0644, 0, 1, 0, false, all_ports},
    {"vosk_static_vport", 0444, 0, 1, 0, false, all_ports},
    {"vosk_enable_fcp_priority", 0644, 0, 1, 0, false, physical},
};

std::string value_text(const Parameter &row, uint32_t value) {
  return (row.hex ? hex_text(value, 0) : std::to_string(value)) + "\n";
}

int store(Machine &machine, const std::string &path, const Parameter &row, std::string text) {
  constexpr std::string_view kNoLip = "nolip ";
  if (text.starts_with(kNoLip)) text.erase(0, kNoLip.size());
  char *end = nullptr;
  errno = 0;
  const unsigned long long value = std::strtoull(text.c_str(), &end, 0);
  if (end == text.c_str() || errno != 0 || text.front() == '-') return -EINVAL;
  if (value < row.low || value > row.high) return -EINVAL;
  machine.set_text(path, value_text(row, static_cast<uint32_t>(value)));
  return 0;
}
}  // namespace

void install_parameters(Machine &machine) {
  machine.on_host([](Host &host) {
    if (host.spec().foreign) return;
    Machine &m = host.machine();
    for (const Parameter &row : kParameters) {
      if (row.where == physical && host.parent() != nullptr) continue;
      const std::string path = host.scsi_dir() + row.name;
      uint32_t value = row.value;
      if (std::string_view(row.name) == "vosk_enable_npiv") value = host.spec().npiv != "NPIV Not Supported";
      if (std::string_view(row.name) == "vosk_enable_auth") value = host.spec().auth;
      m.vfs().put_text(path, value_text(row, value), row.mode);
      if ((row.mode & 0222) == 0) continue;
      m.vfs().on_write(path, [&m, path, &row](const std::string &text) { return store(m, path, row, text); });
    }
  });
}

}  // namespace sim
