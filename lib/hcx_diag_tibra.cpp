// SPDX-License-Identifier: BSD-3-Clause
// Commands to the Tibra bridge, the chip between Ethernet and the FC controller on FCoE adapters, and its
// part in link loopback.
//
// A command is a run of little-endian words; the loopback set-up alone writes its words in the processor's
// order. No state, no file lock. Any thread; no host lock is held while a command is under way, since sending
// one rescans the host.
#include "hcx_diag_tibra.h"

#include <cstring>
#include <iterator>

#include "hcx_bytes.h"
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

void store_failure(void *rsp_buf, uint32_t failure) {
  memcpy(rsp_buf, &failure, sizeof failure);
}

// Header, then data, bound together by the exchange id that the header's answer brings.
uint32_t send_with_data(uint32_t board, void *cmd_buf, uint32_t cmd_size, void *rsp_buf, uint32_t *rsp_size) {
  const uint32_t length = load_le32(static_cast<const uint8_t *>(cmd_buf) + WORD_BYTES);
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

// What a step of the loopback set-up says when it was not done: the call failed, or the bridge refused.
struct StepFailure {
  const char *rval, *code;
};
constexpr StepFailure step_failures[] = {
    {"%s - board %d cmd 1 error rval %d", "%s - board %d cmd 1 error rsp code %d"},
    {"%s - board %d cmd 2 error rval %d", "%s - board %d cmd 2 error rsp code %d"},
    {"%s - board %d cmd 3 error rval %d", "%s - board %d cmd 3 error rsp code %d"},
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
// One command of the set-up, whose answer is one word. False when it was not done, which is logged.
bool send_step(const char *caller, uint32_t board, uint32_t *words, uint32_t bytes,
               const StepFailure &failure) {
  uint32_t code = 0;
  uint32_t code_size = sizeof code;
  const uint32_t rval = HCX_SendTibraCommand(board, words, bytes, &code, &code_size);
  if (rval != 0) {
    libhcx_syslog(LOG_ERROR, failure.rval, caller, board, rval);
    return false;
  }
  if (code != 0) {
    libhcx_syslog(LOG_ERROR, failure.code, caller, board, code);
    return false;
  }
  return true;
}
#pragma GCC diagnostic pop

}  // namespace
}  // namespace hcx

using hcx::TIBRA_MAX_BYTES;

uint32_t HCX_SendTibraCommand(uint32_t board, void *cmd_buf, uint32_t cmd_size, void *rsp_buf,
                              uint32_t *rsp_size) {
  HCX_TRACE();
  if (!cmd_buf || !rsp_buf || !rsp_size || cmd_size < hcx::WORD_BYTES || *rsp_size < hcx::WORD_BYTES)
    return 1;
  switch (hcx::load_le32(cmd_buf)) {
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
  const auto words = hcx::heap_array<uint32_t>(3);
  if (!words) {
    HCX_LOG(LOG_ERROR, "board %d malloc failed", board);
    return 1;
  }
  const uint32_t steps[][3] = {{hcx::TIBRA_CODE_VARIABLE_2, 1, 0},
                               {hcx::TIBRA_CODE_LOOPBACK, port, 1},
                               {hcx::TIBRA_CODE_VARIABLE_2, 0, 0}};
  for (size_t step = 0; step < std::size(steps); ++step) {
    memcpy(words.get(), steps[step], sizeof steps[step]);
    if (!hcx::send_step(__func__, board, words.get(), sizeof steps[step], hcx::step_failures[step])) return 1;
  }
  hcx::sysio::machine().sleep_us(1000000);  // the bridge needs it to switch over
  return 0;
}

uint32_t unConfigTibraLoopback(uint32_t board) {
  HCX_TRACE();
  uint32_t words[2] = {hcx::TIBRA_CODE_VARIABLE_1, 0};
  return hcx::send_step(__func__, board, words, sizeof words, hcx::step_failures[0]) ? 0 : 1;
}
