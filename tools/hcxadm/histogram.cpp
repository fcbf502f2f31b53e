// SPDX-License-Identifier: BSD-3-Clause
#include "histogram.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <ostream>

namespace hcxadm {
namespace {

constexpr size_t bar_width = 40;

// Where the I/O of that percentile lies; `buckets` without I/Os.
size_t bucket_of(const Histogram &histogram, double rank, double *before) {
  *before = 0;
  for (size_t i = 0; i < Histogram::buckets; ++i) {
    if (histogram.counts[i] > 0 && *before + histogram.counts[i] >= rank) return i;
    *before += histogram.counts[i];
  }
  return Histogram::buckets;
}

std::string number_text(double value) {
  char text[32];
  const bool whole = value == std::floor(value);
  std::snprintf(text, sizeof text, whole ? "%.0f" : "%.1f", value);
  return text;
}

}  // namespace

uint64_t Histogram::total() const {
  return std::accumulate(counts.begin(), counts.end(), uint64_t{0});
}

double Histogram::share(size_t bucket) const {
  const uint64_t all = total();
  return all ? static_cast<double>(counts[bucket]) / static_cast<double>(all) : 0;
}

std::optional<double> Histogram::to_ms(size_t bucket) const {
  return bucket + 1 < buckets ? std::optional(bounds_ms[bucket]) : std::nullopt;
}

std::optional<double> Histogram::percentile(double percent) const {
  double before;
  const double rank = percent / 100 * static_cast<double>(total());
  const size_t bucket = bucket_of(*this, rank, &before);
  if (bucket + 1 >= buckets) return {};
  const double from = from_ms(bucket);
  return from + (bounds_ms[bucket] - from) * (rank - before) / counts[bucket];
}

std::string percentile_text(const Histogram &histogram, double percent) {
  if (const std::optional<double> ms = histogram.percentile(percent)) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f ms", *ms);
    return text;
  }
  if (histogram.total() == 0) return "-";
  return "over " + number_text(histogram.from_ms(Histogram::buckets - 1)) + " ms";
}

void draw(std::ostream &out, const Histogram &histogram) {
  const uint64_t total = histogram.total();
  if (total == 0) {
    out << "  no I/O yet\n";
    return;
  }
  size_t first = 0, last = Histogram::buckets - 1;
  while (histogram.counts[first] == 0)
    ++first;
  while (histogram.counts[last] == 0)
    --last;
  const uint32_t most = *std::max_element(histogram.counts.begin(), histogram.counts.end());
  char line[96];
  std::snprintf(line, sizeof line, "  %10s  %-10s  %10s  %7s\n", "ABOVE(ms)", "UP TO(ms)", "I/Os", "SHARE");
  out << line;
  for (size_t i = first; i <= last; ++i) {
    const std::optional<double> to = histogram.to_ms(i);
    std::snprintf(line, sizeof line, "  %10s  %-10s  %10u  %5.1f %%  ",
                  number_text(histogram.from_ms(i)).c_str(), to ? number_text(*to).c_str() : "-",
                  histogram.counts[i], histogram.share(i) * 100);
    // What is there at all is seen.
    const double length = std::ceil(static_cast<double>(histogram.counts[i]) * bar_width / most);
    out << line << std::string(static_cast<size_t>(length), '#') << '\n';
  }
  out << "  " << total << " I/Os";
  for (const double percent : {50.0, 95.0, 99.0})
    out << ", p" << percent << ' ' << percentile_text(histogram, percent);
  out << '\n';
}

}  // namespace hcxadm
