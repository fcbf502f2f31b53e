// SPDX-License-Identifier: BSD-3-Clause
// What the benchmarks share: the clock, the rows of the table, a directory tree as large as wanted, and a machine that
// lets the library work on it with real system calls. One thread, but for the machine, which any thread may use.
//
// Everything is measured in processor time, in turns with its floor: other programs on the machine slow both down alike.
#pragma once

#include <fcntl.h>
#include <linux/bsg.h>
#include <scsi/sg.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "libhcx.h"
#include "rooted_machine.h"

namespace bench {

// ---- Measuring ----

inline double processor_seconds() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

template <class Body>
double timed(Body &&body) {
  const double start = processor_seconds();
  body();
  return processor_seconds() - start;
}

// Processor time of a child that runs `body` and ends with its result; negative when it failed.
inline double timed_child(const std::function<int()> &body) {
  fflush(stdout);
  const pid_t pid = fork();
  if (pid == 0) _exit(body());
  int status = 0;
  rusage used = {};
  wait4(pid, &status, 0, &used);
  const auto seconds = [](const timeval &t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) * 1e-6;
  };
  return status == 0 ? seconds(used.ru_utime) + seconds(used.ru_stime) : -1;
}

inline double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// How often things are measured: "--quick" gives a third of the rounds.
struct Options {
  Options(int argc, char **argv) : quick(argc > 1 && strcmp(argv[1], "--quick") == 0) {}
  [[nodiscard]] int rounds(int full) const { return quick ? std::max(full / 3, 3) : full; }
  bool quick;
};

// A row of the table: what was measured, by the system calls it makes, and `count` of it in each round. Both bodies
// return their seconds. The ratio is the median of the rounds' ratios.
inline void row(const std::string &what, int rounds, double count, double calls,
                const std::function<double()> &measured, const std::function<double()> &floor) {
  measured();  // what is done at first use only, and the caches
  floor();
  std::vector<double> ours, bare, ratios;
  for (int i = 0; i < rounds; ++i) {
    const double b = floor(), a = measured();
    if (a < 0 || b <= 0) {
      printf("%-38s failed\n", what.c_str());
      return;
    }
    ours.push_back(a);
    bare.push_back(b);
    ratios.push_back(a / b);
  }
  char text[16] = "";
  if (calls > 0) snprintf(text, sizeof text, "%.1f", calls);
  printf("%-38s %9.3f %9.3f %7.2f %7s\n", what.c_str(), median(ours) / count * 1e6,
         median(bare) / count * 1e6, median(ratios), text);
  fflush(stdout);
}

// The compiler must take it that somebody looks at the value.
template <class T>
void keep(const T &value) {
  asm volatile("" : : "g"(&value) : "memory");
}

// ---- The tree ----

// Adapters with targets and disks behind them, in the forms of a present kernel: class entries are links into the
// devices, "block" is a directory. Lies in memory, as sysfs does, where the machine has room there.
class Tree {
 public:
  static constexpr int hosts = 4, targets = 16;  // so many targets on each host

  explicit Tree(int all_luns) : luns(all_luns) {
    std::string name = access("/dev/shm", W_OK) == 0 ? "/dev/shm/hcx_bench_XXXXXX" : "/tmp/hcx_bench_XXXXXX";
    if (!mkdtemp(name.data())) abort();
    root = name;
    for (const char *dir : {"scsi_host", "fc_host", "fc_remote_ports", "fc_transport", "scsi_device"})
      std::filesystem::create_directories(sys() + "class/" + dir);
    for (const char *dir : {"/dev/bsg", "/sys/bus/scsi/devices"})
      std::filesystem::create_directories(root + dir);
    put(root + "/dev/sg", "");
    for (int host = 0; host < hosts; ++host) {
      add_host(host);
      for (int target = 0; target < targets; ++target)
        add_target(host, target, luns / hosts / targets);
    }
  }
  Tree(const Tree &) = delete;
  Tree &operator=(const Tree &) = delete;
  ~Tree() { std::filesystem::remove_all(root); }

  [[nodiscard]] std::string sys() const { return root + "/sys/"; }

