// SPDX-License-Identifier: BSD-3-Clause
// The mailbox engine and its front ends against a firmware that the test plays: bytes, bounds, retries, locks, faults.
#include <errno.h>
#include <linux/bsg.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <vector>

#include "hcx_diag_mbox.h"
#include "rooted_machine.h"
#include "transport_fixture.h"

namespace {

constexpr uint32_t sli4 = 0, sli3 = 1;

class MboxTest : public TransportTest {
 protected:
  void SetUp() override {
    TransportTest::SetUp();
    m.bsg().on_vendor(7, [this](sim::BsgCall &call) {
      locks_in_exchange = m.held_locks();
      call.data_in = call.data_out;
      if (firmware) firmware(call);
    });
    m.clear_records();
  }

  MAILBOX_t *command(uint8_t code) {
    memset(memory, 0, sizeof memory);
    hcx_mbox_set_command(memory, code);
    return block();
  }
  MAILBOX_t *block() { return reinterpret_cast<MAILBOX_t *>(memory); }
  void word(unsigned index, uint32_t value) { hcx_mbox_set_word(memory, index, value); }
  void address(unsigned index, const void *at) {
    const uint64_t value = reinterpret_cast<uintptr_t>(at);
    word(index, static_cast<uint32_t>(value));
    word(index + 1, static_cast<uint32_t>(value >> 32));
  }
  unsigned status() const { return hcx_mbox_status(memory); }
  static void answer_status(sim::BsgCall &call, uint16_t status) {
    call.data_in[0] = static_cast<char>(status >> 8);
    call.data_in[1] = static_cast<char>(status);
  }

