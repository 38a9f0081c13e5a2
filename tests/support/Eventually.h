// SPDX-License-Identifier: MIT
// Waiting for a condition instead of for a time.
#pragma once

#include <time.h>

#include <chrono>

// A passing run never meets it, also with sanitizers on a busy machine.
constexpr std::chrono::seconds kDeadline{100};

// True as soon as `condition` holds, false when it still does not after `limit`. The pause is not a
// usleep: tests replace that.
template <typename Condition>
bool Eventually(Condition condition, std::chrono::milliseconds limit = kDeadline) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return condition();
    }
    const timespec pause{0, 2'000'000};
    (void)nanosleep(&pause, nullptr);
  }
  return true;
}

// How long `action` takes.
template <typename Action>
std::chrono::milliseconds TimeOf(Action action) {
  const auto begin = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               begin);
}
