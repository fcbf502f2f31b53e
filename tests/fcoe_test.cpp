// SPDX-License-Identifier: BSD-3-Clause
// The FCoE calls: forwarders as the adapter lists them, connect list and FIP parameters in region 23, byte for byte.
#include <functional>
#include <random>

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
  uint32_t set_list(const std::vector<HCX_FCoEFCFConnectEntry> &entries, uint32_t board = fcoe) {
    Connect list(entries.size());
    for (size_t i = 0; i < entries.size(); ++i)
      list.entry(i) = entries[i];
    return HCX_FCoESetFCFConnectList(board, list.list());
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
};

TEST_F(Fcoe, ForwardersByteForByte) {
  // Two entries by hand, the second one invalid, a third in between that the chain leaves out.
  std::string first =
      hex("00000c08 0000 00 00 34020000 34020000 00000001 0000 0007"
          "0000086e 401f0000 c8000000 0efc00112233 01 02 2000000decafbad0 0efc00 01 0003 0000");
  first += std::string(512, '\0') + hex("2001000decafbad0");
  first[60 + 125] = '\x04';  // VLAN 1002
  std::string second = first;
  second.replace(22, 2, hex("ffff"));
  second[55] = '\0';
  ASSERT_EQ(first.size(), 580u);
  std::vector<std::string> asked;
  adapter(fcoe).handlers[0x9b] = [&](MailboxCall &call) {
    asked.push_back(call.block + call.data.substr(0, 580));
    call.result = asked.size() == 1 ? first : second;
  };
  Forwarders list(1);
  EXPECT_EQ(HCX_FCoEGetFCFList(fcoe, list.list()), 0u);
  ASSERT_EQ(asked.size(), 2u);
  EXPECT_EQ(to_hex(asked[0].substr(0, 36)),
            "00009b00"
            "00000008"
            "00000018"
            "00000000"
            "00000000"
            "00000000"
            "00000000"
            "00000000"
            "00000244");
  EXPECT_EQ(to_hex(asked[0].substr(256, 24)),
            "00000c08"
            "00000000"
            "34020000"
            "00000000"
            "0000ffff"
            "00000000");
  EXPECT_EQ(to_hex(asked[1].substr(256, 24)),
            "00000c08"
            "00000000"
            "34020000"
            "00000000"
            "00000007"
            "00000000");
  EXPECT_EQ(list.list()->numberOfEntries, 1);
  EXPECT_EQ(list.list()->nActiveFCFs, 1);
  const HCX_FCoEFCFInfo &found = list.entry(0);
  EXPECT_EQ(to_hex(bytes_of(found.fabricName, 8)), "2000000decafbad0");
  EXPECT_EQ(to_hex(bytes_of(found.switchName, 8)), "2001000decafbad0");
  EXPECT_EQ(to_hex(bytes_of(found.mac, 6)), "0efc00112233");
  EXPECT_EQ(to_hex(bytes_of(found.fcMap, 3)), "0efc00");
  EXPECT_EQ(found.reserved1, 1);
  EXPECT_EQ(found.state, 1);
  EXPECT_EQ(found.vlanBitmap[125], 4);
  EXPECT_EQ(found.lkaPeriod, 8000u);
  EXPECT_EQ(found.priority, 200u);
  EXPECT_TRUE(m.logged("HCX_FCoEGetFCFList - fcf_cmd for fcf index xffff 00000c08 00000000 34020000"));
  EXPECT_TRUE(
      m.logged("HCX_FCoEGetFCFList - fcf_rsp rc 0 00000c08 00000000 34020000 34020000 00000001 00000007"));
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
  std::string area(580, '\0');
  uint16_t status = 0;
  int exchanges = 0;
  std::vector<uint16_t> next;
  adapter(fcoe).handlers[0x9b] = [&](MailboxCall &call) {
    const uint16_t index =
        exchanges < static_cast<int>(next.size()) ? next[static_cast<size_t>(exchanges)] : 0xffff;
    ++exchanges;
    area[22] = static_cast<char>(index >> 8);
    area[23] = static_cast<char>(index);
    call.result = area;
    call.set_status(status);
  };
  const auto list = [&] {
    Forwarders room(1);
    exchanges = 0;
    return HCX_FCoEGetFCFList(fcoe, room.list());
  };
  EXPECT_EQ(list(), 1u) << "length 0";
  EXPECT_TRUE(m.logged("HCX_FCoEGetFCFList - fcf response length incorrect: 564 expected but got 0"));
  area.replace(12, 4, hex("00000234"));
  EXPECT_EQ(list(), 1u) << "length in the other order";
  area.replace(12, 4, hex("34020000"));
  EXPECT_EQ(list(), 0u);
  area[7] = 0x31;
  EXPECT_EQ(list(), 1u);
  EXPECT_TRUE(m.logged("HCX_FCoEGetFCFList - fcf response status x0031"));
  area[7] = 0;
  status = 0x10;
  EXPECT_EQ(list(), 2u);
  status = 0;
  // Chains that never end.
  next = {5, 5};
  EXPECT_EQ(list(), 1u);
  EXPECT_EQ(exchanges, 2);
  next = {5, 6, 7, 5};
  EXPECT_EQ(list(), 1u);
  EXPECT_EQ(exchanges, 4);
  next = {5, 6, 7};
  EXPECT_EQ(list(), 0u);
  Forwarders room(1);
  m.vfs().remove(host(fcoe).fc_dir() + "port_state");
  EXPECT_EQ(HCX_FCoEGetFCFList(fcoe, room.list()), 1u);
  EXPECT_TRUE(m.logged("HCX_FCoEGetFCFList - board 2 read port failed"));
}

