// SPDX-License-Identifier: BSD-3-Clause
// The stand-in for calloc that the linker puts before the real one, and operator new with what belongs to it.
#include "alloc_fault.h"

#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

thread_local int countdown = 0;
thread_local bool counts_new = false;
thread_local bool hit = false;

bool due() {
  if (countdown <= 0 || --countdown > 0) return false;
  hit = true;
  return true;
}

void *allocate(size_t size) noexcept {
  return counts_new && due() ? nullptr : malloc(size ? size : 1);
}

}  // namespace

extern "C" void *__real_calloc(size_t count, size_t size);  // NOLINT(bugprone-reserved-identifier)

extern "C" void *__wrap_calloc(size_t count, size_t size) {  // NOLINT(bugprone-reserved-identifier)
  return due() ? nullptr : __real_calloc(count, size);
}

void *operator new(size_t size) {
  if (void *block = allocate(size)) return block;
  throw std::bad_alloc();
}
void *operator new(size_t size, const std::nothrow_t & /*tag*/) noexcept {
  return allocate(size);
}
void operator delete(void *block) noexcept {
  free(block);
}
void operator delete(void *block, size_t /*size*/) noexcept {
  free(block);
}
void operator delete(void *block, const std::nothrow_t & /*tag*/) noexcept {
  free(block);
}

namespace alloc_fault {

void fail_nth(int n, bool any) {
  countdown = n;
  counts_new = any;
  hit = false;
}

bool take_hit() {
  countdown = 0;
  return hit;
}

Pause::Pause() : countdown_(std::exchange(countdown, 0)) {}
Pause::~Pause() {
  countdown = countdown_;
}

}  // namespace alloc_fault
