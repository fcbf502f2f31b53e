// SPDX-License-Identifier: BSD-3-Clause
// FC-SP passwords: the PASSWORD lines of the authentication daemon's file. A stored password never leaves the
// library; every copy made here is wiped. No state; any thread.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "hcx_auth_call.h"
#include "libhcx.h"

namespace hcx::auth {
namespace {

constexpr uint16_t min_length = 8;
constexpr uint16_t max_length = 128;

bool find_stored(std::string_view content, uint64_t local, uint64_t remote, Stored &stored) {
  ConfLine line;
  while (next_line(content, line)) {
    if (line.kind != Kind::password || !line.of_pair(local, remote)) continue;
    parse_passwords(line.text, stored);
    return true;
  }
  return false;
}

// Same kind, same length, same bytes, in a time that does not depend on the bytes.
bool same_secret(const AUTH_PASSWD_INFO &a, const AUTH_PASSWD_INFO &b) {
  const unsigned length = std::min(a.length, max_length);
  unsigned difference = (a.type ^ b.type) | (a.length ^ b.length);
  for (unsigned i = 0; i < max_length; ++i) {
    const unsigned counts = i < length ? 0xffu : 0u;
    difference |= static_cast<unsigned>(a.password[i] ^ b.password[i]) & counts;
  }
  return difference == 0;
}

bool matches(const AUTH_PASSWD_INFO *given, const AUTH_PASSWD_INFO &stored) {
  if (!given) return true;
  if (given->type == HCX_AUTH_PASSWD_IGNORE && stored.type == HCX_AUTH_PASSWD_IGNORE) return true;
  return same_secret(*given, stored);
}

bool is_given(const AUTH_PASSWD_INFO *password) {
  return password && password->type != HCX_AUTH_PASSWD_IGNORE;
}

// A blank would split the value, a newline would add a line to the file, and what follows a NUL would be
// lost.
bool storable(const AUTH_PASSWD_INFO &password) {
  if (password.type != HCX_AUTH_PASSWD_TEXT) return true;
  for (unsigned i = 0; i < password.length; ++i) {
    const unsigned char c = static_cast<unsigned char>(password.password[i]);
    if (c > ' ' && c != 0x7f) continue;
    printf("ERROR: Invalid Password character (%u)\n", i + 1);
    return false;
  }
  return true;
}

bool well_formed(AUTH_PASSWD_INFO &current, AUTH_PASSWD_INFO &replacement) {
  return check_password(&current) == 0 && check_password(&replacement) == 0 && storable(replacement);
}

// Both passwords well formed and the current one right.
uint32_t authorise_change(KRX_AUTH_PASSWD &change) {
  const bool remote = change.current_local_passwd.type == HCX_AUTH_PASSWD_IGNORE &&
                      change.new_local_passwd.type == HCX_AUTH_PASSWD_IGNORE;
  if (!remote && (change.current_remote_passwd.type != HCX_AUTH_PASSWD_IGNORE ||
                  change.new_remote_passwd.type != HCX_AUTH_PASSWD_IGNORE)) {
    puts("ERROR: Remote.type!=ignore && local.type!=ignore");
    return HCX_AUTH_ERROR;
  }
  AUTH_PASSWD_INFO &current = remote ? change.current_remote_passwd : change.current_local_passwd;
  AUTH_PASSWD_INFO &replacement = remote ? change.new_remote_passwd : change.new_local_passwd;
  if (!well_formed(current, replacement)) return HCX_AUTH_BAD_PASSWORD;
  return brake(verify_password(change.local_entity, change.remote_entity, remote ? nullptr : &current,
                               remote ? &current : nullptr));
}

class SetPassword final : public Editor {
 public:
  explicit SetPassword(const KRX_AUTH_PASSWD &change) : change_(change) {}

  uint32_t line(const ConfLine &line, Secret &out) override {
    if (line.kind != Kind::password || !line.of_pair(change_.local_entity, change_.remote_entity)) {
      return out.append(line.text) ? HCX_AUTH_OK : HCX_AUTH_ERROR;
    }
    if (done_) return HCX_AUTH_OK;
    Stored stored;
    parse_passwords(line.text, stored);
    if (is_given(&change_.new_local_passwd) && same_secret(change_.new_local_passwd, stored.remote)) {
      return HCX_AUTH_SAME_PASSWORD;
    }
    if (is_given(&change_.new_remote_passwd) && same_secret(change_.new_remote_passwd, stored.local)) {
      return HCX_AUTH_SAME_PASSWORD;
    }
    return put(after(change_.new_local_passwd, stored.local, stored.odd_local),
               after(change_.new_remote_passwd, stored.remote, stored.odd_remote), out);
  }
  uint32_t end(Secret &out) override {
    if (done_) return HCX_AUTH_OK;
    return put({change_.new_local_passwd}, {change_.new_remote_passwd}, out);
  }

