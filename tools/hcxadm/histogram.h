// SPDX-License-Identifier: BSD-3-Clause
// Histograms of I/O latency: shares, percentile estimates, and the drawing for a terminal. No I/O but the stream.
#pragma once

#include <array>
#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>

namespace hcxadm {

struct Histogram {
  static constexpr size_t buckets = 20;
  std::array<double, buckets> bounds_ms{};  // upper ends; the last bucket has none
  std::array<uint32_t, buckets> counts{};

  uint64_t total() const;
  double share(size_t bucket) const;  // of all I/Os, 0 without any
  double from_ms(size_t bucket) const { return bucket == 0 ? 0 : bounds_ms[bucket - 1]; }
  std::optional<double> to_ms(size_t bucket) const;
  // The time within which so many of a hundred I/Os were done, as if they lay evenly in their bucket; absent without
  // I/Os, and in the last bucket, which has no upper end.
  std::optional<double> percentile(double percent) const;
};

// "7.2 ms"; "over 105 ms" for what lies in the last bucket.
std::string percentile_text(const Histogram &histogram, double percent);
// One line a bucket, from the first with I/Os to the last, and a line of percentiles.
void draw(std::ostream &out, const Histogram &histogram);

}  // namespace hcxadm
