// SPDX-License-Identifier: BSD-3-Clause
// The list of areas that every simulated machine has.
#include "sim_areas.h"

namespace sim {

void install_areas(Machine &machine) {
  install_auth(machine);
  install_management_revision(machine);
  install_parameters(machine);
  install_mailbox(machine);
  install_fabric(machine);
  install_priority(machine);
  install_vports(machine);
  install_scsi(machine);
  install_statistics(machine);
  install_board_control(machine);
  install_loopback(machine);
  install_registers(machine);
  install_events(machine);
  install_latency(machine);
}

}  // namespace sim
