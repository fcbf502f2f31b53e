// SPDX-License-Identifier: BSD-3-Clause
// Loopback and the bridge chip: the sequence of requests, their bytes, and what is left after a failure.
#include <errno.h>

#include <bit>
#include <cstring>

#include "control_machine.h"
#include "sim_mbox.h"

namespace {

using Commands = std::vector<uint32_t>;

constexpr bool little_endian = std::endian::native == std::endian::little;
constexpr uint16_t bridged = 0x7b05;

// Words as the processor has them.
std::string native(std::initializer_list<uint32_t> words) {
  std::string out;
  for (uint32_t word : words)
    out.append(reinterpret_cast<const char *>(&word), sizeof word);
  return out;
}
std::string little(std::initializer_list<uint32_t> words) {
  std::string out;
  for (uint32_t word : words)
    for (int i = 0; i < 4; ++i)
      out.push_back(static_cast<char>(word >> 8 * i));
  return out;
}

class LoopbackTest : public ControlTest {
 protected:
  uint8_t out[256], in[256] = {};
  Loopback test{sizeof out, out, in};
  LoopbackTest() {
    for (size_t i = 0; i < sizeof out; ++i)
      out[i] = static_cast<uint8_t>(i * 7);
  }
};

TEST_F(LoopbackTest, DataComesBack) {
  for (int sli : {3, 4})
    machine.add_host({.sli = sli});
  start();
  for (uint32_t board : {0U, 1U}) {
    SCOPED_TRACE(board);
    sim::Host &host = *machine.hosts()[board];
    for (uint32_t type : {1U, 2U}) {
      EXPECT_EQ(HCX_ConfigLoopback(board, type, 30000), 0U);
      EXPECT_EQ(sim::control_record(host).loopback, type);
      memset(in, 0, sizeof in);
      EXPECT_EQ(HCX_RunLoopbackTest(board, &test), 0U);
      EXPECT_EQ(memcmp(in, out, sizeof in), 0);
      EXPECT_EQ(HCX_EndLoopback(board), 0U);
      EXPECT_EQ(sim::control_record(host).loopback, 0U);
    }
  }
  EXPECT_EQ(commands(), (Commands{4, 5, 4, 5, 4, 5, 10, 4, 5, 10}));
  EXPECT_EQ(written(), (std::vector<std::string>{"issue_lip=1\n", "issue_lip=1\n"}))
      << "SLI-3 ends by a link reset";
  expect_nothing_held();
}

TEST_F(LoopbackTest, RefusalsSendNothing) {
  machine.add_host();
  machine.add_host({.sli = 0});
  machine.add_host({.protocol = "fcoe"});
  start();
  expect_told(HCX_ConfigLoopback(0, 3, 100), 3, "HCX_ConfigLoopback - board 0 type 3 invalid");
  EXPECT_EQ(HCX_ConfigLoopback(0, 0, 100), 3U);
  expect_told(HCX_ConfigLoopback(1, 1, 100), 1, "HCX_ConfigLoopback - board 1 sli 0 invalid");
  EXPECT_EQ(HCX_RunLoopbackTest(1, &test), 1U);
  EXPECT_EQ(HCX_EndLoopback(1), 1U);
  EXPECT_EQ(HCX_ConfigLoopback(7, 1, 100), 1U);
  EXPECT_EQ(HCX_RunLoopbackTest(7, &test), 1U);
  expect_told(HCX_EndLoopback(7), 1, "HCX_EndLoopback - no host on board 7");
  expect_told(HCX_RunLoopbackTest(2, &test), 2, "HCX_RunLoopbackTest - board 2 protocol 0 not supported");
  EXPECT_EQ(HCX_RunLoopbackTest(0, nullptr), 1U);
  Loopback hollow{8, out, nullptr};
  EXPECT_EQ(HCX_RunLoopbackTest(0, &hollow), 1U);
  EXPECT_EQ(commands(), Commands{});
  EXPECT_EQ(HCX_RunLoopbackTest(0, &test), 1U) << "not in loopback";
  EXPECT_TRUE(machine.logged("HCX_RunLoopbackTest - board 0 bsg loopback failed"));
  expect_nothing_held();
}

TEST_F(LoopbackTest, EndNeedsTheLinkReset) {
  sim::Host &host = machine.add_host({.sli = 3});
  start();
  machine.vfs().remove(host.fc_dir() + "issue_lip");
  EXPECT_EQ(HCX_EndLoopback(0), 1U);
  EXPECT_TRUE(machine.logged("HCX_EndLoopback - board 0 could not open /sys/class/fc_host/host0/issue_lip"));
}

TEST_F(LoopbackTest, BridgeIsSwitchedFirst) {
  sim::Host &host = machine.add_host({.sli = 3, .pci = "0000:05:00.1", .pci_device = bridged});
  start();
  ASSERT_EQ(HCX_ConfigLoopback(0, 1, 30000), 0U);
  // The words go out in the processor's order but are told apart as little-endian ones: the variable reaches
  // the mailbox on little-endian processors and the bridge itself on the others.
  EXPECT_EQ(commands(), little_endian ? (Commands{7, 8, 7, 4}) : (Commands{8, 8, 8, 4}));
  EXPECT_EQ(machine.requests()[1].data_out, native({20, 1, 1})) << "port 1 is the PCI function";
  if (!little_endian) {
    EXPECT_EQ(machine.requests()[0].data_out, native({0x80000002, 1, 0}));
  }
  ASSERT_EQ(machine.delays().size(), 1U);
  EXPECT_EQ(machine.delays()[0], 1000000U);
  EXPECT_TRUE(sim::control_record(host).bridge_loopback);
  EXPECT_EQ(HCX_RunLoopbackTest(0, &test), 0U);
  machine.clear_records();
  EXPECT_EQ(HCX_EndLoopback(0), 0U);
  EXPECT_EQ(commands(), little_endian ? Commands{7} : Commands{8});
  EXPECT_EQ(sim::control_record(host).loopback, 0U);
  // External loopback leaves the bridge alone.
  machine.clear_records();
  EXPECT_EQ(HCX_ConfigLoopback(0, 2, 30000), 0U);
  EXPECT_EQ(commands(), Commands{4});
  expect_nothing_held();
}

TEST_F(LoopbackTest, BridgeFailureEndsTheSetUp) {
  sim::configure(machine.add_host({.sli = 3, .pci = "0000:05:00.0", .pci_device = bridged}),
                 {.bridge_answers = false});
  machine.add_host({.sli = 3, .pci = "0000:05:00.4", .pci_device = bridged});
  start();
  EXPECT_EQ(HCX_ConfigLoopback(0, 1, 30000), 1U);
  EXPECT_EQ(commands(), little_endian ? (Commands{7, 8}) : (Commands{8, 8}));
  EXPECT_TRUE(machine.logged("ConfigTibraLoopback - board 0 cmd 2 error rsp code "));
  EXPECT_TRUE(machine.logged("HCX_ConfigLoopback - board 0 talpid not supported"));
  EXPECT_TRUE(machine.delays().empty());
  machine.clear_records();
  expect_told(HCX_ConfigLoopback(1, 1, 30000), 1, "ConfigTibraLoopback - board 1 port 4 > 1");
  EXPECT_EQ(ConfigTibraLoopback(0, nullptr), 1U);
  char empty[] = "/";
  expect_told(ConfigTibraLoopback(0, empty), 1, "ConfigTibraLoopback - board 0 no pci_dev");
  EXPECT_EQ(commands(), Commands{});
  expect_nothing_held();
}

// The variables go by mailbox on little-endian processors; there the firmware can refuse them.
TEST_F(LoopbackTest, RefusedVariablesEndTheSetUp) {
  if (!little_endian) GTEST_SKIP() << "the bridge takes them itself";
  sim::Host &host = machine.add_host({.sli = 3, .pci = "0000:05:00.0", .pci_device = bridged});
  start();
  int refused = 0, seen = 0;
  sim::mailbox(host).handlers[MBX_SET_VARIABLE] = [&](sim::MailboxCall &call) {
    if (++seen == refused) call.set_status(1);
  };
  for (int variable : {1, 2}) {
    refused = variable;
    seen = 0;
    EXPECT_EQ(HCX_ConfigLoopback(0, 1, 30000), 1U);
    EXPECT_EQ(seen, variable);
    const int step = variable == 1 ? 1 : 3;
    EXPECT_TRUE(
        machine.logged("ConfigTibraLoopback - board 0 cmd " + std::to_string(step) + " error rval 1"));
  }
  EXPECT_TRUE(machine.delays().empty());
  expect_nothing_held();
}

TEST_F(LoopbackTest, EndGoesOnWhenTheBridgeRefuses) {
  sim::Host &host = machine.add_host({.sli = 3, .pci = "0000:05:00.0", .pci_device = bridged});
  start();
  sim::mailbox(host).forced_status[MBX_SET_VARIABLE] = 1;
  machine.bsg().on_vendor(8, [](sim::BsgCall &call) { call.result = -EIO; });
  expect_told(unConfigTibraLoopback(0), 1, "unConfigTibraLoopback - board 0 cmd 1 error rval ");
  EXPECT_EQ(HCX_EndLoopback(0), 0U);
  EXPECT_EQ(written(), std::vector<std::string>{"issue_lip=1\n"});
}

class Bridge : public ControlTest {
 protected:
  uint32_t rsp[4] = {};
  uint32_t rsp_size = sizeof rsp;
  uint32_t xri = 0;
  void SetUp() override {
    machine.add_host({.sli = 3, .pci_device = bridged});
    start();
  }
  uint32_t send(std::string command) {
    rsp_size = sizeof rsp;
    return HCX_SendTibraCommand(0, command.data(), static_cast<uint32_t>(command.size()), rsp, &rsp_size);
  }
};

TEST_F(Bridge, CommandsTakeTheirWay) {
  memset(rsp, 0xee, sizeof rsp);
  const Commands plain = {8}, both = {8, 9}, mailbox = {7};
  const std::string data = "\1\2\3\4\5";
  const struct {
    const char *what;
    std::string command;
    uint32_t result;
    Commands sent;
    std::string response;
  } rows[] = {
      {"plain", little({3, 0x11223344}), 0, plain, std::string("\0\0\0\0\x44\x33\x22\x11", 8)},
      {"data behind a header", little({2, 5, 0x99}) + data, 0, both,
       little({0, 15})},  // status, sum of bytes
      {"a byte too many", little({2, 4, 0}) + data, 1, plain, ""},
      {"a byte too few", little({2, 6, 0}) + data, 1, plain, ""},
      {"far too long", little({2, 0xfffffff9, 0}) + data, 1, plain, ""},
      {"as long as can be", little({2, 0xffffffff, 0}) + data, 1, plain, ""},
      {"beyond the limit", little({2, 0x54001, 0}) + std::string(0x54001, 'd'), 0, plain, native({7})},
      {"a variable", little({0x80000001, 1}), 0, mailbox, std::string(16, '\0')},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    machine.clear_records();
    EXPECT_EQ(send(row.command), row.result);
    EXPECT_EQ(commands(), row.sent);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(rsp), row.response.size()), row.response);
    if (row.sent == both) {
      EXPECT_EQ(machine.requests()[0].data_out, little({2, 5, 0x99}));
      EXPECT_EQ(machine.requests()[1].data_out, data);
    } else if (row.sent == plain && row.result == 0 && row.command.size() == 8) {
      EXPECT_EQ(machine.requests()[0].data_out, row.command);
    }
  }
  // Of variables only refusals are told.
  sim::mailbox(*machine.hosts()[0]).forced_status[MBX_SET_VARIABLE] = 1;
  EXPECT_EQ(send(little({0x80000002, 1})), 1U);
  std::string command = little({0x80000001, 1});
  EXPECT_EQ(HCX_SendTibraCommand(6, command.data(), 8, rsp, &rsp_size), 0U);
  EXPECT_TRUE(machine.logged("HCX_SendTibraCommand - no host on board 6"));
}

