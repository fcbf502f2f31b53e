// SPDX-License-Identifier: BSD-3-Clause
// The listener: one thread for a process that receives the FC transport's events, checks them and hands them to
// registration and delivery. Owns the socket, its thread and the meaning of SIGUSR1 for that thread.
//
// The listener keeps SIGUSR1 blocked except where nothing of its own is in progress: in the wait for the next
// datagram, and in deliver() between two batches. So a handler of that signal never finds it inside the allocator,
// a library lock or libnl, and may even end it.
#include "hcx_netlink.h"

#include <errno.h>
#include <netlink/msg.h>
#include <semaphore.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <new>
#include <utility>

#include "hcx_ioctl_event.h"
#include "hcx_signal.h"
#include "libhcx.h"
#include "vosk_nl.h"

static_assert(sizeof(scsi_nl_hdr) == 8 && sizeof(fc_nl_event) == 40);
static_assert(offsetof(fc_nl_event, host_no) == 24 && offsetof(fc_nl_event, event_data) == 36);

thread_context ctxt;

using namespace hcx;

namespace {

constexpr uint32_t kAllGroups = 0xffffffff;
constexpr uint64_t kRetryDelay = 1000;  // microseconds
constexpr int kPatience = 10000;        // milliseconds
// Datagrams between two deliveries: a storm must not keep the callbacks waiting.
constexpr int kBatch = 64;
constexpr size_t kDataOffset = offsetof(fc_nl_event, event_data);

// The helpers below log in the name of the thread's body.
constexpr char kCaller[] = "wait_for_netlink_event";

sem_t event_thread_init_done;

// Who listens, for signal handlers and other threads; 0 for nobody. A stale number does no harm: a signal to a
// thread that is no more fails, whereas pthread_kill() on a joined thread may do anything.
std::atomic<pid_t> listener_process{0};
std::atomic<pid_t> listener_thread{0};
std::atomic<uint32_t> overruns{0};

// One listener from its start to its end. Whoever stops it releases this and the socket. A listener that stops itself
// (leaving), or that could not be waited for any longer (abandoned), does so when it ends.
struct Listener {
  enum State { listening, ended, leaving, abandoned };
  nl_handle *handle;
  std::atomic<State> state{listening};
};
Listener *current = nullptr;
// The listener that the calling thread is.
thread_local Listener *self = nullptr;
std::atomic<int> left_behind{0};

std::atomic_ref<int> running(thread_context *context) {
  return std::atomic_ref<int>(context->thread_running);
}

sigset_t event_signal() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGUSR1);
  return set;
}

void release(Listener *listener) {
  sysio::machine().netlink_close(listener->handle);
  sysio::machine().netlink_free(listener->handle);
  delete listener;
}

// The last act of a listener, also when its handler of the signal ends it.
struct Ending {
  Listener *listener;
  explicit Ending(Listener *of) : listener(of) { self = of; }
  Ending(const Ending &) = delete;
  Ending &operator=(const Ending &) = delete;
  ~Ending() {
    self = nullptr;
    nl_handle *handle = listener->handle;
    const Listener::State state = listener->state.exchange(Listener::ended);
    if (state == Listener::listening) {
      sysio::machine().netlink_done(handle);
    } else {
      release(listener);
      if (state == Listener::abandoned) --left_behind;
    }
  }
};

