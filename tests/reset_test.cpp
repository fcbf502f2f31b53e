// SPDX-License-Identifier: BSD-3-Clause
// Reset and board mode: what is written in which order, and where each refusal leads.
#include <errno.h>

#include "control_machine.h"

namespace {

using Texts = std::vector<std::string>;

struct ResetCase {  // NOLINT(clang-analyzer-optin.performance.Padding): in the order of the events
  const char *name;
  uint32_t type;
  std::vector<sim::Fault> faults;
  uint32_t result;
  Texts written;  // taken or refused
  Texts logged;
};

void PrintTo(const ResetCase &c, std::ostream *out) {
  *out << c.name;
}

sim::Fault refuse(const char *attribute, int error, int nth = 1, bool persistent = false) {
  return {.verb = sim::Verb::write, .path = attribute, .nth = nth, .persistent = persistent, .error = error};
}
sim::Fault closed(const char *attribute) {
  return {.verb = sim::Verb::open, .path = attribute, .persistent = true, .error = EACCES};
}

const ResetCase reset_cases[] = {
    {"selective",
     1,
     {},
     0,
     {"issue_reset=selective"},
     {"HCX_ResetAdapter - board 0 issue reset selective success"}},
    {"coordinated", 2, {}, 0, {"issue_reset=coordinated"}, {"board 0 issue reset coordinated success"}},
    {"firmware", 3, {}, 0, {"board_mode=fw_reset"}, {}},
    {"unknown kind", 7, {}, 4, {}, {"HCX_ResetAdapter - invalid reset type 7"}},
    {"kind 0", 0, {}, 4, {}, {"invalid reset type 0"}},
    {"switched off",
     1,
     {refuse("issue_reset", EACCES)},
     1,
     {"issue_reset=selective"},
     {"board 0 reset type:1 failed due to driver hba reset enable turned off"}},
    {"other refusals count as done",
     1,
     {refuse("issue_reset", EIO)},
     0,
     {"issue_reset=selective"},
     {"board 0 issue reset selective success"}},
    {"EPERM too",
     1,
     {refuse("issue_reset", EPERM)},
     0,
     {"issue_reset=selective"},
     {"issue reset selective success"}},
    {"cannot be opened", 1, {closed("issue_reset")}, 0, {}, {"issue reset selective success"}},
    {"coordinated refused",
     2,
     {refuse("issue_reset", EINVAL)},
     0,
     {"issue_reset=coordinated", "issue_reset=selective"},
     {"board 0 fall back to selective reset success", "board 0 issue reset coordinated success"}},
    {"coordinated and its fall-back refused",
     2,
     {refuse("issue_reset", EINVAL, 1, true)},
     0,
     {"issue_reset=coordinated", "issue_reset=selective"},
     {"board 0 fall back to selective reset failed", "board 0 issue reset coordinated success"}},
    {"coordinated switched off",
     2,
     {refuse("issue_reset", EACCES)},
     1,
     {"issue_reset=coordinated"},
     {"board 0 reset type:2 failed due to driver hba reset enable turned off"}},
    {"coordinated cannot be opened",
     2,
     {closed("issue_reset")},
     0,
     {},
     {"board 0 fall back to selective reset failed"}},
    {"firmware switched off",
     3,
     {refuse("board_mode", EACCES)},
     1,
     {"board_mode=fw_reset"},
     {"board 0 reset type:3 failed due to driver hba reset enable turned off"}},
    {"firmware cannot be opened",
     3,
     {closed("board_mode")},
     1,
     {},
     {"board 0 reset type:3 failed due to not able to open sysfs file handler"}},
    {"firmware fails",
     3,
     {refuse("board_mode", EIO)},
     1,
     {"board_mode=fw_reset"},
     {"board 0 reset type:3 reset failed"}},
    {"firmware not supported",
     3,
     {refuse("board_mode", EPERM)},
     0,
     {"board_mode=fw_reset", "issue_reset=selective"},
     {"board 0 reset type:3 reset not supported, fall back to selective reset",
      "board 0 issue reset selective success"}},
    {"firmware not supported, then switched off",
     3,
     {refuse("board_mode", EPERM), refuse("issue_reset", EACCES)},
     1,
     {"board_mode=fw_reset", "issue_reset=selective"},
     {"board 0 reset type:1 failed due to driver hba reset enable turned off"}},
    {"the fall-back has none of its own",
     3,
     {refuse("board_mode", EPERM), refuse("issue_reset", EIO)},
     0,
     {"board_mode=fw_reset", "issue_reset=selective"},
     {"board 0 issue reset selective success"}},
};

class Reset : public ControlTest, public ::testing::WithParamInterface<ResetCase> {};

TEST_P(Reset, LeadsTo) {
  const ResetCase &c = GetParam();
  machine.add_host();
  start();
  for (const sim::Fault &fault : c.faults)
    machine.fail(fault);
  EXPECT_EQ(HCX_ResetAdapter(0, c.type), c.result);
  EXPECT_EQ(written(), c.written);
  for (const std::string &text : c.logged)
    EXPECT_TRUE(machine.logged(text)) << text;
  if (c.result != 0) {
    EXPECT_FALSE(machine.logged("success"));
  }
  expect_nothing_held();
}
INSTANTIATE_TEST_SUITE_P(All, Reset, ::testing::ValuesIn(reset_cases), [](const auto &c) {
  std::string name = c.param.name;
  for (char &letter : name)
    if (!isalnum(static_cast<unsigned char>(letter))) letter = '_';
  return name;
});

// What was done is news for administrators, what failed is an error.
TEST_F(ControlTest, ResetLinesHaveTheirCategories) {
  machine.add_host();
  start();
  struct Case {
    bool fall_back_fails;
    uint32_t mask;
    Texts logged, silent;
  };
  const Case cases[] = {
      {false, LOG_ADMIN, {"fall back to selective reset success", "issue reset coordinated success"}, {}},
      {false, LOG_ERROR, {}, {"fall back", "issue reset"}},
      {true, LOG_ADMIN, {"issue reset coordinated success"}, {"fall back"}},
      {true, LOG_ERROR, {"fall back to selective reset failed"}, {"issue reset"}},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(std::to_string(c.mask) + (c.fall_back_fails ? " failing" : ""));
    libhcx_syslog_enable(c.mask);
    machine.clear_records();
    machine.fail(refuse("issue_reset", EINVAL, 1, c.fall_back_fails));
    EXPECT_EQ(HCX_ResetAdapter(0, 2), 0U);
    machine.clear_faults();
    for (const std::string &text : c.logged)
      EXPECT_TRUE(machine.logged(text)) << text;
    for (const std::string &text : c.silent)
      EXPECT_FALSE(machine.logged(text)) << text;
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
  EXPECT_EQ(HCX_ResetAdapter(1, 1), 1U);
  EXPECT_TRUE(machine.logged("HCX_ResetAdapter - no host for board 1"));
  EXPECT_EQ(HCX_SetDumpEnv(1, DDI_OFFDI), 1U);
  EXPECT_TRUE(machine.logged("HCX_SetDumpEnv - host not found for board 1"));
  EXPECT_EQ(SetBrdEnv(1, DDI_OFFDI), 0U);
  EXPECT_TRUE(machine.logged("SetBrdEnv - host not found for board 1"));
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

TEST_F(ControlTest, DumpFailureTellsTheErrorNumber) {
  sim::configure(machine.add_host(), {.dump = false});
  start();
  EXPECT_EQ(SetBrdEnv(0, DDI_FWDUMPDI), 0U);
  EXPECT_TRUE(
      machine.logged("SetBrdEnv - forced firmware dump on board 0 failed: rc:" + std::to_string(EBUSY)));
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
}

}  // namespace
