// SPDX-License-Identifier: BSD-3-Clause
// SCSI commands to a LUN given by board and remote port name. The CDBs of the by-name calls are built here
// too.
#include "hcx_scsi_calls.h"

#include "hcx_log.h"
#include "libhcx.h"

namespace hcx {
namespace {

constexpr uint32_t kMaxInquiry = 65535;
constexpr uint32_t kBlockSize = 512;
constexpr uint32_t kMaxTransfer = 65535 * kBlockSize;

uint32_t transfer(const char *caller, uint8_t opcode, int direction, uint32_t board, const HBA_WWN *wwpn,
                  uint64_t lun_id, uint32_t sector, const ScsiBuffers &buffers) {
  LunNode node;
  const uint32_t found = find_board_lun(caller, board, wwpn, lun_id, node);
  if (found != kScsiSent) return found;
  const uint32_t size = buffers.data_size ? *buffers.data_size : 0;
  if (size > kMaxTransfer) {
    libhcx_syslog(LOG_ERROR, "%s - data_size %d greater than %d", caller, size, kMaxTransfer);
    return kScsiFailed;
  }
  uint8_t cdb[10] = {opcode};
  store_be32(&cdb[2], sector);
  store_be16(&cdb[7], static_cast<uint16_t>(size / kBlockSize));
  return send_cdb(node.c_str(), direction, cdb, sizeof cdb, buffers);
}

// The inventory's LUNs as REPORT LUNS data. False when the board or the port is gone.
bool build_from_inventory(const char *caller, uint32_t board, const HBA_WWN *wwpn,
                          const ScsiBuffers &buffers) {
  const HostRef host = board_host(board);
  if (!host) {
    libhcx_syslog(LOG_ERROR, "%s - no host on board %d", caller, board);
    return false;
  }
  const hcx_port *port = hcx_port_find_by_wwpn(host->port_list, wwpn->wwn);
  if (!port) {
    libhcx_syslog(LOG_ERROR, "%s - no port on board %d wwpn x%02x%02x%02x%02x%02x%02x%02x%02x", caller, board,
                  HCX_WWN_ARGS(wwpn));
    return false;
  }
  // Room for a header alone would read as "no LUNs".
  if (buffers.room() < 2 * kReportLunsEntry) {
    buffers.report(0, 0);
    return true;
  }
  ReportLunsBuilder answer(buffers);
  for (const hcx_lun *lun = port->lun_list; lun && answer.add(lun->id);)
    lun = lun->next;
  answer.finish();
  return true;
}

}  // namespace

uint32_t send_read_capacity(const char *node, const ScsiBuffers &buffers) {
  uint8_t cdb[10] = {0x25};
  return send_cdb(node, kScsiFromDevice, cdb, sizeof cdb, buffers);
}

uint32_t send_report_luns(const char *node, const ScsiBuffers &buffers) {
  uint8_t cdb[12] = {0xa0};
  store_be32(&cdb[6], buffers.data_size ? *buffers.data_size : 0);
  return send_cdb(node, kScsiFromDevice, cdb, sizeof cdb, buffers);
}

ReportLunsBuilder::ReportLunsBuilder(const ScsiBuffers &buffers)
    : buffers_(buffers), bytes_(static_cast<uint8_t *>(buffers.data)), room_(buffers.room()) {
  memset(bytes_, 0, room_);
}

bool ReportLunsBuilder::add(uint64_t lun) {
  if (room_ - offset_ < kReportLunsEntry) return false;
  store_be32(bytes_ + offset_, static_cast<uint32_t>(lun << 16));
  offset_ += kReportLunsEntry;
  return true;
}

void ReportLunsBuilder::finish() {
  store_be32(bytes_, offset_ - kReportLunsEntry);
  buffers_.report(offset_, 0);
}

}  // namespace hcx

using namespace hcx;

