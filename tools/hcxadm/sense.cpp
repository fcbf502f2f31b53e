// SPDX-License-Identifier: BSD-3-Clause
// SCSI answers in words. No state.
#include "sense.h"

#include <cstdio>

namespace hcxadm {
namespace {

constexpr const char *sense_keys[16] = {
    "no sense",       "recovered error", "not ready",      "medium error",
    "hardware error", "illegal request", "unit attention", "data protect",
    "blank check",    "vendor specific", "copy aborted",   "aborted command",
    "reserved",       "volume overflow", "miscompare",     "completed"};

struct AdditionalSense {
  uint8_t code, qualifier;
  const char *name;
};
constexpr AdditionalSense additional_senses[] = {
    {0x04, 0x01, "becoming ready"},
    {0x04, 0x02, "start command needed"},
    {0x04, 0x0b, "target port on standby"},
    {0x04, 0x0c, "target port unavailable"},
    {0x11, 0x00, "unrecovered read error"},
    {0x1a, 0x00, "parameter list length error"},
    {0x20, 0x00, "unknown operation code"},
    {0x21, 0x00, "block address out of range"},
    {0x24, 0x00, "invalid field in CDB"},
    {0x25, 0x00, "LUN not supported"},
    {0x26, 0x00, "invalid field in parameters"},
    {0x27, 0x00, "write protected"},
    {0x28, 0x00, "medium may have changed"},
    {0x29, 0x00, "power on or reset"},
    {0x2a, 0x09, "capacity changed"},
    {0x3a, 0x00, "medium not present"},
    {0x3f, 0x0e, "LUN list changed"},
};

}  // namespace

std::string sense_text(const std::vector<uint8_t> &sense) {
  if (sense.empty()) return {};
  const unsigned format = sense[0] & 0x7f;
  const bool fixed = format == 0x70 || format == 0x71;
  const bool descriptors = format == 0x72 || format == 0x73;
  const size_t needed = fixed ? 14 : 4;
  if ((!fixed && !descriptors) || sense.size() < needed) return "sense data of unknown form";
  const uint8_t key = sense[fixed ? 2 : 1] & 0x0f;
  const uint8_t code = sense[fixed ? 12 : 2];
  const uint8_t qualifier = sense[fixed ? 13 : 3];
  std::string text = sense_keys[key];
  for (const AdditionalSense &row : additional_senses)
    if (row.code == code && row.qualifier == qualifier) text += std::string(", ") + row.name;
  char numbers[24];
  std::snprintf(numbers, sizeof numbers, " (%x/%02x/%02x)", key, code, qualifier);
  return text + numbers;
}

const char *device_type_name(uint8_t peripheral) {
  if (peripheral >> 5 == 3) return "no device";
  switch (peripheral & 0x1f) {
    case 0x00:
      return "disk";
    case 0x01:
      return "tape";
    case 0x05:
      return "optical disc";
    case 0x08:
      return "medium changer";
    case 0x0c:
      return "array controller";
    case 0x0d:
      return "enclosure";
    case 0x11:
      return "object storage";
    case 0x1e:
      return "well-known LUN";
    case 0x1f:
      return "no device";
    default:
      return "other";
  }
}

}  // namespace hcxadm
