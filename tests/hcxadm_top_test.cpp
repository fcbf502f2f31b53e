// SPDX-License-Identifier: BSD-3-Clause
// "top": rates and times from snapshots, frames as text of a fixed size, frame after frame on a pipe.
#include "sim_machine.h"
#include "tool_fixture.h"
#include "top_view.h"

namespace {

using hcxadm::BoardSight;
using hcxadm::Sample;
using hcxadm::TopFrame;
using hcxadm::TopModel;

BoardSight sight(double at, uint64_t words, std::optional<uint64_t> errors, const char *state = "Online") {
  BoardSight s;
  s.board.number = 1;
  s.board.host = 3;
  s.board.wwpn = {{0x10, 0, 0, 0, 0xc9, 0xa1, 0xb2, 0xc3}};
  s.state = state;
  s.speed = "16 Gbit";
  s.link = "Link Up";
  s.at = at;
  Sample sample;
  sample[hcxadm::tx_words_counter] = words;
  sample[hcxadm::rx_words_counter] = 2 * words;
  sample[hcxadm::tx_frames_counter] = words / 512;
  sample[9] = errors;
  s.sample = sample;
  hcxadm::Port port;
  port.wwpn = {{0x50, 6, 1, 0x60, 0, 0, 0, 1}};
  port.port_id = 0x10300;
  port.target_id = 0;
  port.roles = FC_RPORT_ROLE_FCP_TARGET;
  s.ports = {{port, "Online"}};
  return s;
}

TEST(TopModel, RatesComeFromTwoSnapshotsAndAreAbsentWhereTheyWouldLie) {
  TopModel model;
  const auto frame = [&](BoardSight s, const char *time = "T") { return model.frame(time, {std::move(s)}); };
  TopFrame f = frame(sight(100, 1000, 0));
  EXPECT_FALSE(f.seconds || f.boards[0].tx_bytes || f.boards[0].errors);  // nothing before it
  f = frame(sight(104, 11000, 2));
  EXPECT_EQ(f.seconds, 4.0);
  EXPECT_EQ(f.boards[0].tx_bytes, 10000.0);
  EXPECT_EQ(f.boards[0].rx_bytes, 20000.0);
  EXPECT_EQ(f.boards[0].errors, 0.5);
  EXPECT_FALSE(f.boards[0].rx_frames);  // not counted by this adapter
  f = frame(sight(106, 500, {}));       // counters began anew, errors are no longer counted
  EXPECT_FALSE(f.boards[0].tx_bytes || f.boards[0].errors);
  f = frame(sight(108, 1000, 9));
  EXPECT_EQ(f.boards[0].tx_bytes, 1000.0);
  EXPECT_FALSE(f.boards[0].errors);  // counted again, but since when
  BoardSight unread = sight(110, 0, 0);
  unread.sample.reset();
  EXPECT_FALSE(frame(unread).boards[0].tx_bytes);
  EXPECT_FALSE(frame(sight(112, 9000, 9)).boards[0].tx_bytes);  // not spread over what was missed
  EXPECT_EQ(frame(sight(113, 10000, 9)).boards[0].tx_bytes, 4000.0);
  EXPECT_FALSE(frame(sight(113, 20000, 9)).boards[0].tx_bytes);  // no time went by
}

TEST(TopModel, AStateHasTheTimeAtWhichItWasFirstSeen) {
  TopModel model;
  EXPECT_EQ(model.frame("t1", {sight(1, 0, 0)}).boards[0].since, "");
  TopFrame f = model.frame("t2", {sight(2, 0, 0, "Linkdown")});
  EXPECT_EQ(f.boards[0].since, "t2");
  EXPECT_EQ(f.ports[0].since, "");
  BoardSight more = sight(3, 0, 0, "Linkdown");
  more.ports[0].state = "Blocked";
  more.ports.push_back(more.ports[0]);
  more.ports[1].port.wwpn.wwn[7] = 2;
  more.ports[1].state = "Online";
  f = model.frame("t3", {more});
  EXPECT_EQ(f.boards[0].since, "t2");
  EXPECT_EQ(f.ports[0].since, "t3");  // changed
  EXPECT_EQ(f.ports[1].since, "t3");  // new
  EXPECT_EQ(model.frame("t4", {sight(4, 0, 0)}).boards[0].since, "t4");
  for (size_t i = 0; i < 2 * TopModel::kept_events; ++i)
    model.happened({.board = static_cast<int>(i), .kind = "dump"});
  f = model.frame("t5", {});
  ASSERT_EQ(f.events.size(), TopModel::kept_events);
  EXPECT_EQ(f.events.back().board, 2 * static_cast<int>(TopModel::kept_events) - 1);
}

std::string text_of(const TopFrame &frame, const hcxadm::TopView &view, hcxadm::ScreenSize size) {
  std::string text;
  for (const hcxadm::ScreenLine &line : lines_of(frame, view, size))
    text.append(line.paint == hcxadm::Paint::bad ? "!" : "").append(line.text).append("\n");
  return text;
}

TEST(TopView, AFrameIsCutToItsScreen) {
  TopModel model;
  model.frame("2026-11-21T10:00:00.000Z", {sight(100, 0, 0)});
  BoardSight now = sight(102, 61728000, 3);
  now.ports.push_back(now.ports[0]);
  now.ports[1].port.wwpn.wwn[7] = 2;
  now.ports[1].state = "Blocked";
  now.ports[1].port.luns.resize(3);
  now.ports.push_back(now.ports[0]);
  now.ports[2].port = {};
  now.ports[2].port.roles = FC_FPORT_ROLE_DIRSRVR;
  model.happened({.time = "2026-11-21T10:00:01.500Z", .board = 1, .kind = "link-down"});
  model.happened(
      {.time = "2026-11-21T10:00:01.900Z", .board = 1, .kind = "rscn", .payload = "\xc3\xa4\x1b[2J"});
  const TopFrame frame = model.frame("2026-11-21T10:00:02.000Z", {now});
  EXPECT_EQ(
      text_of(frame, {}, {}),
      "hcxadm top  2026-11-21T10:00:02.000Z  boards 1, down 0  remote ports 3, down 1  LUNs 3  events 2\n"
      "\n"
      "BOARD  HOST   STATE   SPEED    TX B/s  RX B/s  TX fr/s  RX fr/s  ERR/s  PORTS  SINCE  "
      "WWPN                     LINK\n"
      "!    1  host3  Online  16 Gbit    123M    247M      60k        -    1.5      3  -      "
      "10:00:00:00:c9:a1:b2:c3  Link Up\n"
      "\n"
      "BOARD  REMOTE PORT              PORT ID   ROLE    STATE    LUNS  SINCE\n"
      "!    1  50:06:01:60:00:00:00:02  0x010300  target  Blocked     3  10:00:02\n"
      "    1  50:06:01:60:00:00:00:01  0x010300  target  Online      0  -\n"
      "    1  -                        0x000000  fabric  Online      0  10:00:02\n"
      "\n"
      "EVENT     BOARD  KIND       DETAIL\n"
      "10:00:01      1  rscn       \xc3\xa4?[2J\n"
      "10:00:01      1  link-down  -\n");
  EXPECT_EQ(text_of(frame, {}, {30, 12}),
            "hcxadm top  2026-11-21T10:00:0\n"
            "\n"
            "BOARD  HOST   STATE   SPEED   \n"
            "!    1  host3  Online  16 Gbit \n"
            "\n"
            "BOARD  REMOTE PORT            \n"
            "!    1  50:06:01:60:00:00:00:02\n"
            "  and 2 more\n"
            "\n"
            "EVENT     BOARD  KIND       DE\n"
            "10:00:01      1  rscn       \xc3\xa4?\n"
            "10:00:01      1  link-down  -\n");
  EXPECT_EQ(hcxadm::cut("\xc3\xa4\xc3\xb6", 1), "\xc3\xa4");
  for (size_t rows = 1; rows < 20; ++rows)
    EXPECT_LE(lines_of(frame, {}, {80, rows}).size(), rows);
  EXPECT_EQ(text_of(frame, {.ports = false, .events = false}, {80, 24}).find("EVENT"), std::string::npos);
}

double passed = 0;
sim::Machine *watched = nullptr;

class Top : public ::testing::Test, public Tool {
 protected:
  void SetUp() override {
    watched = &m;
    hcxadm::ticker = {[] { return passed; },
                      [](double seconds) {
                        passed += seconds;
                        watched->clock = 1700000000 + static_cast<time_t>(passed + 0.01);
                      }};
    m.add_host({.number = 3, .wwpn = 0x10000000c9a1b2c3}).add_rport({.wwpn = 0x5006016000000001});
  }
  sim::Machine m;
  sim::Installed installed{m};
};

TEST_F(Top, PrintsFramesWithRatesWithoutATerminal) {
  ASSERT_EQ(run("top -d 2 -n 2"), 0) << err;
  EXPECT_EQ(out.find('\033'), std::string::npos);
  const std::string board =
      "    0  host3  Online  16 Gbit   1229k   4915k     2448     9648    0.0      1  -  ";
  const size_t first = out.find(board);
  ASSERT_NE(first, std::string::npos) << out;
  EXPECT_NE(out.find(board, first + 1), std::string::npos) << out;
  EXPECT_TRUE(shows("\n\nhcxadm top  "));
  ASSERT_EQ(run("-o json top --once"), 0) << err;
  const nlohmann::json frame = nlohmann::json::parse(out)["data"][0];
  EXPECT_EQ(frame["boards"][0]["rx_bytes_per_second"], 4915392.0);
  EXPECT_EQ(frame["ports"][0]["wwpn"], "50:06:01:60:00:00:00:01");
  EXPECT_EQ(run("top --interval 0"), 2);
  EXPECT_EQ(run("top 7"), 3);
}

}  // namespace
