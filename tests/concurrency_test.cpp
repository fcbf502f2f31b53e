// SPDX-License-Identifier: BSD-3-Clause
// Calls on many threads while the machine changes under them. What matters here is what ThreadSanitizer and
// AddressSanitizer see; the expectations are about what is there when all is quiet again.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <latch>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "board_fixture.h"

namespace {

// Starts all at once, waits for all.
void together(const std::vector<std::function<void()>> &bodies) {
  std::latch start(static_cast<ptrdiff_t>(bodies.size()));
  std::vector<std::thread> threads;
  for (const std::function<void()> &body : bodies) {
    threads.emplace_back([&start, &body] {
      start.arrive_and_wait();
      body();
    });
  }
  for (std::thread &thread : threads)
    thread.join();
}

std::function<void()> repeat(int times, std::function<void()> body) {
  return [times, body = std::move(body)] {
    for (int i = 0; i < times; ++i)
      body();
  };
}

class ConcurrencyTest : public BoardTest {
 protected:
  static constexpr uint64_t first_target = 0x5006016000000001;

  void SetUp() override {
    BoardTest::SetUp();
    for (int h = 0; h < 2; ++h) {
      sim::Host &host = m.add_host();
      for (uint64_t t = 0; t < 3; ++t) {
        sim::Rport &target = host.add_rport({.wwpn = first_target + t});
        for (uint64_t l = 0; l < 4; ++l)
          target.add_lun({.lun = l});
      }
    }
    scan();
  }

  // Ports with their LUNs, as the inventory has them after one more scan.
  static std::vector<size_t> luns_by_port(uint32_t board) {
    std::vector<size_t> counts;
    hcx::HostRef host = hcx::rescan(hcx::board_host(board));
    for (const hcx_port *port = host ? host->port_list : nullptr; port; port = port->next) {
      counts.push_back(0);
      for (const hcx_lun *lun = port->lun_list; lun; lun = lun->next)
        ++counts.back();
    }
    return counts;
  }

