// SPDX-License-Identifier: BSD-3-Clause
// The mailbox front ends: what each generation of adapters accepts, and trying again while the firmware is
// busy. Each attempt starts from the caller's input; no lock is held between attempts. No state; any thread.
#include <array>
#include <cstring>

#include "hcx_diag_mbox.h"

namespace {

using namespace hcx::mbox;

constexpr uint32_t wrong_mode = 3;
constexpr uint32_t buffer_refused = 5;
constexpr size_t travelling = 128;  // bytes of the block that HCX_IssueMboxWithRetryEx() moves

uint64_t whole_seconds_us(uint32_t milliseconds) {
  return (uint64_t{milliseconds} + 999) / 1000 * 1000000;
}

// Whether an entry for SLI-4 adapters, or for the older ones, may serve this board. An unknown board passes
// as an older one, and fails later.
bool suits(const char *caller, uint32_t board, bool sli4) {
  const int sli_mode = hcx_get_board_sli_mode(board);
  if ((sli_mode >= 4) == sli4) return true;
  libhcx_syslog(LOG_ERROR, "%s - board %d sliMode %d not supported", caller, static_cast<int>(board),
                sli_mode);
  return false;
}

// Runs `attempt`, which leaves the block of its answer in `block`, until it succeeds, fails for good, or has
// been tried `retries` times more.
template <class Attempt>
uint32_t while_busy(const uint8_t *block, uint32_t retries, uint64_t delay_us, Attempt &&attempt) {
  for (uint64_t tries = 0;; ++tries) {
    uint32_t result = attempt();
    if (result == 0 || result == buffer_refused) return result;
    const unsigned status = hcx_mbox_status(block);
    if (status != MBX_SUCCESS) result = 2;
    if (status != MBX_STATUS_BUSY_RETRY || tries >= retries) return result;
    if (delay_us) hcx::sysio::machine().sleep_us(delay_us);
  }
}

// The SLI-3 command with a buffer of its own: what goes into that buffer.
struct External {
  uint32_t bytes = 0;
  bool valid = true;
};

constexpr char with_buffer[] = "HCX_IssueMboxWithRetryEx", sli4_entry[] = "HCX_IssueMboxWithRetryV2";

External external_data(const uint8_t *mb, const void *pMbExt, uint32_t in_words, uint32_t out_words) {
  External data = {4 * in_words, true};
  const uint8_t command = hcx_mbox_command(mb);
  if (command == MBX_UPDATE_CFG && (hcx_mbox_word(mb, 1) & update_cfg_data)) {
    data.bytes = hcx_mbox_word(mb, 4);
  } else if (command == MBX_SLI_CONFIG) {
    data.bytes = hcx_mbox_word(mb, 2);
  }
  data.valid =
      data.bytes <= max_ext_bytes && (pMbExt || (data.bytes == 0 && in_words == 0 && out_words == 0));
  if (!data.valid) {
    libhcx_syslog(LOG_ERROR, "%s - update cfg byte len too big %d max %d", with_buffer,
                  static_cast<int>(data.bytes), static_cast<int>(max_ext_bytes));
  }
  return data;
}

enum class Route { plain, write_embedded, read_embedded, write_separate, read_separate, refused };

// Which way an MBX_SLI_CONFIG command goes, by the operation it carries.
Route embedded_route(const uint8_t *mb) {
  constexpr uint32_t common = 1, read_object = 0xAB, write_object = 0xAC, read_object_list = 0xAD;
  const uint32_t word6 = hcx_mbox_word(mb, 6);
  const uint32_t opcode = word6 & 0xFF, subsystem = word6 >> 8 & 0xFF;
  const bool has_buffers = hcx_mbox_word(mb, 38) != 0;
  if (subsystem != common) return Route::plain;
  if (opcode == write_object) return has_buffers ? Route::write_embedded : Route::refused;
  if ((opcode == read_object || opcode == read_object_list) && has_buffers) return Route::read_embedded;
  return Route::plain;
}

Route separate_route(const uint8_t *mb) {
  constexpr uint32_t common = 0x01, fcoe = 0x0C;
  const uint32_t head = hcx_mbox_word(mb, block_size / 4);
  const uint32_t opcode = head & 0xFF, subsystem = head >> 8 & 0xFF;
  const auto refused = [&] {
    libhcx_syslog(LOG_ERROR, "%s - Non-embedded 0x9B (x%x/x%x) not supported", sli4_entry, subsystem, opcode);
    return Route::refused;
  };
  if (subsystem == fcoe)
    return opcode == 8 ? Route::read_separate : opcode == 9 ? Route::write_separate : refused();
  if (subsystem == common) return opcode == 0x20 || opcode == 0x79 ? Route::read_separate : refused();
  return Route::read_separate;
}

Route choose_route(const uint8_t *mb) {
  if (hcx_mbox_command(mb) != MBX_SLI_CONFIG) return Route::plain;
  return hcx_mbox_word(mb, 1) & 1 ? embedded_route(mb) : separate_route(mb);
}

uint32_t issue_on_route(Route route, uint32_t board, uint8_t *work, uint32_t wLen, uint32_t *arrived) {
  const bool embedded = route == Route::write_embedded || route == Route::read_embedded;
  const bool write = route == Route::write_embedded || route == Route::write_separate;
  if (route == Route::plain) return issue_generic(board, work, wLen, 4 * wLen, arrived);
  return IssueExtendedSLIConfig(board, reinterpret_cast<MAILBOX_t *>(work),
                                write ? MAILBOX_WRITE : MAILBOX_READ,
                                embedded ? MAILBOX_EMBEDDED_HBD : MAILBOX_NONEMBEDDED, wLen);
}

}  // namespace

