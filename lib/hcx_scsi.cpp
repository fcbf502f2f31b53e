// SPDX-License-Identifier: BSD-3-Clause
// SCSI transport: one command through a node with SG_IO, and the way from a board, a port name and a LUN to
// its node. Every command opens and closes a descriptor of its own; host locks are held for the look-up only.
//
// The event signal is kept away from the thread from open to close: the node waits interruptibly, and a
// command that was cut short goes on in the device - or, were it started again, would be carried out twice.
#include "hcx_scsi.h"

#include <scsi/sg.h>
#include <sys/types.h>

#include <algorithm>

#include "hcx_log.h"
#include "hcx_signal.h"
#include "hcx_sysio.h"
#include "libhcx.h"

namespace hcx {
namespace {

static_assert(SG_IO == 0x2285);

sg_io_hdr sg_header(const ScsiCommand &command) {
  sg_io_hdr header = {};
  header.interface_id = 'S';
  header.dxfer_direction = command.direction;
  header.cmd_len = static_cast<unsigned char>(command.cdb_size);
  header.mx_sb_len =
      static_cast<unsigned char>(command.sense ? std::min(command.sense_size, kScsiMaxSense) : 0);
  header.dxfer_len = command.data_size;
  header.dxferp = command.data;
  header.cmdp = command.cdb;
  header.sbp = command.sense;
  header.timeout = command.timeout;
  return header;
}

// A residual may be negative, and is the device's to say.
void take_result(const sg_io_hdr &header, ScsiCommand &command) {
  const int64_t moved = static_cast<int64_t>(command.data_size) - header.resid;
  command.data_size = static_cast<uint32_t>(std::clamp<int64_t>(moved, 0, command.data_size));
  command.sense_size = std::min(header.sb_len_wr, header.mx_sb_len);
  command.status = header.status;
  command.host_status = header.host_status;
  command.residual = header.resid;
}

// Four 16-bit levels, the first at the front, to the number that Linux makes of them.
uint64_t linux_lun(uint64_t image) {
  uint8_t bytes[8];
  memcpy(bytes, &image, sizeof bytes);
  uint64_t lun = 0;
  for (int level = 0; level < 4; ++level)
    lun |= uint64_t{static_cast<uint16_t>(bytes[2 * level] << 8 | bytes[2 * level + 1])} << (16 * level);
  return lun;
}

}  // namespace

uint32_t hcx_send_bsg_scsi_cmd(const char *file_name, ScsiCommand &command) {
  HCX_TRACE();
  if (!file_name) {
    HCX_LOG(LOG_ERROR, "file name is NULL");
    return kScsiNoNode;
  }
  if (command.cdb_size > kScsiMaxCdb) {
    HCX_LOG(LOG_ERROR, "command size %d > 16", static_cast<int>(command.cdb_size));
    return kScsiFailed;
  }
  if (!command.cdb || (!command.data && command.data_size)) {
    HCX_LOG(LOG_ERROR, "no buffer for the command to %s", file_name);
    return kScsiFailed;
  }
  sg_io_hdr header = sg_header(command);
  const EventSignalBlock no_events;
  HCX_LOG_PATH(file_name);
  Fd node(sysio::machine().open(file_name, O_RDWR));
  if (!node.ok()) {
    HCX_LOG(LOG_ERROR, "open failed for %s", file_name);
    return kScsiFailed;
  }
  if (sysio::machine().ioctl(node.get(), SG_IO, &header) < 0) {
    node.reset();
    HCX_LOG(LOG_ERROR, "ioctl failed driver_status x%08x", header.driver_status);
    return kScsiFailed;
  }
  node.reset();
  take_result(header, command);
  HCX_LOG(LOG_BSG, "ioctl ok, sense_size %d data_size %d", command.sense_size, command.data_size);
  return kScsiSent;
}

hcx_lun *hcx_search_lun(uint32_t board, const HBA_WWN *rwwpn, uint64_t lun_id, HostRef &held) {
  HCX_TRACE();
  if (!rwwpn) return nullptr;
  held = board_host(board);
  if (!held) {
    HCX_LOG(LOG_ERROR, "no host on board %d", board);
    return nullptr;
  }
  const hcx_port *port = hcx_port_find_by_wwpn(held->port_list, rwwpn->wwn);
  if (!port) {
    held.drop();
    HCX_LOG(LOG_ERROR, "no port on board %d rwwpn x%02x%02x%02x%02x%02x%02x%02x%02x", board,
            HCX_WWN_ARGS(rwwpn));
    return nullptr;
  }
  hcx_lun *lun = hcx_lun_find_by_id(port->lun_list, linux_lun(lun_id));
  if (!lun) {
    held.drop();
    HCX_LOG(LOG_ERROR, "no lun on board %d rwwpn x%02x%02x%02x%02x%02x%02x%02x%02x", board,
            HCX_WWN_ARGS(rwwpn));
  }
  return lun;
}

LunNode node_of(hcx_lun *lun) {
  LunNode node;
  const char *name = hcx_lun_to_file_name(lun);
  if (name) {
    node.has_name = true;
    node.name.assign(name);
  }
  return node;
}

uint32_t find_board_lun(const char *caller, uint32_t board, const HBA_WWN *wwpn, uint64_t lun_id,
                        LunNode &node) {
  if (!wwpn) {
    libhcx_syslog(LOG_ERROR, "%s - no port name for board %d", caller, board);
    return kScsiFailed;
  }
  HostRef held;
  hcx_lun *lun = hcx_search_lun(board, wwpn, lun_id, held);
  if (!lun) {
    // The image as a big-endian number, so that the text is the same on every processor.
    uint8_t image[8];
    memcpy(image, &lun_id, sizeof image);
    libhcx_syslog(LOG_ERROR, "%s - lun_id %ld not found on board %d wwpn x%02x%02x%02x%02x%02x%02x%02x%02x",
                  caller, static_cast<long>(wwn_load(image)), board, HCX_WWN_ARGS(wwpn));
    return kScsiFailed;
  }
  node = node_of(lun);
  return kScsiSent;
}

uint32_t find_target(const char *caller, HBA_WWN *lwwpn, HBA_WWN *rwwpn, ScsiTarget &target) {
  if (!lwwpn || !rwwpn) {
    libhcx_syslog(LOG_ERROR, "%s - no %s port name", caller, lwwpn ? "remote" : "local");
    return kScsiFailed;
  }
  target.host_id = hcx_get_host_id(lwwpn);
  if (target.host_id < 0) {
    libhcx_syslog(LOG_ERROR, "%s - no host on lwwpn x%02x%02x%02x%02x%02x%02x%02x%02x", caller,
                  HCX_WWN_ARGS(lwwpn));
    return kScsiNoPort;
  }
  target.target_id = hcx_get_target_id(static_cast<uint32_t>(target.host_id), rwwpn);
  if (target.target_id < 0) {
    libhcx_syslog(LOG_ERROR, "%s - no target_is on host_id %d rwwpn x%02x%02x%02x%02x%02x%02x%02x%02x",
                  caller, target.host_id, HCX_WWN_ARGS(rwwpn));
    return kScsiNoPort;
  }
  return kScsiSent;
}

uint32_t find_node(const char *caller, HBA_WWN *lwwpn, HBA_WWN *rwwpn, uint64_t lun_id, Path &node) {
  ScsiTarget target;
  const uint32_t found = find_target(caller, lwwpn, rwwpn, target);
  if (found != kScsiSent) return found;
  if (hcx_get_lun_file_name(static_cast<uint32_t>(target.host_id), static_cast<uint32_t>(target.target_id),
                            lun_id, node.data()) == 0)
    return kScsiSent;
  libhcx_syslog(LOG_ERROR, "%s - get lun file name failed on host_id %d target_id %d", caller, target.host_id,
                target.target_id);
  return kScsiFailed;
}

uint32_t send_cdb(const char *node, int direction, uint8_t *cdb, size_t cdb_size,
                  const ScsiBuffers &buffers) {
  return hcx_send_scsi_cmd(node, direction, kScsiNoTimeout, cdb, cdb_size,
                           static_cast<uint8_t *>(buffers.data), buffers.data_size,
                           static_cast<uint8_t *>(buffers.sense), buffers.sense_size);
}

}  // namespace hcx

