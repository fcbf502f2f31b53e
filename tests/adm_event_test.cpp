// SPDX-License-Identifier: BSD-3-Clause
// "hcxadm event" over a simulated machine to which things happen while it listens.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <thread>

#include "hcx_ioctl_event.h"
#include "hcxadm.h"
#include "sim_machine.h"

namespace {

using nlohmann::json;

class AdmEvent : public testing::Test {
 protected:
  void SetUp() override {
    port = &machine.add_host({.number = 3, .port_id = 0x010200});
    virtual_port = &port->add_vport({.wwpn = 0x20000000000000aa, .host_number = 20});
    machine.add_host({.number = 4, .temp_sensor = false});
  }

  // Runs a command; `happens` once it has made so many registrations.
  int run(const std::string &line, uint32_t registrations = 0, const std::function<void()> &happens = {}) {
    out.str("");
    err.str("");
    std::thread world;
    if (happens)
      world = std::thread([&] {
        for (int i = 0; i < 20000 && registered() < registrations; ++i)
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
        happens();
      });
    std::istringstream words(line), in;
    const int status = hcxadm::run({std::istream_iterator<std::string>(words), {}}, in, out, err);
    if (world.joinable()) world.join();
    EXPECT_EQ(machine.netlink().sockets(), 0U) << line;
    EXPECT_EQ(machine.processes().count(), 0U) << line;
    EXPECT_EQ(registered(), 0U) << line;
    return status;
  }
  static uint32_t registered() {
    const hcx::EventLock lock;
    return hcx_RegEventCnt[0] + hcx_RegEventCnt[1];
  }
  std::string without_times() const {
    return std::regex_replace(out.str(), std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)"), "NOW");
  }

  sim::Machine machine;
  sim::Installed installed{machine};
  sim::Host *port = nullptr, *virtual_port = nullptr;
  std::ostringstream out, err;
};

TEST_F(AdmEvent, FollowShowsEachKind) {
  // Five kinds on the board with a sensor, four on the other.
  EXPECT_EQ(run("event --follow --count 6", 9,
                [&] {
                  machine.events().link_down(*port);
                  machine.events().link_up(*port);
                  machine.events().rscn(*port, {0x010500});
                  machine.events().rscn(*virtual_port, {0x010600});
                  machine.events().dump(*machine.host(4));
                  machine.events().temperature(*port, 2, 71);
                }),
            0);
  // Boards and kinds have lists of their own, so only the order within each is certain.
  std::istringstream lines(without_times());
  std::vector<std::string> rows;
  for (std::string row; std::getline(lines, row);)
    rows.push_back(row);
  ASSERT_EQ(rows.size(), 7U) << err.str();
  EXPECT_EQ(rows[0], "TIME\tBOARD\tKIND\tDETAIL");
  std::sort(rows.begin(), rows.end());
  EXPECT_EQ(rows,
            (std::vector<std::string>{"NOW\t0\tlink-down\t-", "NOW\t0\tlink-up\t-",
                                      "NOW\t0\trscn\t6104000800010500", "NOW\t0\ttemperature\tcode 2, 71 C",
                                      "NOW\t0\tvport-rscn\t20:00:00:00:00:00:00:aa, 6104000800010600",
                                      "NOW\t1\tdump\t-", "TIME\tBOARD\tKIND\tDETAIL"}));
}

TEST_F(AdmEvent, EachLineIsADocument) {
  EXPECT_EQ(run("-o json event --follow --board host3 --kind rscn,dump --count 2", 2,
                [&] {
                  machine.events().link_up(*port);
                  machine.events().dump(*port);
                  machine.events().dump(*port);
                }),
            0);
  std::istringstream lines(out.str());
  int count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    const json document = json::parse(line);
    EXPECT_EQ(document["schema"]["name"], "hcxadm.event");
    EXPECT_EQ(document["errors"], json::array());
    EXPECT_EQ(document["data"][0]["kind"], "dump");
    EXPECT_EQ(document["data"][0]["payload"], nullptr);
  }
  EXPECT_EQ(count, 2);
}

TEST_F(AdmEvent, CtRequestsAreShown) {
  EXPECT_EQ(run("event --follow --board 0 --ct 0xfa --count 1", 1,
                [&] { machine.events().ct(*port, 0xfa, "\x01\x02"); }),
            0);
  EXPECT_EQ(without_times(), "TIME\tBOARD\tKIND\tDETAIL\nNOW\t0\tct\ttype 0xfa, tag 0x100, 0102\n");
}

TEST_F(AdmEvent, HistoryShowsTheRing) {
  std::thread world([&] {
    while (machine.netlink().connected() == 0)
      std::this_thread::yield();
    machine.events().link_up(*port);
    machine.events().rscn(*port, {0x010500});
  });
  EXPECT_EQ(run("event history --wait 1"), 0);
  world.join();
  EXPECT_EQ(out.str(),
            "BOARD\tKIND\tFC "
            "ADDRESS\tPAGE\n0\tlink-up\t0x010200\t-\n0\trscn\t0x010200\t0x10500\n0\tvendor\t-\t-\n");
}

TEST_F(AdmEvent, MistakesAreTold) {
  const struct {
    const char *line;
    int status;
    const char *text;
  } rows[] = {
      {"event", 2, "event --follow"},
      {"event --follow --kind smoke", 2, "smoke"},
      {"event --follow --ct 0x100", 2, "--ct"},
      {"event --follow --board 7", 3, "7"},
      {"event history --wait -1", 2, "wait"},
      {"event --follow --board 1 --kind temperature", 1, "registering for temperature events"},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(run(row.line), row.status) << row.line;
    EXPECT_NE(err.str().find(row.text), std::string::npos) << row.line << ": " << err.str();
    EXPECT_EQ(out.str(), "") << row.line;
  }
  // As JSON the failure is one document of one line.
  EXPECT_EQ(run("-o json event --follow --board 1 --kind temperature"), 1);
  EXPECT_EQ(json::parse(out.str())["errors"].size(), 1U);
}

}  // namespace
