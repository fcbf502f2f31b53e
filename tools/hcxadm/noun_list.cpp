// SPDX-License-Identifier: BSD-3-Clause
// "list" and "show": the boards, short and in full. Both read the same columns; "show" adds what takes a rescan.
#include "link_words.h"
#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema list_schema{"hcxadm.list", 1, 0};
constexpr Schema show_schema{"hcxadm.show", 1, 0};

// "16 Gbit" is 16; "Not Negotiated" and "unknown" are absent.
Value gigabits(const Text &text) {
  if (!text || text->find("Gbit") == std::string::npos) return {};
  std::optional<uint64_t> number = parse_number(text->substr(0, text->find(' ')));
  return or_null(number);
}

// "a, b, c" as a list.
Value word_list(const Text &text) {
  if (!text) return {};
  Value list = Value::array();
  for (size_t begin = 0; begin < text->size();) {
    size_t end = std::min(text->find(',', begin), text->size());
    size_t first = text->find_first_not_of(' ', begin);
    if (first < end) list.push_back(text->substr(first, text->find_last_not_of(' ', end - 1) - first + 1));
    begin = end + 1;
  }
  return list;
}

Value mode_name(uint32_t mode) {
  static constexpr const char *names[] = {nullptr, "online", "offline", "warm", "dump", "error"};
  return mode > 0 && mode < std::size(names) ? Value(names[mode]) : Value();
}

// The library reads 0 where an attribute is missing.
Value nonzero(uint32_t number) {
  return number ? Value(number) : Value();
}

Value pci_address(const Text &pci_dir) {
  if (!pci_dir || pci_dir->size() < 2) return {};
  const size_t end = pci_dir->size() - 1;
  const size_t slash = pci_dir->rfind('/', end - 1);
  return slash == std::string::npos ? Value() : Value(pci_dir->substr(slash + 1, end - slash - 1));
}

// A fabric name of all zeros or ones means that there is no fabric.
Value fabric_name(const Board &b) {
  Text text = attribute(b.fc_host_dir(), "fabric_name");
  std::optional<HBA_WWN> wwn = text ? parse_wwn(*text) : std::optional<HBA_WWN>();
  if (!wwn || std::all_of(wwn->wwn, wwn->wwn + 8, [](uint8_t byte) { return byte == 0xff; })) return {};
  return wwn_value(wwn->wwn);
}

