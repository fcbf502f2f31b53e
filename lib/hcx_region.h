// SPDX-License-Identifier: BSD-3-Clause
// Region 23 of the adapter's flash: the image as a value, the layout of its records, and the one walk along their
// chain. What comes from the adapter is bounded here: no member of Image reaches outside of its 1024 bytes, whatever
// offsets and lengths the records claim. Plain values: any thread may have its own.
//
// The layout: a header of 8 bytes, then records one behind the other. A record is a head of 4 bytes, whose second
// byte counts the 32-bit words that follow. A record of the type 0xff ends the chain; what stands behind it has no
// meaning.
#pragma once

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

#include "hcx_bytes.h"
#include "libhcx.h"

struct R23 {
  uint8_t RegionSignature[4];  // "RG23"
  uint8_t Revision;            // 1
  uint8_t Rsvd[3];
};

struct hcx_Generichdr {
  uint8_t type;
  uint8_t length;  // words behind this head
  uint8_t reserved[2];
};

struct hcx_EndOfRecordshdr {
  uint8_t type;  // 0xff
  uint8_t length;
  uint8_t reserved[2];
};

// The drivers' record. Sub-records with heads of the same form follow, the last one of the type 0xff.
struct hcx_DRVRhdr {
  uint8_t type;  // 0xa2
  uint8_t length;
  hcx::le16 driver_id;
};

// Sub-record: whether the port stays down.
typedef struct HCX_PORT_STATUS_TLV {
  uint8_t type;    // 1
  uint8_t length;  // 0
  uint8_t value;   // 0: the link stays down, 1: normal
  uint8_t reserved;
} HCX_Port_Status_TLV;

struct hcx_FIPparamhdr {
  uint8_t type;        // 0xa0
  uint8_t length;      // 2
  uint8_t version;     // 1
  uint8_t parm_flags;  // bit 0: VLAN_tag is valid
  uint8_t FCMAP[3];
  uint8_t reserved1;
  hcx::le16 VLAN_tag;
  uint8_t reserved2[2];
};

struct hcx_FCFC {
  hcx::be16 flags1;     // bit 0: in use
  uint8_t vlan_tag[2];  // written and read in different orders, see hcx_util_fcoe.cpp
  uint8_t fabric_name[8];
  uint8_t switch_name[8];
};

struct hcx_FCFChdr {
  uint8_t type;    // 0xa1
  uint8_t length;  // 80
  uint8_t reserved[2];
  hcx_FCFC FCFC[16];
};

static_assert(sizeof(R23) == 8 && sizeof(hcx_Generichdr) == 4 && sizeof(hcx_EndOfRecordshdr) == 4);
static_assert(sizeof(hcx_DRVRhdr) == 4 && sizeof(HCX_PORT_STATUS_TLV) == 4);
static_assert(sizeof(hcx_FIPparamhdr) == 12 && offsetof(hcx_FIPparamhdr, VLAN_tag) == 8);
static_assert(sizeof(hcx_FCFC) == 20 && offsetof(hcx_FCFC, fabric_name) == 4);
static_assert(sizeof(hcx_FCFChdr) == 324 && offsetof(hcx_FCFChdr, FCFC) == 4);

namespace hcx::region {

constexpr uint32_t region_23 = 23;
constexpr uint32_t image_size = 1024;
constexpr uint32_t access_type = 2;  // of dumps and updates of a whole region
constexpr int32_t first_record = sizeof(R23);
constexpr uint8_t fip_record = 0xA0, fcf_record = 0xA1, driver_record = 0xA2, end_record = 0xFF;
constexpr uint8_t port_status_record = 1;  // inside of the drivers' record
constexpr uint16_t our_driver = 0x0020;
constexpr uint32_t head_size = sizeof(hcx_Generichdr);

// Mailbox statuses of a dump.
constexpr uint16_t region_not_initialized = 0xFFFD, no_entry = 0xFFF7;

// Bytes of a record whose head has this length.
constexpr int64_t record_size(uint8_t length) {
  return (int64_t{length} + 1) * 4;
}

class Image {
 public:
  Image() = default;
  // From a caller's 1024 bytes, and back to them.
  explicit Image(const uint8_t *from) { memcpy(bytes_.data(), from, image_size); }
  void store(uint8_t *to) const { memcpy(to, bytes_.data(), image_size); }

