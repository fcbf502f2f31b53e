// SPDX-License-Identifier: BSD-3-Clause
// The FCoE calls: forwarders as the adapter lists them, connect list and FIP parameters in region 23, byte for byte.
#include "region_machine.h"

namespace {

using sim::MailboxCall;

// A caller's record with room for entries behind its head.
template <class List, class Entry>
struct Records {
  explicit Records(size_t room) : bytes(sizeof(List) + room * sizeof(Entry), '\x5a') {
    list()->version = 1;
    list()->numberOfEntries = static_cast<decltype(list()->numberOfEntries)>(room);
  }
  List *list() { return reinterpret_cast<List *>(bytes.data()); }
  Entry &entry(size_t i) { return list()->entries[i]; }
  std::string bytes;
};
using Forwarders = Records<HCX_FCoEFCFList, HCX_FCoEFCFInfo>;
using Connect = Records<HCX_FCoEConnectList, HCX_FCoEFCFConnectEntry>;

class Fcoe : public RegionTest {
 protected:
  static HCX_FCoEFCFConnectEntry entry(uint16_t flags, uint16_t vlan, char fabric, char sw) {
    HCX_FCoEFCFConnectEntry made{};
    made.flags = flags;
    made.vlanId = vlan;
    memset(made.fabricName, fabric, 8);
    memset(made.switchName, sw, 8);
    return made;
  }
  uint32_t set_list(const std::vector<HCX_FCoEFCFConnectEntry> &entries) {
    Connect list(entries.size());
    for (size_t i = 0; i < entries.size(); ++i)
      list.entry(i) = entries[i];
    return HCX_FCoESetFCFConnectList(fcoe, list.list());
  }
  static std::string list_record(const std::string &entries) {
    std::string digits = "a1500000" + to_hex(hex(entries));
    digits.resize(648, '0');
    return digits;
  }
  uint32_t set_param(const char *fc_map, uint8_t valid, uint16_t vlan) {
    HCX_FCoEParam param{};
    param.version = 1;
    memcpy(param.FCMap, fc_map, 3);
    param.VLanValid = valid;
    param.VLanId = vlan;
    return HCX_FCoESetParams(fcoe, &param);
  }
  // The list, or the parameters, are not written: the call fails with this line.
  void expect_refused(bool list, const std::string &line, const std::string &bytes) {
    set_flash(fcoe, bytes);
    commands();
    EXPECT_EQ(list ? set_list({}) : set_param("\x0e\xfc\x09", 1, 1), 1u) << line;
    EXPECT_FALSE(wrote()) << line;
    const std::string call = list ? "HCX_FCoESetFCFConnectList" : "HCX_FCoESetParams";
    EXPECT_TRUE(m.logged(call + " - board 2 " + line)) << line;
  }
  void expect_not_found(const std::string &bytes) {
    m.clear_records();
    expect_refused(true, "did not find connection record in region 23", bytes);
    expect_refused(false, "did not find parameter record in region 23", bytes);
  }
  // A connect list with every fifth of its records in use.
  static std::string four_entries() {
    std::string entries;
    for (int i = 0; i < 16; ++i)
      entries += i % 5 == 0 ? "0001 0000 6161616161616161 6262626262626262 " : std::string(40, '0');
    return list_record(entries);
  }
};

const std::string end = "ff000000 ", fip = "a0020101 0efc0000 03ea0000 ";

TEST_F(Fcoe, ForwardersByteForByte) {
  // Two entries by hand, the second one invalid, a third in between that the chain leaves out.
  std::string first =
      hex("00000c08 0000 00 00 34020000 34020000 00000001 0000 0007"
          "0000086e 401f0000 c8000000 0efc00112233 01 02 2000000decafbad0 0efc00 01 0003 0000");
  first += std::string(512, '\0') + hex("2001000decafbad0");
  first[60 + 125] = '\x04';  // VLAN 1002
  std::string second = first;
  second.replace(22, 2, hex("ffff"))[55] = '\0';
  ASSERT_EQ(first.size(), 580u);
  adapter(fcoe).handlers[0x9b] = [&, asked = 0](MailboxCall &call) mutable {
    call.result = ++asked == 1 ? first : second;
  };
  Forwarders list(1);
  EXPECT_EQ(HCX_FCoEGetFCFList(fcoe, list.list()), 0u);
  const std::vector<std::string> asked = commands();
  ASSERT_EQ(asked.size(), 2u);
  for (const int i : {0, 1}) {
    EXPECT_EQ(to_hex(asked[i].substr(0, 36)),
              to_hex(hex("00009b00 00000008 00000018 00000000 00000000 00000000"
                         "00000000 00000000 00000244")));
    EXPECT_EQ(to_hex(asked[i].substr(256, 24)), to_hex(hex("00000c08 00000000 34020000 00000000 0000") +
                                                       hex(i ? "0007" : "ffff") + std::string(4, '\0')));
  }
  EXPECT_EQ(list.list()->numberOfEntries, 1);
  EXPECT_EQ(list.list()->nActiveFCFs, 1);
  const HCX_FCoEFCFInfo &found = list.entry(0);
  EXPECT_EQ(to_hex(bytes_of(&found, 22)), "2000000decafbad02001000decafbad00efc00112233");
  EXPECT_EQ(to_hex(bytes_of(found.fcMap, 4)), "0efc0001");
  EXPECT_EQ(found.state, 1);
  EXPECT_EQ(found.vlanBitmap[125], 4);
  EXPECT_EQ(found.lkaPeriod, 8000u);
  EXPECT_EQ(found.priority, 200u);
  expect_lines("HCX_FCoEGetFCFList - ",
               {"fcf_cmd for fcf index xffff 00000c08 00000000 34020000",
                "fcf_rsp rc 0 00000c08 00000000 34020000 34020000 00000001 00000007"});
}

TEST_F(Fcoe, MoreForwardersThanRoom) {
  for (const size_t room : {0u, 1u, 2u, 3u}) {
    Forwarders list(room);
    EXPECT_EQ(HCX_FCoEGetFCFList(fcoe, list.list()), room < 2 ? 7u : 0u) << room;
    EXPECT_EQ(list.list()->numberOfEntries, 2);
    EXPECT_EQ(static_cast<uint8_t>(list.bytes[8 + 552 * room]), 0x5a) << "nothing behind the room";
  }
  sim::forwarders(host(fcoe)).clear();
  Forwarders none(2);
  EXPECT_EQ(HCX_FCoEGetFCFList(fcoe, none.list()), 0u);
  EXPECT_EQ(none.list()->numberOfEntries, 0);
  host(fcoe).set_fc("fabric_name", "0x0");
  EXPECT_EQ(HCX_FCoEGetFCFList(fcoe, none.list()), 0u);
  EXPECT_EQ(none.list()->nActiveFCFs, 0);
}

TEST_F(Fcoe, ForwardersThatDoNotComeRight) {
  const struct {
    const char *length;  // as the response has it
    uint8_t area_status;
    uint16_t status;
    std::vector<uint16_t> next;  // indices that the responses name, the end behind them
    uint32_t result;
    size_t exchanges;
  } cases[] = {
      {"34020000", 0, 0, {}, 0, 1},           {"00000000", 0, 0, {}, 1, 1},
      {"00000234", 0, 0, {}, 1, 1},           {"34020000", 0x31, 0, {}, 1, 1},
      {"34020000", 0, 0x10, {}, 2, 1},        {"34020000", 0, 0, {5, 6, 7}, 0, 4},
      {"34020000", 0, 0, {5, 5}, 1, 2},  // chains that never end
      {"34020000", 0, 0, {5, 6, 7, 5}, 1, 4},
  };
  Forwarders room(1);
  for (const auto &c : cases) {
    adapter(fcoe).handlers[0x9b] = [&c, i = size_t{0}](MailboxCall &call) mutable {
      const uint16_t index = i < c.next.size() ? c.next[i] : 0xffff;
      ++i;
      call.result = std::string(7, '\0') + byte(c.area_status) + std::string(4, '\0') + hex(c.length) +
                    std::string(6, '\0') + byte(index >> 8) + byte(index & 0xff) + std::string(556, '\0');
      call.set_status(c.status);
    };
    commands();
    EXPECT_EQ(HCX_FCoEGetFCFList(fcoe, room.list()), c.result) << &c - cases;
    EXPECT_EQ(commands().size(), c.exchanges) << &c - cases;
  }
  m.vfs().remove(host(fcoe).fc_dir() + "port_state");
  EXPECT_EQ(HCX_FCoEGetFCFList(fcoe, room.list()), 1u);
  expect_lines("HCX_FCoEGetFCFList - ",
               {"fcf response length incorrect: 564 expected but got 0", "fcf response status x0031",
                "board 2 fcf index x0005 comes again", "board 2 read port failed"});
}

TEST_F(Fcoe, ConnectListByteForByte) {
  const std::string kept = "30000000 a2022000 01000100 ff000000 ";
  const std::string names = "6161616161616161 6262626262626262";
  const std::string one = native("000d 0201" + names, "000d 0102" + names);
  set_flash(fcoe, image(kept + end + "77777777", '\xff'));
  EXPECT_EQ(set_list({entry(0x0c, 0x0102, 'a', 'b')}), 0u);
  EXPECT_EQ(to_hex(flash(fcoe)), to_hex(image(kept + list_record(one) + end)));
  Connect back(1);
  EXPECT_EQ(HCX_FCoEGetFCFConnectList(fcoe, back.list()), 0u);
  EXPECT_EQ(back.list()->numberOfEntries, 1);
  EXPECT_EQ(back.list()->maxNumOfEntries, 16);
  EXPECT_EQ(back.entry(0).flags, 0x0c);
  EXPECT_EQ(back.entry(0).vlanId, 0x0201);
  EXPECT_EQ(bytes_of(back.entry(0).fabricName, 16), "aaaaaaaabbbbbbbb");
  // In place, and what follows stays.
  set_flash(fcoe, image(kept + list_record(one) + fip + end + "deadbeef"));
  EXPECT_EQ(set_list({}), 0u);
  EXPECT_EQ(to_hex(flash(fcoe)), to_hex(image(kept + list_record("") + fip + end + "deadbeef")));
  // A region that was never written.
  set_flash(fcoe, {});
  EXPECT_EQ(set_list({entry(0x0c, 0x0102, 'a', 'b')}), 0u);
  EXPECT_EQ(to_hex(flash(fcoe)), to_hex(image(list_record(one) + end)));
}

TEST_F(Fcoe, ConnectListEntries) {
  set_flash(fcoe, image(end));
  EXPECT_EQ(set_list({entry(0x3f, 1, 'a', 'b'), entry(0x40, 1, 'a', 'b')}), 5u);
  Connect list(17);
  EXPECT_EQ(HCX_FCoESetFCFConnectList(fcoe, list.list()), 7u);
  EXPECT_EQ(list.list()->numberOfEntries, 16);
  EXPECT_FALSE(wrote());
  expect_lines("HCX_FCoESetFCFConnectList - ",
               {"entry(1) invalid flags x00000040 mask x0000003f", "board 2 bad numberOfEntries 17 max 16"});
  // Reading: four in use, room for two.
  set_flash(fcoe, image(four_entries() + "ff"));
  Connect back(2);
  EXPECT_EQ(HCX_FCoEGetFCFConnectList(fcoe, back.list()), 7u);
  EXPECT_EQ(back.list()->numberOfEntries, 4);
  EXPECT_EQ(bytes_of(back.entry(1).fabricName, 8), "aaaaaaaa");
  EXPECT_EQ(back.bytes[4 + 2 * 22], '\x5a') << "nothing behind the room";
  set_flash(fcoe, image(until(700) + four_entries()));
  EXPECT_EQ(HCX_FCoEGetFCFConnectList(fcoe, back.list()), 1u);
}

TEST_F(Fcoe, ParametersByteForByte) {
  const std::string kept = "30010000 deadbeef ";
  const struct {
    std::optional<std::string> before;
    const char *fc_map;
    uint8_t valid;
    uint16_t vlan;
    std::string after;
  } writes[] = {
      {image(kept + end + "77777777", '\xff'), "\x0e\xfc\x01", 1, 0x0102,
       kept + "a0020101 0efc0100 02010000 ff000000"},
      {image("a00201ff 0efc01ee 0201eeee" + kept + end + "77777777"), "\x0e\xfc\x02", 0, 0x0304,
       "a0020100 0efc0200 00000000" + kept + end + "77777777"},
      {std::nullopt, "\x0e\xfc\x00", 1, 4095, "a0020101 0efc0000 ff0f0000 ff000000"},
      // In place also where the records do not end: no byte around it changes.
      {image(fip + "30ff0000 77777777"), "\x0e\xfc\x03", 0, 0,
       "a0020100 0efc0300 00000000 30ff0000 77777777"},
  };
  HCX_FCoEParam param{};
  param.version = 1;
  for (const auto &c : writes) {
    set_flash(fcoe, c.before);
    EXPECT_EQ(set_param(c.fc_map, c.valid, c.vlan), 0u);
    EXPECT_EQ(to_hex(flash(fcoe)), to_hex(image(c.after)));
    EXPECT_EQ(HCX_FCoEGetParams(fcoe, &param), 0u);
    EXPECT_EQ(memcmp(param.FCMap, c.fc_map, 3), 0);
    EXPECT_EQ(param.VLanValid, 1) << "as applications know it";
    EXPECT_EQ(param.VLanId, c.valid ? c.vlan : 0);
  }
  EXPECT_EQ(set_param("\x0e\xfc\x00", 2, 1), 1u);
  EXPECT_TRUE(m.logged("HCX_FCoESetParams - board 2 bad VLanValid 2 must be 0 or 1"));
  set_flash(fcoe, image("a0030101 0efc0000 03ea0000 00000000 ff"));
  EXPECT_EQ(HCX_FCoEGetParams(fcoe, &param), 1u);
  set_flash(fcoe, image(until(1016) + "a0020101"));
  EXPECT_EQ(HCX_FCoEGetParams(fcoe, &param), 1u);
  expect_lines("HCX_FCoEGetParams - board 2 ", {"bad length 3 or version 1", "no space left in region 23"});
}

TEST_F(Fcoe, PlacesThatAreRefused) {
  set_flash(fcoe, image(until(688) + end));
  EXPECT_EQ(set_list({}), 0u) << "the last place";
  const struct {
    bool list;
    const char *line;
    std::string bytes;
  } cases[] = {
      {true, "no space left in region 23", image(until(696) + end)},
      {true, "no space left in region 23", image(until(696) + four_entries() + "ff")},
      {true, "bad internal length 79 or version 1", image("a14f0105 ff000000")},
      {false, "no space left in region 23", image(until(1008) + end)},
      {false, "bad internal length 3 or version 1", image("a0030101 0efc0000 03ea0000 00000000 ff")},
      {false, "bad internal length 2 or version 2", image("a0020201 0efc0000 03ea0000 ff")},
  };
  for (const auto &c : cases)
    expect_refused(c.list, c.line, c.bytes);
  // Without the record it is read as a default; what cannot be read, or has no end, is not written either.
  for (const std::string &bytes : {image(end), image(""), std::string(), std::string(1024, 'x')}) {
    set_flash(fcoe, bytes);
    Connect back(2);
    EXPECT_EQ(HCX_FCoEGetFCFConnectList(fcoe, back.list()), 0u);
    EXPECT_EQ(back.list()->numberOfEntries, 0);
    EXPECT_EQ(back.list()->maxNumOfEntries, 16);
    HCX_FCoEParam param{};
    param.version = 1;
    param.VLanId = 9;
    EXPECT_EQ(HCX_FCoEGetParams(fcoe, &param), 0u);
    EXPECT_EQ(to_hex(bytes_of(&param, sizeof param)), "010000000efc00010000");
    if (bytes != image(end)) expect_not_found(bytes);
  }
  // What did not come, or failed behind a part that came, costs no record.
  const std::string before = image(fip + end);
  cut_replies({256, 4096});
  expect_not_found(before);
  cut_replies({});
  adapter(fcoe).handlers[23] = [&](MailboxCall &call) {
    if (call.word(2) >> 16) return call.set_status(0xfffd);
    call.set_word(6, 512);
    call.result = before.substr(0, 512);
  };
  expect_not_found(before);
}

// What each call refuses first: no record, a version, no board, a port that is no FCoE port.
TEST_F(Fcoe, ChecksInFront) {
  struct Call {
    const char *name, *null_text;
    uint32_t (*call)(uint32_t, void *);
  };
  const Call calls[] = {
      {"HCX_FCoEGetFCFList", "no pFCFList",
       [](uint32_t b, void *r) { return HCX_FCoEGetFCFList(b, static_cast<HCX_FCoEFCFList *>(r)); }},
      {"HCX_FCoESetFCFConnectList", "no pFCFConnectList",
       [](uint32_t b, void *r) {
         return HCX_FCoESetFCFConnectList(b, static_cast<HCX_FCoEConnectList *>(r));
       }},
      {"HCX_FCoEGetFCFConnectList", "no pFCFConnectList",
       [](uint32_t b, void *r) {
         return HCX_FCoEGetFCFConnectList(b, static_cast<HCX_FCoEConnectList *>(r));
       }},
      {"HCX_FCoESetParams", "no pParam",
       [](uint32_t b, void *r) { return HCX_FCoESetParams(b, static_cast<HCX_FCoEParam *>(r)); }},
      {"HCX_FCoEGetParams", "no pParam",
       [](uint32_t b, void *r) { return HCX_FCoEGetParams(b, static_cast<HCX_FCoEParam *>(r)); }},
  };
  for (const Call &c : calls) {
    SCOPED_TRACE(c.name);
    alignas(8) uint8_t record[600] = {};
    const std::string name = std::string(c.name) + " - ";
    EXPECT_EQ(c.call(fcoe, nullptr), 1u);
    EXPECT_TRUE(m.logged(name + c.null_text));
    for (const uint32_t board : {fcoe, fc, nobody}) {
      record[0] = 2;
      EXPECT_EQ(c.call(board, record), 4u);
      EXPECT_EQ(record[0], 1);
    }
    EXPECT_EQ(m.logged(name + "board 2 bad version 2 expected 1"),
              std::string(c.name) != "HCX_FCoEGetParams");
    EXPECT_EQ(c.call(nobody, record), 3u);
    EXPECT_TRUE(m.logged(name + "no host on board 9"));
    for (const uint32_t board : {fc, old_fc}) {
      EXPECT_EQ(c.call(board, record), 2u);
      EXPECT_TRUE(m.logged(name + "board " + std::to_string(board) + " not supported"));
    }
    EXPECT_EQ(commands().size(), 0u);
  }
}

// The two settings side by side, in any order, under every fault: old or new, and all other records stay.
TEST_F(Fcoe, OtherRecordsSurvive) {
  const std::vector<std::string> mine = {"\xa0", "\xa1"};
  libhcx_syslog_enable(0);
  for (int round = 0; round < 60; ++round) {
    std::string records;
    for (uint32_t i = pick(5); i > 0; --i)
      records += to_hex(foreign_record({0x30, 0x37, 0xa2, 0xa2}, 40));
    set_flash(fcoe, image(records + end));
    const auto before = Chain(flash(fcoe)).without(mine);
    for (int i = 0; i < 6; ++i) {
      const std::string last = flash(fcoe);
      if (pick(2)) m.fail_nth(static_cast<int>(1 + pick(40)), pick(2) != 0);
      const bool done =
          (pick(2)
               ? set_param("\x0e\xfc\x00", static_cast<uint8_t>(pick(2)), static_cast<uint16_t>(pick(4096)))
               : set_list(std::vector<HCX_FCoEFCFConnectEntry>(pick(17), entry(2, 7, 'f', 's')))) == 0;
      m.clear_faults();
      const Chain after(flash(fcoe));
      ASSERT_TRUE(after.valid);
      ASSERT_EQ(after.without(mine), before);
      ASSERT_TRUE(done || flash(fcoe) == last);
      expect_nothing_left("after a change");
    }
  }
}

}  // namespace
