// SPDX-License-Identifier: BSD-3-Clause
// "latency": histograms of the time that I/Os take, kept by the driver for each target. The definition of the buckets
// is one for all boards; each board collects by itself.
#include <cmath>

#include "histogram.h"
#include "interrupt.h"
#include "nouns.h"
#include "statistics.h"

namespace hcxadm {
namespace {

constexpr Schema set_schema{"hcxadm.latency.set", 1, 0};
constexpr Schema show_schema{"hcxadm.latency.show", 1, 0};
constexpr Schema state_schema{"hcxadm.latency.state", 1, 0};

constexpr uint32_t ns_per_ms = 1000000;
constexpr HBA_WWN own_port{};

struct Definition {
  uint16_t type = 0;
  uint32_t base = 0;  // nanoseconds
  uint32_t step = 0;
  uint64_t bounds[SD_BUCKETS] = {};
};

const char *type_word(uint16_t type) {
  return type == SD_SEARCH_LINEAR ? "linear" : "power2";
}

Value ms_value(double ms) {
  if (ms == std::floor(ms)) return Value(static_cast<uint64_t>(ms));
  return Value(ms);
}

double to_ms(uint64_t ns) {
  return static_cast<double>(ns) / ns_per_ms;
}

const char *advice(int32_t result) {
  switch (result) {
    case SD_ERROR_NOT_SUPPORTED:
      return "needs root and a driver that keeps these statistics";
    case SD_ERROR_INVALID_ARG:
      return "base and step are multiples of the clock's granularity; linear buckets begin above 0";
    case SD_ERROR_BUCKET_NOTSET:
      return "\"hcxadm latency set\" defines buckets";
    case SD_ERROR_DATA_COLLECTION_ACTIVE:
      return "\"hcxadm latency stop\" ends a collection";
    case SD_ERROR_DATA_COLLECTION_NOT_ACTIVE:
      return "\"hcxadm latency start\" begins a collection";
    default:
      return "";
  }
}

void check(int32_t result, const std::string &tried, const std::string &board = {}) {
  if (result != SD_OK) throw call_failure(Family::sd, result, tried, board, advice(result));
}

Definition read_definition() {
  Definition d;
  check(HCX_SD_Get_Bucket(SD_IO_LATENCY_TYPE, &d.type, &d.base, &d.step, d.bounds), "reading the buckets");
  return d;
}

const ColumnOf<Definition> definition_columns[] = {
    {"type", "TYPE", Kind::text, In::rows, [](const Definition &d) { return Value(type_word(d.type)); }},
    {"base_ms", "BASE(ms)", Kind::number, In::rows,
     [](const Definition &d) { return ms_value(to_ms(d.base)); }},
    {"step_ms", "STEP(ms)", Kind::number, In::rows,
     [](const Definition &d) { return ms_value(to_ms(d.step)); }},
    {"bounds_ms", "BOUNDS(ms)", Kind::list, In::rows,
     [](const Definition &d) {
       Value list = Value::array();
       for (const uint64_t bound : d.bounds)
         list.push_back(ms_value(to_ms(bound)));
       return list;
     }},
};

void set(Context &ctx, const std::string &type, uint32_t base, uint32_t step) {
  ctx.document(set_schema);
  ctx.boards.all();
  const std::string what =
      type + " buckets, base " + std::to_string(base) + " ms, step " + std::to_string(step) + " ms";
  if (ctx.dry_run) {
    ctx.note("would define " + what + ", on every board");
    return;
  }
  check(HCX_SD_Set_Bucket(SD_IO_LATENCY_TYPE, type == "linear" ? SD_SEARCH_LINEAR : SD_SEARCH_POWER_2,
                          base * ns_per_ms, step * ns_per_ms),
        "defining " + what);
  ctx.show(make_table(set_schema, definition_columns, std::vector<Definition>{read_definition()}));
}

// ---- What a board is doing ----

const ColumnOf<Board> state_columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Board &b) { return Value(b.number); }},
    {"host", "HOST", Kind::text, In::rows,
     [](const Board &b) { return Value("host" + std::to_string(b.host)); }},
    {"buckets", "BUCKETS", Kind::flag, In::rows,
     [](const Board &b) { return Value(is_bucket_set(b.host) != 0); }},
    {"collecting", "COLLECTING", Kind::flag, In::rows,
     [](const Board &b) { return Value(is_data_collection_started(b.host) != 0); }},
};

