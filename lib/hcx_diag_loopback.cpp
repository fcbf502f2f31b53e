// SPDX-License-Identifier: BSD-3-Clause
// Link loopback: set-up, test, end. The bridge chip's share of it is in hcx_diag_tibra.cpp.
//
// The loopback itself is state of the adapter; the library keeps none. Any thread may call. Requests look the
// board up and rescan it, so no host lock is held while one is sent.
#include <fcntl.h>

#include <climits>
#include <cstdint>

#include "hcx_diag_tibra.h"
#include "libhcx.h"

namespace hcx {
namespace {

enum loopback_type : uint32_t { LOOPBACK_INTERNAL = 1, LOOPBACK_EXTERNAL = 2 };

// What these calls need to know of a board, taken under its lock so that a rescan cannot pull it away.
struct Board {
  bool present = false;
  uint32_t host_no = 0;
  int sli_mode = -1;
  Text<PATH_MAX> pci_dev;
};

Board describe(HostRef host) {
  Board out;
  if (!host) return out;
  out.present = true;
  out.host_no = host->id;
  out.sli_mode = hcx_get_sli_mode(host.get());
  if (host->pci_dev) out.pci_dev = Text<PATH_MAX>("%s", host->pci_dev);
  return out;
}

bool behind_bridge(const Board &board) {
  return (hcx_sysfs_read_hexuint32(board.pci_dev.c_str(), "device") & 0xffff) == TIBRA_DEVICE_ID;
}

}  // namespace
}  // namespace hcx

uint32_t HCX_ConfigLoopback(uint32_t board, uint32_t type, uint32_t timeout) {
  HCX_TRACE();
  hcx::Board found = hcx::describe(hcx::board_host(board));
  if (!found.present || found.pci_dev.empty()) {
    HCX_LOG(LOG_ERROR, "no host on board %d", board);
    return 1;
  }
  if (found.sli_mode < 1) {
    HCX_LOG(LOG_ERROR, "board %d sli %d invalid", board, found.sli_mode);
    return 1;
  }
  switch (type) {
    case hcx::LOOPBACK_INTERNAL:
      found = hcx::describe(hcx::board_host(board));
      if (!found.present || found.pci_dev.empty()) {
        HCX_LOG(LOG_ERROR, "board %d invalid inside switch", board);
        return 1;
      }
      if (hcx::behind_bridge(found) && ConfigTibraLoopback(board, found.pci_dev.data()) != 0) {
        HCX_LOG(LOG_ERROR, "board %d talpid not supported", board);
        return 1;
      }
      break;
    case hcx::LOOPBACK_EXTERNAL:
      break;
    default:
      HCX_LOG(LOG_ERROR, "board %d type %d invalid", board, type);
      return 3;
  }
  return static_cast<uint32_t>(send_bsg_config_loopback(board, type, timeout));
}

uint32_t HCX_RunLoopbackTest(uint32_t board, Loopback *pLoopback) {
  HCX_TRACE();
  int protocol = -1;
  {
    hcx::HostRef host = hcx::board_host(board);
    if (!host) {
      HCX_LOG(LOG_ERROR, "no host on board %d", board);
      return 1;
    }
    const int sli_mode = hcx_get_sli_mode(host.get());
    if (sli_mode < 1) {
      HCX_LOG(LOG_ERROR, "board %d sli %d invalid", board, sli_mode);
      return 1;
    }
    protocol = hcx_get_protocol_mode(host.get());
  }
  if (protocol != hcx::PROTOCOL_FC) {
    HCX_LOG(LOG_ERROR, "board %d protocol %d not supported", board, protocol);
    return 2;
  }
  if (!pLoopback ||
      send_bsg_test_loopback(board, pLoopback->bufSize, pLoopback->XmitBuffer, pLoopback->RcvBuffer) != 0) {
    HCX_LOG(LOG_ERROR, "board %d bsg loopback failed", board);
    return 1;
  }
  return 0;
}

uint32_t HCX_EndLoopback(uint32_t board) {
  HCX_TRACE();
  hcx::Board found = hcx::describe(hcx::board_host(board));
  // A rescan that read only a part leaves gaps until the next one. Leaving loopback is worth another look.
  if (found.present && (found.pci_dev.empty() || found.sli_mode < 1))
    found = hcx::describe(hcx::rescan(hcx::board_host(board)));
  if (!found.present || found.pci_dev.empty()) {
    HCX_LOG(LOG_ERROR, "no host on board %d", board);
    return 1;
  }
  if (found.sli_mode < 1) {
    HCX_LOG(LOG_ERROR, "board %d sli %d invalid", board, found.sli_mode);
    return 1;
  }
  if (found.sli_mode == 4) return static_cast<uint32_t>(send_bsg_sli4_endloopback(board));

  if (hcx::behind_bridge(found)) unConfigTibraLoopback(board);
  const hcx::Path path("/sys/class/fc_host/host%d/issue_lip", static_cast<int>(found.host_no));
  HCX_LOG_PATH(path.c_str());
  hcx::Fd lip(hcx::sysio::machine().open(path.c_str(), O_WRONLY | O_TRUNC));
  if (!lip.ok()) {
    HCX_LOG(LOG_ERROR, "board %d could not open %s", board, path.c_str());
    return 1;
  }
  // The reset takes the adapter out of loopback; whether it came back shows in its link state.
  hcx::sysio::machine().write(lip.get(), "1\n", 2);
  return 0;
}
