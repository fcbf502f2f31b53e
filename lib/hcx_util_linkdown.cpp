// SPDX-License-Identifier: BSD-3-Clause
// Persistent link down: a setting in the drivers' record of region 23 that keeps a Fibre Channel port down across
// resets. An edit that fails, or an image that is damaged, never reaches flash. Reading, editing and writing are
// separate mailbox commands: two processes that edit at once may lose one edit, but never the region. No state; any
// thread.
#include "hcx_region.h"

using namespace hcx::region;

namespace {

constexpr int normal = 0, hold_down = 1;
constexpr int region_number = static_cast<int>(region_23);
constexpr uint8_t port_held_down = 0, port_normal = 1;  // as the region has it

// 0, or the result for a board without host, or with a port that has no such setting.
uint32_t check_port(const char *caller, uint32_t board) {
  constexpr int fcoe = 0, no_link_of_its_own = 2;
  const hcx::HostRef host = hcx::board_host(board);
  if (!host || !host->pci_dev) {
    libhcx_syslog(LOG_ERROR, "%s - no host on board %d", caller, static_cast<int>(board));
    return 3;
  }
  if (hcx_get_function_type(host.get()) != no_link_of_its_own && hcx_get_protocol_mode(host.get()) != fcoe)
    return 0;
  libhcx_syslog(LOG_ERROR, "%s - board %d not supported", caller, static_cast<int>(board));
  return 2;
}

// The region holds nothing that could be kept: it was never written, or is of another layout.
bool must_be_made(const Look &look) {
  return look.not_initialized() || look.empty() || look.foreign;
}

uint32_t error_in_region(const char *caller, uint32_t board) {
  libhcx_syslog(LOG_ERROR, "%s - board %d internal count or offset error in region %d", caller,
                static_cast<int>(board), region_number);
  return 1;
}

// The port status among the sub-records, when there is one; 0 as the result then and when there is none.
uint32_t find_port_status(const char *caller, uint32_t board, const Image &image, int32_t offset,
                          std::optional<HCX_PORT_STATUS_TLV> &status) {
  int64_t at = int64_t{offset} + head_size;
  int64_t budget = 4 * int64_t{image.length_at(offset)};
  while (at + 4 < image_size) {
    if (image.byte(at) == port_status_record) {
      status = image.record<HCX_PORT_STATUS_TLV>(at);
      return 0;
    }
    const int64_t size = record_size(image.length_at(at));
    at += size;
    budget -= size;
    if (budget <= 0) return 0;
  }
  return error_in_region(caller, board);
}

// Whether the record at `offset` is one from which the setting can be read again.
bool holds(const char *caller, uint32_t board, const Image &image, int32_t offset, uint16_t setting) {
  std::optional<HCX_PORT_STATUS_TLV> status;
  find_port_status(caller, board, image, offset, status);
  return status && status->length == 0 &&
         status->value == (setting == hold_down ? port_held_down : port_normal);
}

// Takes the record at `offset` out of the image, and puts it behind all others with the new setting. Only an image
// whose records all have their place comes through.
uint32_t edit(const char *caller, uint32_t board, uint16_t setting, int32_t offset, Image &image) {
  Image rebuilt;
  int32_t searched_end = 0;
  const Image before = image;
  if (remove_driver_specific(image.data(), rebuilt.data(), offset, &searched_end) != 0) {
    const auto rest = without_record(before, offset);
    rebuilt = rest ? *rest : Image();
  }
  // The end that counts is the one that readers meet, not one in the remains behind it.
  const auto end = end_of_records(rebuilt);
  uint32_t new_length = 0;
  const uint32_t result = end ? rebuild_port_status(image.data(), setting, offset, &new_length) : 1;
  if (result != 0) {
    libhcx_syslog(LOG_ERROR, "%s - board %d failed to rebuild port status", caller, static_cast<int>(board));
    return result;
  }
  if (add_driver_specific(image.data(), offset, rebuilt.data(), *end, new_length) != 0) {
    libhcx_syslog(LOG_ERROR, "%s - board %d no space left in region %d", caller, static_cast<int>(board),
                  region_number);
    return 1;
  }
  if (holds(caller, board, image, *end, setting)) return 0;
  // A sub-record claimed to be longer than the record, and the port status was put behind both.
  libhcx_syslog(LOG_ERROR, "%s - board %d failed to rebuild port status", caller, static_cast<int>(board));
  return 1;
}

uint32_t change_record(const char *caller, uint32_t board, uint16_t setting, const Look &look, Image &image) {
  if (look.offset + 8 > static_cast<int32_t>(image_size) - 1) {
    libhcx_syslog(LOG_ERROR, "%s - board %d bad internal length", caller, static_cast<int>(board));
    return 1;
  }
  const uint16_t driver_id = image.record<hcx_DRVRhdr>(look.offset).driver_id;
  if (driver_id != our_driver) {
    libhcx_syslog(LOG_ERROR, "%s - board %d driver specific id %d is not ours %d", caller,
                  static_cast<int>(board), driver_id, our_driver);
    return 1;
  }
  const uint32_t result = edit(caller, board, setting, look.offset, image);
  return result != 0 ? result : write_back(board, image);
}

uint32_t read_setting(const char *caller, uint32_t board, const Image &image, int32_t offset,
                      uint16_t &setting) {
  if (offset + 8 > static_cast<int32_t>(image_size) - 1) {
    libhcx_syslog(LOG_ERROR, "%s - board %d no space left in region %d", caller, static_cast<int>(board),
                  region_number);
    return 1;
  }
  switch (image.length_at(offset)) {
    case 0:
      libhcx_syslog(LOG_ERROR, "%s - board %d internal error specific length is zero", caller,
                    static_cast<int>(board));
      return 1;
    case 1:
      libhcx_syslog(LOG_UTIL, "%s - board %d specific length is 1, using defaults", caller,
                    static_cast<int>(board));
      return 0;
    default:
      break;
  }
  std::optional<HCX_PORT_STATUS_TLV> status;
  const uint32_t result = find_port_status(caller, board, image, offset, status);
  if (!status) return result;
  if (status->length != 0 || status->value > port_normal) {
    libhcx_syslog(LOG_ERROR, "%s - board %d internal error portStatus %d not %d or %d", caller,
                  static_cast<int>(board), status->value, port_normal, port_held_down);
    return 1;
  }
  setting = status->value == port_held_down ? hold_down : normal;
  return 0;
}

}  // namespace

