// SPDX-License-Identifier: BSD-3-Clause
// "vport": NPIV virtual ports: ports with names of their own behind one adapter port. The library's numbers for what
// went wrong become words here, and its readiness checklist a list of what is missing and what to do about it.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>

#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema list_schema{"hcxadm.vport.list", 1, 0};
constexpr Schema show_schema{"hcxadm.vport", 1, 0};
constexpr Schema ready_schema{"hcxadm.vport.ready", 1, 0};

// The library's results that the verbs look at.
constexpr uint32_t more_data = 7;     // of HCX_VPGetList()
constexpr uint32_t refused = 1;       // of HCX_VPCreate()
constexpr uint32_t no_port_yet = 6;   // of HCX_VPCreate()
constexpr uint32_t no_such_port = 4;  // of HCX_VPGetAttrib()

uint32_t board_index(const Board &board) {
  return static_cast<uint32_t>(board.number);
}

bool same(const HBA_WWN &a, const HBA_WWN &b) {
  return memcmp(a.wwn, b.wwn, sizeof a.wwn) == 0;
}

HBA_WWN parse_name(const std::string &text) {
  const std::optional<HBA_WWN> wwn = parse_wwn(text);
  if (wwn) return *wwn;
  throw Failure({.status = kUsage,
                 .tried = "\"" + text + "\" is no WWN",
                 .board = {},
                 .code = {},
                 .name = {},
                 .todo = "give 16 hexadecimal digits"});
}

// ---- list ----

struct Row {
  int board;
  HCX_VPEntry entry;
  std::string name;
  int vpi;   // below 1: unknown
  int host;  // kernel host number, below 0: unknown
};

// Asks how many there are, makes room, asks again: more may come meanwhile.
std::vector<HCX_VPEntry> entries_of(const Board &board) {
  std::vector<uint8_t> bytes;
  for (uint32_t room = 16;;) {
    bytes.assign(offsetof(HCX_VPEntryList, vpentry) + room * sizeof(HCX_VPEntry), 0);
    memcpy(bytes.data(), &room, sizeof room);
    const uint32_t result =
        HCX_VPGetList(board_index(board), reinterpret_cast<HCX_VPEntryList *>(bytes.data()));
    uint32_t count;
    memcpy(&count, bytes.data(), sizeof count);
    if (result == more_data) {
      room = count;
      continue;
    }
    if (result != 0) throw call_failure(Family::vport, result, "listing the virtual ports", board.name());
    std::vector<HCX_VPEntry> entries(count);
    if (count != 0)
      memcpy(entries.data(), bytes.data() + offsetof(HCX_VPEntryList, vpentry), count * sizeof(HCX_VPEntry));
    return entries;
  }
}

Row make_row(const Board &board, const HCX_VPEntry &entry) {
  Row row{board.number, entry, {}, -1, -1};
  HCX_VPAttrib attrib{};
  attrib.wwpn = entry.wwpn;
  attrib.wwnn = entry.wwnn;
  row.host = hcx_get_host_id(&attrib.wwpn);
  std::string dir = "/sys/class/scsi_host/host" + std::to_string(row.host) + "/";
  get_vport_name(&attrib, dir.data());
  row.name = attrib.name;
  get_vport_npiv_info(&attrib.wwpn, &row.vpi);
  return row;
}

Value host_value(int host) {
  return host < 0 ? Value() : Value("host" + std::to_string(host));
}

Value name_value(const std::string &name) {
  return name.empty() ? Value() : Value(name);
}

// 0 stands for a port that the fabric has given no address.
Value address_value(uint32_t address) {
  return address == 0 ? Value() : Value(address);
}

const ColumnOf<Row> list_columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Row &r) { return Value(r.board); }},
    {"host", "HOST", Kind::text, In::rows, [](const Row &r) { return host_value(r.host); }},
    {"vpi", "VPI", Kind::number, In::rows, [](const Row &r) { return r.vpi < 1 ? Value() : Value(r.vpi); }},
    {"wwpn", "WWPN", Kind::text, In::rows, [](const Row &r) { return wwn_value(r.entry.wwpn.wwn); }},
    {"wwnn", "WWNN", Kind::text, In::rows, [](const Row &r) { return wwn_value(r.entry.wwnn.wwn); }},
    {"port_id", "PORT ID", Kind::hex24, In::rows,
     [](const Row &r) { return address_value(r.entry.portFcId); }},
    {"name", "NAME", Kind::text, In::rows, [](const Row &r) { return name_value(r.name); }},
};

