// SPDX-License-Identifier: BSD-3-Clause
// Attributes: number formats, lines and their limits, writes and their errors, the gate and what goes round
// it, binary attributes, the command lock, driver parameters.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <atomic>
#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "hcx_util_attr.h"
#include "libhcx.h"
#include "sim_machine.h"

namespace {

constexpr char dir[] = "/sys/class/scsi_host/host3/";
const std::string in_dir = dir;

class Sysfs : public testing::Test {
 protected:
  Sysfs() {
    host.id = 3;
    host.brd_idx = 7;
    m.vfs().put_dir("/tmp");
    libhcx_syslog_enable(LOG_ERROR | LOG_DEVICE_NAME);
  }
  ~Sysfs() override {
    EXPECT_EQ(m.open_fds(), 0u);
    EXPECT_EQ(m.held_locks(), 0u);
  }
  void put(const std::string &file, const std::string &text, mode_t mode = 0644) {
    m.vfs().put_text(in_dir + file, text, mode);
  }
  void put_binary(const std::string &file, const std::string &bytes) {
    m.vfs().put_binary(in_dir + file, bytes, 0600, static_cast<int64_t>(bytes.size()));
  }
  std::string bytes(const std::string &file) { return m.vfs().find(in_dir + file)->data; }
  void fail(sim::Verb verb, const std::string &path, int error) {
    m.clear_faults();
    m.fail({.verb = verb, .path = path, .error = error});
  }

