// SPDX-License-Identifier: BSD-3-Clause
// What the files of board control share: the board's memory in its host's state, and the link's ups and
// downs.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace sim {

class Host;

// The object in the host's state that holds settings and record.
nlohmann::json &control_state(Host &host);
// Adds one to a counter of the record.
void count_up(Host &host, const char *counter);
// The texts that follow the link: up as the host was made, or down.
void show_link(Host &host, bool up);
// A reset of the link: ends a loopback that the adapter alone holds.
void reset_link(Host &host);

}  // namespace sim
