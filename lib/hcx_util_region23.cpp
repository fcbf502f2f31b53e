// SPDX-License-Identifier: BSD-3-Clause
// The chain of records in region 23: reading it, finding a record, making an empty one, and the steps that edit the
// drivers' record on an image in memory. Of these only make_empty() and write_back() reach flash. The steps trust
// nothing that an image says; each leaves the caller's buffers as they were when it refuses, but where its comment
// says otherwise. No state; any thread.
#include <cerrno>

#include "hcx_region.h"

using namespace hcx::region;

namespace hcx::region {
namespace {

constexpr char finder[] = "get_r23_TLV";
constexpr uint8_t signature[4] = {'R', 'G', '2', '3'};
constexpr uint8_t revision = 1;

bool matches(const Image &image, int32_t at, uint32_t type) {
  if (image.byte(at) != type || (type != fip_record && type != fcf_record && type != driver_record))
    return false;
  return type != driver_record || image.record<hcx_DRVRhdr>(at).driver_id == our_driver;
}

int32_t next_record(const Image &image, int32_t at) {
  return at + static_cast<int32_t>(record_size(image.length_at(at)));
}

bool is_ours(uint32_t board, const Image &image) {
  const R23 header = image.record<R23>(0);
  const uint8_t *found = header.RegionSignature;
  if (memcmp(found, signature, sizeof signature) == 0 && header.Revision == revision) return true;
  libhcx_syslog(LOG_ERROR, "%s - board %d region %d bad signature x%02x%02x%02x%02x", finder,
                static_cast<int>(board), static_cast<int>(region_23), found[0], found[1], found[2], found[3]);
  return false;
}

void log_place(uint32_t board, const Place &place) {
  if (place.result == -ENOENT) {
    libhcx_syslog(LOG_UTIL, "%s - board %d region %d end of tlv reached", finder, static_cast<int>(board),
                  static_cast<int>(region_23));
  } else if (place.result == -E2BIG) {
    libhcx_syslog(LOG_ERROR, "%s - board %d region %d not enough space", finder, static_cast<int>(board),
                  static_cast<int>(region_23));
  }
}

}  // namespace

Place find_record(const Image &image, uint32_t type) {
  constexpr int32_t last_byte = image_size - 1;
  for (int32_t at = first_record;;) {
    if (image.byte(at) == end_record) return {-ENOENT, at};
    if (matches(image, at, type)) return {0, at};
    at = next_record(image, at);
    if (at + static_cast<int32_t>(head_size) > last_byte) return {-E2BIG, -1};
  }
}

std::optional<int32_t> end_of_records(const Image &image) {
  for (int32_t at = first_record; Image::holds(at, head_size); at = next_record(image, at))
    if (image.ends_at(at)) return at;
  return std::nullopt;
}

std::optional<Image> without_record(const Image &image, int32_t offset) {
  const int64_t size = record_size(image.length_at(offset));
  if (!Image::holds(offset, size)) return std::nullopt;
  Image rest;
  rest.put(0, image.range(0, offset));
  rest.put(offset, image.range(offset + size, image_size));
  return rest;
}

Look look_up(uint32_t board, uint32_t type, Image &image) {
  libhcx_syslog(LOG_TRACE, "%s()", finder);
  Look look;
  uint32_t length = image_size;
  look.result = getRegionData(board, access_type, region_23, 0, image.data(), &length, &look.status, 0);
  look.partial = look.result != 0 && length != 0;
  if (look.result != 0) return look;
  look.result = 1;
  if (length == 0) {
    look.offset = 0;
    look.status = no_entry;
    libhcx_syslog(LOG_ERROR, "%s - board %d region %d needs to be initialized", finder,
                  static_cast<int>(board), static_cast<int>(region_23));
  } else if (length != image_size) {
    libhcx_syslog(LOG_ERROR, "%s - board %d region %d length %d should be %d", finder,
                  static_cast<int>(board), static_cast<int>(region_23), static_cast<int>(length),
                  static_cast<int>(image_size));
  } else if (!is_ours(board, image)) {
    look.result = 3;
    look.foreign = true;
  } else {
    const Place place = find_record(image, type);
    look.result = static_cast<uint32_t>(place.result);
    look.offset = place.offset;
    log_place(board, place);
  }
  return look;
}

uint32_t write_back(uint32_t board, Image &image) {
  uint32_t length = image_size;
  int32_t info = 0;
  return setRegionData(board, access_type, region_23, image_size, 0, image.data(), &length, &info);
}

uint32_t make_empty(uint32_t board, Image &image) {
  int32_t offset = -1, info = 0;
  return initRegion23(board, image.data(), &offset, &info);
}

}  // namespace hcx::region

