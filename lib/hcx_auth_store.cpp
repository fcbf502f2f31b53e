// SPDX-License-Identifier: BSD-3-Clause
// Reading and rewriting the authentication daemon's configuration file, and the text forms of its CONFIG and
// PASSWORD lines: one reader and one writer for each. Lines that are neither are carried over byte for byte,
// however long.
#include "hcx_auth_store.h"

#include <errno.h>

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "libhcx.h"

namespace hcx::auth {

const char conf_path[] = "/etc/wardend.conf";
const char temp_path[] = "/etc/wardend.conf~";

namespace {

const char conf_dir[] = "/etc";
const char reload_command[] = "/etc/init.d/wardend reload";

constexpr size_t password_size = sizeof(AUTH_PASSWD_INFO::password);

// Words of a line, separated by white space.
class Words {
 public:
  explicit Words(std::string_view text) : rest_(text) {}
  std::string_view next() {
    const size_t begin = std::min(rest_.find_first_not_of(blanks), rest_.size());
    rest_.remove_prefix(begin);
    const size_t end = std::min(rest_.find_first_of(blanks), rest_.size());
    std::string_view word = rest_.substr(0, end);
    rest_.remove_prefix(end);
    return word;
  }

 private:
  static constexpr const char *blanks = " \t\n\v\f\r";
  std::string_view rest_;
};

bool parse_name(std::string_view word, uint64_t &name) {
  if (word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X')) word.remove_prefix(2);
  auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), name, 16);
  return error == std::errc() && end == word.data() + word.size();
}

bool parse_int(std::string_view word, int &number) {
  if (!word.empty() && word[0] == '+') word.remove_prefix(1);
  auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  if (error == std::errc::result_out_of_range) number = word[0] == '-' ? INT32_MIN : INT32_MAX;
  return error != std::errc::invalid_argument && end == word.data() + word.size();
}

// Numbers joined by ":" into `values`; how many there were, at most `size`.
int parse_list(std::string_view word, uint8_t *values, int size) {
  memset(values, 0, static_cast<size_t>(size));
  int count = 0;
  while (count < size) {
    const size_t colon = std::min(word.find(':'), word.size());
    int number;
    if (!parse_int(word.substr(0, colon), number)) break;
    values[count++] = static_cast<uint8_t>(number);
    if (colon == word.size()) break;
    word.remove_prefix(colon + 1);
  }
  return count;
}

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Two digits a byte. The writer puts a "0" before an odd number of bytes, which is no part of the secret; any
// other odd count begins with a byte of one digit.
void parse_binary(std::string_view digits, AUTH_PASSWD_INFO &password) {
  size_t length = 0;
  if (digits.size() % 2) {
    const int first = hex_digit(digits[0]);
    if (first < 0) return;
    if (first) password.password[length++] = static_cast<char>(first);
    digits.remove_prefix(1);
  }
  for (; digits.size() >= 2 && length < password_size; digits.remove_prefix(2)) {
    const int high = hex_digit(digits[0]);
    const int low = hex_digit(digits[1]);
    if (high < 0 || low < 0) break;
    password.password[length++] = static_cast<char>(high << 4 | low);
  }
  password.length = static_cast<uint16_t>(length);
}

void parse_password(std::string_view type_word, std::string_view value, AUTH_PASSWD_INFO &password) {
  memset(&password, 0, sizeof(password));
  password.type = HCX_AUTH_PASSWD_IGNORE;
  int type;
  if (!parse_int(type_word, type)) return;
  password.type = static_cast<uint16_t>(type);
  if (value.empty()) return;
  if (type == HCX_AUTH_PASSWD_BINARY) {
    parse_binary(value, password);
    return;
  }
  password.length = static_cast<uint16_t>(std::min(value.size(), password_size));
  memcpy(password.password, value.data(), password.length);
}

// Formats into a small buffer that is wiped afterwards.
__attribute__((format(printf, 2, 3))) bool append_format(Secret &out, const char *format, ...) {
  char text[256];
  va_list args;
  va_start(args, format);
  const int length = vsnprintf(text, sizeof(text), format, args);
  va_end(args);
  const bool ok = length >= 0 && static_cast<size_t>(length) < sizeof(text) &&
                  out.append({text, static_cast<size_t>(length)});
  wipe(text, sizeof(text));
  return ok;
}

bool append_list(Secret &out, const char *before, const uint8_t *values, size_t count) {
  bool ok = append_format(out, "%s%d", before, values[0]);
  for (size_t i = 1; ok && i < count; ++i)
    ok = append_format(out, ":%d", values[i]);
  return ok;
}

bool append_password(Secret &out, const AUTH_PASSWD_INFO &password, bool local) {
  const char end = local ? ' ' : '\n';
  int length = static_cast<int>(std::min<size_t>(password.length, password_size));
  if (password.type == HCX_AUTH_PASSWD_IGNORE) return append_format(out, "%d 0%c", password.type, end);
  if (password.type == HCX_AUTH_PASSWD_BINARY) {
    bool ok = append_format(out, "%d %s", password.type, local && length % 2 ? "0" : "");
    for (int i = 0; ok && i < length; ++i) {
      ok = append_format(out, "%02X", static_cast<unsigned>(static_cast<uint8_t>(password.password[i])));
    }
    return ok && out.append({&end, 1});
  }
  if (length == 0) length = static_cast<int>(password_size);
  return append_format(out, "%d %.*s%c", password.type, length, password.password, end);
}

int read_all(int fd, Secret &content) {
  for (;;) {
    if (content.room() == 0 && !content.reserve(std::max<size_t>(4096, content.size() * 2))) return -ENOMEM;
    const ssize_t got = sysio::machine().read(fd, content.tail(), content.room());
    if (got <= 0) return static_cast<int>(got);
    content.grow(static_cast<size_t>(got));
  }
}

int write_all(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t done = sysio::machine().write(fd, text.data(), text.size());
    if (done < 0) return static_cast<int>(done);
    if (done == 0) return -EIO;
    text.remove_prefix(static_cast<size_t>(done));
  }
  return 0;
}

