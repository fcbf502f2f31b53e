// SPDX-License-Identifier: BSD-3-Clause
// A machine in front of the simulated one that fails the call one wants: the nth of a verb, or of all verbs, once or
// from then on, with an error that this verb can have, or by moving half of the bytes. Only calls of the thread that
// made it count and fail, and the simulation behind it has memory even where the library has none.
#pragma once

#include <sys/wait.h>

#include <array>
#include <initializer_list>
#include <set>
#include <thread>
#include <vector>

#include "alloc_fault.h"
#include "sim_machine.h"

class FaultyMachine final : public hcx::sysio::Machine {
  using Verb = sim::Verb;
  using Pause = alloc_fault::Pause;

 public:
  struct Fault {
    Verb verb = Verb::any;
    int nth = 1;
    bool lasting = false;
    bool half = false;  // reads and writes: not failed but cut short
  };

  explicit FaultyMachine(sim::Machine &behind) : behind_(behind) {}

  void arm(const Fault &fault) {
    fault_ = fault;
    seen_ = 0;
    armed_ = true;
  }
  // Takes the fault away; whether it hit.
  bool disarm() {
    armed_ = false;
    return std::exchange(hit_, false);
  }
  // The verbs called since the last time.
  std::set<Verb> take_used() { return std::exchange(used_, {}); }

  int open(const char *path, int flags, mode_t mode) override {
    return pass(Verb::open, [&] { return behind_.open(path, flags, mode); });
  }
  int close(int fd) override {
    const Pause pause;
    const int closed = behind_.close(fd);  // it is closed whatever is said
    const int error = fail(Verb::close);
    return error != 0 ? -error : closed;
  }
  ssize_t read(int fd, void *buf, size_t count) override {
    return move(Verb::read, count, [&](size_t part) { return behind_.read(fd, buf, part); });
  }
  ssize_t write(int fd, const void *buf, size_t count) override {
    return move(Verb::write, count, [&](size_t part) { return behind_.write(fd, buf, part); });
  }
  off_t seek(int fd, off_t offset) override {
    return pass(Verb::seek, [&] { return behind_.seek(fd, offset); });
  }
  int lock(int fd, int operation) override {
    return pass(Verb::lock, [&] { return behind_.lock(fd, operation); });
  }
  int64_t stat(const char *path, mode_t *mode) override {
    return pass(Verb::stat, [&] { return behind_.stat(path, mode); });
  }
  int fstat(int fd, mode_t *mode, nlink_t *links) override {
    return pass(Verb::fstat, [&] { return behind_.fstat(fd, mode, links); });
  }
  int truncate(int fd, off_t size) override {
    return pass(Verb::truncate, [&] { return behind_.truncate(fd, size); });
  }
  int list(const char *path, const char *prefix, std::vector<std::string> &names) override {
    return room_for_a_name(names) ? pass(Verb::list, [&] { return behind_.list(path, prefix, names); })
                                  : -ENOMEM;
  }
  ssize_t read_link(const char *path, char *buf, size_t size) override {
    return pass(Verb::read_link, [&] { return behind_.read_link(path, buf, size); });
  }
  int list_at(int dir, const char *name, const char *prefix, std::vector<std::string> &names) override {
    return room_for_a_name(names)
               ? pass(Verb::list, [&] { return behind_.list_at(dir, name, prefix, names); })
               : -ENOMEM;
  }
  ssize_t read_link_at(int dir, const char *name, char *buf, size_t size) override {
    return pass(Verb::read_link, [&] { return behind_.read_link_at(dir, name, buf, size); });
  }
  int unlink(const char *path) override {
    return pass(Verb::unlink, [&] { return behind_.unlink(path); });
  }
  int rename(const char *from, const char *to) override {
    return pass(Verb::rename, [&] { return behind_.rename(from, to); });
  }
  int sync(int fd) override {
    return pass(Verb::sync, [&] { return behind_.sync(fd); });
  }
  mode_t set_umask(mode_t mask) override { return behind_.set_umask(mask); }
  int run(const char *command) override {
    return pass(Verb::run, [&] { return behind_.run(command); });
  }
  int ioctl(int fd, unsigned long request, void *arg) override {
    return pass(Verb::ioctl, [&] { return behind_.ioctl(fd, request, arg); });
  }
  hcx::sysio::Netlink *netlink_alloc() override {
    const Pause pause;
    return fail(Verb::netlink_alloc) != 0 ? nullptr : behind_.netlink_alloc();
  }
  int netlink_connect(hcx::sysio::Netlink *socket, int protocol, uint32_t groups) override {
    return pass(Verb::netlink_connect, [&] { return behind_.netlink_connect(socket, protocol, groups); });
  }
  // The listener's own thread does these.
  int netlink_wait(hcx::sysio::Netlink *socket, const sigset_t *mask) override {
    return behind_.netlink_wait(socket, mask);
  }
  ssize_t netlink_receive(hcx::sysio::Netlink *socket, hcx::sysio::Datagram *datagram) override {
    return behind_.netlink_receive(socket, datagram);
  }
  void netlink_done(hcx::sysio::Netlink *socket) override { behind_.netlink_done(socket); }
  void netlink_wake(hcx::sysio::Netlink *socket) override { behind_.netlink_wake(socket); }
  bool netlink_wait_done(hcx::sysio::Netlink *socket, int milliseconds) override {
    return behind_.netlink_wait_done(socket, milliseconds);
  }
  void netlink_close(hcx::sysio::Netlink *socket) override { behind_.netlink_close(socket); }
  void netlink_free(hcx::sysio::Netlink *socket) override { behind_.netlink_free(socket); }
  int spawn(int (*body)(void *, int), void *arg, size_t size) override {
    return pass(Verb::spawn, [&] { return behind_.spawn(body, arg, size); });
  }
  int signal(int pid, int number) override {
    const Pause pause;
    return behind_.signal(pid, number);
  }
  int wait_child(int pid, int *status, int options) override {
    const Pause pause;
    return behind_.wait_child(pid, status, options);
  }
  int parent_pid() override { return behind_.parent_pid(); }
  time_t now() override { return behind_.now(); }
  int clock_resolution(timespec *answer) override {
    return pass(Verb::clock_resolution, [&] { return behind_.clock_resolution(answer); });
  }
  void sleep_us(uint64_t) override {}
  int host_name(char *buf, size_t size) override {
    return pass(Verb::host_name, [&] { return behind_.host_name(buf, size); });
  }
  void syslog_open(const char *, int, int) override {}
  void syslog_close() override {}
  void syslog(int, const char *) override {}

