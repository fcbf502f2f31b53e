// SPDX-License-Identifier: BSD-3-Clause
// Memory for secrets: it is overwritten before it is given back. An object belongs to one thread.
#pragma once

#include <cstddef>
#include <string_view>

#include "hcx_guard.h"

namespace hcx {

// Overwrites a record that held a secret; the compiler does not leave this out.
void wipe(void *data, size_t size);

// A growing byte buffer that leaves nothing behind in the heap.
class Secret {
 public:
  Secret() = default;
  Secret(const Secret &) = delete;
  Secret &operator=(const Secret &) = delete;
  ~Secret() { wipe_all(); }

  const char *data() const { return data_.get(); }
  size_t size() const { return size_; }
  std::string_view view() const { return {data_.get(), size_}; }
  // Both give false when there is no memory; what was there before stays.
  bool append(std::string_view text);
  bool reserve(size_t capacity);
  // Room behind the bytes, and taking some of it in.
  char *tail() { return data_.get() + size_; }
  size_t room() const { return capacity_ - size_; }
  void grow(size_t count) { size_ += count; }

 private:
  void wipe_all();

  HeapArray<char> data_;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

}  // namespace hcx