void list(Context &ctx, const std::string &name) {
  ctx.document(list_schema);
  std::vector<Row> rows;
  for (const Board &board : ctx.boards.select(name)) {
    try {
      for (const HCX_VPEntry &entry : entries_of(board))
        rows.push_back(make_row(board, entry));
    } catch (const Failure &failure) {
      ctx.report(failure.problem());
    }
  }
  ctx.show(make_table(list_schema, list_columns, rows));
}

// ---- What a virtual port needs ----

struct Condition {
  uint32_t bit;
  const char *key;
  const char *what;
  const char *todo;
};

constexpr Condition conditions[] = {
    {HCX_NPIV_ENABLED, "enabled", "virtual ports switched on in the driver",
     "load the driver with vosk_enable_npiv=1"},
    {HCX_NPIV_SLI3, "sli", "adapter runs SLI-3 or higher", "install firmware that runs SLI-3"},
    {HCX_NPIV_FIRMWARE, "firmware", "firmware knows virtual ports",
     "update the adapter's firmware; if it is busy or off-line, ask again"},
    {HCX_NPIV_CAPACITY, "capacity", "room for another virtual port", "delete one that is not needed"},
    {HCX_NPIV_LINK_UP, "link", "link is up", "check cable and switch port"},
    {HCX_NPIV_FABRIC_PORT, "fabric_port", "connected to a fabric",
     "connect the port to a switch, not to a loop or to another port"},
    {HCX_NPIV_FABRIC_SUPPORT, "fabric_support", "fabric supports virtual ports",
     "switch NPIV on at the switch port"},
    {HCX_NPIV_FABRIC_ROOM, "fabric_room", "fabric has room for another virtual port",
     "raise the number of logins that the switch port allows"},
};

// What the fabric can do shows only when all is well on this side.
bool is_known(const Condition &condition, uint32_t checklist) {
  return (condition.bit & HCX_NPIV_LOCAL) != 0 || (checklist & HCX_NPIV_LOCAL) == HCX_NPIV_LOCAL;
}

// "link is up: check cable and switch port"; several are separated by "; ".
std::string missing_text(uint32_t checklist) {
  std::string text;
  for (const Condition &condition : conditions) {
    if ((checklist & condition.bit) != 0 || !is_known(condition, checklist)) continue;
    if (!text.empty()) text += "; ";
    text.append("missing: ").append(condition.what).append(" (").append(condition.todo).append(")");
  }
  return text;
}

struct Finding {
  Board board;
  const Condition *condition;
  uint32_t checklist;
  Text found;  // what the condition was judged by
};

Text found_text(const Board &board, const Condition &condition) {
  switch (condition.bit) {
    case HCX_NPIV_ENABLED:
      return attribute(board.scsi_host_dir(), "vosk_enable_npiv");
    case HCX_NPIV_SLI3:
      return board.sli_mode ? Text("SLI-" + std::to_string(*board.sli_mode)) : Text();
    case HCX_NPIV_FIRMWARE:
      return board.firmware;
    case HCX_NPIV_CAPACITY: {
      HCX_VPResource counts;
      if (HCX_VPGetResource(board_index(board), &counts) != 0) return {};
      return std::to_string(counts.vlinks_inuse) + " of " + std::to_string(counts.vlinks_max) + " ports, " +
             std::to_string(counts.rpi_inuse) + " of " + std::to_string(counts.rpi_max) + " logins";
    }
    case HCX_NPIV_LINK_UP:
      return attribute(board.scsi_host_dir(), "link_state");
    case HCX_NPIV_FABRIC_PORT:
      return attribute(board.fc_host_dir(), "port_type");
    default:
      return {};
  }
}

Value met_value(const Finding &f) {
  return is_known(*f.condition, f.checklist) ? Value((f.checklist & f.condition->bit) != 0) : Value();
}

const ColumnOf<Finding> ready_columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Finding &f) { return Value(f.board.number); }},
    {"bit", "BIT", Kind::hex, In::record, [](const Finding &f) { return Value(f.condition->bit); }},
    {"condition", "CONDITION", Kind::text, In::record,
     [](const Finding &f) { return Value(f.condition->key); }},
    {"what", "CONDITION", Kind::text, In::rows, [](const Finding &f) { return Value(f.condition->what); }},
    {"met", "MET", Kind::flag, In::rows, met_value},
    {"found", "FOUND", Kind::text, In::rows, [](const Finding &f) { return or_null(f.found); }},
    {"todo", "WHAT TO DO", Kind::text, In::rows,
     [](const Finding &f) { return met_value(f) == Value(false) ? Value(f.condition->todo) : Value(); }},
};

