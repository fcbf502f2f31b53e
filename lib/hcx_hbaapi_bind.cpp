// SPDX-License-Identifier: BSD-3-Clause
// Bindings of SCSI target numbers to ports. The driver binds by itself and nothing can be made persistent:
// what is left is a list of the remote ports in the form of bindings.
#include <cstring>

#include "libhcx.h"

static_assert(sizeof(HBA_BIND_ENTRY) == 32 && offsetof(HBA_BIND_LIST, entry) == 4);
static_assert(sizeof(HBA_FCPBINDINGENTRY) == 312);

namespace hcx {
namespace {

constexpr uint32_t kNoTarget = UINT32_MAX;
constexpr uint32_t kBindTarget = 5;
constexpr uint32_t kBindNoTarget = 8;

HBA_BIND_ENTRY bind_entry(const hcx_port *port, const HBA_PORTATTRIBUTES &attr) {
  HBA_BIND_ENTRY entry = {};
  entry.bind_type = BIND_NONE;
  entry.scsi_id = port->scsi_target_id;
  entry.did = attr.PortFcId;
  entry.wwnn = attr.NodeWWN;
  entry.wwpn = attr.PortWWN;
  entry.flags = port->scsi_target_id == kNoTarget ? kBindNoTarget : kBindTarget;
  return entry;
}

}  // namespace
}  // namespace hcx

using namespace hcx;

extern "C" uint32_t GetFcpBindList(uint32_t board, HBA_BIND_LIST_PTR bind_list) {
  HCX_TRACE();
  if (!bind_list) return HBA_STATUS_ERROR_ARG;
  HostRef host = rescan(board_host(board));
  if (!host) {
    bind_list->NumberOfEntries = 0;
    HCX_LOG(LOG_ERROR, "no host on board %d", board);
    return HBA_STATUS_OK;
  }
  const uint32_t room = bind_list->NumberOfEntries;
  uint32_t count = 0;
  for (hcx_port *port = host->port_list; port; port = port->next) {
    if (count < room) {
      HBA_PORTATTRIBUTES attr;
      if (hcx_sysfs_read_port(port, &attr) != HBA_STATUS_OK) continue;
      bind_list->entry[count] = bind_entry(port, attr);
    }
    ++count;
  }
  bind_list->NumberOfEntries = count;
  if (count <= room) return HBA_STATUS_OK;
  HCX_LOG(LOG_ERROR, "board %d found %d entries but bind list entries %d", board, count, room);
  return HBA_STATUS_ERROR;
}

extern "C" uint32_t GetFcpPersistentBinding(uint32_t /*board*/, HBA_FCPBINDING *binding) {
  HCX_TRACE();
  if (!binding) return HBA_STATUS_ERROR_ARG;
  binding->NumberOfEntries = 0;
  return HBA_STATUS_OK;
}

extern "C" uint32_t AddBind(uint32_t /*board*/, HBA_BINDTYPE /*bind_type*/, void * /*bind_id*/,
                            HBA_SCSIID * /*scsi_id*/) {
  HCX_TRACE();
  return HBA_STATUS_ERROR_NOT_SUPPORTED;
}

extern "C" uint32_t DelBind(uint32_t /*board*/, HBA_BINDTYPE /*bind_type*/, void * /*bind_id*/) {
  HCX_TRACE();
  return HBA_STATUS_ERROR_NOT_SUPPORTED;
}
