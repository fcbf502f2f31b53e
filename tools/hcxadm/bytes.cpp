// SPDX-License-Identifier: BSD-3-Clause
// See bytes.h. Nothing here knows what the bytes mean.
#include "bytes.h"

#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <iterator>

#include "status.h"

namespace hcxadm::bytes {
namespace {

Failure file_failure(const std::string &tried) {
  return call_failure(Family::sys, errno ? errno : EIO, tried, {});
}

uint8_t at_or_zero(const Bytes &data, size_t at) {
  return at < data.size() ? data[at] : 0;
}

}  // namespace

Bytes parse(const std::vector<std::string> &words) {
  Bytes data;
  for (const std::string &word : words) {
    const std::string figures = word.starts_with("0x") ? word.substr(2) : word;
    bool good = !figures.empty() && figures.size() % 2 == 0;
    for (const char c : figures)
      good = good && isxdigit(static_cast<unsigned char>(c)) != 0;
    if (!good)
      throw Failure({.status = kUsage,
                     .tried = "\"" + word + "\" is no row of bytes",
                     .board = {},
                     .code = {},
                     .name = {},
                     .todo = "give two hexadecimal digits for each byte"});
    for (size_t i = 0; i < figures.size(); i += 2)
      std::from_chars(&figures[i], &figures[i] + 2, data.emplace_back(), 16);
  }
  return data;
}

Bytes read_file(const std::string &name, size_t limit) {
  const std::string tried = "reading " + name;
  std::ifstream file;
  errno = 0;
  if (name != "-") {
    file.open(name, std::ios::binary);
    if (!file) throw file_failure(tried);
  }
  std::istream &in = name == "-" ? std::cin : file;
  Bytes data(limit + 1);
  in.read(reinterpret_cast<char *>(data.data()), static_cast<std::streamsize>(data.size()));
  if (in.bad()) throw file_failure(tried);
  data.resize(static_cast<size_t>(in.gcount()));
  if (data.size() > limit)
    throw Failure({.status = kUsage,
                   .tried = tried,
                   .board = {},
                   .code = {},
                   .name = "it is longer than " + std::to_string(limit) + " bytes",
                   .todo = {}});
  return data;
}

void write_file(const std::string &name, const Bytes &data) {
  std::ofstream file;
  errno = 0;
  if (name != "-") file.open(name, std::ios::binary | std::ios::trunc);
  std::ostream &out = name == "-" ? std::cout : file;
  out.write(reinterpret_cast<const char *>(data.data()), static_cast<std::streamsize>(data.size()));
  out.flush();
  if (!out) throw file_failure("writing " + name);
}

std::string digits(const Bytes &data) {
  static constexpr char figures[] = "0123456789abcdef";
  std::string text;
  for (const uint8_t byte : data) {
    text += figures[byte >> 4];
    text += figures[byte & 15];
  }
  return text;
}

std::string dump(const Bytes &data) {
  std::string text;
  for (size_t at = 0; at < data.size(); at += 16) {
    char field[24];
    std::snprintf(field, sizeof field, "%04zx ", at);
    text += field;
    std::string characters;
    for (size_t i = at; i < at + 16; ++i) {
      if (i % 8 == 0) text += ' ';
      if (i >= data.size()) {
        text += "   ";
        continue;
      }
      std::snprintf(field, sizeof field, "%02x ", data[i]);
      text += field;
      characters += data[i] >= 0x20 && data[i] < 0x7f ? static_cast<char>(data[i]) : '.';
    }
    text += " " + characters + "\n";
  }
  return text;
}

uint32_t big16(const Bytes &data, size_t at) {
  return static_cast<uint32_t>(at_or_zero(data, at) << 8 | at_or_zero(data, at + 1));
}

uint32_t big32(const Bytes &data, size_t at) {
  return big16(data, at) << 16 | big16(data, at + 2);
}

}  // namespace hcxadm::bytes
