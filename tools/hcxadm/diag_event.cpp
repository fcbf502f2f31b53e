// SPDX-License-Identifier: BSD-3-Clause
// The kinds of diagnostic events: their words, and what stands in the detail record of each.
#include "diag_event.h"

namespace hcxadm {
namespace {

template <class Detail>
const Detail &as(const void *detail) {
  return *static_cast<const Detail *>(detail);
}

void set_port(Value *value, const HBA_WWN &port) {
  (*value)["port"] = wwn_text(port.wwn);
}

void plogi(const void *detail, Value *value) {
  const auto &d = as<sd_plogi_rcv_v0>(detail);
  set_port(value, d.sd_plogir_portname);
  (*value)["node"] = wwn_text(d.sd_plogir_nodename.wwn);
}

void prlo(const void *detail, Value *value) {
  set_port(value, as<sd_prlo_rcv_v0>(detail).sd_prlor_remoteport);
}

void adisc(const void *detail, Value *value) {
  const auto &d = as<sd_adisc_rcv_v0>(detail);
  set_port(value, d.sd_adiscr_portname);
  (*value)["node"] = wwn_text(d.sd_adiscr_nodename.wwn);
}

void lsrjt(const void *detail, Value *value) {
  const auto &d = as<sd_lsrjt_rcv_v0>(detail);
  set_port(value, d.sd_lsrjtr_remoteport);
  (*value)["command"] = d.sd_lsrjtr_original_cmd;
  (*value)["reason"] = d.sd_lsrjtr_reasoncode;
  (*value)["explanation"] = d.sd_lsrjtr_reasoncodeexpl;
}

void logo(const void *detail, Value *value) {
  const auto &d = as<sd_logo_rcv_v0>(detail);
  set_port(value, d.sd_logo_rportname);
  (*value)["named_port"] = wwn_text(d.sd_logo_payloadwwpn.wwn);
}

void busy(const void *detail, Value *value) {
  set_port(value, as<sd_pbsy_rcv_v0>(detail).sd_pbsyr_rport);
}

void read_check(const void *detail, Value *value) {
  const auto &d = as<sd_fcprdchkerr_v0>(detail);
  set_port(value, d.sd_fcprdchkerr_rport);
  (*value)["lun"] = d.sd_fcprdchkerr_lun;
  (*value)["command"] = d.sd_fcprdchkerr_opcode;
  (*value)["parameter"] = d.sd_fcprdchkerr_fcpiparam;
}

void generic(const void *detail, Value *value) {
  const auto &d = as<SD_scsi_generic_v0>(detail);
  set_port(value, d.sd_scsi_generic_rport);
  (*value)["lun"] = d.sd_scsi_generic_lun;
}

void check_condition(const void *detail, Value *value) {
  const auto &d = as<sd_scsi_checkcondition_v0>(detail);
  set_port(value, d.sd_checkcondition_rport);
  (*value)["lun"] = d.sd_checkcondition_lun;
  (*value)["command"] = d.sd_checkcondition_cmdcode;
  (*value)["sense_key"] = d.sd_checkcondition_senskey;
  (*value)["asc"] = d.sd_checkcondition_asc;
  (*value)["ascq"] = d.sd_checkcondition_ascq;
}

void queue_depth(const void *detail, Value *value) {
  const auto &d = as<sd_scsi_varquedepth_v0>(detail);
  set_port(value, d.sd_varquedepth_rport);
  (*value)["lun"] = d.sd_varquedepth_lun;
  (*value)["old_depth"] = d.sd_varquedepth_oldval;
  (*value)["new_depth"] = d.sd_varquedepth_newval;
}

// In the order of the text; the ones in hexadecimal there are codes of a standard.
constexpr struct {
  const char *key;
  bool hex;
} detail_keys[] = {{"port", false},     {"node", false},  {"named_port", false}, {"lun", false},
                   {"command", true},   {"reason", true}, {"explanation", true}, {"parameter", true},
                   {"sense_key", true}, {"asc", true},    {"ascq", true},        {"old_depth", false},
                   {"new_depth", false}};

// What the category's record leads to; the three of them are alike.
const void *detail_of(uint32_t category, const SD_event &event) {
  if (!event.sd_evt_payload) return nullptr;
  switch (category) {
    case SD_CATEGORY_ELS:
      return as<SD_els_event_details_v0>(event.sd_evt_payload).sd_els_payload;
    case SD_CATEGORY_FABRIC:
      return as<SD_fabric_event_details_v0>(event.sd_evt_payload).sd_fabric_payload;
    case SD_CATEGORY_SCSI:
      return as<sd_scsi_event_details_v0>(event.sd_evt_payload).sd_scsi_payload;
    default:
      return nullptr;
  }
}

}  // namespace

const DiagKind diag_kinds[17] = {
    {SD_CATEGORY_ELS, SD_ELS_PLOGI, "els", "plogi", plogi},
    {SD_CATEGORY_ELS, SD_ELS_PRLO, "els", "prlo", prlo},
    {SD_CATEGORY_ELS, SD_ELS_ADISC, "els", "adisc", adisc},
    {SD_CATEGORY_ELS, SD_ELS_LSRJT, "els", "lsrjt", lsrjt},
    {SD_CATEGORY_ELS, SD_ELS_LOGO, "els", "logo", logo},
    {SD_CATEGORY_FABRIC, SD_FABRIC_BUSY, "fabric", "fabric-busy", busy},
    {SD_CATEGORY_FABRIC, SD_FABRIC_PORT_BUSY, "fabric", "port-busy", busy},
    {SD_CATEGORY_FABRIC, SD_FABRIC_FCPRDCHKERR, "fabric", "read-check", read_check},
    {SD_CATEGORY_SCSI, SD_SCSI_GENERIC_1, "scsi", "scsi-1", generic},
    {SD_CATEGORY_SCSI, SD_SCSI_GENERIC_2, "scsi", "scsi-2", generic},
    {SD_CATEGORY_SCSI, SD_SCSI_CHECK_CONDITION, "scsi", "check-condition", check_condition},
    {SD_CATEGORY_SCSI, SD_SCSI_GENERIC_8, "scsi", "scsi-8", generic},
    {SD_CATEGORY_SCSI, SD_SCSI_GENERIC_16, "scsi", "scsi-16", generic},
    {SD_CATEGORY_SCSI, SD_SCSI_NO_DETAIL_32, "scsi", "scsi-32", nullptr},
    {SD_CATEGORY_SCSI, SD_SCSI_VARQUEDEPTH, "scsi", "queue-depth", queue_depth},
    {SD_CATEGORY_BOARD, SD_SUBCATEGORY_ONLY, "board", "board", nullptr},
    {SD_CATEGORY_ADAPTER, SD_SUBCATEGORY_ONLY, "adapter", "adapter", nullptr},
};

Value diag_value(uint32_t category, uint32_t subcategory, const SD_event &event) {
  Value value = {{"category", Value()}, {"event", Value()}};
  for (const auto &key : detail_keys)
    value[key.key] = Value();
  for (const DiagKind &kind : diag_kinds) {
    if (kind.category != category || kind.subcategory != subcategory) continue;
    value["category"] = kind.category_word;
    value["event"] = kind.word;
    if (const void *detail = detail_of(category, event); detail && kind.read) kind.read(detail, &value);
  }
  return value;
}

std::string diag_text(const Value &value) {
  std::string text = human(value["event"], Kind::text);
  for (const auto &key : detail_keys) {
    const Value &one = value[key.key];
    if (one.is_null()) continue;
    text += ", ";
    for (const char *c = key.key; *c; ++c)
      text += *c == '_' ? ' ' : *c;
    text += ' ';
    text += human(one, key.hex ? Kind::hex : Kind::text);
  }
  return text;
}

}  // namespace hcxadm
