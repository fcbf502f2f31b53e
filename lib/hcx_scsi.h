// SPDX-License-Identifier: BSD-3-Clause
// One SCSI command through a node, and the ways from names to a LUN's node. Shared by the SCSI and the FCP
// calls. Routines that log for an exported call take its name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "hcx_guard.h"
#include "hcx_text.h"
#include "libhcx_api.h"

// The eight arguments of "%02x%02x%02x%02x%02x%02x%02x%02x".
#define HCX_WWN_ARGS(name)                                                                        \
  (name)->wwn[0], (name)->wwn[1], (name)->wwn[2], (name)->wwn[3], (name)->wwn[4], (name)->wwn[5], \
      (name)->wwn[6], (name)->wwn[7]

namespace hcx {

// Results of the SCSI and FCP calls.
constexpr uint32_t kScsiSent = 0;
constexpr uint32_t kScsiFailed = 1;
constexpr uint32_t kScsiNotSupported = 2;
constexpr uint32_t kScsiNoNode = 3;
constexpr uint32_t kScsiNoPort = 4;
constexpr uint32_t kFcpBadUnit = 4;

constexpr int kScsiNoData = -1;
constexpr int kScsiToDevice = -2;
constexpr int kScsiFromDevice = -3;
constexpr unsigned kScsiNoTimeout = 0xffffffff;
constexpr size_t kScsiMaxCdb = 16;
constexpr uint32_t kScsiMaxSense = 255;

// A command and how it ended. Buffers belong to the caller.
struct ScsiCommand {
  int direction = kScsiFromDevice;
  unsigned timeout = kScsiNoTimeout;  // milliseconds
  uint8_t *cdb = nullptr;
  size_t cdb_size = 0;
  uint8_t *data = nullptr;
  uint32_t data_size = 0;  // in: room, out: transferred
  uint8_t *sense = nullptr;
  uint32_t sense_size = 0;  // in: room, out: written
  // Set when the command was sent.
  uint8_t status = 0;
  uint16_t host_status = 0;
  int32_t residual = 0;
};

// Opens the node, sends the command, closes the node: kScsiSent, kScsiFailed or kScsiNoNode.
uint32_t hcx_send_bsg_scsi_cmd(const char *file_name, ScsiCommand &command);

// A caller's buffers as the exported calls take them.
struct ScsiBuffers {
  void *data;
  uint32_t *data_size;
  void *sense;
  uint32_t *sense_size;

  uint32_t room() const { return data && data_size ? *data_size : 0; }
  void report(uint32_t data_used, uint32_t sense_used) const {
    if (data_size) *data_size = data_used;
    if (sense_size) *sense_size = sense_used;
  }
};

// Sends a CDB without time limit.
uint32_t send_cdb(const char *node, int direction, uint8_t *cdb, size_t cdb_size, const ScsiBuffers &buffers);

// The inventory's record. Its host stays locked in `held`, so that its texts may be read.
hcx_lun *hcx_search_lun(uint32_t board, const HBA_WWN *rwwpn, uint64_t lun_id, HostRef &held);

// A copy of the node's name, made while the record is locked.
struct LunNode {
  bool has_name = false;
  Path name;
  const char *c_str() const { return has_name ? name.c_str() : nullptr; }
};
LunNode node_of(hcx_lun *lun);

// kScsiSent with the node (which may have no name), or kScsiFailed after a log line of `caller`.
uint32_t find_board_lun(const char *caller, uint32_t board, const HBA_WWN *wwpn, uint64_t lun_id,
                        LunNode &node);

// Where a remote port is found below a local one: kScsiSent, or kScsiNoPort after a log line of `caller`.
struct ScsiTarget {
  int host_id = -1;
  int target_id = -1;
};
uint32_t find_target(const char *caller, HBA_WWN *lwwpn, HBA_WWN *rwwpn, ScsiTarget &target);

// The node of a LUN below it: kScsiSent, kScsiNoPort or kScsiFailed, these after a log line of `caller`.
uint32_t find_node(const char *caller, HBA_WWN *lwwpn, HBA_WWN *rwwpn, uint64_t lun_id, Path &node);

// 8-byte images, most significant byte first in memory.
inline uint64_t lun_image(const uint8_t bytes[8]) {
  uint64_t image;
  memcpy(&image, bytes, sizeof image);
  return image;
}

}  // namespace hcx
