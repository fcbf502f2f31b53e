// SPDX-License-Identifier: BSD-3-Clause
// Terminal settings, signals and the few control sequences that all terminals of today know.
#include "screen.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <ostream>

#include "status.h"

namespace hcxadm {
namespace {

constexpr std::array caught = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGCONT, SIGWINCH};
std::array<struct sigaction, caught.size()> before;
termios settings;
bool settings_known = false;
int wake[2] = {-1, -1};

void on_signal(int number) {
  const int saved = errno;
  const auto byte = static_cast<unsigned char>(number);
  if (write(wake[1], &byte, 1) < 0) errno = saved;  // a full pipe wakes as well
  errno = saved;
}

void catch_signal(int number) {
  struct sigaction action = {};
  action.sa_handler = on_signal;
  action.sa_flags = SA_RESTART;  // a request on its way to the adapter is waited for
  sigemptyset(&action.sa_mask);
  sigaction(number, &action, nullptr);
}

}  // namespace

Screen::Screen(std::ostream &out, bool colour) : out_(out), colour_(colour) {
  if (pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0)
    throw Failure(
        {.status = kFailed, .tried = "making a pipe", .board = {}, .code = errno, .name = {}, .todo = {}});
  settings_known = tcgetattr(STDIN_FILENO, &settings) == 0;
  for (size_t i = 0; i < caught.size(); ++i) {
    sigaction(caught[i], nullptr, &before[i]);
    if (before[i].sa_handler != SIG_IGN) catch_signal(caught[i]);
  }
  enter();
}

Screen::~Screen() {
  leave();
  for (size_t i = 0; i < caught.size(); ++i)
    sigaction(caught[i], &before[i], nullptr);
  for (int &end : wake) {
    close(end);
    end = -1;
  }
}

// Another screen, without cursor and without wrapping long lines.
void Screen::enter() {
  if (settings_known) {
    termios raw = settings;
    raw.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    tcsetattr(STDIN_FILENO, TCSADRAIN, &raw);
  }
  out_ << "\033[?1049h\033[?25l\033[?7l\033[2J" << std::flush;
}

void Screen::leave() {
  out_ << "\033[0m\033[?7h\033[?25h\033[?1049l" << std::flush;
  if (settings_known) tcsetattr(STDIN_FILENO, TCSADRAIN, &settings);
}

// As if nobody had caught the signal; returns when the shell lets the process go on. The shell may have taken the
// terminal already, when another process of the job stopped first; that must not stop this one half-way.
void Screen::stop() {
  struct sigaction plain = {}, ignored = {}, output = {};
  sigemptyset(&plain.sa_mask);
  sigemptyset(&ignored.sa_mask);
  plain.sa_handler = SIG_DFL;
  ignored.sa_handler = SIG_IGN;
  sigaction(SIGTTOU, &ignored, &output);
  leave();
  sigaction(SIGTTOU, &output, nullptr);
  sigaction(SIGTSTP, &plain, nullptr);
  raise(SIGTSTP);
  catch_signal(SIGTSTP);
  enter();
}

ScreenSize Screen::size() {
  winsize window = {};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col > 0 && window.ws_row > 0)
    return {window.ws_col, window.ws_row};
  return {80, 24};
}

void Screen::draw(const std::vector<ScreenLine> &lines) {
  static constexpr const char *paints[] = {"", "\033[1m", "\033[31m"};
  std::string text = "\033[H";
  for (const ScreenLine &line : lines) {
    if (&line != &lines.front()) text += '\n';
    const char *paint = colour_ ? paints[static_cast<size_t>(line.paint)] : "";
    text.append(paint).append(line.text).append(*paint ? "\033[0m" : "").append("\033[K");
  }
  out_ << text << "\033[J" << std::flush;
}

int Screen::wait(double seconds) {
  pollfd polled[] = {{STDIN_FILENO, POLLIN, 0}, {wake[0], POLLIN, 0}};
  if (poll(polled, 2, static_cast<int>(std::ceil(seconds * 1000))) <= 0) return nothing;
  unsigned char byte = 0;
  if (polled[1].revents && read(wake[0], &byte, 1) == 1) {
    switch (byte) {
      case SIGTSTP:
        stop();
        return resized;
      case SIGCONT:  // after a stop that could not be caught, the shell has its own settings in place
        enter();
        return resized;
      case SIGWINCH:
        return resized;
      default:
        return ended;
    }
  }
  if (!polled[0].revents) return nothing;
  return read(STDIN_FILENO, &byte, 1) == 1 ? int{byte} : int{ended};  // a terminal that is gone
}

}  // namespace hcxadm
