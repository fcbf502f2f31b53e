// SPDX-License-Identifier: BSD-3-Clause
// "loopback": tests of the path from the host to the port and back. However a run ends, the port leaves
// loopback.
#include <cstring>
#include <random>

#include "interrupt.h"
#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema run_schema{"hcxadm.loopback.run", 1, 0};
constexpr Schema end_schema{"hcxadm.loopback.end", 1, 0};

constexpr uint32_t timeout_ms = 60000;
constexpr uint32_t largest = 1 << 20;

struct Args {
  std::string board;
  std::string type = "internal";
  uint32_t size = 1024;
  uint32_t count = 10;
  std::string pattern = "count";
};

struct Mismatch {
  uint32_t test;  // 1, 2, ...
  uint32_t offset;
  uint8_t sent, received;
};

struct Result {
  Board board;
  Args args;
  uint32_t passed = 0;
  uint32_t failed = 0;
  std::optional<Mismatch> mismatch;  // the first one
  bool ended = false;
};

const ColumnOf<Result> columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Result &r) { return Value(r.board.number); }},
    {"host", "HOST", Kind::text, In::rows,
     [](const Result &r) { return Value("host" + std::to_string(r.board.host)); }},
    {"type", "TYPE", Kind::text, In::rows, [](const Result &r) { return Value(r.args.type); }},
    {"size", "SIZE", Kind::size, In::rows, [](const Result &r) { return Value(r.args.size); }},
    {"count", "TESTS", Kind::number, In::rows, [](const Result &r) { return Value(r.args.count); }},
    {"passed", "PASSED", Kind::number, In::rows, [](const Result &r) { return Value(r.passed); }},
    {"failed", "FAILED", Kind::number, In::rows, [](const Result &r) { return Value(r.failed); }},
    {"mismatch_test", "WRONG IN TEST", Kind::number, In::record,
     [](const Result &r) { return r.mismatch ? Value(r.mismatch->test) : Value(); }},
    {"mismatch_offset", "WRONG AT BYTE", Kind::number, In::record,
     [](const Result &r) { return r.mismatch ? Value(r.mismatch->offset) : Value(); }},
    {"mismatch_sent", "SENT", Kind::hex, In::record,
     [](const Result &r) { return r.mismatch ? Value(r.mismatch->sent) : Value(); }},
    {"mismatch_received", "RECEIVED", Kind::hex, In::record,
     [](const Result &r) { return r.mismatch ? Value(r.mismatch->received) : Value(); }},
    {"ended", "LOOPBACK ENDED", Kind::flag, In::rows, [](const Result &r) { return Value(r.ended); }},
};

uint32_t end_loopback(const Board &board) {
  return HCX_EndLoopback(static_cast<uint32_t>(board.number));
}

// Whether the port says so itself, now that the library said that it has ended.
bool still_in_loopback(const Board &board) {
  return attribute(board.fc_host_dir(), "port_state") == Text("Loopback");
}

// Takes the port out of loopback when it goes out of scope without end() having been called.
class LoopbackEnd {
 public:
  explicit LoopbackEnd(const Board &board) : board_(board) {}
  LoopbackEnd(const LoopbackEnd &) = delete;
  LoopbackEnd &operator=(const LoopbackEnd &) = delete;
  ~LoopbackEnd() {
    if (!done_) end_loopback(board_);
  }
  uint32_t end() {
    done_ = true;
    return end_loopback(board_);
  }

 private:
  const Board &board_;
  bool done_ = false;
};

[[noreturn]] void bad_pattern(const std::string &pattern) {
  throw Failure({.status = kUsage,
                 .tried = "no pattern \"" + pattern + "\"",
                 .board = {},
                 .code = {},
                 .name = {},
                 .todo = "give \"count\", \"random\", or an even number of hexadecimal digits"});
}

