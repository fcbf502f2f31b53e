// SPDX-License-Identifier: BSD-3-Clause
// FC-SP: the authentication daemon's file, and the driver's answer to a request to authenticate. The state that the
// driver shows follows the request: towards the fabric it succeeds while the daemon has a configuration for the pair.
#include <cerrno>
#include <cstdlib>
#include <string>

#include "sim_areas.h"
#include "sim_machine.h"

namespace sim {
namespace {

constexpr char kConf[] = "/etc/wardend.conf";

std::string upper_hex(uint64_t name) {
  char text[17];
  snprintf(text, sizeof(text), "%llX", static_cast<unsigned long long>(name));
  return text;
}

int authenticate(Host &host, const std::string &text) {
  char *end = nullptr;
  errno = 0;
  const uint64_t remote = std::strtoull(text.c_str(), &end, 16);
  if (end == text.c_str() || (*end != '\0' && *end != '\n') || errno != 0) return -EINVAL;
  Machine &machine = host.machine();
  if (remote != UINT64_MAX && host.rport_by_wwpn(remote) == nullptr) return -ENODEV;
  if (remote != UINT64_MAX) return 0;
  const std::string pair = "\nCONFIG " + upper_hex(host.spec().wwpn) + " " + upper_hex(remote) + " ";
  const bool configured = ("\n" + machine.plain_text(kConf)).find(pair) != std::string::npos;
  host.set_scsi("auth_state", configured ? "Authenticated" : "Not Authenticated");
  host.set_scsi("auth_last", "0");
  return 0;
}

}  // namespace

void install_auth(Machine &machine) {
  machine.vfs().put_text(kConf, "# Authentication of adapter ports\n", 0600);
  machine.on_host([](Host &host) {
    const std::string path = host.scsi_dir() + "vosk_authenticate";
    if (!host.machine().vfs().exists(path)) return;  // off, or a virtual port
    host.machine().vfs().on_write(path,
                                  [&host](const std::string &text) { return authenticate(host, text); });
  });
}

}  // namespace sim
