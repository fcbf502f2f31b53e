// SPDX-License-Identifier: BSD-3-Clause
// What verbs that change settings of an adapter share: the difference that they show before they ask, and entries
// given as KEY=VALUE pairs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

#include "hcxadm.h"

namespace hcxadm {

using Lines = std::vector<std::string>;

// Writes to stderr the lines that are gone with "-" and those that are new with "+", in their order; false when there
// are none. Kept silent in JSON where nobody is asked.
bool show_difference(Context &ctx, const Lines &before, const Lines &after);
// The same, followed by the question. False: there is nothing to do, or --dry-run; both are told.
bool confirm_change(Context &ctx, const Lines &before, const Lines &after, const std::string &what);

// "a=1,b=2" as a map; throws Failure for a key that is not among `keys`, or stands twice. The pairs `required` must be
// there.
std::map<std::string, std::string> parse_pairs(const std::string &text,
                                               std::initializer_list<const char *> keys,
                                               const char *required = nullptr);
// A value of such a pair, or of an option.
uint64_t parse_limited(const std::string &what, const std::string &text, uint64_t most);
HBA_WWN parse_name(const std::string &what, const std::string &text);

Failure usage_failure(const std::string &tried, const std::string &todo = {});

inline uint32_t number_of(const Board &board) {
  return static_cast<uint32_t>(board.number);
}
inline std::string host_name(const Board &board) {
  return "host" + std::to_string(board.host);
}

}  // namespace hcxadm