  uint8_t memory[8192] = {};
  std::function<void(sim::BsgCall &)> firmware;
  size_t locks_in_exchange = 0;
};

TEST_F(MboxTest, OneExchange) {
  command(MBX_READ_NV);
  hcx_mbox_set_owner(memory, OWN_CHIP);
  word(1, 0x01020304);
  word(31, 0x0a0b0c0d);
  word(40, 0xeeeeeeee);  // beyond what is said to go along
  firmware = [](sim::BsgCall &call) { call.data_in.replace(8, 4, "\xa1\xa2\xa3\xa4"); };
  ASSERT_EQ(IssueMboxGeneric(sli4, block(), 32, 128), 0u);
  EXPECT_TRUE(m.logged("IssueMboxEx - mbxCommand x02 00000201 01020304 00000000 00000000"));
  EXPECT_TRUE(m.logged("IssueMboxEx - mbxReply   x02 00000200 01020304 a1a2a3a4 00000000"));
  const sim::Request seen = only_request();
  std::string expected(4096, '\0');
  expected.replace(0, 8, hex("00000200 01020304"));
  expected.replace(124, 4, hex("0a0b0c0d"));
  EXPECT_EQ(to_hex(seen.data_out), to_hex(expected));
  EXPECT_EQ(to_hex(seen.header.substr(12)),
            native("07000000 00000000 00000000 00000000 00000000 00000000 0000000000000000",
                   "00000007 00000000 00000000 00000000 00000000 00000000 0000000000000000"));
  EXPECT_EQ(hcx_mbox_word(memory, 2), 0xa1a2a3a4u);
  EXPECT_EQ(hcx_mbox_word(memory, 40), 0xeeeeeeeeu);
  EXPECT_EQ(locks_in_exchange, 1u);
}

TEST_F(MboxTest, OnlyListedCommandsReachTheDriver) {
  std::vector<int> sent;
  for (int code = 0; code < 256; ++code) {
    command(static_cast<uint8_t>(code));
    if (code == MBX_READ_EVENT_LOG) word(1, 1u << 29);
    m.clear_records();
    const uint32_t result = IssueMbox(sli3, block(), 32, 128);
    if (!m.requests().empty()) {
      sent.push_back(code);
      EXPECT_EQ(result, 0u) << code;
    } else {
      EXPECT_EQ(result, 1u) << code;
      EXPECT_EQ(status(), 252u) << code;
    }
  }
  // MBX_RUN_BIU_DIAG64 is sent too, but not without buffers.
  EXPECT_EQ(sent, (std::vector<int>{0x02, 0x03, 0x0e, 0x11, 0x12, 0x17, 0x1a, 0x1b, 0x1c, 0x1d, 0x21, 0x2a,
                                    0x32, 0x37, 0x38, 0x81, 0x9b, 0x9c}));
  command(MBX_INIT_LINK);
  m.clear_records();
  expect_told(IssueMbox(sli3, block(), 32, 128), 1, "IssueMboxEx - mbxCommand x05 not supported");
}

TEST_F(MboxTest, EntriesSuitTheSliMode) {
  command(MBX_READ_NV);
  const std::vector<uint32_t> results = {IssueMbox(sli4, block(), 32, 128),
                                         HCX_IssueMboxWithRetry(sli4, block(), 32, 128, 0, 0),
                                         HCX_IssueMboxWithRetryEx(sli4, block(), nullptr, 0, 0, 0, 0, 0),
                                         HCX_IssueMboxWithRetryV2(sli3, block(), 64, 0, 0)};
  EXPECT_EQ(results, std::vector<uint32_t>(4, 3));
  EXPECT_TRUE(m.logged("HCX_IssueMboxWithRetryV2 - board 1 sliMode 3 not supported"));
  const std::vector<uint32_t> refused = {
      HCX_IssueMboxWithRetryV2(sli4, nullptr, 64, 0, 0), IssueMboxGeneric(sli4, nullptr, 64, 0),
      IssueMboxGeneric(9, block(), 64, 0),
      HCX_IssueMboxWithRetry(9, block(), 32, 128, 3, 0)};  // no SLI mode, no status: stays 1
  EXPECT_EQ(refused, std::vector<uint32_t>(4, 1));
  EXPECT_EQ(status(), 0u);
  EXPECT_EQ(readrev(9, block()), 3u);
  EXPECT_TRUE(m.requests().empty());
}

TEST_F(MboxTest, SizesAreBounded) {
  std::vector<uint8_t> out(4096, 0x5a), in(4096);
  struct Row {
    const char *name;
    uint32_t board;
    std::function<void()> build;
    uint32_t result;
  };
  // A command with its words from the first on, 0 to the end.
  const auto built = [this](uint8_t code, std::vector<uint32_t> words) {
    return [this, code, words] {
      command(code);
      for (size_t i = 0; i < words.size(); ++i)
        word(static_cast<unsigned>(i + 1), words[i]);
    };
  };
  const auto low = [](const void *at) { return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(at)); };
  const auto high = [](const void *at) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(at) >> 32);
  };
  const auto dump = [&](uint32_t size, uint32_t type = 2) { return built(MBX_DUMP_MEMORY, {type, 0, size}); };
  const auto log = [&](uint32_t size, const void *to) {
    return built(MBX_READ_EVENT_LOG,
                 {0, 0, 0x05000000 | size, low(to), high(to)});  // only the low 24 bits are a size
  };
  const auto biu = [&](uint32_t xmit, uint32_t rcv) {
    return built(MBX_RUN_BIU_DIAG64,
                 {0, xmit, low(out.data()), high(out.data()), rcv, low(in.data()), high(in.data())});
  };
  const auto update = [&](uint32_t length, uint32_t offset) {
    return built(MBX_UPDATE_CFG, {0x20, 0, 0, length, offset});
  };
  const Row rows[] = {{"dump of nothing", sli4, dump(0), 1},
                      {"dump", sli4, dump(3840), 0},
                      {"dump too long", sli4, dump(3841), 1},
                      {"dump overflowing", sli4, dump(0xFFFFFFFF), 1},
                      {"dump on SLI-3", sli3, dump(0), 0},
                      {"log of nothing", sli4, log(0, in.data()), 1},
                      {"log without address", sli4, log(16, nullptr), 1},
                      {"diagnostic", sli3, biu(2048, 1792), 0},
                      {"diagnostic too long", sli3, biu(2048, 1793), 1},
                      {"diagnostic without data", sli3, biu(0, 16), 1},
                      {"diagnostic without room", sli3, biu(16, 0), 1},
                      {"update", sli4, update(2048, 0), 0},
                      {"update too long", sli4, update(2049, 0), 1},
                      {"update on SLI-3", sli3, update(2048, 2048), 0},
                      {"update past the end", sli3, update(2048, 2049), 1}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    row.build();
    m.clear_records();
    EXPECT_EQ(IssueMboxGeneric(row.board, block(), 64, 256), row.result);
    EXPECT_EQ(m.requests().size(), row.result == 0 ? 1u : 0u);
    EXPECT_EQ(status(), row.result == 0 ? 0u : 252u);
    expect_nothing_left("after it");
  }
  command(MBX_READ_NV);
  EXPECT_EQ(IssueMboxGeneric(sli4, block(), 513, 256), 1u);
  expect_told(IssueMboxGeneric(sli4, block(), 64, 2049), 1,
              "IssueMboxGeneric - board 0 max incnt 512 incnt 64 max outcnt 2048 outcnt 2049");
  EXPECT_EQ(status(), 252u);
}

