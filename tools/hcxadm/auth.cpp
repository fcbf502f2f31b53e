// SPDX-License-Identifier: BSD-3-Clause
// Reading FC-SP configurations through the library, and their columns. No state.
#include "auth.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "status.h"

namespace hcxadm {
namespace {

Value list_value(const uint8_t *values, size_t count, bool zero_ends) {
  Value list = Value::array();
  for (size_t i = 0; i < count && (values[i] || !zero_ends); ++i)
    list.push_back(values[i]);
  return list;
}

Value password_kind(int type) {
  switch (type) {
    case 0:
      return {};
    case HCX_AUTH_PASSWD_TEXT:
      return "text";
    case HCX_AUTH_PASSWD_BINARY:
      return "binary";
    default:
      return "not set";
  }
}

const ColumnOf<AuthPair> config_columns[] = {
    {"local", "LOCAL", Kind::text, In::record,
     [](const AuthPair &r) { return Value(entity_text(r.config.local_entity)); }},
    {"remote", "REMOTE", Kind::text, In::rows,
     [](const AuthPair &r) { return Value(entity_text(r.config.remote_entity)); }},
    {"timeout_s", "TIMEOUT(s)", Kind::number, In::rows,
     [](const AuthPair &r) { return Value(r.config.authentication_timeout); }},
    {"mode", "MODE", Kind::number, In::rows,
     [](const AuthPair &r) { return Value(r.config.authentication_mode); }},
    {"bidirectional", "BIDIRECTIONAL", Kind::flag, In::rows,
     [](const AuthPair &r) { return Value(r.config.bidirectional != 0); }},
    {"types", "TYPES", Kind::list, In::rows,
     [](const AuthPair &r) { return list_value(r.config.authentication_type_priority, 4, true); }},
    {"hashes", "HASHES", Kind::list, In::rows,
     [](const AuthPair &r) { return list_value(r.config.hash_priority, 4, true); }},
    {"dh_groups", "DH GROUPS", Kind::list, In::rows,
     [](const AuthPair &r) { return list_value(r.config.dh_group_priority, 8, false); }},
    {"reauthenticate_s", "REAUTH(s)", Kind::number, In::rows,
     [](const AuthPair &r) { return Value(r.config.reauthenticate_time_interval); }},
    {"local_password", "LOCAL PASSWORD", Kind::text, In::record,
     [](const AuthPair &r) { return password_kind(r.local_type); }},
    {"remote_password", "REMOTE PASSWORD", Kind::text, In::record,
     [](const AuthPair &r) { return password_kind(r.remote_type); }},
};

}  // namespace

MessagesToStderr::MessagesToStderr() {
  fflush(stdout);
  saved_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  if (saved_ >= 0) dup2(STDERR_FILENO, STDOUT_FILENO);
}

MessagesToStderr::~MessagesToStderr() {
  fflush(stdout);
  if (saved_ < 0) return;
  dup2(saved_, STDOUT_FILENO);
  close(saved_);
}

uint64_t entity_of(const HBA_WWN &wwn) {
  uint64_t number = 0;
  for (int i = 0; i < 8; ++i)
    number = number << 8 | wwn.wwn[i];
  return number;
}

HBA_WWN wwn_of(uint64_t number) {
  HBA_WWN wwn;
  for (int i = 7; i >= 0; --i, number >>= 8)
    wwn.wwn[i] = static_cast<uint8_t>(number);
  return wwn;
}

std::string entity_text(uint64_t entity) {
  return entity == fabric_entity ? "fabric" : wwn_text(wwn_of(entity).wwn);
}

uint64_t parse_entity(const std::string &text) {
  if (text == "fabric") return fabric_entity;
  const std::optional<HBA_WWN> wwn = parse_wwn(text);
  if (!wwn)
    throw Failure({.status = kUsage,
                   .tried = "\"" + text + "\" is no port name",
                   .board = {},
                   .code = {},
                   .name = {},
                   .todo = "give 16 hexadecimal digits, or \"fabric\""});
  return entity_of(*wwn);
}

void check_auth(uint32_t result, const std::string &tried, const Board &board) {
  if (result == HCX_AUTH_OK) return;
  const char *todo = "";
  if (result == HCX_AUTH_ERROR)
    todo = "see that vosk_enable_auth is 1 and /etc/wardend.conf can be read and written";
  if (result == HCX_AUTH_BAD_CREDENTIALS) todo = "give the pair's current password";
  throw call_failure(Family::fcsp, result, tried, board.name(), todo);
}

AuthPair read_pair(const Board &board, uint64_t remote) {
  AuthPair row;
  row.config.local_entity = entity_of(board.wwpn);
  row.config.remote_entity = remote;
  const MessagesToStderr messages;
  check_auth(HCX_GetAuthConfig(static_cast<uint32_t>(board.number), &row.config),
             "reading the authentication with " + entity_text(remote), board);
  KRX_AUTH_PASSWD kinds = {};  // no password is handed out
  kinds.local_entity = row.config.local_entity;
  kinds.remote_entity = remote;
  if (HCX_GetAuthPassword(static_cast<uint32_t>(board.number), &kinds) == HCX_AUTH_OK) {
    row.local_type = kinds.current_local_passwd.type;
    row.remote_type = kinds.current_remote_passwd.type;
  }
  return row;
}

// The list call tells how many there are beyond the room: ask, make room, ask again.
std::vector<uint64_t> remotes_of(const Board &board) {
  std::vector<uint8_t> bytes(sizeof(uint32_t));
  uint32_t room = 0;
  for (;;) {
    auto *list = reinterpret_cast<HCX_AUTHCONFIGLIST *>(bytes.data());
    memcpy(bytes.data(), &room, sizeof(room));
    {
      const MessagesToStderr messages;
      check_auth(HCX_GetAuthConfigList(static_cast<uint32_t>(board.number), board.wwpn, list),
                 "listing the authentications", board);
    }
    uint32_t count;
    memcpy(&count, bytes.data(), sizeof(count));
    if (count <= room) {
      std::vector<uint64_t> remotes;
      for (uint32_t i = 0; i < count; ++i) {
        HBA_WWN entity;
        memcpy(&entity, bytes.data() + sizeof(uint32_t) + i * sizeof(HBA_WWN), sizeof(entity));
        remotes.push_back(entity_of(entity));
      }
      return remotes;
    }
    room = count;
    bytes.assign(sizeof(uint32_t) + room * sizeof(HBA_WWN), 0);
  }
}

Table auth_table(const std::vector<AuthPair> &pairs) {
  return make_table(auth_schema, config_columns, pairs);
}

}  // namespace hcxadm
