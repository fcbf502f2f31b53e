// SPDX-License-Identifier: BSD-3-Clause
// Lists the LUNs of every board: device file, port name of the target, FCP LUN.
#include <libhcx_api.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

// Room for a mapping of so many LUNs; the entries stand behind the record.
std::vector<std::max_align_t> room_for(uint32_t entries) {
  size_t bytes = sizeof(HBA_FCPTARGETMAPPING) + entries * sizeof(HBA_FCPSCSIENTRY);
  return std::vector<std::max_align_t>(bytes / sizeof(std::max_align_t) + 1);
}

void list(uint32_t board) {
  uint32_t room = 64;
  std::vector<std::max_align_t> memory = room_for(room);
  auto *mapping = reinterpret_cast<HBA_FCPTARGETMAPPING *>(memory.data());
  mapping->NumberOfEntries = room;
  while (GetFcpTargetMapping(board, mapping) == HBA_STATUS_ERROR_MORE_DATA) {
    room = mapping->NumberOfEntries;  // LUNs may come while we look: ask until they all fit
    memory = room_for(room);
    mapping = reinterpret_cast<HBA_FCPTARGETMAPPING *>(memory.data());
    mapping->NumberOfEntries = room;
  }
  for (uint32_t i = 0; i < std::min(mapping->NumberOfEntries, room); i++) {
    const HBA_FCPSCSIENTRY &entry = mapping->entry[i];
    std::printf("board %u %-12s ", board, entry.ScsiId.OSDeviceName);
    for (uint8_t byte : entry.FcpId.PortWWN.wwn)
      std::printf("%02x", byte);
    std::array<uint8_t, 8> lun;  // an image of eight bytes, most significant first, not a number
    std::memcpy(lun.data(), &entry.FcpId.FcpLun, lun.size());
    std::printf(" ");
    for (uint8_t byte : lun)
      std::printf("%02x", byte);
    std::printf("\n");
  }
}

}  // namespace

int main() {
  static hcx_brdinfo boards[32];
  uint32_t count = HCX_InitDiagEnv(boards, 32);
  for (uint32_t board = 0; board < std::min<uint32_t>(count, 32); board++)
    list(board);
  HCX_FreeDiagEnv();
}
