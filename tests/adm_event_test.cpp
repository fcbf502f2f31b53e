// SPDX-License-Identifier: BSD-3-Clause
// "hcxadm event" over a simulated machine to which things happen while it listens.
#include <algorithm>
#include <chrono>
#include <functional>
#include <regex>
#include <thread>

#include "hcx_ioctl_event.h"
#include "sim_machine.h"
#include "tool_fixture.h"

namespace {

using nlohmann::json;

class AdmEvent : public testing::Test, public Tool {
 protected:
  void SetUp() override {
    port = &machine.add_host({.number = 3, .port_id = 0x010200});
    virtual_port = &port->add_vport({.wwpn = 0x20000000000000aa, .host_number = 20});
    machine.add_host({.number = 4, .temp_sensor = false});
  }

  // Runs a command; `happens` once it has made so many registrations.
  int listen(const std::string &line, uint32_t registrations = 0, const std::function<void()> &happens = {}) {
    std::thread world;
    if (happens)
      world = std::thread([&] {
        for (int i = 0; i < 20000 && registered() < registrations; ++i)
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
        happens();
      });
    const int status = run(line);
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
  // Lines, without the times; the first stays the first.
  std::vector<std::string> rows() const {
    std::istringstream lines(
        std::regex_replace(out, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)"), "NOW"));
    std::vector<std::string> all;
    for (std::string row; std::getline(lines, row);)
      all.push_back(row);
    return all;
  }

  sim::Machine machine;
  sim::Installed installed{machine};
  sim::Host *port = nullptr, *virtual_port = nullptr;
};

TEST_F(AdmEvent, FollowShowsEachKind) {
  // Five kinds on the board with a sensor, four on the other.
  EXPECT_EQ(listen("event --follow --count 6", 9,
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
  std::vector<std::string> seen = rows();
  ASSERT_EQ(seen.size(), 7U) << err;
  EXPECT_EQ(seen[0], "TIME\tBOARD\tKIND\tDETAIL");
  std::sort(seen.begin() + 1, seen.end());
  EXPECT_EQ(std::vector<std::string>(seen.begin() + 1, seen.end()),
            (std::vector<std::string>{"NOW\t0\tlink-down\t-", "NOW\t0\tlink-up\t-",
                                      "NOW\t0\trscn\t6104000800010500", "NOW\t0\ttemperature\tcode 2, 71 C",
                                      "NOW\t0\tvport-rscn\t20:00:00:00:00:00:00:aa, 6104000800010600",
                                      "NOW\t1\tdump\t-"}));
}

TEST_F(AdmEvent, EachLineIsADocument) {
  EXPECT_EQ(listen("-o json event --follow --board host3 --kind rscn,dump --count 2", 2,
                   [&] {
                     machine.events().link_up(*port);
                     machine.events().dump(*port);
                     machine.events().dump(*port);
                   }),
            0);
  ASSERT_EQ(rows().size(), 2U);
  for (const std::string &line : rows()) {
    const json document = json::parse(line);
    EXPECT_EQ(document["schema"]["name"], "hcxadm.event");
    EXPECT_EQ(document["errors"], json::array());
    EXPECT_EQ(document["data"][0]["kind"], "dump");
    EXPECT_EQ(document["data"][0]["payload"], nullptr);
  }
}

TEST_F(AdmEvent, CtRequestsAreShown) {
  EXPECT_EQ(listen("event --follow --board 0 --ct 0xfa --count 1", 1,
                   [&] { machine.events().ct(*port, 0xfa, "\x01\x02"); }),
            0);
  EXPECT_EQ(rows().back(), "NOW\t0\tct\ttype 0xfa, tag 0x100, 0102");
}

TEST_F(AdmEvent, HistoryShowsTheRing) {
  std::thread world([&] {
    while (machine.netlink().connected() == 0)
      std::this_thread::yield();
    machine.events().link_up(*port);
    machine.events().rscn(*port, {0x010500});
  });
  EXPECT_EQ(listen("event history --wait 1"), 0);
  world.join();
  EXPECT_EQ(out,
            "BOARD\tKIND\tFC "
            "ADDRESS\tPAGE\n0\tlink-up\t0x010200\t-\n0\trscn\t0x010200\t0x10500\n0\tvendor\t-\t-\n");
}

TEST_F(AdmEvent, MistakesAreTold) {
  expect_endings({{"event", 2, "event --follow"},
                  {"event --follow --kind smoke", 2, "smoke"},
                  {"event --follow --ct 0x100", 2, "--ct"},
                  {"event --follow --board 7", 3, "7"},
                  {"event history --wait -1", 2, "wait"},
                  {"event --follow --board 1 --kind temperature", 1, "registering for temperature events"}});
  // As JSON the failure is one document of one line.
  EXPECT_EQ(listen("-o json event --follow --board 1 --kind temperature"), 1);
  EXPECT_EQ(json::parse(out)["errors"].size(), 1U);
}

}  // namespace
