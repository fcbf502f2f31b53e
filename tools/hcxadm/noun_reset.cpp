// SPDX-License-Identifier: BSD-3-Clause
// "reset" and "mode": adapter reset and board mode. The library reports some refusals of the driver as
// success, so both read the mode back and say what they found.
#include <chrono>
#include <thread>

#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema mode_schema{"hcxadm.mode", 1, 0};
constexpr Schema reset_schema{"hcxadm.reset", 1, 0};

struct Word {
  const char *word;
  uint32_t number;
};

constexpr Word modes[] = {{"online", DDI_ONDI},
                          {"offline", DDI_OFFDI},
                          {"warm", DDI_WARMDI},
                          {"dump", DDI_FWDUMPDI},
                          {"error", DDI_DIAGDI}};
constexpr Word kinds[] = {{"selective", 1}, {"coordinated", 2}, {"firmware", 3}};

template <size_t N>
std::vector<std::string> words_of(const Word (&words)[N]) {
  std::vector<std::string> list;
  for (const Word &word : words)
    list.emplace_back(word.word);
  return list;
}

template <size_t N>
uint32_t number_of(const Word (&words)[N], const std::string &text) {
  for (const Word &word : words)
    if (text == word.word) return word.number;
  return 0;
}

template <size_t N>
const char *word_of(const Word (&words)[N], uint32_t number) {
  for (const Word &word : words)
    if (word.number == number) return word.word;
  return nullptr;
}

struct Row {
  Board board;
  uint32_t mode;
};

const ColumnOf<Row> columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Row &r) { return Value(r.board.number); }},
    {"host", "HOST", Kind::text, In::rows,
     [](const Row &r) { return Value("host" + std::to_string(r.board.host)); }},
    {"mode", "MODE", Kind::text, In::rows,
     [](const Row &r) {
       const char *word = word_of(modes, r.mode);
       return word ? Value(word) : Value();
     }},
    {"link_state", "LINK", Kind::text, In::rows,
     [](const Row &r) { return or_null(attribute(r.board.scsi_host_dir(), "link_state")); }},
};

uint32_t read_mode(const Board &board) {
  return SetBrdEnv(static_cast<uint32_t>(board.number), DDI_SHOW);
}

std::string mode_text(uint32_t mode) {
  const char *word = word_of(modes, mode);
  return word ? word : "in no known mode";
}

// Waits until the board is on-line again.
uint32_t await_online(Context &ctx, const Board &board, unsigned seconds) {
  uint32_t mode = read_mode(board);
  for (unsigned i = 0; i < seconds && mode != DDI_ONDI; ++i) {
    if (ctx.terminal.err) ctx.err << "\rwaiting for " << board.name() << ", " << i + 1 << " s " << std::flush;
    std::this_thread::sleep_for(std::chrono::seconds(1));
    mode = read_mode(board);
    if (ctx.terminal.err && (mode == DDI_ONDI || i + 1 == seconds)) ctx.err << '\n';
  }
  return mode;
}

// The library reports a reset as requested even where the attribute cannot be opened. An empty text opens it and
// writes nothing. A firmware reset has another attribute, whose failures the library does tell.
void require_reset(const Board &board, uint32_t kind, const std::string &what) {
  if (kind == kinds[2].number) return;
  const int rc = hcx_sysfs_write_str(board.scsi_host_dir().c_str(), "issue_reset", "");
  if (rc != 0)
    throw Failure({.status = kRefused,
                   .tried = "requesting " + what,
                   .board = board.name(),
                   .code = {},
                   .name = "the driver does not let it be requested",
                   .todo = "needs root and a driver that has \"issue_reset\""});
}

