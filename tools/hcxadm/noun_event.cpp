// SPDX-License-Identifier: BSD-3-Clause
// "event": follows the events of the adapters, or shows what the library's rings have taken meanwhile. The library's
// listener thread calls the functions registered here; they only put a row into a queue, which the main thread shows.
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>

#include "diag_event.h"
#include "interrupt.h"
#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema follow_schema{"hcxadm.event", 1, 0};
constexpr Schema history_schema{"hcxadm.event.history", 1, 0};
constexpr uint32_t payload_room = 4096;

struct Arguments {
  std::string board;
  std::vector<std::string> kinds;
  std::vector<uint16_t> ct_types;
  bool follow = false;
  unsigned count = 0;
  double wait = 0;
};

// NOLINTNEXTLINE(bugprone-exception-escape): moving a JSON value throws nothing, whatever its check looks like
struct Event {
  std::string time = {};
  int board = 0;
  const char *kind = "";
  // Each null where the kind has none.
  Value wwpn = nullptr, payload = nullptr, code = nullptr, temperature = nullptr, gs_type = nullptr,
        tag = nullptr, diagnostic = nullptr;
};

// What the registered functions leave behind; they know their board and nothing else.
struct Queue {
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Event> events;
  void put(uint32_t board, Event event) {
    event.time = now();
    event.board = static_cast<int>(board);
    const std::lock_guard guard(mutex);
    events.push_back(std::move(event));
    changed.notify_one();
  }
  // 2026-11-21T08:30:00.125Z
  static std::string now() {
    timespec at;
    clock_gettime(CLOCK_REALTIME, &at);
    tm day;
    gmtime_r(&at.tv_sec, &day);
    char text[40];
    const size_t length = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &day);
    snprintf(text + length, sizeof text - length, ".%03ldZ", at.tv_nsec / 1000000);
    return text;
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

// The registrations of this command; taken back at its end, however it ends.
class Registrations {
 public:
  Registrations() = default;
  Registrations(const Registrations &) = delete;
  Registrations &operator=(const Registrations &) = delete;
  ~Registrations() {
    for (const auto &[board, id] : ids_)
      HCX_unRegisterForEvent(board, id);
    for (const auto &[board, handle] : handles_)
      HCX_SD_unRegisterForEvent(board, {}, handle);
  }
  void add(const Board &board, const std::string &kind, uint32_t id) {
    if (id == 0)
      throw Failure({.status = kFailed,
                     .tried = "registering for " + kind + " events",
                     .board = board.name(),
                     .code = {},
                     .name = "the library refused it",
                     .todo = "look at syslog after \"hcxadm log set error\""});
    ids_.emplace_back(static_cast<uint32_t>(board.number), id);
  }
  void add_diagnostic(const Board &board, const DiagKind &kind) {
    const auto number = static_cast<uint32_t>(board.number);
    uint32_t handle;
    const int32_t result =
        HCX_SD_RegisterForEvent(number, {}, kind.category, kind.subcategory, this, &handle, on_diagnostic);
    if (result != SD_OK)
      throw call_failure(Family::sd, result, std::string("registering for ") + kind.word + " events",
                         board.name());
    handles_.emplace_back(number, handle);
  }