// An event whose record has been received whole.
void take_event(const fc_nl_event &event, const uint8_t *data, size_t length) {
  if (event.snlh.version != VOSK_NL_VERSION) {
    libhcx_syslog(LOG_ERROR, "%s - pid %d Bad Version #: %d", kCaller, getpid(), event.snlh.version);
    return;
  }
  if (event.snlh.transport != VOSK_NL_TRANSPORT_FC) {
    libhcx_syslog(LOG_ERROR, "%s - pid %d transport x%08x not SCSI_NL_TRANSPORT_FC", kCaller, getpid(),
                  event.snlh.transport);
    return;
  }
  if (event.snlh.msgtype != VOSK_NL_FC_ASYNC_EVENT) {
    libhcx_syslog(LOG_ERROR, "%s - pid %d NL TRANSPOPT Uknown Msg Type %d", kCaller, getpid(),
                  event.snlh.msgtype);
    return;
  }
  // Asking for the process id is a system call, too much for every event.
  if (std::atomic_ref(libhcx_logging_enable).load(std::memory_order_relaxed) & LOG_NETLINK) {
    libhcx_syslog(LOG_NETLINK, "%s - pid %d post fc event - host%d num x%08x code x%08x", kCaller, getpid(),
                  event.host_no, event.event_num, event.event_code);
  }
  if (!find_netlink_mmm(static_cast<int>(event.event_code), static_cast<int>(event.event_data))) return;
  post_fc_event(event.host_no, event.event_num, event.event_code, event.event_data);
  // A copy, because the data need not be aligned in the datagram, and the interface takes words.
  uint32_t words[16] = {};
  const HeapArray<uint32_t> more = length > sizeof words ? heap_array<uint32_t>(length / 4 + 1) : nullptr;
  uint32_t *copy = more ? more.get() : words;
  if (!more && length > sizeof words) {
    libhcx_syslog(LOG_ERROR, "%s - pid %d out of memory, event x%08x dropped", kCaller, getpid(),
                  event.event_num);
    return;
  }
  memcpy(copy, data, length);
  signal_async_event_handler(event.host_no, event.event_num, event.event_code, copy,
                             static_cast<uint32_t>(length));
}

// An event message: `payload` bytes behind its netlink header have been received.
void take_transport_message(const uint8_t *at, size_t payload) {
  fc_nl_event event;
  if (payload < sizeof event) {
    libhcx_syslog(LOG_ERROR, "%s - pid %d message of %d bytes is too short", kCaller, getpid(),
                  static_cast<int>(payload));
    return;
  }
  memcpy(&event, at, sizeof event);
  // What the sender says is believed only as far as it was received.
  size_t room = payload - kDataOffset;
  if (event.snlh.msglen >= sizeof event) {
    room = std::min<size_t>(room, event.snlh.msglen - kDataOffset);
  } else {
    libhcx_syslog(LOG_ERROR, "%s - pid %d event x%08x of %d bytes is too short", kCaller, getpid(),
                  event.event_num, event.snlh.msglen);
    return;
  }
  take_event(event, at + kDataOffset, std::min<size_t>(event.event_datalen, room));
}

void take_message(const nlmsghdr *message) {
  const auto *payload = static_cast<const uint8_t *>(nlmsg_data(message));
  const size_t size = message->nlmsg_len - NLMSG_HDRLEN;
  if (message->nlmsg_type == VOSK_NL_TRANSPORT_MSG) {
    take_transport_message(payload, size);
  } else if (message->nlmsg_type == NLMSG_ERROR) {
    int error = 0;
    if (size >= sizeof error) memcpy(&error, payload, sizeof error);
    if (error != 0) {
      libhcx_syslog(LOG_ERROR, "%s - pid %d Error Msg Received: error %d", kCaller, getpid(), error);
    }
  } else {
    libhcx_syslog(LOG_ERROR, "%s - pid %d Msg Type x%08x unknown", kCaller, getpid(), message->nlmsg_type);
  }
}

void report_failed_receive(ssize_t result) {
  if (!listener_stopping()) {
    libhcx_syslog(LOG_ERROR, "%s - pid %d Netlink event nl_recv failed\t0x%x", kCaller, getpid(),
                  static_cast<unsigned>(result));
  }
  if (result == -ENOBUFS) {
    libhcx_syslog(LOG_ERROR, "%s - pid %d events were lost, %u times so far", kCaller, getpid(), ++overruns);
  }
  sysio::machine().sleep_us(kRetryDelay);
}

// Takes what has come, at most one batch.
void receive_batch(nl_handle *handle) {
  for (int i = 0; i < kBatch && !listener_stopping(); ++i) {
    sysio::Datagram datagram;
    const ssize_t size = sysio::machine().netlink_receive(handle, &datagram);
    if (size > 0) take_netlink_datagram(datagram, static_cast<size_t>(size));
    free(datagram.bytes);
    if (size > 0) continue;
    if (size != -EAGAIN) report_failed_receive(size);
    return;
  }
}

