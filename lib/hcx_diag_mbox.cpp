// SPDX-License-Identifier: BSD-3-Clause
// The mailbox engine: checks a command, takes its turn on the port, exchanges it once and brings the results
// home. No state; any thread. The lock order is the host's read lock, then the file lock on "mbox".
#include "hcx_diag_mbox.h"

#include <array>
#include <cstring>

#include "hcx_bsg_request.h"

namespace hcx::mbox {
namespace {

constexpr char engine[] = "IssueMboxEx";
constexpr uint32_t low_24 = 0xFFFFFF;

enum class Check : uint8_t { refused, none, dump, update_cfg, event_log, biu };

constexpr auto checks = [] {
  std::array<Check, MBX_MAX_CMDS> table{};
  for (const uint8_t command :
       {MBX_READ_NV, MBX_WRITE_NV, MBX_READ_STATUS, MBX_READ_REV, MBX_READ_LNK_STAT, MBX_RESTART,
        MBX_DOWN_LOAD, MBX_DEL_LD_ENTRY, MBX_SET_VARIABLE, MBX_BEACON, MBX_WRITE_VPARMS,
        MBX_READ_EVENT_LOG_STATUS, MBX_LOAD_AREA, MBX_SLI_CONFIG, MBX_LOAD_EXP_ROM})
    table[command] = Check::none;
  table[MBX_DUMP_MEMORY] = Check::dump;
  table[MBX_UPDATE_CFG] = Check::update_cfg;
  table[MBX_READ_EVENT_LOG] = Check::event_log;
  table[MBX_RUN_BIU_DIAG64] = Check::biu;
  return table;
}();

// One exchange and what it moves besides the words that the caller counts.
struct Exchange {
  uint8_t *mb;
  uint8_t *ext;  // may be null
  uint8_t offset;
  uint32_t in_words, out_words;

  uint8_t command;
  int sli_mode = -1;
  const void *xmit = nullptr;  // caller's buffer that goes along
  uint32_t xmit_size = 0;
  void *rcv = nullptr;  // caller's buffer for the result; null for a dump, whose result goes behind the block
  uint32_t rcv_size = 0;
  uint32_t update_size = 0;

