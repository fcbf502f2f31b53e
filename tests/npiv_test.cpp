// SPDX-License-Identifier: BSD-3-Clause
// Virtual ports: which there are, what each looks like, and what is needed for another one, on both kernel generations.
#include <signal.h>

#include <cerrno>

#include "board_fixture.h"
#include "sim_mbox.h"

namespace {

constexpr uint64_t kWwpn = 0x200000001122aabb, kWwnn = 0x300000001122aabb;
constexpr uint64_t kVport = 0x200100001122aabb, kVnode = 0x300100001122aabb;

// Whether the kernel has a class for virtual ports; the oldest has none for remote ports and no BSG either.
enum class Kernel { current, classless, oldest };
void PrintTo(Kernel kernel, std::ostream *out) {
  *out << static_cast<int>(kernel);
}
void set_kernel(sim::Machine &m, Kernel kernel) {
  if (kernel == Kernel::oldest) m.generation(1);
  m.vport_class(kernel == Kernel::current);
}

class Npiv : public BoardTest {
 protected:
  // Hosts 1 and 10, boards 0 and 1.
  void add_boards(Kernel kernel = Kernel::current) {
    set_kernel(m, kernel);
    one = &m.add_host({.number = 1, .wwpn = kWwpn, .wwnn = kWwnn, .port_id = 0x010100});
    ten = &m.add_host({.number = 10});
  }
  void add_vport(const std::string &name = "db1") {
    vport = &one->add_vport({.wwpn = kVport, .wwnn = kVnode, .name = name, .host_number = 21});
  }

  uint32_t list(uint32_t board, uint32_t room) {
    std::vector<uint8_t> bytes(4 + (room + 1) * 20, 0xee);
    memcpy(bytes.data(), &room, sizeof room);
    const uint32_t result = HCX_VPGetList(board, reinterpret_cast<HCX_VPEntryList *>(bytes.data()));
    memcpy(&count, bytes.data(), sizeof count);
    entries.clear();
    const uint32_t filled = std::min(count, room);
    for (uint32_t i = 0; i < filled; ++i) {
      HCX_VPEntry entry;
      memcpy(&entry, bytes.data() + 4 + i * 20, sizeof entry);
      entries.push_back(entry);
    }
    // Nothing behind the entries is touched.
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin() + 4 + filled * 20, bytes.end()),
              std::vector<uint8_t>(bytes.size() - 4 - filled * 20, 0xee));
    return result;
  }
  std::vector<uint64_t> listed() const {
    std::vector<uint64_t> names;
    for (const HCX_VPEntry &entry : entries)
      names.push_back(number(entry.wwpn));
    return names;
  }

  uint32_t attrib(uint64_t name, uint32_t board = 0) {
    memset(&record, 0xee, sizeof record);
    record.ver = 3;
    HBA_WWN wwpn = wwn(name);
    return HCX_VPGetAttrib(board, &wwpn, &record);
  }

  sim::Host *one = nullptr, *ten = nullptr, *vport = nullptr;
  uint32_t count = 0;
  std::vector<HCX_VPEntry> entries;
  HCX_VPAttrib record;
};

// With a virtual port of the first board.
class NpivPort : public Npiv {
 protected:
  void SetUp() override {
    Npiv::SetUp();
    add_boards();
    add_vport();
    scan();
  }
};

// ---- lists and resources ----

class NpivKernels : public Npiv, public ::testing::WithParamInterface<Kernel> {};
INSTANTIATE_TEST_SUITE_P(Each, NpivKernels,
                         ::testing::Values(Kernel::current, Kernel::classless, Kernel::oldest));

