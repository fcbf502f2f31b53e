// SPDX-License-Identifier: BSD-3-Clause
// How a frame of "top" looks: as lines of text for a screen of some size, or as a JSON document.
#pragma once

#include "top_model.h"

namespace hcxadm {

inline constexpr Schema top_schema{"hcxadm.top", 1, 0};

enum class Paint { plain, header, bad };

struct ScreenLine {
  std::string text;
  Paint paint = Paint::plain;
};

struct ScreenSize {
  size_t columns = 0;  // 0: as wide, or as high, as it comes
  size_t rows = 0;
};

struct TopView {
  bool ports = true;
  bool events = true;
};

// Boards always, then as many remote ports and of the latest events as there is room for.
std::vector<ScreenLine> lines_of(const TopFrame &frame, const TopView &view, ScreenSize size);
// The element of "data".
Value value_of(const TopFrame &frame);
// The first `columns` characters, whole ones.
std::string cut(const std::string &text, size_t columns);

}  // namespace hcxadm
