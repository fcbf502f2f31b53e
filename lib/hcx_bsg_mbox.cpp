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

}  // namespace

int send_bsg_mbox_write_read(hcx_host *host, uint8_t *bsg_mbox_req, uint8_t *bsg_mbox_rep, uint8_t mbOffset,
                             uint32_t inExtWLen, uint32_t outExtWLen) {
  HCX_TRACE();
  if (!bsg_mbox_req) return -EIO;
  const bool slow = std::find(std::begin(long_commands), std::end(long_commands),
                              hcx_mbox_command(bsg_mbox_req)) != std::end(long_commands);
  return send_bsg_mbox_write_read_extended(host, bsg_mbox_req, bsg_mbox_rep, mbOffset, inExtWLen, outExtWLen,
                                           0, 0, slow ? long_timeout : short_timeout);
}

int send_bsg_mbox_write_read_extended(hcx_host *host, uint8_t *bsg_mbox_req, uint8_t *bsg_mbox_rep,
                                      uint8_t mbOffset, uint32_t inExtWLen, uint32_t outExtWLen,
                                      uint32_t extMBoxTag, uint32_t extSeqNum, uint32_t timeout) {
  HCX_TRACE();
  if (!host || !bsg_mbox_req || !bsg_mbox_rep) return -EIO;
  Request request(__func__, mailbox);
  if (!request.prepare(timeout,
                       hcx_mbox_req{mailbox.command, mbOffset, inExtWLen, outExtWLen, extMBoxTag, extSeqNum}))
    return -EIO;
  request.send(bsg_mbox_req, buffer_size);
  request.receive(bsg_mbox_rep, buffer_size);
  const int opened = map_host_to_bsg(host);
  if (opened == 0) {
    // The kind of node is switched off. 0 is no node: whatever the application has there stays untouched.
    HCX_LOG(LOG_ERROR, "ioctl failed x%08x", -EBADF);
    return -EIO;
  }
  const hcx::Fd fd(opened);
  if (!fd.ok()) return hcx::bsg::no_node;
  return request.exchange(fd.get()) == 0 ? static_cast<int>(request.received()) : -EIO;
}