// The safe point: signals that wait for this thread are taken here, then the callbacks run that they ask for.
void deliver() {
  const sigset_t event = event_signal();
  pthread_sigmask(SIG_UNBLOCK, &event, nullptr);
  pthread_sigmask(SIG_BLOCK, &event, nullptr);
  event_safe_point();
}

void listen(nl_handle *handle) {
  const EventSignalBlock blocked;
  sigset_t waiting;
  pthread_sigmask(SIG_BLOCK, nullptr, &waiting);
  sigdelset(&waiting, SIGUSR1);
  while (!listener_stopping()) {
    const int rc = sysio::machine().netlink_wait(handle, &waiting);
    if (listener_stopping()) return;
    if (rc > 0) {
      receive_batch(handle);
    } else if (rc < 0 && rc != -EINTR) {
      report_failed_receive(rc);
    }
    deliver();
  }
}

void close_socket() {
  sysio::machine().netlink_close(ctxt.handle);
  sysio::machine().netlink_free(ctxt.handle);
  ctxt.handle = nullptr;
}

// Waits for the end of a listener that was told to stop. A callback that does not come back, perhaps because it waits
// for the very thread that is here, must not hold up the stop for ever: false when the listener was left to itself.
bool wait_for_listener() {
  Listener::State expected = Listener::listening;
  if (!sysio::machine().netlink_wait_done(ctxt.handle, listener_patience)) {
    ++left_behind;
    if (current->state.compare_exchange_strong(expected, Listener::abandoned)) {
      libhcx_syslog(LOG_ERROR, "%s - pid %d the listener is left in a callback that does not return",
                    "net_link_exit", getpid());
      pthread_detach(ctxt.thread);
      return false;
    }
    --left_behind;
  }
  pthread_join(ctxt.thread, nullptr);
  return true;
}

bool start_thread() {
  current = new (std::nothrow) Listener{ctxt.handle};
  if (!current) return false;
  if (sem_init(&event_thread_init_done, 0, 0) != 0) {
    delete std::exchange(current, nullptr);
    return false;
  }
  pthread_attr_init(&ctxt.pthread_custom_attr);
  running(&ctxt) = 1;
  // The thread is born with the signal blocked, so that it cannot be told to end before it listens.
  const EventSignalBlock blocked;
  if (pthread_create(&ctxt.thread, &ctxt.pthread_custom_attr, wait_for_netlink_event, &ctxt) == 0) {
    while (sem_wait(&event_thread_init_done) != 0 && errno == EINTR) {
    }
    return true;
  }
  running(&ctxt) = 0;
  pthread_attr_destroy(&ctxt.pthread_custom_attr);
  sem_destroy(&event_thread_init_done);
  delete std::exchange(current, nullptr);
  return false;
}

}  // namespace

