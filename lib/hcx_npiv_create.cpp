// SPDX-License-Identifier: BSD-3-Clause
// Making, naming and deleting virtual ports: one line of text each to the kernel, which decides; two processes that
// want the same name are told apart there. The board is rescanned first and its lock given back before anything is
// written. Any thread.
#include <algorithm>
#include <string>
#include <vector>

#include "hcx_npiv.h"

namespace hcx::npiv {
namespace {

constexpr uint32_t kFailed = 1, kNoCapacityKnown = 2, kNoBoardToDelete = 3, kNoRoom = 4, kNameTaken = 5,
                   kNoPort = 6, kNoBoard = 11, kBadOption = 12, kStatic = 15;
constexpr uint32_t kNoSuchPort = 4;  // of HCX_VPGetAttrib()
constexpr int page = 4096;           // what the kernel takes as one text

// Control characters would end or garble the one line that a name travels in.
bool printable(const char *name) {
  for (; *name; ++name) {
    const auto c = static_cast<unsigned char>(*name);
    if (c < 0x20 || c == 0x7f) return false;
  }
  return true;
}

Text<20> digits(const HBA_WWN &name) {
  return Text<20>("%016llx", static_cast<unsigned long long>(wwn_load(name.wwn)));
}

std::vector<uint64_t> known_port_names() {
  std::vector<std::string> names;
  sysio::list_sorted(fc_host_class, "host", names);
  std::vector<uint64_t> known;
  for (const std::string &name : names) {
    const Path dir("/sys/class/fc_host/%s/", name.c_str());
    known.push_back(hcx_sysfs_read_hexuint64(dir.c_str(), "port_name"));
  }
  return known;
}

// The physical port's name with a third byte that makes it new; all zero when there is none left.
HBA_WWN choose_wwpn(const hcx_port &port, uint8_t *counter) {
  const std::vector<uint64_t> known = known_port_names();
  HBA_WWN name;
  memcpy(name.wwn, port.wwpn, sizeof name.wwn);
  for (*counter = 1; *counter <= 254; ++*counter) {
    name.wwn[2] = *counter;
    if (std::find(known.begin(), known.end(), wwn_load(name.wwn)) == known.end()) return name;
  }
  return {};
}

// False: out of memory.
bool choose_names(const hcx_port &port, HCX_VPAttrib *attrib) {
  uint8_t counter;
  const bool searched = no_throw(false, [&] {
    attrib->wwpn = choose_wwpn(port, &counter);
    return true;
  });
  if (!searched) return false;
  if (is_zero(attrib->wwpn)) {
    attrib->wwnn = {};
  } else if (is_zero(attrib->wwnn)) {
    memcpy(attrib->wwnn.wwn, port.wwnn, sizeof attrib->wwnn.wwn);
    attrib->wwnn.wwn[2] = counter;
  }
  return true;
}

uint32_t check_room(const char *caller, uint32_t board, const Path &dir) {
  if (!attr_exists(dir.c_str(), "max_npiv_vports")) {
    libhcx_syslog(LOG_ERROR, "%s - board %d max_npiv_vports not found", caller, static_cast<int>(board));
    return kNoCapacityKnown;
  }
  const uint32_t most = attr_read_uint(dir.c_str(), "max_npiv_vports");
  const uint32_t in_use = attr_read_uint(dir.c_str(), "npiv_vports_inuse");
  if (most > in_use) return 0;
  libhcx_syslog(LOG_ERROR, "%s - board %d max vports %d already created", caller, static_cast<int>(board),
                static_cast<int>(in_use));
  return kNoRoom;
}

uint32_t check_names(const char *caller, uint32_t board, HCX_VPAttrib *attrib) {
  if (is_zero(attrib->wwpn) || is_zero(attrib->wwnn)) {
    libhcx_syslog(LOG_ERROR, "%s - board %d zero WWPN or WWNN", caller, static_cast<int>(board));
    return kNoPort;
  }
  if (hcx_get_host_id(&attrib->wwpn) >= 0) {
    libhcx_syslog(LOG_ERROR, "%s - board %d illegal WWPN", caller, static_cast<int>(board));
    return kNameTaken;
  }
  return 0;
}

// Older drivers take the symbolic name together with the others.
bool write_create(const Path &dir, bool has_class, const char *vname, const HCX_VPAttrib &attrib) {
  const Text<20> wwpn = digits(attrib.wwpn), wwnn = digits(attrib.wwnn);
  char *text = nullptr;
  const int length = has_class
                         ? asprintf(&text, "%s:%s\n", wwpn.c_str(), wwnn.c_str())
                         : asprintf(&text, "%s:%s %s\n", wwpn.c_str(), wwnn.c_str(), vname ? vname : "");
  if (length < 0) return false;
  const HeapArray<char> owner(text);
  return length <= page && attr_write_str(dir.c_str(), "vport_create", text) == 0;
}

}  // namespace
}  // namespace hcx::npiv

