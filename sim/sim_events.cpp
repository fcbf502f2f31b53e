// SPDX-License-Identifier: BSD-3-Clause
// Event messages, and the driver's three commands for CT requests: waiting for one (1), fetching it (2), answering it
// (3). Requests and waiters are kept in the host's state.
#include "sim_events.h"

#include <linux/netlink.h>

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "sim_areas.h"
#include "sim_bytes.h"
#include "sim_machine.h"

namespace sim {

namespace {
constexpr uint32_t kSetEvent = 1, kGetEvent = 2, kResponse = 3;
constexpr uint32_t kLinkUp = 2, kLinkDown = 3, kRscn = 5, kVendorUnique = 0xffff;
constexpr uint32_t kVendorRscn = 2, kVendorDump = 0x10, kVendorTemperature = 0x20;
constexpr uint16_t kTransportMessage = 17;
constexpr uint64_t kVendorId = 0x0100000000001d5a;
constexpr size_t kHead = 36;  // of an event, up to its data

template <typename T>
void put(std::string &bytes, size_t offset, T value) {
  put_bytes(bytes, offset, {reinterpret_cast<const char *>(&value), sizeof value});
}

using nlohmann::json;

json &list_of(Host &host, const char *name) {
  json &list = host.state()[name];
  if (!list.is_array()) list = json::array();
  return list;
}

std::string waiter(uint32_t registration, uint32_t requester) {
  return std::to_string(registration) + ":" + std::to_string(requester);
}

// Says that one has come, once for each; until then the request waits.
void set_event(BsgCall &call) {
  if (call.request.size() < 28) {
    call.result = -EINVAL;
    return;
  }
  const uint32_t gs_type = call.word(16);
  call.host.state()["ct_waiters"][waiter(call.word(24), call.word(20))] = gs_type;
  call.machine.touch();
  for (json &entry : list_of(call.host, "ct_requests")) {
    if (entry["gs_type"] != gs_type || entry["seen"] == true) continue;
    entry["seen"] = true;
    call.received = static_cast<uint32_t>(entry["data"].get<std::string>().size() / 2);
    return;
  }
  call.again = true;
}

void get_event(BsgCall &call) {
  if (call.request.size() < 24) {
    call.result = -EINVAL;
    return;
  }
  const json &waiters = call.host.state()["ct_waiters"];
  const std::string name = waiter(call.word(16), call.word(20));
  if (!waiters.is_object() || !waiters.contains(name)) {
    call.result = -ENOENT;
    return;
  }
  const uint32_t gs_type = waiters[name];
  json &requests = list_of(call.host, "ct_requests");
  for (size_t i = 0; i < requests.size(); i++) {
    if (requests[i]["gs_type"] != gs_type || requests[i]["seen"] != true) continue;
    call.data_in = from_hex(requests[i]["data"].get<std::string>());
    call.reply_word(requests[i]["tag"]);
    call.reply_word(gs_type);
    list_of(call.host, "ct_open").push_back(requests[i]["tag"]);
    list_of(call.host, "ct_requests").erase(i);
    call.machine.touch();
    return;
  }
  call.result = -ENOENT;
}

void respond(BsgCall &call) {
  json &open = list_of(call.host, "ct_open");
  for (size_t i = 0; i < open.size(); i++) {
    if (open[i] != call.word(16)) continue;
    open.erase(i);
    list_of(call.host, "ct_answers").push_back(std::to_string(call.word(16)) + ":" + to_hex(call.data_out));
    call.machine.touch();
    return;
  }
  call.result = -ERANGE;
}
}  // namespace

std::string native_word(uint32_t value) {
  return {reinterpret_cast<const char *>(&value), sizeof value};
}

std::string Events::message(int host_no, uint32_t number, uint32_t code, std::string_view data) const {
  const size_t event = std::max<size_t>((kHead + data.size() + 7) / 8 * 8, 40);
  std::string bytes(NLMSG_HDRLEN + event, '\0');
  put(bytes, 0, static_cast<uint32_t>(bytes.size()));
  put(bytes, 4, kTransportMessage);
  const size_t at = NLMSG_HDRLEN;
  bytes[at] = 1;      // version
  bytes[at + 1] = 1;  // FC transport
  put(bytes, at + 2, uint16_t{0xa1b2});
  put(bytes, at + 4, uint16_t{0x0100});
  put(bytes, at + 6, static_cast<uint16_t>(event));
  put(bytes, at + 8, static_cast<uint64_t>(machine_.clock != 0 ? machine_.clock.load() : ::time(nullptr)));
  put(bytes, at + 16, code == kVendorUnique ? kVendorId : uint64_t{0});
  put(bytes, at + 24, static_cast<uint16_t>(host_no));
  put(bytes, at + 26, static_cast<uint16_t>(data.size()));
  put(bytes, at + 28, number);
  put(bytes, at + 32, code);
  put_bytes(bytes, at + kHead, data);
  return bytes;
}

void Events::post(Host &host, uint32_t code, std::string_view data) {
  uint32_t number = 0;
  machine_.change([&] {
    json &last = machine_.state()["event_number"];
    number = last.is_number() ? last.get<uint32_t>() + 1 : 1;
    last = number;
  });
  machine_.netlink().send(message(host.number(), number, code, data));
}

void Events::vendor(Host &host, uint32_t kind, std::string_view data) {
  post(host, kVendorUnique, native_word(kind) + std::string(data));
}

void Events::link(Host &host, bool up) {
  machine_.change([&] {
    if (machine_.generation() >= 1) host.set_fc("port_state", up ? "Online" : "Linkdown");
    if (host.parent() == nullptr) host.set_scsi("link_state", up ? "Link Up - Ready" : "Link Down");
  });
  post(host, up ? kLinkUp : kLinkDown, native_word(0));
}

void Events::rscn(Host &host, const std::vector<uint32_t> &pages) {
  std::string payload = {'\x61', '\x04', '\0', '\0'};
  for (const uint32_t page : pages) {
    put_be(payload, payload.size(), page, 4);
    post(host, kRscn, native_word(page));
  }
  put_be(payload, 2, payload.size(), 2);
  vendor(host, kVendorRscn, native_word(static_cast<uint32_t>(payload.size())) + payload);
}

void Events::dump(Host &host) {
  vendor(host, kVendorDump, "");
}

void Events::temperature(Host &host, uint32_t code, uint32_t celsius) {
  vendor(host, kVendorTemperature, native_word(code) + native_word(celsius));
}

uint32_t Events::ct(Host &host, uint32_t gs_type, std::string_view request) {
  uint32_t tag = 0;
  machine_.change([&] {
    json &last = machine_.state()["ct_tag"];
    tag = last.is_number() ? last.get<uint32_t>() + 1 : 0x100;
    last = tag;
    list_of(host, "ct_requests")
        .push_back({{"gs_type", gs_type}, {"tag", tag}, {"data", to_hex(request)}, {"seen", false}});
  });
  machine_.processes().changed();
  return tag;
}

std::vector<std::string> Events::ct_answers(Host &host) {
  const std::lock_guard guard(machine_.mutex());
  return list_of(host, "ct_answers").get<std::vector<std::string>>();
}

void install_events(Machine &machine) {
  machine.bsg().on_vendor(kSetEvent, set_event);
  machine.bsg().on_vendor(kGetEvent, get_event);
  machine.bsg().on_vendor(kResponse, respond);
}

}  // namespace sim
