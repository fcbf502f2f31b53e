// SPDX-License-Identifier: BSD-3-Clause
// The definition of the latency buckets, which all hosts share: setting, reading and removing it. Every call holds
// the service's lock for its whole run, and each host's read lock while it looks at that host.
#include <time.h>

#include "hcx_sdapi.h"
#include "hcx_sdapi_text.h"

using namespace hcx;
using namespace hcx::sd;

static_assert(sizeof(SD_IO_Latency_Response) == 88 &&
              offsetof(SD_IO_Latency_Response, sd_time_stats_array) == 8);

namespace {

constexpr char control_file[] = "vosk_stat_data_ctrl";

// A host's state as text; empty when it cannot be read.
class State {
 public:
  explicit State(const char *dir)
      : length_(hcx_sysfs_read_binfile(dir, control_file, text_, 0, sizeof text_)) {}
  std::string_view text() const { return {text_, length_}; }

 private:
  char text_[state_text_size];
  size_t length_;
};

// Stops at the first host that refuses, whose directory is left in *refused.
int32_t write_to_all(const char *command, Path *refused) {
  for (hcx_host *host = hcx_host_list; host; host = host->next) {
    if (const int32_t result = get_host_lock(host)) return result;
    const HostRef held(host);
    const Path dir = scsi_host_dir(host->id);
    if (hcx_sysfs_write_str(dir.c_str(), control_file, command) == 0) continue;
    *refused = dir;
    return SD_ERROR_NOT_SUPPORTED;
  }
  return SD_OK;
}

// SD_OK when no host collects and, if that is asked, all have buckets.
int32_t check_all(const char *caller, bool with_bucket) {
  for (hcx_host *host = hcx_host_list; host; host = host->next) {
    if (const int32_t result = get_host_lock(host)) return result;
    const HostRef held(host);
    if (is_data_collection_started(host->id)) {
      libhcx_syslog(LOG_SANDIAG, "%s - data collection already active", caller);
      return SD_ERROR_DATA_COLLECTION_ACTIVE;
    }
    if (with_bucket && !is_bucket_set(host->id)) {
      libhcx_syslog(LOG_SANDIAG, "%s - bucket not set", caller);
      return SD_ERROR_BUCKET_NOTSET;
    }
  }
  return SD_OK;
}

}  // namespace

uint32_t HCX_SD_Get_Granularity(void) {
  HCX_TRACE();
  constexpr uint32_t ms = ns_per_ms;
  timespec resolution = {};
  const bool known = sysio::machine().clock_resolution(&resolution) == 0;
  const auto ns = static_cast<uint32_t>(known ? resolution.tv_nsec : 0);
  const uint32_t granularity = ns < ms ? ms : (ns / ms + (ns % ms > ms / 2 ? 1 : 0)) * ms;
  HCX_LOG(LOG_SANDIAG, "granularity %d", static_cast<int>(granularity));
  return granularity;
}

int32_t HCX_SD_Set_Bucket(uint16_t type, uint16_t search_type, uint32_t base, uint32_t step) {
  HCX_TRACE();
  if (!initialized(__func__)) return SD_ERROR_LIB_NOT_INIT;
  if (type != SD_IO_LATENCY_TYPE) {
    HCX_LOG(LOG_SANDIAG, "invalid type %d", type);
    return SD_ERROR_NOT_SUPPORTED;
  }
  if (search_type != SD_SEARCH_LINEAR && search_type != SD_SEARCH_POWER_2) {
    HCX_LOG(LOG_SANDIAG, "invalid search_type %d", search_type);
    return SD_ERROR_INVALID_SEARCH_TYPE;
  }
  const uint32_t granularity = HCX_SD_Get_Granularity();
  if (step == 0 || base % granularity != 0 || step % granularity != 0 ||
      (search_type == SD_SEARCH_LINEAR && base == 0)) {
    HCX_LOG(LOG_SANDIAG, "invalid step %d", static_cast<int>(step));
    return SD_ERROR_INVALID_ARG;
  }
  const Text<64> command(
      search_type == SD_SEARCH_LINEAR ? "setbucket linear %d %d \n" : "setbucket power2 %d %d \n",
      static_cast<int>(base / ns_per_ms), static_cast<int>(step / ns_per_ms));
  const Lock lock;
  if (lock.result() != SD_OK) return lock.result();
  if (const int32_t checked = check_all(__func__, false)) return checked;
  Path refused;
  const int32_t result = write_to_all(command.c_str(), &refused);
  if (!refused.empty()) HCX_LOG(LOG_ERROR, "error writing %s in %s", control_file, refused.c_str());
  return result;
}

int32_t HCX_SD_Destroy_Bucket(uint16_t type) {
  HCX_TRACE();
  if (!initialized(__func__)) return SD_ERROR_LIB_NOT_INIT;
  if (type != SD_IO_LATENCY_TYPE) {
    HCX_LOG(LOG_SANDIAG, "type %d not supported", type);
    return SD_ERROR_NOT_SUPPORTED;
  }
  const Lock lock;
  if (lock.result() != SD_OK) return lock.result();
  if (const int32_t checked = check_all(__func__, true)) return checked;
  Path refused;
  const int32_t result = write_to_all("destroybucket\n", &refused);
  if (!refused.empty())
    HCX_LOG(LOG_ERROR, "could not write destroybucket to %s in %s", control_file, refused.c_str());
  return result;
}

int32_t HCX_SD_Get_Bucket(uint16_t type, uint16_t *search_type, uint32_t *base, uint32_t *step,
                          uint64_t *values) {
  HCX_TRACE();
  if (!initialized(__func__)) return SD_ERROR_LIB_NOT_INIT;
  if (!search_type || !base || !step || !values) {
    HCX_LOG(LOG_SANDIAG, "missing argument");
    return SD_ERROR_ARG_MISSING;
  }
  if (type != SD_IO_LATENCY_TYPE) {
    HCX_LOG(LOG_SANDIAG, "type %d not supported", type);
    return SD_ERROR_NOT_SUPPORTED;
  }
  const Lock lock;
  if (lock.result() != SD_OK) return lock.result();
  if (const int32_t result = get_host_lock(hcx_host_list)) return result;
  const HostRef host(hcx_host_list);
  const Path dir = scsi_host_dir(host->id);
  const State state(dir.c_str());
  if (state.text().empty()) {
    HCX_LOG(LOG_ERROR, "not supported - %s in %s", control_file, dir.c_str());
    return SD_ERROR_NOT_SUPPORTED;
  }
  switch (read_definition(state.text(), search_type, base, step, values)) {
    case Definition::ok:
      return SD_OK;
    case Definition::not_set:
      HCX_LOG(LOG_SANDIAG, "bucket not set");
      return SD_ERROR_BUCKET_NOTSET;
    case Definition::malformed:
      break;
  }
  HCX_LOG(LOG_ERROR, "error parsing %s in %s", control_file, dir.c_str());
  return SD_ERROR_GENERIC;
}

int is_data_collection_started(uint32_t host_no) {
  HCX_TRACE();
  return tells_collecting(State(scsi_host_dir(host_no).c_str()).text()) ? 1 : 0;
}

int is_bucket_set(uint32_t host_no) {
  HCX_TRACE();
  return tells_bucket(State(scsi_host_dir(host_no).c_str()).text()) ? 1 : 0;
}