using namespace hcx;

uint32_t HCX_VPCreate(uint32_t board, char *vname, HCX_VPAttrib *pAttrib) {
  HCX_TRACE();
  if (!pAttrib) return npiv::kFailed;
  HostRef host = rescan(board_host(board));
  if (!host) {
    HCX_LOG(LOG_ERROR, "no host for board %d", board);
    return npiv::kNoBoard;
  }
  const bool has_class = npiv::has_vport_class();
  const Path dir = has_class ? fc_host_dir(host->id) : scsi_host_dir(host->id);
  if (pAttrib->ver != HCX_VPATTRIB_VERSION) {
    host.drop();
    HCX_LOG(LOG_ERROR, "board %d Unsupported HCX_VPAttrib version (%d)", board, pAttrib->ver);
    return npiv::kFailed;
  }
  if (pAttrib->options & HCX_VPORT_REFUSED_OPTIONS) {
    host.drop();
    HCX_LOG(LOG_ERROR, "Unsupported HCX_VPAttrib option (%d)", pAttrib->options);
    return npiv::kBadOption;
  }
  if ((pAttrib->options & HCX_VPORT_CHOOSE_NAMES) && !npiv::choose_names(host->port, pAttrib))
    return npiv::kFailed;
  host.drop();
  if (const uint32_t refused = npiv::check_room(__func__, board, dir)) return refused;
  if (const uint32_t refused = npiv::check_names(__func__, board, pAttrib)) return refused;
  if (vname && !npiv::printable(vname)) {
    HCX_LOG(LOG_ERROR, "board %d control character in the symbolic name", board);
    return npiv::kFailed;
  }
  if (!npiv::write_create(dir, has_class, vname, *pAttrib)) {
    pAttrib->checklist = fill_npiv_checklist(board, FC_VPORT_STATE_UNKNOWN);
    HCX_LOG(LOG_ERROR, "board %d vport_create write error", board);
    return npiv::kFailed;
  }
  if (has_class) hcx_set_vport_sybolic_name(&pAttrib->wwpn, vname);
  const uint32_t result = HCX_VPGetAttrib(board, &pAttrib->wwpn, pAttrib);
  if (result != npiv::kNoSuchPort) return result;
  HCX_LOG(LOG_ERROR, "board %d vp get attrib returned invalid wwpn", board);
  return npiv::kNoPort;
}

uint32_t HCX_VPDeleteV2(uint32_t board, HBA_WWN *pWWPN, uint32_t, uint8_t *) {
  HCX_TRACE();
  if (!pWWPN) return npiv::kFailed;
  HostRef host = rescan(board_host(board));
  if (!host) {
    HCX_LOG(LOG_ERROR, "no host for board %d", board);
    return npiv::kNoBoardToDelete;
  }
  const Path dir = npiv::control_dir(host->id);
  host.drop();
  HCX_VPAttrib attrib = {};
  attrib.ver = HCX_VPATTRIB_VERSION;
  if (const uint32_t result = HCX_VPGetAttrib(board, pWWPN, &attrib)) {
    HCX_LOG(LOG_ERROR, "board %d vp get attrib returned error %d", board, result);
    return result;
  }
  if (attrib.flags & HCX_VPORT_STATIC) {
    HCX_LOG(LOG_ERROR, "board %d cannot delete static vport", board);
    return npiv::kStatic;
  }
  const Text<40> names("%s:%s", npiv::digits(*pWWPN).c_str(), npiv::digits(attrib.wwnn).c_str());
  if (attr_write_str(dir.c_str(), "vport_delete", names.c_str()) == 0) return 0;
  HCX_LOG(LOG_ERROR, "board %d vport_delete write failed", board);
  return npiv::kFailed;
}

uint32_t HCX_VPDelete(uint32_t board, HBA_WWN *pWWPN, uint32_t options) {
  HCX_TRACE();
  return HCX_VPDeleteV2(board, pWWPN, options, nullptr);
}

int hcx_set_vport_sybolic_name(HBA_WWN *pWWPN, char *vname) {
  HCX_TRACE();
  if (!vname || !*vname) return 0;
  if (!pWWPN) return -1;
  if (!npiv::printable(vname)) return npiv::kFailed;
  Path entry;
  if (!no_throw(false, [&] { return npiv::find_entry(*pWWPN, nullptr, &entry); })) return -1;
  return hcx_sysfs_write_str(entry.c_str(), "symbolic_name", vname);
}