uint32_t HCX_IssueMboxWithRetry(uint32_t board, MAILBOX_t *mb, uint32_t incnt, uint32_t outcnt,
                                uint32_t retrycnt, uint32_t retrydelay) {
  HCX_TRACE();
  if (!mb) return 1;
  if (!suits(__func__, board, false)) return wrong_mode;
  std::array<uint8_t, buffer_size> work;
  const uint32_t result = while_busy(work.data(), retrycnt, whole_seconds_us(retrydelay), [&] {
    work.fill(0);
    memcpy(work.data(), mb, size_t{4} * (incnt < max_ext_words ? incnt : max_ext_words));
    return issue_generic(board, work.data(), incnt, outcnt);
  });
  // A count that was refused says nothing about the caller's memory beyond the status.
  memcpy(mb, work.data(), outcnt <= max_ext_bytes ? outcnt : sizeof mb->mbxStatus);
  return result;
}

namespace hcx::mbox {

uint32_t retry_ex(uint32_t board, MAILBOX_t *mb, void *pMbExt, uint8_t mbOffset, uint32_t inExtWLen,
                  uint32_t outExtWLen, uint32_t retrycnt, uint32_t retrydelay, uint32_t *arrived) {
  libhcx_syslog(LOG_TRACE, "%s()", with_buffer);
  *arrived = 0;
  if (!mb) return 1;
  if (!suits(with_buffer, board, false)) return wrong_mode;
  if (inExtWLen > max_ext_words || outExtWLen > max_ext_words) {
    libhcx_syslog(LOG_ERROR, "%s - board %d max cnt %d incnt %d outcnt %d", with_buffer,
                  static_cast<int>(board), static_cast<int>(max_ext_words), static_cast<int>(inExtWLen),
                  static_cast<int>(outExtWLen));
    return wrong_mode;
  }
  const External data = external_data(reinterpret_cast<const uint8_t *>(mb), pMbExt, inExtWLen, outExtWLen);
  if (!data.valid) {
    fail(mb);
    return 1;
  }
  const uint64_t delay_us = retrydelay <= 1000 ? uint64_t{retrydelay} * 1000 : whole_seconds_us(retrydelay);
  std::array<uint8_t, buffer_size> work, ext;
  const uint32_t result = while_busy(work.data(), retrycnt, delay_us, [&] {
    work.fill(0);
    memcpy(work.data(), mb, travelling);
    ext.fill(0);
    if (data.bytes) memcpy(ext.data(), pMbExt, data.bytes);
    return IssueMboxEx(board, work.data(), pMbExt ? ext.data() : nullptr, mbOffset, inExtWLen, outExtWLen,
                       arrived);
  });
  memcpy(mb, work.data(), travelling);
  if (result == 0 && outExtWLen) memcpy(pMbExt, ext.data(), size_t{4} * outExtWLen);
  return result;
}

uint32_t retry_v2(uint32_t board, MAILBOX_t *pMb, uint32_t wLen, uint32_t retryCnt, uint32_t retryWait,
                  uint32_t *arrived) {
  libhcx_syslog(LOG_TRACE, "%s()", sli4_entry);
  *arrived = 0;
  if (!pMb) {
    libhcx_syslog(LOG_ERROR, "%s - no pMb", sli4_entry);
    return 1;
  }
  if (!suits(sli4_entry, board, true)) return wrong_mode;
  const size_t size = size_t{4} * wLen;
  // The answer of a dump or an event log may be longer than the caller's memory.
  const auto work = hcx::heap_array<uint8_t>(size > buffer_size ? size : buffer_size);
  if (!work) {
    fail(pMb);
    libhcx_syslog(LOG_ERROR, "%s - failed allocate mbox", sli4_entry);
    return 1;
  }
  memcpy(work.get(), pMb, size);
  const Route route = choose_route(work.get());
  if (route == Route::refused) {
    fail(pMb);
    return 1;
  }
  const uint32_t result = while_busy(work.get(), retryCnt, whole_seconds_us(retryWait), [&] {
    memset(work.get(), 0, size > buffer_size ? size : buffer_size);
    memcpy(work.get(), pMb, size);
    const uint32_t rc = issue_on_route(route, board, work.get(), wLen, arrived);
    const unsigned status = hcx_mbox_status(work.get());
    if (rc != 0 && status != MBX_SUCCESS)
      libhcx_syslog(LOG_ERROR, "%s - board %d mbxStatus x%04x", sli4_entry, static_cast<int>(board), status);
    return rc;
  });
  memcpy(pMb, work.get(), size);
  return result;
}

}  // namespace hcx::mbox

