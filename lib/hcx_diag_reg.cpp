// SPDX-License-Identifier: BSD-3-Clause
// Raw access for diagnosis: control registers, SLI memory, PCI configuration space, all by binary sysfs
// attributes.
//
// No state and no lock but the host's read lock, which keeps the record alive during the access. Offsets and
// counts go to the driver as they are; the sizes of its attributes bound them.
#include <cstdint>
#include <cstring>

#include "libhcx.h"

namespace hcx {
namespace {

// A register write as the driver takes it. Without the marker it refuses the write.
struct CtlRegWrite {
  char marker[4];
  uint32_t value;
};
static_assert(sizeof(CtlRegWrite) == 8);

constexpr uint32_t NO_HOST = 12;

// 0 when the host's SLI mode has control registers behind "ctlreg"; otherwise the status to return, logged
// under the caller's name.
uint32_t check_sli_mode(const char *caller, uint32_t board, hcx_host *host) {
  const int mode = hcx_get_sli_mode(host);
  if (mode < 1) {
    libhcx_syslog(LOG_ERROR, "%s - board %d sliMode %d too low", caller, board, mode);
    return 1;
  }
  if (mode >= 4) {
    libhcx_syslog(LOG_ERROR, "%s - board %d sliMode %d too high", caller, board, mode);
    return 2;
  }
  return 0;
}

uint32_t log_no_host(const char *caller, uint32_t board) {
  libhcx_syslog(LOG_ERROR, "%s - board %d no host", caller, board);
  return NO_HOST;
}

}  // namespace
}  // namespace hcx

uint32_t ReadCtlReg(uint32_t board, uint32_t *data, uint32_t offset) {
  HCX_TRACE();
  hcx::HostRef host = hcx::board_host(board);
  if (!host) return hcx::log_no_host(__func__, board);
  if (uint32_t status = hcx::check_sli_mode(__func__, board, host.get())) return status;
  const size_t got = data ? hcx_host_ctlreg_read(host.get(), data, offset, sizeof *data) : 0;
  if (got != sizeof *data) {
    HCX_LOG(LOG_ERROR, "board %d Error: ReadCtlReg: read wrong size %zu at offset %un", board, got, offset);
    HCX_LOG(LOG_ERROR, "board = %d; data = %p", board, static_cast<void *>(data));
    return 1;
  }
  return 0;
}

uint32_t WriteCtlReg(uint32_t board, uint32_t *data, uint32_t offset) {
  HCX_TRACE();
  hcx::HostRef host = hcx::board_host(board);
  if (!host) return hcx::log_no_host(__func__, board);
  if (uint32_t status = hcx::check_sli_mode(__func__, board, host.get())) return status;
  size_t put = 0;
  if (data) {
    hcx::CtlRegWrite record;
    memcpy(record.marker, "ZOBT", sizeof record.marker);
    memcpy(&record.value, data, sizeof record.value);
    put = hcx_host_ctlreg_write(host.get(), &record, offset, sizeof record);
  }
  if (put != sizeof(hcx::CtlRegWrite)) {
    HCX_LOG(LOG_ERROR, "board %d host ctlreg write failed at offset %d", board, static_cast<int>(offset));
    return 1;
  }
  return 0;
}

uint32_t ReadMem(uint32_t board, uint8_t *data, uint32_t offset, uint32_t cnt) {
  HCX_TRACE();
  hcx::HostRef host = hcx::board_host(board);
  if (!host) return hcx::log_no_host(__func__, board);
  const size_t got = data ? hcx_host_slimem_read(host.get(), data, offset, cnt) : 0;
  if (got != cnt) {
    HCX_LOG(LOG_ERROR, "board %d host slim read failed at offset %d count %d", board,
            static_cast<int>(offset), static_cast<int>(cnt));
    return 1;
  }
  return 0;
}

uint32_t WriteMem(uint32_t board, uint8_t *data, uint32_t offset, uint32_t cnt) {
  HCX_TRACE();
  hcx::HostRef host = hcx::board_host(board);
  if (!host) return hcx::log_no_host(__func__, board);
  const size_t put = data ? hcx_host_slimem_write(host.get(), data, offset, cnt) : 0;
  if (put != cnt) {
    HCX_LOG(LOG_ERROR, "board %d host slim write failed at offset %d count %d", board,
            static_cast<int>(offset), static_cast<int>(cnt));
    return 1;
  }
  return 0;
}

uint32_t HCX_ReadPciCfg(uint32_t board, uint8_t *data, uint32_t offset, uint32_t cnt) {
  HCX_TRACE();
  hcx::HostRef host = hcx::board_host(board);
  if (!host) return hcx::log_no_host(__func__, board);
  const size_t got = data ? hcx_host_pcireg_read(host.get(), data, offset, cnt) : 0;
  if (got != cnt) {
    HCX_LOG(LOG_ERROR, "board %d host pcireg read failed offset %d count %d", board, static_cast<int>(offset),
            static_cast<int>(cnt));
    return 1;
  }
  return 0;
}

uint32_t ReadPciCfg(uint32_t board, uint8_t *data, uint32_t offset, uint32_t cnt) {
  HCX_TRACE();
  return HCX_ReadPciCfg(board, data, offset, cnt);
}

uint32_t WritePciCfg(uint32_t, uint8_t *, uint32_t, uint32_t) {
  HCX_TRACE();
  return 2;  // the driver keeps configuration space to itself
}

void swap32_buffer(void *buffer, uint32_t size) {
  HCX_TRACE();
  if (!buffer) return;
  auto *bytes = static_cast<uint8_t *>(buffer);
  for (uint32_t word = 0; word < size / 4; ++word, bytes += 4) {
    uint32_t value;
    memcpy(&value, bytes, sizeof value);
    value = __builtin_bswap32(value);
    memcpy(bytes, &value, sizeof value);
  }
}
