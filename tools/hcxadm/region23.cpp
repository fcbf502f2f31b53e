// SPDX-License-Identifier: BSD-3-Clause
// See region23.h.
#include "region23.h"

#include <algorithm>

namespace hcxadm::region23 {
namespace {

using bytes::Bytes;

constexpr uint8_t fip = 0xa0, connect_list = 0xa1, driver = 0xa2, end = 0xff;
constexpr uint8_t header[] = {'R', 'G', '2', '3', 1};

uint8_t at(const Bytes &data, size_t offset) {
  return offset < data.size() ? data[offset] : 0;
}

uint32_t little16(const Bytes &data, size_t offset) {
  return at(data, offset) | at(data, offset + 1) << 8;
}

std::string digits(const Bytes &data, size_t from, size_t count) {
  std::string text;
  for (size_t i = from; i < from + count; ++i)
    text += (i == from ? "" : ":") + bytes::digits({at(data, i)});
  return text;
}

std::string fip_text(const Bytes &data) {
  std::string text = "FC-MAP " + digits(data, 4, 3);
  return text + ((at(data, 3) & 1) != 0 ? ", VLAN " + std::to_string(little16(data, 8)) : ", no VLAN");
}

std::string list_text(const Bytes &data) {
  constexpr size_t entries = 16, entry = 20;
  int in_use = 0;
  for (size_t i = 0; i < entries; ++i)
    in_use += at(data, 4 + i * entry + 1) & 1;
  return std::to_string(in_use) + " of 16 entries in use";
}

std::string driver_text(const Bytes &data) {
  constexpr uint8_t port_status = 1;
  std::string text = "driver 0x" + bytes::digits({at(data, 3), at(data, 2)});
  for (size_t sub = 4; sub < data.size() && at(data, sub) != end; sub += 4 + size_t{4} * at(data, sub + 1)) {
    if (at(data, sub) != port_status)
      text += ", sub-record 0x" + bytes::digits({at(data, sub)});
    else if (at(data, sub + 2) > 1)
      text += ", link setting " + std::to_string(at(data, sub + 2));
    else
      text += at(data, sub + 2) == 0 ? ", link held down" : ", link normal";
  }
  return text;
}

struct Kind {
  uint8_t type;
  const char *name;
  std::string (*text)(const Bytes &);
};

constexpr Kind kinds[] = {
    {fip, "FIP parameters", fip_text},
    {connect_list, "FCF connect list", list_text},
    {driver, "driver", driver_text},
    {end, "end", nullptr},
};

Record record_at(const Bytes &image, size_t offset) {
  Record record{.offset = offset,
                .type = at(image, offset),
                .words = at(image, offset + 1),
                .name = "unknown",
                .contents = {},
                .data = {}};
  const size_t length = record.type == end ? 4 : 4 + size_t{4} * record.words;
  const auto from = image.begin() + static_cast<ptrdiff_t>(offset);
  record.data.assign(from, from + static_cast<ptrdiff_t>(std::min(length, image.size() - offset)));
  for (const Kind &kind : kinds) {
    if (kind.type != record.type) continue;
    record.name = kind.name;
    if (kind.text) record.contents = kind.text(record.data);
  }
  return record;
}

}  // namespace

View view(const Bytes &image) {
  View result;
  if (image.size() != size) {
    result.fault = "it has " + std::to_string(image.size()) + " bytes instead of 1024";
    return result;
  }
  if (!std::equal(std::begin(header), std::end(header), image.begin())) {
    result.fault = "it begins with " + bytes::digits(Bytes(image.begin(), image.begin() + sizeof header)) +
                   ", not with the signature and revision of this layout";
    return result;
  }
  for (size_t offset = 8; offset + 4 <= size;) {
    const Record &record = result.records.emplace_back(record_at(image, offset));
    if (record.type == end) return result;
    offset += 4 + size_t{4} * record.words;
  }
  result.fault = "its records have no end mark";
  return result;
}

}  // namespace hcxadm::region23
