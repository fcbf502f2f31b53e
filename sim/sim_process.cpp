// SPDX-License-Identifier: BSD-3-Clause
// Simulated child processes: threads that run a child's body. A signal that a child sends to its parent is a real one
// to this process; one that is sent to a child ends its waits, and its body finds itself without parent.
#include "sim_process.h"

#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "sim_machine.h"

namespace sim {

thread_local Processes::Process *Processes::self_ = nullptr;

Processes::~Processes() {
  {
    const std::lock_guard guard(machine_.mutex());
    for (auto &process : processes_)
      process->killed = true;
    changed_.notify_all();
  }
  for (auto &process : processes_) {
    if (process->thread.joinable()) process->thread.join();
  }
}

Processes::Process *Processes::find(int pid) {
  const auto found = std::find_if(processes_.begin(), processes_.end(),
                                  [pid](auto &process) { return process->pid == pid; });
  return found == processes_.end() ? nullptr : found->get();
}

size_t Processes::count() {
  const std::lock_guard guard(machine_.mutex());
  return processes_.size();
}

void Processes::orphan(int pid) {
  const std::lock_guard guard(machine_.mutex());
  if (Process *process = find(pid)) process->orphaned = true;
  changed_.notify_all();
}

int Processes::spawn(int (*body)(void *, int), void *arg, size_t size) {
  const std::lock_guard guard(machine_.mutex());
  if (const int rc = machine_.enter(Verb::spawn, ""); rc != 0) return rc;
  processes_.push_back(std::make_unique<Process>());
  Process *process = processes_.back().get();
  process->pid = next_pid_++;
  process->arg.assign(static_cast<char *>(arg), static_cast<char *>(arg) + size);
  // A process ignores SIGUSR1 and has signals of its own; a thread has to keep its hands off this process's.
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  process->thread = std::thread([this, process, body] {
    self_ = process;
    const int result = body(process->arg.data(), process->pid);
    const std::lock_guard done(machine_.mutex());
    process->result = result;
    process->done = true;
    changed_.notify_all();
  });
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return process->pid;
}

int Processes::signal(int pid, int number) {
  const std::lock_guard guard(machine_.mutex());
  if (const int rc = machine_.enter(Verb::signal, ""); rc != 0) return rc;
  if (pid == ::getpid()) return ::kill(pid, number) < 0 ? -errno : 0;
  Process *process = find(pid);
  if (process == nullptr) return -ESRCH;
  if (number == SIGKILL && !process->done) process->killed = true;
  changed_.notify_all();
  return 0;
}

int Processes::wait(int pid, int *status, int options) {
  std::unique_lock guard(machine_.mutex());
  if (const int rc = machine_.enter(Verb::wait_child, ""); rc != 0) return rc;
  if (find(pid) == nullptr) return -ECHILD;
  if ((options & WNOHANG) != 0 && !find(pid)->done) return 0;
  changed_.wait(guard, [&] { return find(pid) == nullptr || find(pid)->done; });
  Process *process = find(pid);
  if (process == nullptr) return -ECHILD;
  if (status != nullptr) *status = process->killed ? SIGKILL : (process->result & 0xff) << 8;
  process->thread.join();
  std::erase_if(processes_, [process](auto &entry) { return entry.get() == process; });
  return pid;
}

int Processes::parent_pid() {
  const std::lock_guard guard(machine_.mutex());
  if (self_ == nullptr) return ::getppid();
  return self_->killed || self_->orphaned ? 1 : ::getpid();
}

bool Processes::killed() {
  return self_ != nullptr && self_->killed;
}

bool Processes::is_child() {
  return self_ != nullptr;
}

void Processes::wait_for_change(std::unique_lock<std::recursive_mutex> &guard, int milliseconds) {
  changed_.wait_for(guard, std::chrono::milliseconds(milliseconds));
}

}  // namespace sim
