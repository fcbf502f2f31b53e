// SPDX-License-Identifier: BSD-3-Clause
// The door to the real machine, on real files: what each verb answers and refuses, and discovery of LUNs by way of a
// directory that is held open. Everything lies in a folder of the test's own.
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "libhcx.h"
#include "rooted_machine.h"

namespace {

namespace fs = std::filesystem;
using hcx::sysio::machine;

class Sysio : public testing::Test {
 protected:
  Sysio() {
    std::string name = (fs::temp_directory_path() / "hcx_sysio_XXXXXX").string();
    root = mkdtemp(name.data());
  }
  ~Sysio() override { fs::remove_all(root); }
  [[nodiscard]] std::string at(const std::string &name) const { return root + "/" + name; }
  void put(const std::string &name, const std::string &text = "") const {
    fs::create_directories(fs::path(at(name)).parent_path());
    std::ofstream(at(name)) << text;
  }
  void link(const std::string &name, const std::string &to) const {
    fs::create_directories(fs::path(at(name)).parent_path());
    fs::create_symlink(to, at(name));
  }

  std::string root;
};

TEST_F(Sysio, FilesFromBeginningToEnd) {
  auto &m = machine();
  const std::string path = at("file"), other = at("other");
  ::close(STDIN_FILENO);  // an application may have done so
  const int fd = m.open(path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
  ASSERT_GT(fd, STDERR_FILENO) << "never a standard stream";
  EXPECT_EQ(::fcntl(fd, F_GETFD), FD_CLOEXEC);
  EXPECT_EQ(::fcntl(STDIN_FILENO, F_GETFD), -1);
  EXPECT_EQ(m.write(fd, "0123456789", 10), 10);
  EXPECT_EQ(m.seek(fd, 4), 4);
  char text[16] = {};
  EXPECT_EQ(m.read(fd, text, sizeof text), 6);
  EXPECT_STREQ(text, "456789");
  EXPECT_EQ(m.truncate(fd, 3), 0);
  EXPECT_EQ(m.sync(fd), 0);
  mode_t mode = 0;
  nlink_t links = 0;
  EXPECT_EQ(m.stat(path.c_str(), &mode), 3);
  EXPECT_EQ(mode, S_IFREG | 0600u);
  fs::create_hard_link(path, other);
  EXPECT_EQ(m.fstat(fd, &mode, &links), 0);
  EXPECT_EQ(links, 2u);
  const int second = m.open(path.c_str(), O_RDONLY);
  EXPECT_EQ(m.lock(fd, LOCK_EX), 0);
  EXPECT_EQ(m.lock(second, LOCK_EX | LOCK_NB), -EWOULDBLOCK) << "a lock belongs to the opening";
  EXPECT_EQ(m.lock(fd, LOCK_UN), 0);
  EXPECT_EQ(m.lock(second, LOCK_EX | LOCK_NB), 0);
  EXPECT_EQ(m.close(second), 0);
  EXPECT_EQ(m.rename(path.c_str(), at("new").c_str()), 0);
  EXPECT_EQ(m.unlink(other.c_str()), 0);
  EXPECT_EQ(m.close(fd), 0);
  const mode_t before = m.set_umask(027);
  EXPECT_EQ(m.set_umask(before), 027u);

  const std::pair<const char *, int64_t> refused[] = {
      {"closed", m.close(fd)},         {"read", m.read(fd, text, 1)}, {"write", m.write(fd, text, 1)},
      {"seek", m.seek(fd, 0)},         {"lock", m.lock(fd, LOCK_EX)}, {"fstat", m.fstat(fd, &mode, nullptr)},
      {"truncate", m.truncate(fd, 0)}, {"sync", m.sync(fd)},
  };
  for (const auto &[what, result] : refused)
    EXPECT_EQ(result, -EBADF) << what;
  EXPECT_EQ(m.open(path.c_str(), O_RDONLY), -ENOENT);
  EXPECT_EQ(m.stat(path.c_str()), -ENOENT);
  EXPECT_EQ(m.unlink(path.c_str()), -ENOENT);
  EXPECT_EQ(m.rename(path.c_str(), other.c_str()), -ENOENT);
}

TEST_F(Sysio, DirectoriesByPathAndHeldOpen) {
  auto &m = machine();
  std::vector<std::string> expected;
  for (int i = 0; i < 700; ++i) {  // more than the kernel hands out at once
    const std::string name = (i % 2 ? "odd-" : "even-") + std::to_string(i);
    put("all/" + name);
    if (i % 2) expected.push_back(name);
  }
  std::sort(expected.begin(), expected.end());
  link("all/link", "../../some/where");
  std::vector<std::string> names = {"kept"};
  EXPECT_EQ(m.list(at("all").c_str(), "odd-", names), 0);
  EXPECT_EQ(names.front(), "kept");
  std::sort(names.begin() + 1, names.end());
  EXPECT_TRUE(std::equal(names.begin() + 1, names.end(), expected.begin(), expected.end()));
  names.clear();
  EXPECT_EQ(hcx::sysio::list_sorted(at("all").c_str(), "", names), 0);
  EXPECT_EQ(names.size(), 701u) << "without . and ..";
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));