TEST_P(NpivKernels, ListsTheBoardsOwnPorts) {
  add_boards(GetParam());
  m.add_host({.number = 2, .foreign = true});
  scan();
  EXPECT_EQ(list(0, 4), 0u);
  EXPECT_EQ(count, 0u);
  for (uint64_t i = 1; i <= 3; ++i)
    one->add_vport({.wwpn = 0x11 * i, .wwnn = 0x22 * i, .port_id = static_cast<uint32_t>(i)});
  ten->add_vport({.wwpn = 0x77, .wwnn = 0x88});
  EXPECT_EQ(list(0, 3), 0u);
  EXPECT_EQ(listed(), (std::vector<uint64_t>{0x11, 0x22, 0x33}));
  EXPECT_EQ(number(entries[1].wwnn), 0x44u);
  EXPECT_EQ(entries[2].portFcId, 3u);
  for (const uint32_t room : {0u, 2u}) {
    EXPECT_EQ(list(0, room), 7u);
    EXPECT_EQ(count, 3u);
  }
  EXPECT_EQ(listed(), (std::vector<uint64_t>{0x11, 0x22}));
  const std::string caller = GetParam() == Kernel::current ? "up_VPGetList" : "Rel_VPGetList";
  EXPECT_TRUE(m.logged(caller + " - board 0 more data - found 3 - list size 2"));
  EXPECT_EQ(list(1, 9), 0u);
  EXPECT_EQ(listed(), std::vector<uint64_t>{0x77});
  EXPECT_EQ(list(2, 9), 12u);
  EXPECT_EQ(count, 0u);
  EXPECT_TRUE(m.logged(caller + " - no host for board 2"));
}

TEST_F(Npiv, APortWhoseHostHasNotAppearedIsSkippedWhateverTheRoom) {
  add_boards();
  for (uint64_t i = 1; i <= 3; ++i)
    one->add_vport({.wwpn = 0x11 * i, .host_number = 20 + static_cast<int>(i)});
  scan();
  m.vfs().remove("/sys/class/fc_vports/vport-1:0-1/device/host22");
  for (const uint32_t room : {0u, 1u, 2u, 5u}) {
    EXPECT_EQ(list(0, room), room < 2 ? 7u : 0u) << room;
    EXPECT_EQ(count, 2u) << room;
  }
  EXPECT_EQ(listed(), (std::vector<uint64_t>{0x11, 0x33}));
  EXPECT_TRUE(m.logged("up_VPGetList - board 0 skipping vport entry 1"));
}

TEST_F(NpivPort, ADirectoryThatCannotBeReadIsAnEmptyList) {
  m.fail({.verb = sim::Verb::list, .path = "fc_vports", .error = EIO});
  EXPECT_EQ(list(0, 4), 0u);
  EXPECT_EQ(count, 0u);
  EXPECT_TRUE(m.logged("up_VPGetList - board 0 scandir returned -5"));
  EXPECT_EQ(list(0, 4), 0u);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(HCX_VPGetList(0, nullptr), 1u);
}

TEST_F(NpivPort, ResourcesNeedAllFourCounts) {
  HCX_VPResource counts = {};
  EXPECT_EQ(HCX_VPGetResource(0, &counts), 0u);
  EXPECT_EQ(std::vector<uint32_t>({counts.vlinks_max, counts.vlinks_inuse, counts.rpi_max, counts.rpi_inuse}),
            (std::vector<uint32_t>{16, 1, 4096, 9}));
  expect_told(HCX_VPGetResource(7, &counts), 3, "HCX_VPGetResource - no host for board 7");
  EXPECT_EQ(HCX_VPGetResource(0, nullptr), 1u);
  for (const char *file : {"max_vpi", "used_vpi", "max_rpi", "used_rpi"}) {
    m.fail({.verb = sim::Verb::open, .path = file, .error = ENOENT});
    EXPECT_EQ(HCX_VPGetResource(0, &counts), 1u) << file;
    m.clear_faults();
  }
  EXPECT_TRUE(m.logged("HCX_VPGetResource - board 0 missing - max_npiv used_vpi max_rpi used_rpi"));
}

