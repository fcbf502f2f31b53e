// SPDX-License-Identifier: BSD-3-Clause
// One virtual port: its attributes, its name, its number, and whether the board is ready for another one. A virtual
// port is a host without "issue_lip". Only the readiness takes a host's lock; any thread.
#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "hcx_npiv.h"
#include "hcx_signal.h"
#include "hcx_util_attr.h"

static_assert(sizeof(HCX_VPATTRIB) == 344 && offsetof(HCX_VPATTRIB, buf) == 288);
static_assert(offsetof(HCX_VPATTRIB, name) == 20 && offsetof(HCX_VPATTRIB, checklist) == 304);

namespace hcx::npiv {

bool find_entry(const HBA_WWN &wwpn, const HBA_WWN *wwnn, Path *dir) {
  std::vector<std::string> names;
  sysio::list_sorted(vport_class, "", names);
  for (const std::string &name : names) {
    if (name[0] == '.') continue;
    const Path entry("/sys/class/fc_vports/%s/", name.c_str());
    if (hcx_sysfs_read_hexuint64(entry.c_str(), "port_name") != wwn_load(wwpn.wwn)) continue;
    if (wwnn && hcx_sysfs_read_hexuint64(entry.c_str(), "node_name") != wwn_load(wwnn->wwn)) continue;
    *dir = entry;
    return true;
  }
  return false;
}

namespace {

constexpr uint32_t kFailed = 1, kNoBoard = 3, kNoSuchPort = 4;
constexpr unsigned fcph_word = 6;  // of MBX_READ_REV: feature level, then FC-PH level, high and low byte each
constexpr uint32_t fcph_with_npiv = 8;  // and above

// A number that drivers show as "1" or as "0x1"; 0 when there is none.
uint32_t read_number(const char *dir, const char *file) {
  Line text;
  if (!attr_read_str(dir, file, text.data(), text.size())) return 0;
  if (const auto hex = scan_hex(text.c_str())) return static_cast<uint32_t>(*hex);
  return scan_decimal(text.c_str()).value_or(0);
}

// "issue_lip" can be written but not read: opening it to see whether it is there would fail for every port.
bool is_vport_host(const std::string &name) {
  char path[256];
  const int length = snprintf(path, sizeof path, "/sys/class/fc_host/%s/issue_lip", name.c_str());
  if (length < 0 || static_cast<size_t>(length) >= sizeof path) return false;
  return sysio::machine().stat(path) == -ENOENT;
}

enum class Found { yes, no, out_of_memory };

// The host of the virtual port with that name, on any board.
Found find_vport_host(const HBA_WWN &wwpn, Text<64> *host) {
  if (is_zero(wwpn)) return Found::no;  // what a host that is just going reads as
  return no_throw(Found::out_of_memory, [&] {
    std::vector<std::string> names;
    sysio::list_sorted(fc_host_class, "host", names);
    for (const std::string &name : names) {
      if (!is_vport_host(name)) continue;
      const Path dir("/sys/class/fc_host/%s/", name.c_str());
      if (hcx_sysfs_read_hexuint64(dir.c_str(), "port_name") != wwn_load(wwpn.wwn)) continue;
      *host = Text<64>("%s", name.c_str());
      return Found::yes;
    }
    return Found::no;
  });
}

uint8_t state_word(const char *dir, const char *file, const named_const *words) {
  Line text;
  attr_read_str(dir, file, text.data(), text.size());
  return static_cast<uint8_t>(str2enum(text.c_str(), words));
}

// Present kernels tell the state of the virtual port itself, in its fc_vports entry; with older ones the link of its
// host has to do.
uint8_t read_state(const char *fc_dir, const char *scsi_dir, const HBA_WWN &wwpn) {
  if (attr_exists(fc_dir, "vport_state")) return state_word(fc_dir, "vport_state", vport_state_names);
  Path entry;
  const bool listed = no_throw(false, [&] { return find_entry(wwpn, nullptr, &entry); });
  if (listed && attr_exists(entry.c_str(), "vport_state"))
    return state_word(entry.c_str(), "vport_state", vport_state_names);
  return state_word(scsi_dir, attr_exists(scsi_dir, "link_state") ? "link_state" : "state", link_state_names);
}

void fill_attrib(const char *host, HCX_VPAttrib *attrib) {
  const Path fc_dir("/sys/class/fc_host/%s/", host);
  Path scsi_dir("/sys/class/scsi_host/%s/", host);
  wwn_store(attrib->wwpn.wwn, hcx_sysfs_read_hexuint64(fc_dir.c_str(), "port_name"));
  wwn_store(attrib->wwnn.wwn, hcx_sysfs_read_hexuint64(fc_dir.c_str(), "node_name"));
  attrib->state = read_state(fc_dir.c_str(), scsi_dir.c_str(), attrib->wwpn);
  attrib->portFcId = hcx_sysfs_read_hexuint32(fc_dir.c_str(), "port_id");
  wwn_store(attrib->fabricName.wwn, hcx_sysfs_read_hexuint64(fc_dir.c_str(), "fabric_name"));
  attrib->flags = read_number(scsi_dir.c_str(), "vosk_static_vport") == 1 ? HCX_VPORT_STATIC : 0;
  attrib->restrictLogin = static_cast<uint8_t>(read_number(scsi_dir.c_str(), "vosk_restrict_login"));
  get_vport_name(attrib, scsi_dir.data());
  attrib->buf = 0;
}

// The symbolic name that fc_vports has for these names; false when no entry has them.
bool read_symbolic_name(const HBA_WWN &wwpn, const HBA_WWN &wwnn, Text<64> *name) {
  Path entry;
  if (!no_throw(false, [&] { return find_entry(wwpn, &wwnn, &entry); })) return false;
  hcx_sysfs_read_str(entry.c_str(), "symbolic_name", name->data(), Text<64>::size());
  return true;
}

// 3 of "NPIV Virtual (VPI 3)"; -1 of any other text.
int vpi_of(const char *text) {
  constexpr size_t number_at = 18;
  const char *begin = strstr(text, "NPIV Virtual (VPI");
  if (!begin || !strchr(begin, ')') || strlen(begin) <= number_at) return -1;
  const long number = strtol(begin + number_at, nullptr, 10);
  return number >= 1 && number <= INT32_MAX ? static_cast<int>(number) : -1;
}

int find_vpi(const HBA_WWN &wwpn) {
  std::vector<std::string> names;
  sysio::list_sorted(fc_host_class, "host", names);
  for (const std::string &name : names) {
    const Path fc_dir("/sys/class/fc_host/%s/", name.c_str());
    if (hcx_sysfs_read_hexuint64(fc_dir.c_str(), "port_name") != wwn_load(wwpn.wwn)) continue;
    const Path scsi_dir("/sys/class/scsi_host/%s/", name.c_str());
    Line text;
    hcx_sysfs_read_str(scsi_dir.c_str(), "npiv_info", text.data(), text.size());
    return vpi_of(text.c_str());
  }
  return -1;
}

// ---- Readiness ----

uint32_t check_driver(const char *dir) {
  const uint32_t enabled = read_number(dir, "vosk_enable_npiv") ? HCX_NPIV_ENABLED : 0;
  Text<128> link;
  if (attr_exists(dir, "link_state")) {
    attr_read_str(dir, "link_state", link.data(), link.size());
  } else {
    attr_read_str(dir, "state", link.data(), link.size());
  }
  return strncmp(link.c_str(), "Link Up", 7) == 0 ? HCX_NPIV_LINK_UP | enabled : enabled;
}

uint32_t check_adapter(uint32_t board, hcx_host *host) {
  uint32_t bits = hcx_get_sli_mode(host) >= 3 ? HCX_NPIV_SLI3 : 0;
  MAILBOX_t mailbox;
  if (readrev(board, &mailbox) == 0 && (hcx_mbox_word(&mailbox, fcph_word) >> 8 & 0xff) > fcph_with_npiv)
    bits |= HCX_NPIV_FIRMWARE;
  return bits;
}

uint32_t check_capacity(const char *dir) {
  if (!attr_exists(dir, "max_npiv_vports") || !attr_exists(dir, "npiv_vports_inuse")) return 0;
  return attr_read_uint(dir, "max_npiv_vports") > attr_read_uint(dir, "npiv_vports_inuse") ? HCX_NPIV_CAPACITY
                                                                                           : 0;
}

uint32_t check_topology(const char *fc_dir) {
  static constexpr char fabric_port[] = "NPort (fabric via point-to-point)";
  Text<128> type;
  hcx_sysfs_read_str(fc_dir, "port_type", type.data(), type.size());
  return strncmp(type.c_str(), fabric_port, sizeof fabric_port - 1) == 0 ? HCX_NPIV_FABRIC_PORT : 0;
}

// What the state of a virtual port tells about the fabric, once nothing is missing on this side.
uint32_t check_fabric(uint32_t bits, uint32_t vport_state) {
  if (bits != HCX_NPIV_LOCAL) return 0;
  switch (vport_state) {
    case FC_VPORT_STATE_NOFABSUP:
    case FC_VPORT_STATE_VPORTFAIL:
      return 0;
    case FC_VPORT_STATE_NOFABRES:
      return HCX_NPIV_FABRIC_SUPPORT;
    default:
      return HCX_NPIV_FABRIC_SUPPORT | HCX_NPIV_FABRIC_ROOM;
  }
}

}  // namespace
}  // namespace hcx::npiv

