// SPDX-License-Identifier: BSD-3-Clause
// Registrations for CT requests. The driver announces those only to a request that waits in the kernel, so each
// registration has a child process that waits there and raises SIGUSR1 in this process when one has come. The child
// belongs to its registration: it is killed with it, at the unload of the library, and ends by itself when it finds
// that this process has gone.
#include <errno.h>
#include <signal.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>

#include "hcx_bsg_request.h"
#include "hcx_ioctl_event.h"
#include "hcx_netlink.h"
#include "libhcx.h"

using namespace hcx;

namespace {

constexpr char kCaller[] = "bsg_register_for_ct_event";
constexpr uint64_t kSecond = 1000000;
constexpr int kWaits = 5;

// All that a child knows.
struct Child {
  int parent;
  int board;
  Path node;
  bsg::CtWait wait;
};

// The child cannot use the logger, whose locks may have been held when it was forked. The mask is that of the fork.
void child_log(uint32_t category, const char *format, int number) __attribute__((format(printf, 2, 0)));
void child_log(uint32_t category, const char *format, int number) {
  if (!(std::atomic_ref<uint32_t>(libhcx_logging_enable).load() & category)) return;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  const Line line(format, kCaller, number);
#pragma GCC diagnostic pop
  sysio::machine().syslog_direct("LIBHCX", LOG_INFO, line.c_str());
}

// The life of a child. Nothing in here allocates or locks.
int wait_for_ct_requests(void *arg, int pid) {
  auto *child = static_cast<Child *>(arg);
  child_log(LOG_BSG, "%s - child pid %d created", pid);
  while (sysio::machine().parent_pid() == child->parent) {
    const int fd = sysio::machine().open(child->node.c_str(), O_RDWR);
    if (fd < 0) {
      sysio::machine().sleep_us(5 * kSecond);
      child_log(LOG_ERROR, "%s - Open failed on board %d", child->board);
      continue;
    }
    const int rc = bsg::exchange(&child->wait, fd, static_cast<uint32_t>(pid));
    sysio::machine().close(fd);
    if (rc == -EAGAIN) continue;
    if (rc < 0) {
      sysio::machine().sleep_us(2 * kSecond);
      child_log(LOG_ERROR, "%s - -EIO in child pid %d", pid);
      continue;
    }
    if (sysio::machine().signal(child->parent, SIGUSR1) < 0) {
      child_log(LOG_ERROR, "%s - child kill of %d failed", child->parent);
      return 1;
    }
  }
  return 0;
}

// False when the board's node cannot be used with this driver.
bool prepare_child(const hcx_host *host, uint32_t board, const RegEvent &wanted, Child *child) {
  const Text<32> name("fc_host%d", static_cast<int>(host->id));
  child->parent = getpid();
  child->board = static_cast<int>(board);
  child->node = Path("/dev/bsg/%s", name.c_str());
  return find_bsg_device_mmm("/dev/bsg", name.c_str()) &&
         bsg::prepare(&child->wait, wanted.e_gstype, FC_REG_CT_EVENT);
}

// Puts a registration with its child into the table; 0 when there is no room.
uint32_t add_with_child(uint32_t board, const RegEvent &wanted) {
  const EventLock lock;
  RegEvent *slot = add_registration(board, wanted.e_firstchild);
  if (!slot) return 0;
  const uint32_t id = slot->event_id;
  *slot = wanted;
  slot->event_id = id;
  return id;
}

// The id, 0 on failure.
uint32_t register_on_board(uint32_t board, const RegEvent &request) {
  RegEvent wanted = request;
  Child child;
  {
    const HostRef host = board_host(board);
    if (!host) {
      libhcx_syslog(LOG_ERROR, "%s - ppid %d board %d not found", kCaller, getpid(), static_cast<int>(board));
      return 0;
    }
    if (!prepare_child(host.get(), board, wanted, &child)) {
      libhcx_syslog(LOG_ERROR, "%s - ppid %d board %d: the driver announces no CT requests", kCaller,
                    getpid(), static_cast<int>(board));
      return 0;
    }
  }
  if (!allocate_output(wanted.e_mask, wanted.e_outsz, &wanted.e_out)) {
    libhcx_syslog(LOG_ERROR, "%s - ppid %d out of memory", kCaller, getpid());
    return 0;
  }
  // Before the child is there, since it may signal at once.
  install_event_signal(EventHandlerBSG, SA_RESTART);
  const int pid = sysio::machine().spawn(wait_for_ct_requests, &child, sizeof child);
  if (pid <= 0) {
    libhcx_syslog(LOG_ERROR, "%s - ppid %d fork failed", kCaller, getpid());
    free(wanted.e_out);
    return 0;
  }
  wanted.e_pid = static_cast<uint32_t>(pid);
  wanted.e_pad = static_cast<uint32_t>(getpid());
  const uint32_t id = add_with_child(board, wanted);
  if (id == 0) {
    sysio::machine().sleep_us(kSecond);
    libhcx_syslog(LOG_ERROR, "%s - kill pid %d max events already registered", kCaller, pid);
    if (kill_child(board, wanted)) wait_for_child(wanted);
    free(wanted.e_out);
    return 0;
  }
  libhcx_syslog(LOG_BSG, "%s - created pid %d event %d mask x%08x ctx x%08x outsz %d", kCaller, pid,
                static_cast<int>(id), wanted.e_mask,
                static_cast<uint32_t>(reinterpret_cast<uintptr_t>(wanted.e_ctx)),
                static_cast<int>(wanted.e_outsz));
  // A request may have come, and been signalled, before the registration was in its slot.
  request_sweep(true);
  return id;
}

// Whether a status tells of the child's end.
bool has_ended(int pid, int status) {
  constexpr const char *caller = "removeRegEvent";
  if (WIFEXITED(status)) {
    libhcx_syslog(LOG_BSG, "%s - child %d exited, status : %d", caller, pid, WEXITSTATUS(status));
  } else if (WIFSIGNALED(status)) {
    libhcx_syslog(LOG_BSG, "%s - child %d killed by signal %d", caller, pid, WTERMSIG(status));
  } else if (WIFSTOPPED(status)) {
    libhcx_syslog(LOG_BSG, "%s - child %d stopped by signal %d", caller, pid, WSTOPSIG(status));
  } else if (WIFCONTINUED(status)) {
    libhcx_syslog(LOG_BSG, "%s - child %d continued", caller, pid);
  }
  return WIFEXITED(status) || WIFSIGNALED(status);
}

// When the library is unloaded nobody is left to call. Nothing is waited for here; an application that ends takes
// the ended children with it.
__attribute__((destructor)) void kill_all_children() {
  for (uint32_t board = 0; board < kEventBoards; ++board)
    for (uint32_t slot = 0; slot < hcx_RegEventCnt[board]; ++slot) {
      const RegEvent &record = hcx_RegEvent[board][slot];
      if (record.e_pid == 0 || record.e_pad != static_cast<uint32_t>(getpid())) continue;
      const int pid = static_cast<int>(record.e_pid);
      int status;
      if (sysio::machine().wait_child(pid, &status, WNOHANG) == 0) sysio::machine().signal(pid, SIGKILL);
    }
}

}  // namespace