TEST_F(Npiv, PhysicalBoardOfAHost) {
  add_boards();
  add_vport();
  m.add_host({.number = 5, .foreign = true});
  scan();
  const struct {
    uint32_t host, result, board, bus;
  } cases[] = {{21, 0, 0, 1}, {1, 0, 0, 1}, {10, 0, 1, 10}, {5, 3, 99, 99}, {77, 3, 99, 99}};
  for (const auto &c : cases) {
    uint32_t board = 99, bus = 99;
    EXPECT_EQ(vpGetPhys(c.host, &board, &bus), c.result) << c.host;
    EXPECT_EQ(board, c.board) << c.host;
    EXPECT_EQ(bus, c.bus) << c.host;
    expect_nothing_left("after host " + std::to_string(c.host));
  }
  EXPECT_TRUE(m.logged("vpGetPhys - no host for board 77"));
}

// ---- one port ----

TEST_F(NpivPort, AttributesOfAPort) {
  vport->set_scsi("vosk_restrict_login", "0x1");
  EXPECT_EQ(attrib(kVport), 0u);
  HCX_VPAttrib expected;
  memset(&expected, 0xee, sizeof expected);
  expected.ver = 3;
  memcpy(expected.wwpn.wwn, "\x20\x01\0\0\x11\x22\xaa\xbb", 8);
  memcpy(expected.wwnn.wwn, "\x30\x01\0\0\x11\x22\xaa\xbb", 8);
  memset(expected.name, 0, sizeof expected.name);
  strcpy(expected.name, "Quorva PPN-20:01:00:00:11:22:aa:bb VPort-1 VName-db1");
  expected.portFcId = 0x010101;
  expected.state = 8;
  expected.restrictLogin = 1;
  expected.flags = 0;
  expected.buf = 0;
  memcpy(expected.fabricName.wwn, "\x10\0\0\x05\x1e\0\0\x01", 8);
  expected.checklist = 0xff;
  EXPECT_EQ(bytes_of(&record, sizeof record), bytes_of(&expected, sizeof expected));

  // The name may lie in the record that is filled.
  EXPECT_EQ(HCX_VPGetAttrib(0, &record.wwpn, &record), 0u);
  EXPECT_EQ(bytes_of(&record, sizeof record), bytes_of(&expected, sizeof expected));
  // Searched on all boards; the board only says whose readiness is told.
  EXPECT_EQ(attrib(kVport, 1), 0u);
  EXPECT_EQ(attrib(kVport, 9), 0u);
  EXPECT_EQ(record.checklist, 3u);

  EXPECT_EQ(attrib(kWwpn), 4u) << "a physical port";
  EXPECT_TRUE(m.logged("HCX_VPGetAttrib - invalid WWPN for board 0"));
  EXPECT_EQ(attrib(0x123), 4u);
  EXPECT_EQ(attrib(0), 4u);
  for (const int version : {0, 2, 4, 255}) {
    HBA_WWN name = wwn(kVport);
    record.ver = static_cast<uint8_t>(version);
    EXPECT_EQ(HCX_VPGetAttrib(0, &name, &record), 1u) << version;
  }
  EXPECT_TRUE(m.logged("HCX_VPGetAttrib - board 0 Unsupported HCX_VPAttrib version (255)"));
  EXPECT_EQ(HCX_VPGetAttrib(0, nullptr, &record), 1u);
  EXPECT_EQ(HCX_VPGetAttrib(0, &record.wwpn, nullptr), 1u);
}

TEST_F(Npiv, AnErrorDoesNotTurnAPhysicalPortIntoAVirtualOne) {
  add_boards();
  scan();
  m.fail({.verb = sim::Verb::stat, .path = "issue_lip", .persistent = true, .error = EIO});
  EXPECT_EQ(attrib(kWwpn), 4u);
}

