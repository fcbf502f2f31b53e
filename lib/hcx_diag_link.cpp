// SPDX-License-Identifier: BSD-3-Clause
// The link and the ports seen through it. Both calls rescan first, with the host's lock given back, and then
// read under the read lock; called by the event threads too.
#include <errno.h>

#include <cstring>

#include "libhcx.h"

static_assert(sizeof(LINKINFO) == 168 && offsetof(LINKINFO, a_wwpName) == 152);
static_assert(sizeof(NODEINFO) == 28);

namespace hcx {
namespace {

constexpr uint32_t kNoBoard = 12;
constexpr uint32_t kNoTarget = UINT32_MAX;
constexpr int kFabricRoles = FC_FPORT_ROLE_FABRIC | FC_FPORT_ROLE_FABCTLR | FC_FPORT_ROLE_DIRSRVR |
                             FC_FPORT_ROLE_TIMESRVR | FC_FPORT_ROLE_MGMTSRVR | FC_FPORT_ROLE_UNKNFABRIC;
// A loop has room for 126 ports, and the map needs a count before and a 0 behind them.
constexpr uint8_t kMaxLoopPorts = 126;

// The board's "link_state" (or, with older drivers, "state"); `board` is for the log only.
bool linkDownUser(const hcx_host *host, uint32_t board) {
  const Path dir = scsi_host_dir(host->id);
  Line text;
  if (!hcx_sysfs_read_str(dir.c_str(), "link_state", text.data(), text.size()) &&
      !attr_read_str(dir.c_str(), "state", text.data(), text.size()))
    return false;
  if (!text.equals("Link Down - User disabled")) return false;
  HCX_LOG(LOG_DIAG, "board %d link down by user", board);
  return true;
}

uint8_t topology_of(uint32_t port_type) {
  switch (port_type) {
    case HBA_PORTTYPE_NLPORT:
      return LNK_PUBLIC_LOOP;
    case HBA_PORTTYPE_NPORT:
      return LNK_FABRIC;
    case HBA_PORTTYPE_LPORT:
      return LNK_LOOP;
    case HBA_PORTTYPE_PTP:
      return LNK_PT2PT;
    default:
      return 0;
  }
}

void fill_loop_map(const hcx_host *host, LinkInfo *info) {
  const bool loop = info->a_topology == LNK_LOOP || info->a_topology == LNK_PUBLIC_LOOP;
  if (!loop || info->a_DID > 0xff) return;
  info->a_alpa = static_cast<uint8_t>(info->a_DID);
  info->a_alpaMap[1] = info->a_alpa;
  uint8_t count = 1;
  for (const hcx_port *port = host->port_list; port && count < kMaxLoopPorts; port = port->next)
    if (port->port_id <= 0xff) info->a_alpaMap[++count] = static_cast<uint8_t>(port->port_id);
  info->a_alpaMap[0] = count;
  info->a_alpaCnt = count;
}

void fill_link_state(hcx_host *host, uint32_t board, uint32_t port_state, LinkInfo *info) {
  switch (port_state) {
    case HBA_PORTSTATE_ONLINE:
      info->a_linkState = LNK_READY;
      break;
    case HBA_PORTSTATE_BYPASSED:
      info->a_linkState = LNK_UP;
      break;
    case HBA_PORTSTATE_LINKDOWN:
      info->a_linkState = LNK_DOWN;
      if (hcx_sysfs_read_mlomode(&host->port) != 0) info->a_topology = LNK_MLOMGMT;
      if (linkDownUser(host, board)) info->a_linkState = LNK_DOWN_PERSIST;
      break;
    default:
      break;
  }
}

// The driver counts no link events. Each of them comes with a loop initialisation or, on a point-to-point
// link, a NOS.
void fill_link_counters(hcx_host *host, LinkInfo *info) {
  uint64_t count = hcx_host_stat_read(host, "lip_count");
  if (count == UINT64_MAX) count = hcx_host_stat_read(host, "nos_count");
  if (count == UINT64_MAX) return;
  info->a_linkUp = static_cast<uint32_t>(count);
  info->a_linkDown = info->a_linkUp;
  info->a_linkEventTag = 2 * info->a_linkUp;
}

uint16_t bind_type(const hcx_host *host) {
  Line text;
  if (!hcx_sysfs_read_str(fc_host_dir(host->id).c_str(), "tgtid_bind_type", text.data(), text.size()))
    return 0;
  return static_cast<uint16_t>(str2enum(text.c_str(), bind_type_names));
}

NodeInfo node_of(const hcx_port *port, const HBA_PORTATTRIBUTES &attr, uint16_t binding) {
  NodeInfo node = {};
  if (port->roles & FC_RPORT_ROLE_FCP_TARGET) node.a_flag |= NODE_FCP_TARGET;
  if (port->roles & FC_RPORT_ROLE_IP_PORT) node.a_flag |= NODE_IP_NODE;
  if (port->roles & kFabricRoles) node.a_flag |= NODE_FABRIC;
  if (attr.PortState == HBA_PORTSTATE_ONLINE) {
    const bool bound = port->scsi_target_id != kNoTarget;
    node.a_state = bound ? NODE_ALLOC : NODE_PRLI;
    if (bound) node.a_flag |= NODE_AUTOMAP | binding;
  }
  node.a_did = attr.PortFcId;
  memcpy(node.a_wwpn, attr.PortWWN.wwn, sizeof node.a_wwpn);
  memcpy(node.a_wwnn, attr.NodeWWN.wwn, sizeof node.a_wwnn);
  node.a_targetid = port->scsi_target_id;
  return node;
}

}  // namespace
}  // namespace hcx

