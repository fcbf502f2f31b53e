// SPDX-License-Identifier: BSD-3-Clause
// A machine that answers every verb with whatever the fuzzer's input says: texts, directories, links, replies, sizes
// and failures that no kernel would give. It also keeps the books: a descriptor that is closed twice, used when it is
// not open, or left open at the end stops the program.
//
// One per input, used by one thread.
#pragma once

#include <errno.h>
#include <linux/bsg.h>
#include <scsi/sg.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <fuzzer/FuzzedDataProvider.h>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "hcx_sysio.h"

namespace fuzz {

inline volatile uint8_t sink;  // keeps reads from being optimised away

[[noreturn]] inline void fault(const char *what, const std::string &path) {
  fprintf(stderr, "fault: %s: %s\n", what, path.c_str());
  abort();
}

class HostileMachine : public hcx::sysio::Machine {
 public:
  explicit HostileMachine(FuzzedDataProvider &input) : input_(input) { LIBHCX_private_set_machine(this); }
  ~HostileMachine() override { LIBHCX_private_set_machine(nullptr); }

  // Call at the end of an input, when everything has been given back.
  void check_nothing_left() const {
    for (const auto &[fd, file] : files_)
      fault("left open", file.path);
  }

  int open(const char *path, int flags, mode_t) override {
    if (refuses()) return error();
    const int fd = next_fd_++;
    File &file = files_[fd];
    file.path = path;
    if ((flags & O_ACCMODE) != O_WRONLY) file.text = text();
    return fd;
  }
  int close(int fd) override {
    file(fd);
    files_.erase(fd);
    return 0;
  }
  ssize_t read(int fd, void *buf, size_t count) override {
    File &f = file(fd);
    if (refuses()) return error();
    const size_t n =
        std::min({count, f.text.size() - f.at, size_t{input_.ConsumeIntegralInRange<uint16_t>(1, 4096)}});
    memcpy(buf, f.text.data() + f.at, n);
    f.at += n;
    return static_cast<ssize_t>(n);
  }
  ssize_t write(int fd, const void *buf, size_t count) override {
    file(fd);
    consume(buf, count);
    if (refuses()) return error();
    return static_cast<ssize_t>(
        input_.ConsumeBool() ? count : std::min<size_t>(count, input_.ConsumeIntegral<uint8_t>()));
  }
  off_t seek(int fd, off_t offset) override {
    File &f = file(fd);
    if (refuses() || offset < 0) return -EINVAL;
    f.at = std::min<size_t>(static_cast<size_t>(offset), f.text.size());
    return offset;
  }
  int lock(int fd, int) override {
    file(fd);
    return refuses() ? error() : 0;
  }
  int64_t stat(const char *, mode_t *mode) override {
    if (refuses()) return error();
    if (mode) *mode = input_.ConsumeBool() ? S_IFREG | 0644 : input_.ConsumeIntegral<mode_t>();
    return input_.ConsumeIntegral<uint16_t>();
  }
  int fstat(int fd, mode_t *mode, nlink_t *links) override {
    file(fd);
    if (refuses()) return error();
    *mode = input_.ConsumeBool() ? S_IFREG | 0644 : input_.ConsumeIntegral<mode_t>();
    if (links) *links = input_.ConsumeIntegralInRange<nlink_t>(0, 2);
    return 0;
  }
  int truncate(int fd, off_t) override {
    file(fd);
    return refuses() ? error() : 0;
  }
  int list(const char *, const char *prefix, std::vector<std::string> &names) override {
    if (refuses()) return error();
    for (int n = input_.ConsumeIntegralInRange(0, 3); n > 0; --n) {
      std::string name = input_.ConsumeBool() ? word() : prefix + number();
      std::erase_if(name, [](char c) { return c == '/' || c == '\0'; });
      if (!name.empty() && name.starts_with(prefix ? prefix : "")) names.push_back(name);
    }
    return 0;
  }
  ssize_t read_link(const char *, char *buf, size_t size) override {
    if (refuses()) return error();
    const std::string target = "../../devices/pci0000:00/0000:00:03.0/0000:05:00." + number() + "/host" +
                               number() + (input_.ConsumeBool() ? "/rport-" + word() : word());
    const std::string said = input_.ConsumeBool() ? target : text();
    const size_t n = std::min(size, said.size());
    memcpy(buf, said.data(), n);
    return static_cast<ssize_t>(n);
  }
  int list_at(int dir, const char *name, const char *prefix, std::vector<std::string> &names) override {
    file(dir);
    return list(name, prefix, names);
  }
  ssize_t read_link_at(int dir, const char *name, char *buf, size_t size) override {
    file(dir);
    return read_link(name, buf, size);
  }
  int rename(const char *, const char *) override { return refuses() ? error() : 0; }
  int sync(int fd) override {
    file(fd);
    return refuses() ? error() : 0;
  }
  mode_t set_umask(mode_t) override { return 022; }
  int run(const char *) override { return refuses() ? error() : 0; }
  int unlink(const char *) override { return refuses() ? error() : 0; }
  int ioctl(int fd, unsigned long, void *arg) override {
    file(fd);
    if (refuses()) return error();
    if (*static_cast<const int32_t *>(arg) == 'Q') {
      auto *io = static_cast<sg_io_v4 *>(arg);
      consume(reinterpret_cast<const void *>(io->request), io->request_len);
      consume(reinterpret_cast<const void *>(io->dout_xferp), io->dout_xfer_len);
      fill(reinterpret_cast<void *>(io->response), io->max_response_len);
      fill(reinterpret_cast<void *>(io->din_xferp), io->din_xfer_len);
      io->response_len = input_.ConsumeIntegral<uint32_t>();
      io->din_resid = input_.ConsumeIntegral<int32_t>();
      io->device_status = input_.ConsumeIntegral<uint8_t>();
      // Most answers say that all went well, or the decoders behind them would never be reached.
      if (io->response && io->max_response_len >= 4 && input_.ConsumeIntegralInRange(0, 7) != 0)
        memset(reinterpret_cast<void *>(io->response), 0, 4);
    } else if (*static_cast<const int32_t *>(arg) == 'S') {
      auto *io = static_cast<sg_io_hdr *>(arg);
      consume(io->cmdp, io->cmd_len);
      if (io->dxfer_direction == SG_DXFER_TO_DEV)
        consume(io->dxferp, io->dxfer_len);
      else
        fill(io->dxferp, io->dxfer_len);
      fill(io->sbp, io->mx_sb_len);
      io->sb_len_wr = input_.ConsumeIntegral<uint8_t>();
      io->resid = input_.ConsumeIntegral<int32_t>();
      io->status = io->masked_status = input_.ConsumeBool() ? 0 : input_.ConsumeIntegral<uint8_t>();
      io->host_status = input_.ConsumeBool() ? 0 : input_.ConsumeIntegral<uint16_t>();
      io->driver_status = input_.ConsumeBool() ? 0 : input_.ConsumeIntegral<uint16_t>();
    }
    return 0;
  }
  time_t now() override { return clock_ += input_.ConsumeIntegral<int8_t>(); }
  int clock_resolution(timespec *resolution) override {
    if (refuses()) return error();
    *resolution = {input_.ConsumeIntegral<time_t>(), input_.ConsumeIntegralInRange<long>(0, 999999999)};
    return 0;
  }
  void sleep_us(uint64_t) override {}
  int host_name(char *buf, size_t size) override {
    if (size == 0 || refuses()) return -EINVAL;
    snprintf(buf, size, "%s", text().c_str());
    return 0;
  }
  void syslog_open(const char *, int, int) override {}
  void syslog_close() override {}
  void syslog(int, const char *line) override { consume(line, strlen(line)); }

