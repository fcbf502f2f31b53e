// SPDX-License-Identifier: BSD-3-Clause
// The authentication daemon's file: whatever stands in it, its readers stay inside their buffers, a change keeps every
// line that is not of its pair, a failed one keeps the file, and what was written is read back.
//
// An input begins with the file's text, so that corpora can be read and written by hand; choices are taken from its
// end. The pair is always 1 and 2.
#include "hostile_machine.h"
#include "libhcx.h"

namespace {

constexpr char conf[] = "/etc/wardend.conf";
constexpr uint64_t local = 1, remote = 2;

// One host whose port is 1, and one file, in memory; everything else is as hostile as ever.
class ConfMachine final : public fuzz::HostileMachine {
 public:
  ConfMachine(FuzzedDataProvider &input, bool fails) : HostileMachine(input), input_(input), fails_(fails) {}

  std::string content;

  int open(const char *path, int flags, mode_t) override {
    if (strncmp(path, conf, strlen(conf)) == 0 && breaks()) return -EIO;
    const bool port = strstr(path, "port_name") != nullptr;
    if (flags & O_CREAT) created_.clear();
    unread_ = strcmp(path, conf) == 0 ? content : port ? "0x0000000000000001\n" : "1\n";
    return open_as(path, {});
  }
  // One file is read at a time.
  ssize_t read(int, void *buf, size_t count) override {
    if (breaks()) return -EIO;
    const size_t n = std::min(count, unread_.size());
    memcpy(buf, unread_.data(), n);
    unread_.erase(0, n);
    return static_cast<ssize_t>(n);
  }
  ssize_t write(int, const void *buf, size_t count) override {
    if (breaks()) return -ENOSPC;
    const size_t n = fails_ ? std::min<size_t>(count, 100) : count;
    created_.append(static_cast<const char *>(buf), n);
    return static_cast<ssize_t>(n);
  }
  int sync(int) override { return breaks() ? -EIO : 0; }
  int rename(const char *, const char *) override {
    if (breaks()) return -EXDEV;
    content = created_;
    return 0;
  }
  int list(const char *, const char *, std::vector<std::string> &names) override {
    names.emplace_back("host0");
    return 0;
  }
  void calm() { fails_ = false; }

 private:
  bool breaks() { return fails_ && input_.ConsumeIntegralInRange<uint8_t>(0, 7) == 7; }

