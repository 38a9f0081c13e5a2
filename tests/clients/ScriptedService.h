// SPDX-License-Identifier: MIT
// A service that does what the test says, on a real socket.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <utility>

#include "relay/Packet.h"
#include "relay/Text.h"

// Has a free port, and one peer.
class ScriptedService {
 public:
  explicit ScriptedService(bool listens = true) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(0, bind(listening, generic, size));
    EXPECT_EQ(0, getsockname(listening, generic, &size));
    tcpPort = ntohs(address.sin_port);
    if (listens) {
      Listen();
    }
  }
  ~ScriptedService() {
    Leave();
    (void)close(listening);
  }
  ScriptedService(const ScriptedService&) = delete;
  ScriptedService& operator=(const ScriptedService&) = delete;

  uint16_t TcpPort() const { return tcpPort; }
  void Listen() const { EXPECT_EQ(0, listen(listening, 1)); }
  bool HasPeer() {
    peer = peer == -1 ? accept(listening, nullptr, nullptr) : peer;
    return peer != -1;
  }

  // The peer sees an end, or a reset where it has sent what was not taken.
  void Leave() {
    cutter.Clear();
    (void)close(std::exchange(peer, -1));
  }
  void Reset() {
    const linger atOnce = {1, 0};
    EXPECT_EQ(0, setsockopt(peer, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce));
    Leave();
  }

  void Sends(const char* hex) const {
    const std::string bytes = relay::FromHex(hex);
    EXPECT_EQ(static_cast<ssize_t>(bytes.size()),
              send(peer, bytes.data(), bytes.size(), MSG_NOSIGNAL));
  }

  // A packet that the client has sent, as hex, once it is whole.
  std::optional<std::string> Takes() {
    std::optional<std::string> packet = cutter.Next();
    for (char byte = 0; !packet && recv(peer, &byte, 1, MSG_DONTWAIT) == 1;) {
      cutter.Add(std::string_view(&byte, 1));
      packet = cutter.Next();
    }
    return packet ? std::optional(relay::ToHex(*packet)) : std::nullopt;
  }

 private:
  int listening = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  int peer = -1;
  relay::PacketCutter cutter;
  uint16_t tcpPort = 0;
};