namespace hcx {

bool kill_child(uint32_t board, const RegEvent &record) {
  constexpr const char *caller = "removeRegEvent";
  if (record.e_pid == 0 || record.e_pad != static_cast<uint32_t>(getpid())) return false;
  const int pid = static_cast<int>(record.e_pid);
  libhcx_syslog(LOG_BSG, "%s - board %d eventid x%08x kill e_pid %d", caller, static_cast<int>(board),
                record.event_id, pid);
  // A child that has ended may have been waited for by the application, and its number belong to a stranger.
  int status = 0;
  const int rc = sysio::machine().wait_child(pid, &status, WNOHANG);
  if (rc == 0) {
    sysio::machine().signal(pid, SIGKILL);
    return true;
  }
  if (rc < 0) {
    libhcx_syslog(LOG_ERROR, "%s - waitpid failed, child %d may already be gone", caller, pid);
  } else {
    has_ended(pid, status);
  }
  libhcx_syslog(LOG_BSG, "%s - done", caller);
  return false;
}

void wait_for_child(const RegEvent &record) {
  constexpr const char *caller = "removeRegEvent";
  const int pid = static_cast<int>(record.e_pid);
  for (int i = 0; i < kWaits; ++i) {
    int status = 0;
    if (sysio::machine().wait_child(pid, &status, WUNTRACED | WCONTINUED) < 0) {
      libhcx_syslog(LOG_ERROR, "%s - waitpid failed, child %d may already be gone", caller, pid);
      break;
    }
    if (has_ended(pid, status)) break;
    libhcx_syslog(LOG_BSG, "%s - wait again for child %d", caller, pid);
  }
  libhcx_syslog(LOG_BSG, "%s - done", caller);
}

}  // namespace hcx

uint32_t bsg_register_for_ct_event(uint32_t board, uint32_t mask, uint32_t type, uint32_t outsz,
                                   void (*func)(), void *ctx) {
  RegEvent wanted = {};
  wanted.e_mask = mask;
  wanted.e_gstype = type;
  wanted.e_outsz = outsz;
  wanted.e_func = func;
  wanted.e_ctx = ctx;
  if (!register_on_boards(board, wanted, register_on_board)) return 0;
  event_safe_point();
  return wanted.e_firstchild;
}
