// SPDX-License-Identifier: BSD-3-Clause
// The vendor command that carries a mailbox. Works on a host record whose lock the mailbox engine holds:
// nothing is looked up or rescanned here. No state; taking turns is the engine's business.
#include <errno.h>

#include <algorithm>

#include "hcx_bsg_request.h"

namespace {

using hcx::bsg::Kind;
using hcx::bsg::Request;

constexpr uint32_t buffer_size = 4096;
constexpr uint32_t short_timeout = 60000;
constexpr uint32_t long_timeout = 330000;

// Commands that write flash, and the one that sets names: the firmware may take minutes over them.
constexpr uint8_t long_commands[] = {MBX_WRITE_NV,  MBX_UPDATE_CFG, MBX_DOWN_LOAD,   MBX_DEL_LD_ENTRY,
                                     MBX_LOAD_AREA, MBX_WRITE_WWN,  MBX_LOAD_EXP_ROM};

constexpr Kind mailbox = {FC_BSG_HST_VENDOR,
                          VOSK_BSG_VENDOR_MBOX,
                          44,
                          16,
                          "%s - out of memory",
                          "%s - ioctl failed x%08x",
                          "%s - reply result not zero x%08x"};

int carry(hcx_host *host, uint8_t *request_data, uint8_t *reply_data, const hcx_mbox_req &record,
          uint32_t timeout, uint32_t *arrived) {
  constexpr char self[] = "send_bsg_mbox_write_read_extended";
  libhcx_syslog(LOG_TRACE, "%s()", self);
  *arrived = 0;
  if (!host || !request_data || !reply_data) return -EIO;
  Request request(self, mailbox);
  if (!request.prepare(timeout, record)) return -EIO;
  request.send(request_data, buffer_size);
  request.receive(reply_data, buffer_size);
  const int opened = map_host_to_bsg(host);
  if (opened == 0) {
    // The kind of node is switched off. 0 is no node: whatever the application has there stays untouched.
    libhcx_syslog(LOG_ERROR, "%s - ioctl failed x%08x", self, -EBADF);
    return -EIO;
  }
  const hcx::Fd fd(opened);
  if (!fd.ok()) return hcx::bsg::no_node;
  if (request.exchange(fd.get()) != 0) return -EIO;
  *arrived = request.arrived();
  return static_cast<int>(request.received());
}

}  // namespace

int hcx::bsg::exchange_mailbox(hcx_host *host, uint8_t *request, uint8_t *reply, uint8_t mbOffset,
                               uint32_t inExtWLen, uint32_t outExtWLen, uint32_t *arrived) {
  libhcx_syslog(LOG_TRACE, "%s()", "send_bsg_mbox_write_read");
  *arrived = 0;
  if (!request) return -EIO;
  const bool slow = std::find(std::begin(long_commands), std::end(long_commands),
                              hcx_mbox_command(request)) != std::end(long_commands);
  return carry(host, request, reply, {mailbox.command, mbOffset, inExtWLen, outExtWLen, 0, 0},
               slow ? long_timeout : short_timeout, arrived);
}

int send_bsg_mbox_write_read(hcx_host *host, uint8_t *bsg_mbox_req, uint8_t *bsg_mbox_rep, uint8_t mbOffset,
                             uint32_t inExtWLen, uint32_t outExtWLen) {
  uint32_t arrived;
  return hcx::bsg::exchange_mailbox(host, bsg_mbox_req, bsg_mbox_rep, mbOffset, inExtWLen, outExtWLen,
                                    &arrived);
}

int send_bsg_mbox_write_read_extended(hcx_host *host, uint8_t *bsg_mbox_req, uint8_t *bsg_mbox_rep,
                                      uint8_t mbOffset, uint32_t inExtWLen, uint32_t outExtWLen,
                                      uint32_t extMBoxTag, uint32_t extSeqNum, uint32_t timeout) {
  uint32_t arrived;
  return carry(host, bsg_mbox_req, bsg_mbox_rep,
               {mailbox.command, mbOffset, inExtWLen, outExtWLen, extMBoxTag, extSeqNum}, timeout, &arrived);
}
