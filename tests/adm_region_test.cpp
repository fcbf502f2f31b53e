// SPDX-License-Identifier: BSD-3-Clause
// The tool's verbs for flash, FCoE and priorities: what they show, that they tell the difference and ask, that they
// write nothing when told so, and how they fail.
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include "control_machine.h"
#include "hcxadm.h"
#include "sim_mbox.h"

namespace {

using Texts = std::vector<std::string>;
using nlohmann::json;

class AdmRegion : public ControlTest {
 protected:
  std::string out, err;

  void SetUp() override {
    machine.add_host();
    machine.add_host({.sli = 3});
    machine.add_host({.protocol = "fcoe"});
    file_ = ::testing::TempDir() + "hcxadm_region_" + std::to_string(getpid());
  }
  void TearDown() override {
    ControlTest::TearDown();
    unlink(file_.c_str());
  }
  int run(const Texts &args, const std::string &answers = "") {
    std::istringstream in(answers);
    std::ostringstream out_stream, err_stream;
    machine.clear_records();
    const int status =
        hcxadm::run(args, in, out_stream, err_stream, {.in = false, .out = false, .err = false});
    out = out_stream.str();
    err = err_stream.str();
    return status;
  }
  int run(const std::string &line, const std::string &answers = "") {
    std::istringstream in(line);
    return run(Texts(std::istream_iterator<std::string>(in), {}), answers);
  }
  // Each of these lines ends so, and nothing is written.
  void expect_all(int status, const std::string &verb, std::initializer_list<const char *> rest) {
    for (const char *words : rest) {
      EXPECT_EQ(run(verb + " " + words), status) << verb << " " << words << ": " << err;
      EXPECT_FALSE(wrote()) << verb << " " << words;
    }
  }
  json rows(const std::string &line) {
    EXPECT_EQ(run(line + " -o json"), 0) << line << ": " << err;
    return json::parse(out)["data"];
  }
  bool says(const std::string &text) const { return err.find(text) != std::string::npos; }
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

  const std::string empty_ = std::string("RG23\x01\0\0\0\xff", 9);
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
      EXPECT_TRUE(says(verb.difference)) << err;
      EXPECT_TRUE(says("Go on? [y/N]"));
      EXPECT_FALSE(wrote());
    }
    EXPECT_EQ(run(verb.line + " --dry-run"), 0);
    EXPECT_TRUE(says(verb.difference)) << err;
    EXPECT_TRUE(says("would "));
    EXPECT_FALSE(wrote());
    EXPECT_EQ(run(verb.line, "y\n"), 0) << err;
    EXPECT_TRUE(wrote());
    EXPECT_EQ(run(verb.line), 0) << err;
    EXPECT_TRUE(says("nothing to change")) << err;
    EXPECT_FALSE(wrote());
  }
}

