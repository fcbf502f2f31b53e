// SPDX-License-Identifier: BSD-3-Clause
// "auth": FC-SP authentication of an adapter port: who is configured, with what, and how it went. Passwords are asked
// for without echo or read from a descriptor, and are wiped after use; they never stand on a command line.
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "nouns.h"

namespace hcxadm {
namespace {

constexpr Schema config_schema{"hcxadm.auth", 1, 0};
constexpr Schema status_schema{"hcxadm.auth.status", 1, 0};
constexpr uint64_t fabric = UINT64_MAX;

// The library tells the operator things on standard output, where JSON and tables belong.
class MessagesToStderr {
 public:
  MessagesToStderr() {
    fflush(stdout);
    saved_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    if (saved_ >= 0) dup2(STDERR_FILENO, STDOUT_FILENO);
  }
  MessagesToStderr(const MessagesToStderr &) = delete;
  MessagesToStderr &operator=(const MessagesToStderr &) = delete;
  ~MessagesToStderr() {
    fflush(stdout);
    if (saved_ < 0) return;
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
  }

 private:
  int saved_;
};

class NoEcho {
 public:
  explicit NoEcho(bool wanted) {
    on_ = wanted && tcgetattr(STDIN_FILENO, &before_) == 0;
    if (!on_) return;
    termios quiet = before_;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  }
  NoEcho(const NoEcho &) = delete;
  NoEcho &operator=(const NoEcho &) = delete;
  ~NoEcho() {
    if (on_) tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
  }

