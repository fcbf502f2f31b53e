// SPDX-License-Identifier: BSD-3-Clause
// Growing and overwriting of the buffers for secrets. Every block is wiped before it goes back to the allocator,
// also the one that a larger one replaces.
#include "hcx_secret.h"

#include <algorithm>
#include <cstring>

namespace hcx {

void wipe(void *data, size_t size) {
  explicit_bzero(data, size);
}

void Secret::wipe_all() {
  if (data_) wipe(data_.get(), capacity_);
}

bool Secret::reserve(size_t capacity) {
  if (capacity <= capacity_) return true;
  HeapArray<char> larger = heap_array<char>(capacity);
  if (!larger) return false;
  if (size_) memcpy(larger.get(), data_.get(), size_);
  wipe_all();
  data_ = std::move(larger);
  capacity_ = capacity;
  return true;
}

bool Secret::append(std::string_view text) {
  if (text.empty()) return true;
  if (text.size() > room() && !reserve(std::max(size_ + text.size(), capacity_ * 2))) return false;
  memcpy(tail(), text.data(), text.size());
  grow(text.size());
  return true;
}

}  // namespace hcx
