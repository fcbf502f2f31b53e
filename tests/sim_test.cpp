// SPDX-License-Identifier: BSD-3-Clause
// The simulated machine against hand-written rules of a real kernel's sysfs, its faults, and the state that
// two machines on one folder share.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <regex>
#include <set>
#include <thread>

#include "sim_machine.h"

namespace {

std::string read_all(sim::Machine &m, const std::string &path) {
  const int fd = m.open(path.c_str(), O_RDONLY, 0);
  if (fd < 0) return "error " + std::to_string(-fd);
  char buf[5000];
  const ssize_t got = m.read(fd, buf, sizeof buf);
  m.close(fd);
  return got < 0 ? "error " + std::to_string(-got) : std::string(buf, static_cast<size_t>(got));
}

int write_all(sim::Machine &m, const std::string &path, const std::string &text) {
  const int fd = m.open(path.c_str(), O_WRONLY, 0);
  if (fd < 0) return fd;
  const auto put = static_cast<int>(m.write(fd, text.data(), text.size()));
  m.close(fd);
  return put;
}

std::string link(sim::Machine &m, const std::string &path) {
  char buf[256];
  const ssize_t got = m.read_link(path.c_str(), buf, sizeof buf);
  return got < 0 ? "error " + std::to_string(-got) : std::string(buf, static_cast<size_t>(got));
}

TEST(SimTree, LooksLikeAKernelsSysfs) {
  sim::Machine m;
  sim::default_san(m);
  EXPECT_EQ(link(m, "/sys/class/scsi_host/host2"),
            "../../devices/pci0000:00/0000:00:04.0/0000:04:00.0/host2/scsi_host/host2");
  EXPECT_EQ(link(m, "/sys/class/scsi_host/host12"),
            "../../devices/pci0000:00/0000:00:04.0/0000:04:00.0/host2/vport-2:0-0/host12/scsi_host/host12");
  EXPECT_EQ(link(m, "/sys/class/scsi_host/host0"), "../../devices/platform/host0/scsi_host/host0");
  EXPECT_EQ(link(m, "/sys/class/scsi_host/host2/device"), "../../../host2");
  EXPECT_EQ(link(m, "/sys/class/scsi_device/2:0:0:0/device/generic"), "scsi_generic/sg0");
  EXPECT_EQ(link(m, "/sys/class/scsi_device/2:0:0:0/device/block"), "error 22");  // a directory
  EXPECT_EQ(link(m, "/sys/class/scsi_device/3:0:1:0/device/tape"), "scsi_tape/st0");
  EXPECT_EQ(read_all(m, "/sys/class/fc_host/host2/port_name"), "0x10000090fa942b02\n");
  EXPECT_EQ(read_all(m, "/sys/class/fc_remote_ports/rport-2:0-1/port_id"), "0xfffffc\n");
  EXPECT_EQ(read_all(m, "/sys/class/fc_remote_ports/rport-2:0-1/scsi_target_id"), "-1\n");
  EXPECT_EQ(read_all(m, "/sys/class/fc_host/host2/maxframe_size"), "2048 bytes\n");
  mode_t mode = 0;
  EXPECT_EQ(m.stat("/sys/class/scsi_host/host2/fwrev", &mode), 4096);
  EXPECT_EQ(mode, static_cast<mode_t>(S_IFREG | 0444));
  EXPECT_EQ(read_all(m, "/sys/class/scsi_host/host2/issue_reset"), "error 13");
  EXPECT_EQ(write_all(m, "/sys/class/scsi_host/host2/fwrev", "x"), -EACCES);
  EXPECT_EQ(m.open_fds(), 0u);
}

// Rules that hold for every entry of a real tree, and the form of the texts that have one.
struct Walk {
  sim::Machine &m;
  size_t files = 0;
  std::set<size_t> matched = {};