  sim::Machine m;
  sim::Installed guard{m};
  hcx_host host = {};
};

TEST_F(Sysfs, NumberFormats) {
  struct Case {
    const char *text;
    int as_int;
    unsigned as_uint;
    uint32_t as_hex32;
    uint64_t as_hex64;
  };
  const Case cases[] = {
      {"42\n", 42, 42, 0, 0},
      {"42", 42, 42, 0, 0},
      {"-1\n", -1, 0xffffffff, 0, 0},
      {"+5\n", 5, 5, 0, 0},
      {"4294967295\n", -1, 0xffffffff, 0, 0},
      {"4294967296\n", 0, 0, 0, 0},
      {"99999999999999999999\n", -1, 0xffffffff, 0, 0},
      {" \n 17 apples\n", 17, 17, 0, 0},
      {"12abc\n", 12, 12, 0, 0},
      {"0x10\n", 0, 0, 0x10, 0x10},
      {"0x10000000c9a1b2c3\n", 0, 0, 0xc9a1b2c3, 0x10000000c9a1b2c3},
      {"0xffffffffffffffff", 0, 0, 0xffffffff, 0xffffffffffffffff},
      {"0x0x1f\n", 0, 0, 0x1f, 0x1f},
      {"0X10\n", 0, 0, 0, 0},
      {" 0x10\n", 0, 0, 0, 0},  // the "0x" stands at the very beginning
      {"c9a1b2c3\n", 0, 0, 0, 0},
      {"0x", 0, 0, 0, 0},
      {"0xg", 0, 0, 0, 0},
      {"none\n", 0, 0, 0, 0},
      {"", 0, 0, 0, 0},
  };
  for (const Case &c : cases) {
    put("portnum", c.text);
    EXPECT_EQ(hcx_sysfs_read_int(dir, "portnum"), c.as_int) << c.text;
    EXPECT_EQ(hcx_sysfs_read_uint(dir, "portnum"), c.as_uint) << c.text;
    EXPECT_EQ(hcx_sysfs_read_hexuint32(dir, "portnum"), c.as_hex32) << c.text;
    EXPECT_EQ(hcx_sysfs_read_hexuint64(dir, "portnum"), c.as_hex64) << c.text;
  }
  put("portnum", "123456\n");
  m.fail({.verb = sim::Verb::read, .persistent = true, .short_count = 1});
  EXPECT_EQ(hcx_sysfs_read_int(dir, "portnum"), 123456);
  fail(sim::Verb::read, "portnum", EIO);
  EXPECT_EQ(hcx_sysfs_read_int(dir, "portnum"), 0);
}

TEST_F(Sysfs, LineLengths) {
  struct Case {
    std::string text;
    size_t size;
    std::optional<std::string> line;
  };
  const std::string page(4095, 'x');
  const Case cases[] = {
      {"NPIV Physical\n", 256, "NPIV Physical"},
      {"NPIV Physical", 256, "NPIV Physical"},
      {"first\nsecond\n", 256, "first"},
      {"\nsecond\n", 256, ""},
      {"", 256, ""},
      {page + "\n", 256, page.substr(0, 254)},
      {page.substr(0, 254) + "\n", 256, page.substr(0, 254)},
      {"abcdef\n", 8, "abcdef"},
      {"abcdef\n", 7, "abcde"},
      {"abcdef\n", 3, "a"},
      {"abcdef\n", 2, ""},
      {"abcdef\n", 1, ""},
      {"abcdef\n", 0, std::nullopt},
      {std::string("ab\0cd\n", 6), 256, "ab"},
  };
  for (const Case &c : cases) {
    put("info", c.text);
    char line[301] = {};
    memset(line, '#', 300);
    char *result = hcx_sysfs_read_str(dir, "info", line, c.size);
    EXPECT_EQ(line[c.size], '#');
    ASSERT_EQ(result, c.line ? line : nullptr) << c.text << " in " << c.size;
    EXPECT_STREQ(line, c.line ? c.line->c_str() : std::string(300, '#').c_str()) << " in " << c.size;
  }
  EXPECT_EQ(hcx_sysfs_read_str(dir, "info", nullptr, 10), nullptr);
}

TEST_F(Sysfs, MissingAndUnreadableLinesAreNullAndEmpty) {
  const std::string not_found =
      "hcx_sysfs_read_str - Error did not find file info in /sys/class/scsi_host/host3/";
  const std::string open_failed = "hcx_sysfs_read_str - Open failed file info in /sys/class/scsi_host/host3/";
  char line[32] = "old";
  EXPECT_EQ(hcx_sysfs_read_str(dir, "info", line, sizeof line), nullptr);
  EXPECT_STREQ(line, "");
  EXPECT_EQ(m.syslog_lines(),
            (std::vector<std::string>{"hcx_sysfs_read_str() - /sys/class/scsi_host/host3/info", open_failed,
                                      not_found}));

  put("info", "text\n");
  strcpy(line, "old");
  fail(sim::Verb::read, "info", EIO);
  EXPECT_EQ(hcx_sysfs_read_str(dir, "info", line, sizeof line), nullptr);
  EXPECT_STREQ(line, "");
  EXPECT_EQ(m.syslog_lines().back(), not_found);
}

TEST_F(Sysfs, TheGateRefusesWithoutTouchingTheFile) {
  put("slimem", "0x1f\n");
  put_binary("stats", "0123");
  m.clear_records();
  const uint64_t opens = m.calls(sim::Verb::open);
  char line[32] = "old";
  char byte = 0;
  EXPECT_EQ(hcx_sysfs_read_str(dir, "slimem", line, sizeof line), nullptr);
  EXPECT_STREQ(line, "");
  EXPECT_TRUE(m.logged("hcx_sysfs_read_str - Error did not find file slimem in /sys/class/scsi_host/host3/"));
  EXPECT_EQ(hcx_sysfs_read_hexuint32(dir, "slimem"), 0u);
  EXPECT_EQ(hcx_sysfs_test_file(dir, "slimem"), 0);
  EXPECT_EQ(hcx_sysfs_write_str(dir, "slimem", "1"), 2);
  EXPECT_EQ(hcx_sysfs_read_binfile(dir, "stats", &byte, 0, 1), 0u);
  EXPECT_EQ(hcx_sysfs_write_binfile(dir, "stats", &byte, 0, 1), 0u);
  EXPECT_EQ(hcx_sysfs_lock_binfile(dir, "tibra"), -1);
  EXPECT_EQ(hcx_sysfs_read_str(nullptr, nullptr, line, sizeof line), nullptr);
  EXPECT_EQ(hcx_sysfs_read_int(nullptr, "info"), 0);
  EXPECT_EQ(hcx_sysfs_write_str(dir, nullptr, "1"), 2);
  EXPECT_EQ(hcx_sysfs_lock_binfile(nullptr, nullptr), -1);
  put("info", "text\n");
  EXPECT_EQ(hcx_sysfs_test_file("/sys/class/scsi_host/host3", "info"), 0);
  EXPECT_EQ(m.calls(sim::Verb::open), opens);
  EXPECT_EQ(hcx_sysfs_test_file(dir, "info"), 1);
}

TEST_F(Sysfs, UngatedAttributesWorkInsideAndTheOthersStayGated) {
  put("max_vpi", "127\n");
  put("slimem_not", "1\n");
  m.vfs().put_text("/sys/class/fc_host/host3/issue_lip", "", 0200);
  m.vfs().put_text("/sys/class/fc_host/host3/vport_state", "Active\n", 0444);
  m.vfs().put_text("/sys/class/fc_transport/target3:0:4/port_name", "0x21\n", 0444);
  EXPECT_EQ(hcx::attr_read_int(dir, "max_vpi"), 127);
  EXPECT_EQ(hcx::attr_read_hex64("/sys/class/fc_transport/target3:0:4/", "port_name"), 0x21u);
  EXPECT_TRUE(hcx::attr_exists("/sys/class/fc_host/host3/", "vport_state"));
  EXPECT_FALSE(hcx::attr_exists("/sys/class/fc_host/host3/", "max_vpi"));
  EXPECT_FALSE(hcx::attr_exists(dir, "slimem_not"));
  EXPECT_FALSE(hcx::attr_exists(nullptr, nullptr));
  char line[16];
  EXPECT_EQ(hcx::attr_read_str(dir, "state", line, sizeof line), nullptr);
  EXPECT_TRUE(m.logged("hcx_sysfs_read_str - Open failed file state in /sys/class/scsi_host/host3/"));
}

TEST_F(Sysfs, WritesArriveWholeAndKeepTheErrno) {
  std::vector<std::string> stores;
  put("board_mode", "online\n");
  m.vfs().on_write(in_dir + "board_mode", [&](const std::string &text) {
    stores.push_back(text);
    return 0;
  });
  EXPECT_EQ(hcx_sysfs_write_str(dir, "board_mode", "warm"), 0);
  EXPECT_EQ(hcx_sysfs_write_str(dir, "board_mode", ""), 0);
  EXPECT_EQ(stores, std::vector<std::string>{"warm"});
  for (const int error : {EACCES, EPERM, EINVAL, EBUSY}) {
    fail(sim::Verb::write, "board_mode", error);
    EXPECT_EQ(hcx_sysfs_write_str(dir, "board_mode", "dump"), error);
  }
  m.clear_faults();
  m.fail({.verb = sim::Verb::write, .short_count = 2});
  EXPECT_EQ(hcx_sysfs_write_str(dir, "board_mode", "offline"), EIO);
  EXPECT_EQ(hcx_sysfs_write_str(dir, "board_mode", nullptr), EINVAL);
  fail(sim::Verb::open, "board_mode", EACCES);
  EXPECT_EQ(hcx_sysfs_write_str(dir, "board_mode", "warm"), 2);
}

TEST_F(Sysfs, NothingIsCreated) {
  // A tree on an ordinary file system would let a careless open create what the driver does not have.
  m.vfs().put_dir("/tmp/tree");
  m.vfs().put_link("/sys/class/scsi_host/host3", "/tmp/tree");
  uint32_t old = 0;
  EXPECT_EQ(hcx_sysfs_write_str(dir, "issue_reset", "selective"), 2);
  EXPECT_EQ(hcx_sysfs_write_binfile(dir, "ctlreg", "1234", 0, 4), 0u);
  EXPECT_EQ(hcx_sysfs_lock_binfile(dir, "mbox"), -1);
  EXPECT_EQ(hcx_host_param_write(&host, "vosk_topology", 1, &old, nullptr), 1);
  EXPECT_TRUE(m.vfs().names("/tmp/tree").empty());
  EXPECT_TRUE(m.logged("hcx_sysfs_lock_binfile - Open failed file mbox in /sys/class/scsi_host/host3/"));
}

TEST_F(Sysfs, LongPathsAreCut) {
  const std::string deep = "/sys/devices/" + std::string(300, 'd') + "/";
  m.clear_records();
  EXPECT_EQ(hcx_sysfs_read_int(deep.c_str(), "irq"), 0);
  EXPECT_EQ(m.syslog_lines().front(), "hcx_sysfs_read_int() - " + deep.substr(0, 255));
}

TEST_F(Sysfs, SmallThings) {
  char text[] = "one\ntwo\nrest";
  EXPECT_EQ(hcx_str_chop_cr(text), text);
  EXPECT_STREQ(text, "one\ntwo");
  EXPECT_EQ(hcx_str_chop_cr(nullptr), nullptr);
  put("info", "x\n");
  EXPECT_EQ(hcx_sysfs_test_dir(dir), 1);
  EXPECT_EQ(hcx_sysfs_test_dir("/sys/class/scsi_host/host3/info"), 0);
  EXPECT_EQ(hcx_sysfs_test_dir("/sys/class/no_such"), 0);
  EXPECT_EQ(hcx_sysfs_test_dir(nullptr), 0);
  m.vfs().put_text("/sys/class/fc_host/host3/statistics/tx_frames", "0x1ffffffff\n", 0444);
  EXPECT_EQ(hcx_host_stat_read(&host, "tx_frames"), 0x1ffffffffu);
  EXPECT_EQ(hcx_host_stat_read(&host, "rx_frames"), 0u);
  EXPECT_EQ(hcx_host_stat_read(&host, "no_such"), 0u);
  EXPECT_EQ(hcx_host_stat_read(nullptr, "tx_frames"), 0u);
}

TEST_F(Sysfs, BinaryAttributesOfAHost) {
  put_binary("ctlreg", "0123456789abcdef");
  put_binary("slimem", "SLIMEMSLIMEM");
  put_binary("stats", "stats");
  m.vfs().put_binary("/sys/devices/pci0000:00/0000:05:00.0/config", "\x5a\x1d\x10\xf1", 0644, 4);
  char buff[32] = {};
  EXPECT_EQ(hcx_host_ctlreg_read(&host, buff, 0, 4), 4u);
  EXPECT_EQ(std::string(buff, 4), "0123");
  EXPECT_EQ(hcx_host_ctlreg_read(&host, buff, 12, 8), 4u);
  EXPECT_EQ(std::string(buff, 4), "cdef");
  EXPECT_EQ(hcx_host_ctlreg_read(&host, buff, 16, 4), 0u);
  EXPECT_EQ(hcx_host_ctlreg_read(&host, buff, -4, 4), 0u);
  EXPECT_EQ(hcx_host_ctlreg_write(&host, "WXYZ", 4, 4), 4u);
  EXPECT_EQ(bytes("ctlreg"), "0123WXYZ89abcdef");
  EXPECT_EQ(hcx_host_slimem_write(&host, "--", 6, 2), 2u);
  EXPECT_EQ(hcx_host_slimem_read(&host, buff, 4, 6), 6u);
  EXPECT_EQ(std::string(buff, 6), "EM--IM");
  EXPECT_EQ(hcx_host_stats_read(&host, buff, 0, sizeof buff), 5u);

  EXPECT_EQ(hcx_host_pcireg_read(&host, buff, 0, 4), 0u);
  char pci_dev[] = "/sys/devices/pci0000:00/0000:05:00.0/";
  host.pci_dev = pci_dev;
  EXPECT_EQ(hcx_host_pcireg_read(&host, buff, 0, 4), 4u);
  EXPECT_EQ(memcmp(buff, "\x5a\x1d\x10\xf1", 4), 0);

  EXPECT_EQ(hcx_host_ctlreg_read(&host, nullptr, 0, 4), 0u);
  EXPECT_EQ(hcx_host_ctlreg_write(nullptr, buff, 0, 4), 0u);
  EXPECT_EQ(hcx_host_slimem_read(nullptr, buff, 0, 4), 0u);
  EXPECT_EQ(hcx_host_stats_read(nullptr, buff, 0, 4), 0u);
  EXPECT_EQ(hcx_host_pcireg_read(nullptr, buff, 0, 4), 0u);

  fail(sim::Verb::read, "ctlreg", EIO);
  EXPECT_EQ(hcx_host_ctlreg_read(&host, buff, 0, 4), 0u);
  fail(sim::Verb::seek, "ctlreg", EINVAL);
  EXPECT_EQ(hcx_host_ctlreg_read(&host, buff, 4, 4), 0u);
  fail(sim::Verb::seek, "ctlreg", EINVAL);
  EXPECT_EQ(hcx_host_ctlreg_write(&host, buff, 4, 4), 0u);
  EXPECT_EQ(m.syslog_lines().back(), "hcx_sysfs_write_binfile - lseek failed");
  fail(sim::Verb::write, "ctlreg", EPERM);
  EXPECT_EQ(hcx_host_ctlreg_write(&host, buff, 0, 4), 0u);
  EXPECT_EQ(bytes("ctlreg"), "0123WXYZ89abcdef");
}

TEST_F(Sysfs, CommandAttributesRewindAndUnlock) {
  put_binary("mbox", "................");
  put_binary("tibra", "................");
  char buff[16];
  int fd = hcx_host_mbox_lock(&host);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(m.held_locks(), 1u);
  {
    const hcx::Fd other(m.open((in_dir + "mbox").c_str(), O_RDWR, 0));
    EXPECT_EQ(m.lock(other.get(), LOCK_SH | LOCK_NB), -EWOULDBLOCK);  // the lock shuts out readers too
  }
  EXPECT_EQ(hcx_host_mbox_write(fd, "abcd", 0, 4), 4u);
  EXPECT_EQ(hcx_host_mbox_write(fd, "ABC", 0, 3), 3u);  // from the beginning again
  EXPECT_EQ(hcx_host_mbox_write(fd, "xy", 8, 2), 2u);
  EXPECT_EQ(bytes("mbox"), "ABCd....xy......");
  EXPECT_EQ(hcx_host_mbox_read(fd, buff, 0, 4), 4u);
  EXPECT_EQ(hcx_host_mbox_read(fd, buff, 8, 4), 4u);
  EXPECT_EQ(std::string(buff, 4), "xy..");
  EXPECT_EQ(hcx_sysfs_read_locked_fd(fd, buff, 0, 4), 4u);  // goes on where the last one ended
  for (const sim::Verb verb : {sim::Verb::seek, sim::Verb::read}) {
    fail(verb, "mbox", EIO);
    EXPECT_EQ(hcx_host_mbox_read(fd, buff, 0, 4), 0u);
  }
  for (const sim::Verb verb : {sim::Verb::seek, sim::Verb::write}) {
    fail(verb, "mbox", EIO);
    EXPECT_EQ(hcx_host_mbox_write(fd, "zz", 0, 2), 0u);
  }
  m.clear_faults();
  EXPECT_EQ(hcx_sysfs_write_locked_fd(fd, "zz", -1, 2), 0u);
  EXPECT_TRUE(m.logged("hcx_sysfs_write_locked_fd - lseek failed"));
  EXPECT_EQ(hcx_host_mbox_unlock(fd), 0);
  EXPECT_EQ(m.held_locks(), 0u);

  fd = hcx_host_tibra_lock(&host);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(hcx_host_tibra_write(fd, "tib", 4, 3), 3u);
  EXPECT_EQ(bytes("tibra"), "....tib.........");
  EXPECT_EQ(hcx_host_tibra_read(fd, buff, 4, 3), 3u);
  EXPECT_EQ(std::string(buff, 3), "tib");
  fail(sim::Verb::lock, "tibra", EIO);
  EXPECT_EQ(hcx_host_tibra_unlock(fd), -1);
  EXPECT_EQ(m.open_fds(), 0u);  // closed all the same

  fail(sim::Verb::lock, "mbox", ENOLCK);
  EXPECT_EQ(hcx_host_mbox_lock(&host), -1);
  EXPECT_EQ(hcx_host_mbox_lock(nullptr), -1);
  EXPECT_EQ(hcx_host_tibra_lock(nullptr), -1);
  EXPECT_EQ(hcx_host_mbox_unlock(-1), -1);
  EXPECT_EQ(hcx_host_mbox_read(-1, buff, 0, 1), 0u);
  EXPECT_EQ(hcx_host_tibra_write(-1, buff, 0, 1), 0u);
}

TEST_F(Sysfs, ConcurrentCommandsTakeTurns) {
  put_binary("mbox", "................");
  std::atomic<int> inside{0};
  std::atomic<int> done{0};
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 50; ++i) {
        const int fd = hcx_host_mbox_lock(&host);
        EXPECT_GE(fd, 0);
        EXPECT_EQ(inside.fetch_add(1), 0);
        EXPECT_EQ(hcx_host_mbox_write(fd, "w", 0, 1), 1u);
        std::this_thread::yield();
        inside.fetch_sub(1);
        EXPECT_EQ(hcx_host_mbox_unlock(fd), 0);
        ++done;
      }
    });
  }
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(done.load(), 200);
}

