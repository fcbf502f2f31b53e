// SPDX-License-Identifier: BSD-3-Clause
// Child processes of the simulated machine. Each is a thread of this process with a number that no real process has;
// it sees a parent, and can be killed out of its waits. Guarded by the machine's mutex.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace sim {

class Machine;

class Processes {
 public:
  explicit Processes(Machine &machine) : machine_(machine) {}
  ~Processes();
  Processes(const Processes &) = delete;
  Processes &operator=(const Processes &) = delete;

  // Children that have not been waited for.
  [[nodiscard]] size_t count();
  // Lets a child's end be as if the parent had gone.
  void orphan(int pid);

  int spawn(int (*body)(void *, int), void *arg, size_t size);
  int signal(int pid, int number);
  int wait(int pid, int *status, int options);
  int parent_pid();
  // For waits inside the machine: whether the calling thread is a child that has been killed, or is a child at all.
  static bool killed();
  static bool is_child();
  // Waits at most so long, with the machine's mutex given back; ends early when the machine changes or the calling
  // child is killed.
  void wait_for_change(std::unique_lock<std::recursive_mutex> &guard, int milliseconds);
  void changed() { changed_.notify_all(); }

 private:
  struct Process {
    int pid = 0;
    std::vector<char> arg;
    std::thread thread;
    bool done = false;
    bool killed = false;
    bool orphaned = false;
    int result = 0;
  };
  Process *find(int pid);
  static thread_local Process *self_;

  Machine &machine_;
  std::condition_variable_any changed_;
  std::vector<std::unique_ptr<Process>> processes_;
  int next_pid_ = 0x40000000;
};

}  // namespace sim
