// SPDX-License-Identifier: BSD-3-Clause
// Region 23, forwarders and the priority table against an adapter that answers what the input says. Flash starts with
// an arbitrary image; whatever is written back over a sound one must be sound and hold every foreign record, and
// nothing is written once an answer has not come whole. The editing steps also run by themselves, on heap blocks of
// exactly 1024 bytes.
#include <memory>
#include <optional>

#include "hcx_region.h"
#include "hostile_machine.h"

namespace {

[[noreturn]] void fault(const char *what) {
  fuzz::fault(what, "region 23");
}

// The records of an image up to its end mark; none for an image that is not sound.
std::optional<std::vector<std::string>> records_of(const std::string &image) {
  if (image.size() != 1024 || memcmp(image.data(), "RG23\x01", 5) != 0) return std::nullopt;
  std::vector<std::string> records;
  for (size_t at = 8; at + 4 <= image.size();) {
    if (image[at] == '\xff') return records;
    const size_t size = 4 + 4 * size_t{static_cast<uint8_t>(image[at + 1])};
    records.push_back(image.substr(at, size));
    at += size;
  }
  return std::nullopt;
}

// A board whose only life is in its mailbox.
class Adapter final : public fuzz::HostileMachine {
 public:
  Adapter(FuzzedDataProvider &input, bool sli4, bool fcoe)
      : HostileMachine(input), input_(input), sli4_(sli4) {
    host_ = static_cast<hcx_host *>(calloc(1, sizeof(hcx_host)));
    pthread_rwlock_init(&host_->rwlock, nullptr);
    host_->port.host = host_;
    host_->firmware_revision = strdup(sli4 ? "1.0, sli-4:2:c" : "1.0, sli-3");
    host_->protocol = strdup(fcoe ? "fcoe" : "fc");
    host_->pci_dev = strdup("/sys/devices/pci0000:00/0000:00:03.0/");
    hcx_host_list = host_;
  }
  ~Adapter() override {
    check_nothing_left();
    if (pthread_rwlock_trywrlock(&host_->rwlock) != 0) fault("host left locked");
    pthread_rwlock_unlock(&host_->rwlock);
    HCX_FreeDiagEnv();
  }
  // Before each call. own: first bytes of the records that it may change.
  void expect(const char *own) {
    own_ = own;
    damaged_ = cut_ = false;
  }

  std::string flash;  // what reads give

  // The board stays what it is, whoever scans it again.
  ssize_t read(int, void *, size_t) override { return 0; }
  int64_t stat(const char *, mode_t *) override { return -ENOENT; }
  int list(const char *, const char *, std::vector<std::string> &) override { return -ENOENT; }
  ssize_t read_link(const char *, char *, size_t) override { return -ENOENT; }

  int ioctl(int, unsigned long, void *arg) override {
    auto *io = static_cast<sg_io_v4 *>(arg);
    auto *reply = reinterpret_cast<uint8_t *>(io->response);
    auto *in = reinterpret_cast<uint8_t *>(io->din_xferp);
    const auto *out = reinterpret_cast<const uint8_t *>(io->dout_xferp);
    memset(reply, 0, io->max_response_len);
    uint32_t received = io->din_xfer_len;
    if (in && out && io->dout_xfer_len >= 512 && in != out && (out[2] == 0x17 || out[2] == 0x1b)) {
      memset(in, 0, io->din_xfer_len);
      memcpy(in, out, 256);
      if (out[2] == 0x1b)
        write_flash(in, out + 256);
      else if (const uint32_t whole = read_flash(in, io->din_xfer_len); rarely())
        received = cut(io, in, whole);
    } else if (in) {
      fill(in, io->din_xfer_len);
    }
    memcpy(reply + offsetof(fc_bsg_reply, reply_payload_rcv_len), &received, sizeof received);
    return 0;
  }