extern "C" uint32_t hcx_send_scsi_inq(const char *file_name, int evpd, unsigned page, uint8_t *data_buff,
                                      uint32_t *data_size, uint8_t *sense_buff, uint32_t *sense_size) {
  HCX_TRACE();
  const uint32_t size = data_size ? *data_size : 0;
  if (size > kMaxInquiry) {
    HCX_LOG(LOG_ERROR, "data_size %d greater than %d", size, kMaxInquiry);
    return kScsiFailed;
  }
  uint8_t cdb[6] = {0x12, static_cast<uint8_t>(evpd ? 1 : 0), static_cast<uint8_t>(page)};
  store_be16(&cdb[3], static_cast<uint16_t>(size));
  return send_cdb(file_name, kScsiFromDevice, cdb, sizeof cdb,
                  {data_buff, data_size, sense_buff, sense_size});
}

extern "C" uint32_t SendScsiInquiry(uint32_t board, HBA_WWN *wwpn, uint64_t lun_id, uint8_t evpd,
                                    uint32_t pagecode, void *data_buff, uint32_t *data_size, void *sense_buff,
                                    uint32_t *sense_size) {
  HCX_TRACE();
  LunNode node;
  const uint32_t found = find_board_lun(__func__, board, wwpn, lun_id, node);
  if (found != kScsiSent) return found;
  return hcx_send_scsi_inq(node.c_str(), evpd, pagecode, static_cast<uint8_t *>(data_buff), data_size,
                           static_cast<uint8_t *>(sense_buff), sense_size);
}

extern "C" uint32_t SendReadCapacity(uint32_t board, HBA_WWN *wwpn, uint64_t lun_id, void *data_buff,
                                     uint32_t *data_size, void *sense_buff, uint32_t *sense_size) {
  HCX_TRACE();
  LunNode node;
  const uint32_t found = find_board_lun(__func__, board, wwpn, lun_id, node);
  if (found != kScsiSent) return found;
  return send_read_capacity(node.c_str(), {data_buff, data_size, sense_buff, sense_size});
}

extern "C" uint32_t SendReportLUNs(uint32_t board, HBA_WWN *wwpn, void *data_buff, uint32_t *data_size,
                                   void *sense_buff, uint32_t *sense_size) {
  HCX_TRACE();
  if (!wwpn) {
    HCX_LOG(LOG_ERROR, "no port name for board %d", board);
    return kScsiFailed;
  }
  const ScsiBuffers buffers = {data_buff, data_size, sense_buff, sense_size};
  HostRef held;
  if (hcx_lun *lun = hcx::hcx_search_lun(board, wwpn, 0, held)) {
    const LunNode node = node_of(lun);
    held.drop();
    return send_report_luns(node.c_str(), buffers);
  }
  if (buffers.room() < kReportLunsEntry) {
    HCX_LOG(LOG_ERROR, "data_size %d less than %d", buffers.room(), kReportLunsEntry);
    return kScsiFailed;
  }
  return build_from_inventory(__func__, board, wwpn, buffers) ? kScsiSent : kScsiFailed;
}

extern "C" uint32_t SendScsiRead(uint32_t board, HBA_WWN *wwpn, uint64_t lun_id, uint32_t sector,
                                 void *data_buff, uint32_t *data_size, void *sense_buff,
                                 uint32_t *sense_size) {
  HCX_TRACE();
  return transfer(__func__, 0x28, kScsiFromDevice, board, wwpn, lun_id, sector,
                  {data_buff, data_size, sense_buff, sense_size});
}

extern "C" uint32_t SendScsiWrite(uint32_t board, HBA_WWN *wwpn, uint64_t lun_id, uint32_t sector,
                                  void *data_buff, uint32_t *data_size, void *sense_buff,
                                  uint32_t *sense_size) {
  HCX_TRACE();
  return transfer(__func__, 0x2a, kScsiToDevice, board, wwpn, lun_id, sector,
                  {data_buff, data_size, sense_buff, sense_size});
}

extern "C" uint32_t SendScsiCDB(uint32_t board, HBA_WWN *wwpn, uint64_t lun_id, uint32_t opcode,
                                void *data_buff, uint32_t *data_size, void *sense_buff,
                                uint32_t *sense_size) {
  HCX_TRACE();
  LunNode node;
  const uint32_t found = find_board_lun(__func__, board, wwpn, lun_id, node);
  if (found != kScsiSent) return found;
  uint8_t cdb[16] = {static_cast<uint8_t>(opcode)};
  return send_cdb(node.c_str(), kScsiFromDevice, cdb, sizeof cdb,
                  {data_buff, data_size, sense_buff, sense_size});
}