TEST_F(MboxTest, DataReachTheirPlaces) {
  std::vector<uint8_t> out(100, 0x5a), in(100);
  firmware = [](sim::BsgCall &call) { call.data_in.replace(256, 3840, 3840, 'd'); };

  // A dump longer than the caller asks back: only as much as it asks.
  command(MBX_DUMP_MEMORY);
  word(3, 3840);
  memset(memory + 512, 0xEE, 16);
  EXPECT_EQ(IssueMboxGeneric(sli4, block(), 64, 512), 0u);
  EXPECT_EQ(bytes_of(memory + 256, 256), std::string(256, 'd'));
  EXPECT_EQ(memory[512], 0xEE);

  command(MBX_READ_EVENT_LOG);
  word(3, 10);
  address(4, in.data());
  EXPECT_EQ(IssueMboxGeneric(sli4, block(), 64, 256), 0u);
  EXPECT_EQ(bytes_of(in.data(), 11), std::string(10, 'd') + '\0');

  command(MBX_RUN_BIU_DIAG64);
  word(2, 100);
  address(3, out.data());
  word(5, 100);
  address(6, in.data());
  m.clear_records();
  firmware = nullptr;  // an echo
  EXPECT_EQ(IssueMboxGeneric(sli3, block(), 64, 256), 0u);
  EXPECT_EQ(in, out);
  EXPECT_EQ(only_request().data_out.substr(256, 101), std::string(100, 0x5a) + '\0');

  // Data of a configuration update: behind the block on SLI-4, at the offset of word 5 on SLI-3.
  for (const uint32_t board : {sli4, sli3}) {
    command(MBX_UPDATE_CFG);
    word(1, 0x20);
    word(4, 7);
    word(5, 40);
    memcpy(memory + 256, "behind!", 7);
    memcpy(memory + 40, "within!", 7);
    m.clear_records();
    EXPECT_EQ(IssueMboxGeneric(board, block(), 512, 256), 0u);
    const sim::Request seen = only_request();
    EXPECT_EQ(seen.data_out.substr(256, 8), std::string(board == sli4 ? "behind!" : "within!") + '\0');
    // mbOffset 5, one whole word of external data
    EXPECT_EQ(to_hex(seen.header.substr(16, 12)),
              native("05000000 01000000 00000000", "00000005 00000001 00000000"));
  }
}

