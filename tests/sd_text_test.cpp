// SPDX-License-Identifier: BSD-3-Clause
// The driver's latency texts, as they are and as they should not be.
#include "hcx_sdapi_text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace hcx::sd;

const std::string good_state =
    "Statistics Data enabled :1, blocked :0, Bucket type :linear, Bucket base :10, Bucket step :5\n"
    "Bucket ranges :10 15 20 25 30 35 40 45 50 55 60 65 70 75 80 85 90 95 100 105";

struct Read {
  Definition result;
  uint16_t type = 0xaaaa;
  uint32_t base = 0xaaaaaaaa;
  uint32_t step = 0xaaaaaaaa;
  std::vector<uint64_t> values = std::vector<uint64_t>(SD_BUCKETS + 1, 0xaaaaaaaaaaaaaaaa);
};

Read read(const std::string &text) {
  Read r;
  r.result = read_definition(text, &r.type, &r.base, &r.step, r.values.data());
  EXPECT_EQ(r.values[SD_BUCKETS], 0xaaaaaaaaaaaaaaaa) << "written behind the end: " << text;
  return r;
}

TEST(SdText, DefinitionAsTheDriverWritesIt) {
  const Read r = read(good_state + " \n");
  EXPECT_EQ(r.result, Definition::ok);
  EXPECT_EQ(r.type, SD_SEARCH_LINEAR);
  EXPECT_EQ(r.base, 10000000u);
  EXPECT_EQ(r.step, 5000000u);
  for (uint64_t i = 0; i < SD_BUCKETS; ++i)
    EXPECT_EQ(r.values[i], (10 + 5 * i) * 1000000) << i;
}

TEST(SdText, EveryCutOfADefinitionIsAnError) {
  const size_t last_number = good_state.rfind(' ') + 1;
  for (size_t length = 0; length <= good_state.size(); ++length) {
    const Read r = read(good_state.substr(0, length));
    EXPECT_EQ(r.result, length > last_number ? Definition::ok : Definition::malformed) << length;
    // What had been understood before the cut is there.
    if (length > good_state.find('\n')) {
      EXPECT_EQ(r.step, 5000000u) << length;
    }
    if (length < good_state.find("linear")) {
      EXPECT_EQ(r.type, 0xaaaa) << length;
    }
  }
}

std::string state_with(const std::string &type, const std::string &base, const std::string &step,
                       const std::string &end = "\n") {
  std::string text = "Data enabled :0, blocked :0, Bucket type :" + type + ", Bucket base :" + base +
                     ", Bucket step :" + step + end + "Bucket ranges :";
  for (int i = 1; i <= 20; ++i)
    text += std::to_string(i) + " ";
  return text;
}