namespace hcx {

int listener_patience = kPatience;

bool install_event_signal(void (*handler)(int), int flags) {
  struct sigaction action = {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigemptyset(&action.sa_mask);
  return sigaction(SIGUSR1, &action, nullptr) == 0;
}

bool listener_runs() {
  return listener_thread.load() != 0 && listener_process.load() == getpid();
}

bool on_listener() {
  return listener_runs() && listener_thread.load() == gettid();
}

bool signal_listener() {
  return listener_runs() && tgkill(getpid(), listener_thread.load(), SIGUSR1) == 0;
}

bool listener_stopping() {
  return self && (self->state.load() != Listener::listening || running(&ctxt) < 0);
}

int listeners_left_behind() {
  return left_behind.load();
}

void take_netlink_datagram(const sysio::Datagram &datagram, size_t size) {
  if (datagram.sender != 0) {
    libhcx_syslog(LOG_ERROR, "%s - pid %d message from port %u, not the kernel, dropped", kCaller, getpid(),
                  datagram.sender);
    return;
  }
  size_t at = 0;
  while (size - at >= sizeof(nlmsghdr)) {
    nlmsghdr header;
    memcpy(&header, datagram.bytes + at, sizeof header);
    if (header.nlmsg_len < sizeof header || header.nlmsg_len > size - at) break;
    take_message(reinterpret_cast<const nlmsghdr *>(datagram.bytes + at));
    const size_t step = NLMSG_ALIGN(size_t{header.nlmsg_len});
    at = step < size - at ? at + step : size;
  }
  if (at < size) {
    libhcx_syslog(LOG_ERROR, "%s - pid %d %d bytes behind the last whole message dropped", kCaller, getpid(),
                  static_cast<int>(size - at));
  }
}

uint32_t netlink_overruns() {
  return overruns.load();
}

}  // namespace hcx

void *wait_for_netlink_event(void *arg) {
  HCX_TRACE();
  auto *context = static_cast<thread_context *>(arg);
  if (!context) {
    HCX_LOG(LOG_ERROR, "pid %d no arg", getpid());
    return nullptr;
  }
  const Ending ending(current);
  listener_process = getpid();
  listener_thread = gettid();
  sem_post(&event_thread_init_done);
  listen(context->handle);
  return nullptr;
}

void s_handler(int) {
  // Ends the listener, and only when it was told so: the signal may come from anywhere and reach any thread.
  if (!on_listener() || running(&ctxt) >= 0) return;
  HCX_TRACE();
  HCX_LOG(LOG_NETLINK, "pid %d signalled", getpid());
  // The wait has been interrupted and the loop looks at thread_running next. pthread_exit() from in here would unwind
  // through the signal's frame and through calls that are known not to throw.
}

int net_link_init(void) {
  HCX_TRACE();
  HCX_LOG(LOG_NETLINK, "pid %d Enter", getpid());
  if (ctxt.handle && listener_runs()) return 0;
  // What a forked copy of the process has inherited is of no use to it.
  if (ctxt.handle) net_link_exit();
  ctxt.handle = sysio::machine().netlink_alloc();
  if (!ctxt.handle) {
    HCX_LOG(LOG_ERROR, "pid %d Failed to allocate nl_handle", getpid());
    return -1;
  }
  if (sysio::machine().netlink_connect(ctxt.handle, VOSK_NL_PROTOCOL, kAllGroups) < 0) {
    HCX_LOG(LOG_ERROR, "pid %d nl_connect failed", getpid());
    sysio::machine().netlink_free(ctxt.handle);
    ctxt.handle = nullptr;
    return -1;
  }
  if (!install_event_signal(s_handler, 0)) {
    HCX_LOG(LOG_ERROR, "pid %d Could not establish SIGUSR1 signal handler", getpid());
    close_socket();
    return -1;
  }
  if (!start_thread()) {
    HCX_LOG(LOG_ERROR, "pid %d Could not create thread", getpid());
    close_socket();
    return -1;
  }
  // Registrations outlive a stop; their handler then has to come back.
  resume_event_delivery();
  HCX_LOG(LOG_NETLINK, "pid %d ok", getpid());
  return 0;
}

void net_link_exit(void) {
  HCX_TRACE();
  if (!ctxt.handle) return;
  const bool is_self = on_listener();
  const bool ours = listener_runs();
  const bool stopping = running(&ctxt).exchange(-1) < 0;
  // Another thread waits for the callback that this is called from.
  if (is_self && stopping) return;
  if (is_self) {
    // From a callback: the listener cannot wait for itself. It ends when the callback returns.
    self->state = Listener::leaving;
    pthread_detach(ctxt.thread);
  } else if (ours) {
    // The number of the socket must not be given to another file while the listener may still use it. So what
    // wakes the listener is its eventfd and the signal, and the socket is closed behind it.
    sysio::machine().netlink_wake(ctxt.handle);
    signal_listener();
    if (wait_for_listener()) release(current);
  } else {
    release(current);  // in a forked copy of the process, which has the socket but no thread
  }
  listener_thread = 0;
  current = nullptr;
  pthread_attr_destroy(&ctxt.pthread_custom_attr);
  sem_destroy(&event_thread_init_done);
  ctxt.handle = nullptr;
  HCX_LOG(LOG_NETLINK, "pid %d Exit", getpid());
}
