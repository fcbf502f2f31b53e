// SPDX-License-Identifier: BSD-3-Clause
// Requests to the fabric (CT, RNID) and SCSI commands to targets. The SCSI commands go as FCP commands, whose response
// has the SCSI status that the callers of the wrapper want to see.
#include <algorithm>
#include <cstring>

#include "libhcx_api.h"
#include "vendor.h"

namespace hcx_hbaapi {
namespace {

constexpr HBA_UINT32 kGeneralTopology = 0xdf;  // RNID data format
constexpr HBA_UINT8 kGood = 0x00, kCheckCondition = 0x02, kBusy = 0x08, kTaskSetFull = 0x28;
constexpr HBA_UINT32 kCapacitySize = 8;
constexpr HBA_UINT32 kMaxSense = 252;

// Where the caller wants what comes back.
struct Reply {
  void *data;
  HBA_UINT32 *data_size;
  HBA_UINT8 *status;
  void *sense;
  HBA_UINT32 *sense_size;

  [[nodiscard]] bool complete() const {
    return data && data_size && *data_size != 0 && status && (sense || !sense_size || *sense_size == 0);
  }
};

HBA_STATUS ended(HBA_UINT8 status) {
  switch (status) {
    case kGood:
      return HBA_STATUS_OK;
    case kCheckCondition:
      return HBA_STATUS_SCSI_CHECK_CONDITION;
    case kBusy:
    case kTaskSetFull:
      return HBA_STATUS_ERROR_TRY_AGAIN;
    default:
      return HBA_STATUS_ERROR;
  }
}

// libhcx does not say what it did not find.
HBA_STATUS not_sent(uint32_t board, HBA_WWN *remote, HBA_UINT64 lun) {
  HBA_PORTATTRIBUTES port;
  if (GetPortAttributesByWWN(board, *remote, &port) != HBA_STATUS_OK) return HBA_STATUS_ERROR_ILLEGAL_WWN;
  if (!hcx_search_lun(board, remote, static_cast<uint64_t>(lun))) return HBA_STATUS_ERROR_INVALID_LUN;
  return HBA_STATUS_ERROR;
}

// FCP_CMND: LUN, flags, CDB, length; FCP_RSP: status in byte 11, length of the sense in bytes 16 to 19, sense behind
// the fixed part (FCP-4).
HBA_STATUS read_command(const Board &board, HBA_WWN remote, HBA_UINT64 lun, const uint8_t (&cdb)[10],
                        HBA_UINT32 length, const Reply &reply) {
  constexpr size_t kResponse = 24;
  uint8_t command[32] = {};
  uint8_t response[kResponse + kMaxSense];
  memcpy(command, &lun, sizeof lun);
  command[11] = 0x02;  // reads
  memcpy(command + 12, cdb, sizeof cdb);
  for (unsigned i = 0; i < 4; ++i)
    command[28 + i] = static_cast<uint8_t>(length >> (24 - 8 * i));
  uint32_t response_size = sizeof response;
  uint32_t received = length;
  const uint32_t result = SendFcpCmd(board.number(), &remote, command, sizeof command, reply.data, &received,
                                     response, &response_size);
  if (result != 0) return not_sent(board.number(), &remote, lun);
  const size_t came = response_size > kResponse ? response_size - kResponse : 0;
  const size_t room = reply.sense_size ? *reply.sense_size : 0;
  const size_t sense = std::min(came, room);
  if (sense) memcpy(reply.sense, response + kResponse, sense);
  if (reply.sense_size) *reply.sense_size = static_cast<HBA_UINT32>(sense);
  *reply.data_size = received;
  *reply.status = response[11];
  return ended(response[11]);
}

HBA_STATUS send_inquiry(const Board &board, HBA_WWN remote, HBA_UINT64 lun, bool evpd, HBA_UINT8 page,
                        const Reply &reply) {
  if (!reply.complete()) return HBA_STATUS_ERROR_ARG;
  const HBA_UINT32 length = std::min<HBA_UINT32>(*reply.data_size, 0xffff);
  const uint8_t cdb[10] = {0x12, static_cast<uint8_t>(evpd), page, static_cast<uint8_t>(length >> 8),
                           static_cast<uint8_t>(length)};
  return read_command(board, remote, lun, cdb, length, reply);
}

HBA_STATUS send_read_capacity(const Board &board, HBA_WWN remote, HBA_UINT64 lun, const Reply &reply) {
  if (!reply.complete()) return HBA_STATUS_ERROR_ARG;
  if (*reply.data_size < kCapacitySize) return HBA_STATUS_ERROR_MORE_DATA;
  return read_command(board, remote, lun, {0x25}, kCapacitySize, reply);
}

// Not as an FCP command: a target without a LUN 0 is answered for by the inventory.
HBA_STATUS send_report_luns(const Board &board, HBA_WWN remote, const Reply &reply) {
  if (!reply.complete()) return HBA_STATUS_ERROR_ARG;
  uint8_t sense[kMaxSense];
  uint32_t came = sizeof sense;
  const uint32_t result = SendReportLUNs(board.number(), &remote, reply.data, reply.data_size, sense, &came);
  if (result != 0) return not_sent(board.number(), &remote, 0);
  const size_t room = reply.sense_size ? *reply.sense_size : 0;
  const size_t length = std::min<size_t>(came, room);
  if (length) memcpy(reply.sense, sense, length);
  if (reply.sense_size) *reply.sense_size = static_cast<HBA_UINT32>(length);
  *reply.status = came ? kCheckCondition : kGood;
  return ended(*reply.status);
}

// The calls of the second revision name the adapter's port as well.
HBA_STATUS check(const Board &board, const HBA_WWN &name) {
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  return board.has_port(name) ? HBA_STATUS_OK : HBA_STATUS_ERROR_ILLEGAL_WWN;
}

HBA_STATUS exchange_ct(const Board &board, void *request, HBA_UINT32 request_size, void *reply,
                       HBA_UINT32 *reply_size) {
  if (!request || !reply || !reply_size) return HBA_STATUS_ERROR_ARG;
  return SendCTPassThru(board.number(), request, request_size, reply, reply_size) == 0 ? HBA_STATUS_OK
                                                                                       : HBA_STATUS_ERROR;
}

}  // namespace

HBA_STATUS send_ct(HBA_HANDLE handle, void *request, HBA_UINT32 request_size, void *reply, HBA_UINT32 room) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  return exchange_ct(board, request, request_size, reply, &room);
}

