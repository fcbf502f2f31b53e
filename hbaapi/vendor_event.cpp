// SPDX-License-Identifier: BSD-3-Clause
// Callbacks for what happens to an adapter's port: link down, link up, and a change in the fabric (RSCN). libhcx tells
// its listener functions only which board it was; the list here says who wants to know of that board.
//
// The functions run in libhcx's listener thread. The list's mutex is held to look something up, never while one of them
// runs, so they may register and remove callbacks and call anything else.
#include <cstring>
#include <exception>
#include <map>
#include <mutex>
#include <vector>

#include "libhcx_api.h"
#include "vendor.h"

namespace hcx_hbaapi {
namespace {

constexpr uint32_t kRscnRoom = 1024;  // payload of an RSCN: at most 255 pages

struct Registration {
  uint32_t board;
  HBA_WWN port;
  PortCallback function;
  void *data;
};

struct Listening {
  uint32_t users = 0;
  uint32_t link = 0, rscn = 0;  // libhcx's registrations
};

struct Registry {
  std::mutex mutex;
  uintptr_t last = 0;
  std::map<uintptr_t, Registration> wanted;
  std::map<uint32_t, Listening> boards;
};

Registry &registry() {
  static Registry instance;
  return instance;
}

void tell(uint32_t board, HBA_UINT32 event, HBA_UINT32 page) noexcept try {
  std::vector<Registration> now;
  {
    Registry &all = registry();
    const std::lock_guard<std::mutex> lock(all.mutex);
    for (const auto &[handle, registration] : all.wanted)
      if (registration.board == board) now.push_back(registration);
  }
  for (const Registration &registration : now)
    registration.function(registration.data, registration.port, event, page);
} catch (const std::exception &) {
  // Without memory for the list nobody is told; what happened is in the adapter's event buffer too.
}

void link_changed(uint32_t board, LINKINFO *link) {
  tell(board, link->a_linkState == LNK_DOWN ? HBA_EVENT_PORT_OFFLINE : HBA_EVENT_PORT_ONLINE, 0);
}

// The payload (FC-LS): command, page length, payload length, pages of four bytes.
void fabric_changed(uint32_t board, void *payload, uint32_t length, uint32_t /*same_length*/) {
  const auto *bytes = static_cast<const uint8_t *>(payload);
  for (uint32_t at = 4; at + 4 <= length; at += 4)
    tell(board, HBA_EVENT_PORT_FABRIC,
         uint32_t{bytes[at]} << 24 | uint32_t{bytes[at + 1]} << 16 | uint32_t{bytes[at + 2]} << 8 |
             bytes[at + 3]);
}

bool listen(uint32_t board, Listening &to) {
  using Function = void (*)();
  to.link = HCX_RegisterForEvent(board, FC_REG_LINK_EVENT, 0, sizeof(LINKINFO),
                                 reinterpret_cast<Function>(&link_changed), nullptr);
  to.rscn = HCX_RegisterForEvent(board, FC_REG_RSCN_EVENT, 0, kRscnRoom,
                                 reinterpret_cast<Function>(&fabric_changed), nullptr);
  return to.link != 0 && to.rscn != 0;
}

void stop(uint32_t board, const Listening &listening) {
  for (uint32_t id : {listening.link, listening.rscn})
    if (id != 0) HCX_unRegisterForEvent(board, id);
}

HBA_STATUS add(const Registration &registration, HBA_CALLBACKHANDLE *handle) {
  Registry &all = registry();
  const std::lock_guard<std::mutex> lock(all.mutex);
  Listening &listening = all.boards[registration.board];
  if (listening.users == 0 && !listen(registration.board, listening)) {
    stop(registration.board, listening);
    all.boards.erase(registration.board);
    return HBA_STATUS_ERROR;
  }
  all.wanted.emplace(++all.last, registration);
  listening.users++;
  *handle = reinterpret_cast<HBA_CALLBACKHANDLE>(all.last);
  return HBA_STATUS_OK;
}

}  // namespace

HBA_STATUS register_for_port_events(PortCallback function, void *data, HBA_HANDLE handle, HBA_WWN name,
                                    HBA_CALLBACKHANDLE *callback) {
  const Board board(handle);
  if (!board) return HBA_STATUS_ERROR_INVALID_HANDLE;
  if (!function || !callback) return HBA_STATUS_ERROR_ARG;
  if (!board.has_port(name)) return HBA_STATUS_ERROR_ILLEGAL_WWN;
  try {
    return add({board.number(), name, function, data}, callback);
  } catch (const std::exception &) {
    return HBA_STATUS_ERROR;
  }
}

HBA_STATUS remove_callback(HBA_CALLBACKHANDLE callback) {
  Registry &all = registry();
  const std::lock_guard<std::mutex> lock(all.mutex);
  const auto found = all.wanted.find(reinterpret_cast<uintptr_t>(callback));
  if (found == all.wanted.end()) return HBA_STATUS_ERROR_INVALID_HANDLE;
  const uint32_t board = found->second.board;
  all.wanted.erase(found);
  const auto listening = all.boards.find(board);
  if (--listening->second.users == 0) {
    stop(board, listening->second);
    all.boards.erase(listening);
  }
  return HBA_STATUS_OK;
}

void remove_all_callbacks() {
  Registry &all = registry();
  const std::lock_guard<std::mutex> lock(all.mutex);
  for (const auto &[board, listening] : all.boards)
    stop(board, listening);
  all.boards.clear();
  all.wanted.clear();
}

}  // namespace hcx_hbaapi