TEST_F(AdmRegion, DumpAndShow) {
  set_flash(0, std::string("RG23\x01\0\0\0", 8) +
                   std::string("\xa0\x02\x01\x01\x0e\xfc\0\0\xea\x03\0\0", 12) +
                   std::string("\xa2\x02\x20\0\x01\0\0\0\xff\0\0\0", 12) +
                   std::string("\x30\x01\0\0wxyz", 8) + "\xff");
  EXPECT_EQ(run("region dump 0 --length 16"), 0);
  EXPECT_EQ(out, "0000  52 47 32 33 01 00 00 00  a0 02 01 01 0e fc 00 00  RG23............\n");
  EXPECT_EQ(rows("region dump 0 --offset 8 --length 4")[0]["bytes"], "a0020101");
  EXPECT_EQ(rows("region dump 0 --length 4096")[0]["length"], 1024) << "as far as the region goes";
  const json records = rows("region show 0");
  ASSERT_EQ(records.size(), 4U);
  EXPECT_EQ(records[0]["contents"], "FC-MAP 0e:fc:00, VLAN 1002");
  EXPECT_EQ(records[1]["contents"], "driver 0x0020, link held down");
  EXPECT_EQ(records[1]["offset"], 20);
  EXPECT_EQ(records[2]["name"], "unknown");
  EXPECT_EQ(records[2]["bytes"], "300100007778797a");
  EXPECT_EQ(records[3]["name"], "end");
  EXPECT_EQ(run("region dump 0 --out " + file_), 0);
  EXPECT_EQ(run("region write 1 --yes --in " + file_), 0) << err;
  EXPECT_EQ(flash(1), flash(0)) << "an image goes to a board of the other dialect";
  // Damage is shown as far as it goes.
  set_flash(0, std::string("RG23\x01\0\0\0\x30\0\0\0\x31\xff", 14));
  EXPECT_EQ(run("region show 0 -o json"), 1);
  EXPECT_EQ(json::parse(out)["data"].size(), 2U);
  EXPECT_TRUE(says("its records have no end mark")) << err;
  set_flash(0, "XYZW");
  EXPECT_EQ(run("region show 0"), 1);
  EXPECT_TRUE(says("it begins with 58595a5700")) << err;
  sim::set_flash_region(*machine.host(1), 23, {});
  EXPECT_EQ(run("region show 1"), 3);
  EXPECT_TRUE(says("never initialised")) << err;
  expect_all(3, "region dump", {"0 --region 99", "7"});
  expect_all(2, "region", {"dump 0 --length 6", "show"});
}

TEST_F(AdmRegion, WriteRefusesWhatIsNoImage) {
  const std::string before = flash(0);
  const std::pair<std::string, size_t> files[] = {
      {"RG23", 1024}, {empty_, 1020}, {std::string("RG23\x01\0\0\0", 8), 1024}, {"XYZW", 1024}};
  for (const auto &[bytes, size] : files) {
    EXPECT_EQ(run("region write 0 --yes --in " + file(bytes, size)), 5) << bytes;
    EXPECT_EQ(flash(0), before);
  }
  EXPECT_EQ(run("region write 0 --yes --in " + file("", 0)), 2);
  EXPECT_EQ(run("region write 0 --yes --in " + file("RG23", 6)), 2);
  EXPECT_EQ(run("region write 0 --yes --in " + file("RG23", 1796)), 2);
  EXPECT_EQ(run("region write 0 --yes --in /no/such/file"), 3);
  EXPECT_EQ(run("region write 0 --yes --force --in " + file("XYZW", 1024)), 0) << err;
  EXPECT_EQ(flash(0).substr(0, 4), "XYZW");
  // The adapter refuses, or stores something else.
  EXPECT_EQ(run("region write 0 --yes --region 30 --in " + file("", 64)), 1);
  EXPECT_TRUE(says("the adapter refused")) << err;
  sim::mailbox(*machine.host(0)).handlers[27] = [](sim::MailboxCall &) {};
  EXPECT_EQ(run("region write 0 --yes --in " + file(empty_ + "y")), 1);
  EXPECT_TRUE(says("does not read back")) << err;
}