 protected:
  // A descriptor on a text of a target's own choice.
  int open_as(const char *path, std::string text) {
    const int fd = next_fd_++;
    files_[fd] = {path, std::move(text), 0};
    return fd;
  }

 private:
  struct File {
    std::string path;
    std::string text;
    size_t at = 0;
  };

  File &file(int fd) {
    const auto found = files_.find(fd);
    if (found == files_.end()) fault("used while not open", std::to_string(fd));
    return found->second;
  }
  bool refuses() { return input_.ConsumeIntegralInRange<uint8_t>(0, 31) == 31; }
  int error() {
    static constexpr int errors[] = {ENOENT, EACCES, EPERM,  EIO,    ENODEV,
                                     EINTR,  EAGAIN, EINVAL, ENOMEM, ENXIO};
    return -input_.PickValueInArray(errors);
  }
  std::string number() {
    return std::to_string(input_.ConsumeBool() ? input_.ConsumeIntegralInRange(0, 3)
                                               : input_.ConsumeIntegral<int32_t>());
  }
  // What stands in a directory of sysfs, or something else.
  std::string word() {
    static const char *const forms[] = {"host%s",       "rport-%s:0-1",      "rport-0:0-%s", "target%s:0:1",
                                        "target0:0:%s", "0:0:1:%s",          "%s:0:0:0",     "block:sd%s",
                                        "sd%s",         "scsi_generic:sg%s", "sg%s",         "scsi_tape:st%s",
                                        "st%s",         "vport-%s:0-1"};
    if (input_.ConsumeIntegralInRange(0, 3) == 0) return input_.ConsumeRandomLengthString(64);
    std::string form = input_.PickValueInArray(forms);
    return form.replace(form.find("%s"), 2, number());
  }
  // What stands in an attribute, or something else.
  std::string text() {
    static const char *const texts[] = {"1\n",
                                        "0\n",
                                        "0x1c4f\n",
                                        "0x10000000c9a1b2c3\n",
                                        "Link Up - Ready:\n   Fabric\n",
                                        "fc\n",
                                        "fcoe\n",
                                        "vosk 3.5\n",
                                        "2.01A4, sli-4:2:c\n",
                                        "FCP Target\n",
                                        "Online\n",
                                        "4294967295\n",
                                        "-1\n",
                                        "",
                                        "\n",
                                        "offline\n",
                                        "unknown\n",
                                        "Data enabled :0, blocked :0, Bucket type :linear, Bucket base :10, "
                                        "Bucket step :5\nBucket ranges :1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 "
                                        "16 17 18 19 20 \n",
                                        "Data enabled :1, blocked :0, Bucket type :power2, Bucket base :0, "
                                        "Bucket step :5\nBucket ranges :5 10 20",
                                        "500601603ea01001:0000000001,0000000002,0000000003,0000000004,"
                                        "0000000005,0000000006,0000000007,0000000008,0000000009,0000000010,"
                                        "0000000011,0000000012,0000000013,0000000014,0000000015,0000000016,"
                                        "0000000017,0000000018,0000000019,0000000020,\n"};
    if (input_.ConsumeBool()) return input_.PickValueInArray(texts);
    return input_.ConsumeRandomLengthString(4096);
  }
  void fill(void *to, size_t size) {
    if (!to || size == 0) return;
    const size_t n = input_.ConsumeData(to, size);
    memset(static_cast<char *>(to) + n, 0, size - n);
  }
  // Reads all of it, so that the sanitizers see whether it is there.
  static void consume(const void *data, size_t size) {
    const auto *bytes = static_cast<const uint8_t *>(data);
    uint8_t s = 0;
    for (size_t i = 0; bytes && i < size; ++i)
      s ^= bytes[i];
    sink = s;
  }

  FuzzedDataProvider &input_;
  std::map<int, File> files_;
  int next_fd_ = 3;
  time_t clock_ = 1700000000;
};

}  // namespace fuzz
