// SPDX-License-Identifier: BSD-3-Clause
// Fixed-size texts on the stack: paths and attribute values. Longer texts are cut, never overrun.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace hcx {

template <size_t Size>
class Text {
 public:
  Text() { text_[0] = '\0'; }
  __attribute__((format(printf, 2, 3))) explicit Text(const char *format, ...) {
    va_list args;
    va_start(args, format);
    vsnprintf(text_, Size, format, args);
    va_end(args);
  }
  // Texts that are there already, for what is done too often for printf(). Null is an empty one.
  Text &assign(const char *text) {
    text_[0] = '\0';
    return append(text);
  }
  Text &append(const char *text) {
    if (!text) return *this;
    const size_t before = strlen(text_), length = strnlen(text, Size - 1 - before);
    memcpy(text_ + before, text, length);
    text_[before + length] = '\0';
    return *this;
  }
  const char *c_str() const { return text_; }
  char *data() { return text_; }
  static constexpr size_t size() { return Size; }
  bool empty() const { return text_[0] == '\0'; }
  bool equals(const char *other) const { return strcmp(text_, other) == 0; }

 private:
  char text_[Size];
};

using Path = Text<256>;  // a sysfs or device path, at most 255 characters
using Line = Text<256>;  // the first line of an attribute

// The directory of a host's driver attributes, with its trailing "/".
inline Path scsi_host_dir(unsigned host_no) {
  return Path("/sys/class/scsi_host/host%d/", static_cast<int>(host_no));
}
inline Path fc_host_dir(unsigned host_no) {
  return Path("/sys/class/fc_host/host%d/", static_cast<int>(host_no));
}

}  // namespace hcx
