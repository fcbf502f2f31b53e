// SPDX-License-Identifier: BSD-3-Clause
// Configuration regions of the adapter's flash, read with DUMP_MEMORY and written with UPDATE_CFG in the words of
// either mailbox dialect. The regions' bytes mean nothing here. The older dialect moves 32-bit words whose bytes are
// reversed, on every processor. No state; any thread.
#include <algorithm>
#include <array>
#include <cstring>

#include "hcx_bytes.h"
#include "hcx_diag_mbox.h"
#include "hcx_region.h"

namespace {

constexpr uint32_t retries = 1, retry_wait = 100;
constexpr uint32_t block_size = hcx::mbox::block_size, work_size = hcx::mbox::buffer_size;
constexpr uint32_t most_position = 0xFFFF;     // a dump's offset is half a word
constexpr uint32_t version_and_offset = 0x30;  // bits 4 and 5 of word 1
constexpr uint8_t data_after_word = hcx::mbox::data_after_word;
constexpr uint32_t low_24 = 0xFFFFFF;

struct DumpText {
  uint16_t status;
  const char *text;
};

constexpr DumpText dump_texts[] = {
    {0xFFFE, "Invalid region header"},
    {0xFFFD, "Region not initialized"},
    {0xFFFC, "Invalid region ID"},
    {0xFFF7, "No entry in region"},
    {0xFFF6, "No valid entry in region"},
    {0xFFA5, "File system read faild"},
    {0x00D0, "Heap malloc operation failed"},
    {0x00D5, "Unsupported command optiomn"},
    {0x00E0, "Link module is not the type with serial ID"},
    {0x00E1, "Link module not plugged in"},
    {0x00E2, "Error accessing link module serial ID data"},
    {0x1741, "WKI tag not supported"},
    {0x1742, "No WKI tag defined for this index"},
    {0x1744, "Invalid entry index field for Type 4 dump"},
};

struct UpdateText {
  int32_t info;
  const char *text;
};

constexpr UpdateText update_texts[] = {
    {-2, "Invalid region header"},
    {-4, "Invalid region ID"},
    {-11, "Invalid entry length"},
    {-13, "Internal processing error"},
    {-14, "Unable to write data to flash ROM"},
    {-15, "Save area not available for cleanup"},
    {-16, "Unable to erase configuration data"},
    {-17, "Cleanup required"},
    {-18, "Bad length"},
    {-19, "First word cannot be all 0 or 1"},
};

const char *dump_text(uint16_t status) {
  for (const DumpText &row : dump_texts)
    if (row.status == status) return row.text;
  return "Unknown";
}

const char *update_text(int32_t info) {
  for (const UpdateText &row : update_texts)
    if (row.info == info) return row.text;
  return "Unknown";
}

void swap_words(uint8_t *bytes, size_t words) {
  for (size_t i = 0; i < words; ++i)
    std::reverse(bytes + 4 * i, bytes + 4 * i + 4);
}

// The block and what may stand behind it.
struct Mailbox {
  explicit Mailbox(uint8_t command) { hcx_mbox_set_command(bytes, command); }
  uint32_t word(unsigned index) const { return hcx_mbox_word(bytes, index); }
  void set_word(unsigned index, uint32_t value) { hcx_mbox_set_word(bytes, index, value); }
  uint16_t status() const { return hcx_mbox_status(bytes); }
  MAILBOX_t *block() { return reinterpret_cast<MAILBOX_t *>(bytes); }
  uint8_t *data() { return bytes + block_size; }

