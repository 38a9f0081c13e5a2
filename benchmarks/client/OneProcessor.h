// SPDX-License-Identifier: MIT
#pragma once

#include <sched.h>

#include <atomic>
#include <thread>
#include <vector>

#include "client/Bridge.h"

// Makes the machine one with a single processor, for this program and a bridge, as long as it
// lives. One message at a time needs no second one, and whether the kernel wakes a sleeping one for
// a step in between would decide about the result: so the others are kept busy.
class OneProcessor {
 public:
  explicit OneProcessor(const Bridge& bridge);
  ~OneProcessor();
  OneProcessor(const OneProcessor&) = delete;
  OneProcessor& operator=(const OneProcessor&) = delete;

 private:
  void KeepBusy(size_t processor);

  const Bridge& moved;
  cpu_set_t all;
  std::atomic<bool> ended{false};
  std::vector<std::thread> spinners;
};
