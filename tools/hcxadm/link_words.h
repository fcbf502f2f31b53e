// SPDX-License-Identifier: BSD-3-Clause
// Words for the numbers in LinkInfo; null for those that mean nothing.
#pragma once

#include "output.h"

namespace hcxadm {

Value topology_name(uint8_t topology);
Value link_state_name(uint8_t state);

}  // namespace hcxadm
