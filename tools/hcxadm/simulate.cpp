// SPDX-License-Identifier: BSD-3-Clause
// --simulate[=FILE] [--state DIR] is short for "hcxsim [--scenario FILE] [--state DIR] -- hcxadm ...".
#include "simulate.h"

#include "status.h"

namespace hcxadm {
namespace {

Failure usage(std::string tried, std::string todo) {
  return Failure({.status = kUsage,
                  .tried = std::move(tried),
                  .board = {},
                  .code = {},
                  .name = {},
                  .todo = std::move(todo)});
}

// Next to this program, where the build tree has it, or in PATH.
std::string find_hcxsim(const std::string &self, const std::function<bool(const std::string &)> &exists,
                        const std::string &search) {
  const std::string folder = self.substr(0, self.rfind('/') + 1);
  for (const char *place : {"hcxsim", "../../sim/hcxsim"})
    if (exists(folder + place)) return folder + place;
  for (size_t begin = 0; begin <= search.size();) {
    const size_t end = std::min(search.find(':', begin), search.size());
    std::string path = search.substr(begin, end - begin) + "/hcxsim";
    if (end > begin && exists(path)) return path;
    begin = end + 1;
  }
  throw Failure({.status = kFailed,
                 .tried = "--simulate",
                 .board = {},
                 .code = {},
                 .name = "hcxsim was not found",
                 .todo = "install it, or put its folder into PATH"});
}

}  // namespace

std::optional<std::vector<std::string>> simulate_command(
    const std::vector<std::string> &args, const std::string &self,
    const std::function<bool(const std::string &)> &exists, const std::string &search) {
  bool simulate = false;
  std::string scenario;
  std::string state;
  std::vector<std::string> rest;
  bool ours = true;  // until "--"
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string &arg = args[i];
    if (arg == "--") ours = false;
    if (ours && (arg == "--simulate" || arg.starts_with("--simulate="))) {
      simulate = true;
      if (arg.size() > 10 && (scenario = arg.substr(11)).empty())
        throw usage("--simulate= names no file",
                    "give a scenario, or --simulate alone for the default machine");
    } else if (ours && arg.starts_with("--state=")) {
      state = arg.substr(8);
    } else if (ours && arg == "--state" && i + 1 < args.size()) {
      state = args[++i];
    } else {
      rest.push_back(arg);
    }
  }
  if (!simulate) {
    if (!state.empty()) throw usage("--state is of use only with --simulate", "see \"hcxadm --help\"");
    return {};
  }
  std::vector<std::string> command = {find_hcxsim(self, exists, search)};
  if (!scenario.empty()) command.insert(command.end(), {"--scenario", scenario});
  if (!state.empty()) command.insert(command.end(), {"--state", state});
  command.insert(command.end(), {"--", self});
  command.insert(command.end(), rest.begin(), rest.end());
  return command;
}

}  // namespace hcxadm
