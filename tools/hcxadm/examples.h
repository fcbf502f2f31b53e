// SPDX-License-Identifier: BSD-3-Clause
// One table of examples: the help of every command shows its own, the manual pages print them with what comes out.
#pragma once

#include <span>

#include "hcxadm.h"

namespace hcxadm {

struct Example {
  const char *command;  // "port list"
  const char *line;     // as typed; the words of the command first, then BOARD where it takes one
  const char *what;
};

std::span<const Example> examples();
// Puts them under the help of each command and of the nouns above it, together with `closing`.
void add_examples(CLI::App &root, const std::string &closing);

}  // namespace hcxadm
