// SPDX-License-Identifier: BSD-3-Clause
// Scenario files: a simulated machine described in JSON (the schema is in docs/hcxsim.md), and the state folder that
// hcxsim hands to the commands it runs.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace sim {

class Machine;

// Fills a fresh machine. Throws std::runtime_error that names the place and what is wrong with it.
void load_scenario(Machine &machine, const nlohmann::json &scenario);

// Reads DIR/scenario.json into a fresh machine and ties it to the folder's state. Throws likewise.
void open_folder(Machine &machine, const std::string &folder);

}  // namespace sim