TEST_F(MboxTest, FailuresOfTheDriverAndTheFirmware) {
  const struct {
    const char *name;
    int error, result;
    uint16_t answer;
    bool empty;
    uint32_t expected;
    unsigned status;
  } rows[] = {{"firmware", 0, 0, 16, false, 2, 16},
              {"ioctl", EIO, 0, 0, false, 1, 252},
              {"driver", 0, -ENODEV, 0, false, 1, 252},
              {"no bytes", 0, 0, 0, true, 2, 252}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    firmware = [&](sim::BsgCall &call) {
      call.error = row.error;
      call.result = row.result;
      answer_status(call, row.answer);
      if (row.empty) call.data_in.clear();
    };
    command(MBX_READ_NV);
    EXPECT_EQ(IssueMboxGeneric(sli3, block(), 32, 128), row.expected);
    EXPECT_EQ(status(), row.status);
    command(MBX_READ_NV);
    EXPECT_EQ(HCX_IssueMboxWithRetry(sli3, block(), 32, 128, 3, 0), 2u);  // any status makes it 2
    EXPECT_EQ(status(), row.status);
    command(MBX_READ_NV);
    EXPECT_EQ(HCX_IssueMboxWithRetryV2(sli4, block(), 64, 3, 0), 2u);
    EXPECT_EQ(status(), row.status);
  }
  EXPECT_TRUE(m.logged("IssueMboxEx - trans_size xfffffffb cmd x02 mbOffset 0 inExtWLen 0 (0) outExtWLen 0"));
  EXPECT_TRUE(m.logged("IssueMboxEx - mbxCommand x02 mbxStatus x0010 00100200"));
  EXPECT_TRUE(m.logged("HCX_IssueMboxWithRetryV2 - board 0 mbxStatus x00fc"));
}

// The three front ends on a firmware that is busy for some attempts.
TEST_F(MboxTest, BusyFirmwareIsAskedAgain) {
  std::vector<uint32_t> ext(512, 0);
  uint32_t delay = 0, retries = 0;
  const std::pair<const char *, std::function<uint32_t()>> entries[] = {
      {"Retry", [&] { return HCX_IssueMboxWithRetry(sli3, command(MBX_READ_NV), 32, 128, retries, delay); }},
      {"Ex",
       [&] {
         return HCX_IssueMboxWithRetryEx(sli3, command(MBX_READ_NV), ext.data(), 5, 4, 4, retries, delay);
       }},
      {"V2", [&] { return HCX_IssueMboxWithRetryV2(sli4, command(MBX_READ_NV), 64, retries, delay); }}};
  const struct {
    uint32_t delay;
    uint64_t other, ex;  // milliseconds
  } rows[] = {{0, 0, 0},          {1, 1000, 1},       {100, 1000, 100},
              {1000, 1000, 1000}, {1001, 2000, 2000}, {0xFFFFFFFF, 4294968000, 4294968000}};
  for (const auto &[name, issue] : entries) {
    for (const auto &row : rows) {
      SCOPED_TRACE(std::string(name) + " " + std::to_string(row.delay));
      delay = row.delay;
      retries = 5;
      firmware = [](sim::BsgCall &call) {
        call.data_in.replace(4, 124, 124, 'x');
        answer_status(call, 253);
      };
      m.clear_records();
      EXPECT_EQ(issue(), 2u);
      EXPECT_EQ(status(), 253u);
      const auto seen = m.requests();
      ASSERT_EQ(seen.size(), 6u);
      for (const auto &request : seen)
        EXPECT_EQ(request.data_out, seen[0].data_out);
      const uint64_t each = std::string(name) == "Ex" ? row.ex : row.other;
      EXPECT_EQ(m.delays().size(), each ? 5u : 0u);
      for (const uint64_t waited : m.delays()) {
        EXPECT_EQ(waited, 1000 * each);
      }
    }
    SCOPED_TRACE(name);
    delay = 1;
    int busy = 2;
    firmware = [&](sim::BsgCall &call) { answer_status(call, busy-- > 0 ? 253 : 0); };
    m.clear_records();
    EXPECT_EQ(issue(), 0u);
    EXPECT_EQ(m.requests().size(), 3u);
    for (const uint16_t final_status : {254, 255, 16}) {
      firmware = [&](sim::BsgCall &call) { answer_status(call, final_status); };
      m.clear_records();
      EXPECT_EQ(issue(), 2u);
      EXPECT_EQ(m.requests().size(), 1u);
    }
    retries = 0;
    firmware = [](sim::BsgCall &call) { answer_status(call, 253); };
    m.clear_records();
    EXPECT_EQ(issue(), 2u);
    EXPECT_EQ(m.requests().size(), 1u);
  }
}