TEST_F(Sysfs, ParameterStyles) {
  struct Case {
    const char *text;
    int result;
    uint32_t value;
    const char *written;  // for the new value 26, with and without a prefix
    const char *prefixed;
  };
  const Case cases[] = {
      {"0x10\n", 1, 16, "0x1a\n", "vport 0x1a\n"},
      {"16\n", 1, 16, "26\n", "vport 26\n"},
      {"0\n", 1, 0, "26\n", "vport 26\n"},
      {"0x0\n", 1, 0, "0x1a\n", "vport 0x1a\n"},
      {"-1\n", 1, 0xffffffff, "26\n", "vport 26\n"},
      {"4294967295\n", 1, 0xffffffff, "26\n", "vport 26\n"},
      {"0xffffffff", 1, 0xffffffff, "0x1a\n", "vport 0x1a\n"},
      {"0xz\n", 1, 0, "26\n", "vport 26\n"},  // the decimal 0 in front of the x
      {"none\n", 0, 99, "", ""},
      {"", 0, 99, "", ""},
  };
  for (const Case &c : cases) {
    put("vosk_topology", c.text);
    std::vector<std::string> stores;
    m.vfs().on_write(in_dir + "vosk_topology", [&](const std::string &text) {
      stores.push_back(text);
      return 0;
    });
    uint32_t value = 99;
    EXPECT_EQ(hcx_host_param_read(&host, "vosk_topology", &value), c.result) << c.text;
    EXPECT_EQ(value, c.value) << c.text;
    value = 99;
    EXPECT_EQ(hcx_host_param_write(&host, "vosk_topology", 26, &value, nullptr), c.result ? 0 : 1) << c.text;
    EXPECT_EQ(value, c.value) << c.text;
    EXPECT_EQ(hcx_host_param_write(&host, "vosk_topology", 26, &value, "vport "), c.result ? 0 : 1) << c.text;
    EXPECT_EQ(stores,
              c.result ? (std::vector<std::string>{c.written, c.prefixed}) : std::vector<std::string>{})
        << c.text;
  }
}