TEST_F(AdmRegion, PersistentLink) {
  const auto state = [&](int board) { return rows("link persist show")[board]["persistent_link_down"]; };
  EXPECT_EQ(rows("link persist show").size(), 3U);
  EXPECT_EQ(state(0), false);
  EXPECT_TRUE(state(2).is_null()) << "FCoE";
  expect_all(4, "link persist", {"show 2", "on 2 --yes"});
  EXPECT_EQ(run("link persist on 1", "y\n"), 0) << err;
  EXPECT_TRUE(says("region 23 is not initialised and will be")) << err;
  EXPECT_EQ(state(1), true);
  EXPECT_EQ(run("link persist off 1 --yes"), 0);
  EXPECT_EQ(state(1), false);
  set_flash(0, "XYZW precious");
  EXPECT_EQ(run("link persist show 0"), 1);
  EXPECT_TRUE(says("region 23 has another signature")) << err;
  EXPECT_EQ(run("link persist off 0", "n\n"), 5);
  EXPECT_TRUE(says("WHAT IT HOLDS WILL BE LOST")) << err;
  EXPECT_EQ(flash(0).substr(0, 4), "XYZW");
  EXPECT_EQ(run("link persist off 0", "y\n"), 0) << err;
  set_flash(0, std::string("RG23\x01\0\0\0", 8));
  EXPECT_EQ(run("link persist on 0 --yes"), 1);
  EXPECT_TRUE(says("run out of it")) << err;
  // A setting that no call can read is mended by writing it.
  set_flash(0, std::string("RG23\x01\0\0\0\xa2\x02\x20\0\x01\0\x02\0\xff\0\0\0\xff", 21));
  EXPECT_EQ(run("link persist show 0"), 1);
  EXPECT_EQ(run("link persist on 0 --yes"), 0) << err;
  EXPECT_TRUE(says("- persistent link down: not readable\n+ persistent link down: yes\n")) << err;
  EXPECT_EQ(state(0), true);
  // The older form of the noun.
  EXPECT_EQ(rows("link 0")[0]["board"], 0);
  EXPECT_EQ(rows("link show").size(), 3U);
  expect_all(2, "link", {"0 persist show", "persist"});
}

TEST_F(AdmRegion, Forwarders) {
  const json list = rows("fcf list 2");
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0]["mac"], "00:0d:ec:af:ba:d0");
  EXPECT_EQ(list[0]["available"], true);
  EXPECT_EQ(list[1]["vlans"], (json{1002, 2001}));
  EXPECT_EQ(list[1]["priority"], 200);
  EXPECT_EQ(list[0]["fc_map"], "0e:fc:00");
  EXPECT_EQ(list[0]["keep_alive_ms"], 8000);
  EXPECT_EQ(list[0]["logged_in"], true);
  sim::forwarders(*machine.host(2)).assign(40, {.fabric = 1});
  EXPECT_EQ(rows("fcf list 2").size(), 40U) << "more than is asked for at first";
  EXPECT_EQ(run("fcf list 0"), 4);
  EXPECT_TRUE(says("only FCoE ports have this")) << err;

  EXPECT_EQ(rows("fcf connect get 2").size(), 0U);
  const json set = rows(
      "fcf connect set 2 --yes fabric=10:00:00:0d:ec:af:ba:d0,vlan=1002 switch=2001000decafbae0,flags=0x3f");
  ASSERT_EQ(set.size(), 2U);
  EXPECT_EQ(set[0]["vlan"], 1002);
  EXPECT_EQ(set[0]["flags"], 0);
  EXPECT_TRUE(set[0]["switch_name"].is_null());
  EXPECT_EQ(set[1]["flags"], 0x3e);
  EXPECT_EQ(flash(2).substr(24, 4), std::string("\0\x01\xea\x03", 4)) << "the low byte of a VLAN comes first";
  EXPECT_EQ(rows("fcf connect set 2 --yes --none").size(), 0U);
  expect_all(
      2, "fcf connect set 2 --yes",
      {"", "vlan", "vlan=4096", "vlan=1,vlan=2", "color=red", "flags=0x40", "fabric=zz", "vlan=1 --none",
       "vlan=1 vlan=1 vlan=1 vlan=1 vlan=1 vlan=1 vlan=1 vlan=1 vlan=1 vlan=1 vlan=1 vlan=1 vlan=1 "
       "vlan=1 vlan=1 vlan=1 vlan=1"});
}

