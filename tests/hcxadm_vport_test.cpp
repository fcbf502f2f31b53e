// SPDX-License-Identifier: BSD-3-Clause
// "hcxadm vport" as a user meets it: what is shown, how each refusal ends, and that nothing is done unasked.
#include "sim_machine.h"
#include "tool_fixture.h"

namespace {

using nlohmann::json;

class HcxadmVport : public testing::Test, public Tool {
 protected:
  void TearDown() override {
    EXPECT_EQ(machine.open_fds(), 0U);
    EXPECT_EQ(machine.held_locks(), 0U);
  }
  // Two boards: hosts 3 and 4, and a static virtual port of the first.
  void add_boards(sim::HostSpec spec = {}) {
    spec.number = 3;
    spec.wwpn = 0x2000000000000003;
    spec.wwnn = 0x3000000000000003;
    spec.port_id = 0x010100;
    host = &machine.add_host(std::move(spec));
    machine.add_host({.number = 4});
    host->add_vport({.wwpn = 0x2009000000000003, .wwnn = 0x3009000000000003, .configured = true})
        .add_rport({.wwpn = 0x5000000000000051});
  }
  bool wrote(const std::string &attribute) {
    for (const sim::Write &write : machine.writes())
      if (write.path.ends_with(attribute)) return true;
    return false;
  }

