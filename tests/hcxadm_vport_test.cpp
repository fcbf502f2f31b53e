// SPDX-License-Identifier: BSD-3-Clause
// "hcxadm vport" as a user meets it: what is shown, how each refusal ends, and that nothing is done unasked.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "hcxadm.h"
#include "sim_machine.h"

namespace {

using nlohmann::json;

class HcxadmVport : public testing::Test {
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
  int run(const std::string &line, const std::string &input = "") {
    std::istringstream words(line), in(input);
    std::ostringstream out, err;
    const int status =
        hcxadm::run({std::istream_iterator<std::string>(words), {}}, in, out, err, hcxadm::Terminal{});
    text = out.str();
    errors = err.str();
    return status;
  }
  json data(const std::string &line) {
    run("--yes --output json " + line);
    return json::parse(text).at("data");
  }
  bool wrote(const std::string &attribute) {
    for (const sim::Write &write : machine.writes())
      if (write.path.ends_with(attribute)) return true;
    return false;
  }

  sim::Machine machine;
  sim::Installed installed{machine};
  sim::Host *host = nullptr;
  std::string text, errors;
};

TEST_F(HcxadmVport, ListsAndShowsPorts) {
  add_boards();
  EXPECT_EQ(run("vport"), 0);
  EXPECT_EQ(text,
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

TEST_F(HcxadmVport, ListsMorePortsThanItExpects) {
  add_boards({.max_vports = 100});
  for (int i = 0; i < 70; ++i)
    host->add_vport({});
  EXPECT_EQ(data("vport list 0").size(), 71U);
}

TEST_F(HcxadmVport, RefusalsHaveTheirExitStatus) {
  add_boards({.max_vports = 2});
  const struct {
    const char *line;
    int status;
    const char *says;
  } cases[] = {
      {"vport list 7", 3, "7"},
      {"vport show 0", 2, "WWPN"},
      {"vport show 0 20:09", 2, "\"20:09\" is no WWN"},
      {"vport show 0 2000000000000003", 3, "the board has no such virtual port"},
      {"vport show 1 2009000000000003", 3, "the board has no such virtual port"},
      {"vport delete 1 2009000000000003", 3, "the board has no such virtual port"},
      {"vport delete 0 2009000000000003", 5, "the virtual port is static (15)"},
      {"vport create", 2, "BOARD"},
      {"vport create 0 --wwpn 2001000000000001", 2, "--wwnn"},
      {"vport create 0 --wwpn 0000000000000000 --wwnn 1111111111111111", 5, "names all zero (6)"},
      {"vport create 0 --wwpn 2009000000000003 --wwnn 1111111111111111", 5, "in use on this machine (5)"},
      {"vport create 0 --wait -1", 2, "--wait"},
      {"vport create 0 --name a\x01", 2, "control characters"},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(run(std::string("--yes ") + c.line), c.status) << c.line;
    EXPECT_NE(errors.find(c.says), std::string::npos) << c.line << ": " << errors;
    EXPECT_EQ(text, "") << c.line;
  }
  EXPECT_FALSE(wrote("vport_create"));
  EXPECT_FALSE(wrote("vport_delete"));
  EXPECT_EQ(run("--yes vport create 0"), 0);
  EXPECT_EQ(run("--yes vport create 0"), 5);
  EXPECT_NE(errors.find("no room for another virtual port (4)"), std::string::npos) << errors;
}

TEST_F(HcxadmVport, MakesAndDeletesWhenConfirmed) {
  add_boards();
  EXPECT_EQ(run("vport create 0", "n\n"), 5);
  EXPECT_EQ(run("--dry-run vport create 0 --name db2"), 0);
  EXPECT_NE(errors.find("would create a virtual port on board 0 (host3)"), std::string::npos) << errors;
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
  EXPECT_NE(errors.find("its name could not be set"), std::string::npos) << errors;
}

TEST_F(HcxadmVport, WaitsForAPortThatAppearsLater) {
  add_boards({.vport_delay = 2});
  const json port = data("vport create 0 --name db2").at(0);
  EXPECT_EQ(port.at("name"), "Quorva PPN-20:00:01:00:00:00:00:03 VPort-2 VName-db2");
  host->add_vport({.wwpn = 0x2000020000000003});
  EXPECT_EQ(run("--yes vport create 0 --wait 0"), 6);
  EXPECT_NE(errors.find("it has not appeared yet"), std::string::npos) << errors;
  EXPECT_EQ(text, "");
  // As the message says, the list shows it when it has.
  EXPECT_EQ(data("vport list 0").size(), 4U);
}

TEST_F(HcxadmVport, ARefusalByTheDriverSaysWhatIsMissing) {
  add_boards();
  host->set_scsi("link_state", "Link Down");
  host->set_scsi("vosk_enable_npiv", "0");
  machine.fail({.verb = sim::Verb::write, .path = "vport_create", .error = EINVAL});
  EXPECT_EQ(run("--yes vport create 0"), 1);
  EXPECT_NE(errors.find("missing: virtual ports switched on in the driver"), std::string::npos) << errors;
  EXPECT_NE(errors.find("missing: link is up (check cable and switch port)"), std::string::npos) << errors;
  EXPECT_EQ(errors.find("fabric supports"), std::string::npos) << errors;
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
}

}  // namespace
