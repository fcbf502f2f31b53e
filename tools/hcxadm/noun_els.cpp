// SPDX-License-Identifier: BSD-3-Clause
// "els" and "rnid": an extended link service request to a remote port, and node identification on top of it.
#include "bytes.h"
#include "nouns.h"

namespace hcxadm {
namespace {

using bytes::Bytes;

constexpr Schema els_schema{"hcxadm.els", 1, 0};
constexpr Schema rnid_schema{"hcxadm.rnid", 1, 0};
constexpr size_t most = 65536;
constexpr uint32_t reject_size = 8;
constexpr uint8_t topology_format = 0xdf;

struct Arguments {
  std::string board;
  std::string to;
  std::vector<std::string> words;
  std::string in;
  std::string out;
  uint32_t room = 2048;
  bool node = false;
};

struct Answer {
  Board board;
  std::string to;
  uint8_t code;
  bool rejected;
  bool to_file;
  Bytes data;

  Value reject_byte(size_t at) const { return rejected && at < data.size() ? Value(data[at]) : Value(); }
};

const ColumnOf<Answer> els_columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Answer &a) { return Value(a.board.number); }},
    {"host", "HOST", Kind::text, In::rows,
     [](const Answer &a) { return Value("host" + std::to_string(a.board.host)); }},
    {"to", "TO", Kind::text, In::rows, [](const Answer &a) { return Value(a.to); }},
    {"code", "ELS", Kind::hex, In::rows, [](const Answer &a) { return Value(a.code); }},
    {"answer", "ANSWER", Kind::text, In::rows,
     [](const Answer &a) { return Value(a.rejected ? "reject" : "accept"); }},
    {"reason", "REASON", Kind::hex, In::rows, [](const Answer &a) { return a.reject_byte(5); }},
    {"explanation", "EXPLANATION", Kind::hex, In::rows, [](const Answer &a) { return a.reject_byte(6); }},
    {"vendor", "VENDOR", Kind::hex, In::rows, [](const Answer &a) { return a.reject_byte(7); }},
    {"data", "DATA", Kind::nested, In::rows,
     [](const Answer &a) { return a.rejected || a.to_file ? Value() : Value(bytes::digits(a.data)); }},
};

Failure no_destination(const std::string &word) {
  return Failure({.status = kUsage,
                  .tried = "\"" + word + "\" is no port",
                  .board = {},
                  .code = {},
                  .name = {},
                  .todo = "give a WWPN or an FC address, as \"hcxadm port\" shows them"});
}

std::string reject_text(const Bytes &record) {
  return "rejected, reason " + human(bytes::big16(record, 4) & 0xff, Kind::hex) + " explanation " +
         human(bytes::big16(record, 6) >> 8, Kind::hex);
}

DestID destination(const std::string &word) {
  DestID dest = {};
  if (const auto name = parse_wwn(word)) {
    dest.wwn = *name;
    return dest;
  }
  const auto address = parse_number(word, 16);
  if (!address || *address > 0xffffff) throw no_destination(word);
  dest.type = 1;
  dest.d_id = static_cast<uint32_t>(*address);
  return dest;
}

void els(Context &ctx, const Arguments &args) {
  ctx.document(els_schema);
  DestID dest = destination(args.to);
  Bytes request = args.in.empty() ? bytes::parse(args.words) : bytes::read_file(args.in, most);
  if (request.size() < 4 || (!args.in.empty() && !args.words.empty()))
    throw Failure({.status = kUsage,
                   .tried = "no ELS request",
                   .board = {},
                   .code = {},
                   .name = {},
                   .todo = "give at least its command word, as BYTEs or with --in"});
  Answer answer{ctx.boards.find(args.board), args.to, request[0], false, !args.out.empty(), Bytes(args.room)};
  answer.to = dest.type == 1 ? human(dest.d_id, Kind::hex24) : wwn_text(dest.wwn.wwn);
  const std::string tried = "ELS " + human(request[0], Kind::hex) + " to " + answer.to;
  uint32_t size = args.room;
  const uint32_t result = HCX_SendELSCmd(static_cast<uint32_t>(answer.board.number), &dest, request.data(),
                                         static_cast<uint32_t>(request.size()), answer.data.data(), &size);
  if (result != 0)
    throw Failure({.status = kFailed,
                   .tried = tried,
                   .board = answer.board.name(),
                   .code = static_cast<int>(result),
                   .name = "no answer",
                   .todo = "is the port there? See \"hcxadm port\""});
  answer.rejected = size != args.room;
  answer.data.resize(size);
  // The length of an accepted answer is not told.
  while (!answer.rejected && answer.data.size() > 4 && answer.data.back() == 0)
    answer.data.pop_back();
  if (answer.to_file && !answer.rejected) bytes::write_file(args.out, answer.data);
  ctx.show(make_table(els_schema, els_columns, std::vector<Answer>{answer}), Layout::record);
  if (!ctx.json() && !answer.to_file && !answer.rejected) ctx.out << bytes::dump(answer.data);
  if (answer.rejected)
    ctx.report({.status = kFailed,
                .tried = tried,
                .board = answer.board.name(),
                .code = {},
                .name = reject_text(answer.data),
                .todo = {}});
}

// General topology data: an ELS header of 8 bytes, the two names, then these.
struct Identity {
  Board board;
  Value wwpn, wwnn, unit_type, port_number, attached_nodes, ip_version, udp_port, ip_address, flags;
};

