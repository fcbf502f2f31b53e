// SPDX-License-Identifier: BSD-3-Clause
// FCP priority: the order of the table, what the driver reports about it, the switch and the logical link speed.
#include "region_machine.h"

namespace {

class Qos : public RegionTest {
 protected:
  struct Table {
    explicit Table(size_t entries, size_t room = 0)
        : bytes(sizeof(HCX_QoSConfig) + std::max(entries, room) * sizeof(HCX_QoSEntry), '\x5a') {
      get()->numberOfEntries = static_cast<uint32_t>(entries);
    }
    HCX_QoSConfig *get() { return reinterpret_cast<HCX_QoSConfig *>(bytes.data()); }
    std::string bytes;
  };
  // "s" stands for a given source, "t" target, "f" first LUN, "l" last LUN; what is missing is any.
  static HCX_QoSEntry entry(std::string_view given, uint8_t priority) {
    HCX_QoSEntry made{};
    uint8_t *fields[] = {made.src_wwpn, made.tgt_wwpn, made.first_lun, made.last_lun};
    for (int i = 0; i < 4; ++i)
      memset(fields[i], given.find("stfl"[i]) == std::string_view::npos ? 0xff : 0x11 * (i + 1), 8);
    made.fcp_priority = priority;
    return made;
  }
  static Table table(const std::vector<HCX_QoSEntry> &entries) {
    Table made(entries.size());
    for (size_t i = 0; i < entries.size(); ++i)
      made.get()->fcQoSEntry[i] = entries[i];
    return made;
  }
  static std::vector<int> priorities(Table &table) {
    std::vector<int> found;
    for (uint32_t i = 0; i < table.get()->numberOfEntries; ++i)
      found.push_back(table.get()->fcQoSEntry[i].fcp_priority);
    return found;
  }
};

TEST_F(Qos, TheMostSpecificComesFirst) {
  Table five = table({entry("tfl", 1), entry("stfl", 2), entry("stf", 3), entry("stfl", 4), entry("sfl", 5)});
  EXPECT_EQ(order_fcp_priority_list(five.get()), 0);
  EXPECT_EQ(priorities(five), (std::vector<int>{4, 2, 3, 5, 1}));
  // The first wildcard decides; within a class the order turns round.
  Table more = table({entry("", 1), entry("l", 2), entry("s", 3), entry("sl", 4), entry("st", 5),
                      entry("stl", 6), entry("stf", 7), entry("stf", 8)});
  EXPECT_EQ(order_fcp_priority_list(more.get()), 0);
  EXPECT_EQ(priorities(more), (std::vector<int>{8, 7, 6, 5, 4, 3, 2, 1}));
  // Seven bytes of 0xff are a name.
  Table near = table({entry("", 1), entry("stfl", 2)});
  near.get()->fcQoSEntry[0].src_wwpn[7] = 0xfe;
  EXPECT_EQ(order_fcp_priority_list(near.get()), 0);
  EXPECT_EQ(priorities(near), (std::vector<int>{2, 1}));
  const std::string before = five.bytes;
  alloc_fault::fail_nth(1);
  EXPECT_EQ(order_fcp_priority_list(five.get()), 1);
  EXPECT_TRUE(alloc_fault::take_hit());
  EXPECT_EQ(five.bytes, before);
  Table none(0);
  EXPECT_EQ(order_fcp_priority_list(none.get()), 0);
  EXPECT_EQ(order_fcp_priority_list(nullptr), 1);
}

TEST_F(Qos, SetSendsTheOrderedTable) {
  Table two = table({entry("s", 9), entry("stfl", 200)});
  EXPECT_EQ(HCX_QoSSetConfig(fc, two.get()), 0u);
  const auto seen = m.requests();
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].command, 13u);
  EXPECT_EQ(to_hex(seen[0].data_out.substr(0, 76)),
            native("02000000", "00000002") +
                to_hex(hex("1111111111111111 2222222222222222 3333333333333333 4444444444444444 c8000000"
                           "1111111111111111 ffffffffffffffff ffffffffffffffff ffffffffffffffff 09000000")));
  Table none(0);
  m.clear_records();
  EXPECT_EQ(HCX_QoSSetConfig(fc, none.get()), 0u);
  ASSERT_EQ(m.requests().size(), 1u);
  EXPECT_EQ(to_hex(m.requests()[0].data_out.substr(0, 4)), "00000000");
  EXPECT_EQ(HCX_QoSSetConfig(nobody, none.get()), 3u);
  EXPECT_TRUE(m.logged("HCX_QoSSetConfig - no host on board 9"));
  EXPECT_EQ(HCX_QoSSetConfig(fc, nullptr), 1u);
  m.clear_records();
  for (const uint32_t count : {1821u, 0x7ffffffu, 0x71c71c8u, 0xffffffffu}) {
    none.get()->numberOfEntries = count;
    EXPECT_EQ(HCX_QoSSetConfig(fc, none.get()), 1u) << count;
    EXPECT_EQ(HCX_QoSGetConfig(fc, none.get()), 1u) << count;
    EXPECT_EQ(order_fcp_priority_list(none.get()), 1) << count;
  }
  EXPECT_EQ(m.requests().size(), 0u);
  Table most(1820);
  EXPECT_EQ(order_fcp_priority_list(most.get()), 0);
  m.bsg().on_vendor(13, [](sim::BsgCall &call) { call.result = -EIO; });
  EXPECT_EQ(HCX_QoSSetConfig(fc, two.get()), static_cast<uint32_t>(-EIO));
}

