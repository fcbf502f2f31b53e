// SPDX-License-Identifier: BSD-3-Clause
// BSG framing: the header of every request, and the one exchange that all commands share. No state; any
// thread.
#include "hcx_bsg.h"

#include <scsi/sg.h>

#include <cstddef>

#include "hcx_bsg_request.h"

static_assert(sizeof(fc_bsg_request) == 20 && offsetof(fc_bsg_request, rqst_data) == 4);
static_assert(offsetof(fc_bsg_request, rqst_data.h_vendor.vendor_cmd) == 12);
static_assert(sizeof(fc_bsg_reply) == 16 && offsetof(fc_bsg_reply, reply_data) == 8);
static_assert(sizeof(sg_io_v4) == 160);

int bsg_init_header(sg_io_v4 *hdr, fc_bsg_request *req, fc_bsg_reply *reply, int code, int command,
                    uint32_t timeout) {
  if (!hdr || !req || !reply) return 1;
  if (!find_bsg_ioctl_mmm(command, code)) return 1;
  memset(hdr, 0, sizeof *hdr);
  memset(req, 0, sizeof *req);
  memset(reply, 0, sizeof *reply);
  hdr->guard = 'Q';
  hdr->protocol = BSG_PROTOCOL_SCSI;
  hdr->subprotocol = BSG_SUB_PROTOCOL_SCSI_TRANSPORT;
  hdr->request_len = sizeof *req;
  hdr->request = reinterpret_cast<uintptr_t>(req);
  hdr->max_response_len = sizeof *reply;
  hdr->response = reinterpret_cast<uintptr_t>(reply);
  hdr->timeout = timeout;
  return 0;
}

namespace hcx::bsg {

Request::Request(const char *caller, const Kind &kind)
    : caller_(caller),
      kind_(kind),
      request_(heap_array<uint8_t>(kind.request_len)),
      reply_(heap_array<uint8_t>(kind.reply_len)) {}

// The formats stand in the Kind tables, where each one has a "%s" and an "x%08x".
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
void Request::log_number(const char *format, int number) const {
  libhcx_syslog(LOG_ERROR, format, caller_, number);
}

bool Request::prepare(uint32_t timeout) {
  if (!request_ || !reply_) {
    libhcx_syslog(LOG_ERROR, kind_.no_memory, caller_);
    return false;
  }
  if (bsg_init_header(&header_, request(), reply(), static_cast<int>(kind_.code),
                      static_cast<int>(kind_.command), timeout) != 0) {
    return false;
  }
  header_.request_len = kind_.request_len;
  request()->msgcode = kind_.code;
  return true;
}
#pragma GCC diagnostic pop

bool Request::prepare_vendor(uint32_t timeout, const void *record, size_t size) {
  constexpr size_t at = offsetof(fc_bsg_request, rqst_data.h_vendor.vendor_cmd);
  if (at + size > kind_.request_len || !prepare(timeout)) return false;
  request()->rqst_data.h_vendor.vendor_id = VOSK_BSG_VENDOR_ID;
  memcpy(request_.get() + at, record, size);
  return true;
}

void Request::send(const void *data, uint32_t size) {
  header_.dout_xferp = reinterpret_cast<uintptr_t>(data);
  header_.dout_xfer_len = size;
}

void Request::receive(void *data, uint32_t size) {
  header_.din_xferp = reinterpret_cast<uintptr_t>(data);
  header_.din_xfer_len = size;
  room_ = size;
}

int Request::exchange(int fd) {
  const int rc = sysio::machine().ioctl(fd, SG_IO, &header_);
  unanswered_ = rc < 0;
  if (unanswered_) {
    error_ = rc;
    if (kind_.ioctl_failed) log_number(kind_.ioctl_failed, rc);
  } else if (result() != 0) {
    // Kernels of different age report the driver's error in either place.
    error_ = result() < 0 ? result() : -EIO;
    log_number(kind_.bad_result, result());
  } else {
    error_ = 0;
  }
  return error_;
}

int Request::exchange_on_board(uint32_t board) {
  const Fd fd(map_board_to_bsg(static_cast<int>(board)));
  if (!fd.ok()) return no_node;
  return exchange(fd.get()) == 0 ? 0 : -EIO;
}

}  // namespace hcx::bsg
