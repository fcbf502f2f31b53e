// SPDX-License-Identifier: BSD-3-Clause
// Board control: resets and modes, driver parameters, registers and memory: what is written in which order, and where
// each refusal leads.
#include <errno.h>

#include <cstring>

#include "control_machine.h"

namespace {

using Texts = std::vector<std::string>;

sim::Fault refuse(const char *attribute, int error, bool persistent = false) {
  return {.verb = sim::Verb::write, .path = attribute, .persistent = persistent, .error = error};
}
sim::Fault closed(const char *attribute) {
  return {.verb = sim::Verb::open, .path = attribute, .persistent = true, .error = EACCES};
}

// Parts of a text between bars.
Texts parts(const std::string &text) {
  Texts all;
  for (size_t at = 0; at < text.size(); at = text.find('|', at) + 1) {
    all.push_back(text.substr(at, text.find('|', at) - at));
    if (text.find('|', at) == std::string::npos) break;
  }
  return all;
}

TEST_F(ControlTest, ResetsLeadTo) {
  machine.add_host();
  start();
  const sim::Fault none = {.verb = sim::Verb::write, .path = "/nowhere"}, off = refuse("issue_reset", EACCES),
                   fails = refuse("issue_reset", EIO), firmware_unknown = refuse("board_mode", EPERM);
  const struct {
    const char *name;
    uint32_t type;
    sim::Fault fault, second;
    uint32_t result;
    const char *written, *logged;  // taken or refused
  } rows[] = {
      {"selective", 1, none, none, 0, "issue_reset=selective", "board 0 issue reset selective success"},
      {"coordinated", 2, none, none, 0, "issue_reset=coordinated", "board 0 issue reset coordinated success"},
      {"firmware", 3, none, none, 0, "board_mode=fw_reset", ""},
      {"unknown kind", 7, none, none, 4, "", "HCX_ResetAdapter - invalid reset type 7"},
      {"switched off", 1, off, none, 1, "issue_reset=selective",
       "board 0 reset type:1 failed due to driver hba reset enable turned off"},
      {"other refusals count as done", 1, fails, none, 0, "issue_reset=selective",
       "board 0 issue reset selective success"},
      {"cannot be opened", 1, closed("issue_reset"), none, 0, "", "issue reset selective success"},
      {"coordinated refused", 2, refuse("issue_reset", EINVAL), none, 0,
       "issue_reset=coordinated|issue_reset=selective",
       "board 0 fall back to selective reset success|board 0 issue reset coordinated success"},
      {"coordinated and its fall-back refused", 2, refuse("issue_reset", EINVAL, true), none, 0,
       "issue_reset=coordinated|issue_reset=selective",
       "board 0 fall back to selective reset failed|board 0 issue reset coordinated success"},
      {"coordinated cannot be opened", 2, closed("issue_reset"), none, 0, "",
       "board 0 fall back to selective reset failed"},
      {"firmware cannot be opened", 3, closed("board_mode"), none, 1, "",
       "board 0 reset type:3 failed due to not able to open sysfs file handler"},
      {"firmware fails", 3, refuse("board_mode", EIO), none, 1, "board_mode=fw_reset",
       "board 0 reset type:3 reset failed"},
      {"firmware not supported", 3, firmware_unknown, none, 0, "board_mode=fw_reset|issue_reset=selective",
       "board 0 reset type:3 reset not supported, fall back to selective reset|board 0 issue reset selective "
       "success"},
      {"firmware not supported, then switched off", 3, firmware_unknown, off, 1,
       "board_mode=fw_reset|issue_reset=selective",
       "board 0 reset type:1 failed due to driver hba reset enable turned off"},
      {"the fall-back has none of its own", 3, firmware_unknown, fails, 0,
       "board_mode=fw_reset|issue_reset=selective", "board 0 issue reset selective success"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    machine.clear_records();
    machine.fail(row.fault);
    machine.fail(row.second);
    EXPECT_EQ(HCX_ResetAdapter(0, row.type), row.result);
    machine.clear_faults();
    EXPECT_EQ(written(), parts(row.written));
    for (const std::string &text : parts(row.logged))
      EXPECT_TRUE(machine.logged(text)) << text;
    EXPECT_FALSE(row.result != 0 && machine.logged("success"));
    expect_nothing_held();
  }
}

TEST_F(ControlTest, ResetKnowsOnlyNumberedBoards) {
  machine.add_host();
  EXPECT_EQ(HCX_ResetAdapter(0, 1), 1U);
  EXPECT_EQ(SetBrdEnv(0, DDI_OFFDI), 0U);
  EXPECT_EQ(SetDiagEnv(DDI_OFFDI), 0U);
  EXPECT_EQ(machine.calls(sim::Verb::list), 0U) << "none of them may start a scan";
  // A scan alone gives no numbers, and -1 is none.
  EXPECT_EQ(HCX_SetDumpEnv(0, DDI_OFFDI), 1U);
  EXPECT_GT(machine.calls(sim::Verb::list), 0U);
  EXPECT_EQ(HCX_ResetAdapter(0xffffffff, 1), 1U);
  EXPECT_EQ(SetBrdEnv(0xffffffff, DDI_OFFDI), 0U);
  EXPECT_EQ(written(), Texts{});
  start();
  expect_told(HCX_ResetAdapter(1, 1), 1, "HCX_ResetAdapter - no host for board 1");
  expect_told(HCX_SetDumpEnv(1, DDI_OFFDI), 1, "HCX_SetDumpEnv - host not found for board 1");
  expect_told(SetBrdEnv(1, DDI_OFFDI), 0, "SetBrdEnv - host not found for board 1");
}

struct ModeCase {  // NOLINT(clang-analyzer-optin.performance.Padding): in the order of the events
  const char *before;
  uint32_t flag;
  std::vector<sim::Fault> faults;
  uint32_t result;
  Texts written;
  bool reads_back;
};

TEST_F(ControlTest, SetsAndReadsTheMode) {
  sim::Host &host = machine.add_host();
  start();
  const ModeCase cases[] = {
      {"online", DDI_SHOW, {}, 1, {}, true},
      {"warm", DDI_SHOW, {}, 3, {}, true},
      {"sleeping", DDI_SHOW, {}, 0, {}, true},
      {"online", DDI_SHOW, {closed("board_mode")}, 0, {}, false},
      {"online", DDI_OFFDI, {}, 2, {"board_mode=offline"}, false},
      {"offline", DDI_ONDI, {}, 1, {"board_mode=online"}, false},
      {"online", DDI_WARMDI, {}, 3, {"board_mode=warm"}, false},
      {"online", DDI_FWDUMPDI, {}, 4, {"board_mode=dump"}, false},
      {"online", DDI_DIAGDI, {}, 5, {"board_mode=error"}, false},
      {"online", DDI_OFFDI, {refuse("board_mode", EIO)}, 1, {"board_mode=offline"}, true},
      {"online", DDI_FWDUMPDI, {refuse("board_mode", EIO)}, 0, {"board_mode=dump"}, false},
      {"online", 6, {}, 0, {}, false},
      {"online", static_cast<uint32_t>(DDI_UNUSED), {}, 0, {}, false},
  };
  for (const ModeCase &c : cases) {
    SCOPED_TRACE(std::string(c.before) + " -> " + std::to_string(c.flag));
    host.set_scsi("board_mode", c.before);
    machine.clear_records();
    for (const sim::Fault &fault : c.faults)
      machine.fail(fault);
    const uint64_t reads = machine.calls(sim::Verb::read);
    EXPECT_EQ(SetBrdEnv(0, c.flag), c.result);
    EXPECT_EQ(written(), c.written);
    EXPECT_EQ(machine.calls(sim::Verb::read) > reads, c.reads_back);
    expect_nothing_held();
    machine.clear_faults();
  }
  EXPECT_TRUE(machine.logged("SetBrdEnv - flag -1 out of range on board 0"));
}

TEST_F(ControlTest, AllBoardsStopAtTheFirstThatFails) {
  for (int i = 0; i < 3; ++i)
    machine.add_host();
  start();
  EXPECT_EQ(SetDiagEnv(DDI_OFFDI), 2U);
  EXPECT_EQ(written(), (Texts{"board_mode=offline", "board_mode=offline", "board_mode=offline"}));
  machine.clear_records();
  machine.fail({.verb = sim::Verb::open, .path = "host1/board_mode", .persistent = true, .error = ENOENT});
  EXPECT_EQ(SetDiagEnv(DDI_ONDI), 0U);
  EXPECT_EQ(machine.vfs().text("/sys/class/scsi_host/host0/board_mode"), "online\n");
  EXPECT_EQ(machine.vfs().text("/sys/class/scsi_host/host2/board_mode"), "offline\n");
}

TEST_F(ControlTest, DumpEnvironmentUsesErrorForOffline) {
  sim::Host &host = machine.add_host();
  start();
  EXPECT_EQ(HCX_SetDumpEnv(0, DDI_OFFDI), 2U);
  EXPECT_EQ(written(), Texts{"board_mode=error"});
  EXPECT_EQ(HCX_SetDumpEnv(0, DDI_SHOW), 2U);
  EXPECT_EQ(HCX_SetDumpEnv(0, DDI_ONDI), 1U);
  EXPECT_EQ(HCX_SetDumpEnv(0, DDI_FWDUMPDI), 4U);
  EXPECT_EQ(sim::control_record(host).dumps, 1U);
  sim::configure(host, {.dump = false});
  expect_told(SetBrdEnv(0, DDI_FWDUMPDI), 0,
              "SetBrdEnv - forced firmware dump on board 0 failed: rc:" + std::to_string(EBUSY));
}

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
      {0, 16, 1, 1, {}},
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
  expect_told(SetCfgParam(0, nodev_tmo, 5), 1, "SetCfgParam - board 0 idx 3 did not update vosk_nodev_tmo");
  machine.clear_records();
  expect_told(SetCfgParam(0, topology, 1), 1, "SetCfgParam - board 0 idx 4 did not update vosk_topology");
  EXPECT_EQ(written().size(), 2U);
  expect_nothing_held();
}

TEST_F(Parameters, NoBoardNoRows) {
  machine.add_host();
  start();
  expect_told(GetCfgParam(1, rows), 0, "GetCfgParam - board 1 no host");
  EXPECT_EQ(GetCfgParam(0, nullptr), 0U);
  char *pci_dev = hcx_host_list->pci_dev;
  hcx_host_list->pci_dev = nullptr;
  EXPECT_EQ(GetCfgParam(0, rows), 0U);
  EXPECT_EQ(SetCfgParam(0, nodev_tmo, 5), 12U);
  hcx_host_list->pci_dev = pci_dev;
  expect_nothing_held();
}

class Registers : public ControlTest {
 protected:
  void SetUp() override {
    machine.add_host({.sli = 3});
    machine.add_host({.sli = 4});
    machine.add_host({.sli = 0});
    start();
  }
};

TEST_F(Registers, WritesAreMarked) {
  uint32_t value;
  memcpy(&value, "\x11\x22\x33\x44", 4);  // the same bytes on every processor
  EXPECT_EQ(WriteCtlReg(0, &value, 0x10), 0U);
  ASSERT_EQ(machine.writes().size(), 1U);
  EXPECT_EQ(machine.writes()[0].text, std::string("ZOBT\x11\x22\x33\x44", 8));
  EXPECT_EQ(machine.vfs().find("/sys/class/scsi_host/host0/ctlreg")->stat_size(), 256);
  uint32_t back = 0;
  EXPECT_EQ(ReadCtlReg(0, &back, 0x10), 0U);
  EXPECT_EQ(back, value);
  EXPECT_EQ(ReadCtlReg(0, &back, 0x14), 0U);
  EXPECT_EQ(memcmp(&back, "\x14\x15\x16\x17", 4), 0);
}

TEST_F(Registers, FailuresAreToldApart) {
  uint32_t word = 7;
  const uint64_t opened = machine.calls(sim::Verb::open);
  EXPECT_EQ(ReadCtlReg(1, &word, 0), 2U);
  EXPECT_EQ(WriteCtlReg(1, &word, 0), 2U);
  EXPECT_EQ(machine.calls(sim::Verb::open), opened) << "an SLI-4 board is not touched";
  EXPECT_TRUE(machine.logged("ReadCtlReg - board 1 sliMode 4 too high"));
  expect_told(ReadCtlReg(2, &word, 0), 1, "ReadCtlReg - board 2 sliMode 0 too low");
  EXPECT_EQ(ReadCtlReg(3, &word, 0), 12U);
  expect_told(WriteCtlReg(3, &word, 0), 12, "WriteCtlReg - board 3 no host");
  EXPECT_EQ(word, 7U);
  EXPECT_EQ(ReadCtlReg(0, &word, 254), 1U);
  EXPECT_TRUE(machine.logged("ReadCtlReg - board 0 Error: ReadCtlReg: read wrong size 2 at offset 254n"));
  EXPECT_TRUE(machine.logged("ReadCtlReg - board = 0; data = 0x"));
  expect_told(WriteCtlReg(0, &word, 256), 1, "WriteCtlReg - board 0 host ctlreg write failed at offset 256");
  EXPECT_EQ(ReadCtlReg(0, nullptr, 0), 1U);
  EXPECT_EQ(WriteCtlReg(0, nullptr, 0), 1U);
  machine.fail({.verb = sim::Verb::write, .path = "ctlreg", .short_count = 4});
  EXPECT_EQ(WriteCtlReg(0, &word, 0), 1U);
  expect_nothing_held();
}

TEST_F(Registers, MemoryMovesExactly) {
  uint8_t out[6] = {1, 2, 3, 4, 5, 6}, in[8] = {};
  EXPECT_EQ(WriteMem(0, out, 0x101, 6), 0U);
  EXPECT_EQ(ReadMem(0, in, 0x100, 8), 0U);
  EXPECT_EQ(memcmp(in, "\0\1\2\3\4\5\6\0", 8), 0);
  EXPECT_EQ(ReadMem(0, in, 16384 - 4, 8), 1U);
  EXPECT_TRUE(machine.logged("ReadMem - board 0 host slim read failed at offset 16380 count 8"));
  EXPECT_EQ(WriteMem(0, out, 16384 - 4, 6), 1U);
  EXPECT_TRUE(machine.logged("WriteMem - board 0 host slim write failed at offset 16380 count 6"));
  EXPECT_EQ(ReadMem(0, nullptr, 0, 4), 1U);
  EXPECT_EQ(WriteMem(0, nullptr, 0, 4), 1U);
  EXPECT_EQ(ReadMem(9, in, 0, 4), 12U);
  EXPECT_EQ(WriteMem(9, out, 0, 4), 12U);
  expect_nothing_held();
}

TEST_F(Registers, PciSpaceIsReadOnly) {
  uint8_t bytes[4] = {};
  for (auto *read : {HCX_ReadPciCfg, ReadPciCfg}) {
    EXPECT_EQ(read(1, bytes, 0, 4), 0U);
    EXPECT_EQ(bytes[0] | bytes[1] << 8, 0x1d5a) << "the vendor id, little-endian";
    EXPECT_EQ(read(1, bytes, 0x10000, 4), 1U);
    EXPECT_EQ(read(1, nullptr, 0, 4), 1U);
    EXPECT_EQ(read(3, bytes, 0, 4), 12U);
  }
  EXPECT_TRUE(machine.logged("HCX_ReadPciCfg - board 1 host pcireg read failed offset 65536 count 4"));
  EXPECT_EQ(WritePciCfg(0, bytes, 0, 4), 2U);
  EXPECT_EQ(WritePciCfg(9, nullptr, 0, 4), 2U);
  EXPECT_TRUE(machine.writes().empty());
}

TEST(Swap32Buffer, LeavesTheRest) {
  uint8_t bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  swap32_buffer(bytes, 3);
  EXPECT_EQ(memcmp(bytes, "\1\2\3\4\5\6\7\10", 8), 0);
  swap32_buffer(bytes, 6);
  EXPECT_EQ(memcmp(bytes, "\4\3\2\1\5\6\7\10", 8), 0);
  swap32_buffer(bytes + 1, 4);  // no alignment is asked for
  EXPECT_EQ(memcmp(bytes, "\4\5\1\2\3\6\7\10", 8), 0);
  swap32_buffer(nullptr, 8);
}

}  // namespace