std::vector<uint8_t> pattern_bytes(const std::string &pattern) {
  std::vector<uint8_t> bytes;
  if (pattern.empty() || pattern.size() % 2) bad_pattern(pattern);
  for (size_t i = 0; i < pattern.size(); i += 2) {
    const std::optional<uint64_t> byte = parse_number(pattern.substr(i, 2), 16);
    if (!byte || !isxdigit(static_cast<unsigned char>(pattern[i + 1]))) bad_pattern(pattern);
    bytes.push_back(static_cast<uint8_t>(*byte));
  }
  return bytes;
}

// Fills the buffers of one test after the other.
class Pattern {
 public:
  explicit Pattern(const std::string &pattern) : random_(pattern == "random"), count_(pattern == "count") {
    if (!random_ && !count_) bytes_ = pattern_bytes(pattern);
  }
  void fill(std::vector<uint8_t> &buffer, uint32_t test) {
    for (size_t i = 0; i < buffer.size(); ++i)
      buffer[i] = random_  ? static_cast<uint8_t>(engine_())
                  : count_ ? static_cast<uint8_t>(i + test)  // another start each time: stale data shows
                           : bytes_[i % bytes_.size()];
  }

 private:
  bool random_, count_;
  std::vector<uint8_t> bytes_;
  std::minstd_rand engine_{std::random_device{}()};
};

void compare(Result &result, uint32_t test, const std::vector<uint8_t> &sent,
             const std::vector<uint8_t> &received) {
  for (size_t i = 0; i < sent.size(); ++i) {
    if (sent[i] == received[i]) continue;
    ++result.failed;
    if (!result.mismatch) result.mismatch = Mismatch{test, static_cast<uint32_t>(i), sent[i], received[i]};
    return;
  }
  ++result.passed;
}

class Progress {
 public:
  Progress(Context &ctx, uint32_t count) : ctx_(ctx), count_(count) {}
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;
  ~Progress() {
    if (shown_) ctx_.err << '\n';
  }
  void at(uint32_t test) {
    if (!ctx_.terminal.err || test * 100ULL / count_ == percent_) return;
    percent_ = test * 100ULL / count_;
    shown_ = true;
    ctx_.err << "\rloopback test " << test << " of " << count_ << std::flush;
  }

 private:
  Context &ctx_;
  uint32_t count_;
  uint64_t percent_ = UINT64_MAX;
  bool shown_ = false;
};

// The tests between set-up and end. The status of the call that failed, 0 when all went out and came back.
uint32_t run_tests(Context &ctx, Result &result) {
  Pattern pattern(result.args.pattern);
  std::vector<uint8_t> out(result.args.size);
  std::vector<uint8_t> in(result.args.size);
  Progress progress(ctx, result.args.count);
  for (uint32_t done = 0; done < result.args.count && !InterruptGuard::caught(); ++done) {
    const uint32_t test = done + 1;
    pattern.fill(out, test);
    std::fill(in.begin(), in.end(), uint8_t{0});
    Loopback loopback{result.args.size, out.data(), in.data()};
    const uint32_t status = HCX_RunLoopbackTest(static_cast<uint32_t>(result.board.number), &loopback);
    if (status != 0) {
      ++result.failed;
      return status;
    }
    compare(result, test, out, in);
    progress.at(test);
  }
  return 0;
}

void report(Context &ctx, ExitStatus status, const Board &board, const std::string &tried,
            const std::string &name, const std::string &todo = {}, std::optional<int64_t> code = {}) {
  ctx.report(
      {.status = status, .tried = tried, .board = board.name(), .code = code, .name = name, .todo = todo});
}

void report_end(Context &ctx, const Board &board, uint32_t status) {
  report(ctx, kFailed, board, "ending the loopback",
         status ? status_name(Family::vendor, static_cast<int32_t>(status))
                : "the port says that it is still in it",
         "\"hcxadm loopback end\" tries again, \"hcxadm reset\" ends it in any case",
         status ? std::optional<int64_t>(static_cast<int32_t>(status)) : std::nullopt);
}

void require_fc(const Board &board) {
  if (board.protocol == Text("fc") && board.sli_mode.value_or(0) >= 1) return;
  throw Failure({.status = kNotSupported,
                 .tried = "testing by loopback",
                 .board = board.name(),
                 .code = {},
                 .name = "only FC ports whose firmware tells its SLI mode can do it",
                 .todo = {}});
}

