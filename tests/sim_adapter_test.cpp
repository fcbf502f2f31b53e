// SPDX-License-Identifier: BSD-3-Clause
// What stands behind the simulated BSG nodes: the mailbox in both dialects, flash that lasts. Requests are laid out by hand, so that the model is held to the formats and not to the library.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/bsg.h>
#include <scsi/sg.h>

#include <cstring>
#include <filesystem>

#include "sim_bytes.h"
#include "sim_machine.h"
#include "sim_mbox.h"

namespace {

using std::string;

struct Answer {
  int rc = 0;
  int32_t result = 0;
  uint32_t received = 0;
  string reply = {}, data = {};
};

Answer exchange(sim::Machine &m, const string &node, string request, string out, size_t in_size) {
  Answer answer;
  string in(in_size, '\0'), reply(16, '\0');
  sg_io_v4 header = {};
  header.guard = 'Q';
  header.subprotocol = BSG_SUB_PROTOCOL_SCSI_TRANSPORT;
  header.request_len = static_cast<uint32_t>(request.size());
  header.request = reinterpret_cast<uintptr_t>(request.data());
  header.max_response_len = static_cast<uint32_t>(reply.size());
  header.response = reinterpret_cast<uintptr_t>(reply.data());
  header.dout_xfer_len = static_cast<uint32_t>(out.size());
  header.dout_xferp = reinterpret_cast<uintptr_t>(out.data());
  header.din_xfer_len = static_cast<uint32_t>(in.size());
  header.din_xferp = reinterpret_cast<uintptr_t>(in.data());
  header.timeout = 60000;
  const int fd = m.open(node.c_str(), O_RDWR, 0);
  answer.rc = fd < 0 ? fd : m.ioctl(fd, SG_IO, &header);
  if (fd >= 0) m.close(fd);
  std::memcpy(&answer.result, reply.data(), 4);
  std::memcpy(&answer.received, reply.data() + 4, 4);
  answer.reply = reply.substr(8);
  answer.data = in;
  return answer;
}

string words(std::initializer_list<uint32_t> values) {
  string bytes;
  for (const uint32_t value : values)
    bytes.append(reinterpret_cast<const char *>(&value), 4);
  return bytes;
}

string vendor_request(std::initializer_list<uint32_t> values) {
  const uint64_t vendor = 0x0100000000001d5a;
  return words({0x800000ff}) + string(reinterpret_cast<const char *>(&vendor), 8) + words(values);
}

// A mailbox block from its words, most significant byte first, and data behind it.
Answer mailbox(sim::Host &host, std::initializer_list<uint32_t> block, const string &data = "",
               uint32_t in_words = 0, uint32_t out_words = 0, uint32_t tag = 0, uint32_t sequence = 0) {
  string out(4096, '\0');
  size_t at = 0;
  for (const uint32_t word : block) {
    sim::put_be(out, at, word, 4);
    at += 4;
  }
  sim::put_bytes(out, sequence > 1 ? 0 : 256, data);
  return exchange(host.machine(), host.bsg_path(),
                  vendor_request({7, 5, in_words, out_words, tag, sequence, 0, 0}), out, 4096);
}

uint32_t word(const Answer &answer, size_t index) {
  return static_cast<uint32_t>(sim::get_be(answer.data, 4 * index, 4));
}

struct SimAdapter : testing::Test {
  sim::Machine m;
  sim::Host &sli4 = m.add_host({.number = 3});
  sim::Host &sli3 = m.add_host({.number = 4, .sli = 3});
};

TEST_F(SimAdapter, DumpsRegionsInBothDialects) {
  // SLI-4: bytes as they stand in flash, count in word 6.
  Answer answer = mailbox(sli4, {0x00001700, 2, 23, 1024});
  EXPECT_EQ(word(answer, 0), 0x00001700u);
  EXPECT_EQ(word(answer, 6), 1024u);
  EXPECT_EQ(answer.data.substr(256, 12), string("RG23\x01\0\0\0\xff\0\0\0", 12));
  answer = mailbox(sli4, {0x00001700, 2, 8U << 16 | 23, 4});
  EXPECT_EQ(answer.data.substr(256, 4), string("\xff\0\0\0", 4));
  // The older dialect: words reversed, at most what the extension takes, count in word 4.
  sim::set_flash_region(sli3, 23, "RG23\x01\x02\x03\x04");
  answer = mailbox(sli3, {0x00001700, 0x32, 23, 0, 128}, "", 0, 128);
  EXPECT_EQ(word(answer, 4), 8u);
  EXPECT_EQ(answer.data.substr(256, 8), "32GR\x04\x03\x02\x01");
  EXPECT_EQ(word(mailbox(sli3, {0x00001700, 0x32, 24, 0, 128}, "", 0, 128), 0) >> 16, 0xfffdu);
  EXPECT_EQ(word(mailbox(sli3, {0x00001700, 0x32, 64, 0, 128}, "", 0, 128), 0) >> 16, 0xfffcu);
}

TEST_F(SimAdapter, WritesRegionsAndRefusesBadOnes) {
  const string image("\x01\x02\x03\x04\x05\x06\x07\x08", 8);
  EXPECT_EQ(word(mailbox(sli4, {0x00001b00, 0x32, 8U << 16 | 30, 0, 8, 8}, image, 2), 0) >> 16, 0u);
  EXPECT_EQ(sim::flash_region(sli4, 30), image);
  EXPECT_EQ(word(mailbox(sli3, {0x00001b00, 0x32, 8U << 16 | 30, 0, 8}, image, 2), 0) >> 16, 0u);
  EXPECT_EQ(sim::flash_region(sli3, 30), "\x04\x03\x02\x01\x08\x07\x06\x05");
  const struct {
    uint32_t entry, sent;
    string data;
    uint32_t info;
  } refused[] = {{8U << 16 | 64, 8, image, 0xfffffffc},
                 {1028U << 16 | 23, 1028, image, 0xfffffff5},
                 {8U << 16 | 30, 4, image, 0xffffffee},
                 {8U << 16 | 30, 8, string(8, '\0'), 0xffffffed},
                 {8U << 16 | 30, 8, string(8, '\xff'), 0xffffffed}};
  for (const auto &row : refused) {
    const Answer answer = mailbox(sli4, {0x00001b00, 0x32, row.entry, 0, row.sent}, row.data, 2);
    EXPECT_EQ(word(answer, 0) >> 16, 1u);
    EXPECT_EQ(word(answer, 3), row.info);
  }
  EXPECT_EQ(sim::flash_region(sli4, 30), image);
}

TEST_F(SimAdapter, AnswersTheManagementRevision) {
  m.driver_version(1, 5);
  EXPECT_EQ(exchange(m, sli4.bsg_path(), vendor_request({6, 0, 0}), "", 0).reply, words({1, 5}));
  EXPECT_EQ(exchange(m, sli4.bsg_path(), vendor_request({11, 0, 0}), "", 0).result, -EINVAL);
  EXPECT_EQ(m.requests().front().command, 6u);
}

TEST_F(SimAdapter, JoinsTheExchangesOfOneCommand) {
  // An object of 6 bytes written in buffers of 4 and 2, then read in buffers of 5 and 1.
  string block(256, '\0');
  auto fill = [&](uint32_t opcode, uint32_t first, uint32_t second) {
    block.assign(256, '\0');
    for (const auto &[index, value] : {std::pair<size_t, uint32_t>{0, 0x00009b00},
                                       {1, 1},
                                       {6, 0x100 | opcode},
                                       {12, 0x66770000},
                                       {38, 2},
                                       {39, first},
                                       {42, second}}) {
      sim::put_be(block, 4 * index, value, 4);
    }
  };
  auto send = [&](const string &out, uint32_t sequence) {
    string padded = out;
    padded.resize(4096);
    return exchange(m, sli4.bsg_path(), vendor_request({7, 5, 0, 0, 77, sequence, 0, 0}), padded, 4096);
  };
  fill(0xac, 4, 2);
  EXPECT_EQ(send(block + "abcd", 1).result, 0);
  EXPECT_EQ(word(send("ef", 2), 9), 6u);
  fill(0xab, 5, 1);
  EXPECT_EQ(send(block, 1).data.substr(256, 5), "abcde");
  EXPECT_EQ(send("", 2).data.substr(0, 1), "f");
  EXPECT_EQ(send("", 3).result, -EINVAL);  // there is no third buffer
}

TEST(SimFlash, OutlivesTheMachine) {
  char folder[] = "/tmp/hcxsim-test-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  for (const bool first : {true, false}) {
    sim::Machine m;
    sim::Host &host = m.add_host({.number = 3});
    m.use_state(folder);
    if (first) {
      EXPECT_EQ(mailbox(host, {0x00001b00, 0x32, 4U << 16 | 30, 0, 4}, "\x01\x02\x03\x04", 1).result, 0);
    } else {
      EXPECT_EQ(sim::flash_region(host, 30), "\x01\x02\x03\x04");
    }
  }
  std::filesystem::remove_all(folder);
}

}  // namespace