void destroy(Context &ctx) {
  ctx.document(state_schema);
  const std::vector<Board> &boards = ctx.boards.all();
  if (ctx.dry_run) {
    ctx.note("would remove the buckets of every board, with their counts");
    return;
  }
  check(HCX_SD_Destroy_Bucket(SD_IO_LATENCY_TYPE), "removing the buckets");
  ctx.show(make_table(state_schema, state_columns, boards));
}

struct Control {
  const char *verb;
  const char *help;
  const char *what;
  int32_t (*call)(uint32_t board);
  int32_t already;  // result of a board that needs no change
};

// One board that refuses does not keep the others from it. Who means all boards means those that can.
void control(Context &ctx, const std::string &name, const Control &what) {
  ctx.document(state_schema);
  const std::vector<Board> boards = ctx.boards.select(name);
  if (ctx.dry_run) {
    for (const Board &board : boards)
      ctx.note(board.name() + ": would try " + what.what);
    return;
  }
  for (const Board &board : boards) {
    const int32_t result = what.call(static_cast<uint32_t>(board.number));
    if (name.empty() && result == what.already) continue;
    try {
      check(result, what.what, board.name());
    } catch (const Failure &failure) {
      ctx.report(failure.problem());
    }
  }
  ctx.show(make_table(state_schema, state_columns, boards));
}

// ---- The histograms ----

struct Row {
  Board board;
  HBA_WWN target;
  Definition definition;
  bool collecting;
  Histogram histogram;
};

Value percentile_value(const Row &row, double percent) {
  const std::optional<double> ms = row.histogram.percentile(percent);
  return ms ? Value(std::round(*ms * 10) / 10) : Value();
}

Value bucket_values(const Row &row) {
  Value list = Value::array();
  for (size_t i = 0; i < Histogram::buckets; ++i) {
    const std::optional<double> to = row.histogram.to_ms(i);
    list.push_back({{"above_ms", ms_value(row.histogram.from_ms(i))},
                    {"up_to_ms", to ? ms_value(*to) : Value()},
                    {"ios", row.histogram.counts[i]},
                    {"share", std::round(row.histogram.share(i) * 1e6) / 1e6}});
  }
  return list;
}

const ColumnOf<Row> columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Row &r) { return Value(r.board.number); }},
    {"host", "HOST", Kind::text, In::rows,
     [](const Row &r) { return Value("host" + std::to_string(r.board.host)); }},
    {"target", "TARGET", Kind::text, In::rows, [](const Row &r) { return Value(wwn_text(r.target.wwn)); }},
    {"collecting", "COLLECTING", Kind::flag, In::rows, [](const Row &r) { return Value(r.collecting); }},
    {"type", "TYPE", Kind::text, In::record,
     [](const Row &r) { return Value(type_word(r.definition.type)); }},
    {"base_ms", "BASE(ms)", Kind::number, In::record,
     [](const Row &r) { return ms_value(to_ms(r.definition.base)); }},
    {"step_ms", "STEP(ms)", Kind::number, In::record,
     [](const Row &r) { return ms_value(to_ms(r.definition.step)); }},
    {"ios", "I/Os", Kind::number, In::rows, [](const Row &r) { return Value(r.histogram.total()); }},
    {"p50_ms", "P50(ms)", Kind::number, In::rows, [](const Row &r) { return percentile_value(r, 50); }},
    {"p95_ms", "P95(ms)", Kind::number, In::rows, [](const Row &r) { return percentile_value(r, 95); }},
    {"p99_ms", "P99(ms)", Kind::number, In::rows, [](const Row &r) { return percentile_value(r, 99); }},
    {"histogram", "HISTOGRAM", Kind::nested, In::record, bucket_values},
};