  sim::Machine machine;
  sim::Installed installed{machine};
  sim::Host *host = nullptr;
};

TEST_F(HcxadmVport, ListsAndShowsPorts) {
  add_boards();
  EXPECT_EQ(run("vport"), 0);
  EXPECT_EQ(out,
            "BOARD\tHOST\tVPI\tWWPN\tWWNN\tPORT ID\tNAME\n"
            "0\thost5\t1\t20:09:00:00:00:00:00:03\t30:09:00:00:00:00:00:03\t0x010101\t"
            "Quorva PPN-20:09:00:00:00:00:00:03 VPort-1\n");
  EXPECT_EQ(data("vport list 1"), json::array());
  const json port = data("vport show 0 2009000000000003").at(0);
  EXPECT_EQ(port.at("static"), true);
  EXPECT_EQ(port.at("state"), "active");
  EXPECT_EQ(port.at("targets"), json::array({"50:00:00:00:00:00:00:51"}));
  EXPECT_EQ(port.at("checklist"), 255);
  EXPECT_EQ(port.at("missing"), json::array());
  host->set_scsi("link_state", "Link Down");
  const json down = data("vport show 0 2009000000000003").at(0);
  EXPECT_EQ(down.at("state"), "link down");
  EXPECT_EQ(down.at("missing"), json::array({"link"}));
}

TEST_F(HcxadmVport, RefusalsHaveTheirExitStatus) {
  add_boards({.max_vports = 2});
  expect_endings(
      {{"vport list 7", 3, "7"},
       {"vport show 0", 2, "WWPN"},
       {"vport show 0 20:09", 2, "\"20:09\" is no WWN"},
       {"vport show 0 2000000000000003", 3, "the board has no such virtual port"},
       {"vport show 1 2009000000000003", 3, "the board has no such virtual port"},
       {"-y vport delete 1 2009000000000003", 3, "the board has no such virtual port"},
       {"-y vport delete 0 2009000000000003", 5, "the virtual port is static (15)"},
       {"vport create", 2, "BOARD"},
       {"vport create 0 --wwpn 2001000000000001", 2, "--wwnn"},
       {"-y vport create 0 --wwpn 0000000000000000 --wwnn 1111111111111111", 5, "names all zero (6)"},
       {"-y vport create 0 --wwpn 2009000000000003 --wwnn 1111111111111111", 5, "in use on this machine (5)"},
       {"vport create 0 --wait -1", 2, "--wait"},
       {"vport create 0 --name a\x01", 2, "control characters"}});
  EXPECT_FALSE(wrote("vport_create") || wrote("vport_delete"));
  EXPECT_EQ(yes("vport create 0"), 0);
  expect_endings({{"-y vport create 0", 5, "no room for another virtual port (4)"}});
}

TEST_F(HcxadmVport, MakesAndDeletesWhenConfirmed) {
  add_boards();
  EXPECT_EQ(run("vport create 0", "n\n"), 5);
  EXPECT_EQ(run("--dry-run vport create 0 --name db2"), 0);
  EXPECT_TRUE(says("would create a virtual port on board 0 (host3)")) << err;
  EXPECT_EQ(run("vport delete 0 2009000000000003", "n\n"), 5);
  EXPECT_FALSE(wrote("vport_create"));
  const json port = data("vport create 0 --name db2").at(0);
  EXPECT_EQ(port.at("wwpn"), "20:00:01:00:00:00:00:03");
  EXPECT_EQ(port.at("wwnn"), "30:00:01:00:00:00:00:03");
  EXPECT_EQ(port.at("name"), "Quorva PPN-20:00:01:00:00:00:00:03 VPort-2 VName-db2");
  EXPECT_EQ(run("vport delete 0 2000010000000003", "y\n"), 0);
  EXPECT_EQ(data("vport").size(), 1U);
  // A name that the kernel does not take is no reason to undo the port.
  EXPECT_EQ(run("--yes vport create 0 --name " + std::string(65, 'x')), 0);
  EXPECT_TRUE(says("its name could not be set")) << err;
}

TEST_F(HcxadmVport, WaitsForAPortThatAppearsLater) {
  add_boards({.vport_delay = 2});
  const json port = data("vport create 0 --name db2").at(0);
  EXPECT_EQ(port.at("name"), "Quorva PPN-20:00:01:00:00:00:00:03 VPort-2 VName-db2");
  host->add_vport({.wwpn = 0x2000020000000003});
  EXPECT_EQ(run("--yes vport create 0 --wait 0"), 6);
  EXPECT_TRUE(says("it has not appeared yet")) << err;
  EXPECT_EQ(out, "");
  // As the message says, the list shows it when it has.
  EXPECT_EQ(data("vport list 0").size(), 4U);
}

TEST_F(HcxadmVport, ARefusalByTheDriverSaysWhatIsMissing) {
  add_boards();
  host->set_scsi("link_state", "Link Down");
  host->set_scsi("vosk_enable_npiv", "0");
  machine.fail({.verb = sim::Verb::write, .path = "vport_create", .error = EINVAL});
  expect_endings({{"-y vport create 0", 1, "missing: virtual ports switched on in the driver"}});
  EXPECT_TRUE(says("missing: link is up (check cable and switch port)")) << err;
  EXPECT_FALSE(says("fabric supports")) << err;
}

TEST_F(HcxadmVport, ReadinessInWords) {
  add_boards();
  host->set_scsi("link_state", "Link Down");
  const json rows = data("vport ready 0");
  ASSERT_EQ(rows.size(), 8U);
  const struct {
    int bit;
    json met, found;
  } expected[] = {{1, true, "1"},
                  {2, true, "SLI-4"},
                  {4, true, "10.4.255.23, sli-4:2"},
                  {8, true, "1 of 16 ports, 9 of 4096 logins"},
                  {16, false, "Link Down"},
                  {32, true, "NPort (fabric via point-to-point)"},
                  {64, nullptr, nullptr},
                  {128, nullptr, nullptr}};
  for (size_t i = 0; i < 8; ++i) {
    EXPECT_EQ(rows[i].at("bit"), expected[i].bit);
    EXPECT_EQ(rows[i].at("met"), expected[i].met) << i;
    EXPECT_EQ(rows[i].at("found"), expected[i].found) << i;
    EXPECT_EQ(rows[i].at("todo").is_null(), expected[i].met != json(false)) << i;
  }
  EXPECT_EQ(data("vport ready").size(), 16U);
  for (int i = 0; i < 70; ++i)
    host->add_vport({});
  EXPECT_EQ(data("vport list 0").size(), 71U) << "more than it expects";
}

}  // namespace
