// SPDX-License-Identifier: BSD-3-Clause
// Discovery of hosts, remote ports and LUNs in the three layouts of sysfs, rescans, and trees that are not as they
// should be.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "alloc_fault.h"
#include "libhcx.h"
#include "sim_machine.h"

namespace {

constexpr char rports[] = "/sys/class/fc_remote_ports/";

HBA_WWN wwn(uint64_t name) {
  HBA_WWN bytes;
  hcx::wwn_store(bytes.wwn, name);
  return bytes;
}

class Discovery : public testing::Test {
 protected:
  ~Discovery() override {
    HCX_FreeDiagEnv();
    EXPECT_EQ(m.open_fds(), 0u);
  }
  uint32_t scan() { return hcx_sysfs_scan_hosts(&hcx_host_list); }
  hcx_host *first() { return hcx_host_list; }
  std::vector<uint32_t> host_numbers() {
    std::vector<uint32_t> numbers;
    for (hcx_host *host = hcx_host_list; host; host = host->next)
      numbers.push_back(host->id);
    return numbers;
  }
  std::vector<uint64_t> luns(const hcx_port *port) {
    std::vector<uint64_t> numbers;
    for (hcx_lun *lun = port->lun_list; lun; lun = lun->next)
      numbers.push_back(lun->id);
    return numbers;
  }
  // host3 with a target (number 0, LUNs 0, 1, 10) and an initiator (number 1).
  sim::Host &small() {
    sim::Host &host = m.add_host({.number = 3, .wwpn = 0x10000000c9000003});
    sim::Rport &target =
        host.add_rport({.wwpn = 0x5006016000000001, .wwnn = 0x5006016080000001, .port_id = 0x010300});
    for (uint64_t lun : {10, 0, 1})
      target.add_lun({.lun = lun});
    host.add_rport({.wwpn = 0x10000000c9aaaaaa, .port_id = 0x010400, .roles = "FCP Initiator"});
    return host;
  }

