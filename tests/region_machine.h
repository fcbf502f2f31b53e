// SPDX-License-Identifier: BSD-3-Clause
// Boards with flash: 0 is SLI-4 FC (host 3), 1 is SLI-3 FC (host 4), 2 is SLI-4 FCoE (host 5), 3 is an FC port without a
// link of its own (host 6). Images of region 23 are written as the hexadecimal digits of their records.
#pragma once

#include <optional>
#include <random>
#include <string>
#include <vector>

#include "sim_mbox.h"
#include "transport_fixture.h"

class RegionTest : public BoardTest {
 protected:
  static constexpr uint32_t fc = 0, old_fc = 1, fcoe = 2, linkless = 3, nobody = 9;

  void SetUp() override {
    BoardTest::SetUp();
    m.add_host({.number = 3, .fabric = 0x1000000000fab000});
    m.add_host({.number = 4, .sli = 3});
    m.add_host({.number = 5, .protocol = "fcoe", .fabric = 0x1000000000fab000});
    m.add_host({.number = 6, .pci_device = 0x7a10});
    scan();
    driver_ = m.bsg().vendor(7);
  }

  sim::Host &host(uint32_t board) { return *m.host(static_cast<int>(board) + 3); }
  sim::MailboxUnit &adapter(uint32_t board) { return sim::mailbox(host(board)); }
  std::string flash(uint32_t board) { return sim::flash_region(host(board), 23).value_or("uninitialised"); }
  void set_flash(uint32_t board, const std::optional<std::string> &bytes) {
    sim::set_flash_region(host(board), 23, bytes);
  }

  // 1024 bytes: the header, the records, and `fill` up to the end.
  static std::string image(std::string_view records, char fill = '\0') {
    std::string bytes = hex("52473233 01000000") + hex(records);
    EXPECT_LE(bytes.size(), 1024u);
    bytes.resize(1024, fill);
    return bytes;
  }
  // One record of a foreign type, behind which the next one begins at `offset`.
  static std::string until(size_t offset) {
    return "30" + to_hex(std::string(1, static_cast<char>((offset - 8) / 4 - 1))) + "5a5a" +
           std::string(2 * (offset - 12), '7');
  }
  static uint8_t *bytes_at(std::string &text) { return reinterpret_cast<uint8_t *>(text.data()); }

  // Mailbox commands that the driver has seen since the last time: block and external data.
  std::vector<std::string> commands() {
    const std::vector<sim::Request> all = m.requests();
    std::vector<std::string> fresh;
    for (size_t i = std::min(seen_, all.size()); i < all.size(); ++i)
      if (all[i].command == 7) fresh.push_back(all[i].data_out);
    seen_ = all.size();
    return fresh;
  }
  bool wrote() {
    for (const std::string &command : commands())
      if (command[2] == 0x1b) return true;
    return false;
  }
  void expect_lines(const std::string &prefix, std::initializer_list<const char *> lines) {
    for (const char *line : lines)
      EXPECT_TRUE(m.logged(prefix + line)) << line;
  }

  // How much of the reply to a dump comes back, and how much the driver says it was; 0: the truth.
  struct Cut {
    size_t length = 4096;
    uint32_t said = 0;
  };
  void cut_replies(Cut cut) {
    m.bsg().on_vendor(7, [this, cut](sim::BsgCall &call) {
      driver_(call);
      if (call.data_out[2] != 0x17) return;
      call.data_in.resize(cut.length);
      call.received = cut.said;
    });
  }

  // Arbitrary records, the same ones each time.
  uint32_t pick(uint32_t below) { return random_() % below; }
  static std::string byte(uint32_t value) { return std::string(1, static_cast<char>(value)); }
  std::string noise(size_t words) {
    std::string bytes;
    for (size_t i = 0; i < 4 * words; ++i)
      bytes += byte(pick(3) ? pick(256) : 0xff);
    return bytes;
  }
  std::string foreign_record(std::initializer_list<uint8_t> types, uint32_t most_words) {
    const uint8_t type = types.begin()[pick(static_cast<uint32_t>(types.size()))];
    const uint32_t words = pick(most_words);
    return byte(type) + byte(words) + (type == 0xa2 ? byte(0) + byte(0x20) : noise(1).substr(0, 2)) +
           noise(words);
  }

 private:
  size_t seen_ = 0;
  sim::BsgHandler driver_;
  std::mt19937 random_{7};
};

// A walk along region 23 of its own, for what must survive an edit.
struct Chain {
  bool valid = false;
  size_t end = 0;
  std::vector<std::string> records;

  explicit Chain(const std::string &image) {
    if (image.size() != 1024 || image.substr(0, 5) != std::string("RG23\x01", 5)) return;
    for (size_t at = 8; at + 4 <= 1024;) {
      if (image[at] == '\xff') {
        valid = true;
        end = at;
        return;
      }
      const size_t size = 4 + 4 * size_t{static_cast<uint8_t>(image[at + 1])};
      records.push_back(image.substr(at, size));
      at += size;
    }
  }
  // In their order, without those that begin with one of these bytes.
  std::vector<std::string> without(const std::vector<std::string> &heads) const {
    std::vector<std::string> left;
    for (const std::string &record : records) {
      bool mine = false;
      for (const std::string &head : heads)
        mine = mine || (record[0] == head[0] && (head.size() < 3 || record.substr(2, 2) == head.substr(1)));
      if (!mine) left.push_back(record);
    }
    return left;
  }
};
