// SPDX-License-Identifier: BSD-3-Clause
// Commands to the Tibra bridge, the chip between Ethernet and the FC controller on FCoE adapters, and its
// part in link loopback.
//
// A command is a run of little-endian words; the loopback set-up alone writes its words in the processor's
// order. No state, no file lock. Any thread; no host lock is held while a command is under way, since sending
// one rescans the host.
#include "hcx_diag_tibra.h"

#include <algorithm>
#include <cstring>

#include "libhcx.h"

namespace hcx {
namespace {

// Command codes that the dispatcher treats apart.
enum tibra_code : uint32_t {
  TIBRA_CODE_DATA = 2,  // header now, data in a second phase
  TIBRA_CODE_LOOPBACK = 20,
  TIBRA_CODE_VARIABLE_1 = 0x80000001,  // mailbox variables, not commands of the bridge
  TIBRA_CODE_VARIABLE_2 = 0x80000002
};

constexpr uint32_t WORD_BYTES = 4;
constexpr uint32_t DATA_HEADER_BYTES = 12;

// What a failed IssueTibra() leaves in the first word of the response.
enum tibra_failure : uint32_t { TIBRA_NO_HOST = 1, TIBRA_TOO_LONG = 7 };

uint32_t le_word(const void *buffer, size_t offset) {
  uint8_t b[WORD_BYTES];
  memcpy(b, static_cast<const uint8_t *>(buffer) + offset, sizeof b);
  return static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 | static_cast<uint32_t>(b[2]) << 16 |
         static_cast<uint32_t>(b[3]) << 24;
}

void store_failure(void *rsp_buf, uint32_t failure) {
  memcpy(rsp_buf, &failure, sizeof failure);
}

// Header, then data, bound together by the exchange id that the header's answer brings.
uint32_t send_with_data(uint32_t board, void *cmd_buf, uint32_t cmd_size, void *rsp_buf, uint32_t *rsp_size) {
  const uint32_t length = le_word(cmd_buf, WORD_BYTES);
  uint32_t header_rsp = 0;
  uint32_t header_rsp_size = sizeof header_rsp;
  uint32_t xri = 0;
  const uint32_t rval =
      IssueTibra(board, cmd_buf, DATA_HEADER_BYTES, &header_rsp, &header_rsp_size, &xri, TIBRA_CMD);
  if (uint64_t{length} + DATA_HEADER_BYTES != cmd_size) return 1;
  // The bridge tells how the data fared in the response, not in the result.
  if (rval == 0)
    IssueTibra(board, static_cast<uint8_t *>(cmd_buf) + DATA_HEADER_BYTES, length, rsp_buf, rsp_size, &xri,
               TIBRA_DATA);
  return rval;
}

// One command of the loopback set-up with its one-word answer. 0, or 1 after logging which of the two failed.
struct SetupStep {
  uint32_t rval;
  uint32_t code;
};
SetupStep send_setup(uint32_t board, uint32_t *words, uint32_t bytes) {
  uint32_t response = 0;
  uint32_t response_size = sizeof response;
  const uint32_t rval = HCX_SendTibraCommand(board, words, bytes, &response, &response_size);
  return {rval, response};
}

}  // namespace
}  // namespace hcx

using hcx::TIBRA_MAX_BYTES;

uint32_t HCX_SendTibraCommand(uint32_t board, void *cmd_buf, uint32_t cmd_size, void *rsp_buf,
                              uint32_t *rsp_size) {
  HCX_TRACE();
  if (!cmd_buf || !rsp_buf || !rsp_size || cmd_size < hcx::WORD_BYTES || *rsp_size < hcx::WORD_BYTES)
    return 1;
  switch (hcx::le_word(cmd_buf, 0)) {
    case hcx::TIBRA_CODE_VARIABLE_1:
    case hcx::TIBRA_CODE_VARIABLE_2:
      if (cmd_size < 2 * hcx::WORD_BYTES || *rsp_size > TIBRA_MAX_BYTES) return 1;
      memset(rsp_buf, 0, *rsp_size);
      if (!hcx::board_host(board)) HCX_LOG(LOG_ERROR, "no host on board %d", board);
      return TibraMBXvar(board, cmd_buf, rsp_buf);
    case hcx::TIBRA_CODE_DATA:
      if (cmd_size < hcx::DATA_HEADER_BYTES) return 1;
      return hcx::send_with_data(board, cmd_buf, cmd_size, rsp_buf, rsp_size);
    default: {
      uint32_t xri = 0;
      return IssueTibra(board, cmd_buf, cmd_size, rsp_buf, rsp_size, &xri, TIBRA_CMD);
    }
  }
}

