// SPDX-License-Identifier: MIT
#pragma once

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "support/Eventually.h"

// A routine for a thread under test: runs until it is released or cancelled. What it waits in is
// a cancellation point.
class Routine {
 public:
  static void* Run(void* routine) {
    static_cast<Routine*>(routine)->RunHere();
    return nullptr;
  }

  void Release() { released = true; }
  bool Runs() const { return thread != 0; }
  bool Returned() const { return returned; }

  // True once the thread has ended for the kernel, too: then joining it does not wait.
  bool HasEnded() const {
    return thread != 0 && tgkill(getpid(), thread, 0) == -1 && errno == ESRCH;
  }

 private:
  void RunHere() {
    thread = gettid();
    while (!released) {
      const timespec pause{0, 1'000'000};
      (void)nanosleep(&pause, nullptr);
    }
    returned = true;
  }

  std::atomic<pid_t> thread{0};
  std::atomic<bool> released{false};
  std::atomic<bool> returned{false};
};
