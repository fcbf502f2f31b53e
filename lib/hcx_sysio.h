// SPDX-License-Identifier: BSD-3-Clause
// The one door to the machine. Everything the library asks of the kernel goes through a Machine: PosixMachine in a
// shipped process, another one in tests and under hcxsim. No verb knows what the bytes mean.
//
// Results are a value >= 0, or the negated errno of the call that failed. Verbs that EINTR may cut short without
// harm start again by themselves. All verbs may be called from any thread; the machine itself is exchanged only
// before start-up, while no other thread uses the library.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/types.h>
#include <time.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace hcx::sysio {

// A netlink socket; what it holds is the machine's own business.
struct Netlink;

// What came in one piece. The bytes belong to whoever received them: free().
struct Datagram {
  unsigned char *bytes = nullptr;
  uint32_t sender = 0;  // port of the sender, 0: the kernel
};

class Machine {
 public:
  Machine() = default;
  Machine(const Machine &) = delete;
  Machine &operator=(const Machine &) = delete;
  virtual ~Machine() = default;

  // A descriptor opened here is never 0, 1 or 2 and is closed on exec. `flags` are open(2)'s.
  virtual int open(const char *path, int flags, mode_t mode = 0) = 0;
  virtual int close(int fd) = 0;
  // One read or write at the descriptor's position; short counts are the caller's business.
  virtual ssize_t read(int fd, void *buf, size_t count) = 0;
  virtual ssize_t write(int fd, const void *buf, size_t count) = 0;
  // Absolute seek; the new position.
  virtual off_t seek(int fd, off_t offset) = 0;
  // flock(2): LOCK_EX blocks until the lock is there.
  virtual int lock(int fd, int operation) = 0;
  // Size in bytes of a file that is not opened; type bits and mode go to *mode when that is not null.
  virtual int64_t stat(const char *path, mode_t *mode = nullptr) = 0;
  // Type bits and mode of an open file; the number of its names to *links when that is not null.
  virtual int fstat(int fd, mode_t *mode, nlink_t *links = nullptr) = 0;
  virtual int truncate(int fd, off_t size) = 0;
  // Appends the names in a directory that begin with `prefix`, in directory order, without "." and "..".
  virtual int list(const char *path, const char *prefix, std::vector<std::string> &names) = 0;
  // Text of a symbolic link, not terminated; its length.
  virtual ssize_t read_link(const char *path, char *buf, size_t size) = 0;
  // The same for names in a directory that open() gave with O_PATH | O_DIRECTORY; "." is that directory.
  virtual int list_at(int dir, const char *name, const char *prefix, std::vector<std::string> &names) = 0;
  virtual ssize_t read_link_at(int dir, const char *name, char *buf, size_t size) = 0;
  virtual int unlink(const char *path) = 0;
  virtual int rename(const char *from, const char *to) = 0;
  // Until what was written, or a directory's entries, are on disk.
  virtual int sync(int fd) = 0;
  // The process's file creation mask; returns the one before.
  virtual mode_t set_umask(mode_t mask) = 0;
  // A command line for the shell; its wait status.
  virtual int run(const char *command) = 0;
  virtual int ioctl(int fd, unsigned long request, void *arg) = 0;

  // ---- Netlink: one thread waits and receives; wake() may come from any other ----
  // A machine without netlink keeps what stands here.
  // A socket that is not connected yet; null without memory.
  virtual Netlink *netlink_alloc() { return nullptr; }
  // Joins the multicast groups of a protocol. The receive buffer becomes as large as this process may have it.
  virtual int netlink_connect(Netlink *, int /*protocol*/, uint32_t /*groups*/) { return -EPROTONOSUPPORT; }
  // Waits, with the thread's signal mask exchanged for `mask` meanwhile: 1 when there is something to receive
  // (or an error to be told of), 0 after netlink_wake(), -EINTR after a signal handler ran.
  virtual int netlink_wait(Netlink *, const sigset_t * /*mask*/) { return 0; }
  // One datagram, without waiting: its length. -EAGAIN: there is none. -ENOBUFS: some were lost since the last.
  virtual ssize_t netlink_receive(Netlink *, Datagram *) { return -EAGAIN; }
  // Ends the present wait and every later one.
  virtual void netlink_wake(Netlink *) {}
  // Says that nobody will wait for or receive anything more; netlink_wait_done() waits for that, but not longer than
  // so many milliseconds: whether it was said.
  virtual void netlink_done(Netlink *) {}
  virtual bool netlink_wait_done(Netlink *, int /*milliseconds*/) { return true; }
  // Leaves the groups; only to be freed afterwards.
  virtual void netlink_close(Netlink *) {}
  virtual void netlink_free(Netlink *) {}

  // ---- Child processes; a machine without them keeps what stands here ----
  // Runs body(arg, pid) in a child, where arg points to a copy of `size` bytes, and ends the child with its result;
  // the child's pid. The body must be safe in a process forked from one with threads: it neither allocates nor takes
  // locks, and of this machine it may use open, close, ioctl, sleep_us, parent_pid, signal and syslog_direct only. It
  // starts without the parent's descriptors, blocked signals and handlers: SIGHUP, SIGINT, SIGTERM, SIGQUIT and the
  // signals of faults at their defaults, SIGUSR1 and whatever else the parent handles ignored.
  virtual int spawn(int (* /*body*/)(void *arg, int pid), void * /*arg*/, size_t /*size*/) { return -ENOSYS; }
  // kill(2), for one process only.
  virtual int signal(int /*pid*/, int /*number*/) { return -ESRCH; }
  // waitpid(2) for one child.
  virtual int wait_child(int /*pid*/, int * /*status*/, int /*options*/) { return -ECHILD; }
  virtual int parent_pid() { return 1; }

  virtual time_t now() = 0;
  // Of the real-time clock.
  virtual int clock_resolution(timespec *resolution) = 0;
  // Waits at least so long; signals do not cut it short.
  virtual void sleep_us(uint64_t microseconds) = 0;
  // The computer's name, cut to size - 1 characters and terminated.
  virtual int host_name(char *buf, size_t size) = 0;

  virtual void syslog_open(const char *ident, int options, int facility) = 0;
  virtual void syslog_close() = 0;
  virtual void syslog(int priority, const char *text) = 0;
  // The same by way of no shared state, for the body of a child.
  virtual void syslog_direct(const char * /*ident*/, int /*priority*/, const char * /*text*/) {}
};

// The machine in use, never null.
Machine &machine();

// `list` sorted bytewise, independent of the application's locale.
int list_sorted(const char *path, const char *prefix, std::vector<std::string> &names);

}  // namespace hcx::sysio

extern "C" {
// Puts another machine behind the library, null for the real one. For hcxsim and the tests, before start-up.
__attribute__((visibility("default"))) void LIBHCX_private_set_machine(hcx::sysio::Machine *machine);
}
