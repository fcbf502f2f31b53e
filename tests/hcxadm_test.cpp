// SPDX-License-Identifier: BSD-3-Clause
// The command-line tool as a user meets it: command lines run in process over simulated machines. Looks at standard
// output, standard error and the exit status only.
#include <unistd.h>

#include "sim_machine.h"
#include "simulate.h"
#include "tool_fixture.h"

namespace {

using nlohmann::json;

constexpr char switch_file[] = "/tmp/libhcx_syslog_enable";

class Hcxadm : public testing::Test, public Tool {
 protected:
  void TearDown() override {
    EXPECT_EQ(machine.open_fds(), 0U);
    EXPECT_EQ(machine.held_locks(), 0U);
  }
  sim::Machine machine;
  sim::Installed installed{machine};
};

class HcxadmSan : public Hcxadm {
 protected:
  void SetUp() override { sim::default_san(machine); }
};

// ---- what a user gets to read ----

TEST_F(Hcxadm, TablesAreAlignedOnATerminalAndTabSeparatedElsewhere) {
  sim::Host &host = machine.add_host({.number = 7, .wwpn = 0x10000000c9a1b2c3, .wwnn = 0x20000000c9a1b2c3});
  sim::Rport &tape =
      host.add_rport({.wwpn = 0x500104f000aa0001, .wwnn = 0x500104f000aa0000, .port_id = 0x20400});
  tape.add_lun({.lun = 0, .kind = sim::LunKind::tape});
  tape.add_lun({.lun = 16389, .kind = sim::LunKind::changer, .bound = false});
  tape.add_lun({.lun = 3});
  run("port");
  EXPECT_EQ(
      out,
      "BOARD\tHOST\tPORT\tWWPN\tWWNN\tPORT ID\tROLES\tSTATE\tTARGET\tLUNS\n"
      "0\thost7\t0\t50:01:04:f0:00:aa:00:01\t50:01:04:f0:00:aa:00:00\t0x020400\ttarget\tOnline\t0\t3\n");
  const std::string head = "BOARD  H:C:T:L      TARGET WWPN                LUN  TYPE  DEVICE    GENERIC";
  const std::string rows =
      "\n    0  7:0:0:0      50:01:04:f0:00:aa:00:01      0  tape  /dev/st0  /dev/sg0\n"
      "    0  7:0:0:3      50:01:04:f0:00:aa:00:01      3  disk  /dev/sda  /dev/sg2\n"
      "    0  7:0:0:16389  50:01:04:f0:00:aa:00:01  16389  -     -         /dev/sg1\n";
  run("lun -o table");
  EXPECT_EQ(out, head + rows);
  terminal.out = true;
  run("lun");
  EXPECT_EQ(out, "\033[1m" + head + "\033[0m" + rows);
}

TEST_F(HcxadmSan, ListsBoardsInOrderOfTheirHostNumbers) {
  const json boards = data("list");
  ASSERT_EQ(boards.size(), 4U);
  const struct {
    const char *host, *wwpn, *protocol;
    int sli, luns;
  } expected[] = {{"host2", "10:00:00:90:fa:94:2b:02", "fc", 4, 16},
                  {"host3", "10:00:00:90:fa:94:2b:03", "fc", 4, 9},
                  {"host10", "10:00:00:00:c9:a1:b2:c0", "fc", 3, 8},
                  {"host11", "10:00:00:00:c9:a1:b2:c1", "fcoe", 4, 8}};
  for (int i = 0; i < 4; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(boards[i]["board"], i);
    EXPECT_EQ(boards[i]["host"], expected[i].host);
    EXPECT_EQ(boards[i]["wwpn"], expected[i].wwpn);
    EXPECT_EQ(boards[i]["protocol"], expected[i].protocol);
    EXPECT_EQ(boards[i]["sli_mode"], expected[i].sli);
    EXPECT_EQ(boards[i]["luns"], expected[i].luns);
  }
  EXPECT_EQ(boards[0]["pci_address"], "0000:04:00.0");
  EXPECT_EQ(boards[0]["fabric_name"], "10:00:00:05:1e:0a:10:01");
}

TEST_F(Hcxadm, MissingAttributesAreAbsentAndNotZero) {
  sim::Host &host = machine.add_host({.number = 1});
  machine.vfs().remove(host.scsi_dir() + "modelname");
  machine.vfs().remove(host.fc_dir() + "maxframe_size");
  host.set_fc("speed", "Not Negotiated");
  host.set_fc("fabric_name", "0xffffffffffffffff");
  const json board = row("show 0");
  for (const char *key : {"model", "max_frame_size", "speed_gbit", "fabric_name"})
    EXPECT_TRUE(board[key].is_null()) << key;
  run("show 0");
  EXPECT_TRUE(shows("MODEL\t-\n"));
}

TEST_F(Hcxadm, TextsOfTheFabricReachNeitherTerminalNorJsonUnchecked) {
  machine.add_host({.number = 1}).set_fc("symbolic_name", "a\033[2Jb\xff\tc");
  EXPECT_EQ(row("show 0")["symbolic_name"], "a\033[2Jb\xef\xbf\xbd\tc");
  run("show 0");
  EXPECT_TRUE(shows("a?[2Jb\xff?c\n"));
}

// ---- JSON ----

TEST_F(Hcxadm, FailuresKeepTheEnvelopeAndSayThemselvesOnStandardErrorToo) {
  machine.add_host();
  const struct {
    const char *line, *schema;
    int status;
  } cases[] = {{"-o json show 9", "hcxadm.show", 3},
               {"lun --output json --target 5001438000000000", "hcxadm.lun.list", 3},
               {"-ojson bogus", "hcxadm", 2},
               {"log set nonsense --output=json", "hcxadm.log", 2}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.line);
    EXPECT_EQ(run(c.line), c.status);
    const json document = json::parse(out);
    EXPECT_EQ(document["schema"]["name"], c.schema);
    EXPECT_EQ(document["data"], json::array());
    ASSERT_EQ(document["errors"].size(), 1U);
    EXPECT_EQ(document["errors"][0]["status"], c.status);
    EXPECT_TRUE(says(document["errors"][0]["text"]));
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1);
  }
}