void ready(Context &ctx, const std::string &name) {
  ctx.document(ready_schema);
  std::vector<Finding> findings;
  for (const Board &board : ctx.boards.select(name)) {
    uint32_t checklist = 0;
    const uint32_t result = HCX_NPIVReadyTest(board_index(board), &checklist);
    if (result != 0)
      ctx.report(call_failure(Family::vport, result, "testing the readiness", board.name()).problem());
    for (const Condition &condition : conditions)
      findings.push_back({board, &condition, checklist, found_text(board, condition)});
  }
  ctx.show(make_table(ready_schema, ready_columns, findings));
}

// ---- show ----

struct Port {
  Row row;
  HCX_VPAttrib attrib;
  std::vector<NodeInfo> targets;
};

constexpr const char *state_names[] = {
    "unknown",
    "link down",
    "initializing",
    "no fabric support",
    "no fabric resources",
    "fabric logout",
    "fabric rejected",
    "failed",
    "active",
    "authentication failed",
    "disabled",
};

Value state_value(uint8_t state) {
  return state < std::size(state_names) ? Value(state_names[state]) : Value();
}

Value targets_value(const Port &p) {
  Value list = Value::array();
  for (const NodeInfo &target : p.targets)
    list.push_back(wwn_text(target.a_wwpn));
  return list;
}

Value missing_value(const Port &p) {
  Value list = Value::array();
  for (const Condition &condition : conditions)
    if ((p.attrib.checklist & condition.bit) == 0 && is_known(condition, p.attrib.checklist))
      list.push_back(condition.key);
  return list;
}

const ColumnOf<Port> show_columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Port &p) { return Value(p.row.board); }},
    {"host", "HOST", Kind::text, In::rows, [](const Port &p) { return host_value(p.row.host); }},
    {"vpi", "VPI", Kind::number, In::rows,
     [](const Port &p) { return p.row.vpi < 1 ? Value() : Value(p.row.vpi); }},
    {"wwpn", "WWPN", Kind::text, In::rows, [](const Port &p) { return wwn_value(p.attrib.wwpn.wwn); }},
    {"wwnn", "WWNN", Kind::text, In::rows, [](const Port &p) { return wwn_value(p.attrib.wwnn.wwn); }},
    {"name", "NAME", Kind::text, In::rows, [](const Port &p) { return name_value(p.attrib.name); }},
    {"state", "STATE", Kind::text, In::rows, [](const Port &p) { return state_value(p.attrib.state); }},
    {"port_id", "PORT ID", Kind::hex24, In::rows,
     [](const Port &p) { return address_value(p.attrib.portFcId); }},
    {"fabric_name", "FABRIC", Kind::text, In::rows,
     [](const Port &p) { return wwn_value(p.attrib.fabricName.wwn); }},
    {"static", "STATIC", Kind::flag, In::rows,
     [](const Port &p) { return Value((p.attrib.flags & HCX_VPORT_STATIC) != 0); }},
    {"restrict_login", "RESTRICT LOGIN", Kind::flag, In::rows,
     [](const Port &p) { return Value(p.attrib.restrictLogin != 0); }},
    {"targets", "TARGETS", Kind::list, In::rows, targets_value},
    {"checklist", "CHECKLIST", Kind::hex, In::rows, [](const Port &p) { return Value(p.attrib.checklist); }},
    {"missing", "MISSING", Kind::list, In::rows, missing_value},
};

// The FCP targets that a port sees; none when they cannot be listed.
std::vector<NodeInfo> targets_of(HBA_WWN wwpn) {
  for (uint32_t room = 64;; room *= 4) {
    std::vector<uint8_t> bytes(offsetof(HCX_GetNodeInfo, nodeInfo) + room * sizeof(NodeInfo));
    memcpy(bytes.data(), &room, sizeof room);
    if (HCX_GetAllNodeInfoByWWN(0, &wwpn, reinterpret_cast<HCX_GetNodeInfo *>(bytes.data())) != 0) return {};
    uint32_t count;
    memcpy(&count, bytes.data(), sizeof count);
    if (count == room) continue;  // there may be more
    std::vector<NodeInfo> targets(count);
    if (count != 0)
      memcpy(targets.data(), bytes.data() + offsetof(HCX_GetNodeInfo, nodeInfo), count * sizeof(NodeInfo));
    return targets;
  }
}

