// SPDX-License-Identifier: BSD-3-Clause
// "reg" and "pci": control registers, SLI memory and PCI configuration space, for people who know the
// adapter.
#include <cstring>

#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema reg_schema{"hcxadm.reg", 1, 0};
constexpr Schema pci_schema{"hcxadm.pci.read", 1, 0};

constexpr uint32_t page = 4096;  // the kernel moves no more at a time

struct Args {
  std::string board;
  std::string offset = "0", value;
  std::string space = "ctlreg";
  uint32_t count = 1;
  [[nodiscard]] bool slim() const { return space == "slim"; }
};

struct Word {
  Board board;
  uint32_t offset;
  uint32_t value;
};

const ColumnOf<Word> word_columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Word &w) { return Value(w.board.number); }},
    {"offset", "OFFSET", Kind::hex, In::rows, [](const Word &w) { return Value(w.offset); }},
    {"value", "VALUE", Kind::hex, In::rows, [](const Word &w) { return Value(w.value); }},
};

struct Bytes {
  Board board;
  uint32_t offset;
  std::vector<uint8_t> bytes;
};

std::string hex_bytes(const std::vector<uint8_t> &bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (uint8_t byte : bytes) {
    if (!text.empty()) text += ' ';
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

const ColumnOf<Bytes> byte_columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Bytes &b) { return Value(b.board.number); }},
    {"offset", "OFFSET", Kind::hex, In::rows, [](const Bytes &b) { return Value(b.offset); }},
    {"bytes", "BYTES", Kind::text, In::rows, [](const Bytes &b) { return Value(hex_bytes(b.bytes)); }},
};

[[noreturn]] void bad_number(const std::string &text, const char *todo) {
  throw Failure({.status = kUsage,
                 .tried = "\"" + text + "\" is no number for this",
                 .board = {},
                 .code = {},
                 .name = {},
                 .todo = todo});
}

uint32_t number(const std::string &text) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  const std::optional<uint64_t> value = hex ? parse_number(text.substr(2), 16) : parse_number(text);
  if (!value || *value > UINT32_MAX) bad_number(text, "give a decimal number, or 0x and a hexadecimal one");
  return static_cast<uint32_t>(*value);
}

uint32_t word_offset(const std::string &text) {
  const uint32_t offset = number(text);
  if (offset % 4) bad_number(text, "offsets of words are multiples of 4");
  return offset;
}

Failure space_failure(uint32_t status, const char *verb, bool slim, uint32_t offset, const Board &board) {
  const std::string what =
      std::string(verb) + (slim ? " SLI memory at " : " control register ") + human(offset, Kind::hex);
  return call_failure(Family::vendor, status, what, board.name(),
                      status == 2 && !slim ? "SLI-4 adapters do not show their registers"
                                           : "needs root, and an offset that the adapter has");
}

// Words of SLI memory, a page at a time.
uint32_t read_slim(const Board &board, uint32_t offset, std::vector<uint32_t> &words) {
  auto *bytes = reinterpret_cast<uint8_t *>(words.data());
  const size_t size = words.size() * sizeof words[0];
  for (size_t done = 0; done < size;) {
    const auto part = static_cast<uint32_t>(std::min<size_t>(size - done, page));
    const uint32_t status = ReadMem(static_cast<uint32_t>(board.number), bytes + done,
                                    offset + static_cast<uint32_t>(done), part);
    if (status != 0) return status;
    done += part;
  }
  return 0;
}

void read(Context &ctx, const Args &args) {
  ctx.document(reg_schema);
  const uint32_t offset = word_offset(args.offset);
  if (uint64_t{offset} + uint64_t{args.count} * 4 > UINT32_MAX) bad_number(args.offset, "it is beyond 4 GiB");
  const Board &board = ctx.boards.find(args.board);
  std::vector<uint32_t> words(args.count);
  uint32_t status = 0;
  if (args.slim()) {
    status = read_slim(board, offset, words);
  } else {
    for (uint32_t i = 0; i < args.count && status == 0; ++i)
      status = ReadCtlReg(static_cast<uint32_t>(board.number), &words[i], offset + 4 * i);
  }
  if (status != 0) throw space_failure(status, "reading", args.slim(), offset, board);
  std::vector<Word> rows;
  for (uint32_t i = 0; i < args.count; ++i)
    rows.push_back({board, offset + 4 * i, words[i]});
  ctx.show(make_table(reg_schema, word_columns, rows));
}

