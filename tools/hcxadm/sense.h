// SPDX-License-Identifier: BSD-3-Clause
// What SCSI answers mean.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace hcxadm {

// "illegal request, invalid field in CDB (5/24/00)"; empty without sense data.
std::string sense_text(const std::vector<uint8_t> &sense);
// What a device with this peripheral byte is: "disk", "tape", ...
const char *device_type_name(uint8_t peripheral);

}  // namespace hcxadm
