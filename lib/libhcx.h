// SPDX-License-Identifier: BSD-3-Clause
// What the areas of the library share among themselves and do not export.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "hcx_guard.h"
#include "hcx_log.h"
#include "hcx_sysio.h"
#include "hcx_text.h"
#include "libhcx_api.h"

namespace hcx {

// ---- hcx_util: sysfs access without the capability gate ----
// For attributes that no row of the capability templates answers for: those in the one table of hcx_util_attr.cpp are
// used without asking, all others are gated as by the exported routines. Same results as the exported routines of the
// same kind.
char *attr_read_str(const char *dir, const char *file, char *text, size_t size);
int attr_read_int(const char *dir, const char *file);
uint32_t attr_read_uint(const char *dir, const char *file);
uint32_t attr_read_hex32(const char *dir, const char *file);
uint64_t attr_read_hex64(const char *dir, const char *file);
int attr_write_str(const char *dir, const char *file, const char *text);
bool attr_exists(const char *dir, const char *file);
size_t attr_read_binfile(const char *dir, const char *file, void *buff, off_t offset, size_t count);
// As attr_read_binfile(), but a read that failed is told from one that came to the end: its negated errno.
ssize_t attr_read_part(const char *dir, const char *file, void *buff, off_t offset, size_t count);
size_t attr_write_binfile(const char *dir, const char *file, const void *buff, off_t offset, size_t count);
int attr_lock_binfile(const char *dir, const char *file);

// ---- hcx_util: words of the driver (tables of hcx_util_names.cpp) ----
extern const named_const rport_role_names[];
extern const named_const yes_no_names[];
extern const named_const port_state_names[];
extern const named_const class_names[];
extern const named_const port_type_names[];
extern const named_const port_speed_names[];
extern const named_const bind_type_names[];
extern const named_const reset_type_names[];
extern const named_const board_mode_names[];
extern const named_const vport_state_names[];
extern const named_const link_state_names[];

// ---- hcx_util: inventory ----
// The head of the list, with all that the scan of another thread put behind it.
inline hcx_host *host_list() {
  return std::atomic_ref(hcx_host_list).load(std::memory_order_acquire);
}
// True when the host directory `name` ("host3") belongs to a physical port.
bool is_physical_port(const char *name);
// The board's host with its read lock held, after a first scan when the inventory is empty.
HostRef board_host(uint32_t board);
// The same host after its attributes and remote ports were read again; none when it cannot be locked again. Gives the
// lock back meanwhile: pointers into the record's ports and texts do not survive.
HostRef rescan(HostRef &&host);
// Release a record that is in no list, with all it owns.
void destroy_lun(hcx_lun *lun);
void destroy_port(hcx_port *port);
// Set records aside that other threads may still hold; free_retired_records() releases them at teardown.
void retire_port(hcx_port *port);
void retire_luns(hcx_lun *list);
void free_retired_records();

// ---- hcx_admin: logger ----
void libhcx_open_syslog();

// WWN as a number and as bytes, most significant first.
inline void wwn_store(uint8_t bytes[8], uint64_t wwn) {
  for (int i = 7; i >= 0; --i, wwn >>= 8)
    bytes[i] = static_cast<uint8_t>(wwn);
}
inline uint64_t wwn_load(const uint8_t bytes[8]) {
  uint64_t wwn = 0;
  for (int i = 0; i < 8; ++i)
    wwn = wwn << 8 | bytes[i];
  return wwn;
}

}  // namespace hcx
