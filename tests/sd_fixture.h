// SPDX-License-Identifier: BSD-3-Clause
// Two boards with the diagnostic service up.
#pragma once

#include <vector>

#include "board_fixture.h"
#include "hcx_sdapi.h"

class SdTest : public BoardTest {
 protected:
  static constexpr HBA_WWN own = {};

  void SetUp() override {
    BoardTest::SetUp();
    three = &m.add_host({.number = 3, .wwpn = 0x1000000000000003});
    four = &m.add_host({.number = 4, .wwpn = 0x1000000000000004});
    scan();
    ASSERT_EQ(hcx_sd_init(table, 2), SD_OK);
  }
  void TearDown() override {
    EXPECT_EQ(hcx_sd_deinit(), SD_OK);
    BoardTest::TearDown();
  }
  // Whether a line of the log is this text, after the program's name.
  void expect_logged(const std::string &line) { EXPECT_TRUE(m.logged(line)) << line; }

  hcx_brdinfo table[2] = {};
  sim::Host *three = nullptr;
  sim::Host *four = nullptr;
};
