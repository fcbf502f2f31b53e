// SPDX-License-Identifier: BSD-3-Clause
// Rows for start-up, the log, the inventory, sysfs, the capability templates and BSG.
#include <fcntl.h>
#include <linux/bsg.h>

#include <algorithm>

#include "calls.h"

namespace calls {
namespace {

constexpr named_const kWords[] = {{"one", 1}, {"two", 2}, {"four", 4}, {nullptr, 0}};

void stop(Arguments &) {
  HCX_FreeDiagEnv();
}
void start(Arguments &a) {
  HCX_InitDiagEnv(a.list<HCX_BRDINFO, HCX_BRDINFO>(4), 4);
}
void back(Arguments &) {
  HCX_FreeDiagEnv();
  number_boards();
}
void online(Arguments &a) {
  SetDiagEnv(DDI_ONDI);
  hcx_host_online(a.host());
}
void stop_listener(Arguments &) {
  net_link_exit();
}

// A LUN, a port and a host of the caller's own, in lists of his own.
struct Records {
  explicit Records(Arguments &a)
      : host(a.heap_record<hcx_host>()), port(a.heap_record<hcx_port>()), lun(a.heap_record<hcx_lun>()) {
    pthread_rwlock_init(&host->rwlock, nullptr);
  }
  Records(const Records &) = delete;
  Records &operator=(const Records &) = delete;
  ~Records() {
    hcx_port_remove_lun(&port->lun_list, nullptr, lun);
    hcx_host_remove_port(&host->port_list, nullptr, port);
    hcx_host_remove(&hosts, nullptr, host);
    lun->port = nullptr;
    hcx_lun_free(lun);
    hcx_port_free(port);
    hcx_host_free(host);
  }
  hcx_host *host;
  hcx_port *port;
  hcx_lun *lun;
  hcx_host *hosts = nullptr;
};

// The lock of an attribute around one exchange with it.
template <class Use>
Result with_mailbox(Arguments &a, Use use) {
  const int fd = hcx_host_mbox_lock(a.host());
  if (fd < 0) return fd;
  const Result result = outcome(use(fd));
  hcx_host_mbox_unlock(fd);
  return result;
}
template <class Use>
Result with_bridge(Arguments &a, Use use) {
  const int fd = hcx_host_tibra_lock(a.host());
  if (fd < 0) return fd;
  const Result result = outcome(use(fd));
  hcx_host_tibra_unlock(fd);
  return result;
}
template <class Use>
Result with_node(Arguments &a, Use use) {
  const int fd = map_wwn_to_bsg(static_cast<int>(a.board), a.target.wwn);
  if (fd < 0) return fd;
  const Result result = outcome(use(fd));
  closed(fd);
  return result;
}
// What scans a part of a host needs the lock that the scan of the whole takes by itself.
template <class Scan>
Result scan(hcx_host *host, Scan scan_it) {
  if (!host) return 0;
  pthread_rwlock_wrlock(&host->rwlock);
  scan_it();
  pthread_rwlock_unlock(&host->rwlock);
  return 0;
}

Result mailbox(Arguments &a, bool extended) {
  uint8_t *request = a.bytes(4096), *reply = a.bytes(4096);
  request[2] = MBX_READ_REV;
  a.scramble(request, 4096);
  if (!a.host()) return 0;
  return extended ? send_bsg_mbox_write_read_extended(a.host(), request, reply, 0, 0, 0, 1, 1, 1000)
                  : send_bsg_mbox_write_read(a.host(), request, reply, 0, 0, 0);
}

Result header(Arguments &a) {
  auto *hdr = a.record<sg_io_v4>();
  auto *request = reinterpret_cast<fc_bsg_request *>(a.bytes(64));
  auto *reply = reinterpret_cast<fc_bsg_reply *>(a.bytes(64));
  return bsg_init_header(hdr, request, reply, a.number<int>(static_cast<int>(FC_BSG_HST_VENDOR)),
                         a.number<int>(7), 1000);
}

#define CT_REQUEST \
  { 1, 0, 0, 0, 0xfc, 2, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0 }
#define REGISTER \
  { 0x5a, 0x4f, 0x42, 0x54, 1, 2, 3, 4 }

const Call rows[] = {
    // Start-up, log, board modes
    HCX_CALL(HCX_InitDiagEnv, HCX_InitDiagEnv(a.list<HCX_BRDINFO, HCX_BRDINFO>(4), 4), kLasting | kScans, stop, back),
    HCX_CALL(InitDiagEnv, InitDiagEnv(a.list<BRDINFO, BRDINFO>(32)), kLasting | kScans, stop, back),
    HCX_CALL(HCX_FreeDiagEnv, HCX_FreeDiagEnv(), kLasting, start, back),
    HCX_CALL(FreeDiagEnv, FreeDiagEnv(), kLasting, start, back),
    HCX_CALL(HCX_GetLibVer, HCX_GetLibVer(a.bytes(19))),
    HCX_CALL(libhcx_syslog, libhcx_syslog(LOG_ERROR, "%s - %d", "row", 1)),
    HCX_CALL(libhcx_syslog_enable, libhcx_syslog_enable(0x4fff), kLasting),
    HCX_CALL(libhcx_syslog_unlink, libhcx_syslog_unlink(), kLasting),
    HCX_CALL(libhcx_backtrace, libhcx_backtrace()),
    HCX_CALL(HCX_ResetAdapter, HCX_ResetAdapter(a.board, a.number<uint32_t>(1, 1, 3))),
    HCX_CALL(SetBrdEnv, SetBrdEnv(a.board, DDI_OFFDI), 0, nullptr, online),
    HCX_CALL(SetDiagEnv, SetDiagEnv(DDI_OFFDI), 0, nullptr, online),
    HCX_CALL(HCX_SetDumpEnv, HCX_SetDumpEnv(a.board, DDI_SHOW)),
    HCX_CALL(net_link_init, net_link_init(), kLasting, nullptr, stop_listener),
    HCX_CALL(
        net_link_exit, net_link_exit(), kLasting, [](Arguments &) { net_link_init(); }, stop_listener),

    // Lists and records
    {"hcx_host_insert",
     [](Arguments &a) {
       Records r(a);
       return outcome(hcx_host_insert(&r.hosts, nullptr, r.host));
     }},
    {"hcx_host_remove",
     [](Arguments &a) {
       Records r(a);
       hcx_host_insert(&r.hosts, nullptr, r.host);
       return outcome(hcx_host_remove(&r.hosts, nullptr, r.host));
     }},
    {"hcx_host_insert_port",
     [](Arguments &a) {
       Records r(a);
       return outcome(hcx_host_insert_port(r.host, nullptr, r.port));
     }},
    {"hcx_host_remove_port",
     [](Arguments &a) {
       Records r(a);
       hcx_host_insert_port(r.host, nullptr, r.port);
       return outcome(hcx_host_remove_port(&r.host->port_list, nullptr, r.port));
     }},
    {"hcx_port_insert_lun",
     [](Arguments &a) {
       Records r(a);
       return outcome(hcx_port_insert_lun(r.port, nullptr, r.lun));
     }},
    {"hcx_port_remove_lun",
     [](Arguments &a) {
       Records r(a);
       hcx_port_insert_lun(r.port, nullptr, r.lun);
       return outcome(hcx_port_remove_lun(&r.port->lun_list, nullptr, r.lun));
     }},
    HCX_CALL(hcx_lun_free, hcx_lun_free(a.heap_record<hcx_lun>())),
    HCX_CALL(hcx_port_free, hcx_port_free(a.heap_record<hcx_port>())),
    {"hcx_host_free",
     [](Arguments &a) -> Result {
       auto *host = a.heap_record<hcx_host>();
       pthread_rwlock_init(&host->rwlock, nullptr);
       host->info = static_cast<char *>(a.heap(8));
       return hcx_host_free(host), 0;
     }},
    {"hcx_host_clean",
     [](Arguments &a) -> Result {
       auto *host = a.record<hcx_host>();
       host->info = static_cast<char *>(a.heap(8));
       return hcx_host_clean(host), 0;
     }},
    {"hcx_lun_clean",
     [](Arguments &a) -> Result {
       auto *lun = a.record<hcx_lun>();
       lun->block_dev = static_cast<char *>(a.heap(8));
       return hcx_lun_clean(lun), 0;
     }},
    HCX_CALL(hcx_host_logdump, hcx_host_logdump(a.host()), kPrints),
    HCX_CALL(hcx_port_logdump, hcx_port_logdump(a.ports()), kPrints),
    HCX_CALL(hcx_lun_logdump, hcx_lun_logdump(a.luns()), kPrints),
    HCX_CALL(hcx_port_find_by_id, hcx_port_find_by_id(a.ports(), 4)),
    HCX_CALL(hcx_port_find_by_target_id, hcx_port_find_by_target_id(a.ports(), 0)),
    HCX_CALL(hcx_port_find_by_port_id, hcx_port_find_by_port_id(a.ports(), kTargetId)),
    HCX_CALL(hcx_port_find_by_wwpn, hcx_port_find_by_wwpn(a.ports(), a.target.wwn)),
    HCX_CALL(hcx_port_find_by_wwnn, hcx_port_find_by_wwnn(a.ports(), a.target.wwn)),
    HCX_CALL(hcx_lun_find_by_id, hcx_lun_find_by_id(a.luns(), 0)),
    HCX_CALL(hcx_host_find_by_idx, unlocked(hcx_host_find_by_idx(hcx_host_list, 1))),
    HCX_CALL(hcx_host_find_by_id, unlocked(hcx_host_find_by_id(hcx_host_list, 3))),
    HCX_CALL(hcx_host_find_by_port_id, unlocked(hcx_host_find_by_port_id(hcx_host_list, 0x010200))),
    HCX_CALL(hcx_host_find_by_wwpn, unlocked(hcx_host_find_by_wwpn(hcx_host_list, a.local.wwn))),
    HCX_CALL(hcx_host_find_by_wwnn, unlocked(hcx_host_find_by_wwnn(hcx_host_list, a.local.wwn))),

    // Discovery
    HCX_CALL(
        hcx_sysfs_scan_hosts, hcx_sysfs_scan_hosts(&hcx_host_list), kLasting | kScans, stop,
        [](Arguments &) { number_boards(); }),
    HCX_CALL(hcx_sysfs_scan_host, hcx_sysfs_scan_host(a.host())),
    {"hcx_sysfs_scan_lport",
     [](Arguments &a) { return scan(a.host(), [&] { hcx_sysfs_scan_lport(&a.host()->port); }); }},
    HCX_CALL(hcx_sysfs_scan_rports, hcx_sysfs_scan_rports(a.host())),
    {"hcx_sysfs_scan_rport",
     [](Arguments &a) {
       return a.ports() ? scan(a.host(), [&] { hcx_sysfs_scan_rport(a.ports()); }) : 0;
     }},
    {"hcx_sysfs_scan_luns",
     [](Arguments &a) {
       return a.ports() ? scan(a.host(), [&] { hcx_sysfs_scan_luns(a.ports()); }) : 0;
     }},
    {"hcx_sysfs_scan_lun",
     [](Arguments &a) { return a.luns() ? scan(a.host(), [&] { hcx_sysfs_scan_lun(a.luns()); }) : 0; }},
    HCX_CALL(hcx_get_lun_file_name,
             hcx_get_lun_file_name(3, 0, 0, reinterpret_cast<char *>(a.bytes(256)))),
    HCX_CALL(hcx_get_target_id, hcx_get_target_id(3, &a.target)),
    HCX_CALL(hcx_get_host_id, hcx_get_host_id(&a.local)),
    HCX_CALL(hcx_get_wwpn, hcx_get_wwpn(3, a.record<HBA_WWN>())),
    HCX_CALL(hcx_vport_to_physical_host, unlocked(hcx_vport_to_physical_host(3))),

    // Hosts
    HCX_CALL(hcx_host_is_online, hcx_host_is_online(a.host())),
    HCX_CALL(hcx_host_online, hcx_host_online(a.host())),
    HCX_CALL(hcx_host_offline, hcx_host_offline(a.host()), 0, nullptr, online),
    HCX_CALL(hcx_host_drv_ver, hcx_host_drv_ver(a.host(), reinterpret_cast<char *>(a.bytes(16)), 16)),
    HCX_CALL(hcx_get_sli_mode, hcx_get_sli_mode(a.host())),
    HCX_CALL(hcx_get_sli4_if_type, hcx_get_sli4_if_type(a.host())),
    HCX_CALL(hcx_get_protocol_mode, hcx_get_protocol_mode(a.host())),
    HCX_CALL(hcx_get_function_type, hcx_get_function_type(a.host())),
    HCX_CALL(hcx_get_board_sli_mode, hcx_get_board_sli_mode(a.board)),
    HCX_CALL(hcx_get_board_sli4_if_type, hcx_get_board_sli4_if_type(a.board)),
    HCX_CALL(hcx_get_board_protocol_mode, hcx_get_board_protocol_mode(a.board)),
    HCX_CALL(hcx_host_stat_read, hcx_host_stat_read(a.host(), "tx_frames")),
    HCX_CALL(hcx_host_param_read, hcx_host_param_read(a.host(), "log_verbose", a.record<uint32_t>())),
    HCX_CALL(hcx_host_param_write,
             hcx_host_param_write(a.host(), "log_verbose", 3, a.record<uint32_t>(), "")),

    // Attributes
    HCX_CALL(hcx_sysfs_read_str,
             hcx_sysfs_read_str(kHostDir, "modelname", reinterpret_cast<char *>(a.bytes(64)), 64)),
    HCX_CALL(hcx_sysfs_read_int, hcx_sysfs_read_int(kHostDir, "board_online")),
    HCX_CALL(hcx_sysfs_read_uint, hcx_sysfs_read_uint(kHostDir, "max_vpi")),
    HCX_CALL(hcx_sysfs_read_hexuint32, hcx_sysfs_read_hexuint32("/sys/class/fc_host/host3/", "port_id")),
    HCX_CALL(hcx_sysfs_read_hexuint64,
             hcx_sysfs_read_hexuint64("/sys/class/fc_host/host3/", "port_name")),
    HCX_CALL(hcx_sysfs_write_str, hcx_sysfs_write_str(kHostDir, "vosk_log_verbose", "0x3")),
    HCX_CALL(hcx_sysfs_test_file, hcx_sysfs_test_file(kHostDir, "modelname")),
    HCX_CALL(hcx_sysfs_test_dir, hcx_sysfs_test_dir("/sys/class/scsi_host/host3/")),
    HCX_CALL(hcx_str_chop_cr, hcx_str_chop_cr(a.text("line\n"))),
    HCX_CALL(hcx_sysfs_read_binfile, hcx_sysfs_read_binfile(kHostDir, "ctlreg", a.bytes(64), 0, 64)),
    {"hcx_sysfs_write_binfile",
     [](Arguments &a) {
       Buffer data(a, REGISTER);
       return outcome(hcx_sysfs_write_binfile("/sys/class/scsi_host/host4/", "ctlreg", data.data, 0, data.size));
     }},
    {"hcx_sysfs_lock_binfile", [](Arguments &) { return closed(hcx_sysfs_lock_binfile(kHostDir, "mbox")); }},
    {"hcx_sysfs_unlock_binfile",
     [](Arguments &) -> Result {
       const int fd = hcx_sysfs_lock_binfile(kHostDir, "mbox");
       return fd < 0 ? fd : hcx_sysfs_unlock_binfile(fd);
     }},
    {"hcx_sysfs_read_locked_fd",
     [](Arguments &a) {
       return with_mailbox(a, [&](int fd) { return hcx_sysfs_read_locked_fd(fd, a.bytes(256), 0, 256); });
     }},
    {"hcx_sysfs_write_locked_fd",
     [](Arguments &a) {
       return with_mailbox(a, [&](int fd) { return hcx_sysfs_write_locked_fd(fd, a.bytes(256), 0, 256); });
     }},
    {"hcx_host_mbox_lock", [](Arguments &a) { return closed(hcx_host_mbox_lock(a.host())); }},
    {"hcx_host_mbox_write",
     [](Arguments &a) {
       return with_mailbox(a, [&](int fd) { return hcx_host_mbox_write(fd, a.bytes(256), 0, 256); });
     }},
    {"hcx_host_mbox_read",
     [](Arguments &a) {
       return with_mailbox(a, [&](int fd) { return hcx_host_mbox_read(fd, a.bytes(256), 0, 256); });
     }},
    {"hcx_host_mbox_unlock", [](Arguments &a) { return with_mailbox(a, [](int) { return 0; }); }},
    {"hcx_host_tibra_lock", [](Arguments &a) { return closed(hcx_host_tibra_lock(a.host())); }},
    {"hcx_host_tibra_write",
     [](Arguments &a) {
       return with_bridge(a, [&](int fd) { return hcx_host_tibra_write(fd, a.bytes(64), 0, 64); });
     }},
    {"hcx_host_tibra_read",
     [](Arguments &a) {
       return with_bridge(a, [&](int fd) { return hcx_host_tibra_read(fd, a.bytes(64), 0, 64); });
     }},
    {"hcx_host_tibra_unlock", [](Arguments &a) { return with_bridge(a, [](int) { return 0; }); }},
    HCX_CALL(hcx_host_ctlreg_read, hcx_host_ctlreg_read(a.host(a.old_board), a.bytes(64), 0, 64)),
    {"hcx_host_ctlreg_write",
     [](Arguments &a) {
       Buffer data(a, REGISTER);
       return outcome(hcx_host_ctlreg_write(a.host(a.old_board), data.data, 0, data.size));
     }},
    HCX_CALL(hcx_host_slimem_read, hcx_host_slimem_read(a.host(a.old_board), a.bytes(64), 0, 64)),
    HCX_CALL(hcx_host_slimem_write, hcx_host_slimem_write(a.host(a.old_board), a.bytes(64), 0, 64)),
    HCX_CALL(hcx_host_stats_read, hcx_host_stats_read(a.host(), a.bytes(512), 0, 512)),
    HCX_CALL(hcx_host_pcireg_read, hcx_host_pcireg_read(a.host(), a.bytes(64), 0, 64)),
    HCX_CALL(str2enum, str2enum("two", kWords)),
    HCX_CALL(enum2str, enum2str(reinterpret_cast<char *>(a.bytes(16)), 16, 2, kWords)),
    HCX_CALL(str2bitfield, str2bitfield(a.text("one, four"), ',', kWords)),
    HCX_CALL(bitfield2str, bitfield2str(reinterpret_cast<char *>(a.bytes(32)), 32, 5, ',', kWords)),

    // Capability templates
    HCX_CALL(get_vosk_management_version, get_vosk_management_version(), kLasting),
    HCX_CALL(find_sys_class_mmm, find_sys_class_mmm(kHostDir, "modelname")),
    HCX_CALL(find_sys_device_mmm, find_sys_device_mmm("/sys/devices/pci0000:00/", "irq")),
    HCX_CALL(find_netlink_mmm, find_netlink_mmm(VOSKH_EVT_LINKUP, 0)),
    HCX_CALL(find_bsg_ioctl_mmm, find_bsg_ioctl_mmm(7, static_cast<int>(FC_BSG_HST_VENDOR))),
    HCX_CALL(find_bsg_device_mmm, find_bsg_device_mmm("/dev/bsg", "fc_host3")),
    HCX_CALL(hcx_show_mmm, hcx_show_mmm(1), kPrints),

    // BSG
    {"bsg_init_header", header},
    HCX_CALL(map_host_to_bsg, closed(map_host_to_bsg(a.host()))),
    HCX_CALL(map_board_to_bsg, closed(map_board_to_bsg(static_cast<int>(a.board)))),
    HCX_CALL(lookup_hcx_host, unlocked(lookup_hcx_host(a.board))),
    HCX_CALL(map_rport_to_bsg,
             closed(map_rport_to_bsg(static_cast<int>(a.board), "port_id", "0x010203"))),
    HCX_CALL(map_wwn_to_bsg, closed(map_wwn_to_bsg(static_cast<int>(a.board), a.target.wwn))),
    HCX_CALL(map_did_to_bsg, closed(map_did_to_bsg(static_cast<int>(a.board), kTargetId))),
    HCX_CALL(map_wwn_to_port_id,
             map_wwn_to_port_id(static_cast<int>(a.board), 1, a.target.wwn, a.record<uint32_t>())),
    {"send_bsg_mbox_write_read", [](Arguments &a) { return mailbox(a, false); }},
    {"send_bsg_mbox_write_read_extended", [](Arguments &a) { return mailbox(a, true); }},
    {"send_bsg_ct",
     [](Arguments &a) {
       Buffer in(a, CT_REQUEST), out(a, 300);
       return with_node(a, [&](int fd) { return send_bsg_ct(fd, in.data, in.size, out.data, out.size); });
     }},
    {"send_bsg_ct_to_wwn",
     [](Arguments &a) -> Result {
       Buffer in(a, CT_REQUEST), out(a, 300);
       return send_bsg_ct_to_wwn(a.board, a.target.wwn, in.data, in.size, out.data, out.size, 0);
     }},
    {"send_bsg_ct_to_did",
     [](Arguments &a) -> Result {
       Buffer in(a, CT_REQUEST), out(a, 300);
       return send_bsg_ct_to_did(a.board, kTargetId, in.data, in.size, out.data, out.size);
     }},
    {"send_bsg_els",
     [](Arguments &a) -> Result {
       Buffer in(a, {0x78, 0, 0, 0, 0xdf, 0, 0, 0}), out(a, 300);
       DestID to = {a.number<uint32_t>(0, 0, 2), kTargetId, a.target};
       const Result result = send_bsg_els(a.board, &to, in.data, in.size, out.data, &out.said);
       return out.check("send_bsg_els"), result;
     }},
    {"send_bsg_els_rnid",
     [](Arguments &a) -> Result {
       Buffer out(a, 300);
       const Result result = send_bsg_els_rnid(a.board, &a.target, 1, out.data, &out.said);
       return out.check("send_bsg_els_rnid"), result;
     }},
    {"send_bsg_set_event",
     [](Arguments &a) -> Result {
       const int fd = map_board_to_bsg(static_cast<int>(a.board));
       if (fd < 0) return fd;
       const Result result = send_bsg_set_event(fd, 0xfa, 1, 4);
       return closed(fd), result;
     }},
    {"send_bsg_get_event",
     [](Arguments &a) -> Result {
       Buffer out(a, 300);
       return send_bsg_get_event(a.board, 1, 2, out.data, out.size, a.record<uint32_t>(),
                                 a.record<uint32_t>());
     }},
    {"send_bsg_mgmt_response",
     [](Arguments &a) -> Result {
       Buffer out(a, CT_REQUEST);
       return send_bsg_mgmt_response(a.board, out.data, out.size, 1);
     }},
    HCX_CALL(send_bsg_config_loopback, send_bsg_config_loopback(a.board, 1, 1000)),
    {"send_bsg_test_loopback",
     [](Arguments &a) -> Result {
       Buffer out(a, 512);
       return send_bsg_test_loopback(a.board, out.size, out.data, a.bytes(out.size));
     }},
    HCX_CALL(send_bsg_get_mgmt_rev,
             send_bsg_get_mgmt_rev(a.record<uint32_t>(), a.record<uint32_t>())),
    {"send_bsg_tibra_command",
     [](Arguments &a) -> Result {
       Buffer command(a, {0x10, 0, 0, 0, 0, 0, 0, 0}), response(a, 64);
       return send_bsg_tibra_command(a.board, command.data, command.size, response.data, &response.said,
                                     a.record<uint32_t>(), a.number<int>(0, 0, 3));
     }},
    HCX_CALL(send_bsg_sli4_endloopback, send_bsg_sli4_endloopback(a.board)),
    {"send_bsg_get_fcp_priority",
     [](Arguments &a) -> Result {
       auto *table = a.list<HCX_QoSConfig, HCX_QoSEntry>(4);
       table->numberOfEntries = 4;
       return send_bsg_get_fcp_priority(a.board, table);
     }},
    {"send_bsg_set_fcp_priority",
     [](Arguments &a) -> Result {
       auto *table = a.list<HCX_QoSConfig, HCX_QoSEntry>(2);
       table->numberOfEntries = 2;
       return send_bsg_set_fcp_priority(a.board, table);
     }},
};

}  // namespace

std::span<const Call> files() {
  return rows;
}

}  // namespace calls
