// SPDX-License-Identifier: BSD-3-Clause
// Latency statistics of one host: starting, stopping and clearing the collection, and fetching the counts of its
// targets. Every call holds the service's lock and the board's read lock for its whole run.
#include <algorithm>
#include <cstring>

#include "hcx_sdapi.h"
#include "hcx_sdapi_text.h"

using namespace hcx;
using namespace hcx::sd;

namespace {

constexpr char control_file[] = "vosk_stat_data_ctrl";
constexpr char data_file[] = "vosk_drvr_stat_data";

enum class Needs { collecting, idle, either };

// The locks of a call, and the host that it is for.
struct Session {
  Lock lock;
  Target target;
  Path dir;
};

int32_t check_bucket(const char *caller, uint32_t board_id, uint32_t host_no) {
  if (is_bucket_set(host_no)) return SD_OK;
  libhcx_syslog(LOG_SANDIAG, "%s - board %d bucket not set", caller, static_cast<int>(board_id));
  return SD_ERROR_BUCKET_NOTSET;
}

int32_t check_collecting(const char *caller, uint32_t host_no, Needs needs) {
  if (needs == Needs::either) return SD_OK;
  const bool collecting = is_data_collection_started(host_no) != 0;
  if (collecting && needs == Needs::idle) {
    libhcx_syslog(LOG_SANDIAG, "%s - data collection already active", caller);
    return SD_ERROR_DATA_COLLECTION_ACTIVE;
  }
  if (!collecting && needs == Needs::collecting) {
    libhcx_syslog(LOG_SANDIAG, "%s - data collection not active", caller);
    return SD_ERROR_DATA_COLLECTION_NOT_ACTIVE;
  }
  return SD_OK;
}

int32_t begin(const char *caller, uint32_t board_id, HBA_WWN port_id, Needs needs, Session *session) {
  if (session->lock.result() != SD_OK) return session->lock.result();
  Target &target = session->target;
  if (const int32_t result = find_target(caller, board_id, port_id, &target)) return result;
  session->dir = scsi_host_dir(target.host_no);
  if (const int32_t result = check_bucket(caller, board_id, target.host_no)) return result;
  return check_collecting(caller, target.host_no, needs);
}

bool send(const Session &session, const char *command) {
  return hcx_sysfs_write_str(session.dir.c_str(), control_file, command) == 0;
}

// The data of a host, record by record.
class Records {
 public:
  explicit Records(const char *dir) : dir_(dir) {}
  enum class Read { record, end, failed };
  Read next() {
    offset_ = static_cast<off_t>(data_record_size) * count_;
    const ssize_t length = attr_read_part(dir_, data_file, text_, offset_, sizeof text_);
    if (length < 0) return Read::failed;
    if (static_cast<size_t>(length) < sizeof text_) return Read::end;
    ++count_;
    return Read::record;
  }
  std::string_view text() const { return {text_, sizeof text_}; }
  off_t offset() const { return offset_; }

 private:
  const char *dir_;
  char text_[data_record_size];
  off_t offset_ = 0;
  uint32_t count_ = 0;
};

// Stores what there is room for and counts the rest. The first record has been read.
int32_t fetch(const char *caller, const char *dir, Records *records, uint16_t *target, uint32_t buf_size,
              uint8_t *buff) {
  const uint32_t room =
      static_cast<uint32_t>(std::max(static_cast<int32_t>(buf_size), 0)) / sizeof(SD_IO_Latency_Response);
  uint32_t count = 0;
  bool more = false;
  Records::Read read = Records::Read::record;
  for (; read == Records::Read::record; read = records->next()) {
    SD_IO_Latency_Response response;
    if (count < room) {
      if (!read_record(records->text(), &response)) {
        read = Records::Read::failed;
        break;
      }
      memcpy(buff + count * sizeof response, &response, sizeof response);
    } else {
      more = true;
    }
    *target = static_cast<uint16_t>(++count);
    // More than can be told: an attribute without end.
    if (count == UINT16_MAX) {
      more = true;
      break;
    }
  }
  if (read == Records::Read::failed) {
    libhcx_syslog(LOG_ERROR, "%s - error parsing %s in %s", caller, data_file, dir);
    return SD_ERROR_GENERIC;
  }
  if (!more) return SD_OK;
  libhcx_syslog(LOG_SANDIAG, "%s - more data available in %s in %s buff_size %d", caller, data_file, dir,
                static_cast<int>(buf_size));
  return SD_ERROR_MORE_DATA_AVAILABLE;
}

}  // namespace

