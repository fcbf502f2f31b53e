// SPDX-License-Identifier: BSD-3-Clause
// A host with FC-SP authentication (board 0) and one without, and the daemon's file in memory.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "libhcx.h"
#include "sim_machine.h"

namespace auth_test {

inline constexpr char conf[] = "/etc/wardend.conf";
inline constexpr char temp[] = "/etc/wardend.conf~";
inline constexpr uint64_t local = 0x10000000c9000003, remote = 0x5006016000000001, fabric = ~0ull;
inline const std::string mine = "10000000C9000003 5006016000000001 ";
inline const std::string config_line = "CONFIG " + mine + "45 1 0 1:0:0:0 1:2:0:0 1:0:0:0:0:0:0:0 0\n";
inline const std::string password_line = "PASSWORD " + mine + "1 secretsecret 2 0102030405060708\n";
// Lines that every change must leave alone.
inline const std::string foreign =
    "# Comment\nport = 5\nCerts beef\n\nPASSWORD 1 2 1 othersecret 3 0\nCONFIG 1 2 45\nCONFIG "
    "10000000C9000003g 5006016000000001 45\n" +
    std::string(5000, 'C') + " 1 2\n";

inline HBA_WWN wwn(uint64_t name) {
  HBA_WWN bytes;
  hcx::wwn_store(bytes.wwn, name);
  return bytes;
}

inline AUTH_PASSWD_INFO text(const std::string &value) {
  AUTH_PASSWD_INFO password = {};
  password.type = HCX_AUTH_PASSWD_TEXT;
  password.length = static_cast<uint16_t>(value.size());
  memcpy(password.password, value.data(), std::min<size_t>(value.size(), 128));
  return password;
}

inline AUTH_PASSWD_INFO binary(std::initializer_list<int> bytes) {
  AUTH_PASSWD_INFO password = {};
  password.type = HCX_AUTH_PASSWD_BINARY;
  for (int byte : bytes)
    password.password[password.length++] = static_cast<char>(byte);
  return password;
}

inline AUTH_PASSWD_INFO none() {
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
    EXPECT_FALSE(m.vfs().exists(temp));
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

}  // namespace auth_test
