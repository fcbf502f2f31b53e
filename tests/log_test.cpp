// SPDX-License-Identifier: BSD-3-Clause
// The logger: categories, the switch file and who may stand in for it, the refresh, the stack dump.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "libhcx.h"
#include "sim_machine.h"

namespace {

constexpr char switch_file[] = "/tmp/libhcx_syslog_enable";

class Log : public testing::Test {
 protected:
  ~Log() override { EXPECT_EQ(m.open_fds(), 0u); }
  void put(const std::string &text) {
    m.vfs().put_text(switch_file, text, 0644);
    later(21);
  }
  void later(int seconds) { m.clock = m.clock + seconds; }
  size_t lines() { return m.syslog_lines().size(); }

  sim::Machine m;
  sim::Installed guard{m};
};

TEST_F(Log, OnlyCategoriesOfTheMaskAreEmitted) {
  libhcx_syslog_enable(LOG_ERROR | LOG_SCSI);
  libhcx_syslog(LOG_ERROR, "%s - one", "f");
  libhcx_syslog(LOG_TRACE, "two");
  libhcx_syslog(LOG_TRACE | LOG_SCSI, "three");
  libhcx_syslog(0, "four");
  EXPECT_EQ(m.syslog_lines(), (std::vector<std::string>{"f - one", "three"}));
  EXPECT_EQ(m.syslog_ident(), "LIBHCX");
}

TEST_F(Log, EnableWritesTheSwitchFile) {
  libhcx_syslog_enable(0x4001);
  EXPECT_EQ(m.vfs().text(switch_file), "00004001\n");
  libhcx_syslog_enable(0x40000);
  EXPECT_EQ(m.vfs().text(switch_file), "00004001\n");
  EXPECT_EQ(libhcx_logging_enable, 0x4001u);
  libhcx_syslog_enable(0);
  EXPECT_EQ(m.vfs().text(switch_file), "00000000\n");
  EXPECT_EQ(libhcx_logging_enable, 0u);
  libhcx_syslog_enable(0x3ffff);
  EXPECT_EQ(libhcx_logging_enable, 0x3ffffu);
}

TEST_F(Log, ShortWriteDoesNotTakeEffect) {
  m.fail({.verb = sim::Verb::write, .short_count = 4});
  libhcx_syslog_enable(LOG_ERROR);
  EXPECT_EQ(libhcx_logging_enable, 0u);
}

TEST_F(Log, SwitchFileForms) {
  struct Case {
    const char *text;
    uint32_t mask;
  };
  const Case cases[] = {
      {"00004000\n", 0x4000},     {"4000", 0x4000}, {"  00000010", 0x10}, {"0x10\n", 0x10},
      {"ffffffff\n", ~0u},        {"", 0},          {"on\n", 0},          {"1234567890\n", 0x12345678},
      {"00004000garbage", 0x4000}};
  for (const Case &c : cases) {
    put(c.text);
    libhcx_syslog(0, "x");
    EXPECT_EQ(libhcx_logging_enable, c.mask) << c.text;
  }
}

TEST_F(Log, RefreshAfterMoreThanTwentySeconds) {
  libhcx_syslog_enable(0);
  m.vfs().put_text(switch_file, "00004000\n");
  later(20);
  libhcx_syslog(LOG_ERROR, "early");
  EXPECT_EQ(lines(), 0u);
  later(1);
  libhcx_syslog(LOG_ERROR, "late");
  EXPECT_EQ(m.syslog_lines(), std::vector<std::string>{"late"});
  m.vfs().remove(switch_file);
  later(-500);
  libhcx_syslog(LOG_ERROR, "a clock set back refreshes nothing");
  EXPECT_EQ(lines(), 2u);
  later(521);
  libhcx_syslog(LOG_ERROR, "gone");
  EXPECT_EQ(lines(), 2u);
}

// The file lies where everyone may write: only a regular file counts, and no link is followed.
TEST_F(Log, ImpostorsOfTheSwitchFile) {
  m.vfs().put_text("/etc/passwd", "00004000\n");
  m.vfs().put_link(switch_file, "/etc/passwd");
  later(21);
  libhcx_syslog(LOG_ERROR, "x");
  EXPECT_EQ(libhcx_logging_enable, 0u);
  libhcx_syslog_enable(LOG_SCSI);
  EXPECT_EQ(m.vfs().text("/etc/passwd"), "00004000\n");
  EXPECT_EQ(libhcx_logging_enable, 0u);
  m.vfs().remove(switch_file);
  m.vfs().put_device(switch_file, 0666);
  later(21);
  libhcx_syslog(LOG_ERROR, "x");
  libhcx_syslog_enable(LOG_SCSI);
  EXPECT_EQ(libhcx_logging_enable, 0u);
  m.vfs().remove(switch_file);
  m.vfs().put_dir(switch_file);
  libhcx_syslog_enable(LOG_SCSI);
  EXPECT_EQ(libhcx_logging_enable, 0u);
}

// Somebody gave another file this name: it is neither read nor emptied.
TEST_F(Log, FileWithASecondNameIsSomebodyElses) {
  put("00004000\n");
  m.vfs().find(switch_file)->links = 2;
  libhcx_syslog(LOG_ERROR, "x");
  EXPECT_EQ(libhcx_logging_enable, 0u);
  libhcx_syslog_enable(LOG_SCSI);
  EXPECT_EQ(libhcx_logging_enable, 0u);
  EXPECT_EQ(m.vfs().text(switch_file), "00004000\n");
  m.vfs().find(switch_file)->links = 1;
  m.fail({.verb = sim::Verb::truncate});
  libhcx_syslog_enable(LOG_SCSI);
  EXPECT_EQ(m.vfs().text(switch_file), "00004000\n");
  libhcx_syslog_enable(LOG_SCSI);
  EXPECT_EQ(m.vfs().text(switch_file), "00000200\n");
}

// A directory for everybody, where the kernel lets nobody open another user's file with O_CREAT; and other processes
// that make the file just when it was missing.
TEST(LogSwitch, IsMadeOnlyWhereThereIsNone) {
  struct StickyDirectory : sim::Machine {
    int open(const char *path, int flags, mode_t mode) override {
      if (std::string(path) != switch_file) return sim::Machine::open(path, flags, mode);
      EXPECT_EQ(flags & O_TRUNC, 0);
      if (flags & O_CREAT) {
        if (!(flags & O_EXCL) && vfs().exists(path)) return -EACCES;
        if (racing) vfs().put_text(path, "00000001\nrest", 0644);
      }
      return sim::Machine::open(path, flags, mode);
    }
    bool racing = false;
  } m;
  const sim::Installed guard(m);
  m.vfs().put_dir("/tmp");
  libhcx_syslog_enable(LOG_SCSI);
  EXPECT_EQ(m.vfs().text(switch_file), "00000200\n");
  libhcx_syslog_enable(LOG_ERROR);
  EXPECT_EQ(m.vfs().text(switch_file), "00004000\n");
  m.vfs().remove(switch_file);
  m.racing = true;
  libhcx_syslog_enable(LOG_SCSI);
  EXPECT_EQ(m.vfs().text(switch_file), "00000200\n");
  EXPECT_EQ(m.open_fds(), 0u);
}

TEST_F(Log, LongLinesArriveWhole) {
  libhcx_syslog_enable(LOG_ERROR);
  const std::string text(5000, 'x');
  libhcx_syslog(LOG_ERROR, "%s!", text.c_str());
  EXPECT_EQ(m.syslog_lines().back(), text + "!");
}

TEST_F(Log, ErrnoSurvivesALogCall) {
  libhcx_syslog_enable(LOG_ERROR);
  m.fail({.verb = sim::Verb::open, .persistent = true, .error = ENOENT});
  later(21);
  errno = ERANGE;
  libhcx_syslog(LOG_ERROR, "x");
  EXPECT_EQ(errno, ERANGE);
}

TEST_F(Log, StackDumpBeforeEachLine) {
  libhcx_syslog_enable(LOG_TRACE | LOG_BACKTRACE);
  HCX_FreeDiagEnv();
  const std::vector<std::string> lines = m.syslog_lines();
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0].rfind("stack(0) - ", 0), 0u) << lines[0];
  const auto call = std::find(lines.begin(), lines.end(), "HCX_FreeDiagEnv()");
  ASSERT_NE(call, lines.end());
  EXPECT_EQ(call[-1].rfind("stack(", 0), 0u) << call[-1];
  EXPECT_EQ(call[1].rfind("stack(0) - ", 0), 0u) << "before the next line";
}

TEST_F(Log, UnlinkClosesAndDeletes) {
  libhcx_syslog_enable(LOG_ERROR);
  libhcx_syslog_unlink();
  EXPECT_FALSE(m.vfs().exists(switch_file));
  EXPECT_EQ(m.syslog_ident(), "");
  // A line after teardown still carries the library's name.
  libhcx_syslog(LOG_ERROR, "late");
  EXPECT_EQ(m.syslog_ident(), "LIBHCX");
}

}  // namespace
