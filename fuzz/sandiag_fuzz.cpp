// SPDX-License-Identifier: BSD-3-Clause
// The driver's latency texts and its records of diagnostic events: whatever they hold, their readers stay inside their
// buffers, chains have the size they say, and the calls on top give back their locks.
#include <memory>

#include "hcx_sdapi_text.h"
#include "inventory.h"

namespace {

using namespace hcx::sd;

void read_state(FuzzedDataProvider &input) {
  const std::string text = input.ConsumeRandomLengthString(state_text_size);
  // On the heap and not terminated: the sanitizer sees one byte too many.
  const std::unique_ptr<char[]> exact(new char[text.size()]);
  memcpy(exact.get(), text.data(), text.size());
  const std::string_view state(exact.get(), text.size());
  uint16_t type = 0;
  uint32_t base = 0, step = 0;
  const std::unique_ptr<uint64_t[]> values(new uint64_t[SD_BUCKETS]());
  const Definition result = read_definition(state, &type, &base, &step, values.get());
  if (result == Definition::ok && !tells_bucket(state)) fuzz::fault("buckets that are not there", text);
  if (result == Definition::ok && type != SD_SEARCH_LINEAR && type != SD_SEARCH_POWER_2)
    fuzz::fault("no type", text);
  tells_collecting(state);
}

void read_data(FuzzedDataProvider &input) {
  const std::string text = input.ConsumeRandomLengthString(data_record_size);
  const std::unique_ptr<char[]> exact(new char[text.size()]);
  memcpy(exact.get(), text.data(), text.size());
  const std::unique_ptr<SD_IO_Latency_Response> response(new SD_IO_Latency_Response);
  if (read_record({exact.get(), text.size()}, response.get()) && text.size() < 17)
    fuzz::fault("a record without its name", text);
}

// Follows the chain to its end.
void look(uint32_t, HBA_WWN, uint32_t category, uint32_t, void *, SD_event *event) {
  size_t size = sizeof *event;
  if (event->sd_evt_payload) {
    if (category > SD_CATEGORY_SCSI) fuzz::fault("a payload that has no kind", "event");
    const auto *details = static_cast<const SD_els_event_details_v0 *>(event->sd_evt_payload);
    size += sizeof *details;
    const auto *bytes = static_cast<const uint8_t *>(details->sd_els_payload);
    for (; size < event->sd_evt_size; ++size)
      fuzz::sink = *bytes++;
  }
  if (size != event->sd_evt_size) fuzz::fault("a chain of another size", "event");
}

void deliver(FuzzedDataProvider &input) {
  const fuzz::Inventory inventory;
  hcx_brdinfo table[1] = {};
  hcx_sd_init(table, static_cast<uint32_t>(std::max(inventory.boards(), 1)));
  uint32_t handle;
  for (const uint32_t category : {1, 2, 4, 8, 16})
    for (uint32_t subcategory = 1; subcategory < 128; subcategory *= 2)
      HCX_SD_RegisterForEvent(input.ConsumeIntegralInRange<uint32_t>(0, 1), {}, category, subcategory,
                              &handle, &handle, look);
  std::string record = input.ConsumeRandomLengthString(64);
  if (record.size() >= 8 && input.ConsumeBool()) {
    const uint32_t head[] = {0x80u << input.ConsumeIntegralInRange(0, 4),
                             1u << input.ConsumeIntegralInRange(0, 7)};
    memcpy(record.data(), head, sizeof head);
  }
  const size_t words = (record.size() + 3) / 4;
  const std::unique_ptr<uint32_t[]> data(new uint32_t[words]());
  memcpy(data.get(), record.data(), record.size());
  hcx_sd_async_event_handler(input.ConsumeIntegralInRange<uint32_t>(0, 3), 0, 0xffff, data.get(),
                             static_cast<uint32_t>(record.size()));
  if (get_sd_lock() == SD_OK) free_sd_lock();
}

void collect(FuzzedDataProvider &input) {
  const fuzz::Inventory inventory;
  hcx_brdinfo table[1] = {};
  hcx_sd_init(table, 2);
  const uint32_t board = input.ConsumeIntegralInRange<uint32_t>(0, 1);
  HBA_WWN port = {};
  if (input.ConsumeBool()) input.ConsumeData(&port, sizeof port);
  uint16_t type = 0, targets = 0;
  uint32_t base = 0, step = 0;
  uint64_t values[SD_BUCKETS];
  HCX_SD_Set_Bucket(1, input.ConsumeIntegralInRange<uint16_t>(1, 2), 5000000, 5000000);
  HCX_SD_Get_Bucket(1, &type, &base, &step, values);
  HCX_SD_Start_Data_Collection(board, port, 1, nullptr);
  const uint32_t room = input.ConsumeIntegralInRange<uint32_t>(0, 1000);
  const std::unique_ptr<uint8_t[]> buffer(new uint8_t[room]);
  HCX_SD_Get_Data(board, port, 1, &targets, room, buffer.get());
  HCX_SD_Stop_Data_Collection(board, port, 1);
  HCX_SD_Destroy_Bucket(1);
  if (hcx_host_list && get_sd_lock() == SD_OK) free_sd_lock();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  fuzz::HostileMachine machine(input);
  sysfs_ver = LK2_6_12;
  switch (input.ConsumeIntegralInRange(0, 3)) {
    case 0:
      read_state(input);
      break;
    case 1:
      read_data(input);
      break;
    case 2:
      deliver(input);
      break;
    default:
      collect(input);
      break;
  }
  machine.check_nothing_left();
  return 0;
}
