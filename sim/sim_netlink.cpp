// SPDX-License-Identifier: BSD-3-Clause
// Queues and journal of the simulated netlink sockets. What a process waits on are real descriptors: an eventfd in
// memory, inotify on the journal of a state folder.
#include "sim_netlink.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "sim_machine.h"

namespace sim {

namespace {
constexpr int kProtocol = 18;
constexpr size_t kOverhead = 256;

// One record of the journal, followed by its bytes.
struct Record {
  uint32_t size;
  uint32_t sender;
};

void raise(int eventfd) {
  const uint64_t once = 1;
  if (::write(eventfd, &once, sizeof once) < 0) std::abort();
}

void drain(int fd) {
  char bytes[4096];
  while (::read(fd, bytes, sizeof bytes) > 0) {
  }
}
}  // namespace

Netlinks::Socket::~Socket() {
  for (const int fd : {ready, wake, done, journal}) {
    if (fd >= 0) ::close(fd);
  }
}

Netlinks::~Netlinks() = default;

std::string Netlinks::journal_path() const {
  return machine_.folder_ + "/netlink";
}

void Netlinks::send(std::string_view datagram, uint32_t sender) {
  const std::lock_guard guard(machine_.mutex_);
  if (machine_.folder_.empty()) {
    for (auto &socket : sockets_) {
      if (socket->protocol == kProtocol && socket->groups != 0) queue(*socket, datagram, sender);
    }
    return;
  }
  const Record head = {static_cast<uint32_t>(datagram.size()), sender};
  std::string record(reinterpret_cast<const char *>(&head), sizeof head);
  record += datagram;
  const int fd = ::open(journal_path().c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) throw std::runtime_error("cannot write " + journal_path());
  const ssize_t put = ::write(fd, record.data(), record.size());
  ::close(fd);
  if (put != static_cast<ssize_t>(record.size())) throw std::runtime_error("cannot write " + journal_path());
}

void Netlinks::queue(Socket &socket, std::string_view datagram, uint32_t sender) {
  const size_t cost = datagram.size() + kOverhead;
  if (socket.held + cost > buffer) {
    socket.overrun = true;
  } else {
    socket.queue.push_back({std::string(datagram), sender});
    socket.held += cost;
  }
  if (socket.journal < 0) raise(socket.ready);
}

void Netlinks::read_journal(Socket &socket) {
  for (;;) {
    Record head;
    if (::pread(socket.journal, &head, sizeof head, socket.position) != static_cast<ssize_t>(sizeof head))
      return;
    std::string bytes(head.size, '\0');
    const off_t at = socket.position + static_cast<off_t>(sizeof head);
    if (::pread(socket.journal, bytes.data(), bytes.size(), at) != static_cast<ssize_t>(bytes.size())) return;
    socket.position = at + static_cast<off_t>(head.size);
    queue(socket, bytes, head.sender);
  }
}

size_t Netlinks::sockets() {
  const std::lock_guard guard(machine_.mutex_);
  return sockets_.size();
}

size_t Netlinks::connected() {
  const std::lock_guard guard(machine_.mutex_);
  return static_cast<size_t>(
      std::count_if(sockets_.begin(), sockets_.end(), [](auto &s) { return s->groups != 0; }));
}

size_t Netlinks::waiting() {
  const std::lock_guard guard(machine_.mutex_);
  size_t count = 0;
  for (auto &socket : sockets_)
    count += socket->queue.size();
  return count;
}

hcx::sysio::Netlink *Netlinks::alloc() {
  const std::lock_guard guard(machine_.mutex_);
  if (machine_.enter(Verb::netlink_alloc, "") != 0) return nullptr;
  auto socket = std::make_unique<Socket>();
  socket->wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  socket->done = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  sockets_.push_back(std::move(socket));
  return reinterpret_cast<hcx::sysio::Netlink *>(sockets_.back().get());
}

int Netlinks::connect(hcx::sysio::Netlink *handle, int protocol, uint32_t groups) {
  const std::lock_guard guard(machine_.mutex_);
  Socket &socket = *of(handle);
  if (const int rc = machine_.enter(Verb::netlink_connect, ""); rc != 0) return rc;
  if (protocol != kProtocol) return -EPROTONOSUPPORT;
  if (!machine_.superuser && groups != 0) return -EPERM;
  if (machine_.folder_.empty()) {
    socket.ready = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  } else {
    socket.ready = ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
    socket.journal = ::open(journal_path().c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0666);
    if (socket.journal < 0) return -errno;
    // What was sent before is not for this socket.
    socket.position = ::lseek(socket.journal, 0, SEEK_END);
    if (::inotify_add_watch(socket.ready, journal_path().c_str(), IN_MODIFY) < 0) return -errno;
  }
  socket.protocol = protocol;
  socket.groups = groups;
  return 0;
}

// Nothing may be held here: a signal handler may end the thread.
int Netlinks::wait(hcx::sysio::Netlink *handle, const sigset_t *mask) {
  const Socket *socket = of(handle);
  pollfd watched[] = {{socket->ready, POLLIN, 0}, {socket->wake, POLLIN, 0}};
  if (::ppoll(watched, std::size(watched), nullptr, mask) < 0) return -errno;
  return watched[1].revents != 0 ? 0 : 1;
}

ssize_t Netlinks::receive(hcx::sysio::Netlink *handle, hcx::sysio::Datagram *datagram) {
  const std::lock_guard guard(machine_.mutex_);
  Socket &socket = *of(handle);
  *datagram = {};
  if (const int rc = machine_.enter(Verb::netlink_receive, ""); rc != 0) return rc;
  if (socket.queue.empty()) {
    drain(socket.ready);
    if (socket.journal >= 0) read_journal(socket);
  }
  // The kernel tells of a loss before it hands out what has come since.
  if (socket.overrun) {
    socket.overrun = false;
    return -ENOBUFS;
  }
  if (socket.queue.empty()) return -EAGAIN;
  Message message = std::move(socket.queue.front());
  socket.queue.pop_front();
  socket.held -= message.bytes.size() + kOverhead;
  datagram->bytes = static_cast<unsigned char *>(std::malloc(message.bytes.size() + 1));
  if (datagram->bytes == nullptr) return -ENOBUFS;
  std::memcpy(datagram->bytes, message.bytes.data(), message.bytes.size());
  datagram->sender = message.sender;
  return static_cast<ssize_t>(message.bytes.size());
}

void Netlinks::wake(hcx::sysio::Netlink *handle) {
  raise(of(handle)->wake);
}

void Netlinks::done(hcx::sysio::Netlink *handle) {
  raise(of(handle)->done);
}

bool Netlinks::wait_done(hcx::sysio::Netlink *handle, int milliseconds) {
  pollfd watched = {of(handle)->done, POLLIN, 0};
  int rc;
  do {
    rc = ::poll(&watched, 1, milliseconds);
  } while (rc < 0 && errno == EINTR);
  return rc > 0;
}

void Netlinks::close(hcx::sysio::Netlink *handle) {
  const std::lock_guard guard(machine_.mutex_);
  Socket &socket = *of(handle);
  socket.groups = 0;
  socket.queue.clear();
}

void Netlinks::free(hcx::sysio::Netlink *handle) {
  const std::lock_guard guard(machine_.mutex_);
  std::erase_if(sockets_, [handle](auto &socket) { return socket.get() == of(handle); });
}

}  // namespace sim
