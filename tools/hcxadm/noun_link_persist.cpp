// SPDX-License-Identifier: BSD-3-Clause
// "link persist": whether a Fibre Channel port stays down across resets and reboots.
#include "change.h"
#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema schema{"hcxadm.link.persist", 1, 0};
constexpr uint32_t driver_record = 0xa2;
constexpr uint32_t unusable = 1, not_supported = 2, refused = 3;

struct Row {
  Board board;
  Value down;
};

const ColumnOf<Row> columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Row &r) { return Value(r.board.number); }},
    {"host", "HOST", Kind::text, In::rows, [](const Row &r) { return Value(host_name(r.board)); }},
    {"persistent_link_down", "PERSISTENT LINK DOWN", Kind::flag, In::rows,
     [](const Row &r) { return r.down; }},
};

// What stands in region 23, as far as a write is concerned.
enum class Contents { kept, none, foreign };
Contents contents(const Board &board) {
  constexpr uint32_t bad_signature = 3;
  std::vector<uint8_t> image(1024);
  int32_t offset = 0;
  uint16_t status = 0;
  const uint32_t result = get_r23_TLV(number_of(board), driver_record, image.data(), &offset, &status);
  if (status == 0xfffd || status == 0xfff7) return Contents::none;
  return result == bad_signature ? Contents::foreign : Contents::kept;
}

Failure failure(uint32_t result, const std::string &tried, const Board &board) {
  if (result == refused) {
    const bool foreign = contents(board) == Contents::foreign;
    return Failure({.status = foreign ? kFailed : kNoSuch,
                    .tried = tried,
                    .board = board.name(),
                    .code = result,
                    .name = foreign ? "region 23 has another signature" : "its PCI device is not known",
                    .todo = foreign ? "\"hcxadm region dump\" shows its bytes" : ""});
  }
  if (static_cast<int32_t>(result) < 0)
    return Failure({.status = kFailed,
                    .tried = tried,
                    .board = board.name(),
                    .code = static_cast<int32_t>(result),
                    .name = "the records of region 23 run out of it",
                    .todo = "\"hcxadm region show\" shows them"});
  return call_failure(Family::vendor, result, tried, board.name(),
                      result == not_supported ? "only Fibre Channel ports have this"
                                              : "\"hcxadm log set error\" brings the reason into syslog");
}

void show(Context &ctx, const std::string &name) {
  ctx.document(schema);
  std::vector<Row> rows;
  for (const Board &board : ctx.boards.select(name)) {
    uint16_t down = 0;
    const uint32_t result = HCX_GetPersistLinkDown(number_of(board), &down);
    if (result == 0)
      rows.push_back({board, down != 0});
    else if (result == not_supported && name.empty())
      rows.push_back({board, {}});
    else
      ctx.report(failure(result, "reading the persistent link state", board).problem());
  }
  ctx.show(make_table(schema, columns, rows));
}

// What a write does to the region besides; empty: nothing that would be missed.
std::string price(const Board &board) {
  switch (contents(board)) {
    case Contents::none:
      return "; region 23 is not initialised and will be";
    case Contents::foreign:
      return "; region 23 has another signature, WHAT IT HOLDS WILL BE LOST";
    default:
      return "";
  }
}

Lines lines(const Value &down) {
  return {std::string("persistent link down: ") + (down.is_null()     ? "not readable"
                                                   : down.get<bool>() ? "yes"
                                                                      : "no")};
}

void set(Context &ctx, const std::string &name, bool down) {
  ctx.document(schema);
  const Board &board = ctx.boards.find(name);
  const std::string tried = down ? "holding the link down" : "letting the link come up";
  uint16_t before = 0;
  const uint32_t readable = HCX_GetPersistLinkDown(number_of(board), &before);
  // A setting that cannot be read can be written all the same: a damaged one is mended.
  const bool writable =
      readable == 0 || readable == unusable || (readable == refused && contents(board) == Contents::foreign);
  if (!writable) throw failure(readable, tried, board);
  if (!confirm_change(ctx, lines(readable == 0 ? Value(before != 0) : Value()), lines(down),
                      (down ? "hold the link of " + board.name() + " down from its next reset on"
                            : "let the link of " + board.name() + " come up after its next reset") +
                          price(board)))
    return;
  const uint32_t result = HCX_SetPersistLinkDown(number_of(board), down ? 1 : 0);
  if (result != 0) throw failure(result, tried, board);
  uint16_t after = 0;
  const uint32_t check = HCX_GetPersistLinkDown(number_of(board), &after);
  if (check != 0) throw failure(check, tried, board);
  ctx.show(make_table(schema, columns, std::vector<Row>{{board, after != 0}}));
  if ((after != 0) != down)
    throw Failure({.status = kFailed,
                   .tried = tried,
                   .board = board.name(),
                   .code = {},
                   .name = "the setting does not read back as it was written",
                   .todo = "\"hcxadm region show\" shows what is there"});
}

}  // namespace

void add_link_persist(CLI::App &link, Context &ctx) {
  auto board = std::make_shared<std::string>();
  CLI::App *noun = add_noun(link, "persist", "Whether a link stays down across resets");
  CLI::App *shown = add_verb(*noun, "show", "Show the setting of one board, or of all", ctx,
                             [board](Context &c) { show(c, *board); });
  shown->add_option("BOARD", *board, board_help)->type_name("");
  CLI::App *down =
      add_verb(*noun, "on", "Hold the link down", ctx, [board](Context &c) { set(c, *board, true); });
  CLI::App *up =
      add_verb(*noun, "off", "Let the link come up", ctx, [board](Context &c) { set(c, *board, false); });
  for (CLI::App *verb : {down, up})
    verb->add_option("BOARD", *board, board_help)->required()->type_name("");
}

}  // namespace hcxadm