uint32_t edit(std::string_view old, Editor &editor, Secret &out) {
  ConfLine line;
  while (next_line(old, line)) {
    if (uint32_t result = editor.line(line, out)) return result;
  }
  // A last line without its newline must not swallow what is appended; it stays as it is when nothing is.
  Secret addition;
  if (uint32_t result = editor.end(addition)) return result;
  if (addition.size() == 0) return HCX_AUTH_OK;
  const bool open_end = out.size() && out.view().back() != '\n';
  if (open_end && !out.append("\n")) return HCX_AUTH_ERROR;
  return out.append(addition.view()) ? HCX_AUTH_OK : HCX_AUTH_ERROR;
}

// The new content, complete and on disk, under the temporary name.
int store_temp(Fd &fd, std::string_view text) {
  int rc = write_all(fd.get(), text);
  if (rc == 0) rc = sysio::machine().sync(fd.get());
  const int closed = sysio::machine().close(fd.release());
  return rc ? rc : closed;
}

void sync_directory() {
  Fd dir(sysio::machine().open(conf_dir, O_RDONLY | O_DIRECTORY));
  if (dir.ok()) sysio::machine().sync(dir.get());
}

}  // namespace

void wipe(void *data, size_t size) {
  explicit_bzero(data, size);
}

void Secret::wipe() {
  if (data_) explicit_bzero(data_.get(), capacity_);
}

bool Secret::reserve(size_t capacity) {
  if (capacity <= capacity_) return true;
  HeapArray<char> larger = heap_array<char>(capacity);
  if (!larger) return false;
  if (size_) memcpy(larger.get(), data_.get(), size_);
  wipe();
  data_ = std::move(larger);
  capacity_ = capacity;
  return true;
}

bool Secret::append(std::string_view text) {
  if (text.empty()) return true;
  if (text.size() > room() && !reserve(std::max(size_ + text.size(), capacity_ * 2))) return false;
  memcpy(tail(), text.data(), text.size());
  grow(text.size());
  return true;
}

