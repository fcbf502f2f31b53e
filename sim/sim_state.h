// SPDX-License-Identifier: BSD-3-Clause
// Files of a state folder: state.json (written attributes and the hosts' state), state.lock (held while one
// process changes it), locks/ (one file per locked attribute), root/ (plain files) and syslog.
#pragma once

#include <string>

#include "sim_machine.h"

namespace sim {

// Held around a change: takes the folder's lock, loads what others changed, and writes back at the end.
class Machine::StateLock {
 public:
  explicit StateLock(Machine &machine);
  ~StateLock();
  StateLock(const StateLock &) = delete;
  StateLock &operator=(const StateLock &) = delete;

 private:
  Machine &machine_;
  int fd_ = -1;
};

int open_lock_file(const std::string &folder, Vfs &vfs, const std::string &path);
void append_line(const std::string &file, const std::string &line);

}  // namespace sim
