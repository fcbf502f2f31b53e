// SPDX-License-Identifier: BSD-3-Clause
// State that several processes share. A change is made under an exclusive lock on state.lock, after loading
// what the others wrote, and appears at once by renaming a new state.json over the old; readers look at its
// time stamp before each call and need no lock. Without a folder the same JSON lives in memory only.
#include "sim_state.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace sim {

namespace fs = std::filesystem;
using nlohmann::json;

Machine::StateLock::StateLock(Machine &machine) : machine_(machine) {
  if (machine_.folder_.empty() || machine_.state_depth_++ != 0) return;
  fd_ = ::open((machine_.folder_ + "/state.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (fd_ < 0) return;
  while (::flock(fd_, LOCK_EX) != 0 && errno == EINTR) {
  }
  machine_.reload_if_changed();
}

Machine::StateLock::~StateLock() {
  if (machine_.folder_.empty() || --machine_.state_depth_ != 0) return;
  try {
    if (machine_.dirty_) machine_.save();
  } catch (const std::exception &) {
    // The folder has gone or is full: the process goes on with what it has in memory.
  }
  if (fd_ >= 0) ::close(fd_);
}

json &Machine::state() {
  return *state_;
}

void Machine::save() {
  const std::lock_guard guard(mutex_);
  dirty_ = false;
  if (folder_.empty()) return;
  const std::string file = folder_ + "/state.json";
  const std::string fresh = file + "." + std::to_string(::getpid());
  {
    std::ofstream out(fresh, std::ios::trunc);
    out << state_->dump(1) << '\n';
    if (!out.flush()) throw std::runtime_error("cannot write " + fresh);
  }
  fs::rename(fresh, file);
  struct stat now;
  if (::stat(file.c_str(), &now) == 0) {
    state_stamp_[0] = now.st_mtim.tv_sec;
    state_stamp_[1] = now.st_mtim.tv_nsec;
    state_stamp_[2] = static_cast<int64_t>(now.st_ino);
  }
}

void Machine::change(const std::function<void()> &body) {
  const std::lock_guard guard(mutex_);
  fill();
  const StateLock state_lock(*this);
  body();
  touch();
}

void Machine::reload_if_changed() {
  if (folder_.empty()) return;
  struct stat now;
  if (::stat((folder_ + "/state.json").c_str(), &now) != 0) return;
  if (now.st_mtim.tv_sec == state_stamp_[0] && now.st_mtim.tv_nsec == state_stamp_[1] &&
      static_cast<int64_t>(now.st_ino) == state_stamp_[2]) {
    return;
  }
  state_stamp_[0] = now.st_mtim.tv_sec;
  state_stamp_[1] = now.st_mtim.tv_nsec;
  state_stamp_[2] = static_cast<int64_t>(now.st_ino);
  load_state();
}

void Machine::load_state() {
  std::ifstream in(folder_ + "/state.json");
  json loaded = json::parse(in, nullptr, false);
  if (loaded.is_discarded() || !loaded.is_object()) return;
  *state_ = std::move(loaded);
  dirty_ = false;
  for (auto &hook : reload_hooks_)
    hook();
  apply_texts();
}

void Machine::apply_texts() {
  const auto texts = state_->find("texts");
  if (texts == state_->end() || !texts->is_object()) return;
  for (const auto &[path, text] : texts->items()) {
    if (auto node = vfs_.find(path); node && node->kind == NodeKind::text && text.is_string()) {
      node->data = text.get<std::string>();
    }
  }
}

void Machine::use_state(const std::string &folder) {
  const std::lock_guard guard(mutex_);
  for (const char *dir : {"/locks", "/root/tmp", "/root/etc", "/root/var/run"}) {
    fs::create_directories(folder + dir);
  }
  folder_ = folder;
  const StateLock lock(*this);
  if (!fs::exists(folder_ + "/state.json")) {
    seed_plain_files();
    save();
  }
}

// A new folder begins with the plain files that the machine was made with.
void Machine::seed_plain_files() {
  for (const std::string &name : vfs_.names("/etc")) {
    const std::string path = "/etc/" + name;
    const int fd = open_plain(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
    if (fd < 0) continue;
    const std::string text = vfs_.text(path);
    if (::write(fd, text.data(), text.size()) < 0) fs::remove(plain_path(path));
    ::close(fd);
  }
}

std::string Machine::plain_text(const std::string &path) {
  if (folder_.empty()) return vfs_.text(path);
  std::ifstream in(plain_path(path));
  return {std::istreambuf_iterator<char>(in), {}};
}

void Machine::set_text(const std::string &path, const std::string &text) {
  const std::lock_guard guard(mutex_);
  std::string canonical;
  auto node = vfs_.find(path, true, nullptr, &canonical);
  if (!node) throw std::invalid_argument("no simulated file " + path);
  node->data = text;
  (*state_)["texts"][canonical] = text;
  dirty_ = true;
}

json &Host::state() {
  json &mine = machine_.state()["hosts"][std::to_string(number())];
  if (!mine.is_object()) mine = json::object();
  return mine;
}

// Everything outside /sys and /dev is a plain file.
std::string Machine::plain_path(std::string_view path) const {
  if (path.starts_with("/sys/") || path.starts_with("/dev/") || path.find("..") != std::string_view::npos)
    return {};
  return folder_ + "/root" + std::string(path);
}

int Machine::open_plain(const char *path, int flags, mode_t mode) {
  const int fd = ::open(plain_path(path).c_str(), flags | O_CLOEXEC, mode);
  return fd < 0 ? -errno : fd;
}

int open_lock_file(const std::string &folder, Vfs &vfs, const std::string &path) {
  std::string canonical;
  if (!vfs.find(path, true, nullptr, &canonical)) return -ENOENT;
  std::replace(canonical.begin(), canonical.end(), '/', '!');
  return ::open((folder + "/locks/" + canonical).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
}

void append_line(const std::string &file, const std::string &line) {
  std::ofstream(file, std::ios::app) << line << '\n';
}

}  // namespace sim
