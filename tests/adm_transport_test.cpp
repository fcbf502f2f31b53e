// SPDX-License-Identifier: BSD-3-Clause
// The tool's mbox, ct, els, rnid and version --driver over a simulated machine: what is sent, what is said, and how
// they end.
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "sim_machine.h"
#include "sim_mbox.h"
#include "tool_fixture.h"

namespace {

class AdmTransport : public testing::Test, public Tool {
 protected:
  void SetUp() override { sim::default_san(m); }
  void TearDown() override {
    EXPECT_EQ(m.open_fds(), 0U);
    EXPECT_EQ(m.held_locks(), 0U);
    for (const std::string &name : files)
      std::remove(name.c_str());
  }

  void before_run() override { m.clear_records(); }
  // Mailbox commands that reached the adapter.
  size_t mailboxes() {
    size_t count = 0;
    for (const sim::Request &request : m.requests())
      count += request.msgcode == 0x800000ff && request.command == 7;
    return count;
  }
  std::string file(const std::string &bytes) {
    char name[] = "/tmp/hcxadm_test_XXXXXX";
    const int fd = mkstemp(name);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    close(fd);
    files.emplace_back(name);
    return name;
  }
  static std::string text(const std::string &name) {
    std::ifstream in(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  sim::Machine m;
  sim::Installed installed{m};
  std::vector<std::string> files;
};

TEST_F(AdmTransport, MailboxWordsAndNames) {
  nlohmann::json reply = row("mbox 0 read-nv");
  EXPECT_EQ(reply["status"], 0);
  EXPECT_EQ(reply["words"], (nlohmann::json{"00000200", "00000000", "00000000", "00000000", "20000090",
                                            "fa942b02", "10000090", "fa942b02"}));
  // By code, on an older board, with a word of its own.
  sim::mailbox(*m.host(10)).handlers[0x21] = [](sim::MailboxCall &call) {
    call.set_word(3, call.word(1) + call.word(2));
  };
  reply = row("mbox host10 0x21 103007 2");
  EXPECT_EQ(reply["command"], "set-variable");
  EXPECT_EQ(reply["words"], (nlohmann::json{"00002100", "00103007", "00000002", "00103009"}));
}

TEST_F(AdmTransport, MailboxFailures) {
  expect_endings({{"mbox 0 init-link", 2, ""},
                  {"mbox 0 0x123", 2, ""},
                  {"mbox 0 read-nv xyz", 2, ""},
                  {"mbox 0 read-nv 123456789", 2, ""},
                  {"mbox 7 read-nv", 3, ""},
                  {"mbox 0 0x05 -y", 1, "mailbox command 0x05: error (1)"},  // the library does not send it
                  {"mbox 0 read-rev --in /nonexistent", 3, ""}});
  EXPECT_EQ(mailboxes(), 0U);
  sim::mailbox(*m.host(2)).busy = -1;
  EXPECT_EQ(row("mbox 0 read-rev --retries 2", 6)["status"], 253);
  EXPECT_EQ(mailboxes(), 3U);
  sim::mailbox(*m.host(2)).busy = 0;
  sim::mailbox(*m.host(2)).forced_status[17] = 16;
  EXPECT_EQ(row("mbox 0 read-rev", 1)["status_name"], "error");
}

TEST_F(AdmTransport, WhatMayChangeTheAdapterIsAskedFor) {
  // A configuration command that reads, and one that writes.
  const std::string config = "mbox host11 sli-config 8 18 0 0 0 0 0 244 --in ";
  const std::string reading = config + file(std::string("\0\0\x0c\x08", 4)),
                    writing = config + file(std::string("\0\0\x0c\x09", 4));
  const struct {
    std::string line;
    const char *answer;
    bool refused;
    size_t sent;
  } rows[] = {{"mbox 0 restart", "n\n", true, 0},
              {"mbox 0 restart --dry-run", "", false, 0},
              {"mbox 0 restart", "y\n", false, 1},
              {"mbox 0 read-rev", "", false, 1},
              {reading, "", false, 1},
              {writing, "n\n", true, 0}};
  for (const auto &row : rows) {
    terminal.in = *row.answer != '\0';
    EXPECT_EQ(run(row.line, row.answer) == 5, row.refused) << row.line;
    EXPECT_EQ(mailboxes(), row.sent) << row.line;
  }
}

TEST_F(AdmTransport, MailboxData) {
  sim::set_flash_region(*m.host(2), 23, "region of the newer board");
  sim::set_flash_region(*m.host(10), 23, "region of the older board!");
  const std::string to = file("");
  row("mbox 0 dump-memory 2 17 400 --out " + to);
  EXPECT_EQ(text(to).substr(0, 25), "region of the newer board");
  // The older dialect delivers words in the other order.
  EXPECT_EQ(row("mbox 2 dump-memory 32 17 0 2")["data"].get<std::string>().substr(0, 8), "69676572");
  const std::string pattern(300, 'p'), from = file(pattern);
  row("mbox 0 run-biu-diag64 --in " + from + " --out " + to);
  EXPECT_EQ(text(to), pattern);
  EXPECT_EQ(row("mbox 2 read-event-log 0 0 10")["bytes"], 16);
}

TEST_F(AdmTransport, CtToServersAndPorts) {
  // GID_FT for FCP: the ports of the fabric, the last one marked.
  const std::string gid_ft = " 01000000fc020000 0171000000000000 00000008";
  nlohmann::json answer = row("ct 0" + gid_ft);
  EXPECT_EQ(answer["answer"], "accept");
  EXPECT_EQ(answer["data"].get<std::string>().substr(16, 4), "8002");
  EXPECT_EQ(row("ct 0 --to 0xfffffc" + gid_ft)["to"], "0xfffffc");
  EXPECT_EQ(row("ct 0 01000000fc020000 0fff000000000000", 1)["answer"], "reject");
  EXPECT_TRUE(says("rejected, reason"));
  expect_endings(
      {{"ct 0 0100", 2, ""},
       {"ct 0 01000000fc02000", 2, ""},
       {"ct 0 --to nobody 01000000fc020000 0171000000000000", 2, ""},
       {"ct 0 --to 1111111111111111 01000000fc020000 0171000000000000", 5, ""}});  // no such port: -1
}

TEST_F(AdmTransport, ElsAndNodeIdentification) {
  nlohmann::json answer = row("els 0 0x010300 10000000 68656c6c6f");
  EXPECT_EQ(answer["answer"], "accept");
  EXPECT_EQ(answer["data"], "0200000068656c6c6f");
  answer = row("els 0 500601603ea01001 99000000", 1);
  EXPECT_EQ(answer["answer"], "reject");
  EXPECT_EQ(answer["data"], nullptr);
  answer = row("rnid 0");
  EXPECT_EQ(answer["wwnn"], "20:00:00:90:fa:94:2b:02");
  EXPECT_EQ(answer["port_number"], 0x010200);
  EXPECT_EQ(answer["ip_address"], nullptr);
  answer = row("rnid 0 500601603ea01001");
  EXPECT_EQ(answer["wwpn"], "50:06:01:60:3e:a0:10:01");
  EXPECT_EQ(answer["wwnn"], "50:06:01:60:be:a0:10:01");
  EXPECT_EQ(row("rnid 0 --node 20000090fa111111")["wwpn"], "10:00:00:90:fa:11:11:11");
  expect_endings({{"els 0 0x010399 10000000", 1, ""},
                  {"els 0 0x1010300 10000000", 2, ""},
                  {"rnid 0 500601603ea01002", 1, ""}});
}

TEST_F(AdmTransport, VersionOfTheDriver) {
  m.driver_version(2, 5);
  ASSERT_EQ(run("version --driver"), 0);
  EXPECT_TRUE(shows("driver interface\t2.5\n") && shows("driver\t8.2.0.141p\n")) << out;
  ASSERT_EQ(run("version"), 0);
  EXPECT_FALSE(shows("driver"));
}

}  // namespace