  sim::Machine m;
  sim::Installed guard{m};
};

TEST_F(Discovery, KeepsOurPhysicalPortsByNumber) {
  m.add_host({.number = 10});
  m.add_host({.number = 2, .npiv = "NPIV Not Supported"});
  m.add_host({.number = 3}).add_vport({.wwpn = 0x1, .wwnn = 0x2, .host_number = 5});
  m.add_host({.number = 4, .foreign = true});
  m.add_host({.number = 6, .npiv = "NPIV Virtual (VPI 3)"});
  m.add_host({.number = 7, .npiv = "NPIV Physical "});
  m.vfs().remove("/sys/class/scsi_host/host7/vosk_log_verbose");
  m.add_host({.number = 8});
  m.vfs().remove("/sys/class/scsi_host/host8/npiv_info");
  m.vfs().put_dir("/sys/class/scsi_host/hostess");
  EXPECT_EQ(scan(), 3u);
  EXPECT_EQ(host_numbers(), (std::vector<uint32_t>{2, 3, 10}));
  EXPECT_EQ(hcx_host_count, 3u);
  EXPECT_EQ(first()->brd_idx, -1);
}

TEST_F(Discovery, ScanOfAFullListOnlySettlesTheLayout) {
  small();
  ASSERT_EQ(scan(), 1u);
  m.add_host({.number = 9});
  sysfs_ver = SLES9;
  EXPECT_EQ(scan(), 0u);
  EXPECT_EQ(sysfs_ver, LK2_6_12);
  EXPECT_EQ(host_numbers(), std::vector<uint32_t>{3});
}

TEST_F(Discovery, FillsTheHostRecord) {
  m.add_host({.number = 3,
              .sli = 4,
              .if_type = 2,
              .protocol = "fcoe",
              .wwpn = 0x10000000c9000003,
              .wwnn = 0x20000000c9000003,
              .port_id = 0x010200,
              .pci = "0000:05:00.1",
              .serial = "QV1",
              .unique_id = 6});
  ASSERT_EQ(scan(), 1u);
  hcx_host *host = first();
  EXPECT_EQ(host->vend_idx, 6);
  EXPECT_EQ(host->port.port_id, 0x010200u);
  EXPECT_EQ(hcx::wwn_load(host->port.wwpn), 0x10000000c9000003u);
  EXPECT_EQ(hcx::wwn_load(host->port.wwnn), 0x20000000c9000003u);
  EXPECT_EQ(host->port.roles, FC_RPORT_ROLE_FCP_INITIATOR);
  EXPECT_EQ(host->port.host, host);
  EXPECT_EQ(host->port.serial_number, &host->serial_number);
  EXPECT_STREQ(host->serial_number, "QV1");
  EXPECT_STREQ(host->protocol, "fcoe");
  ASSERT_NE(host->pci_dev, nullptr);
  const std::string pci = host->pci_dev;
  EXPECT_EQ(pci.rfind("/sys/devices/", 0), 0u) << pci;
  EXPECT_TRUE(pci.ends_with("/0000:05:00.1/")) << pci;
  EXPECT_EQ(hcx_get_sli_mode(host), 4);
  EXPECT_EQ(hcx_get_sli4_if_type(host), 2);
  EXPECT_EQ(hcx_get_protocol_mode(host), 0);
}

TEST_F(Discovery, FactsFromTexts) {
  hcx_host host = {};
  struct Case {
    const char *firmware;
    int mode;
    int type;
  };
  for (const Case &c : {Case{"1.1, sli-4:2", 4, 2},
                        {"1.1, sli-3", 3, -1},
                        {"1.1, sli-4", 4, -1},
                        {"1.1", -1, -1},
                        {"1.1, sli-", -1, -1},
                        {"1.1, sli-3:2", 3, -1}}) {
    host.firmware_revision = const_cast<char *>(c.firmware);
    EXPECT_EQ(hcx_get_sli_mode(&host), c.mode) << c.firmware;
    EXPECT_EQ(hcx_get_sli4_if_type(&host), c.type) << c.firmware;
  }
  EXPECT_EQ(hcx_get_protocol_mode(&host), -1);
  host.protocol = const_cast<char *>("fc");
  EXPECT_EQ(hcx_get_protocol_mode(&host), 1);
  host.protocol = const_cast<char *>("fc ");
  EXPECT_EQ(hcx_get_protocol_mode(&host), -1);
  for (auto [device, type] : {std::pair{0x7a10, 2}, {0x7a11, 2}, {0x7a12, 2}, {0x7a13, 1}, {0, 1}}) {
    char text[16];
    snprintf(text, sizeof text, "0x%04x\n", device);
    m.vfs().put_text("/sys/devices/x/device", text);
    host.pci_dev = const_cast<char *>("/sys/devices/x/");
    EXPECT_EQ(hcx_get_function_type(&host), type) << device;
  }
  host.pci_dev = nullptr;
  EXPECT_EQ(hcx_get_function_type(&host), 1);
  EXPECT_EQ(hcx_get_function_type(nullptr), -1);
  libhcx_syslog_enable(LOG_ERROR);
  EXPECT_EQ(hcx_get_board_sli_mode(0), -1);
  EXPECT_EQ(hcx_get_board_protocol_mode(~0u), -1);
  EXPECT_TRUE(m.logged("hcx_get_board_sli_mode - no host on board 0"));
  EXPECT_TRUE(m.logged("hcx_get_board_protocol_mode - no host on board -1"));
}

TEST_F(Discovery, OrderOfTheReads) {
  small();
  ASSERT_EQ(scan(), 1u);
  libhcx_syslog_enable(LOG_DEVICE_NAME);
  const auto files = [&](const std::string &dir) {
    std::vector<std::string> names;
    for (const std::string &line : m.syslog_lines())
      if (const size_t at = line.find(dir); at != std::string::npos)
        names.push_back(line.substr(at + dir.size()));
    m.clear_records();
    return names;
  };
  m.clear_records();
  hcx_sysfs_scan_lport(&first()->port);
  EXPECT_EQ(files("/sys/class/fc_host/host3/"),
            (std::vector<std::string>{"port_id", "node_name", "port_name"}));
  hcx_sysfs_scan_rport(first()->port_list);
  EXPECT_EQ(files("/sys/class/fc_remote_ports/rport-3:0-0/"),
            (std::vector<std::string>{"roles", "scsi_target_id", "port_id", "port_name", "node_name"}));
  hcx_sysfs_scan_host(first());
  EXPECT_EQ(files("/sys/class/scsi_host/host3/"),
            (std::vector<std::string>{"npiv_info", "vosk_topology", "unique_id", "vosk_temp_sensor",
                                      "nport_evt_cnt", "info", "serialnum", "hdw", "fwrev",
                                      "option_rom_version", "protocol"}));
}

TEST_F(Discovery, OnlineState) {
  small();
  ASSERT_EQ(scan(), 1u);
  const std::string file = "/sys/class/scsi_host/host3/board_online";
  m.vfs().remove(file);
  EXPECT_EQ(hcx_host_is_online(first()), -1);
  EXPECT_EQ(hcx_host_online(first()), -1);
  EXPECT_FALSE(m.vfs().exists(file));
  m.vfs().put_text(file, "1\n", 0644);
  EXPECT_EQ(hcx_host_is_online(first()), 1);
  EXPECT_EQ(hcx_host_offline(first()), 0);
  EXPECT_EQ(m.vfs().text(file), "0\n");
  EXPECT_EQ(hcx_host_online(first()), 0);
  EXPECT_EQ(m.vfs().text(file), "1\n");
}

TEST_F(Discovery, HostsThatCannotBePlacedAreDropped) {
  libhcx_syslog_enable(LOG_ERROR);
  const char *links[] = {"../../devices/pci0000:00/0000:00:07.0/scsi_host/x", "../../host3/scsi_host/host3",
                         "/", ""};
  m.add_host({.number = 3});
  for (const char *link : links) {
    hcx_host host = {};
    pthread_rwlock_init(&host.rwlock, nullptr);
    host.id = 77;
    m.vfs().put_link("/sys/class/scsi_host/host77", link);
    hcx_sysfs_scan_host(&host);
    EXPECT_EQ(host.pci_dev, nullptr) << link;
    EXPECT_EQ(pthread_rwlock_trywrlock(&host.rwlock), 0);
    pthread_rwlock_unlock(&host.rwlock);
    hcx_host_clean(&host);
  }
  EXPECT_TRUE(
      m.logged("hcx_sysfs_scan_host - host brd_idx 0 readlink error on file /sys/class/scsi_host/host77"));
}

// Trees whose class entries are directories lead to the device through a link of their own.
TEST_F(Discovery, DeviceLinkOfOlderTrees) {
  m.vfs().put_text("/sys/class/scsi_host/host77/npiv_info", "NPIV Physical\n", 0444);
  m.vfs().put_text("/sys/class/scsi_host/host77/vosk_log_verbose", "0x0\n", 0644);
  m.vfs().put_link("/sys/class/scsi_host/host77/device", "../../../devices/pci0000:00/0000:00:07.0/host77");
  ASSERT_EQ(scan(), 1u);
  EXPECT_STREQ(first()->pci_dev, "/sys/devices/pci0000:00/0000:00:07.0/");
}

TEST_F(Discovery, PortsAndLuns) {
  small();
  ASSERT_EQ(scan(), 1u);
  hcx_port *target = first()->port_list;
  ASSERT_NE(target, nullptr);
  EXPECT_EQ(target->id, 0u);
  EXPECT_EQ(target->scsi_target_id, 0u);
  EXPECT_EQ(target->roles, FC_RPORT_ROLE_FCP_TARGET);
  EXPECT_EQ(target->port_id, 0x010300u);
  EXPECT_EQ(luns(target), (std::vector<uint64_t>{0, 1, 10}));
  EXPECT_EQ(target->lun_list->port, target);
  EXPECT_EQ(std::string(target->lun_list->generic_scsi_dev).rfind("/dev/sg", 0), 0u);
  EXPECT_EQ(std::string(target->lun_list->block_dev).rfind("/dev/sd", 0), 0u);
  hcx_port *initiator = target->next;
  ASSERT_NE(initiator, nullptr);
  EXPECT_EQ(initiator->scsi_target_id, 0xffffffffu);
  EXPECT_EQ(initiator->lun_list, nullptr);
  EXPECT_EQ(initiator->next, nullptr);
}

TEST_F(Discovery, RolesOfAPort) {
  sim::Host &host = small();
  struct Case {
    const char *text;
    int roles;
  };
  for (const Case &c : {Case{"FCP Target, FCP Initiator", 3},
                        {"FCP Target,FCP Initiator", 3},
                        {"unknown", 0},
                        {"Fabric Port", 0x10},
                        {"", 0},
                        {"Directory Server", 0x40}}) {
    host.rport(0)->set("roles", c.text);
    HCX_FreeDiagEnv();
    ASSERT_EQ(scan(), 1u);
    EXPECT_EQ(first()->port_list->roles, c.roles) << c.text;
  }
}

// How the kinds of kernels name the devices of a LUN.
TEST_F(Discovery, DeviceNames) {
  struct Case {
    std::vector<std::pair<std::string, std::string>> links;  // below "device/"; no target: a directory
    const char *generic;
    const char *block;
    const char *tape;
  };
  const Case cases[] = {
      {{{"generic", "scsi_generic/sg3"}, {"block", "block/sdb"}, {"tape", "tape/st0"}},
       "/dev/sg3",
       "/dev/sdb",
       nullptr},
      {{{"generic", "scsi_generic/sg3"}, {"tape", "../scsi_tape/st0"}}, "/dev/sg3", nullptr, "/dev/st0"},
      {{{"block/sdc", ""}}, nullptr, "/dev/sdc", nullptr},
      {{{"block/vsda", ""}}, nullptr, "/dev/sda", nullptr},
      {{{"block/none", ""}}, nullptr, nullptr, nullptr},
      {{{"block:sdd", "../../block/sdd"}}, nullptr, "/dev/sdd", nullptr},
      {{{"generic", "noslash"}}, nullptr, nullptr, nullptr},
      {{}, nullptr, nullptr, nullptr},
  };
  int number = 0;
  for (const Case &c : cases) {
    hcx_host host = {};
    hcx_port port = {};
    hcx_lun lun = {};
    host.id = 50;
    port.host = &host;
    lun.port = &port;
    lun.id = static_cast<uint64_t>(number++);
    const std::string device = "/sys/class/scsi_device/50:0:0:" + std::to_string(lun.id) + "/device/";
    m.vfs().put_dir(device);
    for (const auto &[name, target] : c.links) {
      if (target.empty()) {
        m.vfs().put_dir(device + name);
      } else {
        m.vfs().put_link(device + name, target);
      }
    }
    hcx_sysfs_scan_lun(&lun);
    EXPECT_STREQ(lun.generic_scsi_dev, c.generic) << device;
    EXPECT_STREQ(lun.block_dev, c.block) << device;
    EXPECT_STREQ(lun.tape_dev, c.tape) << device;
    hcx_lun_clean(&lun);
    free(lun.tape_dev);
  }
}

TEST_F(Discovery, PortsThatComeAndGo) {
  sim::Host &host = small();
  ASSERT_EQ(scan(), 1u);
  hcx_port *target = first()->port_list;
  hcx_port *initiator = target->next;
  host.rport(0)->set_state("Blocked");
  hcx_sysfs_scan_rports(first());
  EXPECT_EQ(first()->port_list, initiator);
  // Somebody may still hold the record that left the list; from it there is no way on.
  EXPECT_EQ(luns(target).size(), 3u);
  EXPECT_EQ(target->next, nullptr);
  host.rport(0)->set_state("Online");
  hcx_sysfs_scan_rports(first());
  EXPECT_NE(first()->port_list, target);
  EXPECT_EQ(luns(first()->port_list).size(), 3u);
  EXPECT_EQ(first()->port_list->next, initiator);
  host.remove_rport(0);
  hcx_sysfs_scan_rports(first());
  EXPECT_EQ(first()->port_list, initiator);
  EXPECT_EQ(initiator->next, nullptr);
  m.vfs().put_text(std::string(rports) + "rport-3:0-1/port_state", "\n");
  hcx_sysfs_scan_rports(first());
  EXPECT_EQ(first()->port_list, nullptr);
}

TEST_F(Discovery, LunsThatComeAndGo) {
  sim::Rport &rport = *small().rport(0);
  ASSERT_EQ(scan(), 1u);
  hcx_port *target = first()->port_list;
  hcx_lun *one = hcx_lun_find_by_id(target->lun_list, 1);
  rport.remove_lun(0);
  rport.add_lun({.lun = 5});
  hcx_sysfs_scan_rports(first());
  EXPECT_EQ(first()->port_list, target);
  EXPECT_EQ(luns(target), (std::vector<uint64_t>{1, 5, 10}));
  EXPECT_EQ(hcx_lun_find_by_id(target->lun_list, 1), one);
  hcx_sysfs_scan_luns(target);
  EXPECT_EQ(luns(target), (std::vector<uint64_t>{1, 5, 10}));
  hcx_lun *five = one->next;
  rport.remove_lun(1);
  rport.remove_lun(5);
  hcx_sysfs_scan_luns(target);
  EXPECT_EQ(luns(target), std::vector<uint64_t>{10});
  for (const hcx_lun *dropped : {one, five}) {
    EXPECT_EQ(dropped->next, nullptr);
    EXPECT_NE(dropped->block_dev, nullptr);
  }
}

// The machine behind the library has memory, whatever the library has.
class Calm final : public sim::Machine {
  using Pause = alloc_fault::Pause;
  int open(const char *path, int flags, mode_t mode) override {
    const Pause pause;
    return sim::Machine::open(path, flags, mode);
  }
  int close(int fd) override {
    const Pause pause;
    return sim::Machine::close(fd);
  }
  ssize_t read(int fd, void *buf, size_t count) override {
    const Pause pause;
    return sim::Machine::read(fd, buf, count);
  }
  int list(const char *path, const char *prefix, std::vector<std::string> &names) override {
    const Pause pause;
    return sim::Machine::list(path, prefix, names);
  }
  ssize_t read_link(const char *path, char *buf, size_t size) override {
    const Pause pause;
    return sim::Machine::read_link(path, buf, size);
  }
  void syslog(int priority, const char *text) override {
    const Pause pause;
    sim::Machine::syslog(priority, text);
  }
};

// Without memory a scan keeps what it found and a rescan what there was; no record is half made or lost.
TEST(DiscoveryMemory, EveryAllocationMayFail) {
  Calm m;
  const sim::Installed guard(m);
  sim::Rport &rport = m.add_host({.number = 3}).add_rport({.wwpn = 0x5006016000000001});
  m.host(3)->add_rport({.wwpn = 0x5006016000000002}).add_lun({.lun = 7});
  m.add_host({.number = 4}).add_rport().add_lun();
  for (uint64_t lun : {0, 1})
    rport.add_lun({.lun = lun});
  const auto lun_counts = [] {
    std::vector<size_t> counts;
    for (hcx_host *host = hcx_host_list; host; host = host->next) {
      EXPECT_NE(host->pci_dev, nullptr);
      for (hcx_port *port = host->port_list; port; port = port->next) {
        EXPECT_EQ(port->host, host);
        EXPECT_NE(hcx::wwn_load(port->wwpn), 0u);
        counts.push_back(0);
        for (hcx_lun *lun = port->lun_list; lun; lun = lun->next, ++counts.back()) {
          EXPECT_EQ(lun->port, port);
          EXPECT_NE(lun->block_dev, nullptr);
        }
      }
    }
    return counts;
  };
  const std::vector<size_t> all = {2, 1, 1}, more = {3, 1, 1};
  bool hit = true;
  for (int nth = 1; hit; ++nth) {
    SCOPED_TRACE("allocation " + std::to_string(nth));
    alloc_fault::fail_nth(nth, true);
    hcx_sysfs_scan_hosts(&hcx_host_list);
    hit = alloc_fault::take_hit();
    EXPECT_TRUE(hit || lun_counts() == all);
    lun_counts();
    for (hcx_host *host = hcx_host_list; host; host = host->next)
      hcx_sysfs_scan_rports(host);
    if (hcx_host_list && hcx_host_list->next) {
      EXPECT_EQ(lun_counts(), all);
    }
    HCX_FreeDiagEnv();
  }
  hit = true;
  for (int nth = 1; hit; ++nth) {
    SCOPED_TRACE("allocation " + std::to_string(nth) + " of a rescan");
    ASSERT_EQ(hcx_sysfs_scan_hosts(&hcx_host_list), 2u);
    rport.add_lun({.lun = 5});
    alloc_fault::fail_nth(nth, true);
    hcx_sysfs_scan_rports(hcx_host_list);
    hit = alloc_fault::take_hit();
    const std::vector<size_t> now = lun_counts();
    EXPECT_TRUE(now == more || (hit && now == all)) << now.size();
    rport.remove_lun(5);
    // What is set aside without memory is released all the same.
    alloc_fault::fail_nth(nth, true);
    hcx_sysfs_scan_rports(hcx_host_list);
    alloc_fault::take_hit();
    HCX_FreeDiagEnv();
  }
  EXPECT_EQ(m.open_fds(), 0u);
}

TEST_F(Discovery, PortNumbersBeyondNineAndOtherHosts) {
  m.add_host({.number = 30}).add_rport({.number = 0});
  sim::Host &host = m.add_host({.number = 3});
  for (int number : {10, 2, 9, 11})
    host.add_rport({.number = number});
  ASSERT_EQ(scan(), 2u);
  std::vector<uint32_t> numbers;
  for (hcx_port *port = first()->port_list; port; port = port->next)
    numbers.push_back(port->id);
  EXPECT_EQ(numbers, (std::vector<uint32_t>{2, 9, 10, 11}));
}

TEST_F(Discovery, EntriesThatDoNotParse) {
  libhcx_syslog_enable(LOG_ERROR);
  small();
  m.vfs().put_dir("/sys/class/fc_remote_ports/rport-3:0-x");
  m.vfs().put_dir("/sys/class/scsi_device/3:0:0:x");
  ASSERT_EQ(scan(), 1u);
  EXPECT_TRUE(m.logged("hcx_sysfs_scan_rports - host brd_idx 0 could not form port id from rport-3:0-x"));
  EXPECT_TRUE(m.logged("hcx_sysfs_scan_luns - could not form lun_id from 3:0:0:x"));
  EXPECT_EQ(luns(first()->port_list), (std::vector<uint64_t>{0, 1, 10}));
}

// An attribute as long as a page, or a listed entry that is gone when it is read.
TEST_F(Discovery, OddAttributes) {
  sim::Host &host = small();
  m.vfs().put_text(host.scsi_dir() + "info", std::string(4096, 'i'));
  m.vfs().put_text(host.scsi_dir() + "serialnum", "\n");
  m.vfs().put_text(host.scsi_dir() + "unique_id", "soon\n");
  m.vfs().put_dir("/sys/class/fc_remote_ports/rport-3:0-7");
  ASSERT_EQ(scan(), 1u);
  EXPECT_EQ(strlen(first()->info), 254u);
  EXPECT_EQ(first()->serial_number, nullptr);
  EXPECT_EQ(first()->vend_idx, 0);
  EXPECT_EQ(hcx_port_find_by_id(first()->port_list, 7), nullptr);
}

TEST_F(Discovery, StatisticsBaselineBelongsToThePortName) {
  sim::Host &host = small();
  ASSERT_EQ(scan(), 1u);
  auto *baseline = static_cast<uint8_t *>(malloc(8));
  first()->stat_reset = baseline;
  first()->refresh_timer = 99;
  hcx_sysfs_scan_host(first());
  EXPECT_EQ(first()->stat_reset, baseline);
  EXPECT_EQ(first()->refresh_timer, 99u);
  host.set_fc("port_name", "0x10000000c9000099");
  hcx_sysfs_scan_host(first());
  EXPECT_EQ(first()->stat_reset, nullptr);
}

class OldTrees : public Discovery, public testing::WithParamInterface<int> {};

TEST_P(OldTrees, TargetsOfTheTransport) {
  m.generation(GetParam());
  small();
  ASSERT_EQ(scan(), 1u);
  EXPECT_EQ(sysfs_ver, GetParam());
  EXPECT_EQ(hcx::wwn_load(first()->port.wwpn), 0x10000000c9000003u);
  hcx_port *target = first()->port_list;
  ASSERT_NE(target, nullptr);
  EXPECT_EQ(target->roles, FC_RPORT_ROLE_FCP_TARGET);
  EXPECT_EQ(target->id, target->scsi_target_id);
  EXPECT_EQ(hcx::wwn_load(target->wwpn), 0x5006016000000001u);
  EXPECT_EQ(target->port_id, 0x010300u);
  EXPECT_EQ(luns(target), (std::vector<uint64_t>{0, 1, 10}));
  HBA_WWN name = wwn(0x5006016000000001);
  EXPECT_EQ(hcx_get_target_id(3, &name), 0);
  hcx_sysfs_scan_rports(first());
  EXPECT_EQ(first()->port_list, target);
}

INSTANTIATE_TEST_SUITE_P(Generations, OldTrees, testing::Values(0, 1));

TEST_F(Discovery, LookUpsByName) {
  small().add_vport({.wwpn = 0x2101000000000001, .wwnn = 0x2001000000000001, .host_number = 12});
  ASSERT_EQ(scan(), 1u);
  HBA_WWN host = wwn(0x10000000c9000003), vport = wwn(0x2101000000000001), target = wwn(0x5006016000000001),
          initiator = wwn(0x10000000c9aaaaaa), nobody = wwn(0x1234);
  EXPECT_EQ(hcx_get_host_id(&host), 3);
  EXPECT_EQ(hcx_get_host_id(&vport), 12);
  EXPECT_EQ(hcx_get_host_id(&nobody), -1);
  EXPECT_EQ(hcx_get_host_id(nullptr), -1);
  EXPECT_EQ(hcx_get_target_id(3, &target), 0);
  EXPECT_EQ(hcx_get_target_id(3, &initiator), -1);
  EXPECT_EQ(hcx_get_target_id(30, &target), -1);
  HBA_WWN read = wwn(~0ull);
  hcx_get_wwpn(12, &read);
  EXPECT_EQ(hcx::wwn_load(read.wwn), 0x2101000000000001u);
  hcx_get_wwpn(99, &read);
  EXPECT_EQ(hcx::wwn_load(read.wwn), 0u);
  for (uint32_t number : {3u, 12u}) {
    hcx_host *physical = hcx_vport_to_physical_host(number);
    ASSERT_NE(physical, nullptr);
    EXPECT_EQ(physical->id, 3u);
    pthread_rwlock_unlock(&physical->rwlock);
  }
  EXPECT_EQ(hcx_vport_to_physical_host(99), nullptr);
}

// Sysfs can be asked before anything has been scanned, in trees of any layout.
TEST_P(OldTrees, LookUpsBeforeTheFirstScan) {
  m.generation(GetParam());
  small();
  HBA_WWN target = wwn(0x5006016000000001);
  EXPECT_EQ(hcx_get_target_id(3, &target), 0);
  EXPECT_EQ(hcx_host_list, nullptr);
}

TEST_F(Discovery, NobodyHasTheName0) {
  sim::Host &host = small();
  HBA_WWN target = wwn(0x5006016000000001), zero = wwn(0);
  EXPECT_EQ(hcx_get_target_id(3, &target), 0);  // before the first scan, too
  host.rport(0)->set("port_name", "");
  host.set_fc("port_name", "(null)");
  EXPECT_EQ(hcx_get_target_id(3, &zero), -1);
  EXPECT_EQ(hcx_get_host_id(&zero), -1);
}

// The number in an 8-byte image: two words, the low one first; what follows is not looked at.
TEST_F(Discovery, DeviceFileOfAnFcpLun) {
  struct Case {
    uint8_t image[8];
    const char *directory;
  };
  const Case cases[] = {{{0x00, 0x05, 0, 0, 0, 0, 0, 0}, "3:0:1:5"},
                        {{0x40, 0x05, 0, 0, 0, 0, 0, 0}, "3:0:1:16389"},
                        {{0x00, 0x01, 0x00, 0x02, 9, 9, 9, 9}, "3:0:1:131073"},
                        {{0x00, 0x01, 0x80, 0x00, 0, 0, 0, 0}, "3:0:1:-2147483647"}};
  for (const Case &c : cases) {
    const std::string device = std::string("/sys/class/scsi_device/") + c.directory + "/device";
    uint64_t lun;
    memcpy(&lun, c.image, 8);
    char name[256] = "before";
    EXPECT_EQ(hcx_get_lun_file_name(3, 1, lun, name), -1);
    m.vfs().put_link(device + "/block:sdx", "../block/sdx");
    EXPECT_EQ(hcx_get_lun_file_name(3, 1, lun, name), 0);
    EXPECT_STREQ(name, "/dev/sdx");
    m.vfs().put_link(device + "/scsi_generic:sg9", "../sg/sg9");
    EXPECT_EQ(hcx_get_lun_file_name(3, 1, lun, name), 0);
    EXPECT_STREQ(name, "/dev/sg9");
    m.vfs().put_link(device + "/block", "../block/sdy");
    EXPECT_EQ(hcx_get_lun_file_name(3, 1, lun, name), 0);
    EXPECT_STREQ(name, "/dev/sdy");
    m.vfs().put_link(device + "/generic", "/" + std::string(254, 'x'));
    EXPECT_EQ(hcx_get_lun_file_name(3, 1, lun, name), 0);  // too long for a caller's buffer: passed over
    EXPECT_STREQ(name, "/dev/sdy");
    m.vfs().put_link(device + "/generic", "../sg/sg8");
    EXPECT_EQ(hcx_get_lun_file_name(3, 1, lun, name), 0);
    EXPECT_STREQ(name, "/dev/sg8");
  }
}

// Rescans of the same and of different hosts by several threads, while others look hosts up.
TEST_F(Discovery, ConcurrentRescans) {
  sim::default_san(m);
  hcx_brdinfo ba[8];
  ASSERT_EQ(HCX_InitDiagEnv(ba, 8), 4u);
  std::atomic<int> found{0};
  std::vector<std::thread> threads;
  for (uint32_t t = 0; t < 4; ++t) {
    threads.emplace_back([&found, t] {
      for (uint32_t i = 0; i < 25; ++i) {
        hcx::HostRef host = hcx::rescan(hcx::board_host((t + i) % 4));
        if (host && host->port_list) ++found;
        const hcx::HostRef again = hcx::board_host((t + i) % 4);
      }
    });
  }
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(found, 100);
}

TEST_F(Discovery, FirstScanBySeveralThreads) {
  sim::default_san(m);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      EXPECT_FALSE(hcx::board_host(0));
      size_t hosts = 0;
      for (const hcx_host *host = hcx::host_list(); host; host = host->next)
        ++hosts;
      EXPECT_EQ(hosts, 4u);
    });
  }
  for (std::thread &thread : threads)
    thread.join();
}

TEST_F(Discovery, BoardCallsBeforeStartUpFindNoBoard) {
  small();
  EXPECT_FALSE(hcx::board_host(0));
  EXPECT_EQ(host_numbers(), std::vector<uint32_t>{3});
  // The number that marks hosts without a board number is none either.
  HCXDrvInfo info = {};
  EXPECT_EQ(HCX_GetDrvInfo(~0u, &info), 12u);
  EXPECT_FALSE(hcx::board_host(~0u));
}

}  // namespace
