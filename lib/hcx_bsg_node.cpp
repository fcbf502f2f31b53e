// SPDX-License-Identifier: BSD-3-Clause
// From a board, a host record, a port name or an FC address to an open BSG node. Host locks are held only
// while a host is looked up. Any thread.
#include <errno.h>

#include <string>
#include <vector>

#include "hcx_bsg.h"
#include "libhcx.h"

namespace {

constexpr char node_dir[] = "/dev/bsg";
constexpr char host_node[] = "fc_host";
constexpr char rport_class[] = "/sys/class/fc_remote_ports";

struct HostNode {
  explicit HostNode(uint32_t host_no) : name("%s%d", host_node, static_cast<int>(host_no)) {
    path.assign(node_dir).append("/").append(name.c_str());
  }
  bool usable() const { return find_bsg_device_mmm(node_dir, name.c_str()) != 0; }
  int open() const { return hcx::sysio::machine().open(path.c_str(), O_RDWR); }

  hcx::Text<20> name;
  hcx::Path path;
};

// Name of the first remote port of a host whose attribute reads so; empty when there is none.
std::string find_rport(int board, const char *caller, const char *prefix, const char *filename,
                       const char *match_str) {
  std::vector<std::string> names;
  const int rc = hcx::sysio::machine().list(rport_class, prefix, names);
  for (const std::string &name : names) {
    const hcx::Path dir("%s/%s/", rport_class, name.c_str());
    hcx::Text<40> text;
    if (hcx_sysfs_read_str(dir.c_str(), filename, text.data(), text.size()) && text.equals(match_str))
      return name;
  }
  if (rc == 0) {
    libhcx_syslog(LOG_BSG, "%s - board %d no match %s entry for filename %s", caller, board, match_str,
                  filename);
  } else if (names.empty()) {
    libhcx_syslog(LOG_ERROR, "%s - failed to open dir %s", caller, rport_class);
  } else {
    libhcx_syslog(LOG_ERROR, "%s - readdir failed for %s", caller, rport_class);
  }
  return {};
}

}  // namespace

hcx_host *lookup_hcx_host(uint32_t board) {
  const char *const caller = __func__;
  return hcx::no_throw(static_cast<hcx_host *>(nullptr), [board, caller]() -> hcx_host * {
    hcx::HostRef host = hcx::board_host(board);
    if (host) host = hcx::rescan(std::move(host));
    if (!host) libhcx_syslog(LOG_ERROR, "%s - board %d : no host", caller, static_cast<int>(board));
    return host.release();
  });
}

int map_host_to_bsg(hcx_host *host) {
  if (!host) return -EINVAL;
  const HostNode node(host->id);
  if (!node.usable()) return 0;
  HCX_LOG_PATH(node.path.c_str());
  const int fd = node.open();
  if (fd < 0) HCX_LOG(LOG_ERROR, "open failed: pathname %s", node.path.c_str());
  return fd;
}

int map_board_to_bsg(int board) {
  hcx::HostRef host(lookup_hcx_host(static_cast<uint32_t>(board)));
  if (!host) {
    HCX_LOG(LOG_ERROR, "invalid board %d", board);
    return -1;
  }
  const HostNode node(host->id);
  host.drop();
  if (!node.usable()) return -1;
  HCX_LOG_PATH(node.path.c_str());
  const int fd = node.open();
  if (fd < 0) HCX_LOG(LOG_ERROR, "open failed: board %d pathname %s", board, node.path.c_str());
  return fd;
}

int map_rport_to_bsg(int board, const char *filename, const char *match_str) {
  if (!filename || !match_str) return -1;
  hcx::HostRef host(lookup_hcx_host(static_cast<uint32_t>(board)));
  if (!host) {
    HCX_LOG(LOG_ERROR, "invalid board %d", board);
    return -1;
  }
  const uint32_t host_no = host->id;
  host.drop();
  char prefix[20];
  const int length = snprintf(prefix, sizeof prefix, "rport-%d:", static_cast<int>(host_no));
  if (length < 0 || static_cast<size_t>(length) >= sizeof prefix) {
    HCX_LOG(LOG_ERROR, "board %d could not form rport name", board);
    return -1;
  }
  const char *const caller = __func__;
  const std::string name =
      hcx::no_throw(std::string(), [&] { return find_rport(board, caller, prefix, filename, match_str); });
  if (name.empty()) return -1;
  if (!find_bsg_device_mmm(node_dir, name.c_str())) {
    HCX_LOG(LOG_BSG, "board %d no match %s entry for filename %s", board, match_str, filename);
    return -1;
  }
  const hcx::Path path("%s/%s", node_dir, name.c_str());
  HCX_LOG_PATH(path.c_str());
  const int fd = hcx::sysio::machine().open(path.c_str(), O_RDWR);
  if (fd < 0) HCX_LOG(LOG_ERROR, "open failed: board %d path %s", board, path.c_str());
  return fd;
}

int map_wwn_to_bsg(int board, uint8_t *wwn) {
  if (!wwn) return -1;
  char text[20];
  const int length = snprintf(text, sizeof text, "0x%02x%02x%02x%02x%02x%02x%02x%02x", wwn[0], wwn[1], wwn[2],
                              wwn[3], wwn[4], wwn[5], wwn[6], wwn[7]);
  if (length < 0 || static_cast<size_t>(length) >= sizeof text) return -1;
  return map_rport_to_bsg(board, "port_name", text);
}

int map_did_to_bsg(int board, int did) {
  char text[9];
  const int length = snprintf(text, sizeof text, "0x%06x", static_cast<unsigned>(did));
  if (length < 0 || static_cast<size_t>(length) >= sizeof text) return -1;
  return map_rport_to_bsg(board, "port_id", text);
}

int map_wwn_to_port_id(int board, HBA_WWNTYPE wwntype, uint8_t *wwn, uint32_t *did) {
  if (!wwn || !did || wwntype > 1) return -1;
  const hcx::HostRef host(lookup_hcx_host(static_cast<uint32_t>(board)));
  if (!host) return -1;
  const hcx_port *port = wwntype == 1 ? hcx_port_find_by_wwpn(host->port_list, wwn)
                                      : hcx_port_find_by_wwnn(host->port_list, wwn);
  if (!port) return -1;
  *did = port->port_id;
  return 0;
}