TEST_F(NpivPort, StateOfAPortBySource) {
  const std::string fc_host = vport->fc_dir() + "vport_state", entry = vport->vport_dir() + "vport_state";
  const struct {
    const char *fc_host, *entry, *link;
    int state;
  } cases[] = {
      {"Linkdown", "Active", "Link Up - Ready", 1},
      {nullptr, "Unknown", "Link Up - Ready", 0},
      {nullptr, "Initializing", "", 2},
      {nullptr, "Fabric Rejected WWN", "", 6},
      {nullptr, "Active", "Link Down", 8},
      {nullptr, "Disabled", "", 10},
      {nullptr, "Something new", "Link Up - Ready", 0},
      {nullptr, nullptr, "Link Up - Ready", 8},
      {nullptr, nullptr, "Link Up - Failed", 7},
      {nullptr, nullptr, "Link Up - Discovery", 0},
      {nullptr, nullptr, "Link Down", 0},
      {nullptr, nullptr, nullptr, 0},  // "state" has no such word
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(std::string(c.entry ? c.entry : "-") + ", " + (c.link ? c.link : "-"));
    const auto put = [&](const std::string &path, const char *text) {
      if (text) {
        m.vfs().put_text(path, std::string(text) + "\n", 0444);
      } else {
        m.vfs().remove(path);
      }
    };
    put(fc_host, c.fc_host);
    put(entry, c.entry);
    put(vport->scsi_dir() + "link_state", c.link);
    EXPECT_EQ(attrib(kVport), 0u);
    EXPECT_EQ(record.state, c.state);
  }
}

TEST_F(Npiv, OlderKernelsKeepStateAndNameAtTheHost) {
  add_boards(Kernel::classless);
  add_vport("a name");
  scan();
  EXPECT_EQ(attrib(kVport), 0u);
  EXPECT_EQ(record.state, 8);
  EXPECT_STREQ(record.name, "a name");
  EXPECT_EQ(record.checklist, 0xffu);
  vport->set_scsi("link_state", "Link Down");
  vport->set_scsi("vosk_symbolic_name", std::string(300, 'x'));
  EXPECT_EQ(attrib(kVport), 0u);
  EXPECT_EQ(record.state, 0);
  EXPECT_EQ(std::string(record.name, 256), std::string(254, 'x') + std::string(2, '\0'));
  EXPECT_EQ(record.options, 0xeeeeeeeeu);
  m.vfs().remove(vport->scsi_dir() + "vosk_symbolic_name");
  EXPECT_EQ(attrib(kVport), 0u);
  EXPECT_STREQ(record.name, "");
}

TEST_F(NpivPort, NamesOfPorts) {
  const std::string symbolic = vport->vport_dir() + "symbolic_name";
  const std::string begin = "Quorva PPN-20:01:00:00:11:22:aa:bb VPort-";
  const struct {
    std::string symbolic, npiv_info, name;
  } cases[] = {
      {"db1", "NPIV Virtual (VPI 3)", begin + "3 VName-db1"},
      {"", "NPIV Virtual (VPI 3)", begin + "3"},
      {std::string(64, 'n'), "NPIV Virtual (VPI 12)", begin + "12 VName-" + std::string(62, 'n')},
      {"x", "NPIV Physical", begin + "-1 VName-x"},
  };
  for (const auto &c : cases) {
    m.vfs().put_text(symbolic, c.symbolic + "\n");
    vport->set_scsi("npiv_info", c.npiv_info);
    record.wwpn = wwn(kVport);
    record.wwnn = wwn(kVnode);
    memset(record.name, 0xee, sizeof record.name);
    char dir[] = "/nowhere/";
    get_vport_name(&record, dir);
    EXPECT_EQ(record.name, c.name);
  }
  // Both names must match.
  record.wwnn = wwn(kVnode + 1);
  get_vport_name(&record, nullptr);
  EXPECT_STREQ(record.name, "");
  get_vport_name(nullptr, nullptr);
}

TEST_F(NpivPort, NumberOfAPort) {
  const struct {
    const char *text;
    int number;
  } cases[] = {
      {"NPIV Virtual (VPI 3)", 3},  {"NPIV Virtual (VPI 128) ", 128},       {"now NPIV Virtual (VPI 7)", 7},
      {"NPIV Virtual (VPI 0)", -1}, {"NPIV Virtual (VPI -4)", -1},          {"NPIV Virtual (VPI 3", -1},
      {"NPIV Virtual (VPI", -1},    {"NPIV Virtual (VPI x)", -1},           {"", -1},
      {"NPIV Virtual (VPI:5)", 5},  {"NPIV Virtual (VPI 99999999999)", -1},
  };
  for (const auto &c : cases) {
    vport->set_scsi("npiv_info", c.text);
    HBA_WWN name = wwn(kVport);
    int found = 77;
    EXPECT_EQ(get_vport_npiv_info(&name, &found), c.number) << c.text;
    EXPECT_EQ(found, c.number) << c.text;
  }
  HBA_WWN nobody = wwn(0x99);
  int found = 77;
  EXPECT_EQ(get_vport_npiv_info(&nobody, &found), -1);
  EXPECT_EQ(found, -1);
  EXPECT_EQ(get_vport_npiv_info(nullptr, nullptr), -1);
}

