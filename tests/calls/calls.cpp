// SPDX-License-Identifier: BSD-3-Clause
// What the rows of all areas share.
#include "calls.h"

#include <algorithm>

namespace calls {

char *Arguments::text(std::string_view value) {
  const auto size = number<size_t>(value.size(), 0, 80);
  char *copy = reinterpret_cast<char *>(bytes(size + 1));
  memcpy(copy, value.data(), std::min(size, value.size()));
  scramble(copy, size);
  return copy;
}

hcx_host *Arguments::host(uint32_t board) {
  for (hcx_host *host = hcx_host_list; host; host = host->next)
    if (host->brd_idx == static_cast<int>(board)) return host;
  return nullptr;
}

void number_boards() {
  if (!hcx_host_list) hcx_sysfs_scan_hosts(&hcx_host_list);
  int number = 0;
  for (hcx_host *host = hcx_host_list; host; host = host->next)
    host->brd_idx = number++;
}

void set_name(HBA_WWN *name, uint64_t value) {
  for (int i = 7; i >= 0; --i, value >>= 8)
    name->wwn[i] = static_cast<uint8_t>(value);
}

}  // namespace calls
