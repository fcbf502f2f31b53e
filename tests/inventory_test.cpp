// SPDX-License-Identifier: BSD-3-Clause
// The sorted lists: order, hints, removal, look-ups with their lock, release rules, dumps.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "libhcx.h"
#include "sim_machine.h"

namespace {

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

TEST_F(Inventory, RefusesALinkedPort) {
  hcx_host *host = make_host(1);
  host->brd_idx = 4;
  hcx_port other = {};
  hcx_port port = {};
  port.next = &other;
  EXPECT_EQ(hcx_host_insert_port(host, nullptr, &port), nullptr);
  EXPECT_TRUE(m.logged("hcx_host_insert_port - board index 4 new hcx_port next not empty"));
  EXPECT_EQ(host->port_list, nullptr);
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

TEST_F(Inventory, HostsStayWhileTheyHavePorts) {
  hcx_host *list = nullptr;
  hcx_host *host = make_host(1);
  hcx_host *next = make_host(2);
  host->brd_idx = 5;
  hcx_host_insert(&list, nullptr, host);
  hcx_host_insert(&list, host, next);
  hcx_port *port = hcx_host_insert_port(host, nullptr, make<hcx_port>(1));
  hcx_host_remove(&list, nullptr, host);
  EXPECT_EQ(ids(list), (Ids{1, 2}));
  hcx_host_free(host);
  EXPECT_TRUE(m.logged("hcx_host_free - host 5 next not empty"));
  EXPECT_TRUE(m.logged("hcx_host_free - host 5 port_list not empty"));
  EXPECT_EQ(host->port_list, port);
  hcx_host_remove_port(&host->port_list, nullptr, port);
  hcx_port_free(port);
  EXPECT_EQ(hcx_host_remove(&list, host, next), host);
  hcx_host_remove(&list, nullptr, host);
  hcx_host_free(host);
  hcx_host_free(next);
}

TEST_F(Inventory, ReleaseOfLinkedRecordsIsLogged) {
  hcx_host host = {};
  hcx_port *port = make<hcx_port>(1);
  hcx_lun lun = {};
  hcx_port other = {};
  port->next = &other;
  port->host = &host;
  port->lun_list = &lun;
  hcx_port_free(port);
  hcx_lun *linked = make<hcx_lun>(1);
  linked->next = &lun;
  hcx_lun_free(linked);
  hcx_lun_free(nullptr);
  hcx_port_free(nullptr);
  hcx_host_free(nullptr);
  hcx_lun_clean(nullptr);
  EXPECT_EQ(m.syslog_lines(),
            (std::vector<std::string>{
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
