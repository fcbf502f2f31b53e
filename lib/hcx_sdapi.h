// SPDX-License-Identifier: BSD-3-Clause
// What the parts of the SAN diagnostic service share: whether it is up, its lock, and the host that a call is for.
#pragma once

#include <atomic>

#include "libhcx.h"

namespace hcx::sd {

// Up since hcx_sd_init() until hcx_sd_deinit(). Changed under the lock, looked at without it too.
extern std::atomic<int> hcx_sd_configured;
// Boards by hcx_sd_init(); 0 once the lock has failed, which ends the service until the next start.
extern std::atomic<uint32_t> hcx_board_count;

// The lock of the service for the life of this object, if result() is SD_OK.
class Lock {
 public:
  Lock() : result_(get_sd_lock()) {}
  Lock(const Lock &) = delete;
  Lock &operator=(const Lock &) = delete;
  ~Lock() {
    if (result_ == SD_OK) free_sd_lock();
  }
  int32_t result() const { return result_; }

 private:
  int32_t result_;
};

// False, with a log line in the caller's name, while there are no hosts.
bool initialized(const char *caller);

// A board's host, locked, and the kernel number of the host that the call is for: that of the board, or that of
// another port. Only with the lock of the service held.
struct Target {
  HostRef host;
  uint32_t host_no = 0;
};
// SD_OK; else the result of the call, logged in its name.
int32_t find_target(const char *caller, uint32_t board_id, HBA_WWN port_id, Target *target);
// The board's host, without a board number that is none.
HostRef find_board(uint32_t board_id);

// Frees every registration. Only with the lock held.
void drop_registrations();

// The end of the service at teardown. A thread that has the lock, in a registered function for example, ends it too:
// false then, because that thread goes on using its host's record afterwards.
bool shut_down();

inline bool is_zero(const HBA_WWN &wwn) {
  return wwn_load(wwn.wwn) == 0;
}
inline bool equal(const HBA_WWN &a, const HBA_WWN &b) {
  return wwn_load(a.wwn) == wwn_load(b.wwn);
}

}  // namespace hcx::sd

// The bytes of a WWN as arguments of "%02x" eight times.
#define HCX_WWN_BYTES(name)                                                                                \
  (name).wwn[0], (name).wwn[1], (name).wwn[2], (name).wwn[3], (name).wwn[4], (name).wwn[5], (name).wwn[6], \
      (name).wwn[7]
