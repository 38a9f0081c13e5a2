// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <functional>
#include <vector>

// What is to be put right even when this process is killed: a second process, which does nothing
// else, waits for that, and does it. Without a second process, only being killed goes unmended.
class LastWill {
 public:
  // `will` runs in the second process, which has only the `descriptors` of this one; -1 is none of
  // them. To be made while the process has one thread. Blocks until it has let go of all others.
  LastWill(const std::function<void()>& will, const std::vector<int>& descriptors);

  // There is nothing left to put right.
  ~LastWill();
  LastWill(const LastWill&) = delete;
  LastWill& operator=(const LastWill&) = delete;

 private:
  int line = -1;  // to the second process
  pid_t executor = -1;
};
