// SPDX-License-Identifier: BSD-3-Clause
// Reading and writing flash regions: the exact commands of both dialects, counts that an adapter may claim, statuses
// and their texts, refused arguments.
#include "region_machine.h"

namespace {

using sim::MailboxCall;

class Region : public RegionTest {
 protected:
  struct Read {
    uint32_t result, length;
    uint16_t status;
    std::string bytes;
  };
  Read read(uint32_t board, uint32_t length, uint32_t offset = 0, uint32_t type = 2, uint32_t context = 0) {
    Read got{.result = 0, .length = length, .status = 0, .bytes = std::string(length, '?')};
    got.result =
        getRegionData(board, type, 23, offset, bytes_at(got.bytes), &got.length, &got.status, context);
    return got;
  }
  uint32_t write(uint32_t board, std::string bytes, uint32_t *written = nullptr, int32_t *info = nullptr,
                 uint32_t type = 2) {
    auto length = static_cast<uint32_t>(bytes.size());
    int32_t response = 0;
    const std::string before = bytes;
    const uint32_t result =
        setRegionData(board, type, 23, length, 0, bytes_at(bytes), &length, info ? info : &response);
    EXPECT_EQ(bytes, before) << "the caller's bytes are not changed";
    if (written) *written = length;
    return result;
  }
};

TEST_F(Region, CommandsOfBothDialects) {
  const std::string stored = image("a0020101 0efc00ea 03000000 ff000000");
  set_flash(fc, stored);
  set_flash(old_fc, stored);
  Read got = read(fc, 1024, 0, 2, 0x5a);
  EXPECT_EQ(got.result, 0u);
  EXPECT_EQ(got.bytes, stored);
  std::vector<std::string> sent = commands();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(to_hex(sent[0].substr(0, 32)),
            "00001700"
            "5a000002"
            "00000017"
            "00000400"
            "00000000"
            "00000000"
            "00000000"
            "00000000");
  got = read(fc, 8, 8);
  EXPECT_EQ(to_hex(got.bytes), "a00201010efc00ea");
  EXPECT_EQ(to_hex(commands()[0].substr(0, 16)),
            "00001700"
            "00000002"
            "00080017"
            "00000008");

  got = read(old_fc, 1024);
  EXPECT_EQ(got.bytes, stored);
  sent = commands();
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_EQ(to_hex(sent[0].substr(0, 24)),
            "00001700"
            "00000032"
            "00000017"
            "00000000"
            "00000080"
            "00000000");
  EXPECT_EQ(to_hex(sent[1].substr(0, 24)),
            "00001700"
            "00000032"
            "02000017"
            "00000000"
            "00000080"
            "00000000");
  read(old_fc, 516);
  sent = commands();
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_EQ(to_hex(sent[1].substr(8, 12)),
            "02000017"
            "00000000"
            "00000001");

  uint32_t written = 0;
  EXPECT_EQ(write(fc, stored, &written), 0u);
  EXPECT_EQ(written, 1024u);
  sent = commands();
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(to_hex(sent[0].substr(0, 24)),
            "00001b00"
            "00000032"
            "04000017"
            "00000000"
            "00000400"
            "00000400");
  EXPECT_EQ(to_hex(sent[0].substr(28, 4)), "00000000");
  EXPECT_EQ(sent[0].substr(256, 1024), stored);
  EXPECT_EQ(write(old_fc, stored, &written), 0u);
  EXPECT_EQ(written, 1024u);
  sent = commands();
  EXPECT_EQ(to_hex(sent[0].substr(0, 32)),
            "00001b00"
            "00000032"
            "04000017"
            "00000000"
            "00000400"
            "00000000"
            "00000000"
            "00000000");
  EXPECT_EQ(to_hex(sent[0].substr(256, 20)),
            "33324752"
            "00000001"
            "010102a0"
            "ea00fc0e"
            "00000003");
  EXPECT_EQ(flash(old_fc), stored);
  EXPECT_EQ(adapter(old_fc).exchanges.back().offset, 5);
  EXPECT_EQ(adapter(old_fc).exchanges.back().in_words, 256u);
  EXPECT_EQ(adapter(old_fc).exchanges.back().timeout, 330000u);
}

// An adapter may deliver less than was asked, in any number of pieces, and may claim anything.
TEST_F(Region, DeliveredCounts) {
  for (const uint32_t board : {fc, old_fc}) {
    SCOPED_TRACE(board);
    const size_t count_word = board == fc ? 6 : 4;
    uint32_t claimed = 0, commands_seen = 0;
    adapter(board).handlers[23] = [&](MailboxCall &call) {
      ++commands_seen;
      call.set_word(count_word, claimed);
      call.result = std::string(3840, static_cast<char>('0' + commands_seen));
    };
    claimed = 0xffffffff;
    Read got = read(board, 64);
    EXPECT_EQ(got.result, 0u);
    EXPECT_EQ(got.length, 64u);
    EXPECT_EQ(got.bytes, std::string(64, '1'));
    commands_seen = 0;
    claimed = 24;
    got = read(board, 64);
    EXPECT_EQ(got.length, 64u);
    EXPECT_EQ(got.bytes, std::string(24, '1') + std::string(24, '2') + std::string(16, '3'));
    commands_seen = 0;
    claimed = 0;
    got = read(board, 64);
    EXPECT_EQ(got.result, 0u);
    EXPECT_EQ(got.length, 0u);
    EXPECT_EQ(commands_seen, 1u);
  }
  // Positions are half a word; a piece behind them would come from the front again.
  adapter(fc).handlers.clear();
  EXPECT_EQ(read(fc, 64, 65536).result, 1u);
  EXPECT_EQ(read(fc, 64, 0xffffffff).result, 1u);
  uint32_t huge = 0xffffffff;
  uint16_t status = 0;
  uint8_t byte = 7;
  EXPECT_EQ(getRegionData(fc, 2, 23, 0, &byte, &huge, &status, 0), 2u);
  EXPECT_EQ(status, 252);
  EXPECT_EQ(huge, 0u);
  EXPECT_EQ(byte, 7);
  EXPECT_EQ(read(fc, 1792).result, 0u);
  EXPECT_EQ(read(fc, 1796).result, 2u);
}

TEST_F(Region, AFailureInTheMiddleKeepsWhatCame) {
  int calls = 0;
  adapter(old_fc).handlers[23] = [&](MailboxCall &call) {
    if (++calls == 2) return call.set_status(0xfff6);
    call.set_word(4, 512);
    call.result = std::string(512, 'a');
    call.result.replace(0, 4, "abcd");
  };
  const Read got = read(old_fc, 1024);
  EXPECT_EQ(got.result, 2u);
  EXPECT_EQ(got.status, 0xfff6);
  EXPECT_EQ(got.length, 512u);
  EXPECT_EQ(got.bytes.substr(0, 6), "abcdaa") << "words stay as they came";
  adapter(fc).busy = 1;
  EXPECT_EQ(read(fc, 64).result, 0u) << "once busy is tried again";
  adapter(fc).busy = 2;
  EXPECT_EQ(read(fc, 64).status, 253);
}

TEST_F(Region, StatusTexts) {
  const struct {
    uint16_t status;
    const char *text;
    uint32_t exported;
  } dumps[] = {
      {0xfffe, "Invalid region header", 2},
      {0xfffd, "Region not initialized", 4},
      {0xfffc, "Invalid region ID", 2},
      {0xfff7, "No entry in region", 5},
      {0xfff6, "No valid entry in region", 6},
      {0xffa5, "File system read faild", 2},
      {0x00d0, "Heap malloc operation failed", 2},
      {0x00d5, "Unsupported command optiomn", 2},
      {0x00e0, "Link module is not the type with serial ID", 2},
      {0x00e1, "Link module not plugged in", 2},
      {0x00e2, "Error accessing link module serial ID data", 2},
      {0x1741, "WKI tag not supported", 2},
      {0x1742, "No WKI tag defined for this index", 2},
      {0x1744, "Invalid entry index field for Type 4 dump", 2},
      {0x0042, "Unknown", 2},
  };
  for (const auto &row : dumps) {
    adapter(fc).forced_status[23] = row.status;
    char text[160];
    snprintf(text, sizeof text, "getRegionData - Mailbox status x%04x : board 0 region 23 %s", row.status,
             row.text);
    const Read got = read(fc, 64);
    EXPECT_EQ(got.status, row.status);
    EXPECT_EQ(got.length, 0u);
    EXPECT_TRUE(m.logged(std::string(text).substr(0, 127))) << text;
    uint32_t length = 64;
    std::string room(64, '\0');
    EXPECT_EQ(HCX_IssueDumpMBox(fc, 2, 0, 23, 0, bytes_at(room), &length), row.exported) << row.text;
    snprintf(text, sizeof text, "HCX_IssueDumpMBox - board 0 mailbox status x%04x", row.status);
    EXPECT_TRUE(m.logged(text)) << text;
  }
  const std::pair<int32_t, const char *> updates[] = {
      {-2, "Invalid region header"},
      {-4, "Invalid region ID"},
      {-11, "Invalid entry length"},
      {-13, "Internal processing error"},
      {-14, "Unable to write data to flash ROM"},
      {-15, "Save area not available for cleanup"},
      {-16, "Unable to erase configuration data"},
      {-17, "Cleanup required"},
      {-18, "Bad length"},
      {-19, "First word cannot be all 0 or 1"},
      {-3, "Unknown"},
      {7, "Unknown"},
  };
  for (const auto &[info, text] : updates) {
    for (const uint32_t board : {fc, old_fc}) {
      adapter(board).handlers[27] = [info = info](MailboxCall &call) {
        call.set_word(3, static_cast<uint32_t>(info));
        call.set_status(1);
      };
      int32_t told = 99;
      EXPECT_EQ(write(board, image("ff"), nullptr, &told), 2u);
      EXPECT_EQ(told, info);
      const std::string line =
          "setRegionData - Response Info " + std::to_string(info) + " : " + std::string(text);
      EXPECT_TRUE(m.logged(line)) << line;
    }
  }
}

TEST_F(Region, RefusedArguments) {
  std::string room = image("ff");
  uint8_t *buffer = bytes_at(room);
  uint32_t length = 64, zero = 0;
  uint16_t status = 0;
  int32_t info = 0;
  EXPECT_EQ(getRegionData(fc, 2, 23, 0, nullptr, &length, &status, 0), 1u);
  EXPECT_TRUE(m.logged("getRegionData - no pBuffer"));
  EXPECT_EQ(getRegionData(fc, 2, 23, 0, buffer, nullptr, &status, 0), 1u);
  EXPECT_TRUE(m.logged("getRegionData - no pLength"));
  EXPECT_EQ(getRegionData(fc, 2, 23, 0, buffer, &length, nullptr, 0), 1u);
  EXPECT_EQ(getRegionData(nobody, 2, 23, 0, buffer, &length, &status, 0), 1u);
  EXPECT_TRUE(m.logged("getRegionData - board 9 invalid sliMode -1"));

  EXPECT_EQ(HCX_IssueDumpMBox(fc, 2, 0, 23, 0, nullptr, &length), 1u);
  EXPECT_EQ(HCX_IssueDumpMBox(fc, 2, 0, 23, 0, buffer, nullptr), 1u);
  EXPECT_EQ(HCX_IssueDumpMBox(old_fc, 2, 0, 23, 0, buffer, &zero), 7u) << "before the board is looked at";
  EXPECT_TRUE(m.logged("HCX_IssueDumpMBox - length is zero"));
  EXPECT_EQ(HCX_IssueDumpMBox(old_fc, 2, 0, 23, 0, buffer, &length), 3u);
  EXPECT_TRUE(m.logged("HCX_IssueDumpMBox - board 1 sliMode 3 not supported"));
  EXPECT_EQ(HCX_IssueDumpMBox(nobody, 2, 0, 23, 0, buffer, &length), 3u);

  EXPECT_EQ(setRegionData(fc, 2, 23, 64, 0, nullptr, &length, &info), 1u);
  EXPECT_EQ(setRegionData(fc, 2, 23, 64, 0, buffer, nullptr, &info), 1u);
  EXPECT_EQ(setRegionData(fc, 2, 23, 64, 0, buffer, &length, nullptr), 1u);
  EXPECT_EQ(setRegionData(nobody, 2, 23, 64, 0, buffer, &length, &info), 1u);
  for (const uint32_t type : {0u, 1u, 3u, 5u}) {
    EXPECT_EQ(setRegionData(fc, type, 23, 64, 0, buffer, &length, &info), 2u) << type;
    EXPECT_EQ(setRegionData(old_fc, type, 23, 64, 0, buffer, &length, &info), 2u) << type;
  }
  EXPECT_TRUE(m.logged("setRegionData - board 0 type 4 not supported")) << "the SLI mode";
  EXPECT_TRUE(m.logged("setRegionData - board 1 sliMode 3 with invalid type 5"));

  const struct {
    uint32_t board, type, result;
    uint8_t *data;
    const char *line;
  } updates[] = {
      {old_fc, 2, 3, buffer, "board 1 sliMode 3 not supported"},
      {nobody, 2, 3, buffer, "board 9 sliMode -1 not supported"},
      {fc, 0, 2, buffer, "board 0 reqType 0 not supported"},
      {fc, 4, 2, buffer, "board 0 reqType 4 not supported"},
      {fc, 1, 1, buffer, "board 0 reqType 1 no buffer or info"},
      {fc, 3, 1, buffer, "board 0 reqType 3 no buffer or info"},
      {fc, 2, 1, nullptr, "board 0 reqType 2 no buffer or info"},
  };
  for (const auto &row : updates) {
    EXPECT_EQ(HCX_IssueUpdateCfgMBox(row.board, row.type, 23, row.data, 64, &info), row.result) << row.line;
    EXPECT_TRUE(m.logged(std::string("HCX_IssueUpdateCfgMBox - ") + row.line)) << row.line;
  }
  EXPECT_EQ(HCX_IssueUpdateCfgMBox(fc, 2, 23, buffer, 64, nullptr), 1u);
  EXPECT_EQ(commands().size(), 0u) << "nothing of this was sent";
}

TEST_F(Region, ExportedUpdate) {
  std::string bytes = image("ff");
  int32_t info = 7;
  EXPECT_EQ(HCX_IssueUpdateCfgMBox(fc, 2, 23, bytes_at(bytes), 1024, &info), 0u);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(flash(fc), bytes);
  adapter(fc).forced_status[27] = 1;
  EXPECT_EQ(HCX_IssueUpdateCfgMBox(fc, 2, 23, bytes_at(bytes), 1024, &info), 2u);
  EXPECT_TRUE(m.logged("HCX_IssueUpdateCfgMBox - board 0 set region 23 data for length 1024 reqType 2"));
  adapter(fc).forced_status.clear();
  // More than a command holds never leaves.
  std::string large(4096, 'x');
  commands();
  for (const uint32_t length : {1796u, 4096u})
    EXPECT_NE(HCX_IssueUpdateCfgMBox(fc, 2, 30, bytes_at(large), length, &info), 0u) << length;
  EXPECT_EQ(commands().size(), 0u);
  // The region is longer than what the caller has: zeros, not what stands behind the caller's buffer.
  uint32_t length = 8;
  EXPECT_EQ(setRegionData(fc, 2, 30, 16, 0, bytes_at(large), &length, &info), 0u);
  EXPECT_EQ(length, 16u);
  EXPECT_EQ(*sim::flash_region(host(fc), 30), std::string(8, 'x') + std::string(8, '\0'));
  length = 8;
  EXPECT_EQ(setRegionData(old_fc, 2, 30, 16, 0, bytes_at(large), &length, &info), 0u);
  EXPECT_EQ(*sim::flash_region(host(old_fc), 30), std::string(8, 'x') + std::string(8, '\0'));
}

}  // namespace
