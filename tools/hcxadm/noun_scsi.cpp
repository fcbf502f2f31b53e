// SPDX-License-Identifier: BSD-3-Clause
// "scsi": commands to LUNs. Answers are decoded and shown as bytes; what writes asks first.
#include <algorithm>
#include <fstream>
#include <iterator>

#include "bytes.h"
#include "designator.h"
#include "nouns.h"
#include "scsi_command.h"
#include "sense.h"

namespace hcxadm {
namespace {

constexpr size_t block_size = 512;
constexpr size_t max_blocks = 65535;

struct Arguments {
  LunName lun;
  std::string page;
  uint64_t block = 0;
  uint64_t blocks = 1;
  std::string file;
  std::vector<std::string> bytes;
  uint32_t in_size = 0;
  uint32_t timeout = 30;
};

Failure usage(const std::string &tried, const std::string &todo) {
  return Failure({.status = kUsage, .tried = tried, .board = {}, .code = {}, .name = {}, .todo = todo});
}

// Says what went wrong with a command that the device answered.
void report_end(Context &ctx, const ScsiResult &result, const std::string &tried, const Board &board) {
  if (const std::string sense = sense_text(result.sense); !sense.empty())
    ctx.report({.status = kFailed,
                .tried = tried,
                .board = board.name(),
                .code = {},
                .name = "check condition: " + sense,
                .todo = {}});
  else if (result.status != 0)
    ctx.report({.status = result.status == 0x08 || result.status == 0x28 ? kBusy : kFailed,
                .tried = tried,
                .board = board.name(),
                .code = result.status,
                .name = scsi_status_name(result.status),
                .todo = {}});
}

// A record of named values, grown one by one.
class Record {
 public:
  explicit Record(const Schema &schema) : table_{schema, {}, {{}}} {}
  void add(const char *key, const char *title, Kind kind, Value value) {
    table_.columns.push_back({key, title, kind, In::rows});
    table_.rows[0].push_back(std::move(value));
  }
  void add_address(const LunAddress &address) {
    add("board", "BOARD", Kind::number, address.board.number);
    add("target_wwpn", "TARGET WWPN", Kind::text, wwn_value(address.target.wwn));
    add("lun", "LUN", Kind::number, address.number);
    add("device", "DEVICE", Kind::text, or_null(address.device));
  }
  // Bytes and sense come last; people get the bytes as a dump behind the record.
  void show(Context &ctx, const ScsiResult &result, const std::string &tried, const Board &board,
            bool dump = true) {
    const std::string sense = sense_text(result.sense);
    add("sense", "SENSE", Kind::text, sense.empty() ? Value() : Value(sense));
    if (dump) add("data", "DATA", Kind::nested, bytes::digits(result.data));
    ctx.show(table_, Layout::record);
    if (dump && !ctx.json()) ctx.out << bytes::dump(result.data);
    report_end(ctx, result, tried, board);
  }

