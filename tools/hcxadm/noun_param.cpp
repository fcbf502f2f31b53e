// SPDX-License-Identifier: BSD-3-Clause
// "param": the driver's parameters, by name. What the library does silently, clamping a value or leaving a
// fixed parameter alone, is said here.
#include <algorithm>

#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema list_schema{"hcxadm.param.list", 1, 0};
constexpr Schema get_schema{"hcxadm.param.get", 1, 0};
constexpr Schema set_schema{"hcxadm.param.set", 1, 0};

struct Row {
  Board board;
  uint32_t index;  // in the library's list
  CfgParam param;
};

bool readable(const CfgParam &param) {
  return (param.a_flag & CFG_APPLICABLE) && !(param.a_flag & CFG_IGNORE);
}
bool settable(const CfgParam &param) {
  return readable(param) && (param.a_changestate == CFG_DYNAMIC || param.a_changestate == CFG_LINKRESET);
}

const char *effect(const CfgParam &param) {
  switch (param.a_changestate) {
    case CFG_DYNAMIC:
      return "at once";
    case CFG_LINKRESET:
      return "link reset";
    case CFG_RESTART:
      return "driver load";
    default:
      return "reboot";
  }
}

const ColumnOf<Row> columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Row &r) { return Value(r.board.number); }},
    {"name", "NAME", Kind::text, In::rows, [](const Row &r) { return Value(r.param.a_string); }},
    {"value", "VALUE", Kind::number, In::rows,
     [](const Row &r) { return readable(r.param) ? Value(r.param.a_current) : Value(); }},
    {"default", "DEFAULT", Kind::number, In::rows, [](const Row &r) { return Value(r.param.a_default); }},
    {"low", "LOWEST", Kind::number, In::rows, [](const Row &r) { return Value(r.param.a_low); }},
    {"high", "HIGHEST", Kind::number, In::rows, [](const Row &r) { return Value(r.param.a_hi); }},
    {"settable", "SETTABLE", Kind::flag, In::rows, [](const Row &r) { return Value(settable(r.param)); }},
    {"effect", "EFFECT", Kind::text, In::rows, [](const Row &r) { return Value(effect(r.param)); }},
    {"help", "WHAT", Kind::text, In::rows, [](const Row &r) { return Value(r.param.a_help); }},
};

std::vector<Row> read_rows(const Board &board) {
  CfgParam params[64];
  const uint32_t count = GetCfgParam(static_cast<uint32_t>(board.number), params);
  if (count == 0)
    throw Failure({.status = kFailed,
                   .tried = "reading the driver parameters",
                   .board = board.name(),
                   .code = {},
                   .name = "the board is gone or has no PCI device",
                   .todo = {}});
  std::vector<Row> rows;
  for (uint32_t i = 0; i < count; ++i)
    rows.push_back({board, i, params[i]});
  return rows;
}

// Names with dashes, underscores, and the driver's prefix are the same.
std::string plain_name(std::string name) {
  if (name.starts_with("vosk_") || name.starts_with("vosk-")) name.erase(0, 5);
  std::replace(name.begin(), name.end(), '_', '-');
  return name;
}

Row find_row(const Board &board, const std::string &name) {
  for (const Row &row : read_rows(board))
    if (plain_name(row.param.a_string) == plain_name(name)) return row;
  throw Failure({.status = kNoSuch,
                 .tried = "no driver parameter \"" + name + "\"",
                 .board = {},
                 .code = {},
                 .name = {},
                 .todo = "\"hcxadm param list\" shows them"});
}

std::string range_text(const CfgParam &param) {
  return std::to_string(param.a_low) + " to " + std::to_string(param.a_hi);
}

void list(Context &ctx, const std::string &name, bool all) {
  ctx.document(list_schema);
  std::vector<Row> rows;
  for (const Board &board : ctx.boards.select(name))
    for (const Row &row : read_rows(board))
      if (all || (row.param.a_flag & CFG_EXPORT)) rows.push_back(row);
  ctx.show(make_table(list_schema, columns, rows));
}

void get(Context &ctx, const std::string &board, const std::string &name) {
  ctx.document(get_schema);
  ctx.show(make_table(get_schema, columns, std::vector<Row>{find_row(ctx.boards.find(board), name)}),
           Layout::record);
}

