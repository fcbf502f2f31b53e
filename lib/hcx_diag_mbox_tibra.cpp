// SPDX-License-Identifier: BSD-3-Clause
// Bridge chip commands that are adapter variables underneath. No state; any thread.
#include "hcx_bytes.h"
#include "hcx_diag_mbox.h"

namespace {

constexpr struct {
  uint32_t command;
  uint32_t uniq_code;
} variables[] = {{0x80000001, 0x103007}, {0x80000002, 0x103107}};

}  // namespace

uint32_t TibraMBXvar(uint32_t board, void *cmd_buf, void * /*p*/) {
  HCX_TRACE();
  if (!cmd_buf) return 1;
  const auto *words = static_cast<const uint8_t *>(cmd_buf);
  for (const auto &variable : variables) {
    if (hcx::load_le32(words) != variable.command) continue;
    MAILBOX_t mb = {};
    hcx_mbox_set_command(&mb, MBX_SET_VARIABLE);
    hcx_mbox_set_word(&mb, 1, variable.uniq_code);
    hcx_mbox_set_word(&mb, 2, hcx::load_le32(words + 4));
    const uint32_t result = HCX_IssueMboxWithRetry(board, &mb, 32, 64, 5, 100);
    // A failure inside the library does not count: the bridge is left as it was.
    return result == 2 || result == 3 ? 1 : 0;
  }
  return 0;
}