TEST_F(MboxTest, ExternalBuffersOfSli3Commands) {
  uint8_t ext[2064];
  memset(ext, 'e', sizeof ext);
  firmware = [](sim::BsgCall &call) { call.data_in.replace(256, 3840, 3840, 'd'); };
  command(MBX_LOAD_AREA);
  memset(memory + 4, 0xAA, 252);
  EXPECT_EQ(HCX_IssueMboxWithRetryEx(sli3, block(), ext, 5, 2, 3, 0, 0), 0u);
  sim::Request seen = only_request();
  EXPECT_EQ(to_hex(seen.data_out.substr(124, 8)), "aaaaaaaa00000000");  // words 0 to 31 travel
  EXPECT_EQ(seen.data_out.substr(256, 9), "eeeeeeee" + std::string(1, '\0'));
  EXPECT_EQ(to_hex(seen.header.substr(16, 12)),
            native("05000000 02000000 03000000", "00000005 00000002 00000003"));
  EXPECT_EQ(bytes_of(ext, 13), "dddddddddddde");
  EXPECT_EQ(memory[128], 0xAA);

  memset(ext, 'e', sizeof ext);
  command(MBX_UPDATE_CFG);
  word(1, 0x20);
  word(4, 7);  // not a multiple of a word
  EXPECT_EQ(HCX_IssueMboxWithRetryEx(sli3, block(), ext, 5, 1, 0, 0, 0), 0u);
  EXPECT_EQ(only_request().data_out.substr(256, 8), "eeeeeee" + std::string(1, '\0'));

  firmware = [](sim::BsgCall &call) { answer_status(call, 1); };
  EXPECT_EQ(HCX_IssueMboxWithRetryEx(sli3, command(MBX_LOAD_AREA), ext, 5, 0, 4, 0, 0), 2u);
  EXPECT_EQ(bytes_of(ext, 16), std::string(16, 'e'));

  m.clear_records();
  const struct {
    uint8_t code;
    uint32_t word1, length_word, length, in, out;
    bool null;
    uint32_t expected;
  } rows[] = {{MBX_LOAD_AREA, 0, 0, 0, 513, 0, false, 3},      {MBX_LOAD_AREA, 0, 0, 0, 0, 513, false, 3},
              {MBX_UPDATE_CFG, 0x20, 4, 2049, 0, 0, false, 1}, {MBX_SLI_CONFIG, 0, 2, 2049, 0, 0, false, 1},
              {MBX_UPDATE_CFG, 0x20, 4, 4, 1, 0, true, 1},     {MBX_LOAD_AREA, 0, 0, 0, 1, 0, true, 1},
              {MBX_LOAD_AREA, 0, 0, 0, 0, 1, true, 1}};
  for (const auto &row : rows) {
    command(row.code);
    word(1, row.word1);
    if (row.length_word) word(row.length_word, row.length);
    EXPECT_EQ(HCX_IssueMboxWithRetryEx(sli3, block(), row.null ? nullptr : ext, 5, row.in, row.out, 3, 0),
              row.expected);
    EXPECT_EQ(status(), row.expected == 3 ? 0u : 252u);
  }
  EXPECT_TRUE(m.requests().empty());
  EXPECT_TRUE(m.logged("HCX_IssueMboxWithRetryEx - board 1 max cnt 512 incnt 513 outcnt 0"));
  EXPECT_TRUE(m.logged("HCX_IssueMboxWithRetryEx - update cfg byte len too big 2049 max 2048"));
}

