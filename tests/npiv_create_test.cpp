// SPDX-License-Identifier: BSD-3-Clause
// Making and deleting virtual ports: which names, what is written where, every refusal, and what a failure leaves.
#include <cerrno>

#include "board_fixture.h"

namespace {

using Texts = std::vector<std::string>;

constexpr uint64_t kWwpn = 0x200000112233aabb, kWwnn = 0x300000112233aabb;

class NpivCreate : public BoardTest {
 protected:
  void start(bool vport_class = true, sim::HostSpec spec = {}) {
    m.vport_class(vport_class);
    spec.number = 3;
    spec.wwpn = kWwpn;
    spec.wwnn = kWwnn;
    host = &m.add_host(std::move(spec));
    scan();
    m.clear_records();
  }

  uint32_t create(uint64_t wwpn, uint64_t wwnn, uint32_t options = 0, const char *name = nullptr) {
    memset(&record, 0, sizeof record);
    record.ver = 3;
    record.wwpn = BoardTest::wwn(wwpn);
    record.wwnn = BoardTest::wwn(wwnn);
    record.options = options;
    std::string text = name ? name : "";
    return HCX_VPCreate(0, name ? text.data() : nullptr, &record);
  }
  uint32_t remove(uint64_t wwpn, uint32_t board = 0) {
    HBA_WWN name = wwn(wwpn);
    return HCX_VPDelete(board, &name, 0);
  }

  // What was written but for the mailbox, as "path=text"; a path without the class directory.
  Texts written() {
    Texts out;
    for (const sim::Write &write : m.writes()) {
      if (write.path.ends_with("/mbox")) continue;
      out.push_back(write.path.substr(strlen("/sys/class/")) + "=" + write.text);
    }
    m.clear_records();
    return out;
  }

