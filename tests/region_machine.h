// SPDX-License-Identifier: BSD-3-Clause
// Boards with flash: 0 is SLI-4 FC (host 3), 1 is SLI-3 FC (host 4), 2 is SLI-4 FCoE (host 5), 3 is an FC port without a
// link of its own (host 6). Images of region 23 are
// written as the hexadecimal digits of their records.
#pragma once

#include <optional>
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
  static const uint8_t *bytes_at(const std::string &text) {
    return reinterpret_cast<const uint8_t *>(text.data());
  }
  static uint8_t *bytes_at(std::string &text) { return reinterpret_cast<uint8_t *>(text.data()); }

  // Mailbox commands that the driver has seen since the last time: block and external data.
  std::vector<std::string> commands() {
    const std::vector<sim::Request> all = m.requests();
    std::vector<std::string> fresh;
    for (size_t i = seen_; i < all.size(); ++i)
      if (all[i].command == 7) fresh.push_back(all[i].data_out);
    seen_ = all.size();
    return fresh;
  }
  bool wrote() {
    for (const std::string &command : commands())
      if (command[2] == 0x1b) return true;
    return false;
  }

 private:
  size_t seen_ = 0;
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
