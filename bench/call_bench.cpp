// SPDX-License-Identifier: BSD-3-Clause
// Single calls: an attribute, a mailbox round trip, an INQUIRY, the mapping of all LUNs, and a log line, on and off.
#include <syslog.h>

#include "bench.h"

namespace {

using bench::Tree;

template <class Body>
double repeated(int times, Body &&body) {
  return bench::timed([&] {
    for (int i = 0; i < times; ++i)
      body();
  });
}

// Measures `body` against `floor`, so many times in a round; how many system calls it makes is counted once.
template <class Body, class Floor>
void calls(const char *what, int rounds, int times, bench::Machine &machine, Body &&body, Floor &&floor) {
  machine.calls = 0;
  body();
  const auto made = static_cast<double>(machine.calls);
  bench::row(
      what, rounds, times, made, [&] { return repeated(times, body); },
      [&] { return repeated(times, floor); });
}

void attributes(int rounds, bench::Machine &machine, const Tree &tree) {
  const std::string path = tree.sys() + "class/scsi_host/host0/fwrev";
  calls(
      "attribute as a text", rounds, 1000, machine,
      [] {
        char text[256];
        bench::keep(hcx_sysfs_read_str("/sys/class/scsi_host/host0/", "fwrev", text, sizeof text));
      },
      [&] { bench::floor_read(path.c_str()); });
  const std::string number = tree.sys() + "class/fc_host/host0/port_name";
  calls(
      "attribute as a number", rounds, 1000, machine,
      [] { bench::keep(hcx_sysfs_read_hexuint64("/sys/class/fc_host/host0/", "port_name")); },
      [&] { bench::floor_read(number.c_str()); });
}

// Two files opened, one of them locked, one ioctl, and one block each way.
void mailbox(int rounds, bench::Machine &machine, const Tree &tree) {
  const std::string lock_file = tree.sys() + "class/scsi_host/host0/mbox",
                    node = tree.root + "/dev/bsg/fc_host0";
  calls(
      "mailbox round trip", rounds, 500, machine,
      [] {
        MAILBOX_t mb = {};
        hcx_mbox_set_command(&mb, MBX_READ_NV);
        if (IssueMbox(0, &mb, 32, 128) != 0) abort();
      },
      [&] {
        uint8_t request[4096] = {}, reply[4096];
        const int lock = open(lock_file.c_str(), O_RDWR | O_CLOEXEC);
        flock(lock, LOCK_EX);
        const int fd = open(node.c_str(), O_RDWR | O_CLOEXEC);
        bench::play_driver(fd, reply, request, sizeof request);
        close(fd);
        flock(lock, LOCK_UN);
        close(lock);
        bench::keep(reply);
      });
}

void luns(int rounds, bench::Machine &machine, const Tree &tree) {
  const std::string node = tree.root + "/dev/sg";
  HBA_WWN port = {{0x50, 0x06, 0x01, 0x60, 0, 0, 0, 0}};
  const uint8_t image[8] = {0, 5};
  uint64_t lun;
  memcpy(&lun, image, sizeof lun);
  calls(
      "SCSI inquiry", rounds, 500, machine,
      [&] {
        uint8_t page[255], sense[64];
        uint32_t size = sizeof page, sense_size = sizeof sense;
        if (SendScsiInquiry(0, &port, lun, 1, 0x83, page, &size, sense, &sense_size) != 0) abort();
      },
      [&] { bench::floor_inquiry(node); });

  const bench::FloorScan one(tree, 0, 1);
  const auto count = static_cast<uint32_t>(one.luns());
  std::vector<uint64_t> room(
      (offsetof(HBA_FCPTARGETMAPPINGV2, entry) + sizeof(HBA_FCPSCSIENTRYV2) * count) / 8 + 1);
  auto *mapping = reinterpret_cast<HBA_FCPTARGETMAPPINGV2 *>(room.data());
  const HBA_WWN board = {{0x10, 0, 0, 0, 0xc9, 0, 0, 0}};
  const auto map = [&] {
    mapping->NumberOfEntries = count;
    if (HCX_GetFcpTargetMappingV2(0, board, mapping) != 0 || mapping->NumberOfEntries != count) abort();
  };
  machine.calls = 0;
  map();
  const double made = static_cast<double>(machine.calls) / count;
  bench::row(
      "mapping with identities, per LUN", rounds, count, made, [&] { return bench::timed(map); },
      [&] {
        return bench::timed([&] {
          one.run();
          for (uint32_t i = 0; i < count; ++i)
            bench::floor_inquiry(node);
        });
      });
}

// The system log is /dev/null here; where lines go is not the library's business.
class Logging final : public bench::Machine {
 public:
  explicit Logging(const std::string &root)
      : bench::Machine(root), null_(::open("/dev/null", O_WRONLY | O_CLOEXEC)) {}
  ~Logging() override { ::close(null_); }
  void syslog(int, const char *text) override { bench::keep(::write(null_, text, strlen(text))); }

 private:
  int null_;
};

void log_lines(int rounds, const std::string &root) {
  Logging machine(root);
  const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  const auto line = [] { libhcx_syslog(LOG_TRACE, "%s - board %d of %d", "bench", 1, 2); };
  volatile uint32_t mask = 0;
  libhcx_syslog(LOG_TRACE, "%s", "");  // reads the switch, which is off
  libhcx_logging_enable = 0;
  calls("log line, off", rounds, 100000, machine, line, [&] {
    bench::keep(time(nullptr));
    if (mask & LOG_TRACE) abort();
  });
  libhcx_logging_enable = LOG_TRACE;
  calls("log line, on", rounds, 20000, machine, line, [&] {
    char text[1024];
    const int length = snprintf(text, sizeof text, "%s - board %d of %d", "bench", 1, 2);
    bench::keep(write(null, text, static_cast<size_t>(length)));
  });
  libhcx_logging_enable = 0;
  close(null);
}

}  // namespace

int main(int argc, char **argv) {
  const bench::Options options(argc, argv);
  const int rounds = options.rounds(30);
  const Tree tree(4096);
  {
    bench::Machine machine(tree.root);
    const bench::Started library(machine);
    attributes(rounds, machine, tree);
    mailbox(rounds, machine, tree);
    luns(rounds, machine, tree);
  }
  log_lines(rounds, tree.root);
  return 0;
}
