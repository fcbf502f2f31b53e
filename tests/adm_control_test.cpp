// SPDX-License-Identifier: BSD-3-Clause
// The tool's verbs for control and latency: what is asked, what is sent, what it says when the library keeps silent, and
// the numbers and pictures of a histogram.
#include <errno.h>
#include <signal.h>

#include "control_machine.h"
#include "histogram.h"
#include "tool_fixture.h"

namespace {

using hcxadm::Histogram;
using nlohmann::json;
using Texts = std::vector<std::string>;

class AdmControl : public ControlTest, public Tool {
 protected:
  void before_run() override { machine.clear_records(); }
  // What was written to attributes of the driver.
  Texts changes() {
    Texts texts;
    for (const std::string &text : written())
      if (!text.starts_with("libhcx_syslog_enable")) texts.push_back(text);
    return texts;
  }
};

TEST_F(AdmControl, ResetReadsTheModeBack) {
  sim::Host &host = machine.add_host();
  EXPECT_EQ(yes("reset 0"), 0);
  EXPECT_EQ(changes(), Texts{"issue_reset=selective"});
  EXPECT_EQ(yes("reset 0 --kind firmware"), 0);
  EXPECT_EQ(changes(), Texts{"board_mode=fw_reset"});
  sim::configure(host, {.reset_enabled = false});
  expect_endings(
      {{"reset 0 -y --kind coordinated", 1, "board 0 (host0): requesting a coordinated reset: error (1)"},
       {"reset 0 --kind warm", 2, "warm"},
       {"reset 5 -y", 3, "5"}});
  // Refused, reported as done by the library, and the board is still down.
  sim::configure(host, {.selective_reset = false});
  host.set_scsi("board_mode", "error");
  expect_endings({{"reset 0 -y --wait 0", 1, "the board is error"}});
  // Requests that cannot reach the driver. The library counts some of them as done.
  host.set_scsi("board_mode", "online");
  machine.fail({.verb = sim::Verb::open, .path = "issue_reset", .persistent = true, .error = EACCES});
  expect_endings({{"reset 0 -y --kind selective", 5, "the driver does not let it be requested"},
                  {"reset 0 -y --kind coordinated", 5, "the driver does not let it be requested"},
                  {"reset 0 -y --kind firmware", 0, ""}});
}

TEST_F(AdmControl, ChangesAreAskedFor) {
  machine.add_host();
  machine.add_host({.sli = 3});
  for (const char *command : {"reset 0", "mode 0 offline", "param set 0 topology 2", "loopback run 0",
                              "loopback end 0", "reg write 1 0x10 1"}) {
    SCOPED_TRACE(command);
    EXPECT_EQ(run(command, "n\n"), 5);
    EXPECT_TRUE(says("Go on? [y/N]"));
    EXPECT_EQ(changes(), Texts{});
    EXPECT_EQ(run(std::string(command) + " --dry-run"), 0);
    EXPECT_TRUE(says("would "));
    EXPECT_EQ(changes(), Texts{});
    EXPECT_EQ(run(command, "y\n"), 0) << err;
  }
}

TEST_F(AdmControl, ModeTellsWhatIsInForce) {
  sim::Host &host = machine.add_host();
  json mode = row("mode 0 offline");
  EXPECT_EQ(mode["mode"], "offline");
  EXPECT_EQ(mode["link_state"], "Link Down");
  expect_endings({{"mode 0 dump -y", 0, "a firmware dump was requested, the board is online"},
                  {"mode 0 sleeping", 2, "sleeping"}});
  sim::configure(host, {.mode_changes = false});
  EXPECT_EQ(row("mode 0 offline", 5)["mode"], "online");
  EXPECT_TRUE(says("the driver refused, the board is online")) << err;
  host.set_scsi("board_mode", "sleeping");
  EXPECT_TRUE(row("mode", 1)["mode"].is_null());
}

TEST_F(AdmControl, Parameters) {
  sim::Host &host = machine.add_host();
  sim::Host &fixed = machine.add_host({.protocol = "fcoe"});
  host.set_scsi("vosk_nodev_tmo", "30");
  for (const char *name : {"nodev_tmo", "nodev-tmo", "vosk_nodev_tmo"}) {
    const json found = row(std::string("param get 0 ") + name);
    EXPECT_EQ(found["name"], "nodev-tmo");
    EXPECT_EQ(found["value"], 30);
    EXPECT_EQ(found["high"], 255);
    EXPECT_EQ(found["effect"], "at once");
  }
  expect_endings({{"param set 0 nodev_tmo 1000", 0, "1000 is not within 1 to 255, clamped to 255"}});
  EXPECT_EQ(changes(), Texts{"vosk_nodev_tmo=255\n"});
  EXPECT_EQ(row("param set 0 log-verbose 0x10")["value"], 16);
  for (const char *value : {"", "x", "-1", "0x", "4294967296", "1 2"})
    EXPECT_EQ(run_words({"param", "set", "0", "nodev_tmo", value}), 2) << value;
  EXPECT_EQ(data("param list 1").size(), 14U) << "without topology and speed";
  EXPECT_EQ(data("param list 1 --all").size(), 16U);
  machine.vfs().remove(fixed.scsi_dir() + "vosk_use_adisc");
  sim::configure(fixed, {.params_writable = false});
  expect_endings({{"param set 0 nodev_tmo 5 --dry-run", 0, "would "},
                  {"param get 0 nodev", 3, "nodev"},
                  {"param set 1 -y topology 2", 4, "fixed on this adapter"},
                  {"param set 1 -y lun_queue_depth 10", 5, "options vosk vosk_lun_queue_depth=VALUE"},
                  {"param set 1 -y use_adisc 1", 4, "use"}});
  EXPECT_EQ(changes(), Texts{});
  EXPECT_EQ(yes("param set 1 nodev_tmo 7"), 1);
}

TEST_F(AdmControl, LoopbackCountsAndCompares) {
  sim::Host &host = machine.add_host();
  terminal = {.in = true, .err = true};
  json result = row("loopback run 0 --count 3 --size 100 --pattern a5f0");
  EXPECT_EQ(result["passed"], 3);
  EXPECT_EQ(result["ended"], true);
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
  result = row("loopback run 0 --count 2 --pattern 00", 1);
  EXPECT_EQ(result["failed"], 2);
  EXPECT_EQ(result["mismatch_offset"], 7);
  EXPECT_EQ(result["mismatch_received"], 0x10);
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
  const json result = row("loopback run 0 --count 100", 1);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(result["passed"], 2);
  EXPECT_EQ(result["ended"], true);
  EXPECT_TRUE(says("interrupted by Interrupt")) << err;
  EXPECT_EQ(sim::control_record(host).loopback, 0U);
  machine.bsg().on_vendor(5, [](sim::BsgCall &call) { call.result = -EIO; });
  expect_endings({{"loopback run 0 -y", 1, "loopback test 1: error (1)"}});
  EXPECT_EQ(sim::control_record(host).loopback, 0U);
  machine.bsg().on_vendor(5, echo);
  sim::configure(host, {.loopback_plug = false});
  expect_endings({{"loopback run 0 -y --type external", 1, "external loopback needs a loopback plug"}});
  EXPECT_EQ(commands().back(), 10U);
  sim::configure(host, {.end_loopback = false});
  expect_endings({{"loopback run 0 -y", 1, "ending the loopback"}, {"loopback end 0 -y", 1, ""}});
  EXPECT_EQ(sim::control_record(host).loopback, 1U);
  sim::configure(host, {});
  EXPECT_EQ(yes("loopback end 0"), 0) << err;
  EXPECT_EQ(sim::control_record(host).loopback, 0U);
}

TEST_F(AdmControl, LoopbackRefusesBeforeTheLinkGoesDown) {
  machine.add_host();
  machine.add_host({.protocol = "fcoe"});
  const std::pair<const char *, int> cases[] = {
      {"0 --pattern a", 2},
      {"0 --pattern zz", 2},
      {"0 --pattern=", 2},
      {"0 --size 0", 2},
      {"0 --count 0", 2},
      {"0 --type sideways", 2},
      {"1", 4},
      {"9", 3},
  };
  for (const auto &[arguments, status] : cases) {
    EXPECT_EQ(yes(std::string("loopback run ") + arguments), status) << arguments;
    for (uint32_t sent : commands())
      EXPECT_NE(sent, 4U);
  }
}

TEST_F(AdmControl, RegistersMemoryAndPciSpace) {
  machine.add_host({.sli = 3});
  machine.add_host({.sli = 4});
  EXPECT_EQ(row("reg write 0 0x20 0x12345678")["value"], 0x12345678);
  EXPECT_EQ(row("reg read 0 0x20")["value"], 0x12345678);
  EXPECT_EQ(yes("reg write 0 0x1000 7 --space slim"), 0) << err;
  const json words = data("reg read 0 0 --space slim --count 2048");
  ASSERT_EQ(words.size(), 2048U) << "more than the kernel moves at a time";
  EXPECT_EQ(words[1024]["value"], 7);
  const json bytes = data("pci read 1");
  ASSERT_EQ(bytes.size(), 4U);
  EXPECT_EQ(bytes[0]["bytes"].get<std::string>().substr(0, 5), "5a 1d");
  expect_endings({{"reg read 1 0", 4, "SLI-4 adapters do not show their registers"},
                  {"reg read 0 2", 2, ""},
                  {"reg read 0 0x100", 1, ""},
                  {"pci read 1 0 --count 300", 1, ""}});
}

class AdmLatency : public AdmControl {
 protected:
  void SetUp() override {
    three = &machine.add_host({.number = 3});
    machine.add_host({.number = 4});
    three->add_rport({.wwpn = 0x5006016000000001});
  }
  // Twenty counts behind the target's name.
  void put_counts(const std::string &counts) {
    std::string record = "5006016000000001:" + counts + "\n";
    record.resize(238, '\0');
    machine.vfs().put_binary(three->scsi_dir() + "vosk_drvr_stat_data", record, 0444);
  }
  sim::Host *three = nullptr;
};

TEST_F(AdmLatency, FromSetToDestroy) {
  const json definition = data("latency set linear 10 5");
  EXPECT_EQ(definition[0]["bounds_ms"].size(), 20u);
  EXPECT_EQ(definition[0]["bounds_ms"][19], 105);
  EXPECT_EQ(changes(), Texts(2, "vosk_stat_data_ctrl=setbucket linear 10 5 \n"));
  json state = data("latency start 0");
  EXPECT_EQ(state, json::parse(R"([{"board":0,"host":"host3","buckets":true,"collecting":true}])"));
  // All boards are those that can; one that is named has to.
  state = data("latency start");
  EXPECT_EQ(state[1]["collecting"], true);
  expect_endings({{"latency start 0", 5,
                   "board 0 (host3): starting the collection: data collection active (19); \"hcxadm latency "
                   "stop\""},
                  {"latency set linear 1 1", 5, ""}});
  EXPECT_EQ(data("latency stop").size(), 2u);
  EXPECT_EQ(data("latency reset 1").size(), 1u);
  EXPECT_EQ(data("latency destroy")[0]["buckets"], false);
  expect_endings({{"latency show", 5, "\"hcxadm latency set\" defines buckets"}});
}

TEST_F(AdmLatency, WrongWordsAndDryRuns) {
  expect_endings({{"latency set cubic 1 1", 2, ""},
                  {"latency set linear 4295 1", 2, ""},
                  {"latency set linear 0 1", 2, ""},
                  {"latency start 7", 3, ""}});
  for (const char *verb : {"set linear 1 1", "start", "stop", "reset", "destroy"}) {
    expect_endings({{(std::string("-n latency ") + verb).c_str(), 0, "would "}});
    EXPECT_TRUE(changes().empty()) << verb;
  }
  machine.resolution = {0, 4000000};
  EXPECT_EQ(run("latency set linear 6 4"), 2);
}

TEST_F(AdmLatency, HistogramInNumbersAndPictures) {
  ASSERT_EQ(run("latency set linear 10 5"), 0) << err;
  put_counts("60,30,5,0,4,0,0,0,0,0,0,0,0,0,0,0,0,0,0,1,");
  const json shown = row("latency show 0");
  EXPECT_EQ(shown["target"], "50:06:01:60:00:00:00:01");
  EXPECT_EQ(shown["ios"], 100);
  EXPECT_EQ(shown["p50_ms"], 8.3);
  EXPECT_EQ(shown["p99_ms"], 30);
  EXPECT_EQ(shown["histogram"].size(), 20u);
  EXPECT_EQ(shown["histogram"][1], json::parse(R"({"above_ms":10,"up_to_ms":15,"ios":30,"share":0.3})"));
  EXPECT_EQ(shown["histogram"][19], json::parse(R"({"above_ms":100,"up_to_ms":null,"ios":1,"share":0.01})"));
  ASSERT_EQ(run("latency show"), 0);
  EXPECT_TRUE(shows("0\thost3\t50:06:01:60:00:00:00:01\tno\t100\t8.3\t20")) << out;

  terminal.out = true;
  ASSERT_EQ(run("latency show 0"), 0);
  for (const char *text : {"board 0 (host3), target 50:06:01:60:00:00:00:01, not collecting\n",
                           "          10  15                  30   30.0 %  ####################\n",
                           "  100 I/Os, p50 8.3 ms, p95 20.0 ms, p99 30.0 ms\n"})
    EXPECT_TRUE(shows(text)) << out;
  put_counts("0,");
  ASSERT_EQ(run("latency"), 0);
  EXPECT_TRUE(shows("no I/O yet")) << out;
  put_counts("many");
  expect_endings({{"latency show", 1, "reading the latency statistics: generic error (1)"}});
}

TEST_F(AdmLatency, MoreTargetsThanExpected) {
  for (uint64_t i = 0; i < 70; ++i)
    three->add_rport({.wwpn = 0x5006016100000000 + i});
  ASSERT_EQ(run("latency set power2 0 1"), 0) << err;
  EXPECT_EQ(data("latency show host3").size(), 71u);
}

TEST(HistogramTest, Percentiles) {
  Histogram h;
  for (size_t i = 0; i < Histogram::buckets; ++i)
    h.bounds_ms[i] = static_cast<double>(i + 1);
  EXPECT_FALSE(h.percentile(50));
  EXPECT_EQ(percentile_text(h, 50), "-");
  h.counts[3] = 4;
  EXPECT_DOUBLE_EQ(*h.percentile(50), 3.5);
  EXPECT_DOUBLE_EQ(*h.percentile(100), 4);
  h.counts[19] = 96;
  EXPECT_FALSE(h.percentile(50));
  EXPECT_EQ(percentile_text(h, 50), "over 19 ms");
  h.counts.fill(UINT32_MAX);
  EXPECT_EQ(h.total(), uint64_t{UINT32_MAX} * 20);
  EXPECT_NEAR(*h.percentile(50), 10, 1e-6);
}

}  // namespace
