// SPDX-License-Identifier: BSD-3-Clause
// What the FC-SP calls have in common: finding the host and slowing down a guesser.
#pragma once

#include "hcx_auth_store.h"

namespace hcx::auth {

// The host of a local port, if authentication is enabled there. HCX_AUTH_OK with host_no set, `no_host` when
// no port has the name, or HCX_AUTH_ERROR.
uint32_t find_auth_host(uint64_t local_entity, uint32_t no_host, uint32_t &host_no);

// Turns verify_password()'s result into a call's: a match, or nothing stored yet, lets the call go on;
// everything else costs three seconds.
uint32_t brake(int verified);

}  // namespace hcx::auth
