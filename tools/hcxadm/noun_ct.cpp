// SPDX-License-Identifier: BSD-3-Clause
// "ct": a CT request to a server of the fabric or to a port.
#include "bytes.h"
#include "nouns.h"

namespace hcxadm {
namespace {

using bytes::Bytes;

constexpr Schema schema{"hcxadm.ct", 1, 0};
constexpr size_t header_size = 16;  // of a CT information unit
constexpr size_t most = 65536;
constexpr uint32_t accept_code = 0x8002, reject_code = 0x8001;

struct Arguments {
  std::string board;
  std::vector<std::string> words;
  std::string to;
  std::string in;
  std::string out;
  uint32_t room = 4096;
  uint32_t timeout = 60000;
};

struct Answer {
  Board board;
  std::string to;  // address or name
  Bytes data;
  bool to_file;

  uint32_t code() const { return bytes::big16(data, 8); }
  bool rejected() const { return code() == reject_code; }
  Value reject_byte(size_t at) const { return rejected() && at < data.size() ? Value(data[at]) : Value(); }
};

const ColumnOf<Answer> columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Answer &a) { return Value(a.board.number); }},
    {"host", "HOST", Kind::text, In::rows,
     [](const Answer &a) { return Value("host" + std::to_string(a.board.host)); }},
    {"to", "TO", Kind::text, In::rows, [](const Answer &a) { return Value(a.to); }},
    {"answer", "ANSWER", Kind::text, In::rows,
     [](const Answer &a) {
       return a.code() == accept_code ? Value("accept") : a.rejected() ? Value("reject") : Value();
     }},
    {"reason", "REASON", Kind::hex, In::rows, [](const Answer &a) { return a.reject_byte(13); }},
    {"explanation", "EXPLANATION", Kind::hex, In::rows, [](const Answer &a) { return a.reject_byte(14); }},
    {"vendor", "VENDOR", Kind::hex, In::rows, [](const Answer &a) { return a.reject_byte(15); }},
    {"bytes", "BYTES", Kind::number, In::rows, [](const Answer &a) { return Value(a.data.size()); }},
    {"data", "DATA", Kind::nested, In::rows,
     [](const Answer &a) { return a.to_file ? Value() : Value(bytes::digits(a.data)); }},
};

// A result that is no length: a negated errno, or the driver's own number.
Failure send_failure(int result, const std::string &tried, const Board &board) {
  return call_failure(Family::sys, result, tried, board.name(), "is the port there? See \"hcxadm port\"");
}

void send_to_port(const Arguments &args, HBA_WWN name, Bytes &request, Answer &answer) {
  uint32_t count = args.room;
  answer.to = wwn_text(name.wwn);
  SendMgmtCommand(static_cast<uint32_t>(answer.board.number), &name, request.data(),
                  static_cast<uint32_t>(request.size()), answer.data.data(), &count, args.timeout);
  const int received = static_cast<int>(count);
  if (received < 0 || count > args.room)
    throw send_failure(received, "CT to port " + answer.to, answer.board);
  answer.data.resize(count);
}

void send_to_address(const Arguments &args, uint32_t address, Bytes &request, Answer &answer) {
  answer.to = human(address, Kind::hex24);
  const int received = GetCTInfo(static_cast<uint32_t>(answer.board.number), address, request.data(),
                                 static_cast<uint32_t>(request.size()), answer.data.data(), args.room);
  if (received < 0 || static_cast<uint32_t>(received) > args.room)
    throw send_failure(received, "CT to " + answer.to, answer.board);
  answer.data.resize(static_cast<uint32_t>(received));
}

void send_by_type(const Arguments &args, Bytes &request, Answer &answer) {
  uint32_t size = args.room;
  answer.to = "server of GS type " + human(request[4], Kind::hex);
  const uint32_t result = SendCTPassThru(static_cast<uint32_t>(answer.board.number), request.data(),
                                         static_cast<uint32_t>(request.size()), answer.data.data(), &size);
  if (result != 0) throw call_failure(Family::hba, result, "CT to the " + answer.to, answer.board.name());
  answer.data.resize(size);
}

void ct(Context &ctx, const Arguments &args) {
  ctx.document(schema);
  Bytes request = args.in.empty() ? bytes::parse(args.words) : bytes::read_file(args.in, most);
  if (request.size() < header_size || (!args.in.empty() && !args.words.empty()))
    throw Failure({.status = kUsage,
                   .tried = "no CT request",
                   .board = {},
                   .code = {},
                   .name = {},
                   .todo = "give it with its 16-byte header, as BYTEs or with --in"});
  Answer answer{ctx.boards.find(args.board), {}, Bytes(args.room), !args.out.empty()};
  const auto address = parse_number(args.to, 16);
  if (args.to.empty()) {
    send_by_type(args, request, answer);
  } else if (const auto name = parse_wwn(args.to)) {
    send_to_port(args, *name, request, answer);
  } else if (address && *address <= 0xffffff) {
    send_to_address(args, static_cast<uint32_t>(*address), request, answer);
  } else {
    throw Failure({.status = kUsage,
                   .tried = "\"" + args.to + "\" is no destination",
                   .board = {},
                   .code = {},
                   .name = {},
                   .todo = "give a WWPN or a well-known address such as 0xfffffc"});
  }
  if (answer.to_file) bytes::write_file(args.out, answer.data);
  ctx.show(make_table(schema, columns, std::vector<Answer>{answer}), Layout::record);
  if (!ctx.json() && !answer.to_file) ctx.out << bytes::dump(answer.data);
  if (answer.rejected())
    ctx.report({.status = kFailed,
                .tried = "CT to " + answer.to,
                .board = answer.board.name(),
                .code = {},
                .name = "rejected, reason " + human(answer.reject_byte(13), Kind::hex) + " explanation " +
                        human(answer.reject_byte(14), Kind::hex),
                .todo = {}});
}

}  // namespace

void add_ct(CLI::App &root, Context &ctx) {
  auto args = std::make_shared<Arguments>();
  CLI::App *verb = add_verb(root, "ct", "Send a CT request to the fabric or to a port", ctx,
                            [args](Context &c) { ct(c, *args); });
  verb->add_option("BOARD", args->board, board_help)->required()->type_name("");
  verb->add_option("BYTE", args->words, "The request in hexadecimal, CT header first")->type_name("");
  verb->add_option("--to", args->to, "WWPN of a port or well-known address; else by GS type")
      ->type_name("PORT");
  verb->add_option("--in", args->in, "File with the request")->type_name("FILE");
  verb->add_option("--out", args->out, "Where the answer is written")->type_name("FILE");
  verb->add_option("--room", args->room, "Longest answer in bytes")
      ->type_name("N")
      ->check(CLI::Range(16, 65536));
  verb->add_option("--timeout", args->timeout, "With a WWPN: time to wait in milliseconds")->type_name("MS");
}

}  // namespace hcxadm