uint32_t read_attrib(const Board &board, HBA_WWN wwpn, HCX_VPAttrib &attrib) {
  attrib = {};
  attrib.ver = HCX_VPATTRIB_VERSION;
  return HCX_VPGetAttrib(board_index(board), &wwpn, &attrib);
}

Port make_port(const Board &board, const HCX_VPAttrib &attrib) {
  return {make_row(board, {attrib.wwpn, attrib.wwnn, attrib.portFcId}), attrib, targets_of(attrib.wwpn)};
}

// The library searches all boards for a name; a command means the one that it names.
void require_port(const Board &board, const HBA_WWN &wwpn, const std::string &tried) {
  const std::vector<HCX_VPEntry> entries = entries_of(board);
  if (std::any_of(entries.begin(), entries.end(), [&](const HCX_VPEntry &e) { return same(e.wwpn, wwpn); }))
    return;
  throw Failure({.status = kNoSuch,
                 .tried = tried,
                 .board = board.name(),
                 .code = {},
                 .name = "the board has no such virtual port",
                 .todo = "\"hcxadm vport list\" shows them"});
}

void show(Context &ctx, const std::string &board_name, const std::string &port_name) {
  ctx.document(show_schema);
  const HBA_WWN wwpn = parse_name(port_name);
  const Board &board = ctx.boards.find(board_name);
  const std::string tried = "reading the virtual port " + wwn_text(wwpn.wwn);
  require_port(board, wwpn, tried);
  HCX_VPAttrib attrib;
  if (const uint32_t result = read_attrib(board, wwpn, attrib))
    throw call_failure(Family::vport, result, tried, board.name());
  ctx.show(make_table(show_schema, show_columns, std::vector<Port>{make_port(board, attrib)}),
           Layout::record);
}

// ---- create, delete ----

struct CreateOptions {
  std::string board, name, wwpn, wwnn;
  double wait = 10;
};

HCX_VPAttrib names_to_create(const CreateOptions &options) {
  HCX_VPAttrib attrib{};
  attrib.ver = HCX_VPATTRIB_VERSION;
  if (options.wwpn.empty()) attrib.options = HCX_VPORT_CHOOSE_NAMES;
  if (!options.wwpn.empty()) attrib.wwpn = parse_name(options.wwpn);
  if (!options.wwnn.empty()) attrib.wwnn = parse_name(options.wwnn);
  return attrib;
}

void check_name(const std::string &name) {
  const auto is_control = [](unsigned char c) { return c < 0x20 || c == 0x7f; };
  if (std::none_of(name.begin(), name.end(), is_control)) return;
  throw Failure({.status = kUsage,
                 .tried = "the name has control characters",
                 .board = {},
                 .code = {},
                 .name = {},
                 .todo = {}});
}

std::string what_to_create(const CreateOptions &options, const HCX_VPAttrib &attrib, const Board &board) {
  std::string text = "create a virtual port on " + board.name();
  text += options.wwpn.empty() ? ", port name chosen by the library" : ", " + wwn_text(attrib.wwpn.wwn);
  if (!options.wwnn.empty()) text += ", node " + wwn_text(attrib.wwnn.wwn);
  if (!options.name.empty()) text += ", named \"" + options.name + "\"";
  return text;
}

