// SPDX-License-Identifier: BSD-3-Clause
// A terminal that is drawn over: keys one by one, the user's screen and settings back at the end, however that comes.
// One at a time, used by one thread; signal handlers only write a byte into a pipe.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "top_view.h"

namespace hcxadm {

class Screen {
 public:
  // Standard input and output are the terminal; `out` writes to it.
  Screen(std::ostream &out, bool colour);
  Screen(const Screen &) = delete;
  Screen &operator=(const Screen &) = delete;
  ~Screen();

  static ScreenSize size();
  void draw(const std::vector<ScreenLine> &lines);

  enum : int { nothing = 0, resized = -1, ended = -2 };
  // A key, or one of the above. Stopping (Ctrl-Z) and going on is seen to in here, and counts as resized.
  int wait(double seconds);

 private:
  void enter();
  void leave();
  void stop();

  std::ostream &out_;
  const bool colour_;
};

}  // namespace hcxadm
