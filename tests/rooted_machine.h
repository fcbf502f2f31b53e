// SPDX-License-Identifier: BSD-3-Clause
// The real machine with its file system below a folder, and nothing said to the system log. For what must run on real
// files: locks between processes, the speed of start-up. Any thread, as the machine below.
#pragma once

#include <limits.h>

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "hcx_sysio.h"

class RootedMachine : public hcx::sysio::Machine {
 public:
  RootedMachine(hcx::sysio::Machine &real, std::string root) : real_(real), root_(std::move(root)) {}

  int open(const char *path, int flags, mode_t mode) override {
    return real_.open(at(path).c_str(), flags, mode);
  }
  int close(int fd) override { return real_.close(fd); }
  ssize_t read(int fd, void *buf, size_t count) override { return real_.read(fd, buf, count); }
  ssize_t write(int fd, const void *buf, size_t count) override { return real_.write(fd, buf, count); }
  off_t seek(int fd, off_t offset) override { return real_.seek(fd, offset); }
  int lock(int fd, int operation) override { return real_.lock(fd, operation); }
  int64_t stat(const char *path, mode_t *mode) override { return real_.stat(at(path).c_str(), mode); }
  int fstat(int fd, mode_t *mode, nlink_t *links) override { return real_.fstat(fd, mode, links); }
  int truncate(int fd, off_t size) override { return real_.truncate(fd, size); }
  int list(const char *path, const char *prefix, std::vector<std::string> &names) override {
    return real_.list(at(path).c_str(), prefix, names);
  }
  ssize_t read_link(const char *path, char *buf, size_t size) override {
    return real_.read_link(at(path).c_str(), buf, size);
  }
  int list_at(int dir, const char *name, const char *prefix, std::vector<std::string> &names) override {
    return real_.list_at(dir, name, prefix, names);
  }
  ssize_t read_link_at(int dir, const char *name, char *buf, size_t size) override {
    return real_.read_link_at(dir, name, buf, size);
  }
  int unlink(const char *path) override { return real_.unlink(at(path).c_str()); }
  int rename(const char *from, const char *to) override {
    return real_.rename(at(from).c_str(), at(to).c_str());
  }
  int sync(int fd) override { return real_.sync(fd); }
  mode_t set_umask(mode_t mask) override { return real_.set_umask(mask); }
  int run(const char *) override { return 0; }
  int ioctl(int fd, unsigned long request, void *arg) override { return real_.ioctl(fd, request, arg); }
  // Nothing ever happens to the adapters of a folder.
  hcx::sysio::Netlink *netlink_alloc() override { return real_.netlink_alloc(); }
  int netlink_connect(hcx::sysio::Netlink *, int, uint32_t) override { return 0; }
  int netlink_wait(hcx::sysio::Netlink *socket, const sigset_t *mask) override {
    return real_.netlink_wait(socket, mask);
  }
  void netlink_wake(hcx::sysio::Netlink *socket) override { real_.netlink_wake(socket); }
  void netlink_done(hcx::sysio::Netlink *socket) override { real_.netlink_done(socket); }
  bool netlink_wait_done(hcx::sysio::Netlink *socket, int milliseconds) override {
    return real_.netlink_wait_done(socket, milliseconds);
  }
  void netlink_free(hcx::sysio::Netlink *socket) override { real_.netlink_free(socket); }
  time_t now() override { return real_.now(); }
  int clock_resolution(timespec *answer) override { return real_.clock_resolution(answer); }
  void sleep_us(uint64_t microseconds) override { real_.sleep_us(microseconds); }
  int host_name(char *buf, size_t size) override { return real_.host_name(buf, size); }
  void syslog_open(const char *, int, int) override {}
  void syslog_close() override {}
  void syslog(int, const char *) override {}

 protected:
  // A path below the folder, put together without allocation: it is done for every call that is measured.
  class At {
   public:
    At(const std::string &root, const char *path) {
      snprintf(text_, sizeof text_, "%s%s", root.c_str(), path);
    }
    [[nodiscard]] const char *c_str() const { return text_; }

   private:
    char text_[PATH_MAX];
  };
  [[nodiscard]] At at(const char *path) const { return {root_, path}; }

  hcx::sysio::Machine &real_;

 private:
  std::string root_;
};
