// SPDX-License-Identifier: BSD-3-Clause
// The tool's verbs for flash, FCoE and priorities: what they show, that they tell the difference and ask, that they
// write nothing when told so, and how they fail.
#include <unistd.h>

#include <fstream>

#include "control_machine.h"
#include "sim_mbox.h"
#include "tool_fixture.h"

namespace {

using nlohmann::json;

class AdmRegion : public ControlTest, public Tool {
 protected:
  void SetUp() override {
    machine.add_host();
    machine.add_host({.sli = 3});
    machine.add_host({.protocol = "fcoe"});
    file_ = ::testing::TempDir() + "hcxadm_region_" + std::to_string(getpid());
    terminal = {.in = false, .out = false, .err = false};
  }
  void TearDown() override {
    ControlTest::TearDown();
    unlink(file_.c_str());
  }
  void before_run() override { machine.clear_records(); }
  sim::MailboxUnit &adapter(int number) { return sim::mailbox(*machine.host(number)); }
  std::string flash(int number) { return sim::flash_region(*machine.host(number), 23).value_or("none"); }
  void set_flash(int number, std::string bytes) {
    bytes.resize(1024);
    sim::set_flash_region(*machine.host(number), 23, bytes);
  }
  // A file with these bytes and zeros up to a size.
  const std::string &file(std::string bytes, size_t size = 1024) {
    bytes.resize(size);
    std::ofstream(file_, std::ios::binary) << bytes;
    return file_;
  }
  bool wrote() {
    for (const sim::Request &request : machine.requests())
      if (request.command == 13 || (request.command == 7 && request.data_out[2] == 0x1b)) return true;
    for (const std::string &text : written())
      if (text.starts_with("vosk_enable_fcp_priority")) return true;
    return false;
  }
  // Each of these lines ends so, and nothing is written.
  void expect_refused(int status, const std::string &verb, std::initializer_list<const char *> rest) {
    for (const char *words : rest) {
      EXPECT_EQ(run(verb + " " + words), status) << verb << " " << words << ": " << err;
      EXPECT_FALSE(wrote()) << verb << " " << words;
    }
  }
  // The fields of a row that are given here.
  static void expect_fields(const json &row, const json &fields) {
    for (const auto &[key, value] : fields.items())
      EXPECT_EQ(row.value(key, json("missing")), value) << key;
  }

