// SPDX-License-Identifier: BSD-3-Clause
// FCP commands. The kernel has no way to hand an FCP_CMND IU to an adapter, so the CDB in it is sent to the
// LUN's node, and an FCP_RSP IU is made of how it ended. What SG_IO cannot carry is refused, never sent in
// another form.
#include <algorithm>

#include "hcx_log.h"
#include "hcx_scsi_calls.h"
#include "libhcx.h"

namespace hcx {
namespace {

// FCP_CMND IU
constexpr uint32_t kTaskManagement = 10;
constexpr uint32_t kDirection = 11;  // bits 7-2: additional CDB words, bit 1: read, bit 0: write
constexpr uint32_t kCdb = 12;
constexpr uint32_t kCommandSize = 32;  // with FCP_DL, without additional CDB bytes
// FCP_RSP IU
constexpr uint32_t kResponseSize = 24;  // without sense
constexpr uint8_t kSenseValid = 0x02;
constexpr uint8_t kResidualOver = 0x04;
constexpr uint8_t kResidualUnder = 0x08;

uint32_t load_be32(const uint8_t *from) {
  return uint32_t{from[0]} << 24 | uint32_t{from[1]} << 16 | uint32_t{from[2]} << 8 | from[3];
}

// The caller's command and buffers.
struct FcpRequest {
  const uint8_t *unit;
  uint32_t unit_size;
  uint8_t *data;
  uint32_t *data_size;
  uint8_t *response;
  uint32_t *response_size;
};

// What an FCP_CMND IU asks for.
struct FcpCommand {
  uint64_t lun = 0;
  int direction = kScsiNoData;
  uint8_t cdb[kScsiMaxCdb] = {};
  size_t cdb_size = 0;
  uint32_t data_size = 0;
};

// The length that an operation code's group gives a CDB; all 16 bytes where the group does not say.
size_t cdb_length(uint8_t opcode) {
  constexpr uint8_t kByGroup[8] = {6, 10, 10, 16, 16, 12, 16, 16};
  return kByGroup[opcode >> 5];
}

uint32_t parse(const FcpRequest &request, FcpCommand &command) {
  const uint8_t *unit = request.unit;
  if (!unit || request.unit_size < kCommandSize) return kFcpBadUnit;
  if (unit[kTaskManagement] != 0) return kScsiNotSupported;
  const uint32_t additional = unit[kDirection] & 0xfcu;  // in words, from bit 2 on: the same number in bytes
  if (request.unit_size < kCommandSize + additional) return kFcpBadUnit;
  if (additional) return kScsiNotSupported;
  const bool reads = unit[kDirection] & 2;
  const bool writes = unit[kDirection] & 1;
  if (reads && writes) return kScsiNotSupported;
  command.data_size = load_be32(unit + kCdb + kScsiMaxCdb);
  const bool moves = reads || writes;
  const uint32_t room = request.data && request.data_size ? *request.data_size : 0;
  if (moves != (command.data_size != 0) || command.data_size > room) return kFcpBadUnit;
  if (!request.response || !request.response_size || *request.response_size < kResponseSize)
    return kFcpBadUnit;
  command.direction = reads ? kScsiFromDevice : writes ? kScsiToDevice : kScsiNoData;
  command.lun = lun_image(unit);
  command.cdb_size = cdb_length(unit[kCdb]);
  memcpy(command.cdb, unit + kCdb, sizeof command.cdb);
  return kScsiSent;
}

void store_response(const ScsiCommand &ended, uint8_t *response, uint32_t *response_size) {
  memset(response, 0, kResponseSize);
  response[11] = ended.status;
  if (ended.residual) {
    response[10] |= ended.residual > 0 ? kResidualUnder : kResidualOver;
    store_be32(response + 12, static_cast<uint32_t>(std::abs(static_cast<int64_t>(ended.residual))));
  }
  if (ended.sense_size) {
    response[10] |= kSenseValid;
    store_be32(response + 16, ended.sense_size);
  }
  *response_size = kResponseSize + ended.sense_size;
}

uint32_t issue(const char *caller, const char *node, FcpCommand &command, uint32_t seconds,
               const FcpRequest &request) {
  ScsiCommand scsi;
  scsi.direction = command.direction;
  if (seconds)
    scsi.timeout = static_cast<unsigned>(std::min<uint64_t>(uint64_t{seconds} * 1000, kScsiNoTimeout));
  scsi.cdb = command.cdb;
  scsi.cdb_size = command.cdb_size;
  scsi.data = command.data_size ? request.data : nullptr;
  scsi.data_size = command.data_size;
  scsi.sense = request.response + kResponseSize;  // in place: after the fixed part
  scsi.sense_size = *request.response_size - kResponseSize;
  const uint32_t result = hcx_send_bsg_scsi_cmd(node, scsi);
  if (result != kScsiSent) return result;
  if (scsi.host_status != 0) {
    // It never reached the device, so there is no response to hand out.
    libhcx_syslog(LOG_ERROR, "%s - no response from %s, host_status x%04x", caller, node, scsi.host_status);
    if (request.data_size) *request.data_size = 0;
    *request.response_size = 0;
    return kScsiFailed;
  }
  if (request.data_size) *request.data_size = scsi.data_size;
  store_response(scsi, request.response, request.response_size);
  return kScsiSent;
}

FcpRequest request_of(void *cmd_buff, uint32_t cmd_size, void *data_buff, uint32_t *data_size,
                      void *rsp_buffer, uint32_t *rsp_size) {
  return {static_cast<const uint8_t *>(cmd_buff), cmd_size, static_cast<uint8_t *>(data_buff), data_size,
          static_cast<uint8_t *>(rsp_buffer),     rsp_size};
}

}  // namespace
}  // namespace hcx

