// SPDX-License-Identifier: BSD-3-Clause
// A mailbox round trip through the library, and the same system calls with nothing around them. The files are real, on
// a directory tree; the driver's part, the copying of one block each way, is played by the bench in both. What to look
// at: "ratio" (library / bare calls).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <linux/bsg.h>
#include <scsi/sg.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "libhcx.h"
#include "rooted_machine.h"

namespace {

namespace fs = std::filesystem;

constexpr size_t block_bytes = 4096;

std::string make_tree() {
  char name[] = "/tmp/hcx_bench_XXXXXX";
  const std::string root = mkdtemp(name);
  for (const char *file : {"/sys/class/scsi_host/host3/mbox", "/dev/bsg/fc_host3"}) {
    fs::create_directories(fs::path(root + file).parent_path());
    if (FILE *made = fopen((root + file).c_str(), "w")) fclose(made);
  }
  return root;
}

// What the driver does with a request: the kernel is entered once and a block goes there and comes back.
int play_driver(int fd, const void *request, void *reply) {
  benchmark::DoNotOptimize(::ioctl(fd, SG_IO, nullptr));  // no such node here: ENOTTY
  memcpy(reply, request, block_bytes);
  return 0;
}

class DriverMachine final : public RootedMachine {
 public:
  using RootedMachine::RootedMachine;
  int ioctl(int fd, unsigned long, void *arg) override {
    const auto &header = *static_cast<const sg_io_v4 *>(arg);
    auto *reply = reinterpret_cast<uint32_t *>(static_cast<uintptr_t>(header.response));
    reply[1] = block_bytes;
    return play_driver(fd, reinterpret_cast<const void *>(static_cast<uintptr_t>(header.dout_xferp)),
                       reinterpret_cast<void *>(static_cast<uintptr_t>(header.din_xferp)));
  }
};

bool bare_round_trip(const std::string &lock_file, const std::string &node, const uint8_t *request,
                     uint8_t *reply) {
  const int lock = open(lock_file.c_str(), O_RDWR | O_CLOEXEC);
  flock(lock, LOCK_EX);
  const int fd = open(node.c_str(), O_RDWR | O_CLOEXEC);
  const bool good = lock >= 0 && fd >= 0 && play_driver(fd, request, reply) == 0;
  close(fd);
  flock(lock, LOCK_UN);
  close(lock);
  return good;
}

double seconds_since(const timespec &start) {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec - start.tv_sec) +
         static_cast<double>(now.tv_nsec - start.tv_nsec) * 1e-9;
}

void mailbox_round_trip(benchmark::State &state) {
  const std::string root = make_tree();
  DriverMachine machine(hcx::sysio::machine(), root);
  LIBHCX_private_set_machine(&machine);
  char firmware_revision[] = "11.4.142.25, sli-3:0";
  hcx_host host = {};
  host.id = 3;
  host.firmware_revision = firmware_revision;
  pthread_rwlock_init(&host.rwlock, nullptr);
  hcx_host_list = &host;

  const std::string lock_file = root + "/sys/class/scsi_host/host3/mbox", node = root + "/dev/bsg/fc_host3";
  double library = 0, bare = 0;
  for (auto _ : state) {
    MAILBOX_t mb = {};
    hcx_mbox_set_command(&mb, MBX_READ_NV);
    timespec start;
    clock_gettime(CLOCK_MONOTONIC, &start);
    const uint32_t result = IssueMbox(0, &mb, 32, 128);
    const double took = seconds_since(start);
    if (result != 0) state.SkipWithError("the mailbox failed");
    library += took;

    uint8_t request[block_bytes] = {}, reply[block_bytes];
    clock_gettime(CLOCK_MONOTONIC, &start);
    if (!bare_round_trip(lock_file, node, request, reply)) state.SkipWithError("the bare calls failed");
    bare += seconds_since(start);
    benchmark::DoNotOptimize(reply);
    state.SetIterationTime(took);
  }
  hcx_host_list = nullptr;
  LIBHCX_private_set_machine(nullptr);
  pthread_rwlock_destroy(&host.rwlock);
  fs::remove_all(root);
  const auto rounds = static_cast<double>(state.iterations());
  state.counters["library_us"] = library / rounds * 1e6;
  state.counters["bare_us"] = bare / rounds * 1e6;
  state.counters["ratio"] = library / bare;
}

}  // namespace

BENCHMARK(mailbox_round_trip)->UseManualTime()->Unit(benchmark::kMicrosecond);
