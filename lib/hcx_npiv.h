// SPDX-License-Identifier: BSD-3-Clause
// What the calls for virtual ports share: where the two kernel generations keep them, and how their entries are found.
// No state; any thread. The searches allocate: their callers are behind no_throw().
#pragma once

#include <cstdint>

#include "libhcx.h"

namespace hcx::npiv {

constexpr char fc_host_class[] = "/sys/class/fc_host";
constexpr char vport_class[] = "/sys/class/fc_vports";

// Present kernels have a class for virtual ports, older ones leave them to the driver.
inline bool has_vport_class() {
  return hcx_sysfs_test_dir(vport_class) != 0;
}

// Where a physical port takes its commands and tells its capacity.
inline Path control_dir(uint32_t host_no) {
  return has_vport_class() ? fc_host_dir(host_no) : scsi_host_dir(host_no);
}

// The directory, with its trailing "/", of the entry in fc_vports that has these names; `wwnn` null: any node name.
// False when there is none.
bool find_entry(const HBA_WWN &wwpn, const HBA_WWN *wwnn, Path *dir);

inline bool is_zero(const HBA_WWN &name) {
  return wwn_load(name.wwn) == 0;
}

}  // namespace hcx::npiv
