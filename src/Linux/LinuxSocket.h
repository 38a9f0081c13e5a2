// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <forward_list>

#include "Linux/AbstractSocket.h"
#include "Linux/UsedDescriptor.h"

// Reports its progress on standard output: "[LISTEN]IP:…", "[ACCEPT]IP:…", "[CONNECT]IP:…".
class CLinuxSocket final : public CAbstractSocket {
 public:
  CLinuxSocket();
  ~CLinuxSocket() override;  // closes
  CLinuxSocket(const CLinuxSocket&) = delete;
  CLinuxSocket& operator=(const CLinuxSocket&) = delete;

  int Listen(uint32_t port) override;
  int Connect(uint32_t port) override;
  int Close() override;
  int Send(const uint8_t* data, int length) override;
  int Recv(uint8_t* buffer, int capacity) override;

 private:
  bool Bind(uint32_t port);
  int AcceptPeer();
  CUsedDescriptor& Connection() { return *connection; }
  void Take(int number);
  int Fail();

  // -1: none. The controlling thread's, and its signal handlers'.
  std::atomic<int> listenDescriptor{-1};
  // Opened by the controlling thread, closed there and in signal handlers, used by all. The earlier
  // ones are those that a call was still under way on when the next one was opened.
  std::forward_list<CUsedDescriptor> connections{1};
  std::atomic<CUsedDescriptor*> connection{&connections.front()};
};
