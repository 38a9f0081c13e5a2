// SPDX-License-Identifier: MIT
// Calls of the connection under test, replaced at link time. Untouched, they go through.
#pragma once

#include <atomic>
#include <functional>

struct CommCalls {
  std::atomic<int> sendLimit{-1};         // a send takes no more bytes than this; -1: no limit
  std::atomic<int> sendsBeforeError{-1};  // as many sends succeed, then each fails; -1: none fails
  std::atomic<int> sends{0};
  std::atomic<bool> noThreads{false};   // pthread_create fails
  std::atomic<int> receivingThread{0};  // the one that entered recv last
  std::function<void()> onReceived;     // runs behind each recv, before its caller sees the result
  std::function<void()> onSleep;        // runs in each sleep of the thread class
};

extern CommCalls commCalls;

// Waits until the receive thread sleeps in recv.
bool WaitUntilReceiving();