  alignas(MAILBOX_t) uint8_t bytes[work_size] = {};
};

// Words of a mailbox with so many bytes behind the block. More than the work buffer holds is refused by the engine.
uint32_t mailbox_words(uint32_t data) {
  return static_cast<uint32_t>(std::min<uint64_t>((uint64_t{data} + 3) / 4 * 4 + block_size, work_size) / 4);
}

struct Chunk {
  uint32_t board, type, region, position, context;
  uint8_t *data;
  uint32_t wanted;
};

struct Answer {
  uint32_t result;
  uint16_t status;
  uint32_t delivered;  // never more than there is room for, whatever the adapter says
};

// What the adapter delivered. Bytes that it counts, but that did not come, are zeros here and something else in flash:
// nobody may take them for a region without signature, nor a count that did not come for an empty one.
Answer answer_of(const Chunk &chunk, const Mailbox &mailbox, uint32_t result, uint32_t delivered,
                 uint32_t arrived) {
  if (result == 0 && arrived < block_size + delivered) {
    libhcx_syslog(LOG_ERROR, "%s - board %d region %d only %d of %d bytes arrived", "getRegionData",
                  static_cast<int>(chunk.board), static_cast<int>(chunk.region), static_cast<int>(arrived),
                  static_cast<int>(block_size + delivered));
    result = 1;
  }
  return {result, mailbox.status(), delivered};
}

Answer dump_sli4(const Chunk &chunk) {
  Mailbox mailbox(MBX_DUMP_MEMORY);
  mailbox.set_word(1, (chunk.type & 0xF) | chunk.context << 24);
  mailbox.set_word(2, chunk.position << 16 | (chunk.region & 0xFFFF));
  mailbox.set_word(3, chunk.wanted);
  uint32_t arrived;
  const uint32_t result = hcx::mbox::retry_v2(chunk.board, mailbox.block(), mailbox_words(chunk.wanted),
                                              retries, retry_wait, &arrived);
  const uint32_t room = std::min(chunk.wanted, work_size - block_size);
  const uint32_t delivered = std::min(mailbox.word(6), room);
  const Answer answer = answer_of(chunk, mailbox, result, delivered, arrived);
  if (answer.result == 0) memcpy(chunk.data, mailbox.data(), delivered);
  return answer;
}

Answer dump_sli3(const Chunk &chunk) {
  constexpr uint32_t most_words = 128;
  const uint32_t words = std::min(chunk.wanted / 4, most_words);
  Mailbox mailbox(MBX_DUMP_MEMORY);
  hcx_mbox_set_owner(mailbox.bytes, OWN_HOST);
  mailbox.set_word(1, (chunk.type & 0xF) | version_and_offset);
  mailbox.set_word(2, chunk.position << 16 | (chunk.region & 0xFFFF));
  mailbox.set_word(4, words);
  uint32_t arrived;
  const uint32_t result = hcx::mbox::retry_ex(chunk.board, mailbox.block(), chunk.data, data_after_word, 0,
                                              words, retries, retry_wait, &arrived);
  return answer_of(chunk, mailbox, result, std::min(mailbox.word(4), 4 * words), arrived);
}

Answer dump(const Chunk &chunk, bool sli4) {
  if (chunk.position > most_position) {
    libhcx_syslog(LOG_ERROR, "%s - board %d region %d offset above %d", "getRegionData",
                  static_cast<int>(chunk.board), static_cast<int>(chunk.region),
                  static_cast<int>(most_position));
    return {1, 0, 0};
  }
  return sli4 ? dump_sli4(chunk) : dump_sli3(chunk);
}

// The words of an update that both dialects share.
void set_update(Mailbox &mailbox, uint32_t type, uint32_t region, uint32_t length) {
  mailbox.set_word(1, (type & 0xF) | version_and_offset);
  mailbox.set_word(2, length << 16 | (region & 0xFFFF));
  mailbox.set_word(4, length);
}

struct Written {
  uint32_t result;
  uint16_t status;
  int32_t info;
  uint32_t length;
};

Written update_sli3(uint32_t board, uint32_t type, uint32_t region, uint32_t length, const uint8_t *data,
                    uint32_t size) {
  // A copy: the caller's bytes stay as they are, whatever becomes of the command.
  std::array<uint8_t, work_size> swapped{};
  memcpy(swapped.data(), data, std::min<size_t>({size, length, swapped.size()}));
  swap_words(swapped.data(), std::min<size_t>(length, swapped.size()) / 4);
  Mailbox mailbox(MBX_UPDATE_CFG);
  hcx_mbox_set_owner(mailbox.bytes, OWN_HOST);
  set_update(mailbox, type, region, length);
  const uint32_t result = HCX_IssueMboxWithRetryEx(board, mailbox.block(), swapped.data(), data_after_word,
                                                   length / 4, 0, retries, retry_wait);
  return {result, mailbox.status(), static_cast<int32_t>(mailbox.word(3)), mailbox.word(4)};
}

Written update_sli4(uint32_t board, uint32_t type, uint32_t region, uint32_t length, const uint8_t *data,
                    uint32_t size) {
  Mailbox mailbox(MBX_UPDATE_CFG);
  set_update(mailbox, type, region, length);
  mailbox.set_word(5, length & low_24);
  mailbox.set_word(6, static_cast<uint32_t>(reinterpret_cast<uintptr_t>(data)));
  memcpy(mailbox.data(), data, std::min<size_t>({size, length, work_size - block_size}));
  const uint32_t result =
      HCX_IssueMboxWithRetryV2(board, mailbox.block(), mailbox_words(size), retries, retry_wait);
  return {result, mailbox.status(), static_cast<int32_t>(mailbox.word(3)), length};
}

}  // namespace

