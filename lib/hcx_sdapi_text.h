// SPDX-License-Identifier: BSD-3-Clause
// The two texts of the driver's latency statistics: the state of a host, and the record of a target. Readers only, no
// I/O. Texts need no terminator; what follows a NUL does not count. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "sd_api.h"

namespace hcx::sd {

constexpr size_t state_text_size = 4096;
constexpr size_t data_record_size = 238;
constexpr uint64_t ns_per_ms = 1000000;

// False for a state that does not tell.
bool tells_collecting(std::string_view state);
bool tells_bucket(std::string_view state);

enum class Definition { ok, not_set, malformed };
// Stores each part as soon as it has been understood, so that a malformed text leaves what came before. `values` has
// SD_BUCKETS places.
Definition read_definition(std::string_view state, uint16_t *search_type, uint32_t *base, uint32_t *step,
                           uint64_t *values);

// False for a malformed record, with *response in parts set.
bool read_record(std::string_view record, SD_IO_Latency_Response *response);

}  // namespace hcx::sd
