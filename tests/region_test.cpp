// SPDX-License-Identifier: BSD-3-Clause
// Reading and writing flash regions: the exact commands of both dialects, counts that an adapter may claim and replies
// that do not come whole, statuses and their texts, refused arguments.
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
  Read read(uint32_t board, uint32_t length, uint32_t offset = 0, uint32_t context = 0) {
    Read got{.result = 0, .length = length, .status = 0, .bytes = std::string(length, '?')};
    got.result = getRegionData(board, 2, 23, offset, bytes_at(got.bytes), &got.length, &got.status, context);
    return got;
  }
  uint32_t write(uint32_t board, std::string bytes, uint32_t *written, int32_t *info) {
    *written = static_cast<uint32_t>(bytes.size());
    const std::string before = bytes;
    const uint32_t result = setRegionData(board, 2, 23, *written, 0, bytes_at(bytes), written, info);
    EXPECT_EQ(bytes, before) << "the caller's bytes are not changed";
    return result;
  }
  // The commands sent since the last time begin with these bytes.
  void expect_sent(const std::vector<const char *> &wanted) {
    const std::vector<std::string> sent = commands();
    ASSERT_EQ(sent.size(), wanted.size());
    for (size_t i = 0; i < sent.size(); ++i)
      EXPECT_EQ(to_hex(sent[i].substr(0, hex(wanted[i]).size())), to_hex(hex(wanted[i])));
  }
};

TEST_F(Region, CommandsOfBothDialects) {
  const std::string stored = image("a0020101 0efc00ea 03000000 ff000000");
  const struct {
    uint32_t board, length, offset, context;
    std::vector<const char *> commands;
  } reads[] = {
      {fc, 1024, 0, 0x5a, {"00001700 5a000002 00000017 00000400 00000000 00000000 00000000 00000000"}},
      {fc, 8, 8, 0, {"00001700 00000002 00080017 00000008"}},
      {old_fc,
       1024,
       0,
       0,
       {"00001700 00000032 00000017 00000000 00000080 00000000",
        "00001700 00000032 02000017 00000000 00000080 00000000"}},
      {old_fc, 516, 0, 0, {"00001700 00000032 00000017", "00001700 00000032 02000017 00000000 00000001"}},
  };
  for (const auto &c : reads) {
    set_flash(c.board, stored);
    const Read got = read(c.board, c.length, c.offset, c.context);
    EXPECT_EQ(got.result, 0u);
    EXPECT_EQ(got.bytes, stored.substr(c.offset, c.length));
    expect_sent(c.commands);
  }
  for (const uint32_t board : {fc, old_fc}) {
    uint32_t written = 0;
    int32_t info = 7;
    set_flash(board, {});
    EXPECT_EQ(write(board, stored, &written, &info), 0u);
    EXPECT_EQ(written, 1024u);
    EXPECT_EQ(info, 0);
    EXPECT_EQ(flash(board), stored);
    const std::string sent = commands()[0];
    EXPECT_EQ(to_hex(sent.substr(0, 20)),
              "00001b00000000320400001700000000"
              "00000400");
    EXPECT_EQ(to_hex(sent.substr(20, 4)), board == fc ? "00000400" : "00000000");
    EXPECT_EQ(to_hex(sent.substr(28, 4)), "00000000");
    EXPECT_EQ(to_hex(sent.substr(256, 20)), board == fc ? "5247323301000000a00201010efc00ea03000000"
                                                        : "3332475200000001010102a0ea00fc0e00000003");
  }
  EXPECT_EQ(adapter(old_fc).exchanges.back().offset, 5);
  EXPECT_EQ(adapter(old_fc).exchanges.back().in_words, 256u);
  EXPECT_EQ(adapter(old_fc).exchanges.back().timeout, 330000u);
}

