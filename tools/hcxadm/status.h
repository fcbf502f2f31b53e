// SPDX-License-Identifier: BSD-3-Clause
// How things end: exit statuses, the library's status numbers by family, and the one-line error message.
#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>

namespace hcxadm {

// Exit statuses; part of the interface, described in the man page.
enum ExitStatus {
  kDone = 0,
  kFailed = 1,
  kUsage = 2,
  kNoSuch = 3,        // no such board or object
  kNotSupported = 4,  // by the adapter or the driver
  kRefused = 5,       // permission, static object, not confirmed
  kBusy = 6,          // busy or timed out
};

// What a status number means depends on the call it came from.
enum class Family {
  hba,           // calls shaped after the common HBA API
  scsi,          // SCSI and FCP pass-through
  vendor,        // HCX_ calls
  mailbox,       // adapter mailbox status
  fcsp,          // authentication
  vport,         // virtual ports
  vport_create,  // making one
  sd,            // SAN diagnostics
  sys,           // errno, positive or negated
};

// "not supported"; "unknown status" for a number that the family does not have.
std::string status_name(Family family, int64_t code);
ExitStatus exit_status(Family family, int64_t code);

struct Problem {
  ExitStatus status = kFailed;
  std::string tried;            // "reading the remote ports"
  std::string board;            // "board 0 (host3)", empty: no particular one
  std::optional<int64_t> code;  // what came back
  std::string name;             // its name, or the reason in words
  std::string todo;             // what to do about it, may be empty
};

// "board 0 (host3): reading the remote ports: not supported (2); load a newer driver"
std::string text_of(const Problem &problem);

class Failure : public std::exception {
 public:
  explicit Failure(Problem problem) : problem_(std::move(problem)), text_(text_of(problem_)) {}
  const Problem &problem() const { return problem_; }
  const char *what() const noexcept override { return text_.c_str(); }

 private:
  Problem problem_;
  std::string text_;
};

// The failure for a status number that a call returned.
Failure call_failure(Family family, int64_t code, std::string tried, std::string board,
                     std::string todo = {});

}  // namespace hcxadm
