// SPDX-License-Identifier: BSD-3-Clause
// Registers with the library for events of all kinds, and turns what its listener thread hands over into rows.
#include "event_stream.h"

#include <time.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>

#include "diag_event.h"
#include "status.h"

namespace hcxadm {
namespace {

constexpr uint32_t payload_room = 4096;

// What the registered functions leave behind; they know their board and nothing else.
struct Queue {
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Event> events;
  void put(uint32_t board, Event event) {
    event.time = time_now();
    event.board = static_cast<int>(board);
    const std::lock_guard guard(mutex);
    events.push_back(std::move(event));
    changed.notify_one();
  }
};
Queue queue;

Value hex_value(const void *data, uint32_t length) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (uint32_t i = 0; i < length; ++i) {
    const uint8_t byte = static_cast<const uint8_t *>(data)[i];
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

extern "C" {
static void on_link(uint32_t board, LINKINFO *link) {
  queue.put(board, {.kind = link->a_linkState == LNK_DOWN ? "link-down" : "link-up"});
}
static void on_rscn(uint32_t board, void *payload, uint32_t length, uint32_t) {
  queue.put(board, {.kind = "rscn", .payload = hex_value(payload, length)});
}
static void on_vport_rscn(uint32_t board, HBA_WWN wwpn, void *payload, uint32_t length) {
  queue.put(board,
            {.kind = "vport-rscn", .wwpn = wwn_value(wwpn.wwn), .payload = hex_value(payload, length)});
}
static void on_dump(uint32_t board, void *, uint32_t) {
  queue.put(board, {.kind = "dump"});
}
static void on_temperature(uint32_t board, uint32_t code, uint32_t celsius) {
  queue.put(board, {.kind = "temperature", .code = code, .temperature = celsius});
}
static void on_ct(uint32_t board, void *request, uint32_t length, uint32_t tag, uint32_t gs_type) {
  queue.put(board, {.kind = "ct", .payload = hex_value(request, length), .gs_type = gs_type, .tag = tag});
}
// Runs with the locks of the diagnostic service held, as the others do not; it calls nothing of the library.
static void on_diagnostic(uint32_t board, HBA_WWN, uint32_t category, uint32_t subcategory, void *,
                          SD_event *event) {
  queue.put(board, {.kind = "diag", .diagnostic = diag_value(category, subcategory, *event)});
}
}

struct Followed {
  const char *kind;
  uint32_t mask;
  void (*func)();
};
const Followed followed[] = {
    {"link", FC_REG_LINK_EVENT, reinterpret_cast<void (*)()>(on_link)},
    {"rscn", FC_REG_RSCN_EVENT, reinterpret_cast<void (*)()>(on_rscn)},
    {"vport-rscn", FC_REG_VPORTRSCN_EVENT, reinterpret_cast<void (*)()>(on_vport_rscn)},
    {"dump", FC_REG_DUMP_EVENT, reinterpret_cast<void (*)()>(on_dump)},
    {"temperature", FC_REG_TEMPERATURE_EVENT, reinterpret_cast<void (*)()>(on_temperature)},
};

const ColumnOf<Event> columns[] = {
    {"time", "TIME", Kind::text, In::rows, [](const Event &e) { return Value(e.time); }},
    {"board", "BOARD", Kind::number, In::rows, [](const Event &e) { return Value(e.board); }},
    {"kind", "KIND", Kind::text, In::rows, [](const Event &e) { return Value(e.kind); }},
    {"wwpn", "WWPN", Kind::text, In::rows, [](const Event &e) { return e.wwpn; }},
    {"payload", "PAYLOAD", Kind::text, In::rows, [](const Event &e) { return e.payload; }},
    {"code", "CODE", Kind::number, In::rows, [](const Event &e) { return e.code; }},
    {"temperature", "TEMPERATURE C", Kind::number, In::rows, [](const Event &e) { return e.temperature; }},
    {"gs_type", "GS TYPE", Kind::hex, In::rows, [](const Event &e) { return e.gs_type; }},
    {"tag", "TAG", Kind::hex, In::rows, [](const Event &e) { return e.tag; }},
    {"diagnostic", "DIAGNOSTIC", Kind::nested, In::rows, [](const Event &e) { return e.diagnostic; }},
};

bool wanted(const EventChoice &choice, const char *kind) {
  if (choice.kinds.empty()) return choice.ct_types.empty();
  return std::find(choice.kinds.begin(), choice.kinds.end(), kind) != choice.kinds.end();
}

}  // namespace

void EventStream::add(const Board &board, const EventChoice &choice) {
  const auto number = static_cast<uint32_t>(board.number);
  for (const Followed &one : followed) {
    if (!wanted(choice, one.kind)) continue;
    const uint32_t id = HCX_RegisterForEvent(number, one.mask, 0, payload_room, one.func, nullptr);
    // A board without sensor has no such events.
    if (id == 0 && one.mask == FC_REG_TEMPERATURE_EVENT && choice.kinds.empty()) continue;
    keep(board, one.kind, id);
  }
  if (wanted(choice, "diag"))
    for (const DiagKind &kind : diag_kinds)
      add_diagnostic(board, kind.category, kind.subcategory, kind.word);
  for (const uint16_t type : choice.ct_types)
    keep(board, "CT",
         RegisterForCTEvents(number, type, reinterpret_cast<void (*)()>(on_ct), nullptr, nullptr));
}

void EventStream::keep(const Board &board, const std::string &kind, uint32_t id) {
  if (id == 0)
    throw Failure({.status = kFailed,
                   .tried = "registering for " + kind + " events",
                   .board = board.name(),
                   .code = {},
                   .name = "the library refused it",
                   .todo = "look at syslog after \"hcxadm log set error\""});
  ids_.emplace_back(static_cast<uint32_t>(board.number), id);
}

void EventStream::add_diagnostic(const Board &board, uint32_t category, uint32_t subcategory,
                                 const char *word) {
  const auto number = static_cast<uint32_t>(board.number);
  uint32_t handle;
  const int32_t result =
      HCX_SD_RegisterForEvent(number, {}, category, subcategory, this, &handle, on_diagnostic);
  if (result != SD_OK)
    throw call_failure(Family::sd, result, std::string("registering for ") + word + " events", board.name());
  handles_.emplace_back(number, handle);
}

EventStream::EventStream(const std::vector<Board> &boards, const EventChoice &choice) {
  {
    const std::lock_guard guard(queue.mutex);
    queue.events.clear();
  }
  try {
    for (const Board &board : boards)
      add(board, choice);
  } catch (...) {
    end();
    throw;
  }
}

EventStream::~EventStream() {
  end();
}

void EventStream::end() {
  for (const auto &[board, id] : ids_)
    HCX_unRegisterForEvent(board, id);
  for (const auto &[board, handle] : handles_)
    HCX_SD_unRegisterForEvent(board, {}, handle);
}

std::optional<Event> EventStream::next(std::chrono::milliseconds wait) {
  std::unique_lock guard(queue.mutex);
  queue.changed.wait_for(guard, wait, [] { return !queue.events.empty(); });
  if (queue.events.empty()) return {};
  Event event = std::move(queue.events.front());
  queue.events.pop_front();
  return event;
}

Value event_value(const Event &event) {
  Value object = Value::object();
  for (const ColumnOf<Event> &column : columns)
    object[column.key] = column.get(event);
  return object;
}

// What a person reads besides time, board and kind.
std::string detail_of(const Event &event) {
  std::string text;
  auto add = [&](const char *before, const Value &value, Kind kind, const char *after = "") {
    if (value.is_null()) return;
    if (!text.empty()) text += ", ";
    text += before;
    text += human(value, kind);
    text += after;
  };
  add("", event.wwpn, Kind::text);
  add("type ", event.gs_type, Kind::hex);
  add("tag ", event.tag, Kind::hex);
  add("code ", event.code, Kind::number);
  add("", event.temperature, Kind::number, " C");
  add("", event.payload, Kind::text);
  if (!event.diagnostic.is_null()) text += diag_text(event.diagnostic);
  return text.empty() ? "-" : text;
}

std::string time_now() {
  timespec at;
  clock_gettime(CLOCK_REALTIME, &at);
  tm day;
  gmtime_r(&at.tv_sec, &day);
  char text[40];
  const size_t length = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &day);
  snprintf(text + length, sizeof text - length, ".%03ldZ", at.tv_nsec / 1000000);
  return text;
}

}  // namespace hcxadm
