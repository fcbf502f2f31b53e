// SPDX-License-Identifier: BSD-3-Clause
// What the driver and the adapter are: driver information, vital product data, the register dump region,
// event counts. Everything is read from sysfs and the inventory under the host's read lock.
#include <cstring>

#include "libhcx.h"

static_assert(sizeof(HCXDRVINFO) == 152 && offsetof(HCXDRVINFO, featureList) == 144);
static_assert(sizeof(VPD) == 616 && offsetof(VPD, PortNum) == 596);

namespace hcx {
namespace {

// Results of these calls.
constexpr uint32_t kDone = 0;
constexpr uint32_t kError = 1;
constexpr uint32_t kVpdNoBoard = 2;
constexpr uint32_t kNotSupported = 2;
constexpr uint32_t kTooLong = 3;
constexpr uint32_t kWrongVersion = 4;
constexpr uint32_t kReservedRegion = 4;
constexpr uint32_t kNoBoard = 12;

constexpr uint8_t kInfoVersion = 4;
constexpr uint32_t kMaxDump = 256;

// Both calls describe the inventory as it stands; they do not fill an empty one.
HostRef known_board(uint32_t board) {
  if (board > INT32_MAX) return HostRef();  // -1 marks hosts without a number
  return HostRef(hcx_host_find_by_idx(host_list(), static_cast<int>(board)));
}

void fill_common(hcx_host *host, HCXDrvInfo *info) {
  info->drvType = 0x10;
  info->rmLevel = 3;
  info->mpLevel = 0;
  info->hbaapiLevel = 1;
  memset(info->drvName, 0, sizeof info->drvName);
  memcpy(info->drvName, "vosk", 4);
  memset(info->drvVer, 0, sizeof info->drvVer);
  hcx_host_drv_ver(host, reinterpret_cast<char *>(info->drvVer), sizeof info->drvVer);
  memset(info->ftrDrvVer, 0, sizeof info->ftrDrvVer);
  memset(info->ftrDrvName, 0, sizeof info->ftrDrvName);
  memset(info->ipDrvVer, 0, sizeof info->ipDrvVer);
  memset(info->ipDrvName, 0, sizeof info->ipDrvName);
  info->d_id = host->port.port_id;
  memcpy(info->wwpn, host->port.wwpn, sizeof info->wwpn);
  memcpy(info->wwnn, host->port.wwnn, sizeof info->wwnn);
}

void fill_hostname(HCXDrvInfo *info) {
  memset(info->hostname, 0, sizeof info->hostname);
  sysio::machine().host_name(reinterpret_cast<char *>(info->hostname), sizeof info->hostname);
}

uint64_t features(hcx_host *host, int sli_mode) {
  uint64_t list = HCX_FEATURE_BASE;
  uint8_t probe;
  if (hcx_sysfs_read_binfile(scsi_host_dir(host->id).c_str(), "vosk_stat_data_ctrl", &probe, 0, 1) == 1)
    list |= HCX_FEATURE_STATISTICS;
  if (host->info) {
    list |= host->protocol && strcmp(host->protocol, "fcoe") == 0 ? HCX_FEATURE_FCOE : HCX_FEATURE_FC;
    if (sli_mode == 4) list |= HCX_FEATURE_SLI4;
  }
  return list;
}

// One of a board's event counters; false, and logged, without the board.
bool read_counter(const char *caller, uint32_t board, uint32_t hcx_host::*counter, uint32_t *count) {
  const HostRef host = board_host(board);
  if (!host) {
    libhcx_syslog(LOG_ERROR, "%s - board %d no host", caller, board);
    return false;
  }
  *count = host.get()->*counter;
  return true;
}

}  // namespace
}  // namespace hcx

using namespace hcx;

