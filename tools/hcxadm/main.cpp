// SPDX-License-Identifier: BSD-3-Clause
// hcxadm: the process around run(): standard streams, and the change into a simulated machine.
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "hcxadm.h"
#include "simulate.h"

namespace {

std::string own_path(const char *argv0) {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  return length > 0 ? std::string(path, static_cast<size_t>(length)) : argv0;
}

// Does not return when all goes well.
int execute(const std::vector<std::string> &command) {
  std::vector<char *> argv;
  argv.reserve(command.size() + 1);
  for (const std::string &word : command)
    argv.push_back(const_cast<char *>(word.c_str()));
  argv.push_back(nullptr);
  execv(argv[0], argv.data());
  std::cerr << "hcxadm: --simulate: " << command[0] << ": " << std::strerror(errno) << '\n';
  return hcxadm::kFailed;
}

}  // namespace

int main(int argc, char **argv) {
  const std::vector<std::string> args(argv + (argc > 0), argv + argc);
  try {
    const char *search = std::getenv("PATH");
    auto command = hcxadm::simulate_command(
        args, own_path(argc > 0 ? argv[0] : "hcxadm"),
        [](const std::string &path) { return access(path.c_str(), X_OK) == 0; }, search ? search : "");
    if (command) return execute(*command);
    return hcxadm::run(args, std::cin, std::cout, std::cerr,
                       {.in = isatty(STDIN_FILENO) == 1,
                        .out = isatty(STDOUT_FILENO) == 1,
                        .err = isatty(STDERR_FILENO) == 1});
  } catch (const hcxadm::Failure &failure) {
    std::cerr << "hcxadm: " << failure.what() << '\n';
    return failure.problem().status;
  } catch (const std::exception &error) {
    std::cerr << "hcxadm: " << error.what() << '\n';
    return hcxadm::kFailed;
  }
}