  std::string root;
  const int luns;

 private:
  using Text = std::pair<const char *, std::string>;

  static void put(const std::string &file, const std::string &text) { std::ofstream(file) << text << '\n'; }
  static void put_all(const std::string &dir, const std::vector<Text> &files) {
    std::filesystem::create_directories(dir);
    for (const auto &[file, text] : files)
      put(dir + "/" + file, text);
  }
  void link(const std::string &at, const std::string &to) const {
    if (symlink(to.c_str(), (sys() + at).c_str()) != 0) abort();
  }
  static std::string name64(uint64_t value) {
    char text[19];
    snprintf(text, sizeof text, "0x%016llx", static_cast<unsigned long long>(value));
    return text;
  }
  static std::string pci(int host) {
    return "devices/pci0000:00/0000:0" + std::to_string(host + 1) + ":00.0";
  }

  void add_host(int host) {
    const std::string name = "host" + std::to_string(host), device = pci(host) + "/" + name;
    put_all(sys() + device + "/scsi_host/" + name, {{"npiv_info", "NPIV Physical"},
                                                    {"vosk_log_verbose", "0x0"},
                                                    {"vosk_topology", "0x0"},
                                                    {"unique_id", std::to_string(host)},
                                                    {"vosk_temp_sensor", "1"},
                                                    {"nport_evt_cnt", "0"},
                                                    {"info", "adapter"},
                                                    {"serialnum", "QV1"},
                                                    {"hdw", "31004549"},
                                                    {"fwrev", "11.4.142.25, sli-3:0"},
                                                    {"option_rom_version", "5.11"},
                                                    {"protocol", "fc"},
                                                    {"board_mode", "online"},
                                                    {"vosk_drvr_version", "driver 8.2.0"},
                                                    {"mbox", ""}});
    const auto number = static_cast<unsigned>(host);
    put_all(sys() + device + "/fc_host/" + name, {{"port_id", "0x010100"},
                                                  {"port_name", name64(0x10000000c9000000 + number)},
                                                  {"node_name", name64(0x20000000c9000000 + number)},
                                                  {"port_state", "Online"},
                                                  {"port_type", "NPort (fabric via point-to-point)"},
                                                  {"symbolic_name", "adapter"},
                                                  {"speed", "16 Gbit"},
                                                  {"supported_speeds", "4 Gbit, 8 Gbit, 16 Gbit"},
                                                  {"supported_classes", "Class 3"},
                                                  {"maxframe_size", "2048 bytes"},
                                                  {"fabric_name", name64(0x100000051e000001)}});
    for (const char *one : {"scsi_host", "fc_host"})
      link(std::string("class/") + one + "/" + name, "../../" + device + "/" + one + "/" + name);
    put_all(sys() + pci(host), {{"irq", "24"}, {"device", "0x7a10"}, {"vendor", "0x1d5a"}});
    put(root + "/dev/bsg/fc_" + name, "");
  }

  void add_target(int host, int target, int count) {
    const std::string h = std::to_string(host), t = std::to_string(target), port = "rport-" + h + ":0-" + t;
    const std::string above = pci(host) + "/host" + h + "/" + port,
                      device = above + "/target" + h + ":0:" + t;
    const auto number = static_cast<unsigned>(target);
    const std::vector<Text> names = {{"port_id", "0x010200"},
                                     {"port_name", name64(0x5006016000000000 + number)},
                                     {"node_name", name64(0x5006016080000000 + number)}};
    put_all(sys() + above + "/fc_remote_ports/" + port, names);
    put_all(sys() + above + "/fc_remote_ports/" + port,
            {{"roles", "FCP Target"}, {"port_state", "Online"}, {"scsi_target_id", t}});
    put_all(sys() + device + "/fc_transport/target" + h + ":0:" + t, names);
    link("class/fc_remote_ports/" + port, "../../" + above + "/fc_remote_ports/" + port);
    link("class/fc_transport/target" + h + ":0:" + t,
         "../../" + device + "/fc_transport/target" + h + ":0:" + t);
    for (int lun = 0; lun < count; ++lun)
      add_lun(device, h + ":0:" + t + ":" + std::to_string(lun));
  }

