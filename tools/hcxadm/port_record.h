// SPDX-License-Identifier: BSD-3-Clause
// When ports were last seen up and first seen down. The kernel does not tell, so every command that looks at all ports
// notes it in a file of the run-time folder; who may not write there only reads. The file goes with a reboot.
#pragma once

#include <map>
#include <optional>
#include <string>

namespace hcxadm {

class PortRecord {
 public:
  struct Times {  // as "2026-11-21T08:30:00.125Z"
    std::optional<std::string> last_up;
    std::optional<std::string> down_since;  // absent while the port is up
  };
  // Reads the file; one that is missing or damaged is empty.
  explicit PortRecord(std::string folder);
  // Notes what was seen of a port, by a name that lasts.
  const Times &see(const std::string &port, bool up, const std::string &now);
  // Replaces the file as a whole. False: not allowed or not possible.
  bool save() const;

 private:
  const std::string folder_;
  std::map<std::string, Times> ports_;
};

// HCXADM_RUN_DIR, else /run/hcxadm.
std::string run_folder();

}  // namespace hcxadm