using namespace hcx;

extern "C" int linkDownUser(uint32_t board) {
  HCX_TRACE();
  const HostRef host = board_host(board);
  if (!host) {
    HCX_LOG(LOG_ERROR, "board %d no host", board);
    return 0;
  }
  return linkDownUser(host.get(), board) ? 1 : 0;
}

extern "C" uint32_t HCX_GetLinkInfo(uint32_t board, LinkInfo *info) {
  HCX_TRACE();
  if (!info) return HBA_STATUS_ERROR;
  HostRef host = rescan(board_host(board));
  if (!host) {
    HCX_LOG(LOG_ERROR, "board %d no host", board);
    return kNoBoard;
  }
  HBA_PORTATTRIBUTES attr;
  const uint32_t result = hcx_sysfs_read_port(&host->port, &attr);
  if (result != HBA_STATUS_OK) {
    host.drop();
    HCX_LOG(LOG_ERROR, "board %d sysfs read port status error", board);
    return result;
  }
  memset(info, 0, sizeof *info);
  info->a_topology = topology_of(attr.PortType);
  info->a_DID = attr.PortFcId;
  fill_loop_map(host.get(), info);
  fill_link_state(host.get(), board, attr.PortState, info);
  memcpy(info->a_wwpName, attr.PortWWN.wwn, sizeof info->a_wwpName);
  memcpy(info->a_wwnName, attr.NodeWWN.wwn, sizeof info->a_wwnName);
  fill_link_counters(host.get(), info);
  return HBA_STATUS_OK;
}

extern "C" uint32_t GetLinkInfo(uint32_t board, LinkInfo *info) {
  HCX_TRACE();
  return HCX_GetLinkInfo(board, info);
}

extern "C" int GetNodeInfo(uint32_t board, NodeInfo *nodeinfo) {
  HCX_TRACE();
  if (!nodeinfo) return -1;
  HostRef host = rescan(board_host(board));
  if (!host) {
    HCX_LOG(LOG_ERROR, "board %d no host", board);
    return -ENOMEM;
  }
  const uint16_t binding = bind_type(host.get());
  int count = 0;
  for (hcx_port *port = host->port_list; port; port = port->next) {
    HBA_PORTATTRIBUTES attr;
    if (hcx_sysfs_read_port(port, &attr) != HBA_STATUS_OK) continue;
    nodeinfo[count++] = node_of(port, attr, binding);
  }
  if (count) return count;
  host.drop();
  HCX_LOG(LOG_DIAG, "board %d no nodes", board);
  return -1;
}
