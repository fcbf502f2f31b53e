// SPDX-License-Identifier: BSD-3-Clause
// Diagnostic events: what the driver tells of ELS, busy answers and SCSI conditions that it sees, by vendor unique
// events. A kind is a row of the table: its numbers, and how its record goes on behind the names.
#include <cstdlib>
#include <stdexcept>

#include "sim_bytes.h"
#include "sim_events.h"
#include "sim_machine.h"

namespace sim {

namespace {
constexpr uint32_t kEls = 0x80, kFabric = 0x100, kScsi = 0x200, kBoard = 0x400, kAdapter = 0x800;

// What follows the names; `lun` alone stands before them.
enum class Tail { none, words, name, lun, lun_words, lun_bytes };

struct Kind {
  const char *name;
  uint32_t category;
  uint32_t subcategory;
  Tail tail;
  std::vector<uint32_t> numbers;  // what they are when they are not given
};

const std::vector<Kind> &kinds() {
  static const std::vector<Kind> list = {
      {"plogi", kEls, 1, Tail::none, {}},
      {"prlo", kEls, 2, Tail::none, {}},
      {"adisc", kEls, 4, Tail::none, {}},
      {"lsrjt", kEls, 8, Tail::words, {0x03, 0x09, 0x00}},  // PLOGI: unable to perform the command
      {"logo", kEls, 16, Tail::name, {}},
      {"fabric-busy", kFabric, 1, Tail::none, {}},
      {"port-busy", kFabric, 2, Tail::none, {}},
      {"read-check", kFabric, 4, Tail::words, {0, 0x28, 512}},
      {"scsi-1", kScsi, 1, Tail::lun, {0}},
      {"scsi-2", kScsi, 2, Tail::lun, {0}},
      {"check-condition", kScsi, 4, Tail::lun_bytes, {0, 0x28, 0x06, 0x29, 0x00}},  // unit attention: reset
      {"scsi-8", kScsi, 8, Tail::lun, {0}},
      {"scsi-16", kScsi, 16, Tail::lun, {0}},
      {"scsi-32", kScsi, 32, Tail::lun, {0}},
      {"queue-depth", kScsi, 64, Tail::lun_words, {0, 30, 15}},
      {"board", kBoard, 1, Tail::none, {}},
      {"adapter", kAdapter, 1, Tail::none, {}},
  };
  return list;
}

std::string name_bytes(uint64_t name) {
  std::string bytes;
  put_be(bytes, 0, name, 8);
  return bytes;
}

uint64_t parse(std::string text, int base, uint64_t most) {
  std::erase(text, ':');
  char *end = nullptr;
  errno = 0;
  const uint64_t value = std::strtoull(text.c_str(), &end, base);
  if (text.empty() || *end != '\0' || errno != 0 || value > most)
    throw std::runtime_error("\"" + text + "\" is no number of this size");
  return value;
}

uint64_t first_target(Host &host) {
  for (const auto &rport : host.rports())
    if (rport->is_target()) return rport->spec().wwpn;
  return 0x5006016000000001;
}

uint64_t node_of(Host &host, uint64_t wwpn) {
  const Rport *rport = host.rport_by_wwpn(wwpn);
  return rport != nullptr ? rport->spec().wwnn : (wwpn & ~0xf000000000000000ULL) | 0x2000000000000000ULL;
}

// The record behind its category.
std::string record(const Kind &kind, const std::vector<uint32_t> &numbers, uint64_t wwpn, uint64_t wwnn,
                   uint64_t other) {
  std::string bytes = native_word(kind.subcategory);
  if (kind.category == kBoard || kind.category == kAdapter) return bytes;
  const bool with_lun =
      kind.tail == Tail::lun || kind.tail == Tail::lun_words || kind.tail == Tail::lun_bytes;
  if (with_lun) bytes += native_word(numbers.front());
  bytes += name_bytes(wwpn) + name_bytes(wwnn);
  if (kind.tail == Tail::name) bytes += name_bytes(other);
  for (size_t i = with_lun ? 1 : 0; i < numbers.size(); i++) {
    if (kind.tail == Tail::lun_bytes)
      bytes += static_cast<char>(numbers[i]);
    else
      bytes += native_word(numbers[i]);
  }
  return bytes;
}
}  // namespace

std::vector<std::string> Events::diagnostic_kinds() {
  std::vector<std::string> names;
  for (const Kind &kind : kinds())
    names.emplace_back(kind.name);
  return names;
}

void Events::diagnostic(Host &host, const std::vector<std::string> &words) {
  for (const Kind &kind : kinds()) {
    if (words.empty() || words[0] != kind.name) continue;
    std::vector<uint32_t> numbers = kind.numbers;
    const size_t names = kind.tail == Tail::none || kind.tail == Tail::name ? 2 : 1;
    if (words.size() > 1 + names + numbers.size())
      throw std::runtime_error("diag " + words[0] + " does not take " + std::to_string(words.size() - 1) +
                               " arguments");
    const uint64_t wwpn = words.size() > 1 ? parse(words[1], 16, UINT64_MAX) : first_target(host);
    const uint64_t other =
        names == 2 && words.size() > 2 ? parse(words[2], 16, UINT64_MAX) : node_of(host, wwpn);
    for (size_t i = 1 + names; i < words.size(); i++)
      numbers[i - 1 - names] = static_cast<uint32_t>(parse(words[i], 0, UINT32_MAX));
    const uint64_t wwnn = kind.tail == Tail::name ? node_of(host, wwpn) : other;
    vendor(host, kind.category,
           record(kind, numbers, wwpn, wwnn, kind.tail == Tail::name && words.size() < 3 ? wwpn : other));
    return;
  }
  throw std::runtime_error(words.empty() ? "diag: which kind?" : "no diagnostic event \"" + words[0] + "\"");
}

}  // namespace sim
