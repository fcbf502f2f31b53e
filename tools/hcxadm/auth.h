// SPDX-License-Identifier: BSD-3-Clause
// FC-SP configurations as the tool shows them: pairs of a board's port and a remote entity, which is the number of a
// port name.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "board.h"
#include "output.h"

namespace hcxadm {

inline constexpr Schema auth_schema{"hcxadm.auth", 1, 0};
inline constexpr uint64_t fabric_entity = UINT64_MAX;

// The library tells the operator things on standard output, where JSON and tables belong.
class MessagesToStderr {
 public:
  MessagesToStderr();
  MessagesToStderr(const MessagesToStderr &) = delete;
  MessagesToStderr &operator=(const MessagesToStderr &) = delete;
  ~MessagesToStderr();

 private:
  int saved_;
};

uint64_t entity_of(const HBA_WWN &wwn);
HBA_WWN wwn_of(uint64_t entity);
// A port name with colons, or "fabric".
std::string entity_text(uint64_t entity);
// Throws Failure when the text is neither a port name nor "fabric".
uint64_t parse_entity(const std::string &text);

// Throws Failure unless the result is that of success.
void check_auth(uint32_t result, const std::string &tried, const Board &board);

struct AuthPair {
  KRX_FCSP_CONFIG config{};
  int local_type = 0;  // hcx_auth_passwd_type; 0: no password line
  int remote_type = 0;
};

// What the pair has now, and kinds of its passwords. Throws Failure.
AuthPair read_pair(const Board &board, uint64_t remote);
// Remote entities that the board's port has a configuration for. Throws Failure.
std::vector<uint64_t> remotes_of(const Board &board);
Table auth_table(const std::vector<AuthPair> &pairs);

}  // namespace hcxadm