TEST_F(AdmRegion, FipParameters) {
  EXPECT_EQ(rows("fip get 2")[0]["vlan"], 1002);
  EXPECT_EQ(rows("fip set 2 --yes --fc-map 0e:fc:07")[0]["vlan"], 1002) << "what is not given stays";
  EXPECT_EQ(rows("fip get 2")[0]["fc_map"], "0e:fc:07");
  // The library reads a region that fails once as one without parameters. The VLAN is not lost by that.
  const std::string before = flash(2);
  sim::mailbox(*machine.host(2)).handlers[23] = [this](sim::MailboxCall &call) {
    call.set_status(0x10);
    sim::mailbox(*machine.host(2)).handlers.clear();
  };
  EXPECT_EQ(run("fip set 2 --yes --fc-map 0e:fc:08"), 1);
  EXPECT_TRUE(says("region 23 cannot be read")) << err;
  EXPECT_EQ(flash(2), before);
  EXPECT_TRUE(rows("fip set 2 --yes --vlan none")[0]["vlan"].is_null());
  EXPECT_EQ(flash(2).substr(8, 12), std::string("\xa0\x02\x01\0\x0e\xfc\x07\0\0\0\0\0", 12));
  expect_all(2, "fip set 2 --yes", {"", "--vlan 4096", "--vlan x", "--fc-map 0efc", "--fc-map 0efczz"});
  EXPECT_EQ(run("fip get 0"), 4);
  set_flash(2, std::string("RG23\x01\0\0\0", 8));
  expect_all(1, "fip set 2 --yes", {"--vlan 3"});
  // Where there are none yet, they are made.
  for (const char *bytes : {"RG23\x01\0\0\0\xff", ""}) {
    sim::set_flash_region(*machine.host(2), 23, {});
    if (*bytes) set_flash(2, std::string(bytes, 9));
    EXPECT_EQ(rows("fip set 2 --yes --vlan 3")[0]["vlan"], 3);
  }
}

TEST_F(AdmRegion, Priorities) {
  EXPECT_EQ(rows("qos list 0").size(), 0U);
  json list = rows(
      "qos set 0 --yes priority=1 "
      "source=1000000000000001,target=2000000000000002,first=3,last=16389,priority=200 "
      "source=1000000000000001,priority=5");
  ASSERT_EQ(list.size(), 3U);
  EXPECT_EQ(list[0]["priority"], 200);
  EXPECT_EQ(list[0]["source"], "10:00:00:00:00:00:00:01");
  EXPECT_EQ(list[0]["first_lun"], 3);
  EXPECT_EQ(list[0]["last_lun"], 16389);
  EXPECT_EQ(list[0]["enabled"], false);
  EXPECT_EQ(list[1]["priority"], 5);
  EXPECT_TRUE(list[1]["target"].is_null());
  EXPECT_EQ(list[2]["priority"], 1);
  EXPECT_EQ(run("qos list 0"), 0);
  EXPECT_TRUE(says("priorities are switched off")) << err;
  EXPECT_EQ(rows("qos enable 0 --yes")[0]["enabled"], true);
  EXPECT_EQ(rows("qos disable 0 --yes")[0]["enabled"], false);
  EXPECT_EQ(rows("qos set 0 --yes --none").size(), 0U);
  expect_all(2, "qos set 0 --yes",
             {"", "source=1000000000000001", "priority=256", "priority=1,first=-1", "priority=1 --none"});
  json speeds = rows("qos speed");
  ASSERT_EQ(speeds.size(), 3U);
  EXPECT_TRUE(speeds[0]["logical_speed_mbit"].is_null());
  EXPECT_TRUE(speeds[1]["logical_speed_mbit"].is_null());
  EXPECT_EQ(speeds[2]["logical_speed_mbit"], 10000);
  EXPECT_EQ(run("qos speed 1"), 4);
  machine.bsg().on_vendor(12, [](sim::BsgCall &call) { call.result = -EPERM; });
  EXPECT_NE(run("qos list 0"), 0);
  EXPECT_EQ(run("qos set 0 --yes priority=1"), run("qos list 0"));
  EXPECT_FALSE(wrote());
}

}  // namespace
