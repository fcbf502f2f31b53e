// SPDX-License-Identifier: BSD-3-Clause
// The five capability templates: every kernel facility the library may touch, with the versions of the
// driver's management interface that have it. Filled at compile time; the version settlement clears `supported`.
#include "hcx_mmm_table.h"

#include <cstddef>

#include "vosk_bsg.h"

MMM_WINDOW MMM_Window;
MMM_SYSFS MMM_Sysfs;
MMM_NETLINK MMM_Netlink;
MMM_BSG_IOCTL MMM_BSG_ioctl;
MMM_BSG_DEV MMM_BSG_dev;

namespace hcx {

uint32_t vosk_major = 0;
uint32_t vosk_minor = 0;
uint32_t libhcx_major = 2;
uint32_t libhcx_minor = 0;

namespace {

struct Version {
  uint32_t major;
  uint32_t minor;
};
constexpr Version first{1, 0};
constexpr Version last{9, 9};

// Does not compile when the text has no room.
template <size_t Size>
constexpr void put(char (&to)[Size], const char *text) {
  size_t i = 0;
  for (; text[i] != '\0'; ++i)
    to[i] = text[i];
  to[i] = '\0';
}

constexpr MMM_WINDOW window(const char *help, Version since) {
  MMM_WINDOW w{1, since.major, since.minor, last.major, last.minor, {}};
  put(w.a_help, help);
  return w;
}

template <class Row>
constexpr Row path_row(const char *dir, const char *file, const char *help, Version since) {
  Row row{window(help, since), {}, {}};
  put(row.dir_string, dir);
  put(row.file_string, file);
  return row;
}

constexpr MMM_SYSFS attribute(const char *dir, const char *file, const char *help, Version since = first) {
  return path_row<MMM_SYSFS>(dir, file, help, since);
}

constexpr MMM_BSG_DEV node(const char *dir, const char *file, const char *help) {
  return path_row<MMM_BSG_DEV>(dir, file, help, first);
}

constexpr MMM_NETLINK event(uint32_t code, uint32_t event_code, const char *help) {
  return {window(help, first), code, event_code};
}

constexpr MMM_BSG_IOCTL request(uint32_t code, uint32_t command, const char *help, Version since = first) {
  return {window(help, since), code, command};
}

constexpr char scsi_host[] = "/sys/class/scsi_host";
constexpr char fc_host[] = "/sys/class/fc_host";
constexpr char fc_remote_ports[] = "/sys/class/fc_remote_ports";
constexpr char fc_vports[] = "/sys/class/fc_vports";
constexpr char sys_devices[] = "/sys/devices";
constexpr char dev_bsg[] = "/dev/bsg";

}  // namespace

constinit MMM_SYSFS mmm_sys_class_template[72] = {
    attribute(scsi_host, "npiv_info", "NPIV: Not supported, Physical, Virtual (R)"),
    attribute(scsi_host, "vosk_log_verbose", "Controls what kind of driver messages are logged (RW)"),
    attribute(scsi_host, "unique_id", "Number of the port among the adapters of its driver (R)"),
    attribute(scsi_host, "vosk_temp_sensor", "Temperature sensor: 0-none 1-present (R)"),
    attribute(scsi_host, "nport_evt_cnt", "Count of N_Port events (R)"),
    attribute(scsi_host, "info", "Adapter model and PCI location (R)"),
    attribute(scsi_host, "serialnum", "Adapter serial number (R)"),
    attribute(scsi_host, "hdw", "Hardware version (R)"),
    attribute(scsi_host, "fwrev", "Firmware revision and SLI mode (R)"),
    attribute(scsi_host, "option_rom_version", "Option ROM version (R)"),
    attribute(scsi_host, "vosk_drvr_version", "Quorva driver string with version number (R)"),
    attribute(scsi_host, "board_mode", "Board state: error, warm start, offline, online (RW)"),
    attribute(scsi_host, "modelname", "Adapter model: QV8202 (R)"),
    attribute(scsi_host, "modeldesc",
              "Adapter description: QV8202 8Gb 2-port PCIe Fibre Channel Adapter (R)"),
    attribute(scsi_host, "programtype", "Firmware program type (R)"),
    attribute(scsi_host, "portnum", "Number of the port on its adapter (R)"),
    attribute(scsi_host, "link_state", "Link state: Link Down, Link Up - Ready, Fabric (RW)"),
    attribute(scsi_host, "vosk_drvr_stat_data", "I/O statistics collected by the driver (R)"),
    attribute(scsi_host, "vosk_stat_data_ctrl", "Controls the collection of I/O statistics (RW)"),
    attribute(scsi_host, "mbox", "Mbox: used to sync application access for BSG mbox access (RW)"),
    attribute(scsi_host, "ctlreg", "Control register: read/write to the adapter IOREG space (RW)"),
    attribute(scsi_host, "issue_reset",
              "Adapter reset control: Selectively resets an adapter with selective (W)"),
    attribute(scsi_host, "vosk_enable_npiv", "NPIV: 0-off 1-on (R)"),
    attribute(scsi_host, "vosk_restrict_login",
              "Allow logins between virtual ports and remote initiators 0-yes 1-reject (RW)"),
    attribute(scsi_host, "vosk_static_vport",
              "Virtual port made by the adapter's configuration: 0-no 1-yes (R)"),
    attribute(scsi_host, "vosk_enable_fcp_priority", "FCP priority enable flag (RW)", {2, 0}),
    attribute(scsi_host, "protocol", "The port protocol (R)", {1, 1}),

    attribute(fc_host, "port_id", "FC address of the port (R)"),
    attribute(fc_host, "node_name", "World wide node name (R)"),
    attribute(fc_host, "port_name", "World wide port name (R)"),
    attribute(fc_host, "port_type", "Port type: NPort, NLPort, Unknown, ... (R)"),
    attribute(fc_host, "port_state", "Port state: Online, Linkdown, ... (R)"),
    attribute(fc_host, "supported_classes", "FC classes of service of the port (R)"),
    attribute(fc_host, "symbolic_name", "Symbolic name: QV8202 FW2.10X8 DV:4.2.17 (R)"),
    attribute(fc_host, "supported_speeds", "Link speeds of the port (R)"),
    attribute(fc_host, "speed", "Current link speed (R)"),
    attribute(fc_host, "maxframe_size", "Largest frame in bytes (R)"),
    attribute(fc_host, "fabric_name", "World wide name of the fabric (R)"),
    attribute(fc_host, "supported_fc4s", "FC-4 types that the port can use (R)"),
    attribute(fc_host, "active_fc4s", "FC-4 types in use (R)"),
    attribute(fc_host, "max_npiv_vports", "Most virtual ports that the port can have (R)"),
    attribute(fc_host, "npiv_vports_inuse", "Virtual ports that the port has (R)"),
    attribute(fc_host, "vport_create", "WWPN:WWNN write only (W)"),
    attribute(fc_host, "vport_delete", "WWPN:WWNN of the virtual port to delete (W)"),
    attribute(fc_host, "tgtid_bind_type", "Target id binding: none, wwpn, wwnn, port_id (RW)"),
    attribute(fc_host, "seconds_since_last_reset", "Seconds since the statistics were reset (R)"),
    attribute(fc_host, "tx_frames", "Frames sent (R)"),
    attribute(fc_host, "tx_words", "Words sent (R)"),
    attribute(fc_host, "rx_frames", "Frames received (R)"),
    attribute(fc_host, "rx_words", "Words received (R)"),
    attribute(fc_host, "lip_count", "Loop initializations (R)"),
    attribute(fc_host, "nos_count", "Not operational sequences (R)"),
    attribute(fc_host, "error_frames", "Frames received in error (R)"),
    attribute(fc_host, "dumped_frames", "Frames lost for want of buffers (R)"),
    attribute(fc_host, "link_failure_count", "Link failures (R)"),
    attribute(fc_host, "loss_of_sync_count", "Losses of synchronization (R)"),
    attribute(fc_host, "loss_of_signal_count", "Losses of signal (R)"),
    attribute(fc_host, "prim_seq_protocol_err_count", "Primitive sequence protocol errors (R)"),
    attribute(fc_host, "invalid_tx_word_count", "Invalid transmission words (R)"),
    attribute(fc_host, "invalid_crc_count", "Frames with an invalid CRC (R)"),

    attribute(fc_remote_ports, "roles", "Roles: FCP Target, FCP Initiator, ... (R)"),
    attribute(fc_remote_ports, "port_name", "World wide port name (R)"),
    attribute(fc_remote_ports, "port_id", "FC address of the remote port (R)"),
    attribute(fc_remote_ports, "node_name", "World wide node name (R)"),
    attribute(fc_remote_ports, "scsi_target_id", "SCSI target id: -1, 0, 1, 3, ... (R)"),
    attribute(fc_remote_ports, "supported_classes", "FC classes of service of the remote port (R)"),
    attribute(fc_remote_ports, "maxframe_size", "Largest frame in bytes (R)"),
    attribute(fc_remote_ports, "port_state", "Port state: Online, Blocked, Not Present, ... (R)"),

    attribute(fc_vports, "port_name", "World wide port name (R)"),
    attribute(fc_vports, "node_name", "World wide node name (R)"),
    attribute(fc_vports, "symbolic_name", "Symbolic name of the virtual port (RW)"),
    {},
};

constinit MMM_SYSFS mmm_sys_devices_template[5] = {
    attribute(sys_devices, "irq", "IRQ: assigned irq (R)"),
    attribute(sys_devices, "device", "PCI device id (R)"),
    attribute(sys_devices, "vendor", "PCI vendor id (R)"),
    attribute(sys_devices, "config", "PCI config (RW)"),
    {},
};

constinit MMM_NETLINK mmm_netlink_template[16] = {
    event(VOSKH_EVT_LINKUP, 0x0, "Netlink link up event"),
    event(VOSKH_EVT_LINKDOWN, 0x0, "Netlink link down event"),
    event(VOSKH_EVT_RSCN, 0x0, "Netlink RSCN event"),
    event(VOSKH_EVT_PORT_ONLINE, 0x0, "Netlink port online event"),
    event(VOSKH_EVT_VENDOR_UNIQUE, 0x1, "Netlink vendor unique link event"),
    event(VOSKH_EVT_VENDOR_UNIQUE, 0x2, "Netlink vendor unique RSCN event"),
    event(VOSKH_EVT_VENDOR_UNIQUE, 0x4, "Netlink vendor unique CT event"),
    event(VOSKH_EVT_VENDOR_UNIQUE, 0x10, "Netlink vendor unique dump event"),
    event(VOSKH_EVT_VENDOR_UNIQUE, 0x20, "Netlink vendor unique temperature event"),
    event(VOSKH_EVT_VENDOR_UNIQUE, 0x40, "Netlink vendor unique VportRSCN event"),
    event(VOSKH_EVT_VENDOR_UNIQUE, 0x80, "Netlink vendor unique ELS event"),
    event(VOSKH_EVT_VENDOR_UNIQUE, 0x100, "Netlink vendor unique fabric event"),
    event(VOSKH_EVT_VENDOR_UNIQUE, 0x200, "Netlink vendor unique SCSI event"),
    event(VOSKH_EVT_VENDOR_UNIQUE, 0x400, "Netlink vendor unique board event"),
    event(VOSKH_EVT_VENDOR_UNIQUE, 0x800, "Netlink vendor unique adapter event"),
    {},
};

constinit MMM_BSG_IOCTL mmm_bsg_ioctl_template[15] = {
    request(FC_BSG_RPT_ELS, 0x0, "BSG report ELS"),
    request(FC_BSG_RPT_CT, 0x0, "BSG send CT command"),
    request(FC_BSG_HST_VENDOR, 0x1, "BSG vendor unique set CT event"),
    request(FC_BSG_HST_VENDOR, 0x2, "BSG vendor unique get CT event"),
    request(FC_BSG_HST_VENDOR, 0x3, "BSG vendor unique send management response"),
    request(FC_BSG_HST_VENDOR, 0x4, "BSG vendor unique diag mode"),
    request(FC_BSG_HST_VENDOR, 0x5, "BSG vendor unique diag test"),
    request(FC_BSG_HST_VENDOR, 0xa, "BSG vendor unique sli4 diag mode end"),
    request(FC_BSG_HST_VENDOR, 0x6, "BSG vendor unique get management rev"),
    request(FC_BSG_HST_VENDOR, 0x7, "BSG vendor unique mbox"),
    request(FC_BSG_HST_VENDOR, 0x8, "BSG vendor unique tibra command"),
    request(FC_BSG_HST_VENDOR, 0x9, "BSG vendor unique tibra data"),
    request(FC_BSG_HST_VENDOR, 0xc, "BSG vendor unique get fcp priority", {2, 0}),
    request(FC_BSG_HST_VENDOR, 0xd, "BSG vendor unique set fcp priority", {2, 0}),
    {},
};

constinit MMM_BSG_DEV mmm_bsg_device_template[3] = {
    node(dev_bsg, "fc_host", "FC host device: fc_host3"),
    node(dev_bsg, "rport-", "Remote port device: rport-2:0-1"),
    {},
};

}  // namespace hcx
