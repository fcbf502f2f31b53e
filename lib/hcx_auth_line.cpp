// SPDX-License-Identifier: BSD-3-Clause
// The text forms of CONFIG and PASSWORD lines. Values may be of any length and shape, as a hand may have written
// them; what does not parse is told apart and never guessed. No state; any thread.
#include "hcx_auth_line.h"

#include <algorithm>
#include <charconv>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace hcx::auth {
namespace {

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

// The number that a text begins with, brought into range; how many characters it takes, 0 for none.
size_t scan_int(std::string_view text, int &number) {
  const size_t sign = !text.empty() && text[0] == '+' ? 1 : 0;
  auto [end, error] = std::from_chars(text.data() + sign, text.data() + text.size(), number);
  if (error == std::errc::invalid_argument) return 0;
  if (error == std::errc::result_out_of_range) number = text[0] == '-' ? INT32_MIN : INT32_MAX;
  return static_cast<size_t>(end - text.data());
}

bool parse_int(std::string_view word, int &number) {
  return !word.empty() && scan_int(word, number) == word.size();
}

// Numbers joined by ":" into `values`; how many there were, at most `size`.
int parse_list(std::string_view word, uint8_t *values, int size) {
  memset(values, 0, static_cast<size_t>(size));
  int count = 0;
  while (count < size) {
    int number;
    const size_t length = scan_int(word, number);
    if (length == 0) break;
    values[count++] = static_cast<uint8_t>(number);
    if (length == word.size() || word[length] != ':') break;
    word.remove_prefix(length + 1);
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
// other odd count begins with a byte of one digit. False when not all of it is in `password`.
bool parse_binary(std::string_view digits, AUTH_PASSWD_INFO &password) {
  size_t length = 0;
  if (digits.size() % 2) {
    const int first = hex_digit(digits[0]);
    if (first < 0) return false;
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
  return digits.empty() && length > 0;  // written again, no byte at all would leave a type without a value
}

// False when not all of it is in `password`. A type without a value is no password.
bool parse_password(std::string_view type_word, std::string_view value, AUTH_PASSWD_INFO &password) {
  memset(&password, 0, sizeof(password));
  password.type = HCX_AUTH_PASSWD_IGNORE;
  if (value.empty()) return true;
  int type;
  if (!parse_int(type_word, type) || type < 0 || type > UINT16_MAX) return false;
  password.type = static_cast<uint16_t>(type);
  if (type == HCX_AUTH_PASSWD_BINARY) return parse_binary(value, password);
  password.length = static_cast<uint16_t>(std::min(value.size(), password_size));
  memcpy(password.password, value.data(), password.length);
  return value.size() <= password_size && value.find('\0') == value.npos;
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

bool append_password(Secret &out, const PasswordText &text, bool local) {
  const AUTH_PASSWD_INFO &password = text.password;
  const char end = local ? ' ' : '\n';
  if (!text.words.empty()) return out.append(text.words) && out.append({&end, 1});
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

}  // namespace

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
  // A keyword with a NUL in it is none; the line is kept as it stands.
  line.paired = words.next().find('\0') == std::string_view::npos && parse_name(words.next(), line.local) &&
                parse_name(words.next(), line.remote);
  return true;
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

void parse_passwords(std::string_view text, Stored &stored) {
  Words words(text);
  for (int skip = 0; skip < 3; ++skip)
    words.next();
  const auto take = [&](AUTH_PASSWD_INFO &password, std::string_view &odd) {
    const std::string_view type = words.next();
    const std::string_view value = words.next();
    const bool whole = parse_password(type, value, password);
    odd = whole
              ? std::string_view()
              : std::string_view(type.data(), static_cast<size_t>(value.data() - type.data()) + value.size());
  };
  take(stored.local, stored.odd_local);
  take(stored.remote, stored.odd_remote);
}

bool format_passwords(uint64_t local_entity, uint64_t remote_entity, const PasswordText &local,
                      const PasswordText &remote, Secret &out) {
  return append_format(out, "PASSWORD %" PRIX64 " %" PRIX64 " ", local_entity, remote_entity) &&
         append_password(out, local, true) && append_password(out, remote, false);
}

}  // namespace hcx::auth
