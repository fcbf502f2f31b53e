// SPDX-License-Identifier: BSD-3-Clause
// "fcf": the forwarders that an FCoE port knows, and the list of those that it may use. "fip": its FIP parameters.
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "change.h"
#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema list_schema{"hcxadm.fcf.list", 1, 0};
constexpr Schema connect_schema{"hcxadm.fcf.connect", 1, 0};
constexpr Schema fip_schema{"hcxadm.fip", 1, 0};
constexpr uint32_t more_data = 7;
constexpr size_t most_connections = 16;
constexpr uint32_t most_vlan = 4095;

void check(uint32_t result, const std::string &tried, const Board &board) {
  if (result == 0) return;
  throw call_failure(Family::vendor, result, tried, board.name(),
                     result == 2 && board.protocol != "fcoe"
                         ? "only FCoE ports have this"
                         : "\"hcxadm log set error\" brings the reason into syslog");
}

std::string colons(const uint8_t *bytes, size_t count) {
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02x", bytes[i]);
    text.append(i ? ":" : "").append(digits);
  }
  return text;
}

// ---- list ----

struct Forwarder {
  Board board;
  HCX_FCoEFCFInfo info;
  bool active;
};

Value vlans(const HCX_FCoEFCFInfo &info) {
  Value list = Value::array();
  for (uint32_t id = 0; id <= most_vlan; ++id)
    if (info.vlanBitmap[id / 8] >> id % 8 & 1) list.push_back(id);
  return list;
}

const ColumnOf<Forwarder> list_columns[] = {
    {"board", "BOARD", Kind::number, In::record, [](const Forwarder &f) { return Value(f.board.number); }},
    {"host", "HOST", Kind::text, In::record, [](const Forwarder &f) { return Value(host_name(f.board)); }},
    {"fabric_name", "FABRIC", Kind::text, In::rows,
     [](const Forwarder &f) { return wwn_value(f.info.fabricName); }},
    {"switch_name", "SWITCH", Kind::text, In::rows,
     [](const Forwarder &f) { return wwn_value(f.info.switchName); }},
    {"mac", "MAC", Kind::text, In::rows, [](const Forwarder &f) { return Value(colons(f.info.mac, 6)); }},
    {"available", "AVAILABLE", Kind::flag, In::rows,
     [](const Forwarder &f) { return Value(f.info.state == 1); }},
    {"vlans", "VLANS", Kind::list, In::rows, [](const Forwarder &f) { return vlans(f.info); }},
    {"fc_map", "FC-MAP", Kind::text, In::rows,
     [](const Forwarder &f) { return Value(colons(f.info.fcMap, 3)); }},
    {"keep_alive_ms", "KEEP-ALIVE(ms)", Kind::number, In::rows,
     [](const Forwarder &f) { return Value(f.info.lkaPeriod); }},
    {"priority", "PRIORITY", Kind::number, In::rows,
     [](const Forwarder &f) { return Value(f.info.priority); }},
    {"logged_in", "LOGGED IN", Kind::flag, In::record, [](const Forwarder &f) { return Value(f.active); }},
};

void list(Context &ctx, const std::string &name) {
  ctx.document(list_schema);
  const Board &board = ctx.boards.find(name);
  std::vector<HCX_FCoEFCFInfo> memory;
  uint32_t result = more_data;
  HCX_FCoEFCFList *found = nullptr;
  // The table may grow between two calls.
  for (size_t room = 16; result == more_data && room <= UINT16_MAX;
       room = found->numberOfEntries + size_t{16}) {
    memory.assign(room + 1, {});
    found = reinterpret_cast<HCX_FCoEFCFList *>(memory.data());
    found->version = 1;
    found->numberOfEntries = static_cast<uint16_t>(room);
    result = HCX_FCoEGetFCFList(number_of(board), found);
  }
  check(result, "listing the forwarders", board);
  std::vector<Forwarder> rows;
  for (size_t i = 0; i < found->numberOfEntries; ++i)
    rows.push_back({board, found->entries[i], found->nActiveFCFs != 0});
  ctx.show(make_table(list_schema, list_columns, rows));
}

