// SPDX-License-Identifier: BSD-3-Clause
// Decoded diagnostic events as values: every key is always there, null when the event does not have it.
#pragma once

#include "libhcx_api.h"
#include "output.h"

namespace hcxadm {

// One kind of event that can be registered for.
struct DiagKind {
  uint32_t category;
  uint32_t subcategory;
  const char *category_word;
  const char *word;
  void (*read)(const void *detail, Value *value);  // null: no detail
};
extern const DiagKind diag_kinds[17];

// The event as an object.
Value diag_value(uint32_t category, uint32_t subcategory, const SD_event &event);
// The same as a line of text: "els plogi, port 50:06:..., node ...".
std::string diag_text(const Value &value);

}  // namespace hcxadm
