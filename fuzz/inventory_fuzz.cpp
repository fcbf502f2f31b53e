// SPDX-License-Identifier: BSD-3-Clause
// Discovery: whatever the directories, links and attributes of sysfs hold, a scan ends, its lists are sorted, the
// look-ups find what stands in them, and a second scan over a changed machine leaves nothing dangling.
#include "inventory.h"

namespace {

void check(const hcx_host *host) {
  for (const hcx_port *port = host->port_list; port; port = port->next) {
    if (port->next && port->next->id <= port->id) fuzz::fault("ports not sorted", std::to_string(port->id));
    if (port->host != host) fuzz::fault("port of another host", std::to_string(port->id));
    for (const hcx_lun *lun = port->lun_list; lun; lun = lun->next) {
      if (lun->next && lun->next->id <= lun->id) fuzz::fault("LUNs not sorted", std::to_string(lun->id));
      if (lun->port != port) fuzz::fault("LUN of another port", std::to_string(lun->id));
    }
  }
}

void look_up(hcx_host *host) {
  for (hcx_port *port = host->port_list; port; port = port->next) {
    if (hcx_port_find_by_id(host->port_list, port->id) != port)
      fuzz::fault("not found", "hcx_port_find_by_id");
    if (!hcx_port_find_by_wwpn(host->port_list, port->wwpn))
      fuzz::fault("not found", "hcx_port_find_by_wwpn");
    HBA_WWN wwpn;
    memcpy(wwpn.wwn, port->wwpn, sizeof wwpn.wwn);
    hcx_get_target_id(host->id, &wwpn);
    char name[256];
    for (hcx_lun *lun = port->lun_list; lun; lun = lun->next) {
      if (hcx_lun_find_by_id(port->lun_list, lun->id) != lun) fuzz::fault("not found", "hcx_lun_find_by_id");
      hcx_get_lun_file_name(host->id, port->scsi_target_id, lun->id, name);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  fuzz::HostileMachine machine(input);
  static constexpr int generations[] = {LK2_6_12, LK2_6_12, RHEL4, SLES9};
  sysfs_ver = input.PickValueInArray(generations);
  {
    fuzz::Inventory inventory;
    for (hcx_host *host = hcx_host_list; host; host = host->next) {
      if (host->next && host->next->id <= host->id) fuzz::fault("hosts not sorted", std::to_string(host->id));
      check(host);
      look_up(host);
      hcx_host_logdump(host);
      hcx_get_sli_mode(host);
      hcx_get_sli4_if_type(host);
      hcx_get_protocol_mode(host);
      hcx_get_function_type(host);
      hcx_host_is_online(host);
      char version[64];
      const int room = input.ConsumeIntegralInRange(0, static_cast<int>(sizeof version));
      hcx_host_drv_ver(host, version, room);
    }
    // Board by board again, while the machine says something else.
    for (int board = 0; board < inventory.boards(); ++board) {
      if (hcx::HostRef host = hcx::board_host(static_cast<uint32_t>(board))) {
        host = hcx::rescan(std::move(host));
        if (host) check(host.get());
      }
    }
  }
  machine.check_nothing_left();
  return 0;
}