const ColumnOf<Identity> rnid_columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Identity &i) { return Value(i.board.number); }},
    {"host", "HOST", Kind::text, In::rows,
     [](const Identity &i) { return Value("host" + std::to_string(i.board.host)); }},
    {"wwpn", "WWPN", Kind::text, In::rows, [](const Identity &i) { return i.wwpn; }},
    {"wwnn", "WWNN", Kind::text, In::rows, [](const Identity &i) { return i.wwnn; }},
    {"unit_type", "UNIT TYPE", Kind::number, In::rows, [](const Identity &i) { return i.unit_type; }},
    {"port_number", "PORT NUMBER", Kind::hex, In::rows, [](const Identity &i) { return i.port_number; }},
    {"attached_nodes", "ATTACHED NODES", Kind::number, In::rows,
     [](const Identity &i) { return i.attached_nodes; }},
    {"ip_version", "IP VERSION", Kind::number, In::rows, [](const Identity &i) { return i.ip_version; }},
    {"udp_port", "UDP PORT", Kind::number, In::rows, [](const Identity &i) { return i.udp_port; }},
    {"ip_address", "IP ADDRESS", Kind::text, In::rows, [](const Identity &i) { return i.ip_address; }},
    {"flags", "FLAGS", Kind::hex, In::rows, [](const Identity &i) { return i.flags; }},
};

Identity own_identity(const Board &board) {
  HBA_MGMTINFO info = {};
  const uint32_t result = GetRNIDMgmtInfo(static_cast<uint32_t>(board.number), &info);
  if (result != 0) throw call_failure(Family::hba, result, "reading the node identification", board.name());
  return {board,
          wwn_value(board.wwpn.wwn),
          wwn_value(info.wwn.wwn),
          info.unittype,
          info.PortId,
          info.NumberOfAttachedNodes,
          {},
          {},
          {},
          info.TopologyDiscoveryFlags};
}

Identity remote_identity(const Board &board, const Arguments &args) {
  auto name = parse_wwn(args.to);
  if (!name) throw no_destination(args.to);
  const std::string tried = "RNID to " + wwn_text(name->wwn);
  Bytes data(args.room);
  uint32_t size = args.room;
  const uint32_t result =
      SendRNID(static_cast<uint32_t>(board.number), &*name, args.node ? 0 : 1, data.data(), &size);
  data.resize(std::min(size, args.room));
  if (result != 0)
    throw Failure({.status = kFailed,
                   .tried = tried,
                   .board = board.name(),
                   .code = result,
                   .name = size == reject_size ? reject_text(data) : "no answer",
                   .todo = size == reject_size ? "" : "is the port there? See \"hcxadm port\""});
  Identity identity{board, {}, {}, {}, {}, {}, {}, {}, {}, {}};
  if (data.size() < 24) return identity;
  identity.wwpn = wwn_value(data.data() + 8);
  identity.wwnn = wwn_value(data.data() + 16);
  constexpr size_t specific = 24;  // after 16 vendor bytes, in words of the general topology format
  if (data[4] != topology_format || data.size() < specific + 52) return identity;
  identity.unit_type = bytes::big32(data, specific + 16);
  identity.port_number = bytes::big32(data, specific + 20);
  identity.attached_nodes = bytes::big32(data, specific + 24);
  identity.ip_version = data[specific + 29];
  identity.udp_port = bytes::big16(data, specific + 30);
  identity.ip_address = bytes::digits(Bytes(data.begin() + specific + 32, data.begin() + specific + 48));
  identity.flags = bytes::big16(data, specific + 50);
  return identity;
}

void rnid(Context &ctx, const Arguments &args) {
  ctx.document(rnid_schema);
  const Board &board = ctx.boards.find(args.board);
  const Identity identity = args.to.empty() ? own_identity(board) : remote_identity(board, args);
  ctx.show(make_table(rnid_schema, rnid_columns, std::vector<Identity>{identity}), Layout::record);
}

}  // namespace

void add_els(CLI::App &root, Context &ctx) {
  auto args = std::make_shared<Arguments>();
  CLI::App *verb = add_verb(root, "els", "Send an extended link service request to a remote port", ctx,
                            [args](Context &c) { els(c, *args); });
  verb->add_option("BOARD", args->board, board_help)->required()->type_name("");
  verb->add_option("PORT", args->to, "WWPN or FC address of the remote port")->required()->type_name("");
  verb->add_option("BYTE", args->words, "The request in hexadecimal, command code first")->type_name("");
  verb->add_option("--in", args->in, "File with the request")->type_name("FILE");
  verb->add_option("--out", args->out, "Where the answer is written")->type_name("FILE");
  verb->add_option("--room", args->room, "Longest answer in bytes")
      ->type_name("N")
      ->check(CLI::Range(16, 65536));
}

void add_rnid(CLI::App &root, Context &ctx) {
  auto args = std::make_shared<Arguments>();
  CLI::App *verb = add_verb(root, "rnid", "Show the node identification of a remote port, or the board's own",
                            ctx, [args](Context &c) { rnid(c, *args); });
  verb->add_option("BOARD", args->board, board_help)->required()->type_name("");
  verb->add_option("NAME", args->to, "WWPN of the remote port, with --node its WWNN")->type_name("");
  verb->add_flag("--node", args->node, "NAME is a node name");
}

}  // namespace hcxadm
