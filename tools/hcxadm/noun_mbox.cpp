// SPDX-License-Identifier: BSD-3-Clause
// "mbox": one mailbox command to an adapter, as words. What may change the adapter asks first.
#include <algorithm>
#include <array>
#include <cstdio>

#include "bytes.h"
#include "nouns.h"

namespace hcxadm {
namespace {

using bytes::Bytes;

constexpr Schema schema{"hcxadm.mbox", 1, 0};
constexpr size_t block_size = 256;
constexpr size_t ext_size = 2048;  // external data of an SLI-3 command
constexpr size_t most_data = 65536;
constexpr uint8_t data_after_word = 5;

struct Command {
  const char *name;
  uint8_t code;
  bool changes;  // flash, state or traffic of the adapter
};

constexpr Command commands[] = {
    {"read-nv", MBX_READ_NV, false},
    {"write-nv", MBX_WRITE_NV, true},
    {"read-status", MBX_READ_STATUS, false},
    {"read-rev", MBX_READ_REV, false},
    {"read-lnk-stat", MBX_READ_LNK_STAT, false},
    {"dump-memory", MBX_DUMP_MEMORY, false},
    {"restart", MBX_RESTART, true},
    {"update-cfg", MBX_UPDATE_CFG, true},
    {"down-load", MBX_DOWN_LOAD, true},
    {"del-ld-entry", MBX_DEL_LD_ENTRY, true},
    {"set-variable", MBX_SET_VARIABLE, true},
    {"beacon", MBX_BEACON, false},
    {"write-vparms", MBX_WRITE_VPARMS, true},
    {"read-event-log-status", MBX_READ_EVENT_LOG_STATUS, false},
    {"read-event-log", MBX_READ_EVENT_LOG, false},
    {"load-area", MBX_LOAD_AREA, true},
    {"run-biu-diag64", MBX_RUN_BIU_DIAG64, false},
    {"sli-config", MBX_SLI_CONFIG, true},  // but see below
    {"load-exp-rom", MBX_LOAD_EXP_ROM, true},
};

struct Arguments {
  std::string board;
  std::string command;
  std::vector<std::string> words;
  std::string in;
  std::string out;
  uint32_t retries = 5;
  uint32_t delay = 100;
};

Failure usage(const std::string &tried, const std::string &todo) {
  return Failure({.status = kUsage, .tried = tried, .board = {}, .code = {}, .name = {}, .todo = todo});
}

uint8_t code_of(const std::string &word) {
  for (const Command &command : commands)
    if (word == command.name) return command.code;
  const auto number = parse_number(word, 16);
  if (!number || *number > 0xff)
    throw usage("no mailbox command \"" + word + "\"",
                "give a name from hcxadm-mbox(8) or a code such as 0x11");
  return static_cast<uint8_t>(*number);
}

std::string name_of(uint8_t code) {
  for (const Command &command : commands)
    if (code == command.code) return command.name;
  char text[8];
  std::snprintf(text, sizeof text, "0x%02x", code);
  return text;
}

// One command on its way: the block, what goes along, what came back.
struct Mailbox {
  Board board;
  Arguments args;
  uint8_t code = 0;
  Bytes memory = Bytes(block_size);  // the block; on SLI-4 external data stand behind it
  Bytes in;
  Bytes data;  // external result
  uint32_t result = 0;

