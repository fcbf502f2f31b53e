// SPDX-License-Identifier: BSD-3-Clause
// Driver parameters: host attributes that hold one number, in the number style that the driver chose. A
// parameter is written back in the style in which it was read. Not gated: a driver has a parameter or not. No
// state; any thread.
#include <cstring>

#include "hcx_util_attr.h"
#include "libhcx.h"

namespace hcx {
namespace {

// Authentication is switched by its own calls; as a parameter it always looks set and is never written.
constexpr char enable_auth[] = "vosk_enable_auth";

using ParamText = Text<256>;

// A parameter of a host, and the routine whose name the log lines carry.
struct Param {
  const char *caller;
  const hcx_host *host;
  const char *name;

  Path path() const { return Path("%s%s", scsi_host_dir(host->id).c_str(), name); }
};

Fd open_param(const Param &param, int flags) {
  const Path path = param.path();
  libhcx_syslog(LOG_DEVICE_NAME, "%s() - %s", param.caller, path.c_str());
  Fd fd(sysio::machine().open(path.c_str(), flags));
  if (fd.ok()) return fd;
  if (flags == O_RDONLY) {
    libhcx_syslog(LOG_ERROR, "%s - host brd_idx %d failed to open %s for reading", param.caller,
                  param.host->brd_idx, path.c_str());
  } else {
    libhcx_syslog(LOG_ERROR, "%s - host brd_idx %d failed to open %s for writing", param.caller,
                  param.host->brd_idx, path.c_str());
  }
  return fd;
}

bool read_param(const Param &param, uint32_t *value, bool *is_hex) {
  const Fd fd = open_param(param, O_RDONLY);
  if (!fd.ok()) return false;
  Line line;
  const bool filled = attr_fill(fd.get(), line.data(), Line::size(), true) >= 0;
  if (filled) {
    if (const auto hex = scan_hex(line.c_str())) {
      *value = static_cast<uint32_t>(*hex);
      *is_hex = true;
      return true;
    }
    if (const auto decimal = scan_decimal(line.c_str())) {
      *value = *decimal;
      *is_hex = false;
      return true;
    }
  }
  // What a scan would return: -1 where the text ends before a number could begin.
  const bool at_end = !filled || line.c_str()[strspn(line.c_str(), " \t\r\n")] == '\0';
  libhcx_syslog(LOG_ERROR, "%s - host brd_idx %d unexpected fscanf rc %d reading %s", param.caller,
                param.host->brd_idx, at_end ? -1 : 0, param.path().c_str());
  return false;
}

// The text of a new value; empty when it does not fit, since half a command must not reach the driver.
ParamText param_text(uint32_t value, bool is_hex, const char *prefix) {
  ParamText text;
  int length;
  if (prefix) {
    length = is_hex ? snprintf(text.data(), ParamText::size(), "%s0x%x\n", prefix, value)
                    : snprintf(text.data(), ParamText::size(), "%s%u\n", prefix, value);
  } else {
    length = is_hex ? snprintf(text.data(), ParamText::size(), "0x%x\n", value)
                    : snprintf(text.data(), ParamText::size(), "%u\n", value);
  }
  if (length < 0 || static_cast<size_t>(length) >= ParamText::size()) text.data()[0] = '\0';
  return text;
}

}  // namespace
}  // namespace hcx

int hcx_host_param_read(hcx_host *host, const char *param_name, uint32_t *param_value) {
  if (!host || !param_name) return 0;
  if (strcmp(param_name, hcx::enable_auth) == 0) return 1;
  if (!param_value) return 0;
  bool is_hex = false;
  return hcx::read_param({__func__, host, param_name}, param_value, &is_hex) ? 1 : 0;
}

int hcx_host_param_write(hcx_host *host, const char *param_name, uint32_t val, uint32_t *old_val,
                         const char *prefix) {
  if (!host || !param_name) return 1;
  if (strcmp(param_name, hcx::enable_auth) == 0) return 0;
  if (!old_val) return 1;
  const hcx::Param param{__func__, host, param_name};
  bool is_hex = false;
  if (!hcx::read_param(param, old_val, &is_hex)) return 1;
  const hcx::Fd fd = hcx::open_param(param, O_WRONLY | O_TRUNC);
  if (!fd.ok()) return 1;
  const hcx::ParamText text = hcx::param_text(val, is_hex, prefix);
  const size_t length = strlen(text.c_str());
  if (length > 0) {
    const ssize_t n = hcx::sysio::machine().write(fd.get(), text.c_str(), length);
    if (n >= 0 && static_cast<size_t>(n) == length) return 0;
  }
  HCX_LOG(LOG_ERROR, "host brd_idx %d fflush or fprintf error on %s", host->brd_idx, param.path().c_str());
  return 1;
}