  void entry(const std::string &path) {
    char target[256];
    mode_t mode = 0;
    if (m.read_link(path.c_str(), target, sizeof target) >= 0) {
      const bool left_out = path.find("/sys/bus") != std::string::npos || path.ends_with("/subsystem") ||
                            path.ends_with("/driver") || path.ends_with("/bdi");
      EXPECT_TRUE(left_out || m.stat(path.c_str(), &mode) >= 0) << "dangling link " << path;
      return;
    }
    const int64_t size = m.stat(path.c_str(), &mode);
    if (S_ISDIR(mode)) return directory(path);
    files++;
    const std::string text = read_all(m, path);
    if ((mode & 0444) == 0) {
      EXPECT_EQ(text, "error 13") << path;
    } else if (size == 4096 && !path.ends_with("/mbox") && !path.ends_with("/tibra") &&
               !path.ends_with("/slimem")) {
      EXPECT_TRUE(text.empty() || (text.back() == '\n' && text.find('\0') == std::string::npos)) << path;
      form(path, text);
    }
    if ((mode & 0222) == 0) {
      EXPECT_EQ(write_all(m, path, "1"), -EACCES) << path;
    }
  }

  void form(const std::string &path, const std::string &text) {
    static const std::pair<std::regex, std::regex> kForms[] = {
        {std::regex(".*/(port|node|fabric)_name"), std::regex("0x[0-9a-f]{16}\n")},
        {std::regex(".*/port_id"), std::regex("0x[0-9a-f]{6}\n")},
        {std::regex(".*/maxframe_size"), std::regex("[0-9]+ bytes\n")},
        {std::regex(".*/supported_classes"), std::regex("Class [1-4](, Class [1-4])*\n")},
        {std::regex(".*/(supported|active)_fc4s"), std::regex("(0x[0-9a-f]{2} ){32}\n")},
        {std::regex(".*/(supported_)?speeds?"), std::regex("[0-9]+ Gbit(, [0-9]+ Gbit)*\n")},
        {std::regex(".*/statistics/[a-z_]+"), std::regex("0x[0-9a-f]{1,16}\n")},
        {std::regex(".*/scsi_target_id"), std::regex("(-1|[0-9]+)\n")},
        {std::regex(".*/fwrev"), std::regex("[^ ]+, sli-[34](:[0-9])?\n")},
        {std::regex(".*/(vendor|device|subsystem_(vendor|device))"),
         std::regex("0x[0-9a-f]{4}\n|[A-Z]+ *\n")},
        {std::regex(".*/dev"), std::regex("[0-9]+:[0-9]+\n")},
        {std::regex(".*/wwid"), std::regex("naa[.][0-9a-f]{16}\n")},
    };
    for (size_t i = 0; i < std::size(kForms); i++) {
      const auto &[name, pattern] = kForms[i];
      if (!std::regex_match(path, name) || path.ends_with("reset_statistics")) continue;
      EXPECT_TRUE(std::regex_match(text, pattern)) << path << ": " << text;
      matched.insert(i);
    }
  }

