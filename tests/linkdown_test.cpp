// SPDX-License-Identifier: BSD-3-Clause
// Persistent link down: what reaches flash byte for byte, and what must never reach it, for healthy and damaged images
// and for every failure on the way.
#include <random>

#include "region_machine.h"

namespace {

constexpr char fresh_down[] = "a2022000 01000000 ff000000 ff000000";
constexpr char fresh_up[] = "a2022000 01000100 ff000000 ff000000";

class LinkDown : public RegionTest {
 protected:
  static constexpr uint16_t unset = 77;
  uint32_t get(uint32_t board, uint16_t &value) {
    value = unset;
    return HCX_GetPersistLinkDown(board, &value);
  }
  void expect_setting(uint32_t board, uint16_t wanted) {
    uint16_t value;
    EXPECT_EQ(get(board, value), 0u);
    EXPECT_EQ(value, wanted);
  }
};

TEST_F(LinkDown, ARegionIsMadeWhereThereIsNone) {
  const std::pair<const char *, std::optional<std::string>> regions[] = {
      {"uninitialised", std::nullopt},
      {"blank", ""},
      {"empty", image("ff")},
      {"another signature", std::string(1024, 'x')},
      {"another revision", image("ff").replace(4, 1, "\x02")},
  };
  for (const uint32_t board : {fc, old_fc}) {
    for (const auto &[what, bytes] : regions) {
      SCOPED_TRACE(what);
      set_flash(board, bytes);
      EXPECT_EQ(HCX_SetPersistLinkDown(board, 1), 0u);
      EXPECT_EQ(to_hex(flash(board)), to_hex(image(fresh_down)));
      expect_setting(board, 1);
      EXPECT_EQ(HCX_SetPersistLinkDown(board, 0), 0u);
      EXPECT_EQ(to_hex(flash(board)), to_hex(image(fresh_up)));
      expect_setting(board, 0);
    }
  }
}

// Statuses other than "not initialised" and "no entry" are failures of the adapter, not of the region.
TEST_F(LinkDown, ARegionIsNotMadeOnOtherFailures) {
  set_flash(fc, image(fresh_up));
  for (const uint16_t status : {0xfffe, 0xfffc, 0xfff6, 0xffa5, 1, 252, 253}) {
    adapter(fc).forced_status[23] = status;
    commands();
    EXPECT_EQ(HCX_SetPersistLinkDown(fc, 1), 1u) << status;
    EXPECT_FALSE(wrote()) << status;
  }
  EXPECT_TRUE(m.logged("HCX_SetPersistLinkDown - board 0 no space left in region 23"));
  adapter(fc).forced_status.clear();
  // A short read, whatever it holds.
  adapter(fc).handlers[23] = [](sim::MailboxCall &call) {
    call.set_word(6, call.word(2) >> 16 ? 0 : 512);
    call.result = std::string(512, 'x');
  };
  EXPECT_EQ(HCX_SetPersistLinkDown(fc, 1), 1u);
  EXPECT_FALSE(wrote());
  // The board changes its dialect between two pieces: the mailbox engine's 3 is not that of a bad signature.
  char firmware[] = "1.0, sli-4";
  char *kept = std::exchange(hcx_host_list->firmware_revision, firmware);
  adapter(fc).handlers[23] = [&](sim::MailboxCall &call) {
    call.set_word(6, 512);
    call.result = std::string(512, 'x');
    firmware[9] = '3';
  };
  commands();
  int32_t offset;
  uint16_t status;
  std::string bytes(1024, '\0');
  EXPECT_EQ(get_r23_TLV(fc, 0xa2, bytes_at(bytes), &offset, &status), 3u);
  firmware[9] = '4';
  EXPECT_EQ(HCX_SetPersistLinkDown(fc, 1), 1u);
  EXPECT_FALSE(wrote());
  hcx_host_list->firmware_revision = kept;
  // Twice empty: it is made once.
  set_flash(fc, "");
  adapter(fc).handlers.clear();
  adapter(fc).handlers[27] = [](sim::MailboxCall &) {};
  EXPECT_EQ(HCX_SetPersistLinkDown(fc, 1), 1u);
  EXPECT_EQ(flash(fc), "");
  adapter(fc).handlers.clear();
  adapter(fc).forced_status[27] = 1;
  EXPECT_EQ(HCX_SetPersistLinkDown(fc, 1), 1u);
  EXPECT_TRUE(m.logged("HCX_SetPersistLinkDown - board 0 failed to init region 23"));
}

TEST_F(LinkDown, RecordsMoveToTheEndAndOthersStay) {
  const std::string fip = "a0020101 0efc0000 03ea0000 ", foreign = "30010000 deadbeef ";
  const std::string other = "a2020020 01000100 ff000000 ";
  const struct {
    const char *what;
    std::string before;
    uint16_t setting;
    std::string after;
  } cases[] = {
      {"appended", image(fip + "ff000000"), 1, image(fip + fresh_down)},
      {"moved", image("a2022000 01000100 ff000000 " + fip + foreign + "ff000000"), 1,
       image(fip + foreign + fresh_down)},
      {"same value", image(foreign + "a2022000 01000000 ff000000 " + fip + "ff000000"), 1,
       image(foreign + fip + fresh_down)},
      {"at the end already", image(fip + fresh_down), 1, image(fip + fresh_down)},
      {"another driver's record", image(other + "a2022000 01000100 ff000000 " + fip + "ff000000"), 1,
       image(other + fip + fresh_down)},
      {"no words, another record behind", image("a2002000 " + fip + "ff000000"), 1, image(fip + fresh_down)},
      {"no words", image("a2002000 ff000000"), 1, image(fresh_down)},
      {"one word", image("a2012000 ff000000 " + fip + "ff000000"), 1, image(fip + fresh_down)},
      {"no closing mark", image("a2022000 01000100 05000000 " + foreign + "ff000000"), 1,
       image(foreign + "a2022000 01000000 05000000 ff000000")},
      {"ends early", image("a2032000 ff000000 11111111 22222222 " + fip + "ff000000"), 1,
       image(fip + "a2042000 01000000 ff000000 ff000000 ff000000 ff000000")},
      {"erased flash behind", image("a2022000 01000100 ff000000 " + fip + "ff000000", '\xff'), 1,
       image(fip + fresh_down, '\xff').replace(1011, 13, std::string(13, '\0'))},
      {"marks in what follows the end", image("a2022000 01000100 ff000000 ff000000 00000000 ff000000"), 1,
       image("a2022000 01000000 ff000000 ff000000")},
  };
  for (const uint32_t board : {fc, old_fc}) {
    for (const auto &c : cases) {
      SCOPED_TRACE(c.what);
      set_flash(board, c.before);
      EXPECT_EQ(HCX_SetPersistLinkDown(board, c.setting), 0u);
      EXPECT_EQ(to_hex(flash(board)), to_hex(c.after));
      expect_setting(board, c.setting);
      // And again: nothing piles up.
      EXPECT_EQ(HCX_SetPersistLinkDown(board, 0), 0u);
      EXPECT_EQ(HCX_SetPersistLinkDown(board, c.setting), 0u);
      EXPECT_EQ(to_hex(flash(board).substr(0, 200)), to_hex(c.after.substr(0, 200)));
    }
  }
}

TEST_F(LinkDown, TheLastPlaceInTheRegion) {
  const auto filler = [](size_t end) {
    std::string records;
    for (size_t at = 8; at < end;) {
      const size_t size = std::min<size_t>(end - at, 500);
      records +=
          "30" + to_hex(std::string(1, static_cast<char>(size / 4 - 1))) + std::string(2 * size - 4, '7');
      at += size;
    }
    return records;
  };
  set_flash(fc, image(filler(1008) + "ff000000"));
  EXPECT_EQ(HCX_SetPersistLinkDown(fc, 1), 0u);
  EXPECT_EQ(to_hex(flash(fc).substr(1008)), "a202200001000000ff000000ff000000");
  expect_setting(fc, 1);
  EXPECT_EQ(HCX_SetPersistLinkDown(fc, 0), 0u);
  EXPECT_EQ(to_hex(flash(fc).substr(1008)), "a202200001000100ff000000ff000000");
  EXPECT_EQ(flash(fc).substr(0, 1008), image(filler(1008)).substr(0, 1008));
  expect_setting(fc, 0);
  set_flash(fc, image(filler(1012) + "ff000000"));
  const std::string full = flash(fc);
  EXPECT_EQ(HCX_SetPersistLinkDown(fc, 1), 1u);
  EXPECT_TRUE(m.logged("create_driver_specific - region 23 no space left"));
  EXPECT_EQ(flash(fc), full);
}

// Damage that leaves no safe edit: an error, and not one byte written.
TEST_F(LinkDown, DamagedImagesAreNotWritten) {
  const std::string to_1000 = "30f70000" + std::string(2 * 988, '7');
  const std::pair<const char *, std::string> images[] = {
      {"no end mark", image("a2022000 01000100 ff000000")},
      {"no end mark and no record", image("")},
      {"record leaves the image", image("a2ff2000 05fe0000")},
      {"sub-record longer than the record", image("a2022000 05030000 11111111 30010000 deadbeef ff000000")},
      {"no end mark behind a long record", image("a2fb2000 ff000000")},
      {"record ends with the image",
       image(to_1000 + "30020000 77777777 77777777 a2022000 01000100 ff000000")},
      {"no room to grow", image(to_1000 + "a2032000 05000000 06000000 ff000000 ff000000")},
      {"record behind the last place",
       image(to_1000 + "30030000 77777777 77777777 77777777 a2012000 ff000000")},
  };
  for (const auto &[what, bytes] : images) {
    for (const uint32_t board : {fc, old_fc}) {
      SCOPED_TRACE(what);
      set_flash(board, bytes);
      commands();
      EXPECT_NE(HCX_SetPersistLinkDown(board, 1), 0u);
      EXPECT_FALSE(wrote());
      EXPECT_EQ(flash(board), bytes);
    }
  }
  for (const char *line :
       {"failed to rebuild port status", "no space left in region 23", "bad internal length"})
    EXPECT_TRUE(m.logged(std::string("HCX_SetPersistLinkDown - board 0 ") + line)) << line;
}

TEST_F(LinkDown, Reads) {
  const struct {
    std::string bytes;
    uint32_t result;
    uint16_t value;
    const char *line;
  } cases[] = {
      {image(fresh_down), 0, 1, nullptr},
      {image(fresh_up), 0, 0, nullptr},
      {image("a2032000 05000000 01000000 ff000000 ff"), 0, 1, nullptr},
      {image("a2032000 ff000000 01000000 ff000000 ff"), 0, 1, nullptr},
      {image("a2022000 05000000 ff000000 ff"), 0, 0, nullptr},
      {image("ff"), 0, 0, "region 23 no driver specific, defaults used"},
      {"", 0, 0, "region 23 not initialized"},
      {image("a2012000 01000000 ff"), 0, 0, "specific length is 1, using defaults"},
      {image("a2002000 ff"), 1, 0, "internal error specific length is zero"},
      {image("a2022000 01000200 ff000000 ff"), 1, 0, "internal error portStatus 2 not 1 or 0"},
      {image("a2022000 01010000 ff000000 ff"), 1, 0, "internal error portStatus 0 not 1 or 0"},
      {image("a2ff2000 05fc0000"), 1, 0, "internal count or offset error in region 23"},
      {image("30f70000" + std::string(2 * 988, '7') + "30030000 77777777 77777777 77777777 a2012000 ff"), 1,
       0, "no space left in region 23"},
      {image(""), static_cast<uint32_t>(-E2BIG), 0, "region 23 error -7"},
      {std::string(1024, 'x'), 3, 0, "region 23 error 3"},
  };
  for (const auto &c : cases) {
    for (const uint32_t board : {fc, old_fc}) {
      set_flash(board, c.bytes);
      uint16_t value;
      EXPECT_EQ(get(board, value), c.result) << to_hex(c.bytes.substr(0, 40));
      EXPECT_EQ(value, c.value) << to_hex(c.bytes.substr(0, 40));
      if (c.line) {
        const std::string line = "HCX_GetPersistLinkDown - board " + std::to_string(board) + " " + c.line;
        EXPECT_TRUE(m.logged(line)) << line;
      }
    }
  }
  EXPECT_FALSE(wrote());
}

TEST_F(LinkDown, OnlyForFibreChannelPorts) {
  hcx_host *no_pci = hcx_host_find_by_idx(hcx_host_list, old_fc);
  char *kept = std::exchange(no_pci->pci_dev, nullptr);
  pthread_rwlock_unlock(&no_pci->rwlock);
  const std::pair<uint32_t, uint32_t> boards[] = {{fcoe, 2}, {linkless, 2}, {nobody, 3}, {old_fc, 3}};
  for (const auto &[board, result] : boards) {
    uint16_t value;
    EXPECT_EQ(HCX_SetPersistLinkDown(board, 1), result) << board;
    EXPECT_EQ(get(board, value), result) << board;
    EXPECT_EQ(value, 0);
    EXPECT_EQ(HCX_SetPersistLinkDown(board, 2), 4u) << "before the board is looked at";
  }
  EXPECT_EQ(commands().size(), 0u);
  no_pci->pci_dev = kept;
  EXPECT_TRUE(m.logged("HCX_SetPersistLinkDown - board 9 linkDownConfig 2 must be 0 or 1"));
  EXPECT_TRUE(m.logged("HCX_SetPersistLinkDown - no host on board 1"));
  EXPECT_TRUE(m.logged("HCX_GetPersistLinkDown - board 2 not supported"));
  EXPECT_EQ(HCX_GetPersistLinkDown(fc, nullptr), 1u);
  EXPECT_TRUE(m.logged("HCX_GetPersistLinkDown - no linkDownConfig"));
}

// A write that fails at the adapter leaves the flash as it was.
TEST_F(LinkDown, PowerCut) {
  for (const uint32_t board : {fc, old_fc}) {
    const std::string before = image("a2022000 01000100 ff000000 30000000 ff000000");
    set_flash(board, before);
    adapter(board).forced_status[27] = 0x10;
    EXPECT_EQ(HCX_SetPersistLinkDown(board, 1), 2u);
    EXPECT_EQ(flash(board), before);
    adapter(board).forced_status.clear();
    EXPECT_EQ(HCX_SetPersistLinkDown(board, 1), 0u);
    EXPECT_EQ(flash(board), image(std::string("30000000") + fresh_down));
  }
}

// Every call of the machine fails once, and then for good: flash holds the old image or the new one, never another.
TEST_F(LinkDown, FlashIsOldOrNewUnderEveryFault) {
  const std::pair<std::optional<std::string>, std::string> regions[] = {
      {image("a2022000 01000100 ff000000 30000000 ff000000"), image(std::string("30000000") + fresh_down)},
      {std::nullopt, image(fresh_down)},
      {std::string(1024, 'x'), image(fresh_down)},
  };
  for (const uint32_t board : {fc, old_fc}) {
    for (const auto &[before, after] : regions) {
      for (const bool persistent : {false, true}) {
        bool hit = true;
        for (int nth = 1; hit && nth < 500; ++nth) {
          set_flash(board, before);
          m.fail_nth(nth, persistent);
          const uint32_t result = HCX_SetPersistLinkDown(board, 1);
          hit = m.fault_hit();
          m.clear_faults();
          const auto now = sim::flash_region(host(board), 23);
          const bool made = !before || (*before)[0] == 'x';  // an empty region stands in between there
          EXPECT_TRUE(now == before || now == after || (made && now == image("ff"))) << nth;
          EXPECT_EQ(result == 0, now == after) << nth;
          expect_nothing_left("after fault " + std::to_string(nth));
        }
        EXPECT_FALSE(hit);
      }
    }
  }
  // Memory, too.
  set_flash(fc, image("ff"));
  for (int nth = 1; nth < 100; ++nth) {
    const std::string before = flash(fc);
    alloc_fault::fail_nth(nth);
    const uint32_t result = HCX_SetPersistLinkDown(fc, static_cast<uint16_t>(nth % 2));
    const bool hit = alloc_fault::take_hit();
    EXPECT_EQ(result == 0, !hit) << nth;
    if (result != 0) {
      EXPECT_EQ(flash(fc), before);
    }
    if (!hit) return;
  }
  ADD_FAILURE() << "never got through";
}

// Any sound image, any settings: the image stays sound, the setting reads back, and every other record is there.
TEST_F(LinkDown, OtherRecordsSurviveAnySequence) {
  std::mt19937 random(7);
  const auto pick = [&random](uint32_t below) { return random() % below; };
  const auto byte = [](uint32_t value) { return std::string(1, static_cast<char>(value)); };
  const auto noise = [&](size_t words) {
    std::string bytes;
    for (size_t i = 0; i < 4 * words; ++i)
      bytes += byte(pick(3) ? pick(256) : 0xff);
    return bytes;
  };
  const auto other_record = [&] {
    const uint32_t types[] = {0x30, 0xa0, 0xa1, 0x01, 0xfe, 0xa2};
    const uint32_t type = types[pick(6)], words = pick(pick(8) ? 12 : 90);
    return byte(type) + byte(words) + (type == 0xa2 ? std::string("\x00\x20", 2) : noise(1).substr(0, 2)) +
           noise(words);
  };
  const auto own_record = [&] {
    std::string subs;
    for (uint32_t i = pick(3); i > 0; --i) {
      const uint32_t words = pick(4);
      subs += byte(2 + pick(200)) + byte(words) + noise(1).substr(0, 2) + noise(words);
    }
    if (pick(2)) subs += std::string("\x01\0", 2) + byte(pick(2)) + std::string(1, '\0');
    subs += std::string("\xff\0\0\0", 4);
    return byte(0xa2) + byte(static_cast<uint32_t>(subs.size() / 4)) + std::string("\x20\0", 2) + subs;
  };
  libhcx_syslog_enable(0);
  int written = 0;
  for (int round = 0; round < 400; ++round) {
    std::string records;
    const uint32_t count = pick(7), own = pick(count + 2);
    for (uint32_t i = 0; i <= count; ++i)
      records += i == own ? own_record() : other_record();
    if (records.size() > 1008) records.resize(0);
    std::string bytes = std::string("RG23\x01\0\0\0", 8) + records + std::string("\xff\0\0\0", 4);
    const size_t used = std::min<size_t>(bytes.size(), 1024);
    bytes.resize(1024, pick(2) ? '\0' : '\xff');
    if (pick(3) == 0) bytes.replace(used, 1024 - used, noise(256).substr(0, 1024 - used));
    const uint32_t board = pick(2) ? fc : old_fc;
    set_flash(board, bytes);
    const Chain before(bytes);
    ASSERT_TRUE(before.valid);
    const std::vector<std::string> mine = {std::string("\xa2\x20\0", 3)};
    for (int i = 0; i < 5; ++i) {
      const auto setting = static_cast<uint16_t>(pick(2));
      const std::string last = flash(board);
      const uint32_t result = HCX_SetPersistLinkDown(board, setting);
      const Chain after(flash(board));
      ASSERT_TRUE(after.valid) << round;
      ASSERT_EQ(after.without(mine), before.without(mine)) << round;
      if (result == 0) {
        expect_setting(board, setting);
        ++written;
      } else {
        ASSERT_EQ(flash(board), last) << round;
      }
    }
  }
  EXPECT_GT(written, 1500) << "most of these images have room";
}

}  // namespace
