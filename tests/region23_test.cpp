// SPDX-License-Identifier: BSD-3-Clause
// The records of region 23 and the steps that edit them in memory, on images written by hand, and on arbitrary ones
// between guard bytes.
#include <cerrno>
#include <random>

#include "region_machine.h"

namespace {

constexpr uint32_t no_record = static_cast<uint32_t>(-ENOENT), run_out = static_cast<uint32_t>(-E2BIG);

class Region23 : public RegionTest {
 protected:
  struct Found {
    uint32_t result;
    int32_t offset;
    uint16_t status;
  };
  Found find(uint32_t type, uint32_t board = fc) {
    std::string bytes(1024, '?');
    Found found{.result = 0, .offset = 77, .status = 77};
    found.result = get_r23_TLV(board, type, bytes_at(bytes), &found.offset, &found.status);
    return found;
  }
  // A record of any size with a foreign type.
  static std::string filler(size_t bytes) {
    std::string digits = "30" + to_hex(std::string(1, static_cast<char>(bytes / 4 - 1))) + "5a5a";
    while (digits.size() < 2 * bytes)
      digits += "77";
    return digits;
  }
  // Enough of them that the next record begins at `offset`.
  static std::string until(size_t offset) {
    const size_t half = (offset - 8) / 8 * 4;
    return filler(half) + filler(offset - 8 - half);
  }
};

TEST_F(Region23, FindsRecords) {
  const struct {
    const char *what;
    std::string bytes;
    uint32_t type, result;
    int32_t offset;
  } cases[] = {
      {"empty", image("ff000000"), 0xa2, no_record, 8},
      {"first", image("a2022000 01000100 ff000000 ff000000"), 0xa2, 0, 8},
      {"behind others", image("30010000 12345678 a0020101 0efc0000 03ea0000 a2022000 01000100 ff000000 ff"),
       0xa2, 0, 28},
      {"other type", image("a0020101 0efc0000 00000000 ff"), 0xa1, no_record, 20},
      {"another driver's", image("a2020020 01000100 ff000000 a2022000 01000100 ff000000 ff"), 0xa2, 0, 20},
      {"id with more bits", image("a2022001 01000100 ff000000 ff"), 0xa2, no_record, 20},
      {"unknown type is never found", image("30000000 ff"), 0x30, no_record, 12},
      {"end mark is never found", image("ff"), 0xff, no_record, 8},
      {"behind the end mark", image("ff000000 a2022000 01000100 ff000000"), 0xa2, no_record, 8},
      {"no end mark", image(""), 0xa2, run_out, -1},
      {"length beyond", image("30ff0000"), 0xa2, run_out, -1},
      {"last place of a record", image(until(1016) + "a2000000"), 0xa2, run_out, -1},
      {"match at the last place", image(until(1016) + "a0000000"), 0xa0, 0, 1016},
      {"end mark at the last place", image(until(1016) + "ff000000"), 0xa0, no_record, 1016},
      {"one word too far", image(until(1020) + "ff000000"), 0xa0, run_out, -1},
      {"revision 2", image("ff").replace(4, 1, "\x02"), 0xa2, 3, -1},
      {"signature", image("ff").replace(3, 1, "4"), 0xa2, 3, -1},
      {"nothing", "", 0xa2, 1, 0},
      {"short", image("ff").substr(0, 1020), 0xa2, 1, -1},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    for (const uint32_t board : {fc, old_fc}) {
      set_flash(board, c.bytes);
      const Found found = find(c.type, board);
      EXPECT_EQ(found.result, c.result);
      EXPECT_EQ(found.offset, c.offset);
      EXPECT_EQ(found.status, c.bytes.empty() ? 0xfff7 : 0);
    }
  }
  for (const char *line :
       {"region 23 end of tlv reached", "region 23 not enough space", "region 23 needs to be initialized",
        "region 23 length 1020 should be 1024", "region 23 bad signature x52473234"})
    EXPECT_TRUE(m.logged(std::string("get_r23_TLV - board 0 ") + line)) << line;
  set_flash(fc, {});
  EXPECT_EQ(find(0xa2).status, 0xfffd);
  EXPECT_EQ(find(0xa2, nobody).result, 1u);
  int32_t offset;
  uint16_t status;
  uint8_t byte;
  EXPECT_EQ(get_r23_TLV(fc, 0xa2, nullptr, &offset, &status), 1u);
  EXPECT_EQ(get_r23_TLV(fc, 0xa2, &byte, nullptr, &status), 1u);
  EXPECT_EQ(get_r23_TLV(fc, 0xa2, &byte, &offset, nullptr), 1u);
}

TEST_F(Region23, Init) {
  for (const uint32_t board : {fc, old_fc}) {
    set_flash(board, {});
    std::string bytes(1024, '?');
    int32_t offset = 77, info = 77;
    EXPECT_EQ(initRegion23(board, bytes_at(bytes), &offset, &info), 0u);
    EXPECT_EQ(offset, 8);
    EXPECT_EQ(info, 0);
    EXPECT_EQ(bytes, image("ff"));
    EXPECT_EQ(flash(board), image("ff"));
    adapter(board).forced_status[27] = 1;
    EXPECT_NE(initRegion23(board, bytes_at(bytes), &offset, &info), 0u);
    EXPECT_EQ(offset, -1);
  }
  int32_t number;
  uint8_t byte;
  EXPECT_EQ(initRegion23(fc, nullptr, &number, &number), 1u);
  EXPECT_EQ(initRegion23(fc, &byte, nullptr, &number), 1u);
  EXPECT_EQ(initRegion23(fc, &byte, &number, nullptr), 1u);
}

TEST_F(Region23, Create) {
  std::string bytes = image("ff");
  EXPECT_EQ(create_driver_specific(1, 8, bytes_at(bytes)), 0u);
  EXPECT_EQ(bytes, image("a2022000 01000000 ff000000 ff000000"));
  EXPECT_EQ(create_driver_specific(0, 20, bytes_at(bytes)), 0u);
  EXPECT_EQ(bytes, image("a2022000 01000000 ff000000 a2022000 01000100 ff000000 ff000000"));
  EXPECT_EQ(create_driver_specific(2, 8, bytes_at(bytes)), 0u);
  EXPECT_EQ(to_hex(bytes.substr(12, 4)), "01000100");
  const std::string before = bytes;
  for (const int32_t offset : {1012, 1009, 1016, 1020, 1024, 100000, INT32_MAX, -1, -16, INT32_MIN}) {
    EXPECT_EQ(create_driver_specific(1, offset, bytes_at(bytes)), 1u) << offset;
    EXPECT_EQ(bytes, before) << offset;
  }
  EXPECT_TRUE(m.logged("create_driver_specific - region 23 no space left"));
  EXPECT_EQ(create_driver_specific(1, 1008, bytes_at(bytes)), 0u);
  EXPECT_EQ(to_hex(bytes.substr(1008)), "a202200001000000ff000000ff000000");
  EXPECT_EQ(create_driver_specific(1, 8, nullptr), 1u);
}

TEST_F(Region23, Remove) {
  const std::string fip = "a0020101 0efc0000 03ea0000 ";
  const struct {
    const char *what;
    std::string bytes;
    int32_t offset;
    uint32_t result;
    int32_t end;
    std::optional<std::string> rest;
    const char *line;
  } cases[] = {
      {"the only one", image("a2022000 01000100 ff000000 ff000000"), 8, 0, 8, image("ff000000"), nullptr},
      {"in the middle", image("30000000 a2022000 01000100 ff000000 " + fip + "ff000000"), 12, 0, 24,
       image("30000000 " + fip + "ff000000"), nullptr},
      {"one word", image("a2012000 ff000000 " + fip + "ff000000"), 8, 0, 20, image(fip + "ff000000"),
       nullptr},
      {"no word, end mark next", image("a2002000 ff000000"), 8, 0, 8, image("ff000000"), nullptr},
      {"no word, another record next",
       image("a2002000 " + fip + "ff000000"),
       8,
       1,
       12,
       {},
       "missing region 23 end tlv"},
      {"last word is no end mark",
       image("a2022000 01000100 05000000 ff000000"),
       8,
       1,
       12,
       {},
       "missing region 23 end tlv"},
      {"leaves the image",
       image(until(1008) + "a2042000 ff000000 ff000000 ff000000"),
       1008,
       1,
       1012,
       {},
       "missing region 23 end tlv"},
      {"last word at the very end", image(until(1012) + "a2022000 01000100 ff000000"), 1012, 1, 1016,
       image(until(1012)), "region 23 error in specific length 2"},
      {"before the last word", image(until(1008) + "a2022000 01000100 ff000000 ff000000"), 1008, 0, 1008,
       image(until(1008) + "ff000000"), nullptr},
      {"nothing that looks like an end", image("a2022000 01000100 ff000000 30000000"), 8, 1, 12,
       image("30000000"), "region 23 missing end tlv"},
      {"erased flash behind", image("a2022000 01000100 ff000000 ff000000", '\xff'), 8, 0, 1008,
       image("ff000000", '\xff').replace(1011, 13, std::string(13, '\0')), nullptr},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    std::string bytes = c.bytes, rest(1024, '?');
    int32_t end = 77;
    EXPECT_EQ(remove_driver_specific(bytes_at(bytes), bytes_at(rest), c.offset, &end), c.result);
    EXPECT_EQ(end, c.end);
    EXPECT_EQ(rest, c.rest.value_or(std::string(1024, '?')));
    EXPECT_EQ(bytes, c.bytes);
    if (c.line) {
      EXPECT_TRUE(m.logged(std::string("remove_driver_specific - ") + c.line));
    }
  }
}

TEST_F(Region23, Rebuild) {
  const struct {
    const char *what;
    std::string bytes;
    uint32_t option;
    int32_t offset;
    uint32_t result, length;
    std::string after;
    const char *line;
  } cases[] = {
      {"value only", image("a2022000 01000100 ff000000 ff000000 77777777"), 1, 8, 0, 12,
       image("a2022000 01000000 ff000000 ff000000 77777777"), "updated port status at offset 12"},
      {"behind another", image("a2042000 05010000 12345678 01000000 ff000000 ff000000"), 0, 8, 0, 20,
       image("a2042000 05010000 12345678 01000100 ff000000 ff000000"), "skipping 8 bytes to next tlv"},
      {"no words", image("a2002000 ff000000"), 1, 8, 0, 12, image("a2022000 01000000 ff000000 ff000000"),
       "adding port status at offset 12"},
      {"one word", image("a2012000 ff000000 ff000000"), 0, 8, 0, 12,
       image("a2022000 01000100 ff000000 ff000000"), "adding port status at offset 12"},
      {"two others", image("a2032000 05000000 06000000 ff000000 ff000000"), 1, 8, 0, 20,
       image("a2042000 05000000 06000000 01000000 ff000000 ff000000"), "Checking subType x06 length 0"},
      {"end before the record's", image("a2042000 ff000000 11111111 22222222 33333333 a0a0a0a0"), 1, 8, 0, 24,
       image("a2052000 01000000 ff000000 ff000000 33333333 ff000000"), "rc 0 new_length 24"},
      {"other option than 0 and 1", image("a2022000 01000000 ff000000"), 9, 8, 0, 12,
       image("a2022000 01000100 ff000000"), nullptr},
      {"no room", image(until(1004) + "a2012000 05000000 ff000000"), 1, 1004, 1, 8,
       image(until(1004) + "a2012000 05000000 ff000000"), "Not enough space for port\tstatus"},
      {"sub-records leave the image", image(until(1000) + "a2052000 05040000"), 1, 1000, 1, 24,
       image(until(1000) + "a2052000 05040000"), "rc 1 new_length 24"},
      {"sub-records reach the last word", image(until(1000) + "a2ff2000 05030000"), 1, 1000, 1, 1024,
       image(until(1000) + "a2ff2000 05030000"), "Not enough space for driver header"},
      {"255 words", image("a2ff2000 ff000000"), 1, 8, 1, 1024, image("a2ff2000 ff000000"),
       "Too many driver specfic words"},
      {"before the image", image("ff"), 1, -1, 1, 0, image("ff"), nullptr},
      {"behind the image", image("ff"), 1, 1021, 1, 0, image("ff"), nullptr},
      {"at its end", image(until(1020) + "a2ff2000"), 1, 1020, 1, 1024, image(until(1020) + "a2ff2000"),
       "Not enough space for driver header"},
  };
  libhcx_syslog_enable(0x4fff);
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    std::string bytes = c.bytes;
    uint32_t length = 77;
    EXPECT_EQ(rebuild_port_status(bytes_at(bytes), c.option, c.offset, &length), c.result);
    EXPECT_EQ(length, c.length);
    EXPECT_EQ(to_hex(bytes), to_hex(c.after));
    if (c.line) {
      EXPECT_TRUE(m.logged(std::string("rebuild_port_status - ") + c.line));
    }
  }
  EXPECT_TRUE(
      m.logged("offset 8 DRVRhdr size 4 specific type xa2 length 2 driver id x0020 cumulative offset 12"));
}

