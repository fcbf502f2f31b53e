// SPDX-License-Identifier: BSD-3-Clause
// Discovery of ports: the local port of a host and the remote ports that the transport shows for it.
// A host's list is rebuilt under the write side of the host's lock, which hcx_sysfs_scan_rports() takes itself; the
// other routines take no lock, they work on records that their caller owns or has locked.
// Old kernels keep a local port's attributes among those of the SCSI host and show remote ports as transport targets;
// no capability row knows those attributes, so that they are read past the gate.
#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "hcx_util_scan.h"

using namespace hcx;

namespace {

constexpr char kRportClass[] = "/sys/class/fc_remote_ports";
constexpr char kTransportClass[] = "/sys/class/fc_transport";
constexpr char kScsiDeviceClass[] = "/sys/class/scsi_device";

bool old_tree() {
  return sysfs_ver < LK2_6_12;
}

void read_address(hcx_port *port, const char *dir, const char *file) {
  port->port_id = old_tree() ? attr_read_hex32(dir, file) : hcx_sysfs_read_hexuint32(dir, file);
}

void read_name(uint8_t name[8], const char *dir, const char *file) {
  wwn_store(name, old_tree() ? attr_read_hex64(dir, file) : hcx_sysfs_read_hexuint64(dir, file));
}

bool parse_rport(const char *name, uint32_t *id) {
  int number;
  if (sscanf(name, old_tree() ? "target%*d:0:%d" : "rport-%*d:0-%d", &number) != 1) return false;
  *id = static_cast<uint32_t>(number);
  return true;
}

// Old transports have no state for a target: one that is listed is there.
bool is_online(const char *class_dir, const std::string &name) {
  Line state;
  if (!old_tree()) {
    Path dir("/sys/class/fc_remote_ports/%s/", name.c_str());
    return hcx_sysfs_read_str(dir.c_str(), "port_state", state.data(), state.size()) &&
           state.equals("Online");
  }
  Path dir("%s/%s/", class_dir, name.c_str());
  if (!attr_exists(dir.c_str(), "port_state")) return true;
  return attr_read_str(dir.c_str(), "port_state", state.data(), state.size()) && state.equals("Online");
}

struct Entry {
  uint32_t id;
  const std::string *name;
};

// The entries up to the first that does not parse (*bad, null when all do), by number: then the old list is walked
// once and every insert goes behind the previous one.
std::vector<Entry> entries_by_number(const ClassListing::Range &names, const std::string **bad) {
  std::vector<Entry> entries;
  *bad = nullptr;
  for (const std::string &name : names) {
    uint32_t id;
    if (!parse_rport(name.c_str(), &id)) {
      *bad = &name;
      break;
    }
    entries.push_back({id, &name});
  }
  std::stable_sort(entries.begin(), entries.end(),
                   [](const Entry &a, const Entry &b) { return a.id < b.id; });
  // Two spellings of a number would be two records with one name.
  entries.erase(std::unique(entries.begin(), entries.end(),
                            [](const Entry &a, const Entry &b) { return a.id == b.id; }),
                entries.end());
  return entries;
}

// A new record for a remote port that was not known; null when there is no memory.
hcx_port *new_rport(uint32_t id) {
  auto *port = static_cast<hcx_port *>(calloc(1, sizeof(hcx_port)));
  if (port) {
    port->id = id;
    if (old_tree()) port->scsi_target_id = id;
  }
  return port;
}

}  // namespace

