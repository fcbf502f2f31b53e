// SPDX-License-Identifier: BSD-3-Clause
// FC-SP: whatever interrupts a change, the daemon's file is the old one or the new one.
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "alloc_fault.h"
#include "auth_fixture.h"

namespace {

using namespace auth_test;

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

// A temporary file is left only where the rename failed, and is complete then.
TEST_F(Auth, AnyCallMayFail) {
  for (const Change &c : changes) {
    for (const bool persistent : {false, true}) {
      bool hit = true;
      for (int n = 1; hit; ++n) {
        SCOPED_TRACE(std::string(c.name) + ", call " + std::to_string(n));
        put(before);
        m.clear_faults();
        m.fail_nth(n, persistent, ENOSPC);
        const uint32_t result = quiet(c.make);
        hit = m.fault_hit();
        m.clear_faults();
        EXPECT_EQ(file(), result == HCX_AUTH_OK ? c.after : before);
        EXPECT_EQ(m.open_fds(), 0u);
        if (m.vfs().exists(temp)) {
          EXPECT_TRUE(persistent || m.vfs().text(temp) == c.after);
          m.vfs().remove(temp);
        }
        EXPECT_TRUE(hit || result == HCX_AUTH_OK);
      }
    }
  }
}

TEST_F(Auth, AnyAllocationMayFail) {
  for (const Change &c : changes) {
    bool hit = true;
    for (int n = 1; hit; ++n) {
      SCOPED_TRACE(std::string(c.name) + ", allocation " + std::to_string(n));
      put(before);
      testing::internal::CaptureStdout();
      alloc_fault::fail_nth(n);
      const uint32_t result = c.make();
      hit = alloc_fault::take_hit();
      testing::internal::GetCapturedStdout();
      EXPECT_EQ(result == HCX_AUTH_OK, !hit);
      EXPECT_EQ(file(), hit ? before : c.after);
      EXPECT_FALSE(m.vfs().exists(temp));
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
