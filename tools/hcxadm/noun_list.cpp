// SPDX-License-Identifier: BSD-3-Clause
// "list" and "show": the boards, short and in full. Both read the same columns.
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
  CLI::App *verb = add_verb(root, "show", "Show all about a board", ctx, [board](Context &c) {
    c.document(show_schema);
    c.show(make_table(show_schema, board_columns, std::vector{c.boards.find(*board)}), Layout::record);
  });
  verb->add_option("BOARD", *board, board_help)->required()->type_name("");
}

}  // namespace hcxadm
