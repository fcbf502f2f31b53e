// SPDX-License-Identifier: BSD-3-Clause
// "qos": priorities of FCP commands and the logical link speed.
#include <cstdio>
#include <cstring>
#include <map>

#include "change.h"
#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema rules_schema{"hcxadm.qos", 1, 0};
constexpr Schema switch_schema{"hcxadm.qos.switch", 1, 0};
constexpr Schema speed_schema{"hcxadm.qos.speed", 1, 0};
constexpr uint32_t more_data = 7, most_rules = 1820;

void check(uint32_t result, const std::string &tried, const Board &board) {
  if (result == 0) return;
  // Requests to the driver end with a negated errno.
  if (static_cast<int32_t>(result) < 0)
    throw call_failure(Family::sys, static_cast<int32_t>(result), tried, board.name(),
                       "needs root and a driver with the management interface 2.0 or newer");
  throw call_failure(Family::hba, result, tried, board.name(),
                     "\"hcxadm log set error\" brings the reason into syslog");
}

bool any(const uint8_t field[8]) {
  return std::all_of(field, field + 8, [](uint8_t byte) { return byte == 0xff; });
}

// The operating system's number of a LUN: its two-byte levels, the first one lowest.
uint64_t lun_number(const uint8_t field[8]) {
  uint64_t number = 0;
  for (int level = 0; level < 4; ++level)
    number |= (uint64_t{field[2 * level]} << 8 | field[2 * level + 1]) << 16 * level;
  return number;
}

void store_lun(uint8_t field[8], uint64_t number) {
  for (int level = 0; level < 4; ++level, number >>= 16) {
    field[2 * level] = static_cast<uint8_t>(number >> 8);
    field[2 * level + 1] = static_cast<uint8_t>(number);
  }
}

// ---- list, set ----

// A table with room for so many entries.
struct Rules {
  explicit Rules(uint32_t room) : memory(room + 1) { table()->numberOfEntries = room; }
  HCX_QoSConfig *table() { return reinterpret_cast<HCX_QoSConfig *>(memory.data()); }
  HCX_QoSEntry *entries() { return table()->fcQoSEntry; }

  std::vector<HCX_QoSEntry> memory;  // the count stands in front of the entries
};

struct Row {
  Board board;
  HCX_QoSEntry entry;
  Value enabled;
};

const ColumnOf<Row> rule_columns[] = {
    {"board", "BOARD", Kind::number, In::record, [](const Row &r) { return Value(r.board.number); }},
    {"host", "HOST", Kind::text, In::record, [](const Row &r) { return Value(host_name(r.board)); }},
    {"source", "SOURCE", Kind::text, In::rows,
     [](const Row &r) { return any(r.entry.src_wwpn) ? Value() : Value(wwn_text(r.entry.src_wwpn)); }},
    {"target", "TARGET", Kind::text, In::rows,
     [](const Row &r) { return any(r.entry.tgt_wwpn) ? Value() : Value(wwn_text(r.entry.tgt_wwpn)); }},
    {"first_lun", "FIRST LUN", Kind::number, In::rows,
     [](const Row &r) { return any(r.entry.first_lun) ? Value() : Value(lun_number(r.entry.first_lun)); }},
    {"last_lun", "LAST LUN", Kind::number, In::rows,
     [](const Row &r) { return any(r.entry.last_lun) ? Value() : Value(lun_number(r.entry.last_lun)); }},
    {"priority", "PRIORITY", Kind::number, In::rows,
     [](const Row &r) { return Value(r.entry.fcp_priority); }},
    {"enabled", "ENABLED", Kind::flag, In::record, [](const Row &r) { return r.enabled; }},
};

// null: the driver does not say.
Value read_switch(const Board &board) {
  uint32_t flag = 0;
  return HCX_QoSGetGlobalFlag(number_of(board), &flag) == 0 ? Value(flag != 0) : Value();
}