// The kernel has taken the request; the port may show up a moment later, and get its name only then.
void wait_for_port(const CreateOptions &options, const Board &board, HCX_VPAttrib &attrib) {
  using Clock = std::chrono::steady_clock;
  const HBA_WWN wwpn = attrib.wwpn;
  const auto end = Clock::now() + std::chrono::duration<double>(options.wait);
  for (;;) {
    const uint32_t result = read_attrib(board, wwpn, attrib);
    if (result == 0) break;
    const std::string port = "the new virtual port " + wwn_text(wwpn.wwn);
    if (result != no_such_port) throw call_failure(Family::vport, result, "reading " + port, board.name());
    if (Clock::now() >= end)
      throw Failure(
          {.status = kBusy,
           .tried = "waiting for " + port,
           .board = board.name(),
           .code = result,
           .name = "requested, but it has not appeared yet",
           .todo = "\"hcxadm vport list\" shows it when it has; without the name if one was given"});
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  std::string name = options.name;
  HBA_WWN named = wwpn;
  if (!name.empty() && hcx_set_vport_sybolic_name(&named, name.data()) == 0) read_attrib(board, wwpn, attrib);
}

void create(Context &ctx, const CreateOptions &options) {
  ctx.document(show_schema);
  HCX_VPAttrib attrib = names_to_create(options);
  check_name(options.name);
  const Board &board = ctx.boards.find(options.board);
  if (!ctx.confirm(what_to_create(options, attrib, board))) return;
  std::string name = options.name;
  const uint32_t result = HCX_VPCreate(board_index(board), name.data(), &attrib);
  const bool named = !wwn_value(attrib.wwpn.wwn).is_null() && !wwn_value(attrib.wwnn.wwn).is_null();
  if (result == no_port_yet && named) {
    wait_for_port(options, board, attrib);
  } else if (result != 0) {
    throw call_failure(Family::vport_create, result, "creating a virtual port", board.name(),
                       result == refused ? missing_text(attrib.checklist) : std::string());
  }
  const Port port = make_port(board, attrib);
  if (!options.name.empty() && port.row.name.find(options.name.substr(0, 62)) == std::string::npos)
    ctx.note("the virtual port was made, but its name could not be set");
  ctx.show(make_table(show_schema, show_columns, std::vector<Port>{port}), Layout::record);
}

void remove(Context &ctx, const std::string &board_name, const std::string &port_name) {
  ctx.document(show_schema);
  HBA_WWN wwpn = parse_name(port_name);
  const Board &board = ctx.boards.find(board_name);
  const std::string port = "the virtual port " + wwn_text(wwpn.wwn);
  require_port(board, wwpn, "deleting " + port);
  if (!ctx.confirm("delete " + port + " of " + board.name() + "; its devices go away")) return;
  if (const uint32_t result = HCX_VPDelete(board_index(board), &wwpn, 0))
    throw call_failure(Family::vport, result, "deleting " + port, board.name(),
                       result == refused ? "needs root; its devices may be in use" : "");
}

void add_create(CLI::App &noun, Context &ctx) {
  auto options = std::make_shared<CreateOptions>();
  CLI::App *verb =
      add_verb(noun, "create", "Create a virtual port", ctx, [options](Context &c) { create(c, *options); });
  verb->add_option("BOARD", options->board, board_help)->required()->type_name("");
  verb->add_option("--name", options->name, "Symbolic name")->type_name("NAME");
  CLI::Option *wwnn = verb->add_option("--wwnn", options->wwnn, "Node name")->type_name("WWNN");
  verb->add_option("--wwpn", options->wwpn, "Port name; without it the library chooses one")
      ->needs(wwnn)
      ->type_name("WWPN");
  verb->add_option("--wait", options->wait, "Seconds to wait for the port to appear, 10 if left out")
      ->check(CLI::NonNegativeNumber)
      ->type_name("S");
}

}  // namespace

void add_vport(CLI::App &root, Context &ctx) {
  struct Args {
    std::string board, port;
  };
  auto args = std::make_shared<Args>();
  CLI::App *noun = add_noun(root, "vport", "Virtual ports (NPIV)");
  const auto optional_board = [args](CLI::App &app) {
    app.add_option("BOARD", args->board, board_help)->type_name("");
  };
  add_standard_verb(*noun, "list", "List the virtual ports of one board, or of all", ctx, optional_board,
                    [args](Context &c) { list(c, args->board); });
  CLI::App *one = add_verb(*noun, "show", "Show one virtual port whole", ctx,
                           [args](Context &c) { show(c, args->board, args->port); });
  add_create(*noun, ctx);
  CLI::App *gone = add_verb(*noun, "delete", "Delete a virtual port", ctx,
                            [args](Context &c) { remove(c, args->board, args->port); });
  for (CLI::App *verb : {one, gone}) {
    verb->add_option("BOARD", args->board, board_help)->required()->type_name("");
    verb->add_option("WWPN", args->port, "Port name of the virtual port")->required()->type_name("");
  }
  CLI::App *test = add_verb(*noun, "ready", "What a virtual port needs, and what is missing", ctx,
                            [args](Context &c) { ready(c, args->board); });
  optional_board(*test);
}

}  // namespace hcxadm