TEST_F(Qos, GetFillsNoMoreThanThereIsRoomFor) {
  std::vector<HCX_QoSEntry> entries;
  for (uint8_t i = 0; i < 5; ++i)
    entries.push_back(entry("stfl", i));
  Table five = table(entries);
  ASSERT_EQ(HCX_QoSSetConfig(fc, five.get()), 0u);
  for (const size_t room : {0u, 2u, 4u, 5u, 9u}) {
    Table got(room, 10);
    EXPECT_EQ(HCX_QoSGetConfig(fc, got.get()), room < 5 ? 7u : 0u) << room;
    EXPECT_EQ(got.get()->numberOfEntries, 5u);
    const size_t filled = std::min<size_t>(room, 5);
    EXPECT_EQ(got.bytes.substr(4, 36 * filled), five.bytes.substr(4, 36 * filled));
    EXPECT_EQ(got.bytes[4 + 36 * filled], '\x5a') << room;
  }
  // A driver that claims anything.
  m.bsg().on_vendor(12, [](sim::BsgCall &call) { call.data_in = std::string(4 + 36 * 2, '\xff'); });
  Table got(2, 10);
  EXPECT_EQ(HCX_QoSGetConfig(fc, got.get()), 7u);
  EXPECT_EQ(got.get()->numberOfEntries, 0xffffffffu);
  EXPECT_EQ(got.bytes[4 + 72], '\x5a');
  m.bsg().on_vendor(12, [](sim::BsgCall &call) { call.error = ENODEV; });
  Table kept(2);
  const std::string before = kept.bytes;
  EXPECT_NE(HCX_QoSGetConfig(fc, kept.get()), 0u);
  EXPECT_EQ(kept.bytes, before);
  EXPECT_EQ(HCX_QoSGetConfig(nobody, kept.get()), 3u);
  EXPECT_EQ(HCX_QoSGetConfig(fc, nullptr), 1u);
}

