// SPDX-License-Identifier: BSD-3-Clause
// Integers of a fixed byte order as values over byte arrays. Records laid out for the adapter use them as
// fields, so that their bytes are the same on every processor; they have no alignment and may lie anywhere.
// Plain values: any thread may have its own.
#pragma once

#include <cstddef>
#include <cstdint>

namespace hcx {

enum class ByteOrder { big, little };

template <class Value, ByteOrder order>
class Bytes {
 public:
  constexpr Bytes() = default;
  // A field is set and read like the integer that it holds.
  constexpr Bytes(Value value) { store(value); }
  constexpr operator Value() const { return load(); }
  constexpr Bytes &operator=(Value value) {
    store(value);
    return *this;
  }

 private:
  static constexpr size_t place(size_t digit) {
    return order == ByteOrder::little ? digit : sizeof(Value) - 1 - digit;
  }
  constexpr void store(Value value) {
    for (size_t digit = 0; digit < sizeof(Value); ++digit)
      bytes_[place(digit)] = static_cast<uint8_t>(value >> (8 * digit));
  }
  constexpr Value load() const {
    Value value = 0;
    for (size_t digit = 0; digit < sizeof(Value); ++digit)
      value = static_cast<Value>(value | static_cast<Value>(bytes_[place(digit)]) << (8 * digit));
    return value;
  }

  uint8_t bytes_[sizeof(Value)] = {};
};

using be16 = Bytes<uint16_t, ByteOrder::big>;
using be32 = Bytes<uint32_t, ByteOrder::big>;
using be64 = Bytes<uint64_t, ByteOrder::big>;
using le16 = Bytes<uint16_t, ByteOrder::little>;
using le32 = Bytes<uint32_t, ByteOrder::little>;

// The integer at an address of any alignment.
template <class Integer>
Integer load_bytes(const void *at) {
  Integer value;
  __builtin_memcpy(&value, at, sizeof(value));
  return value;
}
inline uint32_t load_be32(const void *at) {
  return load_bytes<be32>(at);
}
inline uint32_t load_le32(const void *at) {
  return load_bytes<le32>(at);
}
template <class Integer>
void store_bytes(void *at, Integer value) {
  __builtin_memcpy(at, &value, sizeof(value));
}
inline void store_be32(void *at, uint32_t value) {
  store_bytes<be32>(at, value);
}
inline void store_le32(void *at, uint32_t value) {
  store_bytes<le32>(at, value);
}

static_assert(sizeof(be16) == 2 && alignof(be16) == 1 && sizeof(le16) == 2);
static_assert(sizeof(be32) == 4 && alignof(be32) == 1 && sizeof(le32) == 4);
static_assert(sizeof(be64) == 8 && alignof(be64) == 1);

}  // namespace hcx
