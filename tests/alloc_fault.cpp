// SPDX-License-Identifier: BSD-3-Clause
// The stand-in for calloc and its like that the linker puts before the real ones, and operator new with what belongs to it.
#include "alloc_fault.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

thread_local int countdown = 0;
thread_local bool counts_new = false;
thread_local bool for_good = false;  // once it has hit
thread_local bool failing = false;
thread_local bool hit = false;

bool due() {
  if (failing) return true;
  if (countdown <= 0 || --countdown > 0) return false;
  hit = true;
  failing = for_good;
  return true;
}

void *allocate(size_t size) noexcept {
  return counts_new && due() ? nullptr : malloc(size ? size : 1);
}

}  // namespace

extern "C" void *__real_calloc(size_t count, size_t size);

extern "C" void *__wrap_calloc(size_t count, size_t size) {
  return due() ? nullptr : __real_calloc(count, size);
}

extern "C" char *__real_strdup(const char *text);

extern "C" char *__wrap_strdup(const char *text) {
  return counts_new && due() ? nullptr : __real_strdup(text);
}

extern "C" __attribute__((format(printf, 2, 3))) int __wrap_asprintf(char **text, const char *format, ...) {
  if (counts_new && due()) return -1;
  va_list args;
  va_start(args, format);
  const int length = vasprintf(text, format, args);
  va_end(args);
  return length;
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

void fail_nth(int n, bool any, bool lasting) {
  countdown = n;
  counts_new = any;
  for_good = lasting;
  failing = hit = false;
}

bool take_hit() {
  countdown = 0;
  failing = false;
  return hit;
}

Pause::Pause() : countdown_(std::exchange(countdown, 0)), lasting_(std::exchange(failing, false)) {}
Pause::~Pause() {
  countdown = countdown_;
  failing = lasting_;
}

}  // namespace alloc_fault