TEST_F(Qos, Switch) {
  const std::string path = host(fc).scsi_dir() + "vosk_enable_fcp_priority";
  EXPECT_EQ(HCX_QoSSetGlobalFlag(fc, 1), 0u);
  ASSERT_EQ(m.writes().size(), 1u);
  EXPECT_EQ(m.writes()[0].path, path);
  EXPECT_EQ(m.writes()[0].text, "1");
  uint32_t flag = 77;
  EXPECT_EQ(HCX_QoSGetGlobalFlag(fc, &flag), 0u);
  EXPECT_EQ(flag, 1u);
  m.clear_records();
  const uint64_t opened = m.calls(sim::Verb::open);
  EXPECT_EQ(HCX_QoSSetGlobalFlag(fc, 2), 1u);
  EXPECT_EQ(m.calls(sim::Verb::open), opened);
  EXPECT_TRUE(m.logged("HCX_QoSSetGlobalFlag - invalid flag 2 on board 0"));
  EXPECT_EQ(HCX_QoSSetGlobalFlag(nobody, 2), 3u);
  const struct {
    const char *text;
    uint32_t result, value;
  } texts[] = {{"0", 0, 0},           {"0x1", 0, 1},   {"01", 0, 1}, {"2", 1, 2},
               {"010", 1, 8},         {"0x10", 1, 16}, {"", 0, 0},   {"4294967296", 1, 0xffffffff},
               {"-1", 1, 0xffffffff}, {"on", 0, 0}};
  for (const auto &t : texts) {
    m.vfs().put_text(path, std::string(t.text) + "\n", 0644);
    EXPECT_EQ(HCX_QoSGetGlobalFlag(fc, &flag), t.result) << t.text;
    EXPECT_EQ(flag, t.value) << t.text;
  }
  EXPECT_TRUE(m.logged("HCX_QoSGetGlobalFlag - board 0 returned an invalid priority 16"));
  m.fail({.verb = sim::Verb::write, .path = "vosk_enable_fcp_priority"});
  EXPECT_EQ(HCX_QoSSetGlobalFlag(fc, 0), 1u);
  EXPECT_TRUE(
      m.logged("HCX_QoSSetGlobalFlag - ERROR updating vosk_enable_fcp_priority with flag 0 on board 0"));
  m.clear_faults();
  m.vfs().remove(path);
  EXPECT_EQ(HCX_QoSGetGlobalFlag(fc, &flag), 2u);
  EXPECT_TRUE(m.logged("HCX_QoSGetGlobalFlag - board 0 fcp priority not supported"));
  EXPECT_EQ(HCX_QoSGetGlobalFlag(nobody, &flag), 3u);
  EXPECT_EQ(HCX_QoSGetGlobalFlag(fc, nullptr), 1u);
}

TEST_F(Qos, LinkSpeed) {
  hcx_host *record = hcx_host_find_by_idx(hcx_host_list, fc);
  pthread_rwlock_unlock(&record->rwlock);
  char *kept = record->info;
  const struct {
    const char *info;
    uint32_t result;
    uint16_t speed;
  } cases[] = {
      {"adapter Logical Link Speed: 10000 Mbps", 0, 1000},
      {"adapter Logical Link Speed: 19", 0, 1},
      {"adapter Logical Link Speed:   40 Mbps", 0, 4},
      {"adapter without", 0, 0xffff},
      {"Logical Link Speed: 10000", 0, 0xffff},
      {" Logical Link Speed: 1000000", 0, 0xfffe},
      {" Logical Link Speed: -20", 0, 0},
      {" Logical Link Speed: 99999999999999999999", 0, 0xfffe},
      {" Logical Link Speed: none", 1, 0xffff},
      {" Logical Link Speed: ", 1, 0xffff},
      {nullptr, 1, 0xffff},
  };
  uint16_t speed = 7;
  for (const auto &c : cases) {
    record->info = const_cast<char *>(c.info);
    EXPECT_EQ(HCX_GetQoSLinkSpeed(fc, &speed), c.result) << &c - cases;
    EXPECT_EQ(speed, c.speed) << &c - cases;
  }
  record->info = kept;
  expect_lines("HCX_GetQoSLinkSpeed - board 0 ",
               {"error with sscanf 0 info_string  Logical Link Speed: none",
                "error with sscanf -1 info_string  Logical Link Speed: ", "missing host info"});
  EXPECT_EQ(HCX_GetQoSLinkSpeed(old_fc, &speed), 2u);
  EXPECT_EQ(speed, 0xffff);
  EXPECT_EQ(HCX_GetQoSLinkSpeed(nobody, &speed), 3u);
  EXPECT_EQ(HCX_GetQoSLinkSpeed(fc, nullptr), 1u);
}

}  // namespace
