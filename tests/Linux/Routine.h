// SPDX-License-Identifier: MIT
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>

// A routine for a thread under test: waits in a read, as the receive threads do, until it is
// released or cancelled.
class Routine {
 public:
  Routine() { EXPECT_EQ(0, pipe2(ends, O_CLOEXEC)); }
  ~Routine() {
    (void)close(ends[0]);
    (void)close(ends[1]);
  }
  Routine(const Routine&) = delete;
  Routine& operator=(const Routine&) = delete;

  static void* Run(void* routine) {
    static_cast<Routine*>(routine)->RunHere();
    return nullptr;
  }

  void Release() const { EXPECT_EQ(1, write(ends[1], "", 1)); }
  bool Returned() const { return returned; }

 private:
  void RunHere() {
    char byte = 0;
    returned = read(ends[0], &byte, 1) == 1;
  }

  int ends[2] = {-1, -1};
  std::atomic<bool> returned{false};
};