using namespace hcx;

uint32_t HCX_VPGetAttrib(uint32_t board, HBA_WWN *pWWPN, HCX_VPAttrib *pAttrib) {
  HCX_TRACE();
  if (!pWWPN || !pAttrib) return npiv::kFailed;
  if (pAttrib->ver != HCX_VPATTRIB_VERSION) {
    HCX_LOG(LOG_ERROR, "board %d Unsupported HCX_VPAttrib version (%d)", board, pAttrib->ver);
    return npiv::kFailed;
  }
  Text<64> host;
  switch (npiv::find_vport_host(*pWWPN, &host)) {
    case npiv::Found::yes:
      break;
    case npiv::Found::no:
      HCX_LOG(LOG_ERROR, "invalid WWPN for board %d", board);
      return npiv::kNoSuchPort;
    case npiv::Found::out_of_memory:
      return npiv::kFailed;
  }
  npiv::fill_attrib(host.c_str(), pAttrib);
  pAttrib->checklist = fill_npiv_checklist(board, pAttrib->state);
  return 0;
}

void get_vport_name(HCX_VPAttrib *pAttrib, char *host_dir_name) {
  HCX_TRACE();
  if (!pAttrib) return;
  memset(pAttrib->name, 0, sizeof pAttrib->name);
  Text<64> name;
  if (!npiv::read_symbolic_name(pAttrib->wwpn, pAttrib->wwnn, &name)) {
    if (host_dir_name && attr_exists(host_dir_name, "vosk_symbolic_name"))
      attr_read_str(host_dir_name, "vosk_symbolic_name", pAttrib->name, sizeof pAttrib->name);
    return;
  }
  char wwpn[24];
  mac_sprintf(&pAttrib->wwpn, wwpn);
  int number;
  get_vport_npiv_info(&pAttrib->wwpn, &number);
  if (name.empty()) {
    snprintf(pAttrib->name, sizeof pAttrib->name, "Quorva PPN-%s VPort-%d", wwpn, number);
  } else {
    snprintf(pAttrib->name, sizeof pAttrib->name, "Quorva PPN-%s VPort-%d VName-%s", wwpn, number,
             name.c_str());
  }
}

