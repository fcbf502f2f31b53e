// SPDX-License-Identifier: BSD-3-Clause
// The tool's control verbs: what is asked, what is sent, what it says when the library keeps silent.
#include <signal.h>

#include <errno.h>

#include <nlohmann/json.hpp>
#include <sstream>

#include "control_machine.h"
#include "hcxadm.h"

namespace {

using Texts = std::vector<std::string>;

class AdmControl : public ControlTest {
 protected:
  std::string out, err;
  bool terminal = false;

  int run(const std::vector<std::string> &args, const std::string &answers = "") {
    std::istringstream in(answers);
    std::ostringstream out_stream, err_stream;
    machine.clear_records();
    const int status =
        hcxadm::run(args, in, out_stream, err_stream, {.in = terminal, .out = false, .err = terminal});
    out = out_stream.str();
    err = err_stream.str();
    return status;
  }
  int yes(std::vector<std::string> args) {
    args.emplace_back("--yes");
    return run(args);
  }
  // The only element of the JSON document's data.
  nlohmann::json row() {
    const nlohmann::json document = nlohmann::json::parse(out);
    EXPECT_EQ(document["data"].size(), 1U) << out;
    return document["data"].empty() ? nlohmann::json::object() : document["data"][0];
  }
  // What was written to attributes of the driver.
  Texts changes() {
    Texts texts;
    for (const std::string &text : written())
      if (!text.starts_with("libhcx_syslog_enable")) texts.push_back(text);
    return texts;
  }
  bool says(const std::string &text) const { return err.find(text) != std::string::npos; }
};

TEST_F(AdmControl, ResetReadsTheModeBack) {
  sim::Host &host = machine.add_host();
  EXPECT_EQ(yes({"reset", "0"}), 0);
  EXPECT_EQ(changes(), Texts{"issue_reset=selective"});
  EXPECT_EQ(yes({"reset", "0", "--kind", "firmware"}), 0);
  EXPECT_EQ(changes(), Texts{"board_mode=fw_reset"});
  sim::configure(host, {.reset_enabled = false});
  EXPECT_EQ(yes({"reset", "0", "--kind", "coordinated"}), 1);
  EXPECT_TRUE(says("board 0 (host0): requesting a coordinated reset: error (1)")) << err;
  // Refused, reported as done by the library, and the board is still down.
  sim::configure(host, {.selective_reset = false});
  host.set_scsi("board_mode", "error");
  EXPECT_EQ(yes({"reset", "0", "--wait", "0"}), 1);
  EXPECT_TRUE(says("the board is error")) << err;
  EXPECT_EQ(run({"reset", "0", "--kind", "warm"}), 2);
  // Requests that cannot reach the driver. The library counts some of them as done.
  host.set_scsi("board_mode", "online");
  machine.fail({.verb = sim::Verb::open, .path = "issue_reset", .persistent = true, .error = EACCES});
  for (const char *kind : {"selective", "coordinated"}) {
    EXPECT_EQ(yes({"reset", "0", "--kind", kind}), 5) << kind;
    EXPECT_TRUE(says("the driver does not let it be requested")) << err;
  }
  EXPECT_EQ(yes({"reset", "0", "--kind", "firmware"}), 0) << err;
  machine.clear_faults();
  EXPECT_EQ(run({"reset", "5", "--yes"}), 3);
}

TEST_F(AdmControl, ChangesAreAskedFor) {
  machine.add_host();
  machine.add_host({.sli = 3});
  const std::vector<Texts> commands = {
      {"reset", "0"},           {"mode", "0", "offline"}, {"param", "set", "0", "topology", "2"},
      {"loopback", "run", "0"}, {"loopback", "end", "0"}, {"reg", "write", "1", "0x10", "1"}};
  for (const Texts &command : commands) {
    SCOPED_TRACE(command[0] + " " + command[1]);
    EXPECT_EQ(run(command, "n\n"), 5);
    EXPECT_TRUE(says("Go on? [y/N]"));
    EXPECT_EQ(changes(), Texts{});
    Texts dry = command;
    dry.emplace_back("--dry-run");
    EXPECT_EQ(run(dry), 0);
    EXPECT_TRUE(says("would "));
    EXPECT_EQ(changes(), Texts{});
    EXPECT_EQ(run(command, "y\n"), 0) << err;
  }
}

TEST_F(AdmControl, ModeTellsWhatIsInForce) {
  sim::Host &host = machine.add_host();
  EXPECT_EQ(yes({"mode", "0", "offline", "-o", "json"}), 0);
  EXPECT_EQ(row()["mode"], "offline");
  EXPECT_EQ(row()["link_state"], "Link Down");
  EXPECT_EQ(yes({"mode", "0", "dump"}), 0);
  EXPECT_TRUE(says("a firmware dump was requested, the board is online")) << err;
  sim::configure(host, {.mode_changes = false});
  EXPECT_EQ(yes({"mode", "0", "offline", "-o", "json"}), 5);
  EXPECT_EQ(row()["mode"], "online");
  EXPECT_TRUE(says("the driver refused, the board is online")) << err;
  host.set_scsi("board_mode", "sleeping");
  EXPECT_EQ(run({"mode", "-o", "json"}), 1);
  EXPECT_TRUE(row()["mode"].is_null());
  EXPECT_EQ(run({"mode", "0", "sleeping"}), 2);
}

TEST_F(AdmControl, ParameterNamesAndClamping) {
  sim::Host &host = machine.add_host();
  host.set_scsi("vosk_nodev_tmo", "30");
  for (const char *name : {"nodev_tmo", "nodev-tmo", "vosk_nodev_tmo"}) {
    EXPECT_EQ(run({"param", "get", "0", name, "-o", "json"}), 0) << name;
    EXPECT_EQ(row()["name"], "nodev-tmo");
    EXPECT_EQ(row()["value"], 30);
    EXPECT_EQ(row()["low"], 1);
    EXPECT_EQ(row()["high"], 255);
    EXPECT_EQ(row()["effect"], "at once");
  }
  EXPECT_EQ(run({"param", "set", "0", "nodev_tmo", "1000"}), 0) << err;
  EXPECT_EQ(changes(), Texts{"vosk_nodev_tmo=255\n"});
  EXPECT_TRUE(says("1000 is not within 1 to 255, clamped to 255")) << err;
  EXPECT_EQ(run({"param", "set", "0", "log-verbose", "0x10", "-o", "json"}), 0) << err;
  EXPECT_EQ(row()["value"], 16);
  EXPECT_EQ(run({"param", "set", "0", "nodev_tmo", "5", "--dry-run"}), 0);
  EXPECT_EQ(changes(), Texts{});
  for (const char *value : {"", "x", "-1", "0x", "4294967296", "1 2"})
    EXPECT_EQ(run({"param", "set", "0", "nodev_tmo", value}), 2) << value;
  EXPECT_EQ(run({"param", "get", "0", "nodev"}), 3);
}

TEST_F(AdmControl, ParametersThatStayAsTheyAre) {
  sim::Host &host = machine.add_host({.protocol = "fcoe"});
  EXPECT_EQ(yes({"param", "set", "0", "topology", "2"}), 4);
  EXPECT_TRUE(says("fixed on this adapter")) << err;
  EXPECT_EQ(yes({"param", "set", "0", "lun_queue_depth", "10"}), 5);
  EXPECT_TRUE(says("options vosk vosk_lun_queue_depth=VALUE")) << err;
  EXPECT_EQ(changes(), Texts{});
  EXPECT_EQ(run({"param", "list", "0", "-o", "json"}), 0);
  EXPECT_EQ(nlohmann::json::parse(out)["data"].size(), 14U) << "without topology and speed";
  EXPECT_EQ(run({"param", "list", "0", "--all", "-o", "json"}), 0);
  EXPECT_EQ(nlohmann::json::parse(out)["data"].size(), 16U);
  machine.vfs().remove(host.scsi_dir() + "vosk_use_adisc");
  EXPECT_EQ(yes({"param", "set", "0", "use_adisc", "1"}), 4);
  sim::configure(host, {.params_writable = false});
  EXPECT_EQ(yes({"param", "set", "0", "nodev_tmo", "7"}), 1);
}

TEST_F(AdmControl, LoopbackCountsAndCompares) {
  sim::Host &host = machine.add_host();
  terminal = true;
  EXPECT_EQ(yes({"loopback", "run", "0", "--count", "3", "--size", "100", "--pattern", "a5f0", "-o", "json"}),
            0)
      << err;
  EXPECT_EQ(row()["passed"], 3);
  EXPECT_EQ(row()["ended"], true);
  EXPECT_TRUE(says("loopback test 3 of 3")) << err;
  int tests = 0;
  for (const sim::Request &request : machine.requests()) {
    if (request.command != 5) continue;
    ++tests;
    EXPECT_EQ(request.data_out.substr(0, 4), "\xa5\xf0\xa5\xf0");
    EXPECT_EQ(request.data_out.size(), 100U);
  }
  EXPECT_EQ(tests, 3);
  sim::configure(host, {.loopback_corrupt = 7});
  EXPECT_EQ(yes({"loopback", "run", "0", "--count", "2", "--pattern", "00", "-o", "json"}), 1);
  EXPECT_EQ(row()["failed"], 2);
  EXPECT_EQ(row()["mismatch_offset"], 7);
  EXPECT_EQ(row()["mismatch_received"], 0x10);
  EXPECT_TRUE(says("2 of 2 tests brought back other data")) << err;
  EXPECT_EQ(sim::control_record(host).loopback, 0U);
}

TEST_F(AdmControl, LoopbackEndsWhateverHappens) {
  sim::Host &host = machine.add_host();
  // Ctrl-C in the middle of the second test.
  auto echo = machine.bsg().vendor(5);
  int calls = 0;
  machine.bsg().on_vendor(5, [&](sim::BsgCall &call) {
    if (++calls == 2) raise(SIGINT);
    echo(call);
  });
  EXPECT_EQ(yes({"loopback", "run", "0", "--count", "100", "-o", "json"}), 1);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(row()["passed"], 2);
  EXPECT_EQ(row()["ended"], true);
  EXPECT_TRUE(says("interrupted by Interrupt")) << err;
  EXPECT_EQ(sim::control_record(host).loopback, 0U);
  // A test that fails.
  machine.bsg().on_vendor(5, [](sim::BsgCall &call) { call.result = -EIO; });
  EXPECT_EQ(yes({"loopback", "run", "0"}), 1);
  EXPECT_TRUE(says("loopback test 1: error (1)")) << err;
  EXPECT_EQ(sim::control_record(host).loopback, 0U);
  machine.bsg().on_vendor(5, echo);
  // A set-up that fails, without a plug.
  sim::configure(host, {.loopback_plug = false});
  EXPECT_EQ(yes({"loopback", "run", "0", "--type", "external"}), 1);
  EXPECT_TRUE(says("external loopback needs a loopback plug")) << err;
  EXPECT_EQ(commands().back(), 10U);
  // An end that is refused is told.
  sim::configure(host, {.end_loopback = false});
  EXPECT_EQ(yes({"loopback", "run", "0"}), 1);
  EXPECT_TRUE(says("ending the loopback")) << err;
  EXPECT_EQ(sim::control_record(host).loopback, 1U);
  EXPECT_EQ(yes({"loopback", "end", "0"}), 1);
  sim::configure(host, {});
  EXPECT_EQ(yes({"loopback", "end", "0"}), 0) << err;
  EXPECT_EQ(sim::control_record(host).loopback, 0U);
}

TEST_F(AdmControl, LoopbackRefusesBeforeTheLinkGoesDown) {
  machine.add_host();
  machine.add_host({.protocol = "fcoe"});
  const std::vector<std::pair<Texts, int>> cases = {
      {{"0", "--pattern", "a"}, 2},
      {{"0", "--pattern", "zz"}, 2},
      {{"0", "--pattern", ""}, 2},
      {{"0", "--size", "0"}, 2},
      {{"0", "--count", "0"}, 2},
      {{"0", "--type", "sideways"}, 2},
      {{"1"}, 4},
      {{"9"}, 3},
  };
  for (const auto &[arguments, status] : cases) {
    Texts command = {"loopback", "run"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    EXPECT_EQ(yes(command), status) << arguments.back();
    for (uint32_t sent : this->commands())
      EXPECT_NE(sent, 4U);
  }
}

TEST_F(AdmControl, RegistersMemoryAndPciSpace) {
  machine.add_host({.sli = 3});
  machine.add_host({.sli = 4});
  EXPECT_EQ(yes({"reg", "write", "0", "0x20", "0x12345678", "-o", "json"}), 0) << err;
  EXPECT_EQ(row()["value"], 0x12345678);
  EXPECT_EQ(run({"reg", "read", "0", "0x20", "-o", "json"}), 0);
  EXPECT_EQ(row()["value"], 0x12345678);
  EXPECT_EQ(run({"reg", "read", "1", "0"}), 4);
  EXPECT_TRUE(says("SLI-4 adapters do not show their registers")) << err;
  EXPECT_EQ(run({"reg", "read", "0", "2"}), 2);
  EXPECT_EQ(run({"reg", "read", "0", "0x100"}), 1);
  EXPECT_EQ(yes({"reg", "write", "0", "0x1000", "7", "--space", "slim"}), 0) << err;
  EXPECT_EQ(run({"reg", "read", "0", "0", "--space", "slim", "--count", "2048", "-o", "json"}), 0) << err;
  const nlohmann::json words = nlohmann::json::parse(out)["data"];
  ASSERT_EQ(words.size(), 2048U) << "more than the kernel moves at a time";
  EXPECT_EQ(words[1024]["value"], 7);
  EXPECT_EQ(run({"pci", "read", "1", "-o", "json"}), 0) << err;
  const nlohmann::json bytes = nlohmann::json::parse(out)["data"];
  ASSERT_EQ(bytes.size(), 4U);
  EXPECT_EQ(bytes[0]["bytes"].get<std::string>().substr(0, 5), "5a 1d");
  EXPECT_EQ(run({"pci", "read", "1", "0", "--count", "300"}), 1);
  EXPECT_EQ(changes(), Texts{});
}

}  // namespace