using namespace hcx;

extern "C" uint32_t SendBSGFcpCmdEx(uint32_t board, HBA_WWN *wwpn, void *cmd_buff, uint32_t cmd_size,
                                    void *data_buff, uint32_t *data_size, void *fcp_rsp_buffer,
                                    uint32_t *fcp_rsp_size, uint32_t timeout) {
  HCX_TRACE();
  const FcpRequest request =
      request_of(cmd_buff, cmd_size, data_buff, data_size, fcp_rsp_buffer, fcp_rsp_size);
  FcpCommand command;
  const uint32_t parsed = parse(request, command);
  if (parsed != kScsiSent) {
    HCX_LOG(LOG_ERROR, "board %d FCP command refused with %d", board, parsed);
    return parsed;
  }
  LunNode node;
  const uint32_t found = find_board_lun(__func__, board, wwpn, command.lun, node);
  if (found != kScsiSent) return found;
  return issue(__func__, node.c_str(), command, timeout, request);
}

extern "C" uint32_t SendFcpCmdEx(uint32_t board, HBA_WWN *wwpn, void *cmd_buff, uint32_t cmd_size,
                                 void *data_buff, uint32_t *data_size, void *fcp_rsp_buffer,
                                 uint32_t *fcp_rsp_size, uint32_t timeout) {
  HCX_TRACE();
  return SendBSGFcpCmdEx(board, wwpn, cmd_buff, cmd_size, data_buff, data_size, fcp_rsp_buffer, fcp_rsp_size,
                         timeout);
}

extern "C" uint32_t SendFcpCmd(uint32_t board, HBA_WWN *wwpn, void *cmd_buff, uint32_t cmd_size,
                               void *data_buff, uint32_t *data_size, void *fcp_rsp_buffer,
                               uint32_t *fcp_rsp_size) {
  HCX_TRACE();
  return SendFcpCmdEx(board, wwpn, cmd_buff, cmd_size, data_buff, data_size, fcp_rsp_buffer, fcp_rsp_size, 0);
}

extern "C" uint32_t HCX_SendFcpCmd(uint32_t board, HBA_WWN *lwwpn, HBA_WWN *rwwpn, void *cmd_buff,
                                   uint32_t cmd_size, void *data_buff, uint32_t *data_size,
                                   void *fcp_rsp_buffer, uint32_t *fcp_rsp_size) {
  HCX_TRACE();
  const FcpRequest request =
      request_of(cmd_buff, cmd_size, data_buff, data_size, fcp_rsp_buffer, fcp_rsp_size);
  FcpCommand command;
  const uint32_t parsed = parse(request, command);
  if (parsed != kScsiSent) {
    HCX_LOG(LOG_ERROR, "board %d FCP command refused with %d", board, parsed);
    return parsed;
  }
  Path node;
  const uint32_t found = find_node(__func__, lwwpn, rwwpn, command.lun, node);
  if (found != kScsiSent) return found;
  return issue(__func__, node.c_str(), command, 0, request);
}
