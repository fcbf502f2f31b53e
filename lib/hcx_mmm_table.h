// SPDX-License-Identifier: BSD-3-Clause
// The capability templates and the versions they are settled by. Written by get_vosk_management_version()
// during start-up, before other threads make calls; only read afterwards.
#pragma once

#include <cstdint>

#include "hcx_mmm.h"

namespace hcx {

// Each ends with a row whose a_help is empty.
extern MMM_SYSFS mmm_sys_class_template[72];
extern MMM_SYSFS mmm_sys_devices_template[5];
extern MMM_NETLINK mmm_netlink_template[16];
extern MMM_BSG_IOCTL mmm_bsg_ioctl_template[15];
extern MMM_BSG_DEV mmm_bsg_device_template[3];

// The driver's management interface as last fetched, and the one the library works to.
extern uint32_t vosk_major;
extern uint32_t vosk_minor;
extern uint32_t libhcx_major;
extern uint32_t libhcx_minor;

// Calls body(index, row) for each row before the end row.
template <class Row, class Body>
void for_each_row(Row *rows, Body &&body) {
  for (int index = 0; rows[index].window.a_help[0] != '\0'; ++index)
    body(index, rows[index]);
}

}  // namespace hcx
