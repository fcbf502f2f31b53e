// SPDX-License-Identifier: BSD-3-Clause
// Persistent link down: what reaches flash byte for byte, and what must never reach it, for healthy and damaged images
// and for every failure on the way.
#include "region_machine.h"

namespace {

const std::string down = "a2022000 01000000 ff000000 ", up = "a2022000 01000100 ff000000 ";
const std::string fip = "a0020101 0efc0000 03ea0000 ", foreign = "30010000 deadbeef ", end = "ff000000 ";

class LinkDown : public RegionTest {
 protected:
  void expect_setting(uint32_t board, uint16_t wanted) {
    uint16_t value = 77;
    EXPECT_EQ(HCX_GetPersistLinkDown(board, &value), 0u);
    EXPECT_EQ(value, wanted);
  }
  // The call fails, and not one byte of flash is written.
  void expect_refused(uint32_t board) {
    commands();
    EXPECT_EQ(HCX_SetPersistLinkDown(board, 1), 1u);
    EXPECT_FALSE(wrote());
  }
};

// What comes of a region. A write that the adapter fails, at a power cut say, leaves it as it was.
TEST_F(LinkDown, RecordsMoveToTheEndAndOthersStay) {
  const std::string other = "a2020020 01000100 ff000000 ";
  const struct {
    const char *what;
    std::optional<std::string> before;
    std::string after;
  } cases[] = {
      {"uninitialised", std::nullopt, image(down + end)},
      {"blank", "", image(down + end)},
      {"empty", image(end), image(down + end)},
      {"another signature", std::string(1024, 'x'), image(down + end)},
      {"another revision", image(end).replace(4, 1, "\x02"), image(down + end)},
      {"appended", image(fip + end), image(fip + down + end)},
      {"appended at the last place", image(until(1008) + end), image(until(1008) + down + end)},
      {"moved", image(up + fip + foreign + end), image(fip + foreign + down + end)},
      {"same value", image(foreign + down + fip + end), image(foreign + fip + down + end)},
      {"at the end already", image(fip + down + end), image(fip + down + end)},
      {"another driver's record", image(other + up + fip + end), image(other + fip + down + end)},
      {"no words, another record behind", image("a2002000 " + fip + end), image(fip + down + end)},
      {"no words", image("a2002000" + end), image(down + end)},
      {"one word", image("a2012000 ff000000 " + fip + end), image(fip + down + end)},
      {"no closing mark", image("a2022000 01000100 05000000 " + foreign + end),
       image(foreign + "a2022000 01000000 05000000" + end)},
      {"ends early", image("a2032000 ff000000 11111111 22222222 " + fip + end),
       image(fip + "a2042000 01000000 ff000000 ff000000 ff000000" + end)},
      {"erased flash behind", image(up + fip + end, '\xff'),
       image(fip + down + end, '\xff').replace(1011, 13, std::string(13, '\0'))},
      {"marks in what follows the end", image(up + end + "00000000 ff000000"), image(down + end)},
  };
  for (const uint32_t board : {fc, old_fc}) {
    for (const auto &c : cases) {
      SCOPED_TRACE(c.what);
      set_flash(board, c.before);
      adapter(board).forced_status[27] = 0x10;
      EXPECT_NE(HCX_SetPersistLinkDown(board, 1), 0u);
      EXPECT_EQ(sim::flash_region(host(board), 23), c.before);
      adapter(board).forced_status.clear();
      EXPECT_EQ(HCX_SetPersistLinkDown(board, 1), 0u);
      EXPECT_EQ(to_hex(flash(board)), to_hex(c.after));
      expect_setting(board, 1);
      // And again: nothing piles up.
      EXPECT_EQ(HCX_SetPersistLinkDown(board, 0), 0u);
      expect_setting(board, 0);
      EXPECT_EQ(HCX_SetPersistLinkDown(board, 1), 0u);
      EXPECT_EQ(to_hex(flash(board).substr(0, 200)), to_hex(c.after.substr(0, 200)));
    }
  }
}

// Statuses other than "not initialised" and "no entry" are failures of the adapter, not of the region.
TEST_F(LinkDown, ARegionIsNotMadeOnOtherFailures) {
  set_flash(fc, image(up + end));
  for (const uint16_t status : {0xfffe, 0xfffc, 0xfff6, 0xffa5, 1, 252, 253}) {
    adapter(fc).forced_status[23] = status;
    expect_refused(fc);
  }
  EXPECT_TRUE(m.logged("HCX_SetPersistLinkDown - board 0 no space left in region 23"));
  adapter(fc).forced_status.clear();
  // A short read, whatever it holds.
  adapter(fc).handlers[23] = [](sim::MailboxCall &call) {
    call.set_word(6, call.word(2) >> 16 ? 0 : 512);
    call.result = std::string(512, 'x');
  };
  expect_refused(fc);
  // The board changes its dialect between two pieces: the mailbox engine's 3 is not that of a bad signature.
  char firmware[] = "1.0, sli-4";
  char *kept = std::exchange(hcx_host_list->firmware_revision, firmware);
  adapter(fc).handlers[23] = [&](sim::MailboxCall &call) {
    call.set_word(6, 512);
    call.result = std::string(512, 'x');
    firmware[9] = '3';
  };
  int32_t offset;
  uint16_t status;
  std::string bytes(1024, '\0');
  EXPECT_EQ(get_r23_TLV(fc, 0xa2, bytes_at(bytes), &offset, &status), 3u);
  firmware[9] = '4';
  expect_refused(fc);
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

// What did not come reads as zeros: neither a signature that is missing for this reason nor a count that says "empty"
// may cost the records that are in flash. Nor may a status behind a part that was delivered.
TEST_F(LinkDown, ARegionIsNotMadeFromHalfAnAnswer) {
  const std::string before = image(fip + up + end), after = image(fip + down + end);
  for (const uint32_t board : {fc, old_fc}) {
    set_flash(board, before);
    for (const Cut cut :
         {Cut{256}, {256, 4096}, {4096, 256}, {260}, {767, 4096}, {4096, 767}, {20}, {20, 4096}}) {
      cut_replies(cut);
      expect_refused(board);
      uint16_t value = 77;
      EXPECT_EQ(HCX_GetPersistLinkDown(board, &value), 1u) << cut.length << " " << cut.said;
      EXPECT_EQ(value, 0);
    }
    cut_replies({});
    for (const uint16_t status : {0xfffd, 0xfff7}) {
      adapter(board).handlers[23] = [&](sim::MailboxCall &call) {
        if (call.word(2) >> 16) return call.set_status(status);
        call.set_word(board == fc ? 6 : 4, 512);
        call.result = before.substr(0, 512);
      };
      expect_refused(board);
    }
    adapter(board).handlers.clear();
    EXPECT_EQ(flash(board), before);
    EXPECT_EQ(HCX_SetPersistLinkDown(board, 1), 0u);
    EXPECT_EQ(to_hex(flash(board)), to_hex(after));
  }
}

// Damage that leaves no safe edit: an error, and not one byte written.
TEST_F(LinkDown, DamagedImagesAreNotWritten) {
  const std::pair<const char *, std::string> images[] = {
      {"no end mark", image(up)},
      {"no end mark and no record", image("")},
      {"record leaves the image", image("a2ff2000 05fe0000")},
      {"sub-record longer than the record", image("a2022000 05030000 11111111" + foreign + end)},
      {"no end mark behind a long record", image("a2fb2000 ff000000")},
      {"record ends with the image", image(until(1012) + up)},
      {"no room to grow", image(until(1000) + "a2032000 05000000 06000000 ff000000" + end)},
      {"record behind the last place", image(until(1016) + "a2012000 ff000000")},
      {"no room for a record", image(until(1012) + end)},
  };
  for (const auto &[what, bytes] : images) {
    for (const uint32_t board : {fc, old_fc}) {
      SCOPED_TRACE(what);
      set_flash(board, bytes);
      expect_refused(board);
      EXPECT_EQ(flash(board), bytes);
    }
  }
  expect_lines("HCX_SetPersistLinkDown - board 0 ",
               {"failed to rebuild port status", "no space left in region 23", "bad internal length"});
  EXPECT_TRUE(m.logged("create_driver_specific - region 23 no space left"));
}

TEST_F(LinkDown, Reads) {
  const struct {
    std::string bytes;
    uint32_t result;
    uint16_t value;
    const char *line;
  } cases[] = {
      {image(down + end), 0, 1, ""},
      {image(up + end), 0, 0, ""},
      {image("a2032000 05000000 01000000 ff000000" + end), 0, 1, ""},
      {image("a2032000 ff000000 01000000 ff000000" + end), 0, 1, ""},
      {image("a2022000 05000000 ff000000" + end), 0, 0, ""},
      {image(end), 0, 0, "region 23 no driver specific, defaults used"},
      {"", 0, 0, "region 23 not initialized"},
      {image("a2012000 01000000" + end), 0, 0, "specific length is 1, using defaults"},
      {image("a2002000" + end), 1, 0, "internal error specific length is zero"},
      {image("a2022000 01000200 ff000000" + end), 1, 0, "internal error portStatus 2 not 1 or 0"},
      {image("a2022000 01010000 ff000000" + end), 1, 0, "internal error portStatus 0 not 1 or 0"},
      {image("a2ff2000 05fc0000"), 1, 0, "internal count or offset error in region 23"},
      {image(until(1016) + "a2012000" + end), 1, 0, "no space left in region 23"},
      {image(""), static_cast<uint32_t>(-E2BIG), 0, "region 23 error -7"},
      {std::string(1024, 'x'), 3, 0, "region 23 error 3"},
  };
  for (const auto &c : cases) {
    for (const uint32_t board : {fc, old_fc}) {
      SCOPED_TRACE(to_hex(c.bytes.substr(0, 24)));
      set_flash(board, c.bytes);
      uint16_t value = 77;
      EXPECT_EQ(HCX_GetPersistLinkDown(board, &value), c.result);
      EXPECT_EQ(value, c.value);
      EXPECT_TRUE(!*c.line ||
                  m.logged("HCX_GetPersistLinkDown - board " + std::to_string(board) + " " + c.line));
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
    uint16_t value = 77;
    EXPECT_EQ(HCX_SetPersistLinkDown(board, 1), result) << board;
    EXPECT_EQ(HCX_GetPersistLinkDown(board, &value), result) << board;
    EXPECT_EQ(value, 0);
    EXPECT_EQ(HCX_SetPersistLinkDown(board, 2), 4u) << "before the board is looked at";
  }
  EXPECT_EQ(HCX_GetPersistLinkDown(fc, nullptr), 1u);
  EXPECT_EQ(commands().size(), 0u);
  no_pci->pci_dev = kept;
  expect_lines("HCX_SetPersistLinkDown - ",
               {"board 9 linkDownConfig 2 must be 0 or 1", "no host on board 1", "board 2 not supported"});
  expect_lines("HCX_GetPersistLinkDown - ", {"board 2 not supported", "no linkDownConfig"});
}

// Every call of the machine fails once, and then for good: flash holds the old image or the new one, never another.
TEST_F(LinkDown, FlashIsOldOrNewUnderEveryFault) {
  const std::pair<std::optional<std::string>, std::string> regions[] = {
      {image(up + "30000000" + end), image("30000000" + down + end)},
      {std::nullopt, image(down + end)},
      {std::string(1024, 'x'), image(down + end)},
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
    EXPECT_TRUE(result == 0 || flash(fc) == before) << nth;
    if (!hit) return;
  }
  ADD_FAILURE() << "never got through";
}

// Any sound image, any settings: the image stays sound, the setting reads back, and every other record is there.
TEST_F(LinkDown, OtherRecordsSurviveAnySequence) {
  const auto own_record = [&] {
    std::string subs;
    for (uint32_t i = pick(3); i > 0; --i) {
      const uint32_t words = pick(4);
      subs += byte(2 + pick(200)) + byte(words) + noise(1).substr(0, 2) + noise(words);
    }
    if (pick(2)) subs += byte(1) + byte(0) + byte(pick(2)) + byte(0);
    subs += hex(end);
    return byte(0xa2) + byte(static_cast<uint32_t>(subs.size() / 4)) + byte(0x20) + byte(0) + subs;
  };
  const std::vector<std::string> mine = {std::string("\xa2\x20\0", 3)};
  libhcx_syslog_enable(0);
  int written = 0;
  for (int round = 0; round < 400; ++round) {
    std::string records;
    const uint32_t count = pick(7), own = pick(count + 2);
    for (uint32_t i = 0; i <= count; ++i)
      records +=
          i == own ? own_record() : foreign_record({0x30, 0xa0, 0xa1, 0x01, 0xfe, 0xa2}, pick(8) ? 12 : 90);
    if (records.size() > 1008) records.clear();
    std::string bytes = image(to_hex(records) + end, pick(2) ? '\0' : '\xff');
    const size_t used = 12 + records.size();
    if (pick(3) == 0) bytes.replace(used, 1024 - used, noise(256).substr(0, 1024 - used));
    const uint32_t board = pick(2) ? fc : old_fc;
    set_flash(board, bytes);
    const Chain before(bytes);
    ASSERT_TRUE(before.valid);
    for (int i = 0; i < 5; ++i) {
      const auto setting = static_cast<uint16_t>(pick(2));
      const std::string last = flash(board);
      const bool done = HCX_SetPersistLinkDown(board, setting) == 0;
      const Chain after(flash(board));
      ASSERT_TRUE(after.valid) << round;
      ASSERT_EQ(after.without(mine), before.without(mine)) << round;
      ASSERT_TRUE(done || flash(board) == last) << round;
      if (done) expect_setting(board, setting);
      written += done;
    }
  }
  EXPECT_GT(written, 1500) << "most of these images have room";
}

}  // namespace
