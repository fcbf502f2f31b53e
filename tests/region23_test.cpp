// SPDX-License-Identifier: BSD-3-Clause
// The records of region 23 and the steps that edit them in memory, on images written by hand. The fuzzer gives them
// arbitrary ones.
#include <cerrno>

#include "region_machine.h"

namespace {

constexpr uint32_t no_record = static_cast<uint32_t>(-ENOENT), run_out = static_cast<uint32_t>(-E2BIG);
const std::string own = "a2022000 01000100 ff000000 ", fip = "a0020101 0efc0000 03ea0000 ", end = "ff000000 ";

class Region23 : public RegionTest {};

TEST_F(Region23, FindsRecords) {
  const struct {
    const char *what;
    std::string bytes;
    uint32_t type, result;
    int32_t offset;
  } cases[] = {
      {"empty", image(end), 0xa2, no_record, 8},
      {"first", image(own + end), 0xa2, 0, 8},
      {"behind others", image("30010000 12345678" + fip + own + end), 0xa2, 0, 28},
      {"other type", image(fip + end), 0xa1, no_record, 20},
      {"another driver's", image("a2020020 01000100 ff000000" + own + end), 0xa2, 0, 20},
      {"id with more bits", image("a2022001 01000100 ff000000" + end), 0xa2, no_record, 20},
      {"unknown type is never found", image("30000000 ff"), 0x30, no_record, 12},
      {"end mark is never found", image(end), 0xff, no_record, 8},
      {"behind the end mark", image(end + own + end), 0xa2, no_record, 8},
      {"no end mark", image(""), 0xa2, run_out, -1},
      {"length beyond", image("30ff0000"), 0xa2, run_out, -1},
      {"last place of a record", image(until(1016) + "a2000000"), 0xa2, run_out, -1},
      {"match at the last place", image(until(1016) + "a0000000"), 0xa0, 0, 1016},
      {"end mark at the last place", image(until(1016) + end), 0xa0, no_record, 1016},
      {"one word too far", image(until(1020) + end), 0xa0, run_out, -1},
      {"revision 2", image(end).replace(4, 1, "\x02"), 0xa2, 3, -1},
      {"signature", image(end).replace(3, 1, "4"), 0xa2, 3, -1},
      {"nothing", "", 0xa2, 1, 0},
      {"short", image(end).substr(0, 1020), 0xa2, 1, -1},
  };
  std::string bytes(1024, '?');
  int32_t offset;
  uint16_t status;
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    for (const uint32_t board : {fc, old_fc}) {
      set_flash(board, c.bytes);
      offset = status = 77;
      EXPECT_EQ(get_r23_TLV(board, c.type, bytes_at(bytes), &offset, &status), c.result);
      EXPECT_EQ(offset, c.offset);
      EXPECT_EQ(status, c.bytes.empty() ? 0xfff7 : 0);
    }
  }
  expect_lines("get_r23_TLV - board 0 region 23 ",
               {"end of tlv reached", "not enough space", "needs to be initialized",
                "length 1020 should be 1024", "bad signature x52473234"});
  set_flash(fc, {});
  EXPECT_EQ(get_r23_TLV(fc, 0xa2, bytes_at(bytes), &offset, &status), 2u);
  EXPECT_EQ(status, 0xfffd);
  EXPECT_EQ(get_r23_TLV(nobody, 0xa2, bytes_at(bytes), &offset, &status), 1u);
  EXPECT_EQ(get_r23_TLV(fc, 0xa2, nullptr, &offset, &status), 1u);
  EXPECT_EQ(get_r23_TLV(fc, 0xa2, bytes_at(bytes), nullptr, &status), 1u);
  EXPECT_EQ(get_r23_TLV(fc, 0xa2, bytes_at(bytes), &offset, nullptr), 1u);
}

