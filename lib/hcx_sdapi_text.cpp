// SPDX-License-Identifier: BSD-3-Clause
// Readers of the driver's latency texts.
//
// State, two lines; times are milliseconds, blanks around values do not count:
//   Statistics Data enabled :0, blocked :0, Bucket type :linear, Bucket base :10, Bucket step :5
//   Bucket ranges :10 15 20 25 30 35 40 45 50 55 60 65 70 75 80 85 90 95 100 105
// Data of a target:
//   500601603ea01001:17,208,1024, ...
#include "hcx_sdapi_text.h"

#include <algorithm>
#include <charconv>
#include <cstring>

namespace hcx::sd {
namespace {

constexpr std::string_view blanks = " \t\r";

std::string_view trimmed(std::string_view text) {
  const size_t first = text.find_first_not_of(blanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

// Goes along a text from separator to separator.
class Cursor {
 public:
  explicit Cursor(std::string_view text) : rest_(text) {}
  bool empty() const { return rest_.empty(); }
  // To behind the next `separator`; false when there is none.
  bool skip_past(char separator) {
    const size_t at = rest_.find(separator);
    if (at == rest_.npos) return false;
    rest_.remove_prefix(at + 1);
    return true;
  }
  void skip_blanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(blanks), rest_.size())); }
  // What stands before the next `separator`, or all that is left, and on to behind it.
  std::string_view take(char separator) {
    const size_t length = std::min(rest_.find(separator), rest_.size());
    const std::string_view field = rest_.substr(0, length);
    rest_.remove_prefix(std::min(length + 1, rest_.size()));
    return field;
  }

 private:
  std::string_view rest_;
};

std::string_view terminated(std::string_view text) {
  return text.substr(0, text.find('\0'));
}

std::string_view first_line(std::string_view state) {
  return Cursor(terminated(state)).take('\n');
}

// A whole number and nothing else; saturated when that is too large. `base` as strtoul() has it.
bool read_number(std::string_view text, int base, uint64_t *value) {
  if (base == 0) {
    base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
      base = 16;
      text.remove_prefix(2);
    } else if (text.size() > 1 && text[0] == '0') {
      base = 8;
    }
  }
  const char *end = text.data() + text.size();
  const auto [behind, error] = std::from_chars(text.data(), end, *value, base);
  if (error == std::errc::result_out_of_range) *value = UINT64_MAX;
  return error != std::errc::invalid_argument && behind == end;
}

bool read_ms(std::string_view text, int base, uint64_t *ns) {
  uint64_t ms;
  if (!read_number(trimmed(text), base, &ms) || ms > UINT64_MAX / ns_per_ms) return false;
  *ns = ms * ns_per_ms;
  return true;
}

// The word of the third field; the cursor goes on behind it.
bool read_type(Cursor *line, std::string_view *type) {
  if (!line->skip_past(',') || !line->skip_past(',')) return false;
  Cursor field(line->take(','));
  if (!field.skip_past(':')) return false;
  *type = trimmed(field.take('\0'));
  return true;
}

bool read_field(Cursor *line, uint32_t *ns) {
  uint64_t value;
  if (!line->skip_past(':') || !read_ms(line->take(','), 0, &value)) return false;
  *ns = static_cast<uint32_t>(value);
  return true;
}

bool read_bounds(std::string_view line, uint64_t *values) {
  Cursor bounds(line);
  if (!bounds.skip_past(':')) return false;
  for (size_t i = 0; i < SD_BUCKETS; ++i) {
    bounds.skip_blanks();
    if (!read_ms(bounds.take(' '), 10, &values[i])) return false;
  }
  return true;
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool read_name(std::string_view digits, HBA_WWN *wwn) {
  if (digits.size() != 2 * sizeof wwn->wwn) return false;
  for (size_t i = 0; i < sizeof wwn->wwn; ++i) {
    const int high = hex_digit(digits[2 * i]), low = hex_digit(digits[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    wwn->wwn[i] = static_cast<uint8_t>(high << 4 | low);
  }
  return true;
}

}  // namespace

bool tells_collecting(std::string_view state) {
  Cursor line(first_line(state));
  return line.skip_past(':') && trimmed(line.take(',')) != "0";
}

bool tells_bucket(std::string_view state) {
  Cursor line(first_line(state));
  std::string_view type;
  return read_type(&line, &type) && type != "No Bucket";
}

Definition read_definition(std::string_view state, uint16_t *search_type, uint32_t *base, uint32_t *step,
                           uint64_t *values) {
  Cursor lines(terminated(state));
  Cursor line(lines.take('\n'));
  std::string_view type;
  if (!read_type(&line, &type)) return Definition::malformed;
  if (type == "No Bucket") return Definition::not_set;
  if (type == "linear") {
    *search_type = SD_SEARCH_LINEAR;
  } else if (type == "power2") {
    *search_type = SD_SEARCH_POWER_2;
  } else {
    return Definition::malformed;
  }
  if (!read_field(&line, base) || !read_field(&line, step)) return Definition::malformed;
  // Half of the array, as ever; a definition that is read to its end sets all of it.
  memset(values, 0, 80);
  return read_bounds(lines.take('\n'), values) ? Definition::ok : Definition::malformed;
}

bool read_record(std::string_view record, SD_IO_Latency_Response *response) {
  memset(response, 0, sizeof *response);
  const std::string_view text = first_line(record);
  if (text.find(':') == text.npos) return false;
  Cursor line(text);
  if (!read_name(line.take(':'), &response->sd_iolatency_target_wwpn)) return false;
  for (size_t i = 0; i < SD_BUCKETS && !line.empty(); ++i) {
    uint64_t count;
    if (!read_number(trimmed(line.take(',')), 10, &count)) return false;
    response->sd_time_stats_array[i].sd_tstats_bucket_count =
        static_cast<uint32_t>(std::min<uint64_t>(count, UINT32_MAX));
  }
  return true;
}

}  // namespace hcx::sd
