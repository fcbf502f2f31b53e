// SPDX-License-Identifier: BSD-3-Clause
// Start-up and teardown: the board table, board numbers, failures on the way, and that nothing is left behind.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "libhcx.h"
#include "sim_machine.h"

namespace {

constexpr uint64_t wwpn_base = 0x10000000c9000000;

class Admin : public testing::Test {
 protected:
  ~Admin() override {
    HCX_FreeDiagEnv();
    EXPECT_EQ(m.open_fds(), 0u);
    EXPECT_EQ(m.held_locks(), 0u);
    EXPECT_EQ(hcx_host_list, nullptr);
  }
  void log(uint32_t mask) { libhcx_syslog_enable(mask); }
  void add_hosts(std::initializer_list<int> numbers) {
    for (int number : numbers)
      m.add_host(
          {.number = number, .wwpn = wwpn_base + static_cast<uint64_t>(number), .unique_id = number + 1000});
  }
  hcx_host *host_of(uint32_t id) {
    for (hcx_host *host = hcx_host_list; host; host = host->next)
      if (host->id == id) return host;
    return nullptr;
  }

  sim::Machine m;
  sim::Installed guard{m};
};

TEST_F(Admin, DescribesEachBoard) {
  m.add_host({.number = 3,
              .sli = 3,
              .wwpn = 0x10000000c9a1b2c3,
              .pci = "0000:0b:1f.5",
              .pci_vendor = 0x1d5a,
              .pci_device = 0xf0e5,
              .irq = 77,
              .firmware = "2.01A12",
              .driver = "Quorva vosk driver 8.2.0.141p",
              .unique_id = 0x12345,
              .slimem = true});
  m.add_host({.number = 4});
  hcx_brdinfo ba[2];
  memset(ba, 0xee, sizeof ba);
  ASSERT_EQ(HCX_InitDiagEnv(ba, 2), 2u);
  EXPECT_EQ(ba[0].a_mem_hi, 0xffffffffu);
  EXPECT_EQ(ba[0].a_ctlreg_low, 0xffffffffu);
  EXPECT_EQ(ba[0].a_intrlvl, 77u);
  EXPECT_EQ(ba[0].a_pci, 0xf0e51d5au);
  EXPECT_EQ(ba[0].a_busid, 0x0bu);
  EXPECT_EQ(ba[0].a_devid, 0x1fu << 3 | 5u);
  EXPECT_EQ(ba[0].a_pciFunc, 5);
  EXPECT_EQ(ba[0].a_siglvl, 10);
  EXPECT_EQ(ba[0].a_ddi, 0x2345);
  EXPECT_EQ(ba[0].a_onmask, 0x1f40fu | 0x40u | 0x100u);
  EXPECT_EQ(ba[1].a_onmask, 0x1f40fu | 0x80u | 0x100u);
  EXPECT_EQ(ba[0].a_offmask, 1u);
  EXPECT_STREQ(reinterpret_cast<char *>(ba[0].a_drvrid), "8.2.0.141p");
  EXPECT_STREQ(reinterpret_cast<char *>(ba[0].a_fwname), "2.01A12, sli-3");
  const uint8_t wwpn[8] = {0x10, 0, 0, 0, 0xc9, 0xa1, 0xb2, 0xc3};
  EXPECT_EQ(memcmp(ba[0].a_wwpn, wwpn, 8), 0);
}

TEST_F(Admin, TextsNeverOverrunTheirFields) {
  m.add_host({.number = 3, .firmware = std::string(200, 'f'), .driver = "v123456789.123456789.123456789"});
  hcx_brdinfo ba[1];
  ASSERT_EQ(HCX_InitDiagEnv(ba, 1), 1u);
  EXPECT_STREQ(reinterpret_cast<char *>(ba[0].a_drvrid), "123456789.12345");
  EXPECT_STREQ(reinterpret_cast<char *>(ba[0].a_fwname), std::string(30, 'f').c_str());
}

TEST_F(Admin, SlimemOfExactly4096BytesMeansSli1) {
  add_hosts({3});
  for (const int size : {4096, 4095, 4097, 0}) {
    m.vfs().put_binary("/sys/class/scsi_host/host3/slimem", "", 0600, size);
    hcx_brdinfo ba[1];
    ASSERT_EQ(HCX_InitDiagEnv(ba, 1), 1u);
    EXPECT_EQ(ba[0].a_onmask & (ONDI_SLI1 | ONDI_SLI2), size == 4096 ? ONDI_SLI1 : ONDI_SLI2) << size;
  }
}

TEST_F(Admin, HostsBeyondTheCapacityAreCountedOnly) {
  add_hosts({10, 3, 2});
  hcx_brdinfo ba[2];
  memset(ba, 0xee, sizeof ba);
  EXPECT_EQ(HCX_InitDiagEnv(ba, 1), 3u);
  EXPECT_EQ(ba[1].a_ddi, 0xeeee);
  EXPECT_EQ(host_of(2)->brd_idx, 0);
  EXPECT_EQ(host_of(3)->brd_idx, -1);
  // A second start numbers anew, upwards and downwards.
  EXPECT_EQ(HCX_InitDiagEnv(ba, 2), 3u);
  EXPECT_EQ(host_of(3)->brd_idx, 1);
  EXPECT_EQ(ba[0].a_ddi, 1002);
  EXPECT_EQ(ba[1].a_ddi, 1003);
  EXPECT_EQ(HCX_InitDiagEnv(nullptr, 0), 3u);
  EXPECT_EQ(host_of(2)->brd_idx, -1);
  EXPECT_EQ(host_of(3)->brd_idx, -1);
}

TEST_F(Admin, SecondStartScansNothing) {
  add_hosts({2});
  hcx_brdinfo ba[2];
  ASSERT_EQ(HCX_InitDiagEnv(ba, 2), 1u);
  add_hosts({3});
  EXPECT_EQ(HCX_InitDiagEnv(ba, 2), 1u);
  HCX_FreeDiagEnv();
  EXPECT_EQ(HCX_InitDiagEnv(ba, 2), 2u);
}

TEST_F(Admin, HostWithoutItsPciDeviceKeepsNoNumber) {
  add_hosts({2, 3});
  log(LOG_ADMIN);
  hcx_brdinfo ba[2];
  ASSERT_EQ(HCX_InitDiagEnv(ba, 2), 2u);
  m.vfs().put_link("/sys/class/scsi_host/host2", "nowhere");
  hcx_sysfs_scan_host(host_of(2));
  ASSERT_EQ(host_of(2)->pci_dev, nullptr);
  EXPECT_EQ(HCX_InitDiagEnv(ba, 2), 2u);
  EXPECT_TRUE(m.logged("HCX_InitDiagEnv - callers limit 2 allocated 1 scanned 2"));
  EXPECT_EQ(host_of(2)->brd_idx, -1);
  EXPECT_EQ(host_of(3)->brd_idx, 0);
  EXPECT_EQ(ba[0].a_ddi, 1003);
}

TEST_F(Admin, OlderRecords) {
  for (int i = 0; i < 40; ++i)
    add_hosts({i + 1});
  brdinfo ba[33];
  memset(ba, 0xee, sizeof ba);
  EXPECT_EQ(InitDiagEnv(ba), 32u);
  EXPECT_EQ(ba[0].a_ddi, static_cast<uint8_t>(1001));
  EXPECT_EQ(ba[0].a_siglvl, 0xee);
  EXPECT_EQ(ba[0].a_rsvd1, 0xee);
  EXPECT_EQ(ba[0].a_rsvd2, 0xee);
  EXPECT_EQ(ba[31].a_offmask, 1u);
  EXPECT_EQ(ba[32].a_offmask, 0xeeeeeeeeu);
  EXPECT_EQ(InitDiagEnv(nullptr), 0u);
}

TEST_F(Admin, TeardownSaysSoAndSwitchesLoggingOff) {
  add_hosts({2});
  log(LOG_ADMIN);
  hcx_brdinfo ba[1];
  ASSERT_EQ(HCX_InitDiagEnv(ba, 1), 1u);
  EXPECT_EQ(FreeDiagEnv(), 0u);
  EXPECT_TRUE(m.logged("HCX_FreeDiagEnv - pid "));
  EXPECT_FALSE(m.vfs().exists("/tmp/libhcx_syslog_enable"));
  EXPECT_EQ(HCX_FreeDiagEnv(), 0u);
}

// The driver answers the first query, but not the second: everything is taken down again.
TEST_F(Admin, DriverThatStopsAnswering) {
  add_hosts({2});
  log(LOG_ERROR);
  m.fail({.verb = sim::Verb::ioctl, .nth = 2, .persistent = true, .error = EIO});
  hcx_brdinfo ba[1];
  EXPECT_EQ(HCX_InitDiagEnv(ba, 1), 0u);
  EXPECT_EQ(hcx_host_list, nullptr);
  EXPECT_TRUE(m.logged("open_voskhcx - Could not obtain hcx rev info from driver"));
  EXPECT_TRUE(m.logged("HCX_InitDiagEnv - open_voskhcx failed"));
  m.clear_faults();
  EXPECT_EQ(HCX_InitDiagEnv(ba, 1), 1u);
}

TEST_F(Admin, LibraryVersion) {
  uint8_t text[20];
  memset(text, 0xee, sizeof text);
  HCX_GetLibVer(text);
  EXPECT_STREQ(reinterpret_cast<char *>(text), "4.2.17");
  EXPECT_EQ(text[7], 0xee);
  HCX_GetLibVer(nullptr);
}

}  // namespace