 private:
  termios before_{};
  bool on_ = false;
};

uint64_t number_of(const uint8_t wwn[8]) {
  uint64_t number = 0;
  for (int i = 0; i < 8; ++i)
    number = number << 8 | wwn[i];
  return number;
}

HBA_WWN wwn_of(uint64_t number) {
  HBA_WWN wwn;
  for (int i = 7; i >= 0; --i, number >>= 8)
    wwn.wwn[i] = static_cast<uint8_t>(number);
  return wwn;
}

std::string entity_text(uint64_t entity) {
  return entity == fabric ? "fabric" : wwn_text(wwn_of(entity).wwn);
}

uint64_t parse_entity(const std::string &text) {
  if (text == "fabric") return fabric;
  const std::optional<HBA_WWN> wwn = parse_wwn(text);
  if (!wwn)
    throw Failure({.status = kUsage,
                   .tried = "\"" + text + "\" is no port name",
                   .board = {},
                   .code = {},
                   .name = {},
                   .todo = "give 16 hexadecimal digits, or \"fabric\""});
  return number_of(wwn->wwn);
}

void check(uint32_t result, const std::string &tried, const Board &board) {
  if (result == HCX_AUTH_OK) return;
  const char *todo = "";
  if (result == HCX_AUTH_ERROR)
    todo = "see that vosk_enable_auth is 1 and /etc/wardend.conf can be read and written";
  if (result == HCX_AUTH_BAD_CREDENTIALS) todo = "give the pair's current password";
  throw call_failure(Family::fcsp, result, tried, board.name(), todo);
}

// ---- Passwords ----

struct PasswordOptions {
  int fd = -1;
  std::string type = "text";
};

// A password as typed, wiped when it goes.
struct Typed {
  char text[512] = {};
  ~Typed() { explicit_bzero(text, sizeof(text)); }
};

void read_descriptor(int fd, Typed &typed) {
  for (size_t i = 0; i + 1 < sizeof(typed.text); ++i) {
    char c;
    if (read(fd, &c, 1) != 1 || c == '\n') break;
    typed.text[i] = c;
  }
}

void ask(Context &ctx, const PasswordOptions &options, const std::string &prompt, Typed &typed) {
  if (options.fd > 0) {
    read_descriptor(options.fd, typed);
    return;
  }
  const bool asking = options.fd < 0 && ctx.terminal.in;
  if (asking) ctx.err << prompt << ": " << std::flush;
  const NoEcho quiet(asking);
  ctx.in.getline(typed.text, sizeof(typed.text));
  if (asking) ctx.err << '\n';
}

bool hex_to_bytes(const char *text, AUTH_PASSWD_INFO &password) {
  const size_t digits = strlen(text);
  if (digits % 2 || digits / 2 > sizeof(password.password)) return false;
  for (size_t i = 0; i < digits / 2; ++i) {
    const std::optional<uint64_t> byte = parse_number(std::string(text + 2 * i, 2), 16);
    if (!byte) return false;
    password.password[i] = static_cast<char>(*byte);
  }
  password.length = static_cast<uint16_t>(digits / 2);
  return true;
}

// Nothing typed: no password is stored yet.
void get_password(Context &ctx, const PasswordOptions &options, const std::string &prompt,
                  AUTH_PASSWD_INFO &password) {
  Typed typed;
  ask(ctx, options, prompt, typed);
  password = {};
  password.type = HCX_AUTH_PASSWD_IGNORE;
  const size_t length = strlen(typed.text);
  if (length == 0) return;
  if (options.type == "binary") {
    password.type = HCX_AUTH_PASSWD_BINARY;
    if (hex_to_bytes(typed.text, password)) return;
  } else if (length <= sizeof(password.password)) {
    password.type = HCX_AUTH_PASSWD_TEXT;
    password.length = static_cast<uint16_t>(length);
    memcpy(password.password, typed.text, length);
    return;
  }
  throw Failure({.status = kUsage,
                 .tried = "that is no password of the type \"" + options.type + "\"",
                 .board = {},
                 .code = {},
                 .name = {},
                 .todo = "8 to 128 bytes; a binary one as pairs of hexadecimal digits"});
}

struct Passwords {
  KRX_AUTH_PASSWD record{};
  ~Passwords() { explicit_bzero(&record, sizeof(record)); }
};

void add_password_options(CLI::App &verb, const std::shared_ptr<PasswordOptions> &options) {
  verb.add_option("--password-fd", options->fd, "Read passwords, a line each, from this descriptor")
      ->check(CLI::NonNegativeNumber)
      ->type_name("N");
  verb.add_option("--password-type", options->type, "text, or binary as hexadecimal digits")
      ->check(CLI::IsMember({"text", "binary"}))
      ->type_name("TYPE");
}

// ---- list, show ----

struct Row {
  KRX_FCSP_CONFIG config{};
  int local_type = 0;  // hcx_auth_passwd_type; 0: no password line
  int remote_type = 0;
};

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

const ColumnOf<Row> config_columns[] = {
    {"local", "LOCAL", Kind::text, In::record,
     [](const Row &r) { return Value(entity_text(r.config.local_entity)); }},
    {"remote", "REMOTE", Kind::text, In::rows,
     [](const Row &r) { return Value(entity_text(r.config.remote_entity)); }},
    {"timeout_s", "TIMEOUT(s)", Kind::number, In::rows,
     [](const Row &r) { return Value(r.config.authentication_timeout); }},
    {"mode", "MODE", Kind::number, In::rows,
     [](const Row &r) { return Value(r.config.authentication_mode); }},
    {"bidirectional", "BIDIRECTIONAL", Kind::flag, In::rows,
     [](const Row &r) { return Value(r.config.bidirectional != 0); }},
    {"types", "TYPES", Kind::list, In::rows,
     [](const Row &r) { return list_value(r.config.authentication_type_priority, 4, true); }},
    {"hashes", "HASHES", Kind::list, In::rows,
     [](const Row &r) { return list_value(r.config.hash_priority, 4, true); }},
    {"dh_groups", "DH GROUPS", Kind::list, In::rows,
     [](const Row &r) { return list_value(r.config.dh_group_priority, 8, false); }},
    {"reauthenticate_s", "REAUTH(s)", Kind::number, In::rows,
     [](const Row &r) { return Value(r.config.reauthenticate_time_interval); }},
    {"local_password", "LOCAL PASSWORD", Kind::text, In::record,
     [](const Row &r) { return password_kind(r.local_type); }},
    {"remote_password", "REMOTE PASSWORD", Kind::text, In::record,
     [](const Row &r) { return password_kind(r.remote_type); }},
};

uint32_t board_index(const Board &board) {
  return static_cast<uint32_t>(board.number);
}

Row read_pair(const Board &board, uint64_t remote) {
  Row row;
  row.config.local_entity = number_of(board.wwpn.wwn);
  row.config.remote_entity = remote;
  const MessagesToStderr messages;
  check(HCX_GetAuthConfig(board_index(board), &row.config),
        "reading the authentication with " + entity_text(remote), board);
  Passwords passwords;
  passwords.record.local_entity = row.config.local_entity;
  passwords.record.remote_entity = remote;
  if (HCX_GetAuthPassword(board_index(board), &passwords.record) == HCX_AUTH_OK) {
    row.local_type = passwords.record.current_local_passwd.type;
    row.remote_type = passwords.record.current_remote_passwd.type;
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
      check(HCX_GetAuthConfigList(board_index(board), board.wwpn, list), "listing the authentications",
            board);
    }
    uint32_t count;
    memcpy(&count, bytes.data(), sizeof(count));
    if (count <= room) {
      std::vector<uint64_t> remotes;
      for (uint32_t i = 0; i < count; ++i)
        remotes.push_back(number_of(bytes.data() + sizeof(uint32_t) + i * sizeof(HBA_WWN)));
      return remotes;
    }
    room = count;
    bytes.assign(sizeof(uint32_t) + room * sizeof(HBA_WWN), 0);
  }
}

void list(Context &ctx, const std::string &name) {
  ctx.document(config_schema);
  const Board &board = ctx.boards.find(name);
  std::vector<Row> rows;
  for (uint64_t remote : remotes_of(board)) {
    try {
      rows.push_back(read_pair(board, remote));
    } catch (const Failure &failure) {
      ctx.report(failure.problem());
    }
  }
  ctx.show(make_table(config_schema, config_columns, rows));
}

void show(Context &ctx, const std::string &name, const std::string &remote) {
  ctx.document(config_schema);
  const Board &board = ctx.boards.find(name);
  const std::vector<Row> rows = {read_pair(board, parse_entity(remote))};
  ctx.show(make_table(config_schema, config_columns, rows), Layout::record);
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
  config.local_entity = number_of(board.wwpn.wwn);
  config.remote_entity = remote;
  const MessagesToStderr messages;
  const uint32_t result = HCX_GetAuthConfig(board_index(board), &config);
  if (result == HCX_AUTH_NO_ENTRY) {
    config.authentication_timeout = 45;
    config.authentication_mode = 1;
    config.authentication_type_priority[0] = 1;
    config.hash_priority[0] = 1;
    config.hash_priority[1] = 2;
    config.dh_group_priority[0] = 1;
    return config;
  }
  check(result, "reading the authentication with " + entity_text(remote), board);
  return config;
}

void set(Context &ctx, const SetOptions &options, const PasswordOptions &password_options) {
  ctx.document(config_schema);
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
  if (!ctx.confirm("change the authentication of " + board.name() + " with " + entity_text(remote))) return;
  Passwords authority;
  get_password(ctx, password_options, "Current local password (empty: none)",
               authority.record.current_local_passwd);
  {
    const MessagesToStderr messages;
    check(HCX_SetAuthConfig(board_index(board), &config, &authority.record.current_local_passwd),
          "changing the authentication with " + entity_text(remote), board);
  }
  const std::vector<Row> rows = {read_pair(board, remote)};
  ctx.show(make_table(config_schema, config_columns, rows), Layout::record);
}

void remove(Context &ctx, const std::string &name, const std::string &remote_name,
            const PasswordOptions &password_options) {
  ctx.document(config_schema);
  const Board &board = ctx.boards.find(name);
  const uint64_t remote = parse_entity(remote_name);
  if (!ctx.confirm("delete the authentication of " + board.name() + " with " + entity_text(remote) +
                   " and its passwords"))
    return;
  Passwords authority;
  get_password(ctx, password_options, "Current local password (empty: none)",
               authority.record.current_local_passwd);
  const MessagesToStderr messages;
  check(HCX_DeleteAuthConfig(board_index(board), board.wwpn, wwn_of(remote),
                             &authority.record.current_local_passwd),
        "deleting the authentication with " + entity_text(remote), board);
}

void change_password(Context &ctx, const std::string &name, const std::string &remote_name,
                     const std::string &direction, const PasswordOptions &options) {
  ctx.document(config_schema);
  const Board &board = ctx.boards.find(name);
  const uint64_t remote = parse_entity(remote_name);
  const bool local = direction == "local";
  if (!ctx.confirm("change the " + direction + " password of " + board.name() + " with " +
                   entity_text(remote)))
    return;
  Passwords passwords;
  KRX_AUTH_PASSWD &record = passwords.record;
  record.local_entity = number_of(board.wwpn.wwn);
  record.remote_entity = remote;
  for (AUTH_PASSWD_INFO *unset : {&record.current_local_passwd, &record.current_remote_passwd,
                                  &record.new_local_passwd, &record.new_remote_passwd})
    unset->type = HCX_AUTH_PASSWD_IGNORE;
  get_password(ctx, options, "Current " + direction + " password (empty: none)",
               local ? record.current_local_passwd : record.current_remote_passwd);
  AUTH_PASSWD_INFO &replacement = local ? record.new_local_passwd : record.new_remote_passwd;
  get_password(ctx, options, "New " + direction + " password", replacement);
  if (replacement.type == HCX_AUTH_PASSWD_IGNORE)
    throw Failure({.status = kUsage,
                   .tried = "no new password was given",
                   .board = board.name(),
                   .code = {},
                   .name = {},
                   .todo = {}});
  const MessagesToStderr messages;
  check(HCX_SetAuthPassword(board_index(board), &record),
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
  record.remote_entity = wwn_of(fabric);
  check(HCX_GetAuthStatus(board_index(board), &record), "reading the authentication status", board);
  ctx.show(make_table(status_schema, status_columns, std::vector<HCX_AUTHSTATUS>{record}), Layout::record);
}

void start(Context &ctx, const std::string &name, const std::string &remote) {
  ctx.document(status_schema);
  const Board &board = ctx.boards.find(name);
  const uint64_t entity = parse_entity(remote);
  if (!ctx.confirm("authenticate " + board.name() + " with " + entity_text(entity) + " now")) return;
  check(HCX_InitiateAuthentication(board_index(board), board.wwpn, wwn_of(entity)),
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
