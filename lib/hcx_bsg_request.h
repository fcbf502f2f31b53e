// SPDX-License-Identifier: BSD-3-Clause
// One request to a BSG node: its memory, header, exchange and answer, and what the vendor commands have in
// common on top of it. A Request belongs to the call that makes it; nothing here is shared between threads.
#pragma once

#include <errno.h>
#include <linux/bsg.h>

#include <cstdint>
#include <cstring>

#include "hcx_bsg.h"
#include "libhcx.h"

namespace hcx::bsg {

constexpr uint32_t default_timeout = 60000;  // milliseconds
constexpr int no_node = -1;                  // result of the calls by board whose node does not open

// Sizes and wording of one kind of request. The wordings differ between commands for no deeper reason than
// that their readers know them so; each takes the caller's name and, but for `no_memory`, a number.
struct Kind {
  uint32_t code;     // message code
  uint32_t command;  // vendor command, else 0
  uint32_t request_len;
  uint32_t reply_len;
  const char *no_memory;
  const char *ioctl_failed;  // null: the caller has more to say and logs by itself
  const char *bad_result;
};

class Request {
 public:
  // `caller` names the exported routine in the log.
  Request(const char *caller, const Kind &kind);

  // Memory, templates and header. When it answers false (no memory, or the driver does not have the command)
  // nothing is to be sent.
  bool prepare(uint32_t timeout);
  // The same with the record of a vendor command.
  template <class Record>
  bool prepare(uint32_t timeout, const Record &record) {
    static_assert(sizeof(Record) % 4 == 0);
    return prepare_vendor(timeout, &record, sizeof record);
  }
  // Data to the adapter and from it. The buffers stay where they are until the exchange is over.
  void send(const void *data, uint32_t size);
  void receive(void *data, uint32_t size);

  // 0, or a negated errno: of the ioctl, of the driver's result, or EIO for a result that is no errno. Logs
  // failures.
  int exchange(int fd);
  // The exchange on the board's node: 0, `no_node`, -EIO.
  int exchange_on_board(uint32_t board);
  // What exchange() answered last; 0 before one.
  int error() const { return error_; }
  // Whether the ioctl itself failed, so that there is no reply.
  bool unanswered() const { return unanswered_; }

  fc_bsg_request *request() { return reinterpret_cast<fc_bsg_request *>(request_.get()); }
  fc_bsg_reply *reply() { return reinterpret_cast<fc_bsg_reply *>(reply_.get()); }
  int32_t result() { return static_cast<int32_t>(reply()->result); }
  // Bytes in the buffer given to receive(), never more than it has.
  uint32_t received() {
    return reply()->reply_payload_rcv_len < room_ ? reply()->reply_payload_rcv_len : room_;
  }
  // Of these, what the kernel did not call missing. Where it says nothing, nothing is.
  uint32_t arrived() {
    const uint32_t missing = header_.din_resid > 0 ? static_cast<uint32_t>(header_.din_resid) : 0;
    const uint32_t present = missing < room_ ? room_ - missing : 0;
    return received() < present ? received() : present;
  }
  // The vendor command's answer.
  template <class Record>
  Record answer() {
    static_assert(sizeof(Record) <= sizeof(fc_bsg_reply) - offsetof(fc_bsg_reply, reply_data));
    Record record;
    memcpy(&record, &reply()->reply_data, sizeof record);
    return record;
  }

 private:
  bool prepare_vendor(uint32_t timeout, const void *record, size_t size);
  void log_number(const char *format, int number) const;

  const char *caller_;
  const Kind &kind_;
  sg_io_v4 header_ = {};
  HeapArray<uint8_t> request_;
  HeapArray<uint8_t> reply_;
  uint32_t room_ = 0;
  int error_ = 0;
  bool unanswered_ = false;
};

// send_bsg_mbox_write_read(), which also tells how many bytes of the reply are there: what its block counts may be
// missing from it.
int exchange_mailbox(hcx_host *host, uint8_t *request, uint8_t *reply, uint8_t mbOffset, uint32_t inExtWLen,
                     uint32_t outExtWLen, uint32_t *arrived);

// The wait for a CT request as a block that may be sent again and again by a process that neither allocates nor
// logs.
struct CtWait {
  sg_io_v4 header;
  alignas(8) uint8_t request[36];
  alignas(8) uint8_t reply[24];
};
// False when the driver does not have the command.
bool prepare(CtWait *wait, uint32_t gs_type, uint32_t ev_reg_id);
// As send_bsg_set_event(). Safe in a signal handler.
int exchange(CtWait *wait, int fd, uint32_t ev_req_id);

}  // namespace hcx::bsg
