// SPDX-License-Identifier: BSD-3-Clause
// A simulated machine for the tests of board control, with short names for what they look at.
#pragma once

#include <gtest/gtest.h>

#include <pthread.h>

#include <string>
#include <vector>

#include "libhcx_api.h"
#include "sim_control.h"
#include "sim_machine.h"

class ControlTest : public ::testing::Test {
 protected:
  sim::Machine machine;
  sim::Installed installed{machine};
  HCX_BRDINFO boards[8] = {};

  // Numbers the hosts added so far, with every category but stack dumps in the log.
  void start() {
    libhcx_syslog_enable(0x3ffff & ~LOG_BACKTRACE);
    ASSERT_EQ(HCX_InitDiagEnv(boards, 8), machine.hosts().size());
    machine.clear_records();
    kept_open_ = machine.open_fds();
  }
  void TearDown() override {
    machine.clear_faults();
    HCX_FreeDiagEnv();
    EXPECT_EQ(machine.open_fds(), 0U);
  }

  // What was written since the start, as "attribute=text".
  std::vector<std::string> written() {
    std::vector<std::string> out;
    for (const sim::Write &write : machine.writes())
      out.push_back(write.path.substr(write.path.rfind('/') + 1) + "=" + write.text);
    return out;
  }
  // Vendor commands since the start.
  std::vector<uint32_t> commands() {
    std::vector<uint32_t> out;
    for (const sim::Request &request : machine.requests())
      out.push_back(request.command);
    return out;
  }
  // A call's result, and the line in the log that says why.
  void expect_told(int64_t result, int64_t expected, const std::string &line) {
    EXPECT_EQ(result, expected) << line;
    EXPECT_TRUE(machine.logged(line)) << line;
  }
  // Nothing that a call takes for its own time is left: descriptors, file locks, host locks.
  void expect_nothing_held() {
    EXPECT_EQ(machine.open_fds(), kept_open_);
    EXPECT_EQ(machine.held_locks(), 0U);
    for (hcx_host *host = hcx_host_list; host; host = host->next) {
      ASSERT_EQ(pthread_rwlock_trywrlock(&host->rwlock), 0) << "host" << host->id;
      pthread_rwlock_unlock(&host->rwlock);
    }
  }

 private:
  size_t kept_open_ = 0;  // what the running library itself keeps open
};