TEST_F(Fcoe, ConnectListByteForByte) {
  const std::string kept = "30000000 a2022000 01000100 ff000000 ";
  const std::string one = native(
      "000d 0201"
      "6161616161616161"
      "6262626262626262",
      "000d 0102"
      "6161616161616161"
      "6262626262626262");
  set_flash(fcoe, image(kept + "ff000000 77777777", '\xff'));
  EXPECT_EQ(set_list({entry(0x0c, 0x0102, 'a', 'b')}), 0u);
  EXPECT_EQ(to_hex(flash(fcoe)), to_hex(image(kept + list_record(one) + "ff000000")));
  Connect back(1);
  EXPECT_EQ(HCX_FCoEGetFCFConnectList(fcoe, back.list()), 0u);
  EXPECT_EQ(back.list()->numberOfEntries, 1);
  EXPECT_EQ(back.list()->maxNumOfEntries, 16);
  EXPECT_EQ(back.entry(0).flags, 0x0c);
  EXPECT_EQ(back.entry(0).vlanId, 0x0201);
  EXPECT_EQ(bytes_of(back.entry(0).switchName, 8), "bbbbbbbb");
  // In place, and what follows stays.
  set_flash(fcoe, image(kept + list_record(one) + "a0020101 0efc0000 03ea0000 ff000000 deadbeef"));
  EXPECT_EQ(set_list({}), 0u);
  EXPECT_EQ(to_hex(flash(fcoe)),
            to_hex(image(kept + list_record("") + "a0020101 0efc0000 03ea0000 ff000000 deadbeef")));
  // A region that was never written.
  set_flash(fcoe, {});
  EXPECT_EQ(set_list({entry(0, 0x0102, 'a', 'b')}), 0u);
  EXPECT_EQ(to_hex(flash(fcoe).substr(0, 16)),
            native("5247323301000000a150000000010201", "5247323301000000a150000000010102"));
  EXPECT_EQ(to_hex(flash(fcoe).substr(332)), to_hex(image("").substr(332).replace(0, 1, "\xff")));
}

