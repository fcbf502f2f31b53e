// SPDX-License-Identifier: BSD-3-Clause
// Management CT requests to a port by name, responses to those that come in, and the driver's revision. No
// state; any thread that holds no host lock.
#include <errno.h>

#include "libhcx.h"

namespace {

// Results of SendMgmtResponse(), by what the driver said.
constexpr uint32_t response_failed = 252;
constexpr struct {
  int error;
  uint32_t result;
} response_results[] = {{ERANGE, 255}, {ETIMEDOUT, 250}, {EACCES, 253}};

}  // namespace

uint32_t SendMgmtCommand(uint32_t board, HBA_WWN *PortWWN, uint8_t *inbuf, uint32_t incnt, uint8_t *outbuf,
                         uint32_t *outcnt, uint32_t tmo) {
  HCX_TRACE();
  if (!outcnt) return 0;
  *outcnt = static_cast<uint32_t>(
      send_bsg_ct_to_wwn(board, PortWWN ? PortWWN->wwn : nullptr, inbuf, incnt, outbuf, *outcnt, tmo));
  return 0;
}

uint32_t SendMgmtResponse(uint32_t board, uint8_t *outbuf, uint32_t outcnt, uint32_t tag) {
  HCX_TRACE();
  if (send_bsg_mgmt_response(board, outbuf, outcnt, tag) == 0) return 0;
  for (const auto &row : response_results)
    if (errno == row.error) return row.result;
  return response_failed;
}

uint32_t GetMgmtRev(uint32_t *major, uint32_t *minor) {
  HCX_TRACE();
  return static_cast<uint32_t>(send_bsg_get_mgmt_rev(major, minor));
}

uint32_t open_voskhcx(void) {
  HCX_TRACE();
  uint32_t major, minor;
  if (GetMgmtRev(&major, &minor) == 0) return 0;
  HCX_LOG(LOG_ERROR, "Could not obtain hcx rev info from driver");
  return 1;
}
