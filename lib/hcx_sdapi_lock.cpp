// SPDX-License-Identifier: BSD-3-Clause
// Start and end of the SAN diagnostic service, and its lock. The lock exists as long as the process: at the end of the
// service another thread, the listener for example, may be waiting for it. It is always taken for writing, and before
// any host's lock.
#include <pthread.h>

#include "hcx_sdapi.h"

namespace hcx::sd {

std::atomic<int> hcx_sd_configured{0};
std::atomic<uint32_t> hcx_board_count{0};

namespace {

pthread_rwlock_t hcx_sd_rwlock = PTHREAD_RWLOCK_INITIALIZER;

// Whether this thread holds the lock: a registered function that calls the service would wait for itself.
thread_local bool lock_is_mine = false;

bool take() {
  if (pthread_rwlock_wrlock(&hcx_sd_rwlock) != 0) return false;
  lock_is_mine = true;
  return true;
}

bool release() {
  lock_is_mine = false;
  return pthread_rwlock_unlock(&hcx_sd_rwlock) == 0;
}

}  // namespace

bool initialized(const char *caller) {
  if (hcx_host_list) return true;
  libhcx_syslog(LOG_SANDIAG, "%s - not initialized", caller);
  return false;
}

HostRef find_board(uint32_t board_id) {
  if (board_id > INT32_MAX) return HostRef();
  return HostRef(hcx_host_find_by_idx(hcx_host_list, static_cast<int>(board_id)));
}

int32_t find_target(const char *caller, uint32_t board_id, HBA_WWN port_id, Target *target) {
  target->host = find_board(board_id);
  if (!target->host) {
    libhcx_syslog(LOG_SANDIAG, "%s - no host on board %d", caller, static_cast<int>(board_id));
    return SD_ERROR_INVALID_BOARD_ID;
  }
  target->host_no = target->host->id;
  if (is_zero(port_id)) return SD_OK;
  const int host_no = hcx_get_host_id(&port_id);
  if (host_no == -1) {
    libhcx_syslog(LOG_SANDIAG, "%s - board %d invalid port", caller, static_cast<int>(board_id));
    return SD_ERROR_INVALID_PORT;
  }
  target->host_no = static_cast<uint32_t>(host_no);
  return SD_OK;
}

bool shut_down() {
  if (!lock_is_mine) return hcx_sd_deinit() == SD_OK;
  libhcx_syslog(LOG_ERROR, "%s - called with the lock of the diagnostic service", "HCX_FreeDiagEnv");
  // It stays configured, or the lock could not be given back; without boards it does nothing until the next start.
  drop_registrations();
  hcx_board_count = 0;
  return false;
}

}  // namespace hcx::sd

using namespace hcx::sd;

int32_t hcx_sd_init(hcx_brdinfo *ba, uint32_t count) {
  HCX_TRACE();
  if (!ba || count == 0) {
    HCX_LOG(LOG_SANDIAG, "zero count or no board info");
    return SD_ERROR_INVALID_ARG;
  }
  if (lock_is_mine || !take()) {
    HCX_LOG(LOG_ERROR, "rwlock not initialized");
    return SD_ERROR_GENERIC;
  }
  hcx_board_count = count;
  hcx_sd_configured = 1;
  return release() ? SD_OK : SD_ERROR_GENERIC;
}

int32_t hcx_sd_deinit(void) {
  HCX_TRACE();
  if (lock_is_mine || !take()) {
    HCX_LOG(LOG_ERROR, "wrlock failed");
    return SD_ERROR_GENERIC;
  }
  drop_registrations();
  hcx_board_count = 0;
  hcx_sd_configured = 0;
  return release() ? SD_OK : SD_ERROR_GENERIC;
}

int32_t get_sd_lock(void) {
  HCX_TRACE();
  if (!hcx_sd_configured) {
    HCX_LOG(LOG_SANDIAG, "not configured");
    return SD_ERROR_LIB_NOT_INIT;
  }
  if (lock_is_mine) {
    // The caller's mistake; the service itself is well.
    HCX_LOG(LOG_ERROR, "wrlock failed");
    return SD_ERROR_GENERIC;
  }
  if (!take()) {
    hcx_board_count = 0;
    HCX_LOG(LOG_ERROR, "wrlock failed");
    return SD_ERROR_GENERIC;
  }
  // The service may have ended while this thread waited.
  if (!hcx_sd_configured) {
    release();
    HCX_LOG(LOG_SANDIAG, "not configured");
    return SD_ERROR_LIB_NOT_INIT;
  }
  if (hcx_board_count == 0 || !hcx_host_list) {
    hcx_board_count = 0;
    release();
    HCX_LOG(LOG_SANDIAG, "no boards");
    return SD_ERROR_LIB_NOT_INIT;
  }
  return SD_OK;
}

int32_t free_sd_lock(void) {
  HCX_TRACE();
  if (!hcx_sd_configured) {
    HCX_LOG(LOG_SANDIAG, "not configured");
    return SD_ERROR_LIB_NOT_INIT;
  }
  if (!lock_is_mine) {
    HCX_LOG(LOG_ERROR, "unlock failed");
    return SD_ERROR_GENERIC;
  }
  if (!release()) {
    hcx_board_count = 0;
    HCX_LOG(LOG_ERROR, "unlock failed");
    return SD_ERROR_GENERIC;
  }
  return SD_OK;
}

int32_t get_host_lock(hcx_host *host) {
  HCX_TRACE();
  if (!host) {
    HCX_LOG(LOG_SANDIAG, "missing argument");
    return SD_ERROR_ARG_MISSING;
  }
  if (pthread_rwlock_rdlock(&host->rwlock) != 0) {
    HCX_LOG(LOG_ERROR, "brd_idx %d rdlock failed", host->brd_idx);
    return SD_ERROR_GENERIC;
  }
  return SD_OK;
}

int32_t free_host_lock(hcx_host *host) {
  HCX_TRACE();
  if (!host) {
    HCX_LOG(LOG_SANDIAG, "missing argument");
    return SD_ERROR_ARG_MISSING;
  }
  return pthread_rwlock_unlock(&host->rwlock) == 0 ? SD_OK : SD_ERROR_GENERIC;
}
