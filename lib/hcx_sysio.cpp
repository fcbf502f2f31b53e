// SPDX-License-Identifier: BSD-3-Clause
// PosixMachine: the door to the real machine. Owns no state but what the kernel keeps behind descriptors.
#include "hcx_sysio.h"

#include <dirent.h>
#include <errno.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "hcx_sysio_posix.h"

namespace hcx::sysio {
namespace {

int result(int rc) {
  return rc < 0 ? -errno : rc;
}

class PosixMachine final : public Machine {
 public:
  int open(const char *path, int flags, mode_t mode) override {
    int fd;
    do {
      fd = ::open(path, flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return -errno;
    // An application may have closed its standard streams; what we open must never stand in for one of them.
    if (fd <= STDERR_FILENO) {
      int lifted = ::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
      int error = errno;
      ::close(fd);
      return lifted < 0 ? -error : lifted;
    }
    return fd;
  }

  int close(int fd) override { return result(::close(fd)); }

  ssize_t read(int fd, void *buf, size_t count) override {
    ssize_t n;
    do {
      n = ::read(fd, buf, count);
    } while (n < 0 && errno == EINTR);
    return n < 0 ? -errno : n;
  }

  ssize_t write(int fd, const void *buf, size_t count) override {
    ssize_t n;
    do {
      n = ::write(fd, buf, count);
    } while (n < 0 && errno == EINTR);
    return n < 0 ? -errno : n;
  }

  off_t seek(int fd, off_t offset) override {
    off_t at = ::lseek(fd, offset, SEEK_SET);
    return at < 0 ? -errno : at;
  }

  int lock(int fd, int operation) override {
    int rc;
    do {
      rc = ::flock(fd, operation);
    } while (rc < 0 && errno == EINTR);
    return result(rc);
  }

  int64_t stat(const char *path, mode_t *mode) override {
    struct stat st;
    if (::stat(path, &st) < 0) return -errno;
    if (mode) *mode = st.st_mode;
    return st.st_size;
  }

  int fstat(int fd, mode_t *mode, nlink_t *links) override {
    struct stat st;
    if (::fstat(fd, &st) < 0) return -errno;
    *mode = st.st_mode;
    if (links) *links = st.st_nlink;
    return 0;
  }

  int truncate(int fd, off_t size) override {
    int rc;
    do {
      rc = ::ftruncate(fd, size);
    } while (rc < 0 && errno == EINTR);
    return result(rc);
  }

  int list(const char *path, const char *prefix, std::vector<std::string> &names) override {
    return list_at(AT_FDCWD, path, prefix, names);
  }

  // Straight from the kernel: opendir() allocates 32 KiB and asks for the kind of file, once per LUN of a scan.
  int list_at(int at, const char *path, const char *prefix, std::vector<std::string> &names) override {
    int dir;
    do {
      dir = ::openat(at, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    } while (dir < 0 && errno == EINTR);
    if (dir < 0) return -errno;
    const size_t length = strlen(prefix);
    alignas(dirent64) char entries[8192];
    ssize_t filled;
    int rc = 0;
    try {
      while ((filled = ::getdents64(dir, entries, sizeof entries)) > 0) {
        for (ssize_t next = 0; next < filled;) {
          const auto *entry = reinterpret_cast<const dirent64 *>(entries + next);
          next += entry->d_reclen;
          const char *name = entry->d_name;
          if (strncmp(name, prefix, length) == 0 && strcmp(name, ".") != 0 && strcmp(name, "..") != 0)
            names.emplace_back(name);
        }
      }
      if (filled < 0) rc = -errno;
    } catch (const std::bad_alloc &) {
      rc = -ENOMEM;
    }
    ::close(dir);
    return rc;
  }

  ssize_t read_link(const char *path, char *buf, size_t size) override {
    return read_link_at(AT_FDCWD, path, buf, size);
  }

  ssize_t read_link_at(int dir, const char *name, char *buf, size_t size) override {
    ssize_t n = ::readlinkat(dir, name, buf, size);
    return n < 0 ? -errno : n;
  }

  int unlink(const char *path) override { return result(::unlink(path)); }
  int rename(const char *from, const char *to) override { return result(::rename(from, to)); }

  int sync(int fd) override {
    int rc;
    do {
      rc = ::fsync(fd);
    } while (rc < 0 && errno == EINTR);
    return result(rc);
  }

  mode_t set_umask(mode_t mask) override { return ::umask(mask); }
  int run(const char *command) override { return result(::system(command)); }

  int ioctl(int fd, unsigned long request, void *arg) override {
    // Never started again: the kernel may already have sent what the argument describes.
    return result(::ioctl(fd, request, arg));
  }

  Netlink *netlink_alloc() override { return posix::netlink_alloc(); }
  int netlink_connect(Netlink *socket, int protocol, uint32_t groups) override {
    return posix::netlink_connect(socket, protocol, groups);
  }
  int netlink_wait(Netlink *socket, const sigset_t *mask) override {
    return posix::netlink_wait(socket, mask);
  }
  ssize_t netlink_receive(Netlink *socket, Datagram *datagram) override {
    return posix::netlink_receive(socket, datagram);
  }
  void netlink_wake(Netlink *socket) override { posix::netlink_wake(socket); }
  void netlink_done(Netlink *socket) override { posix::netlink_done(socket); }
  bool netlink_wait_done(Netlink *socket, int milliseconds) override {
    return posix::netlink_wait_done(socket, milliseconds);
  }
  void netlink_close(Netlink *socket) override { posix::netlink_close(socket); }
  void netlink_free(Netlink *socket) override { posix::netlink_free(socket); }

  int spawn(int (*body)(void *arg, int pid), void *arg, size_t) override { return posix::spawn(body, arg); }
  int signal(int pid, int number) override { return pid <= 1 ? -ESRCH : result(::kill(pid, number)); }
  int wait_child(int pid, int *status, int options) override {
    int rc;
    do {
      rc = ::waitpid(pid, status, options);
    } while (rc < 0 && errno == EINTR);
    return result(rc);
  }
  int parent_pid() override { return ::getppid(); }

  time_t now() override { return ::time(nullptr); }
  int clock_resolution(timespec *resolution) override {
    return result(::clock_getres(CLOCK_REALTIME, resolution));
  }

  void sleep_us(uint64_t microseconds) override {
    timespec rest = {static_cast<time_t>(microseconds / 1000000),
                     static_cast<long>(microseconds % 1000000 * 1000)};
    while (::nanosleep(&rest, &rest) < 0 && errno == EINTR) {
    }
  }

  int host_name(char *buf, size_t size) override {
    if (size == 0) return -EINVAL;
    const int rc = ::gethostname(buf, size);
    buf[size - 1] = '\0';  // the C library need not terminate a name that it cut
    // A name that was cut is good enough.
    return rc < 0 && errno != ENAMETOOLONG ? -errno : 0;
  }

  void syslog_open(const char *ident, int options, int facility) override {
    ::openlog(ident, options, facility);
  }
  void syslog_close() override { ::closelog(); }
  void syslog(int priority, const char *text) override { ::syslog(priority, "%s", text); }
  void syslog_direct(const char *ident, int priority, const char *text) override {
    posix::syslog_direct(ident, priority, text);
  }
};

// Constructed once and never destroyed: other static destructors may still log.
Machine &posix_machine() {
  static PosixMachine &instance = *new PosixMachine;
  return instance;
}

Machine *current = nullptr;

}  // namespace

Machine &machine() {
  return current ? *current : posix_machine();
}

int list_sorted(const char *path, const char *prefix, std::vector<std::string> &names) {
  int rc = machine().list(path, prefix, names);
  std::sort(names.begin(), names.end());
  // A directory that changes while it is read may give a name twice.
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return rc;
}

}  // namespace hcx::sysio

void LIBHCX_private_set_machine(hcx::sysio::Machine *machine) {
  hcx::sysio::current = machine;
}
