// SPDX-License-Identifier: BSD-3-Clause
// "port": the remote ports that the boards see, and the ports that are down on either side.
#include "event_stream.h"
#include "nouns.h"
#include "port_record.h"

namespace hcxadm {
namespace {

constexpr Schema schema{"hcxadm.port.list", 1, 0};
constexpr Schema down_schema{"hcxadm.port.down", 1, 0};

struct Arguments {
  std::string board;
  bool down = false;
};

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

// ---- What is down ----

constexpr const char *port_kinds[] = {"adapter", "remote"};

struct Down {
  Board board;
  const char *kind;
  HBA_WWN wwpn;
  uint32_t port_id;
  Text state;
  PortRecord::Times times;
};

const ColumnOf<Down> down_columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Down &d) { return Value(d.board.number); }},
    {"host", "HOST", Kind::text, In::rows,
     [](const Down &d) { return Value("host" + std::to_string(d.board.host)); }},
    {"kind", "PORT", Kind::text, In::rows, [](const Down &d) { return Value(d.kind); }},
    {"wwpn", "WWPN", Kind::text, In::rows, [](const Down &d) { return wwn_value(d.wwpn.wwn); }},
    {"port_id", "PORT ID", Kind::hex24, In::rows, [](const Down &d) { return Value(d.port_id); }},
    {"state", "STATE", Kind::text, In::rows, [](const Down &d) { return or_null(d.state); }},
    {"down_since", "DOWN SINCE", Kind::text, In::rows,
     [](const Down &d) { return or_null(d.times.down_since); }},
    {"last_up", "LAST SEEN UP", Kind::text, In::rows, [](const Down &d) { return or_null(d.times.last_up); }},
};

void list_down(Context &ctx, const std::string &name) {
  ctx.document(down_schema);
  PortRecord record(run_folder());
  const std::string now = time_now();
  std::vector<Down> rows;
  for (const Board &board : ctx.boards.select(name)) {
    const auto see = [&](const char *kind, const HBA_WWN &wwpn, uint32_t port_id, const Text &state) {
      const std::string lasting =
          wwn_text(board.wwpn.wwn) + (kind == port_kinds[0] ? "" : " " + wwn_text(wwpn.wwn));
      const PortRecord::Times &times = record.see(lasting, state == "Online", now);
      if (times.down_since) rows.push_back({board, kind, wwpn, port_id, state, times});
    };
    see(port_kinds[0], board.wwpn, board.port_id, attribute(board.fc_host_dir(), "port_state"));
    for (const std::vector<Port> &ports : {ctx.boards.ports(board), ctx.boards.lost_ports(board)})
      for (const Port &port : ports)
        see(port_kinds[1], port.wwpn, port.port_id, attribute(board.rport_dir(port), "port_state"));
  }
  record.save();  // who may not write still gets what is known
  ctx.show(make_table(down_schema, down_columns, rows));
  if (rows.empty()) ctx.note("no port is down");
}

}  // namespace

void add_port(CLI::App &root, Context &ctx) {
  auto args = std::make_shared<Arguments>();
  CLI::App *noun = add_noun(root, "port", "Remote ports, and what is down");
  add_standard_verb(
      *noun, "list", "List the remote ports of one board, or of all", ctx,
      [args](CLI::App &app) {
        app.add_option("BOARD", args->board, board_help)->type_name("");
        app.add_flag("--down", args->down, "Only what is down, adapter ports too, and since when");
      },
      [args](Context &c) { args->down ? list_down(c, args->board) : list(c, args->board); });
}

}  // namespace hcxadm