std::vector<Row> read_rules(const Board &board) {
  Rules rules(64);
  uint32_t result = HCX_QoSGetConfig(number_of(board), rules.table());
  while (result == more_data && rules.table()->numberOfEntries <= most_rules) {
    rules = Rules(rules.table()->numberOfEntries);
    result = HCX_QoSGetConfig(number_of(board), rules.table());
  }
  check(result, "reading the priorities", board);
  const Value enabled = read_switch(board);
  std::vector<Row> rows;
  for (uint32_t i = 0; i < rules.table()->numberOfEntries; ++i)
    rows.push_back({board, rules.entries()[i], enabled});
  return rows;
}

void list(Context &ctx, const std::string &name) {
  ctx.document(rules_schema);
  const Board &board = ctx.boards.find(name);
  const std::vector<Row> rows = read_rules(board);
  ctx.show(make_table(rules_schema, rule_columns, rows));
  if (read_switch(board) == Value(false)) ctx.note(board.name() + ": priorities are switched off");
}

std::string rule_line(const HCX_QoSEntry &entry) {
  const auto lun = [](const uint8_t field[8]) {
    return any(field) ? "any" : std::to_string(lun_number(field));
  };
  return "source " + (any(entry.src_wwpn) ? "any" : wwn_text(entry.src_wwpn)) + ", target " +
         (any(entry.tgt_wwpn) ? "any" : wwn_text(entry.tgt_wwpn)) + ", LUN " + lun(entry.first_lun) + " to " +
         lun(entry.last_lun) + ": priority " + std::to_string(entry.fcp_priority);
}

HCX_QoSEntry parse_rule(const std::string &text) {
  const auto pairs = parse_pairs(text, {"source", "target", "first", "last", "priority"}, "priority");
  HCX_QoSEntry entry{};
  memset(&entry, 0xff, offsetof(HCX_QoSEntry, fcp_priority));
  for (const auto &[key, value] : pairs) {
    if (key == "priority") {
      entry.fcp_priority = static_cast<uint8_t>(parse_limited("priority", value, 255));
    } else if (key == "first" || key == "last") {
      store_lun(key == "first" ? entry.first_lun : entry.last_lun,
                parse_limited("LUN", value, UINT64_MAX - 1));
    } else {
      const HBA_WWN wwn = parse_name("port name", value);
      memcpy(key == "source" ? entry.src_wwpn : entry.tgt_wwpn, wwn.wwn, sizeof wwn.wwn);
    }
  }
  return entry;
}

void set(Context &ctx, const std::string &name, const std::vector<std::string> &texts, bool none) {
  ctx.document(rules_schema);
  if (texts.empty() != none)
    throw usage_failure(none ? "rules together with --none" : "no rule given",
                        "give rules such as target=WWN,priority=3, or --none for an empty table");
  if (texts.size() > most_rules) throw usage_failure("too many rules");
  Rules rules(static_cast<uint32_t>(texts.size()));
  for (size_t i = 0; i < texts.size(); ++i)
    rules.entries()[i] = parse_rule(texts[i]);
  const Board &board = ctx.boards.find(name);
  Lines before, after;
  for (const Row &row : read_rules(board))
    before.push_back(rule_line(row.entry));
  // As they will stand: sending turns the rules of one kind round once more.
  Rules ordered = rules;
  check(static_cast<uint32_t>(order_fcp_priority_list(ordered.table())), "ordering the rules", board);
  for (size_t i = 0; i < texts.size(); ++i)
    after.push_back(rule_line(ordered.entries()[i]));
  if (!confirm_change(ctx, before, after, "replace the priorities of " + board.name())) return;
  check(HCX_QoSSetConfig(number_of(board), rules.table()), "replacing the priorities", board);
  ctx.show(make_table(rules_schema, rule_columns, read_rules(board)));
}

// ---- enable, disable ----

struct Switch {
  Board board;
  Value enabled;
};