  const int dir = m.open(root.c_str(), O_PATH | O_DIRECTORY);
  ASSERT_GE(dir, 0);
  names.clear();
  EXPECT_EQ(m.list_at(dir, "all", "odd-", names), 0);
  EXPECT_EQ(names.size(), expected.size());
  names.clear();
  EXPECT_EQ(m.list_at(dir, ".", "", names), 0);
  EXPECT_EQ(names, std::vector<std::string>{"all"});
  char text[64];
  EXPECT_EQ(m.read_link_at(dir, "all/link", text, sizeof text), 16);
  EXPECT_EQ(std::string(text, 16), "../../some/where");
  EXPECT_EQ(m.read_link(at("all/link").c_str(), text, 5), 5) << "cut, not refused";
  EXPECT_EQ(m.read_link_at(dir, "all", text, sizeof text), -EINVAL);
  EXPECT_EQ(m.read_link_at(dir, "none", text, sizeof text), -ENOENT);
  EXPECT_EQ(m.list_at(dir, "none", "", names), -ENOENT);
  EXPECT_EQ(m.list_at(dir, "all/even-0", "", names), -ENOTDIR);
  EXPECT_EQ(m.close(dir), 0);
  EXPECT_EQ(m.read_link_at(dir, "all/link", text, sizeof text), -EBADF);
}

// The forms that kernels of different age give the device directory of a LUN.
TEST_F(Sysio, DeviceNamesFromARealTree) {
  struct Case {
    uint64_t lun;
    const char *what, *generic, *block, *tape;
  };
  const std::string of = "sys/devices/host3/target/3:0:7:";
  fs::create_directories(at(of + "0/block/sdb"));
  link(of + "0/generic", "scsi_generic/sg4");
  link(of + "1/block", "../../../../block/sdc");
  link(of + "2/tape", "scsi_tape/st0");
  link(of + "2/generic", "scsi_generic/sg6");
  link(of + "3/block:sdd", "../../../../block/sdd");
  fs::create_directories(at(of + "4"));
  for (int lun = 0; lun < 5; ++lun)
    link("sys/class/scsi_device/3:0:7:" + std::to_string(lun),
         "../../devices/host3/target/3:0:7:" + std::to_string(lun) + "/scsi_device");
  for (int lun = 0; lun < 5; ++lun)
    link(of + std::to_string(lun) + "/scsi_device/device", "../../3:0:7:" + std::to_string(lun));

  RootedMachine rooted(machine(), root);
  LIBHCX_private_set_machine(&rooted);
  hcx_host host = {};
  host.id = 3;
  hcx_port port = {};
  port.host = &host;
  port.scsi_target_id = 7;
  const auto same = [](const char *got, const char *wanted) {
    return std::string(got ? got : "none") == (wanted ? wanted : "none");
  };
  for (const Case &c : std::initializer_list<Case>{
           {0, "a directory of blocks", "/dev/sg4", "/dev/sdb", nullptr},
           {1, "a link to the block", nullptr, "/dev/sdc", nullptr},
           {2, "a tape", "/dev/sg6", nullptr, "/dev/st0"},
           {3, "a link named after the block", nullptr, "/dev/sdd", nullptr},
           {4, "no driver bound", nullptr, nullptr, nullptr},
           {5, "no such device", nullptr, nullptr, nullptr},
       }) {
    auto *lun = static_cast<hcx_lun *>(calloc(1, sizeof(hcx_lun)));
    lun->id = c.lun;
    lun->port = &port;
    hcx_sysfs_scan_lun(lun);
    EXPECT_TRUE(same(lun->generic_scsi_dev, c.generic)) << c.what;
    EXPECT_TRUE(same(lun->block_dev, c.block)) << c.what;
    EXPECT_TRUE(same(lun->tape_dev, c.tape)) << c.what;
    hcx::destroy_lun(lun);
  }
  LIBHCX_private_set_machine(nullptr);
}

}  // namespace