// An adapter may deliver less than was asked, in any number of pieces, and may claim anything.
TEST_F(Region, DeliveredCounts) {
  for (const uint32_t board : {fc, old_fc}) {
    const struct {
      uint32_t claimed, length;
      std::string bytes;
    } cases[] = {
        {0xffffffff, 64, std::string(64, '1')},
        {24, 64, std::string(24, '1') + std::string(24, '2') + std::string(16, '3')},
        {0, 0, ""},
    };
    for (const auto &c : cases) {
      char piece = '0';
      adapter(board).handlers[23] = [&](MailboxCall &call) {
        call.set_word(board == fc ? 6 : 4, c.claimed);
        call.result = std::string(3840, ++piece);
      };
      const Read got = read(board, 64);
      EXPECT_EQ(got.result, 0u);
      EXPECT_EQ(got.length, c.length);
      EXPECT_EQ(got.bytes.substr(0, c.length), c.bytes);
      EXPECT_EQ(commands().size(), c.claimed == 24 ? 3u : 1u);
    }
    adapter(board).handlers.clear();
  }
  // Positions are half a word; a piece behind them would come from the front again.
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

// What the adapter counts must have come: by the driver's payload length as well as by the kernel's residual, of which
// either may say nothing.
TEST_F(Region, RepliesThatAreCutShort) {
  const std::pair<Cut, bool> cuts[] = {
      {{4096}, true},       {{4096, 768}, true}, {{768}, true},        {{768, 4096}, true},
      {{4096, 767}, false}, {{767}, false},      {{767, 4096}, false}, {{256}, false},
      {{256, 4096}, false}, {{20, 4096}, false}, {{20}, false},
  };
  for (const uint32_t board : {fc, old_fc}) {
    set_flash(board, image("a0020101"));
    for (const auto &[cut, whole] : cuts) {
      SCOPED_TRACE(std::to_string(cut.length) + " " + std::to_string(cut.said));
      cut_replies(cut);
      const Read got = read(board, 512);
      EXPECT_EQ(got.result, whole ? 0u : 1u);
      EXPECT_EQ(got.length, whole ? 512u : 0u);
      if (whole) {
        EXPECT_EQ(to_hex(got.bytes.substr(0, 12)), "5247323301000000a0020101");
      }
    }
  }
  expect_lines("getRegionData - board 1 region 23 only ",
               {"767 of 768 bytes arrived", "256 of 768 bytes arrived"});
}

TEST_F(Region, AFailureInTheMiddleKeepsWhatCame) {
  int calls = 0;
  adapter(old_fc).handlers[23] = [&](MailboxCall &call) {
    if (++calls == 2) return call.set_status(0xfff6);
    call.set_word(4, 512);
    call.result = "abcd" + std::string(508, 'a');
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
    const hcx::Text<160> line("getRegionData - Mailbox status x%04x : board 0 region 23 %s", row.status,
                              row.text);
    const Read got = read(fc, 64);
    EXPECT_EQ(got.status, row.status);
    EXPECT_EQ(got.length, 0u);
    EXPECT_TRUE(m.logged(std::string(line.c_str()).substr(0, 127))) << row.text;
    uint32_t length = 64;
    std::string room(64, '\0');
    EXPECT_EQ(HCX_IssueDumpMBox(fc, 2, 0, 23, 0, bytes_at(room), &length), row.exported) << row.text;
    EXPECT_TRUE(m.logged(hcx::Line("HCX_IssueDumpMBox - board 0 mailbox status x%04x", row.status).c_str()));
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
      uint32_t written;
      EXPECT_EQ(write(board, image("ff"), &written, &told), 2u);
      EXPECT_EQ(told, info);
      EXPECT_TRUE(m.logged("setRegionData - Response Info " + std::to_string(info) + " : " + text)) << text;
    }
  }
}