// ---- command lines as a new user types them ----

TEST_F(HcxadmSan, CommandLinesThatCannotWorkSayWhy) {
  const Ending cases[] = {
      {"", 2, "no command given; see \"hcxadm --help\""},
      {"lst", 2, "unknown command \"lst\" (did you mean \"list\"?)"},
      {"show", 2, "show: BOARD is required; see \"hcxadm show --help\""},
      {"show 0 1", 2, "show: \"1\" is one argument too many"},
      {"show 4", 3, "show: no board \"4\"; there are boards 0 to 3, see \"hcxadm list\""},
      {"show -1", 2, "\"-1\" does not name a board"},
      {"show host0", 3, "no board \"host0\""},  // another driver's
      {"show bananas", 2, "\"bananas\" does not name a board; give a board number, hostN or a WWPN"},
      {"show 10:00:00:90:fa:94:2b", 2, "does not name a board"},
      {"port 0 list", 2, "port list: \"0\" is one argument too many"},
      {"lun --target 12", 2, "\"12\" is no WWPN"},
      {"list --verbose", 2, "list: unknown option \"--verbose\""},
      {"list -o yaml", 2, "there is no output form \"yaml\", only table and json"},
      {"list --output", 2, "--output"},
      {"log sett trace", 2, "log: unknown verb \"sett\" (did you mean \"set\"?)"},
      {"log set", 2, "CATEGORY is required"},
      {"log set trace,bogus", 2, "no log category \"bogus\""},
      {"log set 0x40000", 2, "no log category \"0x40000\""},
  };
  for (const Ending &c : cases) {
    expect_endings({c});
    EXPECT_EQ(out, "") << c.line;
    EXPECT_EQ(err.find("hcxadm: "), 0U) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
  }
}

