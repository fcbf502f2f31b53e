// SPDX-License-Identifier: BSD-3-Clause
// Finds LUNs by what users call them and puts SCSI answers into words.
#include "scsi.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "output.h"
#include "status.h"

namespace hcxadm {
namespace {

[[noreturn]] void no_such(const std::string &what, const Board &board, const char *where) {
  throw Failure({.status = kNoSuch,
                 .tried = what,
                 .board = board.name(),
                 .code = {},
                 .name = "not found",
                 .todo = std::string("see \"hcxadm ") + where + " " + std::to_string(board.number) + "\""});
}

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

std::string LunAddress::text() const {
  return "LUN " + std::to_string(number) + " behind " + wwn_text(target.wwn);
}

Port find_port(Boards &boards, const Board &board, const std::string &wwpn) {
  const std::optional<HBA_WWN> wanted = parse_wwn(wwpn);
  if (!wanted)
    throw Failure({.status = kUsage,
                   .tried = "\"" + wwpn + "\" is no WWPN",
                   .board = {},
                   .code = {},
                   .name = {},
                   .todo = "give 16 hexadecimal digits, as \"hcxadm port\" shows them"});
  for (Port &port : boards.ports(board))
    if (std::equal(port.wwpn.wwn, port.wwpn.wwn + 8, wanted->wwn)) return port;
  no_such("remote port " + wwn_text(wanted->wwn), board, "port");
}

LunAddress find_lun(Boards &boards, const LunName &name) {
  LunAddress address;
  address.board = boards.find(name.board);
  const Port port = find_port(boards, address.board, name.target);
  address.target = port.wwpn;
  std::optional<uint64_t> number = parse_number(name.lun);
  if (!number && name.lun.starts_with("0x")) number = parse_number(name.lun.substr(2), 16);
  if (!number)
    throw Failure({.status = kUsage,
                   .tried = "\"" + name.lun + "\" is no LUN",
                   .board = {},
                   .code = {},
                   .name = {},
                   .todo = "give its number, as \"hcxadm lun\" shows it"});
  address.number = *number;
  auto lun = std::find_if(port.luns.begin(), port.luns.end(), [&](const Lun &l) { return l.id == *number; });
  if (lun == port.luns.end()) no_such(address.text(), address.board, "lun");
  uint8_t image[8];
  for (int level = 0; level < 4; ++level) {
    image[2 * level] = static_cast<uint8_t>(*number >> (16 * level + 8));
    image[2 * level + 1] = static_cast<uint8_t>(*number >> (16 * level));
  }
  std::memcpy(&address.image, image, sizeof image);
  address.device = lun->block_dev ? lun->block_dev : lun->tape_dev ? lun->tape_dev : lun->generic_dev;
  return address;
}

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

std::string hex_string(const std::vector<uint8_t> &data) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (uint8_t byte : data) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

}  // namespace hcxadm