TEST_F(Region, RefusedArguments) {
  std::string room = image("ff");
  uint8_t *buffer = bytes_at(room);
  uint32_t length = 64, zero = 0;
  uint16_t status = 0;
  int32_t info = 0;
  const std::pair<uint32_t, uint32_t> calls[] = {
      {getRegionData(fc, 2, 23, 0, nullptr, &length, &status, 0), 1},
      {getRegionData(fc, 2, 23, 0, buffer, nullptr, &status, 0), 1},
      {getRegionData(fc, 2, 23, 0, buffer, &length, nullptr, 0), 1},
      {getRegionData(nobody, 2, 23, 0, buffer, &length, &status, 0), 1},
      {HCX_IssueDumpMBox(fc, 2, 0, 23, 0, nullptr, &length), 1},
      {HCX_IssueDumpMBox(fc, 2, 0, 23, 0, buffer, nullptr), 1},
      {HCX_IssueDumpMBox(old_fc, 2, 0, 23, 0, buffer, &zero), 7},  // before the board is looked at
      {HCX_IssueDumpMBox(old_fc, 2, 0, 23, 0, buffer, &length), 3},
      {HCX_IssueDumpMBox(nobody, 2, 0, 23, 0, buffer, &length), 3},
      {setRegionData(fc, 2, 23, 64, 0, nullptr, &length, &info), 1},
      {setRegionData(fc, 2, 23, 64, 0, buffer, nullptr, &info), 1},
      {setRegionData(fc, 2, 23, 64, 0, buffer, &length, nullptr), 1},
      {setRegionData(nobody, 2, 23, 64, 0, buffer, &length, &info), 1},
      {setRegionData(fc, 0, 23, 64, 0, buffer, &length, &info), 2},
      {setRegionData(fc, 1, 23, 64, 0, buffer, &length, &info), 2},
      {setRegionData(fc, 5, 23, 64, 0, buffer, &length, &info), 2},
      {setRegionData(old_fc, 0, 23, 64, 0, buffer, &length, &info), 2},
      {setRegionData(old_fc, 3, 23, 64, 0, buffer, &length, &info), 2},
      {setRegionData(old_fc, 5, 23, 64, 0, buffer, &length, &info), 2},
      {HCX_IssueUpdateCfgMBox(old_fc, 2, 23, buffer, 64, &info), 3},
      {HCX_IssueUpdateCfgMBox(nobody, 2, 23, buffer, 64, &info), 3},
      {HCX_IssueUpdateCfgMBox(fc, 0, 23, buffer, 64, &info), 2},
      {HCX_IssueUpdateCfgMBox(fc, 4, 23, buffer, 64, &info), 2},
      {HCX_IssueUpdateCfgMBox(fc, 1, 23, buffer, 64, &info), 1},
      {HCX_IssueUpdateCfgMBox(fc, 3, 23, buffer, 64, &info), 1},
      {HCX_IssueUpdateCfgMBox(fc, 2, 23, nullptr, 64, &info), 1},
      {HCX_IssueUpdateCfgMBox(fc, 2, 23, buffer, 64, nullptr), 1},
  };
  int index = 0;
  for (const auto &[got, wanted] : calls)
    EXPECT_EQ(got, wanted) << "call " << index++;
  EXPECT_EQ(commands().size(), 0u) << "nothing of this was sent";
  for (const std::string call : {"getRegionData", "HCX_IssueDumpMBox", "setRegionData"})
    expect_lines(call + " - ", {"no pBuffer", "no pLength"});
  expect_lines("getRegionData - ", {"board 9 invalid sliMode -1"});
  expect_lines("HCX_IssueDumpMBox - ", {"length is zero", "board 1 sliMode 3 not supported"});
  // "type 4" and "type 3" are the boards' SLI modes.
  expect_lines("setRegionData - ",
               {"no pBuffer", "no pLength", "board 9 invalid sliMode -1", "board 0 type 4 not supported",
                "board 1 type 3 not supported", "board 1 sliMode 3 with invalid type 0",
                "board 1 sliMode 3 with invalid type 5"});
  expect_lines("HCX_IssueUpdateCfgMBox - board ",
               {"1 sliMode 3 not supported", "9 sliMode -1 not supported", "0 reqType 0 not supported",
                "0 reqType 4 not supported", "0 reqType 1 no buffer or info", "0 reqType 3 no buffer or info",
                "0 reqType 2 no buffer or info"});
}

TEST_F(Region, ExportedUpdate) {
  std::string bytes = image("ff"), large(4096, 'x');
  int32_t info = 7;
  EXPECT_EQ(HCX_IssueUpdateCfgMBox(fc, 2, 23, bytes_at(bytes), 1024, &info), 0u);
  EXPECT_EQ(info, 0);
  EXPECT_EQ(flash(fc), bytes);
  adapter(fc).forced_status[27] = 1;
  EXPECT_EQ(HCX_IssueUpdateCfgMBox(fc, 2, 23, bytes_at(bytes), 1024, &info), 2u);
  EXPECT_TRUE(m.logged("HCX_IssueUpdateCfgMBox - board 0 set region 23 data for length 1024 reqType 2"));
  adapter(fc).forced_status.clear();
  // More than a command holds never leaves.
  commands();
  for (const uint32_t length : {1796u, 4096u})
    EXPECT_NE(HCX_IssueUpdateCfgMBox(fc, 2, 30, bytes_at(large), length, &info), 0u) << length;
  EXPECT_EQ(commands().size(), 0u);
  // The region is longer than what the caller has: zeros, not what stands behind the caller's buffer.
  for (const uint32_t board : {fc, old_fc}) {
    uint32_t length = 8;
    EXPECT_EQ(setRegionData(board, 2, 30, 16, 0, bytes_at(large), &length, &info), 0u);
    EXPECT_EQ(length, 16u);
    EXPECT_EQ(*sim::flash_region(host(board), 30), std::string(8, 'x') + std::string(8, '\0'));
  }
}

}  // namespace
