// SPDX-License-Identifier: BSD-3-Clause
// map_bench [TARGETS LUNS]: "hcxadm map --output json" beside "lsscsi -t -i", on one directory tree on disk.
//
// The tree is that of a simulated machine, written out file by file. hcxadm's library reads it with the same system
// calls that it would use under /sys; INQUIRY commands, which no tree can answer, go to the simulated LUNs. Both run in
// a process of their own for each round, and hcxadm's time includes start-up and discovery.
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>

#include "hcxadm.h"
#include "sim_machine.h"

namespace {

constexpr int kRounds = 5;

// The simulated machine, but /sys is read from a directory.
class OnDisk : public sim::Machine {
 public:
  std::string root;

  int open(const char *path, int flags, mode_t mode) override {
    if (!in_sys(path)) return sim::Machine::open(path, flags, mode);
    const int fd = ::open((root + path).c_str(), flags | O_CLOEXEC, mode);
    return fd < 0 ? -errno : fd + kReal;
  }
  int close(int fd) override { return fd < kReal ? sim::Machine::close(fd) : ::close(fd - kReal); }
  ssize_t read(int fd, void *buf, size_t count) override {
    return fd < kReal ? sim::Machine::read(fd, buf, count) : ::read(fd - kReal, buf, count);
  }
  off_t seek(int fd, off_t offset) override {
    return fd < kReal ? sim::Machine::seek(fd, offset) : ::lseek(fd - kReal, offset, SEEK_SET);
  }
  int64_t stat(const char *path, mode_t *mode) override {
    if (!in_sys(path)) return sim::Machine::stat(path, mode);
    struct stat found;
    if (::stat((root + path).c_str(), &found) != 0) return -errno;
    if (mode) *mode = found.st_mode;
    return found.st_size;
  }
  int list(const char *path, const char *prefix, std::vector<std::string> &names) override {
    if (!in_sys(path)) return sim::Machine::list(path, prefix, names);
    DIR *dir = ::opendir((root + path).c_str());
    if (!dir) return -errno;
    while (const dirent *entry = ::readdir(dir))
      if (entry->d_name[0] != '.' && strncmp(entry->d_name, prefix, strlen(prefix)) == 0)
        names.emplace_back(entry->d_name);
    ::closedir(dir);
    return 0;
  }
  ssize_t read_link(const char *path, char *buf, size_t size) override {
    if (!in_sys(path)) return sim::Machine::read_link(path, buf, size);
    const ssize_t length = ::readlink((root + path).c_str(), buf, size);
    return length < 0 ? -errno : length;
  }

 private:
  static constexpr int kReal = 1 << 20;  // above the simulated machine's own descriptors
  static bool in_sys(const char *path) { return strncmp(path, "/sys/", 5) == 0; }
};

void write_tree(sim::Vfs &vfs, const std::string &path, const std::string &root) {
  std::filesystem::create_directories(root + path);
  for (const std::string &name : vfs.names(path)) {
    const std::string at = path + "/" + name;
    const auto node = vfs.find(at, false);
    if (node->kind == sim::NodeKind::dir)
      write_tree(vfs, at, root);
    else if (node->kind == sim::NodeKind::link)
      std::filesystem::create_symlink(node->data, root + at);
    else
      std::ofstream(root + at) << vfs.text(at);
  }
}

struct Times {
  double wall, cpu;
};

// Milliseconds of each round, the quickest first; empty when one failed. On a busy machine only the processor time means
// something.
std::vector<Times> rounds(const std::function<int()> &child) {
  std::vector<Times> times;
  for (int i = 0; i < kRounds; ++i) {
    const auto start = std::chrono::steady_clock::now();
    const pid_t pid = fork();
    if (pid == 0) _exit(child());
    int status = 0;
    rusage used = {};
    wait4(pid, &status, 0, &used);
    if (status != 0) return {};
    const auto ms = [](const timeval &t) {
      return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_usec) / 1e3;
    };
    times.push_back(
        {std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count(),
         ms(used.ru_utime) + ms(used.ru_stime)});
  }
  std::sort(times.begin(), times.end(), [](const Times &x, const Times &y) { return x.cpu < y.cpu; });
  return times;
}

void report(const char *what, const std::vector<Times> &times) {
  if (times.empty()) {
    printf("%-28s failed\n", what);
    return;
  }
  const Times &median = times[times.size() / 2];
  printf("%-28s processor: best %.0f ms, median %.0f ms; wall at the median: %.0f ms\n", what,
         times.front().cpu, median.cpu, median.wall);
}

}  // namespace

int main(int argc, char **argv) {
  setvbuf(stdout, nullptr, _IOLBF, 0);
  const int targets = argc > 1 ? atoi(argv[1]) : 16;
  const int luns = argc > 2 ? atoi(argv[2]) : 256;
  char folder[] = "/dev/shm/map_bench.XXXXXX";  // in memory, as sysfs is
  if (!mkdtemp(folder)) return 1;

  OnDisk machine;
  sim::scaled_san(machine, 1, targets, luns);
  write_tree(machine.vfs(), "/sys", folder);
  machine.root = folder;
  const sim::Installed installed(machine);

  printf("%d LUNs behind %d targets\n", targets * luns, targets);
  const auto hcxadm_json = [](const char *noun) {
    return rounds([noun] {
      std::istringstream in;
      std::ostringstream out;
      return hcxadm::run({noun, "--output", "json"}, in, out, std::cerr);
    });
  };
  report("hcxadm map --output json", hcxadm_json("map"));
  report("hcxadm lun --output json", hcxadm_json("lun"));  // without commands to the LUNs, as lsscsi
  const std::string sysfs = std::string(folder) + "/sys";
  report("lsscsi -t -i", rounds([&] {
           const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
           ::dup2(null, STDOUT_FILENO);
           execlp("lsscsi", "lsscsi", "-y", sysfs.c_str(), "-t", "-i", static_cast<char *>(nullptr));
           return 127;
         }));
  std::filesystem::remove_all(folder);
  return 0;
}
