// SPDX-License-Identifier: BSD-3-Clause
// What the kernel, or somebody in its place, sends to the listener: datagrams of any bytes, and messages that are
// right up to some point. Registered functions read all that they are given.
#include <linux/netlink.h>

#include "hcx_ioctl_event.h"
#include "hcx_netlink.h"
#include "inventory.h"
#include "vosk_nl.h"

namespace {

void read_all(const void *data, size_t size) {
  const auto *bytes = static_cast<const uint8_t *>(data);
  for (size_t i = 0; i < size; ++i)
    fuzz::sink = bytes[i];
}

void on_rscn(uint32_t, void *payload, uint32_t length, uint32_t) {
  read_all(payload, length);
}
void on_vport_rscn(uint32_t, HBA_WWN, void *payload, uint32_t length) {
  read_all(payload, length);
}
void on_dump(uint32_t, void *out, uint32_t size) {
  read_all(out, size);
}
void on_link(uint32_t, LINKINFO *link) {
  read_all(link, sizeof *link);
}
void on_temperature(uint32_t, uint32_t, uint32_t) {}

template <class Function>
void add(uint32_t mask, uint32_t outsz, Function *func) {
  HCX_RegisterForEvent(0, mask, 0, outsz, reinterpret_cast<void (*)()>(func), nullptr);
}

template <class T>
void append(std::string &bytes, const T &record) {
  bytes.append(reinterpret_cast<const char *>(&record), sizeof record);
}

// A number that is right, or one that may be anything.
template <class T>
T mostly(FuzzedDataProvider &input, T right) {
  return input.ConsumeIntegralInRange(0, 7) == 0 ? input.ConsumeIntegral<T>() : right;
}

std::string message(FuzzedDataProvider &input) {
  static constexpr uint32_t codes[] = {1, 2, 3, 5, 259, 512, 0xffff, 0xffff, 0xffff};
  static constexpr uint32_t kinds[] = {1, 2, 2, 4, 0x10, 0x20, 0x40, 0x80, 0x100, 0x200, 0x400, 0x800};
  std::string data;
  append(data, mostly<uint32_t>(input, input.PickValueInArray(kinds)));
  const std::string rest = input.ConsumeRandomLengthString(200);
  if (input.ConsumeBool()) append(data, mostly<uint32_t>(input, static_cast<uint32_t>(rest.size())));
  data += rest;
  const size_t size = sizeof(fc_nl_event) - sizeof(uint32_t) + data.size();
  fc_nl_event event = {};
  event.snlh.version = mostly<uint8_t>(input, VOSK_NL_VERSION);
  event.snlh.transport = mostly<uint8_t>(input, VOSK_NL_TRANSPORT_FC);
  event.snlh.msgtype = mostly<uint16_t>(input, VOSK_NL_FC_ASYNC_EVENT);
  event.snlh.msglen = mostly<uint16_t>(input, static_cast<uint16_t>(size));
  event.host_no = mostly<uint16_t>(input, input.ConsumeIntegralInRange<uint16_t>(0, 3));
  event.event_datalen = mostly<uint16_t>(input, static_cast<uint16_t>(data.size()));
  event.event_num = input.ConsumeIntegral<uint32_t>();
  event.event_code = mostly<uint32_t>(input, input.PickValueInArray(codes));
  nlmsghdr header = {};
  header.nlmsg_len = mostly<uint32_t>(input, static_cast<uint32_t>(sizeof header + size));
  header.nlmsg_type = mostly<uint16_t>(input, VOSK_NL_TRANSPORT_MSG);
  std::string bytes;
  append(bytes, header);
  bytes.append(reinterpret_cast<const char *>(&event), offsetof(fc_nl_event, event_data));
  bytes += data;
  bytes.resize(NLMSG_ALIGN(bytes.size()));
  return bytes;
}

void take(std::string bytes, uint32_t sender) {
  // Exactly as long as it is.
  const hcx::HeapArray<unsigned char> copy = hcx::heap_array<unsigned char>(bytes.size());
  memcpy(copy.get(), bytes.data(), bytes.size());
  hcx::take_netlink_datagram({copy.get(), sender}, bytes.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  fuzz::HostileMachine machine(input);
  {
    const fuzz::Inventory inventory;
    add(FC_REG_LINK_EVENT, 0, on_link);
    add(FC_REG_RSCN_EVENT, input.ConsumeIntegral<uint8_t>(), on_rscn);
    add(FC_REG_VPORTRSCN_EVENT, 64, on_vport_rscn);
    add(FC_REG_DUMP_EVENT, input.ConsumeIntegral<uint8_t>(), on_dump);
    add(FC_REG_TEMPERATURE_EVENT, 0, on_temperature);
    for (int i = input.ConsumeIntegralInRange(1, 4); i > 0; --i) {
      std::string bytes;
      for (int n = input.ConsumeIntegralInRange(0, 2); n > 0; --n)
        bytes += message(input);
      bytes += input.ConsumeRandomLengthString(100);
      take(bytes, mostly<uint32_t>(input, 0));
      HBA_EVENTINFO events[4];
      uint32_t count = input.ConsumeIntegralInRange<uint32_t>(0, 4);
      const uint32_t room = count;
      if (GetEventBuffer(0, events, &count) == HBA_STATUS_OK && count > room)
        fuzz::fault("claims more than there is room for", "GetEventBuffer");
    }
    HCX_unRegisterForEvent(0, 0);
    if (hcx_RegEventCnt[0] != 0) fuzz::fault("registrations left", "HCX_unRegisterForEvent");
  }
  machine.check_nothing_left();
  return 0;
}