TEST(SdText, FieldsOfADefinition) {
  const struct {
    const char *what;
    std::string text;
    Definition result;
    uint16_t type;
    uint32_t base, step;
  } rows[] = {
      {"no buckets", state_with("No Bucket", "0", "0"), Definition::not_set, 0xaaaa, 0, 0},
      {"blanks around values", state_with("  power2\t", " 0 ", " 5 "), Definition::ok, 2, 0, 5000000},
      {"the step ends with a comma", state_with("linear", "1", "2", ",\n"), Definition::ok, 1, 1000000,
       2000000},
      {"hexadecimal", state_with("linear", "0x10", "0X0a"), Definition::ok, 1, 16000000, 10000000},
      {"32 bits of nanoseconds", state_with("linear", "4295", "1"), Definition::ok, 1, 32704, 1000000},
      {"an unknown type", state_with("logarithmic", "1", "1"), Definition::malformed, 0xaaaa, 0, 0},
      {"an empty base", state_with("linear", "", "1"), Definition::malformed, 1, 0, 0},
      {"a unit", state_with("linear", "1ms", "1"), Definition::malformed, 1, 0, 0},
      {"too large", state_with("linear", "99999999999999999999", "1"), Definition::malformed, 1, 0, 0},
      {"no second line", "a :0, b :0, c :linear, d :1, e :1", Definition::malformed, 1, 1000000, 1000000},
      {"the step is looked for in line 1", "a :0, b :0, c :linear, d :1\nranges :1 2", Definition::malformed,
       1, 1000000, 0},
      {"a NUL ends the text", std::string("a :0, b :0, c :lin\0ear, d", 24), Definition::malformed, 0xaaaa, 0,
       0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    const Read r = read(row.text);
    EXPECT_EQ(r.result, row.result);
    EXPECT_EQ(r.type, row.type);
    EXPECT_EQ(r.base, row.base ? row.base : row.result == Definition::ok ? 0 : 0xaaaaaaaa);
    EXPECT_EQ(r.step, row.step ? row.step : 0xaaaaaaaa);
  }
}

TEST(SdText, OldBoundsDoNotShineThrough) {
  const Read r = read("a :0, b :0, c :linear, d :1, e :1\nBucket ranges :7 8 x");
  EXPECT_EQ(r.result, Definition::malformed);
  EXPECT_EQ(r.values[1], 8000000u);
  EXPECT_EQ(r.values[9], 0u);
  EXPECT_EQ(r.values[10], 0xaaaaaaaaaaaaaaaau);
  // 64 bits of nanoseconds.
  const std::string wide =
      "a :0, b :0, c :power2, d :0, e :5\nr :2621440 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1";
  EXPECT_EQ(read(wide).values[0], 2621440000000u);
}

TEST(SdText, WhatAStateTells) {
  const struct {
    std::string text;
    bool collecting, bucket;
  } rows[] = {
      {good_state, true, true},
      {"e :0, b :0, t :No Bucket, base :0", false, false},
      {"e : 0 , b :0, t : No Bucket ", false, false},
      {"e :1", true, false},
      {"e 1, b 0, t :linear", true, true},  // the first colon of the line
      {"", false, false},
      {"no colon, at all, here\nranges :1", false, false},
      {std::string("\0e :1, b :0, t :linear", 22), false, false},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(tells_collecting(row.text), row.collecting) << row.text;
    EXPECT_EQ(tells_bucket(row.text), row.bucket) << row.text;
  }
}

// As long as the driver's records are; what follows the line is left over from before.
std::string record(std::string text) {
  text.resize(data_record_size, '7');
  return text;
}

TEST(SdText, DataRecords) {
  const std::string name = "500601603EA01aFf:";
  std::string full = name;
  for (int i = 0; i < 20; ++i)
    full += "4294967295,";
  full += '\n';
  ASSERT_EQ(full.size(), data_record_size);
  const struct {
    const char *what;
    std::string text;
    bool good;
    std::vector<uint32_t> counts;  // the first ones; the others are 0
  } rows[] = {
      {"as full as can be", full, true, std::vector<uint32_t>(20, UINT32_MAX)},
      {"padded counts are decimal", record(name + "0000000010,0000000008,\n"), true, {10, 8}},
      {"none", record(name + "\n"), true, {}},
      {"blanks", record(name + " 1 , 2\r\n"), true, {1, 2}},
      {"saturated",
       record(name + "4294967296,99999999999999999999999,1\n"),
       true,
       {UINT32_MAX, UINT32_MAX, 1}},
      {"more than twenty",
       record(name + "1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,x\n"),
       true,
       {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20}},
      {"a NUL ends it", record(name + std::string("5\0x\n", 4)), true, {5}},
      {"15 digits", record("500601603ea0100:1,2\n"), false, {}},
      {"0x", record("0x0601603ea01001:1\n"), false, {}},
      {"no colon", record("500601603ea01001\n:1"), false, {}},
      {"an empty count", record(name + "1,,2\n"), false, {}},
      {"no count", record(name + "1,many\n"), false, {}},
      {"hexadecimal", record(name + "0x1\n"), false, {}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    SD_IO_Latency_Response response;
    memset(&response, 0xaa, sizeof response);
    ASSERT_EQ(read_record(row.text, &response), row.good);
    if (!row.good) continue;
    const uint8_t golden[] = {0x50, 0x06, 0x01, 0x60, 0x3e, 0xa0, 0x1a, 0xff};
    EXPECT_EQ(memcmp(response.sd_iolatency_target_wwpn.wwn, golden, 8), 0);
    for (size_t i = 0; i < SD_BUCKETS; ++i)
      EXPECT_EQ(response.sd_time_stats_array[i].sd_tstats_bucket_count,
                i < row.counts.size() ? row.counts[i] : 0)
          << i;
  }
}

}  // namespace
