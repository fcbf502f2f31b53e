// SPDX-License-Identifier: BSD-3-Clause
// Big- and little-endian numbers in byte strings, bounded: reading beyond the end gives 0, writing there grows the
// string. For everything that the simulated adapter and fabric put on a wire.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace sim {

inline uint64_t get_be(std::string_view bytes, size_t offset, size_t width) {
  uint64_t value = 0;
  for (size_t i = 0; i < width; i++) {
    value = value << 8 | (offset + i < bytes.size() ? static_cast<uint8_t>(bytes[offset + i]) : 0);
  }
  return value;
}

inline void put_be(std::string &bytes, size_t offset, uint64_t value, size_t width) {
  if (bytes.size() < offset + width) bytes.resize(offset + width);
  for (size_t i = 0; i < width; i++)
    bytes[offset + i] = static_cast<char>(value >> (8 * (width - 1 - i)));
}

inline void put_le(std::string &bytes, size_t offset, uint64_t value, size_t width) {
  if (bytes.size() < offset + width) bytes.resize(offset + width);
  for (size_t i = 0; i < width; i++)
    bytes[offset + i] = static_cast<char>(value >> (8 * i));
}

inline uint64_t get_le(std::string_view bytes, size_t offset, size_t width) {
  uint64_t value = 0;
  for (size_t i = width; i-- > 0;) {
    value = value << 8 | (offset + i < bytes.size() ? static_cast<uint8_t>(bytes[offset + i]) : 0);
  }
  return value;
}

// Puts bytes at an offset, growing the string when they reach beyond its end.
inline void put_bytes(std::string &bytes, size_t offset, std::string_view data) {
  if (bytes.size() < offset + data.size()) bytes.resize(offset + data.size());
  bytes.replace(offset, data.size(), data);
}

// Lower-case digits, two a byte, and back; a text that is not such gives what could be read of it.
std::string to_hex(std::string_view bytes);
std::string from_hex(std::string_view text);

}  // namespace sim
