// SPDX-License-Identifier: BSD-3-Clause
// Configuration regions in the adapter's flash: the DUMP_MEMORY and UPDATE_CFG commands of both mailbox dialects.
// Regions are kept in the host's state as digits, so that they outlive the process. The older dialect moves 32-bit
// words, which arrive with their bytes reversed; the flash itself holds bytes.
#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>

#include "sim_bytes.h"
#include "sim_machine.h"
#include "sim_mbox.h"

namespace sim {

using nlohmann::json;

namespace {
constexpr int kRegions = 64;
constexpr int kDriverRegion = 23;
constexpr size_t kDriverRegionSize = 1024, kRegionSize = 4096, kLargestDump = 3840;

enum DumpStatus : uint16_t { not_initialised = 0xfffd, bad_region = 0xfffc, unsupported = 0x1741 };
enum UpdateInfo : int32_t { bad_id = -4, bad_entry_length = -11, bad_length = -18, bad_first_word = -19 };

std::string reversed_words(std::string bytes) {
  for (size_t i = 0; i + 4 <= bytes.size(); i += 4)
    std::reverse(&bytes[i], &bytes[i] + 4);
  return bytes;
}

std::string with_header(std::string records) {
  records.insert(0, "RG23\x01\0\0\0", 8);
  return records;
}

// Records of a foreign type, nine of 112 bytes, and an end mark in the last word but one: no room for anything.
std::string full_region() {
  std::string records;
  for (int i = 0; i < 9; ++i) {
    std::string record(112, static_cast<char>('a' + i));
    record[0] = '\x30';
    record[1] = 27;
    records += record;
  }
  return with_header(records + std::string("\xff\0\0\0", 4));
}

struct Variant {
  const char *word;
  std::string bytes;  // zeros follow
};

// What is found on boards in the field. "blank" reads back as no bytes at all.
const Variant kVariants[] = {
    {"blank", ""},
    {"empty", with_header("\xff")},
    {"fip", with_header(std::string("\xa0\x02\x01\x01\x0e\xfc\0\0\xea\x03\0\0\xff", 13))},
    {"erased", with_header(std::string("\xff\0\0\0", 4) + std::string(kDriverRegionSize - 12, '\xff'))},
    {"foreign", std::string("XYZW\x02\0\0\0", 8) + std::string(64, '\x5a')},
    {"revision", std::string("RG23\x02\0\0\0\xff", 9)},
    {"corrupt", with_header(std::string("\x30\xff", 2) + std::string(1014, '\x77'))},
    {"full", full_region()},
};
constexpr char kUninitialised[] = "uninitialised";

const Variant *variant(const std::string &word) {
  const auto *found = std::find_if(std::begin(kVariants), std::end(kVariants),
                                   [&](const Variant &candidate) { return word == candidate.word; });
  return found == std::end(kVariants) ? nullptr : found;
}

std::optional<std::string> factory_region(const Host &host, int region) {
  if (region != kDriverRegion) return std::nullopt;
  std::string word = host.spec().region23;
  if (word.empty())
    word = host.spec().sli < 4 ? kUninitialised : host.spec().protocol == "fcoe" ? "fip" : "empty";
  if (word == kUninitialised) return std::nullopt;
  const Variant *known = variant(word);
  std::string bytes = known != nullptr ? known->bytes : from_hex(word);
  if (!bytes.empty()) bytes.resize(kDriverRegionSize);
  return bytes;
}

size_t region_size(int region) {
  return region == kDriverRegion ? kDriverRegionSize : kRegionSize;
}
}  // namespace

std::string to_hex(std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    text += kDigits[static_cast<uint8_t>(c) >> 4];
    text += kDigits[static_cast<uint8_t>(c) & 15];
  }
  return text;
}

std::string from_hex(std::string_view text) {
  auto digit = [](char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
  };
  std::string bytes;
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    const int high = digit(text[i]), low = digit(text[i + 1]);
    if (high < 0 || low < 0) break;
    bytes += static_cast<char>(high << 4 | low);
  }
  return bytes;
}

bool is_factory_region(const std::string &word) {
  const bool digits = word.size() % 2 == 0 && word.size() <= 2 * kDriverRegionSize &&
                      word.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
  return word == kUninitialised || variant(word) != nullptr || digits;
}

std::optional<std::string> flash_region(Host &host, int region) {
  const json &flash = host.state()["flash"];
  const std::string key = std::to_string(region);
  if (!flash.is_object() || !flash.contains(key)) return factory_region(host, region);
  if (!flash[key].is_string()) return std::nullopt;
  return from_hex(flash[key].get<std::string>());
}

void set_flash_region(Host &host, int region, std::optional<std::string> bytes) {
  json &flash = host.state()["flash"];
  if (!flash.is_object()) flash = json::object();
  flash[std::to_string(region)] = bytes ? json(to_hex(*bytes)) : json();
  host.machine().touch();
}

void run_dump_memory(MailboxCall &call) {
  const bool sli4 = call.host.spec().sli >= 4;
  const uint32_t type = call.word(1) & 0xf;
  const auto region = static_cast<int>(call.word(2) & 0xffff);
  const size_t offset = call.word(2) >> 16;
  const size_t count_word = sli4 ? 6 : 4;
  const size_t wanted = sli4 ? call.word(3) : size_t{4} * call.word(4);
  call.set_word(count_word, 0);
  if (type != 2) {
    call.set_status(unsupported);
    return;
  }
  if (region >= kRegions) {
    call.set_status(bad_region);
    return;
  }
  const auto bytes = flash_region(call.host, region);
  if (!bytes) {
    call.set_status(not_initialised);
    return;
  }
  size_t room = kLargestDump;
  if (!sli4) room = call.out_words != 0 ? size_t{4} * call.out_words : size_t{4} * 26;
  std::string part = offset < bytes->size() ? bytes->substr(offset, std::min(wanted, room)) : std::string();
  call.set_word(count_word, static_cast<uint32_t>(part.size()));
  if (!sli4) part = reversed_words(part);
  if (!sli4 && call.out_words == 0) {
    put_bytes(call.block, size_t{4} * 6, part);
  } else {
    call.result = part;
  }
}

void run_update_config(MailboxCall &call) {
  const bool sli4 = call.host.spec().sli >= 4;
  const auto region = static_cast<int>(call.word(2) & 0xffff);
  const size_t entry = call.word(2) >> 16;
  const size_t sent = call.word(4);
  auto refuse = [&](int32_t info) {
    call.set_word(3, static_cast<uint32_t>(info));
    call.set_word(4, 0);
    call.set_status(1);
  };
  call.set_word(3, 0);
  if (region >= kRegions) return refuse(bad_id);
  if (entry == 0 || entry > region_size(region)) return refuse(bad_entry_length);
  if (sent < entry || sent > call.data.size()) return refuse(bad_length);
  if (!sli4 && size_t{4} * call.in_words < sent) return refuse(bad_length);
  std::string bytes = call.data.substr(0, entry);
  if (!sli4) bytes = reversed_words(bytes);
  const uint64_t first = get_be(bytes, 0, 4);
  if (first == 0 || first == 0xffffffff) return refuse(bad_first_word);
  set_flash_region(call.host, region, bytes);
  call.set_word(4, static_cast<uint32_t>(entry));
}

}  // namespace sim