void reset(Context &ctx, const std::string &name, uint32_t kind, unsigned seconds) {
  ctx.document(reset_schema);
  const Board &board = ctx.boards.find(name);
  const std::string what = std::string("a ") + word_of(kinds, kind) + " reset";
  if (!ctx.confirm("request " + what + " of " + board.name() +
                   (kind == 1 ? "" : ", which may take all ports of its card along") +
                   ": its links go down and running I/O is interrupted"))
    return;
  require_reset(board, kind, what);
  const uint32_t result = HCX_ResetAdapter(static_cast<uint32_t>(board.number), kind);
  if (result != 0)
    throw call_failure(
        Family::vendor, result, "requesting " + what, board.name(),
        "needs root and a driver that has adapter resets switched on; \"hcxadm log set error\" "
        "brings the reason into syslog");
  const uint32_t mode = await_online(ctx, board, seconds);
  ctx.show(make_table(reset_schema, columns, std::vector<Row>{{board, mode}}));
  if (mode != DDI_ONDI)
    throw Failure({.status = kFailed,
                   .tried = "after requesting " + what,
                   .board = board.name(),
                   .code = {},
                   .name = "the board is " + mode_text(mode),
                   .todo = "the driver may have refused the reset without saying so; see the kernel log"});
  ctx.note(
      board.name() + ": " + what +
      " was requested and the board is online; a driver that refuses does not always say so, the kernel log "
      "tells whether it was done");
}

void show_mode(Context &ctx, const std::string &name) {
  ctx.document(mode_schema);
  std::vector<Row> rows;
  for (const Board &board : ctx.boards.select(name))
    rows.push_back({board, read_mode(board)});
  ctx.show(make_table(mode_schema, columns, rows));
  for (const Row &row : rows)
    if (row.mode == 0)
      ctx.report({.status = kFailed,
                  .tried = "reading the board mode",
                  .board = row.board.name(),
                  .code = {},
                  .name = "the driver shows none that is known",
                  .todo = {}});
}

void set_mode(Context &ctx, const std::string &name, uint32_t mode) {
  ctx.document(mode_schema);
  const Board &board = ctx.boards.find(name);
  const std::string what = std::string("switching to \"") + word_of(modes, mode) + "\"";
  if (!ctx.confirm(std::string("switch ") + board.name() + " to \"" + word_of(modes, mode) + "\"" +
                   (mode == DDI_ONDI ? "" : ": its link goes down and running I/O is interrupted")))
    return;
  const uint32_t result = SetBrdEnv(static_cast<uint32_t>(board.number), mode);
  const uint32_t now = read_mode(board);
  ctx.show(make_table(mode_schema, columns, std::vector<Row>{{board, now}}));
  if (result != mode)
    throw Failure({.status = kRefused,
                   .tried = what,
                   .board = board.name(),
                   .code = {},
                   .name = "the driver refused, the board is " + mode_text(now),
                   .todo = "needs root; not every adapter knows every mode"});
  if (mode == DDI_FWDUMPDI)
    ctx.note(board.name() + ": a firmware dump was requested, the board is " + mode_text(now));
  else if (now != mode)
    throw Failure({.status = kFailed,
                   .tried = what,
                   .board = board.name(),
                   .code = {},
                   .name = "the driver took the request, but the board is " + mode_text(now),
                   .todo = "see the kernel log"});
}

}  // namespace

void add_reset(CLI::App &root, Context &ctx) {
  struct Args {
    std::string board;
    std::string kind = "selective";
    unsigned seconds = 30;
  };
  auto args = std::make_shared<Args>();
  CLI::App *verb = add_verb(root, "reset", "Reset an adapter", ctx, [args](Context &c) {
    reset(c, args->board, number_of(kinds, args->kind), args->seconds);
  });
  verb->add_option("BOARD", args->board, board_help)->required()->type_name("");
  verb->add_option("--kind", args->kind, "Kind of reset, \"selective\" unless given")
      ->check(CLI::IsMember(words_of(kinds)).description(""))
      ->type_name("selective|coordinated|firmware");
  verb->add_option("--wait", args->seconds, "How long to wait for the board, 30 unless given")
      ->check(CLI::Range(0U, 3600U).description(""))
      ->type_name("SECONDS");
}

void add_mode(CLI::App &root, Context &ctx) {
  struct Args {
    std::string board;
    std::string mode;
  };
  auto args = std::make_shared<Args>();
  CLI::App *verb = add_verb(root, "mode", "Show or set the mode of a board", ctx, [args](Context &c) {
    if (args->mode.empty())
      show_mode(c, args->board);
    else
      set_mode(c, args->board, number_of(modes, args->mode));
  });
  verb->add_option("BOARD", args->board, board_help)->type_name("");
  verb->add_option("MODE", args->mode, "online, offline, warm, dump or error; shown when left out")
      ->check(CLI::IsMember(words_of(modes)).description(""))
      ->type_name("");
}

}  // namespace hcxadm