  uint32_t word(unsigned index) const { return hcx_mbox_word(memory.data(), index); }
  void set_word(unsigned index, uint32_t value) { hcx_mbox_set_word(memory.data(), index, value); }
  void set_address(unsigned index, const void *at) {
    const uint64_t address = reinterpret_cast<uintptr_t>(at);
    set_word(index, static_cast<uint32_t>(address));
    set_word(index + 1, static_cast<uint32_t>(address >> 32));
  }
  MAILBOX_t *block() { return reinterpret_cast<MAILBOX_t *>(memory.data()); }
  uint32_t number() const { return static_cast<uint32_t>(board.number); }
};

Mailbox make_mailbox(Context &ctx, const Arguments &args) {
  Mailbox mailbox;
  mailbox.code = code_of(args.command);
  if (args.words.size() > 63) throw usage("too many words", "a mailbox has words 1 to 63 behind the command");
  hcx_mbox_set_command(mailbox.memory.data(), mailbox.code);
  unsigned index = 1;
  for (const std::string &word : args.words) {
    const auto value = parse_number(word, 16);
    if (!value || *value > UINT32_MAX)
      throw usage("\"" + word + "\" is no word", "give up to 8 hexadecimal digits");
    mailbox.set_word(index++, static_cast<uint32_t>(*value));
  }
  mailbox.args = args;
  if (!args.in.empty()) mailbox.in = bytes::read_file(args.in, most_data);
  mailbox.board = ctx.boards.find(args.board);
  return mailbox;
}

// Bytes that the block says stand, or will stand, behind it.
size_t external_size(const Mailbox &mailbox) {
  constexpr uint32_t low_24 = 0xffffff;
  if (mailbox.code == MBX_DUMP_MEMORY) return std::min<size_t>(mailbox.word(3), most_data);
  if (mailbox.code != MBX_SLI_CONFIG) return 0;
  const bool embedded = (mailbox.word(1) & 1) != 0;
  const uint32_t count =
      embedded ? std::min(mailbox.word(38), 8u) : std::min(mailbox.word(1) >> 3 & 0x1f, 19u);
  size_t size = 0;
  for (uint32_t i = 0; i < count; ++i)
    size += mailbox.word((embedded ? 39 : 8) + 3 * i) & low_24;
  return std::min(size, most_data);
}

// Whether the command may change the adapter. Configuration commands carry an operation that decides.
bool changes(const Mailbox &mailbox) {
  constexpr uint32_t reads[] = {0x0c08, 0x0120, 0x0179}, embedded_reads[] = {0x01ab, 0x01ad};
  if (mailbox.code == MBX_SLI_CONFIG) {
    const bool embedded = (mailbox.word(1) & 1) != 0;
    const uint32_t operation = (embedded ? mailbox.word(6) : bytes::big32(mailbox.in, 0)) & 0xffff;
    return embedded ? std::ranges::count(embedded_reads, operation) == 0
                    : std::ranges::count(reads, operation) == 0;
  }
  for (const Command &command : commands)
    if (mailbox.code == command.code) return command.changes;
  return true;
}

void issue_sli4(Mailbox &mailbox) {
  const size_t size = (std::max(mailbox.in.size(), external_size(mailbox)) + 3) / 4 * 4;
  mailbox.memory.resize(block_size + size);
  std::copy(mailbox.in.begin(), mailbox.in.end(), mailbox.memory.begin() + block_size);
  mailbox.result = HCX_IssueMboxWithRetryV2(mailbox.number(), mailbox.block(),
                                            static_cast<uint32_t>(mailbox.memory.size() / 4),
                                            mailbox.args.retries, mailbox.args.delay);
  mailbox.data.assign(mailbox.memory.begin() + block_size, mailbox.memory.end());
  mailbox.memory.resize(block_size);
  if (mailbox.result != 0) mailbox.data.clear();
  if (mailbox.code == MBX_DUMP_MEMORY)
    mailbox.data.resize(std::min<size_t>(mailbox.data.size(), mailbox.word(6)));
}

void issue_sli3(Mailbox &mailbox) {
  if (mailbox.in.size() > ext_size)
    throw usage("\"" + mailbox.args.in + "\" is too long", "this adapter takes at most 2048 bytes");
  mailbox.data = mailbox.in;
  mailbox.data.resize(ext_size);
  uint32_t out_words = mailbox.args.out.empty() ? 0 : ext_size / 4;
  if (mailbox.code == MBX_DUMP_MEMORY) out_words = std::min<uint32_t>(mailbox.word(4), ext_size / 4);
  mailbox.result =
      HCX_IssueMboxWithRetryEx(mailbox.number(), mailbox.block(), mailbox.data.data(), data_after_word,
                               static_cast<uint32_t>((mailbox.in.size() + 3) / 4), out_words,
                               mailbox.args.retries, mailbox.args.delay);
  if (mailbox.code == MBX_DUMP_MEMORY) out_words = std::min(out_words, mailbox.word(4));
  mailbox.data.resize(mailbox.result == 0 ? size_t{4} * out_words : 0);
}

// Commands whose data go through memory of this process rather than behind the block.
void issue_by_address(Mailbox &mailbox) {
  constexpr uint32_t low_24 = 0xffffff;
  const bool diagnostic = mailbox.code == MBX_RUN_BIU_DIAG64;
  if (diagnostic && !mailbox.in.empty()) {
    mailbox.set_word(2, static_cast<uint32_t>(mailbox.in.size()));
    mailbox.set_word(5, static_cast<uint32_t>(mailbox.in.size()));
  }
  mailbox.data.resize(mailbox.word(diagnostic ? 5 : 3) & low_24);
  mailbox.in.resize(mailbox.word(2) & low_24);
  if (diagnostic) mailbox.set_address(3, mailbox.in.data());
  mailbox.set_address(diagnostic ? 6 : 4, mailbox.data.data());
  if (mailbox.board.sli_mode >= 4) {
    mailbox.result = HCX_IssueMboxWithRetryV2(mailbox.number(), mailbox.block(), block_size / 4,
                                              mailbox.args.retries, mailbox.args.delay);
  } else {
    mailbox.result = HCX_IssueMboxWithRetry(mailbox.number(), mailbox.block(), 32, 128, mailbox.args.retries,
                                            mailbox.args.delay);
  }
  if (mailbox.result != 0) mailbox.data.clear();
}

// What words of a reply say, where that does not depend on the firmware.
std::string meaning(const Mailbox &mailbox, unsigned index) {
  const bool sli4 = mailbox.board.sli_mode >= 4;
  const uint32_t value = mailbox.word(index);
  const struct {
    uint8_t code;
    unsigned index;
    bool applies;
    std::string text;
  } rows[] = {
      {MBX_READ_REV, 6, true, "FC-PH level, highest: " + std::to_string(value >> 8 & 0xff)},
      {MBX_DUMP_MEMORY, 6, sli4, "bytes delivered: " + std::to_string(value)},
      {MBX_DUMP_MEMORY, 4, !sli4, "words delivered: " + std::to_string(value)},
      {MBX_UPDATE_CFG, 3, true, "response: " + std::to_string(static_cast<int32_t>(value))},
      {MBX_UPDATE_CFG, 4, true, "bytes written: " + std::to_string(value)},
      {MBX_SET_VARIABLE, 1, true, "variable"},
      {MBX_SET_VARIABLE, 2, true, "value: " + std::to_string(value)},
  };
  if (index == 0) return name_of(hcx_mbox_command(mailbox.memory.data()));
  for (const auto &row : rows)
    if (row.code == mailbox.code && row.index == index && row.applies) return row.text;
  return {};
}

void show_reply(Context &ctx, const Mailbox &mailbox) {
  unsigned last = mailbox.board.sli_mode >= 4 ? 63 : 31;
  while (last > 0 && mailbox.word(last) == 0)
    --last;
  Value words = Value::array();
  std::string lines;
  for (unsigned index = 0; index <= last; ++index) {
    char text[48];
    std::snprintf(text, sizeof text, "%08x", mailbox.word(index));
    words.push_back(text);
    const std::string note = meaning(mailbox, index);
    lines += (index < 10 ? " " : "") + std::to_string(index) + "  " + text + (note.empty() ? "" : "  ") +
             note + "\n";
  }
  const unsigned status = hcx_mbox_status(mailbox.memory.data());
  Table table{schema, {}, {{}}};
  const auto add = [&](const char *key, const char *title, Kind kind, Value value) {
    table.columns.push_back({key, title, kind, In::rows});
    table.rows[0].push_back(std::move(value));
  };
  add("board", "BOARD", Kind::number, mailbox.board.number);
  add("host", "HOST", Kind::text, "host" + std::to_string(mailbox.board.host));
  add("command", "COMMAND", Kind::text, name_of(mailbox.code));
  add("code", "CODE", Kind::hex, mailbox.code);
  add("status", "STATUS", Kind::number, status);
  add("status_name", "STATUS NAME", Kind::text, status_name(Family::mailbox, status));
  add("words", "WORDS", Kind::nested, words);
  add("bytes", "DATA BYTES", Kind::number, mailbox.data.size());
  add("data", "DATA", Kind::nested, mailbox.args.out.empty() ? Value(bytes::digits(mailbox.data)) : Value());
  ctx.show(table, Layout::record);
  if (ctx.json()) return;
  ctx.out << lines;
  if (mailbox.args.out.empty()) ctx.out << bytes::dump(mailbox.data);
}

void mbox(Context &ctx, const Arguments &args) {
  ctx.document(schema);
  Mailbox mailbox = make_mailbox(ctx, args);
  const std::string tried = "mailbox command " + name_of(mailbox.code);
  if (!mailbox.board.sli_mode)
    throw Failure({.status = kNotSupported,
                   .tried = tried,
                   .board = mailbox.board.name(),
                   .code = {},
                   .name = "the SLI mode of the adapter is unknown",
                   .todo = {}});
  if (changes(mailbox) && !ctx.confirm("send " + tried + " to " + mailbox.board.name())) return;
  if (mailbox.code == MBX_RUN_BIU_DIAG64 ||
      (mailbox.code == MBX_READ_EVENT_LOG && !(mailbox.word(1) >> 29 & 1))) {
    issue_by_address(mailbox);
  } else if (*mailbox.board.sli_mode >= 4) {
    issue_sli4(mailbox);
  } else {
    issue_sli3(mailbox);
  }
  const unsigned status = hcx_mbox_status(mailbox.memory.data());
  if (mailbox.result != 0 && (status == 0 || status == MBX_STATUS_INTERNAL_DRIVER_ERROR))
    throw call_failure(Family::vendor,
                       mailbox.result == 5   ? 3
                       : mailbox.result == 2 ? 1
                                             : mailbox.result,
                       tried, mailbox.board.name(), "see \"hcxadm log\" for the reason");
  if (mailbox.result == 0 && !args.out.empty()) bytes::write_file(args.out, mailbox.data);
  show_reply(ctx, mailbox);
  if (mailbox.result != 0)
    ctx.report(call_failure(Family::mailbox, status, tried, mailbox.board.name()).problem());
}

}  // namespace

void add_mbox(CLI::App &root, Context &ctx) {
  auto args = std::make_shared<Arguments>();
  CLI::App *verb =
      add_verb(root, "mbox", "Issue an adapter mailbox command", ctx, [args](Context &c) { mbox(c, *args); });
  verb->add_option("BOARD", args->board, board_help)->required()->type_name("");
  verb->add_option("COMMAND", args->command, "Name (read-rev) or code (0x11)")->required()->type_name("");
  verb->add_option("WORD", args->words, "Words 1, 2, ... in hexadecimal")->type_name("");
  verb->add_option("--in", args->in, "Data that go along with the command")->type_name("FILE");
  verb->add_option("--out", args->out, "Where data that come back are written")->type_name("FILE");
  verb->add_option("--retries", args->retries, "How often to try again while the firmware is busy")
      ->type_name("N");
  verb->add_option("--delay", args->delay, "Time between attempts in milliseconds")->type_name("MS");
}

}  // namespace hcxadm
