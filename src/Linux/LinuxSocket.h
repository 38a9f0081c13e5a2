// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

#include "Linux/AbstractSocket.h"

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
  int Fail();

  // -1: none. Written by the controlling thread (and its signal handlers), read by all.
  std::atomic<int> listenDescriptor{-1};
  std::atomic<int> connectionDescriptor{-1};
};
