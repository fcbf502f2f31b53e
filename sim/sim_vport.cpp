// SPDX-License-Identifier: BSD-3-Clause
// Making and removing virtual ports through sysfs: fc_host's vport_create and vport_delete as the FC transport checks
// them, or the driver's own files of the same names under scsi_host where there is no fc_vports class. The list is
// kept in the physical port's state, so that other processes see ports come and go. A port may be made to appear only
// after others have looked for it. Runs under the machine's mutex.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "sim_areas.h"
#include "sim_machine.h"

namespace sim {

using nlohmann::json;

namespace {
constexpr size_t kLongestName = 64;  // symbolic, with the class for virtual ports

struct Names {
  uint64_t wwpn = 0, wwnn = 0;
  std::string name;
};

bool parse_wwn(std::string_view text, uint64_t &wwn) {
  if (text.size() != 16 || text.find_first_not_of("0123456789abcdefABCDEF") != std::string_view::npos)
    return false;
  wwn = std::strtoull(std::string(text).c_str(), nullptr, 16);
  return true;
}

// "WWPN:WWNN", each of sixteen digits; the old files take a name behind a blank.
bool parse(std::string text, bool with_name, Names &names) {
  if (text.ends_with('\n')) text.pop_back();
  if (with_name && text.size() > 33 && text[33] == ' ') {
    names.name = text.substr(34);
    text.resize(33);
  }
  return text.size() == 33 && text[16] == ':' &&
         parse_wwn(std::string_view(text).substr(0, 16), names.wwpn) &&
         parse_wwn(std::string_view(text).substr(17), names.wwnn);
}

void keep_list(Host &host) {
  json list = json::array();
  for (Host *vport : host.vports()) {
    const VportSpec &spec = *vport->vport();
    list.push_back({{"wwpn", spec.wwpn},
                    {"wwnn", spec.wwnn},
                    {"name", spec.name},
                    {"port_id", spec.port_id},
                    {"host", spec.host_number},
                    {"number", spec.number},
                    {"static", spec.configured}});
  }
  host.state()["vports"] = list;
  host.machine().touch();
}

// Makes what stands what the list says, after another process has changed it.
void follow_list(Host &host) {
  const json &list = host.state()["vports"];
  if (!list.is_array()) return;
  auto listed = [&](const VportSpec &spec) {
    return std::any_of(list.begin(), list.end(), [&](const json &entry) {
      return entry.value("host", -1) == spec.host_number && entry.value("wwpn", uint64_t{0}) == spec.wwpn;
    });
  };
  for (Host *vport : host.vports()) {
    if (!listed(*vport->vport())) host.machine().remove_host(vport->number());
  }
  for (const json &entry : list) {
    const int number = entry.value("host", -1);
    if (host.machine().host(number) != nullptr) continue;
    host.add_vport({.wwpn = entry.value("wwpn", uint64_t{0}),
                    .wwnn = entry.value("wwnn", uint64_t{0}),
                    .name = entry.value("name", std::string()),
                    .port_id = entry.value("port_id", 0U),
                    .host_number = number,
                    .number = entry.value("number", -1),
                    .configured = entry.value("static", false)});
  }
  host.count_vports();
}

// Ports that were asked for and have not appeared yet; "missed" counts the looks that have not found them.
json coming(Host &host) {
  return host.state().value("vports_coming", json::array());
}

bool is_coming(Host &host, uint64_t wwpn) {
  const json list = coming(host);
  return std::any_of(list.begin(), list.end(),
                     [&](const json &entry) { return entry.value("wwpn", uint64_t{0}) == wwpn; });
}

// Somebody looks at the ports: those come that have kept others waiting for long enough.
void arrive(Host &host) {
  const json list = coming(host);
  if (list.empty()) return;
  json waiting = json::array();
  std::vector<VportSpec> here;
  for (json entry : list) {
    const int missed = entry.value("missed", 0);
    entry["missed"] = missed + 1;
    if (missed < host.spec().vport_delay) {
      waiting.push_back(entry);
    } else {
      here.push_back({.wwpn = entry.value("wwpn", uint64_t{0}),
                      .wwnn = entry.value("wwnn", uint64_t{0}),
                      .name = entry.value("name", std::string())});
    }
  }
  host.state()["vports_coming"] = waiting;
  host.machine().touch();
  for (const VportSpec &spec : here)
    host.add_vport(spec);
  if (!here.empty()) keep_list(host);
}

int create(Host &host, const std::string &text, bool with_name) {
  Names names;
  if (!parse(text, with_name, names)) return -EINVAL;
  if (names.wwpn == 0 || names.wwnn == 0) return -EINVAL;
  if (static_cast<int>(host.vports().size() + coming(host).size()) >= host.spec().max_vports) return -ENOSPC;
  for (Host *other : host.machine().hosts()) {
    if (other->spec().wwpn == names.wwpn || is_coming(*other, names.wwpn)) return -EINVAL;
  }
  if (host.spec().vport_delay > 0) {
    json list = coming(host);
    list.push_back({{"wwpn", names.wwpn}, {"wwnn", names.wwnn}, {"name", names.name}});
    host.state()["vports_coming"] = list;
    host.machine().touch();
    host.machine().await();
    return 0;
  }
  host.add_vport({.wwpn = names.wwpn, .wwnn = names.wwnn, .name = names.name});
  keep_list(host);
  return 0;
}

// Drops what the machine's state keeps of a port that goes for good: the next one may get its numbers.
void forget(Host &vport) {
  Machine &machine = vport.machine();
  // The directory in the device tree that comes and goes with the port.
  std::string dir = vport.device_dir();
  if (machine.has_vport_class()) dir.resize(dir.size() - (vport.name() + "/").size());
  json &texts = machine.state()["texts"];
  for (auto it = texts.begin(); it != texts.end();)
    it = it.key().starts_with(dir) ? texts.erase(it) : std::next(it);
  if (json &hosts = machine.state()["hosts"]; hosts.is_object()) hosts.erase(std::to_string(vport.number()));
  machine.touch();
}

int remove(Host &host, const std::string &text) {
  Names names;
  if (!parse(text, false, names)) return -EINVAL;
  for (Host *vport : host.vports()) {
    if (vport->spec().wwpn != names.wwpn || vport->spec().wwnn != names.wwnn) continue;
    if (host.machine().vfs().text(vport->scsi_dir() + "vosk_static_vport") == "1\n") return -EPERM;
    forget(*vport);
    host.remove_vport(names.wwpn, names.wwnn);
    keep_list(host);
    return 0;
  }
  return -ENODEV;
}

void add_files(Host &host) {
  if (host.spec().foreign) return;
  Vfs &vfs = host.machine().vfs();
  const bool modern = host.machine().has_vport_class();
  if (host.spec().npiv == "NPIV Not Supported") {
    for (const char *file : {"vport_create", "vport_delete"}) {
      if (modern) vfs.on_write(host.fc_dir() + file, [](const std::string &) { return -EINVAL; });
    }
    return;
  }
  if (Host *parent = host.parent()) {
    if (host.vport()->configured) vfs.put_text(host.scsi_dir() + "vosk_static_vport", "1\n");
    if (!modern) {
      vfs.put_text(host.scsi_dir() + "vosk_symbolic_name", host.vport()->name + "\n");
      return;
    }
    vfs.on_read(host.vport_dir() + "vport_state", [parent](std::string &text) {
      const std::string link = parent->machine().vfs().text(parent->scsi_dir() + "link_state");
      text = link.starts_with("Link Up") ? "Active\n" : "Linkdown\n";
      return 0;
    });
    vfs.on_write(host.vport_dir() + "symbolic_name",
                 [&machine = host.machine(), path = host.vport_dir() + "symbolic_name"](std::string text) {
                   if (text.ends_with('\n')) text.pop_back();
                   if (text.size() > kLongestName) return -EINVAL;
                   machine.set_text(path, text + "\n");
                   return 0;
                 });
    vfs.on_write(host.vport_dir() + "vport_delete", [parent, &host](const std::string &) {
      return remove(*parent,
                    wwn_text(host.spec().wwpn).substr(2) + ":" + wwn_text(host.spec().wwnn).substr(2));
    });
    return;
  }
  const std::string dir = modern ? host.fc_dir() : host.scsi_dir();
  if (!modern) {
    vfs.put_text(dir + "vport_create", "", 0200);
    vfs.put_text(dir + "vport_delete", "", 0200);
    vfs.put_text(dir + "max_npiv_vports", std::to_string(host.spec().max_vports) + "\n");
    vfs.put_text(dir + "npiv_vports_inuse", "0\n");
  }
  vfs.on_write(dir + "vport_create",
               [&host, modern](const std::string &text) { return create(host, text, !modern); });
  vfs.on_write(dir + "vport_delete", [&host](const std::string &text) { return remove(host, text); });
}
}  // namespace

void install_vports(Machine &machine) {
  machine.on_host(add_files);
  machine.on_reload([&machine] {
    for (Host *host : machine.hosts()) {
      // A virtual port may have gone with its parent's list meanwhile.
      if (!machine.is_there(host) || host->parent() != nullptr) continue;
      follow_list(*host);
      if (!coming(*host).empty()) machine.await();
    }
  });
  machine.on_look([&machine](std::string_view path) {
    bool waiting = false;
    for (Host *host : machine.hosts()) {
      if (host->parent() != nullptr) continue;
      // The list of the hosts' ports, and what every process reads first.
      if (path == "/sys/class/fc_host" || path == "/sys/class/scsi_host") arrive(*host);
      waiting |= !coming(*host).empty();
    }
    return waiting;
  });
}

}  // namespace sim
