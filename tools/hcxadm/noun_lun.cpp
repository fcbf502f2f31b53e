// SPDX-License-Identifier: BSD-3-Clause
// "lun": the LUNs behind the boards, with the device files that reach them.
#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema schema{"hcxadm.lun.list", 1, 0};

struct Row {
  int board;
  uint32_t host;
  uint32_t port;
  std::optional<uint32_t> target;
  HBA_WWN wwpn;
  Lun lun;
};

struct Arguments {
  std::string board;
  std::string target;
};

const char *kind_of(const Lun &lun) {
  if (lun.block_dev) return "disk";
  if (lun.tape_dev) return "tape";
  return nullptr;
}

// Host, channel, target and LUN, as lsscsi and the kernel log name a device.
std::string scsi_address(const Row &row) {
  return std::to_string(row.host) + ":0:" + std::to_string(row.target.value_or(0)) + ":" +
         std::to_string(row.lun.id);
}

const ColumnOf<Row> columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Row &r) { return Value(r.board); }},
    {"scsi_address", "H:C:T:L", Kind::text, In::rows, [](const Row &r) { return Value(scsi_address(r)); }},
    {"port", "PORT", Kind::number, In::record, [](const Row &r) { return Value(r.port); }},
    {"target", "TARGET", Kind::number, In::record, [](const Row &r) { return or_null(r.target); }},
    {"target_wwpn", "TARGET WWPN", Kind::text, In::rows, [](const Row &r) { return wwn_value(r.wwpn.wwn); }},
    {"lun", "LUN", Kind::number, In::rows, [](const Row &r) { return Value(r.lun.id); }},
    {"type", "TYPE", Kind::text, In::rows,
     [](const Row &r) {
       const char *kind = kind_of(r.lun);
       return kind ? Value(kind) : Value();
     }},
    {"device", "DEVICE", Kind::text, In::rows,
     [](const Row &r) { return or_null(r.lun.block_dev ? r.lun.block_dev : r.lun.tape_dev); }},
    {"generic_device", "GENERIC", Kind::text, In::rows,
     [](const Row &r) { return or_null(r.lun.generic_dev); }},
};

bool is_target(const Port &port, const std::optional<HBA_WWN> &wanted) {
  return !wanted || std::equal(port.wwpn.wwn, port.wwpn.wwn + 8, wanted->wwn);
}

void list(Context &ctx, const Arguments &args) {
  ctx.document(schema);
  std::optional<HBA_WWN> wanted = parse_wwn(args.target);
  if (!args.target.empty() && !wanted)
    throw Failure({.status = kUsage,
                   .tried = "\"" + args.target + "\" is no WWPN",
                   .board = {},
                   .code = {},
                   .name = {},
                   .todo = "give 16 hexadecimal digits, as \"hcxadm port\" shows them"});
  std::vector<Row> rows;
  bool found = false;
  for (const Board &board : ctx.boards.select(args.board))
    for (Port &port : ctx.boards.ports(board)) {
      if (!is_target(port, wanted)) continue;
      found = true;
      for (Lun &lun : port.luns)
        rows.push_back({board.number, board.host, port.id, port.target_id, port.wwpn, std::move(lun)});
    }
  if (wanted && !found)
    throw Failure({.status = kNoSuch,
                   .tried = "no remote port " + wwn_text(wanted->wwn),
                   .board = {},
                   .code = {},
                   .name = {},
                   .todo = "see \"hcxadm port\""});
  ctx.show(make_table(schema, columns, rows));
  if (rows.empty()) ctx.note("no LUNs");
}

}  // namespace

void add_lun(CLI::App &root, Context &ctx) {
  auto args = std::make_shared<Arguments>();
  CLI::App *noun = add_noun(root, "lun", "LUNs and their device files");
  add_standard_verb(
      *noun, "list", "List the LUNs of one board, or of all", ctx,
      [args](CLI::App &app) {
        app.add_option("BOARD", args->board, board_help)->type_name("");
        app.add_option("--target", args->target, "Only those of the target with this WWPN")
            ->type_name("WWPN");
      },
      [args](Context &c) { list(c, *args); });
}

}  // namespace hcxadm