TEST_F(MboxTest, DumpsLeaveOutTheLast16Bytes) {
  libhcx_logging_enable |= LOG_MBOX_DATA;
  m.vfs().put_text("/tmp/libhcx_syslog_enable", "24fff\n", 0644);
  libhcx_syslog_enable(0x24fff);
  firmware = [](sim::BsgCall &call) {
    call.data_in.replace(256, 48, hex("000102030405060708090a0b0c0d0e0f") + std::string(32, 'd'));
  };
  command(MBX_DUMP_MEMORY);
  word(3, 48);
  m.clear_records();
  ASSERT_EQ(IssueMboxGeneric(sli4, block(), 64, 512), 0u);
  size_t mbox = 0, exto = 0;
  for (const std::string &line : m.syslog_lines()) {
    mbox += line.starts_with("MBOX[");
    exto += line.starts_with("EXTO[");
  }
  EXPECT_EQ(mbox, 16u);
  EXPECT_EQ(exto, 2u);
  EXPECT_TRUE(m.logged("EXTO[000] 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f"));
  EXPECT_TRUE(m.logged("IssueMboxEx - cmd x17 mbOffset 0 inExtWLen 0 (0) outExtWLen 0 rcv_size 48"));
}

TEST_F(MboxTest, RevisionAndBridgeVariables) {
  m.clear_records();
  EXPECT_EQ(readrev(sli4, block()), 0u);
  EXPECT_EQ(to_hex(only_request().data_out.substr(0, 12)), "000011008000000000000000");
  EXPECT_EQ(readrev(sli3, block()), 0u);
  EXPECT_EQ(to_hex(only_request().data_out.substr(0, 12)), "000011008000000000000000");

  uint8_t first[] = {0x01, 0, 0, 0x80, 0x78, 0x56, 0x34, 0x12}, second[] = {0x02, 0, 0, 0x80, 1, 0, 0, 0};
  uint8_t other[] = {20, 0, 0, 0, 1, 0, 0, 0};
  EXPECT_EQ(TibraMBXvar(sli3, first, nullptr), 0u);
  EXPECT_EQ(to_hex(only_request().data_out.substr(0, 16)), "00002100001030071234567800000000");
  EXPECT_EQ(TibraMBXvar(sli3, second, nullptr), 0u);
  EXPECT_EQ(to_hex(only_request().data_out.substr(0, 16)), "00002100001031070000000100000000");
  EXPECT_EQ(TibraMBXvar(sli3, other, nullptr), 0u);
  EXPECT_TRUE(m.requests().empty());
  EXPECT_EQ(TibraMBXvar(sli4, first, nullptr), 1u);  // refused: not an SLI-3 board
  EXPECT_EQ(TibraMBXvar(9, first, nullptr), 0u);     // the library's own failure does not count
  firmware = [](sim::BsgCall &call) { answer_status(call, 7); };
  EXPECT_EQ(TibraMBXvar(sli3, first, nullptr), 1u);
}

TEST_F(MboxTest, FailingRequestsSetTheStatus) {
  uint8_t ext[64] = {};
  const std::pair<const char *, std::function<uint32_t()>> entries[] = {
      {"Generic", [&] { return IssueMboxGeneric(sli4, command(MBX_READ_NV), 64, 256); }},
      {"Retry", [&] { return HCX_IssueMboxWithRetry(sli3, command(MBX_READ_NV), 32, 128, 1, 1); }},
      {"Ex", [&] { return HCX_IssueMboxWithRetryEx(sli3, command(MBX_LOAD_AREA), ext, 5, 4, 4, 1, 1); }},
      {"V2", [&] { return HCX_IssueMboxWithRetryV2(sli4, command(MBX_READ_NV), 64, 1, 1); }}};
  for (const auto &[name, issue] : entries) {
    SCOPED_TRACE(name);
    sweep_driver(7, issue, [this](uint32_t rc) {
      EXPECT_EQ(status(), rc == 0 ? 0u : 252u);
      return rc != 0;
    });
  }
  m.fail({.verb = sim::Verb::lock, .error = EIO});
  expect_told(IssueMboxGeneric(sli4, command(MBX_READ_NV), 64, 256), 1, "IssueMboxEx - mailbox lock failed");
  EXPECT_EQ(status(), 252u);
}