 private:
  std::vector<std::pair<uint32_t, uint32_t>> ids_;
  std::vector<std::pair<uint32_t, uint32_t>> handles_;  // of diagnostic events
};

bool wanted(const Arguments &args, const char *kind) {
  if (args.kinds.empty()) return args.ct_types.empty();
  return std::find(args.kinds.begin(), args.kinds.end(), kind) != args.kinds.end();
}

void register_all(const Arguments &args, const Board &board, Registrations &registrations) {
  const auto number = static_cast<uint32_t>(board.number);
  for (const Followed &one : followed) {
    if (!wanted(args, one.kind)) continue;
    const uint32_t id = HCX_RegisterForEvent(number, one.mask, 0, payload_room, one.func, nullptr);
    // A board without sensor has no such events.
    if (id == 0 && one.mask == FC_REG_TEMPERATURE_EVENT && args.kinds.empty()) continue;
    registrations.add(board, one.kind, id);
  }
  if (wanted(args, "diag"))
    for (const DiagKind &kind : diag_kinds)
      registrations.add_diagnostic(board, kind);
  for (const uint16_t type : args.ct_types)
    registrations.add(
        board, "CT",
        RegisterForCTEvents(number, type, reinterpret_cast<void (*)()>(on_ct), nullptr, nullptr));
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

void show_line(Context &ctx, const std::string &time, const std::string &board, const std::string &kind,
               const std::string &detail) {
  const std::pair<const std::string &, size_t> cells[] = {{time, 24}, {board, 5}, {kind, 11}};
  for (const auto &[text, width] : cells) {
    ctx.out << text;
    if (ctx.aligned() && text.size() < width) ctx.out << std::string(width - text.size(), ' ');
    ctx.out << (ctx.aligned() ? "  " : "\t");
  }
  ctx.out << detail << std::endl;
}

void show_event(Context &ctx, const Event &event) {
  if (!ctx.json()) {
    show_line(ctx, event.time, std::to_string(event.board), event.kind, detail_of(event));
    return;
  }
  const Value document = {
      {"schema",
       {{"name", follow_schema.name}, {"major", follow_schema.major}, {"minor", follow_schema.minor}}},
      {"data", json_rows(make_table(follow_schema, columns, std::vector<Event>{event}))},
      {"errors", Value::array()}};
  ctx.out << document.dump(-1, ' ', false, Value::error_handler_t::replace) << std::endl;
}

void follow(Context &ctx, const Arguments &args) {
  ctx.document(follow_schema);
  if (!args.follow && ctx.command != "event follow")
    throw Failure({.status = kUsage,
                   .tried = "neither a verb nor --follow",
                   .board = {},
                   .code = {},
                   .name = {},
                   .todo = "\"hcxadm event --follow\" shows events as they come"});
  const std::vector<Board> boards = ctx.boards.select(args.board);
  const InterruptGuard interrupt;
  ctx.streamed = true;
  Registrations registrations;
  for (const Board &board : boards)
    register_all(args, board, registrations);
  if (!ctx.json()) show_line(ctx, "TIME", "BOARD", "KIND", "DETAIL");
  for (unsigned shown = 0;
       ctx.out && InterruptGuard::caught() == 0 && (args.count == 0 || shown < args.count);) {
    Event event;
    {
      std::unique_lock guard(queue.mutex);
      queue.changed.wait_for(guard, std::chrono::milliseconds(200), [] { return !queue.events.empty(); });
      if (queue.events.empty()) continue;
      event = std::move(queue.events.front());
      queue.events.pop_front();
    }
    show_event(ctx, event);
    ++shown;
  }
}

struct Entry {
  int board;
  HBA_EVENTINFO info;
};

const char *name_of(uint32_t code) {
  switch (code) {
    case HBA_EVENT_LINK_UP:
      return "link-up";
    case HBA_EVENT_LINK_DOWN:
      return "link-down";
    case HBA_EVENT_RSCN:
      return "rscn";
    default:
      return "vendor";
  }
}

const ColumnOf<Entry> entry_columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Entry &e) { return Value(e.board); }},
    {"kind", "KIND", Kind::text, In::rows, [](const Entry &e) { return Value(name_of(e.info.EventCode)); }},
    {"port_id", "FC ADDRESS", Kind::hex24, In::rows,
     [](const Entry &e) {
       return e.info.EventCode == HBA_EVENT_PROPRIETARY ? Value()
                                                        : Value(e.info.Event.Link_EventInfo.PortFcId);
     }},
    {"page", "PAGE", Kind::hex, In::rows,
     [](const Entry &e) {
       return e.info.EventCode == HBA_EVENT_RSCN ? Value(e.info.Event.RSCN_EventInfo.NPortPage) : Value();
     }},
};

void history(Context &ctx, const Arguments &args) {
  ctx.document(history_schema);
  const std::vector<Board> boards = ctx.boards.select(args.board);
  const InterruptGuard interrupt;
  for (double left = args.wait; left > 0 && InterruptGuard::caught() == 0; left -= 0.1)
    usleep(100000);
  std::vector<Entry> entries;
  for (const Board &board : boards) {
    HBA_EVENTINFO events[HCX_EVENT_RING_SIZE];
    uint32_t count = HCX_EVENT_RING_SIZE;
    const uint32_t rc = GetEventBuffer(static_cast<uint32_t>(board.number), events, &count);
    if (rc != 0) throw call_failure(Family::hba, rc, "reading the ring of events", board.name());
    for (uint32_t i = 0; i < count; ++i)
      entries.push_back({board.number, events[i]});
  }
  ctx.show(make_table(history_schema, entry_columns, entries));
}

}  // namespace

void add_event(CLI::App &root, Context &ctx) {
  auto args = std::make_shared<Arguments>();
  auto arguments = [args](CLI::App &app) {
    app.add_flag("--follow", args->follow, "Show events as they come, until interrupted");
    app.add_option("--board", args->board, board_help)->type_name("BOARD");
    app.add_option("--kind", args->kinds, "Only these: link, rscn, vport-rscn, dump, temperature, diag")
        ->type_name("KIND")
        ->delimiter(',')
        ->check(CLI::IsMember({"link", "rscn", "vport-rscn", "dump", "temperature", "diag"}));
    app.add_option("--ct", args->ct_types,
                   "Requests of these GS types, for example 0xfc; alone if no --kind is given")
        ->type_name("GSTYPE")
        ->delimiter(',')
        ->check(CLI::Range(0, 255));
    app.add_option("--count", args->count, "End after so many events")->type_name("N");
  };
  CLI::App *noun = add_noun(root, "event", "Events of the adapters and the fabric");
  add_standard_verb(*noun, "follow", "Show events as they come", ctx, arguments,
                    [args](Context &c) { follow(c, *args); });
  CLI::App *verb =
      add_verb(*noun, "history", "Show what the library's rings have taken since the start of this command",
               ctx, [args](Context &c) { history(c, *args); });
  verb->add_option("BOARD", args->board, board_help)->type_name("");
  verb->add_option("--wait", args->wait, "Wait so many seconds first")
      ->type_name("SECONDS")
      ->check(CLI::NonNegativeNumber);
}

}  // namespace hcxadm
