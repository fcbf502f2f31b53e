// SPDX-License-Identifier: BSD-3-Clause
// The simulated machine: what hcx::sysio asks of a kernel, answered from a model of a server with FC and FCoE
// adapters of the vosk driver. A test makes one, adds hosts, remote ports and LUNs (or default_san()), puts
// it behind the library with Installed, and looks afterwards at what the library did. hcxsim uses the same
// class on top of a state folder that several processes share.
//
// It is a model of the outside and shares no parser, record or codec with the library. All members may be
// called from any thread; one recursive mutex guards the whole machine, and only a wait for a file lock lets
// go of it. The references that add_host(), add_rport() and add_lun() return stay good until that object is
// removed.
#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hcx_sysio.h"
#include "sim_bsg.h"
#include "sim_events.h"
#include "sim_host.h"
#include "sim_netlink.h"
#include "sim_process.h"
#include "sim_vfs.h"

namespace sim {

enum class Verb {
  any,
  open,
  close,
  read,
  write,
  seek,
  lock,
  stat,
  fstat,
  truncate,
  list,
  read_link,
  unlink,
  rename,
  sync,
  run,
  ioctl,
  host_name,
  netlink_alloc,
  netlink_connect,
  netlink_receive,
  spawn,
  signal,
  wait_child,
  clock_resolution,
  count_
};

// A call to be answered with an error, or cut short. The nth matching call is hit, counted from when the
// fault is set; with `persistent` every later one too. A close that fails has closed all the same.
struct Fault {
  Verb verb = Verb::any;
  std::string path = {};  // part of the path as the caller gave it to open; empty = any
  int nth = 1;
  bool persistent = false;
  int error = EIO;
  std::optional<size_t> short_count = {};  // read, write: move at most so many bytes instead of failing
  bool kill = false;                       // the process ends here, as if by SIGKILL
};

struct Write {
  std::string path;  // as opened
  std::string text;
};

// One request to a BSG or SCSI generic node, as the driver saw it.
struct Request {
  std::string path = {};
  uint32_t msgcode = 0;     // 0 for SG_IO on a LUN
  uint32_t command = 0;     // vendor command, ELS code or SCSI operation code
  uint32_t timeout = 0;     // milliseconds
  std::string header = {};  // the whole request block (BSG) or CDB (SG)
  std::string data_out = {};
  uint32_t data_in_size = 0;
};

struct OpenFile {
  int fd = -1;
  std::string path;
  std::shared_ptr<Node> node;
  int flags = 0;
  off_t position = 0;
  std::string snapshot;  // text as of the last read from position 0
  int lock_fd = -1;      // descriptor of the lock file when a state folder is in use
  int real_fd = -1;      // plain files of a state folder
};

class Machine : public hcx::sysio::Machine {
 public:
  Machine();
  ~Machine() override;

  // --- what stands in the machine ---
  // Sysfs layout: 2 as kernels from 2.6.12 on, 1 without fc_remote_ports, 0 without fc_host too. Before any
  // host.
  void generation(int value);
  [[nodiscard]] int generation() const { return generation_; }
  // Whether the transport has a class for virtual ports: kernels of layout 2 came without it at first, and left
  // virtual ports to the driver. Before any host.
  void vport_class(bool value);
  [[nodiscard]] bool has_vport_class() const { return generation_ >= 2 && vport_class_; }
  // The management interface version that the driver reports.
  void driver_version(uint32_t major, uint32_t minor);
  [[nodiscard]] uint32_t driver_major() const { return driver_major_; }
  [[nodiscard]] uint32_t driver_minor() const { return driver_minor_; }
  Host &add_host(HostSpec spec = {});
  void remove_host(int number);
  Host *host(int number);  // null when there is none
  std::vector<Host *> hosts();
  bool is_there(const Host *host);
  Vfs &vfs() { return vfs_; }
  Bsg &bsg() { return bsg_; }
  Netlinks &netlink() { return netlink_; }
  Processes &processes() { return processes_; }
  Events &events() { return events_; }
  // Called for every host that is there and every one that comes, virtual ones included: an area's way to add
  // its attributes and their handlers.
  void on_host(std::function<void(Host &)> hook);
  // SG_IO on the generic node of a LUN (arg is a struct sg_io_hdr); the result is that of the ioctl.
  void on_sg(std::function<int(Lun &, const std::string &path, void *arg)> handler) {
    sg_handler_ = std::move(handler);
  }
  // Device numbers and names in the order of arrival, as the kernel hands them out.
  int next_sg() { return sg_count_++; }
  int next_disk() { return disk_count_++; }
  int next_tape() { return tape_count_++; }
  int next_bsg_minor() { return bsg_count_++; }
  int next_host_number() { return host_count_++; }
  void take_host_number(int number) { host_count_ = std::max(host_count_, number + 1); }
  // Whether the caller is the superuser; not being it, only what all may read can be read.
  bool superuser = true;