  void add_lun(const std::string &target, const std::string &name) {
    const std::string number = std::to_string(next_++), device = target + "/" + name, at = sys() + device;
    for (const std::string &dir :
         {std::string(), std::string("/block"), "/block/sd" + number, std::string("/scsi_generic"),
          "/scsi_generic/sg" + number, std::string("/scsi_device"), "/scsi_device/" + name})
      mkdir((at + dir).c_str(), 0755);
    for (const auto &[file, text] : {Text{"vendor", "QUORVA  "}, Text{"model", "RAMSTORE        "},
                                     Text{"rev", "0001"}, Text{"type", "0"}, Text{"state", "running"}})
      put(at + "/" + file, text);
    put(at + "/block/sd" + number + "/dev", "8:0");
    put(at + "/scsi_generic/sg" + number + "/dev", "21:0");
    link(device + "/generic", "scsi_generic/sg" + number);
    link(device + "/scsi_device/" + name + "/device", "../../../" + name);
    link("class/scsi_device/" + name, "../../" + device + "/scsi_device/" + name);
    link("bus/scsi/devices/" + name, "../../../" + device);
  }

  int next_ = 0;
};

// ---- The machine ----

// Identification of a LUN as page 0x83 shows it: one name of eight bytes.
constexpr uint8_t identification[] = {0, 0x83, 0, 12, 1, 3, 0, 8, 0x60, 6, 1, 0x60, 1, 2, 3, 4};

// What the driver does with a request is played by the bench, in the floors too: the kernel is entered once, and the
// data go there and come back.
inline void play_driver(int fd, void *to, const void *from, size_t size) {
  keep(::ioctl(fd, SG_IO, nullptr));  // a plain file: ENOTTY
  memcpy(to, from, size);
}

// Files of a folder, by real system calls, which are counted. All generic nodes are one file; an adapter node answers
// every request with what was sent, and the question for the interface version with 2.0.
class Machine : public RootedMachine {
 public:
  explicit Machine(const std::string &root) : RootedMachine(hcx::sysio::machine(), root) {
    LIBHCX_private_set_machine(this);
  }
  ~Machine() override { LIBHCX_private_set_machine(nullptr); }

  std::atomic<uint64_t> calls{0};

  int open(const char *path, int flags, mode_t mode) override {
    count(1);
    return RootedMachine::open(strncmp(path, "/dev/sg", 7) == 0 ? "/dev/sg" : path, flags, mode);
  }
  int close(int fd) override { return count(1), RootedMachine::close(fd); }
  time_t now() override { return time(nullptr); }
  ssize_t read(int fd, void *buf, size_t size) override {
    return count(1), RootedMachine::read(fd, buf, size);
  }
  int lock(int fd, int operation) override { return count(1), RootedMachine::lock(fd, operation); }
  int list(const char *path, const char *prefix, std::vector<std::string> &names) override {
    count(4);  // open, two reads, close
    return RootedMachine::list(path, prefix, names);
  }
  ssize_t read_link(const char *path, char *buf, size_t size) override {
    return count(1), RootedMachine::read_link(path, buf, size);
  }
  int list_at(int dir, const char *name, const char *prefix, std::vector<std::string> &names) override {
    return count(4), RootedMachine::list_at(dir, name, prefix, names);
  }
  ssize_t read_link_at(int dir, const char *name, char *buf, size_t size) override {
    return count(1), RootedMachine::read_link_at(dir, name, buf, size);
  }
  int ioctl(int fd, unsigned long, void *arg) override {
    count(1);
    if (*static_cast<const int *>(arg) == 'S') return answer_lun(fd, *static_cast<sg_io_hdr *>(arg));
    return answer_adapter(fd, *static_cast<sg_io_v4 *>(arg));
  }

