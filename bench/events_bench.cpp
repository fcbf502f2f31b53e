// SPDX-License-Identifier: BSD-3-Clause
// Events, from a netlink socket that is full of them to the last one delivered: into the ring only, and on to one, or
// eight, registered functions. The socket is a real one, of the protocol that programs may use among themselves. The
// floor waits for the socket and empties it.
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <condition_variable>
#include <mutex>

#include "bench.h"
#include "hcx_ioctl_event.h"
#include "vosk_nl.h"

namespace {

constexpr uint32_t kGroup = 1, kFloorGroup = 2;
constexpr uint32_t kEvents = 200;  // in one round; they fit into the smallest receive buffer

// Holds the listener back until all is sent, and says when all has been taken.
class Listened final : public bench::Machine {
 public:
  using bench::Machine::Machine;

  int netlink_connect(hcx::sysio::Netlink *socket, int, uint32_t) override {
    return real_.netlink_connect(socket, NETLINK_USERSOCK, kGroup);
  }
  int netlink_wait(hcx::sysio::Netlink *socket, const sigset_t *mask) override {
    {
      std::unique_lock lock(mutex_);
      if (received_ >= kEvents) done_.notify_one();
      go_.wait(lock, [&] { return open_; });
    }
    return real_.netlink_wait(socket, mask);
  }
  ssize_t netlink_receive(hcx::sysio::Netlink *socket, hcx::sysio::Datagram *datagram) override {
    const ssize_t size = real_.netlink_receive(socket, datagram);
    datagram->sender = 0;  // as if the kernel had sent it
    if (size > 0) ++received_;
    return size;
  }
  void netlink_wake(hcx::sysio::Netlink *socket) override {
    real_.netlink_wake(socket);
    gate(true);
  }
  void netlink_close(hcx::sysio::Netlink *socket) override { real_.netlink_close(socket); }

  void gate(bool open) {
    const std::lock_guard lock(mutex_);
    open_ = open;
    go_.notify_all();
  }
  // Processor time until the listener comes back for more than all events.
  double deliver() {
    const double start = processor_start();
    std::unique_lock lock(mutex_);
    done_.wait(lock, [&] { return received_ >= kEvents; });
    open_ = false;
    received_ = 0;
    return bench::processor_seconds() - start;
  }

 private:
  double processor_start() {
    const double start = bench::processor_seconds();
    gate(true);
    return start;
  }
  std::mutex mutex_;
  std::condition_variable go_, done_;
  std::atomic<uint32_t> received_{0};
  bool open_ = true;
};

// An event of the driver, as the kernel sends it.
std::string temperature_message() {
  struct {
    nlmsghdr head;
    fc_nl_event event;
    uint32_t more[2];
  } message = {};
  static_assert(sizeof message == sizeof(nlmsghdr) + sizeof(fc_nl_event) + 8);
  message.head.nlmsg_len = sizeof message;
  message.head.nlmsg_type = VOSK_NL_TRANSPORT_MSG;
  message.event.snlh = {VOSK_NL_VERSION, VOSK_NL_TRANSPORT_FC, 0, VOSK_NL_FC_ASYNC_EVENT,
                        sizeof message - sizeof(nlmsghdr)};
  message.event.event_datalen = 12;
  message.event.event_code = VOSKH_EVT_VENDOR_UNIQUE;
  message.event.event_data = VOSK_NL_EVENT_TEMPERATURE;
  message.more[0] = 1;
  return {reinterpret_cast<const char *>(&message), sizeof message};
}

int user_socket(uint32_t groups) {
  const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_USERSOCK);
  sockaddr_nl address = {};
  address.nl_family = AF_NETLINK;
  address.nl_groups = groups;
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) return -1;
  const int size = 4 << 20;
  setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size);
  return fd;
}

void send_all(int fd, uint32_t group) {
  static const std::string message = temperature_message();
  sockaddr_nl to = {};
  to.nl_family = AF_NETLINK;
  to.nl_groups = group;
  for (uint32_t i = 0; i < kEvents; ++i)
    // Refused by the kernel, which is asked last; the group has it.
    if (sendto(fd, message.data(), message.size(), 0, reinterpret_cast<sockaddr *>(&to), sizeof to) < 0 &&
        errno != ECONNREFUSED)
      abort();
}

// Waits once and takes all, each into a buffer of its own length.
double floor_deliver(int socket) {
  return bench::timed([socket] {
    pollfd watched = {socket, POLLIN, 0};
    ppoll(&watched, 1, nullptr, nullptr);
    char bytes[4096];
    uint32_t taken = 0;
    while (recv(socket, bytes, sizeof bytes, 0) > 0)
      ++taken;
    if (taken != kEvents) abort();
  });
}

std::atomic<uint32_t> called{0};
void count_call(uint32_t, uint32_t, uint32_t) {
  called.fetch_add(1, std::memory_order_relaxed);
}

void measure(int rounds, Listened &machine, uint32_t registrations) {
  const bench::Started library(machine);
  for (uint32_t i = 0; i < registrations; ++i)
    HCX_RegisterForEvent(0, FC_REG_TEMPERATURE_EVENT, 0, 0, reinterpret_cast<void (*)()>(count_call),
                         nullptr);
  const int from = user_socket(0), other = user_socket(kFloorGroup);
  machine.gate(false);
  const auto round = [&] {
    called = 0;
    send_all(from, kGroup);
    const double took = machine.deliver();
    return called == registrations * kEvents ? took : -1;
  };
  const std::string what = "event, to " + std::to_string(registrations) + " functions";
  bench::row(what, rounds, kEvents, 0, round, [&] {
    send_all(from, kFloorGroup);
    return floor_deliver(other);
  });
  HCX_unRegisterForEvent(0, 0);
  machine.gate(true);
  close(from);
  close(other);
}

}  // namespace

int main(int argc, char **argv) {
  const bench::Options options(argc, argv);
  const bench::Tree tree(256);
  Listened machine(tree.root);
  for (const uint32_t registrations : {0u, 1u, 8u})
    measure(options.rounds(60), machine, registrations);
  return 0;
}
