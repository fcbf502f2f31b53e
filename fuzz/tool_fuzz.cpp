// SPDX-License-Identifier: BSD-3-Clause
// What hcxadm makes of bytes that adapters and targets answered: page 0x83, sense data, a region 23. Each reader gets a
// block on the heap that is exactly as long as it says; what it shows came from inside.
#include <cstdlib>
#include <cstring>
#include <memory>

#include "designator.h"
#include "region23.h"
#include "sense.h"

using namespace hcxadm;

namespace {

void expect(bool holds) {
  if (!holds) abort();
}

void page(const uint8_t *data, size_t size) {
  size_t shown = 0;
  for (const Designator &one : designators_of(data, size)) {
    expect(!one.type.empty() && !one.association.empty());
    shown += one.value.size();
  }
  expect(shown <= 2 * size);  // two digits for a byte, or the text itself
}

void region(const uint8_t *data, size_t size) {
  const bytes::Bytes image(data, data + size);
  const region23::View view = region23::view(image);
  size_t at = 0;
  for (const region23::Record &record : view.records) {
    expect(record.offset >= at && record.offset + record.data.size() <= image.size());
    expect(
        std::equal(record.data.begin(), record.data.end(), image.begin() + static_cast<long>(record.offset)));
    at = record.offset + record.data.size();
  }
  if (view.fault.empty()) expect(image.size() == region23::size && !view.records.empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  const uint8_t reader = data[0] % 3;
  const std::unique_ptr<uint8_t[]> block(new uint8_t[--size]);
  memcpy(block.get(), data + 1, size);
  if (reader == 0) page(block.get(), size);
  if (reader == 1) expect(sense_text({block.get(), block.get() + size}).empty() == (size == 0));
  if (reader == 2) region(block.get(), size);
  return 0;
}
