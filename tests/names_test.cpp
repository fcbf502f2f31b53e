// SPDX-License-Identifier: BSD-3-Clause
// Words and numbers: matching by prefix and in order, what is folded, and the edges of the output buffers.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "libhcx.h"

namespace {

using namespace hcx;

const named_const empty_table[] = {{nullptr, 77}};

TEST(Names, WordToNumber) {
  struct Case {
    const char *word;
    const named_const *table;
    uint32_t value;
  };
  const Case cases[] = {
      {"Online", port_state_names, 2},
      {"  Online", port_state_names, 2},
      {"\tOnline\n", port_state_names, 2},
      {"Online (again)", port_state_names, 2},  // the row is a prefix of the text ...
      {"Onlin", port_state_names, 1},           // ... never the other way round
      {"", port_state_names, 1},
      {nullptr, port_state_names, 1},
      {"Blocked", port_state_names, 1},
      {"Deleted", port_state_names, 1},
      {"Marginal", port_state_names, 1},
      {"Loopback", port_state_names, 8},
      {"NPort (fabric via point-to-point)", port_type_names, 5},
      {"NLPort (fabric via loop)", port_type_names, 6},
      {"LPort (private loop)", port_type_names, 0x14},
      {"Point-To-Point (direct nport connection)", port_type_names, 0x15},
      {"NPIV VPORT", port_type_names, 1},
      {"Link Up - Ready:\n", link_state_names, 8},
      {"Link Up - Failed", link_state_names, 7},
      {"Link Down - User disabled", link_state_names, 0},
      {"Disabled", vport_state_names, 0xa},
      {"Fabric Rejected WWN", vport_state_names, 6},
      {"wwnn (World Wide Node Name)", bind_type_names, 0x400},
      {"wwnn", bind_type_names, 0},
      {"fw_reset", reset_type_names, 3},
      {"error", board_mode_names, 5},
      {"1", yes_no_names, 1},
      {"2", yes_no_names, 0},
      {"10 Gbit", port_speed_names, 0x4},
      {"Not Negotiated", port_speed_names, 0x8000},
      {"anything", empty_table, 0},
      {"anything", nullptr, 0},
  };
  for (const Case &c : cases)
    EXPECT_EQ(str2enum(c.word, c.table), c.value) << (c.word ? c.word : "null");
}

TEST(Names, NumberToWordWithinTheBuffer) {
  struct Case {
    uint32_t value;
    size_t size;
    int result;
    const char *text;
  };
  const Case cases[] = {
      {1, 32, 7, "Unknown"},  // the first of the rows that share the value
      {6, 32, 8, "Linkdown"}, {6, 9, 8, "Linkdown"}, {6, 8, 7, "Linkdow"},  {6, 2, 1, "L"},
      {6, 1, 0, ""},          {6, 0, 0, "######"},   {99, 32, 0, "######"},
  };
  for (const Case &c : cases) {
    char text[40] = "######";
    memset(text + 7, '#', sizeof text - 7);
    EXPECT_EQ(enum2str(text, c.size, c.value, port_state_names), c.result) << c.value << " in " << c.size;
    EXPECT_STREQ(text, c.text) << c.value << " in " << c.size;
    EXPECT_EQ(text[sizeof text - 1], '#');
  }
  EXPECT_EQ(enum2str(nullptr, 10, 1, port_state_names), 0);
}

TEST(Names, WordListToBits) {
  struct Case {
    const char *words;
    char separator;
    const named_const *table;
    uint32_t bits;
  };
  const Case cases[] = {
      {"FCP Target, FCP Initiator", ',', rport_role_names, 0x3},
      {"FCP Target,FCP Initiator,", ',', rport_role_names, 0x3},
      {" ,, Directory Server", ',', rport_role_names, 0x40},
      {"Fabric Port, Fabric Controller, Unknown Fabric Entity", ',', rport_role_names, 0x830},
      {"unknown", ',', rport_role_names, 0},
      {"Target", ',', rport_role_names, 0},
      {"", ',', rport_role_names, 0},
      {nullptr, ',', rport_role_names, 0},
      {"IP Port", ',', nullptr, 0},
      {"IP Port, FCP Target", '\0', rport_role_names, 0x4},
      {"Class 2, Class 3", ',', class_names, 0xc},
      {"1 Gbit, 10 Gbit, 16 Gbit", ',', port_speed_names, 0x25},
      {"32 Gbit", ',', port_speed_names, 0},
  };
  for (const Case &c : cases) {
    EXPECT_EQ(str2bitfield(c.words, c.separator, c.table), c.bits) << (c.words ? c.words : "null");
  }
}

TEST(Names, BitsToWordListIsCutAtEverySizeWithoutOverrun) {
  const std::string whole = "FCP Target, FCP Initiator";
  char text[64];
  ASSERT_EQ(bitfield2str(text, sizeof text, 0x3, ',', rport_role_names), static_cast<int>(whole.size()));
  EXPECT_EQ(text, whole);
  for (size_t size = 1; size <= whole.size() + 1; ++size) {
    memset(text, '#', sizeof text);
    EXPECT_EQ(bitfield2str(text, size, 0x3, ',', rport_role_names), static_cast<int>(size - 1)) << size;
    EXPECT_EQ(strnlen(text, sizeof text), size - 1);
    EXPECT_EQ(text[size], '#') << size;
    EXPECT_TRUE(size == 12 || whole.starts_with(text)) << text;
  }
  // With room for one character only the separator is left out.
  bitfield2str(text, 12, 0x3, ',', rport_role_names);
  EXPECT_STREQ(text, "FCP TargetF");
  EXPECT_EQ(bitfield2str(text, sizeof text, 0x200, ',', rport_role_names), 0);
  EXPECT_STREQ(text, "");
  text[0] = '#';
  EXPECT_EQ(bitfield2str(text, 0, 0x3, ',', rport_role_names), 0);
  EXPECT_EQ(text[0], '#');
}

}  // namespace
