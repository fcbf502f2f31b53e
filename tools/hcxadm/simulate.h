// SPDX-License-Identifier: BSD-3-Clause
// --simulate: the command line that runs the same command on a simulated machine.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace hcxadm {

// Absent: --simulate was not asked for. Else the command to execute, starting with hcxsim's path. `self` is
// this program's path, `exists` tells whether a path can be executed, `search` is the value of PATH. Throws
// Failure.
std::optional<std::vector<std::string>> simulate_command(
    const std::vector<std::string> &args, const std::string &self,
    const std::function<bool(const std::string &)> &exists, const std::string &search);

}  // namespace hcxadm