uint32_t getRegionData(uint32_t board, uint32_t type, uint32_t region, uint32_t offset, uint8_t *pBuffer,
                       uint32_t *pLength, uint16_t *mbStatus, uint32_t tContext1) {
  HCX_TRACE();
  if (!pBuffer) {
    HCX_LOG(LOG_ERROR, "no pBuffer");
    return 1;
  }
  if (!pLength) {
    HCX_LOG(LOG_ERROR, "no pLength");
    return 1;
  }
  if (!mbStatus) return 1;
  *mbStatus = 0;
  const int sli_mode = hcx_get_board_sli_mode(board);
  if (sli_mode < 0) {
    HCX_LOG(LOG_ERROR, "board %d invalid sliMode %d", static_cast<int>(board), sli_mode);
    return 1;
  }
  const bool sli4 = sli_mode >= 4;
  const uint32_t length = *pLength;
  uint32_t done = 0;
  Answer answer;
  do {
    const uint32_t position =
        static_cast<uint32_t>(std::min<uint64_t>(uint64_t{offset} + done, most_position + 1));
    answer = dump({board, type, region, position, tContext1, pBuffer + done, length - done}, sli4);
    *mbStatus = answer.status;
    if (answer.status != 0) {
      const hcx::Text<128> line("%s - Mailbox status x%04x : board %d region %d %s", __func__, answer.status,
                                static_cast<int>(board), static_cast<int>(region), dump_text(answer.status));
      libhcx_syslog(LOG_ERROR, "%s", line.c_str());
    }
    if (answer.result != 0) {
      *pLength = done;
      return answer.result;
    }
    done += answer.delivered;
  } while (done < length && answer.delivered != 0);
  *pLength = done;
  if (!sli4) swap_words(pBuffer, done / 4);
  return 0;
}

uint32_t HCX_IssueDumpMBox(uint32_t board, uint32_t type, uint32_t tContext1, uint32_t region,
                           uint32_t offset, uint8_t *pBuffer, uint32_t *pLength) {
  HCX_TRACE();
  if (!pBuffer) {
    HCX_LOG(LOG_ERROR, "no pBuffer");
    return 1;
  }
  if (!pLength) {
    HCX_LOG(LOG_ERROR, "no pLength");
    return 1;
  }
  if (*pLength == 0) {
    HCX_LOG(LOG_ERROR, "length is zero");
    return 7;
  }
  const int sli_mode = hcx_get_board_sli_mode(board);
  if (sli_mode < 4) {
    HCX_LOG(LOG_ERROR, "board %d sliMode %d not supported", static_cast<int>(board), sli_mode);
    return 3;
  }
  uint16_t status = 0;
  const uint32_t result = getRegionData(board, type, region, offset, pBuffer, pLength, &status, tContext1);
  if (status == 0) return result;
  HCX_LOG(LOG_ERROR, "board %d mailbox status x%04x", static_cast<int>(board), status);
  switch (status) {
    case 0xFFFD:
      return 4;
    case 0xFFF7:
      return 5;
    case 0xFFF6:
      return 6;
    default:
      return result;
  }
}