using C = ColumnOf<Board>;
const C board_columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Board &b) { return Value(b.number); }},
    {"host", "HOST", Kind::text, In::rows,
     [](const Board &b) { return Value("host" + std::to_string(b.host)); }},
    {"model", "MODEL", Kind::text, In::rows,
     [](const Board &b) { return or_null(attribute(b.scsi_host_dir(), "modelname")); }},
    {"description", "DESCRIPTION", Kind::text, In::record,
     [](const Board &b) { return or_null(attribute(b.scsi_host_dir(), "modeldesc")); }},
    {"serial_number", "SERIAL NUMBER", Kind::text, In::record,
     [](const Board &b) { return or_null(b.serial_number); }},
    {"wwpn", "WWPN", Kind::text, In::rows, [](const Board &b) { return wwn_value(b.wwpn.wwn); }},
    {"wwnn", "WWNN", Kind::text, In::record, [](const Board &b) { return wwn_value(b.wwnn.wwn); }},
    {"port_id", "PORT ID", Kind::hex24, In::record, [](const Board &b) { return nonzero(b.port_id); }},
    {"symbolic_name", "SYMBOLIC NAME", Kind::text, In::record,
     [](const Board &b) { return or_null(attribute(b.fc_host_dir(), "symbolic_name")); }},
    {"protocol", "PROTOCOL", Kind::text, In::rows, [](const Board &b) { return or_null(b.protocol); }},
    {"state", "STATE", Kind::text, In::rows,
     [](const Board &b) { return or_null(attribute(b.fc_host_dir(), "port_state")); }},
    {"speed_gbit", "SPEED(Gbit/s)", Kind::number, In::rows,
     [](const Board &b) { return gigabits(attribute(b.fc_host_dir(), "speed")); }},
    {"supported_speeds", "SUPPORTED SPEEDS", Kind::list, In::record,
     [](const Board &b) { return word_list(attribute(b.fc_host_dir(), "supported_speeds")); }},
    {"link", "LINK", Kind::text, In::record,
     [](const Board &b) { return or_null(attribute(b.scsi_host_dir(), "link_state")); }},
    {"port_type", "PORT TYPE", Kind::text, In::record,
     [](const Board &b) { return or_null(attribute(b.fc_host_dir(), "port_type")); }},
    {"fabric_name", "FABRIC NAME", Kind::text, In::record, fabric_name},
    {"max_frame_size", "MAX FRAME SIZE(bytes)", Kind::number, In::record,
     [](const Board &b) { return or_null(number_attribute(b.fc_host_dir(), "maxframe_size")); }},
    {"firmware", "FIRMWARE", Kind::text, In::rows, [](const Board &b) { return or_null(b.firmware); }},
    {"sli_mode", "SLI MODE", Kind::number, In::record, [](const Board &b) { return or_null(b.sli_mode); }},
    {"option_rom", "OPTION ROM", Kind::text, In::record,
     [](const Board &b) { return or_null(b.option_rom); }},
    {"hardware", "HARDWARE", Kind::text, In::record,
     [](const Board &b) { return or_null(b.hardware_version); }},
    {"driver", "DRIVER", Kind::text, In::rows, [](const Board &b) { return or_null(b.driver); }},
    {"board_mode", "BOARD MODE", Kind::text, In::record,
     [](const Board &b) { return mode_name(b.info.a_offmask); }},
    {"npiv", "NPIV", Kind::text, In::record, [](const Board &b) { return or_null(b.npiv); }},
    {"pci_address", "PCI ADDRESS", Kind::text, In::record,
     [](const Board &b) { return pci_address(b.pci_dir); }},
    {"pci_vendor_id", "PCI VENDOR ID", Kind::hex, In::record,
     [](const Board &b) { return nonzero(b.info.a_pci & 0xffff); }},
    {"pci_device_id", "PCI DEVICE ID", Kind::hex, In::record,
     [](const Board &b) { return nonzero(b.info.a_pci >> 16); }},
    {"irq", "IRQ", Kind::number, In::record, [](const Board &b) { return nonzero(b.info.a_intrlvl); }},
    {"ports", "PORTS", Kind::number, In::rows, [](const Board &b) { return Value(b.ports); }},
    {"luns", "LUNS", Kind::number, In::rows, [](const Board &b) { return Value(b.luns); }},
};

// What only "show" asks for; absent where the library cannot tell.
struct BoardInFull {
  std::optional<Vpd> vpd;
  std::optional<LinkInfo> link;
  std::optional<HCXDrvInfo> driver;
  std::optional<HBA_PORTATTRIBUTES> port;
  std::optional<uint32_t> events, missed_events;
};

template <class Record, class Call>
std::optional<Record> ask(const Board &board, Record record, Call call) {
  return call(static_cast<uint32_t>(board.number), &record) == 0 ? std::optional<Record>(record)
                                                                 : std::nullopt;
}

BoardInFull in_full(const Board &board) {
  HCXDrvInfo driver = {};
  driver.drvInfoVer = 4;
  Vpd vpd = {};
  vpd.version = 1;
  const auto port = [](uint32_t number, HBA_PORTATTRIBUTES *attr) {
    return GetAdapterPortAttributes(number, 0, attr);
  };
  return {ask(board, vpd, GetVPDInfo),
          ask(board, LinkInfo{}, HCX_GetLinkInfo),
          ask(board, driver, HCX_GetDrvInfo),
          ask(board, HBA_PORTATTRIBUTES{}, port),
          ask(board, uint32_t{0}, GetEventsCount),
          ask(board, uint32_t{0}, GetMissedEventsCount)};
}

