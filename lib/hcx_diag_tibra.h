// SPDX-License-Identifier: BSD-3-Clause
// The bridge chip: what the loopback calls, the bridge calls and the driver parameters share.
#pragma once

#include <cstdint>

namespace hcx {

constexpr uint32_t TIBRA_DEVICE_ID = 0x7B05;   // PCI device id of an FC controller behind the bridge chip
constexpr uint32_t TIBRA_MAX_BYTES = 0x54000;  // longest command and longest response
constexpr int PROTOCOL_FC = 1;                 // hcx_get_protocol_mode() of an FC port

}  // namespace hcx
