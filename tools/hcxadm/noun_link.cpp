// SPDX-License-Identifier: BSD-3-Clause
// "link": the state of the boards' links, with the map of a loop.
#include "link_words.h"
#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema schema{"hcxadm.link", 1, 0};

struct Row {
  Board board;
  LinkInfo info;
};

bool counted(const Board &board, const char *file) {
  const std::optional<uint64_t> value = number_attribute(board.fc_host_dir() + "statistics/", file, 16);
  return value && *value != UINT64_MAX;
}

// The counts are derived from others; they are absent when none of these is kept.
Value link_count(const Row &row, uint32_t count) {
  if (count == 0 && !counted(row.board, "lip_count") && !counted(row.board, "nos_count")) return {};
  return count;
}

Value loop_map(const Row &row) {
  if (row.info.a_alpaCnt == 0) return {};
  Value list = Value::array();
  for (size_t i = 1; i <= row.info.a_alpaCnt && i < sizeof row.info.a_alpaMap; ++i)
    list.push_back(row.info.a_alpaMap[i]);
  return list;
}

Value loop_text(const Row &row) {
  const Value list = loop_map(row);
  if (list.is_null()) return {};
  std::string text;
  for (const Value &address : list)
    text += (text.empty() ? "" : " ") + human(address, Kind::hex).substr(2);
  return text;
}

const ColumnOf<Row> columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Row &r) { return Value(r.board.number); }},
    {"host", "HOST", Kind::text, In::rows,
     [](const Row &r) { return Value("host" + std::to_string(r.board.host)); }},
    {"wwpn", "WWPN", Kind::text, In::rows, [](const Row &r) { return wwn_value(r.info.a_wwpName); }},
    {"state", "STATE", Kind::text, In::rows,
     [](const Row &r) { return link_state_name(r.info.a_linkState); }},
    {"topology", "TOPOLOGY", Kind::text, In::rows,
     [](const Row &r) { return topology_name(r.info.a_topology); }},
    {"port_id", "PORT ID", Kind::hex24, In::rows,
     [](const Row &r) { return r.info.a_DID ? Value(r.info.a_DID) : Value(); }},
    {"speed", "SPEED", Kind::text, In::rows,
     [](const Row &r) { return or_null(attribute(r.board.fc_host_dir(), "speed")); }},
    {"driver_text", "DRIVER SAYS", Kind::text, In::rows,
     [](const Row &r) { return or_null(attribute(r.board.scsi_host_dir(), "link_state")); }},
    {"link_ups", "UPS", Kind::number, In::rows, [](const Row &r) { return link_count(r, r.info.a_linkUp); }},
    {"link_downs", "DOWNS", Kind::number, In::rows,
     [](const Row &r) { return link_count(r, r.info.a_linkDown); }},
    {"loop_addresses", "LOOP ADDRESSES", Kind::nested, In::record, loop_map},
};

void link(Context &ctx, const std::string &name) {
  ctx.document(schema);
  std::vector<Row> rows;
  for (const Board &board : ctx.boards.select(name)) {
    Row row{board, {}};
    const uint32_t result = HCX_GetLinkInfo(static_cast<uint32_t>(board.number), &row.info);
    if (result == 0)
      rows.push_back(std::move(row));
    else
      ctx.report(call_failure(Family::hba, result, "reading the link's state", board.name()).problem());
  }
  ctx.show(make_table(schema, columns, rows));
  if (ctx.json()) return;
  for (const Row &row : rows)
    if (const Value text = loop_text(row); !text.is_null())
      ctx.out << row.board.name() << ": loop of " << unsigned{row.info.a_alpaCnt} << ": "
              << text.get<std::string>() << '\n';
}

}  // namespace

Value topology_name(uint8_t topology) {
  static constexpr const char *names[] = {nullptr,  "private loop",   "public loop",
                                          "fabric", "point-to-point", "managed remotely"};
  return topology > 0 && topology < std::size(names) ? Value(names[topology]) : Value();
}

Value link_state_name(uint8_t state) {
  static constexpr const char *names[] = {nullptr,     "down",        "up",    "logging in",
                                          "discovery", "rediscovery", "ready", "disabled by the user"};
  return state > 0 && state < std::size(names) ? Value(names[state]) : Value();
}

void add_link(CLI::App &root, Context &ctx) {
  auto board = std::make_shared<std::string>();
  CLI::App *noun = add_noun(root, "link", "Links of the boards");
  add_standard_verb(
      *noun, "show", "State of the link of one board, or of all", ctx,
      [board](CLI::App &app) { app.add_option("BOARD", *board, board_help)->type_name(""); },
      [board](Context &c) { link(c, *board); });
  add_link_persist(*noun, ctx);
}

}  // namespace hcxadm