const ColumnOf<Switch> switch_columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Switch &s) { return Value(s.board.number); }},
    {"host", "HOST", Kind::text, In::rows, [](const Switch &s) { return Value(host_name(s.board)); }},
    {"enabled", "ENABLED", Kind::flag, In::rows, [](const Switch &s) { return s.enabled; }},
};

void turn(Context &ctx, const std::string &name, bool on) {
  ctx.document(switch_schema);
  const Board &board = ctx.boards.find(name);
  const std::string what = std::string("switching priorities ") + (on ? "on" : "off");
  uint32_t flag = 0;
  check(HCX_QoSGetGlobalFlag(number_of(board), &flag), what, board);
  const auto line = [](bool enabled) { return Lines{std::string("priorities ") + (enabled ? "on" : "off")}; };
  if (!confirm_change(ctx, line(flag != 0), line(on),
                      std::string("switch priorities ") + (on ? "on" : "off") + " on " + board.name()))
    return;
  check(HCX_QoSSetGlobalFlag(number_of(board), on ? 1 : 0), what, board);
  ctx.show(make_table(switch_schema, switch_columns, std::vector<Switch>{{board, read_switch(board)}}));
}

// ---- speed ----

struct Speed {
  Board board;
  Value mbit;
};

const ColumnOf<Speed> speed_columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Speed &s) { return Value(s.board.number); }},
    {"host", "HOST", Kind::text, In::rows, [](const Speed &s) { return Value(host_name(s.board)); }},
    {"logical_speed_mbit", "LOGICAL SPEED(Mbit/s)", Kind::number, In::rows,
     [](const Speed &s) { return s.mbit; }},
};

void speed(Context &ctx, const std::string &name) {
  constexpr uint16_t unknown = 0xffff;
  constexpr uint32_t not_supported = 2;
  ctx.document(speed_schema);
  std::vector<Speed> rows;
  for (const Board &board : ctx.boards.select(name)) {
    uint16_t value = unknown;
    const uint32_t result = HCX_GetQoSLinkSpeed(number_of(board), &value);
    // Among all boards, those of another kind are no failure.
    if (result != 0 && (result != not_supported || !name.empty()))
      check(result, "reading the logical speed", board);
    rows.push_back({board, value == unknown ? Value() : Value(10 * value)});
  }
  ctx.show(make_table(speed_schema, speed_columns, rows));
}

}  // namespace

void add_qos(CLI::App &root, Context &ctx) {
  struct Args {
    std::string board;
    std::vector<std::string> rules;
    bool none = false;
  };
  auto args = std::make_shared<Args>();
  CLI::App *noun = add_noun(root, "qos", "Priorities of FCP commands");
  CLI::App *shown =
      add_verb(*noun, "list", "List the rules", ctx, [args](Context &c) { list(c, args->board); });
  CLI::App *changed = add_verb(*noun, "set", "Replace the rules", ctx,
                               [args](Context &c) { set(c, args->board, args->rules, args->none); });
  CLI::App *on = add_verb(*noun, "enable", "Switch priorities on", ctx,
                          [args](Context &c) { turn(c, args->board, true); });
  CLI::App *off = add_verb(*noun, "disable", "Switch priorities off", ctx,
                           [args](Context &c) { turn(c, args->board, false); });
  CLI::App *fast = add_verb(*noun, "speed", "Logical link speed of one board, or of all", ctx,
                            [args](Context &c) { speed(c, args->board); });
  for (CLI::App *verb : {shown, changed, on, off})
    verb->add_option("BOARD", args->board, board_help)->required()->type_name("");
  fast->add_option("BOARD", args->board, board_help)->type_name("");
  changed->add_option("RULE", args->rules, "source=WWN,target=WWN,first=LUN,last=LUN,priority=N")
      ->type_name("");
  changed->add_flag("--none", args->none, "An empty table");
}

}  // namespace hcxadm