TEST_F(Region23, Init) {
  std::string bytes(1024, '?');
  int32_t offset = 77, info = 77;
  for (const uint32_t board : {fc, old_fc}) {
    set_flash(board, {});
    EXPECT_EQ(initRegion23(board, bytes_at(bytes), &offset, &info), 0u);
    EXPECT_EQ(offset, 8);
    EXPECT_EQ(info, 0);
    EXPECT_EQ(bytes, image("ff"));
    EXPECT_EQ(flash(board), image("ff"));
    adapter(board).forced_status[27] = 1;
    EXPECT_EQ(initRegion23(board, bytes_at(bytes), &offset, &info), 2u);
    EXPECT_EQ(offset, -1);
  }
  EXPECT_EQ(initRegion23(fc, nullptr, &offset, &info), 1u);
  EXPECT_EQ(initRegion23(fc, bytes_at(bytes), nullptr, &info), 1u);
  EXPECT_EQ(initRegion23(fc, bytes_at(bytes), &offset, nullptr), 1u);
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
  const char *const no_mark = "missing region 23 end tlv";
  const std::string untouched(1024, '?');
  const struct {
    const char *what;
    std::string bytes;
    int32_t offset;
    uint32_t result;
    int32_t end;
    std::string rest;
    const char *line;
  } cases[] = {
      {"the only one", image(own + end), 8, 0, 8, image(end), ""},
      {"in the middle", image("30000000" + own + fip + end), 12, 0, 24, image("30000000" + fip + end), ""},
      {"one word", image("a2012000 ff000000" + fip + end), 8, 0, 20, image(fip + end), ""},
      {"no word, end mark next", image("a2002000" + end), 8, 0, 8, image(end), ""},
      {"no word, another record next", image("a2002000" + fip + end), 8, 1, 12, untouched, no_mark},
      {"last word is no end mark", image("a2022000 01000100 05000000" + end), 8, 1, 12, untouched, no_mark},
      {"leaves the image", image(until(1008) + "a2042000" + end + end + end), 1008, 1, 1012, untouched,
       no_mark},
      {"last word at the very end", image(until(1012) + own), 1012, 1, 1016, image(until(1012)),
       "region 23 error in specific length 2"},
      {"before the last word", image(until(1008) + own + end), 1008, 0, 1008, image(until(1008) + end), ""},
      {"nothing that looks like an end", image(own + "30000000"), 8, 1, 12, image("30000000"),
       "region 23 missing end tlv"},
      {"erased flash behind", image(own + end, '\xff'), 8, 0, 1008,
       image(end, '\xff').replace(1011, 13, std::string(13, '\0')), ""},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    std::string bytes = c.bytes, rest = untouched;
    int32_t found = 77;
    EXPECT_EQ(remove_driver_specific(bytes_at(bytes), bytes_at(rest), c.offset, &found), c.result);
    EXPECT_EQ(found, c.end);
    EXPECT_EQ(rest, c.rest);
    EXPECT_EQ(bytes, c.bytes);
    EXPECT_TRUE(!*c.line || m.logged(std::string("remove_driver_specific - ") + c.line));
  }
}

TEST_F(Region23, Rebuild) {
  const struct {
    const char *what;
    std::string before;
    uint32_t option;
    int32_t offset;
    uint32_t result, length;
    std::string after;  // empty: as before
    const char *line;
  } cases[] = {
      {"value only", own + end + "77777777", 1, 8, 0, 12, "a2022000 01000000 ff000000 ff000000 77777777",
       "updated port status at offset 12"},
      {"behind another", "a2042000 05010000 12345678 01000000 ff000000 ff000000", 0, 8, 0, 20,
       "a2042000 05010000 12345678 01000100 ff000000 ff000000", "skipping 8 bytes to next tlv"},
      {"no words", "a2002000 ff000000", 1, 8, 0, 12, "a2022000 01000000 ff000000 ff000000",
       "adding port status at offset 12"},
      {"one word", "a2012000 ff000000 ff000000", 0, 8, 0, 12, own + end, "adding port status at offset 12"},
      {"two others", "a2032000 05000000 06000000 ff000000 ff000000", 1, 8, 0, 20,
       "a2042000 05000000 06000000 01000000 ff000000 ff000000", "Checking subType x06 length 0"},
      {"end before the record's", "a2042000 ff000000 11111111 22222222 33333333 a0a0a0a0", 1, 8, 0, 24,
       "a2052000 01000000 ff000000 ff000000 33333333 ff000000", "rc 0 new_length 24"},
      {"other option than 0 and 1", "a2022000 01000000 ff000000", 9, 8, 0, 12, own, ""},
      {"no room", until(1004) + "a2012000 05000000 ff000000", 1, 1004, 1, 8, "",
       "Not enough space for port\tstatus"},
      {"sub-records leave the image", until(1000) + "a2052000 05040000", 1, 1000, 1, 24, "",
       "rc 1 new_length 24"},
      {"sub-records reach the last word", until(1000) + "a2ff2000 05030000", 1, 1000, 1, 1024, "",
       "Not enough space for driver header"},
      {"255 words", "a2ff2000 ff000000", 1, 8, 1, 1024, "", "Too many driver specfic words"},
      {"before the image", "ff", 1, -1, 1, 0, "", ""},
      {"behind the image", "ff", 1, 1021, 1, 0, "", ""},
      {"at its end", until(1020) + "a2ff2000", 1, 1020, 1, 1024, "", "Not enough space for driver header"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.what);
    m.clear_records();
    std::string bytes = image(c.before);
    uint32_t length = 77;
    EXPECT_EQ(rebuild_port_status(bytes_at(bytes), c.option, c.offset, &length), c.result);
    EXPECT_EQ(length, c.length);
    EXPECT_EQ(to_hex(bytes), to_hex(image(c.after.empty() ? c.before : c.after)));
    EXPECT_TRUE(!*c.line || m.logged(std::string("rebuild_port_status - ") + c.line));
    EXPECT_TRUE(c.offset != 8 || m.logged("offset 8 DRVRhdr size 4 specific type xa2 length "));
    EXPECT_TRUE(c.offset != 8 || m.logged(" driver id x0020 cumulative offset 12"));
  }
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

}  // namespace