 private:
  bool rarely() { return input_.ConsumeIntegralInRange(0, 31) == 31; }
  void fill(uint8_t *to, size_t size) {
    memset(to, 0, size);
    input_.ConsumeData(to, size);
    // Mostly with status 0, or nothing behind it is ever looked at.
    if (size >= 2 && input_.ConsumeIntegralInRange(0, 7) != 0) memset(to, 0, 2);
  }
  // Less comes than there was, which the payload length says, or the residual, or both. What is left of it.
  uint32_t cut(sg_io_v4 *io, uint8_t *in, uint32_t whole) {
    const auto came = input_.ConsumeIntegralInRange<uint32_t>(0, whole - 1);
    memset(in + came, 0, io->din_xfer_len - came);
    const bool residual = input_.ConsumeBool();
    if (residual) io->din_resid = static_cast<int32_t>(io->din_xfer_len - came);
    cut_ = true;
    return residual && input_.ConsumeBool() ? io->din_xfer_len : came;
  }
  void reverse(std::string &bytes) const {
    for (size_t i = 0; !sli4_ && i + 4 <= bytes.size(); i += 4)
      std::reverse(&bytes[i], &bytes[i] + 4);
  }
  // Bytes of the answer that mean something.
  uint32_t read_flash(uint8_t *in, size_t size) {
    const size_t offset = hcx_mbox_word(in, 2) >> 16;
    const size_t wanted = sli4_ ? hcx_mbox_word(in, 3) : 4 * size_t{hcx_mbox_word(in, 4)};
    std::string part =
        offset < flash.size() ? flash.substr(offset, std::min(wanted, size - 256)) : std::string();
    auto claimed = static_cast<uint32_t>(part.size());
    if (rarely()) {
      damaged_ = true;
      claimed = input_.ConsumeIntegral<uint32_t>();
      hcx_mbox_set_status(in, input_.PickValueInArray<uint16_t>({0, 1, 253, 0xfffd, 0xfff7, 0xfff6}));
    }
    reverse(part);
    memcpy(in + 256, part.data(), part.size());
    hcx_mbox_set_word(in, sli4_ ? 6 : 4, claimed);
    return static_cast<uint32_t>(256 + part.size());
  }
  void write_flash(uint8_t *in, const uint8_t *data) {
    if (hcx_mbox_word(in, 2) != (1024U << 16 | 23)) fault("another region is written");
    if (cut_ && !damaged_) fault("something is written after an answer that did not come whole");
    std::string image(reinterpret_cast<const char *>(data), 1024);
    reverse(image);
    const auto after = records_of(image), before = records_of(flash);
    if (!after && !replaced_in_place(image)) fault("an image that is not sound is written");
    if (before && !damaged_ && foreign(*before) != foreign(*after)) fault("a foreign record is lost");
    if (rarely())
      hcx_mbox_set_status(in, 1);
    else
      flash = image;
  }
  // Whether all that differs from flash, which is not sound either, is one FCoE record.
  bool replaced_in_place(const std::string &image) const {
    if (own_[0] == '\xa2' || flash.size() != 1024) return false;
    size_t at = 8;
    while (at + 4 <= 1024 && flash[at] != own_[0])
      at += 4 + 4 * size_t{static_cast<uint8_t>(flash[at + 1])};
    const size_t size = own_[0] == '\xa0' ? 12 : 324;
    return at + size <= 1024 && image.substr(0, at) == flash.substr(0, at) &&
           image.substr(at + size) == flash.substr(at + size);
  }
  std::vector<std::string> foreign(const std::vector<std::string> &records) const {
    std::vector<std::string> left;
    for (const std::string &record : records)
      if (record[0] != own_[0] || (record[0] == '\xa2' && record.substr(2, 2) != std::string("\x20\0", 2)))
        left.push_back(record);
    return left;
  }

