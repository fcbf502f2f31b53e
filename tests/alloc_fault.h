// SPDX-License-Identifier: BSD-3-Clause
// Makes the library's next allocations fail. The test program is linked so that its calls of calloc, strdup and asprintf
// come by here, and has its own operator new; counting is per thread.
#pragma once

namespace alloc_fault {

// The nth calloc of this thread from now on fails, or with `any` the nth calloc, strdup, asprintf or new; 0 for none.
// With `lasting` all later ones fail too.
void fail_nth(int n, bool any = false, bool lasting = false);
// Whether it came to that. Takes the fault away.
bool take_hit();

// While one lives, nothing fails and nothing is counted in this thread: for the machine behind the library.
class Pause {
 public:
  Pause();
  Pause(const Pause &) = delete;
  Pause &operator=(const Pause &) = delete;
  ~Pause();

 private:
  int countdown_;
  bool lasting_;
};

}  // namespace alloc_fault