HBA_STATUS send_ct_v2(HBA_HANDLE handle, HBA_WWN name, void *request, HBA_UINT32 request_size, void *reply,
                      HBA_UINT32 *reply_size) {
  const Board board(handle);
  if (const HBA_STATUS bad = check(board, name)) return bad;
  return exchange_ct(board, request, request_size, reply, reply_size);
}

HBA_STATUS send_rnid(HBA_HANDLE handle, HBA_WWN name, HBA_WWNTYPE type, void *reply, HBA_UINT32 *reply_size) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  if (!reply || !reply_size) return HBA_STATUS_ERROR_ARG;
  return SendRNID(board.number(), &name, type, reply, reply_size) == 0 ? HBA_STATUS_OK : HBA_STATUS_ERROR;
}

HBA_STATUS send_rnid_v2(HBA_HANDLE handle, HBA_WWN name, HBA_WWN remote, HBA_UINT32 address,
                        HBA_UINT32 format, void *reply, HBA_UINT32 *reply_size) {
  constexpr HBA_WWNTYPE kPortName = 1;
  const Board board(handle);
  if (const HBA_STATUS bad = check(board, name)) return bad;
  if (!reply || !reply_size) return HBA_STATUS_ERROR_ARG;
  if (format != kGeneralTopology) return HBA_STATUS_ERROR_NOT_SUPPORTED;
  HBA_PORTATTRIBUTES port;
  if (GetPortAttributesByWWN(board.number(), remote, &port) != 0) return HBA_STATUS_ERROR_ILLEGAL_WWN;
  if (address != 0 && address != port.PortFcId) return HBA_STATUS_ERROR_ILLEGAL_WWN;
  return SendRNID(board.number(), &remote, kPortName, reply, reply_size) == 0 ? HBA_STATUS_OK
                                                                              : HBA_STATUS_ERROR;
}

HBA_STATUS inquiry(HBA_HANDLE handle, HBA_WWN remote, HBA_UINT64 lun, HBA_UINT8 evpd, HBA_UINT32 page,
                   void *data, HBA_UINT32 room, void *sense, HBA_UINT32 sense_room) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  if (page > 0xff) return HBA_STATUS_ERROR_ARG;
  HBA_UINT8 status = 0;
  return send_inquiry(board, remote, lun, evpd != 0, static_cast<HBA_UINT8>(page),
                      {data, &room, &status, sense, &sense_room});
}

HBA_STATUS inquiry_v2(HBA_HANDLE handle, HBA_WWN name, HBA_WWN remote, HBA_UINT64 lun, HBA_UINT8 byte1,
                      HBA_UINT8 byte2, void *data, HBA_UINT32 *data_size, HBA_UINT8 *status, void *sense,
                      HBA_UINT32 *sense_size) {
  const Board board(handle);
  if (const HBA_STATUS bad = check(board, name)) return bad;
  if (byte1 > 1) return HBA_STATUS_ERROR_NOT_SUPPORTED;  // only EVPD is left of what the byte once held
  return send_inquiry(board, remote, lun, byte1 != 0, byte2, {data, data_size, status, sense, sense_size});
}

HBA_STATUS report_luns(HBA_HANDLE handle, HBA_WWN remote, void *data, HBA_UINT32 room, void *sense,
                       HBA_UINT32 sense_room) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  HBA_UINT8 status = 0;
  return send_report_luns(board, remote, {data, &room, &status, sense, &sense_room});
}

HBA_STATUS report_luns_v2(HBA_HANDLE handle, HBA_WWN name, HBA_WWN remote, void *data, HBA_UINT32 *data_size,
                          HBA_UINT8 *status, void *sense, HBA_UINT32 *sense_size) {
  const Board board(handle);
  if (const HBA_STATUS bad = check(board, name)) return bad;
  return send_report_luns(board, remote, {data, data_size, status, sense, sense_size});
}

HBA_STATUS read_capacity(HBA_HANDLE handle, HBA_WWN remote, HBA_UINT64 lun, void *data, HBA_UINT32 room,
                         void *sense, HBA_UINT32 sense_room) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  HBA_UINT8 status = 0;
  return send_read_capacity(board, remote, lun, {data, &room, &status, sense, &sense_room});
}

HBA_STATUS read_capacity_v2(HBA_HANDLE handle, HBA_WWN name, HBA_WWN remote, HBA_UINT64 lun, void *data,
                            HBA_UINT32 *data_size, HBA_UINT8 *status, void *sense, HBA_UINT32 *sense_size) {
  const Board board(handle);
  if (const HBA_STATUS bad = check(board, name)) return bad;
  return send_read_capacity(board, remote, lun, {data, data_size, status, sense, sense_size});
}

}  // namespace hcx_hbaapi
