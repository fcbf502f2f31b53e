// SPDX-License-Identifier: BSD-3-Clause
// hcxadm on the SAN side: rates, metrics, identities and sense data, and the verbs that send SCSI commands.
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <map>
#include <regex>
#include <set>

#include "designator.h"
#include "sense.h"
#include "sim_machine.h"
#include "sim_scsi.h"
#include "statistics.h"
#include "tool_fixture.h"

namespace {

sim::Machine *watched = nullptr;

class San : public ::testing::Test, public Tool {
 protected:
  void SetUp() override {
    watched = &m;
    hcxadm::ticker = {[] { return static_cast<double>(watched->clock.load()); },
                      [](double seconds) { watched->clock += static_cast<time_t>(seconds); }};
  }
  void TearDown() override {
    EXPECT_EQ(m.open_fds(), 0u);
    std::remove(file.c_str());
  }
  void put_file(size_t size) const { std::ofstream(file, std::ios::binary) << std::string(size, 'w'); }
  std::string kept() const {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  // A board, a target, its LUN 5.
  sim::Lun &add_lun(sim::LunSpec spec = {}) {
    spec.lun = 5;
    return add_board().add_rport({.wwpn = 0x5006016000000001}).add_lun(spec);
  }

  sim::Host &add_board() { return m.add_host({.number = 3, .wwpn = 0x10000000c9a1b2c3}); }
  // What LUNs were sent; start-up asks the driver for its version as well.
  std::vector<sim::Request> commands() {
    std::vector<sim::Request> all = m.requests();
    std::erase_if(all, [](const sim::Request &r) { return r.msgcode != 0; });
    return all;
  }

  sim::Machine m;
  sim::Installed installed{m};
  const std::string file = ::testing::TempDir() + "hcxadm_san_" + std::to_string(getpid());
  const std::string lun5 = "0 5006016000000001 5 ";
};

TEST_F(San, WatchShowsTheGrowthOfTheCounters) {
  sim::Host &host =
      add_board();  // host3: 2400 + 48 and 9600 + 48 frames, 307200 + 48 and 1228800 + 48 words a second
  ASSERT_EQ(run("stats --watch 2 --count 3"), 0) << err;
  EXPECT_EQ(out,
            "SECONDS\tBOARD\tHOST\tTX(frames/s)\tTX(bytes/s)\tRX(frames/s)\tRX(bytes/s)\tERRORS(1/s)\n"
            "2.0\t0\thost3\t2448.0\t1228992.0\t9648.0\t4915392.0\t0.0\n"
            "4.0\t0\thost3\t2448.0\t1228992.0\t9648.0\t4915392.0\t0.0\n"
            "6.0\t0\thost3\t2448.0\t1228992.0\t9648.0\t4915392.0\t0.0\n");
  host.set_fc("port_state", "Linkdown");
  for (const char *gone : {"tx_words", "error_frames"})
    m.vfs().remove(host.fc_dir() + "statistics/" + gone);
  const nlohmann::json rates = row("stats host3 --watch 1 --count 1");
  EXPECT_EQ(rates["tx_frames_per_second"], 0.0);
  EXPECT_TRUE(rates["tx_bytes_per_second"].is_null());
  EXPECT_TRUE(rates["lips_per_second"].is_null());  // not kept
  EXPECT_TRUE(rates["error_frames_per_second"].is_null());
  EXPECT_EQ(rates["errors_per_second"], 0.0);  // of those that are left
  EXPECT_EQ(run("stats --watch 1 -o json"), 2);
  EXPECT_EQ(run("stats --count 1"), 2);
}

TEST_F(San, ResetCountsFromNowOn) {
  sim::Host &host = add_board();
  host.set_statistic("link_failure_count", 12);
  host.set_statistic("error_frames", ~0ull);
  nlohmann::json counters = row("stats 0 --reset");
  EXPECT_EQ(counters["link_failures"], 0);
  EXPECT_TRUE(counters["lip_count"].is_null());
  // The difference of two marks of a counter that is not kept is no count.
  EXPECT_TRUE(counters["error_frames"].is_null()) << out;
  EXPECT_EQ(row("stats 0")["link_failures"], 12);  // for that command only
  m.add_host({.number = 4});
  m.vfs().remove(host.scsi_dir() + "stats");
  EXPECT_EQ(row("stats --reset", 4)["host"], "host4");  // the other board is not hidden
  EXPECT_TRUE(says("board 0 (host3): resetting the statistics: the driver offers no snapshot")) << err;
}

TEST_F(San, RatesNeedTwoReadingsThatGrow) {
  hcxadm::Sample before, after;
  before[1] = 100, after[1] = 250;
  before[2] = 100, after[2] = 99;  // went back
  before[3] = 7;                   // gone
  after[4] = 7;                    // new
  const hcxadm::Rates rates = hcxadm::rates_between(before, after, 0.5);
  EXPECT_EQ(rates[1], 300.0);
  for (size_t i : {0, 2, 3, 4})
    EXPECT_FALSE(rates[i]) << i;
  EXPECT_FALSE(hcxadm::rates_between(before, after, 0)[1]);
}

TEST_F(San, MetricsAreOpenMetrics) {
  sim::Host &host = add_board();
  host.set_fc("symbolic_name", "a \"quoted\" \\ name");
  sim::Rport &port = host.add_rport({.wwpn = 0x5006016000000001, .roles = "FCP Target, FCP Initiator"});
  port.add_lun({});
  host.add_rport({.roles = "FCP Initiator"});
  m.vfs().remove(host.fc_dir() + "statistics/rx_frames");
  host.set_statistic("invalid_crc_count", 0);
  ASSERT_EQ(run("metrics"), 0) << err;
  const std::regex sample(R"re(([a-z_]+)\{((?:[a-z_]+="(?:[^"\\\n]|\\[\\"n])*",?)*)\} ([0-9]+))re");
  const std::regex comment(R"(# (TYPE|HELP) ([a-z_]+) (.+))");
  std::istringstream lines(out);
  std::string line, family, type;
  std::map<std::string, std::string> values;
  std::set<std::string> families;
  while (std::getline(lines, line)) {
    std::smatch match;
    if (line == "# EOF") break;
    if (std::regex_match(line, match, comment)) {
      if (match[1] == "TYPE") {
        family = match[2], type = match[3];
        EXPECT_TRUE(families.insert(family).second) << "family twice: " << family;
      }
      continue;
    }
    ASSERT_TRUE(std::regex_match(line, match, sample)) << line;
    const std::string suffix = type == "counter" ? "_total" : type == "info" ? "_info" : "";
    EXPECT_EQ(match[1], family + suffix);
    EXPECT_EQ(match[1].str().rfind("hcx_fibrechannel", 0), 0u);
    EXPECT_TRUE(values.emplace(line.substr(0, line.rfind(' ')), match[3]).second) << line;
  }
  EXPECT_EQ(line, "# EOF");
  EXPECT_FALSE(std::getline(lines, line));
  const auto value = [&](const std::string &key) { return values.count(key) ? values[key] : "absent"; };
  const std::string at = "{fc_host=\"host3\"}", p = "hcx_fibrechannel_";
  EXPECT_EQ(value(p + "tx_frames_total" + at), "69632");
  EXPECT_EQ(value(p + "rx_frames_total" + at), "absent");
  EXPECT_EQ(value(p + "lip_total" + at), "absent");
  EXPECT_EQ(value(p + "invalid_crc_total" + at), "0");
  EXPECT_EQ(value(p + "nos_total" + at), "7");
  EXPECT_EQ(value(p + "speed_bits_per_second" + at), "16000000000");
  EXPECT_EQ(value(p + "remote_ports" + at), "2");
  EXPECT_EQ(value(p + "luns" + at), "1");
  EXPECT_EQ(value(p + "port_state{fc_host=\"host3\"," + p + "port_state=\"Online\"}"), "1");
  EXPECT_EQ(value(p + "port_state{fc_host=\"host3\"," + p + "port_state=\"Linkdown\"}"), "0");
  const std::string remote = "{fc_host=\"host3\",remote_port=\"rport-3:0-0\"";
  EXPECT_EQ(value(p + "remote_port_online" + remote + "}"), "1");
  EXPECT_EQ(value(p + "remote_port_luns" + remote + "}"), "1");
  EXPECT_EQ(value(p + "remote_port_luns{fc_host=\"host3\",remote_port=\"rport-3:0-1\"}"), "absent");
  EXPECT_EQ(value(p + "remote_port_role" + remote + "," + p + "remote_port_role=\"FCP Target\"}"), "1");
  EXPECT_EQ(value(p + "remote_port_role" + remote + "," + p + "remote_port_role=\"IP Port\"}"), "0");
  EXPECT_NE(out.find(R"(symbolic_name="a \"quoted\" \\ name")"), std::string::npos);
}

TEST_F(San, MapNamesEveryLunTwice) {
  sim::Host &host = add_board();
  sim::Rport &port = host.add_rport({.wwpn = 0x5006016000000001, .port_id = 0x010300, .target_id = 4});
  port.add_lun({.lun = 1, .wwn = 0x50000ee000000001});
  port.add_lun({.lun = 6});  // its first identity is its port's
  ASSERT_EQ(run("map 0"), 0) << err;
  EXPECT_EQ(out,
            "BOARD\tH:C:T:L\tDEVICE\tTARGET WWPN\tPORT ID\tLUN\tFCP LUN\tID TYPE\tLU ID\n"
            "0\t3:0:4:1\t/dev/"
            "sda\t50:06:01:60:00:00:00:01\t0x010300\t1\t0x0001000000000000\tnaa\t50000ee000000001\n"
            "0\t3:0:4:6\t/dev/sdb\t50:06:01:60:00:00:00:01\t0x010300\t6\t0x0006000000000000\t-\t-\n");
  EXPECT_EQ(run("map 1"), 3);
}

TEST_F(San, LinkOfALoop) {
  m.add_host({.number = 3, .port_id = 1, .port_type = "LPort (private loop)"}).add_rport({.port_id = 0xe8});
  const nlohmann::json link = row("link");
  EXPECT_EQ(link["topology"], "private loop");
  EXPECT_EQ(link["loop_addresses"], (std::vector<int>{1, 0xe8}));
  ASSERT_EQ(run("link"), 0);
  EXPECT_TRUE(shows("board 0 (host3): loop of 2: 1 e8\n")) << out;
}

TEST_F(San, WritingAsksFirst) {
  add_lun();
  put_file(1024);
  const std::string line = "scsi write " + lun5 + "--block 9 --file " + file;
  EXPECT_EQ(run(line), 5);
  EXPECT_EQ(run(line, "no\n"), 5);
  EXPECT_EQ(run(line + " -n"), 0);
  EXPECT_EQ(run("scsi cdb " + lun5 + "04 0 0 0 0 0"), 5);  // FORMAT UNIT
  EXPECT_TRUE(commands().empty());
  EXPECT_EQ(run(line, "y\n"), 0) << err;
  EXPECT_TRUE(
      says("overwrite 2 blocks from block 9 on of LUN 5 behind 50:06:01:60:00:00:00:01 on board 0 (host3), "
           "/dev/sda"))
      << err;
  ASSERT_EQ(commands().size(), 2u);
  EXPECT_EQ(commands()[0].header[0], '\x25');  // the size of the blocks
  EXPECT_EQ(commands()[1].header, std::string("\x2a\0\0\0\0\x9\0\0\2\0", 10));
  EXPECT_EQ(commands()[1].data_out, std::string(1024, 'w'));
  put_file(1000);
  EXPECT_EQ(run(line + " -y"), 2);
  EXPECT_EQ(run("scsi write " + lun5 + "--block 0 --file /nowhere/at/all -y"), 3);
}

TEST_F(San, AnswersInWords) {
  sim::Lun &lun = add_lun({.blocks = 4096});
  ASSERT_EQ(run("scsi capacity " + lun5), 0) << err;
  EXPECT_TRUE(shows("CAPACITY\t2.0 MiB") && shows("0000  00 00 0f ff 00 00 02 00")) << out;
  EXPECT_EQ(run("scsi inquiry " + lun5 + "--page ee"), 1);
  EXPECT_TRUE(says("check condition: illegal request, invalid field in CDB (5/24/00)")) << err;
  const nlohmann::json answer = row("scsi cdb " + lun5 + "9e 10 0 0 0 0 0 0 0 0 0 0 0 20 0 0 --in 32");
  EXPECT_EQ(commands().back().timeout, 30000u);
  EXPECT_EQ(answer["status"], "good");
  EXPECT_EQ(answer["data"].get<std::string>().substr(0, 24), "0000000000000fff00000200");
  sim::unit_of(lun).hook = [](const std::string &, const std::string &, sim::ScsiAnswer &given, int &) {
    given.status = 8;
    return true;
  };
  EXPECT_EQ(run("scsi cdb " + lun5 + "0 0 0 0 0 0"), 6);
  EXPECT_EQ(run("scsi inquiry 0 5006016000000002 5"), 3);
  EXPECT_EQ(run("scsi inquiry 0 5006016000000001 6"), 3);
  EXPECT_EQ(run("scsi cdb " + lun5 + "0 0 0"), 2);
  EXPECT_EQ(run("scsi read " + lun5 + "--blocks 65536"), 2);
}

TEST_F(San, BlocksThatDidNotMoveAreNoSuccess) {
  sim::Lun &lun = add_lun();
  sim::ScsiAnswer good, lost, reserved, busy, part;
  lost.host_status = 1;  // with a residual of 0, as if all had been transferred
  lost.residual_extra = -1024;
  reserved.status = 0x18;
  busy.status = 0x08;
  part.data = std::string(512, 'r');
  const struct {
    const char *what;
    sim::ScsiAnswer answer;
    int read, write;
    const char *said;
  } rows[] = {
      {"path", lost, 1, 1, "could not be reached (1)"},
      {"reservation", reserved, 1, 1, "reservation conflict (24)"},
      {"busy", busy, 6, 6, "busy (8)"},
      {"half", part, 1, 0, "only 512 of 1024 bytes were transferred"},
  };
  for (const auto &row : rows) {
    sim::unit_of(lun).hook = [&](const std::string &cdb, const std::string &, sim::ScsiAnswer &answer,
                                 int &) {
      if (cdb[0] == '\x25') return false;
      answer = row.answer;
      return true;
    };
    put_file(1024);
    EXPECT_EQ(run("scsi read " + lun5 + "--blocks 2 --file " + file), row.read) << row.what;
    EXPECT_TRUE(says(row.said)) << row.what << ": " << err;
    EXPECT_EQ(kept(), std::string(1024, 'w')) << row.what;
    EXPECT_EQ(run("scsi write " + lun5 + "--block 0 -y --file " + file), row.write)
        << row.what << ": " << err;
  }
  sim::unit_of(lun).hook = {};
  EXPECT_EQ(run("scsi read " + lun5 + "--blocks 2 --file " + file), 0) << err;
  EXPECT_EQ(kept().substr(0, 15), "3:0:0:5 block 0");
}

TEST_F(San, BlocksOfAnotherSizeAreLeftAlone) {
  sim::Lun &lun = add_lun();
  put_file(512);
  // 2^33 blocks of 4096 bytes: more than 32 bits count.
  sim::unit_of(lun).hook = [](const std::string &cdb, const std::string &, sim::ScsiAnswer &answer, int &) {
    const bool wide = cdb[0] == '\x9e';
    answer.data = wide ? std::string("\0\0\0\1\xff\xff\xff\xff\0\0\x10\0", 12) + std::string(20, '\0')
                       : std::string("\xff\xff\xff\xff\0\0\x10\0", 8);
    return true;
  };
  EXPECT_EQ(run("scsi read " + lun5), 4);
  EXPECT_EQ(run("scsi write " + lun5 + "--block 0 -y --file " + file), 4);
  EXPECT_TRUE(says("the LUN has blocks of 4096 bytes, not 512")) << err;
  const nlohmann::json capacity = row("scsi capacity " + lun5);
  EXPECT_EQ(capacity["blocks"], 0x200000000);
  EXPECT_EQ(capacity["bytes"], 0x200000000 * 4096);
  for (const sim::Request &request : commands())
    EXPECT_TRUE(request.header[0] == '\x25' || request.header[0] == '\x9e');
}

TEST_F(San, ALongerListOfLunsIsSaidToBeCut) {
  sim::Lun &lun = add_board().add_rport({.wwpn = 0x5006016000000001}).add_lun({.lun = 0});
  std::string data = std::string("\0\2\0\x8\0\0\0\0", 8) + std::string(8 * 16384, '\0');
  sim::unit_of(lun).hook = [&](const std::string &, const std::string &, sim::ScsiAnswer &given, int &) {
    given = {};
    given.data = data;
    return true;
  };
  expect_endings({{"scsi luns 0 5006016000000001", 1, "only the first 16384 LUNs of a longer list came"}});
  data = {};
  expect_endings({{"scsi luns 0 5006016000000001", 1, "no answer"}});
}

std::vector<uint8_t> bytes(const std::string &text) {
  return {text.begin(), text.end()};
}

TEST_F(San, SenseDataOfBothForms) {
  const struct {
    std::string sense;
    const char *text;
  } rows[] = {
      {"", ""},
      {std::string("\x70\0\6\0\0\0\0\xa\0\0\0\0\x29\0\0\0\0\0", 18),
       "unit attention, power on or reset (6/29/00)"},
      {std::string("\xf0\0\3\0\0\0\0\xa\0\0\0\0\x77\1", 14), "medium error (3/77/01)"},
      {std::string("\x72\5\x20\0\0\0\0\0", 8), "illegal request, unknown operation code (5/20/00)"},
      {std::string("\x70\0\6", 3), "sense data of unknown form"},
      {std::string(18, '\x7f'), "sense data of unknown form"},
  };
  for (const auto &row : rows)
    EXPECT_EQ(hcxadm::sense_text(bytes(row.sense)), row.text);
}

TEST_F(San, DesignatorsAreNotTrusted) {
  const auto one = [](const std::string &text) {
    const auto found = hcxadm::designator_of(reinterpret_cast<const uint8_t *>(text.data()), text.size());
    return found ? found->association + " " + found->type + " " + found->value : "none";
  };
  EXPECT_EQ(one(std::string("\1\3\0\2\x50\x01", 6)), "lun naa 5001");
  EXPECT_EQ(one(std::string("\2\x11\0\4ab  ", 8)), "port t10 ab");
  EXPECT_EQ(one(std::string("\3\x28\0\4ab\0\0", 8)), "device name ab");
  EXPECT_EQ(one(std::string("\1\3\0\3\x50\x01", 6)), "none");  // longer than what there is
  EXPECT_EQ(one(std::string("\1\3\0\0", 4)), "none");
  EXPECT_EQ(one("\1\3"), "none");
  const std::string page("\0\x83\0\x20\1\3\0\1\x50\1\x14\0\4\0\0\0\1\1\3\0\xff", 21);
  for (size_t size = 0; size <= page.size(); ++size) {
    const std::vector<uint8_t> part =
        bytes(page.substr(0, size));  // on the heap, so that reading past the end shows
    EXPECT_EQ(hcxadm::designators_of(part.data(), part.size()).size(), size >= 17  ? 2u
                                                                       : size >= 9 ? 1u
                                                                                   : 0u)
        << size;
  }
}

}  // namespace
