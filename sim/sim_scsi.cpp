// SPDX-License-Identifier: BSD-3-Clause
// LUNs that answer SCSI commands through SG_IO on their nodes: INQUIRY with vital product data pages, TEST
// UNIT READY, REQUEST SENSE, READ CAPACITY, REPORT LUNS, READ and WRITE, and check conditions for what they
// do not know. Blocks that were written are kept in the machine's state; others show where they are. Runs
// under the machine's mutex.
#include "sim_scsi.h"

#include <scsi/sg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "sim_areas.h"
#include "sim_machine.h"

namespace sim {

namespace {
constexpr size_t kBlock = 512;
constexpr uint8_t kCheckCondition = 0x02;

enum Key : uint8_t { illegal_request = 0x05 };
constexpr uint16_t kInvalidOpcode = 0x2000, kOutOfRange = 0x2100, kInvalidField = 0x2400;

uint64_t number(const std::string &cdb, size_t at, size_t width) {
  uint64_t value = 0;
  for (size_t i = 0; i < width; i++)
    value = value << 8 | static_cast<uint8_t>(cdb[at + i]);
  return value;
}

std::string bytes(uint64_t value, size_t width) {
  std::string text(width, '\0');
  for (size_t i = width; i > 0; i--, value >>= 8)
    text[i - 1] = static_cast<char>(value);
  return text;
}

std::string padded(std::string text, size_t size) {
  text.resize(size, ' ');
  return text;
}

void check(ScsiAnswer &answer, uint8_t key, uint16_t code) {
  answer.status = kCheckCondition;
  answer.driver_status = 0x08;
  answer.data.clear();
  answer.sense.assign(18, '\0');
  answer.sense[0] = 0x70;
  answer.sense[2] = static_cast<char>(key);
  answer.sense[7] = 10;
  answer.sense[12] = static_cast<char>(code >> 8);
  answer.sense[13] = static_cast<char>(code);
}

std::string descriptor(int code_set, int association, int type, const std::string &body) {
  std::string text;
  text += static_cast<char>(code_set);
  text += static_cast<char>(association << 4 | type);
  text += '\0';
  text += static_cast<char>(body.size());
  return text + body;
}

// Eight bytes: 16-bit levels, the lowest first, as the kernel numbers LUNs.
std::string lun_bytes(uint64_t lun) {
  std::string text;
  for (int level = 0; level < 4; level++)
    text += bytes(lun >> (16 * level) & 0xffff, 2);
  return text;
}

char device_type(const Lun &lun) {
  switch (lun.spec().kind) {
    case LunKind::disk:
      return 0;
    case LunKind::tape:
      return 1;
    case LunKind::changer:
      break;
  }
  return 8;
}

std::string standard_inquiry(Lun &lun) {
  std::string data("\0\0\x05\x12\x1f\0\0\x02", 8);
  data[0] = device_type(lun);
  if (lun.spec().kind != LunKind::disk) data[1] = '\x80';
  return data + padded(lun.spec().vendor, 8) + padded(lun.spec().model, 16) + padded(lun.spec().revision, 4);
}

std::string vpd_page(Lun &lun, uint8_t page) {
  std::string body;
  switch (page) {
    case 0x00:
      body = std::string("\x00\x80\x83", 3);
      break;
    case 0x80:
      body = lun.spec().serial;
      break;
    case 0x83:
      for (const std::string &text : unit_of(lun).descriptors)
        body += text;
      break;
    default:
      return {};
  }
  std::string data(1, device_type(lun));
  return data + static_cast<char>(page) + bytes(body.size(), 2) + body;
}

void inquiry(Lun &lun, const std::string &cdb, ScsiAnswer &answer) {
  const bool vital = cdb[1] & 1;
  const auto page = static_cast<uint8_t>(cdb[2]);
  if (!vital && page != 0) return check(answer, illegal_request, kInvalidField);
  answer.data = vital ? vpd_page(lun, page) : standard_inquiry(lun);
  if (answer.data.empty()) return check(answer, illegal_request, kInvalidField);
  answer.data.resize(std::min(answer.data.size(), static_cast<size_t>(number(cdb, 3, 2))));
}

void report_luns(Lun &lun, const std::string &cdb, ScsiAnswer &answer) {
  std::string list;
  for (auto &other : lun.rport().luns())
    list += lun_bytes(other->spec().lun);
  answer.data = bytes(list.size(), 4) + std::string(4, '\0') + list;
  answer.data.resize(std::min(answer.data.size(), static_cast<size_t>(number(cdb, 6, 4))));
}

nlohmann::json &written(Lun &lun) {
  return lun.rport().host().machine().state()["blocks"][lun.address()];
}

std::string default_block(Lun &lun, uint64_t at) {
  std::string text = lun.address() + " block " + std::to_string(at) + "\n";
  std::string block;
  while (block.size() < kBlock)
    block += text;
  block.resize(kBlock);
  return block;
}

std::string to_hex(const std::string &data) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (char c : data) {
    text += kDigits[static_cast<uint8_t>(c) >> 4];
    text += kDigits[c & 15];
  }
  return text;
}

std::string from_hex(const std::string &text) {
  std::string data;
  for (size_t i = 0; i + 1 < text.size(); i += 2)
    data += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
  return data;
}

std::string read_block(Lun &lun, uint64_t at) {
  const nlohmann::json &blocks = written(lun);
  const std::string key = std::to_string(at);
  return blocks.is_object() && blocks.contains(key) ? from_hex(blocks[key].get<std::string>())
                                                    : default_block(lun, at);
}

// Where a READ or WRITE goes; false when that is beyond the end.
bool span(Lun &lun, const std::string &cdb, uint64_t &at, uint64_t &count) {
  switch (static_cast<uint8_t>(cdb[0]) >> 5) {
    case 0:
      at = number(cdb, 1, 3) & 0x1fffff;
      count = cdb[4] == 0 ? 256 : static_cast<uint8_t>(cdb[4]);
      break;
    case 1:
      at = number(cdb, 2, 4);
      count = number(cdb, 7, 2);
      break;
    default:
      at = number(cdb, 2, 8);
      count = number(cdb, 10, 4);
      break;
  }
  return at <= lun.spec().blocks && count <= lun.spec().blocks - at;
}

void read_blocks(Lun &lun, const std::string &cdb, ScsiAnswer &answer) {
  uint64_t at = 0, count = 0;
  if (!span(lun, cdb, at, count)) return check(answer, illegal_request, kOutOfRange);
  for (uint64_t i = 0; i < count; i++)
    answer.data += read_block(lun, at + i);
}

void write_blocks(Lun &lun, const std::string &cdb, const std::string &data, ScsiAnswer &answer) {
  uint64_t at = 0, count = 0;
  if (!span(lun, cdb, at, count)) return check(answer, illegal_request, kOutOfRange);
  nlohmann::json &blocks = written(lun);
  for (uint64_t i = 0; i < count && (i + 1) * kBlock <= data.size(); i++)
    blocks[std::to_string(at + i)] = to_hex(data.substr(i * kBlock, kBlock));
  lun.rport().host().machine().touch();
}

void capacity(Lun &lun, bool wide, ScsiAnswer &answer) {
  const uint64_t last = lun.spec().blocks - 1;
  answer.data = wide ? bytes(last, 8) : bytes(std::min<uint64_t>(last, 0xffffffff), 4);
  answer.data += bytes(kBlock, 4);
  if (wide) answer.data.resize(32, '\0');
}

void execute(Lun &lun, const std::string &cdb, const std::string &data_out, ScsiAnswer &answer) {
  const auto opcode = static_cast<uint8_t>(cdb[0]);
  const bool disk = lun.spec().kind == LunKind::disk;
  switch (opcode) {
    case 0x00:  // TEST UNIT READY
      return;
    case 0x03:  // REQUEST SENSE
      answer.data.assign(18, '\0');
      answer.data[0] = 0x70;
      answer.data[7] = 10;
      answer.data.resize(std::min<size_t>(answer.data.size(), static_cast<uint8_t>(cdb[4])));
      return;
    case 0x12:
      return inquiry(lun, cdb, answer);
    case 0xa0:
      return report_luns(lun, cdb, answer);
    case 0x25:
      if (disk) return capacity(lun, false, answer);
      break;
    case 0x9e:  // SERVICE ACTION IN(16): READ CAPACITY(16)
      if (disk && (cdb[1] & 0x1f) == 0x10) return capacity(lun, true, answer);
      break;
    case 0x08:
    case 0x28:
    case 0x88:
      if (disk) return read_blocks(lun, cdb, answer);
      break;
    case 0x0a:
    case 0x2a:
    case 0x8a:
      if (disk) return write_blocks(lun, cdb, data_out, answer);
      break;
    default:
      break;
  }
  check(answer, illegal_request, kInvalidOpcode);
}

// Hands the answer to the caller's header as the SG driver does.
void finish(sg_io_hdr &header, const ScsiAnswer &answer, size_t moved_out) {
  size_t moved = moved_out;
  if (header.dxfer_direction == SG_DXFER_FROM_DEV && header.dxferp != nullptr) {
    moved = std::min<size_t>(header.dxfer_len, answer.data.size());
    std::memcpy(header.dxferp, answer.data.data(), moved);
  }
  header.resid = static_cast<int>(header.dxfer_len - moved) + answer.residual_extra;
  header.status = answer.status;
  header.masked_status = answer.status >> 1 & 0x1f;
  header.host_status = answer.host_status;
  header.driver_status = answer.driver_status;
  const size_t sense = std::min<size_t>(header.mx_sb_len, answer.sense.size());
  if (sense != 0 && header.sbp != nullptr) std::memcpy(header.sbp, answer.sense.data(), sense);
  header.sb_len_wr = static_cast<unsigned char>(header.sbp != nullptr ? sense : 0);
  const bool bad = answer.status != 0 || answer.host_status != 0 || answer.driver_status != 0;
  header.info = bad ? SG_INFO_CHECK : 0;
}

int sg_io(Lun &lun, const std::string &path, void *arg) {
  auto &header = *static_cast<sg_io_hdr *>(arg);
  const bool from_device = header.dxfer_direction == SG_DXFER_FROM_DEV;
  const bool to_device = header.dxfer_direction == SG_DXFER_TO_DEV;
  if (header.interface_id != 'S') return -ENOSYS;
  if (header.cmdp == nullptr || header.cmd_len < 6) return -EMSGSIZE;
  if (header.dxfer_len == 0 && to_device) return -EINVAL;
  if (header.dxfer_len > 0 && !to_device && !from_device) return -EINVAL;
  if (header.dxfer_len > 0 && header.dxferp == nullptr) return -EFAULT;

  std::string cdb(reinterpret_cast<const char *>(header.cmdp), header.cmd_len);
  std::string data_out;
  if (to_device) data_out.assign(static_cast<const char *>(header.dxferp), header.dxfer_len);
  lun.rport().host().machine().record({.path = path,
                                       .command = static_cast<uint8_t>(cdb[0]),
                                       .timeout = header.timeout,
                                       .header = cdb,
                                       .data_out = data_out,
                                       .data_in_size = from_device ? header.dxfer_len : 0});
  cdb.resize(16, '\0');
  ScsiAnswer answer;
  int error = 0;
  ScsiUnit &unit = unit_of(lun);
  if (!unit.hook || !unit.hook(cdb, data_out, answer, error)) execute(lun, cdb, data_out, answer);
  if (error != 0) return -error;
  finish(header, answer, data_out.size());
  return 0;
}

// Most units name themselves by NAA first; a few put something else in front, as arrays and libraries do.
std::vector<std::string> default_descriptors(Lun &lun) {
  const LunSpec &spec = lun.spec();
  const std::string naa = naa_descriptor(spec.wwn);
  const std::string t10 = t10_descriptor(spec.vendor, spec.model + spec.serial);
  const std::string port = naa_descriptor(lun.rport().spec().wwpn, 1);
  if (spec.kind != LunKind::disk) return {t10, naa};
  switch (spec.lun) {
    case 4:
      return {eui_descriptor(spec.wwn & 0xffffffffffff), naa};
    case 5:
      return {t10, naa, port, port_descriptor(1)};
    case 6:
      return {port, port_descriptor(1), naa};
    case 7:
      return {name_descriptor("naa." + hex_text(spec.wwn, 16).substr(2)), naa};
    default:
      return {naa, t10, port, port_descriptor(1)};
  }
}
}  // namespace

std::string naa_descriptor(uint64_t wwn, int association) {
  return descriptor(1, association, 3, bytes(wwn, 8));
}

std::string t10_descriptor(const std::string &vendor, const std::string &text) {
  return descriptor(2, 0, 1, padded(vendor, 8) + text);
}

std::string eui_descriptor(uint64_t eui) {
  return descriptor(1, 0, 2, bytes(eui, 8));
}

std::string name_descriptor(const std::string &name) {
  std::string text = name;
  text.resize((name.size() / 4 + 1) * 4, '\0');
  return descriptor(3, 0, 8, text);
}

std::string port_descriptor(uint16_t relative_port) {
  return descriptor(1, 1, 4, bytes(relative_port, 4));
}

ScsiUnit &unit_of(Lun &lun) {
  if (!lun.extra) {
    auto unit = std::make_shared<ScsiUnit>();
    unit->descriptors = default_descriptors(lun);
    lun.extra = unit;
  }
  return *std::static_pointer_cast<ScsiUnit>(lun.extra);
}

void install_scsi(Machine &machine) {
  machine.on_sg(sg_io);
}

}  // namespace sim
