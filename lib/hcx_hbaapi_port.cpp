// SPDX-License-Identifier: BSD-3-Clause
// One port record, local or remote, as an HBA API record. Text attributes of the FC transport become numbers
// here. The caller holds the lock of the port's host; nothing is scanned.
//
// An adapter port's record and those of its remote ports share half of their sources: type, speeds, names and
// FC-4 types always come from the adapter port's own directory, and applications rely on that.
#include <algorithm>
#include <cstring>

#include "libhcx.h"

static_assert(sizeof(HBA_PORTATTRIBUTES) == 632);
static_assert(offsetof(HBA_PORTATTRIBUTES, OSDeviceName) == 352);
static_assert(offsetof(HBA_PORTATTRIBUTES, NumberofDiscoveredPorts) == 628);
static_assert(sizeof(HBA_OSDN) == 116 && offsetof(HBA_OSDN, InquirySN) == 50);

namespace hcx {
namespace {

bool is_local(const hcx_port *port) {
  return port == &port->host->port;
}

// Where a port's own attributes are, and whether the capability table has rows for that place: it has none
// for the directories of the trees before 2.6.12.
class PortDir {
 public:
  explicit PortDir(const hcx_port *port) : listed_(sysfs_ver > RHEL4) {
    const uint32_t host_no = port->host->id;
    if (is_local(port))
      dir_ = listed_ ? fc_host_dir(host_no) : scsi_host_dir(host_no);
    else if (listed_)
      dir_ = Path("/sys/class/fc_remote_ports/rport-%d:0-%d/", host_no, port->id);
    else
      dir_ = Path("/sys/class/fc_transport/target%d:0:%d/", host_no, port->scsi_target_id);
  }

  const char *c_str() const { return dir_.c_str(); }
  bool exists() const { return hcx_sysfs_test_dir(c_str()) == 1; }
  bool read_str(const char *file, Line &text) const {
    return (listed_ ? hcx_sysfs_read_str(c_str(), file, text.data(), text.size())
                    : attr_read_str(c_str(), file, text.data(), text.size())) != nullptr;
  }
  uint32_t read_uint(const char *file) const {
    return listed_ ? hcx_sysfs_read_uint(c_str(), file) : attr_read_uint(c_str(), file);
  }
  uint32_t read_hex32(const char *file) const {
    return listed_ ? hcx_sysfs_read_hexuint32(c_str(), file) : attr_read_hex32(c_str(), file);
  }
  uint64_t read_hex64(const char *file) const {
    return listed_ ? hcx_sysfs_read_hexuint64(c_str(), file) : attr_read_hex64(c_str(), file);
  }

