// SPDX-License-Identifier: BSD-3-Clause
// Attribute texts and words of the driver: whatever an attribute holds, its readers stay inside their buffers and
// answer a number or a terminated text, and words survive being turned into numbers and back.
#include "hostile_machine.h"
#include "libhcx.h"

namespace {

constexpr char host_dir[] = "/sys/class/scsi_host/host0/";
constexpr char fc_dir[] = "/sys/class/fc_host/host0/";

void read_texts(FuzzedDataProvider &input) {
  const size_t size = input.ConsumeIntegralInRange<size_t>(0, 300);
  std::vector<char> line(size);  // exactly as long as promised: the sanitizer sees one byte too many
  const char *answer = hcx_sysfs_read_str(host_dir, "info", line.data(), size);
  if (answer && answer != line.data()) fuzz::fault("another buffer", "hcx_sysfs_read_str");
  if (answer && memchr(answer, '\0', size) == nullptr) fuzz::fault("not terminated", "hcx_sysfs_read_str");
  hcx_sysfs_read_int(fc_dir, "max_npiv_vports");
  hcx_sysfs_read_uint(fc_dir, "max_npiv_vports");
  hcx_sysfs_read_hexuint32(fc_dir, "port_id");
  hcx_sysfs_read_hexuint64(fc_dir, "port_name");
  hcx_sysfs_test_file(fc_dir, "port_name");
  hcx::attr_read_str("/sys/class/scsi_host/host0/", "state", line.data(), size);
  hcx_sysfs_write_str(host_dir, "issue_reset", "selective");
}

void read_blocks(FuzzedDataProvider &input) {
  std::vector<uint8_t> block(input.ConsumeIntegralInRange<size_t>(0, 5000));
  const off_t at = input.ConsumeIntegralInRange<off_t>(-1, 5000);
  if (hcx_sysfs_read_binfile(host_dir, "ctlreg", block.data(), at, block.size()) > block.size())
    fuzz::fault("more than the buffer has", "hcx_sysfs_read_binfile");
  hcx_sysfs_write_binfile(host_dir, "ctlreg", block.data(), at, block.size());
  const int fd = hcx_sysfs_lock_binfile(host_dir, "mbox");
  if (fd <= 0) return;
  hcx_sysfs_write_locked_fd(fd, block.data(), at, block.size());
  hcx_sysfs_read_locked_fd(fd, block.data(), at, block.size());
  hcx_sysfs_unlock_binfile(fd);
}

void check_printed(const char *call, const std::vector<char> &text, int length, bool untouched) {
  if (untouched || text.empty()) return;
  if (length < 0 || static_cast<size_t>(length) >= text.size() || text[static_cast<size_t>(length)] != '\0')
    fuzz::fault("not terminated at its length", call);
}

void convert_words(FuzzedDataProvider &input) {
  static const named_const *const tables[] = {hcx::rport_role_names, hcx::port_state_names,
                                              hcx::class_names,      hcx::port_speed_names,
                                              hcx::board_mode_names, hcx::link_state_names};
  const named_const *table = input.PickValueInArray(tables);
  const std::string words = input.ConsumeRandomLengthString(200);
  const char separator = input.ConsumeBool() ? ',' : input.ConsumeIntegral<char>();
  str2enum(words.c_str(), table);
  const uint32_t bits = str2bitfield(words.c_str(), separator, table);
  std::vector<char> text(input.ConsumeIntegralInRange<size_t>(0, 200));
  for (uint32_t value : {bits, input.ConsumeIntegral<uint32_t>()}) {
    const int word = enum2str(text.data(), text.size(), value, table);
    check_printed("enum2str", text, word, word == 0);  // a number without a word leaves the buffer as it was
    check_printed("bitfield2str", text, bitfield2str(text.data(), text.size(), value, separator, table),
                  false);
  }
  std::string line = words;
  hcx_str_chop_cr(line.data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  fuzz::HostileMachine machine(input);
  switch (input.ConsumeIntegralInRange(0, 2)) {
    case 0:
      read_texts(input);
      break;
    case 1:
      read_blocks(input);
      break;
    default:
      convert_words(input);
      break;
  }
  machine.check_nothing_left();
  return 0;
}
