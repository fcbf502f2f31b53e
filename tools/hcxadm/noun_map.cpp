// SPDX-License-Identifier: BSD-3-Clause
// "map": every LUN as the operating system and as the fabric name it, with the identity that it gives itself.
#include <algorithm>
#include <cstring>

#include "designator.h"
#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema schema{"hcxadm.map", 1, 0};

struct Row {
  int board;
  uint32_t host;
  HBA_FCPSCSIENTRYV2 entry;
  std::optional<Designator> identity;
};

// The record with room behind it.
class Mapping {
 public:
  explicit Mapping(uint32_t room)
      : words_((offsetof(HBA_FCPTARGETMAPPINGV2, entry) + sizeof(HBA_FCPSCSIENTRYV2) * std::max(room, 1u)) /
                   8 +
               1) {
    record()->NumberOfEntries = room;
  }
  HBA_FCPTARGETMAPPINGV2 *record() { return reinterpret_cast<HBA_FCPTARGETMAPPINGV2 *>(words_.data()); }

 private:
  std::vector<uint64_t> words_;
};

std::string lun_image(const HBA_FCPSCSIENTRYV2 &entry) {
  uint8_t bytes[8];
  std::memcpy(bytes, &entry.FcpId.FcpLun, sizeof bytes);
  std::string text = "0x";
  for (uint8_t byte : bytes)
    text += human(byte | 0x100, Kind::hex).substr(3);
  return text;
}

std::string scsi_address(const Row &r) {
  const HBA_SCSIID &id = r.entry.ScsiId;
  return std::to_string(r.host) + ":" + std::to_string(id.ScsiBusNumber) + ":" +
         std::to_string(id.ScsiTargetNumber) + ":" + std::to_string(id.ScsiOSLun);
}

const ColumnOf<Row> columns[] = {
    {"board", "BOARD", Kind::number, In::rows, [](const Row &r) { return Value(r.board); }},
    {"scsi_address", "H:C:T:L", Kind::text, In::rows, [](const Row &r) { return Value(scsi_address(r)); }},
    {"device", "DEVICE", Kind::text, In::rows,
     [](const Row &r) {
       const char *name = r.entry.ScsiId.OSDeviceName;
       return *name ? Value(name) : Value();
     }},
    {"target_wwpn", "TARGET WWPN", Kind::text, In::rows,
     [](const Row &r) { return wwn_value(r.entry.FcpId.PortWWN.wwn); }},
    {"target_wwnn", "TARGET WWNN", Kind::text, In::record,
     [](const Row &r) { return wwn_value(r.entry.FcpId.NodeWWN.wwn); }},
    {"port_id", "PORT ID", Kind::hex24, In::rows, [](const Row &r) { return Value(r.entry.FcpId.FcId); }},
    {"target", "TARGET", Kind::number, In::record,
     [](const Row &r) { return Value(r.entry.ScsiId.ScsiTargetNumber); }},
    {"lun", "LUN", Kind::number, In::rows, [](const Row &r) { return Value(r.entry.ScsiId.ScsiOSLun); }},
    {"fcp_lun", "FCP LUN", Kind::text, In::rows, [](const Row &r) { return Value(lun_image(r.entry)); }},
    {"lu_id_type", "ID TYPE", Kind::text, In::rows,
     [](const Row &r) { return r.identity ? Value(r.identity->type) : Value(); }},
    {"lu_id", "LU ID", Kind::text, In::rows,
     [](const Row &r) { return r.identity ? Value(r.identity->value) : Value(); }},
};

// LUNs may come while we ask, so the room grows until all fit.
void read_mapping(const Board &board, std::vector<Row> &rows) {
  constexpr int attempts = 5;
  uint32_t room = static_cast<uint32_t>(board.luns) + 16;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    Mapping mapping(room);
    const uint32_t result =
        HCX_GetFcpTargetMappingV2(static_cast<uint32_t>(board.number), board.wwpn, mapping.record());
    if (result == HBA_STATUS_ERROR_MORE_DATA) {
      room = mapping.record()->NumberOfEntries + 16;
      continue;
    }
    if (result != HBA_STATUS_OK)
      throw call_failure(Family::hba, result, "reading the target mapping", board.name());
    for (uint32_t i = 0; i < mapping.record()->NumberOfEntries; ++i) {
      const HBA_FCPSCSIENTRYV2 &entry = mapping.record()->entry[i];
      const auto *identity = reinterpret_cast<const uint8_t *>(entry.LUID.buffer);
      rows.push_back({board.number, board.host, entry, designator_of(identity, sizeof entry.LUID.buffer)});
    }
    return;
  }
  throw call_failure(Family::hba, HBA_STATUS_ERROR_MORE_DATA, "reading the target mapping", board.name());
}

void map(Context &ctx, const std::string &name) {
  ctx.document(schema);
  std::vector<Row> rows;
  for (const Board &board : ctx.boards.select(name))
    try {
      read_mapping(board, rows);
    } catch (const Failure &failure) {
      ctx.report(failure.problem());
    }
  ctx.show(make_table(schema, columns, rows));
  if (rows.empty()) ctx.note("no LUNs");
}

}  // namespace

void add_map(CLI::App &root, Context &ctx) {
  auto board = std::make_shared<std::string>();
  CLI::App *verb = add_verb(root, "map", "LUNs with their fabric names and identities", ctx,
                            [board](Context &c) { map(c, *board); });
  verb->add_option("BOARD", *board, board_help)->type_name("");
}

}  // namespace hcxadm
