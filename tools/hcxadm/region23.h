// SPDX-License-Identifier: BSD-3-Clause
// Region 23 of an adapter's flash as a person reads it. A viewer: what it says about a damaged image is for the eye,
// and no edit relies on it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "bytes.h"

namespace hcxadm::region23 {

constexpr uint32_t number = 23;
constexpr size_t size = 1024;

struct Record {
  size_t offset = 0;
  uint8_t type = 0;
  uint8_t words = 0;  // behind the first four bytes
  std::string name;
  std::string contents;
  bytes::Bytes data;  // whole, as far as it lies inside
};

struct View {
  std::vector<Record> records;
  std::string fault;  // empty: header and chain of records are as they should be
};

// Of an image that may be shorter than it should be.
View view(const bytes::Bytes &image);

}  // namespace hcxadm::region23
