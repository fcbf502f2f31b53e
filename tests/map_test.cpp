// SPDX-License-Identifier: BSD-3-Clause
// Target mappings with and without identifications, and the lists in the form of bindings.
#include "board_fixture.h"
#include "sim_scsi.h"

namespace {

constexpr uint64_t kWwpn = 0x10000000c9a1b2c3;
constexpr uint64_t kTarget = 0x5006016000000001;

class Mapping : public BoardTest {
 protected:
  void SetUp() override {
    BoardTest::SetUp();
    host = &m.add_host({.number = 3, .wwpn = kWwpn});
  }
  // A mapping record with room for entries, all bytes 0xee.
  template <class Record, class Entry>
  Record *record(std::vector<uint64_t> &store, uint32_t room, uint32_t behind = 2) {
    store.assign(1 + (room + behind) * sizeof(Entry) / 8 + 1, 0xeeeeeeeeeeeeeeee);
    auto *mapping = reinterpret_cast<Record *>(store.data());
    mapping->NumberOfEntries = room;
    return mapping;
  }
  HBA_FCPTARGETMAPPING *v1(uint32_t room) {
    return record<HBA_FCPTARGETMAPPING, HBA_FCPSCSIENTRY>(v1_store, room);
  }
  HBA_FCPTARGETMAPPINGV2 *v2(uint32_t room) {
    return record<HBA_FCPTARGETMAPPINGV2, HBA_FCPSCSIENTRYV2>(v2_store, room);
  }
  template <class Entry>
  static bool untouched(const Entry &entry) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(&entry);
    return std::all_of(bytes, bytes + sizeof entry, [](unsigned char c) { return c == 0xee; });
  }

  sim::Host *host = nullptr;
  std::vector<uint64_t> v1_store, v2_store;
};
using Bindings = Mapping;

TEST_F(Mapping, FillsTheRoomAndCountsTheRest) {
  for (int target = 0; target < 2; target++) {
    sim::Rport &port = host->add_rport({.wwpn = kTarget + static_cast<uint64_t>(target),
                                        .wwnn = 0x5006016080000001,
                                        .port_id = 0x010300u + static_cast<uint32_t>(target),
                                        .target_id = target + 5});
    for (uint64_t lun = 0; lun < 3; lun++)
      port.add_lun({.lun = lun});
  }
  scan();
  HBA_FCPTARGETMAPPING *mapping = v1(4);
  expect_told(GetFcpTargetMapping(0, mapping), 7, "GetFcpTargetMapping - more data on board 0");
  EXPECT_EQ(mapping->NumberOfEntries, 6u);
  EXPECT_TRUE(untouched(mapping->entry[4]));

  HBA_FCPSCSIENTRY expected;
  memset(&expected, 0, sizeof expected);
  strcpy(expected.ScsiId.OSDeviceName, "/dev/sdd");
  expected.ScsiId.ScsiTargetNumber = 6;
  expected.ScsiId.ScsiOSLun = 0;
  expected.FcpId.FcId = 0x010301;
  expected.FcpId.NodeWWN = wwn(0x5006016080000001);
  expected.FcpId.PortWWN = wwn(kTarget + 1);
  EXPECT_EQ(bytes_of(&mapping->entry[3], sizeof expected), bytes_of(&expected, sizeof expected));

  mapping = v1(6);
  EXPECT_EQ(GetFcpTargetMapping(0, mapping), 0u);
  mapping = v1(0);
  EXPECT_EQ(GetFcpTargetMapping(0, mapping), 7u);
  EXPECT_EQ(mapping->NumberOfEntries, 6u);
  mapping = v1(3);
  EXPECT_EQ(GetFcpTargetMapping(9, mapping), 0u);
  EXPECT_EQ(mapping->NumberOfEntries, 0u);
  EXPECT_TRUE(m.logged("GetFcpTargetMapping - no host on board 9"));
  EXPECT_EQ(GetFcpTargetMapping(0, nullptr), 4u);
}

TEST_F(Mapping, NamesAndLunImages) {
  sim::Rport &port = host->add_rport({.wwpn = kTarget});
  const struct {
    sim::LunSpec spec;
    const char *name;
    std::string image;
  } rows[] = {
      {{.lun = 5}, "/dev/sda", std::string("\0\5\0\0\0\0\0\0", 8)},
      {{.lun = 6, .kind = sim::LunKind::tape}, "/dev/st0", std::string("\0\6\0\0\0\0\0\0", 8)},
      {{.lun = 7, .kind = sim::LunKind::changer, .bound = false},
       "/dev/sg2",
       std::string("\0\7\0\0\0\0\0\0", 8)},
      {{.lun = 8, .generic = false, .bound = false}, "", std::string("\0\x8\0\0\0\0\0\0", 8)},
      {{.lun = 0x4005}, "/dev/sdb", std::string("\x40\5\0\0\0\0\0\0", 8)},
  };
  for (const auto &row : rows)
    port.add_lun(row.spec);
  scan();
  HBA_FCPTARGETMAPPING *mapping = v1(5);
  ASSERT_EQ(GetFcpTargetMapping(0, mapping), 0u);
  ASSERT_EQ(mapping->NumberOfEntries, 5u);
  for (size_t i = 0; i < 5; i++) {
    EXPECT_STREQ(mapping->entry[i].ScsiId.OSDeviceName, rows[i].name);
    EXPECT_EQ(mapping->entry[i].ScsiId.ScsiOSLun, rows[i].spec.lun);
    EXPECT_EQ(bytes_of(&mapping->entry[i].FcpId.FcpLun, 8), rows[i].image);
  }
}