using namespace hcx;

extern "C" uint32_t hcx_send_bsg_scsi_cmd(const char *file_name, int data_dir, unsigned timeout,
                                          uint8_t *cmd_blk, size_t cmd_size, uint8_t *data_buff,
                                          uint32_t *data_size, uint8_t *sense_buff, uint32_t *sense_size) {
  ScsiCommand command;
  command.direction = data_dir;
  command.timeout = timeout;
  command.cdb = cmd_blk;
  command.cdb_size = cmd_size;
  command.data = data_buff;
  command.data_size = data_size ? *data_size : 0;
  command.sense = sense_buff;
  command.sense_size = sense_size ? *sense_size : 0;
  const uint32_t result = hcx::hcx_send_bsg_scsi_cmd(file_name, command);
  if (result != kScsiSent) return result;
  if (sense_size) *sense_size = command.sense_size;
  if (data_size) *data_size = command.data_size;
  return kScsiSent;
}

extern "C" uint32_t hcx_send_scsi_cmd(const char *file_name, int data_dir, unsigned timeout, uint8_t *cmd_blk,
                                      size_t cmd_size, uint8_t *data_buff, uint32_t *data_size,
                                      uint8_t *sense_buff, uint32_t *sense_size) {
  HCX_TRACE();
  return hcx_send_bsg_scsi_cmd(file_name, data_dir, timeout, cmd_blk, cmd_size, data_buff, data_size,
                               sense_buff, sense_size);
}

extern "C" hcx_lun *hcx_search_lun(uint32_t board, HBA_WWN *rwwpn, uint64_t lun_id) {
  HostRef held;
  return hcx::hcx_search_lun(board, rwwpn, lun_id, held);
}

extern "C" char *hcx_lun_to_file_name(hcx_lun *lun) {
  HCX_TRACE();
  if (!lun) return nullptr;
  return lun->generic_scsi_dev ? lun->generic_scsi_dev : lun->block_dev;
}