bool next_line(std::string_view &rest, ConfLine &line) {
  if (rest.empty()) return false;
  const size_t newline = rest.find('\n');
  const size_t length = newline == std::string_view::npos ? rest.size() : newline + 1;
  line = ConfLine();
  line.text = rest.substr(0, length);
  rest.remove_prefix(length);
  const char first = line.text[0];
  if (first == 'C' || first == 'c') line.kind = Kind::config;
  if (first == 'P' || first == 'p') line.kind = Kind::password;
  if (line.kind == Kind::other) return true;
  Words words(line.text);
  words.next();
  line.paired = parse_name(words.next(), line.local) && parse_name(words.next(), line.remote);
  return true;
}

int load(Secret &content) {
  Fd fd(sysio::machine().open(conf_path, O_RDONLY));
  if (!fd.ok()) return fd.get();
  return read_all(fd.get(), content);
}

bool load_or_complain(Secret &content) {
  if (load(content) == 0) return true;
  printf("ERROR: Unable to open Config File %s\n", conf_path);
  return false;
}

bool parse_config(std::string_view text, ConfigFields &fields) {
  Words words(text);
  uint64_t name;
  words.next();
  if (!parse_name(words.next(), name) || !parse_name(words.next(), name)) return false;
  for (int *number : {&fields.timeout, &fields.mode, &fields.bidirectional}) {
    if (!parse_int(words.next(), *number)) return false;
  }
  const std::string_view types = words.next();
  const std::string_view hashes = words.next();
  const std::string_view groups = words.next();
  if (!parse_int(words.next(), fields.interval)) return false;
  fields.type_count = parse_list(types, fields.types, 4);
  fields.hash_count = parse_list(hashes, fields.hashes, 4);
  fields.group_count = parse_list(groups, fields.groups, 8);
  return true;
}

bool format_config(const KRX_FCSP_CONFIG &config, Secret &out) {
  return append_format(out, "CONFIG %" PRIX64 " %" PRIX64 " %d %d %d ", config.local_entity,
                       config.remote_entity, config.authentication_timeout, config.authentication_mode,
                       config.bidirectional) &&
         append_list(out, "", config.authentication_type_priority, 4) &&
         append_list(out, " ", config.hash_priority, 4) &&
         append_list(out, " ", config.dh_group_priority, 8) &&
         append_format(out, " %d\n", config.reauthenticate_time_interval);
}

void parse_passwords(std::string_view text, AUTH_PASSWD_INFO &local, AUTH_PASSWD_INFO &remote) {
  Words words(text);
  for (int skip = 0; skip < 3; ++skip)
    words.next();
  for (AUTH_PASSWD_INFO *password : {&local, &remote}) {
    const std::string_view type = words.next();
    parse_password(type, words.next(), *password);
  }
}

bool format_passwords(uint64_t local_entity, uint64_t remote_entity, const AUTH_PASSWD_INFO &local,
                      const AUTH_PASSWD_INFO &remote, Secret &out) {
  return append_format(out, "PASSWORD %" PRIX64 " %" PRIX64 " ", local_entity, remote_entity) &&
         append_password(out, local, true) && append_password(out, remote, false);
}

uint32_t rewrite(Editor &editor) {
  sysio::Machine &machine = sysio::machine();
  Secret old;
  if (!load_or_complain(old)) return HCX_AUTH_ERROR;
  machine.set_umask(066);
  // A leftover under this name keeps its own mode, or may be a link to somewhere else.
  machine.unlink(temp_path);
  Fd temp(machine.open(temp_path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
  if (!temp.ok()) {
    printf("ERROR: Unable to open Config File %s\n", temp_path);
    return HCX_AUTH_ERROR;
  }
  Secret content;
  uint32_t result = edit(old.view(), editor, content);
  if (result == HCX_AUTH_OK && store_temp(temp, content.view()) < 0) result = HCX_AUTH_ERROR;
  if (result != HCX_AUTH_OK) {
    temp.reset();
    machine.unlink(temp_path);
    return result;
  }
  if (machine.rename(temp_path, conf_path) < 0) return HCX_AUTH_ERROR;
  sync_directory();
  fflush(stdout);
  machine.run(reload_command);
  return HCX_AUTH_OK;
}

}  // namespace hcx::auth
