// SPDX-License-Identifier: BSD-3-Clause
// Driver parameters: GetCfgParam() and SetCfgParam() over the template of hcx_diag_cfgparam_table.cpp.
//
// No state: every call reads sysfs again. Any thread; the host's read lock is held while its attributes are
// used.
#include "hcx_diag_cfgparam.h"

#include <algorithm>
#include <cstring>

#include "hcx_diag_tibra.h"
#include "libhcx.h"

namespace hcx {
namespace {

constexpr uint32_t CFGPARAM_MAX_ROWS = 64;  // rows a caller's array has room for

static_assert(sizeof(CfgParam) == 132);

// Name of the attribute behind a row; the template spells it as the driver does.
Text<64> attribute_name(const CfgParam &row) {
  return Text<64>("vosk_%s", row.a_string);
}

bool is_fcoe(const hcx_host *host) {
  return host->protocol && strcmp(host->protocol, "fcoe") == 0;
}

// What the adapter is, as bits for a_flag.
uint16_t mode_flags(hcx_host *host) {
  uint16_t flags = 0;
  switch (hcx_get_sli_mode(host)) {
    case 3:
      flags |= CFG_SLI3;
      break;
    case 4:
      flags |= CFG_SLI4;
      break;
    default:
      break;
  }
  if (is_fcoe(host)) flags |= CFG_FCOE;
  if (host->protocol && strcmp(host->protocol, "fc") == 0) flags |= CFG_FC;
  return flags;
}

// Topology and speed belong to the Ethernet side of FCoE adapters.
bool link_is_settable(const hcx_host *host) {
  const uint32_t device = hcx_sysfs_read_hexuint32(host->pci_dev, "device") & 0xffff;
  return !is_fcoe(host) && device != TIBRA_DEVICE_ID;
}

bool is_link_attribute(const char *name) {
  return strcmp(name, "vosk_topology") == 0 || strcmp(name, "vosk_link_speed") == 0;
}

// Applications see dashes where the driver has underscores.
void dash_name(CfgParam &row) {
  std::replace(row.a_string + 1, std::end(row.a_string), '_', '-');
}

}  // namespace

int hcx_variant(const hcx_host *) {
  return 0;
}

const CfgParam *hcx_variant_cfg_param(const hcx_host *host) {
  return vosk_cfg_params_template + hcx_variant(host);
}

}  // namespace hcx

uint32_t GetCfgParam(uint32_t board, CfgParam *cfgparam) {
  HCX_TRACE();
  hcx::HostRef host = hcx::board_host(board);
  if (!host || !host->pci_dev) {
    HCX_LOG(LOG_ERROR, "board %d no host", board);
    return 0;
  }
  if (!cfgparam) return 0;
  const bool link_settable = hcx::link_is_settable(host.get());
  const uint16_t mode = hcx::mode_flags(host.get());
  const CfgParam *row = hcx::hcx_variant_cfg_param(host.get());
  uint32_t count = 0;
  for (; row->a_string[0] != '\0' && count < hcx::CFGPARAM_MAX_ROWS; ++row, ++count) {
    CfgParam &out = cfgparam[count];
    out = *row;
    const hcx::Text<64> name = hcx::attribute_name(*row);
    uint32_t value = 0;
    if (hcx_host_param_read(host.get(), name.c_str(), &value)) {
      if (!link_settable && hcx::is_link_attribute(name.c_str()))
        out.a_flag = static_cast<uint16_t>(((out.a_flag | CFG_IGNORE) & ~CFG_EXPORT) | mode);
      else
        out.a_flag = static_cast<uint16_t>(out.a_flag | CFG_APPLICABLE | mode);
      out.a_current = std::clamp(value, row->a_low, row->a_hi);
    }
    hcx::dash_name(out);
  }
  return count;
}

uint32_t SetCfgParam(uint32_t board, uint32_t idx, uint32_t value) {
  HCX_TRACE();
  CfgParam rows[hcx::CFGPARAM_MAX_ROWS];
  const uint32_t count = GetCfgParam(board, rows);
  if (count == 0) return 12;
  if (idx < count && (rows[idx].a_flag & CFG_IGNORE)) return 0;
  hcx::HostRef host = hcx::board_host(board);
  if (!host) {
    HCX_LOG(LOG_ERROR, "board %d no host", board);
    return 12;
  }
  const CfgParam *row = idx < count ? hcx::hcx_variant_cfg_param(host.get()) + idx : nullptr;
  if (!row || (row->a_changestate != CFG_DYNAMIC && row->a_changestate != CFG_LINKRESET)) {
    host.drop();
    HCX_LOG(LOG_ERROR, "board %d idx %d changestate not dyanamic or linkreset ", board, idx);
    return 1;
  }
  value = std::clamp(value, row->a_low, row->a_hi);
  const hcx::Text<64> name = hcx::attribute_name(*row);
  uint32_t old_value = 0;
  // A driver that knows "nolip" takes the value without resetting the link; one that does not refuses the
  // text.
  if (row->a_changestate == CFG_LINKRESET &&
      hcx_host_param_write(host.get(), name.c_str(), value, &old_value, "nolip ") == 0)
    return 0;
  if (hcx_host_param_write(host.get(), name.c_str(), value, &old_value, nullptr) != 0) {
    host.drop();
    HCX_LOG(LOG_ERROR, "board %d idx %d did not update %s", board, idx, name.c_str());
    return 1;
  }
  return 0;
}
