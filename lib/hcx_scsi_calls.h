// SPDX-License-Identifier: BSD-3-Clause
// Commands that the by-board and the by-name calls have in common, and the answer to REPORT LUNS that the
// library makes itself when there is no LUN 0 to ask.
#pragma once

#include "hcx_scsi.h"

namespace hcx {

inline void store_be16(uint8_t *to, uint16_t value) {
  to[0] = static_cast<uint8_t>(value >> 8);
  to[1] = static_cast<uint8_t>(value);
}
inline void store_be32(uint8_t *to, uint32_t value) {
  store_be16(to, static_cast<uint16_t>(value >> 16));
  store_be16(to + 2, static_cast<uint16_t>(value));
}

uint32_t send_read_capacity(const char *node, const ScsiBuffers &buffers);
uint32_t send_report_luns(const char *node, const ScsiBuffers &buffers);

// REPORT LUNS data is a header of 8 bytes, the list's length in the first four, and entries of 8 bytes.
constexpr uint32_t kReportLunsEntry = 8;

// Writes REPORT LUNS data into the caller's buffer, which has room for the header at least.
class ReportLunsBuilder {
 public:
  explicit ReportLunsBuilder(const ScsiBuffers &buffers);
  // False when the buffer is full. The first level of the number is kept.
  bool add(uint64_t lun);
  void finish();

 private:
  const ScsiBuffers &buffers_;
  uint8_t *bytes_;
  uint32_t room_;
  uint32_t offset_ = kReportLunsEntry;
};

}  // namespace hcx
