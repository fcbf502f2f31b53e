// SPDX-License-Identifier: BSD-3-Clause
// FC-SP: the lines of the authentication daemon's file, changes to it and what may interrupt them, passwords, status.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "libhcx.h"
#include "sim_machine.h"

namespace {

constexpr char conf[] = "/etc/wardend.conf";
constexpr uint64_t local = 0x10000000c9000003, remote = 0x5006016000000001, fabric = ~0ull;
const std::string mine = "10000000C9000003 5006016000000001 ";
const std::string config_line = "CONFIG " + mine + "45 1 0 1:0:0:0 1:2:0:0 1:0:0:0:0:0:0:0 0\n";
const std::string password_line = "PASSWORD " + mine + "1 secretsecret 2 0102030405060708\n";
// Lines that every change must leave alone.
const std::string foreign =
    "# Comment\nport = 5\nCerts beef\n\nPASSWORD 1 2 1 othersecret 3 0\nCONFIG 1 2 45\n" +
    std::string(5000, 'C') + " 1 2\n";

HBA_WWN wwn(uint64_t name) {
  HBA_WWN bytes;
  hcx::wwn_store(bytes.wwn, name);
  return bytes;
}

AUTH_PASSWD_INFO text(const std::string &value) {
  AUTH_PASSWD_INFO password = {};
  password.type = HCX_AUTH_PASSWD_TEXT;
  password.length = static_cast<uint16_t>(value.size());
  memcpy(password.password, value.data(), std::min<size_t>(value.size(), 128));
  return password;
}

AUTH_PASSWD_INFO binary(std::initializer_list<int> bytes) {
  AUTH_PASSWD_INFO password = {};
  password.type = HCX_AUTH_PASSWD_BINARY;
  for (int byte : bytes)
    password.password[password.length++] = static_cast<char>(byte);
  return password;
}

AUTH_PASSWD_INFO none() {
  AUTH_PASSWD_INFO password = {};
  password.type = HCX_AUTH_PASSWD_IGNORE;
  return password;
}

class Auth : public testing::Test {
 protected:
  Auth() {
    m.add_host({.number = 3, .wwpn = local, .auth = true});
    m.add_host({.number = 4, .wwpn = local + 1, .auth = false});
    put("");
  }
  ~Auth() override {
    EXPECT_EQ(m.open_fds(), 0u);
    EXPECT_FALSE(m.vfs().exists("/etc/wardend.conf~"));
  }
  void put(const std::string &lines) { m.vfs().put_text(conf, lines, 0600); }
  std::string file() { return m.vfs().text(conf); }
  KRX_FCSP_CONFIG config() {
    KRX_FCSP_CONFIG record = {};
    record.local_entity = local;
    record.remote_entity = remote;
    record.authentication_timeout = 45;
    record.authentication_mode = 1;
    record.authentication_type_priority[0] = 1;
    record.hash_priority[0] = 1;
    record.hash_priority[1] = 2;
    record.dh_group_priority[0] = 1;
    return record;
  }
  // The result; what was printed goes to `printed`.
  template <class Call>
  uint32_t quiet(Call call) {
    testing::internal::CaptureStdout();
    const auto result = static_cast<uint32_t>(call());
    printed = testing::internal::GetCapturedStdout();
    return result;
  }
  uint32_t set(KRX_FCSP_CONFIG record, AUTH_PASSWD_INFO password = none()) {
    return quiet([&] { return HCX_SetAuthConfig(0, &record, &password); });
  }
  uint32_t change(bool of_local, const AUTH_PASSWD_INFO &current, const AUTH_PASSWD_INFO &replacement) {
    KRX_AUTH_PASSWD record = {local, remote, none(), none(), none(), none()};
    (of_local ? record.current_local_passwd : record.current_remote_passwd) = current;
    (of_local ? record.new_local_passwd : record.new_remote_passwd) = replacement;
    const KRX_AUTH_PASSWD before = record;
    const uint32_t result = quiet([&] { return HCX_SetAuthPassword(0, &record); });
    EXPECT_EQ(memcmp(&record, &before, sizeof record), 0) << "the caller's record is not changed";
    return result;
  }

