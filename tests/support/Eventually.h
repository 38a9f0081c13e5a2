// SPDX-License-Identifier: MIT
#pragma once

#include <time.h>

#include <chrono>

// Waits until `condition` holds: true, or false when 100 seconds have passed, which no passing run
// does. The pause is not a usleep: tests replace that.
template <typename Condition>
bool Eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(100);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    const timespec pause{0, 1'000'000};
    (void)nanosleep(&pause, nullptr);
  }
  return true;
}
