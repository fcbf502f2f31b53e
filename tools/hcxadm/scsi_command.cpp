// SPDX-License-Identifier: BSD-3-Clause
// FCP_CMND and FCP_RSP IUs (FCP-4) around a CDB, and READ CAPACITY. Lengths in what came back are the device's to say
// and are not trusted.
#include "scsi_command.h"

#include <algorithm>
#include <cstring>

#include "libhcx_api.h"
#include "status.h"

namespace hcxadm {
namespace {

constexpr size_t response_head = 24;

// LUN, CDB, direction and length.
std::vector<uint8_t> command_unit(const LunAddress &address, const std::vector<uint8_t> &cdb, size_t out_size,
                                  uint32_t in_size) {
  std::vector<uint8_t> unit(32);
  std::memcpy(unit.data(), &address.image, 8);
  unit[11] = static_cast<uint8_t>((in_size ? 2 : 0) | (out_size ? 1 : 0));
  std::copy(cdb.begin(), cdb.end(), unit.begin() + 12);
  const uint64_t length = in_size ? in_size : out_size;
  for (int i = 0; i < 4; ++i)
    unit[28 + static_cast<size_t>(i)] = static_cast<uint8_t>(length >> (24 - 8 * i));
  return unit;
}

// Status and sense.
void read_response(const std::vector<uint8_t> &response, ScsiResult &result) {
  if (response.size() < response_head) return;
  result.status = response[11];
  const size_t at = response_head + (response[10] & 1 ? big_endian(response, 20, 4) : 0);
  const size_t length = response[10] & 2 ? big_endian(response, 16, 4) : 0;
  if (at > response.size()) return;
  const size_t end = at + std::min(length, response.size() - at);
  result.sense.assign(response.begin() + static_cast<ptrdiff_t>(at),
                      response.begin() + static_cast<ptrdiff_t>(end));
}

}  // namespace

uint64_t big_endian(const std::vector<uint8_t> &data, size_t at, size_t size) {
  uint64_t value = 0;
  for (size_t i = at; i < at + size && i < data.size(); ++i)
    value = value << 8 | data[i];
  return value;
}

ScsiResult send_command(const std::string &tried, const LunAddress &address, const std::vector<uint8_t> &cdb,
                        uint32_t in_size, std::vector<uint8_t> out, uint32_t timeout) {
  const bool sends = !out.empty();
  std::vector<uint8_t> unit = command_unit(address, cdb, out.size(), in_size);
  std::vector<uint8_t> data = sends ? std::move(out) : std::vector<uint8_t>(in_size);
  std::vector<uint8_t> response(response_head + sense_room);
  uint32_t data_size = static_cast<uint32_t>(data.size());
  uint32_t response_size = static_cast<uint32_t>(response.size());
  HBA_WWN target = address.target;
  const uint32_t result = SendFcpCmdEx(static_cast<uint32_t>(address.board.number), &target, unit.data(),
                                       static_cast<uint32_t>(unit.size()), data.data(), &data_size,
                                       response.data(), &response_size, timeout);
  if (result != 0) throw call_failure(Family::scsi, result, tried, address.board.name());
  response.resize(std::min<size_t>(response_size, response.size()));
  data.resize(std::min<size_t>(data_size, data.size()));
  ScsiResult ended;
  read_response(response, ended);
  ended.moved = static_cast<uint32_t>(data.size());
  if (!sends) ended.data = std::move(data);
  return ended;
}

const char *scsi_status_name(uint8_t status) {
  switch (status) {
    case 0x00:
      return "good";
    case 0x02:
      return "check condition";
    case 0x08:
      return "busy";
    case 0x18:
      return "reservation conflict";
    case 0x28:
      return "task set full";
    case 0x30:
      return "ACA active";
    case 0x40:
      return "task aborted";
    default:
      return "unknown";
  }
}

Capacity read_capacity(const std::string &tried, const LunAddress &address) {
  constexpr uint64_t beyond_32_bits = 0xffffffff;
  Capacity capacity;
  ScsiResult &answer = capacity.answer;
  size_t width = 4;
  answer = send_command(tried, address, {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 8, {}, 0);
  if (answer.data.size() == 8 && big_endian(answer.data, 0, 4) == beyond_32_bits) {
    width = 8;
    answer = send_command(tried, address, {0x9e, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 32, 0, 0}, 32, {}, 0);
  }
  if (answer.data.size() < width + 4) return capacity;
  capacity.blocks = big_endian(answer.data, 0, width) + 1;
  capacity.block_size = big_endian(answer.data, width, 4);
  return capacity;
}

}  // namespace hcxadm
