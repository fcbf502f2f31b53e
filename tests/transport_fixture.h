// SPDX-License-Identifier: BSD-3-Clause
// Boards whose driver answers as the test says: 0 is SLI-4 (host 3), 1 is SLI-3 (host 4). Bytes are written as text in
// hexadecimal, blanks ignored.
#pragma once

#include <bit>
#include <string>
#include <string_view>
#include <utility>

#include "alloc_fault.h"
#include "board_fixture.h"

inline std::string hex(std::string_view text) {
  std::string bytes;
  int high = -1;
  for (const char c : text) {
    if (c == ' ') continue;
    const int digit = c <= '9' ? c - '0' : c - 'a' + 10;
    if (high < 0) {
      high = digit;
    } else {
      bytes += static_cast<char>(high << 4 | digit);
      high = -1;
    }
  }
  return bytes;
}

inline std::string to_hex(std::string_view bytes) {
  constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    text += digits[static_cast<uint8_t>(c) >> 4];
    text += digits[c & 15];
  }
  return text;
}

// Of two byte images that of this processor's order, as text without blanks.
inline std::string native(std::string_view little, std::string_view big) {
  return to_hex(hex(std::endian::native == std::endian::little ? little : big));
}

class TransportTest : public BoardTest {
 protected:
  static constexpr uint64_t target_name = 0x1000000000a1b2c3, other_name = 0x50060160000000aa;

  void SetUp() override {
    BoardTest::SetUp();
    sim::Host &sli4 = m.add_host(
        {.number = 3, .wwpn = 0x1000000012345601, .wwnn = 0x2000000012345601, .port_id = 0x010200});
    sli4.add_fabric_ports();
    sli4.add_rport({.wwpn = target_name, .wwnn = 0x2000000000a1b2c3, .port_id = 0x010203});
    sli4.add_rport({.wwpn = other_name, .wwnn = 0x20060160000000aa, .port_id = 0x010300});
    m.add_host({.number = 4, .sli = 3});
    scan();
  }

  // The one request that the driver has seen since the last time.
  sim::Request only_request() {
    const auto seen = m.requests();
    EXPECT_EQ(seen.size(), 1u);
    m.clear_records();
    return seen.empty() ? sim::Request{} : seen.front();
  }

  // Makes the driver's answer go wrong in every way there is, and every allocation fail: `call` must fail each time,
  // and nothing may be left behind.
  template <class Call, class Failed>
  void sweep_driver(uint32_t command, Call call, Failed failed) {
    const sim::BsgHandler good = m.bsg().vendor(command);
    const std::pair<int, int> answers[] = {{EIO, 0}, {ENODEV, 0}, {0, -EIO}, {0, -ETIMEDOUT}, {0, 0x70000}};
    for (const auto &[error, result] : answers) {
      m.bsg().on_vendor(command, [error = error, result = result](sim::BsgCall &request) {
        request.error = error;
        request.result = result;
      });
      EXPECT_TRUE(failed(call())) << "error " << error << " result " << result;
      expect_nothing_left("after a failing request");
    }
    m.bsg().on_vendor(command, good);
    sweep_memory(call, failed);
    EXPECT_FALSE(failed(call()));
  }

  template <class Call, class Failed>
  void sweep_memory(Call call, Failed failed) {
    for (int nth = 1; nth < 100; ++nth) {
      alloc_fault::fail_nth(nth);
      const auto result = call();
      if (!alloc_fault::take_hit()) return;
      EXPECT_TRUE(failed(result)) << "allocation " << nth;
      expect_nothing_left("after a failing allocation");
    }
    ADD_FAILURE() << "never got through";
  }
};
