// SPDX-License-Identifier: BSD-3-Clause
// Which virtual ports there are: lists and resources of a board, the board behind a virtual port, and the targets that
// one sees. Boards are rescanned first; their lock is given back before directories are walked. Any thread.
#include "hcx_npiv.h"

#include "hcx_util_scan.h"

static_assert(sizeof(HCX_VPENTRY) == 20 && offsetof(HCX_VPENTRYLIST, vpentry) == 4);
static_assert(sizeof(HCX_VPRESOURCE) == 16);
static_assert(offsetof(HCX_GETNODEINFO, nodeInfo) == 4);

namespace hcx::npiv {

namespace {

constexpr uint32_t kFailed = 1, kNoBoard = 3, kNoSuchPort = 4, kMoreData = 7, kNoBoardToList = 12;

// The caller's list while it is filled: what does not fit is counted.
class Listing {
 public:
  Listing(const char *caller, uint32_t board, HCX_VPEntryList *list)
      : caller_(caller), board_(board), list_(list), room_(list->numberOfEntries) {}

  // `dir` has the names, `fc_dir` the FC address.
  void add(const Path &dir, const Path &fc_dir) {
    if (found_ < room_) {
      HCX_VPEntry &entry = list_->vpentry[found_];
      wwn_store(entry.wwpn.wwn, hcx_sysfs_read_hexuint64(dir.c_str(), "port_name"));
      wwn_store(entry.wwnn.wwn, hcx_sysfs_read_hexuint64(dir.c_str(), "node_name"));
      entry.portFcId = hcx_sysfs_read_hexuint32(fc_dir.c_str(), "port_id");
    }
    ++found_;
  }

  void skip(size_t index) const {
    libhcx_syslog(LOG_NPIV, "%s - board %d skipping vport entry %d", caller_, static_cast<int>(board_),
                  static_cast<int>(index));
  }

  uint32_t finish() {
    list_->numberOfEntries = found_;
    if (found_ <= room_) return 0;
    libhcx_syslog(LOG_NPIV, "%s - board %d more data - found %d - list size %d", caller_,
                  static_cast<int>(board_), static_cast<int>(found_), static_cast<int>(room_));
    return kMoreData;
  }

 private:
  const char *caller_;
  uint32_t board_;
  HCX_VPEntryList *list_;
  uint32_t room_;
  uint32_t found_ = 0;
};

// The kernel host number of a board that was just rescanned; false when there is none.
bool refreshed_host(uint32_t board, uint32_t *host_no) {
  const HostRef host = rescan(board_host(board));
  if (host) *host_no = host->id;
  return static_cast<bool>(host);
}

// The same for a list, which is empty, and the miss logged, without the host.
bool listed_host(const char *caller, uint32_t board, HCX_VPEntryList *list, uint32_t *host_no) {
  if (refreshed_host(board, host_no)) return true;
  list->numberOfEntries = 0;
  libhcx_syslog(LOG_ERROR, "%s - no host for board %d", caller, board);
  return false;
}

// The names in a class directory, sorted; none when it cannot be listed.
std::vector<std::string> class_entries(const char *caller, uint32_t board, const char *dir,
                                       const char *prefix) {
  std::vector<std::string> names;
  const int rc = sysio::list_sorted(dir, prefix, names);
  if (rc < 0) {
    names.clear();
    libhcx_syslog(LOG_ERROR, "%s - board %d scandir returned %d", caller, static_cast<int>(board), rc);
  }
  return names;
}

// With the class for virtual ports: an entry each, and behind its "device" the host, once that has appeared.
uint32_t up_VPGetList(uint32_t board, HCX_VPEntryList *list) {
  uint32_t host_no;
  if (!listed_host(__func__, board, list, &host_no)) return kNoBoardToList;
  Listing listing(__func__, board, list);
  const Path prefix("vport-%d:", static_cast<int>(host_no));
  const std::vector<std::string> names = class_entries(__func__, board, vport_class, prefix.c_str());
  for (size_t i = 0; i < names.size(); ++i) {
    std::vector<std::string> hosts;
    sysio::list_sorted(Path("/sys/class/fc_vports/%s/device/", names[i].c_str()).c_str(), "host", hosts);
    if (hosts.empty()) {
      listing.skip(i);
      continue;
    }
    listing.add(Path("/sys/class/fc_vports/%s/", names[i].c_str()),
                Path("/sys/class/fc_host/%s/", hosts.front().c_str()));
  }
  return listing.finish();
}

// Whether a host's device lies below that of the physical host.
bool is_below(int number, uint32_t physical) {
  if (number < 0 || static_cast<uint32_t>(number) == physical) return false;
  const HostRef host(hcx_vport_to_physical_host(static_cast<uint32_t>(number)));
  return host && host->id == physical;
}

// Without the class: the hosts whose device lies below the physical host's.
uint32_t Rel_VPGetList(uint32_t board, HCX_VPEntryList *list) {
  uint32_t host_no;
  if (!listed_host(__func__, board, list, &host_no)) return kNoBoardToList;
  Listing listing(__func__, board, list);
  const std::vector<std::string> names = class_entries(__func__, board, "/sys/class/scsi_host", "host");
  for (size_t i = 0; i < names.size(); ++i) {
    if (!is_below(host_number(names[i]), host_no)) continue;
    const Path fc_dir("/sys/class/fc_host/%s/", names[i].c_str());
    if (hcx_sysfs_test_dir(fc_dir.c_str())) {
      listing.add(fc_dir, fc_dir);
    } else {
      listing.skip(i);
    }
  }
  return listing.finish();
}

// For calls that find no board by its number: the first scan finds the boards, and how this kernel names remote ports.
void scan_once() {
  if (!hcx_host_list) board_host(0);
}

// A remote port as a target of the SCSI layer; false when it is none.
bool read_target(const Path &dir, const char *name, NodeInfo *node) {
  const bool old = sysfs_ver < LK2_6_12;
  int number;
  if (sscanf(name, old ? "target%*d:0:%d" : "rport-%*d:0-%d", &number) != 1) return false;
  auto target = static_cast<uint32_t>(number);
  if (!old) {
    Line roles;
    hcx_sysfs_read_str(dir.c_str(), "roles", roles.data(), roles.size());
    const bool is_target = str2bitfield(roles.c_str(), ',', rport_role_names) & FC_RPORT_ROLE_FCP_TARGET;
    target = is_target ? hcx_sysfs_read_uint(dir.c_str(), "scsi_target_id") : UINT32_MAX;
  }
  if (target == UINT32_MAX) return false;
  *node = {};
  node->a_state = NODE_LOGOUT;
  node->a_did = attr_read_hex32(dir.c_str(), "port_id");
  wwn_store(node->a_wwnn, attr_read_hex64(dir.c_str(), "node_name"));
  wwn_store(node->a_wwpn, attr_read_hex64(dir.c_str(), "port_name"));
  node->a_targetid = target;
  return true;
}

uint32_t list_targets(int host_no, HCX_GetNodeInfo *list) {
  const uint32_t room = list->numberOfEntries;
  list->numberOfEntries = 0;
  const bool old = sysfs_ver < LK2_6_12;
  const Path prefix = old ? Path("target%d:0:", host_no) : Path("rport-%d:0-", host_no);
  ClassListing rports = remote_port_listing(old, prefix.c_str());
  ClassListing::Range names;
  if (!rports.find(prefix.c_str(), &names)) return kFailed;
  for (const std::string &name : names) {
    if (list->numberOfEntries == room) break;
    const Path dir("%s/%s/", rports.dir(), name.c_str());
    if (read_target(dir, name.c_str(), &list->nodeInfo[list->numberOfEntries])) ++list->numberOfEntries;
  }
  return 0;
}

}  // namespace
}  // namespace hcx::npiv

