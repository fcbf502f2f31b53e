// SPDX-License-Identifier: BSD-3-Clause
// Bytes on the command line, in files, and on the way out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace hcxadm::bytes {

using Bytes = std::vector<uint8_t>;

// Hexadecimal words such as "01000000 fc 0x02", an even number of digits each. Throws Failure.
Bytes parse(const std::vector<std::string> &words);
// A whole file, "-" for standard input; throws Failure, also when it is longer than `limit`.
Bytes read_file(const std::string &name, size_t limit);
// "-" for standard output. Throws Failure.
void write_file(const std::string &name, const Bytes &data);

// The digits alone.
std::string digits(const Bytes &data);
// Sixteen bytes a line: offset, bytes, characters.
std::string dump(const Bytes &data);

// Numbers as FC frames and mailboxes hold them, most significant byte first; 0 beyond the end.
uint32_t big16(const Bytes &data, size_t at);
uint32_t big32(const Bytes &data, size_t at);

}  // namespace hcxadm::bytes
