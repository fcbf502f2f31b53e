// SPDX-License-Identifier: BSD-3-Clause
// Reading passwords. While one is typed the terminal does not echo; a signal that ends the program puts the
// terminal's state back first. One reader at a time.
#include "password.h"

#include <errno.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <limits>

namespace hcxadm {
namespace {

constexpr std::array ending_signals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
termios before_quiet;

// The default action of the signal follows: SA_RESETHAND has taken the handler away.
void put_back_and_end(int number) {
  tcsetattr(STDIN_FILENO, TCSANOW, &before_quiet);
  raise(number);
}

class NoEcho {
 public:
  explicit NoEcho(bool wanted) {
    on_ = wanted && tcgetattr(STDIN_FILENO, &before_quiet) == 0;
    if (!on_) return;
    struct sigaction action = {};
    action.sa_handler = put_back_and_end;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    for (size_t i = 0; i < ending_signals.size(); ++i) {
      sigaction(ending_signals[i], nullptr, &saved_[i]);
      if (saved_[i].sa_handler != SIG_IGN) sigaction(ending_signals[i], &action, nullptr);
    }
    termios quiet = before_quiet;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
  }
  NoEcho(const NoEcho &) = delete;
  NoEcho &operator=(const NoEcho &) = delete;
  ~NoEcho() {
    if (!on_) return;
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_quiet);
    for (size_t i = 0; i < ending_signals.size(); ++i)
      sigaction(ending_signals[i], &saved_[i], nullptr);
  }

 private:
  bool on_;
  std::array<struct sigaction, ending_signals.size()> saved_{};
};

Failure refusal(const std::string &tried, const std::string &todo) {
  return Failure({.status = kUsage, .tried = tried, .board = {}, .code = {}, .name = {}, .todo = todo});
}

int hex_digit(char c) {
  static constexpr char digits[] = "0123456789abcdef0123456789ABCDEF";
  const char *found = c ? strchr(digits, c) : nullptr;
  return found ? static_cast<int>((found - digits) % 16) : -1;
}

bool hex_to_bytes(const char *text, size_t digits, AUTH_PASSWD_INFO &password) {
  if (digits % 2 || digits / 2 > sizeof(password.password)) return false;
  for (size_t i = 0; i < digits / 2; ++i) {
    const int high = hex_digit(text[2 * i]);
    const int low = hex_digit(text[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    password.password[i] = static_cast<char>(high << 4 | low);
  }
  password.length = static_cast<uint16_t>(digits / 2);
  return true;
}

}  // namespace

void add_password_options(CLI::App &verb, const std::shared_ptr<PasswordOptions> &options) {
  verb.add_option("--password-fd", options->fd, "Read passwords, a line each, from this descriptor")
      ->check(CLI::NonNegativeNumber)
      ->type_name("N");
  verb.add_option("--password-type", options->type, "text, or binary as hexadecimal digits")
      ->check(CLI::IsMember({"text", "binary"}))
      ->type_name("TYPE");
}

Passwords::Passwords() {
  for (AUTH_PASSWD_INFO *password : {&record.current_local_passwd, &record.current_remote_passwd,
                                     &record.new_local_passwd, &record.new_remote_passwd})
    password->type = HCX_AUTH_PASSWD_IGNORE;
}

Passwords::~Passwords() {
  explicit_bzero(&record, sizeof(record));
}

// A line as typed, wiped when it goes; long enough for 128 bytes as digits. What does not fit is read but not kept.
struct PasswordReader::Line {
  Line() = default;
  Line(const Line &) = delete;
  Line &operator=(const Line &) = delete;
  ~Line() { explicit_bzero(text, sizeof(text)); }
  void add(char c) {
    if (length < sizeof(text)) {
      text[length++] = c;
    } else {
      too_long = true;
    }
  }
  char text[256] = {};
  size_t length = 0;
  bool too_long = false;
};

PasswordReader::PasswordReader(Context &ctx, const PasswordOptions &options)
    : ctx_(ctx), options_(options), asking_(options.fd < 0 && ctx.terminal.in) {
  if (&ctx.in == &std::cin) setvbuf(stdin, nullptr, _IONBF, 0);
}

void PasswordReader::read_line(const std::string &prompt, Line &line) {
  if (options_.fd > 0) {
    for (char c;;) {
      const ssize_t got = ::read(options_.fd, &c, 1);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0)
        throw call_failure(Family::sys, errno,
                           "reading a password from descriptor " + std::to_string(options_.fd), {}, "");
      if (got == 0 || c == '\n') return;
      line.add(c);
    }
  }
  if (asking_) ctx_.err << prompt << ": " << std::flush;
  const NoEcho quiet(asking_);
  for (int c; (c = ctx_.in.get()) != std::istream::traits_type::eof() && c != '\n';)
    line.add(static_cast<char>(c));
  if (asking_) ctx_.err << '\n';
}

void PasswordReader::read(const std::string &prompt, AUTH_PASSWD_INFO &password) {
  Line line;
  read_line(prompt, line);
  password = {};
  password.type = HCX_AUTH_PASSWD_IGNORE;
  if (line.length == 0) return;
  const bool binary = options_.type == "binary";
  if (!line.too_long && binary && hex_to_bytes(line.text, line.length, password)) {
    password.type = HCX_AUTH_PASSWD_BINARY;
    return;
  }
  if (!line.too_long && !binary && line.length <= sizeof(password.password)) {
    password.type = HCX_AUTH_PASSWD_TEXT;
    password.length = static_cast<uint16_t>(line.length);
    memcpy(password.password, line.text, line.length);
    return;
  }
  throw refusal("that is no password of the type \"" + options_.type + "\"",
                "8 to 128 bytes; a binary one as pairs of hexadecimal digits");
}

void PasswordReader::read_new(const std::string &prompt, AUTH_PASSWD_INFO &password) {
  read(prompt, password);
  if (password.type == HCX_AUTH_PASSWD_IGNORE) throw refusal("no new password was given", {});
  if (!asking_) return;
  Passwords again;
  read(prompt + " again", again.record.new_local_passwd);
  if (memcmp(&password, &again.record.new_local_passwd, sizeof(password)) != 0)
    throw refusal("the two new passwords are not the same", {});
}

}  // namespace hcxadm