// ---- connect ----

struct Connection {
  Board board;
  HCX_FCoEFCFConnectEntry entry;
};

// The library takes a VLAN number as it stands in memory and gives it back with its bytes exchanged; in flash its low
// byte comes first.
uint16_t to_library(uint16_t vlan) {
  return std::endian::native == std::endian::little ? vlan : __builtin_bswap16(vlan);
}
uint16_t from_library(uint16_t vlan) {
  return std::endian::native == std::endian::little ? __builtin_bswap16(vlan) : vlan;
}

const ColumnOf<Connection> connect_columns[] = {
    {"board", "BOARD", Kind::number, In::record, [](const Connection &c) { return Value(c.board.number); }},
    {"host", "HOST", Kind::text, In::record, [](const Connection &c) { return Value(host_name(c.board)); }},
    {"fabric_name", "FABRIC", Kind::text, In::rows,
     [](const Connection &c) { return wwn_value(c.entry.fabricName); }},
    {"switch_name", "SWITCH", Kind::text, In::rows,
     [](const Connection &c) { return wwn_value(c.entry.switchName); }},
    {"vlan", "VLAN", Kind::number, In::rows, [](const Connection &c) { return Value(c.entry.vlanId); }},
    {"flags", "FLAGS", Kind::hex, In::rows, [](const Connection &c) { return Value(c.entry.flags); }},
};

// A connect list with room for all entries there can be.
struct ConnectList {
  ConnectList() {
    list()->version = 1;
    list()->numberOfEntries = most_connections;
  }
  HCX_FCoEConnectList *list() { return reinterpret_cast<HCX_FCoEConnectList *>(memory); }

  alignas(HCX_FCoEConnectList) uint8_t memory[offsetof(HCX_FCoEConnectList, entries) +
                                              most_connections * sizeof(HCX_FCoEFCFConnectEntry)] = {};
};

// With VLAN numbers as people know them.
std::vector<Connection> read_connections(const Board &board) {
  ConnectList list;
  check(HCX_FCoEGetFCFConnectList(number_of(board), list.list()), "reading the connect list", board);
  std::vector<Connection> rows;
  for (size_t i = 0; i < list.list()->numberOfEntries && i < most_connections; ++i) {
    rows.push_back({board, list.list()->entries[i]});
    rows.back().entry.vlanId = from_library(rows.back().entry.vlanId);
  }
  return rows;
}

void get_connections(Context &ctx, const std::string &name) {
  ctx.document(connect_schema);
  ctx.show(make_table(connect_schema, connect_columns, read_connections(ctx.boards.find(name))));
}

Lines connection_lines(const std::vector<Connection> &connections) {
  Lines lines;
  for (const Connection &c : connections) {
    char rest[48];
    std::snprintf(rest, sizeof rest, ", VLAN %u, flags 0x%02x", c.entry.vlanId, c.entry.flags);
    lines.push_back("fabric " + wwn_text(c.entry.fabricName) + ", switch " + wwn_text(c.entry.switchName) +
                    rest);
  }
  return lines;
}

HCX_FCoEFCFConnectEntry parse_connection(const std::string &text) {
  constexpr uint64_t known_flags = 0x3f;
  const auto pairs = parse_pairs(text, {"fabric", "switch", "vlan", "flags"});
  HCX_FCoEFCFConnectEntry entry{};
  for (const auto &[key, value] : pairs) {
    if (key == "vlan") {
      entry.vlanId = static_cast<uint16_t>(parse_limited("VLAN", value, most_vlan));
    } else if (key == "flags") {
      entry.flags = static_cast<uint16_t>(parse_limited("set of flags", value, known_flags) & ~1U);
    } else {
      const HBA_WWN wwn = parse_name(key + " name", value);
      memcpy(key == "fabric" ? entry.fabricName : entry.switchName, wwn.wwn, sizeof wwn.wwn);
    }
  }
  return entry;
}

