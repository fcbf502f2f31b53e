// SPDX-License-Identifier: BSD-3-Clause
// Latency statistics: a host's control attribute, which takes commands and shows the state, and the counts of its
// targets. While a host collects, its targets have I/Os that take as long as those of a disk behind a cache would;
// with a clock that stands still, as in tests, nothing is counted. Kept in the host's state.
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "sim_areas.h"
#include "sim_machine.h"

namespace sim {

namespace {
using nlohmann::json;

constexpr size_t kBuckets = 20;
constexpr int kMostMs = 1 << 20;

json &latency(Host &host) {
  json &state = host.state()["latency"];
  if (!state.is_object())
    state = {{"type", ""}, {"base", 0}, {"step", 0}, {"collecting", false}, {"since", 0.0}, {"seconds", 0.0}};
  return state;
}

double seconds_now(Machine &machine) {
  if (machine.clock != 0) return static_cast<double>(machine.now());
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// How long the host has collected since the counts were cleared.
double collected(Host &host) {
  const json &state = latency(host);
  double seconds = state["seconds"];
  if (state["collecting"])
    seconds += std::max(0.0, seconds_now(host.machine()) - state["since"].get<double>());
  return seconds;
}

// Upper bounds in milliseconds.
std::vector<int64_t> bounds(const json &state) {
  std::vector<int64_t> list(kBuckets, 0);
  const int64_t base = state["base"], step = state["step"];
  for (size_t i = 0; i < kBuckets; i++)
    list[i] = base + (state["type"] == "power2" ? step << i : step * static_cast<int64_t>(i));
  return list;
}

int set_bucket(Host &host, const std::string &text) {
  char type[8];
  int base = 0, step = 0;
  if (sscanf(text.c_str(), "setbucket %7s %d %d", type, &base, &step) != 3) return -EINVAL;
  const bool linear = strcmp(type, "linear") == 0;
  if (!linear && strcmp(type, "power2") != 0) return -EINVAL;
  if (base < (linear ? 1 : 0) || step < 1 || base > kMostMs || step > kMostMs) return -EINVAL;
  json &state = latency(host);
  if (state["collecting"]) return -EBUSY;
  state = {{"type", type},        {"base", base}, {"step", step},
           {"collecting", false}, {"since", 0.0}, {"seconds", 0.0}};
  return 0;
}

int command(Host &host, std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
    text.pop_back();
  if (text.starts_with("setbucket ")) return set_bucket(host, text);
  json &state = latency(host);
  if (state["type"].get_ref<const std::string &>().empty()) return -EINVAL;
  if (text == "destroybucket") {
    if (state["collecting"]) return -EBUSY;
    state["type"] = "";
    state["base"] = state["step"] = 0;
  } else if (text == "start") {
    if (state["collecting"]) return -EBUSY;
    state["since"] = seconds_now(host.machine());
    state["collecting"] = true;
  } else if (text == "stop") {
    if (!state["collecting"]) return -EINVAL;
    state["seconds"] = collected(host);
    state["collecting"] = false;
  } else if (text == "reset") {
    state["seconds"] = 0.0;
    state["since"] = seconds_now(host.machine());
  } else {
    return -EINVAL;
  }
  return 0;
}

int store(Host &host, const std::string &text) {
  const int rc = command(host, text);
  if (rc == 0) host.machine().touch();
  return rc;
}

int show(Host &host, std::string &text) {
  const json &state = latency(host);
  const std::string type = state["type"];
  text = "Statistics Data enabled :" + std::to_string(state["collecting"] ? 1 : 0) +
         ", blocked :0, Bucket type :" + (type.empty() ? "No Bucket" : type) +
         ", Bucket base :" + std::to_string(state["base"].get<int>()) +
         ", Bucket step :" + std::to_string(state["step"].get<int>()) + "\nBucket ranges :";
  if (!type.empty())
    for (const int64_t bound : bounds(state)) {
      text += std::to_string(bound);
      text += ' ';
    }
  text += '\n';
  return 0;
}

// The share of I/Os that are done within so many milliseconds; half of them within `median`.
double done_within(double ms, double median) {
  return ms * ms / (ms * ms + median * median);
}

std::string target_record(const json &state, uint64_t wwpn, double seconds) {
  const auto ios = static_cast<uint64_t>(seconds * static_cast<double>(400 + wwpn % 7 * 150));
  const auto median = static_cast<double>(2 + wwpn % 5 * 3);
  char digits[24];
  snprintf(digits, sizeof digits, "%016llx:", static_cast<unsigned long long>(wwpn));
  std::string text = digits;
  uint64_t before = 0;
  const std::vector<int64_t> upper = bounds(state);
  for (size_t i = 0; i < kBuckets; i++) {
    const double share = i + 1 < kBuckets ? done_within(static_cast<double>(upper[i]), median) : 1;
    const auto within = static_cast<uint64_t>(static_cast<double>(ios) * share);
    snprintf(digits, sizeof digits, "%010u,",
             static_cast<unsigned>(std::min<uint64_t>(within - before, UINT32_MAX)));
    text += digits;
    before = within;
  }
  return text + "\n";
}

ssize_t read_data(Host &host, uint64_t offset, void *buf, size_t count) {
  const json &state = latency(host);
  if (state["type"].get_ref<const std::string &>().empty()) return 0;
  std::string data;
  for (const auto &rport : host.rports())
    if (rport->is_target()) data += target_record(state, rport->spec().wwpn, collected(host));
  if (offset >= data.size()) return 0;
  count = std::min<size_t>(count, data.size() - offset);
  std::memcpy(buf, data.data() + offset, count);
  return static_cast<ssize_t>(count);
}
}  // namespace

void install_latency(Machine &machine) {
  machine.on_host([](Host &host) {
    const std::string control = host.scsi_dir() + "vosk_stat_data_ctrl";
    Vfs &vfs = host.machine().vfs();
    if (!vfs.exists(control)) return;  // a virtual port, or another driver's host
    vfs.on_read(control, [&host](std::string &text) { return show(host, text); });
    vfs.on_write(control, [&host](const std::string &text) { return store(host, text); });
    vfs.put_binary(host.scsi_dir() + "vosk_drvr_stat_data", "", 0444).hooks().read_at =
        [&host](uint64_t offset, void *buf, size_t count) { return read_data(host, offset, buf, count); };
  });
}

}  // namespace sim