std::string designator(const char *header, const std::string &body) {
  return std::string(header, 4) + body;
}

TEST_F(Mapping, TakesTheFirstDescriptorOfTheUnit) {
  sim::Lun &lun = host->add_rport({.wwpn = kTarget}).add_lun({.lun = 1});
  scan();
  const std::string page("\0\x83\0\0", 4);
  const std::string naa = designator("\1\3\0\x8", "\x50\x1\x2\x3\x4\x5\x6\x7");
  const std::string t10 = designator("\2\1\0\xff", std::string(251, 'q'));
  sim::ScsiAnswer good, check, lost;
  const struct {
    const char *what;
    std::string data;  // as sent by the unit
    std::string luid;
    std::string sense;
    uint16_t host_status;
  } rows[] = {
      {"name of the unit", page + naa + t10, naa, "", 0},
      {"port first", page + designator("\1\x13\0\x8", "12345678") + naa, "", "", 0},
      {"logical unit group", page + designator("\1\6\0\4", "1234"), "", "", 0},
      {"protocol bits do not matter", page + designator("\x61\x83\0\2", "ab"),
       designator("\x61\x83\0\2", "ab"), "", 0},
      {"longer than the buffer", page + t10, t10.substr(0, 251), "", 0},
      {"longer than what came", page + designator("\2\1\0\xff", "short"), designator("\2\1\0\xff", "short"),
       "", 0},
      {"header only", page + designator("\2\0\0\0", ""), designator("\2\0\0\0", ""), "", 0},
      {"nothing", "", "", "", 0},
      {"sense data", page + naa, "", std::string("\x70\0\6", 3), 0},
      {"path failure that reports a full transfer", "", "", "", 1},
  };
  for (const auto &row : rows) {
    sim::unit_of(lun).hook = [&row](const std::string &, const std::string &, sim::ScsiAnswer &answer,
                                    int &) {
      answer.data = row.data;
      answer.sense = row.sense;
      answer.host_status = row.host_status;
      if (row.host_status) answer.residual_extra = -255;
      return true;
    };
    HBA_FCPTARGETMAPPINGV2 *mapping = v2(1);
    ASSERT_EQ(HCX_GetFcpTargetMappingV2(0, wwn(kWwpn), mapping), 0u) << row.what;
    std::string expected = row.luid;
    expected.resize(256);
    EXPECT_EQ(bytes_of(&mapping->entry[0].LUID, 256), expected) << row.what;
  }
  const sim::Request request = m.requests().back();
  EXPECT_EQ(request.header, std::string("\x12\1\x83\0\xff\0", 6));
  EXPECT_EQ(request.path, "/dev/sg0");
  sim::unit_of(lun).hook = [](const std::string &, const std::string &, sim::ScsiAnswer &, int &error) {
    error = ENODEV;
    return true;
  };
  HBA_FCPTARGETMAPPINGV2 *mapping = v2(1);
  ASSERT_EQ(HCX_GetFcpTargetMappingV2(0, wwn(kWwpn), mapping), 0u);
  EXPECT_EQ(bytes_of(&mapping->entry[0].LUID, 256), std::string(256, '\0'));
}

