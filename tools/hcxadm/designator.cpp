// SPDX-License-Identifier: BSD-3-Clause
// Decodes what a LUN says of its identity. The bytes come from a device and are not trusted.
#include "designator.h"

#include <algorithm>

namespace hcxadm {
namespace {

constexpr const char *type_names[16] = {
    "vendor", "t10",           "eui",  "naa",      "relative port", "port group", "unit group", "md5",
    "name",   "protocol port", "uuid", "reserved", "reserved",      "reserved",   "reserved",   "reserved"};

std::string hex_digits(const uint8_t *bytes, size_t size) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < size; ++i) {
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 15];
  }
  return text;
}

// Padding of zeros or blanks at the end says nothing.
std::string trimmed(const uint8_t *bytes, size_t size) {
  std::string text(reinterpret_cast<const char *>(bytes), size);
  while (!text.empty() && (text.back() == '\0' || text.back() == ' '))
    text.pop_back();
  return text;
}

}  // namespace

std::optional<Designator> designator_of(const uint8_t *bytes, size_t size) {
  if (size < 4 || bytes[3] == 0 || bytes[3] + size_t{4} > size) return {};
  static constexpr const char *associations[] = {"lun", "port", "device", "reserved"};
  const unsigned code_set = bytes[0] & 0x0f;
  const bool text = code_set == 2 || code_set == 3;  // ASCII, UTF-8
  Designator designator;
  designator.type = type_names[bytes[1] & 0x0f];
  designator.association = associations[bytes[1] >> 4 & 3];
  designator.value = text ? trimmed(bytes + 4, bytes[3]) : hex_digits(bytes + 4, bytes[3]);
  return designator;
}

std::vector<Designator> designators_of(const uint8_t *page, size_t size) {
  std::vector<Designator> all;
  if (size < 4) return all;
  const size_t end = std::min(size, size_t{4} + (size_t{page[2]} << 8 | page[3]));
  for (size_t at = 4; at + 4 <= end; at += 4 + size_t{page[at + 3]})
    if (std::optional<Designator> one = designator_of(page + at, end - at)) all.push_back(*one);
  return all;
}

}  // namespace hcxadm