  uint8_t *data() { return bytes_.data(); }
  static bool holds(int64_t offset, int64_t size) {
    return offset >= 0 && size >= 0 && offset <= image_size && size <= image_size - offset;
  }
  // 0 outside.
  uint8_t byte(int64_t offset) const { return holds(offset, 1) ? bytes_[static_cast<size_t>(offset)] : 0; }
  uint8_t length_at(int64_t offset) const { return byte(offset + 1); }
  bool ends_at(int64_t offset) const { return holds(offset, head_size) && byte(offset) == end_record; }
  // The part of the range that lies inside.
  std::span<const uint8_t> range(int64_t offset, int64_t size) const {
    const int64_t from = std::clamp<int64_t>(offset, 0, image_size);
    const int64_t to = std::clamp<int64_t>(offset + std::max<int64_t>(size, 0), from, image_size);
    return std::span(bytes_).subspan(static_cast<size_t>(from), static_cast<size_t>(to - from));
  }
  // False, and nothing is changed, when the bytes do not fit.
  bool put(int64_t offset, std::span<const uint8_t> bytes) {
    if (!holds(offset, static_cast<int64_t>(bytes.size()))) return false;
    if (!bytes.empty()) memcpy(bytes_.data() + offset, bytes.data(), bytes.size());
    return true;
  }
  template <class Record>
  bool put_record(int64_t offset, const Record &record) {
    return put(offset, {reinterpret_cast<const uint8_t *>(&record), sizeof record});
  }
  // Zeros where it reaches outside.
  template <class Record>
  Record record(int64_t offset) const {
    Record record{};
    if (holds(offset, sizeof record)) memcpy(&record, bytes_.data() + offset, sizeof record);
    return record;
  }
  // Zeros from an offset on.
  void clear_from(int64_t offset) {
    std::fill(bytes_.begin() + std::clamp<int64_t>(offset, 0, image_size), bytes_.end(), 0);
  }

 private:
  std::array<uint8_t, image_size> bytes_{};
};

constexpr hcx_EndOfRecordshdr end_mark = {end_record, 0, {0, 0}};

// Where the first record of a type begins (a drivers' record only when it is ours): 0; -ENOENT with the place of the
// end mark; -E2BIG when the records run out of the image.
struct Place {
  int32_t result;
  int32_t offset;
};
Place find_record(const Image &image, uint32_t type);
// The first end mark on the way from the first record; none when the records run out of the image.
std::optional<int32_t> end_of_records(const Image &image);
// The image without the record at `offset`: every byte before and behind it is kept, zeros fill up the end. None when
// the record leaves the image.
std::optional<Image> without_record(const Image &image, int32_t offset);

// Reads region 23 and looks for a record, as get_r23_TLV() does.
struct Look {
  uint32_t result = 1;
  int32_t offset = -1;
  uint16_t status = 0;   // of the last mailbox command
  bool foreign = false;  // read whole, but the signature is not that of this layout
  bool partial = false;  // reading failed when a part of the region had come already
  bool found() const { return result == 0; }
  bool at_end() const { return result == static_cast<uint32_t>(-ENOENT); }
  // Such a status behind a part that was delivered tells of a fault: the region holds something.
  bool not_initialized() const { return !found() && !partial && status == region_not_initialized; }
  bool empty() const { return !found() && !partial && status == no_entry; }
};
Look look_up(uint32_t board, uint32_t type, Image &image);
// Writes an image that was read whole, or made anew. Nothing else may come here.
uint32_t write_back(uint32_t board, Image &image);
// Writes an empty region.
uint32_t make_empty(uint32_t board, Image &image);

}  // namespace hcx::region
