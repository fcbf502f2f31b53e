// SPDX-License-Identifier: BSD-3-Clause
// Attributes: number formats, words, lines and their limits, writes and their errors, the gate and what goes round it,
// binary attributes, the command lock, driver parameters.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "hcx_util_attr.h"
#include "libhcx.h"
#include "sim_machine.h"

namespace {

using namespace hcx;

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
      {"-1\n", -1, 0xffffffff, 0, 0},
      {"4294967295\n", -1, 0xffffffff, 0, 0},
      {"4294967296\n", 0, 0, 0, 0},
      {"99999999999999999999\n", -1, 0xffffffff, 0, 0},
      {" \n 17 apples\n", 17, 17, 0, 0},
      {"0x10\n", 0, 0, 0x10, 0x10},
      {"0x10000000c9a1b2c3\n", 0, 0, 0xc9a1b2c3, 0x10000000c9a1b2c3},
      {"0xffffffffffffffff", 0, 0, 0xffffffff, 0xffffffffffffffff},
      {"0x0x1f\n", 0, 0, 0x1f, 0x1f},
      {"0X10\n", 0, 0, 0, 0},
      {" 0x10\n", 0, 0, 0, 0},  // the "0x" stands at the very beginning
      {"0x", 0, 0, 0, 0},
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
  char line[32] = "old";
  EXPECT_EQ(hcx_sysfs_read_str(dir, "info", line, sizeof line), nullptr);
  EXPECT_STREQ(line, "");
  EXPECT_EQ(m.syslog_lines(),
            (std::vector<std::string>{
                "hcx_sysfs_read_str() - /sys/class/scsi_host/host3/info",
                "hcx_sysfs_read_str - Open failed file info in /sys/class/scsi_host/host3/", not_found}));
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
  char buff[32] = {}, pci_dev[] = "/sys/devices/pci0000:00/0000:05:00.0/";
  const auto read = [&](auto call, int offset, size_t count) {
    memset(buff, '#', sizeof buff);
    return std::string(buff, call(&host, buff, offset, count));
  };
  EXPECT_EQ(read(hcx_host_ctlreg_read, 0, 4), "0123");
  EXPECT_EQ(read(hcx_host_ctlreg_read, 12, 8), "cdef");
  EXPECT_EQ(read(hcx_host_ctlreg_read, 16, 4), "");
  EXPECT_EQ(read(hcx_host_ctlreg_read, -4, 4), "");
  EXPECT_EQ(hcx_host_ctlreg_write(&host, "WXYZ", 4, 4), 4u);
  EXPECT_EQ(bytes("ctlreg"), "0123WXYZ89abcdef");
  EXPECT_EQ(hcx_host_slimem_write(&host, "--", 6, 2), 2u);
  EXPECT_EQ(read(hcx_host_slimem_read, 4, 6), "EM--IM");
  EXPECT_EQ(read(hcx_host_stats_read, 0, sizeof buff), "stats");
  EXPECT_EQ(read(hcx_host_pcireg_read, 0, 4), "");
  host.pci_dev = pci_dev;
  EXPECT_EQ(read(hcx_host_pcireg_read, 0, 4), "\x5a\x1d\x10\xf1");
  EXPECT_EQ((std::vector<size_t>{
                hcx_host_ctlreg_read(&host, nullptr, 0, 4), hcx_host_ctlreg_write(nullptr, buff, 0, 4),
                hcx_host_slimem_read(nullptr, buff, 0, 4), hcx_host_stats_read(nullptr, buff, 0, 4),
                hcx_host_pcireg_read(nullptr, buff, 0, 4)}),
            std::vector<size_t>(5, 0));
  fail(sim::Verb::read, "ctlreg", EIO);
  EXPECT_EQ(read(hcx_host_ctlreg_read, 0, 4), "");
  fail(sim::Verb::seek, "ctlreg", EINVAL);
  EXPECT_EQ(read(hcx_host_ctlreg_read, 4, 4), "");
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
  EXPECT_EQ(hcx_host_mbox_read(fd, buff, 8, 4), 4u);
  EXPECT_EQ(std::string(buff, 4), "xy..");
  EXPECT_EQ(hcx_sysfs_read_locked_fd(fd, buff, 0, 4), 4u);  // goes on where the last one ended
  for (const sim::Verb verb : {sim::Verb::seek, sim::Verb::read, sim::Verb::write}) {
    fail(verb, "mbox", EIO);
    EXPECT_EQ(
        verb == sim::Verb::write ? hcx_host_mbox_write(fd, "zz", 0, 2) : hcx_host_mbox_read(fd, buff, 0, 4),
        0u);
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
  EXPECT_EQ((std::vector<int>{hcx_host_mbox_lock(&host), hcx_host_mbox_lock(nullptr),
                              hcx_host_tibra_lock(nullptr), hcx_host_mbox_unlock(-1)}),
            std::vector<int>(4, -1));
  EXPECT_EQ(hcx_host_mbox_read(-1, buff, 0, 1) + hcx_host_tibra_write(-1, buff, 0, 1), 0u);
}

TEST_F(Sysfs, ParameterStyles) {
  // The text, what is read, and what is written for the new value 26; null: not a parameter.
  const struct {
    const char *text;
    uint32_t value;
    const char *written;
  } rows[] = {{"0x10\n", 16, "0x1a\n"},
              {"0\n", 0, "26\n"},
              {"0x0\n", 0, "0x1a\n"},
              {"-1\n", 0xffffffff, "26\n"},
              {"0xffffffff", 0xffffffff, "0x1a\n"},
              {"0xz\n", 0, "26\n"},  // the decimal 0 in front of the x
              {"none\n", 99, nullptr},
              {"", 99, nullptr}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.text);
    put("vosk_topology", row.text);
    std::vector<std::string> stores, expected;
    m.vfs().on_write(in_dir + "vosk_topology", [&](const std::string &text) {
      stores.push_back(text);
      return 0;
    });
    uint32_t value = 99;
    EXPECT_EQ(hcx_host_param_read(&host, "vosk_topology", &value), row.written ? 1 : 0);
    EXPECT_EQ(value, row.value);
    for (const char *prefix : {static_cast<const char *>(nullptr), "vport "}) {
      value = 99;
      EXPECT_EQ(hcx_host_param_write(&host, "vosk_topology", 26, &value, prefix), row.written ? 0 : 1);
      EXPECT_EQ(value, row.value);
      if (row.written) expected.push_back((prefix ? prefix : "") + std::string(row.written));
    }
    EXPECT_EQ(stores, expected);
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
      {"NLPort (fabric via loop)", port_type_names, 6},
      {"Link Up - Ready:\n", link_state_names, 8},
      {"Link Down - User disabled", link_state_names, 0},
      {"wwnn (World Wide Node Name)", bind_type_names, 0x400},
      {"fw_reset", reset_type_names, 3},
      {"error", board_mode_names, 5},
      {"1", yes_no_names, 1},
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
