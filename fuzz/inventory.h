// SPDX-License-Identifier: BSD-3-Clause
// An inventory read from a hostile machine. Boards get their numbers here and not from HCX_InitDiagEnv(), which would
// switch capability rows off for all inputs that follow.
#pragma once

#include "hostile_machine.h"
#include "libhcx.h"

namespace fuzz {

class Inventory {
 public:
  Inventory() {
    hcx_sysfs_scan_hosts(&hcx_host_list);
    for (hcx_host *host = hcx_host_list; host; host = host->next)
      host->brd_idx = boards_++;
  }
  ~Inventory() {
    for (hcx_host *host = hcx_host_list; host; host = host->next) {
      // A call that keeps a host's lock makes the next writer wait for good.
      if (pthread_rwlock_trywrlock(&host->rwlock) != 0) fault("host left locked", std::to_string(host->id));
      pthread_rwlock_unlock(&host->rwlock);
    }
    HCX_FreeDiagEnv();
    if (hcx_host_list) fault("inventory left", "HCX_FreeDiagEnv");
  }
  Inventory(const Inventory &) = delete;
  Inventory &operator=(const Inventory &) = delete;

  [[nodiscard]] int boards() const { return boards_; }

 private:
  int boards_ = 0;
};

}  // namespace fuzz