  uint32_t word(unsigned index) const { return hcx_mbox_word(mb, index); }
  // The caller's address in two words; the upper one is 0 in a 32-bit process.
  void *address(unsigned index) const {
    return reinterpret_cast<void *>(
        static_cast<uintptr_t>(uint64_t{word(index + 1)} << 32 | uint64_t{word(index)}));
  }
  bool counts_words() const { return in_words != 0 || out_words != 0; }
};

bool check_dump(Exchange &x) {
  constexpr uint32_t type_mask = 0xF, type_of_older_form = 4;
  if (x.sli_mode != 4 || (x.word(1) & type_mask) == type_of_older_form) return true;
  x.rcv_size = x.word(3);
  if (x.rcv_size != 0 && x.rcv_size <= max_data && !x.counts_words()) return true;
  libhcx_syslog(LOG_ERROR, "%s - dump size error rcv_size %d total_size %d max size %d", engine,
                static_cast<int>(x.rcv_size), static_cast<int>(x.rcv_size + block_size),
                static_cast<int>(buffer_size));
  return false;
}

bool check_update_cfg(Exchange &x) {
  if (!(x.word(1) & update_cfg_data)) return true;
  x.update_size = x.word(4);
  if (x.update_size <= max_ext_bytes && (x.ext || x.update_size == 0)) return true;
  libhcx_syslog(LOG_ERROR, "%s - update cfg len too big %d", engine, static_cast<int>(x.update_size));
  return false;
}

bool check_event_log(Exchange &x) {
  constexpr uint32_t no_data = 1u << 29;
  if (x.word(1) & no_data) return true;
  x.rcv = x.address(4);
  x.rcv_size = x.word(3) & low_24;
  if (x.rcv && x.rcv_size != 0 && x.rcv_size <= max_data && !x.counts_words()) return true;
  libhcx_syslog(LOG_ERROR, "%s - READ EVENT LOG size error", engine);
  return false;
}

bool check_biu(Exchange &x) {
  x.xmit = x.address(3);
  x.xmit_size = x.word(2) & low_24;
  x.rcv = x.address(6);
  x.rcv_size = x.word(5) & low_24;
  const uint32_t total = x.xmit_size + x.rcv_size + block_size;
  libhcx_syslog(LOG_MBOX, "%s - BIU xmit_buff_ptr %p size %d rcv_buff_ptr %p size %d total_size %d", engine,
                x.xmit, static_cast<int>(x.xmit_size), x.rcv, static_cast<int>(x.rcv_size),
                static_cast<int>(total));
  if (x.xmit && x.rcv && x.xmit_size != 0 && x.rcv_size != 0 && total <= buffer_size && !x.counts_words())
    return true;
  libhcx_syslog(LOG_ERROR, "%s - BIU no xmit or rcv size or size too big", engine);
  return false;
}

bool acceptable(Exchange &x) {
  switch (x.command < checks.size() ? checks[x.command] : Check::refused) {
    case Check::none:
      return true;
    case Check::dump:
      return check_dump(x);
    case Check::update_cfg:
      return check_update_cfg(x);
    case Check::event_log:
      return check_event_log(x);
    case Check::biu:
      return check_biu(x);
    case Check::refused:
      break;
  }
  libhcx_syslog(LOG_ERROR, "%s - mbxCommand x%02x not supported", engine, x.command);
  return false;
}

void log_words(bool reply, const Exchange &x) {
  if (reply) {
    libhcx_syslog(LOG_MBOX, "%s - mbxReply   x%02x %08x %08x %08x %08x %08x %08x %08x %08x", engine,
                  hcx_mbox_command(x.mb), x.word(0), x.word(1), x.word(2), x.word(3), x.word(4), x.word(5),
                  x.word(6), x.word(7));
  } else {
    libhcx_syslog(LOG_MBOX, "%s - mbxCommand x%02x %08x %08x %08x %08x %08x %08x %08x %08x", engine,
                  x.command, x.word(0), x.word(1), x.word(2), x.word(3), x.word(4), x.word(5), x.word(6),
                  x.word(7));
  }
}

void fill_request(const Exchange &x, uint8_t *request) {
  memcpy(request, x.mb, block_size);
  hcx_mbox_set_owner(request, OWN_HOST);
  uint8_t *data = request + block_size;
  if (x.in_words) memcpy(data, x.ext, size_t{4} * x.in_words);
  if (x.xmit_size) {
    memcpy(data, x.xmit, x.xmit_size);
  } else if (x.update_size) {
    memcpy(data, x.ext, x.update_size);
  }
}

void take_results(const Exchange &x, const uint8_t *reply) {
  const uint8_t *data = reply + block_size;
  if (x.out_words) {
    memcpy(x.ext, data, size_t{4} * x.out_words);
  } else if (x.command == MBX_DUMP_MEMORY) {
    if (x.rcv_size) memcpy(x.ext ? x.ext : x.mb + block_size, data, x.rcv_size);
  } else if (x.rcv_size) {
    memcpy(x.rcv, data, x.rcv_size);
  }
}

#define HCX_BYTES_OF(at)                                                                              \
  (at)[0], (at)[1], (at)[2], (at)[3], (at)[4], (at)[5], (at)[6], (at)[7], (at)[8], (at)[9], (at)[10], \
      (at)[11], (at)[12], (at)[13], (at)[14], (at)[15]

// Block and external result in memory order. The last 16 bytes of the latter are left out, as readers of
// these dumps are used to.
void dump_data(const Exchange &x) {
  libhcx_syslog(LOG_MBOX_DATA, "%s - cmd x%02x mbOffset %d inExtWLen %d (%d) outExtWLen %d rcv_size %d",
                engine, x.command, x.offset, static_cast<int>(x.in_words), static_cast<int>(4 * x.in_words),
                static_cast<int>(x.out_words), static_cast<int>(x.rcv_size));
  for (unsigned at = 0; at < block_size; at += 16) {
    libhcx_syslog(
        LOG_MBOX_DATA,
        "MBOX[%03x] %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x", at,
        HCX_BYTES_OF(x.mb + at));
  }
  uint32_t length = x.out_words ? 4 * x.out_words : x.rcv_size;
  if (length > 16) length -= 16;
  const uint8_t *data = x.ext ? x.ext : x.mb + block_size;
  for (unsigned at = 0; at < length; at += 16) {
    libhcx_syslog(
        LOG_MBOX_DATA,
        "EXTO[%03x] %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x %02x", at,
        HCX_BYTES_OF(data + at));
  }
}

// What is left when the port has been given back: the reply into the caller's hands, and the result.
uint32_t conclude(const Exchange &x, int received, const uint8_t *reply) {
  if (received > 0) {
    memcpy(x.mb, reply, block_size);
    log_words(true, x);
  } else {
    fail(x.mb);
    libhcx_syslog(LOG_ERROR, "%s - internal error", engine);
  }
  const unsigned status = hcx_mbox_status(x.mb);
  if (status == MBX_SUCCESS) take_results(x, reply);
  if (received < 0) {
    libhcx_syslog(LOG_ERROR, "%s - trans_size x%08x cmd x%02x mbOffset %d inExtWLen %d (%d) outExtWLen %d",
                  engine, received, x.command, x.offset, static_cast<int>(x.in_words),
                  static_cast<int>(4 * x.in_words), static_cast<int>(x.out_words));
    return 1;
  }
  if (status != MBX_SUCCESS) {
    libhcx_syslog(LOG_ERROR, "%s - mbxCommand x%02x mbxStatus x%04x %08x %08x %08x", engine, x.command,
                  status, x.word(0), x.word(1), x.word(2));
    return 2;
  }
  if (libhcx_logging_enable & LOG_MBOX_DATA) dump_data(x);
  return 0;
}

}  // namespace

uint32_t IssueMboxEx(uint32_t board, uint8_t *mb, uint8_t *pMbExt, uint8_t mbOffset, uint32_t inExtWLen,
                     uint32_t outExtWLen, uint32_t *arrived) {
  HCX_TRACE();
  uint32_t unused = 0;
  uint32_t &came = arrived ? *arrived : unused;
  came = 0;
  Exchange x = {.mb = mb,
                .ext = pMbExt,
                .offset = mbOffset,
                .in_words = inExtWLen,
                .out_words = outExtWLen,
                .command = hcx_mbox_command(mb)};
  PortLock port(board);
  if (!port.host()) {
    fail(mb);
    HCX_LOG(LOG_ERROR, "board %d no host", static_cast<int>(board));
    return 1;
  }
  if (inExtWLen > max_ext_words || outExtWLen > max_ext_words || (!pMbExt && x.counts_words())) {
    fail(mb);
    port.release();
    HCX_LOG(LOG_ERROR, "max cnt %d inExtWLen %d outExtWLen %d", static_cast<int>(max_ext_words),
            static_cast<int>(inExtWLen), static_cast<int>(outExtWLen));
    return 1;
  }
  if (!port.lock_mailbox()) {
    fail(mb);
    port.release();
    HCX_LOG(LOG_ERROR, "mailbox lock failed");
    return 1;
  }
  log_words(false, x);
  x.sli_mode = hcx_get_sli_mode(port.host());
  if (!acceptable(x)) {
    port.release();
    fail(mb);
    return 1;
  }
  const auto buffers = heap_array<uint8_t>(size_t{2} * buffer_size);
  if (!buffers) {
    port.release();
    fail(mb);
    HCX_LOG(LOG_ERROR, "malloc failed");
    return 1;
  }
  uint8_t *const request = buffers.get(), *const reply = request + buffer_size;
  fill_request(x, request);
  const int received =
      bsg::exchange_mailbox(port.host(), request, reply, mbOffset, inExtWLen, outExtWLen, &came);
  port.release();
  return conclude(x, received, reply);
}

namespace {

constexpr char generic[] = "IssueMboxGeneric";

// The board's SLI mode when the sizes are within the limits, else -1 with the reason logged and in the block.
int check_generic(uint32_t board, void *mb, uint32_t incnt, uint32_t outcnt) {
  libhcx_syslog(LOG_TRACE, "%s()", generic);
  const int sli_mode = hcx_get_board_sli_mode(board);
  if (sli_mode < 0) {
    libhcx_syslog(LOG_ERROR, "%s - board %d invalid sliMode %d", generic, static_cast<int>(board), sli_mode);
    return -1;
  }
  if (incnt > max_ext_words || outcnt > max_ext_bytes) {
    fail(mb);
    libhcx_syslog(LOG_ERROR, "%s - board %d max incnt %d incnt %d max outcnt %d outcnt %d", generic,
                  static_cast<int>(board), static_cast<int>(max_ext_words), static_cast<int>(incnt),
                  static_cast<int>(max_ext_bytes), static_cast<int>(outcnt));
    return -1;
  }
  return sli_mode;
}

uint32_t run_generic(uint32_t board, int sli_mode, uint8_t *work, uint32_t *arrived) {
  if (hcx_mbox_command(work) != MBX_UPDATE_CFG || !(hcx_mbox_word(work, 1) & update_cfg_data))
    return IssueMboxEx(board, work, nullptr, 0, 0, 0, arrived);
  const uint32_t length = hcx_mbox_word(work, 4);
  const uint32_t at = sli_mode >= 4 ? block_size : hcx_mbox_word(work, 5);
  if (at > buffer_size || length > buffer_size - at) {
    fail(work);
    libhcx_syslog(LOG_ERROR, "%s - update cfg len too big %d", generic, static_cast<int>(length));
    return 1;
  }
  // A copy: the data of an SLI-3 command may lie in the block, which the reply replaces.
  std::array<uint8_t, buffer_size> data{};
  memcpy(data.data(), work + at, length);
  return IssueMboxEx(board, work, data.data(), data_after_word, length / 4, 0, arrived);
}

}  // namespace

uint32_t issue_generic(uint32_t board, uint8_t *work, uint32_t incnt, uint32_t outcnt, uint32_t *arrived) {
  const int sli_mode = check_generic(board, work, incnt, outcnt);
  return sli_mode < 0 ? 1 : run_generic(board, sli_mode, work, arrived);
}

}  // namespace hcx::mbox

uint32_t IssueMboxGeneric(uint32_t board, MAILBOX_t *mb, uint32_t incnt, uint32_t outcnt) {
  using namespace hcx::mbox;
  if (!mb) return 1;
  const int sli_mode = check_generic(board, mb, incnt, outcnt);
  if (sli_mode < 0) return 1;
  std::array<uint8_t, buffer_size> work{};
  memcpy(work.data(), mb, size_t{4} * incnt);
  const uint32_t result = run_generic(board, sli_mode, work.data(), nullptr);
  memcpy(mb, work.data(), outcnt);
  return result;
}

uint32_t IssueMbox(uint32_t board, MAILBOX_t *mb, uint32_t incnt, uint32_t outcnt) {
  HCX_TRACE();
  const int sli_mode = hcx_get_board_sli_mode(board);
  if (sli_mode < 4) return IssueMboxGeneric(board, mb, incnt, outcnt);
  HCX_LOG(LOG_ERROR, "board %d sliMode %d not supported", static_cast<int>(board), sli_mode);
  return 3;
}
