// SPDX-License-Identifier: BSD-3-Clause
// CT requests to the fabric's servers. No state; any thread that holds no host lock.
#include <errno.h>

#include "libhcx.h"

namespace {

constexpr uint32_t directory_server = 0xFFFFFC;
constexpr uint32_t well_known = 0xFFFF00;  // mask and value of the addresses that servers have
constexpr uint32_t gs_type_offset = 4;     // in the CT header

constexpr struct {
  uint8_t gs_type;
  uint32_t address;
} servers[] = {{0xFA, 0xFFFFFA}, {0xFB, 0xFFFFFB}, {0xFC, directory_server}, {0xFD, 0xFFFFFD}};

uint32_t server_address(uint8_t gs_type) {
  for (const auto &server : servers)
    if (server.gs_type == gs_type) return server.address;
  return directory_server;
}

}  // namespace

uint32_t SendCTPassThru(uint32_t board, void *pReqBuffer, uint32_t ReqBufferSize, void *pRspBuffer,
                        uint32_t *RspBufferSize) {
  HCX_TRACE();
  auto *request = static_cast<uint8_t *>(pReqBuffer);
  if (!request || ReqBufferSize <= gs_type_offset || !RspBufferSize) {
    HCX_LOG(LOG_ERROR, "board %d get ct info failed", static_cast<int>(board));
    return 1;
  }
  const uint32_t portid = server_address(request[gs_type_offset]);
  const int received =
      GetCTInfo(board, portid, request, ReqBufferSize, static_cast<uint8_t *>(pRspBuffer), *RspBufferSize);
  // A number above the room is a host status that the driver put into its result, not a length.
  if (received < 1 || static_cast<uint32_t>(received) > *RspBufferSize) {
    HCX_LOG(LOG_ERROR, "board %d get ct info failed", static_cast<int>(board));
    return 1;
  }
  *RspBufferSize = static_cast<uint32_t>(received);
  HCX_LOG(LOG_IOCTL, "board %d portid x%08x reqsize %d respsize %d", static_cast<int>(board), portid,
          static_cast<int>(ReqBufferSize), received);
  return 0;
}

int GetCTInfo(uint32_t board, uint32_t portid, uint8_t *inbuf, uint32_t incnt, uint8_t *outbuf,
              uint32_t outcnt) {
  HCX_TRACE();
  const uint32_t masked = portid & well_known;
  if (masked != well_known) {
    HCX_LOG(LOG_ERROR, "board %d masked portid x%08x should be x%08x", static_cast<int>(board), masked,
            well_known);
    return -EINTR;
  }
  return send_bsg_ct_to_did(board, portid, inbuf, incnt, outbuf, outcnt);
}
