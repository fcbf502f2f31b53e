// SPDX-License-Identifier: BSD-3-Clause
// Netlink sockets of the simulated machine, and what the kernel sends to them. In memory each socket has a queue; with
// a state folder all processes read one journal that anyone may append to. Guarded by the machine's mutex, but for the
// wait, which holds nothing.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "hcx_sysio.h"

namespace sim {

class Machine;

class Netlinks {
 public:
  explicit Netlinks(Machine &machine) : machine_(machine) {}
  ~Netlinks();
  Netlinks(const Netlinks &) = delete;
  Netlinks &operator=(const Netlinks &) = delete;

  // One datagram to every socket of protocol 18 that is in a group. A socket without room loses it and is told so.
  void send(std::string_view datagram, uint32_t sender = 0);
  // Room of a socket, in bytes of messages; each counts for its size and some 256 more.
  size_t buffer = size_t{4} << 20;
  // Sockets that have not been freed, and those of them that are connected.
  [[nodiscard]] size_t sockets();
  [[nodiscard]] size_t connected();
  // Datagrams that no socket has taken yet.
  [[nodiscard]] size_t waiting();

  hcx::sysio::Netlink *alloc();
  int connect(hcx::sysio::Netlink *socket, int protocol, uint32_t groups);
  int wait(hcx::sysio::Netlink *socket, const sigset_t *mask);
  ssize_t receive(hcx::sysio::Netlink *socket, hcx::sysio::Datagram *datagram);
  void wake(hcx::sysio::Netlink *socket);
  void done(hcx::sysio::Netlink *socket);
  bool wait_done(hcx::sysio::Netlink *socket, int milliseconds);
  void close(hcx::sysio::Netlink *socket);
  void free(hcx::sysio::Netlink *socket);

 private:
  struct Message {
    std::string bytes;
    uint32_t sender;
  };
  struct Socket {
    ~Socket();
    int ready = -1;  // eventfd of the queue, or inotify on the journal
    int wake = -1;   // eventfd
    int done = -1;   // eventfd
    int journal = -1;
    off_t position = 0;
    int protocol = -1;
    uint32_t groups = 0;
    std::deque<Message> queue;
    size_t held = 0;
    bool overrun = false;
  };
  static Socket *of(hcx::sysio::Netlink *socket) { return reinterpret_cast<Socket *>(socket); }
  void queue(Socket &socket, std::string_view datagram, uint32_t sender);
  void read_journal(Socket &socket);
  [[nodiscard]] std::string journal_path() const;

  Machine &machine_;
  std::vector<std::unique_ptr<Socket>> sockets_;
};

}  // namespace sim