int get_vport_npiv_info(HBA_WWN *pWWPN, int *vport_number) {
  HCX_TRACE();
  const int number = pWWPN ? no_throw(-1, [=] { return npiv::find_vpi(*pWWPN); }) : -1;
  if (vport_number) *vport_number = number;
  return number;
}

uint32_t fill_npiv_checklist(uint32_t board, uint32_t vport_state) {
  HCX_TRACE();
  // The lock is held while the adapter answers: a callback on this stack that wants a rescan would wait for ever.
  const EventSignalBlock no_events;
  HostRef host = rescan(board_host(board));
  if (!host) {
    HCX_LOG(LOG_ERROR, "no host for board %d", board);
    return npiv::kNoBoard;
  }
  uint32_t bits = npiv::check_driver(scsi_host_dir(host->id).c_str());
  bits |= npiv::check_adapter(board, host.get());
  bits |= npiv::check_capacity(npiv::control_dir(host->id).c_str());
  bits |= npiv::check_topology(fc_host_dir(host->id).c_str());
  return bits | npiv::check_fabric(bits, vport_state);
}

uint32_t HCX_NPIVReadyTest(uint32_t board, uint32_t *pChecklist) {
  HCX_TRACE();
  if (!pChecklist) return npiv::kFailed;
  *pChecklist = fill_npiv_checklist(board, FC_VPORT_STATE_UNKNOWN);
  return 0;
}
