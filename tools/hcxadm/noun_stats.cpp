// SPDX-License-Identifier: BSD-3-Clause
// "stats": the counters of the boards, or how fast they grow.
#include <sstream>

#include "nouns.h"
#include "statistics.h"

namespace hcxadm {
namespace {

constexpr Schema stats_schema{"hcxadm.stats", 1, 0};
constexpr Schema watch_schema{"hcxadm.stats.watch", 1, 0};
constexpr Schema moved_schema{"hcxadm.stats.moved", 1, 0};

struct Arguments {
  std::string board;
  double watch = 0;
  double moved = 0;
  unsigned count = 0;
  bool reset = false;
};

Table counter_table(const std::vector<std::pair<Board, Sample>> &samples) {
  Table table{
      stats_schema, {{"board", "BOARD", Kind::number, In::rows}, {"host", "HOST", Kind::text, In::rows}}, {}};
  for (const Counter &counter : counters)
    table.columns.push_back({counter.key, counter.title, Kind::number, In::rows});
  for (const auto &[board, sample] : samples) {
    std::vector<Value> &row = table.rows.emplace_back();
    row.emplace_back(board.number);
    row.emplace_back("host" + std::to_string(board.host));
    for (const std::optional<uint64_t> &value : sample)
      row.push_back(or_null(value));
  }
  return table;
}

Value rounded(const std::optional<double> &rate, double factor = 1) {
  return rate ? Value(rounded_rate(*rate * factor)) : Value();
}

Table watch_table() {
  Table table{watch_schema,
              {{"seconds", "SECONDS", Kind::number, In::rows},
               {"board", "BOARD", Kind::number, In::rows},
               {"host", "HOST", Kind::text, In::rows},
               {"tx_frames_per_second", "TX(frames/s)", Kind::number, In::rows},
               {"tx_bytes_per_second", "TX(bytes/s)", Kind::number, In::rows},
               {"rx_frames_per_second", "RX(frames/s)", Kind::number, In::rows},
               {"rx_bytes_per_second", "RX(bytes/s)", Kind::number, In::rows},
               {"errors_per_second", "ERRORS(1/s)", Kind::number, In::rows}},
              {}};
  static constexpr const char *keys[] = {"lips_per_second",
                                         "nos_per_second",
                                         "error_frames_per_second",
                                         "dumped_frames_per_second",
                                         "link_failures_per_second",
                                         "losses_of_sync_per_second",
                                         "losses_of_signal_per_second",
                                         "protocol_errors_per_second",
                                         "invalid_tx_words_per_second",
                                         "invalid_crcs_per_second"};
  for (const char *key : keys)
    table.columns.push_back({key, key, Kind::number, In::record});
  return table;
}

std::vector<Value> watch_row(const Board &board, double at, const Rates &rates) {
  constexpr double word = 4;
  std::vector<Value> row = {Value(rounded_rate(at)),
                            Value(board.number),
                            Value("host" + std::to_string(board.host)),
                            rounded(rates[tx_frames_counter]),
                            rounded(rates[tx_words_counter], word),
                            rounded(rates[rx_frames_counter]),
                            rounded(rates[rx_words_counter], word),
                            rounded(error_rate(rates))};
  for (size_t i = rx_words_counter + 1; i < counter_count; ++i)
    row.push_back(rounded(rates[i]));
  return row;
}

// A board that cannot be read is reported and left out; the others go on.
std::optional<Sample> try_sample(Context &ctx, const Board &board) {
  try {
    return read_statistics(board);
  } catch (const Failure &failure) {
    ctx.report(failure.problem());
    return {};
  }
}

bool try_reset(Context &ctx, const Board &board) {
  try {
    reset_statistics(board);
    return true;
  } catch (const Failure &failure) {
    ctx.report(failure.problem());
    return false;
  }
}

// On a terminal each block has its header, as a page may have gone by; a program gets one header at the start.
void show_growth(Context &ctx, const Table &table, bool first) {
  if (first || ctx.json() || ctx.terminal.out || ctx.format == Format::table) return ctx.show(table);
  std::ostringstream text;
  write_rows(text, table, {});
  ctx.out << text.str().substr(text.str().find('\n') + 1);
}

struct Watched {
  Board board;
  Sample sample;
  double at;  // when it was taken
};

void watch(Context &ctx, const Arguments &args, const std::vector<Board> &boards) {
  if (ctx.json() && args.count == 0)
    throw Failure({.status = kUsage,
                   .tried = "one JSON document cannot go on for ever",
                   .board = {},
                   .code = {},
                   .name = {},
                   .todo = "give --count as well"});
  const double start = ticker.now();
  std::vector<Watched> watched;
  for (const Board &board : boards)
    if (const std::optional<Sample> sample = try_sample(ctx, board))
      watched.push_back({board, *sample, ticker.now()});
  double next = start;
  for (unsigned n = 0; !watched.empty() && (args.count == 0 || n < args.count); ++n) {
    next += args.watch;
    ticker.sleep(std::max(0.0, next - ticker.now()));
    Table table = watch_table();
    for (auto it = watched.begin(); it != watched.end();) {
      const std::optional<Sample> sample = try_sample(ctx, it->board);
      if (!sample) {
        it = watched.erase(it);
        continue;
      }
      const double now = ticker.now();
      table.rows.push_back(
          watch_row(it->board, now - start, rates_between(it->sample, *sample, now - it->at)));
      it->sample = *sample;
      (it++)->at = now;
    }
    show_growth(ctx, table, n == 0);
    ctx.out.flush();
    if (!ctx.out) return;
  }
}

struct Moved {
  Board board;
  const Counter *counter;
  uint64_t before, after;
  double seconds;
};

// A counter that went back began anew: it moved, nobody knows how far.
Value growth(const Moved &m) {
  return m.after >= m.before ? Value(m.after - m.before) : Value();
}

const ColumnOf<Moved> moved_columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Moved &m) { return Value(m.board.number); }},
    {"host", "HOST", Kind::text, In::rows,
     [](const Moved &m) { return Value("host" + std::to_string(m.board.host)); }},
    {"counter", "COUNTER", Kind::text, In::rows, [](const Moved &m) { return Value(m.counter->key); }},
    {"before", "BEFORE", Kind::number, In::rows, [](const Moved &m) { return Value(m.before); }},
    {"after", "AFTER", Kind::number, In::rows, [](const Moved &m) { return Value(m.after); }},
    {"growth", "GROWTH", Kind::number, In::rows, growth},
    {"growth_per_second", "PER SECOND", Kind::number, In::rows,
     [](const Moved &m) {
       const Value value = growth(m);
       return value.is_null() || m.seconds <= 0 ? Value()
                                                : Value(rounded_rate(value.get<double>() / m.seconds));
     }},
};

