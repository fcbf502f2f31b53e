// SPDX-License-Identifier: BSD-3-Clause
// Start-up on hosts with many LUNs: time per LUN of the library on a real directory tree, and of a floor program that
// makes the same system calls and nothing else. What to look at: "ratio" (library / floor) and whether the time per
// LUN stays the same from the smallest to the largest tree.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <linux/bsg.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>

#include "libhcx.h"
#include "rooted_machine.h"

namespace {

namespace fs = std::filesystem;

constexpr int host_count = 4;
constexpr int targets_per_host = 16;

void put(const fs::path &file, const std::string &text) {
  fs::create_directories(file.parent_path());
  std::ofstream(file) << text << '\n';
}

void put_link(const fs::path &link, const std::string &target) {
  fs::create_directories(link.parent_path());
  fs::create_symlink(target, link);
}

std::string name64(uint64_t value) {
  char text[19];
  snprintf(text, sizeof text, "0x%016llx", static_cast<unsigned long long>(value));
  return text;
}

// A tree with the forms of a present kernel: class entries are links into the devices, "block" is a directory.
class Tree {
 public:
  explicit Tree(int luns) : luns_(luns) {
    char name[] = "/tmp/hcx_bench_XXXXXX";
    root_ = mkdtemp(name);
    const int luns_per_target = luns / host_count / targets_per_host;
    for (int host = 0; host < host_count; ++host) {
      add_host(host);
      for (int target = 0; target < targets_per_host; ++target) {
        add_target(host, target);
        for (int lun = 0; lun < luns_per_target; ++lun)
          add_lun(host, target, lun);
      }
    }
  }
  Tree(const Tree &) = delete;
  Tree &operator=(const Tree &) = delete;
  ~Tree() { fs::remove_all(root_); }

  const std::string &root() const { return root_; }
  int luns() const { return luns_; }

 private:
  static std::string pci(int host) {
    char text[64];
    snprintf(text, sizeof text, "devices/pci0000:00/0000:%02x:00.0", host + 1);
    return text;
  }
  fs::path sys() const { return fs::path(root_) / "sys"; }

  void add_host(int host) {
    const std::string name = "host" + std::to_string(host);
    const std::string device = pci(host) + "/" + name;
    const fs::path scsi = sys() / device / "scsi_host" / name;
    for (const auto &[file, text] : std::map<std::string, std::string>{{"npiv_info", "NPIV Physical"},
                                                                       {"vosk_log_verbose", "0x0"},
                                                                       {"vosk_topology", "0x0"},
                                                                       {"unique_id", std::to_string(host)},
                                                                       {"vosk_temp_sensor", "1"},
                                                                       {"nport_evt_cnt", "0"},
                                                                       {"info", "adapter"},
                                                                       {"serialnum", "QV1"},
                                                                       {"hdw", "31004549"},
                                                                       {"fwrev", "1.0, sli-4:2"},
                                                                       {"option_rom_version", "5.11"},
                                                                       {"protocol", "fc"},
                                                                       {"board_mode", "online"},
                                                                       {"vosk_drvr_version", "driver 8.2.0"}})
      put(scsi / file, text);
    put_link(sys() / "class/scsi_host" / name, "../../" + device + "/scsi_host/" + name);
    const fs::path fc = sys() / device / "fc_host" / name;
    put(fc / "port_id", "0x010100");
    put(fc / "port_name", name64(0x10000000c9000000 + static_cast<unsigned>(host)));
    put(fc / "node_name", name64(0x20000000c9000000 + static_cast<unsigned>(host)));
    put_link(sys() / "class/fc_host" / name, "../../" + device + "/fc_host/" + name);
    for (const char *file : {"irq", "device", "vendor"})
      put(sys() / pci(host) / file, "0x1d5a");
    put(fs::path(root_) / "dev/bsg" / ("fc_" + name), "");
  }

  void add_target(int host, int target) {
    const std::string name = "rport-" + std::to_string(host) + ":0-" + std::to_string(target);
    const std::string device =
        pci(host) + "/host" + std::to_string(host) + "/" + name + "/fc_remote_ports/" + name;
    put(sys() / device / "roles", "FCP Target");
    put(sys() / device / "port_state", "Online");
    put(sys() / device / "scsi_target_id", std::to_string(target));
    put(sys() / device / "port_id", "0x010200");
    put(sys() / device / "port_name", name64(0x5006016000000000 + static_cast<unsigned>(target)));
    put(sys() / device / "node_name", name64(0x5006016080000000 + static_cast<unsigned>(target)));
    put_link(sys() / "class/fc_remote_ports" / name, "../../" + device);
  }

