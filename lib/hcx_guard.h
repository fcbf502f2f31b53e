// SPDX-License-Identifier: BSD-3-Clause
// Owners for what must be given back on every path: descriptors, host locks, heap blocks.
#pragma once

#include <pthread.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

#include "hcx_sysio.h"
#include "libhcx_api.h"

namespace hcx {

// A descriptor of the current machine; closed on destruction. A negative value is "none", usually a negated errno.
class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  Fd(Fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd &operator=(Fd &&other) noexcept {
    if (this != &other) reset(std::exchange(other.fd_, -1));
    return *this;
  }
  ~Fd() { reset(); }

  int get() const { return fd_; }
  bool ok() const { return fd_ >= 0; }
  int release() { return std::exchange(fd_, -1); }
  void reset(int fd = -1) {
    if (fd_ >= 0) sysio::machine().close(fd_);
    fd_ = fd;
  }

 private:
  int fd_;
};

// A host whose read lock is held. Made from what hcx_host_find_by_*() and lookup_hcx_host() return.
class HostRef {
 public:
  explicit HostRef(hcx_host *locked = nullptr) : host_(locked) {}
  HostRef(HostRef &&other) noexcept : host_(std::exchange(other.host_, nullptr)) {}
  HostRef &operator=(HostRef &&other) noexcept {
    if (this != &other) {
      drop();
      host_ = std::exchange(other.host_, nullptr);
    }
    return *this;
  }
  ~HostRef() { drop(); }

  explicit operator bool() const { return host_ != nullptr; }
  hcx_host *operator->() const { return host_; }
  hcx_host *get() const { return host_; }
  // Gives the lock back early. The record itself lives until teardown.
  void drop() {
    if (host_) pthread_rwlock_unlock(&host_->rwlock);
    host_ = nullptr;
  }
  // Hands the locked host to a caller across the C interface.
  hcx_host *release() { return std::exchange(host_, nullptr); }

 private:
  hcx_host *host_;
};

// The write side of a host's lock. The thread must not hold the read side; the write side that it already holds stays
// its own to release.
class HostWriteLock {
 public:
  explicit HostWriteLock(hcx_host *host)
      : host_(pthread_rwlock_wrlock(&host->rwlock) == 0 ? host : nullptr) {}
  HostWriteLock(const HostWriteLock &) = delete;
  HostWriteLock &operator=(const HostWriteLock &) = delete;
  ~HostWriteLock() {
    if (host_) pthread_rwlock_unlock(&host_->rwlock);
  }

 private:
  hcx_host *host_;
};

struct FreeDeleter {
  void operator()(void *block) const { std::free(block); }
};
// Zeroed heap memory of the C allocator; null when there is none.
template <class T>
using HeapArray = std::unique_ptr<T[], FreeDeleter>;
template <class T>
HeapArray<T> heap_array(size_t count) {
  return HeapArray<T>(static_cast<T *>(std::calloc(count ? count : 1, sizeof(T))));
}

// Runs `body`; an exception (only std::bad_alloc can arise here) ends in `fallback` instead of in the caller.
template <class Result, class Body>
Result no_throw(Result fallback, Body &&body) noexcept {
  try {
    return body();
  } catch (...) {
    return fallback;
  }
}

}  // namespace hcx
