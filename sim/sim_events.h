// SPDX-License-Identifier: BSD-3-Clause
// Things that happen to an adapter, and how the kernel tells of them: by netlink messages of the SCSI transport, and
// by CT requests that wait in the driver for whoever asked for their kind. Any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

class Machine;
class Host;

class Events {
 public:
  explicit Events(Machine &machine) : machine_(machine) {}

  // The link goes or comes; the port's state follows.
  void link_down(Host &host) { link(host, false); }
  void link_up(Host &host) { link(host, true); }
  // A registered state change: one of the transport's own for each page, and one of the driver's with the payload.
  void rscn(Host &host, const std::vector<uint32_t> &pages);
  void dump(Host &host);
  void temperature(Host &host, uint32_t code, uint32_t celsius);
  // A diagnostic event of the driver: its kind, the port name that it is about (the first target's when left out), and
  // by kind another name or numbers; docs/hcxsim.md lists them. Throws std::runtime_error.
  void diagnostic(Host &host, const std::vector<std::string> &words);
  static std::vector<std::string> diagnostic_kinds();
  // Any vendor unique event: its kind, then the data.
  void vendor(Host &host, uint32_t kind, std::string_view data);
  // Any event of the transport.
  void post(Host &host, uint32_t code, std::string_view data);
  // A CT request comes in. The tag by which it is to be answered.
  uint32_t ct(Host &host, uint32_t gs_type, std::string_view request);
  // Answers that were sent to CT requests: "TAG:HEX".
  std::vector<std::string> ct_answers(Host &host);

  // One message as the kernel lays it out, without sending it; `host_no` need not exist.
  std::string message(int host_no, uint32_t number, uint32_t code, std::string_view data) const;

 private:
  void link(Host &host, bool up);
  Machine &machine_;
};

// A word in the processor's order.
std::string native_word(uint32_t value);

}  // namespace sim
