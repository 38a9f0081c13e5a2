// SPDX-License-Identifier: MIT
// What the connection under test calls: a socket in the test's hands, and the thread class's calls,
// replaced at link time. Untouched, they go through.
#pragma once

#include <atomic>
#include <functional>

#include "Linux/LinuxSocket.h"

struct CommCalls {
  std::atomic<bool> noThreads{false};   // pthread_create fails
  std::atomic<int> receivingThread{0};  // the one that entered Recv last
  std::function<void()> onReceived;     // runs behind each Recv, before its caller sees the result
  std::function<void()> onSleep;        // runs in each sleep of the thread class
};

extern CommCalls commCalls;

// A real one, whose Recv does what CommCalls says.
class WatchedSocket final : public CAbstractSocket {
 public:
  int Listen(uint32_t port) override { return socket.Listen(port); }
  int Connect(uint32_t port) override { return socket.Connect(port); }
  int Close() override { return socket.Close(); }
  int Send(const uint8_t* data, int length) override { return socket.Send(data, length); }
  int Recv(uint8_t* buffer, int capacity) override;

 private:
  CLinuxSocket socket;
};

// Waits until the receive thread sleeps in recv.
bool WaitUntilReceiving();