TEST_F(Sysfs, ParameterFailures) {
  const std::string path = in_dir + "vosk_nodev_tmo";
  const std::string who = "hcx_host_param_write - host brd_idx 7 ";
  uint32_t value = 99;
  EXPECT_EQ(hcx_host_param_read(&host, "vosk_nodev_tmo", &value), 0);
  EXPECT_EQ(m.syslog_lines(),
            (std::vector<std::string>{
                "hcx_host_param_read() - " + path,
                "hcx_host_param_read - host brd_idx 7 failed to open " + path + " for reading"}));
  put("vosk_nodev_tmo", "\n");
  EXPECT_EQ(hcx_host_param_read(&host, "vosk_nodev_tmo", &value), 0);
  EXPECT_TRUE(m.logged("hcx_host_param_read - host brd_idx 7 unexpected fscanf rc -1 reading " + path));
  put("vosk_nodev_tmo", "off\n");
  EXPECT_EQ(hcx_host_param_write(&host, "vosk_nodev_tmo", 5, &value, nullptr), 1);
  EXPECT_TRUE(m.logged(who + "unexpected fscanf rc 0 reading " + path));
  EXPECT_EQ(value, 99u);

  put("vosk_nodev_tmo", "30\n", 0444);
  EXPECT_EQ(hcx_host_param_write(&host, "vosk_nodev_tmo", 5, &value, nullptr), 1);
  EXPECT_EQ(value, 30u);
  EXPECT_EQ(m.syslog_lines().back(), who + "failed to open " + path + " for writing");
  put("vosk_nodev_tmo", "30\n", 0644);
  const std::string long_prefix(300, 'p');
  const std::string incomplete = who + "fflush or fprintf error on " + path;
  for (const char *prefix : {"refused ", "short ", long_prefix.c_str()}) {
    put("vosk_nodev_tmo", "30\n");
    m.clear_faults();
    if (*prefix == 'r') m.fail({.verb = sim::Verb::write, .path = "vosk_nodev_tmo", .error = EINVAL});
    if (*prefix == 's') m.fail({.verb = sim::Verb::write, .path = "vosk_nodev_tmo", .short_count = 1});
    m.clear_records();
    EXPECT_EQ(hcx_host_param_write(&host, "vosk_nodev_tmo", 5, &value, prefix), 1) << prefix;
    EXPECT_EQ(m.syslog_lines().back(), incomplete);
  }

  EXPECT_EQ(hcx_host_param_read(nullptr, "vosk_nodev_tmo", &value), 0);
  EXPECT_EQ(hcx_host_param_read(&host, nullptr, &value), 0);
  EXPECT_EQ(hcx_host_param_read(&host, "vosk_nodev_tmo", nullptr), 0);
  EXPECT_EQ(hcx_host_param_write(nullptr, "vosk_nodev_tmo", 5, &value, nullptr), 1);
  EXPECT_EQ(hcx_host_param_write(&host, "vosk_nodev_tmo", 5, nullptr, nullptr), 1);
}

TEST_F(Sysfs, EnableAuthIsNoOrdinaryParameter) {
  put("vosk_enable_auth", "0\n");
  m.clear_records();
  const uint64_t calls = m.calls(sim::Verb::open);
  uint32_t value = 99;
  EXPECT_EQ(hcx_host_param_read(&host, "vosk_enable_auth", &value), 1);
  EXPECT_EQ(hcx_host_param_write(&host, "vosk_enable_auth", 1, &value, nullptr), 0);
  EXPECT_EQ(value, 99u);
  EXPECT_EQ(m.calls(sim::Verb::open), calls);
}

}  // namespace
