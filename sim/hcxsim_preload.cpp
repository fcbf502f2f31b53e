// SPDX-License-Identifier: BSD-3-Clause
// libhcxsim.so, preloaded by hcxsim into the command it runs: puts a simulated machine behind the libhcx.so.4 of the
// process. The machine is built from the state folder at the library's first call, so that the shells and tools
// around the interesting process pay nothing. What cannot be loaded is fatal: silently looking at the real machine
// would be worse.
//
// The common HBA API wrapper library reads which vendor libraries there are from /etc/hba.conf, and each of those would
// look at the real machine. So the shim answers fopen() of that file: with the state folder's own, or else with a line
// that names the vendor library of libhcx and no other.
#include <dlfcn.h>
#include <errno.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

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

using Fopen = FILE *(const char *, const char *);

FILE *real_fopen(const char *path, const char *mode) {
  static const auto next = reinterpret_cast<Fopen *>(::dlsym(RTLD_NEXT, "fopen"));
  return next(path, mode);
}

// Beside the shim where it is installed, in a folder of its own where it was built.
std::string vendor_library() {
  Dl_info self;
  if (::dladdr(reinterpret_cast<const void *>(&vendor_library), &self) == 0) return "";
  const std::string shim = self.dli_fname;
  const std::string here = shim.substr(0, shim.rfind('/') + 1);
  for (const char *place : {"libhcx-hbaapi.so", "../hbaapi/libhcx-hbaapi.so"})
    if (::access((here + place).c_str(), R_OK) == 0) return here + place;
  return "";
}

FILE *open_file(const char *path, const char *mode) {
  const char *folder = std::getenv("HCXSIM_STATE");
  if (folder == nullptr || *folder == '\0' || std::strcmp(path, "/etc/hba.conf") != 0)
    return real_fopen(path, mode);
  try {
    const std::string own = std::string(folder) + "/root/etc/hba.conf";
    if (*mode != 'r' || ::access(own.c_str(), F_OK) == 0) return real_fopen(own.c_str(), mode);
    const std::string library = vendor_library();
    std::string text = "# simulated machine\n";
    if (!library.empty()) text.append("libhcx ").append(library).append("\n");
    FILE *file = std::tmpfile();
    if (file == nullptr) return nullptr;
    std::fputs(text.c_str(), file);
    std::rewind(file);
    return file;
  } catch (const std::exception &) {
    errno = ENOMEM;
    return nullptr;
  }
}

}  // namespace

extern "C" {
__attribute__((visibility("default"))) FILE *fopen(const char *path, const char *mode) {
  return open_file(path, mode);
}
__attribute__((visibility("default"))) FILE *fopen64(const char *path, const char *mode) {
  return open_file(path, mode);
}
}

// In sanitizer builds the runtime comes along into every command; only leaks of this project's own are of interest.
extern "C" __attribute__((visibility("default"))) int __lsan_is_turned_off() {
  return std::strncmp(program_invocation_short_name, "hcx", 3) != 0;
}