void set_connections(Context &ctx, const std::string &name, const std::vector<std::string> &texts,
                     bool none) {
  ctx.document(connect_schema);
  if (texts.empty() != none)
    throw usage_failure(none ? "entries together with --none" : "no entry given",
                        "give entries such as vlan=1002, or --none for an empty list");
  if (texts.size() > most_connections) throw usage_failure("too many entries", "a port takes at most 16");
  const Board &board = ctx.boards.find(name);
  std::vector<Connection> wanted;
  wanted.reserve(texts.size());
  for (const std::string &text : texts)
    wanted.push_back({board, parse_connection(text)});
  const Lines after = connection_lines(wanted);
  if (!confirm_change(ctx, connection_lines(read_connections(board)), after,
                      "write a connect list of " + std::to_string(wanted.size()) +
                          " entries into the flash of " + board.name()))
    return;
  ConnectList list;
  list.list()->numberOfEntries = static_cast<uint8_t>(wanted.size());
  for (size_t i = 0; i < wanted.size(); ++i) {
    list.list()->entries[i] = wanted[i].entry;
    list.list()->entries[i].vlanId = to_library(wanted[i].entry.vlanId);
  }
  check(HCX_FCoESetFCFConnectList(number_of(board), list.list()), "writing the connect list", board);
  const std::vector<Connection> rows = read_connections(board);
  ctx.show(make_table(connect_schema, connect_columns, rows));
  if (connection_lines(rows) != after)
    throw Failure({.status = kFailed,
                   .tried = "writing the connect list",
                   .board = board.name(),
                   .code = {},
                   .name = "it does not read back as it was written",
                   .todo = "\"hcxadm region show\" shows what is there"});
}

// ---- fip ----

struct Fip {
  Board board;
  HCX_FCoEParam param;
};

const ColumnOf<Fip> fip_columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Fip &f) { return Value(f.board.number); }},
    {"host", "HOST", Kind::text, In::rows, [](const Fip &f) { return Value(host_name(f.board)); }},
    {"fc_map", "FC-MAP", Kind::text, In::rows, [](const Fip &f) { return Value(colons(f.param.FCMap, 3)); }},
    {"vlan", "VLAN", Kind::number, In::rows,
     [](const Fip &f) { return f.param.VLanId ? Value(f.param.VLanId) : Value(); }},
};

Fip read_fip(const Board &board) {
  Fip fip{board, {}};
  fip.param.version = 1;
  check(HCX_FCoEGetParams(number_of(board), &fip.param), "reading the FIP parameters", board);
  return fip;
}

// The library answers with defaults for a region that it could not read, too. A change on top of these would take away
// what flash holds.
void check_stored(const Board &board, const HCX_FCoEParam &param) {
  constexpr uint32_t fip_record = 0xa0, no_record = static_cast<uint32_t>(-ENOENT);
  uint8_t image[1024] = {};
  int32_t at = 0;
  uint16_t status = 0;
  const uint32_t result = get_r23_TLV(number_of(board), fip_record, image, &at, &status);
  if (result == no_record || status == 0xfffd) return;
  if (result == 0 && at >= 0 && at <= 1012) {
    const uint8_t *record = image + at;
    const int vlan = (record[3] & 1) != 0 ? record[8] | record[9] << 8 : 0;
    if (memcmp(record + 4, param.FCMap, sizeof param.FCMap) == 0 && vlan == param.VLanId) return;
  }
  throw Failure({.status = kFailed,
                 .tried = "reading the FIP parameters",
                 .board = board.name(),
                 .code = {},
                 .name = "region 23 cannot be read",
                 .todo = "\"hcxadm region show\" tells why"});
}

void get_fip(Context &ctx, const std::string &name) {
  ctx.document(fip_schema);
  ctx.show(make_table(fip_schema, fip_columns, std::vector<Fip>{read_fip(ctx.boards.find(name))}),
           Layout::record);
}

Lines fip_lines(const HCX_FCoEParam &param) {
  return {"FC-MAP " + colons(param.FCMap, 3),
          param.VLanId ? "VLAN " + std::to_string(param.VLanId) : std::string("no VLAN")};
}

