// SPDX-License-Identifier: BSD-3-Clause
// Port statistics and their reset. The kernel's counters cannot be cleared, so a reset keeps a snapshot in
// the host record, and reads are relative to it.
//
// The snapshot belongs to the host record. Resets and reads both hold the host's read lock; snapshot_mutex
// keeps them apart. It is a leaf: nothing is taken inside, and the event signal stays away meanwhile.
#include <cstring>
#include <mutex>
#include <utility>

#include "hcx_signal.h"
#include "libhcx.h"

namespace hcx {
namespace {

constexpr const char *kStatFiles[] = {
    "seconds_since_last_reset",
    "tx_frames",
    "tx_words",
    "rx_frames",
    "rx_words",
    "lip_count",
    "nos_count",
    "error_frames",
    "dumped_frames",
    "link_failure_count",
    "loss_of_sync_count",
    "loss_of_signal_count",
    "prim_seq_protocol_err_count",
    "invalid_tx_word_count",
    "invalid_crc_count",
};
constexpr size_t kCounters = sizeof kStatFiles / sizeof *kStatFiles;
// The record seen as a row: unsigned, since differences may wrap.
struct Counters {
  uint64_t value[kCounters];
};
static_assert(sizeof(HBA_PORTSTATISTICS) == 120 && sizeof(Counters) == 120);
constexpr size_t kLip = offsetof(HBA_PORTSTATISTICS, LIPCount) / 8;
constexpr size_t kNos = offsetof(HBA_PORTSTATISTICS, NOSCount) / 8;
constexpr size_t kDumped = offsetof(HBA_PORTSTATISTICS, DumpedFrames) / 8;

constinit std::mutex snapshot_mutex;

bool read_counters(hcx_host *host, Counters &counters) {
  if (sysfs_ver < LK2_6_12)
    return hcx_host_stats_read(host, &counters, 0, sizeof counters) == sizeof counters;
  for (size_t i = 0; i < kCounters; ++i)
    counters.value[i] = hcx_host_stat_read(host, kStatFiles[i]);
  return true;
}

void subtract_snapshot(const hcx_host *host, Counters &counters) {
  const EventSignalBlock no_events;
  const std::lock_guard<std::mutex> guard(snapshot_mutex);
  if (!host->stat_reset) return;
  Counters base;
  memcpy(&base, host->stat_reset, sizeof base);
  for (size_t i = 0; i < kCounters; ++i)
    counters.value[i] -= base.value[i];
}

bool has_snapshot(const hcx_host *host) {
  const EventSignalBlock no_events;
  const std::lock_guard<std::mutex> guard(snapshot_mutex);
  return host->stat_reset != nullptr;
}

// Renews the host's snapshot, or makes `fresh` its first. Without either another reset has just ended the
// earlier one, and is taken to be the later of the two.
void store_snapshot(hcx_host *host, const Counters &counters, HeapArray<uint8_t> fresh) {
  const EventSignalBlock no_events;
  const std::lock_guard<std::mutex> guard(snapshot_mutex);
  if (!host->stat_reset) host->stat_reset = fresh.release();
  if (host->stat_reset) memcpy(host->stat_reset, &counters, sizeof counters);
}

void drop_snapshot(hcx_host *host) {
  const EventSignalBlock no_events;
  const std::lock_guard<std::mutex> guard(snapshot_mutex);
  const HeapArray<uint8_t> old(std::exchange(host->stat_reset, nullptr));
}

}  // namespace
}  // namespace hcx

using namespace hcx;

extern "C" uint32_t GetPortStatistics(uint32_t board, uint32_t /*pidx*/, HBA_PORTSTATISTICS *pstat) {
  HCX_TRACE();
  if (!pstat) return HBA_STATUS_ERROR_ARG;
  HostRef host = board_host(board);
  if (!host) {
    HCX_LOG(LOG_ERROR, "no host on board %d", board);
    return HBA_STATUS_ERROR_UNAVAILABLE;
  }
  Counters counters = {};
  if (!read_counters(host.get(), counters)) {
    host.drop();
    HCX_LOG(LOG_ERROR, "board %d error reading host stats", board);
    return HBA_STATUS_ERROR;
  }
  subtract_snapshot(host.get(), counters);
  memcpy(pstat, &counters, sizeof *pstat);
  return HBA_STATUS_OK;
}

extern "C" void ResetStatistics(uint32_t board, uint32_t /*portindex*/) {
  HCX_TRACE();
  const HostRef host = board_host(board);
  if (!host) {
    HCX_LOG(LOG_ERROR, "no host on board %d", board);
    return;
  }
  HeapArray<uint8_t> fresh;
  if (!has_snapshot(host.get())) {
    fresh = heap_array<uint8_t>(sizeof(Counters));
    if (!fresh) {
      HCX_LOG(LOG_ERROR, "board %d no host stat_reset", board);
      return;
    }
  }
  Counters counters;
  if (hcx_host_stats_read(host.get(), &counters, 0, sizeof counters) != sizeof counters) {
    drop_snapshot(host.get());
    HCX_LOG(LOG_ERROR, "board %d error reading host stats", board);
    return;
  }
  // A counter that is not kept must go on reading all ones.
  for (size_t counter : {kLip, kNos, kDumped})
    if (counters.value[counter] == UINT64_MAX) counters.value[counter] = 0;
  store_snapshot(host.get(), counters, std::move(fresh));
}
