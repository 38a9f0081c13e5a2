// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

// The relay service: the peer that connects to the service under test and gives it commands.
class Relay {
 public:
  static constexpr uint16_t kDefaultPort = 60004;

  // Connects, as soon as somebody listens. `from` is the peer's own address.
  explicit Relay(uint16_t port = kDefaultPort, const char* from = "127.0.0.1");
  ~Relay();
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  bool IsConnected() const { return stream != -1; }

  // Sends bytes written as in Wire.h.
  void Sends(const std::string& text) const;
  void SendsBytes(const std::string& bytes) const;

  // The next packet from the service as Wire() writes it; "closed" when the service has closed the
  // stream, "nothing" when the deadline passes.
  std::string NextPacket();

  // Sends a command and gives the next packet.
  std::string Answer(const std::string& text);

  // Leaves the way a program does that ends.
  void Leaves();

  // Leaves with a reset.
  void Resets();

  // Sends no more, but goes on reading.
  void EndsSending() const;

 private:
  bool Fill(size_t count);

  int stream = -1;
  bool isClosed = false;
  std::string received;
};
