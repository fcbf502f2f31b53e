// SPDX-License-Identifier: BSD-3-Clause
// One SCSI command to a LUN by FCP pass-through, which tells how the command ended: the calls named after a command
// report a lost path or a busy device as success.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "scsi.h"

namespace hcxadm {

inline constexpr size_t sense_room = 252;

struct ScsiResult {
  uint8_t status = 0;         // SCSI status
  uint32_t moved = 0;         // bytes, either way
  std::vector<uint8_t> data;  // from the device
  std::vector<uint8_t> sense;
};

// Receives at most in_size bytes, or sends `out`; not both. cdb: 6 to 16 bytes. timeout: seconds, 0 for none. Throws
// Failure, which begins with `tried`, when the device gave no response.
ScsiResult send_command(const std::string &tried, const LunAddress &address, const std::vector<uint8_t> &cdb,
                        uint32_t in_size, std::vector<uint8_t> out, uint32_t timeout);

// "good", "reservation conflict", ...
const char *scsi_status_name(uint8_t status);
// Bytes of the answer as a number; what is not there counts as nothing.
uint64_t big_endian(const std::vector<uint8_t> &data, size_t at, size_t size);

struct Capacity {
  std::optional<uint64_t> blocks;  // absent: not told
  std::optional<uint64_t> block_size;
  ScsiResult answer;  // which told it, or failed to
};
// READ CAPACITY(10), and (16) for a LUN of more blocks than 32 bits count. Throws Failure as send_command().
Capacity read_capacity(const std::string &tried, const LunAddress &address);

}  // namespace hcxadm
