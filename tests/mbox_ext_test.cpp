// SPDX-License-Identifier: BSD-3-Clause
// Configuration commands with several buffers: the sequence of exchanges, tags, bounds, the lock, and which commands
// go this way.
#include <errno.h>

#include <functional>
#include <vector>

#include "hcx_diag_mbox.h"
#include "transport_fixture.h"

namespace {

constexpr uint32_t sli4 = 0;
constexpr char reply_marks[] = "xyz";

class MboxExtTest : public TransportTest {
 protected:
  void SetUp() override {
    TransportTest::SetUp();
    m.bsg().on_vendor(7, [this](sim::BsgCall &call) {
      sequence.push_back(call.word(32));
      tags.push_back(call.word(28));
      locks.push_back(m.held_locks());
      call.data_in = call.data_out;
      if (firmware) firmware(call);
    });
    restart();
  }

  void restart() {
    memory.assign(4 * 4096, 0);
    hcx_mbox_set_command(memory.data(), MBX_SLI_CONFIG);
    forget();
  }
  void forget() {
    sequence.clear();
    tags.clear();
    locks.clear();
    m.clear_records();
  }
  MAILBOX_t *block() { return reinterpret_cast<MAILBOX_t *>(memory.data()); }
  void word(unsigned index, uint32_t value) { hcx_mbox_set_word(memory.data(), index, value); }
  unsigned status() const { return hcx_mbox_status(memory.data()); }

  // Lists the buffers and fills each with a letter: 'A', 'B', ... Gives the words of the whole.
  uint32_t separate(const std::vector<uint32_t> &lengths) {
    restart();
    word(1, static_cast<uint32_t>(lengths.size()) << 3);
    return fill(8, lengths);
  }
  uint32_t embedded(const std::vector<uint32_t> &lengths, uint32_t opcode = 0xAC) {
    restart();
    word(1, 1);
    word(6, 0x0100 | opcode);
    word(38, static_cast<uint32_t>(lengths.size()));
    return fill(39, lengths);
  }
  uint32_t fill(unsigned first_word, const std::vector<uint32_t> &lengths) {
    size_t at = 256;
    for (size_t i = 0; i < lengths.size(); ++i) {
      word(first_word + 3 * static_cast<unsigned>(i),
           0x7f000000 | lengths[i]);  // the upper byte is not length
      if (at + lengths[i] <= memory.size()) memset(memory.data() + at, 'A' + static_cast<int>(i), lengths[i]);
      at += lengths[i];
    }
    return static_cast<uint32_t>((at + 3) / 4);
  }

