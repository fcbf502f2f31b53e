// SPDX-License-Identifier: BSD-3-Clause
// From a port name to a host or target number, and from a virtual port's host to the physical one. These ask sysfs, not
// the inventory, so that they find virtual ports too. No state; any thread.
#include <cstdlib>

#include "hcx_util_scan.h"

using namespace hcx;

namespace {

constexpr char kFcHostClass[] = "/sys/class/fc_host";

// A name that cannot be read is 0, which names no port.
bool same_name(uint64_t name, const HBA_WWN *wwn) {
  return name != 0 && name == wwn_load(wwn->wwn);
}

// The SCSI target number of a listed remote port; -1 when it has none.
int target_of(bool old, const char *dir, const char *name) {
  if (!old) return static_cast<int>(hcx_sysfs_read_uint(dir, "scsi_target_id"));
  int target;
  return sscanf(name, "target%*d:0:%d", &target) == 1 ? target : -1;
}

// The number of a path component that is "host" and digits, -1 for any other.
int host_component(const char *component, size_t length) {
  if (length <= 4 || strncmp(component, "host", 4) != 0) return -1;
  char *end;
  const long number = strtol(component + 4, &end, 10);
  return end == component + length && component[4] >= '0' && component[4] <= '9' && number <= INT32_MAX
             ? static_cast<int>(number)
             : -1;
}

}  // namespace

int hcx_get_target_id(uint32_t host_id, HBA_WWN *pWWPN) {
  HCX_TRACE();
  if (!pWWPN) return -1;
  return no_throw(-1, [=] {
    // Before the first scan nobody has looked yet.
    const bool old = (host_list() ? sysfs_ver : tree_generation()) < LK2_6_12;
    const Path prefix = rport_prefix(old, host_id);
    ClassListing rports = remote_port_listing(old, prefix.c_str());
    ClassListing::Range names;
    if (!rports.find(prefix.c_str(), &names)) return -1;
    for (const std::string &name : names) {
      const Path dir("%s/%s/", rports.dir(), name.c_str());
      const uint64_t wwpn = old ? attr_read_hex64(dir.c_str(), "port_name")
                                : hcx_sysfs_read_hexuint64(dir.c_str(), "port_name");
      if (same_name(wwpn, pWWPN)) return target_of(old, dir.c_str(), name.c_str());
    }
    return -1;
  });
}

int hcx_get_host_id(HBA_WWN *pWWPN) {
  HCX_TRACE();
  if (!pWWPN) return -1;
  return no_throw(-1, [=] {
    std::vector<std::string> names;
    sysio::list_sorted(kFcHostClass, "host", names);
    for (const std::string &name : names) {
      const Path dir("/sys/class/fc_host/%s/", name.c_str());
      if (!same_name(hcx_sysfs_read_hexuint64(dir.c_str(), "port_name"), pWWPN)) continue;
      int number;
      return sscanf(name.c_str(), "host%d", &number) == 1 ? number : -1;
    }
    return -1;
  });
}

void hcx_get_wwpn(uint32_t host_no, HBA_WWN *wwpn) {
  HCX_TRACE();
  if (wwpn) wwn_store(wwpn->wwn, hcx_sysfs_read_hexuint64(fc_host_dir(host_no).c_str(), "port_name"));
}

hcx_host *hcx_vport_to_physical_host(uint32_t host_no) {
  HCX_TRACE();
  // ".../host3/vport-3:0-0/host5/scsi_host/host5": the physical host is the first of ours on the way.
  char link[512];
  const Path path("/sys/class/scsi_host/host%d", static_cast<int>(host_no));
  ssize_t length = sysio::machine().read_link(path.c_str(), link, sizeof link - 1);
  if (length < 0) {
    length = sysio::machine().read_link(Path("%s/device", path.c_str()).c_str(), link, sizeof link - 1);
  }
  if (length < 0) return nullptr;
  link[length] = '\0';
  for (const char *component = link; *component;) {
    const size_t size = strcspn(component, "/");
    const int number = host_component(component, size);
    if (number >= 0) {
      if (hcx_host *host = hcx_host_find_by_id(host_list(), static_cast<uint32_t>(number))) return host;
    }
    component += size;
    component += strspn(component, "/");
  }
  return nullptr;
}