TEST_F(Mapping, IdentifiedMappingChecksThePortName) {
  sim::Rport &port = host->add_rport({.wwpn = kTarget});
  for (uint64_t lun = 0; lun < 3; lun++)
    port.add_lun({.lun = lun});
  scan();
  HBA_FCPTARGETMAPPINGV2 *mapping = v2(3);
  EXPECT_EQ(HCX_GetFcpTargetMappingV2(0, wwn(0x10000000c9ffffff), mapping), 5u);
  EXPECT_TRUE(m.logged("HCX_GetFcpTargetMappingV2 - board 0 illegal wwn x10000000c9ffffff "));
  EXPECT_EQ(HCX_GetFcpTargetMappingV2(4, wwn(kWwpn), mapping), 1u);
  EXPECT_TRUE(m.logged("HCX_GetFcpTargetMappingV2 - get adapter port attributes failed on board 4"));
  EXPECT_TRUE(untouched(mapping->entry[0]));
  EXPECT_EQ(HCX_GetFcpTargetMappingV2(0, wwn(kWwpn), nullptr), 4u);

  mapping = v2(2);
  EXPECT_EQ(HCX_GetFcpTargetMappingV2(0, wwn(kWwpn), mapping), 7u);
  EXPECT_EQ(mapping->NumberOfEntries, 3u);
  EXPECT_TRUE(untouched(mapping->entry[0]));
  mapping = v2(0);
  EXPECT_EQ(HCX_GetFcpTargetMappingV2(0, wwn(kWwpn), mapping), 7u);
  mapping = v2(3);
  EXPECT_EQ(HCX_GetFcpTargetMappingV2(0, wwn(kWwpn), mapping), 0u);
  EXPECT_STREQ(mapping->entry[2].ScsiId.OSDeviceName, "/dev/sdc");
  EXPECT_EQ(bytes_of(&mapping->entry[2].LUID, 4), std::string("\1\3\0\x8", 4));
  EXPECT_TRUE(untouched(mapping->entry[3]));
}

TEST_F(Mapping, OnePassOverThousandsOfLuns) {
  for (int target = 0; target < 4; target++) {
    sim::Rport &port = host->add_rport({});
    for (uint64_t lun = 0; lun < 256; lun++)
      port.add_lun({.lun = lun});
  }
  scan();
  HBA_FCPTARGETMAPPING *mapping = v1(1024);
  m.clear_records();
  ASSERT_EQ(GetFcpTargetMapping(0, mapping), 0u);
  EXPECT_EQ(mapping->NumberOfEntries, 1024u);
  // The way to a LUN is walked once, and a few names are asked for there.
  EXPECT_LE(m.calls(sim::Verb::open), 1024u + 4 * 16 + 64);
  EXPECT_LE(m.calls(sim::Verb::list) + m.calls(sim::Verb::read_link), 1024u * 4 + 4 * 16);
}

TEST_F(Bindings, ListThePortsThatCanBeRead) {
  host->add_rport({.wwpn = kTarget, .port_id = 0x010300, .target_id = 2});
  host->add_rport({.wwpn = kTarget + 1, .wwnn = 0x5006016080000002, .port_id = 0x010301, .target_id = 3});
  host->add_rport({.wwpn = kTarget + 2, .port_id = 0x010302, .roles = "FCP Initiator"});
  scan();
  struct {
    uint32_t count;
    HBA_BIND_ENTRY entry[3];
  } list;
  memset(&list, 0xee, sizeof list);
  list.count = 3;
  auto *record = reinterpret_cast<HBA_BIND_LIST_PTR>(&list);
  ASSERT_EQ(GetFcpBindList(0, record), 0u);
  EXPECT_EQ(list.count, 3u);
  HBA_BIND_ENTRY expected = {};
  expected.scsi_id = 3;
  expected.did = 0x010301;
  expected.wwnn = wwn(0x5006016080000002);
  expected.wwpn = wwn(kTarget + 1);
  expected.flags = 5;
  EXPECT_EQ(bytes_of(&list.entry[1], 32), bytes_of(&expected, 32));
  EXPECT_EQ(list.entry[2].flags, 8u);
  EXPECT_EQ(list.entry[2].scsi_id, 0xffffffffu);

  // Room for two, and the first can no longer be read when its turn comes: the other two move up.
  memset(&list, 0xee, sizeof list);
  list.count = 2;
  m.fail({.verb = sim::Verb::open, .path = "rport-3:0-0/port_state", .nth = 2});
  ASSERT_EQ(GetFcpBindList(0, record), 0u);
  m.clear_faults();
  EXPECT_EQ(list.count, 2u);
  EXPECT_EQ(number(list.entry[0].wwpn), kTarget + 1);
  EXPECT_EQ(number(list.entry[1].wwpn), kTarget + 2);

  list.count = 1;
  EXPECT_EQ(GetFcpBindList(0, record), 1u);
  EXPECT_EQ(list.count, 3u);
  EXPECT_TRUE(m.logged("GetFcpBindList - board 0 found 3 entries but bind list entries 1"));
  EXPECT_EQ(GetFcpBindList(5, record), 0u);
  EXPECT_EQ(list.count, 0u);
  EXPECT_EQ(GetFcpBindList(0, nullptr), 4u);
}

TEST_F(Bindings, NothingIsPersistent) {
  HBA_FCPBINDING binding;
  binding.NumberOfEntries = 9;
  EXPECT_EQ(GetFcpPersistentBinding(0, &binding), 0u);
  EXPECT_EQ(binding.NumberOfEntries, 0u);
  EXPECT_EQ(GetFcpPersistentBinding(0, nullptr), 4u);
  EXPECT_EQ(AddBind(0, BIND_WWPN, nullptr, nullptr), 2u);
  EXPECT_EQ(DelBind(0, BIND_WWPN, nullptr), 2u);
}

}  // namespace
