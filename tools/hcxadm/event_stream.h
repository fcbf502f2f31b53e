// SPDX-License-Identifier: BSD-3-Clause
// The events of boards as they come. The library's listener thread calls the functions registered here; they only put
// a row into a queue, from which one thread takes them.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "board.h"
#include "output.h"

namespace hcxadm {

// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON value throws nothing, whatever its check looks like
struct Event {
  std::string time = {};
  int board = 0;
  const char *kind = "";
  // Each null where the kind has none.
  Value wwpn = nullptr, payload = nullptr, code = nullptr, temperature = nullptr, gs_type = nullptr,
        tag = nullptr, diagnostic = nullptr;
};

// What a user asks for. Without any kind or GS type: all kinds.
struct EventChoice {
  std::vector<std::string> kinds;
  std::vector<uint16_t> ct_types;
};

// The registrations live as long as this object. One at a time, as the queue is the process's.
class EventStream {
 public:
  // Throws Failure when a board refuses.
  EventStream(const std::vector<Board> &boards, const EventChoice &choice);
  EventStream(const EventStream &) = delete;
  EventStream &operator=(const EventStream &) = delete;
  ~EventStream();
  // The next event, if one comes within this time.
  std::optional<Event> next(std::chrono::milliseconds wait);

 private:
  void add(const Board &board, const EventChoice &choice);
  void keep(const Board &board, const std::string &kind, uint32_t id);
  void add_diagnostic(const Board &board, uint32_t category, uint32_t subcategory, const char *word);
  void end();

  std::vector<std::pair<uint32_t, uint32_t>> ids_;
  std::vector<std::pair<uint32_t, uint32_t>> handles_;  // of diagnostic events
};

// The event as an object; every key is always there.
Value event_value(const Event &event);
// What a person reads besides time, board and kind.
std::string detail_of(const Event &event);
// The time of day: 2026-11-21T08:30:00.125Z
std::string time_now();

}  // namespace hcxadm
