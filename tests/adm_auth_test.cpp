// SPDX-License-Identifier: BSD-3-Clause
// "hcxadm auth": passwords on their way in, what the file holds afterwards, and what is said when it fails.
#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>

#include <iostream>

#include "auth_fixture.h"
#include "tool_fixture.h"

namespace {

using namespace auth_test;

constexpr char remote_name[] = "50:06:01:60:00:00:00:01";

class AdmAuth : public Auth, public Tool {
 protected:
  // A verb of "hcxadm auth"; @ stands for the remote port.
  int run(std::string line, const std::string &answers = "") {
    if (const size_t at = line.find('@'); at != std::string::npos) line.replace(at, 1, remote_name);
    testing::internal::CaptureStderr();  // the library's messages
    const int status = Tool::run("--output=json auth " + line, answers);
    err += testing::internal::GetCapturedStderr();
    return status;
  }
  nlohmann::json rows() { return nlohmann::json::parse(out)["data"]; }
};

TEST_F(AdmAuth, FromNothingToDeleted) {
  put(foreign);
  EXPECT_EQ(run("set 0 @ --timeout=5 --types=1,2 --yes"), 0) << err;
  EXPECT_TRUE(says("Adjusting Authentication Timeout to Minimum value."));
  EXPECT_EQ(file(), foreign + "CONFIG " + mine + "20 1 0 1:2:0:0 1:2:0:0 1:0:0:0:0:0:0:0 0\n");
  EXPECT_EQ(run("password 0 @ local --yes", "\nsecretsecret\n"), 0) << err;
  EXPECT_EQ(run("password 0 @ remote --yes --password-type=binary", "\n0102030405060708\n"), 0) << err;
  EXPECT_NE(file().find(password_line), std::string::npos);
  EXPECT_EQ(run("list 0"), 0);
  ASSERT_EQ(rows().size(), 1u) << out;
  EXPECT_EQ(rows()[0]["remote"], remote_name);
  EXPECT_EQ(rows()[0]["local_password"], "text");
  EXPECT_EQ(rows()[0]["remote_password"], "binary");
  EXPECT_FALSE(shows("secret"));
  EXPECT_EQ(run("delete 0 @ --yes", "secretsecret\n"), 0) << err;
  EXPECT_EQ(file(), foreign);
}

TEST_F(AdmAuth, RefusalsLeaveTheFileAlone) {
  const std::string whole = config_line + password_line, new_password = "password 0 @ local --yes";
  const struct {
    std::string line, answers;
    int status;
    const char *message;
  } rows[] = {
      {"show 0 5006016000000002", "", 3, "nothing stored"},
      {"show 0 fabrics", "", 2, "is no port name"},
      {"list 1", "", 1, "vosk_enable_auth"},
      {"set 0 fabric --types=6 --yes", "", 2, "ERROR:Unknown Authentication Type."},
      {"set 0 fabric --types=1,1,1,1,1 --yes", "", 2, "too many authentication types"},
      {"set 0 @ --mode=2", "n\n", 5, "not confirmed"},
      {"set 0 @ --mode=2 --yes", "\n", 5, "the password does not match"},
      {new_password, "secretsecret\n\n", 2, "no new password"},
      {new_password, "secretsecret\nshort\n", 2, "too short (5)"},
      {new_password, "secretsecret\na blank in it\n", 2, "character (2)"},
      {new_password, "secretsecret\n" + std::string("nul\0nulnul\n", 11), 2, "character (4)"},
      {new_password, "secretsecret\n" + std::string(129, 'x') + "\n", 2, "no password of the type"},
      {new_password, std::string(1000, 'x') + "\nsecretsecret\n", 2, "no password of the type"},
      {"delete 0 @ --yes", "wrongwrong\n", 5, "the password does not match"},
      {"delete 0 @ --yes --password-type=binary", "012\n", 2, "no password of the type"},
      {"delete 0 @ --yes --password-fd=250", "", 1, "from descriptor 250"},
      {"delete 0 @ --dry-run", "", 0, "would delete"},
  };
  for (const auto &row : rows) {
    put(whole);
    EXPECT_EQ(run(row.line, row.answers), row.status) << row.line << " " << err;
    EXPECT_TRUE(says(row.message)) << row.message << ": " << err;
    EXPECT_EQ(file(), whole);
    EXPECT_TRUE(nlohmann::json::accept(out)) << out;
  }
}

// The rest of an overlong line is not taken for the next password, and a person confirms what cannot be seen.
TEST_F(AdmAuth, PasswordsFromADescriptorAndTwice) {
  put(password_line);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const std::string lines = "secretsecret\nlocalpassword\nleft\n";
  ASSERT_EQ(write(ends[1], lines.data(), lines.size()), static_cast<ssize_t>(lines.size()));
  const std::string fd = "--password-fd=" + std::to_string(ends[0]);
  EXPECT_EQ(run("password 0 @ local --yes " + fd), 0) << err;
  EXPECT_EQ(file(), "PASSWORD " + mine + "1 localpassword 2 0102030405060708\n");
  char left[5];
  EXPECT_EQ(read(ends[0], left, sizeof left), 5);  // for the next command
  close(ends[0]);
  close(ends[1]);
  terminal = {.in = true, .err = true};
  EXPECT_EQ(run("password 0 @ local --yes", "localpassword\nsecond-one\nsecond.one\n"), 2);
  EXPECT_TRUE(says("not the same")) << err;
  EXPECT_EQ(run("password 0 @ local --yes", "localpassword\nsecond-one\nsecond-one\n"), 0) << err;
  EXPECT_EQ(file(), "PASSWORD " + mine + "1 second-one 2 0102030405060708\n");
}

TEST_F(AdmAuth, StatusAndStart) {
  m.host(3)->set_scsi("auth_state", "Failed - LS_RJT");
  EXPECT_EQ(run("status 0"), 0) << err;
  EXPECT_EQ(rows()[0]["state"], "failed");
  EXPECT_EQ(rows()[0]["reason"], "LS_RJT");
  EXPECT_EQ(rows()[0]["since_s"], nullptr);
  EXPECT_EQ(run("start 0 fabric --yes"), 0) << err;
  EXPECT_EQ(run("status 0"), 0);
  EXPECT_EQ(rows()[0]["state"], "not authenticated");  // nothing is configured
  EXPECT_EQ(run("start 0 0000000000000123 --yes"), 1);
}

bool echoes(int terminal_fd) {
  termios state = {};
  return tcgetattr(terminal_fd, &state) == 0 && (state.c_lflag & ECHO) != 0;
}

// Ctrl-C at the prompt ends the program as ever, with the terminal as it was.
TEST_F(AdmAuth, InterruptedPromptPutsTheEchoBack) {
  put(password_line);
  int master = -1, slave = -1;
  ASSERT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
  const pid_t child = fork();
  if (child == 0) {
    login_tty(slave);
    hcxadm::run({"auth", "delete", "0", remote_name, "--yes"}, std::cin, std::cout, std::cerr,
                {.in = true, .out = true, .err = true});
    _exit(0);
  }
  std::string shown;
  for (char c; shown.find(": ") == std::string::npos && read(master, &c, 1) == 1;)
    shown += c;
  EXPECT_NE(shown.find("Current local password"), std::string::npos) << shown;
  // The echo goes just behind the prompt.
  while (echoes(slave) && waitpid(child, nullptr, WNOHANG) == 0) {
  }
  EXPECT_EQ(write(master, "typed\x03", 6), 6);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << status;
  EXPECT_TRUE(echoes(slave));
  close(slave);
  close(master);
}

}  // namespace
