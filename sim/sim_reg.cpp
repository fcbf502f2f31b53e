// SPDX-License-Identifier: BSD-3-Clause
// Control registers and SLI memory of simulated boards: the binary attributes "ctlreg" and "slimem". Register
// writes must carry the driver's marker. Under the machine's mutex throughout.
#include <errno.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "sim_areas.h"
#include "sim_control.h"
#include "sim_control_state.h"
#include "sim_machine.h"

namespace sim {
namespace {

constexpr size_t kRegisterBytes = 256, kSlimBytes = 16384, kSli1SlimBytes = 4096;

// A block of the board's memory, kept in its state as one string of hex digits.
class Memory {
 public:
  Memory(Host &host, const char *name, std::string initial)
      : host_(host), name_(name), initial_(std::move(initial)) {}

  ssize_t read(uint64_t offset, void *buf, size_t count) {
    const std::string bytes = load();
    if (offset >= bytes.size()) return 0;
    count = std::min<uint64_t>(count, bytes.size() - offset);
    memcpy(buf, bytes.data() + offset, count);
    return static_cast<ssize_t>(count);
  }

  ssize_t write(uint64_t offset, const void *buf, size_t count) {
    std::string bytes = load();
    if (offset >= bytes.size()) return -EFBIG;
    count = std::min<uint64_t>(count, bytes.size() - offset);
    memcpy(bytes.data() + offset, buf, count);
    store(bytes);
    return static_cast<ssize_t>(count);
  }

  [[nodiscard]] size_t size() const { return initial_.size(); }

 private:
  std::string load() {
    const std::string hex = control_state(host_).value(name_, std::string());
    if (hex.size() != 2 * initial_.size()) return initial_;
    std::string bytes(initial_.size(), '\0');
    for (size_t i = 0; i < bytes.size(); ++i)
      bytes[i] = static_cast<char>(std::stoi(hex.substr(2 * i, 2), nullptr, 16));
    return bytes;
  }
  void store(const std::string &bytes) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string hex;
    for (unsigned char byte : bytes) {
      hex.push_back(digits[byte >> 4]);
      hex.push_back(digits[byte & 15]);
    }
    control_state(host_)[name_] = hex;
    host_.machine().touch();
  }

  Host &host_;
  std::string name_, initial_;
};

ssize_t write_register(Host &host, Memory &registers, uint64_t offset, const void *buf, size_t count) {
  if (host.spec().sli >= 4) return -EPERM;
  if (count != 8 || offset % 4 != 0 || memcmp(buf, "\x5a\x4f\x42\x54", 4) != 0) return -EINVAL;
  if (offset + 4 > registers.size()) return -ERANGE;
  registers.write(offset, static_cast<const char *>(buf) + 4, 4);
  return 8;
}

void hook_host(Host &host) {
  if (host.spec().foreign || host.parent()) return;
  Vfs &vfs = host.machine().vfs();
  std::string registers;
  for (size_t i = 0; i < kRegisterBytes; ++i)
    registers.push_back(static_cast<char>(i));
  auto ctlreg = std::make_shared<Memory>(host, "ctlreg", registers);
  Node &reg_node = vfs.put_binary(host.scsi_dir() + "ctlreg", "", 0600, kRegisterBytes);
  reg_node.hooks().read_at = [ctlreg](uint64_t offset, void *buf, size_t count) -> ssize_t {
    return ctlreg->read(offset, buf, count);
  };
  reg_node.hooks().write_at = [&host, ctlreg](uint64_t offset, const void *buf, size_t count) {
    return write_register(host, *ctlreg, offset, buf, count);
  };
  if (host.spec().sli >= 4) return;

  const size_t slim_bytes = host.spec().slimem ? kSli1SlimBytes : kSlimBytes;
  auto slim = std::make_shared<Memory>(host, "slimem", std::string(slim_bytes, '\0'));
  Node &slim_node = vfs.put_binary(host.scsi_dir() + "slimem", "", 0600, static_cast<int64_t>(slim_bytes));
  slim_node.hooks().read_at = [slim](uint64_t offset, void *buf, size_t count) {
    return slim->read(offset, buf, count);
  };
  slim_node.hooks().write_at = [slim](uint64_t offset, const void *buf, size_t count) {
    return slim->write(offset, buf, count);
  };
}

}  // namespace

void install_registers(Machine &machine) {
  machine.on_host(hook_host);
}

}  // namespace sim
