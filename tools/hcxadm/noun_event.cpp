// SPDX-License-Identifier: BSD-3-Clause
// "event": follows the events of the adapters, or shows what the library's rings have taken meanwhile.
#include <unistd.h>

#include "event_stream.h"
#include "interrupt.h"
#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema follow_schema{"hcxadm.event", 1, 0};
constexpr Schema history_schema{"hcxadm.event.history", 1, 0};

struct Arguments {
  std::string board;
  EventChoice choice;
  bool follow = false;
  unsigned count = 0;
  double wait = 0;
};

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
      {"data", Value::array({event_value(event)})},
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
  EventStream events(boards, args.choice);
  if (!ctx.json()) show_line(ctx, "TIME", "BOARD", "KIND", "DETAIL");
  for (unsigned shown = 0;
       ctx.out && InterruptGuard::caught() == 0 && (args.count == 0 || shown < args.count);) {
    const std::optional<Event> event = events.next(std::chrono::milliseconds(200));
    if (!event) continue;
    show_event(ctx, *event);
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
    app.add_option("--kind", args->choice.kinds,
                   "Only these: link, rscn, vport-rscn, dump, temperature, diag")
        ->type_name("KIND")
        ->delimiter(',')
        ->check(CLI::IsMember({"link", "rscn", "vport-rscn", "dump", "temperature", "diag"}));
    app.add_option("--ct", args->choice.ct_types,
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
