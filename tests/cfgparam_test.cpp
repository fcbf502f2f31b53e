// SPDX-License-Identifier: BSD-3-Clause
// Driver parameters: flags and values by adapter, what a change writes, what it refuses.
#include <errno.h>

#include "control_machine.h"

namespace {

using Texts = std::vector<std::string>;

enum Row { log_verbose, lun_queue_depth, nodev_tmo = 3, topology, link_speed, enable_auth = 14 };

class Parameters : public ControlTest {
 protected:
  CfgParam rows[64] = {};
};

TEST_F(Parameters, FlagsFollowTheAdapter) {
  struct Case {
    sim::HostSpec spec;
    uint16_t plain, link;
  };
  const Case cases[] = {
      {{.sli = 4, .protocol = "fc"}, 0x900D, 0x900D},
      {{.sli = 3, .protocol = "fc"}, 0xA00D, 0xA00D},
      {{.sli = 4, .protocol = "fcoe"}, 0x500D, 0x500A},
      {{.sli = 3, .protocol = "fc", .pci_device = 0x7b05}, 0xA00D, 0xA00A},
      {{.sli = 2, .protocol = "iscsi"}, 0x000D, 0x000D},
  };
  for (const Case &c : cases)
    machine.add_host(c.spec);
  start();
  for (uint32_t board = 0; board < std::size(cases); ++board) {
    SCOPED_TRACE(board);
    ASSERT_EQ(GetCfgParam(board, rows), 16U);
    EXPECT_EQ(rows[nodev_tmo].a_flag, cases[board].plain);
    EXPECT_EQ(rows[topology].a_flag, cases[board].link);
    EXPECT_EQ(rows[link_speed].a_flag, cases[board].link);
    EXPECT_EQ(rows[enable_auth].a_flag, cases[board].plain | CFG_IGNORE);
  }
  expect_nothing_held();
}

TEST_F(Parameters, ListShowsNamesRangesAndValues) {
  sim::Host &host = machine.add_host();
  host.set_scsi("vosk_log_verbose", "0x2003");
  host.set_scsi("vosk_lun_queue_depth", "500");
  host.set_scsi("vosk_nodev_tmo", "0");
  start();
  machine.vfs().remove(host.scsi_dir() + "vosk_use_adisc");
  rows[16].a_low = 0x55555555;
  ASSERT_EQ(GetCfgParam(0, rows), 16U);
  EXPECT_STREQ(rows[0].a_string, "log-verbose");
  EXPECT_EQ(rows[0].a_current, 0x2003U);
  EXPECT_EQ(rows[0].a_hi, 0xFFFFFFFFU);
  EXPECT_STREQ(rows[lun_queue_depth].a_string, "lun-queue-depth");
  EXPECT_EQ(rows[lun_queue_depth].a_current, 128U);
  EXPECT_EQ(rows[lun_queue_depth].a_changestate, CFG_RESTART);
  EXPECT_EQ(rows[nodev_tmo].a_current, 1U);
  EXPECT_STREQ(rows[7].a_string, "use-adisc");
  EXPECT_EQ(rows[7].a_flag, 0x9);
  EXPECT_EQ(rows[7].a_current, 0U);
  EXPECT_STREQ(rows[15].a_string, "use-msi");
  EXPECT_STREQ(rows[15].a_help, "Use Message Signaled Interrupts (1) or MSI-X (2)");
  EXPECT_EQ(rows[16].a_low, 0x55555555U) << "the end row is not part of the list";
}

TEST_F(Parameters, ChangesWriteOnlyWhatTheyMust) {
  sim::Host &host = machine.add_host();
  sim::Host &old_driver = machine.add_host();
  sim::configure(old_driver, {.nolip = false});
  for (sim::Host *each : {&host, &old_driver}) {
    each->set_scsi("vosk_topology", "0");
    each->set_scsi("vosk_link_speed", "0x0");
    each->set_scsi("vosk_log_verbose", "0x0");
    each->set_scsi("vosk_nodev_tmo", "30");
  }
  machine.add_host({.protocol = "fcoe"});
  start();
  struct Case {
    uint32_t board, row, value, result;
    Texts written;
  };
  const Case cases[] = {
      {0, nodev_tmo, 0, 0, {"vosk_nodev_tmo=1\n"}},
      {0, nodev_tmo, 1000, 0, {"vosk_nodev_tmo=255\n"}},
      {0, log_verbose, 0xFFFFFFFF, 0, {"vosk_log_verbose=0xffffffff\n"}},
      {0, topology, 2, 0, {"vosk_topology=nolip 2\n"}},
      {0, link_speed, 17, 0, {"vosk_link_speed=nolip 0x10\n"}},
      {1, topology, 2, 0, {"vosk_topology=nolip 2\n", "vosk_topology=2\n"}},
      {1, link_speed, 8, 0, {"vosk_link_speed=nolip 0x8\n", "vosk_link_speed=0x8\n"}},
      {0, lun_queue_depth, 10, 1, {}},
      {0, enable_auth, 1, 0, {}},
      {2, topology, 2, 0, {}},
      {2, link_speed, 2, 0, {}},
      {0, 16, 1, 1, {}},
      {0, 63, 1, 1, {}},
      {0, 64, 1, 1, {}},
      {0, 0xffffffff, 1, 1, {}},
      {3, nodev_tmo, 10, 12, {}},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(std::to_string(c.board) + ":" + std::to_string(c.row) + "=" + std::to_string(c.value));
    machine.clear_records();
    EXPECT_EQ(SetCfgParam(c.board, c.row, c.value), c.result);
    EXPECT_EQ(written(), c.written);
    if (c.result == 1) {
      EXPECT_TRUE(machine.logged("SetCfgParam - board 0 idx " + std::to_string(static_cast<int>(c.row)) +
                                 " changestate not dyanamic or linkreset "));
    }
    expect_nothing_held();
  }
  EXPECT_EQ(sim::control_record(host).link_resets, 0U);
  EXPECT_EQ(sim::control_record(old_driver).link_resets, 2U);
}

TEST_F(Parameters, RefusedChangeIsAnError) {
  sim::configure(machine.add_host(), {.params_writable = false});
  start();
  EXPECT_EQ(SetCfgParam(0, nodev_tmo, 5), 1U);
  EXPECT_TRUE(machine.logged("SetCfgParam - board 0 idx 3 did not update vosk_nodev_tmo"));
  machine.clear_records();
  EXPECT_EQ(SetCfgParam(0, topology, 1), 1U);
  EXPECT_EQ(written().size(), 2U);
  EXPECT_TRUE(machine.logged("SetCfgParam - board 0 idx 4 did not update vosk_topology"));
  expect_nothing_held();
}

TEST_F(Parameters, NoBoardNoRows) {
  machine.add_host();
  start();
  EXPECT_EQ(GetCfgParam(1, rows), 0U);
  EXPECT_TRUE(machine.logged("GetCfgParam - board 1 no host"));
  EXPECT_EQ(GetCfgParam(0, nullptr), 0U);
  char *pci_dev = hcx_host_list->pci_dev;
  hcx_host_list->pci_dev = nullptr;
  EXPECT_EQ(GetCfgParam(0, rows), 0U);
  EXPECT_EQ(SetCfgParam(0, nodev_tmo, 5), 12U);
  hcx_host_list->pci_dev = pci_dev;
  expect_nothing_held();
}

// One failing call at a time: the result is one of those promised, nothing is left behind, the next call
// works.
TEST_F(Parameters, AnyFaultIsSurvived) {
  machine.add_host();
  start();
  for (int n = 1;; ++n) {
    SCOPED_TRACE(n);
    ASSERT_LT(n, 1000);
    machine.fail_nth(n);
    const uint32_t result = SetCfgParam(0, topology, 1);
    const bool hit = machine.fault_hit();
    machine.clear_faults();
    EXPECT_TRUE(result == 0 || result == 1) << result;
    expect_nothing_held();
    if (!hit) break;
  }
  EXPECT_EQ(SetCfgParam(0, topology, 2), 0U);
}

}  // namespace