 private:
  // The new password, or the stored one; as it stands in the line if it is of no shape that we write.
  static PasswordText after(const AUTH_PASSWD_INFO &replacement, const AUTH_PASSWD_INFO &stored,
                            std::string_view odd) {
    if (is_given(&replacement)) return {replacement};
    return {stored, odd};
  }
  uint32_t put(const PasswordText &local, const PasswordText &remote, Secret &out) {
    done_ = true;
    return format_passwords(change_.local_entity, change_.remote_entity, local, remote, out) ? HCX_AUTH_OK
                                                                                             : HCX_AUTH_ERROR;
  }

  const KRX_AUTH_PASSWD &change_;
  bool done_ = false;
};

}  // namespace
}  // namespace hcx::auth

using namespace hcx::auth;

int check_password(AUTH_PASSWD_INFO *password) {
  HCX_TRACE();
  if (!password) return 1;
  if (password->type < HCX_AUTH_PASSWD_TEXT || password->type > HCX_AUTH_PASSWD_IGNORE) {
    printf("ERROR: Invalid Password type (%d)\n", password->type);
    return 1;
  }
  if (password->type == HCX_AUTH_PASSWD_IGNORE) return 0;
  if (password->length < min_length) {
    printf("ERROR: Password too short (%d)\n", password->length);
    return 1;
  }
  if (password->length > max_length) {
    printf("ERROR: Password too long (%d)\n", password->length);
    return 1;
  }
  return 0;
}

int verify_password(uint64_t hba_wwpn, uint64_t tgt_wwpn, AUTH_PASSWD_INFO *lpassword,
                    AUTH_PASSWD_INFO *rpassword) {
  HCX_TRACE();
  hcx::Secret content;
  if (!load_or_complain(content)) return HCX_AUTH_ERROR;
  Stored stored;
  if (!find_stored(content.view(), hba_wwpn, tgt_wwpn, stored)) {
    return is_given(rpassword) || is_given(lpassword) ? HCX_AUTH_NO_ENTRY : HCX_AUTH_OK;
  }
  const bool local = matches(lpassword, stored.local);
  const bool remote = matches(rpassword, stored.remote);
  return local && remote ? HCX_AUTH_OK : HCX_AUTH_BAD_CREDENTIALS;
}

uint32_t HCX_GetAuthPassword(uint32_t, KRX_AUTH_PASSWD *password) {
  HCX_TRACE();
  if (!password) return HCX_AUTH_BAD_PASSWORD;
  uint32_t host_no;
  if (uint32_t result = find_auth_host(password->local_entity, HCX_AUTH_ERROR, host_no)) return result;
  hcx::Secret content;
  if (!load_or_complain(content)) return HCX_AUTH_ERROR;
  Stored stored;
  if (!find_stored(content.view(), password->local_entity, password->remote_entity, stored))
    return HCX_AUTH_NO_ENTRY;
  password->current_local_passwd.type = stored.local.type;
  password->current_remote_passwd.type = stored.remote.type;
  password->new_local_passwd.type = HCX_AUTH_PASSWD_IGNORE;
  password->new_remote_passwd.type = HCX_AUTH_PASSWD_IGNORE;
  return HCX_AUTH_OK;
}

uint32_t HCX_SetAuthPassword(uint32_t, KRX_AUTH_PASSWD *password) {
  HCX_TRACE();
  if (!password) return HCX_AUTH_BAD_PASSWORD;
  uint32_t host_no;
  if (uint32_t result = find_auth_host(password->local_entity, HCX_AUTH_ERROR, host_no)) return result;
  if (uint32_t result = authorise_change(*password)) return result;
  SetPassword editor(*password);
  return rewrite(editor);
}

int read_password(char *line, KRX_AUTH_PASSWD *password) {
  HCX_TRACE();
  if (!line || !password) return 1;
  std::string_view rest(line);
  ConfLine parsed;
  if (!next_line(rest, parsed) || parsed.kind != Kind::password || !parsed.paired) return 1;
  password->local_entity = parsed.local;
  password->remote_entity = parsed.remote;
  Stored stored;
  parse_passwords(parsed.text, stored);
  password->current_local_passwd = stored.local;
  password->current_remote_passwd = stored.remote;
  return 0;
}

void write_password(FILE *fp, KRX_AUTH_PASSWD *password) {
  HCX_TRACE();
  if (!fp || !password) return;
  hcx::Secret line;
  if (format_passwords(password->local_entity, password->remote_entity, {password->new_local_passwd},
                       {password->new_remote_passwd}, line)) {
    fwrite(line.data(), 1, line.size(), fp);
  }
}
