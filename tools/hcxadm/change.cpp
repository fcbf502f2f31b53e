// SPDX-License-Identifier: BSD-3-Clause
// See change.h.
#include "change.h"

#include <algorithm>

namespace hcxadm {

bool show_difference(Context &ctx, const Lines &before, const Lines &after) {
  if (before == after) return false;
  if (ctx.json() && ctx.yes) return true;
  // The longest common subsequence, so that what stays is not shown as moved. Lists here have a few hundred lines.
  const size_t rows = before.size() + 1, columns = after.size() + 1;
  std::vector<uint32_t> common(rows * columns, 0);
  for (size_t i = before.size(); i-- > 0;) {
    for (size_t j = after.size(); j-- > 0;) {
      common[i * columns + j] = before[i] == after[j]
                                    ? common[(i + 1) * columns + j + 1] + 1
                                    : std::max(common[(i + 1) * columns + j], common[i * columns + j + 1]);
    }
  }
  size_t i = 0, j = 0;
  while (i < before.size() || j < after.size()) {
    if (i < before.size() && j < after.size() && before[i] == after[j]) {
      ++i, ++j;
    } else if (i < before.size() &&
               (j == after.size() || common[(i + 1) * columns + j] >= common[i * columns + j + 1])) {
      ctx.err << "- " << before[i++] << '\n';
    } else {
      ctx.err << "+ " << after[j++] << '\n';
    }
  }
  return true;
}

bool confirm_change(Context &ctx, const Lines &before, const Lines &after, const std::string &what) {
  if (show_difference(ctx, before, after)) return ctx.confirm(what);
  ctx.note("nothing to change");
  return false;
}

std::map<std::string, std::string> parse_pairs(const std::string &text,
                                               std::initializer_list<const char *> keys,
                                               const char *required) {
  std::map<std::string, std::string> pairs;
  std::string known;
  for (const char *key : keys)
    known.append(known.empty() ? "" : ", ").append(key);
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find(',', at), text.size());
    const std::string pair = text.substr(at, end - at);
    const size_t equals = pair.find('=');
    const std::string key = pair.substr(0, equals);
    const bool good = equals != std::string::npos &&
                      std::any_of(keys.begin(), keys.end(), [&key](const char *k) { return key == k; });
    if (!good || !pairs.emplace(key, pair.substr(equals + 1)).second) {
      std::string what = "\"" + pair;
      what.append("\" in \"").append(text).append("\" is not understood");
      throw usage_failure(what, "give KEY=VALUE,... with each of " + known + " at most once");
    }
    at = end + 1;
  }
  if (required && !pairs.contains(required))
    throw usage_failure("\"" + text + "\" has no " + required, std::string("give ") + required + "=N");
  return pairs;
}

uint64_t parse_limited(const std::string &what, const std::string &text, uint64_t most) {
  const bool hex = text.starts_with("0x");
  const std::optional<uint64_t> number = parse_number(hex ? text.substr(2) : text, hex ? 16 : 10);
  if (!number || *number > most)
    throw usage_failure("\"" + text + "\" is no " + what, "give a number from 0 to " + std::to_string(most));
  return *number;
}

HBA_WWN parse_name(const std::string &what, const std::string &text) {
  const std::optional<HBA_WWN> wwn = parse_wwn(text);
  if (!wwn) throw usage_failure("\"" + text + "\" is no " + what, "give 16 hexadecimal digits");
  return *wwn;
}

Failure usage_failure(const std::string &tried, const std::string &todo) {
  return Failure({.status = kUsage, .tried = tried, .board = {}, .code = {}, .name = {}, .todo = todo});
}

}  // namespace hcxadm