  void directory(const std::string &path) {
    std::vector<std::string> names;
    EXPECT_EQ(m.list(path.c_str(), "", names), 0) << path;
    for (const std::string &name : names)
      entry(std::string(path).append("/").append(name));
  }
};

TEST(SimTree, HoldsTheRulesOfSysfsEverywhere) {
  sim::Machine m;
  sim::default_san(m);
  Walk walk{m};
  walk.directory("/sys");
  EXPECT_GT(walk.files, 4000u);
  EXPECT_EQ(walk.matched.size(), 12u) << "a form that nothing was held to";
  std::vector<std::string> names;
  m.list("/sys/class/scsi_host", "", names);
  EXPECT_FALSE(std::is_sorted(names.begin(), names.end()));  // callers must not count on an order
}

TEST(SimParameters, RefuseWhatTheDriverRefuses) {
  sim::Machine m;
  sim::default_san(m);
  const std::string speed = "/sys/class/scsi_host/host2/vosk_link_speed";
  EXPECT_EQ(write_all(m, speed, "nolip 0x8\n"), 10);
  EXPECT_EQ(read_all(m, speed), "0x8\n");
  EXPECT_EQ(write_all(m, speed, "17\n"), -EINVAL);
  EXPECT_EQ(write_all(m, speed, "fast\n"), -EINVAL);
  EXPECT_EQ(read_all(m, speed), "0x8\n");
}

TEST(SimFaults, HitTheNthCallOnceOrForGood) {
  sim::Machine m;
  sim::default_san(m);
  const std::string path = "/sys/class/scsi_host/host2/fwrev";
  m.fail({.verb = sim::Verb::open, .path = "fwrev", .nth = 2, .error = EACCES});
  EXPECT_EQ(read_all(m, path).substr(0, 5), "10.4.");
  EXPECT_EQ(read_all(m, path), "error 13");
  EXPECT_EQ(read_all(m, path).substr(0, 5), "10.4.");
  m.clear_faults();
  m.fail({.verb = sim::Verb::read, .persistent = true, .short_count = 3});
  EXPECT_EQ(read_all(m, path), "10.");
  m.clear_faults();
  m.fail_nth(2, true);  // the read, and the close after it
  EXPECT_EQ(read_all(m, path), "error 5");
  EXPECT_EQ(m.open_fds(), 0u);
}

TEST(SimLocks, BlockUntilTheHolderLetsGo) {
  sim::Machine m;
  sim::default_san(m);
  const char *path = "/sys/class/scsi_host/host2/mbox";
  const int first = m.open(path, O_RDWR, 0), second = m.open(path, O_RDWR, 0);
  ASSERT_EQ(m.lock(first, LOCK_EX), 0);
  EXPECT_EQ(m.lock(second, LOCK_EX | LOCK_NB), -EWOULDBLOCK);
  std::atomic<bool> got{false};
  std::thread waiter([&] {
    m.lock(second, LOCK_EX);
    got = true;
  });
  EXPECT_FALSE(got);
  m.close(first);
  waiter.join();
  EXPECT_TRUE(got);
  EXPECT_EQ(m.held_locks(), 1u);
  m.close(second);
  EXPECT_EQ(m.held_locks(), 0u);
}

TEST(SimState, IsSharedByTheMachinesOnAFolder) {
  char folder[] = "/tmp/hcxsim-test-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  {
    sim::Machine a, b;
    sim::default_san(a);
    sim::default_san(b);
    a.use_state(folder);
    b.use_state(folder);
    EXPECT_EQ(write_all(a, "/sys/class/scsi_host/host2/vosk_nodev_tmo", "77\n"), 3);
    EXPECT_EQ(read_all(b, "/sys/class/scsi_host/host2/vosk_nodev_tmo"), "77\n");
    const int fd = a.open("/tmp/note", O_WRONLY | O_CREAT, 0600);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(a.write(fd, "hello", 5), 5);
    a.close(fd);
    EXPECT_EQ(read_all(b, "/tmp/note"), "hello");
    const char *mbox = "/sys/class/scsi_host/host2/mbox";
    const int mine = a.open(mbox, O_RDWR, 0), theirs = b.open(mbox, O_RDWR, 0);
    EXPECT_EQ(a.lock(mine, LOCK_EX), 0);
    EXPECT_EQ(b.lock(theirs, LOCK_EX | LOCK_NB), -EWOULDBLOCK);
    a.close(mine);
    EXPECT_EQ(b.lock(theirs, LOCK_EX | LOCK_NB), 0);
    b.close(theirs);
  }
  std::filesystem::remove_all(folder);
}

