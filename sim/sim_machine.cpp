// SPDX-License-Identifier: BSD-3-Clause
// The verbs of the simulated machine: descriptors, permission rules of sysfs, file locks, faults and records.
// The rules are those of kernfs: one store per write(2) whatever the offset, texts made at the first read,
// binary attributes bounded by their size, permission bits that bind the superuser too. Any thread; one
// recursive mutex.
#include "sim_machine.h"

#include <scsi/sg.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "sim_areas.h"
#include "sim_state.h"

namespace sim {

namespace {
// Far from what the process itself opens: a descriptor of the one world means nothing in the other.
constexpr int kFirstFd = 1000;
constexpr size_t kPage = 4096;

bool wants_read(int flags) {
  return (flags & O_ACCMODE) != O_WRONLY;
}
bool wants_write(int flags) {
  return (flags & O_ACCMODE) != O_RDONLY;
}
}  // namespace

Machine::Machine() : bsg_(*this), state_(std::make_unique<nlohmann::json>(nlohmann::json::object())) {
  for (const char *dir : {"/sys/class/scsi_host", "/sys/class/scsi_device", "/sys/class/scsi_generic",
                          "/sys/devices", "/sys/bus/pci/drivers", "/dev/bsg", "/tmp", "/etc", "/var/run"}) {
    vfs_.put_dir(dir);
  }
  vfs_.put_device("/dev/voskmgmt", 0600);
  generation(2);
  install_areas(*this);
}

Machine::~Machine() {
  for (auto &open_file : files_) {
    if (!open_file) continue;
    if (open_file->lock_fd >= 0) ::close(open_file->lock_fd);
    if (open_file->real_fd >= 0) ::close(open_file->real_fd);
  }
}

void Machine::generation(int value) {
  const std::lock_guard guard(mutex_);
  if (!hosts_.empty()) throw std::logic_error("the sysfs generation is set before hosts are added");
  generation_ = value;
  for (const char *name : {"fc_host", "fc_remote_ports", "fc_vports", "fc_transport", "scsi_disk", "bsg"}) {
    const std::string dir = std::string("/sys/class/") + name;
    const bool wanted = dir.ends_with("fc_vports") ? has_vport_class()
                                                   : value >= 2 || dir.ends_with("fc_transport") ||
                                                         (value >= 1 && dir.ends_with("fc_host"));
    if (wanted) {
      vfs_.put_dir(dir);
    } else {
      vfs_.remove(dir);
    }
  }
}

void Machine::vport_class(bool value) {
  vport_class_ = value;
  generation(generation_);
}

void Machine::driver_version(uint32_t major, uint32_t minor) {
  driver_major_ = major;
  driver_minor_ = minor;
}

Host &Machine::add_host(HostSpec spec) {
  const std::lock_guard guard(mutex_);
  hosts_.push_back(std::make_unique<Host>(*this, std::move(spec), nullptr, nullptr));
  Host &host = *hosts_.back();
  for (auto &hook : host_hooks_)
    hook(host);
  return host;
}

void Machine::remove_host(int number) {
  const std::lock_guard guard(mutex_);
  auto it = std::find_if(hosts_.begin(), hosts_.end(), [&](auto &h) { return h->number() == number; });
  if (it == hosts_.end()) return;
  for (Host *vport : (*it)->vports())
    remove_host(vport->number());
  it = std::find_if(hosts_.begin(), hosts_.end(), [&](auto &h) { return h->number() == number; });
  (*it)->unbuild();
  hosts_.erase(it);
}

Host *Machine::host(int number) {
  const std::lock_guard guard(mutex_);
  for (auto &host : hosts_) {
    if (host->number() == number) return host.get();
  }
  return nullptr;
}

bool Machine::is_there(const Host *host) {
  const std::lock_guard guard(mutex_);
  return std::any_of(hosts_.begin(), hosts_.end(), [&](auto &h) { return h.get() == host; });
}

std::vector<Host *> Machine::hosts() {
  const std::lock_guard guard(mutex_);
  std::vector<Host *> all;
  for (auto &host : hosts_)
    all.push_back(host.get());
  return all;
}

void Machine::on_host(std::function<void(Host &)> hook) {
  const std::lock_guard guard(mutex_);
  for (auto &host : hosts_)
    hook(*host);
  host_hooks_.push_back(std::move(hook));
}

void Machine::fail(Fault fault) {
  const std::lock_guard guard(mutex_);
  faults_.push_back({std::move(fault), 0});
}

void Machine::fail_nth(int n, bool persistent, int error) {
  fail(
      {.verb = Verb::any, .path = {}, .nth = n, .persistent = persistent, .error = error, .short_count = {}});
}

void Machine::clear_faults() {
  const std::lock_guard guard(mutex_);
  faults_.clear();
  fault_hit_ = false;
}

void Machine::fill() {
  if (!fill_) return;
  const auto run = std::move(fill_);
  fill_ = nullptr;
  run();
}

int Machine::enter(Verb verb, std::string_view path, size_t *limit) {
  fill();
  calls_[0]++;
  calls_[static_cast<size_t>(verb)]++;
  for (auto &armed : faults_) {
    const Fault &fault = armed.fault;
    if (fault.verb != Verb::any && fault.verb != verb) continue;
    if (!fault.path.empty() && path.find(fault.path) == std::string_view::npos) continue;
    armed.seen++;
    if (armed.seen != fault.nth && !(fault.persistent && armed.seen > fault.nth)) continue;
    fault_hit_ = true;
    if (fault.kill) ::_exit(9);
    if (!fault.short_count) return -fault.error;
    if (limit != nullptr) *limit = std::min(*limit, *fault.short_count);
  }
  return 0;
}

OpenFile *Machine::file(int fd) {
  const auto index = static_cast<size_t>(fd - kFirstFd);
  if (fd < kFirstFd || index >= files_.size()) return nullptr;
  return files_[index].get();
}

// Sysfs refuses what the mode bits do not offer to anybody, also to the superuser.
int Machine::permitted(const Node &node, int flags) const {
  const mode_t mode = node.mode;
  const mode_t read_bits = superuser ? 0444 : 0004;
  const mode_t write_bits = superuser ? 0222 : 0002;
  const bool binds = node.sysfs || !superuser;
  if (!binds) return 0;
  if (wants_read(flags) && (mode & read_bits) == 0) return -EACCES;
  if (wants_write(flags) && (mode & write_bits) == 0) return -EACCES;
  return 0;
}

int Machine::open(const char *path, int flags, mode_t mode) {
  const std::lock_guard guard(mutex_);
  if (const int rc = enter(Verb::open, path); rc != 0) return rc;
  reload_if_changed();
  auto opened = std::make_unique<OpenFile>();
  opened->path = path;
  opened->flags = flags;
  if (!folder_.empty() && !plain_path(path).empty()) {
    opened->real_fd = open_plain(path, flags, mode);
    if (opened->real_fd < 0) return opened->real_fd;
  } else {
    int error = 0;
    opened->node = vfs_.find(path, (flags & O_NOFOLLOW) == 0, &error);
    if (!opened->node && error == ENOENT && (flags & O_CREAT) != 0) {
      const std::string_view whole(path);
      const size_t slash = whole.rfind('/');
      auto dir =
          slash == std::string_view::npos ? nullptr : vfs_.find(slash == 0 ? "/" : whole.substr(0, slash));
      if (!dir || slash + 1 == whole.size()) return -ENOENT;
      if (dir->kind != NodeKind::dir) return -ENOTDIR;
      if (dir->sysfs || !superuser) return -EACCES;
      vfs_.put_text(path, "", mode);
      opened->node = vfs_.find(path);
    } else if (!opened->node) {
      return -error;
    } else if ((flags & (O_CREAT | O_EXCL)) == (O_CREAT | O_EXCL)) {
      return -EEXIST;
    }
    Node &node = *opened->node;
    if (node.kind == NodeKind::link) return -ELOOP;
    if (node.kind == NodeKind::dir && wants_write(flags)) return -EISDIR;
    if (node.kind != NodeKind::dir && (flags & O_DIRECTORY) != 0) return -ENOTDIR;
    if (const int rc = permitted(node, flags); rc != 0) return rc;
    if ((flags & O_TRUNC) != 0 && !node.sysfs && node.kind == NodeKind::text) node.data.clear();
  }
  auto slot = std::find(files_.begin(), files_.end(), nullptr);
  if (slot == files_.end()) slot = files_.insert(files_.end(), nullptr);
  opened->fd = kFirstFd + static_cast<int>(slot - files_.begin());
  *slot = std::move(opened);
  return (*slot)->fd;
}

int Machine::close(int fd) {
  const std::lock_guard guard(mutex_);
  OpenFile *opened = file(fd);
  const int rc = enter(Verb::close, opened != nullptr ? opened->path : "");
  if (opened == nullptr) return -EBADF;
  release_locks(fd, opened->node.get());
  if (opened->lock_fd >= 0) ::close(opened->lock_fd);
  if (opened->real_fd >= 0) ::close(opened->real_fd);
  files_[static_cast<size_t>(fd - kFirstFd)].reset();
  return rc;
}

ssize_t Machine::read(int fd, void *buf, size_t count) {
  const std::lock_guard guard(mutex_);
  OpenFile *opened = file(fd);
  if (const int rc = enter(Verb::read, opened != nullptr ? opened->path : "", &count); rc != 0) return rc;
  if (opened == nullptr || !wants_read(opened->flags)) return -EBADF;
  if (opened->real_fd >= 0) {
    const ssize_t got = ::read(opened->real_fd, buf, count);
    return got < 0 ? -errno : got;
  }
  Node &node = *opened->node;
  if (node.removed && (node.sysfs || node.kind == NodeKind::device)) return -ENODEV;
  if (node.kind == NodeKind::dir) return -EISDIR;
  if (node.kind == NodeKind::device) return -EINVAL;
  const auto offset = static_cast<size_t>(opened->position);
  if (node.handlers && node.handlers->read_at) {
    if (node.size >= 0) {
      if (opened->position >= node.size) return 0;
      count = std::min(count, static_cast<size_t>(node.size) - offset);
    }
    const ssize_t got = node.handlers->read_at(offset, buf, count);
    if (got > 0) opened->position += got;
    return got;
  }
  if (node.kind == NodeKind::text && opened->position == 0) {
    opened->snapshot.clear();
    if (node.handlers && node.handlers->show) {
      if (const int rc = node.handlers->show(opened->snapshot); rc != 0) return rc;
    } else {
      opened->snapshot = node.data;
    }
  }
  const std::string &source = node.kind == NodeKind::text && node.sysfs ? opened->snapshot : node.data;
  if (offset >= source.size()) return 0;
  count = std::min(count, source.size() - offset);
  if (count != 0) std::memcpy(buf, source.data() + offset, count);
  opened->position += static_cast<off_t>(count);
  return static_cast<ssize_t>(count);
}

ssize_t Machine::write(int fd, const void *buf, size_t count) {
  const std::lock_guard guard(mutex_);
  OpenFile *opened = file(fd);
  size_t limit = count;
  if (const int rc = enter(Verb::write, opened != nullptr ? opened->path : "", &limit); rc != 0) {
    if (opened != nullptr && opened->real_fd < 0 && folder_.empty())
      writes_.push_back({opened->path, std::string(static_cast<const char *>(buf), count)});
    return rc;
  }
  if (opened == nullptr || !wants_write(opened->flags)) return -EBADF;
  if (opened->real_fd >= 0) {
    const ssize_t put = ::write(opened->real_fd, buf, limit);
    return put < 0 ? -errno : put;
  }
  if (limit == 0) return 0;
  if (folder_.empty()) writes_.push_back({opened->path, std::string(static_cast<const char *>(buf), limit)});
  const StateLock state_lock(*this);
  return write_node(*opened, buf, limit);
}

ssize_t Machine::write_node(OpenFile &opened, const void *buf, size_t count) {
  const std::shared_ptr<Node> keep = opened.node;  // a store may remove its own attribute
  Node &node = *keep;
  if (node.removed && (node.sysfs || node.kind == NodeKind::device)) return -ENODEV;
  if (node.kind == NodeKind::device) return -EINVAL;
  const auto *bytes = static_cast<const char *>(buf);
  if (node.kind == NodeKind::text && node.sysfs) {
    count = std::min(count, kPage);
    const std::string text(bytes, count);
    if (node.handlers && node.handlers->store) {
      if (const int rc = node.handlers->store(text); rc < 0) return rc;
    } else if ((node.mode & 0444) != 0) {
      set_text(opened.path, text.ends_with('\n') ? text : text + "\n");
    }
    return static_cast<ssize_t>(count);
  }
  auto offset = static_cast<size_t>(opened.position);
  if (node.size >= 0) {
    if (opened.position >= node.size) return 0;
    count = std::min(count, static_cast<size_t>(node.size) - offset);
  }
  if (node.handlers && node.handlers->write_at) {
    const ssize_t put = node.handlers->write_at(offset, buf, count);
    if (put > 0) opened.position += put;
    return put;
  }
  if ((opened.flags & O_APPEND) != 0) offset = node.data.size();
  if (node.data.size() < offset + count) node.data.resize(offset + count);
  node.data.replace(offset, count, bytes, count);
  opened.position = static_cast<off_t>(offset + count);
  return static_cast<ssize_t>(count);
}

off_t Machine::seek(int fd, off_t offset) {
  const std::lock_guard guard(mutex_);
  OpenFile *opened = file(fd);
  if (const int rc = enter(Verb::seek, opened != nullptr ? opened->path : ""); rc != 0) return rc;
  if (opened == nullptr) return -EBADF;
  if (offset < 0) return -EINVAL;
  if (opened->real_fd >= 0) {
    const off_t at = ::lseek(opened->real_fd, offset, SEEK_SET);
    return at < 0 ? -errno : at;
  }
  if (opened->node->kind == NodeKind::device) return -ESPIPE;
  opened->position = offset;
  return offset;
}

int64_t Machine::stat(const char *path, mode_t *mode) {
  const std::lock_guard guard(mutex_);
  if (const int rc = enter(Verb::stat, path); rc != 0) return rc;
  reload_if_changed();
  if (const std::string real = folder_.empty() ? "" : plain_path(path); !real.empty()) {
    struct stat found;
    if (::stat(real.c_str(), &found) != 0) return -errno;
    if (mode != nullptr) *mode = found.st_mode;
    return found.st_size;
  }
  int error = 0;
  auto node = vfs_.find(path, true, &error);
  if (!node) return -error;
  if (mode != nullptr) *mode = node->stat_mode();
  return node->stat_size();
}

int Machine::fstat(int fd, mode_t *mode, nlink_t *links) {
  const std::lock_guard guard(mutex_);
  OpenFile *opened = file(fd);
  if (const int rc = enter(Verb::fstat, opened != nullptr ? opened->path : ""); rc != 0) return rc;
  if (opened == nullptr) return -EBADF;
  if (opened->real_fd >= 0) {
    struct stat found;
    if (::fstat(opened->real_fd, &found) != 0) return -errno;
    *mode = found.st_mode;
    if (links != nullptr) *links = found.st_nlink;
    return 0;
  }
  *mode = opened->node->stat_mode();
  if (links != nullptr) *links = opened->node->links;
  return 0;
}

int Machine::truncate(int fd, off_t size) {
  const std::lock_guard guard(mutex_);
  OpenFile *opened = file(fd);
  if (const int rc = enter(Verb::truncate, opened != nullptr ? opened->path : ""); rc != 0) return rc;
  if (opened == nullptr) return -EBADF;
  if (size < 0 || !wants_write(opened->flags)) return -EINVAL;
  if (opened->real_fd >= 0) return ::ftruncate(opened->real_fd, size) != 0 ? -errno : 0;
  Node &node = *opened->node;
  if (node.kind != NodeKind::text && node.kind != NodeKind::binary) return -EINVAL;
  if (!node.sysfs) node.data.resize(static_cast<size_t>(size));
  return 0;
}

void Machine::look(std::string_view path) {
  if (!awaiting_) return;
  const StateLock state_lock(*this);
  awaiting_ = false;
  for (auto &hook : look_hooks_)
    awaiting_ |= hook(path);
}

int Machine::list(const char *path, const char *prefix, std::vector<std::string> &names) {
  const std::lock_guard guard(mutex_);
  if (const int rc = enter(Verb::list, path); rc != 0) return rc;
  reload_if_changed();
  look(path);
  int error = 0;
  auto node = vfs_.find(path, true, &error);
  if (!node) return -error;
  if (node->kind != NodeKind::dir) return -ENOTDIR;
  node->fill();
  const std::string_view wanted = prefix != nullptr ? prefix : "";
  for (const auto &[key, entry] : node->children) {
    if (std::string_view(key.second).starts_with(wanted)) names.push_back(key.second);
  }
  return 0;
}

ssize_t Machine::read_link(const char *path, char *buf, size_t size) {
  const std::lock_guard guard(mutex_);
  if (const int rc = enter(Verb::read_link, path); rc != 0) return rc;
  reload_if_changed();
  int error = 0;
  auto node = vfs_.find(path, false, &error);
  if (!node) return -error;
  if (node->kind != NodeKind::link || size == 0) return -EINVAL;
  const size_t length = std::min(size, node->data.size());
  std::memcpy(buf, node->data.data(), length);
  return static_cast<ssize_t>(length);
}

// A directory may have gone since it was opened, and its name may mean another one now.
std::string Machine::below(int dir, const char *name) {
  const OpenFile *opened = file(dir);
  if (!opened || !opened->node || opened->node->removed) return {};
  return std::string_view(name) == "." ? opened->path : opened->path + "/" + name;
}

int Machine::list_at(int dir, const char *name, const char *prefix, std::vector<std::string> &names) {
  const std::lock_guard guard(mutex_);
  const std::string path = below(dir, name);
  return path.empty() ? -ENOENT : list(path.c_str(), prefix, names);
}

ssize_t Machine::read_link_at(int dir, const char *name, char *buf, size_t size) {
  const std::lock_guard guard(mutex_);
  const std::string path = below(dir, name);
  return path.empty() ? -ENOENT : read_link(path.c_str(), buf, size);
}

int Machine::unlink(const char *path) {
  const std::lock_guard guard(mutex_);
  if (const int rc = enter(Verb::unlink, path); rc != 0) return rc;
  if (const std::string real = folder_.empty() ? "" : plain_path(path); !real.empty()) {
    return ::unlink(real.c_str()) != 0 ? -errno : 0;
  }
  int error = 0;
  auto node = vfs_.find(path, false, &error);
  if (!node) return -error;
  if (node->kind == NodeKind::dir) return -EISDIR;
  if (node->sysfs) return -EPERM;
  vfs_.remove(path);
  return 0;
}

int Machine::rename(const char *from, const char *to) {
  const std::lock_guard guard(mutex_);
  if (const int rc = enter(Verb::rename, from); rc != 0) return rc;
  const std::string real = folder_.empty() ? "" : plain_path(from);
  const std::string real_to = folder_.empty() ? "" : plain_path(to);
  if (!real.empty() && !real_to.empty()) return ::rename(real.c_str(), real_to.c_str()) != 0 ? -errno : 0;
  int error = 0;
  auto node = vfs_.find(from, false, &error);
  if (!node) return -error;
  if (node->sysfs) return -EPERM;
  vfs_.remove(to);
  vfs_.put_text(to, node->data, node->mode);
  vfs_.remove(from);
  return 0;
}

int Machine::sync(int fd) {
  const std::lock_guard guard(mutex_);
  OpenFile *opened = file(fd);
  if (const int rc = enter(Verb::sync, opened != nullptr ? opened->path : ""); rc != 0) return rc;
  return opened == nullptr ? -EBADF : 0;
}

mode_t Machine::set_umask(mode_t mask) {
  const std::lock_guard guard(mutex_);
  return std::exchange(file_mask, mask);
}

int Machine::run(const char *command) {
  const std::lock_guard guard(mutex_);
  if (const int rc = enter(Verb::run, command); rc != 0) return rc;
  if (folder_.empty()) {
    commands_.emplace_back(command);
  } else {
    append_line(folder_ + "/commands", command);
  }
  return 0;
}

int Machine::ioctl(int fd, unsigned long request, void *arg) {
  std::unique_lock guard(mutex_);
  OpenFile *opened = file(fd);
  if (const int rc = enter(Verb::ioctl, opened != nullptr ? opened->path : ""); rc != 0) return rc;
  if (opened == nullptr) return -EBADF;
  if (!opened->node) return -ENOTTY;
  const std::shared_ptr<Node> node = opened->node;
  if (!node->handlers || !node->handlers->ioctl) return -ENOTTY;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  for (bool first = true;; first = false) {
    {
      const StateLock state_lock(*this);
      if (node->removed) return -ENODEV;  // also when another process has just removed it
      repeating_ = !first;
      const int rc = node->handlers->ioctl(*opened, request, arg);
      repeating_ = false;
      if (rc != kWaits) return rc;
    }
    if (Processes::killed()) return -EINTR;
    if (std::chrono::steady_clock::now() >= end) return -ETIMEDOUT;
    // Other processes on the folder cannot tell us of a change.
    processes_.wait_for_change(guard, folder_.empty() ? 1000 : 50);
    opened = file(fd);
    if (opened == nullptr) return -EBADF;
  }
}

int Machine::sg_ioctl(Lun &lun, const std::string &path, unsigned long request, void *arg) {
  if (request != SG_IO) return -ENOTTY;
  if (!sg_handler_) return -EIO;
  return sg_handler_(lun, path, arg);
}

int Machine::lock(int fd, int operation) {
  std::unique_lock guard(mutex_);
  OpenFile *opened = file(fd);
  if (const int rc = enter(Verb::lock, opened != nullptr ? opened->path : ""); rc != 0) return rc;
  if (opened == nullptr) return -EBADF;
  if (opened->real_fd < 0 && folder_.empty()) return lock_in_memory(guard, *opened, operation);

  // Processes that share the folder exclude one another through a real lock.
  int real = opened->real_fd;
  if (real < 0) {
    if (opened->lock_fd < 0) opened->lock_fd = open_lock_file(folder_, vfs_, opened->path);
    if (opened->lock_fd < 0) return -EIO;
    real = opened->lock_fd;
  }
  guard.unlock();
  int rc = 0;
  do {
    rc = ::flock(real, operation);
  } while (rc != 0 && errno == EINTR);
  const int error = errno;
  guard.lock();
  opened = file(fd);
  if (rc == 0 && opened != nullptr && opened->node) {
    release_locks(fd, opened->node.get());
    if ((operation & LOCK_UN) == 0) locks_[opened->node.get()].shared.push_back(fd);
  }
  return rc == 0 ? 0 : -error;
}

int Machine::lock_in_memory(std::unique_lock<std::recursive_mutex> &guard, OpenFile &opened, int operation) {
  const int fd = opened.fd;
  const std::shared_ptr<Node> node = opened.node;
  const int what = operation & ~LOCK_NB;
  if (what != LOCK_EX && what != LOCK_SH && what != LOCK_UN) return -EINVAL;
  release_locks(fd, node.get());
  if (what == LOCK_UN) return 0;
  auto is_free = [&] {
    const FileLock &held = locks_[node.get()];
    return held.exclusive < 0 && (what == LOCK_SH || held.shared.empty());
  };
  if (!is_free() && (operation & LOCK_NB) != 0) return -EWOULDBLOCK;
  lock_released_.wait(guard, is_free);
  FileLock &held = locks_[node.get()];
  if (what == LOCK_EX) {
    held.exclusive = fd;
  } else {
    held.shared.push_back(fd);
  }
  return 0;
}

void Machine::release_locks(int fd, const Node *node) {
  auto it = locks_.find(node);
  if (it == locks_.end()) return;
  if (it->second.exclusive == fd) it->second.exclusive = -1;
  std::erase(it->second.shared, fd);
  if (it->second.exclusive < 0 && it->second.shared.empty()) locks_.erase(it);
  lock_released_.notify_all();
}

size_t Machine::open_fds() {
  const std::lock_guard guard(mutex_);
  return static_cast<size_t>(
      std::count_if(files_.begin(), files_.end(), [](auto &f) { return f != nullptr; }));
}

size_t Machine::held_locks() {
  const std::lock_guard guard(mutex_);
  size_t count = 0;
  for (auto &[node, held] : locks_)
    count += held.shared.size() + (held.exclusive >= 0 ? 1 : 0);
  return count;
}

int Machine::host_name(char *buf, size_t size) {
  const std::lock_guard guard(mutex_);
  if (const int rc = enter(Verb::host_name, ""); rc != 0) return rc;
  if (size == 0) return -EINVAL;
  const size_t length = std::min(size - 1, computer.size());
  std::memcpy(buf, computer.data(), length);
  buf[length] = '\0';
  return 0;
}

int Machine::clock_resolution(timespec *answer) {
  const std::lock_guard guard(mutex_);
  if (const int rc = enter(Verb::clock_resolution, ""); rc != 0) return rc;
  *answer = resolution;
  return 0;
}

time_t Machine::now() {
  {
    const std::lock_guard guard(mutex_);
    fill();
  }
  const time_t set = clock;
  return set != 0 ? set : ::time(nullptr);
}

void Machine::sleep_us(uint64_t microseconds) {
  {
    std::unique_lock guard(mutex_);
    fill();
    if (Processes::is_child()) {
      // Nobody's time but the child's, which must not spin; a kill ends it.
      if (folder_.empty()) delays_.push_back(microseconds);
      if (!Processes::killed()) processes_.wait_for_change(guard, 10);
      return;
    }
    if (folder_.empty()) {
      delays_.push_back(microseconds);
      return;
    }
  }
  ::usleep(static_cast<useconds_t>(std::min<uint64_t>(microseconds, 100000)));
}

void Machine::syslog_open(const char *ident, int, int) {
  const std::lock_guard guard(mutex_);
  ident_ = ident != nullptr ? ident : "";
}

void Machine::syslog_close() {
  const std::lock_guard guard(mutex_);
  ident_.clear();
}

void Machine::syslog(int, const char *text) {
  const std::lock_guard guard(mutex_);
  fill();
  if (!folder_.empty()) {
    append_line(folder_ + "/syslog", ident_ + "[" + std::to_string(::getpid()) + "]: " + text);
    return;
  }
  syslog_.emplace_back(text);
}

std::vector<std::string> Machine::syslog_lines() {
  const std::lock_guard guard(mutex_);
  return syslog_;
}

bool Machine::logged(std::string_view text) {
  const std::lock_guard guard(mutex_);
  return std::any_of(syslog_.begin(), syslog_.end(),
                     [&](const std::string &line) { return line.find(text) != std::string::npos; });
}

std::string Machine::syslog_ident() {
  const std::lock_guard guard(mutex_);
  return ident_;
}

std::vector<Write> Machine::writes() {
  const std::lock_guard guard(mutex_);
  return writes_;
}

std::vector<Request> Machine::requests() {
  const std::lock_guard guard(mutex_);
  return requests_;
}

std::vector<uint64_t> Machine::delays() {
  const std::lock_guard guard(mutex_);
  return delays_;
}

std::vector<std::string> Machine::commands() {
  const std::lock_guard guard(mutex_);
  return commands_;
}

void Machine::record(Request request) {
  // A shared machine lives as long as its command: nobody asks, and the list must not grow.
  if (folder_.empty() && !repeating_) requests_.push_back(std::move(request));
}

void Machine::clear_records() {
  const std::lock_guard guard(mutex_);
  syslog_.clear();
  writes_.clear();
  requests_.clear();
  delays_.clear();
  commands_.clear();
  for (auto &count : calls_)
    count = 0;
}

}  // namespace sim
