// SPDX-License-Identifier: BSD-3-Clause
// The kernel's side of a BSG request: header checks of bsg, message checks of the FC transport, the reply's
// framing. A request that the transport or the driver refuses does not fail the ioctl: the reply carries the
// negative errno.
#include "sim_bsg.h"

#include <linux/bsg.h>
#include <scsi/sg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "sim_areas.h"
#include "sim_machine.h"

namespace sim {

namespace {
constexpr uint32_t kRportEls = 0x40000001, kRportCt = 0x40000002, kHostVendor = 0x800000ff;
constexpr uint64_t kVendorId = 0x0100000000001d5a;
constexpr uint32_t kManagementRevision = 6;

template <typename T>
T *pointer(uint64_t address) {
  return reinterpret_cast<T *>(static_cast<uintptr_t>(address));
}

std::string copy_in(uint64_t address, uint32_t size) {
  return size == 0 ? std::string() : std::string(pointer<const char>(address), size);
}
}  // namespace

uint32_t BsgCall::word(size_t offset) const {
  uint32_t value = 0;
  if (offset + sizeof value <= request.size()) std::memcpy(&value, request.data() + offset, sizeof value);
  return value;
}

void BsgCall::reply_word(uint32_t value) {
  reply_data.append(reinterpret_cast<const char *>(&value), sizeof value);
}

Bsg::Bsg(Machine &machine) : machine_(machine) {}

int Bsg::ioctl(Host &host, Rport *rport, const std::string &path, unsigned long request, void *arg) {
  if (request != SG_IO) return -ENOTTY;
  if (arg == nullptr) return -EFAULT;
  auto &header = *static_cast<sg_io_v4 *>(arg);
  if (header.guard != 'Q' || header.protocol != BSG_PROTOCOL_SCSI ||
      header.subprotocol != BSG_SUB_PROTOCOL_SCSI_TRANSPORT) {
    return -EINVAL;
  }
  if (!machine_.superuser) return -EPERM;
  if (header.request == 0 || (header.dout_xfer_len != 0 && header.dout_xferp == 0) ||
      (header.din_xfer_len != 0 && header.din_xferp == 0)) {
    return -EFAULT;
  }
  BsgCall call{.machine = machine_,
               .host = host,
               .rport = rport,
               .msgcode = 0,
               .command = 0,
               .request = copy_in(header.request, header.request_len),
               .data_out = copy_in(header.dout_xferp, header.dout_xfer_len),
               .data_in_size = header.din_xfer_len,
               .timeout = header.timeout};
  call.msgcode = call.word(0);
  if (call.msgcode == kHostVendor) call.command = call.word(12);
  if (call.msgcode == kRportEls && call.request.size() > 4)
    call.command = static_cast<uint8_t>(call.request[4]);
  machine_.record({.path = path,
                   .msgcode = call.msgcode,
                   .command = call.command,
                   .timeout = call.timeout,
                   .header = call.request,
                   .data_out = call.data_out,
                   .data_in_size = call.data_in_size});
  dispatch(call);
  if (call.again) return kWaits;
  if (call.error != 0) return -call.error;

  // A refusal replies with its result alone.
  std::string reply(8, '\0');
  if (call.result >= 0) {
    const size_t moved = std::min<size_t>(call.data_in.size(), header.din_xfer_len);
    if (moved != 0) std::memcpy(pointer<char>(header.din_xferp), call.data_in.data(), moved);
    if (call.received == 0) call.received = static_cast<uint32_t>(moved);
    header.din_resid = static_cast<int32_t>(header.din_xfer_len - moved);
    reply += call.reply_data;
    if (reply.size() < 16) reply.resize(16);
  } else {
    reply.resize(4);
  }
  std::memcpy(reply.data(), &call.result, sizeof call.result);
  if (reply.size() > 4) std::memcpy(reply.data() + 4, &call.received, sizeof call.received);
  const size_t length = std::min<size_t>(reply.size(), header.max_response_len);
  if (length != 0 && header.response != 0) std::memcpy(pointer<char>(header.response), reply.data(), length);
  header.response_len = static_cast<uint32_t>(length);
  header.device_status = static_cast<uint32_t>(call.result) & 0xff;
  header.info = call.result != 0 ? SG_INFO_CHECK : SG_INFO_OK;
  return 0;
}

void Bsg::dispatch(BsgCall &call) {
  const bool rport_kind = call.msgcode == kRportEls || call.msgcode == kRportCt;
  const size_t least = call.msgcode == kHostVendor ? 12 : call.msgcode == kRportEls ? 5 : 16;
  if (call.request.size() < 4 || (call.rport != nullptr) != rport_kind ||
      (!rport_kind && call.msgcode != kHostVendor)) {
    call.result = -EBADR;
    return;
  }
  if (call.request.size() < least) {
    call.result = -ENOMSG;
    return;
  }
  const BsgHandler *handler = nullptr;
  if (call.msgcode == kHostVendor) {
    uint64_t vendor = 0;
    std::memcpy(&vendor, call.request.data() + 4, sizeof vendor);
    if (vendor != kVendorId) {
      call.result = -ESRCH;
      return;
    }
    const auto found = vendor_.find(call.command);
    if (found != vendor_.end()) handler = &found->second;
  } else {
    handler = call.msgcode == kRportCt ? &ct_ : &els_;
  }
  if (handler == nullptr || !*handler) {
    call.result = -EINVAL;
    return;
  }
  const BsgHandler run = *handler;  // a handler may replace itself
  run(call);
}

void install_management_revision(Machine &machine) {
  machine.bsg().on_vendor(kManagementRevision, [](BsgCall &call) {
    if (call.request.size() < 16) {
      call.result = -EINVAL;
      return;
    }
    call.reply_word(call.machine.driver_major());
    call.reply_word(call.machine.driver_minor());
  });
}

}  // namespace sim
