// SPDX-License-Identifier: BSD-3-Clause
// Discovery of hosts, remote ports and LUNs in the three layouts of sysfs, rescans, trees that are not as they should
// be, and the sorted lists that hold what was found.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

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

TEST_F(Discovery, FillsTheHostRecord) {
  sim::HostSpec spec = {.number = 3, .sli = 4, .if_type = 2, .protocol = "fcoe", .pci = "0000:05:00.1"};
  spec.wwpn = 0x10000000c9000003;
  spec.wwnn = 0x20000000c9000003;
  spec.port_id = 0x010200;
  spec.serial = "QV1";
  spec.unique_id = 6;
  m.add_host(spec);
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
  ASSERT_NE(host->pci_dev, nullptr);
  const std::string pci = host->pci_dev;
  EXPECT_TRUE(pci.starts_with("/sys/devices/") && pci.ends_with("/0000:05:00.1/")) << pci;
  EXPECT_EQ(hcx_get_sli_mode(host), 4);
  EXPECT_EQ(hcx_get_sli4_if_type(host), 2);
  EXPECT_EQ(hcx_get_protocol_mode(host), 0);
}

TEST_F(Discovery, FactsFromTexts) {
  hcx_host host = {};
  struct Case {
    const char *firmware;
    int mode, type;
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
  for (const auto &[text, mode] : {std::pair{"fc", 1}, {"fc ", -1}, {"fcoe", 0}}) {
    host.protocol = const_cast<char *>(text);
    EXPECT_EQ(hcx_get_protocol_mode(&host), mode) << text;
  }
  EXPECT_EQ(hcx_get_function_type(&host), 1);
  host.pci_dev = const_cast<char *>("/sys/devices/x/");
  for (const auto &[device, type] : {std::pair{"0x7a10\n", 2}, {"0x7a12\n", 2}, {"0x7a13\n", 1}, {"", 1}}) {
    m.vfs().put_text("/sys/devices/x/device", device);
    EXPECT_EQ(hcx_get_function_type(&host), type) << device;
  }
  EXPECT_EQ(hcx_get_function_type(nullptr), -1);
  libhcx_syslog_enable(LOG_ERROR);
  EXPECT_EQ(hcx_get_board_sli_mode(0), -1);
  EXPECT_EQ(hcx_get_board_protocol_mode(~0u), -1);
  EXPECT_TRUE(m.logged("hcx_get_board_sli_mode - no host on board 0"));
  EXPECT_TRUE(m.logged("hcx_get_board_protocol_mode - no host on board -1"));
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
  EXPECT_EQ(target->scsi_target_id, 0u);
  EXPECT_EQ(target->lun_list->port, target);
  EXPECT_EQ(std::string(target->lun_list->generic_scsi_dev).rfind("/dev/sg", 0), 0u);
  EXPECT_EQ(std::string(target->lun_list->block_dev).rfind("/dev/sd", 0), 0u);
  EXPECT_EQ(initiator->scsi_target_id, 0xffffffffu);
  EXPECT_EQ(initiator->lun_list, nullptr);
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

TEST_F(Discovery, EntriesThatDoNotParseOrAreGone) {
  libhcx_syslog_enable(LOG_ERROR);
  sim::Host &host = small();
  m.vfs().put_dir("/sys/class/fc_remote_ports/rport-3:0-x");
  m.vfs().put_dir("/sys/class/scsi_device/3:0:0:x");
  m.vfs().put_dir("/sys/class/fc_remote_ports/rport-3:0-7");  // listed, gone when it is read
  m.vfs().put_text(host.scsi_dir() + "info", std::string(4096, 'i'));
  m.vfs().put_text(host.scsi_dir() + "serialnum", "\n");
  m.vfs().put_text(host.scsi_dir() + "unique_id", "soon\n");
  ASSERT_EQ(scan(), 1u);
  EXPECT_TRUE(m.logged("hcx_sysfs_scan_rports - host brd_idx 0 could not form port id from rport-3:0-x"));
  EXPECT_TRUE(m.logged("hcx_sysfs_scan_luns - could not form lun_id from 3:0:0:x"));
  EXPECT_EQ(luns(first()->port_list), (std::vector<uint64_t>{0, 1, 10}));
  EXPECT_EQ(strlen(first()->info), 254u);
  EXPECT_EQ(first()->serial_number, nullptr);
  EXPECT_EQ(first()->vend_idx, 0);
  EXPECT_EQ(hcx_port_find_by_id(first()->port_list, 7), nullptr);
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

TEST_F(Discovery, NobodyHasTheName0) {
  sim::Host &host = small();
  HBA_WWN zero = wwn(0);
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
  // Links added one after the other, and which node counts then; the third is too long for a caller's buffer.
  const std::string too_long = "/" + std::string(254, 'x');
  const struct {
    const char *name, *target, *node;
  } links[] = {{"/block:sdx", "../block/sdx", "/dev/sdx"},
               {"/scsi_generic:sg9", "../sg/sg9", "/dev/sg9"},
               {"/block", "../block/sdy", "/dev/sdy"},
               {"/generic", too_long.c_str(), "/dev/sdy"},
               {"/generic", "../sg/sg8", "/dev/sg8"}};
  for (const Case &c : cases) {
    const std::string device = std::string("/sys/class/scsi_device/") + c.directory + "/device";
    uint64_t lun;
    memcpy(&lun, c.image, 8);
    char name[256] = "before";
    EXPECT_EQ(hcx_get_lun_file_name(3, 1, lun, name), -1);
    for (const auto &link : links) {
      m.vfs().put_link(device + link.name, link.target);
      EXPECT_EQ(hcx_get_lun_file_name(3, 1, lun, name), 0);
      EXPECT_STREQ(name, link.node);
    }
  }
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

class Inventory : public testing::Test {
 protected:
  Inventory() { libhcx_syslog_enable(LOG_ERROR); }

  template <class Node>
  Node *make(uint64_t id) {
    Node *node = static_cast<Node *>(calloc(1, sizeof(Node)));
    node->id = static_cast<decltype(node->id)>(id);
    return node;
  }
  hcx_host *make_host(uint32_t id) {
    hcx_host *host = make<hcx_host>(id);
    pthread_rwlock_init(&host->rwlock, nullptr);
    return host;
  }
  template <class Node>
  std::vector<uint64_t> ids(const Node *list) {
    std::vector<uint64_t> all;
    for (; list; list = list->next)
      all.push_back(list->id);
    return all;
  }

  sim::Machine m;
  sim::Installed guard{m};
};

using Ids = std::vector<uint64_t>;

TEST_F(Inventory, InsertsInOrderWhateverTheHint) {
  hcx_port *port = make<hcx_port>(0);
  hcx_lun *last = nullptr;
  for (uint64_t id : Ids{10, 2, 3, 30, 3, 0xffffffffffffffff, 0})
    last = hcx_port_insert_lun(port, last, make<hcx_lun>(id));
  EXPECT_EQ(ids(port->lun_list), (Ids{0, 2, 3, 3, 10, 30, 0xffffffffffffffff}));
  // An equal goes behind its equals, whether the search starts at the head or at one of them.
  hcx_lun *first = hcx_lun_find_by_id(port->lun_list, 3);
  hcx_lun *second = first->next;
  hcx_lun *third = hcx_port_insert_lun(port, first, make<hcx_lun>(3));
  hcx_lun *fourth = hcx_port_insert_lun(port, nullptr, make<hcx_lun>(3));
  EXPECT_EQ(second->next, third);
  EXPECT_EQ(third->next, fourth);
  EXPECT_EQ(fourth->port, port);
  while (hcx_lun *lun = port->lun_list) {
    hcx_port_remove_lun(&port->lun_list, nullptr, lun);
    hcx_lun_free(lun);
  }
  hcx_port_free(port);
  EXPECT_TRUE(m.syslog_lines().empty());
}

TEST_F(Inventory, RemovesWithAndWithoutAHint) {
  hcx_host *host = make_host(1);
  hcx_port *ports[5];
  for (uint32_t i = 0; i < 5; ++i)
    ports[i] = hcx_host_insert_port(host, nullptr, make<hcx_port>(i));
  hcx_host_remove_port(&host->port_list, ports[1], ports[2]);  // right hint
  hcx_host_remove_port(&host->port_list, ports[0], ports[4]);  // wrong hint
  hcx_host_remove_port(&host->port_list, nullptr, ports[0]);   // head
  EXPECT_EQ(ids(host->port_list), (Ids{1, 3}));
  EXPECT_EQ(ports[2]->host, nullptr);
  EXPECT_EQ(ports[2]->next, nullptr);
  hcx_host_remove_port(&host->port_list, nullptr, ports[2]);  // no longer there
  EXPECT_EQ(ids(host->port_list), (Ids{1, 3}));
  for (hcx_port *port : ports) {
    hcx_host_remove_port(&host->port_list, nullptr, port);
    hcx_port_free(port);
  }
  hcx_host_free(host);
}

TEST_F(Inventory, HostsAreFoundWithTheirReadLock) {
  hcx_host *list = nullptr;
  hcx_host *host = make_host(7);
  host->brd_idx = 2;
  host->port.port_id = 0x010203;
  hcx::wwn_store(host->port.wwpn, 0x1122334455667788);
  hcx::wwn_store(host->port.wwnn, 0x99aabbccddeeff00);
  hcx_host_insert(&list, nullptr, host);
  const uint8_t wwpn[] = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
  const uint8_t wwnn[] = {0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff, 0x00};
  hcx_host *found[] = {hcx_host_find_by_idx(list, 2), hcx_host_find_by_id(list, 7),
                       hcx_host_find_by_port_id(list, 0x010203), hcx_host_find_by_wwpn(list, wwpn),
                       hcx_host_find_by_wwnn(list, wwnn)};
  for (hcx_host *each : found)
    EXPECT_EQ(each, host);
  for (size_t i = 0; i < std::size(found); ++i) {
    EXPECT_EQ(pthread_rwlock_trywrlock(&host->rwlock), EBUSY);
    pthread_rwlock_unlock(&host->rwlock);
  }
  ASSERT_EQ(pthread_rwlock_trywrlock(&host->rwlock), 0);
  pthread_rwlock_unlock(&host->rwlock);
  EXPECT_EQ(hcx_host_find_by_idx(list, -1), nullptr);
  EXPECT_EQ(hcx_host_find_by_wwpn(list, wwnn), nullptr);
  hcx_host_remove(&list, nullptr, host);
  hcx_host_free(host);
}

// A thread that holds the write side cannot have the read side as well, and keeps what it holds.
TEST_F(Inventory, TheWritersOwnThreadFindsNothing) {
  hcx_host *host = make_host(7);
  hcx_host *list = host;
  ASSERT_EQ(pthread_rwlock_wrlock(&host->rwlock), 0);
  EXPECT_EQ(hcx_host_find_by_id(list, 7), nullptr);
  hcx_sysfs_scan_host(host);
  hcx_sysfs_scan_rports(host);
  EXPECT_NE(pthread_rwlock_tryrdlock(&host->rwlock), 0);
  EXPECT_EQ(pthread_rwlock_unlock(&host->rwlock), 0);
  EXPECT_EQ(hcx_host_find_by_id(list, 7), host);
  pthread_rwlock_unlock(&host->rwlock);
  hcx_host_free(host);
}

TEST_F(Inventory, LinkedRecordsAreNeitherTakenNorReleased) {
  hcx_host *list = nullptr;
  hcx_host *host = make_host(1), *next = make_host(2);
  host->brd_idx = 5;
  hcx_host_insert(&list, nullptr, host);
  hcx_host_insert(&list, host, next);
  hcx_port *kept = hcx_host_insert_port(host, nullptr, make<hcx_port>(1));
  hcx_port other = {}, linked_port = {};
  linked_port.next = &other;
  EXPECT_EQ(hcx_host_insert_port(host, nullptr, &linked_port), nullptr);
  hcx_host_remove(&list, nullptr, host);
  EXPECT_EQ(ids(list), (Ids{1, 2}));
  hcx_host_free(host);
  EXPECT_EQ(host->port_list, kept);
  hcx_host_remove_port(&host->port_list, nullptr, kept);
  hcx_port_free(kept);
  EXPECT_EQ(hcx_host_remove(&list, host, next), host);
  hcx_host_remove(&list, nullptr, host);

  hcx_lun lun = {};
  hcx_port *port = make<hcx_port>(1);
  port->next = &other;
  port->host = host;
  port->lun_list = &lun;
  hcx_port_free(port);
  hcx_lun *linked = make<hcx_lun>(1);
  linked->next = &lun;
  hcx_lun_free(linked);
  hcx_lun_free(nullptr);
  hcx_port_free(nullptr);
  hcx_host_free(nullptr);
  hcx_lun_clean(nullptr);
  hcx_host_free(host);
  hcx_host_free(next);
  EXPECT_EQ(m.syslog_lines(),
            (std::vector<std::string>{
                "hcx_host_insert_port - board index 5 new hcx_port next not empty",
                "hcx_host_free - host 5 next not empty", "hcx_host_free - host 5 port_list not empty",
                "hcx_port_free - port next not empty", "hcx_port_free - port host not empty",
                "hcx_port_free - port lun_list not empty", "hcx_lun_free - lun next not empty",
                "hcx_lun_free - no lun", "hcx_port_free - no port", "hcx_host_free - no host",
                "hcx_lun_clean - no lun"}));
}

TEST_F(Inventory, Dumps) {
  hcx_host host = {};
  host.id = 3;
  host.vend_idx = 9;
  host.brd_idx = -1;
  hcx::wwn_store(host.port.wwnn, 0x20000090fa942b02);
  hcx::wwn_store(host.port.wwpn, 0x10000090fa942b02);
  host.port.port_id = 0x10200;
  testing::internal::CaptureStdout();
  hcx_host_logdump(&host);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Host: id:       3\n      vend_idx: 9\n      brd_idx:  -1\n"
            "      wwnn[8]:  20:00:00:90:fa:94:2b:02\n      wwpn[8]:  10:00:00:90:fa:94:2b:02\n"
            "      port_id: 0x10200\n");
  hcx_lun lun = {};
  lun.id = 5;
  char name[] = "/dev/sdb";
  lun.block_dev = name;
  testing::internal::CaptureStdout();
  hcx_lun_logdump(&lun);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "            Lun:  id:          5\n                  sn_len:      0\n"
            "                  sn:          (null)\n                  generic_dev: (null)\n"
            "                  block_dev:   /dev/sdb\n");
}

}  // namespace
