// SPDX-License-Identifier: BSD-3-Clause
// Child processes of the real machine. A child is forked from a process with threads, whose locks may be held by
// threads that the child does not have: until it ends it makes only calls that are safe in a signal handler.
#include <errno.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "hcx_sysio_posix.h"

namespace hcx::sysio::posix {
namespace {

// What ends a child, whatever the parent makes of it.
constexpr int kAtDefault[] = {SIGHUP, SIGINT, SIGTERM, SIGQUIT, SIGSEGV, SIGBUS,
                              SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS};

void set_action(int number, void (*action)(int)) {
  struct sigaction set = {};
  set.sa_handler = action;
  ::sigaction(number, &set, nullptr);
}

// Nothing of the parent may be kept alive, or act, in here.
void leave_parent_behind() {
  for (int number = 1; number < NSIG; ++number) {
    struct sigaction now;
    if (::sigaction(number, nullptr, &now) < 0 || now.sa_handler == SIG_DFL) continue;
    const bool at_default =
        std::find(std::begin(kAtDefault), std::end(kAtDefault), number) != std::end(kAtDefault);
    if (at_default || now.sa_handler != SIG_IGN) set_action(number, at_default ? SIG_DFL : SIG_IGN);
  }
  set_action(SIGUSR1, SIG_IGN);
  if (::close_range(STDERR_FILENO + 1, ~0U, 0) < 0) {
    const long most = ::sysconf(_SC_OPEN_MAX);
    for (int fd = STDERR_FILENO + 1; fd < most; ++fd)
      ::close(fd);
  }
  sigset_t none;
  sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace

int spawn(int (*body)(void *arg, int pid), void *arg) {
  // Until its handlers are set, no signal may run one of the parent's in the child.
  sigset_t all, before;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  const int pid = ::fork();
  const int error = errno;
  if (pid == 0) {
    leave_parent_behind();
    ::_exit(body(arg, ::getpid()));
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return pid < 0 ? -error : pid;
}

void syslog_direct(const char *ident, int priority, const char *text) {
  const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return;
  sockaddr_un log = {};
  log.sun_family = AF_UNIX;
  static_assert(sizeof _PATH_LOG <= sizeof log.sun_path);
  memcpy(log.sun_path, _PATH_LOG, sizeof _PATH_LOG);
  char line[512];
  const int length = snprintf(line, sizeof line, "<%d>%s: %s", LOG_USER | priority, ident, text);
  if (length > 0) {
    const size_t size = std::min(static_cast<size_t>(length), sizeof line - 1);
    ::sendto(fd, line, size, MSG_DONTWAIT | MSG_NOSIGNAL, reinterpret_cast<const sockaddr *>(&log),
             sizeof log);
  }
  ::close(fd);
}

}  // namespace hcx::sysio::posix
