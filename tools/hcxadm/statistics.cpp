// SPDX-License-Identifier: BSD-3-Clause
// Reads port statistics through the library and tells absent counters from zeros.
#include "statistics.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

#include "status.h"

namespace hcxadm {

const std::array<Counter, counter_count> counters = {{
    {"seconds_since_last_reset", "SECONDS SINCE RESET", "seconds_since_last_reset",
     "seconds_since_last_reset", "Seconds since the counters started"},
    {"tx_frames", "TX FRAMES", "tx_frames", "tx_frames", "Frames sent"},
    {"tx_words", "TX WORDS", "tx_words", "tx_words", "Words of 4 bytes sent"},
    {"rx_frames", "RX FRAMES", "rx_frames", "rx_frames", "Frames received"},
    {"rx_words", "RX WORDS", "rx_words", "rx_words", "Words of 4 bytes received"},
    {"lip_count", "LIPS", "lip_count", "lip", "Loop initialisations"},
    {"nos_count", "NOS", "nos_count", "nos", "Not-operational sequences"},
    {"error_frames", "ERROR FRAMES", "error_frames", "error_frames", "Frames received with errors"},
    {"dumped_frames", "DUMPED FRAMES", "dumped_frames", "dumped_frames", "Frames lost for lack of buffers"},
    {"link_failures", "LINK FAILURES", "link_failure_count", "link_failure", "Link failures"},
    {"loss_of_sync", "LOSSES OF SYNC", "loss_of_sync_count", "loss_of_sync", "Losses of synchronisation"},
    {"loss_of_signal", "LOSSES OF SIGNAL", "loss_of_signal_count", "loss_of_signal", "Losses of signal"},
    {"protocol_errors", "PROTOCOL ERRORS", "prim_seq_protocol_err_count", "prim_seq_protocol_err",
     "Primitive sequence protocol errors"},
    {"invalid_tx_words", "INVALID TX WORDS", "invalid_tx_word_count", "invalid_tx_words",
     "Invalid transmission words"},
    {"invalid_crcs", "INVALID CRCS", "invalid_crc_count", "invalid_crc", "Frames with invalid CRC"},
}};

namespace {

// A zero may be the library's stand-in for a counter that the kernel does not show and, after a reset, the difference of
// two marks of a counter that is not kept.
bool kept_by_kernel(const Board &board, const Counter &counter) {
  if (sysfs_ver < LK2_6_12) return true;  // one block with all of them
  const std::optional<uint64_t> value =
      number_attribute(board.fc_host_dir() + "statistics/", counter.file, 16);
  return value && *value != UINT64_MAX;
}

}  // namespace

Sample read_statistics(const Board &board) {
  HBA_PORTSTATISTICS stat = {};
  const uint32_t result = GetPortStatistics(static_cast<uint32_t>(board.number), 0, &stat);
  if (result != HBA_STATUS_OK)
    throw call_failure(Family::hba, result, "reading the statistics", board.name());
  const int64_t values[counter_count] = {stat.SecondsSinceLastReset,
                                         stat.TxFrames,
                                         stat.TxWords,
                                         stat.RxFrames,
                                         stat.RxWords,
                                         stat.LIPCount,
                                         stat.NOSCount,
                                         stat.ErrorFrames,
                                         stat.DumpedFrames,
                                         stat.LinkFailureCount,
                                         stat.LossOfSyncCount,
                                         stat.LossOfSignalCount,
                                         stat.PrimitiveSeqProtocolErrCount,
                                         stat.InvalidTxWordCount,
                                         stat.InvalidCRCCount};
  Sample sample;
  for (size_t i = 0; i < counter_count; ++i) {
    const bool kept = values[i] != -1;
    if (kept && (values[i] != 0 || kept_by_kernel(board, counters[i])))
      sample[i] = static_cast<uint64_t>(values[i]);
  }
  return sample;
}

void reset_statistics(const Board &board) {
  // The library says nothing of how a reset went, so what it needs is looked at first.
  uint64_t block[counter_count];
  size_t got = 0;
  if (HostLock host(board.number); host) got = hcx_host_stats_read(host.get(), block, 0, sizeof block);
  if (got != sizeof block)
    throw Failure({.status = kNotSupported,
                   .tried = "resetting the statistics",
                   .board = board.name(),
                   .code = {},
                   .name = "the driver offers no snapshot of the counters",
                   .todo = "use --watch, which shows what is new"});
  ResetStatistics(static_cast<uint32_t>(board.number), 0);
}

Rates rates_between(const Sample &before, const Sample &after, double seconds) {
  Rates rates;
  if (seconds <= 0) return rates;
  for (size_t i = 0; i < counter_count; ++i)
    if (before[i] && after[i] && *after[i] >= *before[i])
      rates[i] = static_cast<double>(*after[i] - *before[i]) / seconds;
  return rates;
}

std::optional<double> error_rate(const Rates &rates) {
  static constexpr size_t error_counters[] = {7, 8, 9, 10, 11, 12, 13, 14};
  std::optional<double> sum;
  for (size_t i : error_counters)
    if (rates[i]) sum = sum.value_or(0) + *rates[i];
  return sum;
}

double rounded_rate(double rate) {
  return std::round(rate * 10) / 10;
}

Ticker ticker = {
    [] { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); },
    [](double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); },
};

}  // namespace hcxadm
