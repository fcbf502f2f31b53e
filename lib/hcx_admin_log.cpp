// SPDX-License-Identifier: BSD-3-Clause
// The logger: the mask, the switch file it comes from, the system log connection, the stack dump.
// Any thread may log, also from inside a signal handler that interrupted the library, so nothing here takes a
// lock of the library's own: the mask, the time of the last reading and the state of the connection are
// atomics. Two threads that refresh at the same time merely read the switch file twice. The switch file has a
// well-known name in a directory that everyone may write to, and processes of root read and rewrite it: it is
// never followed through a link, and anything but a regular file of that one name counts as missing.
#include <errno.h>
#include <execinfo.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "libhcx.h"

uint32_t libhcx_logging_enable = 0;

namespace hcx {
namespace {

constexpr char kSwitchFile[] = "/tmp/libhcx_syslog_enable";
constexpr char kIdent[] = "LIBHCX";
constexpr uint32_t kAllCategories = 0x3ffff;
constexpr time_t kRefreshSeconds = 20;
constexpr size_t kSwitchLength = 9;  // eight digits and a newline
constexpr int kMaxFrames = 10;

std::atomic<time_t> logging_start_time{0};
std::atomic<bool> connected{false};

std::atomic_ref<uint32_t> mask() {
  return std::atomic_ref<uint32_t>(libhcx_logging_enable);
}

void connect() {
  if (!connected.exchange(true)) sysio::machine().syslog_open(kIdent, LOG_CONS | LOG_NDELAY, LOG_USER);
}

void disconnect() {
  if (connected.exchange(false)) sysio::machine().syslog_close();
}

// Opens the switch file; a negated errno when it is missing, "none" when it is something else: a pipe put in
// its place must not hang us (O_NONBLOCK), and what bears a second name is somebody's file.
Fd open_switch(int flags) {
  Fd fd(sysio::machine().open(kSwitchFile, flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644));
  mode_t mode = 0;
  nlink_t names = 0;
  if (fd.ok() && (sysio::machine().fstat(fd.get(), &mode, &names) < 0 || !S_ISREG(mode) || names != 1)) {
    fd.reset();
  }
  return fd;
}

// The switch file, empty, to be written. A file that is there is emptied only once it is known to be ours, and
// never opened with O_CREAT: kernels refuse that for another user's file in a directory like this one.
Fd empty_switch() {
  constexpr int attempts = 3;  // other processes may delete and make it meanwhile
  for (int i = 0; i < attempts; ++i) {
    Fd fd = open_switch(O_WRONLY);
    if (fd.ok()) {
      if (sysio::machine().truncate(fd.get(), 0) < 0) fd.reset();
      return fd;
    }
    if (fd.get() != -ENOENT) return fd;
    fd = open_switch(O_WRONLY | O_CREAT | O_EXCL);
    if (fd.ok() || fd.get() != -EEXIST) return fd;
  }
  return Fd();
}

uint32_t read_switch() {
  Fd fd = open_switch(O_RDONLY);
  if (!fd.ok()) return 0;
  char text[64];
  ssize_t length = sysio::machine().read(fd.get(), text, sizeof text - 1);
  if (length <= 0) return 0;
  text[length] = '\0';
  unsigned value = 0;
  return sscanf(text, "%8x", &value) == 1 ? value : 0;
}

// A log call must not disturb the errno that its caller is about to report.
class KeepErrno {
 public:
  KeepErrno() : saved_(errno) {}
  KeepErrno(const KeepErrno &) = delete;
  KeepErrno &operator=(const KeepErrno &) = delete;
  ~KeepErrno() { errno = saved_; }

 private:
  int saved_;
};

bool is_old() {
  return sysio::machine().now() - logging_start_time.load(std::memory_order_relaxed) > kRefreshSeconds;
}

void emit(const char *text) {
  connect();
  sysio::machine().syslog(LOG_INFO, text);
}

// The first use of backtrace() loads a library and allocates; that must not happen inside some later log
// call.
__attribute__((constructor)) void load_backtrace() {
  void *frame[1];
  backtrace(frame, 1);
}

}  // namespace

void libhcx_open_syslog() {
  KeepErrno keep;
  logging_start_time.store(sysio::machine().now(), std::memory_order_relaxed);
  disconnect();
  uint32_t value = read_switch();
  mask().store(value, std::memory_order_relaxed);
  if (value & kAllCategories) connect();
}

}  // namespace hcx

using namespace hcx;

__attribute__((noinline)) void libhcx_syslog(uint32_t enabled, const char *format, ...) {
  // Most calls end here: several are made for every attribute that is read.
  if (is_old()) libhcx_open_syslog();
  const uint32_t current = mask().load(std::memory_order_relaxed);
  if (!(enabled & current) || !format) return;

  KeepErrno keep;
  if (current & LOG_BACKTRACE) libhcx_backtrace();

  char line[1024];
  va_list args, again;
  va_start(args, format);
  va_copy(again, args);
  int length = vsnprintf(line, sizeof line, format, args);
  va_end(args);
  HeapArray<char> longer;
  if (length >= static_cast<int>(sizeof line)) {
    longer = heap_array<char>(static_cast<size_t>(length) + 1);
    if (longer) vsnprintf(longer.get(), static_cast<size_t>(length) + 1, format, again);
  }
  va_end(again);
  if (length >= 0) emit(longer ? longer.get() : line);
}

void libhcx_syslog_enable(uint32_t enable) {
  if (enable > kAllCategories) return;
  KeepErrno keep;
  ssize_t written = 0;
  {
    Fd fd = empty_switch();
    if (!fd.ok()) return;
    char text[16];
    snprintf(text, sizeof text, "%08x\n", enable);
    written = sysio::machine().write(fd.get(), text, kSwitchLength);
  }
  if (written == static_cast<ssize_t>(kSwitchLength)) libhcx_open_syslog();
}

void libhcx_syslog_unlink(void) {
  KeepErrno keep;
  disconnect();
  sysio::machine().unlink(kSwitchFile);
}

__attribute__((noinline)) void libhcx_backtrace(void) {
  KeepErrno keep;
  void *frames[kMaxFrames];
  int count = backtrace(frames, kMaxFrames);
  char **symbols = backtrace_symbols(frames, count);
  if (!symbols) return;
  // Frame 0 is this routine. The library's own frames are shown, and the first one of the application.
  for (int i = 1; i < count; ++i) {
    char text[257];
    snprintf(text, sizeof text, "%s", symbols[i]);
    text[strcspn(text, "+")] = '\0';
    if (const char *name = strchr(text, '(')) emit(Text<300>("stack(%d) - %s\n", i - 1, name + 1).c_str());
    if (!strstr(symbols[i], "/libhcx.so")) break;
  }
  free(symbols);
}