uint32_t get_r23_TLV(uint32_t board, uint32_t type, uint8_t *region_data, int32_t *offset,
                     uint16_t *mbStatus) {
  if (!region_data || !offset || !mbStatus) {
    HCX_TRACE();
    return 1;
  }
  Image image(region_data);
  const Look look = look_up(board, type, image);
  image.store(region_data);
  *offset = look.offset;
  *mbStatus = look.status;
  return look.result;
}

uint32_t initRegion23(uint32_t board, uint8_t *region_data, int32_t *offset, int32_t *responseInfo) {
  HCX_TRACE();
  if (!region_data || !offset || !responseInfo) return 1;
  *offset = -1;
  Image image;
  R23 header = {{}, revision, {}};
  memcpy(header.RegionSignature, signature, sizeof signature);
  image.put_record(0, header);
  image.put_record(first_record, end_mark);
  image.store(region_data);
  uint32_t length = image_size;
  const uint32_t result =
      setRegionData(board, access_type, region_23, image_size, 0, region_data, &length, responseInfo);
  if (result == 0) *offset = first_record;
  return result;
}

namespace {

// Value of the port status sub-record for a link-down setting.
HCX_PORT_STATUS_TLV port_status(uint32_t option) {
  return {port_status_record, 0, static_cast<uint8_t>(option == 1 ? 0 : 1), 0};
}

constexpr int region_number = static_cast<int>(region_23);

}  // namespace

uint32_t create_driver_specific(uint32_t option, int32_t offset, uint8_t *region_data) {
  HCX_TRACE();
  if (!region_data) return 1;
  struct {
    hcx_DRVRhdr head = {driver_record, 2, our_driver};
    HCX_PORT_STATUS_TLV status;
    hcx_EndOfRecordshdr end = end_mark, region_end = end_mark;
  } record;
  static_assert(sizeof record == 16);
  record.status = port_status(option);
  Image image(region_data);
  if (!image.put_record(offset, record)) {
    HCX_LOG(LOG_ERROR, "region %d no space left", region_number);
    return 1;
  }
  image.store(region_data);
  return 0;
}

// Fills rebuild_data as far as it gets, also when it fails later than at the record's own end mark.
uint32_t remove_driver_specific(uint8_t *region_data, uint8_t *rebuild_data, int32_t offset,
                                int32_t *end_offset) {
  HCX_TRACE();
  if (!region_data || !rebuild_data || !end_offset) return 1;
  *end_offset = static_cast<int32_t>(static_cast<uint32_t>(offset) + 4);
  const Image image(region_data);
  const int length = image.length_at(offset);
  const int64_t last_word = int64_t{offset} + 4 * std::max(length, 1);
  if (!Image::holds(offset, head_size) || !image.ends_at(last_word)) {
    HCX_LOG(LOG_ERROR, "missing region %d end tlv", region_number);
    return 1;
  }
  Image rebuilt;
  rebuilt.put(0, image.range(0, offset));
  // The last byte of what follows is left behind: it belongs to no record.
  const int64_t behind = int64_t{offset} + record_size(static_cast<uint8_t>(length));
  const int64_t count = int64_t{image_size} - 1 - behind;
  if (count >= 0) rebuilt.put(offset, image.range(behind, count));
  rebuilt.store(rebuild_data);
  if (count < 0) {
    HCX_LOG(LOG_ERROR, "region %d error in specific length %d", region_number, length);
    return 1;
  }
  for (int32_t at = image_size - head_size; at >= 0; at -= 4) {
    if (rebuilt.byte(at) != end_record) continue;
    *end_offset = at;
    return 0;
  }
  HCX_LOG(LOG_ERROR, "region %d missing end tlv", region_number);
  return 1;
}

