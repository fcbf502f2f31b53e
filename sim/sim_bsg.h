// SPDX-License-Identifier: BSD-3-Clause
// BSG nodes of the FC transport: checks and framing as the kernel's bsg and scsi_transport_fc do them, and
// the hooks by which areas answer the driver's vendor commands, CT and ELS. Handlers run under the machine's
// mutex.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace sim {

// What Bsg::ioctl() answers for a request that has to wait.
constexpr int kWaits = -512;

class Machine;
class Host;
class Rport;

// One request in the hands of the driver.
struct BsgCall {
  Machine &machine;
  Host &host;
  Rport *rport;  // null on a host node
  uint32_t msgcode;
  uint32_t command;     // vendor command, or the ELS code
  std::string request;  // the whole request block
  std::string data_out;
  uint32_t data_in_size;
  uint32_t timeout;  // milliseconds

  // The answer. A negative result is an errno in the reply, as drivers give it; `error` makes the ioctl
  // itself fail.
  int32_t result = 0;
  std::string data_in = {};  // what goes back; cut to data_in_size
  uint32_t received = 0;  // reply_payload_rcv_len; set to data_in's size when left 0 and data_in is not empty
  std::string reply_data = {};  // bytes from offset 8 of the reply
  int error = 0;
  // The driver has nothing to say yet: the request waits, and is handed in again when something has changed.
  bool again = false;

  // The 32-bit word at a byte offset of the request, in the processor's order; 0 beyond its end.
  [[nodiscard]] uint32_t word(size_t offset) const;
  // Appends a word in the processor's order to the reply.
  void reply_word(uint32_t value);
};

using BsgHandler = std::function<void(BsgCall &)>;

class Bsg {
 public:
  explicit Bsg(Machine &machine);
  // The handler of a vendor command; replaces an earlier one, an empty handler removes it.
  void on_vendor(uint32_t command, BsgHandler handler) { vendor_[command] = std::move(handler); }
  void on_ct(BsgHandler handler) { ct_ = std::move(handler); }
  void on_els(BsgHandler handler) { els_ = std::move(handler); }
  // The handler in force, for tests that wrap it.
  BsgHandler vendor(uint32_t command) { return vendor_[command]; }
  BsgHandler ct() { return ct_; }
  BsgHandler els() { return els_; }

  // SG_IO on a node; `rport` is null for a host's.
  int ioctl(Host &host, Rport *rport, const std::string &path, unsigned long request, void *arg);

 private:
  void dispatch(BsgCall &call);

  Machine &machine_;
  std::map<uint32_t, BsgHandler> vendor_;
  BsgHandler ct_, els_;
};

}  // namespace sim