  sim::Host *host = nullptr;
  HCX_VPAttrib record;
};

TEST_F(NpivCreate, WritesOneLineAndTheNameOfItsOwn) {
  start();
  EXPECT_EQ(create(0x2001000000000001, 0x0000000000000abc, 0, "db1"), 0u);
  EXPECT_EQ(written(), (Texts{"fc_host/host3/vport_create=2001000000000001:0000000000000abc\n",
                              "fc_vports/vport-3:0-0/symbolic_name=db1"}));
  EXPECT_STREQ(record.name, "Quorva PPN-20:01:00:00:00:00:00:01 VPort-1 VName-db1");
  EXPECT_EQ(record.state, 8);
  EXPECT_EQ(record.checklist, 0xffu);
  EXPECT_EQ(number(record.wwnn), 0xabcu);
  // Without a name, or with an empty one, none is written.
  for (const char *name : {static_cast<const char *>(nullptr), ""}) {
    EXPECT_EQ(create(0x2002000000000001, 1, 0, name), 0u);
    EXPECT_EQ(written(), Texts{"fc_host/host3/vport_create=2002000000000001:0000000000000001\n"});
    EXPECT_EQ(remove(0x2002000000000001), 0u);
    EXPECT_EQ(written(), Texts{"fc_host/host3/vport_delete=2002000000000001:0000000000000001"});
  }
}

TEST_F(NpivCreate, OlderKernelsTakeTheNameInTheSameLine) {
  start(false);
  EXPECT_EQ(create(0x2001000000000001, 0xabc, 0, "db 1"), 0u);
  EXPECT_EQ(written(), Texts{"scsi_host/host3/vport_create=2001000000000001:0000000000000abc db 1\n"});
  EXPECT_STREQ(record.name, "db 1");
  EXPECT_EQ(create(0x2002000000000001, 1), 0u);
  EXPECT_EQ(written(), Texts{"scsi_host/host3/vport_create=2002000000000001:0000000000000001 \n"});
  EXPECT_EQ(remove(0x2002000000000001), 0u);
  EXPECT_EQ(written(), Texts{"scsi_host/host3/vport_delete=2002000000000001:0000000000000001"});
  // A name of any length that one write can carry; what would be cut is not sent.
  const std::string longest(4096 - 35, 'x');
  EXPECT_EQ(create(0x2003000000000001, 1, 0, longest.c_str()), 0u);
  EXPECT_EQ(written().front().size(), strlen("scsi_host/host3/vport_create=") + 4096);
  EXPECT_EQ(create(0x2004000000000001, 1, 0, (longest + 'x').c_str()), 1u);
  EXPECT_EQ(written(), Texts{});
}

TEST_F(NpivCreate, RefusalsWriteNothing) {
  start();
  host->add_vport({.wwpn = 0x2009000000000001, .wwnn = 0x3009000000000001});
  const struct {
    const char *what;
    uint64_t wwpn, wwnn;
    uint32_t options;
    const char *name;
    uint32_t result;
    const char *logged;  // behind "HCX_VPCreate - "
  } refusals[] = {
      {"option 0x04", 1, 1, 0x04, "", 12, "Unsupported HCX_VPAttrib option (4)"},
      {"option 0x08", 1, 1, 0x0a, "", 12, "Unsupported HCX_VPAttrib option (10)"},
      {"option 0x10", 1, 1, 0x10, "", 12, "Unsupported HCX_VPAttrib option (16)"},
      {"option 0x80", 1, 1, 0x80, "", 12, "Unsupported HCX_VPAttrib option (128)"},
      {"all refused options", 1, 1, 0xffffffff, "", 12, "Unsupported HCX_VPAttrib option (-1)"},
      {"no port name", 0, 1, 0, "", 6, "board 0 zero WWPN or WWNN"},
      {"no node name", 1, 0, 0, "", 6, "board 0 zero WWPN or WWNN"},
      {"the board's own name", kWwpn, 1, 0, "", 5, "board 0 illegal WWPN"},
      {"a virtual port's name", 0x2009000000000001, 1, 0, "", 5, "board 0 illegal WWPN"},
      {"newline in the name", 1, 1, 0, "a\nb", 1, ""},
      {"escape in the name", 1, 1, 0, "\x1b[2J", 1, ""},
      {"delete in the name", 1, 1, 0, "\x7f", 1, ""},
  };
  for (const auto &c : refusals) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(create(c.wwpn, c.wwnn, c.options, c.name), c.result);
    EXPECT_TRUE(!*c.logged || m.logged(std::string("HCX_VPCreate - ") + c.logged));
    EXPECT_EQ(written(), Texts{});
    expect_nothing_left(c.what);
  }
  // An option that is refused is refused before names are chosen.
  EXPECT_EQ(create(0, 0, 0x06), 12u);
  EXPECT_EQ(number(record.wwpn), 0u);
  for (const uint8_t version : {0, 2, 4}) {
    record.ver = version;
    expect_told(HCX_VPCreate(0, nullptr, &record), 1,
                "HCX_VPCreate - board 0 Unsupported HCX_VPAttrib version (" + std::to_string(version) + ")");
  }
  record.ver = 3;
  expect_told(HCX_VPCreate(9, nullptr, &record), 11, "HCX_VPCreate - no host for board 9");
  EXPECT_EQ(HCX_VPCreate(0, nullptr, nullptr), 1u);
  EXPECT_EQ(written(), Texts{});
  for (const uint32_t option : {0x01u, 0x20u, 0x40u, 0x100u}) {
    EXPECT_EQ(create(0x2001000000000001, 1, option), 0u) << option;
    EXPECT_EQ(remove(0x2001000000000001), 0u) << option;
  }
  // Bytes of other alphabets are no control characters.
  EXPECT_EQ(create(0x2001000000000001, 1, 0, "p\xc3\xa4r"), 0u);
}

class NpivCreateBoth : public NpivCreate, public ::testing::WithParamInterface<bool> {};
INSTANTIATE_TEST_SUITE_P(VportClass, NpivCreateBoth, ::testing::Bool());

