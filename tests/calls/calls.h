// SPDX-License-Identifier: BSD-3-Clause
// How to call each exported call: a row with arguments that make sense on a machine like the one described here. The
// fault sweep makes the world fail under every row, the fuzzer replaces the arguments; both bring their own Arguments.
//
// The rows expect an inventory whose boards have numbers: an SLI-4 board, an SLI-3 one and an FCoE one. A row gives
// back what it took (descriptors, host locks, memory) and says what came of the call as one number.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <span>
#include <string_view>
#include <type_traits>

#include "hcx_sysio.h"
#include "libhcx_api.h"

namespace calls {

inline constexpr uint64_t kLocal = 0x10000000c9000003, kTarget = 0x5006016000000001,
                          kVport = 0x2001000000000001;
inline constexpr uint32_t kTargetId = 0x010203;
inline constexpr char kHostDir[] = "/sys/class/scsi_host/host3/",
                      kPciDir[] = "/sys/class/scsi_host/host3/device/", kNode[] = "/dev/sg0";

class Arguments {
 public:
  Arguments() = default;
  Arguments(const Arguments &) = delete;
  Arguments &operator=(const Arguments &) = delete;
  virtual ~Arguments() = default;

  // `sensible`, or what the caller's caller likes better within the bounds.
  virtual uint64_t choose(uint64_t sensible, uint64_t low, uint64_t high) = 0;
  // What is at `to`, or something else.
  virtual void scramble(void *to, size_t size) = 0;
  // So many zero bytes and not one more, for as long as this lives.
  virtual uint8_t *bytes(size_t size) = 0;
  // The same as calloc() gives it, for the library to free.
  virtual void *heap(size_t size) = 0;
  // A call did what it must not do.
  virtual void fault(const char *what) = 0;

  template <class T>
  T number(T sensible, T low = 0, T high = std::numeric_limits<T>::max()) {
    return static_cast<T>(choose(sensible, low, high));
  }
  template <class T>
  T *record() {
    return reinterpret_cast<T *>(bytes(sizeof(T)));
  }
  template <class T>
  T *heap_record() {
    return static_cast<T *>(heap(sizeof(T)));
  }
  // A list that ends in an array of one entry, with room for `count` of them.
  template <class List, class Entry>
  List *list(uint32_t count) {
    return reinterpret_cast<List *>(bytes(sizeof(List) + (count - 1) * sizeof(Entry)));
  }
  char *text(std::string_view value);
  // The record of a board, and its first remote port and LUN; not locked, null when there is none.
  static hcx_host *host(uint32_t board);
  hcx_host *host() const { return host(board); }
  hcx_port *ports() const { return host() ? host()->port_list : nullptr; }
  hcx_lun *luns() const { return ports() ? ports()->lun_list : nullptr; }

  uint32_t board = 0, old_board = 1, fcoe_board = 2;
  HBA_WWN local = {}, target = {}, vport = {};
  uint64_t lun_id = 0;
};

// A caller's buffer: `size` bytes at `data`, `said` what the call is told and tells.
struct Buffer {
  Buffer(Arguments &a, uint32_t sensible, uint32_t most = 5000)
      : data(nullptr), size(a.number<uint32_t>(sensible, 0, most)), said(size), arguments(a) {
    data = a.bytes(size);
    a.scramble(data, size);
  }
  Buffer(Arguments &a, std::initializer_list<uint8_t> sensible)
      : Buffer(a, static_cast<uint32_t>(sensible.size())) {
    size_t at = 0;
    for (const uint8_t byte : sensible)
      if (at < size) data[at++] = byte;
    a.scramble(data, size);
  }
  // After a call: it must not claim more than there is.
  void check(const char *call) const {
    if (said > size) arguments.fault(call);
  }

  uint8_t *data;
  uint32_t size;
  uint32_t said;
  Arguments &arguments;
};

using Result = int64_t;

enum Flags : unsigned {
  kLasting = 1,  // leaves marks on the process: not for one that goes on with other inputs
  kPrints = 2,   // writes to standard output
  kVaries = 4,   // what it fills in is not the same each time
  kScans = 8,    // begins without an inventory: what it could not read is missing until the next start
};

struct Call {
  const char *name;
  Result (*invoke)(Arguments &a);
  unsigned flags = 0;
  void (*before)(Arguments &a) = nullptr;  // brings about what the call needs
  void (*after)(Arguments &a) = nullptr;   // takes back what it did, whatever that was
};

// The rows, by what they are about: boards and the driver's files; the adapter, its ports and LUNs; events, virtual
// ports, authentication, diagnostics.
std::span<const Call> files(), adapter(), services();

// Numbers the boards of the inventory, after a scan where there is none.
void number_boards();
void set_name(HBA_WWN *name, uint64_t value);

// ---- What came of a call, as a number ----
template <class Value>
Result outcome(Value value) {
  if constexpr (std::is_pointer_v<Value>) {
    return value != nullptr;
  } else {
    return static_cast<Result>(value);
  }
}
template <class Function>
Result outcome_of(Function function) {
  if constexpr (std::is_void_v<decltype(function())>) {
    function();
    return 0;
  } else {
    return outcome(function());
  }
}
// A descriptor: closed again.
inline Result closed(int fd) {
  if (fd <= 2) return fd;
  hcx::sysio::machine().close(fd);
  return 1000;
}
// A host that is locked: unlocked again.
inline Result unlocked(hcx_host *host) {
  if (host) pthread_rwlock_unlock(&host->rwlock);
  return host != nullptr;
}

}  // namespace calls

// A row that is one expression; flags, before and after may follow.
#define HCX_CALL(name, expression, ...)                                                                      \
  {                                                                                                          \
#name,                                                                                                   \
        []([[maybe_unused]] Arguments & a) { return outcome_of([&] { return expression; }); } __VA_OPT__(, ) \
            __VA_ARGS__                                                                                      \
  }
