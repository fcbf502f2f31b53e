// SPDX-License-Identifier: BSD-3-Clause
// SLI-4 configuration commands whose data lie in several buffers: one exchange for each buffer, bound
// together by a tag, with the port locked from the first to the last. The tag counter is shared by all
// threads; the rest belongs to the call.
#include <array>
#include <cstring>

#include "hcx_diag_mbox.h"

namespace hcx::mbox {

std::atomic<uint32_t> ext_mbox_tag_cnt{0};

namespace {

constexpr uint32_t timeout = 330000;
constexpr uint32_t buffer_refused = 5;
constexpr size_t max_mse = sizeof(vosk_sli_config_emb0_subsys::mse) / sizeof(vosk_sli_config_mse);
constexpr size_t max_hbd = sizeof(vosk_sli_config_emb1_subsys::hbd) / sizeof(vosk_sli_config_hbd);

// Where the two forms of the command keep their buffers' lengths: words from the start of the mailbox.
constexpr unsigned words_of_record = 3;  // both a scatter entry and a descriptor
constexpr unsigned first_mse_length = 8, first_hbd_length = 39, hbd_count_word = 38;
static_assert(sizeof(vosk_sli_config_mbox) == 260 && max_mse == 19 && max_hbd == 8);
static_assert(offsetof(vosk_sli_config_mbox, un.sli_config_emb0_subsys.mse[0].buf_len) ==
              4 * first_mse_length);
static_assert(offsetof(vosk_sli_config_mbox, un.sli_config_emb1_subsys.hbd[0].buf_len) ==
              4 * first_hbd_length);
static_assert(offsetof(vosk_sli_config_mbox, un.sli_config_emb1_subsys.hbd_count) == 4 * hbd_count_word);
static_assert(sizeof(vosk_sli_config_mse) == 4 * words_of_record &&
              sizeof(vosk_sli_config_hbd) == 4 * words_of_record);

// The buffers of one command, as its block lists them.
struct Buffers {
  uint32_t count = 0;
  std::array<uint32_t, max_mse> length{};
};

// False when the list is longer than its room, a buffer than an exchange, or all of them than the caller's
// memory.
bool read_buffers(const uint8_t *mb, uint32_t form, uint32_t wLen, Buffers &buffers) {
  constexpr uint32_t low_24 = 0xFFFFFF;
  const uint64_t room = uint64_t{4} * wLen;
  if (room < block_size) return false;
  const bool embedded = form == MAILBOX_EMBEDDED_HBD;
  buffers.count = embedded ? hcx_mbox_word(mb, hbd_count_word) : hcx_mbox_word(mb, 1) >> 3 & 0x1F;
  if (buffers.count > (embedded ? max_hbd : max_mse)) return false;
  uint64_t total = block_size;
  for (uint32_t i = 0; i < buffers.count; ++i) {
    const unsigned first = embedded ? first_hbd_length : first_mse_length;
    buffers.length[i] = hcx_mbox_word(mb, first + i * words_of_record) & low_24;
    if (buffers.length[i] > max_data) return false;
    total += buffers.length[i];
  }
  return buffers.count == 0 || total <= room;
}

struct Command {
  hcx_host *host;
  uint8_t *mb;    // the caller's block and buffers, back to back
  uint8_t *work;  // what is sent and what comes back
  uint32_t tag;
};

int exchange(const Command &command, uint32_t sequence) {
  return send_bsg_mbox_write_read_extended(command.host, command.work, command.work, data_after_word, 0, 0,
                                           command.tag, sequence, timeout);
}

// The result once the exchange that brings the block has brought it, or has not.
uint32_t block_result(uint8_t *mb, int received) {
  if (received > 0) return hcx_mbox_status(mb) == MBX_SUCCESS ? 0 : 2;
  fail(mb);
  return 1;
}

uint32_t write_buffers(const Command &command, const Buffers &buffers) {
  size_t at = 0;
  for (uint32_t k = 0; k < buffers.count; ++k) {
    const size_t length = buffers.length[k] + (k == 0 ? block_size : 0);
    memset(command.work, 0, buffer_size);
    memcpy(command.work, command.mb + at, length);
    if (k == 0) hcx_mbox_set_owner(command.work, OWN_HOST);
    at += length;
    const int received = exchange(command, k + 1);
    const bool last = k + 1 == buffers.count;
    if (received < 0) return block_result(command.mb, received);
    if (last) {
      if (received > 0) memcpy(command.mb, command.work, block_size);
      return block_result(command.mb, received);
    }
  }
  return 0;
}

uint32_t read_buffers_back(const Command &command, const Buffers &buffers) {
  size_t at = block_size + buffers.length[0];
  memcpy(command.work, command.mb, at);
  hcx_mbox_set_owner(command.work, OWN_HOST);
  const int first = exchange(command, 1);
  if (first > 0) memcpy(command.mb, command.work, at);
  if (const uint32_t result = block_result(command.mb, first); result != 0) return result;
  for (uint32_t k = 1; k < buffers.count; ++k) {
    // The sequence number alone tells the driver which buffer is wanted; what goes along is the last reply.
    if (exchange(command, k + 1) < 0) {
      fail(command.mb);
      return 1;
    }
    memcpy(command.mb + at, command.work, buffers.length[k]);
    at += buffers.length[k];
  }
  return 0;
}

}  // namespace
}  // namespace hcx::mbox

uint32_t IssueExtendedSLIConfig(uint32_t board, MAILBOX_t *mb, uint32_t mode, uint32_t cmd, uint32_t wLen) {
  using namespace hcx::mbox;
  HCX_TRACE();
  const uint32_t tag = ++ext_mbox_tag_cnt;
  if (!mb) return 1;
  PortLock port(board);
  if (!port.host() || !port.lock_mailbox()) {
    fail(mb);
    HCX_LOG(LOG_ERROR, "board %d no host", static_cast<int>(board));
    return 1;
  }
  const auto work = hcx::heap_array<uint8_t>(buffer_size);
  const bool known = (mode == MAILBOX_WRITE || mode == MAILBOX_READ) &&
                     (cmd == MAILBOX_NONEMBEDDED || cmd == MAILBOX_EMBEDDED_HBD);
  if (!work || !known) {
    fail(mb);
    if (!work) HCX_LOG(LOG_ERROR, "malloc failed");
    return 1;
  }
  auto *bytes = reinterpret_cast<uint8_t *>(mb);
  Buffers buffers;
  if (!read_buffers(bytes, cmd, wLen, buffers)) {
    fail(mb);
    return buffer_refused;
  }
  if (buffers.count == 0) return 0;
  const Command command = {port.host(), bytes, work.get(), tag};
  return mode == MAILBOX_WRITE ? write_buffers(command, buffers) : read_buffers_back(command, buffers);
}