TEST_F(Bridge, SizesAreChecked) {
  std::string header = little({2, 0, 0});
  struct Case {
    uint32_t code, cmd_size, rsp_size;
  };
  const Case cases[] = {{3, 3, 16},          {3, 0, 16}, {2, 11, 16},
                        {0x80000001, 7, 16}, {3, 12, 3}, {0x80000001, 12, 0x54001}};
  for (const Case &c : cases) {
    std::string command = little({c.code, 0, 0});
    rsp_size = c.rsp_size;
    EXPECT_EQ(HCX_SendTibraCommand(0, command.data(), c.cmd_size, rsp, &rsp_size), 1U)
        << c.code << " " << c.cmd_size;
  }
  EXPECT_EQ(HCX_SendTibraCommand(0, nullptr, 12, rsp, &rsp_size), 1U);
  EXPECT_EQ(HCX_SendTibraCommand(0, header.data(), 12, nullptr, &rsp_size), 1U);
  EXPECT_EQ(HCX_SendTibraCommand(0, header.data(), 12, rsp, nullptr), 1U);
  EXPECT_EQ(commands(), Commands{});
}

TEST_F(Bridge, LimitsAndMissingBoardsShowInTheResponse) {
  std::string command = little({3, 0});
  rsp_size = 4;
  EXPECT_EQ(IssueTibra(0, command.data(), 0x54001, rsp, &rsp_size, &xri, TIBRA_CMD), 1U);
  EXPECT_EQ(rsp[0], 7U);
  EXPECT_TRUE(machine.logged("IssueTibra - board 0 max cnt 344064 - incnt 344065 outcnt 4"));
  rsp_size = 0x54001;
  rsp[0] = 0;
  EXPECT_EQ(IssueTibra(0, command.data(), 8, rsp, &rsp_size, &xri, TIBRA_CMD), 1U);
  EXPECT_EQ(rsp[0], 7U);
  rsp_size = 4;
  EXPECT_EQ(IssueTibra(5, command.data(), 8, rsp, &rsp_size, &xri, TIBRA_CMD), 1U);
  EXPECT_EQ(rsp[0], 1U);
  EXPECT_TRUE(machine.logged("IssueTibra - board 5 no host"));
  rsp_size = 3;
  rsp[0] = 0xabcdef01;
  EXPECT_EQ(IssueTibra(5, command.data(), 8, rsp, &rsp_size, &xri, TIBRA_CMD), 1U);
  EXPECT_EQ(rsp[0], 0xabcdef01U) << "no room for the failure code";
  EXPECT_EQ(commands(), Commands{});
  std::string longest(0x54000, '\0');
  longest[0] = 3;
  std::string response(0x54000, '\1');
  rsp_size = 0x54000;
  EXPECT_EQ(IssueTibra(0, longest.data(), 0x54000, response.data(), &rsp_size, &xri, TIBRA_CMD), 0U);
  expect_nothing_held();
}

}  // namespace