namespace {

constexpr char rebuild[] = "rebuild_port_status";

enum class Search { found, not_found, no_space };

// Looks for the port status among the sub-records: where it is, or where the chain of them ends.
Search find_port_status(const Image &image, int32_t offset, int64_t &at) {
  at = int64_t{offset} + head_size;
  for (int64_t budget = 4 * int64_t{image.length_at(offset)}; budget > 0;) {
    if (!Image::holds(at, head_size)) return Search::no_space;
    const uint8_t type = image.byte(at), length = image.length_at(at);
    if (type == port_status_record) return Search::found;
    if (type == end_record) break;
    libhcx_syslog(LOG_UTIL, "%s - Checking subType x%02x length %d", rebuild, type, length);
    libhcx_syslog(LOG_UTIL, "%s - skipping %d bytes to next tlv", rebuild,
                  static_cast<int>(record_size(length)));
    at += record_size(length);
    budget -= record_size(length);
    if (budget > 0 && at + 4 > image_size - 1) return Search::no_space;
  }
  return Search::not_found;
}

// Puts a port status where the sub-records end, and makes the record one word longer.
uint32_t append_port_status(Image &image, int32_t offset, int64_t at, const HCX_PORT_STATUS_TLV &status) {
  const int length = image.length_at(offset);
  if (at + 12 > image_size - 1) {
    libhcx_syslog(LOG_ERROR, "%s - Not enough space for port\tstatus", rebuild);
    return 1;
  }
  if (length == UINT8_MAX) {
    libhcx_syslog(LOG_ERROR, "%s - Too many driver specfic words", rebuild);
    return 1;
  }
  const uint8_t longer = static_cast<uint8_t>(length == 0 ? 2 : length + 1);
  image.put_record(int64_t{offset} + 1, longer);
  image.put_record(at, status);
  image.put_record(at + 4, end_mark);
  image.put_record(at + 8, end_mark);
  // Where the chain ended before the record did, the word that the record has grown by belonged to what follows it.
  const int64_t last_word = int64_t{offset} + 4 * longer;
  if (last_word > at + 4) image.put_record(last_word, end_mark);
  libhcx_syslog(LOG_UTIL, "%s - adding port status at offset %d", rebuild, static_cast<int>(at));
  return 0;
}

uint32_t set_port_status(Image &image, int32_t offset, const HCX_PORT_STATUS_TLV &status) {
  int64_t at;
  switch (find_port_status(image, offset, at)) {
    case Search::found:
      image.put_record(at, status);
      libhcx_syslog(LOG_UTIL, "%s - updated port status at offset %d", rebuild, static_cast<int>(at));
      return 0;
    case Search::not_found:
      return append_port_status(image, offset, at, status);
    case Search::no_space:
      break;
  }
  libhcx_syslog(LOG_ERROR, "%s - Not enough space for driver header", rebuild);
  return 1;
}

}  // namespace

// What stands behind the record in region_data may be overwritten: it is to be saved before.
uint32_t rebuild_port_status(uint8_t *region_data, uint32_t option, int32_t offset, uint32_t *new_length) {
  HCX_TRACE();
  if (!region_data || !new_length) return 1;
  *new_length = 0;
  if (!Image::holds(offset, head_size)) return 1;
  Image image(region_data);
  const auto head = image.record<hcx_DRVRhdr>(offset);
  HCX_LOG(LOG_UTIL,
          "offset %d DRVRhdr size %d specific type x%02x length %d driver id x%04x cumulative offset %d",
          offset, static_cast<int>(sizeof head), head.type, head.length,
          static_cast<unsigned>(head.driver_id), offset + static_cast<int>(sizeof head));
  const uint32_t result = set_port_status(image, offset, port_status(option));
  image.store(region_data);
  *new_length = static_cast<uint32_t>(record_size(image.length_at(offset)));
  HCX_LOG(LOG_UTIL, "rc %d new_length %d", static_cast<int>(result), static_cast<int>(*new_length));
  return result;
}

uint32_t add_driver_specific(uint8_t *region_data, int32_t offset, uint8_t *rebuild_data,
                             int32_t rebuild_end_offset, uint32_t driver_specific_length) {
  HCX_TRACE();
  if (!region_data || !rebuild_data) return 1;
  const int64_t length = driver_specific_length;
  const Image image(region_data);
  Image rebuilt(rebuild_data);
  if (rebuild_end_offset < first_record || !Image::holds(offset, length) ||
      !Image::holds(rebuild_end_offset, length + head_size)) {
    return 1;
  }
  rebuilt.put(rebuild_end_offset, image.range(offset, length));
  rebuilt.put_record(rebuild_end_offset + length, end_mark);
  rebuilt.store(rebuild_data);
  rebuilt.store(region_data);
  return 0;
}
