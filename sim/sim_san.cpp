// SPDX-License-Identifier: BSD-3-Clause
// Machines to start from: the SAN of the demonstration and SANs of any size.
#include "sim_machine.h"

namespace sim {

namespace {
void add_disks(Rport &target, int count, uint64_t first = 0) {
  for (int i = 0; i < count; i++) {
    target.add_lun(
        {.lun = first + static_cast<uint64_t>(i), .blocks = 2048ULL * static_cast<uint64_t>(i + 1)});
  }
}
}  // namespace

void default_san(Machine &machine) {
  machine.add_host({.number = 0, .foreign = true});

  // First card: two SLI-4 FC ports, one fabric each.
  Host &fc_a = machine.add_host({.number = 2,
                                 .wwpn = 0x10000090fa942b02,
                                 .wwnn = 0x20000090fa942b02,
                                 .fabric = 0x100000051e0a1001,
                                 .port_id = 0x010200,
                                 .pci = "0000:04:00.0",
                                 .irq = 34,
                                 .serial = "QV12345670",
                                 .unique_id = 0,
                                 .auth = true});
  Host &fc_b = machine.add_host({.number = 3,
                                 .wwpn = 0x10000090fa942b03,
                                 .wwnn = 0x20000090fa942b03,
                                 .fabric = 0x100000051e0a2001,
                                 .port_id = 0x020200,
                                 .pci = "0000:04:00.1",
                                 .irq = 35,
                                 .serial = "QV12345670",
                                 .unique_id = 1});
  // Second card: an SLI-3 FC port and an SLI-4 FCoE port.
  Host &fc_c = machine.add_host({.number = 10,
                                 .sli = 3,
                                 .wwpn = 0x10000000c9a1b2c0,
                                 .wwnn = 0x20000000c9a1b2c0,
                                 .fabric = 0x100000051e0a1001,
                                 .port_id = 0x010a00,
                                 .pci = "0000:05:00.0",
                                 .irq = 40,
                                 .serial = "QV76543210",
                                 .unique_id = 2,
                                 .slimem = true});
  Host &fcoe = machine.add_host({.number = 11,
                                 .if_type = 0,
                                 .protocol = "fcoe",
                                 .wwpn = 0x10000000c9a1b2c1,
                                 .wwnn = 0x20000000c9a1b2c1,
                                 .fabric = 0x100000051e0a4001,
                                 .port_id = 0x040200,
                                 .pci = "0000:05:00.1",
                                 .irq = 41,
                                 .serial = "QV76543210",
                                 .unique_id = 3});
  if (machine.generation() >= 2)
    fc_a.add_vport({.wwpn = 0x20010090fa942b02, .name = "db1", .host_number = 12});
  for (Host *host : {&fc_a, &fc_b, &fc_c, &fcoe})
    host->add_fabric_ports();

  add_disks(fc_a.add_rport({.wwpn = 0x500601603ea01001, .wwnn = 0x50060160bea01001, .port_id = 0x010300}), 8);
  Rport &array = fc_a.add_rport({.wwpn = 0x500601613ea01001,
                                 .wwnn = 0x50060160bea01001,
                                 .port_id = 0x010400,
                                 .roles = "FCP Target, FCP Initiator"});
  add_disks(array, 7);
  array.add_lun({.lun = 0x4005});  // flat addressing
  fc_a.add_rport({.wwpn = 0x10000090fa111111,
                  .wwnn = 0x20000090fa111111,
                  .port_id = 0x010500,
                  .roles = "FCP Initiator"});
  add_disks(fc_b.add_rport({.wwpn = 0x500601603ea02001, .wwnn = 0x50060160bea02001, .port_id = 0x020300}), 7,
            1);
  Rport &library =
      fc_b.add_rport({.wwpn = 0x500104f000aa0001, .wwnn = 0x500104f000aa0000, .port_id = 0x020400});
  library.add_lun({.lun = 0, .kind = LunKind::tape, .model = "RAMTAPE"});
  library.add_lun({.lun = 1, .kind = LunKind::changer, .model = "RAMCHANGER", .bound = false});
  add_disks(fc_c.add_rport({.wwpn = 0x500601623ea01001, .wwnn = 0x50060160bea01001, .port_id = 0x010b00}), 8);
  add_disks(fcoe.add_rport({.wwpn = 0x500601603ea04001, .wwnn = 0x50060160bea04001, .port_id = 0x040300}), 8);
}

void scaled_san(Machine &machine, int hosts, int targets, int luns) {
  for (int h = 0; h < hosts; h++) {
    Host &host = machine.add_host({});
    for (int t = 0; t < targets; t++)
      add_disks(host.add_rport({}), luns);
  }
}

}  // namespace sim
