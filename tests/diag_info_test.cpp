// SPDX-License-Identifier: BSD-3-Clause
// Driver information, vital product data, link state with the loop map, nodes, the dump region and event counts.
#include <cerrno>

#include "board_fixture.h"

namespace {

constexpr uint64_t kWwpn = 0x10000000c9a1b2c3;

class DiagInfo : public BoardTest {
 protected:
  sim::Host &add_board(sim::HostSpec spec = {}) {
    spec.number = 3;
    spec.wwpn = kWwpn;
    spec.wwnn = 0x20000000c9a1b2c3;
    return m.add_host(std::move(spec));
  }
};

TEST_F(DiagInfo, DriverRecordByVersion) {
  add_board({.port_id = 0x010200});
  m.computer = "a-computer-whose-name-is-longer-than-31-bytes";
  scan();
  for (int version = 0; version <= 5; version++) {
    HCXDrvInfo info;
    memset(&info, 0xee, sizeof info);
    info.drvInfoVer = static_cast<uint8_t>(version);
    EXPECT_EQ(HCX_GetDrvInfo(0, &info), version == 4 ? 0u : 4u) << version;
    HCXDrvInfo expected;
    memset(&expected, 0xee, sizeof expected);
    expected.drvInfoVer = 4;
    expected.drvType = 0x10;
    expected.rmLevel = 3;
    expected.mpLevel = 0;
    expected.hbaapiLevel = 1;
    memset(expected.drvVer, 0, sizeof expected.drvVer + sizeof expected.drvName + 48);
    memcpy(expected.drvVer, info.drvVer, sizeof info.drvVer);
    memcpy(expected.drvName, "vosk", 4);
    expected.d_id = 0x010200;
    memcpy(expected.wwpn, "\x10\0\0\0\xc9\xa1\xb2\xc3", 8);
    memcpy(expected.wwnn, "\x20\0\0\0\xc9\xa1\xb2\xc3", 8);
    if (version >= 2 && version <= 4)
      memcpy(expected.hostname, "a-computer-whose-name-is-longer", sizeof expected.hostname);
    if (version == 4) {
      expected.sliMode = 4;
      expected.featureList = 0x1571;
    }
    EXPECT_EQ(bytes_of(&info, sizeof info), bytes_of(&expected, sizeof expected)) << version;
    EXPECT_NE(info.drvVer[0], 0);
    EXPECT_EQ(memchr(info.drvVer, 0, sizeof info.drvVer) != nullptr, true);
  }
  HCXDrvInfo info = {};
  expect_told(HCX_GetDrvInfo(3, &info), 12, "HCX_GetDrvInfo - board 3 no host");
  EXPECT_EQ(HCX_GetDrvInfo(0, nullptr), 1u);
}

TEST_F(DiagInfo, FeaturesFollowTheAdapter) {
  const struct {
    int sli;
    const char *protocol;
    bool info, statistics;
    uint64_t features;
  } rows[] = {{4, "fc", true, true, 0x1571},    {4, "fcoe", true, true, 0x1371},
              {3, "fc", true, true, 0x571},     {4, "fc", false, true, 0x171},
              {4, "iscsi", true, true, 0x1571}, {4, "fcoe", false, false, 0x71}};
  for (const auto &row : rows) {
    sim::Host &host = add_board({.sli = row.sli, .protocol = row.protocol});
    if (!row.info) host.set_scsi("info", "");
    if (!row.statistics) m.vfs().remove(host.scsi_dir() + "vosk_stat_data_ctrl");
    scan();
    HCXDrvInfo info = {};
    info.drvInfoVer = 4;
    EXPECT_EQ(HCX_GetDrvInfo(0, &info), 0u);
    EXPECT_EQ(info.featureList, row.features) << row.protocol << row.sli;
    EXPECT_EQ(info.sliMode, static_cast<uint32_t>(row.sli));
    TearDown();
    m.remove_host(3);
  }
}

TEST_F(DiagInfo, VitalProductData) {
  sim::Host &host = add_board();
  host.set_scsi("modeldesc", "Quorva QF16002 adapter");
  host.set_scsi("modelname", std::string(200, 'm'));
  host.set_scsi("portnum", "1");
  m.vfs().remove(host.scsi_dir() + "programtype");
  scan();
  Vpd vpd;
  memset(&vpd, 0xee, sizeof vpd);
  vpd.version = 2;
  EXPECT_EQ(GetVPDInfo(0, &vpd), 1u);
  EXPECT_EQ(vpd.PortNum[0], static_cast<char>(0xee));
  vpd.version = 1;
  expect_told(GetVPDInfo(1, &vpd), 2, "GetVPDInfo - board 1 no host");
  ASSERT_EQ(GetVPDInfo(0, &vpd), 0u);
  EXPECT_STREQ(vpd.ModelDescription, "Quorva QF16002 adapter");
  EXPECT_EQ(std::string(vpd.Model), std::string(78, 'm'));
  EXPECT_STREQ(vpd.ProgramType, "");
  EXPECT_STREQ(vpd.PortNum, "1");
  EXPECT_EQ(GetVPDInfo(0, nullptr), 1u);
}

TEST_F(DiagInfo, LoopMap) {
  const struct {
    const char *type;
    uint32_t id;
    std::vector<uint32_t> ports;
    uint8_t topology;
    std::string map;
  } rows[] = {
      {"LPort (private loop)", 0x01, {0x02, 0xe8, 0x010200}, 1, std::string("\3\1\2\xe8\0", 5)},
      {"NLPort (fabric via loop)", 0xef, {0x10}, 2, std::string("\2\xef\x10\0", 4)},
      {"NLPort (fabric via loop)", 0x0102ef, {0x10}, 2, std::string(5, '\0')},
      {"NPort (fabric via point-to-point)", 0x01, {0x02}, 3, std::string(5, '\0')},
      {"Point-To-Point (direct nport connection)", 0x01, {0x02}, 4, std::string(5, '\0')},
      {"Unknown", 0x01, {0x02}, 0, std::string(5, '\0')},
  };
  for (const auto &row : rows) {
    sim::Host &host = add_board({.port_id = row.id, .port_type = row.type});
    for (const uint32_t id : row.ports)
      host.add_rport({.port_id = id, .roles = "FCP Initiator"});
    scan();
    LinkInfo info;
    memset(&info, 0xee, sizeof info);
    ASSERT_EQ(HCX_GetLinkInfo(0, &info), 0u);
    EXPECT_EQ(info.a_DID, row.id);
    EXPECT_EQ(info.a_topology, row.topology) << row.type;
    EXPECT_EQ(bytes_of(info.a_alpaMap, row.map.size()), row.map) << row.type;
    EXPECT_EQ(info.a_alpaCnt, row.map[0]);
    EXPECT_EQ(info.a_alpa, row.map[0] ? row.id : 0u);
    EXPECT_EQ(bytes_of(info.a_wwpName, 8), std::string("\x10\0\0\0\xc9\xa1\xb2\xc3", 8));
    EXPECT_EQ(bytes_of(info.a_wwnName, 8), std::string("\x20\0\0\0\xc9\xa1\xb2\xc3", 8));
    TearDown();
    m.remove_host(3);
  }
}

TEST_F(DiagInfo, LoopMapEndsAt126) {
  sim::Host &host = add_board({.port_id = 1, .port_type = "LPort (private loop)"});
  for (uint32_t id = 2; id < 150; id++)
    host.add_rport({.port_id = id, .roles = "FCP Initiator"});
  scan();
  LinkInfo info;
  memset(&info, 0xee, sizeof info);
  ASSERT_EQ(GetLinkInfo(0, &info), 0u);
  EXPECT_EQ(info.a_alpaCnt, 126);
  EXPECT_EQ(info.a_alpaMap[0], 126);
  EXPECT_EQ(info.a_alpaMap[126], 126);
  EXPECT_EQ(info.a_alpaMap[127], 0);
  EXPECT_EQ(info.a_wwpName[0], 0x10);
}

TEST_F(DiagInfo, LinkStates) {
  sim::Host &host = add_board();
  scan();
  const struct {
    const char *port, *link, *mlomode;
    uint8_t state, topology;
    int by_user;
  } rows[] = {
      {"Online", "Link Up - Ready", nullptr, 6, 3, 0},
      {"Online", "Link Down - User disabled", nullptr, 6, 3, 1},
      {"Bypassed", "Link Down", nullptr, 2, 3, 0},
      {"Linkdown", "Link Down", nullptr, 1, 3, 0},
      {"Linkdown", "Link Down - User disabled", nullptr, 7, 3, 1},
      {"Linkdown", "Link Down - User disabled now", nullptr, 1, 3, 0},
      {"Linkdown", "Link Down", "0", 1, 3, 0},
      {"Linkdown", "Link Down", "1", 1, 5, 0},
      {"Linkdown", "Link Down", "2", 1, 3, 0},
      {"Linkdown", "Link Down - User disabled", "1", 7, 5, 1},
      {"Offline", "Link Down", "1", 0, 3, 0},
  };
  for (const auto &row : rows) {
    host.set_fc("port_state", row.port);
    host.set_scsi("link_state", row.link);
    m.vfs().remove(host.scsi_dir() + "mlomode");
    if (row.mlomode) m.vfs().put_text(host.scsi_dir() + "mlomode", std::string(row.mlomode) + "\n", 0444);
    LinkInfo info = {};
    ASSERT_EQ(HCX_GetLinkInfo(0, &info), 0u);
    EXPECT_EQ(info.a_linkState, row.state) << row.port << ", " << row.link;
    EXPECT_EQ(info.a_topology, row.topology) << row.port << ", " << row.link;
    EXPECT_EQ(linkDownUser(0), row.by_user) << row.link;
  }
  EXPECT_TRUE(m.logged("linkDownUser - board 0 link down by user"));
  // Older drivers tell in "state".
  m.vfs().remove(host.scsi_dir() + "link_state");
  EXPECT_EQ(linkDownUser(0), 0);
  host.set_scsi("state", "Link Down - User disabled");
  EXPECT_EQ(linkDownUser(0), 1);
  m.vfs().remove(host.scsi_dir() + "state");
  EXPECT_EQ(linkDownUser(0), 0);
  expect_told(linkDownUser(2), 0, "linkDownUser - board 2 no host");
  m.vfs().remove("/sys/class/fc_host/host3");
  expect_told(hcx_sysfs_read_mlomode(&hcx_host_list->port), 8,
              "hcx_sysfs_read_mlomode - stale data on /sys/class/fc_host/host3/");
}

TEST_F(DiagInfo, LinkCountersAndFailures) {
  sim::Host &host = add_board();
  scan();
  const struct {
    uint64_t lip, nos;
    uint32_t up, tag;
  } rows[] = {{7, 9, 7, 14},
              {~0ull, 9, 9, 18},
              {~0ull, ~0ull, 0, 0},
              {0x1180000001, 0, 0x80000001, 2},
              {0xffffffff, 5, 0xffffffff, 0xfffffffe}};
  for (const auto &row : rows) {
    host.set_statistic("lip_count", row.lip);
    host.set_statistic("nos_count", row.nos);
    LinkInfo info;
    memset(&info, 0xee, sizeof info);
    ASSERT_EQ(HCX_GetLinkInfo(0, &info), 0u);
    EXPECT_EQ(info.a_linkUp, row.up);
    EXPECT_EQ(info.a_linkDown, row.up);
    EXPECT_EQ(info.a_linkEventTag, row.tag);
    EXPECT_EQ(info.a_linkMulti, 0u);
  }
  LinkInfo info;
  host.set_fc("port_state", "Not Present");
  expect_told(HCX_GetLinkInfo(0, &info), 8, "HCX_GetLinkInfo - board 0 sysfs read port status error");
  EXPECT_EQ(HCX_GetLinkInfo(6, &info), 12u);
  EXPECT_EQ(HCX_GetLinkInfo(0, nullptr), 1u);
}

TEST_F(DiagInfo, Nodes) {
  sim::Host &host = add_board();
  host.add_rport(
      {.wwpn = 0x5006016000000001, .wwnn = 0x5006016080000001, .port_id = 0x010300, .target_id = 4});
  host.add_rport({.port_id = 0x010400, .roles = "FCP Initiator"});
  host.add_rport({.port_id = 0xfffffc, .roles = "Directory Server"});
  host.add_rport({.port_id = 0x010500, .roles = "FCP Target, IP Port", .target_id = 5});
  scan();
  NodeInfo nodes[5];
  memset(nodes, 0xee, sizeof nodes);
  ASSERT_EQ(GetNodeInfo(0, nodes), 4);
  NodeInfo first = {};
  first.a_flag = NODE_FCP_TARGET | NODE_AUTOMAP | NODE_SEED_WWPN;
  first.a_state = NODE_ALLOC;
  first.a_did = 0x010300;
  memcpy(first.a_wwpn, "\x50\x06\x01\x60\0\0\0\1", 8);
  memcpy(first.a_wwnn, "\x50\x06\x01\x60\x80\0\0\1", 8);
  first.a_targetid = 4;
  EXPECT_EQ(bytes_of(&nodes[0], sizeof first), bytes_of(&first, sizeof first));
  EXPECT_EQ(nodes[1].a_flag, 0);
  EXPECT_EQ(nodes[1].a_state, NODE_PRLI);
  EXPECT_EQ(nodes[1].a_targetid, 0xffffffffu);
  EXPECT_EQ(nodes[2].a_flag, NODE_FABRIC);
  EXPECT_EQ(nodes[3].a_flag, NODE_FCP_TARGET | NODE_IP_NODE | NODE_AUTOMAP | NODE_SEED_WWPN);
  EXPECT_EQ(nodes[4].a_flag, 0xeeee);
  const struct {
    const char *text;
    uint16_t flag;
  } rows[] = {
      {"none", 0}, {"wwnn (World Wide Node Name)", 0x400}, {"port_id (FC Address)", 0x800}, {"other", 0}};
  for (const auto &row : rows) {
    host.set_fc("tgtid_bind_type", row.text);
    ASSERT_EQ(GetNodeInfo(0, nodes), 4);
    EXPECT_EQ(nodes[0].a_flag & NODE_SEED_MASK, row.flag) << row.text;
  }
  // A port that cannot be read when its turn comes is left out.
  m.fail({.verb = sim::Verb::open, .path = "rport-3:0-1/port_state", .nth = 2});
  ASSERT_EQ(GetNodeInfo(0, nodes), 3);
  m.clear_faults();
  EXPECT_EQ(nodes[1].a_did, 0xfffffcu);
  for (int i = 0; i < 4; i++)
    host.remove_rport(i);
  expect_told(GetNodeInfo(0, nodes), -1, "GetNodeInfo - board 0 no nodes");
  EXPECT_EQ(GetNodeInfo(3, nodes), -ENOMEM);
  EXPECT_EQ(GetNodeInfo(0, nullptr), -1);
}

TEST_F(DiagInfo, DumpRegion) {
  const struct {
    int sli;
    const char *firmware;
    uint32_t identifier, length;
    uint32_t result, after;
    const char *line;
  } rows[] = {
      {3, nullptr, 0, 256, 0, 256, nullptr},
      {3, nullptr, 0, 0, 0, 0, nullptr},
      {3, nullptr, 0, 300, 3, 0, "board 0 buff_len 300 max 256"},
      {3, nullptr, 7, 16, 4, 16, "board 0 identifier 7 not supported"},
      {3, nullptr, 8, 16, 2, 16, "board 0 identifier 8 invalid"},
      {4, nullptr, 0, 16, 2, 16, "board 0 not supported"},
      {3, "2.01A12", 0, 16, 1, 16, "board 0 invalid sliMode -1"},
  };
  for (const auto &row : rows) {
    sim::Host &host = add_board({.sli = row.sli});
    if (row.firmware) host.set_scsi("fwrev", row.firmware);
    scan();
    uint8_t buff[300];
    memset(buff, 0xee, sizeof buff);
    uint32_t length = row.length;
    EXPECT_EQ(HCX_GetDriverDumpRegion(0, row.identifier, buff, &length), row.result);
    EXPECT_EQ(length, row.after);
    if (row.line) {
      EXPECT_TRUE(m.logged(std::string("HCX_GetDriverDumpRegion - ") + row.line)) << row.line;
      EXPECT_EQ(buff[0], 0xee);
    } else if (row.length) {
      EXPECT_EQ(buff[row.length - 1], (row.length - 1) & 0xff);
    }
    EXPECT_EQ(buff[row.length % 300], 0xee);
    TearDown();
    m.remove_host(3);
  }
  add_board({.sli = 3});
  scan();
  uint8_t buff[64];
  uint32_t length = sizeof buff;
  m.fail({.verb = sim::Verb::read, .path = "ctlreg", .short_count = 20});
  EXPECT_EQ(HCX_GetDriverDumpRegion(0, 0, buff, &length), 1u);
  EXPECT_EQ(length, 20u);
  EXPECT_TRUE(m.logged("HCX_GetDriverDumpRegion - board 0 out_len 20 not equal to buff_len 64"));
  EXPECT_EQ(HCX_GetDriverDumpRegion(9, 0, buff, &length), 12u);
  EXPECT_EQ(HCX_GetDriverDumpRegion(0, 0, nullptr, &length), 1u);
}

TEST_F(DiagInfo, EventCounts) {
  add_board();
  scan();
  hcx_host_list->events_count = 31;
  hcx_host_list->missed_events_count = 4;
  uint32_t count = 0;
  EXPECT_EQ(GetEventsCount(0, &count), 0u);
  EXPECT_EQ(count, 31u);
  EXPECT_EQ(GetMissedEventsCount(0, &count), 0u);
  EXPECT_EQ(count, 4u);
  EXPECT_TRUE(m.logged("GetEventsCount - board 0 event count 31"));
  EXPECT_TRUE(m.logged("GetMissedEventsCount - board 0 missed event count 4"));
  EXPECT_EQ(GetEventsCount(2, &count), 12u);
  EXPECT_EQ(GetMissedEventsCount(2, &count), 12u);
  EXPECT_EQ(GetEventsCount(0, nullptr), 1u);
  EXPECT_EQ(GetIOinfo(0, nullptr), 2u);
}

}  // namespace
