// SPDX-License-Identifier: BSD-3-Clause
// Finds remote ports and LUNs by what users call them.
#include "scsi.h"

#include <algorithm>
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

}  // namespace hcxadm