  FuzzedDataProvider &input_;
  bool fails_;
  std::string unread_;
  std::string created_;
};

// Lines that belong to another pair or to none; here as the C library reads them.
std::vector<std::string> foreign_lines(const std::string &content, const char *kinds) {
  std::vector<std::string> lines;
  for (size_t begin = 0; begin < content.size();) {
    const size_t end = std::min(content.find('\n', begin), content.size() - 1) + 1;
    std::string line = content.substr(begin, end - begin);
    begin = end;
    unsigned long long names[2] = {};
    if (strchr(kinds, line[0]) && line[0] &&
        sscanf(line.c_str(), "%*s %llx %llx", &names[0], &names[1]) == 2 && names[0] == local &&
        names[1] == remote)
      continue;
    if (line.back() == '\n') line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

AUTH_PASSWD_INFO any_password(FuzzedDataProvider &input) {
  AUTH_PASSWD_INFO password = {};
  password.type = input.ConsumeIntegralInRange<uint16_t>(0, 4);
  password.length = input.ConsumeIntegralInRange<uint16_t>(0, 140);
  const char c = input.ConsumeIntegral<char>();
  memset(password.password, c, sizeof(password.password));
  return password;
}

HBA_WWN wwn(uint64_t name) {
  HBA_WWN bytes;
  hcx::wwn_store(bytes.wwn, name);
  return bytes;
}

void read_all(ConfMachine &machine) {
  KRX_FCSP_CONFIG config = {};
  config.local_entity = local;
  config.remote_entity = remote;
  HCX_GetAuthConfig(0, &config);
  KRX_AUTH_PASSWD passwords = {};
  passwords.local_entity = local;
  passwords.remote_entity = remote;
  HCX_GetAuthPassword(0, &passwords);
  std::vector<uint8_t> list(sizeof(uint32_t) + 3 * sizeof(HBA_WWN));
  constexpr uint32_t room = 3;
  memcpy(list.data(), &room, sizeof room);
  HCX_GetAuthConfigList(0, wwn(local), reinterpret_cast<HCX_AUTHCONFIGLIST *>(list.data()));
  std::string line = machine.content.substr(0, machine.content.find('\n'));
  read_password(line.data(), &passwords);
}

struct Change {
  uint32_t result;
  const char *kinds;  // first letters of lines that it may touch
};

Change set_config(FuzzedDataProvider &input, ConfMachine &machine, AUTH_PASSWD_INFO &password) {
  KRX_FCSP_CONFIG config = {};
  config.local_entity = local;
  config.remote_entity = remote;
  config.authentication_timeout = input.ConsumeIntegral<uint16_t>();
  config.authentication_mode = input.ConsumeIntegral<uint8_t>();
  config.bidirectional = input.ConsumeBool() ? 1 : 0;
  config.authentication_type_priority[0] = config.hash_priority[0] = 1;
  config.dh_group_priority[0] = input.ConsumeIntegral<uint8_t>();
  config.reauthenticate_time_interval = input.ConsumeIntegral<uint32_t>();
  const uint32_t result = HCX_SetAuthConfig(0, &config, &password);
  machine.calm();
  if (result == HCX_AUTH_OK) {
    KRX_FCSP_CONFIG read = {};
    read.local_entity = local;
    read.remote_entity = remote;
    if (HCX_GetAuthConfig(0, &read) != HCX_AUTH_OK || memcmp(&read, &config, sizeof read) != 0)
      fuzz::fault("configuration not read back", machine.content);
  }
  return {result, "Cc"};
}

Change delete_pair(ConfMachine &machine, AUTH_PASSWD_INFO &password) {
  const uint32_t result = HCX_DeleteAuthConfig(0, wwn(local), wwn(remote), &password);
  machine.calm();
  KRX_AUTH_PASSWD left = {};
  left.local_entity = local;
  left.remote_entity = remote;
  if (result == HCX_AUTH_OK && HCX_GetAuthPassword(0, &left) != HCX_AUTH_NO_ENTRY)
    fuzz::fault("password left", machine.content);
  return {result, "CcPp"};
}

Change set_password(FuzzedDataProvider &input, ConfMachine &machine, const AUTH_PASSWD_INFO &current) {
  KRX_AUTH_PASSWD change = {};
  change.local_entity = local;
  change.remote_entity = remote;
  for (AUTH_PASSWD_INFO *unset : {&change.current_local_passwd, &change.current_remote_passwd,
                                  &change.new_local_passwd, &change.new_remote_passwd})
    unset->type = HCX_AUTH_PASSWD_IGNORE;
  const bool of_local = input.ConsumeBool();
  AUTH_PASSWD_INFO &replacement = of_local ? change.new_local_passwd : change.new_remote_passwd;
  (of_local ? change.current_local_passwd : change.current_remote_passwd) = current;
  replacement = any_password(input);
  const uint32_t result = HCX_SetAuthPassword(0, &change);
  machine.calm();
  if (result == HCX_AUTH_OK && replacement.type != HCX_AUTH_PASSWD_IGNORE &&
      verify_password(local, remote, of_local ? &replacement : nullptr, of_local ? nullptr : &replacement) !=
          0)
    fuzz::fault("password not read back", machine.content);
  return {result, "Pp"};
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  // Messages of the calls; the fuzzer's own go to stderr.
  return freopen("/dev/null", "w", stdout) ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider input(data, size);
  const int kind = input.ConsumeIntegralInRange(0, 3);
  ConfMachine machine(input, input.ConsumeBool());
  AUTH_PASSWD_INFO password = {};
  password.type = HCX_AUTH_PASSWD_IGNORE;
  if (input.ConsumeBool()) password = any_password(input);
  machine.content = input.ConsumeRandomLengthString(8192);
  const std::string before = machine.content;
  Change change = {HCX_AUTH_ERROR, ""};
  if (kind == 0) read_all(machine);
  if (kind == 1) change = set_config(input, machine, password);
  if (kind == 2) change = delete_pair(machine, password);
  if (kind == 3) change = set_password(input, machine, password);
  if (change.result != HCX_AUTH_OK && machine.content != before)
    fuzz::fault("half a change", machine.content);
  if (change.result == HCX_AUTH_OK &&
      foreign_lines(before, change.kinds) != foreign_lines(machine.content, change.kinds))
    fuzz::fault("lines lost", machine.content);
  machine.check_nothing_left();
  return 0;
}
