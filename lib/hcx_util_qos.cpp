// SPDX-License-Identifier: BSD-3-Clause
// FCP priority: the table that the driver keeps, its switch, and the logical link speed. The adapter applies the first
// entry that matches, so a table is ordered from the most specific entry to the least before it is sent. No state; any
// thread.
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "libhcx.h"

namespace {

using namespace hcx;

constexpr uint32_t no_host = 3, more_data = 7;
constexpr uint32_t most_bytes = 65536;  // no driver keeps a table anywhere near
constexpr uint32_t most_entries = (most_bytes - offsetof(HCX_QoSConfig, fcQoSEntry)) / sizeof(HCX_QoSEntry);
constexpr char attribute[] = "vosk_enable_fcp_priority";

// A board's host with its lock held; an unknown board is logged.
HostRef find_host(const char *caller, uint32_t board) {
  HostRef host = board_host(board);
  if (!host) libhcx_syslog(LOG_ERROR, "%s - no host on board %d", caller, static_cast<int>(board));
  return host;
}

bool any(const uint8_t (&field)[8]) {
  return std::all_of(std::begin(field), std::end(field), [](uint8_t byte) { return byte == 0xFF; });
}

// 0 names a LUN range between two ports, 4 applies to all.
int class_of(const HCX_QoSEntry &entry) {
  constexpr int classes = 5;
  if (any(entry.src_wwpn)) return classes - 1;
  if (any(entry.tgt_wwpn)) return 3;
  if (any(entry.first_lun)) return 2;
  return any(entry.last_lun) ? 1 : 0;
}

bool plausible(const HCX_QoSConfig *table) {
  return table && table->numberOfEntries <= most_entries;
}

}  // namespace

int order_fcp_priority_list(HCX_QoSConfig *pQosConfig) {
  HCX_TRACE();
  if (!plausible(pQosConfig)) return 1;
  const uint32_t count = pQosConfig->numberOfEntries;
  if (count == 0) return 0;
  const auto ordered = heap_array<HCX_QoSEntry>(count);
  if (!ordered) return 1;
  HCX_QoSEntry *entries = pQosConfig->fcQoSEntry;
  HCX_QoSEntry *to = ordered.get();
  // Within a class the last one given comes first.
  for (int wanted = 0; wanted < 5; ++wanted)
    for (uint32_t i = count; i-- > 0;)
      if (class_of(entries[i]) == wanted) *to++ = entries[i];
  memcpy(entries, ordered.get(), size_t{count} * sizeof(HCX_QoSEntry));
  return 0;
}

uint32_t HCX_QoSSetConfig(uint32_t board, HCX_QoSConfig *pQosConfig) {
  HCX_TRACE();
  if (!plausible(pQosConfig)) return 1;
  if (!find_host(__func__, board)) return no_host;
  if (const int result = order_fcp_priority_list(pQosConfig)) return static_cast<uint32_t>(result);
  return static_cast<uint32_t>(send_bsg_set_fcp_priority(board, pQosConfig));
}

uint32_t HCX_QoSGetConfig(uint32_t board, HCX_QoSConfig *pQosConfig) {
  HCX_TRACE();
  if (!plausible(pQosConfig)) return 1;
  if (!find_host(__func__, board)) return no_host;
  const uint32_t capacity = pQosConfig->numberOfEntries;
  constexpr size_t head = offsetof(HCX_QoSConfig, fcQoSEntry);
  // The driver answers into memory of our own: the count it reports says nothing about the caller's.
  const auto memory =
      heap_array<uint8_t>(std::max(head + capacity * sizeof(HCX_QoSEntry), sizeof(HCX_QoSConfig)));
  if (!memory) return 1;
  auto *table = reinterpret_cast<HCX_QoSConfig *>(memory.get());
  table->numberOfEntries = capacity;
  if (const int result = send_bsg_get_fcp_priority(board, table)) return static_cast<uint32_t>(result);
  const uint32_t filled = std::min(capacity, table->numberOfEntries);
  memcpy(pQosConfig->fcQoSEntry, table->fcQoSEntry, size_t{filled} * sizeof(HCX_QoSEntry));
  pQosConfig->numberOfEntries = table->numberOfEntries;
  return table->numberOfEntries > capacity ? more_data : 0;
}

uint32_t HCX_QoSSetGlobalFlag(uint32_t board, uint32_t flag) {
  HCX_TRACE();
  HostRef host = find_host(__func__, board);
  if (!host) return no_host;
  const Path dir = scsi_host_dir(host->id);
  host.drop();
  if (flag >= 2) {
    HCX_LOG(LOG_ERROR, "invalid flag %d on board %d", static_cast<int>(flag), static_cast<int>(board));
    return 1;
  }
  if (hcx_sysfs_write_str(dir.c_str(), attribute, Text<16>("%u", flag).data()) != 0) {
    HCX_LOG(LOG_ERROR, "ERROR updating vosk_enable_fcp_priority with flag %d on board %d",
            static_cast<int>(flag), static_cast<int>(board));
    return 1;
  }
  return 0;
}

uint32_t HCX_QoSGetGlobalFlag(uint32_t board, uint32_t *pflag) {
  HCX_TRACE();
  if (!pflag) return 1;
  HostRef host = find_host(__func__, board);
  if (!host) return no_host;
  const Path dir = scsi_host_dir(host->id);
  host.drop();
  Line text;
  if (!hcx_sysfs_read_str(dir.c_str(), attribute, text.data(), hcx::Line::size())) {
    HCX_LOG(LOG_ERROR, "board %d fcp priority not supported", static_cast<int>(board));
    return 2;
  }
  *pflag = static_cast<uint32_t>(std::min<unsigned long>(strtoul(text.c_str(), nullptr, 0), UINT32_MAX));
  if (*pflag >= 2) {
    HCX_LOG(LOG_ERROR, "board %d returned an invalid priority %d", static_cast<int>(board),
            static_cast<int>(*pflag));
    return 1;
  }
  return 0;
}

uint32_t HCX_GetQoSLinkSpeed(uint32_t board, uint16_t *pQoSSpeed) {
  constexpr char phrase[] = " Logical Link Speed: ";
  constexpr uint16_t unknown = 0xFFFF;
  HCX_TRACE();
  if (!pQoSSpeed) return 1;
  *pQoSSpeed = unknown;
  const HostRef host = find_host(__func__, board);
  if (!host) return no_host;
  if (hcx_get_sli_mode(host.get()) != 4) {
    HCX_LOG(LOG_ERROR, "board %d not supported", static_cast<int>(board));
    return 2;
  }
  if (!host->info) {
    HCX_LOG(LOG_ERROR, "board %d missing host info", static_cast<int>(board));
    return 1;
  }
  const char *found = strstr(host->info, phrase);
  if (!found) return 0;
  found += sizeof phrase - 1;
  char *end;
  const long speed = strtol(found, &end, 10);
  if (end == found) {
    const bool nothing = found[strspn(found, " \t\n\v\f\r")] == '\0';
    HCX_LOG(LOG_ERROR, "board %d error with sscanf %d info_string %s", static_cast<int>(board),
            nothing ? EOF : 0, host->info);
    return 1;
  }
  *pQoSSpeed = static_cast<uint16_t>(std::clamp<long>(speed / 10, 0, unknown - 1));
  return 0;
}