  std::vector<uint8_t> memory;
  std::vector<uint32_t> sequence, tags;
  std::vector<size_t> locks;
  std::function<void(sim::BsgCall &)> firmware;
};

TEST_F(MboxExtTest, WritesOneBufferPerExchange) {
  const uint32_t words = embedded({8, 3840, 4});
  hcx_mbox_set_owner(memory.data(), OWN_CHIP);
  firmware = [&](sim::BsgCall &call) {
    call.data_in.replace(0, 4, hex("00009b00"));
    call.data_in.replace(252, 4, std::string(3, '\0') + static_cast<char>(call.word(32)));
  };
  const uint64_t lock_calls = m.calls(sim::Verb::lock);
  ASSERT_EQ(HCX_IssueMboxWithRetryV2(sli4, block(), words, 0, 0), 0u);
  const auto seen = m.requests();
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_EQ(to_hex(seen[0].data_out.substr(0, 8)), "00009b0000000001");
  EXPECT_EQ(seen[0].data_out.substr(256, 9), "AAAAAAAA" + std::string(1, '\0'));
  EXPECT_EQ(seen[1].data_out.substr(0, 3841), std::string(3840, 'B') + '\0');
  EXPECT_EQ(seen[2].data_out.substr(0, 5), "CCCC" + std::string(1, '\0'));
  // vendor command 7, mbOffset 5, no external words, tag 1, sequence 2
  EXPECT_EQ(to_hex(seen[1].header.substr(12)),
            native("07000000 05000000 00000000 00000000 01000000 02000000 0000000000000000",
                   "00000007 00000005 00000000 00000000 00000001 00000002 0000000000000000"));
  for (const auto &request : seen)
    EXPECT_EQ(request.timeout, 330000u);
  EXPECT_EQ(sequence, (std::vector<uint32_t>{1, 2, 3}));
  EXPECT_EQ(locks, (std::vector<size_t>{1, 1, 1}));
  EXPECT_EQ(m.calls(sim::Verb::lock) - lock_calls, 2u);  // taken once, given back once
  // The last exchange's reply is the block.
  EXPECT_EQ(hcx_mbox_word(memory.data(), 63), 3u);
}

TEST_F(MboxExtTest, ReadsOneBufferPerExchange) {
  const uint32_t words = separate({580, 12, 20});
  word(64, 0x00000c08);
  firmware = [&](sim::BsgCall &call) {
    const uint32_t k = call.word(32);
    const size_t at = k == 1 ? 256 : 0;
    call.data_in.replace(at, 580, 580, reply_marks[k - 1]);
  };
  ASSERT_EQ(HCX_IssueMboxWithRetryV2(sli4, block(), words, 0, 0), 0u);
  const auto seen = m.requests();
  ASSERT_EQ(seen.size(), 3u);
  EXPECT_EQ(to_hex(seen[0].data_out.substr(256, 8)), "00000c0841414141");
  // Later requests are the reply before.
  EXPECT_EQ(seen[1].data_out.substr(256, 580), std::string(580, 'x'));
  EXPECT_EQ(seen[2].data_out.substr(0, 580), std::string(580, 'y'));
  EXPECT_EQ(bytes_of(memory.data() + 256, 612),
            std::string(580, 'x') + std::string(12, 'y') + std::string(20, 'z'));
  EXPECT_EQ(sequence, (std::vector<uint32_t>{1, 2, 3}));
  EXPECT_EQ(locks, (std::vector<size_t>{1, 1, 1}));
}

TEST_F(MboxExtTest, EveryCommandHasItsTag) {
  const uint32_t words = separate({8, 8});
  const uint32_t before = hcx::mbox::ext_mbox_tag_cnt;
  EXPECT_EQ(IssueExtendedSLIConfig(sli4, block(), MAILBOX_READ, MAILBOX_NONEMBEDDED, words), 0u);
  EXPECT_EQ(tags, (std::vector<uint32_t>{before + 1, before + 1}));
  separate({});
  EXPECT_EQ(IssueExtendedSLIConfig(sli4, block(), MAILBOX_READ, MAILBOX_NONEMBEDDED, 64), 0u);
  EXPECT_EQ(IssueExtendedSLIConfig(9, block(), MAILBOX_READ, MAILBOX_NONEMBEDDED, 64), 1u);
  EXPECT_EQ(IssueExtendedSLIConfig(sli4, nullptr, MAILBOX_READ, MAILBOX_NONEMBEDDED, 64), 1u);
  EXPECT_TRUE(m.requests().empty());
  EXPECT_EQ(hcx::mbox::ext_mbox_tag_cnt, before + 4);
}

TEST_F(MboxExtTest, BuffersAreBounded) {
  const std::vector<uint32_t> most_separate(19, 8), most_embedded(8, 8);
  const auto run = [&](const char *name, uint32_t form, uint32_t words, uint32_t result, size_t exchanges) {
    SCOPED_TRACE(name);
    forget();
    EXPECT_EQ(IssueExtendedSLIConfig(sli4, block(), MAILBOX_READ, form, words), result);
    EXPECT_EQ(m.requests().size(), exchanges);
    EXPECT_EQ(status(), result == 0 ? 0u : 252u);
    expect_nothing_left("after it");
  };
  run("19 scatter entries", MAILBOX_NONEMBEDDED, separate(most_separate), 0, 19);
  uint32_t words = separate(most_separate);
  word(1, 20u << 3);
  run("20 scatter entries", MAILBOX_NONEMBEDDED, words + 16, 5, 0);
  separate(most_separate);
  word(1, 31u << 3);
  run("31 scatter entries", MAILBOX_NONEMBEDDED, 4096, 5, 0);
  run("8 descriptors", MAILBOX_EMBEDDED_HBD, embedded(most_embedded), 0, 8);
  for (const uint32_t count : {9u, 0x80000000u, 0xFFFFFFFFu}) {
    embedded(most_embedded);
    word(38, count);
    run("too many descriptors", MAILBOX_EMBEDDED_HBD, 4096, 5, 0);
  }
  run("longest buffer", MAILBOX_NONEMBEDDED, separate({3840, 3840}), 0, 2);
  words = separate({8, 3841});
  run("buffer too long", MAILBOX_NONEMBEDDED, words, 5, 0);
  words = separate({580});
  run("exact fit", MAILBOX_NONEMBEDDED, words, 0, 1);
  EXPECT_EQ(words, 209u);
  separate({580});
  run("one word short", MAILBOX_NONEMBEDDED, words - 1, 5, 0);
  separate({8});
  run("not even a block", MAILBOX_NONEMBEDDED, 63, 5, 0);
  words = separate({8});
  run("unknown form", 3, words, 1, 0);

  // The refusal stays 5 through the front end.
  separate({580});
  EXPECT_EQ(HCX_IssueMboxWithRetryV2(sli4, block(), 208, 3, 0), 5u);
  EXPECT_EQ(status(), 252u);
}

TEST_F(MboxExtTest, FailuresEndTheSequence) {
  for (const uint32_t mode : {MAILBOX_READ, MAILBOX_WRITE}) {
    for (uint32_t bad = 1; bad <= 3; ++bad) {
      SCOPED_TRACE("mode " + std::to_string(mode) + " exchange " + std::to_string(bad));
      firmware = [&](sim::BsgCall &call) {
        if (call.word(32) == bad) call.error = EIO;
        call.data_in.replace(0, 4, hex("00009b00"));
      };
      const uint32_t words = separate({8, 8, 8});
      EXPECT_EQ(IssueExtendedSLIConfig(sli4, block(), mode, MAILBOX_NONEMBEDDED, words), 1u);
      EXPECT_EQ(m.requests().size(), bad);
      EXPECT_EQ(status(), 252u);
      expect_nothing_left("after it");
      // The firmware's own status counts where the block comes back.
      firmware = [&](sim::BsgCall &call) {
        call.data_in.replace(0, 4, hex(call.word(32) == bad ? "00109b00" : "00009b00"));
      };
      separate({8, 8, 8});
      const bool carries_block = bad == (mode == MAILBOX_READ ? 1 : 3);
      EXPECT_EQ(IssueExtendedSLIConfig(sli4, block(), mode, MAILBOX_NONEMBEDDED, words),
                carries_block ? 2u : 0u);
      EXPECT_EQ(m.requests().size(), mode == MAILBOX_READ && carries_block ? 1u : 3u);
      EXPECT_EQ(status(), carries_block ? 16u : 0u);
    }
  }
}

TEST_F(MboxExtTest, PathByOperation) {
  firmware = [](sim::BsgCall &call) { call.data_in.replace(0, 4, hex("00009b00")); };
  const uint32_t none = 0xFFFF;  // nothing is sent
  const struct {
    const char *name;
    bool embedded;
    uint32_t subsystem, opcode;
    bool buffers;
    uint32_t result;
    uint32_t first_sequence;  // 0: the plain path
  } rows[] = {{"write object", true, 1, 0xAC, true, 0, 1},
              {"write object, no buffers", true, 1, 0xAC, false, 1, none},
              {"read object", true, 1, 0xAB, true, 0, 1},
              {"read object, no buffers", true, 1, 0xAB, false, 0, 0},
              {"other embedded", true, 1, 0x20, true, 0, 0},
              {"embedded, other system", true, 12, 0xAC, true, 0, 0},
              {"read FCF", false, 12, 8, true, 0, 1},
              {"other FCoE", false, 12, 10, true, 1, none},
              {"attributes", false, 1, 0x20, true, 0, 1},
              {"other common", false, 1, 0x21, true, 1, none},
              {"other system", false, 7, 0x21, true, 0, 1}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    const std::vector<uint32_t> lengths(row.buffers ? 2 : 0, 8);
    const uint32_t words = row.embedded ? embedded(lengths, row.opcode) : separate(lengths);
    word(row.embedded ? 6 : 64, row.subsystem << 8 | row.opcode);
    EXPECT_EQ(HCX_IssueMboxWithRetryV2(sli4, block(), words, 0, 0), row.result);
    if (row.first_sequence == none) {
      EXPECT_TRUE(sequence.empty());
      EXPECT_EQ(status(), 252u);
    } else {
      ASSERT_FALSE(sequence.empty());
      EXPECT_EQ(sequence.front(), row.first_sequence);
      EXPECT_EQ(sequence.size(), row.first_sequence ? 2u : 1u);
    }
  }
  separate({8, 8});
  word(64, 0x0c0a);
  HCX_IssueMboxWithRetryV2(sli4, block(), 68, 0, 0);
  EXPECT_TRUE(m.logged("HCX_IssueMboxWithRetryV2 - Non-embedded 0x9B (xc/xa) not supported"));
}

TEST_F(MboxExtTest, BusyFirmwareIsAskedAgainWithTheSameData) {
  firmware = [](sim::BsgCall &call) { call.data_in = hex("00fd9b00") + std::string(4092, 'q'); };
  const uint32_t words = embedded({8, 8});
  EXPECT_EQ(HCX_IssueMboxWithRetryV2(sli4, block(), words, 2, 100), 2u);
  EXPECT_EQ(sequence, (std::vector<uint32_t>{1, 2, 1, 2, 1, 2}));
  EXPECT_EQ(tags[0], tags[1]);
  EXPECT_EQ(tags[2], tags[0] + 1);
  const auto seen = m.requests();
  EXPECT_EQ(seen[0].data_out, seen[4].data_out);
  EXPECT_EQ(status(), 253u);
}

TEST_F(MboxExtTest, FailingRequestsAreTold) {
  firmware = [](sim::BsgCall &call) { call.data_in.replace(0, 4, hex("00009b00")); };
  for (const uint32_t mode : {MAILBOX_READ, MAILBOX_WRITE}) {
    const auto issue = [&] {
      const uint32_t words = separate({8, 8, 8});
      return IssueExtendedSLIConfig(sli4, block(), mode, MAILBOX_NONEMBEDDED, words);
    };
    sweep_driver(7, issue, [](uint32_t rc) { return rc != 0; });
  }
  separate({8});
  m.fail({.verb = sim::Verb::lock, .error = EIO});
  EXPECT_EQ(IssueExtendedSLIConfig(sli4, block(), MAILBOX_READ, MAILBOX_NONEMBEDDED, 66), 1u);
  EXPECT_TRUE(m.logged("IssueExtendedSLIConfig - board 0 no host"));
  EXPECT_EQ(status(), 252u);
}

}  // namespace