  static void query(uint32_t board) {
    HBA_WWN target = wwn(first_target);
    HBA_PORTSTATISTICS statistics;
    GetPortStatistics(board, 0, &statistics);
    HBA_PORTATTRIBUTES attributes;
    GetAdapterPortAttributes(board, 0, &attributes);
    GetPortAttributesByWWN(board, target, &attributes);
    LinkInfo link;
    HCX_GetLinkInfo(board, &link);
    HBA_FCPTARGETMAPPING mapping = {};
    GetFcpTargetMapping(board, &mapping);
    uint8_t data[96], sense[32];
    uint32_t data_size = sizeof data, sense_size = sizeof sense;
    SendScsiInquiry(board, &target, 1, 0, 0, data, &data_size, sense, &sense_size);
    MAILBOX_t mb = {};
    readrev(board, &mb);
  }
};

TEST_F(ConcurrencyTest, CallsOnBoardsWhosePortsAndLunsComeAndGo) {
  std::vector<std::function<void()>> bodies;
  for (uint32_t board : {0, 0, 1})
    bodies.push_back(repeat(6, [board] { query(board); }));
  bodies.push_back(repeat(8, [] { RefreshInformation(0); }));
  bodies.push_back(repeat(8, [] {
    // Names and links of records stay good as long as the lock is held, whatever others set aside.
    if (const hcx::HostRef host = hcx::board_host(0)) {
      for (const hcx_port *port = host->port_list; port; port = port->next) {
        ASSERT_EQ(port->host, host.get());
        for (const hcx_lun *lun = port->lun_list; lun; lun = lun->next)
          ASSERT_EQ(lun->port, port);
      }
    }
  }));
  bodies.push_back([this] {
    for (int i = 0; i < 12; ++i) {
      const std::lock_guard<std::recursive_mutex> guard(m.mutex());
      sim::Host &host = *m.hosts().front();
      sim::Rport &target = *host.rport_by_wwpn(first_target + 1);
      if (i % 2 == 0) {
        target.remove_lun(2);
        host.remove_rport(host.rport_by_wwpn(first_target + 2)->spec().number);
      } else {
        target.add_lun({.lun = 2});
        host.add_rport({.wwpn = first_target + 2}).add_lun();
      }
    }
  });
  together(bodies);
  EXPECT_EQ(luns_by_port(0), (std::vector<size_t>{4, 4, 1}));
  EXPECT_EQ(luns_by_port(1), (std::vector<size_t>{4, 4, 4}));
}

TEST_F(ConcurrencyTest, VirtualPortsComeAndGo) {
  std::vector<std::function<void()>> bodies;
  for (const uint32_t board : {0, 0, 1}) {
    bodies.push_back(repeat(4, [board] {
      HCX_VPAttrib attrib = {};
      attrib.ver = HCX_VPATTRIB_VERSION;
      attrib.options = HCX_VPORT_CHOOSE_NAMES;
      const uint32_t made = HCX_VPCreate(board, nullptr, &attrib);
      // Two that choose the same name at once: the kernel takes one.
      ASSERT_TRUE(made == 0 || made == 1 || made == 5) << made;
      if (made == 0) {
        ASSERT_EQ(HCX_VPDelete(board, &attrib.wwpn, 0), 0U);
      }
    }));
    bodies.push_back(repeat(6, [board] {
      HCX_VPEntryList list = {};
      list.numberOfEntries = 1;
      HCX_VPGetList(board, &list);
      fill_npiv_checklist(board, 0);
      RefreshInformation(board);
    }));
  }
  together(bodies);
  for (const uint32_t board : {0, 1}) {
    HCX_VPEntryList list = {};
    EXPECT_EQ(HCX_VPGetList(board, &list), 0U);
    EXPECT_EQ(list.numberOfEntries, 0U);
  }
}

TEST_F(ConcurrencyTest, LogLinesStayWholeWhileTheMaskChanges) {
  static constexpr int lines = 200;
  std::vector<std::function<void()>> bodies;
  for (char letter : {'a', 'b', 'c'}) {
    bodies.push_back(repeat(lines, [text = std::string(120, letter)] {
      libhcx_syslog(LOG_DEVICE_NAME, "%s - %s", "writer", text.c_str());
    }));
  }
  bodies.push_back(repeat(20, [this] {
    libhcx_syslog_enable(LOG_DEVICE_NAME);
    m.clock += 30;  // the next line looks at the switch file again
    libhcx_syslog_enable(0);
  }));
  together(bodies);
  libhcx_syslog_enable(LOG_DEVICE_NAME);
  libhcx_syslog(LOG_DEVICE_NAME, "%s - %s", "writer", "afterwards");
  EXPECT_TRUE(m.logged("afterwards"));
  for (const std::string &line : m.syslog_lines()) {
    const std::string tail = line.substr(line.rfind(' ') + 1);
    EXPECT_TRUE(tail.size() != 120 || tail.find_first_not_of(tail[0]) == std::string::npos) << line;
  }
}

TEST_F(ConcurrencyTest, OneMailboxCommandAtATimeOnABoard) {
  // Every exchange ends while its own lock is held: a second holder would find the first one's descriptor.
  std::atomic<int> inside{0};
  std::atomic<int> most{0};
  std::vector<std::function<void()>> bodies;
  for (int i = 0; i < 4; ++i) {
    bodies.push_back(repeat(10, [&] {
      hcx::HostRef host = hcx::board_host(0);
      ASSERT_TRUE(host);
      const int fd = hcx_host_mbox_lock(host.get());
      ASSERT_GT(fd, 0);
      const int now = ++inside;
      for (int seen = most; now > seen && !most.compare_exchange_weak(seen, now);) {
      }
      std::this_thread::yield();
      --inside;
      hcx_host_mbox_unlock(fd);
    }));
  }
  together(bodies);
  EXPECT_EQ(most, 1);
}

}  // namespace