// Nothing is held while a front end waits for a busy firmware.
TEST(MboxLock, IsNotHeldAcrossADelay) {
  struct Watch : sim::Machine {
    void sleep_us(uint64_t microseconds) override {
      ++delays_seen;
      locks += held_locks() + open_fds();
      for (hcx_host *host = hcx_host_list; host; host = host->next) {
        if (pthread_rwlock_trywrlock(&host->rwlock) != 0) {
          ++locks;
        } else {
          pthread_rwlock_unlock(&host->rwlock);
        }
      }
      sim::Machine::sleep_us(microseconds);
    }
    size_t locks = 0;
    int delays_seen = 0;
  } m;
  m.add_host({.number = 3});
  const sim::Installed installed(m);
  hcx_sysfs_scan_hosts(&hcx_host_list);
  ASSERT_NE(hcx_host_list, nullptr);
  hcx_host_list->brd_idx = 0;
  m.bsg().on_vendor(7, [](sim::BsgCall &call) { call.data_in = hex("00fd0200") + std::string(252, '\0'); });
  MAILBOX_t mb = {};
  hcx_mbox_set_command(&mb, MBX_READ_NV);
  EXPECT_EQ(HCX_IssueMboxWithRetryV2(0, &mb, 64, 3, 1000), 2u);
  EXPECT_EQ(m.delays_seen, 3);
  EXPECT_EQ(m.locks, 0u);
}

// The real machine below a folder, but for the node, which the test plays.
class MailboxMachine final : public RootedMachine {
 public:
  struct Shared {
    std::atomic<int> inside, overlaps, exchanges;
  };
  MailboxMachine(hcx::sysio::Machine &real, std::string root, Shared *shared)
      : RootedMachine(real, std::move(root)), shared_(shared) {}

  int ioctl(int, unsigned long, void *arg) override {
    auto &header = *static_cast<sg_io_v4 *>(arg);
    if (shared_->inside.fetch_add(1) != 0) shared_->overlaps.fetch_add(1);
    for (int i = 0; i < 5; ++i)
      sched_yield();
    memcpy(reinterpret_cast<void *>(static_cast<uintptr_t>(header.din_xferp)),
           reinterpret_cast<void *>(static_cast<uintptr_t>(header.dout_xferp)), header.din_xfer_len);
    reinterpret_cast<fc_bsg_reply *>(static_cast<uintptr_t>(header.response))->reply_payload_rcv_len = 4096;
    shared_->exchanges.fetch_add(1);
    shared_->inside.fetch_sub(1);
    return 0;
  }

 private:
  Shared *shared_;
};

TEST(MboxLock, TwoProcessesTakeTurns) {
  char root[] = "/tmp/hcx_mbox_XXXXXX";
  ASSERT_NE(mkdtemp(root), nullptr);
  const std::string dir = root;
  ASSERT_EQ(system(("mkdir -p " + dir + "/sys/class/scsi_host/host3 " + dir + "/dev/bsg && : > " + dir +
                    "/sys/class/scsi_host/host3/mbox && : > " + dir + "/dev/bsg/fc_host3")
                       .c_str()),
            0);
  void *memory = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(memory, MAP_FAILED);
  auto *shared = new (memory) MailboxMachine::Shared();
  MailboxMachine machine(hcx::sysio::machine(), dir, shared);
  LIBHCX_private_set_machine(&machine);
  char firmware_revision[] = "11.4.142.25, sli-3:0";
  hcx_host host = {};
  host.id = 3;
  host.brd_idx = 0;
  host.firmware_revision = firmware_revision;
  pthread_rwlock_init(&host.rwlock, nullptr);
  hcx_host_list = &host;

  constexpr int each = 100;
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  int failures = 0;
  for (int i = 0; i < each; ++i) {
    MAILBOX_t mb = {};
    hcx_mbox_set_command(&mb, MBX_READ_NV);
    if (IssueMbox(0, &mb, 32, 128) != 0) ++failures;
  }
  if (child == 0) _exit(failures ? 1 : 0);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(shared->exchanges.load(), 2 * each);
  EXPECT_EQ(shared->overlaps.load(), 0);
  hcx_host_list = nullptr;
  LIBHCX_private_set_machine(nullptr);
  munmap(memory, 4096);
  EXPECT_EQ(system(("rm -r " + dir).c_str()), 0);
}

}  // namespace