uint32_t IssueTibra(uint32_t board, void *cmd_buf, uint32_t incnt, void *rsp_buf, uint32_t *outcnt,
                    uint32_t *xri, uint32_t type) {
  HCX_TRACE();
  if (!cmd_buf || !rsp_buf || !outcnt || !xri || *outcnt < hcx::WORD_BYTES) return 1;
  if (!hcx::board_host(board)) {
    hcx::store_failure(rsp_buf, hcx::TIBRA_NO_HOST);
    HCX_LOG(LOG_ERROR, "board %d no host", board);
    return 1;
  }
  if (incnt > TIBRA_MAX_BYTES || *outcnt > TIBRA_MAX_BYTES) {
    hcx::store_failure(rsp_buf, hcx::TIBRA_TOO_LONG);
    HCX_LOG(LOG_ERROR, "board %d max cnt %d - incnt %d outcnt %d", board, TIBRA_MAX_BYTES, incnt, *outcnt);
    return 1;
  }
  return static_cast<uint32_t>(
      send_bsg_tibra_command(board, cmd_buf, incnt, rsp_buf, outcnt, xri, static_cast<int>(type)));
}

uint32_t ConfigTibraLoopback(uint32_t board, char *pci_dev) {
  HCX_TRACE();
  const size_t length = pci_dev ? strlen(pci_dev) : 0;
  if (length < 2) {
    HCX_LOG(LOG_ERROR, "board %d no pci_dev", board);
    return 1;
  }
  // The PCI function: the last digit before the closing "/". Taken now, the commands below may rescan the
  // text away.
  const uint32_t port = static_cast<uint32_t>(pci_dev[length - 2]) - '0';
  if (port > 1) {
    HCX_LOG(LOG_ERROR, "board %d port %d > 1", board, port);
    return 1;
  }
  auto words = hcx::heap_array<uint32_t>(3);
  if (!words) {
    HCX_LOG(LOG_ERROR, "board %d malloc failed", board);
    return 1;
  }

  words[0] = hcx::TIBRA_CODE_VARIABLE_2;
  words[1] = 1;
  words[2] = 0;
  hcx::SetupStep step = hcx::send_setup(board, words.get(), 12);
  if (step.rval != 0) {
    HCX_LOG(LOG_ERROR, "board %d cmd 1 error rval %d", board, step.rval);
    return 1;
  }
  if (step.code != 0) {
    HCX_LOG(LOG_ERROR, "board %d cmd 1 error rsp code %d", board, step.code);
    return 1;
  }

  words[0] = hcx::TIBRA_CODE_LOOPBACK;
  words[1] = port;
  words[2] = 1;
  step = hcx::send_setup(board, words.get(), 12);
  if (step.rval != 0) {
    HCX_LOG(LOG_ERROR, "board %d cmd 2 error rval %d", board, step.rval);
    return 1;
  }
  if (step.code != 0) {
    HCX_LOG(LOG_ERROR, "board %d cmd 2 error rsp code %d", board, step.code);
    return 1;
  }

  words[0] = hcx::TIBRA_CODE_VARIABLE_2;
  words[1] = 0;
  words[2] = 0;
  step = hcx::send_setup(board, words.get(), 12);
  if (step.rval != 0) {
    HCX_LOG(LOG_ERROR, "board %d cmd 3 error rval %d", board, step.rval);
    return 1;
  }
  if (step.code != 0) {
    HCX_LOG(LOG_ERROR, "board %d cmd 3 error rsp code %d", board, step.code);
    return 1;
  }
  hcx::sysio::machine().sleep_us(1000000);  // the bridge needs it to switch over
  return 0;
}

uint32_t unConfigTibraLoopback(uint32_t board) {
  HCX_TRACE();
  uint32_t words[2] = {hcx::TIBRA_CODE_VARIABLE_1, 0};
  const hcx::SetupStep step = hcx::send_setup(board, words, sizeof words);
  if (step.rval != 0) {
    HCX_LOG(LOG_ERROR, "board %d cmd 1 error rval %d", board, step.rval);
    return 1;
  }
  if (step.code != 0) {
    HCX_LOG(LOG_ERROR, "board %d cmd 1 error rsp code %d", board, step.code);
    return 1;
  }
  return 0;
}