// ---- what a port sees ----

TEST_F(Npiv, TargetsOfAPort) {
  add_boards();
  add_vport();
  vport->add_rport({.wwpn = 0x51, .wwnn = 0x61, .port_id = 0x010300, .target_id = 4});
  vport->add_rport({.wwpn = 0x52, .wwnn = 0x62, .port_id = 0x010400, .roles = "FCP Initiator"});
  vport->add_rport({.wwpn = 0x53, .wwnn = 0x63, .port_id = 0x010500}).set("scsi_target_id", "-1");
  vport->add_rport({.wwpn = 0x54, .wwnn = 0x64, .port_id = 0x010600, .target_id = 0});
  one->add_rport({.wwpn = 0x99});
  scan();
  std::vector<NodeInfo> expected(2, NodeInfo{});
  for (int i = 0; i < 2; ++i) {
    expected[i].a_state = 2;
    expected[i].a_did = i ? 0x010600 : 0x010300;
    expected[i].a_wwpn[7] = i ? 0x54 : 0x51;
    expected[i].a_wwnn[7] = i ? 0x64 : 0x61;
    expected[i].a_targetid = i ? 0 : 4;
  }
  for (const uint32_t room : {0u, 1u, 2u, 9u}) {
    struct {
      uint32_t count;
      NodeInfo nodes[9];
    } answer;
    memset(&answer, 0xee, sizeof answer);
    answer.count = room;
    HBA_WWN name = wwn(kVport);
    EXPECT_EQ(HCX_GetAllNodeInfoByWWN(0, &name, reinterpret_cast<HCX_GetNodeInfo *>(&answer)), 0u);
    EXPECT_EQ(answer.count, std::min(room, 2u));
    EXPECT_EQ(bytes_of(answer.nodes, answer.count * sizeof(NodeInfo)),
              bytes_of(expected.data(), answer.count * sizeof(NodeInfo)));
    if (answer.count < 9) {
      EXPECT_EQ(answer.nodes[answer.count].a_did, 0xeeeeeeeeu);
    }
  }
  HCX_GetNodeInfo answer{5, {}};
  HBA_WWN nobody = wwn(0x77), mine = wwn(kVport);
  EXPECT_EQ(HCX_GetAllNodeInfoByWWN(0, &nobody, &answer), 4u);
  EXPECT_EQ(answer.numberOfEntries, 0u);
  answer.numberOfEntries = 1;
  m.fail({.verb = sim::Verb::list, .path = "fc_remote_ports", .error = EIO});
  EXPECT_EQ(HCX_GetAllNodeInfoByWWN(0, &mine, &answer), 1u);
  EXPECT_EQ(answer.numberOfEntries, 0u);
  EXPECT_EQ(HCX_GetAllNodeInfoByWWN(0, nullptr, &answer), 1u);
  EXPECT_EQ(HCX_GetAllNodeInfoByWWN(0, &mine, nullptr), 1u);
  EXPECT_EQ(HCX_GetFcpTargetMappingByWWN(0, &mine, &answer), 2u);
  EXPECT_EQ(HCX_GetFcpTargetMappingByWWN(99, nullptr, nullptr), 2u);
}

// ---- readiness ----

void revision(sim::Host &host, uint32_t word6) {
  sim::mailbox(host).handlers[0x11] = [word6](sim::MailboxCall &call) { call.set_word(6, word6); };
}