 private:
  Table table_;
};

std::string text_at(const std::vector<uint8_t> &data, size_t at, size_t size) {
  if (at >= data.size()) return {};
  std::string text(reinterpret_cast<const char *>(data.data()) + at, std::min(size, data.size() - at));
  const size_t end = text.find_last_not_of(std::string(" \0", 2));
  return text.substr(0, end == std::string::npos ? 0 : end + 1);
}

Value text_value(const std::string &text) {
  return text.empty() ? Value() : Value(text);
}

// ---- inquiry ----

void describe_standard(Record &record, const std::vector<uint8_t> &data) {
  record.add("type", "TYPE", Kind::text, data.empty() ? Value() : Value(device_type_name(data[0])));
  record.add("vendor", "VENDOR", Kind::text, text_value(text_at(data, 8, 8)));
  record.add("product", "PRODUCT", Kind::text, text_value(text_at(data, 16, 16)));
  record.add("revision", "REVISION", Kind::text, text_value(text_at(data, 32, 4)));
}

void describe_page(Record &record, unsigned page, const std::vector<uint8_t> &data, bool in_words) {
  const size_t length = std::min<size_t>(big_endian(data, 2, 2), data.size() < 4 ? 0 : data.size() - 4);
  Value list = Value::array();
  switch (page) {
    case 0x00:
      for (size_t i = 4; i < 4 + length; ++i)
        list.push_back(human(data[i], Kind::hex));
      record.add("pages", "PAGES", Kind::list, list);
      break;
    case 0x80:
      record.add("serial_number", "SERIAL NUMBER", Kind::text, text_value(text_at(data, 4, length)));
      break;
    case 0x83: {
      for (const Designator &one : designators_of(data.data(), data.size()))
        list.push_back({{"association", one.association}, {"type", one.type}, {"value", one.value}});
      record.add("designators", "DESIGNATORS", Kind::nested, list);
      if (!in_words) break;
      Value words = Value::array();
      for (const Value &one : list)
        words.push_back(one["association"].get<std::string>() + " " + one["type"].get<std::string>() + " " +
                        human(one["value"], Kind::text));
      record.add("designator_texts", "IDENTITIES", Kind::list, words);
      break;
    }
    default:
      break;
  }
}

void inquiry(Context &ctx, const Arguments &args) {
  static constexpr Schema schema{"hcxadm.scsi.inquiry", 1, 0};
  ctx.document(schema);
  std::optional<uint64_t> page;
  if (!args.page.empty()) {
    page = parse_number(args.page.starts_with("0x") ? args.page.substr(2) : args.page, 16);
    if (!page || *page > 0xff) throw usage("\"" + args.page + "\" is no page", "give two hexadecimal digits");
  }
  const LunAddress address = find_lun(ctx.boards, args.lun);
  const std::string tried = "INQUIRY to " + address.text();
  const uint32_t room = page ? 1024 : 96;
  const ScsiResult answer =
      send_command(tried, address,
                   {0x12, page ? uint8_t{1} : uint8_t{0}, static_cast<uint8_t>(page.value_or(0)),
                    static_cast<uint8_t>(room >> 8), static_cast<uint8_t>(room), 0},
                   room, {}, 0);
  Record record(schema);
  record.add_address(address);
  record.add("page", "PAGE", Kind::hex, or_null(page));
  if (page)
    describe_page(record, static_cast<unsigned>(*page), answer.data, !ctx.json());
  else
    describe_standard(record, answer.data);
  record.show(ctx, answer, tried, address.board);
}

// ---- capacity ----

void capacity(Context &ctx, const Arguments &args) {
  static constexpr Schema schema{"hcxadm.scsi.capacity", 1, 0};
  ctx.document(schema);
  const LunAddress address = find_lun(ctx.boards, args.lun);
  const std::string tried = "READ CAPACITY of " + address.text();
  const Capacity told = read_capacity(tried, address);
  Record record(schema);
  record.add_address(address);
  record.add("blocks", "BLOCKS", Kind::number, or_null(told.blocks));
  record.add("block_size", "BLOCK SIZE(bytes)", Kind::number, or_null(told.block_size));
  record.add("bytes", "CAPACITY", Kind::size,
             told.blocks && told.block_size ? Value(*told.blocks * *told.block_size) : Value());
  record.show(ctx, told.answer, tried, address.board);
}

// ---- luns ----

constexpr size_t max_luns = 16384;

// The library's own call: it makes the list itself where there is no LUN 0 to ask.
ScsiResult report_luns(const std::string &tried, const Board &board, HBA_WWN target) {
  ScsiResult answer;
  answer.data.resize(8 + 8 * max_luns);
  answer.sense.resize(sense_room);
  uint32_t data_size = static_cast<uint32_t>(answer.data.size());
  uint32_t sense_size = static_cast<uint32_t>(answer.sense.size());
  const uint32_t result = SendReportLUNs(static_cast<uint32_t>(board.number), &target, answer.data.data(),
                                         &data_size, answer.sense.data(), &sense_size);
  if (result != 0) throw call_failure(Family::scsi, result, tried, board.name());
  answer.data.resize(std::min<size_t>(data_size, answer.data.size()));
  answer.sense.resize(std::min<size_t>(sense_size, answer.sense.size()));
  return answer;
}

void luns(Context &ctx, const Arguments &args) {
  static constexpr Schema schema{"hcxadm.scsi.luns", 1, 0};
  ctx.document(schema);
  const Board board = ctx.boards.find(args.lun.board);
  Port port = find_port(ctx.boards, board, args.lun.target);
  const std::string tried = "REPORT LUNS to " + wwn_text(port.wwpn.wwn);
  const ScsiResult answer = report_luns(tried, board, port.wwpn);
  const uint64_t end = 8 + big_endian(answer.data, 0, 4);
  Table table{schema,
              {{"board", "BOARD", Kind::number, In::rows},
               {"target_wwpn", "TARGET WWPN", Kind::text, In::rows},
               {"lun", "LUN", Kind::number, In::rows},
               {"fcp_lun", "FCP LUN", Kind::text, In::rows}},
              {}};
  for (size_t at = 8; at + 8 <= std::min<uint64_t>(end, answer.data.size()); at += 8) {
    uint64_t number = 0;
    for (size_t level = 0; level < 4; ++level)
      number |= big_endian(answer.data, at + 2 * level, 2) << (16 * level);
    const std::vector<uint8_t> image(answer.data.begin() + static_cast<ptrdiff_t>(at),
                                     answer.data.begin() + static_cast<ptrdiff_t>(at) + 8);
    table.rows.push_back({board.number, wwn_value(port.wwpn.wwn), number, "0x" + bytes::digits(image)});
  }
  ctx.show(table);
  report_end(ctx, answer, tried, board);
  if (answer.sense.empty() && end > answer.data.size())
    ctx.report({.status = kFailed,
                .tried = tried,
                .board = board.name(),
                .code = {},
                .name = answer.data.size() < 8 ? "no answer"
                                               : "only the first " + std::to_string(table.rows.size()) +
                                                     " LUNs of a longer list came",
                .todo = {}});
}

// ---- read and write ----

void check_range(const Arguments &args) {
  if (args.block > 0xffffffff)
    throw usage("blocks above 4294967295 cannot be reached", "READ(10) counts in 32 bits");
  if (args.blocks == 0 || args.blocks > max_blocks)
    throw usage(std::to_string(args.blocks) + " blocks at once", "1 to 65535 are possible");
}

// READ and WRITE count the device's blocks, whose size is not in them.
void check_block_size(const std::string &tried, const LunAddress &address) {
  const Capacity told = read_capacity(tried, address);
  if (told.block_size == block_size) return;
  const std::string sense = sense_text(told.answer.sense);
  throw Failure(
      {.status = told.block_size ? kNotSupported : kFailed,
       .tried = tried,
       .board = address.board.name(),
       .code = {},
       .name = told.block_size
                   ? "the LUN has blocks of " + std::to_string(*told.block_size) + " bytes, not 512"
                   : "the LUN does not tell the size of its blocks" + (sense.empty() ? sense : ": " + sense),
       .todo = "use \"hcxadm scsi cdb\""});
}

std::vector<uint8_t> block_command(uint8_t opcode, uint64_t block, size_t blocks) {
  return {opcode,
          0,
          static_cast<uint8_t>(block >> 24),
          static_cast<uint8_t>(block >> 16),
          static_cast<uint8_t>(block >> 8),
          static_cast<uint8_t>(block),
          0,
          static_cast<uint8_t>(blocks >> 8),
          static_cast<uint8_t>(blocks),
          0};
}

// Good status, but not all bytes.
void report_short(Context &ctx, const ScsiResult &result, size_t wanted, const std::string &tried,
                  const Board &board) {
  if (result.status != 0 || result.moved == wanted) return;
  ctx.report({.status = kFailed,
              .tried = tried,
              .board = board.name(),
              .code = {},
              .name = "only " + std::to_string(result.moved) + " of " + std::to_string(wanted) +
                      " bytes were transferred",
              .todo = {}});
}

void read(Context &ctx, const Arguments &args) {
  static constexpr Schema schema{"hcxadm.scsi.read", 1, 0};
  ctx.document(schema);
  check_range(args);
  const LunAddress address = find_lun(ctx.boards, args.lun);
  const std::string tried = "READ of " + address.text();
  const size_t wanted = args.blocks * block_size;
  check_block_size(tried, address);
  const ScsiResult answer = send_command(tried, address, block_command(0x28, args.block, args.blocks),
                                         static_cast<uint32_t>(wanted), {}, 0);
  const bool to_file = !args.file.empty();
  if (to_file && answer.status == 0 && answer.moved == wanted) {
    std::ofstream file(args.file, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char *>(answer.data.data()),
               static_cast<std::streamsize>(answer.data.size()));
    file.close();
    if (!file) throw call_failure(Family::sys, errno, "writing " + args.file, {});
  }
  Record record(schema);
  record.add_address(address);
  record.add("block", "BLOCK", Kind::number, args.block);
  record.add("bytes", "BYTES", Kind::number, answer.moved);
  record.show(ctx, answer, tried, address.board, !to_file);
  report_short(ctx, answer, wanted, tried, address.board);
}

std::vector<uint8_t> file_bytes(const std::string &name) {
  std::ifstream file(name, std::ios::binary);
  if (!file) throw call_failure(Family::sys, errno, "reading " + name, {});
  std::vector<uint8_t> data;
  std::vector<char> part(64 * 1024);
  while (data.size() <= max_blocks * block_size) {
    file.read(part.data(), static_cast<std::streamsize>(part.size()));
    if (file.gcount() == 0) break;
    data.insert(data.end(), part.begin(), part.begin() + file.gcount());
  }
  if (file.bad()) throw call_failure(Family::sys, errno, "reading " + name, {});
  return data;
}

void write(Context &ctx, const Arguments &args) {
  static constexpr Schema schema{"hcxadm.scsi.write", 1, 0};
  ctx.document(schema);
  std::vector<uint8_t> data = file_bytes(args.file);
  if (data.empty() || data.size() % block_size != 0 || data.size() > max_blocks * block_size)
    throw usage(args.file + " is not 1 to 65535 whole blocks of 512 bytes", "pad or split the file");
  check_range(args);
  const LunAddress address = find_lun(ctx.boards, args.lun);
  const size_t wanted = data.size(), count = wanted / block_size;
  if (!ctx.confirm("overwrite " + std::to_string(count) + (count == 1 ? " block" : " blocks") +
                   " from block " + std::to_string(args.block) + " on of " + address.text() + " on " +
                   address.board.name() + (address.device ? ", " + *address.device : "")))
    return;
  const std::string tried = "WRITE to " + address.text();
  check_block_size(tried, address);
  const ScsiResult answer =
      send_command(tried, address, block_command(0x2a, args.block, count), 0, std::move(data), 0);
  Record record(schema);
  record.add_address(address);
  record.add("block", "BLOCK", Kind::number, args.block);
  record.add("bytes", "BYTES", Kind::number, answer.moved);
  record.show(ctx, answer, tried, address.board, false);
  report_short(ctx, answer, wanted, tried, address.board);
}

// ---- any command ----

// Operation codes that change nothing: of these nobody needs to be asked.
constexpr uint8_t harmless[] = {0x00, 0x03, 0x08, 0x12, 0x1a, 0x25, 0x28, 0x37, 0x3c,
                                0x4d, 0x5a, 0x5e, 0x88, 0x9e, 0xa0, 0xa3, 0xa8, 0xb7};

std::vector<uint8_t> parse_bytes(const std::vector<std::string> &words) {
  std::vector<uint8_t> bytes;
  for (const std::string &word : words) {
    const std::optional<uint64_t> byte = parse_number(word.starts_with("0x") ? word.substr(2) : word, 16);
    if (!byte || *byte > 0xff) throw usage("\"" + word + "\" is no byte", "give two hexadecimal digits each");
    bytes.push_back(static_cast<uint8_t>(*byte));
  }
  if (bytes.size() < 6 || bytes.size() > 16) throw usage("a CDB has 6 to 16 bytes", "give all of them");
  return bytes;
}

void cdb(Context &ctx, const Arguments &args) {
  static constexpr Schema schema{"hcxadm.scsi.cdb", 1, 0};
  ctx.document(schema);
  const std::vector<uint8_t> bytes = parse_bytes(args.bytes);
  const bool sends = !args.file.empty();
  std::vector<uint8_t> data = sends ? file_bytes(args.file) : std::vector<uint8_t>();
  if (sends && args.in_size) throw usage("data in both directions", "give --in or --out");
  const LunAddress address = find_lun(ctx.boards, args.lun);
  const std::string tried = "command " + bytes::digits({bytes[0]}) + " to " + address.text();
  const bool safe =
      !sends && std::find(std::begin(harmless), std::end(harmless), bytes[0]) != std::end(harmless);
  if (!safe && !ctx.confirm("send " + tried + " on " + address.board.name())) return;
  const ScsiResult answer = send_command(tried, address, bytes, args.in_size, std::move(data), args.timeout);
  Record record(schema);
  record.add_address(address);
  record.add("cdb", "CDB", Kind::text, bytes::digits(bytes));
  record.add("status", "STATUS", Kind::text, scsi_status_name(answer.status));
  record.add("bytes", "BYTES", Kind::number, answer.moved);
  record.show(ctx, answer, tried, address.board);
}

void add_address(CLI::App &verb, LunName &name, bool with_lun = true) {
  verb.add_option("BOARD", name.board, board_help)->required()->type_name("");
  verb.add_option("WWPN", name.target, "Port name of the target")->required()->type_name("");
  if (with_lun) verb.add_option("LUN", name.lun, "Number of the LUN")->required()->type_name("");
}

}  // namespace

void add_scsi(CLI::App &root, Context &ctx) {
  auto args = std::make_shared<Arguments>();
  CLI::App *noun = add_noun(root, "scsi", "SCSI commands to LUNs");
  CLI::App *verb =
      add_verb(*noun, "inquiry", "Ask a LUN what it is", ctx, [args](Context &c) { inquiry(c, *args); });
  add_address(*verb, args->lun);
  verb->add_option("--page", args->page, "Vital product data page, for example 83")->type_name("HEX");
  verb =
      add_verb(*noun, "capacity", "Ask a LUN for its size", ctx, [args](Context &c) { capacity(c, *args); });
  add_address(*verb, args->lun);
  verb = add_verb(*noun, "luns", "Ask a target for its LUNs", ctx, [args](Context &c) { luns(c, *args); });
  add_address(*verb, args->lun, false);
  verb = add_verb(*noun, "read", "Read blocks of 512 bytes", ctx, [args](Context &c) { read(c, *args); });
  add_address(*verb, args->lun);
  verb->add_option("--block", args->block, "First block (0)")->type_name("N");
  verb->add_option("--blocks", args->blocks, "Number of blocks (1)")->type_name("N");
  verb->add_option("--file", args->file, "Write the bytes to this file")->type_name("FILE");
  verb =
      add_verb(*noun, "write", "Overwrite blocks of 512 bytes", ctx, [args](Context &c) { write(c, *args); });
  add_address(*verb, args->lun);
  verb->add_option("--block", args->block, "First block")->required()->type_name("N");
  verb->add_option("--file", args->file, "File with the bytes")->required()->type_name("FILE");
  verb = add_verb(*noun, "cdb", "Send any command", ctx, [args](Context &c) { cdb(c, *args); });
  add_address(*verb, args->lun);
  verb->add_option("BYTE", args->bytes, "The CDB, hexadecimal")->required()->type_name("");
  verb->add_option("--in", args->in_size, "Bytes to receive")
      ->type_name("N")
      ->check(CLI::Range(0u, 1u << 24));
  verb->add_option("--out", args->file, "File with the bytes to send")->type_name("FILE");
  verb->add_option("--timeout", args->timeout, "Time limit in seconds, 0 for none (30)")->type_name("N");
}

}  // namespace hcxadm
