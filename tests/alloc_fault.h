// SPDX-License-Identifier: BSD-3-Clause
// Makes the library's next allocations fail. The test program is linked so that its calls of calloc come by here;
// counting is per thread.
#pragma once

namespace alloc_fault {

// The nth allocation of this thread from now on fails; 0 for none.
void fail_nth(int n);
// Whether it came to that. Takes the fault away.
bool take_hit();

}  // namespace alloc_fault
