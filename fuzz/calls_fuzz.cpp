// SPDX-License-Identifier: BSD-3-Clause
// Exported calls that decode what the driver, the adapter or a target answered, with the arguments that the input
// says, each with buffers on the heap that are exactly as long as promised, so that the sanitizers see one byte too
// many, read or written.
#include <algorithm>
#include <memory>
#include <vector>

#include "calls.h"
#include "inventory.h"

namespace {

using calls::Call;

class AnyArguments final : public calls::Arguments {
 public:
  explicit AnyArguments(FuzzedDataProvider &input) : input_(input) {
    calls::set_name(&local, calls::kLocal);
    calls::set_name(&vport, calls::kVport);
    board = old_board = fcoe_board = input.ConsumeIntegralInRange<uint32_t>(0, 2);
    lun_id = input.ConsumeIntegralInRange<uint64_t>(0, 3);
    input.ConsumeData(&target, sizeof target);
    // Mostly a port that is there, with the name by which it is known.
    if (hcx_host_list && input.ConsumeBool()) memcpy(local.wwn, hcx_host_list->port.wwpn, sizeof local.wwn);
    if (hcx_host_list && hcx_host_list->port_list && input.ConsumeBool())
      memcpy(target.wwn, hcx_host_list->port_list->wwpn, sizeof target.wwn);
  }
  uint64_t choose(uint64_t sensible, uint64_t low, uint64_t high) override {
    return input_.ConsumeBool() ? sensible : input_.ConsumeIntegralInRange(low, high);
  }
  void scramble(void *to, size_t size) override {
    if (size != 0 && input_.ConsumeBool()) input_.ConsumeData(to, size);
  }
  uint8_t *bytes(size_t size) override {
    blocks_.push_back(std::make_unique<uint8_t[]>(size));
    return blocks_.back().get();
  }
  void *heap(size_t size) override { return calloc(1, size); }
  void fault(const char *what) override { fuzz::fault("claims more than there is room for", what); }

 private:
  FuzzedDataProvider &input_;
  std::vector<std::unique_ptr<uint8_t[]>> blocks_;
};

// Those that leave nothing behind in the process and say nothing to an operator.
std::vector<Call> chosen() {
  std::vector<Call> rows;
  for (const auto table : {calls::files(), calls::adapter(), calls::services()})
    std::copy_if(table.begin(), table.end(), std::back_inserter(rows),
                 [](const Call &call) { return (call.flags & (calls::kLasting | calls::kPrints)) == 0; });
  return rows;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const std::vector<Call> rows = chosen();
  FuzzedDataProvider input(data, size);
  fuzz::HostileMachine machine(input);
  sysfs_ver = LK2_6_12;
  {
    const Call &call = rows[input.ConsumeIntegralInRange<size_t>(0, rows.size() - 1)];
    const fuzz::Inventory inventory;
    AnyArguments arguments(input);
    if (call.before) call.before(arguments);
    call.invoke(arguments);
    if (call.after) call.after(arguments);
  }
  machine.check_nothing_left();
  return 0;
}