TEST_F(Fcoe, ConnectListRefusals) {
  std::string sixteen;
  for (int i = 0; i < 16; ++i)
    sixteen += i % 5 == 0 ? "0001 0000 6161616161616161 6262626262626262 " : std::string(40, '0');
  const std::string record = list_record(sixteen);
  const std::string far = "30a90000" + std::string(2 * 676, '7');  // the next record is at 688
  set_flash(fcoe, image(far + "ff000000"));
  EXPECT_EQ(set_list({}), 0u);
  const struct {
    const char *what;
    std::optional<std::string> bytes;
    const char *line;
  } cases[] = {
      {"no room", image(far + "30010000 77777777 ff000000"), "no space left in region 23"},
      {"there, without room", image(far + "30010000 77777777 " + record + "ff"),
       "no space left in region 23"},
      {"other length", image("a14f0105 ff000000"), "bad internal length 79 or version 1"},
      {"no end", image(""), "did not find connection record in region 23"},
      {"blank", "", "did not find connection record in region 23"},
      {"foreign", std::string(1024, 'x'), "did not find connection record in region 23"},
  };
  for (const auto &c : cases) {
    set_flash(fcoe, c.bytes);
    commands();
    EXPECT_EQ(set_list({}), 1u) << c.what;
    EXPECT_FALSE(wrote()) << c.what;
    EXPECT_TRUE(m.logged(std::string("HCX_FCoESetFCFConnectList - board 2 ") + c.line)) << c.line;
  }
  set_flash(fcoe, image("ff"));
  EXPECT_EQ(set_list({entry(0x3f, 1, 'a', 'b'), entry(0x40, 1, 'a', 'b')}), 5u);
  EXPECT_TRUE(m.logged("HCX_FCoESetFCFConnectList - entry(1) invalid flags x00000040 mask x0000003f"));
  Connect list(17);
  EXPECT_EQ(HCX_FCoESetFCFConnectList(fcoe, list.list()), 7u);
  EXPECT_EQ(list.list()->numberOfEntries, 16);
  EXPECT_TRUE(m.logged("HCX_FCoESetFCFConnectList - board 2 bad numberOfEntries 17 max 16"));
  EXPECT_FALSE(wrote());
  // Reading: four in use, room for two.
  set_flash(fcoe, image(record + "ff"));
  Connect back(2);
  EXPECT_EQ(HCX_FCoEGetFCFConnectList(fcoe, back.list()), 7u);
  EXPECT_EQ(back.list()->numberOfEntries, 4);
  EXPECT_EQ(bytes_of(back.entry(1).fabricName, 8), "aaaaaaaa");
  EXPECT_EQ(back.bytes[4 + 2 * 22], '\x5a') << "nothing behind the room";
  for (const std::string &bytes : {image("ff"), image(""), std::string(), std::string(1024, 'x')}) {
    set_flash(fcoe, bytes);
    back.list()->numberOfEntries = 2;
    EXPECT_EQ(HCX_FCoEGetFCFConnectList(fcoe, back.list()), 0u);
    EXPECT_EQ(back.list()->numberOfEntries, 0);
    EXPECT_EQ(back.list()->maxNumOfEntries, 16);
  }
  set_flash(fcoe, image(far + "30020000 7777777777777777" + record));
  EXPECT_EQ(HCX_FCoEGetFCFConnectList(fcoe, back.list()), 1u) << "at offset 700";
}