TEST_F(Region23, Add) {
  std::string bytes = image("a2022000 01000000 ff000000 30000000 ff000000");
  std::string rest = image("30000000 ff000000 77777777");
  EXPECT_EQ(add_driver_specific(bytes_at(bytes), 8, bytes_at(rest), 12, 12), 0u);
  EXPECT_EQ(rest, image("30000000 a2022000 01000000 ff000000 ff000000"));
  EXPECT_EQ(bytes, rest);
  // The last place that is left, and what is refused.
  EXPECT_EQ(add_driver_specific(bytes_at(bytes), 12, bytes_at(rest), 1008, 12), 0u);
  EXPECT_EQ(to_hex(bytes.substr(1008)), "a202200001000000ff000000ff000000");
  const std::string kept = bytes;
  const struct {
    int32_t offset, end;
    uint32_t length;
  } refused[] = {{12, 1012, 12}, {12, 7, 12},         {12, -1, 12}, {12, INT32_MAX, 12}, {1016, 8, 12},
                 {-1, 8, 12},    {12, 8, 0xffffffff}, {8, 8, 1016}, {INT32_MIN, 8, 4},   {0, 8, 1024}};
  for (const auto &r : refused) {
    EXPECT_EQ(add_driver_specific(bytes_at(bytes), r.offset, bytes_at(rest), r.end, r.length), 1u)
        << r.offset << " " << r.end << " " << r.length;
    EXPECT_EQ(bytes, kept);
    EXPECT_EQ(rest, kept);
  }
  EXPECT_EQ(add_driver_specific(nullptr, 8, bytes_at(rest), 8, 12), 1u);
  EXPECT_EQ(add_driver_specific(bytes_at(bytes), 8, nullptr, 8, 12), 1u);
}