uint32_t HCX_IssueMboxWithRetryEx(uint32_t board, MAILBOX_t *mb, void *pMbExt, uint8_t mbOffset,
                                  uint32_t inExtWLen, uint32_t outExtWLen, uint32_t retrycnt,
                                  uint32_t retrydelay) {
  uint32_t arrived;
  return retry_ex(board, mb, pMbExt, mbOffset, inExtWLen, outExtWLen, retrycnt, retrydelay, &arrived);
}

uint32_t HCX_IssueMboxWithRetryV2(uint32_t board, MAILBOX_t *pMb, uint32_t wLen, uint32_t retryCnt,
                                  uint32_t retryWait) {
  uint32_t arrived;
  return retry_v2(board, pMb, wLen, retryCnt, retryWait, &arrived);
}

uint32_t readrev(uint32_t board, MAILBOX_t *mb) {
  HCX_TRACE();
  constexpr uint32_t retries = 5, delay = 100, revision_request = 1u << 31;
  if (!mb) return 1;
  bool sli4;
  {
    const hcx::HostRef host = hcx::board_host(board);
    if (!host || !host->pci_dev) return wrong_mode;
    sli4 = hcx_get_sli_mode(host.get()) >= 4;
  }
  memset(mb, 0, sizeof *mb);
  hcx_mbox_set_command(mb, MBX_READ_REV);
  hcx_mbox_set_word(mb, 1, revision_request);
  if (sli4) return HCX_IssueMboxWithRetryV2(board, mb, 64, retries, delay);
  return HCX_IssueMboxWithRetry(board, mb, 32, 64, retries, delay);
}
