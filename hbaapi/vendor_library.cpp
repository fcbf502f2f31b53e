// SPDX-License-Identifier: BSD-3-Clause
// Loading and unloading, the list of adapters, and the handles on them. The list is made when the library is loaded
// and stays as it is until it is unloaded; boards that come later are seen after that.
#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <mutex>
#include <vector>

#include "libhcx_api.h"
#include "vendor.h"

namespace hcx_hbaapi {
namespace {

constexpr uint32_t kMaxAdapters = 0xfffe;  // a handle has 16 bits, and 0 is none
constexpr size_t kNameSize = 256;          // room that the wrapper has for an adapter's name

struct Library {
  std::shared_mutex mutex;
  bool loaded = false;
  std::deque<Adapter> adapters;
};

Library &library() {
  static Library instance;
  return instance;
}

bool same(const HBA_WWN &one, const HBA_WWN &other) {
  return memcmp(one.wwn, other.wwn, sizeof one.wwn) == 0;
}

HBA_HANDLE open(uint32_t board) {
  library().adapters[board].opened++;
  return board + 1;
}

void describe(uint32_t board, const hcx_brdinfo &info, Adapter &adapter) {
  HBA_ADAPTERATTRIBUTES attributes;
  memset(&attributes, 0, sizeof attributes);
  GetAdapterAttributes(board, &attributes);  // without a PCI device there is no model
  char name[kNameSize];
  snprintf(name, sizeof name, "vosk-%.200s-%u", attributes.Model[0] ? attributes.Model : "adapter", board);
  adapter.name = name;
  memcpy(adapter.port_name.wwn, info.a_wwpn, sizeof adapter.port_name.wwn);
  adapter.node_name = attributes.NodeWWN;
}

void find_adapters(std::deque<Adapter> &adapters) {
  std::vector<hcx_brdinfo> boards(std::min(HCX_InitDiagEnv(nullptr, 0), kMaxAdapters));
  const size_t found =
      boards.empty() ? 0 : HCX_InitDiagEnv(boards.data(), static_cast<uint32_t>(boards.size()));
  boards.resize(std::min(boards.size(), found));
  for (uint32_t board = 0; board < boards.size(); ++board)
    describe(board, boards[board], adapters.emplace_back());
}

}  // namespace

Board::Board(HBA_HANDLE handle) : lock_(library().mutex) {
  Library &all = library();
  if (handle == 0 || handle > all.adapters.size()) return;
  number_ = handle - 1;
  Adapter &adapter = all.adapters[number_];
  if (adapter.opened != 0) adapter_ = &adapter;
}

bool Board::has_port(const HBA_WWN &name) const {
  return same(adapter_->port_name, name);
}

void Board::close() const {
  uint32_t opened = adapter_->opened;
  while (opened != 0 && !adapter_->opened.compare_exchange_weak(opened, opened - 1)) {
  }
}

HBA_UINT32 get_version() {
  return HBA_LIBVERSION;
}

HBA_STATUS load_library() {
  Library &all = library();
  const std::unique_lock<std::shared_mutex> lock(all.mutex);
  if (all.loaded) return HBA_STATUS_OK;
  try {
    find_adapters(all.adapters);
  } catch (const std::exception &) {
    all.adapters.clear();
    HCX_FreeDiagEnv();
    return HBA_STATUS_ERROR;
  }
  all.loaded = true;  // a machine without a board is no failure
  return HBA_STATUS_OK;
}

HBA_STATUS free_library() {
  Library &all = library();
  const std::unique_lock<std::shared_mutex> lock(all.mutex);
  if (!all.loaded) return HBA_STATUS_OK;
  remove_all_callbacks();
  all.adapters.clear();
  all.loaded = false;
  HCX_FreeDiagEnv();
  return HBA_STATUS_OK;
}

HBA_UINT32 get_number_of_adapters() {
  Library &all = library();
  const std::shared_lock<std::shared_mutex> lock(all.mutex);
  return static_cast<HBA_UINT32>(all.adapters.size());
}

HBA_STATUS get_adapter_name(HBA_UINT32 index, char *name) {
  if (!name) return HBA_STATUS_ERROR_ARG;
  Library &all = library();
  const std::shared_lock<std::shared_mutex> lock(all.mutex);
  if (index >= all.adapters.size()) return HBA_STATUS_ERROR_ILLEGAL_INDEX;
  const std::string &text = all.adapters[index].name;
  memcpy(name, text.c_str(), text.size() + 1);
  return HBA_STATUS_OK;
}

HBA_HANDLE open_adapter(char *name) {
  if (!name) return 0;
  Library &all = library();
  const std::shared_lock<std::shared_mutex> lock(all.mutex);
  for (uint32_t board = 0; board < all.adapters.size(); ++board)
    if (all.adapters[board].name == name) return open(board);
  return 0;
}

// By the name of its port, or by a node name that no other board has.
HBA_STATUS open_adapter_by_wwn(HBA_HANDLE *handle, HBA_WWN name) {
  if (!handle) return HBA_STATUS_ERROR_ARG;
  *handle = 0;
  Library &all = library();
  const std::shared_lock<std::shared_mutex> lock(all.mutex);
  uint32_t nodes = 0;
  uint32_t with_node = 0;
  for (uint32_t board = 0; board < all.adapters.size(); ++board) {
    if (same(all.adapters[board].port_name, name)) {
      *handle = open(board);
      return HBA_STATUS_OK;
    }
    if (same(all.adapters[board].node_name, name)) {
      nodes++;
      with_node = board;
    }
  }
  if (nodes == 0) return HBA_STATUS_ERROR_ILLEGAL_WWN;
  if (nodes > 1) return HBA_STATUS_ERROR_AMBIGUOUS_WWN;
  *handle = open(with_node);
  return HBA_STATUS_OK;
}

void close_adapter(HBA_HANDLE handle) {
  if (const Board board(handle); board) board.close();
}

HBA_UINT32 get_vendor_library_attributes(HBA_LIBRARYATTRIBUTES *attributes) {
  if (!attributes) return 0;
  memset(attributes, 0, sizeof *attributes);
  attributes->final = 1;
  Dl_info self;
  if (dladdr(reinterpret_cast<const void *>(&get_vendor_library_attributes), &self) != 0 && self.dli_fname)
    snprintf(attributes->LibPath, sizeof attributes->LibPath, "%s", self.dli_fname);
  snprintf(attributes->VName, sizeof attributes->VName, "libhcx");
  uint8_t version[19];
  HCX_GetLibVer(version);
  snprintf(attributes->VVersion, sizeof attributes->VVersion, "%s", reinterpret_cast<const char *>(version));
  return HBA_LIBVERSION;
}

}  // namespace hcx_hbaapi
