// SPDX-License-Identifier: MIT
// The C library's thread calls and usleep, replaced at link time: counted, made to fail on
// request, and with a sleep that takes no time.
#pragma once

#include <pthread.h>

#include <functional>
#include <vector>

struct ThreadCalls {
  int joinAttempts = 0;
  int cancels = 0;
  int detaches = 0;
  std::vector<unsigned> sleeps;    // microseconds
  std::vector<pthread_t> created;  // the threads made
  bool createdWithAttributes = false;

  int createResult = 0;  // what the calls return instead of 0 when it is not 0
  int cancelResult = 0;
  int detachResult = 0;
  int sleepResult = 0;
  std::function<void()> onSleep;  // runs in each sleep
};

// The calls of the test's own thread; those of other threads go through uncounted.
extern thread_local ThreadCalls* countedCalls;
