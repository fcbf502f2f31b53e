// SPDX-License-Identifier: BSD-3-Clause
// CT requests to the fabric's servers (FC-GS) and ELS to remote ports (FC-LS), as a small switch and its devices
// answer them. The name server knows the port that asks, its virtual ports and the remote ports that it sees.
#include "sim_fabric.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include "sim_areas.h"
#include "sim_bytes.h"
#include "sim_machine.h"

namespace sim {

namespace {
constexpr size_t kCtHeader = 16;
constexpr uint16_t kAccept = 0x8002, kReject = 0x8001;
constexpr uint8_t kInvalidCommand = 0x01, kInvalidSize = 0x06, kUnable = 0x09, kNotSupported = 0x0b;

struct Port {
  uint32_t port_id;
  uint64_t wwpn, wwnn;
  bool target, initiator;
  std::string name;
};

std::vector<Port> known_ports(Host &host) {
  Host &root = host.parent() != nullptr ? *host.parent() : host;
  std::vector<Port> ports;
  auto add_host = [&](Host &h) {
    ports.push_back(
        {h.spec().port_id, h.spec().wwpn, h.spec().wwnn, false, true, "Quorva " + h.spec().model});
  };
  add_host(root);
  for (Host *vport : root.vports())
    add_host(*vport);
  for (const auto &rport : root.rports()) {
    const RportSpec &spec = rport->spec();
    if ((spec.port_id & 0xff0000) == 0xff0000) continue;
    ports.push_back({spec.port_id, spec.wwpn, spec.wwnn, spec.roles.find("FCP Target") != std::string::npos,
                     spec.roles.find("FCP Initiator") != std::string::npos, "QUORVA RAMSTORE"});
  }
  std::sort(ports.begin(), ports.end(), [](const Port &a, const Port &b) { return a.port_id < b.port_id; });
  return ports;
}

// The answer of a name server: its payload, or the explanation of why it has none.
struct Answer {
  std::string payload;
  uint8_t reason = 0, explanation = 0;
};

std::string fc4_types() {
  std::string types(32, '\0');
  types[2] = 0x01;  // FCP
  types[7] = 0x01;  // FC-GS
  return types;
}

std::string counted(const std::string &name) {
  return static_cast<char>(name.size()) + name;
}

std::string number(uint64_t value, size_t width) {
  std::string bytes;
  put_be(bytes, 0, value, width);
  return bytes;
}

Answer by_port_id(Host &host, uint16_t command, const std::string &payload) {
  constexpr uint8_t kPortIdNotRegistered = 0x01;
  const auto wanted = static_cast<uint32_t>(get_be(payload, 1, 3));
  const auto ports = known_ports(host);
  const auto port =
      std::find_if(ports.begin(), ports.end(), [&](const Port &p) { return p.port_id == wanted; });
  if (port == ports.end()) return {{}, kUnable, kPortIdNotRegistered};
  switch (command) {
    case 0x0112:  // GPN_ID
      return {number(port->wwpn, 8)};
    case 0x0113:  // GNN_ID
      return {number(port->wwnn, 8)};
    case 0x0114:  // GCS_ID: class 3
      return {number(0x00000008, 4)};
    case 0x0117:  // GFT_ID
      return {fc4_types()};
    case 0x0118:  // GSPN_ID
      return {counted(port->name)};
    case 0x011a:  // GPT_ID: N_Port
      return {number(0x01000000, 4)};
    default:
      return {{}, kNotSupported, 0};
  }
}

Answer next_port(Host &host, const std::string &payload) {
  const auto after = static_cast<uint32_t>(get_be(payload, 1, 3));
  const auto ports = known_ports(host);
  auto port = std::find_if(ports.begin(), ports.end(), [&](const Port &p) { return p.port_id > after; });
  if (port == ports.end()) port = ports.begin();
  std::string object;
  put_be(object, 0, 0x01000000 | port->port_id, 4);
  put_be(object, 4, port->wwpn, 8);
  put_bytes(object, 12, counted(port->name));
  put_be(object, 268, port->wwnn, 8);
  put_bytes(object, 276, counted(""));
  object.resize(532);                  // symbolic node name and initial process associator
  object.resize(548);                  // IP address
  put_be(object, 548, 0x00000008, 4);  // class 3
  put_bytes(object, 552, fc4_types());
  object.resize(604);
  put_be(object, 600, host.spec().fabric, 8);
  return {object};
}

// Lists of ports: identifiers, with a name each when `name_width` is 8.
Answer list_ports(Host &host, uint16_t command) {
  std::string list;
  for (const Port &port : known_ports(host)) {
    list += number(port.port_id, 4);
    if (command == 0x0172) list += std::string(4, '\0') + number(port.wwpn, 8);
    if (command == 0x0173) list += std::string(4, '\0') + number(port.wwnn, 8);
  }
  const size_t entry = command == 0x0172 || command == 0x0173 ? 16 : 4;
  list[list.size() - entry] = '\x80';  // the last one
  return {list};
}

Answer by_name(Host &host, uint16_t command, const std::string &payload) {
  const uint64_t name = get_be(payload, 0, 8);
  std::string list;
  for (const Port &port : known_ports(host)) {
    if ((command == 0x0121 ? port.wwpn : port.wwnn) == name) list += number(port.port_id, 4);
  }
  if (list.empty()) return {{}, kUnable, static_cast<uint8_t>(command == 0x0121 ? 0x02 : 0x03)};
  if (command == 0x0131) list[list.size() - 4] = '\x80';
  return {list};
}

Answer name_server(Host &host, uint16_t command, const std::string &payload) {
  switch (command) {
    case 0x0100:  // GA_NXT
      return next_port(host, payload);
    case 0x0121:  // GID_PN
    case 0x0131:  // GID_NN
      return by_name(host, command, payload);
    case 0x0171:  // GID_FT
    case 0x01a1:  // GID_PT
    case 0x0172:  // GPN_FT
    case 0x0173:  // GNN_FT
      return list_ports(host, command);
    default:
      return by_port_id(host, command, payload);
  }
}

// The fabric's own view: one domain, one interconnect element.
Answer management_server(Host &host, uint16_t command) {
  constexpr uint16_t kGetElements = 0x0101, kGetElementName = 0x0116;
  if (command == kGetElements) {
    return {number(1, 4) + number(host.spec().fabric, 8) + number(0x00000001, 4)};
  }
  if (command == kGetElementName) return {counted("fabric switch")};
  return {{}, kNotSupported, 0};
}

void answer_ct(BsgCall &call) {
  if (call.data_out.size() < kCtHeader || call.data_in_size < kCtHeader) {
    call.result = -EINVAL;
    return;
  }
  const auto type = static_cast<uint8_t>(call.data_out[4]);
  const auto command = static_cast<uint16_t>(get_be(call.data_out, 8, 2));
  const std::string payload = call.data_out.substr(kCtHeader);
  const uint32_t server = call.rport->spec().port_id;
  Answer answer{{}, kNotSupported, 0};
  if ((command & 0x8000) != 0) {
    answer = {{}, kInvalidCommand, 0};
  } else if (server == 0xfffffc && type == 0xfc) {
    answer = name_server(call.host, command, payload);
  } else if (server == 0xfffffa && type == 0xfa) {
    answer = management_server(call.host, command);
  }
  // As large as the requester said it may be, in words; 0 is no limit.
  const size_t limit = 4 * get_be(call.data_out, 10, 2);
  if (answer.reason == 0 && limit != 0 && answer.payload.size() > limit) answer = {{}, kInvalidSize, 0};
  std::string reply = call.data_out.substr(0, kCtHeader);
  reply.resize(kCtHeader);
  put_be(reply, 8, answer.reason == 0 ? kAccept : kReject, 2);
  put_be(reply, 10, 0, 2);
  reply[13] = static_cast<char>(answer.reason);
  reply[14] = static_cast<char>(answer.explanation);
  call.data_in = reply + answer.payload;
}

constexpr uint8_t kAccepted = 0x02, kEcho = 0x10, kRls = 0x0f, kRnid = 0x78;

// Node identification: port and node name, and the topology block for format 0xdf.
void answer_rnid(BsgCall &call) {
  const auto format = static_cast<uint8_t>(call.data_out.size() > 4 ? call.data_out[4] : 0);
  const RportSpec &spec = call.rport->spec();
  if (format != 0xdf && format != 0x00) return reject_els(call, 0x09, 0x00);
  std::string reply(8, '\0');
  reply[0] = kAccepted;
  reply[4] = static_cast<char>(format);
  reply[5] = 16;
  reply += number(spec.wwpn, 8) + number(spec.wwnn, 8);
  if (format == 0xdf) {
    reply[7] = 52;
    std::string topology(52, '\0');
    put_be(topology, 16, spec.roles.find("FCP Target") != std::string::npos ? 0x0a : 0x07, 4);
    put_be(topology, 20, spec.port_id & 0xff, 4);
    put_be(topology, 24, 1, 4);
    reply += topology;
  }
  call.data_in = reply;
}

void answer_els(BsgCall &call) {
  if (call.data_out.empty() || call.data_in_size == 0) {
    call.result = -EINVAL;
    return;
  }
  const auto code = static_cast<uint8_t>(call.data_out[0]);
  const bool fabric_port = (call.rport->spec().port_id & 0xff0000) == 0xff0000;
  call.reply_word(0);  // accepted
  if (code == kRnid && !fabric_port) return answer_rnid(call);
  if (code == kEcho) {
    call.data_in = call.data_out;
    call.data_in[0] = kAccepted;
    return;
  }
  if (code == kRls) {
    std::string reply(28, '\0');
    reply[0] = kAccepted;
    for (size_t i = 0; i < 6; i++)
      put_be(reply, 4 + 4 * i, i + 1, 4);
    call.data_in = reply;
    return;
  }
  reject_els(call, kNotSupported, 0x2c);
}

// A port that has gone answers nobody.
bool reachable(BsgCall &call) {
  const std::string state = call.machine.vfs().text(call.rport->dir() + "port_state");
  if (state.starts_with("Online")) return true;
  call.result = -ENODEV;
  return false;
}

BsgHandler with_hook(void (*answer)(BsgCall &)) {
  return [answer](BsgCall &call) {
    if (!reachable(call)) return;
    const auto hook = fabric(call.host).hook;
    if (hook && hook(call)) return;
    answer(call);
  };
}
}  // namespace

Fabric &fabric(Host &host) {
  return host.area<Fabric>();
}

void reject_els(BsgCall &call, uint8_t reason, uint8_t explanation, uint8_t vendor) {
  call.data_in.clear();
  call.reply_data.clear();
  call.reply_word(1);
  for (const uint8_t byte : {uint8_t{0x01}, reason, explanation, vendor})
    call.reply_data += static_cast<char>(byte);
}

namespace {
constexpr uint32_t kManagementResponse = 3;

// A response goes out under the tag of a request that came in, once.
void management_response(BsgCall &call) {
  if (call.request.size() < 20 || call.data_out.empty()) {
    call.result = -EINVAL;
  } else if (fabric(call.host).open_tags.erase(call.word(16)) == 0) {
    call.result = -ERANGE;
  }
}
}  // namespace

void install_fabric(Machine &machine) {
  machine.bsg().on_ct(with_hook(answer_ct));
  machine.bsg().on_els(with_hook(answer_els));
  machine.bsg().on_vendor(kManagementResponse, management_response);
}

}  // namespace sim