 private:
  void count(uint64_t n) { calls.fetch_add(n, std::memory_order_relaxed); }
  template <class T>
  static T *pointer(uint64_t address) {
    return reinterpret_cast<T *>(static_cast<uintptr_t>(address));
  }
  static int answer_lun(int fd, sg_io_hdr &header) {
    const size_t size = std::min<size_t>(header.dxfer_len, sizeof identification);
    play_driver(fd, header.dxferp, identification, size);
    header.resid = static_cast<int>(header.dxfer_len - size);
    header.status = 0;
    header.sb_len_wr = 0;
    return 0;
  }
  static int answer_adapter(int fd, const sg_io_v4 &header) {
    auto *reply = pointer<uint32_t>(header.response);
    reply[1] = header.din_xfer_len;
    reply[2] = 2;  // major version; minor version 0
    play_driver(fd, pointer<void>(header.din_xferp), pointer<void>(header.dout_xferp), header.din_xfer_len);
    return 0;
  }
};

// The library, started on a tree.
class Started {
 public:
  explicit Started(Machine &machine) : boards_(Tree::hosts) {
    if (HCX_InitDiagEnv(boards_.data(), Tree::hosts) != Tree::hosts) {
      fprintf(stderr, "the library does not start\n");
      exit(1);
    }
    machine.calls = 0;
  }
  Started(const Started &) = delete;
  Started &operator=(const Started &) = delete;
  ~Started() { HCX_FreeDiagEnv(); }

 private:
  std::vector<hcx_brdinfo> boards_;
};

// ---- Floors ----

// An attribute's text.
inline void floor_read(const char *path) {
  char text[256];
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  keep(read(fd, text, sizeof text));
  close(fd);
}

inline void floor_list(int dir) {
  char entries[8192];
  while (syscall(SYS_getdents64, dir, entries, sizeof entries) > 0) {
  }
  close(dir);
}

// What reading a tree takes, as paths that are ready: the directories of classes, the attributes of hosts and ports
// that the library keeps, and of each LUN the links and the directory that name its devices, by way of its directory.
class FloorScan {
 public:
  FloorScan(const Tree &tree, int first_host, int hosts) {
    const std::string classes = tree.sys() + "class/";
    for (const char *name : {"scsi_host", "fc_remote_ports", "scsi_device"})
      lists_.push_back(classes + name);
    for (int host = first_host; host < first_host + hosts; ++host) {
      const std::string h = std::to_string(host);
      for (const char *file :
           {"npiv_info", "vosk_log_verbose", "vosk_topology", "unique_id", "vosk_temp_sensor",
            "nport_evt_cnt", "info", "serialnum", "hdw", "fwrev", "option_rom_version", "protocol"})
        files_.push_back(classes + "scsi_host/host" + h + "/" + file);
      for (const char *file : {"port_id", "port_name", "node_name"})
        files_.push_back(classes + "fc_host/host" + h + "/" + file);
      for (int target = 0; target < Tree::targets; ++target)
        add_target(classes, h, std::to_string(target), tree.luns / Tree::hosts / Tree::targets);
    }
  }
  [[nodiscard]] size_t luns() const { return luns_.size(); }

  void run() const {
    for (const std::string &dir : lists_)
      floor_list(open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (const std::string &file : files_)
      floor_read(file.c_str());
    for (const std::string &device : luns_) {
      char text[256];
      const int dir = open(device.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
      for (const char *link : {"generic", "block", "tape"})
        keep(readlinkat(dir, link, text, sizeof text));
      floor_list(openat(dir, "block", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
      close(dir);
    }
  }

 private:
  void add_target(const std::string &classes, const std::string &host, const std::string &target, int count) {
    for (const char *file : {"port_state", "roles", "scsi_target_id", "port_id", "port_name", "node_name"})
      files_.push_back(classes + "fc_remote_ports/rport-" + host + ":0-" + target + "/" + file);
    for (int lun = 0; lun < count; ++lun)
      luns_.push_back(classes + "scsi_device/" + host + ":0:" + target + ":" + std::to_string(lun) +
                      "/device");
  }
  std::vector<std::string> lists_, files_, luns_;
};

// One INQUIRY to a LUN.
inline void floor_inquiry(const std::string &node) {
  uint8_t page[255];
  const int fd = open(node.c_str(), O_RDWR | O_CLOEXEC);
  play_driver(fd, page, identification, sizeof identification);
  close(fd);
  keep(page);
}

}  // namespace bench