 private:
  bool listed_;
  Path dir_;
};

bool read_adapter_text(const Path &dir, const char *file, Line &text) {
  return hcx_sysfs_read_str(dir.c_str(), file, text.data(), text.size()) != nullptr;
}

void read_fc4_types(const Path &dir, const char *file, uint8_t types[32]) {
  Line text;
  if (!read_adapter_text(dir, file, text)) return;
  const char *at = text.c_str();
  for (int i = 0; i < 32; ++i) {
    int used = 0;
    if (sscanf(at, " 0x%hhx%n", &types[i], &used) != 1) return;
    at += used;
  }
}

void store_os_device(const hcx_port *port, char (&to)[256]) {
  HBA_OSDN record;
  memset(&record, 0, sizeof record);  // the padding goes to the caller too
  memcpy(record.drvname, "vosk", sizeof "vosk");
  record.instance = static_cast<uint32_t>(port->host->vend_idx);
  record.target = port->scsi_target_id;
  record.bus = port->host->id;
  if (port->serial_number && *port->serial_number) {
    const size_t length = strnlen(*port->serial_number, sizeof record.InquirySN);
    record.sizeSN = static_cast<char>(length);
    memcpy(record.InquirySN, *port->serial_number, length);  // 64 characters leave no room for a terminator
  }
  memcpy(to, &record, sizeof record);
}

uint32_t count_ports(const hcx_port *list) {
  uint32_t count = 0;
  for (; list; list = list->next)
    ++count;
  return count;
}

void fill_from_port(const PortDir &dir, const hcx_port *port, HBA_PORTATTRIBUTES *attr) {
  Line text;
  if (dir.read_str("supported_classes", text))
    attr->PortSupportedClassofService = str2bitfield(text.c_str(), ',', class_names);
  attr->PortMaxFrameSize = dir.read_uint("maxframe_size");
  attr->PortFcId = dir.read_hex32("port_id");
  wwn_store(attr->PortWWN.wwn, dir.read_hex64("port_name"));
  wwn_store(attr->NodeWWN.wwn, dir.read_hex64("node_name"));
  store_os_device(port, attr->OSDeviceName);
  attr->NumberofDiscoveredPorts = is_local(port) ? count_ports(port->host->port_list) : 0;
}

void fill_from_adapter(const Path &dir, HBA_PORTATTRIBUTES *attr) {
  Line text;
  if (read_adapter_text(dir, "port_type", text)) attr->PortType = str2enum(text.c_str(), port_type_names);
  if (read_adapter_text(dir, "symbolic_name", text))
    memcpy(attr->PortSymbolicName, text.c_str(), strlen(text.c_str()));
  if (read_adapter_text(dir, "supported_speeds", text))
    attr->PortSupportedSpeed = str2bitfield(text.c_str(), ',', port_speed_names);
  if (read_adapter_text(dir, "speed", text)) attr->PortSpeed = str2enum(text.c_str(), port_speed_names);
  wwn_store(attr->FabricName.wwn, hcx_sysfs_read_hexuint64(dir.c_str(), "fabric_name"));
  read_fc4_types(dir, "supported_fc4s", attr->PortSupportedFc4Types);
  read_fc4_types(dir, "active_fc4s", attr->PortActiveFc4Types);
}

}  // namespace
}  // namespace hcx

using namespace hcx;

extern "C" uint32_t hcx_sysfs_read_port(hcx_port *port, HBA_PORTATTRIBUTES *attr) {
  HCX_TRACE();
  if (!port || !port->host || !attr) return HBA_STATUS_ERROR_ARG;
  const PortDir dir(port);
  if (!dir.exists()) {
    HCX_LOG(LOG_ERROR, "stale data on %s", dir.c_str());
    return HBA_STATUS_ERROR_STALE_DATA;
  }
  Line state;
  dir.read_str("port_state", state);
  // However much of it was read: an empty text is a beginning of "Not Present" too.
  if (strncmp(state.c_str(), "Not Present", strlen(state.c_str())) == 0) {
    HCX_LOG(LOG_ERROR, "Expected Not Present but got %s on %s", state.c_str(), dir.c_str());
    return HBA_STATUS_ERROR_STALE_DATA;
  }
  memset(attr, 0, sizeof *attr);
  attr->PortState = str2enum(state.c_str(), port_state_names);
  fill_from_port(dir, port, attr);
  fill_from_adapter(fc_host_dir(port->host->id), attr);
  return HBA_STATUS_OK;
}

extern "C" uint32_t hcx_sysfs_read_mlomode(hcx_port *port) {
  HCX_TRACE();
  if (!port || !port->host) return HBA_STATUS_ERROR_ARG;
  const PortDir dir(port);
  if (!dir.exists()) {
    HCX_LOG(LOG_ERROR, "stale data on %s", dir.c_str());
    return HBA_STATUS_ERROR_STALE_DATA;
  }
  const Path host_dir = scsi_host_dir(port->host->id);
  Line text;
  if (!attr_exists(host_dir.c_str(), "mlomode")) return 0;
  if (!attr_read_str(host_dir.c_str(), "mlomode", text.data(), text.size())) return 0;
  return str2enum(text.c_str(), yes_no_names);
}
