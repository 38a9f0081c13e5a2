// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <functional>
#include <utility>

// Runs `step` on a thread whose cancellation is pending from before it on.
class CancelledThread {
 public:
  explicit CancelledThread(std::function<void()> toRun) : step(std::move(toRun)) {
    pthread_t thread{};
    EXPECT_EQ(0, pthread_create(&thread, nullptr, Run, this));
    EXPECT_EQ(0, pthread_cancel(thread));
    cancelPending = true;
    void* result = nullptr;
    EXPECT_EQ(0, pthread_join(thread, &result));
    wasCancelled = result == PTHREAD_CANCELED;
  }

  bool stepDone = false;
  bool wasCancelled = false;

 private:
  static void* Run(void* self) {
    static_cast<CancelledThread*>(self)->RunHere();
    return nullptr;
  }

  void RunHere() {
    while (!cancelPending) {  // no cancellation point
    }
    step();
    stepDone = true;
    pthread_testcancel();
  }

  std::function<void()> step;
  std::atomic<bool> cancelPending{false};
};