void show_moved(Context &ctx, double seconds, const std::vector<Board> &boards) {
  std::vector<Watched> watched;
  for (const Board &board : boards)
    if (const std::optional<Sample> sample = try_sample(ctx, board))
      watched.push_back({board, *sample, ticker.now()});
  ticker.sleep(seconds);
  std::vector<Moved> rows;
  for (const Watched &one : watched) {
    const std::optional<Sample> sample = try_sample(ctx, one.board);
    const double passed = ticker.now() - one.at;
    if (!sample) continue;
    for (size_t i = seconds_counter + 1; i < counter_count; ++i) {
      const std::optional<uint64_t> before = one.sample[i];
      const std::optional<uint64_t> after = (*sample)[i];
      if (before && after && *before != *after)
        rows.push_back({one.board, &counters[i], *before, *after, passed});
    }
  }
  ctx.show(make_table(moved_schema, moved_columns, rows));
  if (rows.empty()) ctx.note("no counter moved");
}

void stats(Context &ctx, const Arguments &args) {
  ctx.document(args.watch > 0 ? watch_schema : args.moved > 0 ? moved_schema : stats_schema);
  if (args.watch <= 0 && args.count > 0)
    throw Failure({.status = kUsage,
                   .tried = "--count without --watch",
                   .board = {},
                   .code = {},
                   .name = {},
                   .todo = "give --watch SECONDS as well"});
  std::vector<Board> boards = ctx.boards.select(args.board);
  if (args.reset) std::erase_if(boards, [&](const Board &board) { return !try_reset(ctx, board); });
  if (args.watch > 0) return watch(ctx, args, boards);
  if (args.moved > 0) return show_moved(ctx, args.moved, boards);
  std::vector<std::pair<Board, Sample>> samples;
  for (const Board &board : boards)
    if (const std::optional<Sample> sample = try_sample(ctx, board)) samples.emplace_back(board, *sample);
  ctx.show(counter_table(samples), Layout::record);
}

}  // namespace

void add_stats(CLI::App &root, Context &ctx) {
  auto args = std::make_shared<Arguments>();
  CLI::App *verb = add_verb(root, "stats", "Counters of one board, or of all, and their growth", ctx,
                            [args](Context &c) { stats(c, *args); });
  verb->add_option("BOARD", args->board, board_help)->type_name("");
  verb->add_option("--watch", args->watch, "Show the growth per second, every so many seconds")
      ->type_name("SECONDS")
      ->check(CLI::PositiveNumber);
  verb->add_option("--moved", args->moved, "Show which counters move within so many seconds")
      ->type_name("SECONDS")
      ->check(CLI::PositiveNumber)
      ->excludes("--watch");
  verb->add_option("--count", args->count, "With --watch: end after so many times")->type_name("N");
  verb->add_flag("--reset", args->reset, "Count from now on; ends with this command");
}

}  // namespace hcxadm