 private:
  struct Errors {
    Verb verb;
    std::array<int, 3> numbers;
  };
  static int error_of(Verb verb, int nth) {
    static constexpr Errors errors[] = {
        {Verb::open, {EMFILE, EACCES, ENOENT}},   {Verb::read, {EIO, ENODEV, EACCES}},
        {Verb::write, {EIO, ENOSPC, EINVAL}},     {Verb::lock, {ENOLCK, EINTR, ENOLCK}},
        {Verb::stat, {ENOENT, EACCES, ELOOP}},    {Verb::list, {ENOMEM, EACCES, ENOENT}},
        {Verb::read_link, {ENOENT, EACCES, EIO}}, {Verb::unlink, {ENOENT, EACCES, EROFS}},
        {Verb::rename, {ENOSPC, EROFS, EXDEV}},   {Verb::ioctl, {EIO, ENODEV, ETIMEDOUT}},
        {Verb::spawn, {EAGAIN, ENOMEM, EAGAIN}},  {Verb::netlink_connect, {EPERM, ENOMEM, ENOBUFS}},
        {Verb::run, {ENOMEM, EAGAIN, EACCES}},
    };
    for (const Errors &row : errors)
      if (row.verb == verb) return row.numbers[static_cast<size_t>(nth) % 3];
    return EIO;
  }

  // The names are the library's memory, which the real machine may find exhausted.
  static bool room_for_a_name(std::vector<std::string> &names) {
    try {
      names.reserve(names.size() + 1);
      return true;
    } catch (const std::bad_alloc &) {
      return false;
    }
  }
  // The error that this call is to end with, 0 for none.
  int fail(Verb verb) {
    if (std::this_thread::get_id() != owner_) return 0;
    used_.insert(verb);
    if (!armed_ || (fault_.verb != Verb::any && fault_.verb != verb)) return 0;
    if (fault_.half && verb != Verb::read && verb != Verb::write) return 0;
    ++seen_;
    if (seen_ != fault_.nth && !(fault_.lasting && seen_ > fault_.nth)) return 0;
    hit_ = true;
    return error_of(verb, seen_);
  }
  template <class Body>
  auto pass(Verb verb, Body body) -> decltype(body()) {
    const Pause pause;
    const int error = fail(verb);
    if (error != 0) return -error;
    return body();
  }
  template <class Body>
  ssize_t move(Verb verb, size_t count, Body body) {
    const Pause pause;
    const int error = fail(verb);
    if (error == 0) return body(count);
    return fault_.half ? body((count + 1) / 2) : -error;
  }

  sim::Machine &behind_;
  const std::thread::id owner_ = std::this_thread::get_id();
  Fault fault_;
  bool armed_ = false, hit_ = false;
  int seen_ = 0;
  std::set<Verb> used_;
};
