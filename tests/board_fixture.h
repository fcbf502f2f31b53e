// SPDX-License-Identifier: BSD-3-Clause
// A simulated machine behind the library whose boards have their numbers. At the end nothing may be left open or
// locked, and the inventory is released.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "libhcx.h"
#include "sim_machine.h"

class BoardTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // Errors and the areas' own lines go to the simulated system log.
    m.vfs().put_text("/tmp/libhcx_syslog_enable", "4fff\n", 0644);
  }

  // Scans and numbers what was added to `m` until now.
  void scan() {
    hcx_sysfs_scan_hosts(&hcx_host_list);
    int number = 0;
    for (hcx_host *host = hcx_host_list; host; host = host->next)
      host->brd_idx = number++;
  }

  void TearDown() override {
    expect_nothing_left("at the end");
    while (hcx_host *host = hcx_host_list) {
      while (hcx_port *port = host->port_list) {
        hcx_host_remove_port(&host->port_list, nullptr, port);
        hcx::destroy_port(port);
      }
      hcx_host_remove(&hcx_host_list, nullptr, host);
      hcx_host_free(host);
    }
    hcx::free_retired_records();
  }

  void expect_nothing_left(const std::string &when) {
    EXPECT_EQ(m.open_fds(), 0u) << when;
    EXPECT_EQ(m.held_locks(), 0u) << when;
    for (hcx_host *host = hcx_host_list; host; host = host->next) {
      const int locked = pthread_rwlock_trywrlock(&host->rwlock);
      EXPECT_EQ(locked, 0) << "host " << host->id << " still locked " << when;
      if (locked == 0) pthread_rwlock_unlock(&host->rwlock);
    }
  }

  // A call's result, and the line in the log that says why.
  void expect_told(int64_t result, int64_t expected, const std::string &line) {
    EXPECT_EQ(result, expected) << line;
    EXPECT_TRUE(m.logged(line)) << line;
  }
  static HBA_WWN wwn(uint64_t value) {
    HBA_WWN name;
    hcx::wwn_store(name.wwn, value);
    return name;
  }
  static uint64_t number(const HBA_WWN &name) { return hcx::wwn_load(name.wwn); }
  static std::string bytes_of(const void *from, size_t size) {
    return std::string(static_cast<const char *>(from), size);
  }

  sim::Machine m;
  sim::Installed installed{m};
};
