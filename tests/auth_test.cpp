// SPDX-License-Identifier: BSD-3-Clause
// FC-SP: CONFIG lines and passwords, how they stand in the daemon's file and are changed there, status, and that an
// interrupted change leaves the old file or the new one.
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "auth_fixture.h"

namespace {

using namespace auth_test;

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
      {"45 1 0 1:0 1 1 -5", 0, "CFG FILE ERROR: Invalid Reauthentication interval\n", 45, 3600},
      {"45 1 0 1x:2 1 1 0", 0, "", 45, 0},
      {"45 1 0 x 1 1 0", 0, "CFG FILE ERROR: Must have 1-5 Authentication types\n", 45, 0},
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

TEST_F(Auth, Status) {
  struct Case {
    const char *text;
    int state, reason;
  };
  for (const Case &c : {Case{"Not Authenticated", 1, 0},
                        {"Authenticating", 2, 0},
                        {"Failed - ELS Timeout", 4, 2},
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
  // Attributes that are missing or say nothing known leave their fields as they are.
  m.host(3)->set_scsi("auth_dhgroup", "9");
  m.host(3)->set_scsi("auth_hash", "none");
  m.host(3)->set_scsi("auth_last", "never");
  m.vfs().remove("/sys/class/scsi_host/host3/auth_next");
  status.time_from_last_auth = status.time_until_next_auth = 77;
  EXPECT_EQ(HCX_GetAuthStatus(0, &status), HCX_AUTH_OK);
  EXPECT_EQ(status.dhGroup, 5);
  EXPECT_EQ(status.hash, 1);
  EXPECT_EQ(status.time_from_last_auth, 77u);
  EXPECT_EQ(status.time_until_next_auth, 77u);
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

// What stands in the line and no record can hold is carried over when the other password is changed.
TEST_F(Auth, StoredPasswordsOfAnyShapeAreKept) {
  const std::string long_text(200, 'x'), long_hex(300, 'A');
  struct Case {
    std::string stored, kept;
  };
  for (const Case &c : {Case{"1 " + long_text, "1 " + long_text},
                        {"2 " + long_hex, "2 " + long_hex},
                        {"2 01zz02", "2 01zz02"},
                        {"x  value", "x  value"},
                        {std::string("1 ab\0cd", 7), std::string("1 ab\0cd", 7)},
                        {"2 abcd", "2 ABCD"},
                        {"2 ABC", "2 0ABC"},
                        {"3 other", "3 0"},
                        {"1", "3 0"}}) {
    std::string stored = "PASSWORD " + mine + "1 secretsecret ";
    stored.append(c.stored).append("\n").append(foreign).append(password_line);
    put(stored);
    EXPECT_EQ(change(true, text("secretsecret"), text("localpassword")), HCX_AUTH_OK);
    std::string kept = "PASSWORD " + mine + "1 localpassword ";
    kept.append(c.kept).append("\n").append(foreign);
    EXPECT_EQ(file(), kept);
  }
  put("PASSWORD " + mine + "1 " + long_text + " 1 secretsecret\n");
  EXPECT_EQ(change(false, text("secretsecret"), text("remotepassword")), HCX_AUTH_OK);
  EXPECT_EQ(file(), "PASSWORD " + mine + "1 " + long_text + " 1 remotepassword\n");
}

// Of exported writers: what they are given, to the caller's stream.
TEST_F(Auth, WritersOnAStream) {
  char *buffer = nullptr;
  size_t size = 0;
  FILE *stream = open_memstream(&buffer, &size);
  KRX_AUTH_PASSWD record = {local, remote, none(), none(), none(), none()};
  record.new_local_passwd = binary({0xff, 0, 1});
  record.new_remote_passwd = binary({0xff, 0, 1});
  write_password(stream, &record);
  KRX_FCSP_CONFIG line = config();
  write_config(stream, &line);
  write_config(stream, nullptr);
  write_password(nullptr, &record);
  fclose(stream);
  EXPECT_EQ(std::string(buffer, size), "PASSWORD " + mine + "2 0FF0001 2 FF0001\n" + config_line);
  free(buffer);
}

TEST_F(Auth, NullRecords) {
  EXPECT_EQ(HCX_GetAuthPassword(0, nullptr), 0x8006u);
  EXPECT_EQ(HCX_SetAuthPassword(0, nullptr), 0x8006u);
  EXPECT_EQ(HCX_DeleteAuthConfig(0, wwn(local), wwn(remote), nullptr), 0x8006u);
  EXPECT_EQ(HCX_SetAuthConfig(0, nullptr, nullptr), 0x8009u);
  EXPECT_EQ(HCX_GetAuthConfig(0, nullptr), 0x8009u);
  EXPECT_EQ(HCX_GetAuthConfigList(0, wwn(local), nullptr), 0x8009u);
  EXPECT_EQ(HCX_GetAuthStatus(0, nullptr), 0x8009u);
  char line[] = "PASSWORD 1 2 3 0 3 0";
  EXPECT_EQ(read_password(line, nullptr), 1);
  KRX_AUTH_PASSWD record = {};
  EXPECT_EQ(read_password(nullptr, &record), 1);
}

const std::string before = foreign + config_line + password_line;

struct Change {
  const char *name;
  uint32_t (*make)();
  std::string after;
};

uint32_t change_password(bool of_local, const AUTH_PASSWD_INFO &current) {
  KRX_AUTH_PASSWD record = {local, remote, none(), none(), none(), none()};
  (of_local ? record.current_local_passwd : record.current_remote_passwd) = current;
  (of_local ? record.new_local_passwd : record.new_remote_passwd) = text("changedsecret");
  return HCX_SetAuthPassword(0, &record);
}

const Change changes[] = {
    {"set",
     [] {
       KRX_FCSP_CONFIG record = {
           local, remote, 99, 1, 0, 0, {1, 0, 0, 0}, {1, 2, 0, 0}, {1, 0, 0, 0, 0, 0, 0, 0}, 0};
       AUTH_PASSWD_INFO password = text("secretsecret");
       return HCX_SetAuthConfig(0, &record, &password);
     },
     foreign + "CONFIG " + mine + "99 1 0 1:0:0:0 1:2:0:0 1:0:0:0:0:0:0:0 0\n" + password_line},
    {"delete",
     [] {
       AUTH_PASSWD_INFO password = text("secretsecret");
       return HCX_DeleteAuthConfig(0, wwn(local), wwn(remote), &password);
     },
     foreign},
    {"local password", [] { return change_password(true, text("secretsecret")); },
     foreign + config_line + "PASSWORD " + mine + "1 changedsecret 2 0102030405060708\n"},
    {"remote password",
     [] {
       return change_password(false, binary({1, 2, 3, 4, 5, 6, 7, 8}));
     },
     foreign + config_line + "PASSWORD " + mine + "1 secretsecret 1 changedsecret\n"},
};

TEST_F(Auth, ShortWritesAreGoneOnWith) {
  m.fail({.verb = sim::Verb::write, .path = "wardend", .persistent = true, .short_count = 7});
  put(foreign);
  EXPECT_EQ(set(config()), HCX_AUTH_OK);
  EXPECT_EQ(file(), foreign + config_line);
}

TEST_F(Auth, LeftoverTemporaryFileIsNotFollowed) {
  m.vfs().put_text("/etc/shadow", "root", 0600);
  m.vfs().put_link(temp, "/etc/shadow");
  EXPECT_EQ(set(config()), HCX_AUTH_OK);
  EXPECT_EQ(m.vfs().text("/etc/shadow"), "root");
  EXPECT_EQ(file(), config_line);
}

// There is one temporary name: no thread may take away or put in place what another one is writing.
TEST_F(Auth, ThreadsChangeTheFileOneAfterTheOther) {
  constexpr int threads = 4, rounds = 25;
  const auto work = [&](uint64_t entity, unsigned *failed) {
    KRX_FCSP_CONFIG record = config();
    record.remote_entity = entity;
    AUTH_PASSWD_INFO password = none();
    for (int i = 0; i < rounds; ++i) {
      record.authentication_timeout = static_cast<uint16_t>(100 + i);
      *failed += HCX_SetAuthConfig(0, &record, &password) != HCX_AUTH_OK;
    }
  };
  unsigned failed[threads] = {};
  std::vector<std::thread> running;
  for (int i = 0; i < threads; ++i)
    running.emplace_back(work, remote + static_cast<uint64_t>(i), &failed[i]);
  for (std::thread &thread : running)
    thread.join();
  for (int i = 0; i < threads; ++i) {
    EXPECT_EQ(failed[i], 0u);
    KRX_FCSP_CONFIG record = config();
    record.remote_entity += static_cast<uint64_t>(i);
    EXPECT_EQ(HCX_GetAuthConfig(0, &record), HCX_AUTH_OK);
    EXPECT_EQ(record.authentication_timeout, 100 + rounds - 1);
  }
}

// The process ends at the n-th call: what is on disk is the old file or the new one.
TEST(AuthKill, NoHalfFile) {
  char name[] = "/tmp/hcx_auth_XXXXXX";
  ASSERT_NE(mkdtemp(name), nullptr);
  const std::string path = std::string(name) + "/root" + conf;
  for (const Change &c : changes) {
    bool finished = false;
    for (int n = 1; n < 100 && !finished; ++n) {
      SCOPED_TRACE(std::string(c.name) + ", call " + std::to_string(n));
      const pid_t child = fork();
      if (child == 0) {
        sim::Machine m;
        const sim::Installed guard(m);
        m.add_host({.number = 3, .wwpn = local, .auth = true});
        m.use_state(name);
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path) << before;
        m.fail({.nth = n, .kill = true});
        _exit(c.make() == HCX_AUTH_OK ? 0 : 1);
      }
      int status = 0;
      waitpid(child, &status, 0);
      ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != 1);
      finished = WEXITSTATUS(status) == 0;
      std::ifstream in(path);
      const std::string now{std::istreambuf_iterator<char>(in), {}};
      ASSERT_TRUE(now == c.after || (now == before && !finished)) << now;
    }
    EXPECT_TRUE(finished);
  }
  std::filesystem::remove_all(name);
}

}  // namespace
