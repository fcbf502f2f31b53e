// SPDX-License-Identifier: BSD-3-Clause
// ELS requests and node identification: of other ports by RNID, of the adapter port from the inventory. No
// state; any thread that holds no host lock.
#include <cstddef>
#include <cstring>

#include "libhcx.h"

static_assert(sizeof(HBA_MGMTINFO) == 44 && offsetof(HBA_MGMTINFO, TopologyDiscoveryFlags) == 42);

namespace {

constexpr HBA_WWNTYPE node_name = 0, port_name = 1;
constexpr uint32_t unit_type_host = 7;

}  // namespace

uint32_t HCX_SendELSCmd(uint32_t board, DestID *destID, uint8_t *reqbuf, uint32_t reqsize, uint8_t *rspbuf,
                        uint32_t *rspsize) {
  HCX_TRACE();
  return static_cast<uint32_t>(send_bsg_els(board, destID, reqbuf, reqsize, rspbuf, rspsize));
}

uint32_t SendRNID(uint32_t board, HBA_WWN *wwn, HBA_WWNTYPE wwntype, void *pRspBuffer,
                  HBA_UINT32 *RspBufferSize) {
  HCX_TRACE();
  if (wwntype != node_name && wwntype != port_name) {
    HCX_LOG(LOG_ERROR, "board %d wwntype %d not node %d or port %d", static_cast<int>(board),
            static_cast<int>(wwntype), static_cast<int>(node_name), static_cast<int>(port_name));
    return 1;
  }
  return send_bsg_els_rnid(board, wwn, wwntype, pRspBuffer, RspBufferSize) != 0 ? 1 : 0;
}

uint32_t GetRNIDMgmtInfo(uint32_t board, HBA_MGMTINFO *pInfo) {
  HCX_TRACE();
  if (!pInfo) return 1;
  const hcx::HostRef host = hcx::board_host(board);
  if (!host) {
    HCX_LOG(LOG_ERROR, "no host on board %d", static_cast<int>(board));
    return 1;
  }
  memcpy(pInfo->wwn.wwn, host->port.wwnn, sizeof pInfo->wwn.wwn);
  pInfo->unittype = unit_type_host;
  pInfo->PortId = host->port.port_id;
  pInfo->NumberOfAttachedNodes = 0;
  pInfo->TopologyDiscoveryFlags = 0;
  return 0;
}

uint32_t SetRNIDMgmtInfo(uint32_t /*board*/, HBA_MGMTINFO * /*pInfo*/) {
  HCX_TRACE();
  return 0;
}
