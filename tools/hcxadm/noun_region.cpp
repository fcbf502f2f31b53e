// SPDX-License-Identifier: BSD-3-Clause
// "region": configuration regions of the adapter's flash: as bytes, decoded, and written whole.
#include <algorithm>
#include <cstdio>

#include "bytes.h"
#include "change.h"
#include "nouns.h"
#include "region23.h"

namespace hcxadm {
namespace {

using bytes::Bytes;

constexpr Schema dump_schema{"hcxadm.region.dump", 1, 0};
constexpr Schema show_schema{"hcxadm.region.show", 1, 0};
constexpr Schema write_schema{"hcxadm.region.write", 1, 0};
constexpr uint32_t whole_region = 2;  // dump and update type
constexpr uint32_t piece = 1024;      // what both dialects move with one call
constexpr uint32_t most_bytes = 1792;

struct Arguments {
  std::string board;
  uint32_t region = region23::number;
  uint32_t offset = 0;
  uint32_t length = region23::size;
  std::string file;
  bool force = false;
};

struct StatusRow {
  uint16_t status;
  const char *name;
  ExitStatus exit;
};

constexpr StatusRow statuses[] = {
    {0xfffe, "the region has no valid header", kFailed},
    {0xfffd, "the region was never initialised", kNoSuch},
    {0xfffc, "no such region", kNoSuch},
    {0xfff7, "the region has no entry", kNoSuch},
    {0xfff6, "the region has no valid entry", kNoSuch},
};

std::string region_name(uint32_t region) {
  return "region " + std::to_string(region);
}

Failure dump_failure(const Board &board, const std::string &tried, uint32_t result, uint16_t status) {
  if (status == 0) return call_failure(Family::vendor, result, tried, board.name());
  for (const StatusRow &row : statuses)
    if (row.status == status)
      return Failure({.status = row.exit,
                      .tried = tried,
                      .board = board.name(),
                      .code = status,
                      .name = row.name,
                      .todo = {}});
  return call_failure(Family::mailbox, status, tried, board.name());
}

// Up to `length` bytes; fewer where the region ends. `*status` tells the failures apart that a caller can live with.
Bytes read_region(const Board &board, uint32_t region, uint32_t offset, uint32_t length) {
  Bytes data;
  while (data.size() < length) {
    Bytes part(std::min<size_t>(piece, length - data.size()));
    uint32_t got = static_cast<uint32_t>(part.size());
    uint16_t status = 0;
    const uint32_t result =
        getRegionData(number_of(board), whole_region, region, offset + static_cast<uint32_t>(data.size()),
                      part.data(), &got, &status, 0);
    if (result != 0) throw dump_failure(board, "reading " + region_name(region), result, status);
    data.insert(data.end(), part.begin(), part.begin() + std::min<ptrdiff_t>(got, std::ssize(part)));
    if (got < part.size()) break;
  }
  return data;
}

void dump(Context &ctx, const Arguments &args) {
  ctx.document(dump_schema);
  if (args.length % 4 != 0) throw usage_failure("the length is no multiple of 4", "regions consist of words");
  const Board &board = ctx.boards.find(args.board);
  const Bytes data = read_region(board, args.region, args.offset, args.length);
  if (!args.file.empty()) {
    bytes::write_file(args.file, data);
    ctx.note(region_name(args.region) + " of " + board.name() + ": " + std::to_string(data.size()) +
             " bytes");
  }
  if (ctx.json()) {
    Table table{
        dump_schema,
        {{"board", "BOARD", Kind::number, In::rows},
         {"host", "HOST", Kind::text, In::rows},
         {"region", "REGION", Kind::number, In::rows},
         {"offset", "OFFSET", Kind::number, In::rows},
         {"length", "LENGTH", Kind::number, In::rows},
         {"bytes", "BYTES", Kind::nested, In::rows}},
        {{board.number, host_name(board), args.region, args.offset, data.size(), bytes::digits(data)}}};
    ctx.show(table);
  } else if (args.file.empty()) {
    ctx.out << bytes::dump(data);
  }
}

struct Row {
  Board board;
  region23::Record record;
};

const ColumnOf<Row> columns[] = {
    {"board", "BOARD", Kind::number, In::record, [](const Row &r) { return Value(r.board.number); }},
    {"host", "HOST", Kind::text, In::record, [](const Row &r) { return Value(host_name(r.board)); }},
    {"offset", "OFFSET", Kind::number, In::rows, [](const Row &r) { return Value(r.record.offset); }},
    {"type", "TYPE", Kind::hex, In::rows, [](const Row &r) { return Value(r.record.type); }},
    {"name", "RECORD", Kind::text, In::rows, [](const Row &r) { return Value(r.record.name); }},
    {"length", "BYTES", Kind::number, In::rows, [](const Row &r) { return Value(r.record.data.size()); }},
    {"contents", "CONTENTS", Kind::text, In::rows,
     [](const Row &r) { return r.record.contents.empty() ? Value() : Value(r.record.contents); }},
    {"bytes", "BYTES", Kind::nested, In::record,
     [](const Row &r) { return Value(bytes::digits(r.record.data)); }},
};

void show(Context &ctx, const Arguments &args) {
  ctx.document(show_schema);
  const Board &board = ctx.boards.find(args.board);
  const Bytes image = read_region(board, region23::number, 0, region23::size);
  const region23::View view = region23::view(image);
  std::vector<Row> rows;
  for (const region23::Record &record : view.records)
    rows.push_back({board, record});
  ctx.show(make_table(show_schema, columns, rows));
  if (!view.fault.empty())
    throw Failure({.status = kFailed,
                   .tried = "reading the records of region 23",
                   .board = board.name(),
                   .code = {},
                   .name = view.fault,
                   .todo = "\"hcxadm region dump\" shows its bytes"});
}

// One line for every 16 bytes.
Lines lines_of(const Bytes &data) {
  Lines lines;
  const std::string text = bytes::dump(data);
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

// What is in flash now; nothing for a region that was never written.
Bytes read_before(const Board &board, const Arguments &args, size_t length) {
  try {
    return read_region(board, args.region, 0, static_cast<uint32_t>((length + 3) / 4 * 4));
  } catch (const Failure &failure) {
    if (failure.problem().code == 0xfffd || failure.problem().code == 0xfff7) return {};
    throw;
  }
}

void check_image(const Arguments &args, const Bytes &image) {
  if (image.empty()) throw usage_failure("\"" + args.file + "\" is empty");
  if (image.size() % 4 != 0)
    throw usage_failure("\"" + args.file + "\" has no whole words", "regions consist of words of 4 bytes");
  if (args.region != region23::number || args.force) return;
  const region23::View view = region23::view(image);
  if (!view.fault.empty())
    throw Failure({.status = kRefused,
                   .tried = "\"" + args.file + "\" is no image of region 23",
                   .board = {},
                   .code = {},
                   .name = view.fault,
                   .todo = "--force writes it all the same"});
}

void write(Context &ctx, const Arguments &args) {
  ctx.document(write_schema);
  Bytes image = bytes::read_file(args.file, most_bytes);
  check_image(args, image);
  const Board &board = ctx.boards.find(args.board);
  const Bytes before = read_before(board, args, image.size());
  if (!confirm_change(ctx, lines_of(before), lines_of(image),
                      "overwrite " + region_name(args.region) + " in the flash of " + board.name() +
                          " with " + std::to_string(image.size()) + " bytes" +
                          (before.empty() ? "; it was never initialised" : "")))
    return;
  const std::string tried = "writing " + region_name(args.region);
  uint32_t length = static_cast<uint32_t>(image.size());
  int32_t info = 0;
  const uint32_t result =
      setRegionData(number_of(board), whole_region, args.region, length, 0, image.data(), &length, &info);
  if (info != 0)
    throw Failure({.status = kFailed,
                   .tried = tried,
                   .board = board.name(),
                   .code = info,
                   .name = "the adapter refused",
                   .todo = "\"hcxadm log set error\" brings its reason into syslog"});
  if (result != 0) throw call_failure(Family::vendor, result, tried, board.name());
  if (read_region(board, args.region, 0, static_cast<uint32_t>(image.size())) != image)
    throw Failure({.status = kFailed,
                   .tried = tried,
                   .board = board.name(),
                   .code = {},
                   .name = "it does not read back as it was written",
                   .todo = "\"hcxadm region dump\" shows what is there"});
  Table table{write_schema,
              {{"board", "BOARD", Kind::number, In::rows},
               {"host", "HOST", Kind::text, In::rows},
               {"region", "REGION", Kind::number, In::rows},
               {"length", "BYTES", Kind::number, In::rows}},
              {{board.number, host_name(board), args.region, image.size()}}};
  ctx.show(table);
}

void add_region_option(CLI::App &verb, Arguments &args) {
  verb.add_option("--region", args.region, "Number of the region, 23 unless given")
      ->check(CLI::Range(0U, 0xffffU).description(""))
      ->type_name("N");
}

}  // namespace

void add_region(CLI::App &root, Context &ctx) {
  auto args = std::make_shared<Arguments>();
  CLI::App *noun = add_noun(root, "region", "Configuration regions in the adapter's flash");
  CLI::App *bytes = add_verb(*noun, "dump", "Show or save the bytes of a region", ctx,
                             [args](Context &c) { dump(c, *args); });
  CLI::App *records =
      add_verb(*noun, "show", "Show the records of region 23", ctx, [args](Context &c) { show(c, *args); });
  CLI::App *whole =
      add_verb(*noun, "write", "Overwrite a region", ctx, [args](Context &c) { write(c, *args); });
  for (CLI::App *verb : {bytes, records, whole})
    verb->add_option("BOARD", args->board, board_help)->required()->type_name("");
  for (CLI::App *verb : {bytes, whole})
    add_region_option(*verb, *args);
  bytes->add_option("--offset", args->offset, "Where to begin, 0 unless given")
      ->check(CLI::Range(0U, 0xfffcU).description(""))
      ->type_name("N");
  bytes->add_option("--length", args->length, "Number of bytes, 1024 unless given")
      ->check(CLI::Range(4U, 0x10000U).description(""))
      ->type_name("N");
  bytes->add_option("--out", args->file, "Where the bytes are written")->type_name("FILE");
  whole->add_option("--in", args->file, "What to write, \"-\" for standard input")
      ->required()
      ->type_name("FILE");
  whole->add_flag("--force", args->force, "Also what is no image of region 23");
}

}  // namespace hcxadm
