// SPDX-License-Identifier: BSD-3-Clause
// The areas of behaviour that a machine is made of, each in a file of its own. An area registers what it
// answers (vendor commands, attribute handlers through on_host, SG_IO) in its install function; a new one
// adds a line here and in install_areas().
#pragma once

namespace sim {

class Machine;

void install_areas(Machine &machine);

void install_auth(Machine &machine);
void install_management_revision(Machine &machine);
void install_parameters(Machine &machine);
void install_mailbox(Machine &machine);
void install_fabric(Machine &machine);
void install_priority(Machine &machine);
void install_vports(Machine &machine);
void install_scsi(Machine &machine);
void install_statistics(Machine &machine);
// After install_parameters(): it stands around what that installs.
void install_board_control(Machine &machine);
void install_loopback(Machine &machine);
void install_registers(Machine &machine);
void install_events(Machine &machine);
void install_latency(Machine &machine);

}  // namespace sim
