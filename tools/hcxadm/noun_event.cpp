// SPDX-License-Identifier: BSD-3-Clause
// "event": follows the events of the adapters, or shows what the library's rings have taken meanwhile. The library's
// listener thread calls the functions registered here; they only put a row into a queue, which the main thread shows.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>

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
  bool follow = false;
  unsigned count = 0;
  double wait = 0;
};

struct Event {
  int board = 0;
  std::string kind;
  Value detail;
};

// What the registered functions leave behind; they know their board and nothing else.
struct Queue {
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Event> events;
  void put(uint32_t board, const char *kind, Value detail) {
    const std::lock_guard guard(mutex);
    events.push_back({static_cast<int>(board), kind, std::move(detail)});
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
  queue.put(board, link->a_linkState == LNK_DOWN ? "link-down" : "link-up", Value());
}
static void on_rscn(uint32_t board, void *payload, uint32_t length, uint32_t) {
  queue.put(board, "rscn", hex_value(payload, length));
}
static void on_vport_rscn(uint32_t board, HBA_WWN wwpn, void *payload, uint32_t length) {
  queue.put(board, "vport-rscn", wwn_text(wwpn.wwn) + " " + hex_value(payload, length).get<std::string>());
}
static void on_dump(uint32_t board, void *, uint32_t) {
  queue.put(board, "dump", Value());
}
static void on_temperature(uint32_t board, uint32_t code, uint32_t celsius) {
  queue.put(board, "temperature", "code " + std::to_string(code) + ", " + std::to_string(celsius) + " C");
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
    {"board", "BOARD", Kind::number, In::rows, [](const Event &e) { return Value(e.board); }},
    {"kind", "KIND", Kind::text, In::rows, [](const Event &e) { return Value(e.kind); }},
    {"detail", "DETAIL", Kind::text, In::rows, [](const Event &e) { return e.detail; }},
};

void register_all(const Arguments &args, const std::vector<Board> &boards) {
  for (const Board &board : boards)
    for (const Followed &one : followed) {
      if (!args.kinds.empty() &&
          std::find(args.kinds.begin(), args.kinds.end(), one.kind) == args.kinds.end())
        continue;
      const uint32_t id = HCX_RegisterForEvent(static_cast<uint32_t>(board.number), one.mask, 0, payload_room,
                                               one.func, nullptr);
      // A board without sensor has no such events.
      if (id == 0 && one.mask != FC_REG_TEMPERATURE_EVENT)
        throw Failure({.status = kFailed,
                       .tried = std::string("registering for ") + one.kind + " events",
                       .board = board.name(),
                       .code = {},
                       .name = "the library refused it",
                       .todo = "look at syslog after \"hcxadm log set error\""});
    }
}

void unregister_all(const std::vector<Board> &boards) {
  for (const Board &board : boards)
    HCX_unRegisterForEvent(static_cast<uint32_t>(board.number), 0);
}

void show_event(Context &ctx, const Event &event) {
  if (!ctx.json()) {
    ctx.out << event.board << '\t' << event.kind << '\t' << human(event.detail, Kind::text) << std::endl;
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
  if (!args.follow)
    throw Failure({.status = kUsage,
                   .tried = "neither a verb nor --follow",
                   .board = {},
                   .code = {},
                   .name = {},
                   .todo = "\"hcxadm event --follow\" shows events as they come"});
  const std::vector<Board> boards = ctx.boards.select(args.board);
  const InterruptGuard interrupt;
  ctx.streamed = true;
  register_all(args, boards);
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
  unregister_all(boards);
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
    app.add_option("--board", args->board, board_help);
    app.add_option("--kind", args->kinds, "Only these: link, rscn, vport-rscn, dump, temperature")
        ->delimiter(',')
        ->check(CLI::IsMember({"link", "rscn", "vport-rscn", "dump", "temperature"}));
    app.add_option("--count", args->count, "End after so many events");
  };
  CLI::App *noun = add_noun(root, "event", "Events of the adapters and the fabric");
  add_standard_verb(*noun, "follow", "Show events as they come", ctx, arguments,
                    [args](Context &c) { follow(c, *args); });
  CLI::App *verb =
      add_verb(*noun, "history", "Show what the library's rings have taken since the start of this command",
               ctx, [args](Context &c) { history(c, *args); });
  verb->add_option("BOARD", args->board, board_help);
  verb->add_option("--wait", args->wait, "Wait so many seconds first");
}

}  // namespace hcxadm