  const std::string header_ = std::string("RG23\x01\0\0\0", 8), empty_ = header_ + "\xff";
  std::string file_;
};

// Each changing verb: without an answer, with "n", with --dry-run nothing is written; with "y" it is.
TEST_F(AdmRegion, ChangesAreShownAndAskedFor) {
  const struct {
    std::string line, difference;
  } verbs[] = {
      {"region write 0 --in " + file(empty_ + "x"), "+ 0000  52 47 32 33 01 00 00 00  ff 78"},
      {"link persist on 0", "- persistent link down: no\n+ persistent link down: yes\n"},
      {"fcf connect set 2 vlan=1002,flags=0x0c", "VLAN 1002, flags 0x0c"},
      {"fip set 2 --vlan 7", "- VLAN 1002\n+ VLAN 7\n"},
      {"qos set 0 priority=3", "+ source any, target any, LUN any to any: priority 3\n"},
      {"qos enable 0", "- priorities off\n+ priorities on\n"},
  };
  for (const auto &verb : verbs) {
    SCOPED_TRACE(verb.line);
    for (const char *answer : {"", "n\n", "maybe\n"}) {
      EXPECT_EQ(run(verb.line, answer), 5);
      EXPECT_TRUE(says(verb.difference) && says("Go on? [y/N]")) << err;
      EXPECT_FALSE(wrote());
    }
    EXPECT_EQ(run(verb.line + " --dry-run"), 0);
    EXPECT_TRUE(says(verb.difference) && says("would ")) << err;
    EXPECT_FALSE(wrote());
    EXPECT_EQ(run(verb.line, "y\n"), 0) << err;
    EXPECT_TRUE(wrote());
    EXPECT_EQ(run(verb.line), 0) << err;
    EXPECT_TRUE(says("nothing to change")) << err;
    EXPECT_FALSE(wrote());
  }
}

TEST_F(AdmRegion, DumpAndShow) {
  set_flash(0, header_ + std::string("\xa0\x02\x01\x01\x0e\xfc\0\0\xea\x03\0\0", 12) +
                   std::string("\xa2\x02\x20\0\x01\0\0\0\xff\0\0\0", 12) +
                   std::string("\x30\x01\0\0wxyz", 8) + "\xff");
  EXPECT_EQ(run("region dump 0 --length 16"), 0);
  EXPECT_EQ(out, "0000  52 47 32 33 01 00 00 00  a0 02 01 01 0e fc 00 00  RG23............\n");
  EXPECT_EQ(row("region dump 0 --offset 8 --length 4")["bytes"], "a0020101");
  EXPECT_EQ(row("region dump 0 --length 4096")["length"], 1024) << "as far as the region goes";
  const json records = data("region show 0");
  ASSERT_EQ(records.size(), 4U);
  EXPECT_EQ(records[0]["contents"], "FC-MAP 0e:fc:00, VLAN 1002");
  expect_fields(records[1], {{"contents", "driver 0x0020, link held down"}, {"offset", 20}});
  expect_fields(records[2], {{"name", "unknown"}, {"bytes", "300100007778797a"}});
  EXPECT_EQ(records[3]["name"], "end");
  EXPECT_EQ(run("region dump 0 --out " + file_), 0);
  EXPECT_EQ(yes("region write 1 --in " + file_), 0) << err;
  EXPECT_EQ(flash(1), flash(0)) << "an image goes to a board of the other dialect";
  // Damage is shown as far as it goes.
  set_flash(0, header_ + std::string("\x30\0\0\0\x31\xff", 6));
  EXPECT_EQ(data("region show 0", 1).size(), 2U);
  EXPECT_TRUE(says("its records have no end mark")) << err;
  set_flash(0, "XYZW");
  sim::set_flash_region(*machine.host(1), 23, {});
  expect_endings({{"region show 0", 1, "it begins with 58595a5700"},
                  {"region show 1", 3, "never initialised"},
                  {"region dump 0 --region 99", 3, "no such region"},
                  {"region dump 0 --length 6", 2, "no multiple of 4"},
                  {"region dump 7", 3, ""},
                  {"region show", 2, ""}});
}

TEST_F(AdmRegion, WriteRefusesWhatIsNoImage) {
  const std::string before = flash(0);
  const struct {
    std::string bytes;
    size_t size;
    int status;
  } files[] = {{"RG23", 1024, 5}, {empty_, 1020, 5}, {header_, 1024, 5}, {"XYZW", 1024, 5},
               {"", 0, 2},        {"RG23", 6, 2},    {"RG23", 1796, 2}};
  for (const auto &f : files) {
    EXPECT_EQ(yes("region write 0 --in " + file(f.bytes, f.size)), f.status) << f.bytes << f.size;
    EXPECT_EQ(flash(0), before);
  }
  EXPECT_EQ(yes("region write 0 --in /no/such/file"), 3);
  EXPECT_EQ(yes("region write 0 --force --in " + file("XYZW")), 0) << err;
  EXPECT_EQ(flash(0).substr(0, 4), "XYZW");
  // The adapter refuses, or stores something else.
  EXPECT_EQ(yes("region write 0 --region 30 --in " + file("", 64)), 1);
  EXPECT_TRUE(says("the adapter refused")) << err;
  adapter(0).handlers[27] = [](sim::MailboxCall &) {};
  EXPECT_EQ(yes("region write 0 --in " + file(empty_ + "y")), 1);
  EXPECT_TRUE(says("does not read back")) << err;
}

TEST_F(AdmRegion, PersistentLink) {
  const auto state = [&](int board) { return data("link persist show")[board]["persistent_link_down"]; };
  EXPECT_EQ(data("link persist show").size(), 3U);
  EXPECT_EQ(state(0), false);
  EXPECT_TRUE(state(2).is_null()) << "FCoE";
  expect_refused(4, "link persist", {"show 2", "on 2 --yes"});
  EXPECT_EQ(run("link persist on 1", "y\n"), 0) << err;
  EXPECT_TRUE(says("region 23 is not initialised and will be")) << err;
  EXPECT_EQ(state(1), true);
  EXPECT_EQ(yes("link persist off 1"), 0);
  EXPECT_EQ(state(1), false);
  set_flash(0, "XYZW precious");
  expect_endings({{"link persist show 0", 1, "region 23 has another signature"},
                  {"link persist off 0", 5, "WHAT IT HOLDS WILL BE LOST"}});
  EXPECT_EQ(flash(0).substr(0, 4), "XYZW");
  EXPECT_EQ(run("link persist off 0", "y\n"), 0) << err;
  set_flash(0, header_);
  expect_endings({{"link persist on 0 --yes", 1, "run out of it"}});
  // A setting that no call can read is mended by writing it.
  set_flash(0, header_ + std::string("\xa2\x02\x20\0\x01\0\x02\0\xff\0\0\0\xff", 13));
  expect_endings({{"link persist show 0", 1, ""},
                  {"link persist on 0 --yes", 0,
                   "- persistent link down: not readable\n+ persistent link down: yes\n"}});
  EXPECT_EQ(state(0), true);
  // The older form of the noun.
  EXPECT_EQ(row("link 0")["board"], 0);
  EXPECT_EQ(data("link show").size(), 3U);
  expect_refused(2, "link", {"0 persist show", "persist"});
}

TEST_F(AdmRegion, Forwarders) {
  const json list = data("fcf list 2");
  ASSERT_EQ(list.size(), 2U);
  expect_fields(list[0], {{"mac", "00:0d:ec:af:ba:d0"},
                          {"available", true},
                          {"fc_map", "0e:fc:00"},
                          {"keep_alive_ms", 8000},
                          {"logged_in", true}});
  expect_fields(list[1], {{"vlans", {1002, 2001}}, {"priority", 200}});
  sim::forwarders(*machine.host(2)).assign(40, {.fabric = 1});
  EXPECT_EQ(data("fcf list 2").size(), 40U) << "more than is asked for at first";
  expect_endings({{"fcf list 0", 4, "only FCoE ports have this"}});

  EXPECT_EQ(data("fcf connect get 2").size(), 0U);
  const json set =
      data("fcf connect set 2 fabric=10:00:00:0d:ec:af:ba:d0,vlan=1002 switch=2001000decafbae0,flags=0x3f");
  ASSERT_EQ(set.size(), 2U);
  expect_fields(set[0], {{"vlan", 1002}, {"flags", 0}, {"switch_name", nullptr}});
  EXPECT_EQ(set[1]["flags"], 0x3e);
  EXPECT_EQ(flash(2).substr(24, 4), std::string("\0\x01\xea\x03", 4)) << "the low byte of a VLAN comes first";
  EXPECT_EQ(data("fcf connect set 2 --none").size(), 0U);
  std::string seventeen = "vlan=1";
  for (int i = 1; i < 17; ++i)
    seventeen += " vlan=1";
  expect_refused(2, "fcf connect set 2 --yes",
                 {"", "vlan", "vlan=4096", "vlan=1,vlan=2", "color=red", "flags=0x40", "fabric=zz",
                  "vlan=1 --none", seventeen.c_str()});
}

TEST_F(AdmRegion, FipParameters) {
  EXPECT_EQ(row("fip get 2")["vlan"], 1002);
  EXPECT_EQ(row("fip set 2 --fc-map 0e:fc:07")["vlan"], 1002) << "what is not given stays";
  EXPECT_EQ(row("fip get 2")["fc_map"], "0e:fc:07");
  // The library reads a region that fails once as one without parameters. The VLAN is not lost by that.
  const std::string before = flash(2);
  adapter(2).handlers[23] = [this](sim::MailboxCall &call) {
    call.set_status(0x10);
    adapter(2).handlers.erase(23);
  };
  expect_endings({{"fip set 2 --yes --fc-map 0e:fc:08", 1, "region 23 cannot be read"}});
  EXPECT_EQ(flash(2), before);
  EXPECT_TRUE(row("fip set 2 --vlan none")["vlan"].is_null());
  EXPECT_EQ(flash(2).substr(8, 12), std::string("\xa0\x02\x01\0\x0e\xfc\x07\0\0\0\0\0", 12));
  expect_refused(2, "fip set 2 --yes", {"", "--vlan 4096", "--vlan x", "--fc-map 0efc", "--fc-map 0efczz"});
  EXPECT_EQ(run("fip get 0"), 4);
  set_flash(2, header_);
  expect_refused(1, "fip set 2 --yes", {"--vlan 3"});
  // Where there are none yet, they are made.
  set_flash(2, empty_);
  EXPECT_EQ(row("fip set 2 --vlan 3")["vlan"], 3);
  sim::set_flash_region(*machine.host(2), 23, {});
  EXPECT_EQ(row("fip set 2 --vlan 3")["vlan"], 3);
}

TEST_F(AdmRegion, Priorities) {
  EXPECT_EQ(data("qos list 0").size(), 0U);
  const json list = data(
      "qos set 0 priority=1 "
      "source=1000000000000001,target=2000000000000002,first=3,last=16389,priority=200 "
      "source=1000000000000001,priority=5");
  ASSERT_EQ(list.size(), 3U);
  expect_fields(list[0], {{"priority", 200},
                          {"source", "10:00:00:00:00:00:00:01"},
                          {"first_lun", 3},
                          {"last_lun", 16389},
                          {"enabled", false}});
  expect_fields(list[1], {{"priority", 5}, {"target", nullptr}});
  EXPECT_EQ(list[2]["priority"], 1);
  expect_endings({{"qos list 0", 0, "priorities are switched off"}});
  EXPECT_EQ(row("qos enable 0")["enabled"], true);
  EXPECT_EQ(row("qos disable 0")["enabled"], false);
  EXPECT_EQ(data("qos set 0 --none").size(), 0U);
  expect_refused(2, "qos set 0 --yes",
                 {"", "source=1000000000000001", "priority=256", "priority=1,first=-1", "priority=1 --none"});
  const json speeds = data("qos speed");
  ASSERT_EQ(speeds.size(), 3U);
  for (const int board : {0, 1, 2})
    EXPECT_EQ(speeds[board]["logical_speed_mbit"], board == 2 ? json(10000) : json());
  EXPECT_EQ(run("qos speed 1"), 4);
  machine.bsg().on_vendor(12, [](sim::BsgCall &call) { call.result = -EPERM; });
  EXPECT_NE(run("qos list 0"), 0);
  EXPECT_EQ(run("qos set 0 --yes priority=1"), run("qos list 0"));
  EXPECT_FALSE(wrote());
}

}  // namespace
