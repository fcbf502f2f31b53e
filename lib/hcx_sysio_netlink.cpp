// SPDX-License-Identifier: BSD-3-Clause
// Netlink sockets of the real machine, by libnl. A socket belongs to the thread that waits on it; only
// netlink_wake() is called from others.
//
// libnl's receive starts again after EINTR, and closing a socket wakes nobody who waits for it. So the socket does
// not block, the wait is a ppoll, and an eventfd beside it is what ends the wait for certain.
#include <errno.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <new>

#include "hcx_sysio_posix.h"

namespace hcx::sysio {

struct Netlink {
  nl_sock *socket = nullptr;
  int wake = -1;  // eventfd
  int done = -1;  // eventfd
};

namespace posix {
namespace {

// A storm of events must fit until the listener gets the processor.
constexpr int kReceiveBuffer = 4 << 20;

// libnl's own numbers, as far as a socket gives them. Without memory and without room in the socket's buffer
// come as one; for whoever receives, both mean that something may have been lost.
int errno_of(int nl_error) {
  switch (-nl_error) {
    case NLE_AGAIN:
      return -EAGAIN;
    case NLE_NOMEM:
      return -ENOBUFS;
    case NLE_PERM:
      return -EPERM;
    case NLE_NOACCESS:
      return -EACCES;
    case NLE_PROTO_MISMATCH:
      return -EPROTONOSUPPORT;
    case NLE_AF_NOSUPPORT:
      return -EAFNOSUPPORT;
    case NLE_BAD_SOCK:
      return -EBADF;
    default:
      return -EIO;
  }
}

void raise(int eventfd) {
  const uint64_t once = 1;
  // Fails only when the counter is full, and then the wait for it ends anyway.
  [[maybe_unused]] const ssize_t written = ::write(eventfd, &once, sizeof once);
}

}  // namespace

Netlink *netlink_alloc() {
  auto *made = new (std::nothrow) Netlink;
  if (!made) return nullptr;
  made->socket = ::nl_socket_alloc();
  made->wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  made->done = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (made->socket && made->wake >= 0 && made->done >= 0) return made;
  netlink_free(made);
  return nullptr;
}

int netlink_connect(Netlink *netlink, int protocol, uint32_t groups) {
  ::nl_socket_disable_seq_check(netlink->socket);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  // The groups are a mask here, which only the older of libnl's two calls takes.
  ::nl_join_groups(netlink->socket, static_cast<int>(groups));
#pragma GCC diagnostic pop
  int rc = ::nl_connect(netlink->socket, protocol);
  if (rc < 0) return errno_of(rc);
  const int fd = ::nl_socket_get_fd(netlink->socket);
  if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBuffer, sizeof kReceiveBuffer) < 0) {
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
  }
  rc = ::nl_socket_set_nonblocking(netlink->socket);
  if (rc >= 0) return 0;
  ::nl_close(netlink->socket);
  return errno_of(rc);
}

int netlink_wait(Netlink *netlink, const sigset_t *mask) {
  pollfd watched[] = {{::nl_socket_get_fd(netlink->socket), POLLIN, 0}, {netlink->wake, POLLIN, 0}};
  if (::ppoll(watched, std::size(watched), nullptr, mask) < 0) return -errno;
  return watched[1].revents ? 0 : 1;
}

ssize_t netlink_receive(Netlink *netlink, Datagram *datagram) {
  sockaddr_nl from = {};
  *datagram = {};
  const int length = ::nl_recv(netlink->socket, &from, &datagram->bytes, nullptr);
  datagram->sender = from.nl_pid;
  return length < 0 ? errno_of(length) : length;
}

void netlink_wake(Netlink *netlink) {
  raise(netlink->wake);
}

void netlink_done(Netlink *netlink) {
  raise(netlink->done);
}

bool netlink_wait_done(Netlink *netlink, int milliseconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  pollfd watched = {netlink->done, POLLIN, 0};
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
    const int rc = ::poll(&watched, 1, static_cast<int>(std::max<int64_t>(left, 0)));
    if (rc >= 0 || errno != EINTR) return rc > 0;
  }
}

void netlink_close(Netlink *netlink) {
  ::nl_close(netlink->socket);
}

void netlink_free(Netlink *netlink) {
  if (netlink->socket) ::nl_socket_free(netlink->socket);
  for (const int fd : {netlink->wake, netlink->done})
    if (fd >= 0) ::close(fd);
  delete netlink;
}

}  // namespace posix
}  // namespace hcx::sysio