void run(Context &ctx, const Args &args) {
  ctx.document(run_schema);
  Pattern check(args.pattern);  // a bad one is found before the link goes down
  const Board &board = ctx.boards.find(args.board);
  require_fc(board);
  if (!ctx.confirm("put " + board.name() + " into " + args.type +
                   " loopback: its link carries no I/O until the test has ended"))
    return;
  const bool external = args.type == "external";
  Result result{.board = board, .args = args, .mismatch = {}};
  InterruptGuard interrupt;
  uint32_t config = 0, test = 0, end = 0;
  {
    LoopbackEnd guard(board);
    config = HCX_ConfigLoopback(static_cast<uint32_t>(board.number), external ? 2 : 1, timeout_ms);
    if (config == 0) test = run_tests(ctx, result);
    end = guard.end();
  }
  result.ended = end == 0 && !still_in_loopback(board);
  if (config == 0) ctx.show(make_table(run_schema, columns, std::vector<Result>{result}), Layout::record);
  if (config != 0)
    ctx.report(call_failure(Family::vendor, static_cast<int32_t>(config), "setting up the loopback",
                            board.name(), external ? "external loopback needs a loopback plug" : "")
                   .problem());
  if (test != 0)
    ctx.report(call_failure(Family::vendor, static_cast<int32_t>(test),
                            "loopback test " + std::to_string(result.passed + result.failed), board.name())
                   .problem());
  if (result.mismatch)
    report(ctx, kFailed, board, "loopback",
           std::to_string(result.failed) + " of " + std::to_string(result.passed + result.failed) +
               " tests brought back other data than was sent");
  if (InterruptGuard::caught())
    report(ctx, kFailed, board, "loopback",
           std::string("interrupted by ") + strsignal(InterruptGuard::caught()));
  if (!result.ended) report_end(ctx, board, end);
  if (result.passed == args.count && result.ended)
    ctx.note(board.name() + ": all " + std::to_string(args.count) + " tests brought back what was sent");
}

const ColumnOf<Result> end_columns[] = {columns[0], columns[1], columns[std::size(columns) - 1]};

void end_only(Context &ctx, const std::string &name) {
  ctx.document(end_schema);
  const Board &board = ctx.boards.find(name);
  if (!ctx.confirm("take " + board.name() + " out of loopback, which resets the link of SLI-3 adapters"))
    return;
  Result result{.board = board, .args = {}, .mismatch = {}};
  const uint32_t status = end_loopback(board);
  result.ended = status == 0 && !still_in_loopback(board);
  ctx.show(make_table(end_schema, end_columns, std::vector<Result>{result}));
  if (!result.ended) report_end(ctx, board, status);
}

}  // namespace

void add_loopback(CLI::App &root, Context &ctx) {
  auto args = std::make_shared<Args>();
  CLI::App *noun = add_noun(root, "loopback", "Loopback tests");
  CLI::App *verb = add_verb(*noun, "run", "Send data through the port and compare what comes back", ctx,
                            [args](Context &c) { run(c, *args); });
  verb->add_option("BOARD", args->board, board_help)->required()->type_name("");
  verb->add_option("--type", args->type, "Where the data turns round, \"internal\" unless given")
      ->check(CLI::IsMember({"internal", "external"}).description(""))
      ->type_name("internal|external");
  verb->add_option("--size", args->size, "Bytes of one test, 1024 unless given")
      ->check(CLI::Range(1U, largest).description(""))
      ->type_name("BYTES");
  verb->add_option("--count", args->count, "Number of tests, 10 unless given")
      ->check(CLI::Range(1U, UINT32_MAX).description(""))
      ->type_name("N");
  verb->add_option("--pattern", args->pattern, "Data, \"count\" unless given")->type_name("count|random|HEX");
  CLI::App *end = add_verb(*noun, "end", "Take a port out of loopback", ctx,
                           [args](Context &c) { end_only(c, args->board); });
  end->add_option("BOARD", args->board, board_help)->required()->type_name("");
}

}  // namespace hcxadm