namespace hcx {

Path rport_prefix(bool old, uint32_t host_no) {
  return old ? Path("target%d:0:", static_cast<int>(host_no))
             : Path("rport-%d:0-", static_cast<int>(host_no));
}

ClassListing remote_port_listing(bool old, const char *prefix) {
  return old ? ClassListing(kRportClass, kTransportClass, prefix) : ClassListing(kRportClass, prefix);
}

void hcx_sysfs_scan_rport(hcx_port *port, ClassListing &devices) {
  HCX_TRACE();
  if (!port) {
    HCX_LOG(LOG_ERROR, "no port");
    return;
  }
  if (!port->host) {
    HCX_LOG(LOG_ERROR, "no port host");
    return;
  }
  const int host_no = static_cast<int>(port->host->id);
  Path dir;
  if (old_tree()) {
    dir = Path("/sys/class/fc_transport/target%d:0:%d/", host_no, static_cast<int>(port->scsi_target_id));
    port->roles = FC_RPORT_ROLE_FCP_TARGET;
    port->id = port->scsi_target_id;
  } else {
    dir = Path("/sys/class/fc_remote_ports/rport-%d:0-%d/", host_no, static_cast<int>(port->id));
    Line roles;
    hcx_sysfs_read_str(dir.c_str(), "roles", roles.data(), roles.size());
    port->roles = static_cast<int>(str2bitfield(roles.c_str(), ',', rport_role_names));
    port->scsi_target_id = port->roles & FC_RPORT_ROLE_FCP_TARGET
                               ? hcx_sysfs_read_uint(dir.c_str(), "scsi_target_id")
                               : UINT32_MAX;
  }
  read_address(port, dir.c_str(), "port_id");
  read_name(port->wwpn, dir.c_str(), "port_name");
  read_name(port->wwnn, dir.c_str(), "node_name");
  if (port->roles & FC_RPORT_ROLE_FCP_TARGET) hcx_sysfs_scan_luns(port, devices);
}

void hcx_sysfs_scan_rports(hcx_host *host, ClassListing &rports, ClassListing &devices) {
  HCX_TRACE();
  HostWriteLock lock(host);
  ClassListing::Range names;
  if (!rports.find(rport_prefix(old_tree(), host->id).c_str(), &names)) {
    HCX_LOG(LOG_ERROR, "host brd_idx %d cannot list %s", host->brd_idx, rports.dir());
    return;
  }
  const std::string *bad;
  const std::vector<Entry> entries = entries_by_number(names, &bad);

  OldList<hcx_port> old(std::exchange(host->port_list, nullptr));
  hcx_port *last = nullptr;
  for (const Entry &entry : entries) {
    hcx_port *port = old.take(entry.id, hcx_host_remove_port);
    if (!is_online(rports.dir(), *entry.name)) {
      // Another thread may have found the record before this scan began.
      if (port) retire_port(port);
      continue;
    }
    if (!port) port = new_rport(entry.id);
    if (!port) {
      HCX_LOG(LOG_ERROR, "host brd_idx %d out of memory for %s", host->brd_idx, entry.name->c_str());
      continue;
    }
    last = hcx_host_insert_port(host, last, port);
    hcx_sysfs_scan_rport(port, devices);
  }
  if (bad) HCX_LOG(LOG_ERROR, "host brd_idx %d could not form port id from %s", host->brd_idx, bad->c_str());
  while (hcx_port *port = old.rest()) {
    hcx_host_remove_port(old.head(), nullptr, port);
    destroy_port(port);
  }
}

}  // namespace hcx

void hcx_sysfs_scan_lport(hcx_port *port) {
  HCX_TRACE();
  if (!port) {
    HCX_LOG(LOG_ERROR, "no port");
    return;
  }
  if (port->lun_list) {
    HCX_LOG(LOG_ERROR, "port lun_list not empty");
    return;
  }
  if (!port->host) {
    HCX_LOG(LOG_ERROR, "no port host");
    return;
  }
  const Path dir = old_tree() ? scsi_host_dir(port->host->id) : fc_host_dir(port->host->id);
  read_address(port, dir.c_str(), old_tree() ? "portfcid" : "port_id");
  read_name(port->wwnn, dir.c_str(), "node_name");
  read_name(port->wwpn, dir.c_str(), "port_name");
  port->roles = FC_RPORT_ROLE_FCP_INITIATOR;
}

void hcx_sysfs_scan_rport(hcx_port *port) {
  no_throw(0, [=] {
    Path prefix;
    if (port && port->host) prefix = Path("%d:0:", static_cast<int>(port->host->id));
    ClassListing devices(kScsiDeviceClass, prefix.c_str());
    hcx_sysfs_scan_rport(port, devices);
    return 0;
  });
}

void hcx_sysfs_scan_rports(hcx_host *host) {
  if (!host) {
    HCX_LOG(LOG_ERROR, "no host");
    return;
  }
  no_throw(0, [=] {
    ClassListing rports = remote_port_listing(old_tree(), rport_prefix(old_tree(), host->id).c_str());
    ClassListing devices(kScsiDeviceClass, Path("%d:0:", static_cast<int>(host->id)).c_str());
    hcx_sysfs_scan_rports(host, rports, devices);
    return 0;
  });
}
