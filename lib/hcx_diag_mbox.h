// SPDX-License-Identifier: BSD-3-Clause
// What the parts of the mailbox engine share: sizes, the lock of one command, and the two inner entries.
// Mailboxes are byte buffers here; their words are read with hcx_mbox_word(). A buffer belongs to the call
// that made it.
#pragma once

#include <atomic>
#include <cstdint>

#include "libhcx.h"

namespace hcx::mbox {

constexpr uint32_t block_size = 256;    // the mailbox itself
constexpr uint32_t buffer_size = 4096;  // what one exchange moves: the block and external data
constexpr uint32_t max_data = buffer_size - block_size;
constexpr uint32_t max_ext_words = 512;  // external data of the calls that count them
constexpr uint32_t max_ext_bytes = 4 * max_ext_words;
constexpr uint32_t update_cfg_data = 0x20;  // word 1 of MBX_UPDATE_CFG: data follow the block
constexpr uint32_t data_after_word = 5;     // mbOffset of commands whose data follow their header

// One port's mailbox, kept from other threads and processes: the host's read lock, then the lock on its
// attribute "mbox". Given back in reverse.
class PortLock {
 public:
  explicit PortLock(uint32_t board) : host_(board_host(board)) {}
  PortLock(const PortLock &) = delete;
  PortLock &operator=(const PortLock &) = delete;
  ~PortLock() { release(); }

  hcx_host *host() const { return host_.get(); }
  // Waits for as long as it takes.
  bool lock_mailbox() {
    fd_ = hcx_host_mbox_lock(host_.get());
    return fd_ >= 0;
  }
  void release() {
    if (fd_ >= 0) hcx_host_mbox_unlock(fd_);
    fd_ = -1;
    host_.drop();
  }

 private:
  HostRef host_;
  int fd_ = -1;
};

// One exchange. `mb` has 4096 bytes unless pMbExt is given; pMbExt has what the command may return, at least
// 2048. arrived: out, bytes of the answer, block and data, that the driver brought; may be null.
uint32_t IssueMboxEx(uint32_t board, uint8_t *mb, uint8_t *pMbExt, uint8_t mbOffset, uint32_t inExtWLen,
                     uint32_t outExtWLen, uint32_t *arrived = nullptr);

// IssueMboxGeneric() on a work buffer of 4096 bytes whose first incnt words hold the command and the rest
// zeros. The whole answer stays in it.
uint32_t issue_generic(uint32_t board, uint8_t *work, uint32_t incnt, uint32_t outcnt,
                       uint32_t *arrived = nullptr);

// HCX_IssueMboxWithRetryEx() and HCX_IssueMboxWithRetryV2() for callers that must know whether the data which the
// answer counts have come: `arrived` is that of the last attempt. A command of several exchanges does not tell.
uint32_t retry_ex(uint32_t board, MAILBOX_t *mb, void *pMbExt, uint8_t mbOffset, uint32_t inExtWLen,
                  uint32_t outExtWLen, uint32_t retrycnt, uint32_t retrydelay, uint32_t *arrived);
uint32_t retry_v2(uint32_t board, MAILBOX_t *pMb, uint32_t wLen, uint32_t retryCnt, uint32_t retryWait,
                  uint32_t *arrived);

// Extended commands so far; each one's value is the tag of its exchanges.
extern std::atomic<uint32_t> ext_mbox_tag_cnt;

inline void fail(void *mb) {
  hcx_mbox_set_status(mb, MBX_STATUS_INTERNAL_DRIVER_ERROR);
}

}  // namespace hcx::mbox