TEST_P(NpivCreateBoth, CapacityIsCheckedBeforeTheNames) {
  start(GetParam(), {.max_vports = 1});
  EXPECT_EQ(create(0x2001000000000001, 1), 0u);
  m.clear_records();
  expect_told(create(0, 0), 4, "HCX_VPCreate - board 0 max vports 1 already created");
  m.vfs().remove((GetParam() ? host->fc_dir() : host->scsi_dir()) + "max_npiv_vports");
  expect_told(create(0, 0), 2, "HCX_VPCreate - board 0 max_npiv_vports not found");
  EXPECT_EQ(written(), Texts{});
}

TEST_F(NpivCreate, ChosenNamesDifferInTheThirdByte) {
  start();
  sim::Host &other = m.add_host({.number = 4});
  other.add_vport({.wwpn = 0x200001112233aabb, .wwnn = 1});
  other.add_vport({.wwpn = 0x200002112233aabb, .wwnn = 1});
  EXPECT_EQ(create(0x77, 0, 0x02), 0u);
  EXPECT_EQ(number(record.wwpn), 0x200003112233aabbu);
  EXPECT_EQ(number(record.wwnn), 0x300003112233aabbu);
  EXPECT_EQ(create(0, 0x55, 0x02), 0u);
  EXPECT_EQ(number(record.wwpn), 0x200004112233aabbu);
  EXPECT_EQ(number(record.wwnn), 0x55u);
}

TEST_F(NpivCreate, ABoardsOwnNameIsOneOfTheCandidates) {
  m.add_host({.number = 3, .wwpn = 0x200001112233aabb, .wwnn = 0x300001112233aabb});
  scan();
  EXPECT_EQ(create(0, 0, 0x02), 0u);
  EXPECT_EQ(number(record.wwpn), 0x200002112233aabbu);
}

TEST_F(NpivCreate, The254thCandidateIsTheLast) {
  start(true, {.max_vports = 300});
  for (uint64_t i = 1; i <= 253; ++i)
    host->add_vport({.wwpn = kWwpn + (i << 40), .wwnn = 1});
  EXPECT_EQ(create(0, 0x55, 0x02), 0u);
  EXPECT_EQ(number(record.wwpn), 0x2000fe112233aabbu);
  m.clear_records();
  expect_told(create(0x66, 0x55, 0x02), 6, "HCX_VPCreate - board 0 zero WWPN or WWNN");
  EXPECT_EQ(number(record.wwpn), 0u);
  EXPECT_EQ(number(record.wwnn), 0u);
  EXPECT_EQ(written(), Texts{});
}

TEST_F(NpivCreate, ADriversRefusalLeavesTheChecklist) {
  start();
  host->set_scsi("link_state", "Link Down");
  const sim::Fault refusals[] = {
      {.verb = sim::Verb::write, .path = "vport_create", .error = EINVAL},
      {.verb = sim::Verb::write, .path = "vport_create", .short_count = 5},
      {.verb = sim::Verb::open, .path = "vport_create", .error = EACCES},
  };
  for (const sim::Fault &fault : refusals) {
    m.fail(fault);
    EXPECT_EQ(create(0x2001000000000001, 1, 0, "db1"), 1u);
    EXPECT_EQ(record.checklist, 0x2fu);
    EXPECT_TRUE(m.logged("HCX_VPCreate - board 0 vport_create write error"));
    EXPECT_EQ(record.state, 0) << "not filled";
    m.clear_faults();
    expect_nothing_left("after a refusal");
  }
  EXPECT_EQ(create(0x2001000000000001, 1), 0u);
}