struct ReadyCase {
  const char *what;
  void (*change)(sim::Host &host, const std::string &capacity_dir);
  uint32_t vport_state, bits;
};

const ReadyCase ready_cases[] = {
    {"all well", [](auto &, auto &) {}, 0, 0xff},
    {"no fabric support", [](auto &, auto &) {}, 3, 0x3f},
    {"no fabric resources", [](auto &, auto &) {}, 4, 0x7f},
    {"failed", [](auto &, auto &) {}, 7, 0x3f},
    {"driver parameter off", [](auto &h, auto &) { h.set_scsi("vosk_enable_npiv", "0"); }, 0, 0x3e},
    {"SLI-2", [](auto &h, auto &) { h.set_scsi("fwrev", "1.0, sli-2"); }, 4, 0x3d},
    {"SLI unknown", [](auto &h, auto &) { h.set_scsi("fwrev", "1.0"); }, 0, 0x39},
    {"firmware level 8", [](auto &h, auto &) { revision(h, 0xffff08ff); }, 0, 0x3b},
    {"firmware level 9", [](auto &h, auto &) { revision(h, 0x00000900); }, 0, 0xff},
    {"revision refused", [](auto &h, auto &) { sim::mailbox(h).forced_status[0x11] = 2; }, 0, 0x3b},
    {"full", [](auto &h, auto &dir) { h.machine().set_text(dir + "npiv_vports_inuse", "16\n"); }, 0, 0x37},
    {"no limit told", [](auto &h, auto &dir) { h.machine().vfs().remove(dir + "max_npiv_vports"); }, 0, 0x37},
    {"link down", [](auto &h, auto &) { h.set_scsi("link_state", "Link Down"); }, 0, 0x2f},
    {"link in discovery", [](auto &h, auto &) { h.set_scsi("link_state", "Link Up - Discovery"); }, 0, 0xff},
    {"no link state, but a state",
     [](auto &h, auto &) {
       h.machine().vfs().remove(h.scsi_dir() + "link_state");
       h.set_scsi("state", "Link Up - Ready");
     },
     0, 0xff},
    {"loop", [](auto &h, auto &) { h.set_fc("port_type", "NLPort (fabric via loop)"); }, 0, 0x1f},
};

TEST_F(Npiv, Checklist) {
  for (const Kernel kernel : {Kernel::current, Kernel::classless}) {
    for (const ReadyCase &c : ready_cases) {
      SCOPED_TRACE(c.what);
      add_boards(kernel);
      scan();
      c.change(*one, kernel == Kernel::current ? one->fc_dir() : one->scsi_dir());
      EXPECT_EQ(fill_npiv_checklist(0, c.vport_state), c.bits);
      TearDown();
      m.remove_host(1);
      m.remove_host(10);
    }
  }
}

TEST_F(Npiv, ReadinessOfNoBoardReadsThree) {
  add_boards();
  scan();
  uint32_t bits = 77;
  EXPECT_EQ(HCX_NPIVReadyTest(5, &bits), 0u);
  EXPECT_EQ(bits, 3u);
  EXPECT_TRUE(m.logged("fill_npiv_checklist - no host for board 5"));
  EXPECT_EQ(HCX_NPIVReadyTest(0, &bits), 0u);
  EXPECT_EQ(bits, 0xffu);
  EXPECT_EQ(HCX_NPIVReadyTest(0, nullptr), 1u);
}

TEST_F(Npiv, TheHostStaysLockedWhileTheAdapterAnswers) {
  add_boards();
  scan();
  bool asked = false;
  sim::mailbox(*one).handlers[0x11] = [&](sim::MailboxCall &call) {
    asked = true;
    EXPECT_EQ(pthread_rwlock_trywrlock(&hcx_host_list->rwlock), EBUSY);
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGUSR1), 1);
    call.set_word(6, 0x900);
  };
  EXPECT_EQ(fill_npiv_checklist(0, 0), 0xffu);
  EXPECT_TRUE(asked);
  sigset_t blocked;
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  EXPECT_EQ(sigismember(&blocked, SIGUSR1), 0);
}

// ---- failures ----

}  // namespace