TEST_F(HcxadmSan, ABoardMayBeNamedInManyWays) {
  for (const char *name : {"2", "host10", "10000000c9a1b2c0", "0x10000000c9a1b2c0", "10:00:00:00:c9:a1:b2:c0",
                           "10:00:00:00:C9:A1:B2:C0"}) {
    EXPECT_EQ(run_words({"show", name}), 0) << name << err;
    EXPECT_EQ(out.find("BOARD\t2\nHOST\thost10\n"), 0U) << name;
  }
  for (const auto &[one, other] : {std::pair{"port host10", "port list 2"}, {"help port", "port --help"}}) {
    run(one);
    const std::string text = out;
    run(other);
    EXPECT_EQ(text, out);
  }
}

TEST_F(HcxadmSan, LunsOfOneTargetAcrossBoards) {
  const json luns = data("lun --target 50:06:01:61:3e:a0:10:01");
  ASSERT_EQ(luns.size(), 8U);
  EXPECT_EQ(luns[7]["lun"], 0x4005);
  EXPECT_EQ(luns[7]["scsi_address"], "2:0:1:16389");
  EXPECT_EQ(run("lun 1 --target 500601613ea01001"), 3);
}

// ---- machines that do not answer ----

TEST_F(Hcxadm, AMachineWithoutAdaptersIsNoFailure) {
  machine.add_host({.number = 0, .foreign = true});
  EXPECT_EQ(run("list"), 0);
  EXPECT_EQ(out, "");
  EXPECT_EQ(err, "hcxadm: list: there are no adapters of the vosk driver on this machine\n");
  for (const char *line : {"list", "port", "lun"})
    EXPECT_EQ(data(line), json::array());
  EXPECT_EQ(run("show 0"), 3);
  run("version");
  EXPECT_EQ(out, "COMPONENT\tVERSION\nhcxadm\t4.2.17\nlibhcx\t4.2.17\n");
  EXPECT_EQ(row("caps")["driver_interface"], nullptr);
}

TEST_F(HcxadmSan, ADriverThatDoesNotAnswerIsNamedAsTheReason) {
  machine.fail({.verb = sim::Verb::open, .path = "/dev/bsg/fc_host", .persistent = true, .error = EACCES});
  for (const char *line : {"list", "show 0", "port", "lun", "caps"}) {
    expect_endings({{line, geteuid() == 0 ? 1 : 5,
                     "starting the library on 4 adapter ports: the driver did not answer"}});
    EXPECT_EQ(out, "");
  }
  machine.clear_faults();
  EXPECT_EQ(run("list"), 0);
}

TEST_F(Hcxadm, CapabilitiesFollowAnOldDriver) {
  machine.driver_version(1, 0);
  machine.add_host();
  const json caps = row("caps --off");
  EXPECT_EQ(caps["driver_interface"], "1.0");
  EXPECT_EQ(caps["library_interface"], "1.0");
  std::vector<std::string> off;
  for (const json &row : caps["facilities"])
    off.push_back(row["facility"]);
  EXPECT_EQ(off, (std::vector<std::string>{"/sys/class/scsi_host/vosk_enable_fcp_priority",
                                           "/sys/class/scsi_host/protocol", "800000ff:0000000c",
                                           "800000ff:0000000d"}));
  const json all = row("caps")["facilities"];
  ASSERT_EQ(all.size(), 71U + 4 + 15 + 14 + 2);
  EXPECT_EQ(all[71 + 4 + 5],
            json::parse(R"({"table": "netlink", "index": 5, "facility": "ffff:0002", "usable": true,
      "min": "1.0", "max": "9.9", "help": "Netlink vendor unique RSCN event"})"));
}

TEST_F(Hcxadm, OutputThatCannotBeWrittenIsAFailure) {
  std::istringstream in;
  std::ostringstream told;
  std::ostream full(nullptr);
  EXPECT_EQ(hcxadm::run({"version", "-o", "json"}, in, full, told), 1);
  EXPECT_NE(told.str().find("writing the output failed"), std::string::npos);
}

// ---- logging ----