int32_t HCX_SD_Start_Data_Collection(uint32_t board_id, HBA_WWN port_id, uint16_t type, void *) {
  HCX_TRACE();
  if (!initialized(__func__)) return SD_ERROR_LIB_NOT_INIT;
  if (type != SD_IO_LATENCY_TYPE) {
    HCX_LOG(LOG_SANDIAG, "board %d invalid latency type %d", static_cast<int>(board_id), type);
    return SD_ERROR_NOT_SUPPORTED;
  }
  Session session;
  if (const int32_t result = begin(__func__, board_id, port_id, Needs::idle, &session)) return result;
  if (send(session, "start\n")) return SD_OK;
  HCX_LOG(LOG_ERROR, "could not write start to %s in %s", control_file, session.dir.c_str());
  return SD_ERROR_NOT_SUPPORTED;
}

int32_t HCX_SD_Stop_Data_Collection(uint32_t board_id, HBA_WWN port_id, uint16_t type) {
  HCX_TRACE();
  if (!initialized(__func__)) return SD_ERROR_LIB_NOT_INIT;
  if (type != SD_IO_LATENCY_TYPE) {
    HCX_LOG(LOG_SANDIAG, "type %d not supported", type);
    return SD_ERROR_NOT_SUPPORTED;
  }
  Session session;
  if (const int32_t result = begin(__func__, board_id, port_id, Needs::collecting, &session)) return result;
  if (send(session, "stop\n")) return SD_OK;
  HCX_LOG(LOG_ERROR, "could not write stop to %s in %s", control_file, session.dir.c_str());
  return SD_ERROR_NOT_SUPPORTED;
}

int32_t HCX_SD_Reset_Data_Collection(uint32_t board_id, HBA_WWN port_id, uint16_t type) {
  HCX_TRACE();
  if (!initialized(__func__)) return SD_ERROR_LIB_NOT_INIT;
  if (type != SD_IO_LATENCY_TYPE) {
    HCX_LOG(LOG_SANDIAG, "type %d not supported", type);
    return SD_ERROR_NOT_SUPPORTED;
  }
  Session session;
  if (const int32_t result = begin(__func__, board_id, port_id, Needs::either, &session)) return result;
  if (send(session, "reset\n")) return SD_OK;
  HCX_LOG(LOG_ERROR, "could not write reset to %s in %s", control_file, session.dir.c_str());
  return SD_ERROR_NOT_SUPPORTED;
}

int32_t HCX_SD_Get_Data(uint32_t board_id, HBA_WWN port_id, uint16_t type, uint16_t *target,
                        uint32_t buf_size, void *buff) {
  HCX_TRACE();
  if (!initialized(__func__)) return SD_ERROR_LIB_NOT_INIT;
  if (type != SD_IO_LATENCY_TYPE) {
    HCX_LOG(LOG_SANDIAG, "type %d not supported", type);
    return SD_ERROR_NOT_SUPPORTED;
  }
  if (!target || !buff) {
    HCX_LOG(LOG_SANDIAG, "missing argument");
    return SD_ERROR_ARG_MISSING;
  }
  Session session;
  if (const int32_t result = begin(__func__, board_id, port_id, Needs::either, &session)) return result;
  *target = 0;
  const Path &dir = session.dir;
  Records records(dir.c_str());
  switch (records.next()) {
    case Records::Read::record:
      return fetch(__func__, dir.c_str(), &records, target, buf_size, static_cast<uint8_t *>(buff));
    case Records::Read::end:
      HCX_LOG(LOG_SANDIAG, "no targets (ok) at %s in %s", data_file, dir.c_str());
      return SD_OK;
    case Records::Read::failed:
      break;
  }
  // The line names the control file, by which the data are known to be there.
  HCX_LOG(LOG_ERROR, "error reading %s in %s at offset %ld size %d", control_file, dir.c_str(),
          static_cast<long>(records.offset()), static_cast<int>(data_record_size));
  return SD_ERROR_GENERIC;
}
