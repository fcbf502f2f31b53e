// SPDX-License-Identifier: BSD-3-Clause
// Identification descriptors of SCSI page 0x83 in words.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace hcxadm {

struct Designator {
  std::string type;         // "naa", "eui", "t10", "vendor", "relative port", ...
  std::string association;  // "lun", "port", "device"
  std::string value;        // hexadecimal digits, or the text itself
};

// The descriptor at the start of `bytes`; nothing when it is empty or longer than `size`.
std::optional<Designator> designator_of(const uint8_t *bytes, size_t size);
// All descriptors of a page, behind its 4-byte header.
std::vector<Designator> designators_of(const uint8_t *page, size_t size);

}  // namespace hcxadm
