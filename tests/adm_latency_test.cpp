// SPDX-License-Identifier: BSD-3-Clause
// The tool's latency verbs: what reaches the driver, the numbers of a histogram, and the pictures of it.
#include <nlohmann/json.hpp>
#include <sstream>

#include "control_machine.h"
#include "hcxadm.h"
#include "histogram.h"

namespace {

using hcxadm::Histogram;
using nlohmann::json;

class AdmLatency : public ControlTest {
 protected:
  std::string out, err;

  void SetUp() override {
    three = &machine.add_host({.number = 3});
    machine.add_host({.number = 4});
    three->add_rport({.wwpn = 0x5006016000000001});
  }
  int run(const std::vector<std::string> &args, bool terminal = false) {
    std::istringstream in;
    std::ostringstream out_stream, err_stream;
    machine.clear_records();
    const int status =
        hcxadm::run(args, in, out_stream, err_stream, {.in = false, .out = terminal, .err = false});
    out = out_stream.str();
    err = err_stream.str();
    return status;
  }
  json data(std::vector<std::string> args, int status = 0) {
    args.insert(args.begin(), {"-o", "json"});
    EXPECT_EQ(run(args), status) << err;
    return json::parse(out)["data"];
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
  const json definition = data({"latency", "set", "linear", "10", "5"});
  EXPECT_EQ(definition[0]["bounds_ms"].size(), 20u);
  EXPECT_EQ(definition[0]["bounds_ms"][19], 105);
  EXPECT_EQ(written(), (std::vector<std::string>{"vosk_stat_data_ctrl=setbucket linear 10 5 \n",
                                                 "vosk_stat_data_ctrl=setbucket linear 10 5 \n"}));
  json state = data({"latency", "start", "0"});
  EXPECT_EQ(state, json::parse(R"([{"board":0,"host":"host3","buckets":true,"collecting":true}])"));
  // All boards are those that can; one that is named has to.
  state = data({"latency", "start"});
  EXPECT_EQ(state[1]["collecting"], true);
  data({"latency", "start", "0"}, 5);
  EXPECT_NE(
      err.find(
          "board 0 (host3): starting the collection: data collection active (19); \"hcxadm latency stop\""),
      std::string::npos)
      << err;
  EXPECT_EQ(run({"latency", "set", "linear", "1", "1"}), 5);
  EXPECT_EQ(data({"latency", "stop"}).size(), 2u);
  EXPECT_EQ(data({"latency", "reset", "1"}).size(), 1u);
  state = data({"latency", "destroy"});
  EXPECT_EQ(state[0]["buckets"], false);
  EXPECT_EQ(run({"latency", "show"}), 5);
  EXPECT_NE(err.find("\"hcxadm latency set\" defines buckets"), std::string::npos) << err;
}

TEST_F(AdmLatency, WrongWordsAndDryRuns) {
  EXPECT_EQ(run({"latency", "set", "cubic", "1", "1"}), 2);
  EXPECT_EQ(run({"latency", "set", "linear", "4295", "1"}), 2);
  EXPECT_EQ(run({"latency", "set", "linear", "0", "1"}), 2);
  EXPECT_EQ(run({"latency", "start", "7"}), 3);
  machine.resolution = {0, 4000000};
  EXPECT_EQ(run({"latency", "set", "linear", "6", "4"}), 2);
  for (const std::vector<std::string> &verb :
       {std::vector<std::string>{"set", "linear", "1", "1"}, {"start"}, {"stop"}, {"reset"}, {"destroy"}}) {
    std::vector<std::string> args = {"-n", "latency"};
    args.insert(args.end(), verb.begin(), verb.end());
    EXPECT_EQ(run(args), 0) << err;
    EXPECT_NE(err.find("would "), std::string::npos) << err;
    EXPECT_TRUE(written().empty()) << verb[0];
  }
}

TEST_F(AdmLatency, HistogramInNumbersAndPictures) {
  ASSERT_EQ(run({"latency", "set", "linear", "10", "5"}), 0) << err;
  put_counts("60,30,5,0,4,0,0,0,0,0,0,0,0,0,0,0,0,0,0,1,");
  const json row = data({"latency", "show", "0"})[0];
  EXPECT_EQ(row["target"], "50:06:01:60:00:00:00:01");
  EXPECT_EQ(row["ios"], 100);
  EXPECT_EQ(row["p50_ms"], 8.3);
  EXPECT_EQ(row["p95_ms"], 20);
  EXPECT_EQ(row["p99_ms"], 30);
  EXPECT_EQ(row["collecting"], false);
  EXPECT_EQ(row["histogram"].size(), 20u);
  EXPECT_EQ(row["histogram"][1], json::parse(R"({"above_ms":10,"up_to_ms":15,"ios":30,"share":0.3})"));
  EXPECT_EQ(row["histogram"][19], json::parse(R"({"above_ms":100,"up_to_ms":null,"ios":1,"share":0.01})"));

  ASSERT_EQ(run({"latency", "show", "0"}, true), 0);
  EXPECT_NE(out.find("board 0 (host3), target 50:06:01:60:00:00:00:01, not collecting\n"), std::string::npos)
      << out;
  EXPECT_NE(out.find("          10  15                  30   30.0 %  ####################\n"),
            std::string::npos)
      << out;
  EXPECT_NE(out.find("  100 I/Os, p50 8.3 ms, p95 20.0 ms, p99 30.0 ms\n"), std::string::npos) << out;
  ASSERT_EQ(run({"latency", "show"}), 0);
  EXPECT_NE(out.find("0\thost3\t50:06:01:60:00:00:00:01\tno\t100\t8.3\t20"), std::string::npos) << out;

  put_counts("0,");
  ASSERT_EQ(run({"latency"}, true), 0);
  EXPECT_NE(out.find("no I/O yet"), std::string::npos) << out;
  put_counts("many");
  ASSERT_EQ(run({"latency", "show"}), 1);
  EXPECT_NE(err.find("reading the latency statistics: generic error (1)"), std::string::npos) << err;
}

TEST_F(AdmLatency, MoreTargetsThanExpected) {
  for (uint64_t i = 0; i < 70; ++i)
    three->add_rport({.wwpn = 0x5006016100000000 + i});
  ASSERT_EQ(run({"latency", "set", "power2", "0", "1"}), 0) << err;
  EXPECT_EQ(data({"latency", "show", "host3"}).size(), 71u);
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
  EXPECT_DOUBLE_EQ(*h.percentile(4), 4);
  h.counts.fill(UINT32_MAX);
  EXPECT_EQ(h.total(), uint64_t{UINT32_MAX} * 20);
  EXPECT_NEAR(*h.percentile(50), 10, 1e-6);
}

}  // namespace