extern "C" uint32_t HCX_GetDrvInfo(uint32_t board, HCXDrvInfo *info) {
  HCX_TRACE();
  if (!info) return kError;
  const HostRef host = known_board(board);
  if (!host) {
    HCX_LOG(LOG_ERROR, "board %d no host", board);
    return kNoBoard;
  }
  const uint8_t wanted = info->drvInfoVer;
  info->drvInfoVer = kInfoVersion;
  fill_common(host.get(), info);
  if (wanted == 2 || wanted == 3) fill_hostname(info);
  if (wanted != kInfoVersion) return kWrongVersion;
  const int sli_mode = hcx_get_sli_mode(host.get());
  info->featureList = features(host.get(), sli_mode);
  info->sliMode = static_cast<uint32_t>(sli_mode);
  fill_hostname(info);
  return kDone;
}

extern "C" uint32_t GetVPDInfo(uint32_t board, Vpd *vpdinfo) {
  HCX_TRACE();
  if (!vpdinfo || vpdinfo->version != 1) return kError;
  const HostRef host = known_board(board);
  if (!host) {
    HCX_LOG(LOG_ERROR, "board %d no host", board);
    return kVpdNoBoard;
  }
  memset(vpdinfo->ModelDescription, 0, sizeof *vpdinfo - offsetof(Vpd, ModelDescription));
  const Path dir = scsi_host_dir(host->id);
  hcx_sysfs_read_str(dir.c_str(), "modeldesc", vpdinfo->ModelDescription, sizeof vpdinfo->ModelDescription);
  hcx_sysfs_read_str(dir.c_str(), "modelname", vpdinfo->Model, sizeof vpdinfo->Model);
  hcx_sysfs_read_str(dir.c_str(), "programtype", vpdinfo->ProgramType, sizeof vpdinfo->ProgramType);
  hcx_sysfs_read_str(dir.c_str(), "portnum", vpdinfo->PortNum, sizeof vpdinfo->PortNum);
  return kDone;
}

extern "C" uint32_t HCX_GetDriverDumpRegion(uint32_t board, uint32_t identifier, uint8_t *buff,
                                            uint32_t *buff_len) {
  HCX_TRACE();
  if (!buff || !buff_len) return kError;
  const HostRef host = board_host(board);
  if (!host) {
    HCX_LOG(LOG_ERROR, "board %d no host", board);
    return kNoBoard;
  }
  const int sli_mode = hcx_get_sli_mode(host.get());
  if (sli_mode < 1) {
    HCX_LOG(LOG_ERROR, "board %d invalid sliMode %d", board, sli_mode);
    return kError;
  }
  if (sli_mode == 4) {
    HCX_LOG(LOG_ERROR, "board %d not supported", board);
    return kNotSupported;
  }
  if (identifier > 7) {
    HCX_LOG(LOG_ERROR, "board %d identifier %d invalid", board, identifier);
    return kNotSupported;
  }
  if (identifier != 0) {
    HCX_LOG(LOG_ERROR, "board %d identifier %d not supported", board, identifier);
    return kReservedRegion;
  }
  if (*buff_len > kMaxDump) {
    HCX_LOG(LOG_ERROR, "board %d buff_len %d max 256", board, *buff_len);
    *buff_len = identifier;  // applications tell by the 0 that nothing was read
    return kTooLong;
  }
  const auto got = static_cast<uint32_t>(hcx_host_ctlreg_read(host.get(), buff, 0, *buff_len));
  if (got != *buff_len) {
    HCX_LOG(LOG_ERROR, "board %d out_len %d not equal to buff_len %d", board, got, *buff_len);
    *buff_len = got;
    return kError;
  }
  return kDone;
}

extern "C" uint32_t GetIOinfo(uint32_t /*board*/, void * /*ioinfo*/) {
  HCX_TRACE();
  return kNotSupported;
}

extern "C" uint32_t GetEventsCount(uint32_t board, uint32_t *count) {
  HCX_TRACE();
  if (!count) return kError;
  if (!read_counter(__func__, board, &hcx_host::events_count, count)) return kNoBoard;
  HCX_LOG(LOG_DIAG, "board %d event count %d", board, *count);
  return kDone;
}

extern "C" uint32_t GetMissedEventsCount(uint32_t board, uint32_t *count) {
  HCX_TRACE();
  if (!count) return kError;
  if (!read_counter(__func__, board, &hcx_host::missed_events_count, count)) return kNoBoard;
  HCX_LOG(LOG_DIAG, "board %d missed event count %d", board, *count);
  return kDone;
}