uint32_t HCX_SetPersistLinkDown(uint32_t board, uint16_t linkDownConfig) {
  HCX_TRACE();
  if (linkDownConfig > hold_down) {
    HCX_LOG(LOG_ERROR, "board %d linkDownConfig %d must be %d or %d", static_cast<int>(board), linkDownConfig,
            normal, hold_down);
    return 4;
  }
  if (const uint32_t refusal = check_port(__func__, board)) return refusal;
  Image image;
  Look look = look_up(board, driver_record, image);
  if (must_be_made(look)) {
    if (make_empty(board, image) != 0) {
      HCX_LOG(LOG_ERROR, "board %d failed to init region %d", static_cast<int>(board), region_number);
      return 1;
    }
    image = Image();
    look = look_up(board, driver_record, image);
  }
  if (look.found()) return change_record(__func__, board, linkDownConfig, look, image);
  if (look.at_end()) {
    if (const uint32_t result = create_driver_specific(linkDownConfig, look.offset, image.data()))
      return result;
    return write_back(board, image);
  }
  HCX_LOG(LOG_ERROR, "board %d no space left in region %d", static_cast<int>(board), region_number);
  return 1;
}

uint32_t HCX_GetPersistLinkDown(uint32_t board, uint16_t *linkDownConfig) {
  HCX_TRACE();
  if (!linkDownConfig) {
    HCX_LOG(LOG_ERROR, "no linkDownConfig");
    return 1;
  }
  *linkDownConfig = normal;
  if (const uint32_t refusal = check_port(__func__, board)) return refusal;
  Image image;
  const Look look = look_up(board, driver_record, image);
  if (look.found()) return read_setting(__func__, board, image, look.offset, *linkDownConfig);
  if (look.status == region_not_initialized || look.status == no_entry) {
    HCX_LOG(LOG_UTIL, "board %d region %d not initialized", static_cast<int>(board), region_number);
    return 0;
  }
  if (look.at_end()) {
    HCX_LOG(LOG_UTIL, "board %d region %d no driver specific, defaults used", static_cast<int>(board),
            region_number);
    return 0;
  }
  HCX_LOG(LOG_ERROR, "board %d region %d error %d", static_cast<int>(board), region_number,
          static_cast<int>(look.result));
  return look.result;
}