// The records of all targets, however many there come to be.
std::vector<SD_IO_Latency_Response> fetch(const Board &board) {
  std::vector<SD_IO_Latency_Response> records(64);
  for (int tries = 0;; ++tries) {
    uint16_t targets = 0;
    const int32_t result =
        HCX_SD_Get_Data(static_cast<uint32_t>(board.number), own_port, SD_IO_LATENCY_TYPE, &targets,
                        static_cast<uint32_t>(records.size() * sizeof records[0]), records.data());
    if (result == SD_ERROR_MORE_DATA_AVAILABLE && tries < 3) {
      records.resize(size_t{targets} + 16);
      continue;
    }
    check(result, "reading the latency statistics", board.name());
    records.resize(targets);
    return records;
  }
}

void add_rows(const Board &board, const Definition &definition, std::vector<Row> *rows) {
  const bool collecting = is_data_collection_started(board.host) != 0;
  for (const SD_IO_Latency_Response &record : fetch(board)) {
    Row &row = rows->emplace_back(Row{board, record.sd_iolatency_target_wwpn, definition, collecting, {}});
    for (size_t i = 0; i < Histogram::buckets; ++i) {
      row.histogram.bounds_ms[i] = to_ms(definition.bounds[i]);
      row.histogram.counts[i] = record.sd_time_stats_array[i].sd_tstats_bucket_count;
    }
  }
}

// A board that cannot be read is reported and left out; the others go on.
std::vector<Row> rows_of(Context &ctx, const std::vector<Board> &boards) {
  std::vector<Row> rows;
  if (boards.empty()) return rows;
  const Definition definition = read_definition();
  for (const Board &board : boards) {
    try {
      add_rows(board, definition, &rows);
    } catch (const Failure &failure) {
      ctx.report(failure.problem());
    }
  }
  return rows;
}

void show_rows(Context &ctx, const std::vector<Row> &rows) {
  // A person sees pictures, a program lines.
  if (ctx.json() || !(ctx.terminal.out || ctx.format == Format::table))
    return ctx.show(make_table(show_schema, columns, rows));
  for (const Row &row : rows) {
    if (&row != &rows.front()) ctx.out << '\n';
    ctx.out << row.board.name() << ", target " << wwn_text(row.target.wwn)
            << (row.collecting ? "" : ", not collecting") << '\n';
    draw(ctx.out, row.histogram);
  }
}

void show(Context &ctx, const std::string &name) {
  ctx.document(show_schema);
  show_rows(ctx, rows_of(ctx, ctx.boards.select(name)));
}

int32_t start(uint32_t board) {
  return HCX_SD_Start_Data_Collection(board, own_port, SD_IO_LATENCY_TYPE, nullptr);
}
int32_t stop(uint32_t board) {
  return HCX_SD_Stop_Data_Collection(board, own_port, SD_IO_LATENCY_TYPE);
}
int32_t reset(uint32_t board) {
  return HCX_SD_Reset_Data_Collection(board, own_port, SD_IO_LATENCY_TYPE);
}

constexpr Control controls[] = {
    {"start", "Begin to collect on one board, or on all", "starting the collection", start,
     SD_ERROR_DATA_COLLECTION_ACTIVE},
    {"stop", "Stop collecting; the counts stay", "stopping the collection", stop,
     SD_ERROR_DATA_COLLECTION_NOT_ACTIVE},
    {"reset", "Set the counts to zero", "clearing the counts", reset, SD_OK},
};

// ---- One measurement ----

// Collects on boards; at the end all is as it was: who collected before goes on, buckets that were made for this go.
class Collection {
 public:
  explicit Collection(const std::vector<Board> &boards) {
    if (boards.empty()) return;
    made_ = is_bucket_set(boards[0].host) == 0;
    if (made_)
      check(HCX_SD_Set_Bucket(SD_IO_LATENCY_TYPE, SD_SEARCH_POWER_2, 0, ns_per_ms), "defining buckets");
    for (const Board &board : boards) {
      const int32_t result = start(static_cast<uint32_t>(board.number));
      if (result == SD_OK)
        started_.push_back(static_cast<uint32_t>(board.number));
      else if (result != SD_ERROR_DATA_COLLECTION_ACTIVE && boards.size() == 1)
        refused(result, board);
    }
  }
  Collection(const Collection &) = delete;
  Collection &operator=(const Collection &) = delete;
  ~Collection() { end(); }