TEST(SimVports, ComeAndGoThroughSysfs) {
  const struct {
    int generation;
    std::string dir, create, scsi_link;
  } rows[] = {
      {2, "/sys/class/fc_host/host3/", "2001000000000001:2101000000000001\n",
       "../../devices/pci0000:00/0000:00:04.0/0000:04:00.0/host3/vport-3:0-0/host4/scsi_host/host4"},
      {1, "/sys/class/scsi_host/host3/", "2001000000000001:2101000000000001 db1\n", "error 22"},
  };
  for (const auto &row : rows) {
    sim::Machine m;
    m.generation(row.generation);
    m.add_host({.number = 3, .pci = "0000:04:00.0", .max_vports = 1});
    for (const char *bad : {"2001000000000001\n", "2001000000000001-2101000000000001",
                            "x001000000000001:2101000000000001", "0000000000000000:0000000000000000"}) {
      EXPECT_EQ(write_all(m, row.dir + "vport_create", bad), -EINVAL) << bad;
    }
    const auto size = static_cast<int>(row.create.size());
    EXPECT_EQ(write_all(m, row.dir + "vport_create", row.create), size);
    EXPECT_EQ(link(m, "/sys/class/scsi_host/host4"), row.scsi_link);
    EXPECT_EQ(read_all(m, "/sys/class/scsi_host/host4/npiv_info"), "NPIV Virtual (VPI 1)\n");
    EXPECT_EQ(read_all(m, "/sys/class/fc_host/host4/port_name"), "0x2001000000000001\n");
    EXPECT_EQ(m.stat("/sys/class/fc_host/host4/issue_lip", nullptr), -ENOENT);
    EXPECT_EQ(read_all(m, row.dir + "npiv_vports_inuse"), "1\n");
    EXPECT_EQ(write_all(m, row.dir + "vport_create", "2002000000000001:2102000000000001"), -ENOSPC);
    EXPECT_EQ(write_all(m, row.dir + "vport_delete", "2001000000000001:2102000000000001"), -ENODEV);
    const int held = m.open("/sys/class/scsi_host/host4/fwrev", O_RDONLY, 0);
    EXPECT_EQ(write_all(m, row.dir + "vport_delete", "2001000000000001:2101000000000001"), 33);
    char byte;
    EXPECT_EQ(m.read(held, &byte, 1), -ENODEV);
    m.close(held);
    EXPECT_EQ(m.stat("/sys/class/scsi_host/host4", nullptr), -ENOENT);
    EXPECT_EQ(read_all(m, row.dir + "npiv_vports_inuse"), "0\n");
  }
}

TEST(SimVports, AreSeenByTheOtherMachineOnAFolder) {
  char folder[] = "/tmp/hcxsim-test-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  {
    sim::Machine a, b;
    for (sim::Machine *m : {&a, &b}) {
      sim::default_san(*m);  // with host12, a virtual port of host2
      m->use_state(folder);
    }
    EXPECT_EQ(write_all(a, "/sys/class/fc_host/host2/vport_create", "2002000000000001:2102000000000001"), 33);
    EXPECT_EQ(read_all(b, "/sys/class/fc_vports/vport-2:0-1/port_name"), "0x2002000000000001\n");
    EXPECT_EQ(write_all(b, "/sys/class/fc_vports/vport-2:0-0/vport_delete", "1\n"), 2);
    EXPECT_EQ(a.stat("/sys/class/scsi_host/host12", nullptr), -ENOENT);
    EXPECT_EQ(read_all(a, "/sys/class/fc_host/host2/npiv_vports_inuse"), "1\n");
    // What was written to a port goes with it, however often its numbers are given again.
    const std::string dir = "/sys/class/fc_vports/vport-2:0-1/", name = "2002000000000001:2102000000000001";
    EXPECT_EQ(write_all(a, dir + "symbolic_name", "db1"), 3);
    EXPECT_EQ(write_all(a, "/sys/class/fc_host/host2/vport_delete", name), 33);
    sim::Machine c;
    sim::default_san(c);
    c.use_state(folder);
    EXPECT_EQ(write_all(c, "/sys/class/fc_host/host2/vport_create", name), 33);
    sim::Machine d;
    sim::default_san(d);
    d.use_state(folder);
    EXPECT_EQ(d.vfs().names("/sys/class/fc_vports").size(), 1U);
    const std::string again = "/sys/class/fc_vports/" + d.vfs().names("/sys/class/fc_vports").front() + "/";
    EXPECT_EQ(read_all(d, again + "port_name"), "0x2002000000000001\n");
    EXPECT_EQ(read_all(d, again + "symbolic_name"), "\n");
  }
  std::filesystem::remove_all(folder);
}

}  // namespace