uint32_t setRegionData(uint32_t board, uint32_t type, uint32_t region, uint32_t region_length,
                       uint32_t /*offset*/, uint8_t *pBuffer, uint32_t *pLength, int32_t *responseInfo) {
  HCX_TRACE();
  if (!pBuffer) {
    HCX_LOG(LOG_ERROR, "no pBuffer");
    return 1;
  }
  if (!pLength) {
    HCX_LOG(LOG_ERROR, "no pLength");
    return 1;
  }
  if (!responseInfo) return 1;
  *responseInfo = 0;
  const int sli_mode = hcx_get_board_sli_mode(board);
  if (sli_mode < 0) {
    HCX_LOG(LOG_ERROR, "board %d invalid sliMode %d", static_cast<int>(board), sli_mode);
    return 1;
  }
  if (sli_mode < 4 && (type < 1 || type > 4)) {
    HCX_LOG(LOG_ERROR, "board %d sliMode %d with invalid type %d", static_cast<int>(board), sli_mode,
            static_cast<int>(type));
    return 2;
  }
  if (type != 2 && type != 4) {
    // Readers of the log are used to finding the SLI mode here.
    HCX_LOG(LOG_ERROR, "board %d type %d not supported", static_cast<int>(board), sli_mode);
    return 2;
  }
  const auto update = sli_mode >= 4 ? update_sli4 : update_sli3;
  const Written written = update(board, type, region, region_length, pBuffer, *pLength);
  *pLength = written.length;
  *responseInfo = written.info;
  if (written.status != 0)
    HCX_LOG(LOG_ERROR, "Response Info %d : %s", written.info, update_text(written.info));
  return written.result;
}

uint32_t HCX_IssueUpdateCfgMBox(uint32_t board, uint32_t reqType, uint32_t region, uint8_t *pBuffer,
                                uint32_t length, int32_t *pRespInfo) {
  HCX_TRACE();
  const int sli_mode = hcx_get_board_sli_mode(board);
  if (sli_mode <= 3) {
    HCX_LOG(LOG_ERROR, "board %d sliMode %d not supported", static_cast<int>(board), sli_mode);
    return 3;
  }
  if (reqType < 1 || reqType > 3) {
    HCX_LOG(LOG_ERROR, "board %d reqType %d not supported", static_cast<int>(board),
            static_cast<int>(reqType));
    return 2;
  }
  if (reqType != hcx::region::access_type || !pBuffer || !pRespInfo) {
    HCX_LOG(LOG_ERROR, "board %d reqType %d no buffer or info", static_cast<int>(board),
            static_cast<int>(reqType));
    return 1;
  }
  uint32_t written = length;
  const uint32_t result =
      setRegionData(board, hcx::region::access_type, region, length, 0, pBuffer, &written, pRespInfo);
  if (result != 0) {
    HCX_LOG(LOG_ERROR, "board %d set region %d data for length %d reqType %d", static_cast<int>(board),
            static_cast<int>(region), static_cast<int>(length), static_cast<int>(reqType));
    return result;
  }
  if (written != length) {
    HCX_LOG(LOG_ERROR, "board %d byte count %d not equal to length %d", static_cast<int>(board),
            static_cast<int>(written), static_cast<int>(length));
    return 1;
  }
  return 0;
}
