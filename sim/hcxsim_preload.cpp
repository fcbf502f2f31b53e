// SPDX-License-Identifier: BSD-3-Clause
// libhcxsim.so, preloaded by hcxsim into the command it runs: puts a simulated machine behind the libhcx.so.4 of the
// process. The machine is built from the state folder at the library's first call, so that the shells and tools
// around the interesting process pay nothing. What cannot be loaded is fatal: silently looking at the real machine
// would be worse.
#include <errno.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "sim_machine.h"
#include "sim_scenario.h"

namespace {

__attribute__((constructor)) void attach() {
  const char *folder = std::getenv("HCXSIM_STATE");
  if (folder == nullptr || *folder == '\0') return;
  static sim::Machine *machine = nullptr;
  try {
    machine = new sim::Machine;
    machine->on_first_use([folder] {
      try {
        sim::open_folder(*machine, folder);
      } catch (const std::exception &error) {
        std::fprintf(stderr, "hcxsim: %s\n", error.what());
        ::_exit(125);
      }
    });
  } catch (const std::exception &error) {
    std::fprintf(stderr, "hcxsim: %s\n", error.what());
    ::_exit(125);
  }
  LIBHCX_private_set_machine(machine);
}

}  // namespace

// In sanitizer builds the runtime comes along into every command; only leaks of this project's own are of interest.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off() {
  return std::strncmp(program_invocation_short_name, "hcx", 3) != 0;
}
