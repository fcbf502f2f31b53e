// SPDX-License-Identifier: BSD-3-Clause
// Remote ports and LUNs that the user named.
#pragma once

#include <cstdint>
#include <string>

#include "board.h"

namespace hcxadm {

// Words as the user typed them.
struct LunName {
  std::string board;
  std::string target;
  std::string lun;
};

struct LunAddress {
  Board board;
  HBA_WWN target{};
  uint64_t number = 0;
  uint64_t image = 0;  // as the library takes it
  Text device;

  std::string text() const;  // "LUN 5 behind 50:06:01:60:00:00:00:01"
};

// Throws Failure when the board does not see such a LUN.
LunAddress find_lun(Boards &boards, const LunName &name);
// A remote port of the board.
Port find_port(Boards &boards, const Board &board, const std::string &wwpn);

}  // namespace hcxadm
