// SPDX-License-Identifier: BSD-3-Clause
// FC-SP passwords: which are taken, how they are compared, and how they stand in the file.
#include "auth_fixture.h"

namespace {

using namespace auth_test;

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
                        {"70000 value", "70000 value"},
                        {std::string("1 ab\0cd", 7), std::string("1 ab\0cd", 7)},
                        {"7 value", "7 value"},
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

}  // namespace
