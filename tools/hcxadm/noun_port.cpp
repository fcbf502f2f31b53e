// SPDX-License-Identifier: BSD-3-Clause
// "port": the remote ports that the boards see.
#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema schema{"hcxadm.port.list", 1, 0};

struct Row {
  Board board;
  Port port;
};

Value role_names(int roles) {
  static constexpr struct {
    int bit;
    const char *name;
  } names[] = {
      {FC_RPORT_ROLE_FCP_TARGET, "target"},
      {FC_RPORT_ROLE_FCP_INITIATOR, "initiator"},
      {FC_RPORT_ROLE_IP_PORT, "ip"},
      {FC_FPORT_ROLE_FABRIC, "fabric"},
      {FC_FPORT_ROLE_FABCTLR, "fabric control"},
      {FC_FPORT_ROLE_DIRSRVR, "directory"},
      {FC_FPORT_ROLE_TIMESRVR, "time"},
      {FC_FPORT_ROLE_MGMTSRVR, "management"},
      {FC_FPORT_ROLE_UNKNFABRIC, "unknown fabric"},
  };
  Value list = Value::array();
  for (const auto &row : names)
    if (roles & row.bit) list.push_back(row.name);
  return list;
}

const ColumnOf<Row> columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Row &r) { return Value(r.board.number); }},
    {"host", "HOST", Kind::text, In::rows,
     [](const Row &r) { return Value("host" + std::to_string(r.board.host)); }},
    {"port", "PORT", Kind::number, In::rows, [](const Row &r) { return Value(r.port.id); }},
    {"wwpn", "WWPN", Kind::text, In::rows, [](const Row &r) { return wwn_value(r.port.wwpn.wwn); }},
    {"wwnn", "WWNN", Kind::text, In::rows, [](const Row &r) { return wwn_value(r.port.wwnn.wwn); }},
    {"port_id", "PORT ID", Kind::hex24, In::rows, [](const Row &r) { return Value(r.port.port_id); }},
    {"roles", "ROLES", Kind::list, In::rows, [](const Row &r) { return role_names(r.port.roles); }},
    {"state", "STATE", Kind::text, In::rows,
     [](const Row &r) { return or_null(attribute(r.board.rport_dir(r.port), "port_state")); }},
    {"target", "TARGET", Kind::number, In::rows, [](const Row &r) { return or_null(r.port.target_id); }},
    {"luns", "LUNS", Kind::number, In::rows, [](const Row &r) { return Value(r.port.luns.size()); }},
};

void list(Context &ctx, const std::string &name) {
  ctx.document(schema);
  std::vector<Row> rows;
  for (const Board &board : ctx.boards.select(name))
    for (Port &port : ctx.boards.ports(board))
      rows.push_back({board, std::move(port)});
  ctx.show(make_table(schema, columns, rows));
  if (rows.empty()) ctx.note("no remote ports");
}

}  // namespace

void add_port(CLI::App &root, Context &ctx) {
  auto board = std::make_shared<std::string>();
  CLI::App *noun = add_noun(root, "port", "Remote ports");
  add_standard_verb(
      *noun, "list", "List the remote ports of one board, or of all", ctx,
      [board](CLI::App &app) { app.add_option("BOARD", *board, board_help)->type_name(""); },
      [board](Context &c) { list(c, *board); });
}

}  // namespace hcxadm