uint32_t parse_value(const std::string &text) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  const std::optional<uint64_t> value = hex ? parse_number(text.substr(2), 16) : parse_number(text);
  if (value && *value <= UINT32_MAX) return static_cast<uint32_t>(*value);
  throw Failure({.status = kUsage,
                 .tried = "\"" + text + "\" is not a value",
                 .board = {},
                 .code = {},
                 .name = {},
                 .todo = "give a decimal number, or 0x and a hexadecimal one"});
}

// Why a row cannot be set, told before the library leaves it alone or refuses.
void require_settable(const Row &row) {
  const std::string tried = std::string("setting ") + row.param.a_string;
  std::string driver_name = row.param.a_string;
  std::replace(driver_name.begin(), driver_name.end(), '-', '_');
  if (row.param.a_flag & CFG_IGNORE)
    throw Failure({.status = kNotSupported,
                   .tried = tried,
                   .board = row.board.name(),
                   .code = {},
                   .name = "fixed on this adapter",
                   .todo = {}});
  if (!(row.param.a_flag & CFG_APPLICABLE))
    throw Failure({.status = kNotSupported,
                   .tried = tried,
                   .board = row.board.name(),
                   .code = {},
                   .name = "this adapter does not have it, or it cannot be read",
                   .todo = {}});
  if (!settable(row.param))
    throw Failure({.status = kRefused,
                   .tried = tried,
                   .board = row.board.name(),
                   .code = {},
                   .name = "cannot be changed while the driver runs",
                   .todo = "set it where the driver is loaded: options vosk vosk_" + driver_name + "=VALUE"});
}

void set(Context &ctx, const std::string &board_name, const std::string &name, const std::string &text) {
  ctx.document(set_schema);
  const uint32_t wanted = parse_value(text);
  const Board &board = ctx.boards.find(board_name);
  const Row row = find_row(board, name);
  require_settable(row);
  const uint32_t value = std::clamp(wanted, row.param.a_low, row.param.a_hi);
  const std::string what =
      std::string(row.param.a_string) + " of " + board.name() + " to " + std::to_string(value);
  if (value != wanted)
    ctx.note(std::string(row.param.a_string) + ": " + std::to_string(wanted) + " is not within " +
             range_text(row.param) + ", clamped to " + std::to_string(value));
  if (row.param.a_changestate == CFG_LINKRESET || ctx.dry_run) {
    const bool link = row.param.a_changestate == CFG_LINKRESET;
    if (!ctx.confirm("set " + what +
                     (link ? ", which resets the link on drivers that cannot wait for the next reset" : "")))
      return;
  }
  const uint32_t result = SetCfgParam(static_cast<uint32_t>(board.number), row.index, value);
  if (result != 0)
    throw call_failure(Family::vendor, result, std::string("setting ") + row.param.a_string, board.name(),
                       "needs root; the driver may not take this value");
  const Row after = find_row(board, name);
  ctx.show(make_table(set_schema, columns, std::vector<Row>{after}), Layout::record);
  if (!readable(after.param) || after.param.a_current != value)
    throw Failure({.status = kFailed,
                   .tried = "setting " + what,
                   .board = {},
                   .code = {},
                   .name = "the driver took the request but shows another value",
                   .todo = "see the kernel log"});
}

}  // namespace

void add_param(CLI::App &root, Context &ctx) {
  struct Args {
    std::string board, name, value;
    bool all = false;
  };
  auto args = std::make_shared<Args>();
  CLI::App *noun = add_noun(root, "param", "Driver parameters");
  add_standard_verb(
      *noun, "list", "List the parameters of one board, or of all", ctx,
      [args](CLI::App &app) {
        app.add_option("BOARD", args->board, board_help)->type_name("");
        app.add_flag("--all", args->all, "Also those that this adapter fixes");
      },
      [args](Context &c) { list(c, args->board, args->all); });
  CLI::App *one = add_verb(*noun, "get", "Show one parameter", ctx,
                           [args](Context &c) { get(c, args->board, args->name); });
  CLI::App *change = add_verb(*noun, "set", "Change a parameter", ctx,
                              [args](Context &c) { set(c, args->board, args->name, args->value); });
  for (CLI::App *verb : {one, change}) {
    verb->add_option("BOARD", args->board, board_help)->required()->type_name("");
    verb->add_option("NAME", args->name, "Name, with dashes or underscores")->required()->type_name("");
  }
  change->add_option("VALUE", args->value, "Decimal, or hexadecimal with 0x")->required()->type_name("");
}

}  // namespace hcxadm