TEST_P(NpivCreateBoth, APortThatAppearsLater) {
  start(GetParam(), {.max_vports = 2, .vport_delay = 1});
  EXPECT_EQ(create(0x2001000000000001, 1, 0, "db1"), 6u);
  EXPECT_TRUE(m.logged("HCX_VPCreate - board 0 vp get attrib returned invalid wwpn"));
  EXPECT_EQ(number(record.wwpn), 0x2001000000000001u);
  EXPECT_EQ(HCX_VPGetAttrib(0, &record.wwpn, &record), 0u);
  EXPECT_STREQ(record.name, GetParam() ? "Quorva PPN-20:01:00:00:00:00:00:01 VPort-1" : "db1");
  EXPECT_EQ(remove(0x2001000000000001), 0u);
}

TEST_F(NpivCreate, DeletionNeedsAVirtualPortThatIsNotStatic) {
  start();
  host->add_vport({.wwpn = 0x11, .wwnn = 0x22});
  host->add_vport({.wwpn = 0x33, .wwnn = 0x44, .configured = true});
  expect_told(remove(0x33), 15, "HCX_VPDeleteV2 - board 0 cannot delete static vport");
  expect_told(remove(kWwpn), 4, "HCX_VPDeleteV2 - board 0 vp get attrib returned error 4");
  EXPECT_EQ(remove(0x99), 4u);
  EXPECT_EQ(remove(0), 4u);
  expect_told(remove(0x11, 6), 3, "HCX_VPDeleteV2 - no host for board 6");
  EXPECT_EQ(HCX_VPDelete(0, nullptr, 0), 1u);
  EXPECT_EQ(written(), Texts{});
  m.fail({.verb = sim::Verb::write, .path = "vport_delete", .error = EPERM});
  expect_told(remove(0x11), 1, "HCX_VPDeleteV2 - board 0 vport_delete write failed");
  m.clear_records();
  // Options and access key do not matter.
  HBA_WWN name = wwn(0x11);
  uint8_t key[32] = {1};
  EXPECT_EQ(HCX_VPDeleteV2(0, &name, 0xffffffff, key), 0u);
  EXPECT_EQ(written(), Texts{"fc_host/host3/vport_delete=0000000000000011:0000000000000022"});
}

TEST_F(NpivCreate, SymbolicNames) {
  start();
  EXPECT_EQ(hcx_set_vport_sybolic_name(nullptr, nullptr), 0);
  char nothing[] = "", name[] = "db1", newline[] = "a\n";
  HBA_WWN wwpn = wwn(0x11);
  EXPECT_EQ(hcx_set_vport_sybolic_name(&wwpn, nothing), 0);
  EXPECT_EQ(hcx_set_vport_sybolic_name(&wwpn, name), -1) << "no virtual port at all";
  host->add_vport({.wwpn = 0x10, .wwnn = 1});
  host->add_vport({.wwpn = 0x11, .wwnn = 1});
  EXPECT_EQ(hcx_set_vport_sybolic_name(&wwpn, newline), 1);
  EXPECT_EQ(hcx_set_vport_sybolic_name(nullptr, name), -1);
  EXPECT_EQ(written(), Texts{});
  EXPECT_EQ(hcx_set_vport_sybolic_name(&wwpn, name), 0);
  EXPECT_EQ(written(), Texts{"fc_vports/vport-3:0-1/symbolic_name=db1"});
  std::string longest(64, 'x'), longer(65, 'x');
  EXPECT_EQ(hcx_set_vport_sybolic_name(&wwpn, longest.data()), 0);
  EXPECT_EQ(hcx_set_vport_sybolic_name(&wwpn, longer.data()), EINVAL);
  m.fail({.verb = sim::Verb::write, .path = "symbolic_name", .error = EINVAL});
  EXPECT_EQ(hcx_set_vport_sybolic_name(&wwpn, name), EINVAL);
  m.fail({.verb = sim::Verb::open, .path = "symbolic_name", .error = EACCES});
  EXPECT_EQ(hcx_set_vport_sybolic_name(&wwpn, name), 2);
  HBA_WWN nobody = wwn(0x12);
  EXPECT_EQ(hcx_set_vport_sybolic_name(&nobody, name), -1);
}

}  // namespace