TEST_F(HcxadmSan, TheLogMaskOutlivesOtherCommands) {
  EXPECT_EQ(run("log set trace,error mbox-data"), 0);
  EXPECT_EQ(run("list"), 0);
  machine.fail({.verb = sim::Verb::ioctl, .path = "/dev/bsg", .persistent = true});
  EXPECT_NE(run("list"), 0);
  std::vector<std::string> on;
  for (const json &category : data("log"))
    if (category["on"]) on.push_back(category["category"]);
  EXPECT_EQ(on, (std::vector<std::string>{"trace", "error", "mbox-data"}));
  EXPECT_TRUE(machine.logged("HCX_InitDiagEnv()"));
  EXPECT_EQ(run("log off"), 0);
  run("log set 0x4001 --dry-run");
  EXPECT_EQ(err, "hcxadm: log set: would set the log mask to 0x4001\n");
  run("log");
  EXPECT_FALSE(shows("\tyes\t"));
}

TEST_F(Hcxadm, ASwitchFileThatCannotBeWrittenIsRefused) {
  machine.fail({.verb = sim::Verb::open, .path = switch_file, .persistent = true, .error = EACCES});
  expect_endings({{"log set all", 5, "could not be written"}});
}

// ---- the parts that all verbs share ----

TEST(HcxadmStatus, NumbersHaveNamesAndExitStatusesByFamily) {
  using hcxadm::Family;
  const struct {
    Family family;
    int64_t code;
    const char *text;
    int exit;
  } cases[] = {
      {Family::hba, 3, "x: invalid board (3)", 3},
      {Family::vendor, 77, "x: unknown status (77)", 1},
      {Family::mailbox, 253, "x: busy (253)", 6},
      {Family::fcsp, 0x8004, "x: the password does not match (32772)", 5},
      {Family::sd, 13, "x: bucket not set (13)", 5},
      {Family::sys, -EBUSY, "x: Device or resource busy (-16)", 6},
  };
  for (const auto &c : cases) {
    hcxadm::Failure failure = hcxadm::call_failure(c.family, c.code, "x", "");
    EXPECT_STREQ(failure.what(), c.text);
    EXPECT_EQ(failure.problem().status, c.exit);
  }
  EXPECT_STREQ(hcxadm::call_failure(Family::hba, 12, "reading", "board 0 (host3)", "load it").what(),
               "board 0 (host3): reading: unavailable (12); load it");
}

TEST(HcxadmValues, SizesAreReadByPeople) {
  const struct {
    uint64_t bytes;
    const char *text;
  } cases[] = {{0, "0 B"},        {1023, "1023 B"},          {1024, "1.0 KiB"},
               {1536, "1.5 KiB"}, {300ULL << 20, "300 MiB"}, {UINT64_MAX, "16.0 EiB"}};
  for (const auto &c : cases)
    EXPECT_EQ(hcxadm::human_size(c.bytes), c.text);
}

TEST_F(Hcxadm, SimulateBecomesACommandOfHcxsim) {
  const auto here = [](const std::string &path) { return path == "/opt/bin/hcxsim"; };
  const auto in_path = [](const std::string &path) { return path == "/usr/bin/hcxsim"; };
  const auto command = [](const std::string &line,
                          const std::function<bool(const std::string &)> &exists) -> std::string {
    try {
      auto result = hcxadm::simulate_command(words(line), "/opt/bin/hcxadm", exists, "/bin:/usr/bin");
      if (!result) return "none";
      std::string text;
      for (const std::string &word : *result)
        text += (text.empty() ? "" : " ") + word;
      return text;
    } catch (const hcxadm::Failure &failure) {
      return std::to_string(failure.problem().status);
    }
  };
  EXPECT_EQ(command("list", here), "none");
  EXPECT_EQ(command("--simulate list -o json", here), "/opt/bin/hcxsim -- /opt/bin/hcxadm list -o json");
  EXPECT_EQ(command("list --simulate=san.json --state d", in_path),
            "/usr/bin/hcxsim --scenario san.json --state d -- /opt/bin/hcxadm list");
  EXPECT_EQ(command("list -- --simulate", here), "none");
  EXPECT_EQ(command("--simulate= list", here), "2");
  EXPECT_EQ(command("--state d list", here), "2");
  EXPECT_EQ(command("--simulate list", [](const std::string &) { return false; }), "1");
}

}  // namespace
