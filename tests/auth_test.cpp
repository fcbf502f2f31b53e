// SPDX-License-Identifier: BSD-3-Clause
// FC-SP: CONFIG lines and the changes to them, the driver's status and the request to authenticate.
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
      {"70000 1 0 1:0 1 1 0", 0, "CFG FILE ERROR: Invalid Authentication Timeout\n", 999, 0},
      {"45 1 0 1:0 1 1 5", 0, "CFG FILE ERROR: Invalid Reauthentication interval\n", 45, 10},
      {"45 1 0 1:0 1 1 -5", 0, "CFG FILE ERROR: Invalid Reauthentication interval\n", 45, 3600},
      {"45 1 0 1x:2 1 1 0", 0, "", 45, 0},
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

}  // namespace