 private:
  void refused(int32_t result, const Board &board) {
    end();
    check(result, "starting the collection", board.name());
  }
  void end() {
    for (const uint32_t board : started_)
      stop(board);
    started_.clear();
    if (made_) HCX_SD_Destroy_Bucket(SD_IO_LATENCY_TYPE);
    made_ = false;
  }

  bool made_ = false;
  std::vector<uint32_t> started_;
};

void measure(Context &ctx, const std::string &name, double seconds) {
  ctx.document(show_schema);
  const std::vector<Board> boards = ctx.boards.select(name);
  if (ctx.dry_run) {
    ctx.note("would collect for " + std::to_string(seconds) + " seconds");
    return;
  }
  const InterruptGuard interrupt;
  const Collection collection(boards);
  const std::vector<Row> before = rows_of(ctx, boards);
  const double end = ticker.now() + seconds;
  for (double left = seconds; left > 0 && InterruptGuard::caught() == 0; left = end - ticker.now())
    ticker.sleep(std::min(left, 0.2));
  std::vector<Row> rows = rows_of(ctx, boards);
  for (Row &row : rows)
    for (const Row &old : before)
      if (old.board.number == row.board.number &&
          std::equal(old.target.wwn, old.target.wwn + 8, row.target.wwn))
        for (size_t i = 0; i < Histogram::buckets; ++i)
          row.histogram.counts[i] -= std::min(row.histogram.counts[i], old.histogram.counts[i]);
  show_rows(ctx, rows);
}

}  // namespace

void add_latency(CLI::App &root, Context &ctx) {
  struct Arguments {
    std::string board;
    std::string type;
    uint32_t base = 0;
    uint32_t step = 0;
    double seconds = 10;
  };
  auto args = std::make_shared<Arguments>();
  CLI::App *noun = add_noun(root, "latency", "How long I/Os take, by target");
  auto arguments = [args](CLI::App &app) { app.add_option("BOARD", args->board, board_help)->type_name(""); };
  add_standard_verb(*noun, "show", "Show a histogram for each target", ctx, arguments,
                    [args](Context &c) { show(c, args->board); });
  CLI::App *verb = add_verb(*noun, "set", "Define the buckets, on every board", ctx,
                            [args](Context &c) { set(c, args->type, args->base, args->step); });
  CLI::App *once = add_verb(*noun, "measure", "Collect for some seconds and show what was collected", ctx,
                            [args](Context &c) { measure(c, args->board, args->seconds); });
  arguments(*once);
  once->add_option("--seconds", args->seconds, "How long, 10 unless given")
      ->type_name("N")
      ->check(CLI::PositiveNumber);
  const auto milliseconds = CLI::Range(0U, UINT32_MAX / ns_per_ms).description("");
  verb->add_option("TYPE", args->type,
                   "linear: BASE, BASE+STEP, BASE+2*STEP ...; power2: BASE+STEP, BASE+2*STEP, "
                   "BASE+4*STEP ...")
      ->required()
      ->check(CLI::IsMember({"linear", "power2"}).description(""))
      ->type_name("");
  verb->add_option("BASE", args->base, "Milliseconds")->required()->check(milliseconds)->type_name("");
  verb->add_option("STEP", args->step, "Milliseconds")->required()->check(milliseconds)->type_name("");
  for (const Control &row : controls) {
    arguments(*add_verb(*noun, row.verb, row.help, ctx,
                        [args, &row](Context &c) { control(c, args->board, row); }));
  }
  add_verb(*noun, "destroy", "Remove the buckets of every board", ctx, destroy);
}

}  // namespace hcxadm