  // --- faults ---
  void fail(Fault fault);
  // The nth call of any verb from now on.
  void fail_nth(int n, bool persistent = false, int error = EIO);
  void clear_faults();
  // Whether a fault set since the last clear has hit.
  [[nodiscard]] bool fault_hit() const { return fault_hit_; }

  // --- records ---
  [[nodiscard]] uint64_t calls(Verb verb) const { return calls_[static_cast<size_t>(verb)]; }
  [[nodiscard]] uint64_t total_calls() const { return calls_[0]; }
  [[nodiscard]] size_t open_fds();
  [[nodiscard]] size_t held_locks();
  std::vector<std::string> syslog_lines();
  // Whether a line holds the text.
  bool logged(std::string_view text);
  std::string syslog_ident();
  std::vector<Write> writes();  // refused ones included
  std::vector<Request> requests();
  std::vector<uint64_t> delays();  // microseconds
  // Lists for tests are kept; not where a folder is shared and the machine lives as long as its command.
  [[nodiscard]] bool records_kept() const { return folder_.empty(); }
  std::vector<std::string> commands();  // given to the shell
  void record(Request request);
  void clear_records();

  // The file creation mask last set.
  mode_t file_mask = 022;

  // What host_name() answers.
  std::string computer = "simhost";

  // What now() answers; 0 = the real time.
  std::atomic<time_t> clock{1700000000};
  // What clock_resolution() answers.
  timespec resolution = {0, 1};

  // --- state that outlives the process (in memory only unless a folder is set) ---
  // Uses a folder shared with other processes: written attributes and host state are loaded from it now and
  // whenever another process changed them, plain files live under DIR/root, locks are real ones. Call it when
  // all is added.
  void use_state(const std::string &folder);
  // Run before the first call that needs the machine: how it comes to be filled.
  void on_first_use(std::function<void()> fill) { fill_ = std::move(fill); }
  // State of no host in particular.
  nlohmann::json &state();
  // Says that state() or a host's state() changed; written out at the end of the verb or by save().
  void touch() { dirty_ = true; }
  void save();
  // Runs `body` as one change that other processes on the folder see whole.
  void change(const std::function<void()> &body);
  // Called after another process's changes were loaded.
  void on_reload(std::function<void()> hook) { reload_hooks_.push_back(std::move(hook)); }
  // For what happens a moment later: from await() on, the hooks run at every look into a directory of the tree,
  // before it, until none of them says that it still waits.
  void on_look(std::function<bool(std::string_view path)> hook) { look_hooks_.push_back(std::move(hook)); }
  void await() { awaiting_ = true; }
  // Sets an attribute's text as a write by the driver itself would, and keeps it in the state.
  void set_text(const std::string &path, const std::string &text);
  // What a file outside of sysfs and /dev holds.
  std::string plain_text(const std::string &path);

  std::recursive_mutex &mutex() { return mutex_; }

  // --- hcx::sysio::Machine ---
  int open(const char *path, int flags, mode_t mode) override;
  int close(int fd) override;
  ssize_t read(int fd, void *buf, size_t count) override;
  ssize_t write(int fd, const void *buf, size_t count) override;
  off_t seek(int fd, off_t offset) override;
  int lock(int fd, int operation) override;
  int64_t stat(const char *path, mode_t *mode) override;
  int fstat(int fd, mode_t *mode, nlink_t *links) override;
  int truncate(int fd, off_t size) override;
  int list(const char *path, const char *prefix, std::vector<std::string> &names) override;
  ssize_t read_link(const char *path, char *buf, size_t size) override;
  int list_at(int dir, const char *name, const char *prefix, std::vector<std::string> &names) override;
  ssize_t read_link_at(int dir, const char *name, char *buf, size_t size) override;
  int unlink(const char *path) override;
  int rename(const char *from, const char *to) override;
  int sync(int fd) override;
  mode_t set_umask(mode_t mask) override;
  // Recorded, not run; with a state folder in its file "commands".
  int run(const char *command) override;
  int ioctl(int fd, unsigned long request, void *arg) override;
  hcx::sysio::Netlink *netlink_alloc() override { return netlink_.alloc(); }
  int netlink_connect(hcx::sysio::Netlink *socket, int protocol, uint32_t groups) override {
    return netlink_.connect(socket, protocol, groups);
  }
  int netlink_wait(hcx::sysio::Netlink *socket, const sigset_t *mask) override {
    return netlink_.wait(socket, mask);
  }
  ssize_t netlink_receive(hcx::sysio::Netlink *socket, hcx::sysio::Datagram *datagram) override {
    return netlink_.receive(socket, datagram);
  }
  void netlink_wake(hcx::sysio::Netlink *socket) override { netlink_.wake(socket); }
  void netlink_done(hcx::sysio::Netlink *socket) override { netlink_.done(socket); }
  bool netlink_wait_done(hcx::sysio::Netlink *socket, int milliseconds) override {
    return netlink_.wait_done(socket, milliseconds);
  }
  void netlink_close(hcx::sysio::Netlink *socket) override { netlink_.close(socket); }
  void netlink_free(hcx::sysio::Netlink *socket) override { netlink_.free(socket); }
  int spawn(int (*body)(void *, int), void *arg, size_t size) override {
    return processes_.spawn(body, arg, size);
  }
  int signal(int pid, int number) override { return processes_.signal(pid, number); }
  int wait_child(int pid, int *status, int options) override { return processes_.wait(pid, status, options); }
  int parent_pid() override { return processes_.parent_pid(); }
  time_t now() override;
  int clock_resolution(timespec *answer) override;
  int host_name(char *buf, size_t size) override;
  // Recorded; with a state folder also slept, for a tenth of a second at most.
  void sleep_us(uint64_t microseconds) override;
  void syslog_open(const char *ident, int options, int facility) override;
  void syslog_close() override;
  void syslog(int priority, const char *text) override;
  void syslog_direct(const char *, int priority, const char *text) override { syslog(priority, text); }