using namespace hcx;

uint32_t HCX_VPGetList(uint32_t board, HCX_VPEntryList *pVPEntryList) {
  HCX_TRACE();
  if (!pVPEntryList) return npiv::kFailed;
  return no_throw(npiv::kFailed, [=] {
    return npiv::has_vport_class() ? npiv::up_VPGetList(board, pVPEntryList)
                                   : npiv::Rel_VPGetList(board, pVPEntryList);
  });
}

uint32_t HCX_VPGetResource(uint32_t board, HCX_VPResource *pVPRes) {
  HCX_TRACE();
  if (!pVPRes) return npiv::kFailed;
  uint32_t host_no;
  if (!npiv::refreshed_host(board, &host_no)) {
    HCX_LOG(LOG_ERROR, "no host for board %d", board);
    return npiv::kNoBoard;
  }
  const Path dir = scsi_host_dir(host_no);
  const struct {
    const char *file;
    uint32_t *count;
  } counts[] = {{"max_vpi", &pVPRes->vlinks_max},
                {"used_vpi", &pVPRes->vlinks_inuse},
                {"max_rpi", &pVPRes->rpi_max},
                {"used_rpi", &pVPRes->rpi_inuse}};
  for (const auto &row : counts) {
    if (attr_exists(dir.c_str(), row.file)) continue;
    HCX_LOG(LOG_ERROR, "board %d missing - max_npiv used_vpi max_rpi used_rpi", board);
    return npiv::kFailed;
  }
  for (const auto &row : counts)
    *row.count = attr_read_uint(dir.c_str(), row.file);
  return 0;
}

uint32_t vpGetPhys(uint32_t host_no, uint32_t *brd_idx, uint32_t *bus) {
  HCX_TRACE();
  if (!brd_idx || !bus) return npiv::kFailed;
  npiv::scan_once();
  const HostRef host(hcx_vport_to_physical_host(host_no));
  if (!host) {
    HCX_LOG(LOG_ERROR, "no host for board %d", host_no);
    return npiv::kNoBoard;
  }
  *brd_idx = static_cast<uint32_t>(host->brd_idx);
  *bus = host->id;  // as in the operating system's name of its port
  return 0;
}

uint32_t HCX_GetFcpTargetMappingByWWN(uint32_t, HBA_WWN *, void *) {
  HCX_TRACE();
  return HBA_STATUS_ERROR_NOT_SUPPORTED;
}

uint32_t HCX_GetAllNodeInfoByWWN(uint32_t, HBA_WWN *pWWPN, HCX_GetNodeInfo *pNodeInfo) {
  HCX_TRACE();
  if (!pWWPN || !pNodeInfo) return npiv::kFailed;
  npiv::scan_once();
  const int host_no = hcx_get_host_id(pWWPN);
  if (host_no < 0) {
    pNodeInfo->numberOfEntries = 0;
    return npiv::kNoSuchPort;
  }
  return no_throw(npiv::kFailed, [=] { return npiv::list_targets(host_no, pNodeInfo); });
}

void mac_sprintf(HBA_WWN *IEEEp, char *buf) {
  HCX_TRACE();
  if (!IEEEp || !buf) return;
  for (int i = 0; i < 8; ++i)
    snprintf(buf + 3 * i, 4, i < 7 ? "%02x:" : "%02x", IEEEp->wwn[i]);
}
