// SPDX-License-Identifier: BSD-3-Clause
// The stand-in for calloc that the linker puts before the real one.
#include "alloc_fault.h"

#include <cstddef>

namespace {
thread_local int countdown = 0;
thread_local bool hit = false;
}  // namespace

extern "C" void *__real_calloc(size_t count, size_t size);  // NOLINT(bugprone-reserved-identifier)

extern "C" void *__wrap_calloc(size_t count, size_t size) {  // NOLINT(bugprone-reserved-identifier)
  if (countdown > 0 && --countdown == 0) {
    hit = true;
    return nullptr;
  }
  return __real_calloc(count, size);
}

namespace alloc_fault {

void fail_nth(int n) {
  countdown = n;
  hit = false;
}

bool take_hit() {
  countdown = 0;
  return hit;
}

}  // namespace alloc_fault