void parse_fc_map(const std::string &text, HCX_FCoEParam &param) {
  std::string digits = text.starts_with("0x") ? text.substr(2) : text;
  std::erase(digits, ':');
  const std::optional<uint64_t> number = parse_number(digits, 16);
  if (digits.size() != 6 || !number)
    throw usage_failure("\"" + text + "\" is no FC-MAP", "give 3 bytes such as 0efc00");
  for (int i = 0; i < 3; ++i)
    param.FCMap[i] = static_cast<uint8_t>(*number >> (16 - 8 * i));
}

void set_fip(Context &ctx, const std::string &name, const std::string &fc_map, const std::string &vlan) {
  ctx.document(fip_schema);
  if (fc_map.empty() && vlan.empty()) throw usage_failure("nothing to set", "give --fc-map, --vlan or both");
  const Board &board = ctx.boards.find(name);
  const Fip before = read_fip(board);
  check_stored(board, before.param);
  HCX_FCoEParam wanted = before.param;
  if (!fc_map.empty()) parse_fc_map(fc_map, wanted);
  if (!vlan.empty())
    wanted.VLanId =
        vlan == "none" ? uint16_t{0} : static_cast<uint16_t>(parse_limited("VLAN", vlan, most_vlan));
  wanted.VLanValid = wanted.VLanId ? VLAN_ID_VALID : VLAN_ID_INVALID;
  if (!confirm_change(ctx, fip_lines(before.param), fip_lines(wanted),
                      "write the FIP parameters into the flash of " + board.name()))
    return;
  check(HCX_FCoESetParams(number_of(board), &wanted), "writing the FIP parameters", board);
  const Fip after = read_fip(board);
  ctx.show(make_table(fip_schema, fip_columns, std::vector<Fip>{after}), Layout::record);
  if (fip_lines(after.param) != fip_lines(wanted))
    throw Failure({.status = kFailed,
                   .tried = "writing the FIP parameters",
                   .board = board.name(),
                   .code = {},
                   .name = "they do not read back as they were written",
                   .todo = "\"hcxadm region show\" shows what is there"});
}

}  // namespace

void add_fcf(CLI::App &root, Context &ctx) {
  struct Args {
    std::string board;
    std::vector<std::string> entries;
    bool none = false;
  };
  auto args = std::make_shared<Args>();
  CLI::App *noun = add_noun(root, "fcf", "FCoE forwarders of a port");
  CLI::App *known = add_verb(*noun, "list", "The forwarders that the port knows", ctx,
                             [args](Context &c) { list(c, args->board); });
  CLI::App *connect = add_noun(*noun, "connect", "The forwarders that the port may use");
  CLI::App *shown = add_verb(*connect, "get", "Show the connect list", ctx,
                             [args](Context &c) { get_connections(c, args->board); });
  CLI::App *changed = add_verb(*connect, "set", "Replace the connect list", ctx, [args](Context &c) {
    set_connections(c, args->board, args->entries, args->none);
  });
  for (CLI::App *verb : {known, shown, changed})
    verb->add_option("BOARD", args->board, board_help)->required()->type_name("");
  changed->add_option("ENTRY", args->entries, "fabric=WWN,switch=WWN,vlan=N,flags=HEX, any of these")
      ->type_name("");
  changed->add_flag("--none", args->none, "An empty list: any forwarder may be used");
}

void add_fip(CLI::App &root, Context &ctx) {
  struct Args {
    std::string board, fc_map, vlan;
  };
  auto args = std::make_shared<Args>();
  CLI::App *noun = add_noun(root, "fip", "FIP parameters of an FCoE port");
  CLI::App *shown = add_verb(*noun, "get", "Show them", ctx, [args](Context &c) { get_fip(c, args->board); });
  CLI::App *changed = add_verb(*noun, "set", "Change them", ctx,
                               [args](Context &c) { set_fip(c, args->board, args->fc_map, args->vlan); });
  for (CLI::App *verb : {shown, changed})
    verb->add_option("BOARD", args->board, board_help)->required()->type_name("");
  changed->add_option("--fc-map", args->fc_map, "FC-MAP, 3 bytes in hexadecimal")->type_name("HEX");
  changed->add_option("--vlan", args->vlan, "VLAN, or none")->type_name("N|none");
}

}  // namespace hcxadm