Value classes_of(const BoardInFull &b) {
  if (!b.port) return {};
  Value list = Value::array();
  for (unsigned number = 1; number <= 6; ++number)
    if (b.port->PortSupportedClassofService >> number & 1) list.push_back(number);
  return list;
}

// The bit of a type: 32 types a word, most significant byte first.
Value fc4_types(const BoardInFull &b) {
  static constexpr struct {
    unsigned type;
    const char *name;
  } names[] = {{0x05, "ip"}, {0x08, "fcp"}, {0x20, "ct"}, {0x28, "nvme"}};
  if (!b.port) return {};
  Value list = Value::array();
  for (const auto &row : names)
    if (b.port->PortActiveFc4Types[row.type / 32 * 4 + 3 - row.type % 32 / 8] >> row.type % 8 & 1)
      list.push_back(row.name);
  return list;
}

Value features(const BoardInFull &b) {
  static constexpr struct {
    uint64_t bit;
    const char *name;
  } names[] = {{HCX_FEATURE_STATISTICS, "latency statistics"},
               {HCX_FEATURE_FC, "fc"},
               {HCX_FEATURE_FCOE, "fcoe"},
               {HCX_FEATURE_SLI4, "sli-4"}};
  if (!b.driver) return {};
  Value list = Value::array();
  for (const auto &row : names)
    if (b.driver->featureList & row.bit) list.push_back(row.name);
  return list;
}

Value vpd_text(const BoardInFull &b, const char *text) {
  return b.vpd && *text ? Value(text) : Value();
}

const ColumnOf<BoardInFull> full_columns[] = {
    {"program_type", "PROGRAM TYPE", Kind::text, In::record,
     [](const BoardInFull &b) { return vpd_text(b, b.vpd ? b.vpd->ProgramType : ""); }},
    {"port_number", "PORT NUMBER", Kind::text, In::record,
     [](const BoardInFull &b) { return vpd_text(b, b.vpd ? b.vpd->PortNum : ""); }},
    {"topology", "TOPOLOGY", Kind::text, In::record,
     [](const BoardInFull &b) { return b.link ? topology_name(b.link->a_topology) : Value(); }},
    {"link_state", "LINK STATE", Kind::text, In::record,
     [](const BoardInFull &b) { return b.link ? link_state_name(b.link->a_linkState) : Value(); }},
    {"classes", "CLASSES OF SERVICE", Kind::list, In::record, classes_of},
    {"fc4_types", "FC-4 TYPES", Kind::list, In::record, fc4_types},
    {"features", "FEATURES", Kind::list, In::record, features},
    {"events", "EVENTS", Kind::number, In::record, [](const BoardInFull &b) { return or_null(b.events); }},
    {"missed_events", "MISSED EVENTS", Kind::number, In::record,
     [](const BoardInFull &b) { return or_null(b.missed_events); }},
};

void show(Context &ctx, const std::string &name) {
  ctx.document(show_schema);
  const Board board = ctx.boards.find(name);
  Table table = make_table(show_schema, board_columns, std::vector{board});
  Table more = make_table(show_schema, full_columns, std::vector{in_full(board)});
  std::move(more.columns.begin(), more.columns.end(), std::back_inserter(table.columns));
  std::move(more.rows[0].begin(), more.rows[0].end(), std::back_inserter(table.rows[0]));
  ctx.show(table, Layout::record);
}

void list(Context &ctx) {
  ctx.document(list_schema);
  const std::vector<Board> &boards = ctx.boards.all();
  ctx.show(make_table(list_schema, board_columns, boards));
  if (boards.empty()) ctx.note("there are no adapters of the vosk driver on this machine");
}

}  // namespace

void add_list(CLI::App &root, Context &ctx) {
  add_verb(root, "list", "List the boards", ctx, list);
}

void add_show(CLI::App &root, Context &ctx) {
  auto board = std::make_shared<std::string>();
  CLI::App *verb =
      add_verb(root, "show", "Show all about a board", ctx, [board](Context &c) { show(c, *board); });
  verb->add_option("BOARD", *board, board_help)->required()->type_name("");
}

}  // namespace hcxadm
