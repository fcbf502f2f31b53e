// SPDX-License-Identifier: BSD-3-Clause
// Passwords of the operator: asked for without echo, or read from a descriptor, never from the command line; every
// copy is wiped after use.
#pragma once

#include <memory>
#include <string>

#include "hcxadm.h"

namespace hcxadm {

struct PasswordOptions {
  int fd = -1;  // none: standard input
  std::string type = "text";
};
void add_password_options(CLI::App &verb, const std::shared_ptr<PasswordOptions> &options);

// The passwords of one change, wiped at the end. "Not set" until they are read.
struct Passwords {
  Passwords();
  Passwords(const Passwords &) = delete;
  Passwords &operator=(const Passwords &) = delete;
  ~Passwords();

  KRX_AUTH_PASSWD record{};
};

// Make one before anything is read from standard input: it sees to it that no secret stays in the buffer of the C
// library. Lives for one command.
class PasswordReader {
 public:
  PasswordReader(Context &ctx, const PasswordOptions &options);
  // An empty line is "not set". Throws Failure.
  void read(const std::string &prompt, AUTH_PASSWD_INFO &password);
  // A person who cannot see it types a new one twice.
  void read_new(const std::string &prompt, AUTH_PASSWD_INFO &password);

 private:
  struct Line;
  void read_line(const std::string &prompt, Line &line);

  Context &ctx_;
  const PasswordOptions &options_;
  bool asking_;
};

}  // namespace hcxadm
