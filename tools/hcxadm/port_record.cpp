// SPDX-License-Identifier: BSD-3-Clause
// The record as a JSON file. Two commands at a time may lose what one of them saw, never the file.
#include "port_record.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>

namespace hcxadm {
namespace {

using nlohmann::json;

constexpr char file_name[] = "/ports.json";

std::optional<std::string> text_of(const json &port, const char *key) {
  const auto found = port.find(key);
  if (found == port.end() || !found->is_string()) return {};
  return found->get<std::string>();
}

}  // namespace

std::string run_folder() {
  const char *set = std::getenv("HCXADM_RUN_DIR");
  return set && *set ? set : "/run/hcxadm";
}

PortRecord::PortRecord(std::string folder) : folder_(std::move(folder)) {
  std::ifstream file(folder_ + file_name);
  const json record = json::parse(file, nullptr, false);
  if (!record.is_object()) return;
  for (const auto &[name, port] : record.items())
    if (port.is_object()) ports_[name] = {text_of(port, "last_up"), text_of(port, "down_since")};
}

const PortRecord::Times &PortRecord::see(const std::string &port, bool up, const std::string &now) {
  Times &times = ports_[port];
  if (up)
    times = {now, {}};
  else if (!times.down_since)
    times.down_since = now;
  return times;
}

bool PortRecord::save() const {
  json record = json::object();
  for (const auto &[name, times] : ports_) {
    json &port = record[name] = json::object();
    if (times.last_up) port["last_up"] = *times.last_up;
    if (times.down_since) port["down_since"] = *times.down_since;
  }
  const std::string text = record.dump() + "\n";
  const std::string wanted = folder_ + file_name;
  const std::string fresh = wanted + "." + std::to_string(getpid());
  mkdir(folder_.c_str(), 0755);
  const int fd = open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  const bool whole = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  if (close(fd) == 0 && whole && rename(fresh.c_str(), wanted.c_str()) == 0) return true;
  unlink(fresh.c_str());
  return false;
}

}  // namespace hcxadm
