// SPDX-License-Identifier: BSD-3-Clause
// "auth": FC-SP authentication of an adapter port: who is configured, with what, and how it went.
#include <cstring>

#include "auth.h"
#include "nouns.h"
#include "password.h"

namespace hcxadm {
namespace {

constexpr Schema status_schema{"hcxadm.auth.status", 1, 0};

uint32_t index(const Board &board) {
  return static_cast<uint32_t>(board.number);
}

// ---- list, show ----

void list(Context &ctx, const std::string &name) {
  ctx.document(auth_schema);
  const Board &board = ctx.boards.find(name);
  std::vector<AuthPair> rows;
  for (uint64_t remote : remotes_of(board)) {
    try {
      rows.push_back(read_pair(board, remote));
    } catch (const Failure &failure) {
      ctx.report(failure.problem());
    }
  }
  ctx.show(auth_table(rows));
}

void show(Context &ctx, const std::string &name, const std::string &remote) {
  ctx.document(auth_schema);
  const Board &board = ctx.boards.find(name);
  const std::vector<AuthPair> rows = {read_pair(board, parse_entity(remote))};
  ctx.show(auth_table(rows), Layout::record);
}

// ---- set, delete, password ----

struct SetOptions {
  std::string board, remote;
  std::optional<uint16_t> timeout;
  std::optional<uint16_t> mode;
  std::optional<bool> bidirectional;
  std::vector<unsigned> types, hashes, groups;
  std::optional<uint32_t> interval;
};

void put_list(const std::vector<unsigned> &from, uint8_t *to, size_t size, const char *what) {
  if (from.empty()) return;
  if (from.size() > size)
    throw Failure({.status = kUsage,
                   .tried = std::string("too many ") + what,
                   .board = {},
                   .code = {},
                   .name = "at most " + std::to_string(size),
                   .todo = {}});
  memset(to, 0, size);
  for (size_t i = 0; i < from.size(); ++i)
    to[i] = static_cast<uint8_t>(from[i] > 255 ? 255 : from[i]);
}

// What the pair has now, or what a new pair starts from.
KRX_FCSP_CONFIG config_to_change(const Board &board, uint64_t remote) {
  KRX_FCSP_CONFIG config{};
  config.local_entity = entity_of(board.wwpn);
  config.remote_entity = remote;
  const MessagesToStderr messages;
  const uint32_t result = HCX_GetAuthConfig(index(board), &config);
  if (result == HCX_AUTH_NO_ENTRY) {
    config.authentication_timeout = 45;
    config.authentication_mode = 1;
    config.authentication_type_priority[0] = 1;
    config.hash_priority[0] = 1;
    config.hash_priority[1] = 2;
    config.dh_group_priority[0] = 1;
    return config;
  }
  check_auth(result, "reading the authentication with " + entity_text(remote), board);
  return config;
}

void set(Context &ctx, const SetOptions &options, const PasswordOptions &password_options) {
  ctx.document(auth_schema);
  const Board &board = ctx.boards.find(options.board);
  const uint64_t remote = parse_entity(options.remote);
  KRX_FCSP_CONFIG config = config_to_change(board, remote);
  if (options.timeout) config.authentication_timeout = *options.timeout;
  if (options.mode)
    config.authentication_mode = static_cast<uint8_t>(*options.mode > 255 ? 255 : *options.mode);
  if (options.bidirectional) config.bidirectional = *options.bidirectional ? 1 : 0;
  if (options.interval) config.reauthenticate_time_interval = *options.interval;
  put_list(options.types, config.authentication_type_priority, 4, "authentication types");
  put_list(options.hashes, config.hash_priority, 4, "hash functions");
  put_list(options.groups, config.dh_group_priority, 8, "DH groups");
  PasswordReader reader(ctx, password_options);
  if (!ctx.confirm("change the authentication of " + board.name() + " with " + entity_text(remote))) return;
  Passwords authority;
  reader.read("Current local password (empty: none)", authority.record.current_local_passwd);
  {
    const MessagesToStderr messages;
    check_auth(HCX_SetAuthConfig(index(board), &config, &authority.record.current_local_passwd),
               "changing the authentication with " + entity_text(remote), board);
  }
  const std::vector<AuthPair> rows = {read_pair(board, remote)};
  ctx.show(auth_table(rows), Layout::record);
}

void remove(Context &ctx, const std::string &name, const std::string &remote_name,
            const PasswordOptions &password_options) {
  ctx.document(auth_schema);
  const Board &board = ctx.boards.find(name);
  const uint64_t remote = parse_entity(remote_name);
  PasswordReader reader(ctx, password_options);
  if (!ctx.confirm("delete the authentication of " + board.name() + " with " + entity_text(remote) +
                   " and its passwords"))
    return;
  Passwords authority;
  reader.read("Current local password (empty: none)", authority.record.current_local_passwd);
  const MessagesToStderr messages;
  check_auth(
      HCX_DeleteAuthConfig(index(board), board.wwpn, wwn_of(remote), &authority.record.current_local_passwd),
      "deleting the authentication with " + entity_text(remote), board);
}

void change_password(Context &ctx, const std::string &name, const std::string &remote_name,
                     const std::string &direction, const PasswordOptions &options) {
  ctx.document(auth_schema);
  const Board &board = ctx.boards.find(name);
  const uint64_t remote = parse_entity(remote_name);
  const bool local = direction == "local";
  PasswordReader reader(ctx, options);
  if (!ctx.confirm("change the " + direction + " password of " + board.name() + " with " +
                   entity_text(remote)))
    return;
  Passwords passwords;
  KRX_AUTH_PASSWD &record = passwords.record;
  record.local_entity = entity_of(board.wwpn);
  record.remote_entity = remote;
  reader.read("Current " + direction + " password (empty: none)",
              local ? record.current_local_passwd : record.current_remote_passwd);
  reader.read_new("New " + direction + " password",
                  local ? record.new_local_passwd : record.new_remote_passwd);
  const MessagesToStderr messages;
  check_auth(HCX_SetAuthPassword(index(board), &record),
             "changing the " + direction + " password with " + entity_text(remote), board);
}

// ---- status, start ----

constexpr const char *state_names[] = {"", "not authenticated", "authenticating", "authenticated", "failed"};
constexpr const char *reason_names[] = {"",       "other",       "ELS time-out", "transaction time-out",
                                        "LS_RJT", "LS_RJT busy", "AUTH reject"};

template <size_t Size>
Value word_of(const char *const (&words)[Size], uint8_t value) {
  return value > 0 && value < Size ? Value(words[value]) : Value();
}

bool done(const HCX_AUTHSTATUS &s) {
  return s.auth_state == 3;
}

const ColumnOf<HCX_AUTHSTATUS> status_columns[] = {
    {"local", "LOCAL", Kind::text, In::rows,
     [](const HCX_AUTHSTATUS &s) { return Value(wwn_text(s.local_entity.wwn)); }},
    {"state", "STATE", Kind::text, In::rows,
     [](const HCX_AUTHSTATUS &s) { return word_of(state_names, s.auth_state); }},
    {"reason", "REASON", Kind::text, In::rows,
     [](const HCX_AUTHSTATUS &s) { return word_of(reason_names, s.auth_failReason); }},
    {"type", "TYPE", Kind::text, In::rows,
     [](const HCX_AUTHSTATUS &s) { return s.auth_type == 1 ? Value("DH-CHAP") : Value(); }},
    {"dh_group", "DH GROUP", Kind::number, In::rows,
     [](const HCX_AUTHSTATUS &s) { return s.dhGroup ? Value(s.dhGroup - 1) : Value(); }},
    {"hash", "HASH", Kind::text, In::rows,
     [](const HCX_AUTHSTATUS &s) {
       return s.hash == 1 ? Value("MD5") : s.hash == 2 ? Value("SHA-1") : Value();
     }},
    {"local_authenticated", "LOCAL DONE", Kind::flag, In::rows,
     [](const HCX_AUTHSTATUS &s) { return done(s) ? Value(s.localAuth != 0) : Value(); }},
    {"remote_authenticated", "REMOTE DONE", Kind::flag, In::rows,
     [](const HCX_AUTHSTATUS &s) { return done(s) ? Value(s.remoteAuth != 0) : Value(); }},
    {"since_s", "SINCE(s)", Kind::number, In::rows,
     [](const HCX_AUTHSTATUS &s) { return done(s) ? Value(s.time_from_last_auth) : Value(); }},
    {"next_s", "NEXT IN(s)", Kind::number, In::rows,
     [](const HCX_AUTHSTATUS &s) { return done(s) ? Value(s.time_until_next_auth) : Value(); }},
};

void status(Context &ctx, const std::string &name) {
  ctx.document(status_schema);
  const Board &board = ctx.boards.find(name);
  HCX_AUTHSTATUS record{};
  record.local_entity = board.wwpn;
  record.remote_entity = wwn_of(fabric_entity);
  check_auth(HCX_GetAuthStatus(index(board), &record), "reading the authentication status", board);
  ctx.show(make_table(status_schema, status_columns, std::vector<HCX_AUTHSTATUS>{record}), Layout::record);
}

void start(Context &ctx, const std::string &name, const std::string &remote) {
  ctx.document(status_schema);
  const Board &board = ctx.boards.find(name);
  const uint64_t entity = parse_entity(remote);
  if (!ctx.confirm("authenticate " + board.name() + " with " + entity_text(entity) + " now")) return;
  check_auth(HCX_InitiateAuthentication(index(board), board.wwpn, wwn_of(entity)),
             "starting the authentication with " + entity_text(entity), board);
}

// BOARD, or BOARD and REMOTE.
struct Pair {
  std::string board;
  std::string remote = "fabric";
};

std::shared_ptr<Pair> add_pair(CLI::App &verb, bool remote) {
  auto pair = std::make_shared<Pair>();
  verb.add_option("BOARD", pair->board, board_help)->required()->type_name("");
  if (remote) verb.add_option("REMOTE", pair->remote, "Port name, or \"fabric\"")->required()->type_name("");
  return pair;
}

void add_set(CLI::App &noun, Context &ctx) {
  auto options = std::make_shared<SetOptions>();
  auto passwords = std::make_shared<PasswordOptions>();
  CLI::App *verb = add_verb(noun, "set", "Change, or add, the authentication with a remote entity", ctx,
                            [options, passwords](Context &c) { set(c, *options, *passwords); });
  verb->add_option("BOARD", options->board, board_help)->required()->type_name("");
  verb->add_option("REMOTE", options->remote, "Port name, or \"fabric\"")->required()->type_name("");
  verb->add_option("--timeout", options->timeout, "Seconds, 20 to 999")->type_name("S");
  verb->add_option("--mode", options->mode, "1 to 3")->type_name("N");
  verb->add_option("--bidirectional", options->bidirectional, "Authenticate in both directions")
      ->type_name("BOOL");
  verb->add_option("--types", options->types, "Authentication types by priority, each 1 to 5")
      ->delimiter(',')
      ->type_name("N,...");
  verb->add_option("--hashes", options->hashes, "Hash functions by priority, each 1 or 2")
      ->delimiter(',')
      ->type_name("N,...");
  verb->add_option("--dh-groups", options->groups, "DH groups by priority, each 0 to 5")
      ->delimiter(',')
      ->type_name("N,...");
  verb->add_option("--reauthenticate", options->interval, "Seconds, 10 to 3600, or 0 for never")
      ->type_name("S");
  add_password_options(*verb, passwords);
}

}  // namespace

void add_auth(CLI::App &root, Context &ctx) {
  CLI::App *noun = add_noun(root, "auth", "FC-SP authentication of a port");
  auto listed = std::make_shared<std::shared_ptr<Pair>>();
  *listed = add_pair(*add_verb(*noun, "list", "The remote entities that a port has a configuration for", ctx,
                               [listed](Context &c) { list(c, (*listed)->board); }),
                     false);
  auto shown = std::make_shared<std::shared_ptr<Pair>>();
  *shown = add_pair(*add_verb(*noun, "show", "One configuration whole", ctx,
                              [shown](Context &c) { show(c, (*shown)->board, (*shown)->remote); }),
                    true);
  add_set(*noun, ctx);
  auto passwords = std::make_shared<PasswordOptions>();
  auto removed = std::make_shared<std::shared_ptr<Pair>>();
  CLI::App *verb = add_verb(
      *noun, "delete", "Delete a configuration and its passwords", ctx,
      [removed, passwords](Context &c) { remove(c, (*removed)->board, (*removed)->remote, *passwords); });
  *removed = add_pair(*verb, true);
  add_password_options(*verb, passwords);
  auto changed = std::make_shared<std::shared_ptr<Pair>>();
  auto direction = std::make_shared<std::string>();
  verb = add_verb(*noun, "password", "Change the local or the remote password", ctx,
                  [changed, direction, passwords](Context &c) {
                    change_password(c, (*changed)->board, (*changed)->remote, *direction, *passwords);
                  });
  *changed = add_pair(*verb, true);
  verb->add_option("DIRECTION", *direction, "local or remote")
      ->required()
      ->check(CLI::IsMember({"local", "remote"}))
      ->type_name("");
  add_password_options(*verb, passwords);
  auto asked = std::make_shared<std::shared_ptr<Pair>>();
  *asked = add_pair(*add_verb(*noun, "status", "How the authentication with the fabric went", ctx,
                              [asked](Context &c) { status(c, (*asked)->board); }),
                    false);
  auto started = std::make_shared<std::shared_ptr<Pair>>();
  *started = add_pair(*add_verb(*noun, "start", "Authenticate now", ctx,
                                [started](Context &c) { start(c, (*started)->board, (*started)->remote); }),
                      true);
}

}  // namespace hcxadm