// Whatever an image holds, no step touches a byte outside of it.
TEST_F(Region23, ArbitraryImagesStayInTheirBytes) {
  std::mt19937 random(23);
  const auto pick = [&random](uint32_t below) { return random() % below; };
  const std::string guard(64, '\x5c');
  libhcx_syslog_enable(0);
  for (int round = 0; round < 20000; ++round) {
    std::string memory[2];
    for (std::string &block : memory) {
      std::string bytes(1024, '\0');
      for (char &byte : bytes)
        byte = static_cast<char>(pick(4) == 0 ? 0xff : pick(4) == 0 ? 0xa2 : pick(round % 2 ? 256 : 6));
      block = guard;
      block.append(bytes).append(guard);
    }
    uint8_t *region = bytes_at(memory[0]) + guard.size(), *rest = bytes_at(memory[1]) + guard.size();
    int32_t offset = static_cast<int32_t>(pick(280)) * 4 - 8 + static_cast<int32_t>(pick(20) == 0);
    if (pick(50) == 0) offset = static_cast<int32_t>(random());
    int32_t end = static_cast<int32_t>(pick(1040));
    uint32_t length = pick(64);
    switch (pick(5)) {
      case 0:
        create_driver_specific(pick(2), offset, region);
        break;
      case 1:
        rebuild_port_status(region, pick(2), offset, &length);
        break;
      case 2:
        remove_driver_specific(region, rest, offset, &end);
        break;
      case 3:
        add_driver_specific(region, offset, rest, end, length);
        break;
      default:
        remove_driver_specific(region, rest, offset, &end);
        rebuild_port_status(region, pick(2), offset, &length);
        add_driver_specific(region, offset, rest, end, length);
    }
    for (const std::string &block : memory)
      ASSERT_TRUE(block.starts_with(guard) && block.ends_with(guard) && block.size() == 1152) << round;
  }
}

}  // namespace