 private:
  friend class Host;
  friend class Rport;
  friend class Lun;
  friend class Netlinks;
  friend class Processes;
  class StateLock;

  struct FileLock {
    int exclusive = -1;
    std::vector<int> shared;
  };

  // Counts the call and answers the fault that hits it: 0 or a negated errno; *limit is cut for short counts.
  void fill();
  int enter(Verb verb, std::string_view path, size_t *limit = nullptr);
  OpenFile *file(int fd);
  // The path of a name in an open directory; empty when that is no longer there.
  std::string below(int dir, const char *name);
  int permitted(const Node &node, int flags) const;
  int open_plain(const char *path, int flags, mode_t mode);
  std::string plain_path(std::string_view path) const;
  void seed_plain_files();
  int lock_in_memory(std::unique_lock<std::recursive_mutex> &guard, OpenFile &file, int operation);
  void release_locks(int fd, const Node *node);
  ssize_t write_node(OpenFile &file, const void *buf, size_t count);
  int sg_ioctl(Lun &lun, const std::string &path, unsigned long request, void *arg);
  void reload_if_changed();
  void look(std::string_view path);
  void load_state();
  void apply_texts();

  std::recursive_mutex mutex_;
  std::condition_variable_any lock_released_;
  Vfs vfs_;
  Bsg bsg_;
  int generation_ = 2;
  bool vport_class_ = true;
  uint32_t driver_major_ = 2, driver_minor_ = 0;
  std::vector<std::unique_ptr<Host>> hosts_;
  std::vector<std::function<void(Host &)>> host_hooks_;
  std::vector<std::function<void()>> reload_hooks_;
  std::vector<std::function<bool(std::string_view)>> look_hooks_;
  bool awaiting_ = false;
  std::function<int(Lun &, const std::string &, void *)> sg_handler_;
  int sg_count_ = 0, disk_count_ = 0, tape_count_ = 0, bsg_count_ = 0, host_count_ = 0;

  std::vector<std::unique_ptr<OpenFile>> files_;
  std::map<const Node *, FileLock> locks_;

  struct ArmedFault {
    Fault fault;
    int seen = 0;
  };
  std::vector<ArmedFault> faults_;
  bool fault_hit_ = false;
  std::atomic<uint64_t> calls_[static_cast<size_t>(Verb::count_)] = {};

  std::vector<std::string> syslog_;
  std::string ident_;
  std::vector<Write> writes_;
  std::vector<Request> requests_;
  std::vector<uint64_t> delays_;
  std::vector<std::string> commands_;

  std::function<void()> fill_;
  std::string folder_;
  std::unique_ptr<nlohmann::json> state_;
  bool dirty_ = false;
  int state_depth_ = 0;  // how often the state's lock is taken by this thread, which holds the mutex too
  int64_t state_stamp_[3] = {0, 0, 0};
  bool repeating_ = false;  // a request that waits is being handed in again

  // Last, so that children end before what they use.
  Netlinks netlink_{*this};
  Events events_{*this};
  Processes processes_{*this};
};

// Two dual-port cards and a small SAN; docs/hcxsim.md lists it.
void default_san(Machine &machine);

// A SAN of any size: `hosts` boards with `targets` remote ports each and `luns` disks behind each.
void scaled_san(Machine &machine, int hosts, int targets, int luns);

// Puts a machine behind the library for as long as it lives.
class Installed {
 public:
  explicit Installed(Machine &machine) { LIBHCX_private_set_machine(&machine); }
  ~Installed() { LIBHCX_private_set_machine(nullptr); }
  Installed(const Installed &) = delete;
  Installed &operator=(const Installed &) = delete;
};

}  // namespace sim
