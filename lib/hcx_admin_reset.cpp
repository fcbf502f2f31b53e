// SPDX-License-Identifier: BSD-3-Clause
// Adapter reset and board mode: two driver attributes of the host directory, "board_mode" and "issue_reset".
//
// No state. Any thread may call; the driver orders requests to one board. A reset makes the link bounce, and
// the events of that bounce rescan the host, so no host lock is held while the request is written.
#include <errno.h>

#include <cstdint>

#include "libhcx.h"

namespace hcx {
namespace {

enum reset_type : uint32_t { RESET_SELECTIVE = 1, RESET_COORDINATED = 2, RESET_FW = 3 };

// What hcx_sysfs_write_str() gives for an attribute that could not be opened or is not offered.
constexpr int WRITE_NOT_OPENED = 2;

// Directory of the board's driver attributes; empty when start-up gave no host this number. Starts no scan.
Path numbered_host_dir(uint32_t board) {
  if (board > INT32_MAX) return Path();
  HostRef host(hcx_host_find_by_idx(hcx::host_list(), static_cast<int>(board)));
  return host ? scsi_host_dir(host->id) : Path();
}

}  // namespace
}  // namespace hcx

using hcx::Line;
using hcx::Path;

uint32_t HCX_ResetAdapter(uint32_t board, uint32_t type) {
  HCX_TRACE();
  const Path dir = hcx::numbered_host_dir(board);
  if (dir.empty()) {
    HCX_LOG(LOG_ERROR, "no host for board %d", board);
    return 1;
  }
  char word[32];
  if (enum2str(word, sizeof word, type, hcx::reset_type_names) <= 0) {
    HCX_LOG(LOG_ERROR, "invalid reset type %d", type);
    return 4;
  }

  if (type == hcx::RESET_FW) {
    switch (hcx_sysfs_write_str(dir.c_str(), "board_mode", word)) {
      case 0:
        return 0;
      case hcx::WRITE_NOT_OPENED:
        HCX_LOG(LOG_ERROR, "board %d reset type:%d failed due to not able to open sysfs file handler\n",
                board, type);
        return 1;
      case EACCES:
        HCX_LOG(LOG_ERROR, "board %d reset type:%d failed due to driver hba reset enable turned off\n", board,
                type);
        return 1;
      case EPERM:
        HCX_LOG(LOG_ERROR, "board %d reset type:%d reset not supported, fall back to selective reset\n",
                board, type);
        break;
      default:
        HCX_LOG(LOG_ERROR, "board %d reset type:%d reset failed\n", board, type);
        return 1;
    }
    type = hcx::RESET_SELECTIVE;
    enum2str(word, sizeof word, type, hcx::reset_type_names);
  }

  const int rc = hcx_sysfs_write_str(dir.c_str(), "issue_reset", word);
  if (rc == EACCES) {
    HCX_LOG(LOG_ERROR, "board %d reset type:%d failed due to driver hba reset enable turned off\n", board,
            type);
    return 1;
  }
  if (rc != 0 && type == hcx::RESET_COORDINATED) {
    if (hcx_sysfs_write_str(dir.c_str(), "issue_reset", "selective") == 0)
      HCX_LOG(LOG_ADMIN, "board %d fall back to selective reset success", board);
    else
      HCX_LOG(LOG_ERROR, "board %d fall back to selective reset failed", board);
  }
  // A refusal other than EACCES ends here too: what became of the request shows in the adapter's later state.
  HCX_LOG(LOG_ADMIN, "board %d issue reset %s success", board, word);
  return 0;
}

uint32_t SetBrdEnv(uint32_t board, uint32_t flag) {
  HCX_TRACE();
  const Path dir = hcx::numbered_host_dir(board);
  if (dir.empty()) {
    HCX_LOG(LOG_ERROR, "host not found for board %d", board);
    return 0;
  }
  if (flag != DDI_SHOW) {
    char word[32];
    if (enum2str(word, sizeof word, flag, hcx::board_mode_names) <= 0) {
      HCX_LOG(LOG_ERROR, "flag %d out of range on board %d", flag, board);
      return 0;
    }
    const int rc = hcx_sysfs_write_str(dir.c_str(), "board_mode", word);
    if (rc == 0) return flag;
    if (flag == DDI_FWDUMPDI) {
      HCX_LOG(LOG_ERROR, "forced firmware dump on board %d failed: rc:%d\n", board, rc);
      return 0;
    }
  }
  Line mode;
  hcx_sysfs_read_str(dir.c_str(), "board_mode", mode.data(), mode.size());
  return str2enum(mode.c_str(), hcx::board_mode_names);
}

uint32_t SetDiagEnv(uint32_t flag) {
  HCX_TRACE();
  uint32_t result = 0;
  for (uint32_t board = 0; board < hcx_host_count; ++board) {
    result = SetBrdEnv(board, flag);
    if (result == 0) break;
  }
  return result;
}

uint32_t HCX_SetDumpEnv(uint32_t board, uint32_t flag) {
  HCX_TRACE();
  if (!hcx::board_host(board)) {
    HCX_LOG(LOG_ERROR, "host not found for board %d", board);
    return 1;
  }
  const uint32_t mode = SetBrdEnv(board, flag == DDI_OFFDI ? static_cast<uint32_t>(DDI_DIAGDI) : flag);
  return mode == DDI_DIAGDI ? static_cast<uint32_t>(DDI_OFFDI) : mode;
}