TEST_F(Fcoe, ParametersByteForByte) {
  const std::string kept = "30010000 deadbeef ";
  set_flash(fcoe, image(kept + "ff000000 77777777", '\xff'));
  EXPECT_EQ(set_param("\x0e\xfc\x01", 1, 0x0102), 0u);
  EXPECT_EQ(to_hex(flash(fcoe)), to_hex(image(kept + "a0020101 0efc0100 02010000 ff000000")));
  HCX_FCoEParam param{};
  param.version = 1;
  EXPECT_EQ(HCX_FCoEGetParams(fcoe, &param), 0u);
  EXPECT_EQ(to_hex(bytes_of(param.FCMap, 3)), "0efc01");
  EXPECT_EQ(param.VLanValid, 1);
  EXPECT_EQ(param.VLanId, 0x0102);
  set_flash(fcoe, image("a00201ff 0efc01ee 0201eeee 30010000 deadbeef ff000000 77777777"));
  EXPECT_EQ(set_param("\x0e\xfc\x02", 0, 0x0304), 0u);
  EXPECT_EQ(to_hex(flash(fcoe)),
            to_hex(image("a0020100 0efc0200 00000000 30010000 deadbeef ff000000 77777777")));
  EXPECT_EQ(HCX_FCoEGetParams(fcoe, &param), 0u);
  EXPECT_EQ(param.VLanValid, 1) << "as applications know it";
  EXPECT_EQ(param.VLanId, 0);
  set_flash(fcoe, {});
  EXPECT_EQ(set_param("\x0e\xfc\x00", 1, 4095), 0u);
  EXPECT_EQ(to_hex(flash(fcoe)), to_hex(image("a0020101 0efc0000 ff0f0000 ff000000")));

  const std::string to_1008 = "30f80000" + std::string(2 * 992, '7') + "30000000";
  const struct {
    std::optional<std::string> bytes;
    const char *line;
  } refused[] = {
      {image(to_1008 + "ff000000"), "no space left in region 23"},
      {image("a0030101 0efc0000 03ea0000 00000000 ff"), "bad internal length 3 or version 1"},
      {image("a0020201 0efc0000 03ea0000 ff"), "bad internal length 2 or version 2"},
      {image(""), "did not find parameter record in region 23"},
      {"", "did not find parameter record in region 23"},
      {std::string(1024, 'x'), "did not find parameter record in region 23"},
  };
  for (const auto &c : refused) {
    set_flash(fcoe, c.bytes);
    commands();
    EXPECT_EQ(set_param("\x0e\xfc\x00", 1, 1), 1u) << c.line;
    EXPECT_FALSE(wrote()) << c.line;
    EXPECT_TRUE(m.logged(std::string("HCX_FCoESetParams - board 2 ") + c.line)) << c.line;
  }
  EXPECT_EQ(set_param("\x0e\xfc\x00", 2, 1), 1u);
  EXPECT_TRUE(m.logged("HCX_FCoESetParams - board 2 bad VLanValid 2 must be 0 or 1"));
  for (const std::string &bytes : {image("ff"), image(""), std::string(), std::string(1024, 'x')}) {
    set_flash(fcoe, bytes);
    param.VLanId = 9;
    EXPECT_EQ(HCX_FCoEGetParams(fcoe, &param), 0u);
    EXPECT_EQ(to_hex(bytes_of(&param, sizeof param)),
              "01000000"
              "0efc00"
              "01"
              "0000");
  }
  set_flash(fcoe, image("a0030101 0efc0000 03ea0000 00000000 ff"));
  EXPECT_EQ(HCX_FCoEGetParams(fcoe, &param), 1u);
  EXPECT_TRUE(m.logged("HCX_FCoEGetParams - board 2 bad length 3 or version 1"));
  set_flash(fcoe, image(to_1008 + "30010000 77777777 a0020101"));
  EXPECT_EQ(HCX_FCoEGetParams(fcoe, &param), 1u) << "at offset 1016";
}

// What each call refuses first: no record, a version, no board, a port that is no FCoE port.
TEST_F(Fcoe, ChecksInFront) {
  struct Call {
    const char *name, *null_text;
    std::function<uint32_t(uint32_t, void *)> call;
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
  std::mt19937 random(5);
  const auto pick = [&random](uint32_t below) { return random() % below; };
  libhcx_syslog_enable(0);
  for (int round = 0; round < 60; ++round) {
    std::string records;
    for (uint32_t i = pick(5); i > 0; --i) {
      const uint32_t words = pick(40);
      std::string record(4 + size_t{4} * words, static_cast<char>(pick(256)));
      record[0] = static_cast<char>(pick(2) ? 0x30 + pick(8) : 0xa2);
      record[1] = static_cast<char>(words);
      records += to_hex(record);
    }
    set_flash(fcoe, image(records + "ff000000"));
    const std::vector<std::string> mine = {"\xa0", "\xa1"};
    const auto before = Chain(flash(fcoe)).without(mine);
    for (int i = 0; i < 6; ++i) {
      const std::string last = flash(fcoe);
      if (pick(2)) m.fail_nth(static_cast<int>(1 + pick(40)), pick(2) != 0);
      const uint32_t result =
          pick(2)
              ? set_param("\x0e\xfc\x00", static_cast<uint8_t>(pick(2)), static_cast<uint16_t>(pick(4096)))
              : set_list(std::vector<HCX_FCoEFCFConnectEntry>(pick(17), entry(2, 7, 'f', 's')));
      m.clear_faults();
      const Chain after(flash(fcoe));
      ASSERT_TRUE(after.valid);
      ASSERT_EQ(after.without(mine), before);
      if (result != 0) {
        ASSERT_EQ(flash(fcoe), last);
      }
      expect_nothing_left("after a change");
    }
  }
}

}  // namespace