void write(Context &ctx, const Args &args) {
  ctx.document(reg_schema);
  const uint32_t offset = word_offset(args.offset);
  uint32_t value = number(args.value);
  const Board &board = ctx.boards.find(args.board);
  if (!ctx.confirm("write " + human(value, Kind::hex) + " to " +
                   (args.slim() ? "SLI memory at " : "control register ") + human(offset, Kind::hex) +
                   " of " + board.name() + ", which may stop the adapter"))
    return;
  const auto number = static_cast<uint32_t>(board.number);
  uint32_t status = 0;
  if (!args.slim()) {
    status = WriteCtlReg(number, &value, offset);
  } else {
    uint8_t bytes[sizeof value];
    memcpy(bytes, &value, sizeof value);
    status = WriteMem(number, bytes, offset, sizeof value);
  }
  if (status != 0) throw space_failure(status, "writing", args.slim(), offset, board);
  // What the adapter shows now; registers need not keep what is written into them.
  uint32_t now = 0;
  if (!args.slim()) {
    status = ReadCtlReg(number, &now, offset);
  } else {
    uint8_t bytes[sizeof now];
    status = ReadMem(number, bytes, offset, sizeof bytes);
    memcpy(&now, bytes, sizeof now);
  }
  if (status != 0) throw space_failure(status, "reading back", args.slim(), offset, board);
  ctx.show(make_table(reg_schema, word_columns, std::vector<Word>{{board, offset, now}}));
  if (now != value)
    ctx.note("it reads " + human(now, Kind::hex) + " after " + human(value, Kind::hex) + " was written");
}

void read_pci(Context &ctx, const Args &args) {
  ctx.document(pci_schema);
  const uint32_t offset = number(args.offset);
  const Board &board = ctx.boards.find(args.board);
  std::vector<uint8_t> bytes(args.count);
  const uint32_t status =
      HCX_ReadPciCfg(static_cast<uint32_t>(board.number), bytes.data(), offset, args.count);
  if (status != 0)
    throw call_failure(Family::vendor, status,
                       "reading " + std::to_string(args.count) + " bytes of PCI configuration space at " +
                           human(offset, Kind::hex),
                       board.name(), "only root sees more than the first 64 bytes");
  std::vector<Bytes> rows;
  for (size_t i = 0; i < bytes.size(); i += 16)
    rows.push_back({board,
                    offset + static_cast<uint32_t>(i),
                    {bytes.begin() + static_cast<ptrdiff_t>(i),
                     bytes.begin() + static_cast<ptrdiff_t>(std::min(bytes.size(), i + 16))}});
  ctx.show(make_table(pci_schema, byte_columns, rows));
}

}  // namespace

void add_reg(CLI::App &root, Context &ctx) {
  auto args = std::make_shared<Args>();
  CLI::App *noun = add_noun(root, "reg", "Control registers and SLI memory");
  CLI::App *reader = add_verb(*noun, "read", "Read words, in the processor's order", ctx,
                              [args](Context &c) { read(c, *args); });
  CLI::App *writer = add_verb(*noun, "write", "Write a word", ctx, [args](Context &c) { write(c, *args); });
  for (CLI::App *verb : {reader, writer}) {
    verb->add_option("BOARD", args->board, board_help)->required()->type_name("");
    verb->add_option("OFFSET", args->offset, "Byte offset, a multiple of 4")->required()->type_name("");
    verb->add_option("--space", args->space, "Registers (\"ctlreg\", unless given) or SLI memory (\"slim\")")
        ->check(CLI::IsMember({"ctlreg", "slim"}).description(""))
        ->type_name("ctlreg|slim");
  }
  reader->add_option("--count", args->count, "Number of words, 1 unless given")
      ->check(CLI::Range(1U, 65536U).description(""))
      ->type_name("N");
  writer->add_option("VALUE", args->value, "Decimal, or hexadecimal with 0x")->required()->type_name("");
}

void add_pci(CLI::App &root, Context &ctx) {
  auto args = std::make_shared<Args>();
  args->count = 64;
  CLI::App *noun = add_noun(root, "pci", "PCI configuration space");
  CLI::App *reader = add_verb(*noun, "read", "Read bytes", ctx, [args](Context &c) { read_pci(c, *args); });
  reader->add_option("BOARD", args->board, board_help)->required()->type_name("");
  reader->add_option("OFFSET", args->offset, "Byte offset, 0 unless given")->type_name("");
  reader->add_option("--count", args->count, "Number of bytes, 64 unless given")
      ->check(CLI::Range(1U, page).description(""))
      ->type_name("N");
}

}  // namespace hcxadm