  sim::Machine m;
  sim::Installed guard{m};
  std::string printed;
};

TEST_F(Auth, ConfigLineAsWritten) {
  put(foreign);
  EXPECT_EQ(set(config()), HCX_AUTH_OK);
  EXPECT_EQ(file(), foreign + config_line);
  EXPECT_EQ(m.commands(), std::vector<std::string>{"/etc/init.d/wardend reload"});
  EXPECT_EQ(m.file_mask, 066u);
  EXPECT_EQ(m.vfs().find(conf)->mode & 0777, 0600u);
}

TEST_F(Auth, SecondSetReplacesInPlace) {
  put("# head\n" + config_line + foreign + config_line + "# tail");
  KRX_FCSP_CONFIG record = config();
  record.bidirectional = 1;
  record.dh_group_priority[0] = 9;  // not checked
  EXPECT_EQ(set(record), HCX_AUTH_OK);
  EXPECT_EQ(file(),
            "# head\nCONFIG " + mine + "45 1 1 1:0:0:0 1:2:0:0 9:0:0:0:0:0:0:0 0\n" + foreign + "# tail");
}

TEST_F(Auth, AppendingBehindAnOpenLine) {
  put("# no newline");
  EXPECT_EQ(set(config()), HCX_AUTH_OK);
  EXPECT_EQ(file(), "# no newline\n" + config_line);
}

TEST_F(Auth, SetCorrectsOrRefuses) {
  struct Case {
    void (*spoil)(KRX_FCSP_CONFIG &);
    uint32_t result;
    const char *message;
    const char *in_file;
  };
  const Case cases[] = {
      {[](KRX_FCSP_CONFIG &c) { c.authentication_timeout = 5; }, 0,
       "Adjusting Authentication Timeout to Minimum value.\n", " 20 1 0 "},
      {[](KRX_FCSP_CONFIG &c) { c.authentication_timeout = 5000; }, 0,
       "Adjusting Authentication Timeout to Maximum value.\n", " 999 1 0 "},
      {[](KRX_FCSP_CONFIG &c) { c.authentication_mode = 0; }, 0,
       "Authentication Mode Invalid: Setting to default.\n", " 45 1 0 "},
      {[](KRX_FCSP_CONFIG &c) { c.reauthenticate_time_interval = 5; }, 0,
       "Adjusting Re-Authentication Interval to MIN value.\n", ":0 10\n"},
      {[](KRX_FCSP_CONFIG &c) { c.reauthenticate_time_interval = 3601; }, 0,
       "Adjusting Re-Authentication Interval to MAX value.\n", ":0 3600\n"},
      {[](KRX_FCSP_CONFIG &c) { c.authentication_type_priority[0] = 0; }, 0x8009,
       "ERROR:First Authentication Type Not Set.\n", nullptr},
      {[](KRX_FCSP_CONFIG &c) { c.authentication_type_priority[3] = 6; }, 0x8009,
       "ERROR:Unknown Authentication Type.\n", nullptr},
      {[](KRX_FCSP_CONFIG &c) { c.hash_priority[0] = 0; }, 0x8009, "ERROR:First Hash Not Set.\n", nullptr},
      {[](KRX_FCSP_CONFIG &c) { c.hash_priority[2] = 3; }, 0x8009, "ERROR:Unknown Hash. 2:3\n", nullptr},
      {[](KRX_FCSP_CONFIG &c) { c.dh_group_priority[7] = 6; }, 0x8009, "ERROR:Unknown DH Group.\n", nullptr},
  };
  for (const Case &c : cases) {
    put("# untouched\n");
    KRX_FCSP_CONFIG record = config();
    c.spoil(record);
    EXPECT_EQ(set(record), c.result) << c.message;
    EXPECT_EQ(printed, c.message);
    if (c.in_file) {
      EXPECT_NE(file().find(c.in_file), std::string::npos) << file();
    } else {
      EXPECT_EQ(file(), "# untouched\n");
    }
  }
}

TEST_F(Auth, GetBringsValuesIntoRange) {
  struct Case {
    const char *values;
    uint32_t result;
    const char *message;
    int timeout;
    uint32_t interval;
  };
  const Case cases[] = {
      {"45 2 1 1:2:3:4 1:2:0:0 0:1:2:3:4:5:0:0 100", 0, "", 45, 100},
      {"10 1 0 1:0 1 1 0", 0, "CFG FILE ERROR: Invalid Authentication Timeout\n", 20, 0},
      {"70000 1 0 1:0 1 1 0", 0, "CFG FILE ERROR: Invalid Authentication Timeout\n", 999, 0},
      {"45 1 0 1:0 1 1 5", 0, "CFG FILE ERROR: Invalid Reauthentication interval\n", 45, 10},
      {"45 1 0 1:0 1 1 -5", 0, "CFG FILE ERROR: Invalid Reauthentication interval\n", 45, 3600},
      {"45 1 0 x 1 1 0", 0, "CFG FILE ERROR: Must have 1-5 Authentication types\n", 45, 0},
      {"45 1 0 1 x 1 0", 0, "CFG FILE ERROR: Must have 1-5 Hash functions\n", 45, 0},
      {"45 1 0 1 1 x 0", 0, "CFG FILE ERROR: Must have 1-8 DH groups\n", 45, 0},
      {"45 1 0 1 1 1", 0x8001, "", 0, 0},
  };
  for (const Case &c : cases) {
    std::string lines = foreign;
    put(lines.append("config ").append(mine).append(c.values).append("\n"));
    KRX_FCSP_CONFIG record = {};
    record.local_entity = local;
    record.remote_entity = remote;
    EXPECT_EQ(quiet([&] { return HCX_GetAuthConfig(0, &record); }), c.result) << c.values;
    EXPECT_EQ(printed, c.message);
    EXPECT_EQ(record.authentication_timeout, c.timeout) << c.values;
    EXPECT_EQ(record.reauthenticate_time_interval, c.interval) << c.values;
  }
}

TEST_F(Auth, ListCountsBeyondTheRoom) {
  put(foreign + "CONFIG " + mine + "x\nCONFIG 10000000C9000003 FFFFFFFFFFFFFFFF\nPASSWORD " + mine +
      "3 0 3 0\n");
  struct {
    uint32_t count = 1;
    HBA_WWN entity[2];
  } list;
  list.entity[1] = wwn(7);
  EXPECT_EQ(HCX_GetAuthConfigList(0, wwn(local), reinterpret_cast<HCX_AUTHCONFIGLIST *>(&list)), HCX_AUTH_OK);
  EXPECT_EQ(list.count, 2u);
  EXPECT_EQ(hcx::wwn_load(list.entity[0].wwn), remote);
  EXPECT_EQ(hcx::wwn_load(list.entity[1].wwn), 7u);
  EXPECT_EQ(HCX_GetAuthConfigList(0, wwn(99), reinterpret_cast<HCX_AUTHCONFIGLIST *>(&list)), 0x8005u);
}

TEST_F(Auth, PortsWithoutAuthentication) {
  for (uint64_t port : {local + 1, uint64_t{99}}) {
    KRX_FCSP_CONFIG record = config();
    record.local_entity = port;
    EXPECT_EQ(set(record), 0x800du);
    KRX_AUTH_PASSWD passwords = {};
    passwords.local_entity = port;
    EXPECT_EQ(HCX_GetAuthPassword(0, &passwords), 0x800du);
    EXPECT_EQ(HCX_InitiateAuthentication(0, wwn(port), wwn(fabric)), 0x800du);
  }
  EXPECT_EQ(HCX_EnableAuthentication(0), 0x8030u);
  EXPECT_EQ(HCX_DisableAuthentication(0), 0x8030u);
}

TEST_F(Auth, DeleteTakesBothKindsOfLine) {
  put(config_line + foreign + password_line + config_line);
  AUTH_PASSWD_INFO wrong = text("wrongwrong"), right = text("secretsecret");
  EXPECT_EQ(quiet([&] { return HCX_DeleteAuthConfig(0, wwn(local), wwn(remote), &wrong); }), 0x8004u);
  EXPECT_EQ(m.delays(), std::vector<uint64_t>{3000000});
  EXPECT_EQ(file(), config_line + foreign + password_line + config_line);
  EXPECT_EQ(quiet([&] { return HCX_DeleteAuthConfig(0, wwn(local), wwn(remote), &right); }), HCX_AUTH_OK);
  EXPECT_EQ(file(), foreign);
  EXPECT_EQ(quiet([&] { return HCX_DeleteAuthConfig(0, wwn(local), wwn(remote), &right); }), HCX_AUTH_OK);
  EXPECT_EQ(m.commands().size(), 2u);
}

TEST_F(Auth, WellFormedPasswords) {
  struct Case {
    AUTH_PASSWD_INFO password;
    int result;
    const char *message;
  };
  AUTH_PASSWD_INFO odd = text("12345678"), longest = text(std::string(128, 'x')), longer = longest;
  odd.type = 4;
  longer.length = 129;
  for (const Case &c : {Case{text("1234567"), 1, "ERROR: Password too short (7)\n"},
                        {text("12345678"), 0, ""},
                        {longest, 0, ""},
                        {longer, 1, "ERROR: Password too long (129)\n"},
                        {odd, 1, "ERROR: Invalid Password type (4)\n"},
                        {none(), 0, ""}}) {
    AUTH_PASSWD_INFO password = c.password;
    EXPECT_EQ(quiet([&] { return check_password(&password); }), static_cast<uint32_t>(c.result));
    EXPECT_EQ(printed, c.message);
  }
  EXPECT_EQ(check_password(nullptr), 1);
}

TEST_F(Auth, Verification) {
  put(foreign + password_line);
  struct Case {
    AUTH_PASSWD_INFO local_password, remote_password;
    int result;
  };
  for (const Case &c : {Case{text("secretsecret"), binary({1, 2, 3, 4, 5, 6, 7, 8}), 0},
                        {text("secretsecreT"), binary({1, 2, 3, 4, 5, 6, 7, 8}), 0x8004},
                        {text("secretsecret!"), binary({1, 2, 3, 4, 5, 6, 7, 8}), 0x8004},
                        {text("secretsecret"), binary({1, 2, 3, 4, 5, 6, 7}), 0x8004},
                        {text("secretsecret"), text("12345678"), 0x8004},
                        {none(), binary({1, 2, 3, 4, 5, 6, 7, 8}), 0x8004}}) {
    AUTH_PASSWD_INFO l = c.local_password, r = c.remote_password;
    EXPECT_EQ(verify_password(local, remote, &l, &r), c.result);
  }
  AUTH_PASSWD_INFO given = text("secretsecret"), nothing = none();
  EXPECT_EQ(verify_password(local, fabric, &given, nullptr), 0x8001);
  EXPECT_EQ(verify_password(local, fabric, &nothing, &nothing), 0);
  m.vfs().remove(conf);
  EXPECT_EQ(quiet([&] { return verify_password(local, remote, &given, nullptr); }), 0x800du);
  EXPECT_EQ(printed, "ERROR: Unable to open Config File /etc/wardend.conf\n");
  EXPECT_EQ(set(config()), 0x8004u);
  EXPECT_EQ(m.delays(), std::vector<uint64_t>{3000000});
}

TEST_F(Auth, FirstPasswordsAndTheirChange) {
  put(foreign);
  EXPECT_EQ(change(true, none(), text("localpassword")), HCX_AUTH_OK);
  EXPECT_EQ(file(), foreign + "PASSWORD " + mine + "1 localpassword 3 0\n");
  EXPECT_EQ(change(false, text("anything"), text("remotepassword")), 0x8004u);
  EXPECT_EQ(change(false, none(), text("localpassword")), 0x8011u);
  EXPECT_EQ(file(), foreign + "PASSWORD " + mine + "1 localpassword 3 0\n");
  EXPECT_EQ(change(false, none(), text("remotepassword")), HCX_AUTH_OK);
  EXPECT_EQ(change(true, text("localpassword"), text("remotepassword")), 0x8011u);
  EXPECT_EQ(change(true, text("localpassword"), binary({0xa1, 2, 3, 4, 5, 6, 7, 8})), HCX_AUTH_OK);
  EXPECT_EQ(file(), foreign + "PASSWORD " + mine + "2 A102030405060708 1 remotepassword\n");
  KRX_AUTH_PASSWD record = {};
  record.local_entity = local;
  record.remote_entity = remote;
  EXPECT_EQ(HCX_GetAuthPassword(0, &record), HCX_AUTH_OK);
  EXPECT_EQ(record.current_local_passwd.type, 2);
  EXPECT_EQ(record.current_remote_passwd.type, 1);
  EXPECT_EQ(record.new_local_passwd.type, 3);
  const AUTH_PASSWD_INFO empty = {};
  EXPECT_EQ(memcmp(record.current_local_passwd.password, empty.password, 128), 0);
}

// An odd number of local bytes is written with a "0" in front, and that must come back as what was given.
TEST_F(Auth, OddBinaryPasswordsRoundTrip) {
  const AUTH_PASSWD_INFO nine = binary({0x0a, 2, 3, 4, 5, 6, 7, 8, 9});
  EXPECT_EQ(change(true, none(), nine), HCX_AUTH_OK);
  EXPECT_EQ(file(), "PASSWORD " + mine + "2 00A0203040506070809 3 0\n");
  EXPECT_EQ(change(false, none(), nine), 0x8011u);
  EXPECT_EQ(change(false, none(), text("remotepassword")), HCX_AUTH_OK);
  EXPECT_EQ(file(), "PASSWORD " + mine + "2 00A0203040506070809 1 remotepassword\n");
  EXPECT_EQ(change(true, nine, text("localpassword")), HCX_AUTH_OK);
  KRX_AUTH_PASSWD record = {};
  char abc[] = "PASSWORD 1 2 2 ABC 3 0";
  EXPECT_EQ(read_password(abc, &record), 0);
  EXPECT_EQ(record.current_local_passwd.length, 2);
  EXPECT_EQ(memcmp(record.current_local_passwd.password, "\x0a\xbc", 2), 0);
}

TEST_F(Auth, WhatTheFileCannotHold) {
  AUTH_PASSWD_INFO cut = text("12345678");
  cut.password[3] = '\0';
  for (const AUTH_PASSWD_INFO &password : {text("pass word"), text("line\nCONFIG 1 2"), text("tab\there."),
                                           text("\x7f"
                                                "1234567"),
                                           cut}) {
    EXPECT_EQ(change(true, none(), password), 0x8006u);
    EXPECT_EQ(file(), "");
  }
  KRX_AUTH_PASSWD both = {local, remote, none(), none(), text("12345678"), text("87654321")};
  EXPECT_EQ(quiet([&] { return HCX_SetAuthPassword(0, &both); }), 0x800du);
  EXPECT_EQ(printed, "ERROR: Remote.type!=ignore && local.type!=ignore\n");
}

TEST_F(Auth, LinesWithTooLittleOrTooMuch) {
  KRX_AUTH_PASSWD record = {};
  const std::string value(300, 'a');
  std::string line = "PASSWORD 1 2 1 " + value + " 2 " + value;
  EXPECT_EQ(read_password(line.data(), &record), 0);
  EXPECT_EQ(record.current_local_passwd.length, 128);
  EXPECT_EQ(record.current_remote_passwd.length, 128);
  char half[] = "password 1 2 1 value";
  EXPECT_EQ(read_password(half, &record), 0);
  EXPECT_EQ(record.current_local_passwd.type, 1);
  EXPECT_EQ(record.current_remote_passwd.type, 3);
  char nobody[] = "PASSWORD x 2 1 value 3 0";
  EXPECT_EQ(read_password(nobody, &record), 1);
  char other[] = "CONFIG 1 2";
  EXPECT_EQ(read_password(other, &record), 1);
}

TEST_F(Auth, Status) {
  struct Case {
    const char *text;
    int state, reason;
  };
  for (const Case &c : {Case{"Not Authenticated", 1, 0},
                        {"Authenticating", 2, 0},
                        {"Failed - ELS Timeout", 4, 2},
                        {"Failed - Transaction Timeout", 4, 3},
                        {"Failed - LS_RJT", 4, 4},
                        {"Failed - LS_RJT Busy", 4, 4},
                        {"Failed - AUTH RJT", 4, 6},
                        {"", 4, 1}}) {
    m.host(3)->set_scsi("auth_state", c.text);
    HCX_AUTHSTATUS status = {};
    status.local_entity = wwn(local);
    status.remote_entity = wwn(fabric);
    EXPECT_EQ(HCX_GetAuthStatus(0, &status), HCX_AUTH_OK);
    EXPECT_EQ(status.auth_state, c.state) << c.text;
    EXPECT_EQ(status.auth_failReason, c.reason) << c.text;
  }
  m.host(3)->set_scsi("auth_state", "Authenticated");
  m.host(3)->set_scsi("auth_dhgroup", "4");
  m.host(3)->set_scsi("auth_hash", "5");
  m.host(3)->set_scsi("auth_dir", "Remote");
  HCX_AUTHSTATUS status = {};
  status.local_entity = wwn(local);
  status.remote_entity = wwn(fabric);
  EXPECT_EQ(HCX_GetAuthStatus(0, &status), HCX_AUTH_OK);
  EXPECT_EQ(status.auth_state, 3);
  EXPECT_EQ(status.dhGroup, 5);
  EXPECT_EQ(status.hash, 1);
  EXPECT_EQ(status.localAuth, 0);
  EXPECT_EQ(status.remoteAuth, 1);
  EXPECT_EQ(status.time_from_last_auth, 120u);
  status.remote_entity = wwn(remote);
  EXPECT_EQ(HCX_GetAuthStatus(0, &status), 0x8005u);
  EXPECT_EQ(status.auth_state, 1);
}

TEST_F(Auth, StartNamesTheRemotePort) {
  EXPECT_EQ(HCX_InitiateAuthentication(0, wwn(local), wwn(fabric)), HCX_AUTH_OK);
  EXPECT_EQ(m.writes().back().text, "FFFFFFFFFFFFFFFF");
  EXPECT_EQ(HCX_InitiateAuthentication(0, wwn(local), wwn(0x123)), 0x800du);
  EXPECT_EQ(m.writes().back().text, "123");
}

// Whatever call fails during a change: the old file or the new one, no temporary file unless the rename failed.
TEST_F(Auth, AnyCallMayFail) {
  const std::string before = foreign + password_line, after = before + config_line;
  for (const bool persistent : {false, true}) {
    for (int n = 1;; ++n) {
      put(before);
      m.clear_faults();
      m.fail_nth(n, persistent, ENOSPC);
      const uint32_t result = set(config(), text("secretsecret"));
      const bool hit = m.fault_hit();
      m.clear_faults();
      EXPECT_EQ(file(), result == HCX_AUTH_OK ? after : before) << "call " << n;
      EXPECT_EQ(m.open_fds(), 0u) << "call " << n;
      m.vfs().remove("/etc/wardend.conf~");
      if (!hit) {
        EXPECT_EQ(result, HCX_AUTH_OK);
        break;
      }
    }
  }
}

TEST_F(Auth, ShortWritesAreGoneOnWith) {
  m.fail({.verb = sim::Verb::write, .path = "wardend", .persistent = true, .short_count = 7});
  put(foreign);
  EXPECT_EQ(set(config()), HCX_AUTH_OK);
  EXPECT_EQ(file(), foreign + config_line);
}

TEST_F(Auth, LeftoverTemporaryFileIsNotFollowed) {
  m.vfs().put_text("/etc/shadow", "root", 0600);
  m.vfs().put_link("/etc/wardend.conf~", "/etc/shadow");
  EXPECT_EQ(set(config()), HCX_AUTH_OK);
  EXPECT_EQ(m.vfs().text("/etc/shadow"), "root");
  EXPECT_EQ(file(), config_line);
}

// The process ends at the n-th call: what is on disk is the old file or the new one.
TEST(AuthKill, NoHalfFile) {
  char name[] = "/tmp/hcx_auth_XXXXXX";
  ASSERT_NE(mkdtemp(name), nullptr);
  const std::string before = foreign + password_line, after = before + config_line;
  const std::string path = std::string(name) + "/root" + conf;
  bool finished = false;
  for (int n = 1; n < 100 && !finished; ++n) {
    const pid_t child = fork();
    if (child == 0) {
      sim::Machine m;
      const sim::Installed guard(m);
      m.add_host({.number = 3, .wwpn = local, .auth = true});
      m.use_state(name);
      std::filesystem::create_directories(std::filesystem::path(path).parent_path());
      std::ofstream(path) << before;
      m.fail({.nth = n, .kill = true});
      KRX_FCSP_CONFIG record = {
          local, remote, 45, 1, 0, 0, {1, 0, 0, 0}, {1, 2, 0, 0}, {1, 0, 0, 0, 0, 0, 0, 0}, 0};
      AUTH_PASSWD_INFO password = text("secretsecret");
      _exit(HCX_SetAuthConfig(0, &record, &password) == HCX_AUTH_OK ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 1) << "call " << n;
    finished = WEXITSTATUS(status) == 0;
    std::ifstream in(path);
    const std::string now{std::istreambuf_iterator<char>(in), {}};
    ASSERT_TRUE(now == before || now == after) << "call " << n << ": " << now;
    if (finished) {
      EXPECT_EQ(now, after);
    }
  }
  EXPECT_TRUE(finished);
  std::filesystem::remove_all(name);
}

}  // namespace