  void add_lun(int host, int target, int lun) {
    const std::string h = std::to_string(host), t = std::to_string(target);
    const std::string name = h + ":0:" + t + ":" + std::to_string(lun);
    const std::string device =
        pci(host) + "/host" + h + "/rport-" + h + ":0-" + t + "/target" + h + ":0:" + t + "/" + name;
    fs::create_directories(sys() / device / "block" / ("sd" + std::to_string(next_)));
    put_link(sys() / device / "generic", "scsi_generic/sg" + std::to_string(next_));
    put_link(sys() / device / "scsi_device" / name / "device", "../../../" + name);
    put_link(sys() / "class/scsi_device" / name, "../../" + device + "/scsi_device/" + name);
    ++next_;
  }

  std::string root_;
  int luns_;
  int next_ = 0;
};

// Counts what goes through the door; the driver's node answers the revision query.
class CountingMachine final : public RootedMachine {
 public:
  using RootedMachine::RootedMachine;
  uint64_t calls = 0;

  int open(const char *path, int flags, mode_t mode) override {
    return ++calls, RootedMachine::open(path, flags, mode);
  }
  int close(int fd) override { return ++calls, RootedMachine::close(fd); }
  ssize_t read(int fd, void *buf, size_t count) override {
    return ++calls, RootedMachine::read(fd, buf, count);
  }
  int list(const char *path, const char *prefix, std::vector<std::string> &names) override {
    calls += 4;  // open, two reads, close
    return RootedMachine::list(path, prefix, names);
  }
  ssize_t read_link(const char *path, char *buf, size_t size) override {
    return ++calls, RootedMachine::read_link(path, buf, size);
  }
  int ioctl(int, unsigned long, void *arg) override {
    ++calls;
    auto &header = *static_cast<sg_io_v4 *>(arg);
    auto *reply = reinterpret_cast<uint32_t *>(static_cast<uintptr_t>(header.response));
    reply[2] = 2;
    return 0;
  }
};

// The calls that cannot be done without, for each LUN: three links and the directory with the disk. Confirming that the
// driver answers reads the first host anew, as every request to a board does.
void floor_lun(const std::string &device) {
  char text[256];
  benchmark::DoNotOptimize(readlink((device + "/generic").c_str(), text, sizeof text));
  benchmark::DoNotOptimize(readlink((device + "/block").c_str(), text, sizeof text));
  benchmark::DoNotOptimize(readlink((device + "/tape").c_str(), text, sizeof text));
  const int fd = open((device + "/block").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  char entries[1024];
  while (syscall(SYS_getdents64, fd, entries, sizeof entries) > 0) {
  }
  close(fd);
}

void floor_program(const Tree &tree) {
  const std::string dir = tree.root() + "/sys/class/scsi_device";
  for (const char *prefix : {"", "0:"}) {
    DIR *devices = opendir(dir.c_str());
    while (const dirent *entry = readdir(devices)) {
      if (entry->d_name[0] != '.' && strncmp(entry->d_name, prefix, strlen(prefix)) == 0)
        floor_lun(dir + "/" + entry->d_name + "/device");
    }
    closedir(devices);
  }
}

const Tree &tree_of(int luns) {
  static std::map<int, std::unique_ptr<Tree>> trees;
  auto &tree = trees[luns];
  if (!tree) tree = std::make_unique<Tree>(luns);
  return *tree;
}

double seconds_since(const timespec &start) {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec - start.tv_sec) +
         static_cast<double>(now.tv_nsec - start.tv_nsec) * 1e-9;
}

void start_up(benchmark::State &state) {
  const Tree &tree = tree_of(static_cast<int>(state.range(0)));
  CountingMachine machine(hcx::sysio::machine(), tree.root());
  LIBHCX_private_set_machine(&machine);
  std::vector<hcx_brdinfo> boards(host_count);
  double library = 0, bare = 0;
  for (auto _ : state) {
    timespec start;
    clock_gettime(CLOCK_MONOTONIC, &start);
    if (HCX_InitDiagEnv(boards.data(), static_cast<uint32_t>(boards.size())) != boards.size())
      state.SkipWithError("start-up failed");
    const double took = seconds_since(start);
    HCX_FreeDiagEnv();
    clock_gettime(CLOCK_MONOTONIC, &start);
    floor_program(tree);
    bare += seconds_since(start);
    library += took;
    state.SetIterationTime(took);
  }
  LIBHCX_private_set_machine(nullptr);
  const double total = static_cast<double>(state.iterations()) * tree.luns();
  state.counters["us_per_lun"] = library / total * 1e6;
  state.counters["floor_us_per_lun"] = bare / total * 1e6;
  state.counters["ratio"] = library / bare;
  state.counters["calls_per_lun"] = static_cast<double>(machine.calls) / total;
}

}  // namespace

BENCHMARK(start_up)->Arg(1024)->Arg(4096)->Arg(16384)->UseManualTime()->Unit(benchmark::kMillisecond);