  FuzzedDataProvider &input_;
  bool sli4_;
  hcx_host *host_;
  const char *own_ = "";
  bool damaged_ = false;  // an answer was not the whole truth
  bool cut_ = false;      // an answer did not come whole
};

std::unique_ptr<uint8_t[]> image_block(FuzzedDataProvider &input) {
  std::unique_ptr<uint8_t[]> block(new uint8_t[1024]());
  const std::string bytes = input.ConsumeRandomLengthString(1024);
  memcpy(block.get(), bytes.data(), bytes.size());
  return block;
}

void edit(FuzzedDataProvider &input) {
  const auto region = image_block(input), rest = image_block(input);
  while (input.remaining_bytes() > 0) {
    const auto option = input.ConsumeIntegralInRange<uint32_t>(0, 2);
    int32_t offset =
        input.ConsumeBool() ? input.ConsumeIntegralInRange(-4, 1040) : input.ConsumeIntegral<int32_t>();
    int32_t end = offset;
    auto length = input.ConsumeIntegral<uint32_t>();
    const hcx::region::Image image(region.get());
    switch (input.ConsumeIntegralInRange(0, 5)) {
      case 0:
        create_driver_specific(option, offset, region.get());
        break;
      case 1:
        rebuild_port_status(region.get(), option, offset, &length);
        break;
      case 2:
        remove_driver_specific(region.get(), rest.get(), offset, &end);
        break;
      case 3:
        add_driver_specific(region.get(), offset, rest.get(), end, length % 2048);
        break;
      case 4:
        if (const auto found = hcx::region::end_of_records(image); found && !image.ends_at(*found))
          fault("no end mark at the end");
        break;
      default:
        hcx::region::without_record(image, offset);
        hcx::region::find_record(image, input.ConsumeIntegral<uint8_t>());
    }
  }
}

void call(FuzzedDataProvider &input) {
  const bool fcoe = input.ConsumeBool();
  Adapter adapter(input, fcoe || input.ConsumeBool(), fcoe);
  adapter.flash = input.ConsumeRandomLengthString(1024);
  if (input.ConsumeIntegralInRange(0, 7) != 0) {
    adapter.flash.resize(1024);
    adapter.flash.replace(0, 8, std::string("RG23\x01\0\0\0", 8));
  }
  for (int calls = input.ConsumeIntegralInRange(1, 4); calls > 0; --calls) {
    const size_t room = input.ConsumeIntegralInRange<size_t>(0, 20);
    if (!fcoe && input.ConsumeBool()) {
      const auto setting = input.ConsumeIntegralInRange<uint16_t>(0, 1);
      uint16_t read = 7;
      adapter.expect("\xa2");
      HCX_SetPersistLinkDown(0, setting);
      HCX_GetPersistLinkDown(0, &read);
      if (read > 1) fault("a setting that does not exist");
    } else if (!fcoe) {
      const size_t size = sizeof(HCX_QoSConfig) + room * sizeof(HCX_QoSEntry);
      std::unique_ptr<uint8_t[]> memory(new uint8_t[size]());
      auto *table = reinterpret_cast<HCX_QoSConfig *>(memory.get());
      table->numberOfEntries = static_cast<uint32_t>(room);
      HCX_QoSGetConfig(0, table);
      table->numberOfEntries = std::min(table->numberOfEntries, static_cast<uint32_t>(room));
      order_fcp_priority_list(table);
    } else if (input.ConsumeBool()) {
      HCX_FCoEParam param{};
      param.version = 1;
      HCX_FCoEGetParams(0, &param);
      adapter.expect("\xa0");
      HCX_FCoESetParams(0, &param);
    } else if (input.ConsumeBool()) {
      std::unique_ptr<uint8_t[]> memory(new uint8_t[4 + 22 * room]());
      auto *list = reinterpret_cast<HCX_FCoEConnectList *>(memory.get());
      list->version = 1;
      list->numberOfEntries = static_cast<uint8_t>(room);
      HCX_FCoEGetFCFConnectList(0, list);
      list->numberOfEntries = std::min(list->numberOfEntries, static_cast<uint8_t>(room));
      adapter.expect("\xa1");
      HCX_FCoESetFCFConnectList(0, list);
    } else {
      std::unique_ptr<uint8_t[]> memory(new uint8_t[8 + 552 * room]());
      auto *list = reinterpret_cast<HCX_FCoEFCFList *>(memory.get());
      list->version = 1;
      list->numberOfEntries = static_cast<uint16_t>(room);
      HCX_FCoEGetFCFList(0, list);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  if (input.ConsumeBool())
    edit(input);
  else
    call(input);
  return 0;
}
